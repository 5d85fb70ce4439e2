// The module's 8-bit blending routines: the SSE2 plane operations
// (blend8_sse2.cpp) and the table-driven overlay and screen routines
// (blend8_tables.cpp). Each has exactly the signature of its 'blnd' slot.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

namespace tarnell::blend8 {

// --- SSE2 plane operations: 16 samples a vector step, scalar head and tail ---
SlotTypeOf<slot::ScaleByConstant8> ScaleByConstant8;
SlotTypeOf<slot::MixSourceThroughMask8> MixSourceThroughMask8;
SlotTypeOf<slot::MixConstantThroughMask8> MixConstantThroughMask8;
SlotTypeOf<slot::DarkenTowardSourceThroughMask8> DarkenTowardSourceThroughMask8;
SlotTypeOf<slot::DarkenTowardConstantThroughMask8> DarkenTowardConstantThroughMask8;
SlotTypeOf<slot::LightenTowardSourceThroughMask8> LightenTowardSourceThroughMask8;
SlotTypeOf<slot::LightenTowardConstantThroughMask8> LightenTowardConstantThroughMask8;
SlotTypeOf<slot::MultiplySourceThroughMask8> MultiplySourceThroughMask8;
SlotTypeOf<slot::MultiplySource8> MultiplySource8;
SlotTypeOf<slot::MaxSource8> MaxSource8;
SlotTypeOf<slot::MinSource8> MinSource8;
SlotTypeOf<slot::CopyWhereMaskSet8> CopyWhereMaskSet8;
SlotTypeOf<slot::FillWhereMaskSet8> FillWhereMaskSet8;
SlotTypeOf<slot::SubtractCoverage8> SubtractCoverage8;
SlotTypeOf<slot::MultiplyWithOpacity8> MultiplyWithOpacity8;
SlotTypeOf<slot::MultiplyInto8> MultiplyInto8;
SlotTypeOf<slot::InverseMultiplyInto8> InverseMultiplyInto8;
SlotTypeOf<slot::FillWhereMaskClear8> FillWhereMaskClear8;
SlotTypeOf<slot::OrderedCombineInto8> OrderedCombineInto8;

// --- Table-driven overlay and screen routines (scalar) ---
SlotTypeOf<slot::ScreenConstantThroughMask8> ScreenConstantThroughMask8;
SlotTypeOf<slot::ScreenSource8> ScreenSource8;
SlotTypeOf<slot::OverlaySourceThroughMask8> OverlaySourceThroughMask8;
SlotTypeOf<slot::OverlayConstantThroughMask8> OverlayConstantThroughMask8;
SlotTypeOf<slot::OverlaySource8> OverlaySource8;
SlotTypeOf<slot::SourceBasedOverlayThroughMask8> SourceBasedOverlayThroughMask8;
SlotTypeOf<slot::ConstantBasedOverlayThroughMask8> ConstantBasedOverlayThroughMask8;
SlotTypeOf<slot::SourceBasedOverlay8> SourceBasedOverlay8;
SlotTypeOf<slot::ScreenSourceWithOpacity8> ScreenSourceWithOpacity8;
SlotTypeOf<slot::OverlaySourceWithOpacity8> OverlaySourceWithOpacity8;
SlotTypeOf<slot::SourceBasedOverlayWithOpacity8> SourceBasedOverlayWithOpacity8;

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
