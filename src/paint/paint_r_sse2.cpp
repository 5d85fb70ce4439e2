// Family R: a hard-edged fill. Wherever the mask reaches the threshold (the low
// byte of the worker's second argument, or its low 16 bits for 16-bit painting)
// the sample becomes the colour (its low byte, or low 16 bits); nothing is
// blended or dithered. A vector step
// whose mask is all below the threshold writes nothing.
#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {

void PaintR8(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colourArg, const PaintRecord* record) {
  const auto colour = static_cast<uint8_t>(colourArg);
  const __m128i cv = bytes(colour);
  threshold8(
      plane, threshold, rows, columns, stride, record, [&](uint8_t) { return colour; },
      [&](const uint8_t* d, __m128i hit, bool all) { return all ? cv : select(hit, cv, loada(d)); });
}

void PaintR16(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colourArg, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const auto colour = static_cast<uint16_t>(colourArg);
  const auto t = static_cast<uint16_t>(threshold);
  // Unsigned 16-bit order through the signed compare: both sides biased by 0x8000.
  const __m128i bias = words(0x8000);
  const __m128i tv = _mm_xor_si128(words(t), bias), cv = words(colour);
  eachRow(plane, rows, stride, maskOf<uint16_t>(record), record->maskStride,
          [&](uint16_t* d, const uint16_t* m, int32_t) {
            row16(
                d, columns, [&](int32_t i) { if (get16(m + i) >= t) put16(d + i, colour); },
                [&](int32_t i) {
                  const __m128i below = _mm_cmpgt_epi16(tv, _mm_xor_si128(loadu(m + i), bias));
                  const int bits = _mm_movemask_epi8(below);
                  if (bits == 0) {
                    storeu(d + i, cv);
                  } else if (bits != 0xFFFF) {
                    storeu(d + i, select(below, loadu(d + i), cv));
                  }
                });
          });
}

}  // namespace tarnell::paint
