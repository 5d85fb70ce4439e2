// The module's 8-bit blending routines. Each has exactly the signature of its
// 'blnd' slot, and every slot's body is chosen through the kernel table:
// - the plane operations: SSE2 (blend8_sse2.cpp, 16 samples a vector step) and
//   AVX2 (blend8_avx2.cpp, 32);
// - the overlay and screen routines: scalar table look-ups (blend8_tables.cpp),
//   for a processor with SSE and no SSE2, and the same bits computed by vector
//   arithmetic, SSE2 (overlay8_sse2.cpp) and AVX2 (overlay8_avx2.cpp).
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

#include "host/kernel_table.h"

namespace tarnell::blend8 {

// --- SSE2 plane operations: 16 samples a vector step, scalar head and tail ---
SlotTypeOf<slot::ScaleByConstant8> ScaleByConstant8;
SlotTypeOf<slot::MixSourceThroughMask8> MixSourceThroughMask8;
SlotTypeOf<slot::MixConstantThroughMask8> MixConstantThroughMask8;
SlotTypeOf<slot::DarkenTowardSourceThroughMask8> DarkenTowardSourceThroughMask8;
SlotTypeOf<slot::DarkenTowardConstantThroughMask8> DarkenTowardConstantThroughMask8;
SlotTypeOf<slot::LightenTowardSourceThroughMask8> LightenTowardSourceThroughMask8;
SlotTypeOf<slot::LightenTowardConstantThroughMask8> LightenTowardConstantThroughMask8;
SlotTypeOf<slot::MultiplySourceThroughMask8> MultiplySourceThroughMask8;
SlotTypeOf<slot::MultiplySource8> MultiplySource8;
SlotTypeOf<slot::MaxSource8> MaxSource8;
SlotTypeOf<slot::MinSource8> MinSource8;
SlotTypeOf<slot::CopyWhereMaskSet8> CopyWhereMaskSet8;
SlotTypeOf<slot::FillWhereMaskSet8> FillWhereMaskSet8;
SlotTypeOf<slot::SubtractCoverage8> SubtractCoverage8;
SlotTypeOf<slot::MultiplyWithOpacity8> MultiplyWithOpacity8;
SlotTypeOf<slot::MultiplyInto8> MultiplyInto8;
SlotTypeOf<slot::InverseMultiplyInto8> InverseMultiplyInto8;
SlotTypeOf<slot::FillWhereMaskClear8> FillWhereMaskClear8;
SlotTypeOf<slot::OrderedCombineInto8> OrderedCombineInto8;

// The forwarding routines to the host's own blending routines: one per slot that
// a module routine may hand a case back to. Nothing installs them; they are the
// one way to reach the host's implementation of those slots.
struct Forwarder {
  int slot;
  HostRoutine routine;
};
struct ForwarderList {
  const Forwarder* entries;
  int count;
};
ForwarderList blendForwarders();

// ----------------------------------------------------------- kernel tables
// Every 8-bit routine, by slot. The plane operations have SSE2 and AVX2 bodies;
// the overlay and screen routines plain (table look-ups), SSE2 and AVX2 ones.
#define TARNELL_BLEND8_KERNELS(X)      \
  X(ScaleByConstant8)                  \
  X(MixConstantThroughMask8)           \
  X(MixSourceThroughMask8)             \
  X(CopyWhereMaskSet8)                 \
  X(FillWhereMaskSet8)                 \
  X(MultiplySource8)                   \
  X(MaxSource8)                        \
  X(MinSource8)                        \
  X(SubtractCoverage8)                 \
  X(DarkenTowardSourceThroughMask8)    \
  X(DarkenTowardConstantThroughMask8)  \
  X(LightenTowardSourceThroughMask8)   \
  X(LightenTowardConstantThroughMask8) \
  X(MultiplySourceThroughMask8)        \
  X(MultiplyInto8)                     \
  X(InverseMultiplyInto8)              \
  X(FillWhereMaskClear8)               \
  X(OrderedCombineInto8)               \
  X(MultiplyWithOpacity8)              \
  X(SourceBasedOverlayThroughMask8)    \
  X(ConstantBasedOverlayThroughMask8)  \
  X(SourceBasedOverlay8)               \
  X(SourceBasedOverlayWithOpacity8)    \
  X(OverlaySourceThroughMask8)         \
  X(OverlayConstantThroughMask8)       \
  X(OverlaySource8)                    \
  X(OverlaySourceWithOpacity8)         \
  X(ScreenSourceWithOpacity8)          \
  X(ScreenConstantThroughMask8)        \
  X(ScreenSource8)
TARNELL_KERNEL_TABLE(Blend8Table, TARNELL_BLEND8_KERNELS)

extern constinit const Blend8Table g_blend8Sse2;     // blend8_sse2.cpp
extern constinit const Blend8Table g_blend8Avx2;     // blend8_avx2.cpp
extern constinit const Blend8Table g_blend8Tables;   // blend8_tables.cpp (plain)
extern constinit const Blend8Table g_overlay8Sse2;   // overlay8_sse2.cpp
extern constinit const Blend8Table g_overlay8Avx2;   // overlay8_avx2.cpp

}  // namespace tarnell::blend8
