// Slot signatures of the selection routines ('sele').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

// Marks (adds 128 to) every unmarked byte whose upper or lower neighbour is marked.
TARNELL_SLOT(sele, 26, spreadMarkVertical, void, uint8_t* mask, int32_t rows, int32_t columns, int32_t stride)
// Carries (strength, value) along each lane; both steps are byte distances and
// apply to both planes.
TARNELL_SLOT(sele, 35, propagateDecaying, void, uint8_t* strength, uint8_t* value, int32_t laneCount, int32_t length,
             int32_t laneStep, int32_t alongStep)
// Classifies a region by its marked (128 and up) and unmarked bytes: 0 every byte
// 0, 1 every byte 255, 2 marked and unmarked bytes, 3 every byte marked but not
// all 255, 4 no byte marked but not every byte 0.
TARNELL_SLOT(sele, 33, selectionSlot33, int32_t, const uint8_t* plane, int32_t rows, int32_t count, int32_t step)

// Slot 73: the 16-bit propagation; slot 75: a 16-bit region routine. Both are the host's alone.
TARNELL_FORWARDED_SLOT(sele, 73, propagateDecaying16)
TARNELL_FORWARDED_SLOT(sele, 75, selectionSlot75)

}  // namespace tarnell
