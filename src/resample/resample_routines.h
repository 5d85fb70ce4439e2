// The 'rsmp' suite's routines: the SSE-tier and SSE2-tier sets (baseline code),
// and the table through which the SSE4.1 file hands over its routine.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

namespace tarnell::resample {

// Slot 5
SlotSignature<code::rsmp, 5>::Fn FilterRowsScalar8;  // filter_rows8_scalar.cpp
SlotSignature<code::rsmp, 5>::Fn FilterRowsSse2_8;   // filter_rows8_sse2.cpp
// Slot 6
SlotSignature<code::rsmp, 6>::Fn FilterColumns8;       // filter_columns8_scalar.cpp
SlotSignature<code::rsmp, 6>::Fn FilterColumnsSse2_8;  // filter_columns8_sse2.cpp
// Slot 13
SlotSignature<code::rsmp, 13>::Fn FilterRows16;  // filter_rows16_sse2.cpp
// Slot 27
SlotSignature<code::rsmp, 27>::Fn FilterColumnsFloat;  // filter_columns_float_sse2.cpp
// Slot 3
SlotSignature<code::rsmp, 3>::Fn BoxAverageRows8;  // box_average_rows8_sse2.cpp
// Slot 24
SlotSignature<code::rsmp, 24>::Fn BoxReduce8;  // box_reduce8.cpp
// Slots 18, 19
SlotSignature<code::rsmp, 18>::Fn RemapAxis8;   // remap_axis8.cpp
SlotSignature<code::rsmp, 19>::Fn RemapPlane8;  // remap_plane8.cpp

// Widest output row BoxReduce8 sums itself; wider rows go to the host's routine.
constexpr int32_t kBoxReduceMaxWidth = 1500;

// The float kernel filters scale the 1.14 sum by this (1/16384 as a float).
constexpr float kWeightScale = 6.1035156e-5f;

struct Sse41Routines {  // filter_rows_float_sse41.cpp
  SlotFn<code::rsmp, 26> filterRowsFloat;
};
extern constinit const Sse41Routines g_resampleSse41;

}  // namespace tarnell::resample
