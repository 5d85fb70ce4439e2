// The module's float composites driven by a parameter record (blendf_sse2.cpp).
// Each has exactly the signature of its 'blnd' slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::blendf {

SlotSignature<code::blnd, 275>::Fn FloatCompositeRecord275;  // nothing-to-do test, then the host's routine
SlotSignature<code::blnd, 276>::Fn LightenTowardSourceFloat;
SlotSignature<code::blnd, 277>::Fn DarkenTowardSourceFloat;
SlotSignature<code::blnd, 278>::Fn AddSourceFloat;
SlotSignature<code::blnd, 289>::Fn MinSourceFloat;
SlotSignature<code::blnd, 320>::Fn OverlaySourceFloat;

}  // namespace tarnell::blendf
