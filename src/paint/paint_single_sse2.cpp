// The single paint entries: raise-only painting (5, 81), the raise-only
// threshold fill (9), and the two-row moves inside the record's buffer (18, 92).
#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {

namespace {

// Family Q's step where the colour is above the sample; elsewhere w is 0.
TARNELL_INLINE __m128i raiseQV(__m128i d, __m128i c, __m128i m, const uint8_t* n) {
  const __m128i up = _mm_subs_epu8(c, d);
  const __m128i r = loadu(n);
  const __m128i lo = ditherScaleV(_mm_mullo_epi16(lo16(up), lo16(m)), lo16(r));
  const __m128i hi = ditherScaleV(_mm_mullo_epi16(hi16(up), hi16(m)), hi16(r));
  return _mm_adds_epu8(d, _mm_packus_epi16(lo, hi));
}

// Row n of the record's buffer at the call's offset.
template <class T>
TARNELL_INLINE T* bufferRow(const PaintRecord* record, int32_t n, int32_t offset) {
  return rowOf(static_cast<T*>(record->buffer), record->bufferStride, n) + offset;
}

}  // namespace

void PaintSingle5(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
                  uint32_t colour, const PaintRecord* record) {
  dab8<1>(
      plane, x, y, rows, columns, stride, record, Constant8(static_cast<uint8_t>(colour)),
      [](int d, int c, int m, uint32_t r0, uint32_t) {
        return c > d ? stepQ(d, c, m, static_cast<int>(r0)) : static_cast<uint8_t>(d);
      },
      [](__m128i d, __m128i c, __m128i m, const uint8_t* n) { return raiseQV(d, c, m, n); });
}

void PaintSingle81(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
                   uint32_t colour, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const uint32_t c = colour & 0xFFFFu;
  const __m128i cv = words(static_cast<int>(c));
  eachRow(plane, rows, stride, maskOf<uint16_t>(record), record->maskStride,
          [&](uint16_t* d, const uint16_t* m, int32_t) {
            row16(
                d, columns,
                [&](int32_t i) {
                  const uint32_t mi = get16(m + i), di = get16(d + i);
                  if (mi != 0 && c > di) put16(d + i, di + mulRound15(mi, c - di));
                },
                [&](int32_t i) {
                  const __m128i mv = loadu(m + i);
                  if (allZero(mv)) return;
                  const __m128i dv = loadu(d + i);
                  storeu(d + i, _mm_add_epi16(dv, mulRound15V(mv, _mm_subs_epu16(cv, dv))));
                });
          });
}

void PaintSingle9(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
                  uint32_t colourArg, const PaintRecord* record) {
  const auto colour = static_cast<uint8_t>(colourArg);
  const __m128i cv = bytes(colour);
  threshold8(
      plane, threshold, rows, columns, stride, record, [&](uint8_t d) { return d < colour ? colour : d; },
      [&](const uint8_t* d, __m128i hit, bool) {
        const __m128i dv = loada(d);
        return select(hit, _mm_max_epu8(dv, cv), dv);
      });
}

// The dither starts from (offset, offset2) and the first sample written.
void PaintSingle18(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t offset2, int32_t width,
                   int32_t weight, const PaintRecord* record) {
  const int w = weight & 0xFF;
  if (w == 0 || w == 255 || count < 1 || width < 1) return;
  Dither dither(offset, offset2, bufferRow<uint8_t>(record, xRow, offset));
  alignas(16) uint8_t scratch[Dither::kRun];
  const __m128i wv = bytes(w);
  for (int32_t i = 0; i < count; ++i) {
    uint8_t* x = bufferRow<uint8_t>(record, xRow + i, offset);
    const uint8_t* y = bufferRow<const uint8_t>(record, yRow + i, offset);
    row8(
        x, width, [&](int32_t j) { x[j] = stepQ(x[j], y[j], w, static_cast<int>(dither.next())); },
        [&](int32_t j) { storea(x + j, stepQV(loada(x + j), loadu(y + j), wv, dither.take<16>(scratch))); });
  }
}

void PaintSingle92(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t, int32_t width, int32_t weight,
                   const PaintRecord* record) {
  const uint32_t w = static_cast<uint32_t>(weight) & 0xFFu;
  if (w == 0 || w == 255 || count < 1 || width < 1) return;
  const __m128i wv = words(static_cast<int>(w));
  // floor(v / 255) for v below 2^16 is (v * 0x8081) >> 23: a high multiply and a
  // shift. The product |y - x| w reaches 2^24, so it is split: with
  // |y - x| = 255 a + b, (|y - x| w + 127) / 255 = a w + (b w + 127) / 255.
  const __m128i k8081 = words(0x8081);
  for (int32_t i = 0; i < count; ++i) {
    uint16_t* x = bufferRow<uint16_t>(record, xRow + i, offset);
    const uint16_t* y = bufferRow<const uint16_t>(record, yRow + i, offset);
    row16(
        x, width,
        [&](int32_t j) {
          const uint32_t xv = get16(x + j), yv = get16(y + j);
          const uint32_t q = ((yv > xv ? yv - xv : xv - yv) * w + 127u) / 255u;
          put16(x + j, yv >= xv ? xv + q : xv - q);
        },
        [&](int32_t j) {
          const __m128i xv = loadu(x + j), yv = loadu(y + j);
          const __m128i down = _mm_subs_epu16(xv, yv);
          const __m128i distance = _mm_or_si128(_mm_subs_epu16(yv, xv), down);
          const __m128i a = _mm_srli_epi16(_mm_mulhi_epu16(distance, k8081), 7);
          const __m128i b = _mm_sub_epi16(distance, _mm_mullo_epi16(a, words(255)));
          const __m128i rest = _mm_add_epi16(_mm_mullo_epi16(b, wv), words(127));
          const __m128i q = _mm_add_epi16(_mm_mullo_epi16(a, wv), _mm_srli_epi16(_mm_mulhi_epu16(rest, k8081), 7));
          const __m128i rising = _mm_cmpeq_epi16(down, _mm_setzero_si128());
          storeu(x + j, _mm_sub_epi16(_mm_add_epi16(xv, _mm_and_si128(rising, q)), _mm_andnot_si128(rising, q)));
        });
  }
}

}  // namespace tarnell::paint
