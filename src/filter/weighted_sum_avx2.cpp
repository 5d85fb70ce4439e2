// The 16-bit vertical weighted sum (slot 74), AVX2: the SSE2 kernel's method on
// 16 columns at a time. Two taps per signed multiply-add on samples moved down by
// 32768; the seed restores 32768 times the weights, and a second multiply-add the
// taps whose weight has its top bit set. Everything stays in this file; the table
// at the end is the one way in.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "filter/filter.h"

namespace tarnell::filter {
namespace {

constexpr uint32_t kPairsPerChunk = 8;
constexpr int32_t kStrip = 4096;

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

struct Chunk {
  __m256i weights[kPairsPerChunk], topBits[kPairsPerChunk];
  intptr_t rowA[kPairsPerChunk], rowB[kPairsPerChunk];
  bool anyTop[kPairsPerChunk];
  uint32_t pairs = 0;
};

inline uint16_t weightOf(const uint32_t* block, uint32_t k) {
  return static_cast<uint16_t>(block[kWeightedSumTapCountEntry + 1 + k]);
}

Chunk chunkOf(const uint32_t* block, uint32_t count, uint32_t first, intptr_t step) {
  Chunk c;
  for (uint32_t k = first; k < count && c.pairs < kPairsPerChunk; k += 2, ++c.pairs) {
    const bool single = k + 1 == count;  // an odd last tap pairs with a weight of 0
    const uint16_t a = weightOf(block, k), b = single ? 0 : weightOf(block, k + 1);
    c.weights[c.pairs] = _mm256_set1_epi32(static_cast<int32_t>(uint32_t{b} << 16 | a));
    c.topBits[c.pairs] =
        _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(b >> 15) << 16 | static_cast<uint32_t>(a >> 15)));
    c.anyTop[c.pairs] = ((a | b) & 0x8000) != 0;
    c.rowA[c.pairs] = intptr_t{k} * step;
    c.rowB[c.pairs] = intptr_t{single ? k : k + 1} * step;
  }
  return c;
}

// Bits 8..23 as signed 16-bit values, so that the signed pack keeps them.
inline __m256i middleBits(__m256i acc) { return _mm256_srai_epi32(_mm256_slli_epi32(acc, 8), 16); }

// lo holds columns 0-3 and 8-11, hi 4-7 and 12-15 (the in-lane unpacks' order,
// which the in-lane pack undoes).
void strip16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStep,
             int32_t destinationStep, const uint32_t* block) {
  alignas(32) uint32_t acc[kStrip];
  columns = columns < kStrip ? columns : kStrip;
  const uint32_t count = block[kWeightedSumTapCountEntry];
  uint32_t seed = 128;
  for (uint32_t k = 0; k < count; ++k) seed += 32768u * weightOf(block, k);
  const int32_t vectorColumns = columns & ~15;
  const __m256i seeds = _mm256_set1_epi32(static_cast<int32_t>(seed));
  const __m256i bias = _mm256_set1_epi16(-32768);
  for (int32_t r = 0; r < rows; ++r) {
    const uint16_t* first = source + intptr_t{r} * sourceStep;
    uint16_t* out = destination + intptr_t{destinationStep} * r;
    uint32_t k = 0;
    do {
      const Chunk chunk = chunkOf(block, count, k, sourceStep);
      k += 2 * kPairsPerChunk;
      const bool firstChunk = k == 2 * kPairsPerChunk, lastChunk = k >= count;
      for (int32_t c = 0; c < vectorColumns; c += 16) {
        __m256i lo = firstChunk ? seeds : load(acc + c), hi = firstChunk ? seeds : load(acc + c + 8);
        const uint16_t* at = first + c;
        for (uint32_t q = 0; q < chunk.pairs; ++q) {
          const __m256i a = _mm256_xor_si256(load(at + chunk.rowA[q]), bias);
          const __m256i b = _mm256_xor_si256(load(at + chunk.rowB[q]), bias);
          const __m256i l = _mm256_unpacklo_epi16(a, b), h = _mm256_unpackhi_epi16(a, b);
          lo = _mm256_add_epi32(lo, _mm256_madd_epi16(l, chunk.weights[q]));
          hi = _mm256_add_epi32(hi, _mm256_madd_epi16(h, chunk.weights[q]));
          if (chunk.anyTop[q]) {
            lo = _mm256_add_epi32(lo, _mm256_slli_epi32(_mm256_madd_epi16(l, chunk.topBits[q]), 16));
            hi = _mm256_add_epi32(hi, _mm256_slli_epi32(_mm256_madd_epi16(h, chunk.topBits[q]), 16));
          }
        }
        if (lastChunk) {
          store(out + c, _mm256_packs_epi32(middleBits(lo), middleBits(hi)));
        } else {
          store(acc + c, lo);
          store(acc + c + 8, hi);
        }
      }
    } while (k < count);
    for (int32_t c = vectorColumns; c < columns; ++c) {
      uint32_t sum = 128;
      for (uint32_t t = 0; t < count; ++t) sum += uint32_t{first[intptr_t{t} * sourceStep + c]} * weightOf(block, t);
      out[c] = static_cast<uint16_t>(sum >> 8);
    }
  }
}

}  // namespace

constinit const WeightedSumStrips g_weightedSumStripsAvx2 = {&strip16};

}  // namespace tarnell::filter
