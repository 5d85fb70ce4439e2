// The vectorised 8-bit plane operations of the blending suite.
//
// Every routine walks its rows the same way: a scalar head until the destination
// row is 16-byte aligned, a vector body of 16 samples a step (32 for MaxSource8)
// with aligned loads and stores on the destination only, and a scalar tail. The
// scalar code looks its products up in the start-up tables; the vector code forms
// the same rounded quotients with 16-bit lane arithmetic, so the bytes written do
// not depend on alignment or width.
#include <emmintrin.h>

#include <cstdint>

#include "blend/blend8.h"
#include "host/constants.h"
#include "host/inline.h"
#include "host/startup_tables.h"

namespace tarnell::blend8 {

namespace {


// ------------------------------------------------------------------ scalar

TARNELL_INLINE uint8_t mul(int a, int b) { return Mul255Table[a][b]; }

// d + L(w, x - d): the signed mix entry for weight w and difference x - d.
TARNELL_INLINE uint8_t mix(int d, int x, int w) { return static_cast<uint8_t>(d + SignedMul255Table[w][x - d + 255]); }

// ------------------------------------------------------------------ vector

// The shared constants, loaded once per call.
struct Vectors {
  __m128i zero, words128, words255, words257;
  TARNELL_INLINE Vectors()
      : zero(load(kVecZero)), words128(load(kVecWords128)), words255(load(kVecWords255)),
        words257(_mm_set1_epi16(257)) {}
  static TARNELL_INLINE __m128i load(ConstantVectorIndex i) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(g_constantVectors[i].bytes));
  }
};

// round255 of a product p held as t = p + 128 in 16-bit lanes (t <= 65153):
// (t + (t >> 8)) >> 8. That equals (t * 257) >> 16 -- t * 257 is 256 * t + t, and
// the fraction t / 256 dropped by the inner shift can never carry into the outer
// one -- so a single high multiply does it.
TARNELL_INLINE __m128i reduce255(const Vectors& v, __m128i t) { return _mm_mulhi_epu16(t, v.words257); }

// round255(a * b) on 16-bit lanes holding 0..255: chained products stay widened
// between steps instead of being packed and unpacked again.
TARNELL_INLINE __m128i mul16(const Vectors& v, __m128i a, __m128i b) {
  return reduce255(v, _mm_add_epi16(_mm_mullo_epi16(a, b), v.words128));
}
TARNELL_INLINE __m128i widenLo(const Vectors& v, __m128i x) { return _mm_unpacklo_epi8(x, v.zero); }
TARNELL_INLINE __m128i widenHi(const Vectors& v, __m128i x) { return _mm_unpackhi_epi8(x, v.zero); }

// round255(a * b) per byte.
TARNELL_INLINE __m128i mulv(const Vectors& v, __m128i a, __m128i b) {
  const __m128i lo = _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(a, v.zero), _mm_unpacklo_epi8(b, v.zero)), v.words128);
  const __m128i hi = _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(a, v.zero), _mm_unpackhi_epi8(b, v.zero)), v.words128);
  return _mm_packus_epi16(reduce255(v, lo), reduce255(v, hi));
}

// d + L(w, x - d) per byte, as round255(255 * d + w * (x - d)): the two agree
// because no quotient of 255 is a tie. The sum is d * (255 - w) + x * w, in
// 0..65025, so forming it modulo 2^16 (d * 255 plus the wrapped signed product)
// gives it exactly; 255 * d is one multiply rather than a widening and a subtract.
TARNELL_INLINE __m128i mixHalf(const Vectors& v, __m128i d16, __m128i x16, __m128i w16) {
  const __m128i base = _mm_add_epi16(_mm_mullo_epi16(d16, v.words255), v.words128);
  return reduce255(v, _mm_add_epi16(base, _mm_mullo_epi16(w16, _mm_sub_epi16(x16, d16))));
}
TARNELL_INLINE __m128i mixv(const Vectors& v, __m128i d, __m128i x, __m128i w) {
  const __m128i lo = mixHalf(v, _mm_unpacklo_epi8(d, v.zero), _mm_unpacklo_epi8(x, v.zero), _mm_unpacklo_epi8(w, v.zero));
  const __m128i hi = mixHalf(v, _mm_unpackhi_epi8(d, v.zero), _mm_unpackhi_epi8(x, v.zero), _mm_unpackhi_epi8(w, v.zero));
  return _mm_packus_epi16(lo, hi);
}

// Bytes whose top bit is set (m >= 128) become 0xFF.
TARNELL_INLINE __m128i topBit(const Vectors& v, __m128i m) { return _mm_cmplt_epi8(m, v.zero); }
TARNELL_INLINE __m128i select(__m128i where, __m128i yes, __m128i no) {
  return _mm_or_si128(_mm_and_si128(where, yes), _mm_andnot_si128(where, no));
}

TARNELL_INLINE __m128i loadu(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
TARNELL_INLINE __m128i loada(const uint8_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
TARNELL_INLINE void storea(uint8_t* p, __m128i x) { _mm_store_si128(reinterpret_cast<__m128i*>(p), x); }
TARNELL_INLINE void stream(uint8_t* p, __m128i x) { _mm_stream_si128(reinterpret_cast<__m128i*>(p), x); }

// Fetches both planes 2 KiB ahead once per 64-byte line of the (aligned)
// destination: the processor's own prefetch falls behind on these streams once
// the planes leave the caches. A prefetch never faults, so it may run past them.
TARNELL_INLINE void fetchAhead(const uint8_t* d, const uint8_t* s) {
  if ((reinterpret_cast<uintptr_t>(d) & 63) != 0) return;
  _mm_prefetch(reinterpret_cast<const char*>(d) + 2048, _MM_HINT_T0);
  _mm_prefetch(reinterpret_cast<const char*>(s) + 2048, _MM_HINT_T0);
}

// ------------------------------------------------------------------ rows

// One row: scalar head up to the destination's 16-byte boundary, Step-sample
// vector steps, scalar tail. scalar(i) handles sample i; vector(i) samples
// i .. i + Step - 1 with the destination at i aligned.
template <int Step, class Scalar, class Vector>
TARNELL_INLINE void row(const uint8_t* destination, int32_t columns, Scalar scalar, Vector vector) {
  const auto misalign = static_cast<int32_t>(reinterpret_cast<uintptr_t>(destination) & 15);
  int32_t head = misalign == 0 ? 0 : 16 - misalign;
  if (head > columns) head = columns;
  const int32_t end = columns - (columns - head) % Step;
  int32_t i = 0;
  for (; i + 2 <= head; i += 2) {
    scalar(i);
    scalar(i + 1);
  }
  if (i < head) scalar(i++);
  for (; i < end; i += Step) vector(i);
  for (; i + 2 <= columns; i += 2) {
    scalar(i);
    scalar(i + 1);
  }
  if (i < columns) scalar(i);
}

// A plane's current row and its stride.
template <class T>
struct Plane {
  T* row;
  int32_t stride;
  TARNELL_INLINE void next() { row += static_cast<std::ptrdiff_t>(stride); }
};
template <class T>
TARNELL_INLINE Plane<T> plane(T* first, int32_t stride) {
  return {first, stride};
}

// Calls body with every plane's row pointer, rows times, each plane advancing by
// its own stride.
template <class Body, class... T>
TARNELL_INLINE void eachRow(int32_t rows, Body body, Plane<T>... planes) {
  for (; rows-- > 0; (planes.next(), ...)) body(planes.row...);
}

}  // namespace

// ---------------------------------------------------------------- routines

void ScaleByConstant8(uint8_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  if (rows < 1 || columns < 1) return;
  // Only the low byte of k is a sample value; the host's own routine reads it the same way.
  const auto kb = static_cast<uint8_t>(k);
  const Vectors v;
  const __m128i kv = _mm_set1_epi8(static_cast<char>(kb));
  eachRow(rows, [&](uint8_t* d) {
    row<16>(d, columns, [&](int32_t i) { d[i] = mul(d[i], kb); },
            [&](int32_t i) { storea(d + i, mulv(v, loada(d + i), kv)); });
  }, plane(destination, destinationStride));
}

void MixConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                             int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i cv = _mm_set1_epi8(static_cast<char>(c));
  eachRow(rows, [&](uint8_t* d, const uint8_t* m) {
    row<16>(d, columns, [&](int32_t i) { d[i] = mix(d[i], c, m[i]); },
            [&](int32_t i) { storea(d + i, mixv(v, loada(d + i), cv, loadu(m + i))); });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void MixSourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                           int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d, const uint8_t* m) {
    row<16>(d, columns, [&](int32_t i) { d[i] = mix(d[i], s[i], m[i]); },
            [&](int32_t i) { storea(d + i, mixv(v, loada(d + i), loadu(s + i), loadu(m + i))); });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void CopyWhereMaskSet8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                       int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d, const uint8_t* m) {
    row<16>(d, columns, [&](int32_t i) { d[i] = m[i] >= 128 ? s[i] : d[i]; },
            [&](int32_t i) { storea(d + i, select(topBit(v, loadu(m + i)), loadu(s + i), loada(d + i))); });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void FillWhereMaskSet8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                       int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i cv = _mm_set1_epi8(static_cast<char>(c));
  eachRow(rows, [&](uint8_t* d, const uint8_t* m) {
    row<16>(d, columns, [&](int32_t i) { d[i] = m[i] >= 128 ? c : d[i]; },
            [&](int32_t i) { storea(d + i, select(topBit(v, loadu(m + i)), cv, loada(d + i))); });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void FillWhereMaskClear8(const uint8_t* mask, uint8_t* destination, int32_t rows, int32_t columns, int32_t maskStride,
                         int32_t destinationStride, uint8_t c) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i cv = _mm_set1_epi8(static_cast<char>(c));
  eachRow(rows, [&](const uint8_t* m, uint8_t* d) {
    row<16>(d, columns, [&](int32_t i) { d[i] = m[i] == 0 ? c : d[i]; },
            [&](int32_t i) { storea(d + i, select(_mm_cmpeq_epi8(loadu(m + i), v.zero), cv, loada(d + i))); });
  }, plane(mask, maskStride), plane(destination, destinationStride));
}

void MultiplySource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d) {
    row<16>(d, columns, [&](int32_t i) { d[i] = mul(d[i], s[i]); },
            [&](int32_t i) {
              fetchAhead(d + i, s + i);
              storea(d + i, mulv(v, loada(d + i), loadu(s + i)));
            });
  }, plane(source, sourceStride), plane(destination, destinationStride));
}

void MaxSource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d) {
    row<32>(d, columns, [&](int32_t i) { d[i] = d[i] > s[i] ? d[i] : s[i]; },
            [&](int32_t i) {
              storea(d + i, _mm_max_epu8(loada(d + i), loadu(s + i)));
              storea(d + i + 16, _mm_max_epu8(loada(d + i + 16), loadu(s + i + 16)));
            });
  }, plane(source, sourceStride), plane(destination, destinationStride));
  _mm_mfence();
}

void MinSource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d) {
    row<16>(d, columns, [&](int32_t i) { d[i] = d[i] < s[i] ? d[i] : s[i]; },
            [&](int32_t i) { storea(d + i, _mm_min_epu8(loada(d + i), loadu(s + i))); });
  }, plane(source, sourceStride), plane(destination, destinationStride));
  _mm_mfence();
}

void SubtractCoverage8(uint8_t* a, uint8_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  // With b' = M(255 - a, b) in every case (a = 255 gives 0, a = 0 gives b), A
  // becomes full exactly where a was full or a non-zero b was covered away.
  const Vectors v;
  const __m128i ones = _mm_cmpeq_epi8(v.zero, v.zero);
  eachRow(rows, [&](uint8_t* pa, uint8_t* pb) {
    row<16>(
        pb, columns,
        [&](int32_t i) {
          const int av = pa[i], bv = pb[i];
          if (av == 255) {
            pb[i] = 0;
          } else if (av != 0) {
            if (bv != 0) {
              const uint8_t covered = mul(255 - av, bv);
              pb[i] = covered;
              pa[i] = covered != 0 ? 0 : 255;
            } else {
              pa[i] = 0;
            }
          }
        },
        [&](int32_t i) {
          const __m128i av = loadu(pa + i), bv = loada(pb + i);
          const __m128i covered = mulv(v, _mm_xor_si128(av, ones), bv);
          const __m128i full = _mm_cmpeq_epi8(av, ones);
          const __m128i emptied = _mm_andnot_si128(_mm_cmpeq_epi8(bv, v.zero), _mm_cmpeq_epi8(covered, v.zero));
          _mm_storeu_si128(reinterpret_cast<__m128i*>(pa + i), _mm_or_si128(full, emptied));
          storea(pb + i, covered);
        });
  }, plane(a, aStride), plane(b, bStride));
}

void DarkenTowardSourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                    int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                    int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d, const uint8_t* m) {
    row<16>(
        d, columns, [&](int32_t i) { if (d[i] > s[i]) d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - s[i], m[i])); },
        [&](int32_t i) {
          // The saturating difference is d - s where d > s and zero elsewhere.
          const __m128i dv = loada(d + i);
          storea(d + i, _mm_sub_epi8(dv, mulv(v, _mm_subs_epu8(dv, loadu(s + i)), loadu(m + i))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void DarkenTowardConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                      int32_t columns, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i cv = _mm_set1_epi8(static_cast<char>(c));
  eachRow(rows, [&](uint8_t* d, const uint8_t* m) {
    row<16>(
        d, columns, [&](int32_t i) { if (d[i] > c) d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - c, m[i])); },
        [&](int32_t i) {
          const __m128i dv = loada(d + i);
          storea(d + i, _mm_sub_epi8(dv, mulv(v, _mm_subs_epu8(dv, cv), loadu(m + i))));
        });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void LightenTowardSourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                     int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                     int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d, const uint8_t* m) {
    row<16>(
        d, columns, [&](int32_t i) { if (s[i] > d[i]) d[i] = static_cast<uint8_t>(d[i] + mul(s[i] - d[i], m[i])); },
        [&](int32_t i) {
          const __m128i dv = loada(d + i);
          storea(d + i, _mm_add_epi8(dv, mulv(v, _mm_subs_epu8(loadu(s + i), dv), loadu(m + i))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void LightenTowardConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                       int32_t columns, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i cv = _mm_set1_epi8(static_cast<char>(c));
  eachRow(rows, [&](uint8_t* d, const uint8_t* m) {
    row<16>(
        d, columns, [&](int32_t i) { if (c > d[i]) d[i] = static_cast<uint8_t>(d[i] + mul(c - d[i], m[i])); },
        [&](int32_t i) {
          const __m128i dv = loada(d + i);
          storea(d + i, _mm_add_epi8(dv, mulv(v, _mm_subs_epu8(cv, dv), loadu(m + i))));
        });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void MultiplySourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* s, uint8_t* d, const uint8_t* m) {
    row<16>(
        d, columns, [&](int32_t i) { d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - mul(s[i], d[i]), m[i])); },
        [&](int32_t i) {
          const __m128i dv = loada(d + i), sv = loadu(s + i), mv = loadu(m + i);
          auto half = [&](__m128i d16, __m128i s16, __m128i m16) {
            return _mm_sub_epi16(d16, mul16(v, _mm_sub_epi16(d16, mul16(v, s16, d16)), m16));
          };
          storea(d + i, _mm_packus_epi16(half(widenLo(v, dv), widenLo(v, sv), widenLo(v, mv)),
                                         half(widenHi(v, dv), widenHi(v, sv), widenHi(v, mv))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void MultiplyWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                          int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i k16 = _mm_set1_epi16(static_cast<short>(k));
  eachRow(rows, [&](const uint8_t* s, uint8_t* d) {
    row<16>(
        d, columns, [&](int32_t i) { d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - mul(d[i], s[i]), k)); },
        [&](int32_t i) {
          const __m128i dv = loada(d + i), sv = loadu(s + i);
          auto half = [&](__m128i d16, __m128i s16) {
            return _mm_sub_epi16(d16, mul16(v, _mm_sub_epi16(d16, mul16(v, d16, s16)), k16));
          };
          storea(d + i, _mm_packus_epi16(half(widenLo(v, dv), widenLo(v, sv)), half(widenHi(v, dv), widenHi(v, sv))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride));
}

// The destination of the two "into" forms is not read, so the vector body
// bypasses the cache; the closing fence orders those stores before the return.
void MultiplyInto8(const uint8_t* a, uint8_t* destination, const uint8_t* b, int32_t rows, int32_t columns,
                   int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  eachRow(rows, [&](const uint8_t* pa, uint8_t* d, const uint8_t* pb) {
    row<16>(d, columns, [&](int32_t i) { d[i] = mul(pa[i], pb[i]); },
            [&](int32_t i) { stream(d + i, mulv(v, loadu(pa + i), loadu(pb + i))); });
  }, plane(a, aStride), plane(destination, destinationStride), plane(b, bStride));
  _mm_mfence();
}

void InverseMultiplyInto8(const uint8_t* a, uint8_t* destination, const uint8_t* b, int32_t rows, int32_t columns,
                          int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  const Vectors v;
  const __m128i ones = _mm_cmpeq_epi8(v.zero, v.zero);
  eachRow(rows, [&](const uint8_t* pa, uint8_t* d, const uint8_t* pb) {
    row<16>(d, columns, [&](int32_t i) { d[i] = static_cast<uint8_t>(255 - mul(255 - pa[i], pb[i])); },
            [&](int32_t i) {
              stream(d + i, _mm_xor_si128(mulv(v, _mm_xor_si128(loadu(pa + i), ones), loadu(pb + i)), ones));
            });
  }, plane(a, aStride), plane(destination, destinationStride), plane(b, bStride));
  _mm_mfence();
}

void OrderedCombineInto8(const uint8_t* a, const uint8_t* b, uint8_t* destination, int32_t rows, int32_t columns,
                         int32_t aStride, int32_t bStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  // Both branches of the formula are lo - M(hi - lo, lo - M(lo, hi)) with lo and hi
  // the smaller and larger operand (M is symmetric), which the vector body computes
  // directly, ordering the bytes before widening them.
  const Vectors v;
  eachRow(rows, [&](const uint8_t* pa, const uint8_t* pb, uint8_t* d) {
    row<16>(
        d, columns,
        [&](int32_t i) {
          const int av = pa[i], bv = pb[i], p = mul(av, bv);
          d[i] = av > bv ? static_cast<uint8_t>(bv - mul(av - bv, bv - p))
                         : static_cast<uint8_t>(av - mul(bv - av, av - p));
        },
        [&](int32_t i) {
          const __m128i av = loadu(pa + i), bv = loadu(pb + i);
          const __m128i lo8 = _mm_min_epu8(av, bv), hi8 = _mm_max_epu8(av, bv);
          auto half = [&](__m128i lo, __m128i hi) {
            const __m128i p = mul16(v, lo, hi);
            return _mm_sub_epi16(lo, mul16(v, _mm_sub_epi16(hi, lo), _mm_sub_epi16(lo, p)));
          };
          stream(d + i, _mm_packus_epi16(half(widenLo(v, lo8), widenLo(v, hi8)), half(widenHi(v, lo8), widenHi(v, hi8))));
        });
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
  // Non-temporal stores are weakly ordered: make them visible before returning.
  _mm_sfence();
}

constinit const Blend8Table g_blend8Sse2 = {
    .ScaleByConstant8 = &ScaleByConstant8,
    .MixConstantThroughMask8 = &MixConstantThroughMask8,
    .MixSourceThroughMask8 = &MixSourceThroughMask8,
    .CopyWhereMaskSet8 = &CopyWhereMaskSet8,
    .FillWhereMaskSet8 = &FillWhereMaskSet8,
    .MultiplySource8 = &MultiplySource8,
    .MaxSource8 = &MaxSource8,
    .MinSource8 = &MinSource8,
    .SubtractCoverage8 = &SubtractCoverage8,
    .DarkenTowardSourceThroughMask8 = &DarkenTowardSourceThroughMask8,
    .DarkenTowardConstantThroughMask8 = &DarkenTowardConstantThroughMask8,
    .LightenTowardSourceThroughMask8 = &LightenTowardSourceThroughMask8,
    .LightenTowardConstantThroughMask8 = &LightenTowardConstantThroughMask8,
    .MultiplySourceThroughMask8 = &MultiplySourceThroughMask8,
    .MultiplyInto8 = &MultiplyInto8,
    .InverseMultiplyInto8 = &InverseMultiplyInto8,
    .FillWhereMaskClear8 = &FillWhereMaskClear8,
    .OrderedCombineInto8 = &OrderedCombineInto8,
    .MultiplyWithOpacity8 = &MultiplyWithOpacity8,
};

}  // namespace tarnell::blend8
