// The module's 16-bit blending routines called directly, each body this processor
// runs (SSE2, and AVX2 where it has it): every routine against
// its formula over every destination sample 0..32768 on four row paths
// (aligned vector body, odd-address body, scalar head alone, and a head with the
// wider bodies' half step), and the edge cases
// of the scale, the mixes, the complement flags and the coverage branches. (The
// comparison with the reference host at every width, alignment and stride runs
// in the harness.)
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "blend/blend16.h"
#include "host/constants.h"
#include "host/kernels.h"
#include "tests/tiers.h"

using namespace tarnell;
using namespace tarnell::blend16;

namespace {

using Words = std::vector<uint16_t>;
constexpr uint32_t F = 32768;
uint32_t p16(uint32_t a, uint32_t b) { return (a * b + 16384) >> 15; }

// The bodies under test: every test runs once per level of bodies this
// processor runs (SSE2, and AVX2 where it has it).
const Blend16Table* g_bodies = nullptr;

std::vector<Level> blendLevels() {
  std::vector<Level> levels = {Level::sse2};
  if (flagsReach(tests::thisProcessor(), Level::avx2)) levels.push_back(Level::avx2);
  return levels;
}

class Blend16 : public ::testing::TestWithParam<Level> {
 protected:
  static void SetUpTestSuite() { fillConstantVectors(); }
  void SetUp() override { g_bodies = GetParam() == Level::avx2 ? &g_blend16Avx2 : &g_blend16Sse2; }
};

// A row of samples at a chosen byte offset from a 64-byte boundary.
struct Row {
  Row(const Words& w, int offset) : storage(w.size() * 2 + 128) {
    const auto base = reinterpret_cast<uintptr_t>(storage.data());
    bytes = storage.data() + ((64 - (base & 63)) & 63) + offset;
    std::memcpy(bytes, w.data(), w.size() * 2);
  }
  uint16_t* at(std::size_t i) { return reinterpret_cast<uint16_t*>(bytes + 2 * i); }
  Words words(std::size_t n) const {
    Words w(n);
    std::memcpy(w.data(), bytes, n * 2);
    return w;
  }
  std::vector<unsigned char> storage;
  unsigned char* bytes;
};

// (destination, a, b, columns): the routine on one row, a and b its other planes.
using RowCall = std::function<void(uint16_t* d, uint16_t* a, uint16_t* b, int32_t n)>;

// Runs call on the four paths and checks they agree; returns the destination.
Words runPaths(const RowCall& call, const Words& d, const Words& a, const Words& b, const char* name) {
  const auto n = static_cast<int32_t>(d.size());
  Words results[4];
  for (int path = 0; path < 4; ++path) {
    // Aligned destination; odd destination address; 7 samples a call from 2 bytes
    // past a boundary, which leaves every sample to the scalar head; a head of 5
    // samples up to 16 bytes past a 32-byte boundary (the wider bodies' half step).
    Row rd(d, path == 0 ? 0 : path == 1 ? 1 : path == 2 ? 2 : 6), ra(a, 6), rb(b, 3);
    if (path != 2) {
      call(rd.at(0), ra.at(0), rb.at(0), n);
    } else {
      for (int32_t i = 0; i < n; i += 7) {
        const auto at = static_cast<std::size_t>(i);
        call(rd.at(at), ra.at(at), rb.at(at), std::min(7, n - i));
      }
    }
    results[path] = rd.words(d.size());
  }
  EXPECT_EQ(results[0], results[1]) << name << ": odd address";
  EXPECT_EQ(results[0], results[2]) << name << ": scalar head";
  EXPECT_EQ(results[0], results[3]) << name << ": head and half step";
  return results[0];
}

// Destination 0..32768 (every sample value), the other planes spread over 0..32768.
struct Inputs {
  Words d, s, m;
  explicit Inputs(uint32_t weight) : d(F + 1), s(F + 1), m(F + 1, static_cast<uint16_t>(weight)) {
    for (uint32_t i = 0; i <= F; ++i) {
      d[i] = static_cast<uint16_t>(i);
      s[i] = static_cast<uint16_t>((i * 7919u) % (F + 1));
    }
  }
};

void expectFormula(const char* name, const RowCall& call, uint32_t weight,
                   const std::function<uint32_t(uint32_t d, uint32_t s, uint32_t w)>& formula, bool inRange = true) {
  const Inputs in(weight);
  const Words out = runPaths(call, in.d, in.s, in.m, name);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const uint32_t want = formula(in.d[i], in.s[i], weight);
    ASSERT_EQ(out[i], want) << name << " weight " << weight << " d " << in.d[i] << " s " << in.s[i];
    if (inRange) {
      ASSERT_LE(want, F) << name;
    }
  }
}

const uint32_t kWeights[] = {0, 1, 2, 16383, 16384, 16385, 32767, 32768};

TEST_P(Blend16, EveryRoutineMatchesItsFormulaOnEveryPath) {
  auto sdm = [](auto fn) -> RowCall {
    return [fn](uint16_t* d, uint16_t* s, uint16_t* m, int32_t n) { fn(s, d, m, 1, n, 0, 0, 0); };
  };
  for (uint32_t w : kWeights) {
    expectFormula("MixSourceThroughMask16", sdm(g_bodies->MixSourceThroughMask16), w,
                  [](uint32_t d, uint32_t s, uint32_t m) { return (s * m + (F - m) * d + 16384) >> 15; });
    expectFormula("MultiplySourceThroughMask16", sdm(g_bodies->MultiplySourceThroughMask16), w,
                  [](uint32_t d, uint32_t s, uint32_t m) { return (p16(s, d) * m + (F - m) * d + 16384) >> 15; });
    expectFormula("FillWhereMaskClear16",
                  [](uint16_t* d, uint16_t*, uint16_t* m, int32_t n) {
                    g_bodies->FillWhereMaskClear16(m, d, 1, n, 0, 0, 12345);
                  },
                  w, [](uint32_t d, uint32_t, uint32_t m) { return m == 0 ? 12345u : d; });
  }
  // k beyond full is accepted: the result still fits 16 bits.
  for (uint32_t k : {0u, 1u, 16384u, 32767u, 32768u, 32769u, 40000u, 65535u})
    expectFormula("ScaleByConstant16",
                  [k](uint16_t* d, uint16_t*, uint16_t*, int32_t n) {
                    g_bodies->ScaleByConstant16(d, 1, n, 0, static_cast<uint16_t>(k));
                  },
                  k, [](uint32_t d, uint32_t, uint32_t kk) { return p16(d, kk); }, k <= F);
  expectFormula("MultiplySource16", [](uint16_t* d, uint16_t* s, uint16_t*, int32_t n) {
    g_bodies->MultiplySource16(s, d, 1, n, 0, 0);
  }, 0, [](uint32_t d, uint32_t s, uint32_t) { return p16(s, d); });
  // The "into" forms take the destination's initial samples as their first operand.
  auto into = [](auto fn) -> RowCall {
    return [fn](uint16_t* d, uint16_t* s, uint16_t*, int32_t n) {
      Words a(static_cast<std::size_t>(n));
      std::memcpy(a.data(), d, a.size() * 2);
      fn(a.data(), d, s, 1, n, 0, 0, 0);
    };
  };
  expectFormula("MultiplyInto16", into(g_bodies->MultiplyInto16), 0,
                [](uint32_t a, uint32_t b, uint32_t) { return p16(a, b); });
  expectFormula("InverseMultiplyInto16", into(g_bodies->InverseMultiplyInto16), 0,
                [](uint32_t a, uint32_t b, uint32_t) { return F - p16(F - a, b); });
  expectFormula("OrderedCombineInto16", into([](const uint16_t* a, uint16_t* d, const uint16_t* b, int32_t r,
                                                int32_t n, int32_t, int32_t, int32_t) {
                  g_bodies->OrderedCombineInto16(a, b, d, r, n, 0, 0, 0);
                }),
                0, [](uint32_t a, uint32_t b, uint32_t) {
                  const uint32_t p = p16(a, b);
                  return a > b ? b - p16(a - b, b - p) : a - p16(b - a, a - p);
                });
  // Every flag combination, with 1, 2 and 255 all meaning "set".
  for (int combination = 0; combination < 8; ++combination) {
    const uint8_t set = static_cast<uint8_t>(combination == 3 ? 2 : combination == 5 ? 255 : 1);
    const uint8_t fa = combination & 4 ? set : 0, fb = combination & 2 ? set : 0, fr = combination & 1 ? set : 0;
    expectFormula("ComplementMultiplyInto16",
                  into([=](const uint16_t* a, uint16_t* d, const uint16_t* b, int32_t r, int32_t n, int32_t, int32_t,
                           int32_t) { g_bodies->ComplementMultiplyInto16(a, b, d, r, n, 0, 0, 0, fa, fb, fr); }),
                  0, [=](uint32_t a, uint32_t b, uint32_t) {
                    const uint32_t p = p16(fa ? F - a : a, fb ? F - b : b);
                    return fr ? F - p : p;
                  });
  }
}

TEST_P(Blend16, ScaleMixAndScreenEnds) {
  const Inputs in(0);
  const Words& d = in.d;
  auto run = [&](const RowCall& call, const Words& m) { return runPaths(call, d, in.s, m, "ends"); };
  auto scale = [](uint16_t k) -> RowCall {
    return [k](uint16_t* row, uint16_t*, uint16_t*, int32_t n) { g_bodies->ScaleByConstant16(row, 1, n, 0, k); };
  };
  EXPECT_EQ(run(scale(32768), in.m), d);  // full scale keeps every sample
  const Words halved = run(scale(16384), in.m);
  for (std::size_t i = 0; i < d.size(); ++i) ASSERT_EQ(halved[i], (d[i] + 1u) >> 1) << d[i];  // half rounds up

  const Words zero(d.size(), 0), full(d.size(), F);
  const RowCall mix = [](uint16_t* row, uint16_t* s, uint16_t* m, int32_t n) {
    g_bodies->MixSourceThroughMask16(s, row, m, 1, n, 0, 0, 0);
  };
  EXPECT_EQ(run(mix, full), in.s);  // a full mask copies the source
  EXPECT_EQ(run(mix, zero), d);     // an empty one keeps the destination
  const RowCall multiply = [](uint16_t* row, uint16_t* s, uint16_t* m, int32_t n) {
    g_bodies->MultiplySourceThroughMask16(s, row, m, 1, n, 0, 0, 0);
  };
  EXPECT_EQ(run(multiply, zero), d);
  const Words product = run(multiply, full);
  for (std::size_t i = 0; i < d.size(); ++i) ASSERT_EQ(product[i], p16(in.s[i], d[i]));

  // The screen (all flags set): full with full is full, 0 with x is x either way round.
  const RowCall screenItself = [](uint16_t* row, uint16_t*, uint16_t* x, int32_t n) {
    g_bodies->ComplementMultiplyInto16(x, x, row, 1, n, 0, 0, 0, 1, 1, 1);
  };
  EXPECT_EQ(run(screenItself, full), full);
  EXPECT_EQ(run(screenItself, zero), zero);
  for (bool zeroFirst : {true, false}) {
    const RowCall screenWithZero = [zeroFirst](uint16_t* row, uint16_t*, uint16_t* z, int32_t n) {
      Words x(static_cast<std::size_t>(n));
      std::memcpy(x.data(), row, x.size() * 2);
      g_bodies->ComplementMultiplyInto16(zeroFirst ? z : x.data(), zeroFirst ? x.data() : z, row, 1, n, 0, 0, 0, 1, 1,
                                         1);
    };
    EXPECT_EQ(run(screenWithZero, zero), d);
  }
}

// The vector products work in 16-bit lanes only (a doubled operand, the mixes as a
// signed product added to the destination), so they are checked over the whole
// range of one operand for the other at every power of two, its neighbours and
// the ends; the mixes over every difference x - d, -32768..32768.
TEST_P(Blend16, LaneProductsExactOverWholeOperandRange) {
  std::vector<uint32_t> others = {0, 3, 5, 12345, 20000, 21846, 32766, 32767, 32768};
  for (uint32_t bit = 1; bit <= F; bit <<= 1)
    for (uint32_t v : {bit - 1, bit, bit + 1})
      if (v <= F) others.push_back(v);
  // 0..32768, rotated so that the ends fall in the vector body, not the scalar tail.
  Words all(F + 1);
  for (uint32_t i = 0; i <= F; ++i) all[i] = static_cast<uint16_t>((i + F / 2) % (F + 1));
  for (uint32_t o : others) {
    const Words same(all.size(), static_cast<uint16_t>(o));
    // P(s, d) both ways round: every s against d = o, every d against s = o.
    const RowCall multiply = [](uint16_t* d, uint16_t* s, uint16_t*, int32_t n) {
      g_bodies->MultiplySource16(s, d, 1, n, 0, 0);
    };
    const Words bySource = runPaths(multiply, same, all, same, "MultiplySource16");
    const Words byDestination = runPaths(multiply, all, same, same, "MultiplySource16");
    for (uint32_t i = 0; i <= F; ++i) {
      ASSERT_EQ(bySource[i], p16(all[i], o)) << "s " << all[i] << " d " << o;
      ASSERT_EQ(byDestination[i], p16(o, all[i])) << "s " << o << " d " << all[i];
    }
    // The mixes with mask o: x - d from 0 to 32768 (d = 0) and from 0 to -32768 (x = 0).
    const Words zero(all.size(), 0);
    for (bool rising : {true, false}) {
      const Words& x = rising ? all : zero;
      const Words& d = rising ? zero : all;
      const Words mixed = runPaths([](uint16_t* row, uint16_t* s, uint16_t* m, int32_t n) {
        g_bodies->MixSourceThroughMask16(s, row, m, 1, n, 0, 0, 0);
      }, d, x, same, "MixSourceThroughMask16");
      // With s = 0 the product is 0 too, so d - 0 runs over 0..32768.
      const Words multiplied = runPaths([](uint16_t* row, uint16_t* s, uint16_t* m, int32_t n) {
        g_bodies->MultiplySourceThroughMask16(s, row, m, 1, n, 0, 0, 0);
      }, d, zero, same, "MultiplySourceThroughMask16");
      for (uint32_t i = 0; i <= F; ++i) {
        ASSERT_EQ(mixed[i], (x[i] * o + (F - o) * d[i] + 16384) >> 15) << "x " << x[i] << " d " << d[i] << " m " << o;
        ASSERT_EQ(multiplied[i], ((F - o) * d[i] + 16384) >> 15) << "d " << d[i] << " m " << o;
      }
    }
  }
}

TEST_P(Blend16, SubtractCoverageBranches) {
  // (a, b) -> (a', b'): a full clears b and stays; a non-zero b is covered by
  // 32768 - a, and a ends empty unless the cover rounded to nothing; b = 0 empties a;
  // a = 0 leaves both.
  const uint16_t cases[][4] = {
      {32768, 0, 32768, 0},     {32768, 12345, 32768, 0}, {32768, 32768, 32768, 0}, {0, 0, 0, 0},
      {0, 777, 0, 777},         {0, 32768, 0, 32768},     {5, 0, 0, 0},             {32767, 0, 0, 0},
      {16384, 32768, 0, 16384}, {16384, 1, 0, 1},         {32767, 1, 32768, 0},     {32767, 16383, 32768, 0},
      {32767, 16384, 0, 1},     {1, 32768, 0, 32767},     {30000, 3, 32768, 0},     {12000, 20000, 0, 12676},
  };
  Words a, b;
  for (int rep = 0; rep < 4; ++rep)
    for (const auto& c : cases) a.push_back(c[0]), b.push_back(c[1]);
  for (int offset : {0, 1, 2, 6}) {  // B aligned, odd, and a head of 7 or 5 samples
    Row ra(a, 3), rb(b, offset);
    g_bodies->SubtractCoverage16(ra.at(0), rb.at(0), 1, static_cast<int32_t>(a.size()), 0, 0);
    const Words outA = ra.words(a.size()), outB = rb.words(b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
      const auto& c = cases[i % std::size(cases)];
      EXPECT_EQ(outA[i], c[2]) << "a " << c[0] << " b " << c[1] << " offset " << offset;
      EXPECT_EQ(outB[i], c[3]) << "a " << c[0] << " b " << c[1] << " offset " << offset;
    }
  }
}

std::string levelOf(const ::testing::TestParamInfo<Level>& param) { return levelName(param.param); }
INSTANTIATE_TEST_SUITE_P(Levels, Blend16, ::testing::ValuesIn(blendLevels()), levelOf);

}  // namespace
