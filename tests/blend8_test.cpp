// The module's 8-bit blending routines called directly: the vector body against
// the scalar head over every pair of sample values, and the edge cases of the
// mixes, the overlay forms and the staging split. (The comparison with the
// reference host at every width, alignment and stride runs in the harness.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "blend/blend8.h"
#include "host/constants.h"
#include "host/startup_tables.h"

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
  expectPathsAgree("MixSourceThroughMask8", sdm(&MixSourceThroughMask8), kWeights);
  expectPathsAgree("CopyWhereMaskSet8", sdm(&CopyWhereMaskSet8), kWeights);
  expectPathsAgree("DarkenTowardSourceThroughMask8", sdm(&DarkenTowardSourceThroughMask8), kWeights);
  expectPathsAgree("LightenTowardSourceThroughMask8", sdm(&LightenTowardSourceThroughMask8), kWeights);
  expectPathsAgree("MultiplySourceThroughMask8", sdm(&MultiplySourceThroughMask8), kWeights);
  expectPathsAgree("MultiplySource8", sd(&MultiplySource8), {0});
  expectPathsAgree("MaxSource8", sd(&MaxSource8), {0});
  expectPathsAgree("MinSource8", sd(&MinSource8), {0});
  // The source row stands in for a constant, the mask for the weight.
  for (int c : {0, 1, 127, 128, 254, 255}) {
    auto cdm = [c](auto fn) -> RowCall {
      return [fn, c](uint8_t* d, const uint8_t*, const uint8_t* m, int32_t n) {
        fn(static_cast<uint8_t>(c), d, m, 1, n, 0, 0);
      };
    };
    expectPathsAgree("MixConstantThroughMask8", cdm(&MixConstantThroughMask8), kWeights);
    expectPathsAgree("FillWhereMaskSet8", cdm(&FillWhereMaskSet8), kWeights);
    expectPathsAgree("DarkenTowardConstantThroughMask8", cdm(&DarkenTowardConstantThroughMask8), kWeights);
    expectPathsAgree("LightenTowardConstantThroughMask8", cdm(&LightenTowardConstantThroughMask8), kWeights);
    expectPathsAgree("FillWhereMaskClear8",
                     [c](uint8_t* d, const uint8_t*, const uint8_t* m, int32_t n) {
                       FillWhereMaskClear8(m, d, 1, n, 0, 0, static_cast<uint8_t>(c));
                     },
                     kWeights);
  }
  for (int k : kWeights) {
    const auto kb = static_cast<uint8_t>(k);
    expectPathsAgree("ScaleByConstant8",
                     [k](uint8_t* d, const uint8_t*, const uint8_t*, int32_t n) {
                       ScaleByConstant8(d, 1, n, 0, static_cast<uint16_t>(k));
                     },
                     {0});
    expectPathsAgree("MultiplyWithOpacity8",
                     [kb](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
                       MultiplyWithOpacity8(s, d, 1, n, 0, 0, kb);
                     },
                     {0});
  }
  // The "into" forms read the destination's initial bytes as the first operand.
  auto into = [](auto fn) -> RowCall {
    return [fn](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
      std::vector<uint8_t> a(d, d + n);
      fn(a.data(), d, s, 1, n, 0, 0, 0);
    };
  };
  expectPathsAgree("MultiplyInto8", into(&MultiplyInto8), {0});
  expectPathsAgree("InverseMultiplyInto8", into(&InverseMultiplyInto8), {0});
  expectPathsAgree("OrderedCombineInto8",
                   [](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
                     std::vector<uint8_t> a(d, d + n);
                     OrderedCombineInto8(a.data(), s, d, 1, n, 0, 0, 0);
                   },
                   {0});
  // Both planes of the coverage routine are rewritten: compare A through the
  // destination row and B through a copy of the source row.
  for (bool compareB : {false, true}) {
    expectPathsAgree(compareB ? "SubtractCoverage8 (b)" : "SubtractCoverage8 (a)",
                     [compareB](uint8_t* d, const uint8_t* s, const uint8_t*, int32_t n) {
                       // B is the alignment reference; keep it at d's alignment.
                       std::vector<uint8_t> other(static_cast<std::size_t>(n) + 64);
                       uint8_t* o = other.data() + ((reinterpret_cast<uintptr_t>(d) - reinterpret_cast<uintptr_t>(other.data())) & 15);
                       if (compareB) {
                         std::memcpy(o, d, static_cast<std::size_t>(n));  // o = a values
                         std::memcpy(d, s, static_cast<std::size_t>(n));  // d = b values
                         SubtractCoverage8(o, d, 1, n, 0, 0);
                       } else {
                         std::memcpy(o, s, static_cast<std::size_t>(n));
                         SubtractCoverage8(d, o, 1, n, 0, 0);
                       }
                     },
                     {0});
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
  // Each row: the routine, then its result under a full mask.
  struct Case {
    const char* name;
    std::function<void()> run;
    std::function<int(int, int)> full;
  };
  const Case cases[] = {
      {"MixSourceThroughMask8", [&] { MixSourceThroughMask8(s.data, d.data, m.data, 1, n, 0, 0, 0); },
       [](int, int sv) { return sv; }},
      {"MixConstantThroughMask8", [&] { MixConstantThroughMask8(c, d.data, m.data, 1, n, 0, 0); },
       [&](int, int) { return int{c}; }},
      {"DarkenTowardSourceThroughMask8", [&] { DarkenTowardSourceThroughMask8(s.data, d.data, m.data, 1, n, 0, 0, 0); },
       [](int dv, int sv) { return std::min(dv, sv); }},
      {"DarkenTowardConstantThroughMask8", [&] { DarkenTowardConstantThroughMask8(c, d.data, m.data, 1, n, 0, 0); },
       [&](int dv, int) { return std::min(dv, int{c}); }},
      {"LightenTowardSourceThroughMask8",
       [&] { LightenTowardSourceThroughMask8(s.data, d.data, m.data, 1, n, 0, 0, 0); },
       [](int dv, int sv) { return std::max(dv, sv); }},
      {"LightenTowardConstantThroughMask8", [&] { LightenTowardConstantThroughMask8(c, d.data, m.data, 1, n, 0, 0); },
       [&](int dv, int) { return std::max(dv, int{c}); }},
      {"MultiplySourceThroughMask8", [&] { MultiplySourceThroughMask8(s.data, d.data, m.data, 1, n, 0, 0, 0); },
       [](int dv, int sv) { return mul255(dv, sv); }},
      {"OverlaySourceThroughMask8", [&] { OverlaySourceThroughMask8(s.data, d.data, m.data, 1, n, 0, 0, 0); },
       nullptr},
      {"SourceBasedOverlayThroughMask8",
       [&] { SourceBasedOverlayThroughMask8(s.data, d.data, m.data, 1, n, 0, 0, 0); }, nullptr},
      {"OverlayConstantThroughMask8", [&] { OverlayConstantThroughMask8(c, d.data, m.data, 1, n, 0, 0); }, nullptr},
      {"ConstantBasedOverlayThroughMask8", [&] { ConstantBasedOverlayThroughMask8(c, d.data, m.data, 1, n, 0, 0); },
       nullptr},
      {"ScreenConstantThroughMask8", [&] { ScreenConstantThroughMask8(c, d.data, m.data, 1, n, 0, 0); },
       [&](int dv, int) { return screen255(dv, c); }},
      // The opacity members take the mask's first byte as their opacity.
      {"OverlaySourceWithOpacity8", [&] { OverlaySourceWithOpacity8(s.data, d.data, 1, n, 0, 0, m.data[0]); },
       nullptr},
      {"SourceBasedOverlayWithOpacity8",
       [&] { SourceBasedOverlayWithOpacity8(s.data, d.data, 1, n, 0, 0, m.data[0]); }, nullptr},
      {"ScreenSourceWithOpacity8", [&] { ScreenSourceWithOpacity8(s.data, d.data, 1, n, 0, 0, m.data[0]); },
       [](int dv, int sv) { return screen255(dv, sv); }},
      {"MultiplyWithOpacity8", [&] { MultiplyWithOpacity8(s.data, d.data, 1, n, 0, 0, m.data[0]); },
       [](int dv, int sv) { return mul255(dv, sv); }},
  };
  for (const Case& k : cases) {
    each(0, k.run, keep, k.name);
    if (k.full) each(255, k.run, k.full, k.name);
  }
}

TEST_F(Blend8, ScaleByConstantEnds) {
  Row d(300, 3);
  for (int i = 0; i < 300; ++i) d.data[i] = static_cast<uint8_t>(i * 7);
  const std::vector<uint8_t> before = d.bytes();
  ScaleByConstant8(d.data, 1, 300, 0, 255);
  EXPECT_EQ(d.bytes(), before);
  ScaleByConstant8(d.data, 1, 300, 0, 0x1FF);  // only the low byte counts
  EXPECT_EQ(d.bytes(), before);
  ScaleByConstant8(d.data, 1, 300, 0, 0);
  EXPECT_EQ(d.bytes(), std::vector<uint8_t>(300, 0));
}

TEST_F(Blend8, TheTwoOverlayFormsDifferInTheUpperHalf) {
  // A base of 255: the source-based form screens with 254, the destination-based with 255.
  uint8_t s = 255, d = 0;
  SourceBasedOverlay8(&s, &d, 1, 1, 0, 0);
  EXPECT_EQ(d, 254);
  s = 0;
  d = 255;
  OverlaySource8(&s, &d, 1, 1, 0, 0);
  EXPECT_EQ(d, 255);
  // A destination of 128 screens the source with 1 in the destination-based form,
  // and with 0 (leaving it) in the source-based form with the source as base.
  for (int x = 0; x < 256; ++x) {
    uint8_t src = static_cast<uint8_t>(x), dst = 128;
    OverlaySource8(&src, &dst, 1, 1, 0, 0);
    EXPECT_EQ(dst, screen255(1, x)) << x;
    src = 128;
    dst = static_cast<uint8_t>(x);
    SourceBasedOverlay8(&src, &dst, 1, 1, 0, 0);
    EXPECT_EQ(dst, x) << x;
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
  using Call = std::function<void(uint8_t* d, const uint8_t* src, const uint8_t* mask, int32_t columns)>;
  const std::pair<const char*, Call> routines[] = {
      {"OverlaySource8", [](uint8_t* d, const uint8_t* x, const uint8_t*, int32_t n_) { OverlaySource8(x, d, 1, n_, 0, 0); }},
      {"SourceBasedOverlay8",
       [](uint8_t* d, const uint8_t* x, const uint8_t*, int32_t n_) { SourceBasedOverlay8(x, d, 1, n_, 0, 0); }},
      {"OverlaySourceThroughMask8",
       [](uint8_t* d, const uint8_t* x, const uint8_t* w, int32_t n_) { OverlaySourceThroughMask8(x, d, w, 1, n_, 0, 0, 0); }},
      {"SourceBasedOverlayThroughMask8",
       [](uint8_t* d, const uint8_t* x, const uint8_t* w, int32_t n_) {
         SourceBasedOverlayThroughMask8(x, d, w, 1, n_, 0, 0, 0);
       }},
      {"OverlayConstantThroughMask8",
       [](uint8_t* d, const uint8_t*, const uint8_t* w, int32_t n_) { OverlayConstantThroughMask8(200, d, w, 1, n_, 0, 0); }},
      {"ConstantBasedOverlayThroughMask8",
       [](uint8_t* d, const uint8_t*, const uint8_t* w, int32_t n_) {
         ConstantBasedOverlayThroughMask8(200, d, w, 1, n_, 0, 0);
       }},
      {"OverlaySourceWithOpacity8",
       [](uint8_t* d, const uint8_t* x, const uint8_t*, int32_t n_) { OverlaySourceWithOpacity8(x, d, 1, n_, 0, 0, 99); }},
      {"SourceBasedOverlayWithOpacity8",
       [](uint8_t* d, const uint8_t* x, const uint8_t*, int32_t n_) {
         SourceBasedOverlayWithOpacity8(x, d, 1, n_, 0, 0, 99);
       }},
      {"ScreenSource8", [](uint8_t* d, const uint8_t* x, const uint8_t*, int32_t n_) { ScreenSource8(x, d, 1, n_, 0, 0); }},
      {"ScreenSourceWithOpacity8",
       [](uint8_t* d, const uint8_t* x, const uint8_t*, int32_t n_) { ScreenSourceWithOpacity8(x, d, 1, n_, 0, 0, 99); }},
      {"ScreenConstantThroughMask8",
       [](uint8_t* d, const uint8_t*, const uint8_t* w, int32_t n_) { ScreenConstantThroughMask8(200, d, w, 1, n_, 0, 0); }},
  };
  for (const auto& [name, call] : routines) {
    for (int32_t i = 0; i < n; ++i) direct.data[i] = staged.data[i] = static_cast<uint8_t>(i * 13 + 7);
    const std::vector<uint8_t> before = direct.bytes();
    call(direct.data, s.data, m.data, n);
    call(staged.data, s.data, m.data, 4096);
    call(staged.data + 4096, s.data + 4096, m.data + 4096, 1);
    EXPECT_EQ(direct.bytes(), staged.bytes()) << name;
    EXPECT_NE(direct.bytes(), before) << name;
  }
}

}  // namespace
