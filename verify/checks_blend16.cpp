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
  PlaneShape s = S::k<193>(wordParam("k"));
  s.benchParams = kBenchWord;
  return s;
}();
constexpr PlaneShape kShapeSD = S::sd<194>();
template <int Slot>
constexpr PlaneShape kShapeSDM = S::sdm<Slot>();
template <int Slot>
constexpr PlaneShape kShapeADB = S::adb<Slot>();
constexpr PlaneShape kShapeOrdered = S::ordered<223>();
// The ordered form with three flag bytes last, each zero half of the time and
// non-zero values other than 1 the rest.
constexpr PlaneShape kShapeComplement = [] {
  PlaneShape s = S::make(&blend::invokeThreeFlags<195>, 2,
                         {S::data("a", Role::Input), S::data("b", Role::Input), S::data("destination", Role::Output)}, 3,
                         {"complementA", 0, 1, {0, 2, 255, 0, 128, 0}, 6});
  s.params[1].name = "complementB";
  s.params[2].name = "complementResult";
  s.benchParams = kBenchScreen;
  return s;
}();
constexpr PlaneShape kShapeFillClear = S::fillClear<222>(wordParam("c"));
constexpr PlaneShape kShapeCoverage = S::coverage<192>();

template <int Slot>
constexpr Check check(const PlaneShape& shape) {
  return planeCheck<code::blnd, Slot>(shape);
}

const Check kChecks[] = {
    check<259>(kShapeSDM<259>),  check<193>(kShapeK),       check<235>(kShapeSDM<235>),
    check<194>(kShapeSD),        check<192>(kShapeCoverage), check<219>(kShapeADB<219>),
    check<221>(kShapeADB<221>),  check<195>(kShapeComplement), check<222>(kShapeFillClear),
    check<223>(kShapeOrdered),
};

}  // namespace

std::span<const Check> blend16Checks() { return kChecks; }

}  // namespace tarnell::verify
