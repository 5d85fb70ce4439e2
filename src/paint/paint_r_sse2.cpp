// Family R: a hard-edged fill. Wherever the mask reaches the threshold (the low
// byte of the worker's second argument, or its low 16 bits for 16-bit painting)
// the sample becomes the colour; nothing is blended or dithered. A vector step
// whose mask is all below the threshold writes nothing.
#include "paint/paint_rows.h"

namespace tarnell::paint {

void PaintR8(uint8_t* plane, int32_t threshold, int32_t, int32_t rows, int32_t columns, int32_t stride, uint8_t colour,
             const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const auto t = static_cast<uint8_t>(threshold);
  const __m128i tv = bytes(t), cv = bytes(colour);
  eachRow(plane, rows, stride, maskOf<uint8_t>(record), record->maskStride,
          [&](uint8_t* d, const uint8_t* m, int32_t) {
            row8(
                d, columns, [&](int32_t i) { if (m[i] >= t) d[i] = colour; },
                [&](int32_t i) {
                  const __m128i mv = loadu(m + i);
                  const __m128i hit = _mm_cmpeq_epi8(_mm_max_epu8(mv, tv), mv);
                  const int bits = _mm_movemask_epi8(hit);
                  if (bits == 0xFFFF) {
                    storea(d + i, cv);
                  } else if (bits != 0) {
                    storea(d + i, select(hit, cv, loada(d + i)));
                  }
                });
          });
}

void PaintR8x3(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, int32_t threshold, int32_t y, int32_t rows,
               int32_t columns, int32_t stride, uint8_t colour0, uint8_t colour1, uint8_t colour2,
               const PaintRecord* record) {
  PaintR8(plane0, threshold, y, rows, columns, stride, colour0, record);
  PaintR8(plane1, threshold, y, rows, columns, stride, colour1, record);
  PaintR8(plane2, threshold, y, rows, columns, stride, colour2, record);
}

void PaintR8x4(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, uint8_t* plane3, int32_t threshold, int32_t y,
               int32_t rows, int32_t columns, int32_t stride, uint8_t colour0, uint8_t colour1, uint8_t colour2,
               uint8_t colour3, const PaintRecord* record) {
  PaintR8x3(plane0, plane1, plane2, threshold, y, rows, columns, stride, colour0, colour1, colour2, record);
  PaintR8(plane3, threshold, y, rows, columns, stride, colour3, record);
}

void PaintR16(uint16_t* plane, int32_t threshold, int32_t, int32_t rows, int32_t columns, int32_t stride,
              uint16_t colour, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
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

void PaintR16x3(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, int32_t threshold, int32_t y, int32_t rows,
                int32_t columns, int32_t stride, uint16_t colour0, uint16_t colour1, uint16_t colour2,
                const PaintRecord* record) {
  PaintR16(plane0, threshold, y, rows, columns, stride, colour0, record);
  PaintR16(plane1, threshold, y, rows, columns, stride, colour1, record);
  PaintR16(plane2, threshold, y, rows, columns, stride, colour2, record);
}

void PaintR16x4(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, uint16_t* plane3, int32_t threshold, int32_t y,
                int32_t rows, int32_t columns, int32_t stride, uint16_t colour0, uint16_t colour1, uint16_t colour2,
                uint16_t colour3, const PaintRecord* record) {
  PaintR16x3(plane0, plane1, plane2, threshold, y, rows, columns, stride, colour0, colour1, colour2, record);
  PaintR16(plane3, threshold, y, rows, columns, stride, colour3, record);
}

}  // namespace tarnell::paint
