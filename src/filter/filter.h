// The module's filter routines ('filt'). Each has exactly the signature of its
// slot. Baseline files hold the SSE2 routines; the SSE4.1 tier is reached through
// its table.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

#include "host/invariant_divisor.h"
#include "host/kernel_table.h"

namespace tarnell::filter {

SlotTypeOf<slot::localDeviation3x3> localDeviation3x3;     // deviation.cpp (plain code)
SlotTypeOf<slot::filterSlot28> filterSlot28;          // weighted_sum_sse2.cpp
SlotTypeOf<slot::blockDifferenceSum> blockDifferenceSum;   // block_difference_sse2.cpp
SlotTypeOf<slot::maskedDifferenceSum> maskedDifferenceSum;  // block_difference_sse2.cpp
// One routine per group size, instances of one template (block_matrix_sse2.cpp).
extern const SlotFnOf<slot::blockMatrixFilter2> blockMatrixFilter2;
extern const SlotFnOf<slot::blockMatrixFilter3> blockMatrixFilter3;
extern const SlotFnOf<slot::blockMatrixFilter4> blockMatrixFilter4;
extern const SlotFnOf<slot::blockMatrixFilter5> blockMatrixFilter5;

// ------------------------------------------------------ 16-bit weighted sum
// One strip of at most 4096 columns (steps in samples). Slot 74's bodies split a
// call into strips and run one strip kernel, SSE2 or AVX2, on each.
using WeightedSumStrip16 = void(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                                int32_t sourceStep, int32_t destinationStep, const uint32_t* block);
struct WeightedSumStrips {
  WeightedSumStrip16* strip16;
};
extern constinit const WeightedSumStrips g_weightedSumStripsAvx2;  // weighted_sum_avx2.cpp

// ---------------------------------------------------------- 16-bit box mean
// Slot 75's bodies compute the divisor's reciprocal once per call and run one
// strip kernel, SSE2 or AVX2, per strip of at most 8192 source columns (steps in
// samples). q = (t + ((n - t) >> s1)) >> s2 with t the high half of n * m is
// floor(n / d) (host/invariant_divisor.h); half = d >> 1 is added first. Where
// every box sum of 16-bit samples plus half stays below a bound that allows it
// (radii up to 63), bounded gives the same quotient from one multiplication
// (bounded.k = 0 otherwise).
constexpr int32_t kBoxMeanStripColumns = 8192;
struct BoxMeanDivisor : InvariantDivisor {
  uint32_t half;
  BoundedDivisor bounded;
};
using BoxMeanStrip = void(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                          intptr_t sourceStep, intptr_t destinationStep, int32_t radius, const BoxMeanDivisor& divisor);
struct BoxMeanStrips {
  BoxMeanStrip* strip;
};
extern constinit const BoxMeanStrips g_boxMeanStripsAvx2;  // box_mean16_avx2.cpp

// ------------------------------------------------------------ angular remap
// The per-call and per-row set-up needs the library's tangent, so it lives in
// baseline code (angular_remap.cpp), which hands each row to a row kernel:
// SSE4.1 or AVX2.
struct RemapRow {
  const void* source;
  void* destination;
  int32_t destinationWidth;
  int32_t first, last;  // visible span; first > last: the row is all background
  float k;              // secant of the row's elevation
  // Per call:
  float t, ft, centre, scale, columnCentre, focal;
};

struct AngularRemapRows {
  void (*row8)(const RemapRow& row, uint8_t background);
  void (*row16)(const RemapRow& row, uint16_t background);
  void (*rowFloat)(const RemapRow& row, float background);
};
extern constinit const AngularRemapRows g_angularRemapRowsSse41;  // angular_remap_sse41.cpp
extern constinit const AngularRemapRows g_angularRemapRowsAvx2;   // angular_remap_avx2.cpp

// ----------------------------------------------------------- kernel tables
// The slots with bodies at several levels. The per-call part of each body is
// baseline code; a body's level is that of the kernel it runs.
#define TARNELL_FILTER_KERNELS(X) \
  X(filterSlot74)                 \
  X(filterSlot75)                 \
  X(angularRemap8)                \
  X(angularRemap16)               \
  X(angularRemapSlot202)
TARNELL_KERNEL_TABLE(FilterTable, TARNELL_FILTER_KERNELS)

extern constinit const FilterTable g_weightedSumSse2, g_weightedSumAvx2;      // weighted_sum_sse2.cpp
extern constinit const FilterTable g_boxMeanSse2, g_boxMeanAvx2;              // box_mean16_sse2.cpp
extern constinit const FilterTable g_angularRemapSse41, g_angularRemapAvx2;  // angular_remap.cpp

}  // namespace tarnell::filter
