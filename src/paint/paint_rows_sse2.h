// What the painting routines share: the dither cursor over the noise table, the
// row walkers (scalar head up to the destination's 16-byte boundary, vector
// steps, scalar tail), and the per-pixel rules in scalar and vector form. The
// scalar and vector forms compute the same integers, so a pixel's result does
// not depend on where in a row it falls.
#pragma once

#include <emmintrin.h>

#include <cstdint>
#include <type_traits>

#include "host/inline.h"
#include "host/noise_table.h"
#include "paint/paint.h"

namespace tarnell::paint {


// ------------------------------------------------------------------ dither

// Walks the registered noise table from a call's start position, byte after byte
// over the whole rectangle (row after row, every pixel taking its bytes whether
// it is painted or not); byte k of the walk is the table's byte
// (start + k) mod period. The repeat of the period's start that follows it lets a
// vector step read its run in place.
class Dither {
 public:
  static constexpr uint32_t kRun = 32;  // the longest run a vector step reads

  TARNELL_INLINE Dither(int32_t x, int32_t y, const void* destination)
      : base_(g_noiseTable.base), period_(g_noiseTable.period), pos_(ditherStart(x, y, destination) % period_),
        inPlace_(period_ >= kRun && uint64_t{g_noiseTable.size} >= uint64_t{period_} + kRun) {}

  TARNELL_INLINE uint32_t next() {
    const uint32_t b = base_[pos_];
    if (++pos_ == period_) pos_ = 0;
    return b;
  }
  // The next N bytes (N <= kRun), in place or copied to scratch.
  template <uint32_t N>
  TARNELL_INLINE const uint8_t* take(uint8_t* scratch) {
    if (inPlace_) {
      const uint8_t* p = base_ + pos_;
      pos_ += N;
      if (pos_ >= period_) pos_ -= period_;
      return p;
    }
    for (uint32_t k = 0; k < N; ++k) scratch[k] = static_cast<uint8_t>(next());
    return scratch;
  }

 private:
  const uint8_t* base_;
  uint32_t period_;
  uint32_t pos_;
  bool inPlace_;
};

// ------------------------------------------------------------------ scalar rules

// (r + ((t + (t >> 16) + 128) >> 8)) >> 8 with t = 257 p: p / 255 with its last
// rounding replaced by the dither byte r.
TARNELL_INLINE int ditherScale(int p, int r) {
  const int t = p * 257;
  return (((t + (t >> 16) + 128) >> 8) + r) >> 8;
}
// d moved by w toward c (w never exceeds |c - d|).
TARNELL_INLINE uint8_t toward(int d, int c, int w) { return static_cast<uint8_t>(c >= d ? d + w : d - w); }
TARNELL_INLINE int distance(int a, int b) { return a > b ? a - b : b - a; }

// Family Q's step (one dither byte) and family P's (two).
TARNELL_INLINE uint8_t stepQ(int d, int c, int m, int r) { return toward(d, c, ditherScale(m * distance(c, d), r)); }
TARNELL_INLINE uint8_t stepP(int d, int c, int m, int o, int r0, int r1) {
  return toward(d, c, ditherScale(ditherScale(m * distance(c, d), r0) * o, r1));
}

// (a b + 16384) >> 15, kept to 16 bits.
TARNELL_INLINE uint32_t mulRound15(uint32_t a, uint32_t b) { return ((a * b + 16384u) >> 15) & 0xFFFFu; }
// (c a + d (32768 - a) + 16384) >> 15 for a <= 32768, as d plus or minus the
// rounded share of |c - d| (the vector form's arithmetic).
TARNELL_INLINE uint16_t blend15(uint32_t d, uint32_t c, uint32_t a) {
  if (c >= d) return static_cast<uint16_t>(d + ((((c - d) * a + 16384u) >> 15) & 0xFFFFu));
  return static_cast<uint16_t>(d - ((((d - c) * a + 16383u) >> 15) & 0xFFFFu));
}

// ------------------------------------------------------------------ vectors

TARNELL_INLINE __m128i loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
TARNELL_INLINE __m128i loada(const void* p) { return _mm_load_si128(static_cast<const __m128i*>(p)); }
TARNELL_INLINE void storeu(void* p, __m128i x) { _mm_storeu_si128(static_cast<__m128i*>(p), x); }
TARNELL_INLINE void storea(void* p, __m128i x) { _mm_store_si128(static_cast<__m128i*>(p), x); }
TARNELL_INLINE __m128i words(int v) { return _mm_set1_epi16(static_cast<short>(v)); }
TARNELL_INLINE __m128i bytes(int v) { return _mm_set1_epi8(static_cast<char>(v)); }
TARNELL_INLINE __m128i select(__m128i where, __m128i yes, __m128i no) {
  return _mm_or_si128(_mm_and_si128(where, yes), _mm_andnot_si128(where, no));
}
TARNELL_INLINE bool allZero(__m128i x) { return _mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128())) == 0xFFFF; }
TARNELL_INLINE __m128i lo16(__m128i x) { return _mm_unpacklo_epi8(x, _mm_setzero_si128()); }
TARNELL_INLINE __m128i hi16(__m128i x) { return _mm_unpackhi_epi8(x, _mm_setzero_si128()); }

// ditherScale on 16-bit lanes (p <= 65025, r <= 255). (257 p) >> 16 is one high
// multiply, and (257 p + h + 128) >> 8 is p + ((p + h + 128) >> 8), whose terms
// stay below 2^16; so does the sum with r (at most 65535).
TARNELL_INLINE __m128i ditherScaleV(__m128i p, __m128i r) {
  const __m128i h = _mm_mulhi_epu16(p, words(257));
  const __m128i t1 = _mm_add_epi16(p, _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(p, h), words(128)), 8));
  return _mm_srli_epi16(_mm_add_epi16(t1, r), 8);
}

// The distance of d from c split by direction; exactly one of up and down is
// non-zero where c != d.
struct Apart {
  __m128i up, down, distance;
};
TARNELL_INLINE Apart apart8(__m128i d, __m128i c) {
  const __m128i up = _mm_subs_epu8(c, d), down = _mm_subs_epu8(d, c);
  return {up, down, _mm_or_si128(up, down)};
}
// d moved by w toward c: w never exceeds the distance, so the saturating add
// and subtract of min(w, up) and min(w, down) are exact.
TARNELL_INLINE __m128i towardV(__m128i d, const Apart& a, __m128i w) {
  return _mm_subs_epu8(_mm_adds_epu8(d, _mm_min_epu8(w, a.up)), _mm_min_epu8(w, a.down));
}

// Family Q's step on 16 pixels, one dither byte each (n[0..15]).
TARNELL_INLINE __m128i stepQV(__m128i d, __m128i c, __m128i m, const uint8_t* n) {
  const Apart a = apart8(d, c);
  const __m128i r = loadu(n);
  const __m128i lo = ditherScaleV(_mm_mullo_epi16(lo16(a.distance), lo16(m)), lo16(r));
  const __m128i hi = ditherScaleV(_mm_mullo_epi16(hi16(a.distance), hi16(m)), hi16(r));
  return towardV(d, a, _mm_packus_epi16(lo, hi));
}

// Family P's step on 16 pixels, two dither bytes each (n[0..31]): read as 16-bit
// words, a pixel's first byte is its word's low half. o holds the opacity in
// 16-bit lanes.
TARNELL_INLINE __m128i stepPHalf(__m128i distance, __m128i m, __m128i o, __m128i n) {
  const __m128i k = ditherScaleV(_mm_mullo_epi16(distance, m), _mm_and_si128(n, words(255)));
  return ditherScaleV(_mm_mullo_epi16(k, o), _mm_srli_epi16(n, 8));
}
TARNELL_INLINE __m128i stepPV(__m128i d, __m128i c, __m128i m, __m128i o, const uint8_t* n) {
  const Apart a = apart8(d, c);
  const __m128i lo = stepPHalf(lo16(a.distance), lo16(m), o, loadu(n));
  const __m128i hi = stepPHalf(hi16(a.distance), hi16(m), o, loadu(n + 16));
  return towardV(d, a, _mm_packus_epi16(lo, hi));
}

// mulRound15 on 16-bit lanes: 2 h + ((l + 16384) >> 15) for the product's high
// and low halves h and l, the last term as an average (which keeps its 17th bit).
TARNELL_INLINE __m128i mulRound15V(__m128i a, __m128i b) {
  const __m128i h = _mm_mulhi_epu16(a, b), l = _mm_mullo_epi16(a, b);
  return _mm_add_epi16(_mm_add_epi16(h, h), _mm_srli_epi16(_mm_avg_epu16(l, words(16383)), 14));
}
// blend15 on 16-bit lanes; the rounding term is 16384 toward a larger c, 16383
// toward a smaller one.
TARNELL_INLINE __m128i blend15V(__m128i d, __m128i c, __m128i a) {
  const __m128i up = _mm_subs_epu16(c, d), down = _mm_subs_epu16(d, c);
  const __m128i distance = _mm_or_si128(up, down);
  const __m128i rising = _mm_cmpeq_epi16(down, _mm_setzero_si128());
  const __m128i h = _mm_mulhi_epu16(distance, a), l = _mm_mullo_epi16(distance, a);
  const __m128i q = _mm_add_epi16(_mm_add_epi16(h, h),
                                  _mm_srli_epi16(_mm_avg_epu16(l, _mm_sub_epi16(words(16382), rising)), 14));
  return _mm_sub_epi16(_mm_add_epi16(d, _mm_and_si128(rising, q)), _mm_andnot_si128(rising, q));
}

// ------------------------------------------------------------------ rows

// Row r of a plane whose first row starts at first: 8-bit planes step by the
// stride, 16-bit planes by the stride rounded down to an even number of bytes.
template <class T>
TARNELL_INLINE T* rowOf(T* first, int32_t stride, int32_t r) {
  const int64_t step = sizeof(T) == 1 ? stride : stride - (stride & 1);
  using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(first) + static_cast<intptr_t>(step * r));
}

// One row of 8-bit samples: scalar(i) for the head up to the destination's
// 16-byte boundary and for the tail, vector(i) for 16 samples from i with d + i
// aligned.
template <class Scalar, class Vector>
TARNELL_INLINE void row8(const uint8_t* d, int32_t columns, Scalar scalar, Vector vector) {
  const auto misalign = static_cast<int32_t>(reinterpret_cast<uintptr_t>(d) & 15);
  int32_t head = misalign == 0 ? 0 : 16 - misalign;
  if (head > columns) head = columns;
  int32_t i = 0;
  for (; i < head; ++i) scalar(i);
  for (; i + 16 <= columns; i += 16) vector(i);
  for (; i < columns; ++i) scalar(i);
}

// One row of 16-bit samples, 8 a vector step (unaligned accesses: a plane at an
// odd address never reaches a boundary, so its head is empty).
template <class Scalar, class Vector>
TARNELL_INLINE void row16(const uint16_t* d, int32_t columns, Scalar scalar, Vector vector) {
  const auto misalign = static_cast<int32_t>(reinterpret_cast<uintptr_t>(d) & 15);
  int32_t head = misalign == 0 || (misalign & 1) != 0 ? 0 : (16 - misalign) / 2;
  if (head > columns) head = columns;
  int32_t i = 0;
  for (; i < head; ++i) scalar(i);
  for (; i + 8 <= columns; i += 8) vector(i);
  for (; i < columns; ++i) scalar(i);
}

// Reads and writes of 16-bit samples at any byte address.
TARNELL_INLINE uint32_t get16(const uint16_t* p) {
  uint16_t v;
  __builtin_memcpy(&v, p, 2);
  return v;
}
TARNELL_INLINE void put16(uint16_t* p, uint32_t v) {
  const auto w = static_cast<uint16_t>(v);
  __builtin_memcpy(p, &w, 2);
}

// The mask plane of the record, and a source channel's first sample.
template <class T>
TARNELL_INLINE const T* maskOf(const PaintRecord* record) {
  return static_cast<const T*>(record->mask);
}
template <class T>
TARNELL_INLINE const T* sourceOf(const PaintRecord* record, int32_t channel) {
  return static_cast<const T*>(record->source[channel]);
}

// Calls body(destination row, mask row, r) for every row.
template <class T, class M, class Body>
TARNELL_INLINE void eachRow(T* plane, int32_t rows, int32_t stride, const M* mask, int32_t maskStride, Body body) {
  for (int32_t r = 0; r < rows; ++r) body(rowOf(plane, stride, r), rowOf(mask, maskStride, r), r);
}

// ------------------------------------------------------------------ workers

// The value painted at a pixel: one colour, or a source channel's samples.
struct Constant8 {
  int value;
  __m128i v;
  explicit Constant8(uint8_t c) : value(c), v(bytes(c)) {}
  TARNELL_INLINE const Constant8& row(int32_t) const { return *this; }
  TARNELL_INLINE int at(int32_t) const { return value; }
  TARNELL_INLINE __m128i vec(int32_t) const { return v; }
};
struct Source8 {
  const uint8_t* s;
  int32_t stride;
  TARNELL_INLINE Source8 row(int32_t r) const { return {rowOf(s, stride, r), stride}; }
  TARNELL_INLINE int at(int32_t i) const { return s[i]; }
  TARNELL_INLINE __m128i vec(int32_t i) const { return loadu(s + i); }
};
struct Constant16 {
  uint32_t value;
  __m128i v;
  explicit Constant16(uint16_t c) : value(c), v(words(c)) {}
  TARNELL_INLINE const Constant16& row(int32_t) const { return *this; }
  TARNELL_INLINE uint32_t at(int32_t) const { return value; }
  TARNELL_INLINE __m128i vec(int32_t) const { return v; }
};
struct Source16 {
  const uint16_t* s;
  int32_t stride;
  TARNELL_INLINE Source16 row(int32_t r) const { return {rowOf(s, stride, r), stride}; }
  TARNELL_INLINE uint32_t at(int32_t i) const { return get16(s + i); }
  TARNELL_INLINE __m128i vec(int32_t i) const { return loadu(s + i); }
};

// An 8-bit dithered worker: N dither bytes per pixel; pixel(d, c, m, r0, r1) and
// step(d, c, m, noise) give the new samples. Pixels with a zero mask are never
// written (a vector step whose mask is all zero stores nothing; elsewhere such a
// pixel's rule leaves it as it was).
template <int N, class Colour, class Pixel, class Step>
TARNELL_INLINE void dab8(uint8_t* plane, int32_t x, int32_t y, int32_t rows, int32_t columns, int32_t stride,
                       const PaintRecord* record, const Colour& colour, Pixel pixel, Step step) {
  if (rows < 1 || columns < 1) return;
  Dither dither(x, y, plane);
  alignas(16) uint8_t scratch[Dither::kRun];
  eachRow(plane, rows, stride, maskOf<uint8_t>(record), record->maskStride,
          [&](uint8_t* d, const uint8_t* m, int32_t r) {
            const auto c = colour.row(r);
            row8(
                d, columns,
                [&](int32_t i) {
                  const uint32_t r0 = dither.next();
                  const uint32_t r1 = N == 2 ? dither.next() : 0;
                  if (m[i] != 0) d[i] = pixel(d[i], c.at(i), m[i], r0, r1);
                },
                [&](int32_t i) {
                  const uint8_t* n = dither.template take<16 * N>(scratch);
                  const __m128i mv = loadu(m + i);
                  if (!allZero(mv)) storea(d + i, step(loada(d + i), c.vec(i), mv, n));
                });
          });
}

// A 16-bit blending worker: where the mask value m is not zero,
// d := blend15(d, c, alpha(m)).
template <class Colour, class Alpha, class AlphaV>
TARNELL_INLINE void dab16(uint16_t* plane, int32_t rows, int32_t columns, int32_t stride, const PaintRecord* record,
                        const Colour& colour, Alpha alpha, AlphaV alphaV) {
  if (rows < 1 || columns < 1) return;
  eachRow(plane, rows, stride, maskOf<uint16_t>(record), record->maskStride,
          [&](uint16_t* d, const uint16_t* m, int32_t r) {
            const auto c = colour.row(r);
            row16(
                d, columns,
                [&](int32_t i) {
                  const uint32_t mi = get16(m + i);
                  if (mi != 0) put16(d + i, blend15(get16(d + i), c.at(i), alpha(mi)));
                },
                [&](int32_t i) {
                  const __m128i mv = loadu(m + i);
                  if (!allZero(mv)) storeu(d + i, blend15V(loadu(d + i), c.vec(i), alphaV(mv)));
                });
          });
}

// Family R's walk (and slot 9's): where the mask reaches the threshold t (the
// low byte of the argument), put(d) is written; put16(d, hit, all) gives a vector
// step's 16 samples when at least one mask byte reaches it (hit: those bytes; all:
// every one does). Steps where none does store nothing.
template <class Put, class PutV>
TARNELL_INLINE void threshold8(uint8_t* plane, int32_t threshold, int32_t rows, int32_t columns, int32_t stride,
                             const PaintRecord* record, Put put, PutV putV) {
  if (rows < 1 || columns < 1) return;
  const auto t = static_cast<uint8_t>(threshold);
  const __m128i tv = bytes(t);
  eachRow(plane, rows, stride, maskOf<uint8_t>(record), record->maskStride,
          [&](uint8_t* d, const uint8_t* m, int32_t) {
            row8(
                d, columns, [&](int32_t i) { if (m[i] >= t) d[i] = put(d[i]); },
                [&](int32_t i) {
                  const __m128i mv = loadu(m + i);
                  const __m128i hit = _mm_cmpeq_epi8(_mm_max_epu8(mv, tv), mv);
                  const int bits = _mm_movemask_epi8(hit);
                  if (bits != 0) storea(d + i, putV(d + i, hit, bits == 0xFFFF));
                });
          });
}

// The rules of the four dithered 8-bit families, by the number of dither bytes.
TARNELL_INLINE auto pixelQ() {
  return [](int d, int c, int m, uint32_t r0, uint32_t) { return stepQ(d, c, m, static_cast<int>(r0)); };
}
TARNELL_INLINE auto vectorQ() {
  return [](__m128i d, __m128i c, __m128i m, const uint8_t* n) { return stepQV(d, c, m, n); };
}
TARNELL_INLINE auto pixelP(int o) {
  return [o](int d, int c, int m, uint32_t r0, uint32_t r1) {
    return stepP(d, c, m, o, static_cast<int>(r0), static_cast<int>(r1));
  };
}
TARNELL_INLINE auto vectorP(int o) {
  const __m128i ov = words(o);
  return [ov](__m128i d, __m128i c, __m128i m, const uint8_t* n) { return stepPV(d, c, m, ov, n); };
}
// 16-bit alphas: the mask itself (Q, S), or mask times opacity (P, T).
TARNELL_INLINE auto alphaMask() {
  return [](uint32_t m) { return m; };
}
TARNELL_INLINE auto alphaMaskV() {
  return [](__m128i m) { return m; };
}
TARNELL_INLINE auto alphaTimes(uint32_t o) {
  return [o](uint32_t m) { return mulRound15(m, o); };
}
TARNELL_INLINE auto alphaTimesV(uint32_t o) {
  const __m128i ov = words(static_cast<int>(o));
  return [ov](__m128i m) { return mulRound15V(m, ov); };
}

}  // namespace tarnell::paint
