// The module's selection routines. Each has exactly the signature of its 'sele'
// slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::selection {

// Slot 26: the baseline form, two columns a step, for processors without SSE2,
// and the vector form.
SlotTypeOf<slot::spreadMarkVertical> spreadMarkVerticalScalar;
SlotTypeOf<slot::spreadMarkVertical> spreadMarkVertical;
// Slot 35: 16 adjacent lanes a vector step when the lane step is 1.
SlotTypeOf<slot::propagateDecaying> propagateDecaying;
// Slot 33: regions narrower than 16 bytes go to the host's routine.
SlotTypeOf<slot::selectionSlot33> selectionSlot33;

}  // namespace tarnell::selection
