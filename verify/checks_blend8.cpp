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
template <int Slot>
constexpr PlaneShape kShapeK = S::k<Slot>({"k", 0, 255, {0, 255, 127, 128, 1, 254, 256, 0xFF80}, 8});
template <int Slot>
constexpr PlaneShape kShapeCDM = S::cdm<Slot>(byteParam("c"));
template <int Slot>
constexpr PlaneShape kShapeSD = S::sd<Slot>();
template <int Slot>
constexpr PlaneShape kShapeSDK = S::sdk<Slot>(byteParam("k"));
template <int Slot>
constexpr PlaneShape kShapeSDM = S::sdm<Slot>();
template <int Slot>
constexpr PlaneShape kShapeADB = S::adb<Slot>();
constexpr PlaneShape kShapeFillClear = S::fillClear<106>(byteParam("c"));
constexpr PlaneShape kShapeCoverage = S::coverage<54>();
constexpr PlaneShape kShapeOrdered = S::ordered<115>();

template <int Slot>
constexpr Check check(const PlaneShape& shape) {
  return planeCheck<code::blnd, Slot>(shape);
}

const Check kChecks[] = {
    // Vectorised plane operations.
    check<1>(kShapeK<1>),
    check<3>(kShapeCDM<3>),
    check<2>(kShapeSDM<2>),
    check<30>(kShapeSDM<30>),
    check<31>(kShapeCDM<31>),
    check<24>(kShapeSD<24>),
    check<28>(kShapeSD<28>),
    check<29>(kShapeSD<29>),
    check<54>(kShapeCoverage),
    check<7>(kShapeSDM<7>),
    check<8>(kShapeCDM<8>),
    check<10>(kShapeSDM<10>),
    check<11>(kShapeCDM<11>),
    check<22>(kShapeSDM<22>),
    check<74>(kShapeADB<74>),
    check<75>(kShapeADB<75>),
    check<106>(kShapeFillClear),
    check<115>(kShapeOrdered),
    check<56>(kShapeSDK<56>),
    // Table-driven overlay and screen routines.
    check<50>(kShapeSDM<50>),
    check<51>(kShapeCDM<51>),
    check<52>(kShapeSD<52>),
    check<59>(kShapeSDK<59>),
    check<47>(kShapeSDM<47>),
    check<48>(kShapeCDM<48>),
    check<49>(kShapeSD<49>),
    check<58>(kShapeSDK<58>),
    check<57>(kShapeSDK<57>),
    check<26>(kShapeCDM<26>),
    check<27>(kShapeSD<27>),
};

}  // namespace

std::span<const Check> blend8Checks() { return kChecks; }

}  // namespace tarnell::verify
