// The vectorised 16-bit plane operations of the blending suite.
//
// Samples run 0..32768 (32768 is full) and every product is P(a, b) = (a b + 16384)
// >> 15, so no tables are needed. Each row is walked like the 8-bit rows, counted in
// samples: a scalar head until the destination is 16-byte aligned, eight samples a
// vector step with aligned loads and stores on the destination only, and a scalar
// tail with the same arithmetic.
//
// The products never leave 16-bit lanes. A product is formed from the high and low
// halves of the 16-bit multiply of a by the doubled b (2b, saturated to 65535 for
// b = 32768): the high half is (a b) >> 15 and the top bit of the low half is the
// rounding bit. The mixes x w + (32768 - w) d are 32768 d + w (x - d), one signed
// product added to d and rounded once, its high half taken apart as 2h plus the
// rounding of the low half. Each form gives the scalar formula's result for every
// input in range (see the helpers below); no unpacking, packing or 32-bit lanes.
//
// Planes may start at any byte address: samples are read and written through byte
// pointers, and a destination row at an odd address (which never reaches a 16-byte
// boundary) takes unaligned stores throughout. Strides are halved and used in
// samples, so an odd byte stride steps by the even stride below it.
#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "blend/blend16.h"
#include "host/constants.h"
#include "host/inline.h"

namespace tarnell::blend16 {

namespace {


using Byte = unsigned char;
constexpr uint32_t kFull = 32768;

// ------------------------------------------------------------------ scalar

TARNELL_INLINE uint32_t get(const Byte* row, int32_t i) {
  uint16_t v;
  std::memcpy(&v, row + 2 * static_cast<intptr_t>(i), 2);
  return v;
}
TARNELL_INLINE void set(Byte* row, int32_t i, uint32_t v) {
  const auto w = static_cast<uint16_t>(v);
  std::memcpy(row + 2 * static_cast<intptr_t>(i), &w, 2);
}
TARNELL_INLINE uint32_t p16(uint32_t a, uint32_t b) { return (a * b + 16384) >> 15; }

// ------------------------------------------------------------------ vector

struct Vectors {
  __m128i zero, full;
  TARNELL_INLINE Vectors() : zero(load(kVecZero)), full(load(kVecWords8000)) {}
  static TARNELL_INLINE __m128i load(ConstantVectorIndex i) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(g_constantVectors[i].bytes));
  }
};

// The second operand of a product, doubled: 2b for b below 32768, and 65535 (the
// saturated 65536) for b = 32768.
TARNELL_INLINE __m128i doubled(__m128i b) { return _mm_adds_epu16(b, b); }

// P(a, b) per lane from a and b2 = doubled(b), for a in 0..32768. For b below
// 32768 the product a 2b fits 32 bits, so its high half is (a b) >> 15 and bit 15
// of its low half is bit 14 of a b, the rounding bit. For b = 32768 the high half
// of a 65535 = 65536 a - a is a - 1 (a > 0) and bit 15 of its low half 65536 - a
// is set, which gives a again (and 0 for a = 0).
TARNELL_INLINE __m128i productDoubled(__m128i a, __m128i b2) {
  return _mm_add_epi16(_mm_mulhi_epu16(a, b2), _mm_srli_epi16(_mm_mullo_epi16(a, b2), 15));
}
TARNELL_INLINE __m128i product(__m128i a, __m128i b) { return productDoubled(a, doubled(b)); }

// 32768 - x per lane (x in 0..32768).
TARNELL_INLINE __m128i complement(const Vectors& v, __m128i x) { return _mm_sub_epi16(v.full, x); }

// ((y + 16384) >> 15) for y = 65536 h + l, taken apart: 2h + ((l + 16384) >> 15),
// the last term 0, 1 or 2, formed as the rounded half of l >> 14.
TARNELL_INLINE __m128i roundedHalves(const Vectors& v, __m128i h, __m128i l) {
  return _mm_add_epi16(_mm_add_epi16(h, h), _mm_avg_epu16(_mm_srli_epi16(l, 14), v.zero));
}

// The mix (x w + (32768 - w) d + 16384) >> 15 as one rounding of one sum: the sum is
// 32768 d + w t with t = x - d, so the result is d + ((w t + 16384) >> 15), shifted
// arithmetically. t runs -32768..32768 (17 bits), so its sign comes from comparing
// x and d, not from bit 15; the unsigned high half of w t is then corrected by
// subtracting w where t is negative.
TARNELL_INLINE __m128i mix(const Vectors& v, __m128i x, __m128i w, __m128i d) {
  const __m128i t = _mm_sub_epi16(x, d);
  const __m128i rising = _mm_cmpeq_epi16(_mm_subs_epu16(d, x), v.zero);  // t >= 0
  const __m128i h = _mm_sub_epi16(_mm_mulhi_epu16(t, w), _mm_andnot_si128(rising, w));
  return _mm_add_epi16(d, roundedHalves(v, h, _mm_mullo_epi16(t, w)));
}

// The same mix for x <= d: with u = d - x >= 0, the result is d - ((w u + 16383)
// >> 15), and the rounding term of a low half l is that of max(l - 1, 0).
TARNELL_INLINE __m128i mixDown(const Vectors& v, __m128i x, __m128i w, __m128i d) {
  const __m128i u = _mm_sub_epi16(d, x);
  const __m128i below = _mm_subs_epu16(_mm_mullo_epi16(u, w), _mm_set1_epi16(1));
  return _mm_sub_epi16(d, roundedHalves(v, _mm_mulhi_epu16(u, w), below));
}

TARNELL_INLINE const __m128i* at(const Byte* row, int32_t i) {
  return reinterpret_cast<const __m128i*>(row + 2 * static_cast<intptr_t>(i));
}
TARNELL_INLINE __m128i* at(Byte* row, int32_t i) { return reinterpret_cast<__m128i*>(row + 2 * static_cast<intptr_t>(i)); }
TARNELL_INLINE __m128i loadu(const Byte* row, int32_t i) { return _mm_loadu_si128(at(row, i)); }
// The destination (or alignment reference) row: aligned on the aligned path.
template <bool Aligned>
TARNELL_INLINE __m128i loadd(const Byte* row, int32_t i, std::bool_constant<Aligned>) {
  return Aligned ? _mm_load_si128(at(row, i)) : _mm_loadu_si128(at(row, i));
}

// ------------------------------------------------------------------ rows

enum class Store { Cached, Stream };

// How far ahead of the vector steps the rows read are prefetched. Long rows of
// several planes at once keep more streams going than the hardware prefetcher
// follows reliably (and a time-sliced thread loses its streams); in rows that sit
// in the cache the prefetch costs next to nothing.
constexpr intptr_t kAheadBytes = 1024;

// One row: scalar head up to the destination's 16-byte boundary, eight-sample
// vector steps, scalar tail. scalar(i) handles sample i; vector(i, aligned)
// returns the eight destination samples from i, aligned telling whether the
// destination at i is 16-byte aligned. The rows read are prefetched ahead.
template <Store S, class Scalar, class Vector, class... Read>
TARNELL_INLINE void row(Byte* destination, int32_t columns, Scalar scalar, Vector vector, const Read*... read) {
  const auto address = reinterpret_cast<uintptr_t>(destination);
  int32_t i = 0;
  if ((address & 1) == 0) {
    int32_t head = static_cast<int32_t>(((16 - (address & 15)) & 15) / 2);
    if (head > columns) head = columns;
    const int32_t end = columns - (columns - head) % 8;
    for (; i < head; ++i) scalar(i);
    auto step = [&](int32_t j) {
      const __m128i r = vector(j, std::true_type{});
      if constexpr (S == Store::Stream)
        _mm_stream_si128(at(destination, j), r);
      else
        _mm_store_si128(at(destination, j), r);
    };
    // Four steps (a 64-byte line of each plane) a turn: the loop's own bookkeeping
    // and the prefetches are then a small share of a step.
    for (; i + 32 <= end; i += 32) {
      (_mm_prefetch(reinterpret_cast<const char*>(read + 2 * static_cast<intptr_t>(i) + kAheadBytes), _MM_HINT_T0),
       ...);
      step(i);
      step(i + 8);
      step(i + 16);
      step(i + 24);
    }
    for (; i < end; i += 8) step(i);
  } else {
    // An odd address never reaches a boundary (and has no non-temporal store).
    for (; i + 8 <= columns; i += 8) _mm_storeu_si128(at(destination, i), vector(i, std::false_type{}));
  }
  for (; i < columns; ++i) scalar(i);
}

// A plane's current row and its step in bytes: the stride halved, in samples.
template <class B>
struct Plane {
  B* row;
  intptr_t step;
};
TARNELL_INLINE Plane<Byte> plane(uint16_t* first, int32_t stride) {
  return {reinterpret_cast<Byte*>(first), static_cast<intptr_t>(stride >> 1) * 2};
}
TARNELL_INLINE Plane<const Byte> plane(const uint16_t* first, int32_t stride) {
  return {reinterpret_cast<const Byte*>(first), static_cast<intptr_t>(stride >> 1) * 2};
}

// Calls body with every plane's row, rows times, each plane advancing by its step.
template <class Body, class... B>
TARNELL_INLINE void eachRow(int32_t rows, Body body, Plane<B>... planes) {
  for (; rows-- > 0; ((planes.row += planes.step), ...)) body(planes.row...);
}

// d' = P(a, b) on two input planes into a destination that is not read, with
// each operand and the result optionally complemented (32768 - x). The destination
// is written with non-temporal stores; the callers end with a store fence.
template <bool CA, bool CB, bool CR>
void complementMultiply(const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows, int32_t columns,
                        int32_t aStride, int32_t bStride, int32_t destinationStride) {
  const Vectors v;
  eachRow(rows, [&](const Byte* pa, const Byte* pb, Byte* d) {
    row<Store::Stream>(
        d, columns,
        [&](int32_t i) {
          const uint32_t x = CA ? kFull - get(pa, i) : get(pa, i);
          const uint32_t y = CB ? kFull - get(pb, i) : get(pb, i);
          const uint32_t r = p16(x, y);
          set(d, i, CR ? kFull - r : r);
        },
        [&](int32_t i, auto) {
          __m128i x = loadu(pa, i), y = loadu(pb, i);
          if constexpr (CA) x = complement(v, x);
          if constexpr (CB) y = complement(v, y);
          const __m128i r = product(x, y);
          return CR ? complement(v, r) : r;
        },
        pa, pb);
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
}

// The mixes form x m + (32768 - m) d as one 32-bit sum, rounded and shifted once;
// x is the source, or its product with the destination.
template <bool MultiplyFirst>
void mixThroughMask(const uint16_t* source, uint16_t* destination, const uint16_t* mask, int32_t rows, int32_t columns,
                    int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  const Vectors v;
  eachRow(rows, [&](const Byte* s, Byte* d, const Byte* m) {
    row<Store::Cached>(
        d, columns,
        [&](int32_t i) {
          const uint32_t mv = get(m, i), dv = get(d, i);
          const uint32_t x = MultiplyFirst ? p16(get(s, i), dv) : get(s, i);
          set(d, i, (x * mv + (kFull - mv) * dv + 16384) >> 15);
        },
        [&](int32_t i, auto aligned) {
          const __m128i dv = loadd(d, i, aligned);
          if constexpr (MultiplyFirst) return mixDown(v, product(loadu(s, i), dv), loadu(m, i), dv);  // P(s, d) <= d
          else return mix(v, loadu(s, i), loadu(m, i), dv);
        },
        s, d, m);
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

// d' = P(d, k) for any 16-bit k, with the doubled k in every lane. From 32768 up,
// P(d, k) = d + P(d, k - 32768), as 32768 d is a whole multiple of the divisor; the
// doubled k - 32768 then fits a lane too, and both forms are exact for any d.
template <bool FromFull>
void scale(uint16_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  const auto rest = static_cast<uint32_t>(FromFull ? k - kFull : k);
  const __m128i k2 = _mm_set1_epi16(static_cast<short>(2 * rest));
  eachRow(rows, [&](Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { set(d, i, p16(get(d, i), k)); },
                       [&](int32_t i, auto aligned) {
                         const __m128i dv = loadd(d, i, aligned), r = productDoubled(dv, k2);
                         return FromFull ? _mm_add_epi16(dv, r) : r;
                       }, d);
  }, plane(destination, destinationStride));
}

}  // namespace

// ---------------------------------------------------------------- routines

void ScaleByConstant16(uint16_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  if (rows < 1 || columns < 1) return;
  // Any k is taken as it is: with samples in 0..32768 the result stays within 16 bits.
  if (k < kFull)
    scale<false>(destination, rows, columns, destinationStride, k);
  else
    scale<true>(destination, rows, columns, destinationStride, k);
}

void MultiplySource16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                      int32_t sourceStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const Byte* s, Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { set(d, i, p16(get(s, i), get(d, i))); },
                       [&](int32_t i, auto aligned) { return product(loadu(s, i), loadd(d, i, aligned)); },
                       s, d);
  }, plane(source, sourceStride), plane(destination, destinationStride));
}

void MixSourceThroughMask16(const uint16_t* source, uint16_t* destination, const uint16_t* mask, int32_t rows,
                            int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  mixThroughMask<false>(source, destination, mask, rows, columns, sourceStride, destinationStride, maskStride);
}

void MultiplySourceThroughMask16(const uint16_t* source, uint16_t* destination, const uint16_t* mask, int32_t rows,
                                 int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                 int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  mixThroughMask<true>(source, destination, mask, rows, columns, sourceStride, destinationStride, maskStride);
}

// The destination of the "into" forms is not read, so the vector body bypasses
// the cache; the closing store fence makes those weakly ordered stores visible
// before the call returns.
void MultiplyInto16(const uint16_t* a, uint16_t* destination, const uint16_t* b, int32_t rows, int32_t columns,
                    int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  complementMultiply<false, false, false>(a, b, destination, rows, columns, aStride, bStride, destinationStride);
  _mm_sfence();
}

// 32768 - P(32768 - a, b): the complement form with a and the result complemented.
void InverseMultiplyInto16(const uint16_t* a, uint16_t* destination, const uint16_t* b, int32_t rows, int32_t columns,
                           int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  complementMultiply<true, false, true>(a, b, destination, rows, columns, aStride, bStride, destinationStride);
  _mm_sfence();
}

// One loop per flag combination, chosen once per call; any non-zero flag byte is set.
void ComplementMultiplyInto16(const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows,
                              int32_t columns, int32_t aStride, int32_t bStride, int32_t destinationStride,
                              uint8_t complementA, uint8_t complementB, uint8_t complementResult) {
  if (rows < 1 || columns < 1) return;
  using Loop = void (*)(const uint16_t*, const uint16_t*, uint16_t*, int32_t, int32_t, int32_t, int32_t, int32_t);
  static constexpr Loop kLoops[8] = {
      &complementMultiply<false, false, false>, &complementMultiply<false, false, true>,
      &complementMultiply<false, true, false>,  &complementMultiply<false, true, true>,
      &complementMultiply<true, false, false>,  &complementMultiply<true, false, true>,
      &complementMultiply<true, true, false>,   &complementMultiply<true, true, true>,
  };
  const int which = (complementA != 0 ? 4 : 0) | (complementB != 0 ? 2 : 0) | (complementResult != 0 ? 1 : 0);
  kLoops[which](a, b, destination, rows, columns, aStride, bStride, destinationStride);
  _mm_sfence();
}

void FillWhereMaskClear16(const uint16_t* mask, uint16_t* destination, int32_t rows, int32_t columns,
                          int32_t maskStride, int32_t destinationStride, uint16_t c) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i cv = _mm_set1_epi16(static_cast<short>(c));
  eachRow(rows, [&](const Byte* m, Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { if (get(m, i) == 0) set(d, i, c); },
                       [&](int32_t i, auto aligned) {
                         const __m128i clear = _mm_cmpeq_epi16(loadu(m, i), v.zero);
                         return _mm_or_si128(_mm_and_si128(clear, cv), _mm_andnot_si128(clear, loadd(d, i, aligned)));
                       }, m, d);
  }, plane(mask, maskStride), plane(destination, destinationStride));
}

void SubtractCoverage16(uint16_t* a, uint16_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  // With b' = P(32768 - a, b) in every case (a full gives 0, b = 0 gives 0), A
  // becomes full exactly where it was full or a non-zero b was covered away, and
  // empty everywhere else: where b' = 0, unless b was 0 and a not full. B is the
  // alignment reference; A is stored unaligned.
  const Vectors v;
  eachRow(rows, [&](Byte* pa, Byte* pb) {
    row<Store::Cached>(
        pb, columns,
        [&](int32_t i) {
          const uint32_t av = get(pa, i), bv = get(pb, i);
          if (av == kFull) {
            set(pb, i, 0);
          } else if (bv != 0) {
            const uint32_t covered = p16(kFull - av, bv);
            set(pb, i, covered);
            set(pa, i, covered != 0 ? 0 : kFull);
          } else {
            set(pa, i, 0);
          }
        },
        [&](int32_t i, auto aligned) {
          const __m128i av = loadu(pa, i), bv = loadd(pb, i, aligned);
          const __m128i open = complement(v, av), covered = product(open, bv);
          // Non-zero where A ends empty: what is left covered, or the opening where b was 0.
          const __m128i left = _mm_or_si128(covered, _mm_and_si128(_mm_cmpeq_epi16(bv, v.zero), open));
          _mm_storeu_si128(at(pa, i), _mm_and_si128(_mm_cmpeq_epi16(left, v.zero), v.full));
          return covered;
        },
        pa, pb);
  }, plane(a, aStride), plane(b, bStride));
}

void OrderedCombineInto16(const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows, int32_t columns,
                          int32_t aStride, int32_t bStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  // Both branches are lo - P(hi - lo, lo - P(lo, hi)) with lo and hi the smaller
  // and the larger operand, which the vector body computes directly.
  const Vectors v;
  eachRow(rows, [&](const Byte* pa, const Byte* pb, Byte* d) {
    row<Store::Stream>(
        d, columns,
        [&](int32_t i) {
          const uint32_t av = get(pa, i), bv = get(pb, i), p = p16(av, bv);
          set(d, i, av > bv ? bv - p16(av - bv, bv - p) : av - p16(bv - av, av - p));
        },
        [&](int32_t i, auto) {
          const __m128i av = loadu(pa, i), bv = loadu(pb, i);
          const __m128i above = _mm_subs_epu16(av, bv);  // a - b where a > b, else 0
          const __m128i lo = _mm_sub_epi16(av, above), hi = _mm_add_epi16(bv, above);
          const __m128i p = product(lo, hi);
          return _mm_sub_epi16(lo, product(_mm_sub_epi16(hi, lo), _mm_sub_epi16(lo, p)));
        },
        pa, pb);
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
  // Non-temporal stores are weakly ordered: make them visible before returning.
  _mm_sfence();
}

constinit const Blend16Table g_blend16Sse2 = {
    .MultiplySourceThroughMask16 = &MultiplySourceThroughMask16,
    .ScaleByConstant16 = &ScaleByConstant16,
    .MixSourceThroughMask16 = &MixSourceThroughMask16,
    .MultiplySource16 = &MultiplySource16,
    .SubtractCoverage16 = &SubtractCoverage16,
    .MultiplyInto16 = &MultiplyInto16,
    .InverseMultiplyInto16 = &InverseMultiplyInto16,
    .ComplementMultiplyInto16 = &ComplementMultiplyInto16,
    .FillWhereMaskClear16 = &FillWhereMaskClear16,
    .OrderedCombineInto16 = &OrderedCombineInto16,
};

}  // namespace tarnell::blend16
