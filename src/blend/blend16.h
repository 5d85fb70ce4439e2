// The module's 16-bit blending routines (blend16_sse2.cpp). Each has exactly the
// signature of its 'blnd' slot.
#pragma once

#include <tarnell/host_interface.h>

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

}  // namespace tarnell::blend16
