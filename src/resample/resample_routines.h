// The 'rsmp' suite's routines: the SSE-tier and SSE2-tier sets (baseline code),
// and the table through which the SSE4.1 file hands over its routine.
#pragma once

#include <tarnell/host_interface.h>

#include "host/kernel_table.h"

#include <cstdint>

namespace tarnell::resample {

// Slot 5
SlotTypeOf<slot::FilterRowsSse2_8> FilterRowsScalar8;  // filter_rows8_scalar.cpp
SlotTypeOf<slot::FilterRowsSse2_8> FilterRowsSse2_8;   // kernel_filters_sse2.cpp
// Slot 6
SlotTypeOf<slot::FilterColumnsSse2_8> FilterColumns8;       // filter_columns8_scalar.cpp
SlotTypeOf<slot::FilterColumnsSse2_8> FilterColumnsSse2_8;  // kernel_filters_sse2.cpp
// Slot 13
SlotTypeOf<slot::FilterRows16> FilterRows16;  // kernel_filters_sse2.cpp
// Slot 27
SlotTypeOf<slot::FilterColumnsFloat> FilterColumnsFloat;  // filter_columns_float_sse2.cpp
// Slot 3
SlotTypeOf<slot::BoxAverageRows8> BoxAverageRows8;  // box_average_rows8_sse2.cpp
// Slot 24
SlotTypeOf<slot::BoxReduce8> BoxReduce8;  // box_reduce8_sse2.cpp
// Slots 18, 19
SlotTypeOf<slot::RemapAxis8> RemapAxis8;   // remap8_sse2.cpp
SlotTypeOf<slot::RemapPlane8> RemapPlane8;  // remap8_sse2.cpp

// Widest output row BoxReduce8 sums itself; wider rows go to the host's routine.
constexpr int32_t kBoxReduceMaxWidth = 1500;

// BoxReduce8's row kernels; its per-call part (the hand-over of wider rows, the
// shapes, the fold of a pixels) is baseline code around a level's kernels.
struct BoxReduceRows {
  // Whole pixels of 1, 2 or 4 samples reduced by a = 2 ([0]) or 4 ([1]) over b rows,
  // a row of width outputs (at least `least`), all in registers.
  using Pairs = void(const uint8_t* top, intptr_t stride, int32_t b, int32_t width, uint32_t area, uint8_t* d);
  Pairs* pairs[2][5];
  int32_t least;
  // The b rows summed into one 16-bit lane per byte of the span.
  void (*sumRows)(const uint8_t* top, intptr_t stride, int32_t b, int32_t span, uint16_t* sums);
  // d[x] = (block[x] + area / 2) / area; block has 32 lanes of slack.
  void (*divideRow)(const uint16_t* block, int32_t width, uint32_t area, uint8_t* d);
};
extern constinit const BoxReduceRows g_boxReduceRowsAvx2;  // box_reduce8_avx2.cpp

// The float kernel filters scale the 1.14 sum by this (1/16384 as a float).
constexpr float kWeightScale = 6.1035156e-5f;

// ----------------------------------------------------------- kernel tables
// The slots with bodies at several levels, by slot name (see host/kernels.h).
// The SSE step's four slots are written on processors that report SSE alone too,
// so their baseline bodies are listed at the plain tier as well (every x86-64
// processor has SSE2: that tier only serves injected flag sets); the SSE2 step's
// slot 5 and 6 routines are the SSE2 step's own. The wider tiers overwrite
// what they have bodies of.
#define TARNELL_RESAMPLE_KERNELS(X) \
  X(BoxAverageRows8)                \
  X(FilterRowsSse2_8)               \
  X(FilterColumnsSse2_8)            \
  X(FilterRows16)                   \
  X(RemapAxis8)                     \
  X(RemapPlane8)                    \
  X(BoxReduce8)                     \
  X(FilterRowsFloat)                \
  X(FilterColumnsFloat)
TARNELL_KERNEL_TABLE(ResampleTable, TARNELL_RESAMPLE_KERNELS)

extern constinit const ResampleTable g_resampleSse, g_resampleSse2;  // install_resample.cpp
extern constinit const ResampleTable g_resampleSse41;                // filter_rows_float_sse41.cpp
extern constinit const ResampleTable g_remapAvx2;                    // remap8_avx2.cpp
extern constinit const ResampleTable g_boxReduceAvx2;                // box_reduce8_sse2.cpp
extern constinit const ResampleTable g_boxAverageRowsAvx2;           // box_average_rows8_avx2.cpp
extern constinit const ResampleTable g_filterFloatAvx2;              // filter_float_avx2.cpp
extern constinit const ResampleTable g_kernelFiltersAvx2;            // kernel_filters_avx2.cpp

}  // namespace tarnell::resample
