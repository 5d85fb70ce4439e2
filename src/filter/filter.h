// The module's filter routines ('filt'). Each has exactly the signature of its
// slot. Baseline files hold the SSE2 routines; the SSE4.1 tier is reached through
// its table.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

#include "host/invariant_divisor.h"

namespace tarnell::filter {

SlotSignature<code::filt, 12>::Fn localDeviation3x3;     // deviation.cpp (plain code)
SlotSignature<code::filt, 28>::Fn filterSlot28;          // weighted_sum_sse2.cpp
SlotSignature<code::filt, 74>::Fn filterSlot74;          // weighted_sum_sse2.cpp
SlotSignature<code::filt, 75>::Fn filterSlot75;          // box_mean16_sse2.cpp
SlotSignature<code::filt, 188>::Fn blockDifferenceSum;   // block_difference_sse2.cpp
SlotSignature<code::filt, 189>::Fn maskedDifferenceSum;  // block_difference_sse2.cpp
// One routine per group size, instances of one template (block_matrix_sse2.cpp).
extern const SlotFn<code::filt, 191> blockMatrixFilter2;
extern const SlotFn<code::filt, 192> blockMatrixFilter3;
extern const SlotFn<code::filt, 193> blockMatrixFilter4;
extern const SlotFn<code::filt, 194> blockMatrixFilter5;

// ------------------------------------------------------ 16-bit weighted sum
// One strip of at most 4096 columns (steps in samples). The routine in slot 74
// runs the AVX2 kernel when the processor has it, else the SSE2 one.
using WeightedSumStrip16 = void(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                                int32_t sourceStep, int32_t destinationStep, const uint32_t* block);
extern WeightedSumStrip16* const g_weightedSumStrip16Sse2;  // weighted_sum_sse2.cpp
struct WeightedSumAvx2Kernels {                             // weighted_sum_avx2.cpp
  WeightedSumStrip16* strip16;
};
extern constinit const WeightedSumAvx2Kernels g_weightedSumAvx2;

// ---------------------------------------------------------- 16-bit box mean
// The baseline routine in slot 75 computes the divisor's reciprocal once per call
// and runs one kernel per strip of at most 8192 source columns (steps in samples):
// the AVX2 one when the processor has it, else the SSE2 one. q = (t + ((n - t) >> s1))
// >> s2 with t the high half of n * m is floor(n / d) (host/invariant_divisor.h);
// half = d >> 1 is added first.
constexpr int32_t kBoxMeanStripColumns = 8192;
struct BoxMeanDivisor : InvariantDivisor {
  uint32_t half;
};
using BoxMeanStrip = void(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                          intptr_t sourceStep, intptr_t destinationStep, int32_t radius, const BoxMeanDivisor& divisor);
struct BoxMeanAvx2Kernels {  // box_mean16_avx2.cpp
  BoxMeanStrip* strip;
};
extern constinit const BoxMeanAvx2Kernels g_boxMeanAvx2;

// ------------------------------------------------------------ angular remap
// The per-call and per-row set-up needs the library's tangent, so it lives in
// baseline code (angular_remap.cpp), which hands each row to the SSE4.1 kernel.
struct RemapRow {
  const void* source;
  void* destination;
  int32_t destinationWidth;
  int32_t first, last;  // visible span; first > last: the row is all background
  float k;              // secant of the row's elevation
  // Per call:
  float t, ft, centre, scale, columnCentre, focal;
};

struct AngularRemapKernels {  // angular_remap_sse41.cpp
  void (*row8)(const RemapRow& row, uint8_t background);
  void (*row16)(const RemapRow& row, uint16_t background);
  void (*rowFloat)(const RemapRow& row, float background);
};
extern constinit const AngularRemapKernels g_angularRemapSse41;
extern constinit const AngularRemapKernels g_angularRemapAvx2;  // angular_remap_avx2.cpp
// The kernels for this processor: AVX2 when its own flags show AVX and AVX2.
const AngularRemapKernels& angularRemapKernels();

// angular_remap.cpp, installed with SSE4.1: one template per sample kind.
extern const SlotFn<code::filt, 200> angularRemap8;
extern const SlotFn<code::filt, 201> angularRemap16;
extern const SlotFn<code::filt, 202> angularRemapSlot202;

}  // namespace tarnell::filter
