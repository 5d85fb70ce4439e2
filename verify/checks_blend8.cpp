// Checks of the 8-bit blending routines, one per slot the module implements. The
// forwarded slots (53, 66, 72, 96, 97) have none: they run the host's own code.
#include "verify/families.h"

namespace tarnell::verify {

namespace {

using u8 = uint8_t;

constexpr PlaneSpec plane(const char* name, Role role, Samples samples = Samples::Bytes) {
  return {name, 1, role, samples};
}
// A byte constant, opacity or sample value: the ends and the halves first.
constexpr ParamSpec byteParam(const char* name) { return {name, 0, 255, {0, 127, 128, 255, 1, 254}, 6}; }

constexpr PlaneShape makeShape(Invoke invoke, int alignPlane, int planeCount, const PlaneSpec (&planes)[3],
                               int paramCount, ParamSpec param = {}) {
  PlaneShape s{};
  for (int p = 0; p < planeCount; ++p) s.planes[p] = planes[p];
  s.planeCount = planeCount;
  s.params[0] = param;
  s.paramCount = paramCount;
  s.invoke = invoke;
  s.alignPlane = alignPlane;
  s.negativeStrides = true;  // strides are signed: rows may go down in memory
  return s;
}

template <int Slot>
using Fn = SlotFn<code::blnd, Slot>;
template <int Slot>
Fn<Slot> fn(HostRoutine r) {
  return reinterpret_cast<Fn<Slot>>(r);
}
const u8* in(const PlaneCall& c, int p) { return static_cast<const u8*>(c.plane[p]); }
u8* out(const PlaneCall& c, int p) { return static_cast<u8*>(c.plane[p]); }
u8 param8(const PlaneCall& c) { return static_cast<u8>(c.param[0]); }

// --- one plane and a 16-bit constant: (destination, rows, columns, stride, k)
template <int Slot>
uint64_t invokeK(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(out(c, 0), c.rows, c.columns, c.stride[0], static_cast<uint16_t>(c.param[0]));
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeK = [] {
  PlaneShape s = makeShape(&invokeK<Slot>, 0, 1, {plane("destination", Role::InOut)}, 1);
  // Only the low byte of k is a sample value; the high byte must not matter.
  s.params[0] = {"k", 0, 255, {0, 255, 127, 128, 1, 254, 256, 0xFF80}, 8};
  return s;
}();

// --- constant, destination, mask
template <int Slot>
uint64_t invokeCDM(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(param8(c), out(c, 0), in(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeCDM = makeShape(
    &invokeCDM<Slot>, 0, 2, {plane("destination", Role::InOut), plane("mask", Role::Input, Samples::Mask)}, 1,
    byteParam("c"));

// --- source and destination
template <int Slot>
uint64_t invokeSD(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(in(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeSD =
    makeShape(&invokeSD<Slot>, 1, 2, {plane("source", Role::Input), plane("destination", Role::InOut)}, 0);

// --- source and destination, opacity byte last
template <int Slot>
uint64_t invokeSDK(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(in(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1], param8(c));
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeSDK = makeShape(
    &invokeSDK<Slot>, 1, 2, {plane("source", Role::Input), plane("destination", Role::InOut)}, 1, byteParam("k"));

// --- source, destination, mask
template <int Slot>
uint64_t invokeSDM(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(in(c, 0), out(c, 1), in(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2]);
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeSDM = makeShape(
    &invokeSDM<Slot>, 1, 3,
    {plane("source", Role::Input), plane("destination", Role::InOut), plane("mask", Role::Input, Samples::Mask)}, 0);

// --- first operand, destination (not read), second operand
template <int Slot>
uint64_t invokeADB(HostRoutine r, const PlaneCall& c) {
  fn<Slot>(r)(in(c, 0), out(c, 1), in(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2]);
  return 0;
}
template <int Slot>
constexpr PlaneShape kShapeADB = makeShape(
    &invokeADB<Slot>, 1, 3, {plane("a", Role::Input), plane("destination", Role::Output), plane("b", Role::Input)}, 0);

// --- mask-first fill: (mask, destination, rows, columns, mask stride, destination stride, c)
uint64_t invokeFillClear(HostRoutine r, const PlaneCall& c) {
  fn<106>(r)(in(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1], param8(c));
  return 0;
}
constexpr PlaneShape kShapeFillClear = makeShape(
    &invokeFillClear, 1, 2, {plane("mask", Role::Input, Samples::Mask), plane("destination", Role::InOut)}, 1,
    byteParam("c"));

// --- two planes, both rewritten; B aligns. Mask-like samples give the 0 and 255
// cases of both planes their share.
uint64_t invokeCoverage(HostRoutine r, const PlaneCall& c) {
  fn<54>(r)(out(c, 0), out(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
constexpr PlaneShape kShapeCoverage = makeShape(
    &invokeCoverage, 1, 2, {plane("a", Role::InOut, Samples::Mask), plane("b", Role::InOut, Samples::Mask)}, 0);

// --- a, b, then the destination (not read)
uint64_t invokeOrdered(HostRoutine r, const PlaneCall& c) {
  fn<115>(r)(in(c, 0), in(c, 1), out(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2]);
  return 0;
}
constexpr PlaneShape kShapeOrdered = makeShape(
    &invokeOrdered, 2, 3, {plane("a", Role::Input), plane("b", Role::Input), plane("destination", Role::Output)}, 0);

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
