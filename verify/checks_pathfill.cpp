// Checks of path filling ('path'): the fill-array operation (slot 24) on drawn
// arrays, valid and hostile, placed between guard bytes and against inaccessible
// pages, comparing every byte and every report; and the crossing-count estimate
// (slot 46) on drawn knot lists whose last knot ends at an inaccessible page.
#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>
#include <vector>

#include "refhost/portable_pathfill.h"
#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/fill_array_cases.h"
#include "verify/planes.h"
#include "verify/runner.h"

namespace tarnell::verify {

namespace {

using FillFn = SlotFnOf<slot::ApplyFillArrayOperation>;
using EstimateFn = SlotFnOf<slot::EstimateRowCrossings>;

constexpr Placement kPlacements[] = {Placement::Heap, Placement::GuardPageAfter, Placement::GuardPageBefore};

// Both routines run with the settings the host's debug answers give, which are
// the ones the installed build was chosen and set up by.
void verifyFillArray(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<FillFn>(hostRoutine);
  const auto module = reinterpret_cast<FillFn>(moduleRoutine);
  const refhost::FillArraySettings settings = refhost::hostFillArraySettings();
  const int cases = ctx.thorough() ? 3000 : 600;
  for (int i : ctx.times(cases)) {
    const FillArrayCase c = drawFillArray(ctx.rng(), settings);
    if (!ctx.judge("fill array", compareFillArray(c, host, module, ctx.host(), kPlacements[i % 3]))) return;
  }
}

// Knots as rows of doubles, one after the other; the last one ends at a page.
struct Knots {
  Knots(Rng& rng, uint32_t count) : storage(layoutFor(count), Placement::GuardPageAfter) {
    // A few distinct values, so that equal neighbours and bounds on the rows occur.
    static constexpr double kValues[] = {-3.5, 0, 1, 2, 2.5, 7, 10, 10.25, 31, 64};
    auto* values = reinterpret_cast<double*>(storage.first());
    const Rng::Content content(rng);
    for (uint32_t k = 0; k < count * knot::kValues; ++k)
      values[k] = rng.chance(64)  ? std::numeric_limits<double>::quiet_NaN()
                  : rng.chance(3) ? static_cast<double>(rng.range(-20, 80))
                                  : kValues[rng.below(10)];
    for (uint32_t k = 0; k < count; ++k) pointers.push_back(values + k * knot::kValues);
  }
  static PlaneLayout layoutFor(uint32_t count) {
    PlaneLayout layout;
    layout.rowBytes = static_cast<int32_t>(std::max<uint32_t>(count, 1) * knot::kValues * sizeof(double));
    layout.stride = layout.rowBytes;
    return layout;
  }
  PlaneBuffer storage;
  std::vector<const double*> pointers;
};

void verifyRowCrossings(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<EstimateFn>(hostRoutine);
  const auto module = reinterpret_cast<EstimateFn>(moduleRoutine);
  Rng& rng = ctx.rng();
  const int cases = ctx.thorough() ? 2000 : 400;
  for (int i : ctx.times(cases)) {
    const uint32_t count = i < 4 ? static_cast<uint32_t>(i) : rng.below(14);
    const Knots knots(rng, count);
    const auto first = static_cast<int32_t>(rng.range(-10, 70));
    const auto last = static_cast<int32_t>(rng.chance(8) ? first - 1 : first + rng.range(0, 40));
    const auto closed = static_cast<uint8_t>(rng.chance(3) ? 0 : rng.chance(2) ? 1 : 0x80);
    const int32_t h = host(first, last, knots.pointers.data(), count, closed);
    const int32_t m = module(first, last, knots.pointers.data(), count, closed);
    if (!ctx.judge(words("rows", first, "to", last, "knots", count, "closed", int{closed}),
                   resultMismatch(static_cast<uint32_t>(h), static_cast<uint32_t>(m))))
      return;
  }
}

// ------------------------------------------------------------- benchmarks

// height rows of 64 crossings (x below width) and 16 spans each, union under the
// even-odd rule; every call starts from the same array.
struct FillArrayBench final : BenchCase {
  FillArrayBench(int width, int height) {
    using namespace fillarray;
    constexpr int32_t kStride = 2 + 64 + 64;
    const int32_t rows = std::max(1, height);
    Rng rng(0xF111A77A);
    pristine.assign(static_cast<std::size_t>(kFirstRow + rows * kStride + kStride), 0);
    pristine[kTop] = 0;
    pristine[kBottom] = static_cast<uint32_t>(rows);
    pristine[kRowStride] = kStride;
    const uint32_t xs = static_cast<uint32_t>(std::max(width, 2));
    for (int32_t r = 0; r < rows; ++r) {
      uint32_t* block = pristine.data() + kFirstRow + r * kStride;
      block[kSpanCount] = 16;
      block[kCrossingCount] = 64;
      for (int i = 0; i < 16; ++i) block[kSpans + i] = static_cast<uint32_t>(i) * xs / 16;
      for (int i = 0; i < 64; ++i) block[kStride - 1 - i] = rng.below(xs) << 1 | static_cast<uint32_t>(i & 1);
    }
    words = pristine;
    bytesMoved = 2 * static_cast<uint64_t>(rows) * kStride * 4;
  }
  void run(HostRoutine routine) override {
    std::memcpy(words.data(), pristine.data(), words.size() * 4);
    reinterpret_cast<FillFn>(routine)(words.data(), 0, 0);
  }
  std::vector<uint32_t> pristine, words;
};

// width knots on a zigzag, closed, asked for the middle rows.
struct RowCrossingsBench final : BenchCase {
  RowCrossingsBench(int width, int height) : rows(std::max(height, 2)) {
    const int count = std::max(width, 1);
    values.resize(static_cast<std::size_t>(count) * knot::kValues);
    Rng rng(0x4E075);
    for (double& v : values) v = static_cast<double>(rng.range(0, rows));
    for (int k = 0; k < count; ++k) pointers.push_back(values.data() + k * knot::kValues);
    bytesMoved = values.size() * sizeof(double);
  }
  void run(HostRoutine routine) override {
    result += reinterpret_cast<EstimateFn>(routine)(rows / 4, rows - rows / 4, pointers.data(),
                                                    static_cast<uint32_t>(pointers.size()), 1);
  }
  int32_t rows;
  std::vector<double> values;
  std::vector<const double*> pointers;
  int64_t result = 0;
};

template <typename B>
BenchCase* makeBench(int width, int height) {
  return new B(width, height);
}

const Check kPathFillChecks[] = {
    customCheck(slot::ApplyFillArrayOperation, &verifyFillArray, &makeBench<FillArrayBench>),
    customCheck(slot::EstimateRowCrossings, &verifyRowCrossings, &makeBench<RowCrossingsBench>),
};

}  // namespace

std::span<const Check> checksPathFill() { return kPathFillChecks; }

}  // namespace tarnell::verify
