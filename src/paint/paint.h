// The module's painting routines ('pntg'): each family's 8-bit and 16-bit
// workers (one file per family), their three- and four-plane companions, and the
// single entries. Each has exactly the signature of its slot.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell::paint {

// The workers, one file per family (paint_<family>_sse2.cpp).
#define TARNELL_PAINT_WORKERS(F)               \
  SlotTypeOf<slot::Paint##F##8> Paint##F##8; \
  SlotTypeOf<slot::Paint##F##16> Paint##F##16;
TARNELL_PAINT_WORKERS(P)
TARNELL_PAINT_WORKERS(Q)
TARNELL_PAINT_WORKERS(R)
TARNELL_PAINT_WORKERS(S)
TARNELL_PAINT_WORKERS(T)
#undef TARNELL_PAINT_WORKERS

// The three- and four-plane companions call their worker once per plane, first
// plane first, with the other arguments unchanged. P, Q, R: colour k goes to
// plane k.
template <auto Worker, class T, class... Tail>
void colours3(int32_t a0, int32_t a, int32_t b, int32_t rows, int32_t columns, T* plane0, T* plane1, T* plane2,
              int32_t stride, uint32_t colour0, uint32_t colour1, uint32_t colour2, Tail... tail) {
  Worker(a0, a, b, rows, columns, plane0, stride, colour0, tail...);
  Worker(a0, a, b, rows, columns, plane1, stride, colour1, tail...);
  Worker(a0, a, b, rows, columns, plane2, stride, colour2, tail...);
}
template <auto Worker, class T, class... Tail>
void colours4(int32_t a0, int32_t a, int32_t b, int32_t rows, int32_t columns, T* plane0, T* plane1, T* plane2,
              T* plane3, int32_t stride, uint32_t colour0, uint32_t colour1, uint32_t colour2, uint32_t colour3,
              Tail... tail) {
  colours3<Worker, T, Tail...>(a0, a, b, rows, columns, plane0, plane1, plane2, stride, colour0, colour1, colour2,
                               tail...);
  Worker(a0, a, b, rows, columns, plane3, stride, colour3, tail...);
}
// S, T: plane k gets the second argument raised by k, so it reads source channel
// + k and starts its dither from x + k.
inline int32_t raised(int32_t channel, uint32_t k) {
  return static_cast<int32_t>(static_cast<uint32_t>(channel) + k);
}
template <auto Worker, class T, class... Tail>
void channels3(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, T* plane0,
               T* plane1, T* plane2, int32_t stride, Tail... tail) {
  Worker(a0, channel, y, rows, columns, a5, plane0, stride, tail...);
  Worker(a0, raised(channel, 1), y, rows, columns, a5, plane1, stride, tail...);
  Worker(a0, raised(channel, 2), y, rows, columns, a5, plane2, stride, tail...);
}
template <auto Worker, class T, class... Tail>
void channels4(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, T* plane0,
               T* plane1, T* plane2, T* plane3, int32_t stride, Tail... tail) {
  channels3<Worker, T, Tail...>(a0, channel, y, rows, columns, a5, plane0, plane1, plane2, stride, tail...);
  Worker(a0, raised(channel, 3), y, rows, columns, a5, plane3, stride, tail...);
}

using Record = const PaintRecord*;
inline constexpr SlotFnOf<slot::PaintP8x3> PaintP8x3 = &colours3<PaintP8, uint8_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintP8x4> PaintP8x4 = &colours4<PaintP8, uint8_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintP16x3> PaintP16x3 = &colours3<PaintP16, uint16_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintP16x4> PaintP16x4 = &colours4<PaintP16, uint16_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintQ8x3> PaintQ8x3 = &colours3<PaintQ8, uint8_t, Record>;
inline constexpr SlotFnOf<slot::PaintQ8x4> PaintQ8x4 = &colours4<PaintQ8, uint8_t, Record>;
inline constexpr SlotFnOf<slot::PaintQ16x3> PaintQ16x3 = &colours3<PaintQ16, uint16_t, Record>;
inline constexpr SlotFnOf<slot::PaintQ16x4> PaintQ16x4 = &colours4<PaintQ16, uint16_t, Record>;
inline constexpr SlotFnOf<slot::PaintR8x3> PaintR8x3 = &colours3<PaintR8, uint8_t, Record>;
inline constexpr SlotFnOf<slot::PaintR8x4> PaintR8x4 = &colours4<PaintR8, uint8_t, Record>;
inline constexpr SlotFnOf<slot::PaintR16x3> PaintR16x3 = &colours3<PaintR16, uint16_t, Record>;
inline constexpr SlotFnOf<slot::PaintR16x4> PaintR16x4 = &colours4<PaintR16, uint16_t, Record>;
inline constexpr SlotFnOf<slot::PaintS8x3> PaintS8x3 = &channels3<PaintS8, uint8_t, Record>;
inline constexpr SlotFnOf<slot::PaintS8x4> PaintS8x4 = &channels4<PaintS8, uint8_t, Record>;
inline constexpr SlotFnOf<slot::PaintS16x3> PaintS16x3 = &channels3<PaintS16, uint16_t, Record>;
inline constexpr SlotFnOf<slot::PaintS16x4> PaintS16x4 = &channels4<PaintS16, uint16_t, Record>;
inline constexpr SlotFnOf<slot::PaintT8x3> PaintT8x3 = &channels3<PaintT8, uint8_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintT8x4> PaintT8x4 = &channels4<PaintT8, uint8_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintT16x3> PaintT16x3 = &channels3<PaintT16, uint16_t, uint32_t, Record>;
inline constexpr SlotFnOf<slot::PaintT16x4> PaintT16x4 = &channels4<PaintT16, uint16_t, uint32_t, Record>;

// paint_single_sse2.cpp
SlotTypeOf<slot::PaintSingle5> PaintSingle5;
SlotTypeOf<slot::PaintSingle81> PaintSingle81;
SlotTypeOf<slot::PaintSingle9> PaintSingle9;
SlotTypeOf<slot::PaintSingle18> PaintSingle18;
SlotTypeOf<slot::PaintSingle92> PaintSingle92;

// Where a call's dither bytes start in the noise table, from the worker's x and
// y (its second and third arguments) and the low 32 bits of the destination's
// address.
// Unsigned 32-bit arithmetic, wrapping.
inline uint32_t ditherStart(int32_t x, int32_t y, const void* destination) {
  auto scramble = [](uint32_t v) { return (v * 1103515245u + 12345u) >> 3; };
  const uint32_t s1 = scramble(static_cast<uint32_t>(y));
  const uint32_t s2 = scramble(s1 ^ static_cast<uint32_t>(x));
  const uint32_t s3 = scramble(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(destination)) ^ s2);
  return s3 % 12281u;
}

}  // namespace tarnell::paint
