// The module's selection routines. Each has exactly the signature of its 'sele'
// slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::selection {

// Slot 26: the baseline form, two columns a step, for processors without SSE2,
// and the vector form.
SlotSignature<code::sele, 26>::Fn spreadMarkVerticalScalar;
SlotSignature<code::sele, 26>::Fn spreadMarkVertical;
// Slot 35: 16 adjacent lanes a vector step when the lane step is 1.
SlotSignature<code::sele, 35>::Fn propagateDecaying;
// Slot 33: regions narrower than 16 bytes go to the host's routine.
SlotSignature<code::sele, 33>::Fn selectionSlot33;

}  // namespace tarnell::selection
