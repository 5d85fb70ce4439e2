// 16-bit box mean over a (2r + 1)-square (slot 75). Column sums run down the
// rows and box sums along each row, so the cost per sample does not depend on
// the radius; the column sums of a strip of up to 8192 source columns live on the
// stack. Division by the box's area is a multiplication by its reciprocal,
// computed here once per call. The AVX2 body runs the strip kernel of
// box_mean16_avx2.cpp, the SSE2 body the one below.
#include <emmintrin.h>

#include "filter/box_mean16_strip.h"
#include "filter/filter.h"
#include "host/module_state.h"

namespace tarnell::filter {

namespace {

inline __m128i load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

struct VectorReciprocal {
  __m128i m, highLanes;
  __m128i s1, s2;
  explicit VectorReciprocal(const BoxMeanDivisor& r)
      : m(_mm_set1_epi32(static_cast<int32_t>(r.m))),
        highLanes(_mm_set_epi32(-1, 0, -1, 0)),
        s1(_mm_cvtsi32_si128(r.s1)),
        s2(_mm_cvtsi32_si128(r.s2)) {}
  __m128i divide(__m128i n) const {
    const __m128i even = _mm_srli_epi64(_mm_mul_epu32(n, m), 32);
    const __m128i odd = _mm_and_si128(_mm_mul_epu32(_mm_srli_epi64(n, 32), m), highLanes);
    const __m128i t = _mm_or_si128(even, odd);
    return _mm_srl_epi32(_mm_add_epi32(t, _mm_srl_epi32(_mm_sub_epi32(n, t), s1)), s2);
  }
};

// Running box sums of four consecutive outputs: d holds each output's entering
// minus leaving column sum; the prefix sum over the lanes is added to the last sum.
inline __m128i runningSums(__m128i d, __m128i previous) {
  d = _mm_add_epi32(d, _mm_slli_si128(d, 4));
  d = _mm_add_epi32(d, _mm_slli_si128(d, 8));
  return _mm_add_epi32(d, previous);
}

// Quotients 0..65535 to 16-bit lanes: the signed pack would clamp 32768 and up, so
// the values are moved down by 32768 first and back after.
inline __m128i packUnsigned(__m128i a, __m128i b) {
  const __m128i bias = _mm_set1_epi32(32768);
  return _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(a, bias), _mm_sub_epi32(b, bias)), _mm_set1_epi16(-32768));
}

// sums[i] += entering[i] - leaving[i] (leaving may be null) for 16-bit samples.
void addRow(uint32_t* sums, const uint16_t* entering, const uint16_t* leaving, int32_t n) {
  const __m128i zero = _mm_setzero_si128();
  int32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i in = load(entering + i);
    __m128i lo = _mm_add_epi32(load(sums + i), _mm_unpacklo_epi16(in, zero));
    __m128i hi = _mm_add_epi32(load(sums + i + 4), _mm_unpackhi_epi16(in, zero));
    if (leaving != nullptr) {
      const __m128i out = load(leaving + i);
      lo = _mm_sub_epi32(lo, _mm_unpacklo_epi16(out, zero));
      hi = _mm_sub_epi32(hi, _mm_unpackhi_epi16(out, zero));
    }
    store(sums + i, lo);
    store(sums + i + 4, hi);
  }
  addRowTail(sums, entering, leaving, i, n);
}

// One row, four outputs a step (two steps an iteration).
void boxRow(const uint32_t* sums, int32_t span, uint16_t* out, int32_t columns, uint32_t box,
            const BoxMeanDivisor& divisor) {
  const VectorReciprocal vectorReciprocal(divisor);
  int32_t x = 0;
  __m128i previous = _mm_set1_epi32(static_cast<int32_t>(box));
  for (; x + 8 <= columns; x += 8) {
    const __m128i a = runningSums(_mm_sub_epi32(load(sums + x + span), load(sums + x)), previous);
    const __m128i b =
        runningSums(_mm_sub_epi32(load(sums + x + 4 + span), load(sums + x + 4)), _mm_shuffle_epi32(a, 0xFF));
    previous = _mm_shuffle_epi32(b, 0xFF);
    store(out + x, packUnsigned(vectorReciprocal.divide(a), vectorReciprocal.divide(b)));
  }
  finishRow(sums, span, out, x, columns, static_cast<uint32_t>(_mm_cvtsi128_si32(previous)), divisor);
}

constinit const BoxMeanStrips stripsSse2 = {&boxStrip<&addRow, &boxRow>};

// Strides are counted in samples (halved, rounding down). One body per strip kernel.
template <const BoxMeanStrips* Kernels>
int32_t boxMean16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, int32_t radius) {
  if (radius >= kBoxMeanHostRadius)
    return savedRoutine<slot::filterSlot75>()(source, destination, rows, columns, sourceStride, destinationStride, radius);
  if (rows < 1 || columns < 1 || radius < 0) return 0;
  const auto span = static_cast<uint32_t>(2 * radius + 1);
  const auto area = static_cast<uint32_t>(span * span);
  // half: the rounding offset, so the quotient is the nearest mean, halves up.
  // The largest box sum plus half is 65535 area + half (below 2^32 up to radius 127).
  const uint64_t largest = uint64_t{65535} * area + (area >> 1);
  const BoxMeanDivisor divisor{invariantDivisor(area), area >> 1,
                               largest < (uint64_t{1} << 32) ? boundedDivisor(area, largest) : BoundedDivisor{0, 0}};
  // Radius 0 (a copy, the one divisor with s1 = 0) stays with the SSE2 kernel,
  // which the wider one does not handle.
  BoxMeanStrip* const strip = radius > 0 ? Kernels->strip : stripsSse2.strip;
  const int32_t stripColumns = kBoxMeanStripColumns - 2 * radius;
  while (columns + 2 * radius > kBoxMeanStripColumns) {
    strip(source, destination, rows, stripColumns, sourceStride >> 1, destinationStride >> 1, radius, divisor);
    source += stripColumns, destination += stripColumns, columns -= stripColumns;
  }
  strip(source, destination, rows, columns, sourceStride >> 1, destinationStride >> 1, radius, divisor);
  return 0;
}

}  // namespace

constinit const FilterTable g_boxMeanSse2 = {.filterSlot75 = &boxMean16<&stripsSse2>};
constinit const FilterTable g_boxMeanAvx2 = {.filterSlot75 = &boxMean16<&g_boxMeanStripsAvx2>};

}  // namespace tarnell::filter
