// The module's 8-bit blending routines called directly, every body this machine
// runs (the plain overlay and screen bodies, then each level from SSE2 up): the
// vector body against the scalar head over every pair of sample values, and the
// edge cases of the mixes, the overlay forms and the staging split. (The
// comparison with the reference host at every width, alignment and stride runs
// in the harness.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "blend/blend8.h"
#include "host/constants.h"
#include "host/kernels.h"
#include "host/startup_tables.h"
#include "tests/tiers.h"

using namespace tarnell;
using namespace tarnell::blend8;

namespace {

class Blend8 : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    buildStartupTables();
    fillConstantVectors();
  }
};

// Every distinct body of a routine on this machine, narrowest first: the plain
// one a processor with SSE and no SSE2 gets (the overlay and screen routines),
// then the body of each level from SSE2 up.
template <uint32_t Suite, int Slot>
std::vector<SlotFn<Suite, Slot>> bodies(SlotId<Suite, Slot> id) {
  std::vector<SlotFn<Suite, Slot>> out;
  CpuFeatureFlags sse = flagsAtLevel(tests::thisProcessor(), Level::plain);
  sse.sse = sse.sseSecond = 1;
  const Kernels plain = resolveKernels(sse);
  if (plain.get(id)) out.push_back(plain.get(id).fn);
  for (const auto& body : tests::bodiesOf(id))
    if (std::find(out.begin(), out.end(), body.fn) == out.end()) out.push_back(body.fn);
  return out;
}

// The kernel tables of the same tiers: SSE without SSE2, then each level here.
std::vector<Kernels> tierKernels() {
  CpuFeatureFlags sse = flagsAtLevel(tests::thisProcessor(), Level::plain);
  sse.sse = sse.sseSecond = 1;
  std::vector<Kernels> out = {resolveKernels(sse)};
  for (Level level : tests::levelsHere()) out.push_back(resolveKernels(flagsAtLevel(tests::thisProcessor(), level)));
  return out;
}

int mul255(int a, int b) { return (a * b + 127) / 255; }
int screen255(int a, int b) { return a + b - mul255(a, b); }

// A row of bytes at a chosen offset from a 64-byte boundary.
struct Row {
  explicit Row(std::size_t n, int offset = 0) : storage(n + 128), data(aligned() + offset), size(n) {}
  uint8_t* aligned() {
    auto p = reinterpret_cast<uintptr_t>(storage.data());
    return storage.data() + ((64 - (p & 63)) & 63);
  }
  std::vector<uint8_t> storage;
  uint8_t* data;
  std::size_t size;
  std::vector<uint8_t> bytes() const { return {data, data + size}; }
};

// One call on one row: (destination, source, mask, columns). Routines without a
// source or mask ignore them; constants and opacities are bound by the caller.
using RowCall = std::function<void(uint8_t* d, const uint8_t* s, const uint8_t* m, int32_t columns)>;

// Every (d, x) pair for a weight w: the whole row through the vector body (an
// aligned destination, 65536 columns) and again 15 samples a call from a
// destination one byte past a boundary, which leaves it all to the scalar head.
void expectPathsAgree(const char* name, const RowCall& call, const std::vector<int>& weights) {
  constexpr int32_t n = 65536;
  Row s(n), m(n), vec(n), sca(n, 1);
  for (int32_t i = 0; i < n; ++i) s.data[i] = static_cast<uint8_t>(i >> 8);
  for (int w : weights) {
    std::memset(m.data, w, n);
    for (int32_t i = 0; i < n; ++i) vec.data[i] = sca.data[i] = static_cast<uint8_t>(i);
    call(vec.data, s.data, m.data, n);
    for (int32_t i = 0; i < n; i += 15) call(sca.data + i, s.data + i, m.data + i, std::min(15, n - i));
    ASSERT_EQ(vec.bytes(), sca.bytes()) << name << " weight " << w;
  }
}

const std::vector<int> kWeights = {0, 1, 2, 64, 127, 128, 129, 200, 254, 255};

TEST_F(Blend8, VectorBodyMatchesScalarOnEveryPair) {
  auto sdm = [](auto fn) -> RowCall {
    return [fn](uint8_t* d, const uint8_t* s, const uint8_t* m, int32_t c) { fn(s, d, m, 1, c, 0, 0, 0); };
  };
  auto sd = [](auto fn) -> RowCall {
    return [fn](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t c) { fn(s, d, 1, c, 0, 0); };
  };
  for (auto f : bodies(slot::MixSourceThroughMask8)) expectPathsAgree("MixSourceThroughMask8", sdm(f), kWeights);
  for (auto f : bodies(slot::CopyWhereMaskSet8)) expectPathsAgree("CopyWhereMaskSet8", sdm(f), kWeights);
  for (auto f : bodies(slot::DarkenTowardSourceThroughMask8))
    expectPathsAgree("DarkenTowardSourceThroughMask8", sdm(f), kWeights);
  for (auto f : bodies(slot::LightenTowardSourceThroughMask8))
    expectPathsAgree("LightenTowardSourceThroughMask8", sdm(f), kWeights);
  for (auto f : bodies(slot::MultiplySourceThroughMask8))
    expectPathsAgree("MultiplySourceThroughMask8", sdm(f), kWeights);
  for (auto f : bodies(slot::MultiplySource8)) expectPathsAgree("MultiplySource8", sd(f), {0});
  for (auto f : bodies(slot::MaxSource8)) expectPathsAgree("MaxSource8", sd(f), {0});
  for (auto f : bodies(slot::MinSource8)) expectPathsAgree("MinSource8", sd(f), {0});
  for (auto f : bodies(slot::OverlaySourceThroughMask8))
    expectPathsAgree("OverlaySourceThroughMask8", sdm(f), kWeights);
  for (auto f : bodies(slot::SourceBasedOverlayThroughMask8))
    expectPathsAgree("SourceBasedOverlayThroughMask8", sdm(f), kWeights);
  for (auto f : bodies(slot::OverlaySource8)) expectPathsAgree("OverlaySource8", sd(f), {0});
  for (auto f : bodies(slot::SourceBasedOverlay8)) expectPathsAgree("SourceBasedOverlay8", sd(f), {0});
  for (auto f : bodies(slot::ScreenSource8)) expectPathsAgree("ScreenSource8", sd(f), {0});
  // The source row stands in for a constant, the mask for the weight.
  for (int c : {0, 1, 127, 128, 254, 255}) {
    auto cdm = [c](auto fn) -> RowCall {
      return [fn, c](uint8_t* d, const uint8_t*, const uint8_t* m, int32_t n) {
        fn(static_cast<uint8_t>(c), d, m, 1, n, 0, 0);
      };
    };
    for (auto f : bodies(slot::MixConstantThroughMask8)) expectPathsAgree("MixConstantThroughMask8", cdm(f), kWeights);
    for (auto f : bodies(slot::FillWhereMaskSet8)) expectPathsAgree("FillWhereMaskSet8", cdm(f), kWeights);
    for (auto f : bodies(slot::DarkenTowardConstantThroughMask8))
      expectPathsAgree("DarkenTowardConstantThroughMask8", cdm(f), kWeights);
    for (auto f : bodies(slot::LightenTowardConstantThroughMask8))
      expectPathsAgree("LightenTowardConstantThroughMask8", cdm(f), kWeights);
    for (auto f : bodies(slot::FillWhereMaskClear8))
      expectPathsAgree("FillWhereMaskClear8",
                       [c, f](uint8_t* d, const uint8_t*, const uint8_t* m, int32_t n) {
                         f(m, d, 1, n, 0, 0, static_cast<uint8_t>(c));
                       },
                       kWeights);
    for (auto f : bodies(slot::OverlayConstantThroughMask8))
      expectPathsAgree("OverlayConstantThroughMask8", cdm(f), kWeights);
    for (auto f : bodies(slot::ConstantBasedOverlayThroughMask8))
      expectPathsAgree("ConstantBasedOverlayThroughMask8", cdm(f), kWeights);
    for (auto f : bodies(slot::ScreenConstantThroughMask8))
      expectPathsAgree("ScreenConstantThroughMask8", cdm(f), kWeights);
  }
  for (int k : kWeights) {
    const auto kb = static_cast<uint8_t>(k);
    for (auto f : bodies(slot::ScaleByConstant8))
      expectPathsAgree("ScaleByConstant8",
                       [k, f](uint8_t* d, const uint8_t*, const uint8_t*, int32_t n) {
                         f(d, 1, n, 0, static_cast<uint16_t>(k));
                       },
                       {0});
    auto sdk = [kb](auto fn) -> RowCall {
      return [fn, kb](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) { fn(s, d, 1, n, 0, 0, kb); };
    };
    for (auto f : bodies(slot::MultiplyWithOpacity8)) expectPathsAgree("MultiplyWithOpacity8", sdk(f), {0});
    for (auto f : bodies(slot::OverlaySourceWithOpacity8)) expectPathsAgree("OverlaySourceWithOpacity8", sdk(f), {0});
    for (auto f : bodies(slot::SourceBasedOverlayWithOpacity8))
      expectPathsAgree("SourceBasedOverlayWithOpacity8", sdk(f), {0});
    for (auto f : bodies(slot::ScreenSourceWithOpacity8)) expectPathsAgree("ScreenSourceWithOpacity8", sdk(f), {0});
  }
  // The "into" forms read the destination's initial bytes as the first operand.
  auto into = [](auto fn) -> RowCall {
    return [fn](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
      std::vector<uint8_t> a(d, d + n);
      fn(a.data(), d, s, 1, n, 0, 0, 0);
    };
  };
  for (auto f : bodies(slot::MultiplyInto8)) expectPathsAgree("MultiplyInto8", into(f), {0});
  for (auto f : bodies(slot::InverseMultiplyInto8)) expectPathsAgree("InverseMultiplyInto8", into(f), {0});
  for (auto f : bodies(slot::OrderedCombineInto8))
    expectPathsAgree("OrderedCombineInto8",
                     [f](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
                       std::vector<uint8_t> a(d, d + n);
                       f(a.data(), s, d, 1, n, 0, 0, 0);
                     },
                     {0});
  // Both planes of the coverage routine are rewritten: compare A through the
  // destination row and B through a copy of the source row.
  for (bool compareB : {false, true}) {
    for (auto f : bodies(slot::SubtractCoverage8)) {
      auto call = [compareB, f](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
        // B is the alignment reference; keep it at d's alignment.
        std::vector<uint8_t> other(static_cast<std::size_t>(n) + 64);
        uint8_t* o =
            other.data() + ((reinterpret_cast<uintptr_t>(d) - reinterpret_cast<uintptr_t>(other.data())) & 15);
        if (compareB) {
          std::memcpy(o, d, static_cast<std::size_t>(n));  // o = a values
          std::memcpy(d, s, static_cast<std::size_t>(n));  // d = b values
          f(o, d, 1, n, 0, 0);
        } else {
          std::memcpy(o, s, static_cast<std::size_t>(n));
          f(d, o, 1, n, 0, 0);
        }
      };
      expectPathsAgree(compareB ? "SubtractCoverage8 (b)" : "SubtractCoverage8 (a)", call, {0});
    }
  }
}

TEST_F(Blend8, MaskZeroKeepsAndFullMaskGivesTheUnmaskedResult) {
  constexpr int32_t n = 65536;
  Row d(n), s(n), m(n);
  for (int32_t i = 0; i < n; ++i) {
    d.data[i] = static_cast<uint8_t>(i);
    s.data[i] = static_cast<uint8_t>(i >> 8);
  }
  const std::vector<uint8_t> before = d.bytes();
  auto each = [&](uint8_t mask, const std::function<void()>& run, const std::function<int(int, int)>& expected,
                  const char* name) {
    std::memcpy(d.data, before.data(), n);
    std::memset(m.data, mask, n);
    run();
    for (int32_t i = 0; i < n; ++i)
      ASSERT_EQ(d.data[i], expected(before[static_cast<std::size_t>(i)], s.data[i]))
          << name << " mask " << int{mask} << " d " << int{before[static_cast<std::size_t>(i)]} << " s "
          << int{s.data[i]};
  };
  auto keep = [](int dv, int) { return dv; };
  const uint8_t c = 77;
  using Full = std::function<int(int, int)>;  // the result under a full mask; null: not checked
  for (const Kernels& k : tierKernels()) {
    // Each routine the tier has a body of: mask 0 keeps, a full mask gives `full`.
    auto check = [&](const char* name, auto id, auto call, const Full& full) {
      const auto fn = k.get(id).fn;
      if (fn == nullptr) return;
      each(0, [&] { call(fn); }, keep, name);
      if (full) each(255, [&] { call(fn); }, full, name);
    };
    auto sdm = [&](auto fn) { fn(s.data, d.data, m.data, 1, n, 0, 0, 0); };
    auto cdm = [&](auto fn) { fn(c, d.data, m.data, 1, n, 0, 0); };
    // The opacity members take the mask's first byte as their opacity.
    auto sdk = [&](auto fn) { fn(s.data, d.data, 1, n, 0, 0, m.data[0]); };
    check("MixSourceThroughMask8", slot::MixSourceThroughMask8, sdm, [](int, int sv) { return sv; });
    check("MixConstantThroughMask8", slot::MixConstantThroughMask8, cdm, [&](int, int) { return int{c}; });
    check("DarkenTowardSourceThroughMask8", slot::DarkenTowardSourceThroughMask8, sdm,
          [](int dv, int sv) { return std::min(dv, sv); });
    check("DarkenTowardConstantThroughMask8", slot::DarkenTowardConstantThroughMask8, cdm,
          [&](int dv, int) { return std::min(dv, int{c}); });
    check("LightenTowardSourceThroughMask8", slot::LightenTowardSourceThroughMask8, sdm,
          [](int dv, int sv) { return std::max(dv, sv); });
    check("LightenTowardConstantThroughMask8", slot::LightenTowardConstantThroughMask8, cdm,
          [&](int dv, int) { return std::max(dv, int{c}); });
    check("MultiplySourceThroughMask8", slot::MultiplySourceThroughMask8, sdm,
          [](int dv, int sv) { return mul255(dv, sv); });
    check("OverlaySourceThroughMask8", slot::OverlaySourceThroughMask8, sdm, nullptr);
    check("SourceBasedOverlayThroughMask8", slot::SourceBasedOverlayThroughMask8, sdm, nullptr);
    check("OverlayConstantThroughMask8", slot::OverlayConstantThroughMask8, cdm, nullptr);
    check("ConstantBasedOverlayThroughMask8", slot::ConstantBasedOverlayThroughMask8, cdm, nullptr);
    check("ScreenConstantThroughMask8", slot::ScreenConstantThroughMask8, cdm,
          [&](int dv, int) { return screen255(dv, c); });
    check("OverlaySourceWithOpacity8", slot::OverlaySourceWithOpacity8, sdk, nullptr);
    check("SourceBasedOverlayWithOpacity8", slot::SourceBasedOverlayWithOpacity8, sdk, nullptr);
    check("ScreenSourceWithOpacity8", slot::ScreenSourceWithOpacity8, sdk,
          [](int dv, int sv) { return screen255(dv, sv); });
    check("MultiplyWithOpacity8", slot::MultiplyWithOpacity8, sdk, [](int dv, int sv) { return mul255(dv, sv); });
  }
}

TEST_F(Blend8, ScaleByConstantEnds) {
  for (auto scale : bodies(slot::ScaleByConstant8)) {
    Row d(300, 3);
    for (int i = 0; i < 300; ++i) d.data[i] = static_cast<uint8_t>(i * 7);
    const std::vector<uint8_t> before = d.bytes();
    scale(d.data, 1, 300, 0, 255);
    EXPECT_EQ(d.bytes(), before);
    scale(d.data, 1, 300, 0, 0x1FF);  // only the low byte counts
    EXPECT_EQ(d.bytes(), before);
    scale(d.data, 1, 300, 0, 0);
    EXPECT_EQ(d.bytes(), std::vector<uint8_t>(300, 0));
  }
}

TEST_F(Blend8, TheTwoOverlayFormsDifferInTheUpperHalf) {
  for (const Kernels& k : tierKernels()) {
    const auto sourceBased = k.get(slot::SourceBasedOverlay8).fn;
    const auto overlay = k.get(slot::OverlaySource8).fn;
    // A base of 255: the source-based form screens with 254, the destination-based with 255.
    uint8_t s = 255, d = 0;
    sourceBased(&s, &d, 1, 1, 0, 0);
    EXPECT_EQ(d, 254);
    s = 0;
    d = 255;
    overlay(&s, &d, 1, 1, 0, 0);
    EXPECT_EQ(d, 255);
    // A destination of 128 screens the source with 1 in the destination-based form,
    // and with 0 (leaving it) in the source-based form with the source as base.
    for (int x = 0; x < 256; ++x) {
      uint8_t src = static_cast<uint8_t>(x), dst = 128;
      overlay(&src, &dst, 1, 1, 0, 0);
      EXPECT_EQ(dst, screen255(1, x)) << x;
      src = 128;
      dst = static_cast<uint8_t>(x);
      sourceBased(&src, &dst, 1, 1, 0, 0);
      EXPECT_EQ(dst, x) << x;
    }
  }
}

TEST_F(Blend8, StagedAndDirectRowsGiveTheSameBytes) {
  // 4097 columns run in place; the same row split as 4096 + 1 is staged.
  constexpr int32_t n = 4097;
  Row s(n), m(n), direct(n, 5), staged(n, 5);
  for (int32_t i = 0; i < n; ++i) {
    s.data[i] = static_cast<uint8_t>(i * 31 + (i >> 8));
    m.data[i] = static_cast<uint8_t>(i * 17 + 3);
  }
  for (const Kernels& k : tierKernels()) {
    // call(fn, d, source, mask, columns) for each routine of the tier.
    auto check = [&](const char* name, auto id, auto call) {
      const auto fn = k.get(id).fn;
      for (int32_t i = 0; i < n; ++i) direct.data[i] = staged.data[i] = static_cast<uint8_t>(i * 13 + 7);
      const std::vector<uint8_t> before = direct.bytes();
      call(fn, direct.data, s.data, m.data, n);
      call(fn, staged.data, s.data, m.data, 4096);
      call(fn, staged.data + 4096, s.data + 4096, m.data + 4096, 1);
      EXPECT_EQ(direct.bytes(), staged.bytes()) << name;
      EXPECT_NE(direct.bytes(), before) << name;
    };
    auto sd = [](auto fn, uint8_t* d, const uint8_t* x, const uint8_t*, int32_t c) { fn(x, d, 1, c, 0, 0); };
    auto sdm = [](auto fn, uint8_t* d, const uint8_t* x, const uint8_t* w, int32_t c) { fn(x, d, w, 1, c, 0, 0, 0); };
    auto cdm = [](auto fn, uint8_t* d, const uint8_t*, const uint8_t* w, int32_t c) { fn(200, d, w, 1, c, 0, 0); };
    auto sdk = [](auto fn, uint8_t* d, const uint8_t* x, const uint8_t*, int32_t c) { fn(x, d, 1, c, 0, 0, 99); };
    check("OverlaySource8", slot::OverlaySource8, sd);
    check("SourceBasedOverlay8", slot::SourceBasedOverlay8, sd);
    check("OverlaySourceThroughMask8", slot::OverlaySourceThroughMask8, sdm);
    check("SourceBasedOverlayThroughMask8", slot::SourceBasedOverlayThroughMask8, sdm);
    check("OverlayConstantThroughMask8", slot::OverlayConstantThroughMask8, cdm);
    check("ConstantBasedOverlayThroughMask8", slot::ConstantBasedOverlayThroughMask8, cdm);
    check("OverlaySourceWithOpacity8", slot::OverlaySourceWithOpacity8, sdk);
    check("SourceBasedOverlayWithOpacity8", slot::SourceBasedOverlayWithOpacity8, sdk);
    check("ScreenSource8", slot::ScreenSource8, sd);
    check("ScreenSourceWithOpacity8", slot::ScreenSourceWithOpacity8, sdk);
    check("ScreenConstantThroughMask8", slot::ScreenConstantThroughMask8, cdm);
  }
}

}  // namespace
