// The module's float composites driven by a parameter record (blendf_sse2.cpp).
// Each has exactly the signature of its 'blnd' slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::blendf {

SlotTypeOf<slot::FloatCompositeRecord275> FloatCompositeRecord275;  // nothing-to-do test, then the host's routine
SlotTypeOf<slot::LightenTowardSourceFloat> LightenTowardSourceFloat;
SlotTypeOf<slot::DarkenTowardSourceFloat> DarkenTowardSourceFloat;
SlotTypeOf<slot::AddSourceFloat> AddSourceFloat;
SlotTypeOf<slot::MinSourceFloat> MinSourceFloat;
SlotTypeOf<slot::OverlaySourceFloat> OverlaySourceFloat;

}  // namespace tarnell::blendf
