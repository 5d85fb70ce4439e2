// Slot signatures and shared record types of the filters ('filt').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

// Slot 12: 3x3 local deviation of an 8-bit plane. The source is readable one
// sample beyond every edge of the region. The result is what 'core' slot 0
// returned for the routine's first four arguments.
TARNELL_SLOT(filt, 12, localDeviation3x3, int32_t, const uint8_t* source, uint8_t* destination, int32_t rows,
             int32_t columns, int32_t sourceStride, int32_t destinationStride)

// Vertical weighted sums. The parameter block holds the tap count at entry 20 and
// the weights in the low 16 bits of entries 21 onwards; the source points at the
// first tap row of destination row 0 (it has rows + taps - 1 rows).
constexpr int kWeightedSumTapCountEntry = 20;
TARNELL_SLOT(filt, 28, filterSlot28, void, const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
             int32_t sourceStride, int32_t destinationStride, const uint32_t* block)
TARNELL_SLOT(filt, 74, filterSlot74, void, const uint16_t* source, uint16_t* destination, int32_t rows,
             int32_t columns, int32_t sourceStride, int32_t destinationStride, const uint32_t* block)

// Slot 75: 16-bit box mean over a (2r + 1)-square; the source is readable r
// samples beyond every edge. Returns 0, or the host's result for r >= 180.
constexpr int32_t kBoxMeanHostRadius = 180;
TARNELL_SLOT(filt, 75, filterSlot75, int32_t, const uint16_t* source, uint16_t* destination, int32_t rows,
             int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t radius)

// Slots 188, 189: sums over two 128-byte blocks (and a 128-byte mask).
constexpr int kDifferenceBlockBytes = 128;
TARNELL_SLOT(filt, 188, blockDifferenceSum, uint16_t, const uint8_t* first, const uint8_t* second)
TARNELL_SLOT(filt, 189, maskedDifferenceSum, uint16_t, const uint8_t* first, const uint8_t* second,
             const uint8_t* mask)

// Slots 191-194: a 4 x 4k matrix over a sliding group of k 4-float elements. The
// fourth and fifth arguments are the host's; they are passed on unchanged. The
// result is the number of elements the host's routine wrote (0 when it is not
// called).
#define TARNELL_BLOCK_MATRIX(SLOT, NAME)                                                                  \
  TARNELL_SLOT(filt, SLOT, NAME, int32_t, const float* input, int32_t count, const float* coefficients, \
               uintptr_t hostFourth, uintptr_t hostFifth, float* output)
TARNELL_BLOCK_MATRIX(191, blockMatrixFilter2)
TARNELL_BLOCK_MATRIX(192, blockMatrixFilter3)
TARNELL_BLOCK_MATRIX(193, blockMatrixFilter4)
TARNELL_BLOCK_MATRIX(194, blockMatrixFilter5)
#undef TARNELL_BLOCK_MATRIX

// Slots 200-202: perspective rotation remap along each row. The unread words
// (8, 10, 12, 14) are the host's and are accepted as they come.
#define TARNELL_ANGULAR_REMAP(SLOT, NAME, SAMPLE, BACKGROUND)                                                   \
  TARNELL_SLOT(filt, SLOT, NAME, void, const SAMPLE* source, SAMPLE* destination, int32_t rows,                 \
               int32_t sourceWidth, int32_t destinationWidth, int32_t sourceStride, int32_t destinationStride, \
               uintptr_t unread8, BACKGROUND background, uintptr_t unread10, float turn, uintptr_t unread12,   \
               float sourceCentre, uintptr_t unread14, float sourceScale, float rowCentre, float columnCentre, \
               float rowScale, float focalLength)
TARNELL_ANGULAR_REMAP(200, angularRemap8, uint8_t, uint8_t)
TARNELL_ANGULAR_REMAP(201, angularRemap16, uint16_t, uint16_t)
TARNELL_ANGULAR_REMAP(202, angularRemapSlot202, float, int32_t)
#undef TARNELL_ANGULAR_REMAP

// The filters whose argument lists and formulas are the host's alone.
TARNELL_FORWARDED_SLOT(filt, 31, filterSlot31)
TARNELL_FORWARDED_SLOT(filt, 34, filterSlot34)
TARNELL_FORWARDED_SLOT(filt, 106, filterSlot106)
TARNELL_FORWARDED_SLOT(filt, 155, filterSlot155)
TARNELL_FORWARDED_SLOT(filt, 195, transposeFloatTiles)
TARNELL_FORWARDED_SLOT(filt, 197, filterSlot197)

}  // namespace tarnell
