// The module's 16-bit blending routines (blend16_sse2.cpp). Each has exactly the
// signature of its 'blnd' slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::blend16 {

SlotSignature<code::blnd, 192>::Fn SubtractCoverage16;
SlotSignature<code::blnd, 193>::Fn ScaleByConstant16;
SlotSignature<code::blnd, 194>::Fn MultiplySource16;
SlotSignature<code::blnd, 195>::Fn ComplementMultiplyInto16;
SlotSignature<code::blnd, 219>::Fn MultiplyInto16;
SlotSignature<code::blnd, 221>::Fn InverseMultiplyInto16;
SlotSignature<code::blnd, 222>::Fn FillWhereMaskClear16;
SlotSignature<code::blnd, 223>::Fn OrderedCombineInto16;
SlotSignature<code::blnd, 235>::Fn MixSourceThroughMask16;
SlotSignature<code::blnd, 259>::Fn MultiplySourceThroughMask16;

}  // namespace tarnell::blend16
