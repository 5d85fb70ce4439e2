// The module's 16-bit blending routines (blend16_sse2.cpp). Each has exactly the
// signature of its 'blnd' slot. Types and declarations only: the AVX2 file
// includes it too.
#pragma once

#include <tarnell/host_interface.h>

#include "host/kernel_table.h"

namespace tarnell::blend16 {

SlotTypeOf<slot::SubtractCoverage16> SubtractCoverage16;
SlotTypeOf<slot::ScaleByConstant16> ScaleByConstant16;
SlotTypeOf<slot::MultiplySource16> MultiplySource16;
SlotTypeOf<slot::ComplementMultiplyInto16> ComplementMultiplyInto16;
SlotTypeOf<slot::MultiplyInto16> MultiplyInto16;
SlotTypeOf<slot::InverseMultiplyInto16> InverseMultiplyInto16;
SlotTypeOf<slot::FillWhereMaskClear16> FillWhereMaskClear16;
SlotTypeOf<slot::OrderedCombineInto16> OrderedCombineInto16;
SlotTypeOf<slot::MixSourceThroughMask16> MixSourceThroughMask16;
SlotTypeOf<slot::MultiplySourceThroughMask16> MultiplySourceThroughMask16;

// Every member has an SSE2 body (the routines above) and an AVX2 one
// (blend16_avx2.cpp); the kernel table picks one per processor.
#define TARNELL_BLEND16_KERNELS(X) \
  X(MultiplySourceThroughMask16)   \
  X(ScaleByConstant16)             \
  X(MixSourceThroughMask16)        \
  X(MultiplySource16)              \
  X(SubtractCoverage16)            \
  X(MultiplyInto16)                \
  X(InverseMultiplyInto16)         \
  X(ComplementMultiplyInto16)      \
  X(FillWhereMaskClear16)          \
  X(OrderedCombineInto16)
TARNELL_KERNEL_TABLE(Blend16Table, TARNELL_BLEND16_KERNELS)

extern constinit const Blend16Table g_blend16Sse2;  // blend16_sse2.cpp
extern constinit const Blend16Table g_blend16Avx2;  // blend16_avx2.cpp

}  // namespace tarnell::blend16
