// Checks of the 16-bit blending routines, one per slot the module implements. The
// forwarded slots (191, 198, 216, 218) have none: they run the host's own code.
//
// Samples are drawn 0..32768 with the ends 0, 1, 16384, 32767 and 32768; masks and
// both planes of the coverage routine mostly 0 and 32768. Every plane may start at
// any byte address (odd ones included) and strides are passed in bytes, odd ones
// too: the routines step rows by the stride halved, in samples.
#include "verify/blend_shapes.h"
#include "verify/families.h"

namespace tarnell::verify {

namespace {

// Rows step by the stride halved, in samples: an odd byte stride by the even one below.
int32_t halvedStride(int, int32_t stride) { return stride - (stride & 1); }
constexpr blend::SampleKind kWords = {2, Samples::Words15, Samples::Mask15, &halvedStride};
using S = blend::Shapes<kWords>;

// A 16-bit constant: the ends of the sample range, its middle, and values beyond
// full, which the contract accepts.
constexpr ParamSpec wordParam(const char* name) {
  return {name, 0, 65535, {0, 1, 16384, 32767, 32768, 32769, 65535, 255}, 8};
}

// In-range constants for benchmarks.
constexpr int64_t kBenchWord[] = {20000};
constexpr int64_t kBenchScreen[] = {1, 1, 1};

constexpr PlaneShape kShapeK = [] {
  PlaneShape s = S::k<slot::ScaleByConstant16>(wordParam("k"));
  s.benchParams = kBenchWord;
  return s;
}();
constexpr PlaneShape kShapeSD = S::sd<slot::MultiplySource16>();
template <auto Id>
constexpr PlaneShape kShapeSDM = S::sdm<Id>();
template <auto Id>
constexpr PlaneShape kShapeADB = S::adb<Id>();
constexpr PlaneShape kShapeOrdered = S::ordered<slot::OrderedCombineInto16>();
// The ordered form with three flag bytes last, each zero half of the time and
// non-zero values other than 1 the rest.
constexpr PlaneShape kShapeComplement = [] {
  PlaneShape s = S::make(&blend::invokeThreeFlags<slot::ComplementMultiplyInto16>, 2,
                         {S::data("a", Role::Input), S::data("b", Role::Input), S::data("destination", Role::Output)}, 3,
                         {"complementA", 0, 1, {0, 2, 255, 0, 128, 0}, 6});
  s.params[1].name = "complementB";
  s.params[2].name = "complementResult";
  s.benchParams = kBenchScreen;
  return s;
}();
constexpr PlaneShape kShapeFillClear = S::fillClear<slot::FillWhereMaskClear16>(wordParam("c"));
constexpr PlaneShape kShapeCoverage = S::coverage<slot::SubtractCoverage16>();

template <auto Id>
constexpr Check check(const PlaneShape& shape) {
  return planeCheck(Id, shape);
}
template <auto Id>
constexpr Check checkADB = check<Id>(kShapeADB<Id>);
template <auto Id>
constexpr Check checkSDM = check<Id>(kShapeSDM<Id>);

const Check kChecks[] = {
    checkSDM<slot::MultiplySourceThroughMask16>,  check<slot::ScaleByConstant16>(kShapeK),       checkSDM<slot::MixSourceThroughMask16>,
    check<slot::MultiplySource16>(kShapeSD),        check<slot::SubtractCoverage16>(kShapeCoverage), checkADB<slot::MultiplyInto16>,
    checkADB<slot::InverseMultiplyInto16>,  check<slot::ComplementMultiplyInto16>(kShapeComplement), check<slot::FillWhereMaskClear16>(kShapeFillClear),
    check<slot::OrderedCombineInto16>(kShapeOrdered),
};

}  // namespace

std::span<const Check> checksBlend16() { return kChecks; }

}  // namespace tarnell::verify
