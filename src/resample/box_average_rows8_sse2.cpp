// BoxAverageRows8: each output row is the mean of the next counts[r] source rows,
// (n / 2 + sum) x recip >> 24 with recip = 2^24 / n truncated, so a result may
// sit one below the exactly rounded mean, as the host's does. A count of 0 writes
// nothing and consumes no source row. Sixteen samples at a time, then one at a time.
#include <emmintrin.h>

#include "resample/kernel_scalar.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

namespace {

// Up to this many rows the sums (at most 255 n + n / 2) fit 16-bit lanes.
constexpr uint32_t kWordSumRows = 256;

uint8_t averageOne(const uint8_t* p, intptr_t stride, uint32_t n, uint32_t recip) {
  uint32_t sum = n / 2;
  for (uint32_t k = 0; k < n; ++k) sum += p[intptr_t{k} * stride];
  return static_cast<uint8_t>((uint64_t{sum} * recip) >> 24);
}

// Sixteen samples, n <= kWordSumRows. The even and odd bytes are summed in
// separate 16-bit lanes (a mask and a shift, no unpacking), and put back together
// the same way. With recip = rh x 2^16 + rl, the result (sum x recip) >> 24 is
// (sum x rh + (sum x rl) >> 16) >> 8, and that inner sum is below 2^16 because the
// mean is at most 255, so 16-bit lanes hold it exactly.
// Fixed > 0 unrolls the rows of the counts that occur most (reductions by up to 4).
template <uint32_t Fixed>
__m128i average16(const uint8_t* p, intptr_t stride, uint32_t count, __m128i rh, __m128i rl) {
  const uint32_t n = Fixed > 0 ? Fixed : count;
  if constexpr (Fixed == 1) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  // 2^24 / 2 is 2^23: (1 + a + b) >> 1, which is what pavgb computes.
  if constexpr (Fixed == 2)
    return _mm_avg_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + stride)));
  const __m128i low = _mm_set1_epi16(0xFF);
  __m128i even = _mm_set1_epi16(static_cast<int16_t>(n / 2)), odd = even;
  for (uint32_t k = 0; k < n; ++k, p += stride) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    even = _mm_add_epi16(even, _mm_and_si128(v, low));
    odd = _mm_add_epi16(odd, _mm_srli_epi16(v, 8));
  }
  even = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(even, rh), _mm_mulhi_epu16(even, rl)), 8);
  odd = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(odd, rh), _mm_mulhi_epu16(odd, rl)), 8);
  return _mm_or_si128(even, _mm_slli_epi16(odd, 8));
}

}  // namespace

void BoxAverageRows8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* counts,
                     int32_t sourceStride, int32_t destinationStride) {
  if (rows < 1 || width < 1) return;
  for (int32_t r = 0; r < rows; ++r, destination += destinationStride) {
    const auto n = static_cast<uint32_t>(counts[r]);
    if (n == 0) continue;
    const uint32_t recip = 16777216u / n;
    int32_t x = 0;
    if (n <= kWordSumRows) {
      const __m128i rh = _mm_set1_epi16(static_cast<int16_t>(recip >> 16));
      const __m128i rl = _mm_set1_epi16(static_cast<int16_t>(recip & 0xFFFF));
      auto run = [&](auto average) {
        for (; x + 16 <= width; x += 16)
          _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + x), average(source + x, sourceStride, n, rh, rl));
      };
      switch (n) {
        case 1: run(&average16<1>); break;
        case 2: run(&average16<2>); break;
        case 3: run(&average16<3>); break;
        case 4: run(&average16<4>); break;
        default: run(&average16<0>); break;
      }
    }
    for (; x < width; ++x) destination[x] = averageOne(source + x, sourceStride, n, recip);
    source += intptr_t{sourceStride} * n;
  }
}

}  // namespace tarnell::resample
