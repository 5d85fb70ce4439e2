// The 16-bit plane operations of the blending suite, AVX2: the SSE2 bodies'
// arithmetic (blend16_sse2.cpp) on sixteen samples a step.
//
// What differs: after the same scalar head to the destination's 16-byte boundary,
// one eight-sample step (the SSE2 step, VEX-encoded) brings the destination to a
// 32-byte boundary, the body then runs sixteen samples a step (aligned 32-byte
// loads and stores on the destination, streamed where the SSE2 body streams), and
// an eight-sample step and the scalar tail finish the row. Why the bytes are the
// same: every product, mix and mask is the SSE2 body's per-lane formula, written
// once over either vector width below, and each is exact for every input in range
// (see blend16_sse2.cpp), so which step a sample falls in changes nothing. The
// closing store fences are the routines' own, as in the SSE2 file.
//
// Measured here (tarnell-host bench --tier sse2,avx2, 256x256, median of three):
// 1.7 to 2.3x on the members with cached stores and on the ordered combine, 1.3
// to 1.5x on the streamed complement forms, and level on the streamed multiply,
// whose non-temporal stores hold it at the memory's speed.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "blend/blend16.h"
#include "host/inline.h"

namespace tarnell::blend16 {
namespace wide {
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

// ------------------------------------------------- 16-bit lanes, either width

// Eight lanes (V1) or sixteen (V2), wrapped so that the formulas below can be
// written once as templates over the width.
struct V1 {
  __m128i v;
};
struct V2 {
  __m256i v;
};

#define TARNELL_LANES(NAME, NARROW, WIDE)                                    \
  TARNELL_INLINE V1 NAME(V1 a, V1 b) { return {NARROW(a.v, b.v)}; }         \
  TARNELL_INLINE V2 NAME(V2 a, V2 b) { return {WIDE(a.v, b.v)}; }
TARNELL_LANES(add16, _mm_add_epi16, _mm256_add_epi16)
TARNELL_LANES(sub16, _mm_sub_epi16, _mm256_sub_epi16)
TARNELL_LANES(addsU16, _mm_adds_epu16, _mm256_adds_epu16)
TARNELL_LANES(subsU16, _mm_subs_epu16, _mm256_subs_epu16)
TARNELL_LANES(mulhiU16, _mm_mulhi_epu16, _mm256_mulhi_epu16)
TARNELL_LANES(mullo16, _mm_mullo_epi16, _mm256_mullo_epi16)
TARNELL_LANES(avgU16, _mm_avg_epu16, _mm256_avg_epu16)
TARNELL_LANES(cmpeq16, _mm_cmpeq_epi16, _mm256_cmpeq_epi16)
TARNELL_LANES(and_, _mm_and_si128, _mm256_and_si256)
TARNELL_LANES(andnot, _mm_andnot_si128, _mm256_andnot_si256)
TARNELL_LANES(or_, _mm_or_si128, _mm256_or_si256)
#undef TARNELL_LANES
template <int N>
TARNELL_INLINE V1 srli16(V1 a) {
  return {_mm_srli_epi16(a.v, N)};
}
template <int N>
TARNELL_INLINE V2 srli16(V2 a) {
  return {_mm256_srli_epi16(a.v, N)};
}
template <class V>
TARNELL_INLINE V splat(uint32_t v) {
  if constexpr (std::is_same_v<V, V1>)
    return {_mm_set1_epi16(static_cast<short>(v))};
  else
    return {_mm256_set1_epi16(static_cast<short>(v))};
}
template <class V>
TARNELL_INLINE V zero() {
  return splat<V>(0);
}

// ------------------------------------------------- the SSE2 bodies' formulas

// 2b for b below 32768, 65535 for b = 32768.
template <class V>
TARNELL_INLINE V doubled(V b) {
  return addsU16(b, b);
}
// P(a, b) from a and the doubled b: the high half of a 2b plus the rounding bit,
// bit 15 of the low half.
template <class V>
TARNELL_INLINE V productDoubled(V a, V b2) {
  return add16(mulhiU16(a, b2), srli16<15>(mullo16(a, b2)));
}
template <class V>
TARNELL_INLINE V product(V a, V b) {
  return productDoubled(a, doubled(b));
}
template <class V>
TARNELL_INLINE V complement(V x) {
  return sub16(splat<V>(kFull), x);
}
// 2h + ((l + 16384) >> 15) of y = 65536 h + l.
template <class V>
TARNELL_INLINE V roundedHalves(V h, V l) {
  return add16(add16(h, h), avgU16(srli16<14>(l), zero<V>()));
}
// d + ((w (x - d) + 16384) >> 15), the high half corrected where x < d.
template <class V>
TARNELL_INLINE V mix(V x, V w, V d) {
  const V t = sub16(x, d);
  const V rising = cmpeq16(subsU16(d, x), zero<V>());
  const V h = sub16(mulhiU16(t, w), andnot(rising, w));
  return add16(d, roundedHalves(h, mullo16(t, w)));
}
// The same for x <= d: d - ((w (d - x) + 16383) >> 15).
template <class V>
TARNELL_INLINE V mixDown(V x, V w, V d) {
  const V u = sub16(d, x);
  const V below = subsU16(mullo16(u, w), splat<V>(1));
  return sub16(d, roundedHalves(mulhiU16(u, w), below));
}

// ------------------------------------------------------------------ rows

// A step's view of the planes: its lane type, and whether the destination (the
// alignment reference) is aligned at the step.
template <class V, bool Aligned>
struct Step {
  using Lanes = V;
  static TARNELL_INLINE V loadu(const Byte* row, int32_t i) {
    const Byte* p = row + 2 * static_cast<intptr_t>(i);
    if constexpr (std::is_same_v<V, V1>)
      return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))};
    else
      return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))};
  }
  static TARNELL_INLINE V loadd(const Byte* row, int32_t i) {
    const Byte* p = row + 2 * static_cast<intptr_t>(i);
    if constexpr (!Aligned)
      return loadu(row, i);
    else if constexpr (std::is_same_v<V, V1>)
      return {_mm_load_si128(reinterpret_cast<const __m128i*>(p))};
    else
      return {_mm256_load_si256(reinterpret_cast<const __m256i*>(p))};
  }
  static TARNELL_INLINE void storeu(Byte* row, int32_t i, V v) {
    Byte* p = row + 2 * static_cast<intptr_t>(i);
    if constexpr (std::is_same_v<V, V1>)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v.v);
    else
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v.v);
  }
};

enum class Store { Cached, Stream };

template <Store S, class V>
TARNELL_INLINE void storeAligned(Byte* row, int32_t i, V v) {
  auto* p = row + 2 * static_cast<intptr_t>(i);
  if constexpr (std::is_same_v<V, V1>) {
    if constexpr (S == Store::Stream)
      _mm_stream_si128(reinterpret_cast<__m128i*>(p), v.v);
    else
      _mm_store_si128(reinterpret_cast<__m128i*>(p), v.v);
  } else {
    if constexpr (S == Store::Stream)
      _mm256_stream_si256(reinterpret_cast<__m256i*>(p), v.v);
    else
      _mm256_store_si256(reinterpret_cast<__m256i*>(p), v.v);
  }
}

// One row: scalar head up to the destination's 16-byte boundary, an eight-sample
// step up to its 32-byte boundary, sixteen-sample steps, an eight-sample step and
// the scalar tail. scalar(i) handles sample i; vector(i, step) returns the
// destination samples from i in the step's lanes. Unlike the SSE2 rows these
// prefetch nothing: here the hardware's prefetch alone does better, in the caches
// (level) and beyond them (about 1.5x on 2048 x 2048 planes).
template <Store S, class Scalar, class Vector>
TARNELL_INLINE void row(Byte* destination, int32_t columns, Scalar scalar, Vector vector) {
  const auto address = reinterpret_cast<uintptr_t>(destination);
  int32_t i = 0;
  if ((address & 1) == 0) {
    int32_t head = static_cast<int32_t>(((16 - (address & 15)) & 15) / 2);
    if (head > columns) head = columns;
    for (; i < head; ++i) scalar(i);
    if (((address + 2 * static_cast<uintptr_t>(i)) & 16) != 0 && i + 8 <= columns) {
      storeAligned<S>(destination, i, vector(i, Step<V1, true>{}));
      i += 8;
    }
    for (; i + 16 <= columns; i += 16) storeAligned<S>(destination, i, vector(i, Step<V2, true>{}));
    if (i + 8 <= columns) {
      storeAligned<S>(destination, i, vector(i, Step<V1, true>{}));
      i += 8;
    }
  } else {
    // An odd address never reaches a boundary (and has no non-temporal store).
    for (; i + 16 <= columns; i += 16) Step<V2, false>::storeu(destination, i, vector(i, Step<V2, false>{}));
    if (i + 8 <= columns) {
      Step<V1, false>::storeu(destination, i, vector(i, Step<V1, false>{}));
      i += 8;
    }
  }
  for (; i < columns; ++i) scalar(i);
}

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

template <class Body, class... B>
TARNELL_INLINE void eachRow(int32_t rows, Body body, Plane<B>... planes) {
  for (; rows-- > 0; ((planes.row += planes.step), ...)) body(planes.row...);
}

template <bool CA, bool CB, bool CR>
void complementMultiply(const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows, int32_t columns,
                        int32_t aStride, int32_t bStride, int32_t destinationStride) {
  eachRow(rows, [&](const Byte* pa, const Byte* pb, Byte* d) {
    row<Store::Stream>(
        d, columns,
        [&](int32_t i) {
          const uint32_t x = CA ? kFull - get(pa, i) : get(pa, i);
          const uint32_t y = CB ? kFull - get(pb, i) : get(pb, i);
          const uint32_t r = p16(x, y);
          set(d, i, CR ? kFull - r : r);
        },
        [&](int32_t i, auto step) {
          auto x = step.loadu(pa, i), y = step.loadu(pb, i);
          if constexpr (CA) x = complement(x);
          if constexpr (CB) y = complement(y);
          const auto r = product(x, y);
          return CR ? complement(r) : r;
        });
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
}

template <bool MultiplyFirst>
void mixThroughMask(const uint16_t* source, uint16_t* destination, const uint16_t* mask, int32_t rows, int32_t columns,
                    int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  eachRow(rows, [&](const Byte* s, Byte* d, const Byte* m) {
    row<Store::Cached>(
        d, columns,
        [&](int32_t i) {
          const uint32_t mv = get(m, i), dv = get(d, i);
          const uint32_t x = MultiplyFirst ? p16(get(s, i), dv) : get(s, i);
          set(d, i, (x * mv + (kFull - mv) * dv + 16384) >> 15);
        },
        [&](int32_t i, auto step) {
          const auto dv = step.loadd(d, i);
          if constexpr (MultiplyFirst) return mixDown(product(step.loadu(s, i), dv), step.loadu(m, i), dv);
          else return mix(step.loadu(s, i), step.loadu(m, i), dv);
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

template <bool FromFull>
void scale(uint16_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  const auto rest = static_cast<uint32_t>(FromFull ? k - kFull : k);
  const uint32_t k2 = 2 * rest;
  eachRow(rows, [&](Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { set(d, i, p16(get(d, i), k)); },
                       [&](int32_t i, auto step) {
                         using V = typename decltype(step)::Lanes;
                         const V dv = step.loadd(d, i), r = productDoubled(dv, splat<V>(k2));
                         return FromFull ? add16(dv, r) : r;
                       });
  }, plane(destination, destinationStride));
}

// ---------------------------------------------------------------- routines

void ScaleByConstant16(uint16_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  if (rows < 1 || columns < 1) return;
  if (k < kFull)
    scale<false>(destination, rows, columns, destinationStride, k);
  else
    scale<true>(destination, rows, columns, destinationStride, k);
}

void MultiplySource16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns,
                      int32_t sourceStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, [&](const Byte* s, Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { set(d, i, p16(get(s, i), get(d, i))); },
                       [&](int32_t i, auto step) { return product(step.loadu(s, i), step.loadd(d, i)); });
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

void MultiplyInto16(const uint16_t* a, uint16_t* destination, const uint16_t* b, int32_t rows, int32_t columns,
                    int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  complementMultiply<false, false, false>(a, b, destination, rows, columns, aStride, bStride, destinationStride);
  _mm_sfence();
}

void InverseMultiplyInto16(const uint16_t* a, uint16_t* destination, const uint16_t* b, int32_t rows, int32_t columns,
                           int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  complementMultiply<true, false, true>(a, b, destination, rows, columns, aStride, bStride, destinationStride);
  _mm_sfence();
}

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
  eachRow(rows, [&](const Byte* m, Byte* d) {
    row<Store::Cached>(d, columns, [&](int32_t i) { if (get(m, i) == 0) set(d, i, c); },
                       [&](int32_t i, auto step) {
                         using V = typename decltype(step)::Lanes;
                         const V clear = cmpeq16(step.loadu(m, i), zero<V>());
                         return or_(and_(clear, splat<V>(c)), andnot(clear, step.loadd(d, i)));
                       });
  }, plane(mask, maskStride), plane(destination, destinationStride));
}

void SubtractCoverage16(uint16_t* a, uint16_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
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
        [&](int32_t i, auto step) {
          using V = typename decltype(step)::Lanes;
          const V av = step.loadu(pa, i), bv = step.loadd(pb, i);
          const V open = complement(av), covered = product(open, bv);
          const V left = or_(covered, and_(cmpeq16(bv, zero<V>()), open));
          step.storeu(pa, i, and_(cmpeq16(left, zero<V>()), splat<V>(kFull)));
          return covered;
        });
  }, plane(a, aStride), plane(b, bStride));
}

void OrderedCombineInto16(const uint16_t* a, const uint16_t* b, uint16_t* destination, int32_t rows, int32_t columns,
                          int32_t aStride, int32_t bStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, [&](const Byte* pa, const Byte* pb, Byte* d) {
    row<Store::Stream>(
        d, columns,
        [&](int32_t i) {
          const uint32_t av = get(pa, i), bv = get(pb, i), p = p16(av, bv);
          set(d, i, av > bv ? bv - p16(av - bv, bv - p) : av - p16(bv - av, av - p));
        },
        [&](int32_t i, auto step) {
          const auto av = step.loadu(pa, i), bv = step.loadu(pb, i);
          const auto above = subsU16(av, bv);
          const auto lo = sub16(av, above), hi = add16(bv, above);
          const auto p = product(lo, hi);
          return sub16(lo, product(sub16(hi, lo), sub16(lo, p)));
        });
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
  _mm_sfence();
}

}  // namespace
}  // namespace wide

constinit const Blend16Table g_blend16Avx2 = {
    .MultiplySourceThroughMask16 = &wide::MultiplySourceThroughMask16,
    .ScaleByConstant16 = &wide::ScaleByConstant16,
    .MixSourceThroughMask16 = &wide::MixSourceThroughMask16,
    .MultiplySource16 = &wide::MultiplySource16,
    .SubtractCoverage16 = &wide::SubtractCoverage16,
    .MultiplyInto16 = &wide::MultiplyInto16,
    .InverseMultiplyInto16 = &wide::InverseMultiplyInto16,
    .ComplementMultiplyInto16 = &wide::ComplementMultiplyInto16,
    .FillWhereMaskClear16 = &wide::FillWhereMaskClear16,
    .OrderedCombineInto16 = &wide::OrderedCombineInto16,
};

}  // namespace tarnell::blend16
