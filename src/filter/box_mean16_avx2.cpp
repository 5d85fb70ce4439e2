// The 16-bit box mean (slot 75), AVX2: the SSE2 kernel's method on eight 32-bit
// lanes. Column sums run down the rows, box sums along each row as a prefix sum of
// the entering minus leaving column sums, sixteen outputs a step in two independent
// prefix sums so that only one add carries from step to step; the rounding offset
// rides in the running sum. The strip's row loop is box_mean16_strip.h's, compiled
// here; everything stays in this file, and the table at the end is the one way in.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "filter/box_mean16_strip.h"
#include "filter/filter.h"

namespace tarnell::filter {
namespace {

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
inline __m256i widen(const uint16_t* p) {
  return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// floor(n / d) in eight lanes; s1 is 1 here (the radius-0 copy is the SSE2 kernel's).
struct VectorDivisor {
  __m256i m, s2;
  explicit VectorDivisor(const BoxMeanDivisor& d)
      : m(_mm256_set1_epi32(static_cast<int32_t>(d.m))), s2(_mm256_set1_epi32(d.s2)) {}
  __m256i divide(__m256i n) const {
    const __m256i even = _mm256_srli_epi64(_mm256_mul_epu32(n, m), 32);
    const __m256i odd = _mm256_mul_epu32(_mm256_srli_epi64(n, 32), m);
    const __m256i t = _mm256_blend_epi32(even, odd, 0xAA);
    return _mm256_srlv_epi32(_mm256_add_epi32(t, _mm256_srli_epi32(_mm256_sub_epi32(n, t), 1)), s2);
  }
};

// Prefix sum over the eight lanes: two in-lane steps, then the low lane's total
// into the high lane.
inline __m256i prefixSum(__m256i d) {
  d = _mm256_add_epi32(d, _mm256_slli_si256(d, 4));
  d = _mm256_add_epi32(d, _mm256_slli_si256(d, 8));
  const __m256i low = _mm256_shuffle_epi32(d, 0xFF);
  return _mm256_add_epi32(d, _mm256_permute2x128_si256(low, low, 0x08));
}

inline __m256i lastLane(__m256i v) { return _mm256_permutevar8x32_epi32(v, _mm256_set1_epi32(7)); }

// sums[i] += entering[i] - leaving[i] (leaving may be null).
void addRow(uint32_t* sums, const uint16_t* entering, const uint16_t* leaving, int32_t n) {
  int32_t i = 0;
  if (leaving == nullptr) {
    for (; i + 8 <= n; i += 8) store(sums + i, _mm256_add_epi32(load(sums + i), widen(entering + i)));
  } else {
    for (; i + 8 <= n; i += 8)
      store(sums + i, _mm256_sub_epi32(_mm256_add_epi32(load(sums + i), widen(entering + i)), widen(leaving + i)));
  }
  addRowTail(sums, entering, leaving, i, n);
}

// One row, sixteen outputs a step, then eight if as many are left.
void boxRow(const uint32_t* sums, int32_t span, uint16_t* out, int32_t columns, uint32_t box,
            const BoxMeanDivisor& divisor) {
  const VectorDivisor vectorDivisor(divisor);
  int32_t x = 0;
  __m256i previous = _mm256_set1_epi32(static_cast<int32_t>(box));
  for (; x + 16 <= columns; x += 16) {
    const __m256i a = prefixSum(_mm256_sub_epi32(load(sums + x + span), load(sums + x)));
    const __m256i b =
        _mm256_add_epi32(prefixSum(_mm256_sub_epi32(load(sums + x + 8 + span), load(sums + x + 8))), lastLane(a));
    const __m256i qa = vectorDivisor.divide(_mm256_add_epi32(a, previous));
    const __m256i qb = vectorDivisor.divide(_mm256_add_epi32(b, previous));
    previous = _mm256_add_epi32(previous, lastLane(b));
    // The in-lane pack interleaves the halves; the quotients are at most 65535.
    store(out + x, _mm256_permute4x64_epi64(_mm256_packus_epi32(qa, qb), 0xD8));
  }
  if (x + 8 <= columns) {
    const __m256i a = prefixSum(_mm256_sub_epi32(load(sums + x + span), load(sums + x)));
    const __m256i q = vectorDivisor.divide(_mm256_add_epi32(a, previous));
    previous = _mm256_add_epi32(previous, lastLane(a));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x),
                     _mm256_castsi256_si128(_mm256_permute4x64_epi64(_mm256_packus_epi32(q, q), 0xD8)));
    x += 8;
  }
  finishRow(sums, span, out, x, columns, static_cast<uint32_t>(_mm256_cvtsi256_si32(previous)), divisor);
}

}  // namespace

constinit const BoxMeanStrips g_boxMeanStripsAvx2 = {&boxStrip<&addRow, &boxRow>};

}  // namespace tarnell::filter
