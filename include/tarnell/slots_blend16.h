// Slot signatures and shared record types of the 16-bit blend plane operations ('blnd').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
//
// Samples are unsigned 16-bit, 0..32768 (32768 is full). Strides are passed in bytes
// and used halved, in samples (an odd stride steps by the even stride below it).
#pragma once

namespace tarnell {

// Shapes: K = one plane and a constant; SD = source and destination; SDM =
// source, destination, mask; ADB = first operand, destination, second operand;
// ABD = a, b, then the destination.
#define TARNELL_BLEND16_SDM(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const uint16_t* source, uint16_t* destination, const uint16_t* mask, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride)
#define TARNELL_BLEND16_ADB(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const uint16_t* a, uint16_t* destination, const uint16_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t destinationStride, int32_t bStride)

TARNELL_SLOT(blnd, 192, SubtractCoverage16, void, uint16_t* a, uint16_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride)
TARNELL_SLOT(blnd, 193, ScaleByConstant16, void, uint16_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k)
TARNELL_SLOT(blnd, 194, MultiplySource16, void, const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride)
TARNELL_SLOT(blnd, 195, ComplementMultiplyInto16, void, const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride, int32_t destinationStride, uint8_t complementA, uint8_t complementB, uint8_t complementResult)
TARNELL_BLEND16_ADB(219, MultiplyInto16)
TARNELL_BLEND16_ADB(221, InverseMultiplyInto16)
TARNELL_SLOT(blnd, 222, FillWhereMaskClear16, void, const uint16_t* mask, uint16_t* destination, int32_t rows, int32_t columns, int32_t maskStride, int32_t destinationStride, uint16_t c)
TARNELL_SLOT(blnd, 223, OrderedCombineInto16, void, const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride, int32_t destinationStride)
TARNELL_BLEND16_SDM(235, MixSourceThroughMask16)
TARNELL_BLEND16_SDM(259, MultiplySourceThroughMask16)

// The 16-bit members of the group whose formulas are the host's alone.
TARNELL_FORWARDED_SLOT(blnd, 191, BlendPlaneRoutine191)
TARNELL_FORWARDED_SLOT(blnd, 198, BlendPlaneRoutine198)
TARNELL_FORWARDED_SLOT(blnd, 216, BlendPlaneRoutine216)
TARNELL_FORWARDED_SLOT(blnd, 218, BlendPlaneRoutine218)

}  // namespace tarnell
