// The 16-bit box mean (slot 75), AVX2: the SSE2 kernel's method on eight 32-bit
// lanes. Column sums run down the rows, box sums along each row as a prefix sum of
// the entering minus leaving column sums, sixteen outputs a step in two independent
// prefix sums so that only one add carries from step to step; the rounding offset
// rides in the running sum. Every row after a strip's first is one pass: the
// column sums move one row down a few steps ahead of the outputs that read them,
// so the row of sums is read and written once per row instead of three times
// (the SSE2 kernel's two passes), which is what a 4096-wide row, whose sums do
// not stay in the first-level cache, waits on. For radii up to 63 the quotient
// takes one multiplication (BoundedDivisor) instead of the invariant-divisor
// form's two and the corrections. Everything stays in this file (with the helpers
// of box_mean16_strip.h compiled here), and the table at the end is the one way
// in. Measured on the peer benchmark against this kernel's earlier two-pass form
// (time per sample, radius 2 / 20): 256x256 0.36 / 0.39 -> 0.34 / 0.35 ns,
// 1024x1024 0.38 / 0.39 -> 0.33 / 0.33, 4096x4096 0.54 / 0.52 -> 0.48 / 0.44.
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

// floor(n / d) in eight lanes. With a bounded divisor (radii up to 63): (n m) >>
// k, k >= 32, from the 64-bit products of the even and the odd lanes. Otherwise
// the invariant-divisor form; s1 is 1 here (the radius-0 copy is the SSE2 kernel's).
struct VectorDivisor {
  __m256i m, s2, boundedM;
  __m128i k, kHigh;
  bool bounded;
  explicit VectorDivisor(const BoxMeanDivisor& d)
      : m(_mm256_set1_epi32(static_cast<int32_t>(d.m))),
        s2(_mm256_set1_epi32(d.s2)),
        boundedM(_mm256_set1_epi32(static_cast<int32_t>(d.bounded.m))),
        k(_mm_cvtsi32_si128(d.bounded.k)),
        kHigh(_mm_cvtsi32_si128(d.bounded.k - 32)),
        bounded(d.bounded.k != 0) {}
  __m256i divide(__m256i n) const {
    if (bounded) {
      // Even lanes: the quotient in the low half of each product shifted by k; odd
      // lanes: in the high half of each product shifted by k - 32.
      const __m256i even = _mm256_srl_epi64(_mm256_mul_epu32(n, boundedM), k);
      const __m256i odd = _mm256_srl_epi64(_mm256_mul_epu32(_mm256_srli_epi64(n, 32), boundedM), kHigh);
      return _mm256_blend_epi32(even, odd, 0xAA);
    }
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

// Sixteen outputs from x: box sums from the column sums at x + span (entering)
// and x (leaving), carried from previous (each lane the box sum left of the step,
// plus the offset), divided and packed. Returns them; previous moves on.
inline __m256i sixteen(const uint32_t* sums, int32_t x, int32_t span, __m256i& previous, const VectorDivisor& divisor) {
  const __m256i a = prefixSum(_mm256_sub_epi32(load(sums + x + span), load(sums + x)));
  const __m256i b =
      _mm256_add_epi32(prefixSum(_mm256_sub_epi32(load(sums + x + 8 + span), load(sums + x + 8))), lastLane(a));
  const __m256i qa = divisor.divide(_mm256_add_epi32(a, previous));
  const __m256i qb = divisor.divide(_mm256_add_epi32(b, previous));
  previous = _mm256_add_epi32(previous, lastLane(b));
  // The in-lane pack interleaves the halves; the quotients are at most 65535.
  return _mm256_permute4x64_epi64(_mm256_packus_epi32(qa, qb), 0xD8);
}

// Outputs from x to the row's end: sixteen, then eight a step, then one at a time.
inline void rowFrom(const uint32_t* sums, int32_t span, uint16_t* out, int32_t x, int32_t columns,
                    __m256i previous, const VectorDivisor& vectorDivisor, const BoxMeanDivisor& divisor) {
  for (; x + 16 <= columns; x += 16) store(out + x, sixteen(sums, x, span, previous, vectorDivisor));
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

// The first row of a strip, its column sums already in place.
void boxRow(const uint32_t* sums, int32_t span, uint16_t* out, int32_t columns, uint32_t box,
            const BoxMeanDivisor& divisor) {
  rowFrom(sums, span, out, 0, columns, _mm256_set1_epi32(static_cast<int32_t>(box)), VectorDivisor(divisor), divisor);
}

// The column sums one row down, moved along ahead of the outputs that read them:
// columnSums[0, to) are updated once `to` is reached.
struct ColumnUpdate {
  uint32_t* columnSums;
  const uint16_t *entering, *leaving;
  int32_t done = 0;
  void to(int32_t end) {
    for (; done + 8 <= end; done += 8)
      store(columnSums + done, _mm256_sub_epi32(_mm256_add_epi32(load(columnSums + done), widen(entering + done)),
                                                widen(leaving + done)));
    addRowTail(columnSums, entering, leaving, done, end);
    done = end > done ? end : done;
  }
};

// Every later row in one pass: the column sums are moved one row down 64 columns
// ahead of the outputs that read them (so that the loads find stores that have
// left the store queue: at 32 the radius-2 rows, whose loads straddle the last
// stores, ran a fifth slower), and each step's sixteen outputs follow.
void nextRow(uint32_t* sums, const uint16_t* entering, const uint16_t* leaving, int32_t width, int32_t span,
             uint16_t* out, int32_t columns, const BoxMeanDivisor& divisor) {
  ColumnUpdate update{sums + 1, entering, leaving};
  // The box sum left of output 0 (its first 2r columns) plus the offset.
  const int32_t radius2 = span - 1;
  update.to(radius2);
  uint32_t box = divisor.half;
  for (int32_t i = 0; i < radius2; ++i) box += sums[1 + i];
  const VectorDivisor vectorDivisor(divisor);
  __m256i previous = _mm256_set1_epi32(static_cast<int32_t>(box));
  // Outputs x..x + 15 read sums up to x + span + 15, column sums up to x + span + 14.
  constexpr int32_t kAhead = 64;
  int32_t x = 0;
  for (; x + 16 <= columns; x += 16) {
    const int32_t need = x + span + 15 + kAhead;
    update.to(need < width ? need : width);
    store(out + x, sixteen(sums, x, span, previous, vectorDivisor));
  }
  update.to(width);
  rowFrom(sums, span, out, x, columns, previous, vectorDivisor, divisor);
}

// One strip, steps in samples, as boxStrip (box_mean16_strip.h) but with every
// row after the first in one pass over the column sums.
void strip(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, intptr_t sourceStep,
           intptr_t destinationStep, int32_t radius, const BoxMeanDivisor& divisor) {
  const int32_t width = columns + 2 * radius, span = 2 * radius + 1;
  alignas(32) uint32_t sums[kBoxMeanStripColumns + 8];
  for (int32_t i = 0; i <= width; ++i) sums[i] = 0;
  uint32_t* columnSums = sums + 1;
  const uint16_t* left = source - radius;
  for (int32_t y = -radius; y <= radius; ++y) addRow(columnSums, left + y * sourceStep, nullptr, width);
  uint32_t box = divisor.half;
  for (int32_t i = 0; i < 2 * radius; ++i) box += columnSums[i];
  boxRow(sums, span, destination, columns, box, divisor);
  for (int32_t r = 1; r < rows; ++r)
    nextRow(sums, left + (r + radius) * sourceStep, left + (r - radius - 1) * sourceStep, width, span,
            destination + r * destinationStep, columns, divisor);
}

}  // namespace

constinit const BoxMeanStrips g_boxMeanStripsAvx2 = {&strip};

}  // namespace tarnell::filter
