// The vectorised 16-bit plane operations of the blending suite.
//
// Samples run 0..32768 (32768 is full) and every product is P(a, b) = (a b + 16384)
// >> 15, so no tables are needed. Each row is walked like the 8-bit rows, counted in
// samples: a scalar head until the destination is 16-byte aligned, eight samples a
// vector step with aligned loads and stores on the destination only, and a scalar
// tail with the same arithmetic. A product of two 16-bit lanes is formed from the
// low and high halves of the 16-bit multiply interleaved into 32-bit lanes; the
// 32-bit result is rounded, offset by -32768, packed with signed saturation and
// has its top bit flipped back, which is exact for every result 0..65535.
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

namespace tarnell::blend16 {

namespace {

#if defined(__GNUC__)
#define BLEND16_INLINE inline __attribute__((always_inline))
#else
#define BLEND16_INLINE inline
#endif

using Byte = unsigned char;
constexpr uint32_t kFull = 32768;

// ------------------------------------------------------------------ scalar

BLEND16_INLINE uint32_t get(const Byte* row, int32_t i) {
  uint16_t v;
  std::memcpy(&v, row + 2 * static_cast<intptr_t>(i), 2);
  return v;
}
BLEND16_INLINE void set(Byte* row, int32_t i, uint32_t v) {
  const auto w = static_cast<uint16_t>(v);
  std::memcpy(row + 2 * static_cast<intptr_t>(i), &w, 2);
}
BLEND16_INLINE uint32_t p16(uint32_t a, uint32_t b) { return (a * b + 16384) >> 15; }

// ------------------------------------------------------------------ vector

struct Vectors {
  __m128i zero, full, bias;
  BLEND16_INLINE Vectors()
      : zero(load(kVecZero)), full(load(kVecWords8000)),
        // The rounding bias with the narrowing's offset folded in: (x + 16384 -
        // 2^30) >> 15, shifted arithmetically, is ((x + 16384) >> 15) - 32768.
        bias(_mm_sub_epi32(load(kVecDwords4000), _mm_slli_epi32(load(kVecDwords8000), 15))) {}
  static BLEND16_INLINE __m128i load(ConstantVectorIndex i) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(g_constantVectors[i].bytes));
  }
};

// Unsigned 32-bit products of eight 16-bit lane pairs: samples 0..3 and 4..7.
struct Wide {
  __m128i lo, hi;
};
BLEND16_INLINE Wide mulWide(__m128i a, __m128i b) {
  const __m128i l = _mm_mullo_epi16(a, b), h = _mm_mulhi_epu16(a, b);
  return {_mm_unpacklo_epi16(l, h), _mm_unpackhi_epi16(l, h)};
}

// ((x + 16384) >> 15) - 32768 per lane, packed with signed saturation.
BLEND16_INLINE __m128i narrowOffset(Wide x, __m128i bias) {
  return _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(x.lo, bias), 15), _mm_srai_epi32(_mm_add_epi32(x.hi, bias), 15));
}
// (x + 16384) >> 15: the offset form with its top bit flipped.
BLEND16_INLINE __m128i narrow(const Vectors& v, Wide x) { return _mm_xor_si128(narrowOffset(x, v.bias), v.full); }
// 32768 - ((x + 16384) >> 15): for r = y + 32768 that is -y, so the flip is not needed.
BLEND16_INLINE __m128i narrowComplement(const Vectors& v, Wide x) {
  return _mm_sub_epi16(v.zero, narrowOffset(x, v.bias));
}

// 32768 - x per lane (x in 0..32768).
BLEND16_INLINE __m128i complement(const Vectors& v, __m128i x) { return _mm_sub_epi16(v.full, x); }

// The mix d' = (x w + (32768 - w) d + 16384) >> 15, the sum formed once in 32 bits
// (it is at most 2^30) and rounded once.
BLEND16_INLINE __m128i mix(const Vectors& v, __m128i x, __m128i w, __m128i d) {
  const Wide p = mulWide(x, w), q = mulWide(complement(v, w), d);
  return narrow(v, Wide{_mm_add_epi32(p.lo, q.lo), _mm_add_epi32(p.hi, q.hi)});
}

BLEND16_INLINE const __m128i* at(const Byte* row, int32_t i) {
  return reinterpret_cast<const __m128i*>(row + 2 * static_cast<intptr_t>(i));
}
BLEND16_INLINE __m128i* at(Byte* row, int32_t i) { return reinterpret_cast<__m128i*>(row + 2 * static_cast<intptr_t>(i)); }
BLEND16_INLINE __m128i loadu(const Byte* row, int32_t i) { return _mm_loadu_si128(at(row, i)); }
// The destination (or alignment reference) row: aligned on the aligned path.
template <bool Aligned>
BLEND16_INLINE __m128i loadd(const Byte* row, int32_t i, std::bool_constant<Aligned>) {
  return Aligned ? _mm_load_si128(at(row, i)) : _mm_loadu_si128(at(row, i));
}

// ------------------------------------------------------------------ rows

enum class Store { Cached, Stream };

// One row: scalar head up to the destination's 16-byte boundary, eight-sample
// vector steps, scalar tail. scalar(i) handles sample i; vector(i, aligned)
// returns the eight destination samples from i, aligned telling whether the
// destination at i is 16-byte aligned.
template <Store S, class Scalar, class Vector>
BLEND16_INLINE void row(Byte* destination, int32_t columns, Scalar scalar, Vector vector) {
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
    // Two steps a turn: the loop's own bookkeeping is a fair share of a step.
    for (; i + 16 <= end; i += 16) {
      step(i);
      step(i + 8);
    }
    if (i < end) step(i), i += 8;
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
BLEND16_INLINE Plane<Byte> plane(uint16_t* first, int32_t stride) {
  return {reinterpret_cast<Byte*>(first), static_cast<intptr_t>(stride >> 1) * 2};
}
BLEND16_INLINE Plane<const Byte> plane(const uint16_t* first, int32_t stride) {
  return {reinterpret_cast<const Byte*>(first), static_cast<intptr_t>(stride >> 1) * 2};
}

// Calls body with every plane's row, rows times, each plane advancing by its step.
template <class Body, class... B>
BLEND16_INLINE void eachRow(int32_t rows, Body body, Plane<B>... planes) {
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
          return CR ? narrowComplement(v, mulWide(x, y)) : narrow(v, mulWide(x, y));
        });
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
          const __m128i x = MultiplyFirst ? narrow(v, mulWide(loadu(s, i), dv)) : loadu(s, i);
          return mix(v, x, loadu(m, i), dv);
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

}  // namespace

// ---------------------------------------------------------------- routines

void ScaleByConstant16(uint16_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  if (rows < 1 || columns < 1) return;
  // Any k is taken as it is: with samples in 0..32768 the result stays within 16 bits.
  const Vectors v;
  const __m128i kv = _mm_set1_epi16(static_cast<short>(k));
  eachRow(rows, [&](Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { set(d, i, p16(get(d, i), k)); },
                       [&](int32_t i, auto aligned) { return narrow(v, mulWide(loadd(d, i, aligned), kv)); });
  }, plane(destination, destinationStride));
}

void MultiplySource16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                      int32_t sourceStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const Byte* s, Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { set(d, i, p16(get(s, i), get(d, i))); },
                       [&](int32_t i, auto aligned) { return narrow(v, mulWide(loadu(s, i), loadd(d, i, aligned))); });
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
                       });
  }, plane(mask, maskStride), plane(destination, destinationStride));
}

void SubtractCoverage16(uint16_t* a, uint16_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  // With b' = P(32768 - a, b) in every case (a full gives 0, b = 0 gives 0), A
  // becomes full exactly where it was full or a non-zero b was covered away, and
  // empty everywhere else. B is the alignment reference; A is stored unaligned.
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
          const __m128i covered = narrow(v, mulWide(complement(v, av), bv));
          const __m128i emptied = _mm_andnot_si128(_mm_cmpeq_epi16(bv, v.zero), _mm_cmpeq_epi16(covered, v.zero));
          const __m128i full = _mm_or_si128(_mm_cmpeq_epi16(av, v.full), emptied);
          _mm_storeu_si128(at(pa, i), _mm_and_si128(full, v.full));
          return covered;
        });
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
          const __m128i p = narrow(v, mulWide(lo, hi));
          return _mm_sub_epi16(lo, narrow(v, mulWide(_mm_sub_epi16(hi, lo), _mm_sub_epi16(lo, p))));
        });
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
  // Non-temporal stores are weakly ordered: make them visible before returning.
  _mm_sfence();
}

}  // namespace tarnell::blend16
