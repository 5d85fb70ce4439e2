// The module's 8-bit blending routines: the SSE2 plane operations
// (blend8_sse2.cpp) and the table-driven overlay and screen routines
// (blend8_tables.cpp). Each has exactly the signature of its 'blnd' slot.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

namespace tarnell::blend8 {

// --- SSE2 plane operations: 16 samples a vector step, scalar head and tail ---
SlotSignature<code::blnd, 1>::Fn ScaleByConstant8;
SlotSignature<code::blnd, 2>::Fn MixSourceThroughMask8;
SlotSignature<code::blnd, 3>::Fn MixConstantThroughMask8;
SlotSignature<code::blnd, 7>::Fn DarkenTowardSourceThroughMask8;
SlotSignature<code::blnd, 8>::Fn DarkenTowardConstantThroughMask8;
SlotSignature<code::blnd, 10>::Fn LightenTowardSourceThroughMask8;
SlotSignature<code::blnd, 11>::Fn LightenTowardConstantThroughMask8;
SlotSignature<code::blnd, 22>::Fn MultiplySourceThroughMask8;
SlotSignature<code::blnd, 24>::Fn MultiplySource8;
SlotSignature<code::blnd, 28>::Fn MaxSource8;
SlotSignature<code::blnd, 29>::Fn MinSource8;
SlotSignature<code::blnd, 30>::Fn CopyWhereMaskSet8;
SlotSignature<code::blnd, 31>::Fn FillWhereMaskSet8;
SlotSignature<code::blnd, 54>::Fn SubtractCoverage8;
SlotSignature<code::blnd, 56>::Fn MultiplyWithOpacity8;
SlotSignature<code::blnd, 74>::Fn MultiplyInto8;
SlotSignature<code::blnd, 75>::Fn InverseMultiplyInto8;
SlotSignature<code::blnd, 106>::Fn FillWhereMaskClear8;
SlotSignature<code::blnd, 115>::Fn OrderedCombineInto8;

// --- Table-driven overlay and screen routines (scalar) ---
SlotSignature<code::blnd, 26>::Fn ScreenConstantThroughMask8;
SlotSignature<code::blnd, 27>::Fn ScreenSource8;
SlotSignature<code::blnd, 47>::Fn OverlaySourceThroughMask8;
SlotSignature<code::blnd, 48>::Fn OverlayConstantThroughMask8;
SlotSignature<code::blnd, 49>::Fn OverlaySource8;
SlotSignature<code::blnd, 50>::Fn SourceBasedOverlayThroughMask8;
SlotSignature<code::blnd, 51>::Fn ConstantBasedOverlayThroughMask8;
SlotSignature<code::blnd, 52>::Fn SourceBasedOverlay8;
SlotSignature<code::blnd, 57>::Fn ScreenSourceWithOpacity8;
SlotSignature<code::blnd, 58>::Fn OverlaySourceWithOpacity8;
SlotSignature<code::blnd, 59>::Fn SourceBasedOverlayWithOpacity8;

// The forwarding routines to the host's own blending routines: one per slot that
// a module routine may hand a case back to. Nothing installs them; they are the
// one way to reach the host's implementation of those slots.
struct Forwarder {
  int slot;
  HostRoutine routine;
};
struct ForwarderList {
  const Forwarder* entries;
  int count;
};
ForwarderList blendForwarders();

}  // namespace tarnell::blend8
