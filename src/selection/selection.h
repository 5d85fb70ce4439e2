// The module's selection routines. Each has exactly the signature of its 'sele'
// slot. The baseline bodies are named here; the kernel table picks each slot's
// body for the processor (the AVX2 bodies are reached only through it).
//
// Types and declarations only, so that files built for a wider instruction set
// can include it.
#pragma once

#include <tarnell/host_interface.h>

#include "host/kernel_table.h"

namespace tarnell::selection {

// Slot 26: the baseline form, two columns a step, for processors without SSE2
// (the installer writes it itself), and the vector form.
SlotTypeOf<slot::spreadMarkVertical> spreadMarkVerticalScalar;  // spread_mark.cpp
SlotTypeOf<slot::spreadMarkVertical> spreadMarkVertical;        // spread_mark_sse2.cpp
// Slot 35: 16 adjacent lanes a vector step when the lane step is 1.
SlotTypeOf<slot::propagateDecaying> propagateDecaying;  // propagate_sse2.cpp
// Slot 33: regions narrower than 16 bytes go to the host's routine.
SlotTypeOf<slot::selectionSlot33> selectionSlot33;  // classify_sse2.cpp

// The slots with bodies at several levels.
#define TARNELL_SELECTION_KERNELS(X) \
  X(propagateDecaying)               \
  X(selectionSlot33)                 \
  X(spreadMarkVertical)
TARNELL_KERNEL_TABLE(SelectionTable, TARNELL_SELECTION_KERNELS)

extern constinit const SelectionTable g_propagateSse2, g_propagateAvx2;    // propagate_{sse2,avx2}.cpp
extern constinit const SelectionTable g_classifySse2, g_classifyAvx2;      // classify_{sse2,avx2}.cpp
extern constinit const SelectionTable g_spreadMarkSse2, g_spreadMarkAvx2;  // spread_mark_{sse2,avx2}.cpp

}  // namespace tarnell::selection
