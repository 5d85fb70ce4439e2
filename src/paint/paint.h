// The module's painting routines ('pntg'), one file per family: each family's
// 8-bit and 16-bit workers with their three- and four-plane companions, and the
// single entries. Each has exactly the signature of its slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::paint {

#define TARNELL_PAINT_DECLARE(F, S8, S8X3, S8X4, S16, S16X3, S16X4) \
  SlotSignature<code::pntg, S8>::Fn Paint##F##8;                      \
  SlotSignature<code::pntg, S8X3>::Fn Paint##F##8x3;                  \
  SlotSignature<code::pntg, S8X4>::Fn Paint##F##8x4;                  \
  SlotSignature<code::pntg, S16>::Fn Paint##F##16;                    \
  SlotSignature<code::pntg, S16X3>::Fn Paint##F##16x3;                \
  SlotSignature<code::pntg, S16X4>::Fn Paint##F##16x4;

TARNELL_PAINT_DECLARE(P, 10, 28, 29, 61, 62, 63)  // paint_p_sse2.cpp
TARNELL_PAINT_DECLARE(Q, 4, 26, 27, 55, 56, 57)   // paint_q_sse2.cpp
TARNELL_PAINT_DECLARE(R, 7, 24, 25, 58, 59, 60)   // paint_r_sse2.cpp
TARNELL_PAINT_DECLARE(S, 17, 34, 35, 84, 85, 86)  // paint_s_sse2.cpp
TARNELL_PAINT_DECLARE(T, 13, 36, 37, 87, 88, 89)  // paint_t_sse2.cpp
#undef TARNELL_PAINT_DECLARE

// paint_single_sse2.cpp
SlotSignature<code::pntg, 5>::Fn PaintSingle5;
SlotSignature<code::pntg, 81>::Fn PaintSingle81;
SlotSignature<code::pntg, 9>::Fn PaintSingle9;
SlotSignature<code::pntg, 18>::Fn PaintSingle18;
SlotSignature<code::pntg, 92>::Fn PaintSingle92;

// Where a call's dither bytes start in the noise table, from the worker's x and
// y and the low 32 bits of the destination's address.
// Unsigned 32-bit arithmetic, wrapping.
inline uint32_t ditherStart(int32_t x, int32_t y, const void* destination) {
  auto scramble = [](uint32_t v) { return (v * 1103515245u + 12345u) >> 3; };
  const uint32_t s1 = scramble(static_cast<uint32_t>(y));
  const uint32_t s2 = scramble(s1 ^ static_cast<uint32_t>(x));
  const uint32_t s3 = scramble(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(destination)) ^ s2);
  return s3 % 12281u;
}

}  // namespace tarnell::paint
