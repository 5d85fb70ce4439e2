// The 8-bit plane operations of the blending suite, AVX2: the SSE2 bodies'
// arithmetic on 32 samples a step. Built with -mavx2: everything stays in this
// file (anonymous namespace), and the one way out is the table at the end.
//
// What differs from the SSE2 bodies, and why the bytes are the same:
// - After the scalar head (up to the destination's 16-byte boundary) one 16-sample
//   step brings the destination to a 32-byte boundary; then 32 samples a step, one
//   more 16-sample step and the scalar tail. Every path computes each sample by
//   the same rule (the vector forms are round255 exactly, the scalar ones look the
//   same values up in the start-up tables), so no byte depends on which path took
//   it. The 256-bit unpacks and packs work within each 128-bit lane, so widening a
//   vector and packing it back keeps the samples in place.
// - Rows that follow one another in memory in every plane (each stride equal to
//   the row) are walked as one row: the same samples in the same order, without a
//   head and tail per row.
// - The constants are built here rather than read from the shared constant
//   vectors, which are 16 bytes wide.
// The memory-ordering promises are the SSE2 bodies': the two "into" products
// stream their vector stores and end with a full fence, the ordered combine
// streams and ends with a store fence, maximum and minimum end with a full fence.
//
// Measured on the development machine (AMD EPYC, Zen 4 class) at 256x256
// (tarnell-host bench --tier sse2,avx2, median of three): 1.4 to 2.3 times the
// SSE2 bodies' speed, the multiply 2.5 times (it also leaves out the SSE2 body's
// prefetch, which slowed it here); at 4096x4096 both run at memory speed.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "blend/blend8.h"
#include "blend/blend8_vectors.h"
#include "host/inline.h"
#include "host/startup_tables.h"

namespace tarnell::blend8 {
namespace {
namespace avx2 {

// ------------------------------------------------------------------ scalar

TARNELL_INLINE uint8_t mul(int a, int b) { return Mul255Table[a][b]; }
TARNELL_INLINE uint8_t mix(int d, int x, int w) { return static_cast<uint8_t>(d + SignedMul255Table[w][x - d + 255]); }

// ------------------------------------------------------------------ rows

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

// Calls body(n, row pointers...) once per row, or once for the whole rectangle
// when every plane's rows follow one another in memory.
template <class Body, class... T>
TARNELL_INLINE void eachRow(int32_t rows, int32_t columns, Body body, Plane<T>... planes) {
  if (rows > 1 && ((planes.stride == columns) && ...)) {
    body(intptr_t{rows} * columns, planes.row...);
    return;
  }
  for (; rows-- > 0; (planes.next(), ...)) body(intptr_t{columns}, planes.row...);
}

// ---------------------------------------------------------------- routines

void ScaleByConstant8(uint8_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k) {
  if (rows < 1 || columns < 1) return;
  const auto kb = static_cast<uint8_t>(k);  // only the low byte is a sample value
  eachRow(rows, columns, [&](intptr_t n, uint8_t* d) {
    run(d, n, [&](intptr_t i) { d[i] = mul(d[i], kb); },
        [&]<class V>(V, intptr_t i) { storea(d + i, mulv(loada<V>(d + i), bytes<V>(kb))); });
  }, plane(destination, destinationStride));
}

void MixConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                             int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { d[i] = mix(d[i], c, m[i]); },
        [&]<class V>(V, intptr_t i) { storea(d + i, mixv(loada<V>(d + i), bytes<V>(c), loadu<V>(m + i))); });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void MixSourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                           int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { d[i] = mix(d[i], s[i], m[i]); },
        [&]<class V>(V, intptr_t i) { storea(d + i, mixv(loada<V>(d + i), loadu<V>(s + i), loadu<V>(m + i))); });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void CopyWhereMaskSet8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                       int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { d[i] = m[i] >= 128 ? s[i] : d[i]; },
        [&]<class V>(V, intptr_t i) {
          storea(d + i, select(loadu<V>(m + i), loadu<V>(s + i), loada<V>(d + i)));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void FillWhereMaskSet8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                       int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { d[i] = m[i] >= 128 ? c : d[i]; },
        [&]<class V>(V, intptr_t i) { storea(d + i, select(loadu<V>(m + i), bytes<V>(c), loada<V>(d + i))); });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void FillWhereMaskClear8(const uint8_t* mask, uint8_t* destination, int32_t rows, int32_t columns, int32_t maskStride,
                         int32_t destinationStride, uint8_t c) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* m, uint8_t* d) {
    run(d, n, [&](intptr_t i) { d[i] = m[i] == 0 ? c : d[i]; },
        [&]<class V>(V, intptr_t i) {
          storea(d + i, select(eq8(loadu<V>(m + i), bytes<V>(0)), bytes<V>(c), loada<V>(d + i)));
        });
  }, plane(mask, maskStride), plane(destination, destinationStride));
}

void MultiplySource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d) {
    run(d, n, [&](intptr_t i) { d[i] = mul(d[i], s[i]); },
        [&]<class V>(V, intptr_t i) {
          storea(d + i, mulv(loada<V>(d + i), loadu<V>(s + i)));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride));
}

void MaxSource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d) {
    run(d, n, [&](intptr_t i) { d[i] = d[i] > s[i] ? d[i] : s[i]; },
        [&]<class V>(V, intptr_t i) { storea(d + i, max8(loada<V>(d + i), loadu<V>(s + i))); });
  }, plane(source, sourceStride), plane(destination, destinationStride));
  _mm_mfence();
}

void MinSource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d) {
    run(d, n, [&](intptr_t i) { d[i] = d[i] < s[i] ? d[i] : s[i]; },
        [&]<class V>(V, intptr_t i) { storea(d + i, min8(loada<V>(d + i), loadu<V>(s + i))); });
  }, plane(source, sourceStride), plane(destination, destinationStride));
  _mm_mfence();
}

void SubtractCoverage8(uint8_t* a, uint8_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  // b' = M(255 - a, b) in every case; A becomes full exactly where a was full or a
  // non-zero b was covered away (see the SSE2 body).
  eachRow(rows, columns, [&](intptr_t n, uint8_t* pa, uint8_t* pb) {
    run(pb, n,
        [&](intptr_t i) {
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
        [&]<class V>(V, intptr_t i) {
          const V ones = bytes<V>(255), zero = bytes<V>(0);
          const V av = loadu<V>(pa + i), bv = loada<V>(pb + i);
          const V covered = mulv(xorv(av, ones), bv);
          const V emptied = andnot(eq8(bv, zero), eq8(covered, zero));
          storeu(pa + i, orv(eq8(av, ones), emptied));
          storea(pb + i, covered);
        });
  }, plane(a, aStride), plane(b, bStride));
}

void DarkenTowardSourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                    int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                    int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { if (d[i] > s[i]) d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - s[i], m[i])); },
        [&]<class V>(V, intptr_t i) {
          // The saturating difference is d - s where d > s and zero elsewhere.
          const V dv = loada<V>(d + i);
          storea(d + i, sub8(dv, mulv(subs8(dv, loadu<V>(s + i)), loadu<V>(m + i))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void DarkenTowardConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                      int32_t columns, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { if (d[i] > c) d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - c, m[i])); },
        [&]<class V>(V, intptr_t i) {
          const V dv = loada<V>(d + i);
          storea(d + i, sub8(dv, mulv(subs8(dv, bytes<V>(c)), loadu<V>(m + i))));
        });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void LightenTowardSourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                     int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                     int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { if (s[i] > d[i]) d[i] = static_cast<uint8_t>(d[i] + mul(s[i] - d[i], m[i])); },
        [&]<class V>(V, intptr_t i) {
          const V dv = loada<V>(d + i);
          storea(d + i, add8(dv, mulv(subs8(loadu<V>(s + i), dv), loadu<V>(m + i))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void LightenTowardConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                       int32_t columns, int32_t destinationStride, int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { if (c > d[i]) d[i] = static_cast<uint8_t>(d[i] + mul(c - d[i], m[i])); },
        [&]<class V>(V, intptr_t i) {
          const V dv = loada<V>(d + i);
          storea(d + i, add8(dv, mulv(subs8(bytes<V>(c), dv), loadu<V>(m + i))));
        });
  }, plane(destination, destinationStride), plane(mask, maskStride));
}

void MultiplySourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                int32_t maskStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d, const uint8_t* m) {
    run(d, n, [&](intptr_t i) { d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - mul(s[i], d[i]), m[i])); },
        [&]<class V>(V, intptr_t i) {
          const V dv = loada<V>(d + i), sv = loadu<V>(s + i), mv = loadu<V>(m + i);
          auto half = [](V d16, V s16, V m16) { return sub16(d16, mul16(sub16(d16, mul16(s16, d16)), m16)); };
          storea(d + i, pack(half(widenLo(dv), widenLo(sv), widenLo(mv)), half(widenHi(dv), widenHi(sv), widenHi(mv))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride), plane(mask, maskStride));
}

void MultiplyWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                          int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* s, uint8_t* d) {
    run(d, n, [&](intptr_t i) { d[i] = static_cast<uint8_t>(d[i] - mul(d[i] - mul(d[i], s[i]), k)); },
        [&]<class V>(V, intptr_t i) {
          const V dv = loada<V>(d + i), sv = loadu<V>(s + i), k16 = words<V>(k);
          auto half = [&](V d16, V s16) { return sub16(d16, mul16(sub16(d16, mul16(d16, s16)), k16)); };
          storea(d + i, pack(half(widenLo(dv), widenLo(sv)), half(widenHi(dv), widenHi(sv))));
        });
  }, plane(source, sourceStride), plane(destination, destinationStride));
}

// The destination of the two "into" forms is not read: the vector steps bypass
// the cache, and the closing fence orders those stores before the return.
void MultiplyInto8(const uint8_t* a, uint8_t* destination, const uint8_t* b, int32_t rows, int32_t columns,
                   int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* pa, uint8_t* d, const uint8_t* pb) {
    run(d, n, [&](intptr_t i) { d[i] = mul(pa[i], pb[i]); },
        [&]<class V>(V, intptr_t i) { stream(d + i, mulv(loadu<V>(pa + i), loadu<V>(pb + i))); });
  }, plane(a, aStride), plane(destination, destinationStride), plane(b, bStride));
  _mm_mfence();
}

void InverseMultiplyInto8(const uint8_t* a, uint8_t* destination, const uint8_t* b, int32_t rows, int32_t columns,
                          int32_t aStride, int32_t destinationStride, int32_t bStride) {
  if (rows < 1 || columns < 1) return;
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* pa, uint8_t* d, const uint8_t* pb) {
    run(d, n, [&](intptr_t i) { d[i] = static_cast<uint8_t>(255 - mul(255 - pa[i], pb[i])); },
        [&]<class V>(V, intptr_t i) {
          const V ones = bytes<V>(255);
          stream(d + i, xorv(mulv(xorv(loadu<V>(pa + i), ones), loadu<V>(pb + i)), ones));
        });
  }, plane(a, aStride), plane(destination, destinationStride), plane(b, bStride));
  _mm_mfence();
}

void OrderedCombineInto8(const uint8_t* a, const uint8_t* b, uint8_t* destination, int32_t rows, int32_t columns,
                         int32_t aStride, int32_t bStride, int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  // lo - M(hi - lo, lo - M(lo, hi)) with lo and hi the smaller and larger operand,
  // which is both branches of the formula (see the SSE2 body).
  eachRow(rows, columns, [&](intptr_t n, const uint8_t* pa, const uint8_t* pb, uint8_t* d) {
    run(d, n,
        [&](intptr_t i) {
          const int av = pa[i], bv = pb[i], p = mul(av, bv);
          d[i] = av > bv ? static_cast<uint8_t>(bv - mul(av - bv, bv - p))
                         : static_cast<uint8_t>(av - mul(bv - av, av - p));
        },
        [&]<class V>(V, intptr_t i) {
          const V av = loadu<V>(pa + i), bv = loadu<V>(pb + i);
          const V lo8 = min8(av, bv), hi8 = max8(av, bv);
          auto half = [](V lo, V hi) { return sub16(lo, mul16(sub16(hi, lo), sub16(lo, mul16(lo, hi)))); };
          stream(d + i, pack(half(widenLo(lo8), widenLo(hi8)), half(widenHi(lo8), widenHi(hi8))));
        });
  }, plane(a, aStride), plane(b, bStride), plane(destination, destinationStride));
  // Non-temporal stores are weakly ordered: make them visible before returning.
  _mm_sfence();
}

}  // namespace avx2
}  // namespace

constinit const Blend8Table g_blend8Avx2 = {
    .ScaleByConstant8 = &avx2::ScaleByConstant8,
    .MixConstantThroughMask8 = &avx2::MixConstantThroughMask8,
    .MixSourceThroughMask8 = &avx2::MixSourceThroughMask8,
    .CopyWhereMaskSet8 = &avx2::CopyWhereMaskSet8,
    .FillWhereMaskSet8 = &avx2::FillWhereMaskSet8,
    .MultiplySource8 = &avx2::MultiplySource8,
    .MaxSource8 = &avx2::MaxSource8,
    .MinSource8 = &avx2::MinSource8,
    .SubtractCoverage8 = &avx2::SubtractCoverage8,
    .DarkenTowardSourceThroughMask8 = &avx2::DarkenTowardSourceThroughMask8,
    .DarkenTowardConstantThroughMask8 = &avx2::DarkenTowardConstantThroughMask8,
    .LightenTowardSourceThroughMask8 = &avx2::LightenTowardSourceThroughMask8,
    .LightenTowardConstantThroughMask8 = &avx2::LightenTowardConstantThroughMask8,
    .MultiplySourceThroughMask8 = &avx2::MultiplySourceThroughMask8,
    .MultiplyInto8 = &avx2::MultiplyInto8,
    .InverseMultiplyInto8 = &avx2::InverseMultiplyInto8,
    .FillWhereMaskClear8 = &avx2::FillWhereMaskClear8,
    .OrderedCombineInto8 = &avx2::OrderedCombineInto8,
    .MultiplyWithOpacity8 = &avx2::MultiplyWithOpacity8,
};

}  // namespace tarnell::blend8
