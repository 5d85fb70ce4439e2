// Checks of the 16-bit blending routines, one per slot the module implements. The
// forwarded slots (191, 198, 216, 218) have none: they run the host's own code.
//
// Samples are drawn 0..32768 with the ends 0, 1, 16384, 32767 and 32768; masks and
// both planes of the coverage routine mostly 0 and 32768. Every plane may start at
// any byte address (odd ones included) and strides are passed in bytes, odd ones
// too: the routines step rows by the stride halved, in samples.
#include "verify/families.h"

namespace tarnell::verify {

namespace {

using u16 = uint16_t;

constexpr PlaneSpec plane(const char* name, Role role, Samples samples = Samples::Words15) {
  return {name, 2, role, samples};
}
// A 16-bit constant: the ends of the sample range, its middle, and values beyond
// full, which the contract accepts.
constexpr ParamSpec wordParam(const char* name) {
  return {name, 0, 65535, {0, 1, 16384, 32767, 32768, 32769, 65535, 255}, 8};
}
// A flag byte: zero half of the time, and non-zero values other than 1.
constexpr ParamSpec flagParam(const char* name) { return {name, 0, 1, {0, 2, 255, 0, 128, 0}, 6}; }

int32_t halvedStride(int, int32_t stride) { return stride - (stride & 1); }

constexpr PlaneShape makeShape(Invoke invoke, int alignPlane, int planeCount, const PlaneSpec (&planes)[3],
                               int paramCount, ParamSpec param = {}) {
  PlaneShape s{};
  for (int p = 0; p < planeCount; ++p) s.planes[p] = planes[p];
  s.planeCount = planeCount;
  for (int i = 0; i < paramCount; ++i) s.params[i] = param;
  s.paramCount = paramCount;
  s.invoke = invoke;
  s.alignPlane = alignPlane;
  s.negativeStrides = true;  // strides are signed: rows may go down in memory
  s.usedStride = &halvedStride;
  return s;
}

template <int Slot>
using Fn = SlotFn<code::blnd, Slot>;
template <int Slot>
Fn<Slot> fn(HostRoutine r) {
  return reinterpret_cast<Fn<Slot>>(r);
}
const u16* in(const PlaneCall& c, int p) { return static_cast<const u16*>(c.plane[p]); }
u16* out(const PlaneCall& c, int p) { return static_cast<u16*>(c.plane[p]); }
u16 param16(const PlaneCall& c) { return static_cast<u16>(c.param[0]); }
uint8_t flag(const PlaneCall& c, int i) { return static_cast<uint8_t>(c.param[i]); }

// An in-range constant for benchmarks.
constexpr int64_t kBenchWord[] = {20000};
constexpr int64_t kBenchScreen[] = {1, 1, 1};

// --- one plane and a 16-bit constant: (destination, rows, columns, stride, k)
uint64_t invokeK(HostRoutine r, const PlaneCall& c) {
  fn<193>(r)(out(c, 0), c.rows, c.columns, c.stride[0], param16(c));
  return 0;
}
constexpr PlaneShape kShapeK = [] {
  PlaneShape s = makeShape(&invokeK, 0, 1, {plane("destination", Role::InOut)}, 1, wordParam("k"));
  s.benchParams = kBenchWord;
  return s;
}();

// --- source and destination
uint64_t invokeSD(HostRoutine r, const PlaneCall& c) {
  fn<194>(r)(in(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
constexpr PlaneShape kShapeSD =
    makeShape(&invokeSD, 1, 2, {plane("source", Role::Input), plane("destination", Role::InOut)}, 0);

// --- source, destination, mask; and first operand, destination (not read), second
// operand: one argument order, (plane 0, plane 1, plane 2, rows, columns, three strides)
template <int Slot>
uint64_t invokeMiddleOut(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(in(c, 0), out(c, 1), in(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2]);
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeSDM = makeShape(
    &invokeMiddleOut<Slot>, 1, 3,
    {plane("source", Role::Input), plane("destination", Role::InOut), plane("mask", Role::Input, Samples::Mask15)},
    0);
template <int Slot>
constexpr PlaneShape kShapeADB = makeShape(
    &invokeMiddleOut<Slot>, 1, 3,
    {plane("a", Role::Input), plane("destination", Role::Output), plane("b", Role::Input)}, 0);

// --- a, b, then the destination (not read); the complement forms take three flag bytes last
uint64_t invokeOrdered(HostRoutine r, const PlaneCall& c) {
  fn<223>(r)(in(c, 0), in(c, 1), out(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2]);
  return 0;
}
uint64_t invokeComplement(HostRoutine r, const PlaneCall& c) {
  fn<195>(r)(in(c, 0), in(c, 1), out(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2], flag(c, 0),
             flag(c, 1), flag(c, 2));
  return 0;
}
constexpr PlaneSpec kABD[3] = {plane("a", Role::Input), plane("b", Role::Input), plane("destination", Role::Output)};
constexpr PlaneShape kShapeOrdered = makeShape(&invokeOrdered, 2, 3, kABD, 0);
constexpr PlaneShape kShapeComplement = [] {
  PlaneShape s = makeShape(&invokeComplement, 2, 3, kABD, 3, flagParam("complement"));
  s.params[0].name = "complementA";
  s.params[1].name = "complementB";
  s.params[2].name = "complementResult";
  s.benchParams = kBenchScreen;
  return s;
}();

// --- mask-first fill: (mask, destination, rows, columns, mask stride, destination stride, c)
uint64_t invokeFillClear(HostRoutine r, const PlaneCall& c) {
  fn<222>(r)(in(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1], param16(c));
  return 0;
}
constexpr PlaneShape kShapeFillClear = makeShape(
    &invokeFillClear, 1, 2, {plane("mask", Role::Input, Samples::Mask15), plane("destination", Role::InOut)}, 1,
    wordParam("c"));

// --- two planes, both rewritten; B aligns. Mask-like samples give the 0 and full
// cases of both planes their share.
uint64_t invokeCoverage(HostRoutine r, const PlaneCall& c) {
  fn<192>(r)(out(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
constexpr PlaneShape kShapeCoverage = makeShape(
    &invokeCoverage, 1, 2, {plane("a", Role::InOut, Samples::Mask15), plane("b", Role::InOut, Samples::Mask15)}, 0);

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
