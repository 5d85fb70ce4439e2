// Difference sums over two 128-byte blocks (slots 188 and 189), eight 16-byte
// steps each, summed with the sum-of-absolute-differences instruction.
#include <emmintrin.h>

#include "filter/filter.h"

namespace tarnell::filter {

namespace {

inline __m128i load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

inline uint16_t total(__m128i sums) {
  return static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_add_epi64(sums, _mm_unpackhi_epi64(sums, sums))));
}

}  // namespace

uint16_t blockDifferenceSum(const uint8_t* first, const uint8_t* second) {
  __m128i sums = _mm_setzero_si128();
  for (int i = 0; i < kDifferenceBlockBytes; i += 16)
    sums = _mm_add_epi64(sums, _mm_sad_epu8(load(first + i), load(second + i)));
  return total(sums);
}

// A mask byte is set when it is not zero.
uint16_t maskedDifferenceSum(const uint8_t* first, const uint8_t* second, const uint8_t* mask) {
  const __m128i zero = _mm_setzero_si128();
  __m128i sums = zero;
  for (int i = 0; i < kDifferenceBlockBytes; i += 16) {
    const __m128i a = load(first + i), b = load(second + i);
    const __m128i clear = _mm_cmpeq_epi8(load(mask + i), zero);
    const __m128i counted =
        _mm_or_si128(_mm_and_si128(clear, _mm_subs_epu8(a, b)), _mm_andnot_si128(clear, _mm_subs_epu8(b, a)));
    sums = _mm_add_epi64(sums, _mm_sad_epu8(counted, zero));
  }
  return total(sums);
}

}  // namespace tarnell::filter
