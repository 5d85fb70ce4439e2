// The resampling routines on the cases their rules single out, and the two
// routines that only processors without SSE2 would run (FilterRowsScalar8,
// FilterColumns8), which no started module installs here: they go through the
// same checks as the installed ones, against the host's routines.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "host/module_state.h"
#include "host/startup_tables.h"
#include "refhost/refhost.h"
#include "resample/resample_routines.h"
#include "tests/tiers.h"
#include "verify/runner.h"

using namespace tarnell;
using namespace tarnell::resample;

namespace {

// Points the module's live 'memo' table at the host's, so the row copies of the
// vertical filters reach the host's copy routine (or whatever a test puts there).
class HostMemo {
 public:
  explicit HostMemo(refhost::ReferenceHost& host) : saved_(g_liveTables[kMemo]) {
    g_liveTables[kMemo] = host.liveTable(code::memo);
  }
  ~HostMemo() { g_liveTables[kMemo] = saved_; }

 private:
  HostRoutine* saved_;
};

verify::CheckResult checkAgainstHost(int slot, HostRoutine candidate) {
  refhost::ReferenceHost host;
  HostMemo memo(host);
  for (const verify::Check& check : verify::allChecks())
    if (check.suite == code::rsmp && check.slot == slot)
      return verify::runCheckOn(check, host, host.original(code::rsmp, slot), candidate, verify::VerifyOptions{});
  ADD_FAILURE() << "no check for slot " << slot;
  return {};
}

TEST(ResampleRoutines, TheFiltersForProcessorsWithoutSse2MatchTheHost) {
  for (auto [slot, routine] : {std::pair{5, reinterpret_cast<HostRoutine>(&FilterRowsScalar8)},
                               std::pair{6, reinterpret_cast<HostRoutine>(&FilterColumns8)}}) {
    const verify::CheckResult r = checkAgainstHost(slot, routine);
    EXPECT_EQ(r.failures, 0) << r.firstFailure;
    EXPECT_GT(r.cases, 100);
  }
}

// One row of `width` outputs of a horizontal 8-bit filter with a single phase.
std::vector<uint8_t> filterRow8(SlotFnOf<slot::FilterRowsSse2_8> fn, const std::vector<uint8_t>& source, int32_t width,
                                int16_t taps, const std::vector<int16_t>& weights, int32_t index) {
  std::vector<int32_t> indices(static_cast<std::size_t>(width), index);
  std::vector<uint8_t> phases(static_cast<std::size_t>(width), 0), out(static_cast<std::size_t>(width), 0x5A);
  fn(source.data(), out.data(), 1, width, indices.data(), phases.data(), 0, 0, taps, weights.data());
  return out;
}

TEST(ResampleRoutines, IntegerFiltersRoundShiftWithSignAndClamp) {
  const std::vector<uint8_t> constant(64, 77);
  for (auto fn : {&FilterRowsSse2_8, &FilterRowsScalar8}) {
    // Weights summing to 16384 give a constant area back, for every loop.
    for (int16_t taps : std::vector<int16_t>{2, 3, 4, 6, 8, 10, 16, 21}) {
      std::vector<int16_t> w(static_cast<std::size_t>(taps), 0);
      w[0] = static_cast<int16_t>(16384 + 3000);
      w[1] = -3000;
      EXPECT_EQ(filterRow8(fn, constant, 13, taps, w, 20), std::vector<uint8_t>(13, 77)) << taps;
    }
    // A sum of -1 shifts to -1 and clamps to 0; 255 x 16384 + 8191 gives 255.
    std::vector<uint8_t> ones(64, 1), top(64, 1);
    top[20] = 255;
    EXPECT_EQ(filterRow8(fn, ones, 9, 2, {-8193, 0}, 20), std::vector<uint8_t>(9, 0));
    EXPECT_EQ(filterRow8(fn, top, 9, 2, {-1, 16384}, 19), std::vector<uint8_t>(9, 255));
    EXPECT_EQ(filterRow8(fn, top, 9, 2, {-8193, 16384}, 19), std::vector<uint8_t>(9, 254));  // 255 x 16384 - 1
    // A 1-tap kernel weights position index + 1; none gives the rounding term alone.
    EXPECT_EQ(filterRow8(fn, top, 9, 1, {16384}, 19), std::vector<uint8_t>(9, 255));
    EXPECT_EQ(filterRow8(fn, top, 9, 0, {}, 19), std::vector<uint8_t>(9, 0));
  }
}

TEST(ResampleRoutines, SixteenBitResultsNeverPassFullScale) {
  const std::vector<uint16_t> source(64, 32768);
  std::vector<int32_t> indices(12, 10);
  std::vector<uint8_t> phases(12, 0);
  for (int16_t taps : std::vector<int16_t>{0, 2, 4, 5, 8, 10, 16}) {
    std::vector<int16_t> w(static_cast<std::size_t>(taps), 0);
    if (taps > 0) w[0] = 32767;  // about 2.0: overshoot
    std::vector<uint16_t> out(12, 1);
    FilterRows16(source.data(), out.data(), 1, 12, indices.data(), phases.data(), 0, 0, taps, w.data());
    EXPECT_EQ(out, std::vector<uint16_t>(12, taps > 0 ? 32768 : 0)) << taps;
  }
}

// Positions that step by one sample (a convolution) take loops of their own in
// the specialised tap counts, and the other counts read their kernels in
// overlapping pieces: halfway sums round up there too, overshoot clamps at both
// ends, and a break in the walk or a row end mid-block changes nothing.
template <int Slot, typename T>
void expectConvolutionLikeHost(int16_t taps, int32_t breakAt) {
  refhost::ReferenceHost host;
  const auto hostFn = reinterpret_cast<SlotFn<code::rsmp, Slot>>(host.original(code::rsmp, Slot));
  const auto moduleFn = Slot == 5 ? reinterpret_cast<SlotFn<code::rsmp, Slot>>(&FilterRowsSse2_8)
                                  : reinterpret_cast<SlotFn<code::rsmp, Slot>>(&FilterRows16);
  constexpr int32_t kWidth = 45, kRows = 3, kStride = 80;
  const T top = sizeof(T) == 1 ? 255 : 32768;
  std::vector<T> source(kRows * kStride);
  for (std::size_t i = 0; i < source.size(); ++i)
    source[i] = static_cast<T>(i % 7 == 3 ? top : i % 11 == 5 ? 0 : (i * 37) % (sizeof(T) == 1 ? 256 : 65536));
  // Phase 0: halves of neighbours (odd sums sit half way); 1: overshoot up; 2: down,
  // with every tap weighted.
  std::vector<int16_t> w(static_cast<std::size_t>(3 * taps), 0);
  for (int k = 2; k < taps; ++k) w[static_cast<std::size_t>(2 * taps + k)] = static_cast<int16_t>(300 * (k % 5) - 500);
  w[0] = w[1] = 8192;
  w[static_cast<std::size_t>(taps)] = 32767, w[static_cast<std::size_t>(taps) + 1] = -16383;
  w[static_cast<std::size_t>(2 * taps)] = -20000, w[static_cast<std::size_t>(2 * taps) + 1] = 3616;
  std::vector<int32_t> indices(kWidth);
  std::vector<uint8_t> phases(kWidth);
  for (int32_t x = 0; x < kWidth; ++x) {
    indices[static_cast<std::size_t>(x)] = x == breakAt ? 30 : 8 + x;
    phases[static_cast<std::size_t>(x)] = static_cast<uint8_t>(x % 3);
  }
  std::vector<T> expected(kRows * kWidth, 1), actual(kRows * kWidth, 1);
  constexpr int32_t kSize = static_cast<int32_t>(sizeof(T));
  hostFn(source.data(), expected.data(), kRows, kWidth, indices.data(), phases.data(), kStride * kSize, kWidth * kSize,
         taps, w.data());
  moduleFn(source.data(), actual.data(), kRows, kWidth, indices.data(), phases.data(), kStride * kSize,
           kWidth * kSize, taps, w.data());
  EXPECT_EQ(actual, expected) << "taps " << taps << " break at " << breakAt;
}

TEST(ResampleRoutines, ConvolutionsRoundAndClampAsTheHost) {
  for (int16_t taps : std::vector<int16_t>{2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 16})
    for (int32_t breakAt : {-1, 0, 15, 21, 40}) {
      expectConvolutionLikeHost<5, uint8_t>(taps, breakAt);
      expectConvolutionLikeHost<13, uint16_t>(taps, breakAt);
    }
}

TEST(ResampleRoutines, FloatFiltersKeepValuesOutsideZeroToOne) {
  const std::vector<float> source = {-0.75f, 2.5f, 0.5f, 0.5f, 0.5f, 0.5f};
  std::vector<int32_t> indices = {0, 1, 2};  // a 2-tap kernel starts at index
  std::vector<uint8_t> phases = {0, 0, 0};
  const std::vector<int16_t> w = {16384, 0};
  std::vector<float> rows(3, 9.0f);
  g_resampleSse41.FilterRowsFloat(source.data(), rows.data(), 1, 3, indices.data(), phases.data(), 0, 0, 2, w.data());
  EXPECT_EQ(rows, (std::vector<float>{-0.75f, 2.5f, 0.5f}));
  // Down a column: output row r from source rows indices[r] and indices[r] + 1.
  std::vector<float> columns(3, 9.0f);
  FilterColumnsFloat(source.data(), columns.data(), 3, 1, indices.data(), phases.data(), 4, 4, 2, w.data());
  EXPECT_EQ(columns, (std::vector<float>{-0.75f, 2.5f, 0.5f}));
}

void recordCopy(const void* source, void* destination, int32_t count) {
  refhost::ReferenceHost::active()->record(
      {code::memo, 0, {reinterpret_cast<uintptr_t>(source), reinterpret_cast<uintptr_t>(destination), static_cast<uintptr_t>(count), 0}});
  std::memcpy(destination, source, static_cast<std::size_t>(count));
}

TEST(ResampleRoutines, OneTapColumnsCopyRowIndexPlusOneThroughTheLiveMemoryTable) {
  refhost::ReferenceHost host;
  HostMemo memo(host);
  host.liveTable(code::memo)[0] = reinterpret_cast<HostRoutine>(&recordCopy);
  std::vector<uint8_t> source(5 * 8);
  std::iota(source.begin(), source.end(), uint8_t{0});
  const std::vector<int32_t> indices = {2, 0};
  const std::vector<uint8_t> phases = {0, 0};
  const int16_t weight = 1;  // never read
  for (auto fn : {&FilterColumnsSse2_8, &FilterColumns8}) {
    for (int16_t taps : std::vector<int16_t>{0, 1}) {
      host.clearLogs();
      std::vector<uint8_t> out(2 * 8, 0);
      fn(source.data(), out.data(), 2, 6, indices.data(), phases.data(), 8, 8, taps, &weight);
      const auto calls = host.calls();
      ASSERT_EQ(calls.size(), 2u);
      EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(source.data() + 3 * 8));
      EXPECT_EQ(calls[1].args[1], reinterpret_cast<uintptr_t>(out.data() + 8));
      EXPECT_EQ(calls[1].args[2], 6u);
      EXPECT_EQ(out[0], 24);
      EXPECT_EQ(out[8 + 5], 13);
      EXPECT_EQ(out[6], 0);  // past the width
    }
  }
}

TEST(ResampleRoutines, BoxAverageSkipsRowsWithACountOf0AndKeeps255) {
  std::vector<uint8_t> source(3 * 20, 255), out(3 * 20, 7);
  source[19] = source[39] = 1;
  source[59] = 0;
  const std::vector<int32_t> counts = {0, 3, 0};
  BoxAverageRows8(source.data(), out.data(), 3, 20, counts.data(), 20, 20);
  EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 20), std::vector<uint8_t>(20, 7));
  EXPECT_EQ(out[20], 255);      // (1 + 765) x 5592405 >> 24
  EXPECT_EQ(out[20 + 19], 0);  // (1 + 2) x 5592405 >> 24: one below the rounded mean 1
  EXPECT_EQ(out[40], 7);
}

TEST(ResampleRoutines, BoxReduceOfArea1Copies) {
  std::vector<uint8_t> source(3 * 40), out(3 * 40, 0);
  std::iota(source.begin(), source.end(), uint8_t{1});
  BoxReduce8(source.data(), out.data(), 3, 37, 40, 40, 3, 1, 1);
  for (std::size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i], i % 40 < 37 ? source[i] : 0) << i;
}

TEST(ResampleRoutines, RemapsAcceptUpToTheLastRowWithZeroFractionOnly) {
  buildStartupTables();
  // Rows 0..3 of one sample each along the axis; first 0, end 4. The second four
  // bytes serve the two-axis remap as its second row.
  const uint8_t source[8] = {10, 20, 30, 40, 50, 60, 70, 80};
  for (int16_t interpolate : std::vector<int16_t>{0, 1}) {
    const uint32_t bias = interpolate != 0 ? 128 : 32768;
    const uint32_t last = (3u << 16) + bias;
    const uint32_t coords[4] = {last, last + 1, bias - 1, bias + (1u << 15)};
    uint8_t out[4] = {1, 2, 3, 4};
    RemapAxis8(coords, source, out, 1, 4, 1, 0, 1, 0, 1, 0, 4, interpolate);
    EXPECT_EQ(out[0], 40);
    EXPECT_EQ(out[1], 2);  // rejected: untouched
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(out[3], interpolate != 0 ? 15 : 10);  // half way (128/255 of 10) or nearest

    // The same in two axes: x at its last column, y one past its last row.
    const uint32_t pairs[4] = {last, (1u << 16) + bias, last, last + 1};
    uint8_t plane[2] = {5, 6};
    RemapPlane8(pairs, source, plane, 1, 2, 1, 1, 4, 0, 1, 0, 4, 0, 2, interpolate);
    EXPECT_EQ(plane[0], 80);  // x = 3 in row y = 1 of a 4 x 2 view
    EXPECT_EQ(plane[1], 6);
  }
}

// A group of eight pixels mixing the cases the eight-pixel paths split on: zero and
// non-zero fractions, the last column and row (fraction 0, no neighbour read: the
// source is sized exactly), a rejected pixel; then a group of interior pixels only,
// stored at once. Four-sample pixels are the same values plus the sample's index.
TEST(ResampleRoutines, RemapGroupsOfEightPixelsMatchTheTableAndLeaveRejectedPixels) {
  buildStartupTables();
  const uint8_t values[6] = {10, 20, 30, 40, 50, 60};  // 3 columns x 2 rows
  const auto at = [](uint32_t whole, uint32_t fraction8) { return (whole << 16) + (fraction8 << 8) + 128; };
  const uint32_t x[8] = {at(0, 0), at(0, 128), at(2, 0), at(3, 0), at(1, 255), at(0, 128), at(0, 128), at(0, 128)};
  const uint32_t y[8] = {at(0, 0), at(0, 0), at(1, 0), at(0, 0), at(0, 255), at(0, 128), at(0, 128), at(0, 128)};
  const int plane[8] = {10, 15, 60, -1, 60, 30, 30, 30};  // -1: rejected, untouched
  const int axis[8] = {10, 15, 30, -1, 30, 15, 15, 15};   // along row 0
  for (int32_t spp : {1, 4}) {
    const auto n = static_cast<std::size_t>(spp);
    std::vector<uint8_t> source(6 * n);
    for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(values[i / n] + i % n);
    const auto expect = [&](const std::vector<uint8_t>& out, const int* want, const char* what) {
      for (std::size_t i = 0; i < out.size(); ++i)
        EXPECT_EQ(out[i], want[i / n] < 0 ? 7 : want[i / n] + static_cast<int>(i % n)) << what << " spp " << spp << " " << i;
    };
    std::vector<uint32_t> pairs(16), interior(16, at(0, 128));
    for (std::size_t k = 0; k < 8; ++k) pairs[2 * k] = x[k], pairs[2 * k + 1] = y[k];
    std::vector<uint8_t> out(8 * n, 7);
    RemapPlane8(pairs.data(), source.data(), out.data(), 1, 8, spp, spp, 3 * spp, 0, spp, 0, 3, 0, 2, 1);
    expect(out, plane, "plane");
    std::fill(out.begin(), out.end(), 7);
    RemapAxis8(x, source.data(), out.data(), 1, 8, spp, 0, spp, 0, spp, 0, 3, 1);
    expect(out, axis, "axis");
    const int inside[8] = {30, 30, 30, 30, 30, 30, 30, 30};
    RemapPlane8(interior.data(), source.data(), out.data(), 1, 8, spp, spp, 3 * spp, 0, spp, 0, 3, 0, 2, 1);
    expect(out, inside, "interior");
  }
}

}  // namespace

namespace {

// The destination is one pointer that walks: a pixel stride after each pixel, the
// advance after each row, so pixel p of row r lands at r x (pixels x pixel stride
// + advance) + p x pixel stride. Advances of 0, a few bytes, rows all at one place
// (pitch 0, the second row overwriting the first) and rows going up in memory;
// nearest and interpolating (zero fractions copy), one- and four-sample pixels,
// nine pixels a row (a group of eight and one more). Module and host alike.
TEST(ResampleRoutines, RemapDestinationsWalkByPixelStrideThenAdvance) {
  buildStartupTables();
  refhost::ReferenceHost host;
  const SlotFnOf<slot::RemapAxis8> axes[] = {&RemapAxis8,
                                         reinterpret_cast<SlotFnOf<slot::RemapAxis8>>(host.original(code::rsmp, 18))};
  const SlotFnOf<slot::RemapPlane8> planes[] = {&RemapPlane8,
                                           reinterpret_cast<SlotFnOf<slot::RemapPlane8>>(host.original(code::rsmp, 19))};
  constexpr int32_t kRows = 2, kPixels = 9, kColumns = 10;
  constexpr std::size_t kOrigin = 256;
  for (const int32_t spp : {1, 4}) {
    const int32_t ps = spp + 1;
    const int32_t span = kPixels * ps;
    // Source: 2 rows of 10 pixels, sample s of pixel x in row y is 1 + 100 y + 8 x + s.
    std::vector<uint8_t> source(static_cast<std::size_t>(kRows * kColumns * spp));
    for (std::size_t i = 0; i < source.size(); ++i) {
      const auto pixel = static_cast<int32_t>(i) / spp;
      source[i] = static_cast<uint8_t>(1 + 100 * (pixel / kColumns) + 8 * (pixel % kColumns) + static_cast<int32_t>(i) % spp);
    }
    for (const int16_t interpolate : {int16_t{0}, int16_t{1}}) {
      const uint32_t bias = interpolate != 0 ? 128 : 32768;
      std::vector<uint32_t> along, pairs;
      for (int32_t r = 0; r < kRows; ++r)
        for (int32_t p = 0; p < kPixels; ++p) {
          along.push_back((static_cast<uint32_t>(p) << 16) + bias);
          pairs.push_back((static_cast<uint32_t>(p) << 16) + bias);
          pairs.push_back((static_cast<uint32_t>(r) << 16) + bias);
        }
      for (const int32_t advance : {0, 3, -span, -2 * span - 5}) {
        std::vector<uint8_t> expected(512, 0xEE);
        for (int32_t r = 0; r < kRows; ++r)
          for (int32_t p = 0; p < kPixels; ++p)
            for (int32_t s = 0; s < spp; ++s)
              expected[static_cast<std::size_t>(static_cast<int32_t>(kOrigin) + r * (span + advance) + p * ps + s)] =
                  static_cast<uint8_t>(1 + 100 * r + 8 * p + s);
        for (std::size_t k = 0; k < 2; ++k) {
          const char* who = k == 0 ? "module" : "host";
          std::vector<uint8_t> out(512, 0xEE);
          // Along each source row: the line advances a row, the samples step a pixel.
          axes[k](along.data(), source.data(), out.data() + kOrigin, kRows, kPixels, spp, kColumns * spp, spp, advance,
                  ps, 0, kColumns, interpolate);
          EXPECT_EQ(out, expected) << who << " axis spp " << spp << " interpolate " << interpolate << " advance " << advance;
          std::fill(out.begin(), out.end(), 0xEE);
          planes[k](pairs.data(), source.data(), out.data() + kOrigin, kRows, kPixels, spp, spp, kColumns * spp,
                    advance, ps, 0, kColumns, 0, kRows, interpolate);
          EXPECT_EQ(out, expected) << who << " plane spp " << spp << " interpolate " << interpolate << " advance " << advance;
        }
      }
    }
  }
}

}  // namespace

namespace {

// Planes larger than the verification cases: more rows and pixels than a tile
// holds and not whole tiles, a turn of the plane (every output row crosses source
// rows), every pixel size from 1 to 4, nearest and interpolating, destinations
// whose rows lie apart (any visiting order gives the same bytes) and destinations
// whose rows overlap or go up in memory (rows in order: the later row's pixels
// stay). Each body this processor runs, against the host's routine.
TEST(ResampleRoutines, RemapsOfLargerPlanesMatchTheHostWhateverOrderTheyVisit) {
  buildStartupTables();
  refhost::ReferenceHost host;
  const auto hostAxis = reinterpret_cast<SlotFnOf<slot::RemapAxis8>>(host.original(code::rsmp, 18));
  const auto hostPlane = reinterpret_cast<SlotFnOf<slot::RemapPlane8>>(host.original(code::rsmp, 19));
  constexpr int32_t kRows = 37, kPixels = 150, kSide = 160;
  for (const int32_t spp : {1, 2, 3, 4}) {
    const int32_t ps = spp, rs = kSide * spp + 3;
    std::vector<uint8_t> source(static_cast<std::size_t>(kSide * rs));
    for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i * 2654435761u >> 11);
    for (const int16_t interpolate : {int16_t{0}, int16_t{1}}) {
      // A turn by 10 degrees with a zoom of 0.9 about the plane's centre, some pixels
      // falling outside the range on the right and at the bottom.
      std::vector<uint32_t> pairs, along;
      const double c = 0.9 * 0.98480775, t = 0.9 * 0.17364818;
      for (int32_t r = 0; r < kRows; ++r)
        for (int32_t p = 0; p < kPixels; ++p) {
          const double x = 20 + c * p - t * r, y = 10 + t * p + c * r * 3.5;
          pairs.push_back(static_cast<uint32_t>(x * 65536));
          pairs.push_back(static_cast<uint32_t>(y * 65536));
          along.push_back(static_cast<uint32_t>((2 + 0.97 * p + 0.3 * r) * 65536));
        }
      for (const int32_t dps : {spp, spp + 2}) {
        const int32_t rowBytes = (kPixels - 1) * dps + spp;
        for (const int32_t advance : {0, 5, -kPixels * dps, -kPixels * dps - rowBytes - 7, rowBytes / 2 - kPixels * dps}) {
          const intptr_t pitch = intptr_t{kPixels} * dps + advance;
          const intptr_t lowest = pitch < 0 ? (kRows - 1) * pitch : 0;
          const std::size_t bytes = static_cast<std::size_t>((kRows - 1) * (pitch < 0 ? -pitch : pitch) + rowBytes + 64);
          const std::size_t origin = static_cast<std::size_t>(32 - lowest);
          const std::string what = "spp " + std::to_string(spp) + " interpolate " + std::to_string(interpolate) +
                                   " pixel stride " + std::to_string(dps) + " advance " + std::to_string(advance);
          std::vector<uint8_t> expected(bytes, 0xEE), out(bytes);
          hostPlane(pairs.data(), source.data(), expected.data() + origin, kRows, kPixels, spp, ps, rs, advance, dps, 0,
                    kSide, 0, kSide, interpolate);
          for (const auto& body : tests::bodiesOf(slot::RemapPlane8)) {
            std::fill(out.begin(), out.end(), 0xEE);
            body.fn(pairs.data(), source.data(), out.data() + origin, kRows, kPixels, spp, ps, rs, advance, dps, 0,
                    kSide, 0, kSide, interpolate);
            EXPECT_EQ(out, expected) << "plane " << levelName(body.level) << ' ' << what;
          }
          // One axis down the columns (line r is column r) and along the rows.
          for (const bool down : {true, false}) {
            const int32_t lineAdvance = down ? spp : rs, step = down ? rs : spp;
            std::fill(expected.begin(), expected.end(), 0xEE);
            hostAxis(along.data(), source.data(), expected.data() + origin, kRows, kPixels, spp, lineAdvance, step,
                     advance, dps, 0, kSide, interpolate);
            for (const auto& body : tests::bodiesOf(slot::RemapAxis8)) {
              std::fill(out.begin(), out.end(), 0xEE);
              body.fn(along.data(), source.data(), out.data() + origin, kRows, kPixels, spp, lineAdvance, step, advance,
                      dps, 0, kSide, interpolate);
              EXPECT_EQ(out, expected) << "axis " << (down ? "down " : "along ") << levelName(body.level) << ' ' << what;
            }
          }
        }
      }
    }
  }
}

}  // namespace
