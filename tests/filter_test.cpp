// The filters' edge cases through the started module: known values, the calls
// they make to the host, and the loop shapes that show in the results (the
// weighted sum's carry, strips, the box mean's hand-over of large radii).
#include "filter/filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "refhost/refhost.h"
#include "tests/module_start.h"
#include "tests/tiers.h"
#include "verify/runner.h"


using namespace tarnell;
using refhost::ReferenceHost;

namespace {

class Filters : public ::testing::Test {
 protected:
  void SetUp() override {
    tests::startModule(host);
    host.clearLogs();
  }
  template <int Slot>
  SlotFn<code::filt, Slot> hosts() {
    return reinterpret_cast<SlotFn<code::filt, Slot>>(host.original(code::filt, Slot));
  }
  std::vector<refhost::CallRecord> callsTo(uint32_t suite, int slot) {
    std::vector<refhost::CallRecord> out;
    for (const auto& c : host.calls())
      if (c.suite == suite && c.slot == slot) out.push_back(c);
    return out;
  }
  ReferenceHost host;
};

TEST_F(Filters, DeviationOfFlatCheckerboardAndBorder) {
  // 6 x 6 source with its one-sample border: the region is rows/columns 1..4.
  std::vector<uint8_t> src(36, 77), dst(16, 1);
  filter::localDeviation3x3(src.data() + 7, dst.data(), 4, 4, 6, 4);
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t v) { return v == 0; }));
  for (int i = 0; i < 36; ++i) src[static_cast<std::size_t>(i)] = ((i / 6 + i % 6) & 1) != 0 ? 255 : 0;
  filter::localDeviation3x3(src.data() + 7, dst.data(), 4, 4, 6, 4);
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t v) { return v == 248; }));
  // The border is read as it is, not as a repeated edge: one bright border sample.
  std::fill(src.begin(), src.end(), 0);
  src[0] = 255;
  filter::localDeviation3x3(src.data() + 7, dst.data(), 4, 4, 6, 4);
  EXPECT_EQ(dst[0], static_cast<uint8_t>(std::sqrt(float((9 * 65025 - 65025) / 21))));
  EXPECT_EQ(dst[1], 0);
}

TEST_F(Filters, DeviationNotifiesTheHostFirstAndReturnsItsResult) {
  std::vector<uint8_t> src(36, 0), dst(16, 9);
  EXPECT_EQ(filter::localDeviation3x3(src.data() + 7, dst.data(), -3, 4, 6, 4), 0);
  EXPECT_EQ(filter::localDeviation3x3(src.data() + 7, dst.data(), 2, -1, 6, 4), 0);
  const auto calls = callsTo(code::core, 0);
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(src.data() + 7));
  EXPECT_EQ(calls[0].args[1], reinterpret_cast<uintptr_t>(dst.data()));
  EXPECT_EQ(calls[0].args[2], static_cast<uintptr_t>(intptr_t{-3}));  // sign-extended
  EXPECT_EQ(calls[1].args[3], static_cast<uintptr_t>(intptr_t{-1}));
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t v) { return v == 9; }));
}

std::vector<uint32_t> taps(std::initializer_list<uint32_t> weights) {
  std::vector<uint32_t> block(kWeightedSumTapCountEntry + 1, 0);
  block[kWeightedSumTapCountEntry] = static_cast<uint32_t>(weights.size());
  block.insert(block.end(), weights);
  return block;
}

TEST_F(Filters, WeightedSumKnownValues) {
  std::vector<uint8_t> src(3 * 40), dst(40);
  for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 7);
  filter::filterSlot28(src.data(), dst.data(), 1, 40, 40, 40, taps({256}).data());
  EXPECT_TRUE(std::equal(dst.begin(), dst.end(), src.begin()));  // one tap of 256 copies
  std::fill(src.begin(), src.end(), 0);
  std::fill(src.begin() + 40, src.begin() + 80, 255);
  filter::filterSlot28(src.data(), dst.data(), 1, 40, 40, 40, taps({64, 128, 64}).data());
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t v) { return v == 128; }));
}

// Weights 0x8000, 0x8000, 127: an even column with samples 1, 1, 0 sums to
// 65664 (overflows, keeps 128); an odd column with 0, 0, 1 sums to 255. Inside
// the whole 16-column groups the carry lifts the odd column to 256 (output 1).
TEST_F(Filters, WeightedSumCarriesOnlyInsideWhole16ColumnGroups) {
  constexpr int32_t kColumns = 24;
  std::vector<uint8_t> src(3 * kColumns), dst(kColumns, 9);
  for (int32_t c = 0; c < kColumns; ++c) {
    const bool odd = (c & 1) != 0;
    src[static_cast<std::size_t>(c)] = src[static_cast<std::size_t>(kColumns + c)] = odd ? 0 : 1;
    src[static_cast<std::size_t>(2 * kColumns + c)] = odd ? 1 : 0;
  }
  const auto block = taps({0x8000, 0x8000, 127});
  for (auto routine : {&filter::filterSlot28, hosts<28>()}) {
    routine(src.data(), dst.data(), 1, kColumns, kColumns, kColumns, block.data());
    for (int32_t c = 0; c < kColumns; ++c)
      EXPECT_EQ(dst[static_cast<std::size_t>(c)], (c & 1) != 0 && c < 16 ? 1 : 0) << "column " << c;
  }
}

TEST_F(Filters, WeightedSumStripsGiveOnePassesResults) {
  constexpr int32_t kColumns = 5000;
  std::vector<uint16_t> src(2 * kColumns), one(kColumns), split(kColumns);
  for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint16_t>(i * 2654435761u >> 17);
  const auto block = taps({0x1234, 0xFFF0});
  for (const auto& body : tests::bodiesOf(slot::filterSlot74)) {
    body.fn(src.data(), one.data(), 1, kColumns, 2 * kColumns, 2 * kColumns, block.data());
    body.fn(src.data(), split.data(), 1, 4096, 2 * kColumns, 2 * kColumns, block.data());
    body.fn(src.data() + 4096, split.data() + 4096, 1, 904, 2 * kColumns, 2 * kColumns, block.data());
    EXPECT_EQ(one, split) << levelName(body.level);
    for (int32_t c = 0; c < kColumns; ++c) {  // bits 8..23 of 128 + the full products
      const uint32_t sum =
          128 + src[static_cast<std::size_t>(c)] * 0x1234u + src[static_cast<std::size_t>(kColumns + c)] * 0xFFF0u;
      ASSERT_EQ(one[static_cast<std::size_t>(c)], static_cast<uint16_t>(sum >> 8)) << c << ' ' << levelName(body.level);
    }
  }
}

TEST_F(Filters, BoxMeanCopiesKeepsConstantsAndRounds) {
  for (const auto& body : tests::bodiesOf(slot::filterSlot75)) {
    SCOPED_TRACE(levelName(body.level));
    // r = 0 copies, 32768 included; a constant stays constant through the vector pack.
    std::vector<uint16_t> src(9 * 20, 32768), dst(9 * 20);
    src[25] = 1, src[26] = 65535;
    body.fn(src.data(), dst.data(), 9, 20, 40, 40, 0);
    EXPECT_EQ(src, dst);
    std::fill(src.begin(), src.end(), 32768);
    std::vector<uint16_t> out(4 * 16, 0);
    body.fn(src.data() + 2 * 20 + 2, out.data(), 4, 16, 40, 32, 2);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint16_t v) { return v == 32768; }));
    // Nearest mean, halves up: eight 1s and one 0 in a 3 x 3 box is 8/9 -> 1.
    std::fill(src.begin(), src.end(), 1);
    src[20 + 1] = 0;
    body.fn(src.data() + 20 + 1, out.data(), 1, 1, 40, 32, 1);
    EXPECT_EQ(out[0], 1);
    EXPECT_TRUE(callsTo(code::filt, 75).empty());
  }
}

TEST_F(Filters, BoxMeanHandsRadius180AndAboveToTheHost) {
  for (const auto& body : tests::bodiesOf(slot::filterSlot75)) {
    SCOPED_TRACE(levelName(body.level));
    host.clearLogs();
    std::vector<uint16_t> src(1, 5), dst(1, 7);
    EXPECT_EQ(body.fn(src.data(), dst.data(), 0, 0, 2, 2, 179), 0);
    EXPECT_TRUE(callsTo(code::filt, 75).empty());
    body.fn(src.data(), dst.data(), -1, 3, 2, 2, 180);  // even for an empty region
    const auto calls = callsTo(code::filt, 75);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(src.data()));
    EXPECT_EQ(calls[0].args[2], static_cast<uintptr_t>(intptr_t{-1}));
    EXPECT_EQ(calls[0].args[3], 3u);
  }
}

TEST_F(Filters, BlockMatrixSharesTheStepsWithTheHost) {
  std::vector<float> input(20), output(16, -1.0f), identity(32, 0.0f);
  for (std::size_t i = 0; i < input.size(); ++i) input[i] = static_cast<float>(i);
  for (int o = 0; o < 4; ++o) identity[static_cast<std::size_t>(o * 8 + 4 + o)] = 1.0f;  // newest element
  // k = 2, count 20: three elements here, the host gets 8 floats from element 3.
  EXPECT_EQ(filter::blockMatrixFilter2(input.data(), 20, identity.data(), 11, 12, output.data()), 1);
  const auto calls = callsTo(code::filt, 191);
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(input.data() + 12));
  EXPECT_EQ(calls[0].args[1], 8u);
  EXPECT_EQ(calls[0].args[2], 11u);
  EXPECT_EQ(calls[0].args[3], 12u);
  for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(output[i], input[i + 4]) << i;  // elements 1.. copied
  // k = 3, count 11: not one whole group, nothing written, the host not called.
  host.clearLogs();
  std::vector<float> untouched(8, -1.0f);
  EXPECT_EQ(filter::blockMatrixFilter3(input.data(), 11, identity.data(), 0, 0, untouched.data()), 0);
  EXPECT_TRUE(callsTo(code::filt, 192).empty());
  EXPECT_TRUE(std::all_of(untouched.begin(), untouched.end(), [](float v) { return v == -1.0f; }));
}

TEST_F(Filters, DifferenceSums) {
  std::vector<uint8_t> a(128), b(128), mask(128, 0);
  for (std::size_t i = 0; i < 128; ++i) a[i] = static_cast<uint8_t>(i), b[i] = static_cast<uint8_t>(2 * i);
  EXPECT_EQ(filter::blockDifferenceSum(a.data(), b.data()), 128 * 127 / 2);
  // Mask clear: first - second counts where positive (never here); set: second - first.
  EXPECT_EQ(filter::maskedDifferenceSum(a.data(), b.data(), mask.data()), 0);
  std::fill(mask.begin(), mask.begin() + 64, 1);
  EXPECT_EQ(filter::maskedDifferenceSum(a.data(), b.data(), mask.data()), 64 * 63 / 2);
}

// No turn, no elevation, one source column per destination column: the row is copied.
TEST_F(Filters, AngularRemapWithoutTurnCopiesAndFillsTheBackground) {
  const auto bodies = tests::bodiesOf(slot::angularRemap8);
  if (bodies.empty()) GTEST_SKIP() << "no SSE4.1 here";
  for (const auto& body : bodies) {
    SCOPED_TRACE(levelName(body.level));
    constexpr int32_t kWidth = 37;
    std::vector<uint8_t> src(2 * (kWidth + 1)), dst(2 * kWidth, 0);
    for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(3 * i + 1);
    body.fn(src.data(), dst.data(), 2, kWidth, kWidth, kWidth + 1, kWidth, 0, 200, 0, 0.0f, 0, 10.0f, 0, 50.0f, 0.0f,
            10.0f, 1e30f, 50.0f);
    for (int32_t y = 0; y < 2; ++y)
      for (int32_t x = 0; x < kWidth; ++x)
        EXPECT_EQ(dst[static_cast<std::size_t>(y * kWidth + x)], src[static_cast<std::size_t>(y * (kWidth + 1) + x)]);
    // A view turned away from the whole source: every row is background.
    body.fn(src.data(), dst.data(), 2, kWidth, kWidth, kWidth + 1, kWidth, 0, 200, 0, 1.4f, 0, 10.0f, 0, 50.0f, 0.0f,
            10.0f, 1e30f, 5.0f);
    EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t v) { return v == 200; }));
  }
}

}  // namespace

namespace {

// Every body of slot 74 against the host's routine, tap counts beyond the
// chunks the vector bodies take at once included.
TEST_F(Filters, WeightedSum16BodiesOfEveryLevelMatchTheHost) {
  uint32_t x = 99;
  auto next = [&x] { return x = x * 1664525u + 1013904223u; };
  for (uint32_t taps : {0u, 1u, 2u, 5u, 16u, 17u, 33u}) {
    std::vector<uint32_t> block(kWeightedSumTapCountEntry + 1 + taps);
    for (uint32_t& v : block) v = next();
    block[kWeightedSumTapCountEntry] = taps;
    for (int32_t columns : {1, 7, 8, 15, 16, 17, 40, 300}) {
      const int32_t rows = 3;
      std::vector<uint16_t> src(static_cast<std::size_t>(rows + static_cast<int32_t>(taps)) *
                                static_cast<std::size_t>(columns));
      for (uint16_t& v : src) v = static_cast<uint16_t>(next() >> 16);
      std::vector<uint16_t> expected(static_cast<std::size_t>(rows * columns));
      hosts<74>()(src.data(), expected.data(), rows, columns, 2 * columns, 2 * columns, block.data());
      for (const auto& body : tests::bodiesOf(slot::filterSlot74)) {
        std::vector<uint16_t> got(expected.size());
        body.fn(src.data(), got.data(), rows, columns, 2 * columns, 2 * columns, block.data());
        EXPECT_EQ(got, expected) << "taps " << taps << " columns " << columns << ' ' << levelName(body.level);
      }
    }
  }
}

// Full-range samples (the checks draw 0..32768) make the box sums of radius 128
// and up wrap modulo 2^32 and the quotients reach 65535, which the vector packs
// must keep; the widths cover the sixteen-output steps, an eight-output step and
// the tails, on every body.
TEST_F(Filters, BoxMeanFullRangeSamplesOnEveryBody) {
  uint32_t x = 7;
  auto next = [&x] { return x = x * 1664525u + 1013904223u; };
  for (const auto& body : tests::bodiesOf(slot::filterSlot75)) {
    for (int32_t radius : {1, 2, 9, 128, 179}) {
      for (int32_t columns : {1, 8, 12, 16, 17, 24, 27, 39}) {
        const int32_t rows = 3, width = columns + 2 * radius;
        std::vector<uint16_t> src(static_cast<std::size_t>((rows + 2 * radius) * width));
        for (uint16_t& v : src) v = static_cast<uint16_t>(next() % 8 == 0 ? next() >> 16 : 65535 - (next() >> 29));
        const uint16_t* region = src.data() + radius * width + radius;
        std::vector<uint16_t> expected(static_cast<std::size_t>(rows * columns)), got(expected.size());
        hosts<75>()(region, expected.data(), rows, columns, 2 * width, 2 * columns, radius);
        EXPECT_EQ(body.fn(region, got.data(), rows, columns, 2 * width, 2 * columns, radius), 0);
        EXPECT_EQ(got, expected) << levelName(body.level) << " radius " << radius << " columns " << columns;
      }
    }
  }
}

// The one-multiplication quotient the AVX2 kernel takes wherever there is one
// (every radius up to 63): equal to floor(n / d) at both ends of every quotient's
// range of sums (it grows with n, so that covers every sum up to the largest box
// sum plus half).
TEST(BoxMeanDivisor, BoundedQuotientsAreExactOverEveryBoxSum) {
  for (uint32_t radius = 1; radius <= 127; ++radius) {
    const uint32_t d = (2 * radius + 1) * (2 * radius + 1);
    const uint64_t largest = uint64_t{65535} * d + d / 2;
    const BoundedDivisor v = boundedDivisor(d, largest);
    if (v.k == 0) {  // none: the invariant-divisor form serves (past radius 63 only)
      EXPECT_GT(radius, 63u);
      continue;
    }
    ASSERT_GE(v.k, 32) << radius;
    for (uint64_t q = 0; q * d <= largest; ++q) {
      const auto low = static_cast<uint32_t>(q * d), high = static_cast<uint32_t>(std::min(q * d + d - 1, largest));
      ASSERT_EQ(boundedQuotient(v, low), q) << radius << ' ' << low;
      ASSERT_EQ(boundedQuotient(v, high), q) << radius << ' ' << high;
    }
  }
}

// A region of 4097 columns (every row the one-pass kernel's steps and its tail),
// starting one sample off a 32-byte boundary, against the host's routine on
// every body, with nothing written outside it.
TEST_F(Filters, BoxMeanOfLargeRegionsMatchesTheHost) {
  constexpr int32_t kRows = 1026, kColumns = 4097, kRadius = 3;
  constexpr int32_t kWidth = kColumns + 2 * kRadius + 5;
  std::vector<uint16_t> src(static_cast<std::size_t>((kRows + 2 * kRadius) * kWidth));
  uint32_t x = 11;
  for (uint16_t& v : src) v = static_cast<uint16_t>((x = x * 1664525u + 1013904223u) >> 17);
  const uint16_t* region = src.data() + kRadius * kWidth + kRadius;
  constexpr int32_t kOut = kColumns + 3;
  std::vector<uint16_t> expected(static_cast<std::size_t>(kRows * kOut + 32)), got(expected.size());
  const auto at = [](std::vector<uint16_t>& v) {  // one sample past a 32-byte boundary
    auto* p = reinterpret_cast<uint16_t*>((reinterpret_cast<uintptr_t>(v.data()) + 31) & ~uintptr_t{31});
    return p + 1;
  };
  hosts<75>()(region, at(expected), kRows, kColumns, 2 * kWidth, 2 * kOut, kRadius);
  for (const auto& body : tests::bodiesOf(slot::filterSlot75)) {
    std::fill(got.begin(), got.end(), uint16_t{0});
    EXPECT_EQ(body.fn(region, at(got), kRows, kColumns, 2 * kWidth, 2 * kOut, kRadius), 0);
    EXPECT_TRUE(std::equal(at(got) - 1, at(got) + kRows * kOut, at(expected) - 1)) << levelName(body.level);
  }
}

}  // namespace

