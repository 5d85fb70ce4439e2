// The argument patterns of the blending suite's plane routines, shared by the 8-bit
// and the 16-bit checks. An invoker passes the call's planes, counts, strides and
// constants in the slot's order and lets the slot's own signature give them their
// types, so one invoker serves both sample sizes; a shape adds the planes' names,
// roles and sample kinds.
#pragma once

#include <initializer_list>
#include <type_traits>

#include "verify/check.h"

namespace tarnell::verify::blend {

// A plane or a constant of the call, converted to whatever type the slot's
// parameter has (const or not, 8 or 16 bits).
struct PlaneArg {
  void* p;
  template <class T>
  operator T*() const {
    return static_cast<T*>(p);
  }
};
struct ParamArg {
  int64_t v;
  template <class T>
    requires std::is_integral_v<T>
  operator T() const {
    return static_cast<T>(v);
  }
};

inline PlaneArg plane(const PlaneCall& c, int p) { return {c.plane[p]}; }
inline ParamArg param(const PlaneCall& c, int i) { return {c.param[i]}; }

// (destination, rows, columns, stride, k)
template <auto Id>
uint64_t invokeK(HostRoutine r, const PlaneCall& c) {
  as<Id>(r)(plane(c, 0), c.rows, c.columns, c.stride[0], param(c, 0));
  return 0;
}
// (c, destination, mask, rows, columns, destination stride, mask stride)
template <auto Id>
uint64_t invokeCDM(HostRoutine r, const PlaneCall& c) {
  as<Id>(r)(param(c, 0), plane(c, 0), plane(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
// (plane 0, plane 1, rows, columns, two strides)
template <auto Id>
uint64_t invokeTwo(HostRoutine r, const PlaneCall& c) {
  as<Id>(r)(plane(c, 0), plane(c, 1), c.rows, c.columns, c.stride[0], c.stride[1]);
  return 0;
}
// The same with a constant last.
template <auto Id>
uint64_t invokeTwoK(HostRoutine r, const PlaneCall& c) {
  as<Id>(r)(plane(c, 0), plane(c, 1), c.rows, c.columns, c.stride[0], c.stride[1], param(c, 0));
  return 0;
}
// (plane 0, plane 1, plane 2, rows, columns, three strides)
template <auto Id>
uint64_t invokeThree(HostRoutine r, const PlaneCall& c) {
  as<Id>(r)(plane(c, 0), plane(c, 1), plane(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2]);
  return 0;
}
// The same with three flag bytes last.
template <auto Id>
uint64_t invokeThreeFlags(HostRoutine r, const PlaneCall& c) {
  as<Id>(r)(plane(c, 0), plane(c, 1), plane(c, 2), c.rows, c.columns, c.stride[0], c.stride[1], c.stride[2],
              param(c, 0), param(c, 1), param(c, 2));
  return 0;
}

// What differs between the sample sizes: bytes per sample, how data and masks are
// drawn, and the stride a plane's rows really step by (null: as passed).
struct SampleKind {
  uint8_t bytes;
  Samples data;
  Samples mask;
  int32_t (*usedStride)(int plane, int32_t passedStride);
};

template <const SampleKind& K>
struct Shapes {
  static constexpr PlaneSpec data(const char* name, Role role) { return {name, K.bytes, role, K.data}; }
  static constexpr PlaneSpec mask(const char* name, Role role = Role::Input) { return {name, K.bytes, role, K.mask}; }

  // Every constant of a shape is drawn by `param`. Strides are signed: rows may go
  // down in memory.
  static constexpr PlaneShape make(Invoke invoke, int alignPlane, std::initializer_list<PlaneSpec> planes,
                                   int paramCount = 0, ParamSpec param = {}) {
    PlaneShape s{};
    for (const PlaneSpec& p : planes) s.planes[s.planeCount++] = p;
    for (int i = 0; i < paramCount; ++i) s.params[i] = param;
    s.paramCount = paramCount;
    s.invoke = invoke;
    s.alignPlane = alignPlane;
    s.negativeStrides = true;
    s.usedStride = K.usedStride;
    return s;
  }

  // One plane and a constant: (destination, rows, columns, stride, k).
  template <auto Id>
  static constexpr PlaneShape k(ParamSpec k) {
    return make(&invokeK<Id>, 0, {data("destination", Role::InOut)}, 1, k);
  }
  // Constant, destination, mask.
  template <auto Id>
  static constexpr PlaneShape cdm(ParamSpec c) {
    return make(&invokeCDM<Id>, 0, {data("destination", Role::InOut), mask("mask")}, 1, c);
  }
  // Source and destination, the destination aligned.
  template <auto Id>
  static constexpr PlaneShape sd() {
    return make(&invokeTwo<Id>, 1, {data("source", Role::Input), data("destination", Role::InOut)});
  }
  // The same with an opacity last.
  template <auto Id>
  static constexpr PlaneShape sdk(ParamSpec k) {
    return make(&invokeTwoK<Id>, 1, {data("source", Role::Input), data("destination", Role::InOut)}, 1, k);
  }
  // Source, destination, mask.
  template <auto Id>
  static constexpr PlaneShape sdm() {
    return make(&invokeThree<Id>, 1,
                {data("source", Role::Input), data("destination", Role::InOut), mask("mask")});
  }
  // First operand, destination (not read), second operand.
  template <auto Id>
  static constexpr PlaneShape adb() {
    return make(&invokeThree<Id>, 1,
                {data("a", Role::Input), data("destination", Role::Output), data("b", Role::Input)});
  }
  // a, b, then the destination (not read), which aligns.
  template <auto Id>
  static constexpr PlaneShape ordered() {
    return make(&invokeThree<Id>, 2,
                {data("a", Role::Input), data("b", Role::Input), data("destination", Role::Output)});
  }
  // Mask first, then the destination, a constant last.
  template <auto Id>
  static constexpr PlaneShape fillClear(ParamSpec c) {
    return make(&invokeTwoK<Id>, 1, {mask("mask"), data("destination", Role::InOut)}, 1, c);
  }
  // Two planes, both rewritten; B aligns. Mask-like samples give the empty and full
  // cases of both planes their share.
  template <auto Id>
  static constexpr PlaneShape coverage() {
    return make(&invokeTwo<Id>, 1, {mask("a", Role::InOut), mask("b", Role::InOut)});
  }
};

}  // namespace tarnell::verify::blend
