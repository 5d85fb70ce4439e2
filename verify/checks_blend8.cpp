// Checks of the 8-bit blending routines, one per slot the module implements. The
// forwarded slots (53, 66, 72, 96, 97) have none: they run the host's own code.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "verify/blend_shapes.h"
#include "verify/families.h"
#include "verify/runner.h"
#include "verify/twin.h"

namespace tarnell::verify {

namespace {

constexpr blend::SampleKind kBytes = {1, Samples::Bytes, Samples::Mask, nullptr};
using S = blend::Shapes<kBytes>;

// A byte constant, opacity or sample value: the ends and the halves first.
constexpr ParamSpec byteParam(const char* name) { return {name, 0, 255, {0, 127, 128, 255, 1, 254}, 6}; }

// Only the low byte of k is a sample value; the high byte must not matter.
template <auto Id>
constexpr PlaneShape kShapeK = S::k<Id>({"k", 0, 255, {0, 255, 127, 128, 1, 254, 256, 0xFF80}, 8});
template <auto Id>
constexpr PlaneShape kShapeCDM = S::cdm<Id>(byteParam("c"));
template <auto Id>
constexpr PlaneShape kShapeSD = S::sd<Id>();
template <auto Id>
constexpr PlaneShape kShapeSDK = S::sdk<Id>(byteParam("k"));
template <auto Id>
constexpr PlaneShape kShapeSDM = S::sdm<Id>();
template <auto Id>
constexpr PlaneShape kShapeADB = S::adb<Id>();
constexpr PlaneShape kShapeFillClear = S::fillClear<slot::FillWhereMaskClear8>(byteParam("c"));
constexpr PlaneShape kShapeCoverage = S::coverage<slot::SubtractCoverage8>();
constexpr PlaneShape kShapeOrdered = S::ordered<slot::OrderedCombineInto8>();

// ------------------------------------------------------ overlapping rows
// The overlay and screen routines stage one operand row (the source; the mask
// where there is no source) for rows of up to 4096 samples: it is read as it
// stood before its destination row is rewritten, so a source that overlaps the
// destination gives the staged bytes. Longer rows, and the mask of the
// three-plane members, are read in place, one sample after another. The host's
// routine reads every plane in place, so the expected bytes are its own, called
// row by row with each staged row copied aside first.

struct Placed {
  std::ptrdiff_t first;  // the first row's offset in the arena
  int32_t stride;
};

// Where the rows of a plane reach, relative to its first row: [lowest, highest).
std::ptrdiff_t lowest(const Placed& p, int32_t rows) {
  return std::min<std::ptrdiff_t>(0, std::ptrdiff_t{rows - 1} * p.stride);
}
std::ptrdiff_t highest(const Placed& p, int32_t rows, int32_t columns) {
  return std::max<std::ptrdiff_t>(0, std::ptrdiff_t{rows - 1} * p.stride) + columns;
}

// One layout: the staged plane `shift` bytes from the destination (its stride
// `strideDelta` off the destination's), the third plane, if any, apart from both
// or `otherShift` bytes from the destination. Returns false when the check
// should stop.
bool overlapCase(Context& ctx, HostRoutine host, HostRoutine module, int staged, int32_t rows, int32_t columns,
                 int32_t stride, std::ptrdiff_t shift, int32_t strideDelta, bool otherOverlaps,
                 std::ptrdiff_t otherShift) {
  const PlaneShape& shape = *ctx.check().shape;
  Rng& rng = ctx.rng();
  int destination = 0;
  while (shape.planes[destination].role != Role::InOut) ++destination;
  Placed placed[kMaxPlanes] = {};
  placed[destination] = {0, stride};
  placed[staged] = {shift, stride + strideDelta};
  // The third plane: overlapping the destination, or after the other two.
  int other = -1;
  for (int p = 0; p < shape.planeCount; ++p)
    if (p != destination && p != staged) other = p;
  if (other >= 0) {
    if (otherOverlaps) {
      placed[other] = {otherShift, stride};
    } else {
      std::ptrdiff_t end = 0;
      for (int p : {destination, staged}) end = std::max(end, placed[p].first + highest(placed[p], rows, columns));
      const int32_t otherStride = stride < 0 ? -(columns + 7) : columns + 7;
      placed[other] = {0, otherStride};
      placed[other].first = end + 16 + static_cast<std::ptrdiff_t>(rng.below(32)) - lowest(placed[other], rows);
    }
  }
  std::ptrdiff_t low = 0, high = 0;
  for (int p = 0; p < shape.planeCount; ++p) {
    low = std::min(low, placed[p].first + lowest(placed[p], rows));
    high = std::max(high, placed[p].first + highest(placed[p], rows, columns));
  }
  const std::ptrdiff_t lead = 16 + static_cast<std::ptrdiff_t>(rng.below(48)) - low;
  Twin twin(rng, static_cast<std::size_t>(lead + high + 48));

  PlaneCall call{};
  call.rows = rows;
  call.columns = columns;
  for (int i = 0; i < shape.paramCount; ++i) {
    const ParamSpec& param = shape.params[i];
    call.param[i] = param.specialCount > 0 && rng.chance(2)
                        ? param.special[rng.below(static_cast<uint32_t>(param.specialCount))]
                        : rng.range(param.lo, param.hi);
  }
  // The host, a row at a time, the staged row copied aside first.
  std::vector<unsigned char> copy(static_cast<std::size_t>(columns));
  for (int32_t r = 0; r < rows; ++r) {
    PlaneCall row = call;
    row.rows = 1;
    for (int p = 0; p < shape.planeCount; ++p) {
      row.plane[p] = twin.host(lead + placed[p].first + std::ptrdiff_t{r} * placed[p].stride);
      row.stride[p] = placed[p].stride;
    }
    if (columns <= 4096) {
      std::memcpy(copy.data(), row.plane[staged], copy.size());
      row.plane[staged] = copy.data();
    }
    shape.invoke(host, row);
  }
  for (int p = 0; p < shape.planeCount; ++p) {
    call.plane[p] = twin.module(lead + placed[p].first);
    call.stride[p] = placed[p].stride;
  }
  shape.invoke(module, call);
  std::string what = words("overlapping rows: rows", rows, "columns", columns, "stride", stride, "staged",
                           shape.planes[staged].name, "at", shift, "stride", stride + strideDelta);
  if (other >= 0)
    what = otherOverlaps ? words(what, shape.planes[other].name, "at", otherShift)
                         : words(what, shape.planes[other].name, "apart");
  return ctx.judge(what, twin.difference());
}

template <int Staged>
void overlappingRows(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  std::vector<int32_t> widths = {1,  2,   3,   7,   15,  16,   17,   31,   32,   33,  47,
                                 63, 64, 65, 100, 255, 256, 257, 4095, 4096, 4097, 5003};
  for (int i = 0; i < 4; ++i) widths.push_back(1 + static_cast<int32_t>(rng.below(300)));
  for (int32_t n : widths) {
    const std::ptrdiff_t w = n;
    std::vector<std::ptrdiff_t> shifts = {0, 1, -1, 2, -2, 15, -15, 16, -16, 17, -17, 31, -31, 32, -32, 33, -33,
                                          63, -63, 64, -64, 65, -65, w - 1, 1 - w, w, -w};
    for (int i = 0; i < 4; ++i) shifts.push_back(rng.range(-w - 70, w + 70));
    for (std::ptrdiff_t shift : shifts) {
      if (!ctx.thorough() && !rng.chance(4)) continue;
      const int32_t rows = 1 + static_cast<int32_t>(rng.below(3));
      const int32_t pad = rng.chance(3) ? 0 : static_cast<int32_t>(rng.below(40));
      const int32_t stride = (rng.chance(4) ? -1 : 1) * (n + pad);
      // The staged rows at the destination's pitch, or drifting across its rows.
      const int32_t strideDelta = rng.chance(2) ? 0 : static_cast<int32_t>(rng.range(-40, 40));
      const bool otherOverlaps = rng.chance(2);
      const std::ptrdiff_t otherShift = rng.chance(2) ? -shift : rng.range(-70, 70);
      if (!overlapCase(ctx, host, module, Staged, rows, n, stride, shift, strideDelta, otherOverlaps, otherShift))
        return;
    }
  }
}

constexpr PlaneShape withOverlaps(PlaneShape shape, void (*cases)(Context&, HostRoutine, HostRoutine)) {
  shape.moreCases = cases;
  return shape;
}

template <auto Id>
constexpr Check check(const PlaneShape& shape) {
  return planeCheck(Id, shape);
}
template <auto Id>
constexpr Check checkADB = check<Id>(kShapeADB<Id>);
template <auto Id>
constexpr Check checkCDM = check<Id>(kShapeCDM<Id>);
template <auto Id>
constexpr Check checkK = check<Id>(kShapeK<Id>);
template <auto Id>
constexpr Check checkSD = check<Id>(kShapeSD<Id>);
template <auto Id>
constexpr Check checkSDK = check<Id>(kShapeSDK<Id>);
template <auto Id>
constexpr Check checkSDM = check<Id>(kShapeSDM<Id>);

// The staged operand: the source (plane 0), or the mask (plane 1) of the
// constant forms.
template <auto Id>
constexpr PlaneShape kStagedSD = withOverlaps(S::sd<Id>(), &overlappingRows<0>);
template <auto Id>
constexpr PlaneShape kStagedSDK = withOverlaps(S::sdk<Id>(byteParam("k")), &overlappingRows<0>);
template <auto Id>
constexpr PlaneShape kStagedSDM = withOverlaps(S::sdm<Id>(), &overlappingRows<0>);
template <auto Id>
constexpr PlaneShape kStagedCDM = withOverlaps(S::cdm<Id>(byteParam("c")), &overlappingRows<1>);
template <auto Id>
constexpr Check checkStagedSD = check<Id>(kStagedSD<Id>);
template <auto Id>
constexpr Check checkStagedSDK = check<Id>(kStagedSDK<Id>);
template <auto Id>
constexpr Check checkStagedSDM = check<Id>(kStagedSDM<Id>);
template <auto Id>
constexpr Check checkStagedCDM = check<Id>(kStagedCDM<Id>);

const Check kChecks[] = {
    // Vectorised plane operations.
    checkK<slot::ScaleByConstant8>,
    checkCDM<slot::MixConstantThroughMask8>,
    checkSDM<slot::MixSourceThroughMask8>,
    checkSDM<slot::CopyWhereMaskSet8>,
    checkCDM<slot::FillWhereMaskSet8>,
    checkSD<slot::MultiplySource8>,
    checkSD<slot::MaxSource8>,
    checkSD<slot::MinSource8>,
    check<slot::SubtractCoverage8>(kShapeCoverage),
    checkSDM<slot::DarkenTowardSourceThroughMask8>,
    checkCDM<slot::DarkenTowardConstantThroughMask8>,
    checkSDM<slot::LightenTowardSourceThroughMask8>,
    checkCDM<slot::LightenTowardConstantThroughMask8>,
    checkSDM<slot::MultiplySourceThroughMask8>,
    checkADB<slot::MultiplyInto8>,
    checkADB<slot::InverseMultiplyInto8>,
    check<slot::FillWhereMaskClear8>(kShapeFillClear),
    check<slot::OrderedCombineInto8>(kShapeOrdered),
    checkSDK<slot::MultiplyWithOpacity8>,
    // Overlay and screen routines, with rows that overlap the destination.
    checkStagedSDM<slot::SourceBasedOverlayThroughMask8>,
    checkStagedCDM<slot::ConstantBasedOverlayThroughMask8>,
    checkStagedSD<slot::SourceBasedOverlay8>,
    checkStagedSDK<slot::SourceBasedOverlayWithOpacity8>,
    checkStagedSDM<slot::OverlaySourceThroughMask8>,
    checkStagedCDM<slot::OverlayConstantThroughMask8>,
    checkStagedSD<slot::OverlaySource8>,
    checkStagedSDK<slot::OverlaySourceWithOpacity8>,
    checkStagedSDK<slot::ScreenSourceWithOpacity8>,
    checkStagedCDM<slot::ScreenConstantThroughMask8>,
    checkStagedSD<slot::ScreenSource8>,
};

}  // namespace

std::span<const Check> checksBlend8() { return kChecks; }

}  // namespace tarnell::verify
