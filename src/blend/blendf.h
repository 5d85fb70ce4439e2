// The module's float composites driven by a parameter record (blendf_sse2.cpp).
// Each has exactly the signature of its 'blnd' slot. Types and declarations only:
// the AVX2 file includes it too.
#pragma once

#include <tarnell/host_interface.h>

#include <cstddef>
#include <cstdint>

#include "host/kernel_table.h"

namespace tarnell::blendf {

SlotTypeOf<slot::FloatCompositeRecord275> FloatCompositeRecord275;  // nothing-to-do test, then the host's routine
SlotTypeOf<slot::LightenTowardSourceFloat> LightenTowardSourceFloat;
SlotTypeOf<slot::DarkenTowardSourceFloat> DarkenTowardSourceFloat;
SlotTypeOf<slot::AddSourceFloat> AddSourceFloat;
SlotTypeOf<slot::MinSourceFloat> MinSourceFloat;
SlotTypeOf<slot::OverlaySourceFloat> OverlaySourceFloat;

// ------------------------------------------------------------ packed loops
// The routines' entries (record tests, case dispatch, live-table calls, the
// rounding mode) are baseline code; the loops over packed planes (every present
// plane with sample step 4) are kernels, SSE2 or AVX2, chosen with the routine.
struct PackedPlanes {
  float* destination;
  const float* source;  // null: every source sample is `constant`
  const float* mask;    // read only by the mask weights
  float constant, k;
  int32_t columns, rows;  // both at least 1
  std::ptrdiff_t destinationRow, sourceRow, maskRow;  // row steps in floats
};
// The weight w of a loop: 1 (no multiply), k, m or k m.
enum class PackedWeight : uint8_t { none, opacity, mask, opacityMask };
using PackedLoop = void(const PackedPlanes& planes, PackedWeight weight);
struct PackedLoops {
  PackedLoop* lighten;
  PackedLoop* darken;
  PackedLoop* add;
  PackedLoop* overlay;
  PackedLoop* minimum;  // weight none only
};
extern constinit const PackedLoops g_packedLoopsAvx2;  // blendf_avx2.cpp

// The routines with bodies at two levels: the same entries over the SSE2 or the
// AVX2 loops. Slot 275 hands its records to the host and has one body.
#define TARNELL_BLENDF_KERNELS(X) \
  X(DarkenTowardSourceFloat)      \
  X(LightenTowardSourceFloat)     \
  X(OverlaySourceFloat)           \
  X(AddSourceFloat)               \
  X(MinSourceFloat)
TARNELL_KERNEL_TABLE(BlendFloatTable, TARNELL_BLENDF_KERNELS)

extern constinit const BlendFloatTable g_blendFloatSse2, g_blendFloatAvx2;  // blendf_sse2.cpp

}  // namespace tarnell::blendf
