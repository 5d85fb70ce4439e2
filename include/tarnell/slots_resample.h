// Slot signatures and shared record types of the resampling routines ('rsmp').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

// --- 'rsmp': separable kernel filters ----------------------------------------
// (source, destination, rows, width, indices, phases, sourceStride, destinationStride,
// taps, weights). Horizontal filters have one index and phase per output sample,
// vertical ones one per output row. Weights are 1.14 fixed point, phase p's weight
// k at p * taps + k. Strides are in bytes (16-bit and float routines step by the
// stride divided by the sample size, truncating).
#define TARNELL_RSMP_KERNEL(SLOT, NAME, T)                                                                      \
  TARNELL_SLOT(rsmp, SLOT, NAME, void, const T* source, T* destination, int32_t rows, int32_t width,            \
               const int32_t* indices, const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, \
               int16_t taps, const int16_t* weights)
TARNELL_RSMP_KERNEL(5, FilterRowsSse2_8, uint8_t)
TARNELL_RSMP_KERNEL(6, FilterColumnsSse2_8, uint8_t)
TARNELL_RSMP_KERNEL(13, FilterRows16, uint16_t)
TARNELL_RSMP_KERNEL(26, FilterRowsFloat, float)
TARNELL_RSMP_KERNEL(27, FilterColumnsFloat, float)

// --- 'rsmp': box reductions ----------------------------------------------------
// Slot 3: each output row is the mean of the next counts[r] source rows (rounded
// through a truncated reciprocal). A count of 0 writes nothing and consumes no row.
TARNELL_SLOT(rsmp, 3, BoxAverageRows8, void, const uint8_t* source, uint8_t* destination, int32_t rows,
             int32_t width, const int32_t* counts, int32_t sourceStride, int32_t destinationStride)
// Slot 24: each output sample is the rounded mean of an a x b block. width counts
// output samples (channels interleaved, samplesPerPixel of them per pixel).
TARNELL_SLOT(rsmp, 24, BoxReduce8, void, const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width,
             int32_t sourceStride, int32_t destinationStride, int32_t samplesPerPixel, int32_t a, int32_t b)

// --- 'rsmp': remaps from 16.16 source coordinates -----------------------------
// Both: the destination walks, by destinationPixelStride after each pixel and by
// destinationAdvance after each output row (pixel p of row r at r * (pixels *
// destinationPixelStride + destinationAdvance) + p * destinationPixelStride).
// Slot 18: one output row is a run along one source line (the line starts at
// source + r * sourceAdvance; a coordinate's integer part steps along it by
// sourceRowStride bytes).
TARNELL_SLOT(rsmp, 18, RemapAxis8, void, const uint32_t* coordinates, const uint8_t* source, uint8_t* destination,
             int32_t rows, int32_t pixels, int32_t samplesPerPixel, int32_t sourceAdvance, int32_t sourceRowStride,
             int32_t destinationAdvance, int32_t destinationPixelStride, int32_t first, int32_t end,
             int16_t interpolate)
// Slot 19: coordinates are (x, y) pairs, one per output pixel.
TARNELL_SLOT(rsmp, 19, RemapPlane8, void, const uint32_t* coordinates, const uint8_t* source, uint8_t* destination,
             int32_t rows, int32_t pixels, int32_t samplesPerPixel, int32_t sourcePixelStride,
             int32_t sourceRowStride, int32_t destinationAdvance, int32_t destinationPixelStride, int32_t firstX,
             int32_t endX, int32_t firstY, int32_t endY, int16_t interpolate)

// Slot 7: a run resampled by a real-valued ratio; its arguments are the host's.
TARNELL_FORWARDED_SLOT(rsmp, 7, ResampleByRatio8)

}  // namespace tarnell
