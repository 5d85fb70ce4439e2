// Checks of the 8-bit blending routines, one per slot the module implements. The
// forwarded slots (53, 66, 72, 96, 97) have none: they run the host's own code.
#include "verify/blend_shapes.h"
#include "verify/families.h"

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
    // Table-driven overlay and screen routines.
    checkSDM<slot::SourceBasedOverlayThroughMask8>,
    checkCDM<slot::ConstantBasedOverlayThroughMask8>,
    checkSD<slot::SourceBasedOverlay8>,
    checkSDK<slot::SourceBasedOverlayWithOpacity8>,
    checkSDM<slot::OverlaySourceThroughMask8>,
    checkCDM<slot::OverlayConstantThroughMask8>,
    checkSD<slot::OverlaySource8>,
    checkSDK<slot::OverlaySourceWithOpacity8>,
    checkSDK<slot::ScreenSourceWithOpacity8>,
    checkCDM<slot::ScreenConstantThroughMask8>,
    checkSD<slot::ScreenSource8>,
};

}  // namespace

std::span<const Check> checksBlend8() { return kChecks; }

}  // namespace tarnell::verify
