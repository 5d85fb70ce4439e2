// BoxReduce8's row kernels, AVX2 (the per-call part, hand-over to the host
// included, is the baseline code of box_reduce8_sse2.cpp around them). What
// differs from the SSE2 kernels:
// - a = 2 or 4 over whole pixels: 32 outputs a step. The a samples of a channel
//   are brought side by side with one byte shuffle (pixels of 2 or 4 samples) and
//   summed in pairs by one unsigned multiply-add with ones (SSE2 unpacks and folds
//   in 16-bit lanes); for a = 4 the pair sums of the b rows are added first and
//   their pairs once, by a 16-bit multiply-add.
// - the b-row sums and the division: 32 lanes a step.
// Every sum is the same integer (16-bit lanes hold 255 x 64 + 32), divided by the
// same multiply-high reciprocal (box_reduce8_divisor.h), so the bytes are the SSE2
// kernels'; loads stay inside the bytes the rule reads (the last step of a row
// overlaps the one before). Measured (peer benchmark, one-sample pixels, 2 x 2):
// 0.22 -> 0.09 ns per output at 256x256 and 1024x1024.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "resample/box_reduce8_divisor.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {
namespace {

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// (n + area / 2) / area in each 16-bit lane (area 1: n).
struct LaneDivide {
  explicit LaneDivide(uint32_t area)
      : round(_mm256_set1_epi16(static_cast<int16_t>(area / 2))),
        multiplier(_mm256_set1_epi16(static_cast<int16_t>(kLaneDivisors.area[area].multiplier))),
        shift(_mm_cvtsi32_si128(kLaneDivisors.area[area].shift)),
        copy(area == 1) {}
  __m256i operator()(__m256i sums) const {
    const __m256i n = _mm256_add_epi16(sums, round);
    return copy ? n : _mm256_srl_epi16(_mm256_mulhi_epu16(n, multiplier), shift);
  }
  __m128i half(__m128i sums) const {
    const __m128i n = _mm_add_epi16(sums, _mm256_castsi256_si128(round));
    return copy ? n : _mm_srl_epi16(_mm_mulhi_epu16(n, _mm256_castsi256_si128(multiplier)), shift);
  }
  __m256i round, multiplier;
  __m128i shift;
  bool copy;
};

// Within each 16 bytes, the samples of one channel side by side: pairs of pixels
// (a = 2) or groups of four (a = 4) of Spp samples each.
template <int Spp, int A>
inline __m256i sideBySide() {
  if constexpr (Spp == 2 && A == 2)
    return _mm256_setr_epi8(0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15, 0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11,
                            12, 14, 13, 15);
  else if constexpr (Spp == 4 && A == 2)
    return _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15, 0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13,
                            10, 14, 11, 15);
  else if constexpr (Spp == 2 && A == 4)
    return _mm256_setr_epi8(0, 2, 4, 6, 1, 3, 5, 7, 8, 10, 12, 14, 9, 11, 13, 15, 0, 2, 4, 6, 1, 3, 5, 7, 8, 10, 12, 14,
                            9, 11, 13, 15);
  else  // Spp == 4 && A == 4
    return _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10,
                            14, 3, 7, 11, 15);
}

// Pair sums of 32 source bytes in sixteen 16-bit lanes, each pair two samples of
// one channel (order within 16 bytes kept).
template <int Spp, int A>
inline __m256i pairSums(const uint8_t* p) {
  __m256i v = load(p);
  if constexpr (Spp > 1) v = _mm256_shuffle_epi8(v, sideBySide<Spp, A>());
  return _mm256_maddubs_epi16(v, _mm256_set1_epi8(1));
}

// a = 2 or 4 over whole pixels of Spp samples, b rows, width >= 32 outputs: 32
// outputs a step from 32 a source bytes of each row, the last step overlapping.
template <int Spp, int A>
void pairsRow(const uint8_t* top, intptr_t stride, int32_t b, int32_t width, uint32_t area, uint8_t* d) {
  const LaneDivide divide(area);
  for (int32_t x = 0;; x += 32) {
    if (x > width - 32) x = width - 32;
    __m256i s[static_cast<std::size_t>(A)];
    for (__m256i& v : s) v = _mm256_setzero_si256();
    const uint8_t* p = top + intptr_t{A} * x;
    for (int32_t dy = 0; dy < b; ++dy, p += stride)
      for (std::size_t k = 0; k < static_cast<std::size_t>(A); ++k)
        s[k] = _mm256_add_epi16(s[k], pairSums<Spp, A>(p + 32 * k));
    __m256i bytes;
    if constexpr (A == 2) {
      // s[0]: outputs 0..7 | 8..15, s[1]: 16..23 | 24..31; the in-lane pack gives
      // 0..7 16..23 | 8..15 24..31, which the 64-bit permute orders.
      bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(divide(s[0]), divide(s[1])), 0xD8);
    } else {
      // Pairs of pair sums: s[k] holds outputs 8k..8k+3 | 8k+4..8k+7 once folded.
      const __m256i ones = _mm256_set1_epi16(1);
      const __m256i q01 = divide(_mm256_packs_epi32(_mm256_madd_epi16(s[0], ones), _mm256_madd_epi16(s[1], ones)));
      const __m256i q23 = divide(_mm256_packs_epi32(_mm256_madd_epi16(s[2], ones), _mm256_madd_epi16(s[3], ones)));
      // Dwords of four outputs: 0 8 16 24 | 4 12 20 28 (by first output) -> in order.
      bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(q01, q23), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    }
    store(d + x, bytes);
    if (x == width - 32) break;
  }
}

// Sums of the b rows, one 16-bit lane per source byte of the span.
void sumRows(const uint8_t* top, intptr_t stride, int32_t b, int32_t span, uint16_t* sums) {
  if (span < 32) {
    for (int32_t i = 0; i < span; ++i) {
      uint32_t s = 0;
      for (int32_t dy = 0; dy < b; ++dy) s += top[intptr_t{dy} * stride + i];
      sums[i] = static_cast<uint16_t>(s);
    }
    return;
  }
  for (int32_t i = 0;; i += 32) {
    if (i > span - 32) i = span - 32;  // the last 32 bytes, overlapping
    __m256i lo = _mm256_setzero_si256(), hi = lo;
    const uint8_t* p = top + i;
    for (int32_t dy = 0; dy < b; ++dy, p += stride) {
      lo = _mm256_add_epi16(lo, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))));
      hi = _mm256_add_epi16(hi, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16))));
    }
    store(sums + i, lo);
    store(sums + i + 16, hi);
    if (i == span - 32) break;
  }
}

// d[x] = (block[x] + area / 2) / area for x in 0 .. width.
void divideRow(const uint16_t* block, int32_t width, uint32_t area, uint8_t* d) {
  const LaneDivide divide(area);
  if (width < 32) {  // sixteen lanes at a time (overlapping), or a partial store
    const auto sixteen = [&](int32_t x) {
      return _mm_packus_epi16(divide.half(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + x))),
                              divide.half(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + x + 8))));
    };
    if (width < 16) {
      alignas(16) uint8_t out[16];
      _mm_store_si128(reinterpret_cast<__m128i*>(out), sixteen(0));
      for (int32_t x = 0; x < width; ++x) d[x] = out[x];
      return;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), sixteen(0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + width - 16), sixteen(width - 16));
    return;
  }
  for (int32_t x = 0;; x += 32) {
    if (x > width - 32) x = width - 32;  // the last 32 outputs, overlapping
    const __m256i q = _mm256_packus_epi16(divide(load(block + x)), divide(load(block + x + 16)));
    store(d + x, _mm256_permute4x64_epi64(q, 0xD8));
    if (x == width - 32) break;
  }
}

}  // namespace

constinit const BoxReduceRows g_boxReduceRowsAvx2 = {
    .pairs = {{nullptr, &pairsRow<1, 2>, &pairsRow<2, 2>, nullptr, &pairsRow<4, 2>},
              {nullptr, &pairsRow<1, 4>, &pairsRow<2, 4>, nullptr, &pairsRow<4, 4>}},
    .least = 32,
    .sumRows = &sumRows,
    .divideRow = &divideRow,
};

}  // namespace tarnell::resample
