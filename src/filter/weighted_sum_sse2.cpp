// Vertical weighted sums (slots 28 and 74): each destination sample is the
// weighted sum of the source samples of its column over the taps' rows. Rows are
// accumulated tap by tap into a row of accumulators on the stack, which bounds
// a call to strips of 4096 columns.
#include <emmintrin.h>

#include <algorithm>

#include "filter/filter.h"

namespace tarnell::filter {

namespace {

constexpr int32_t kStrip = 4096;
constexpr int kAccumulatorEntries = kStrip + 8;

inline __m128i load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline __m128i loadHalf(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline void store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

struct Taps {
  uint32_t count;
  const uint32_t* weights;
  uint16_t weight(uint32_t k) const { return static_cast<uint16_t>(weights[k]); }
};
Taps tapsOf(const uint32_t* block) { return {block[kWeightedSumTapCountEntry], block + kWeightedSumTapCountEntry + 1}; }

// Runs one strip per call of `strip`, at most 4096 columns each, left to right.
template <typename Sample, typename Strip>
void inStrips(const Sample* source, Sample* destination, int32_t columns, Strip strip) {
  while (columns > kStrip) {
    strip(source, destination, kStrip);
    source += kStrip, destination += kStrip, columns -= kStrip;
  }
  strip(source, destination, columns);
}

// --- 8-bit: 16-bit accumulators

// One tap over a run of columns. The 16-column step adds each pair of 16-bit
// products as one 32-bit lane, so an even column's carry goes into the odd column
// after it; the 8-column and single steps wrap each column on its own. Results
// depend on this split, which the host's routine shares.
void accumulate8(uint16_t* acc, const uint8_t* row, int32_t columns, uint16_t weight) {
  const __m128i w = _mm_set1_epi16(static_cast<int16_t>(weight));
  const __m128i zero = _mm_setzero_si128();
  int32_t c = 0;
  for (const int32_t wide = columns & ~15; c < wide; c += 16) {
    const __m128i s = load(row + c);
    const __m128i lo = _mm_mullo_epi16(_mm_unpacklo_epi8(s, zero), w);
    const __m128i hi = _mm_mullo_epi16(_mm_unpackhi_epi8(s, zero), w);
    store(acc + c, _mm_add_epi32(load(acc + c), lo));
    store(acc + c + 8, _mm_add_epi32(load(acc + c + 8), hi));
  }
  for (; c + 8 <= columns; c += 8) {
    const __m128i p = _mm_mullo_epi16(_mm_unpacklo_epi8(loadHalf(row + c), zero), w);
    store(acc + c, _mm_add_epi16(load(acc + c), p));
  }
  for (; c < columns; ++c) acc[c] = static_cast<uint16_t>(acc[c] + row[c] * weight);
}

// Up to 16 taps whose sums stay in registers while they run over 16 columns.
constexpr uint32_t kTapsPerChunk = 16;
struct ByteTapChunk {
  __m128i weight[kTapsPerChunk];
  intptr_t row[kTapsPerChunk];  // bytes from the first tap's row
  uint32_t taps = 0;
};

ByteTapChunk byteTapChunk(const Taps& taps, uint32_t first, intptr_t stride) {
  ByteTapChunk chunk;
  for (uint32_t k = first; k < taps.count && chunk.taps < kTapsPerChunk; ++k, ++chunk.taps) {
    chunk.weight[chunk.taps] = _mm_set1_epi16(static_cast<int16_t>(taps.weight(k)));
    chunk.row[chunk.taps] = intptr_t{k} * stride;
  }
  return chunk;
}

void strip8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
            int32_t destinationStride, Taps taps) {
  alignas(16) uint16_t acc[kAccumulatorEntries];
  columns = std::min(columns, kStrip);  // as the callers guarantee; tells the compiler too
  const int32_t wide = columns & ~15;
  const __m128i half = _mm_set1_epi16(128), zero = _mm_setzero_si128();
  for (int32_t r = 0; r < rows; ++r) {
    const uint8_t* first = source + intptr_t{r} * sourceStride;
    uint8_t* out = destination + intptr_t{destinationStride} * r;
    // Whole 16-column groups: the sums stay in registers across a chunk of taps.
    uint32_t k = 0;
    do {
      const ByteTapChunk chunk = byteTapChunk(taps, k, sourceStride);
      k += kTapsPerChunk;
      const bool firstChunk = k == kTapsPerChunk, lastChunk = k >= taps.count;
      for (int32_t c = 0; c < wide; c += 16) {
        __m128i lo = firstChunk ? half : load(acc + c), hi = firstChunk ? half : load(acc + c + 8);
        for (uint32_t q = 0; q < chunk.taps; ++q) {
          const __m128i s = load(first + chunk.row[q] + c);
          lo = _mm_add_epi32(lo, _mm_mullo_epi16(_mm_unpacklo_epi8(s, zero), chunk.weight[q]));
          hi = _mm_add_epi32(hi, _mm_mullo_epi16(_mm_unpackhi_epi8(s, zero), chunk.weight[q]));
        }
        if (lastChunk) {
          store(out + c, _mm_packus_epi16(_mm_srli_epi16(lo, 8), _mm_srli_epi16(hi, 8)));
        } else {
          store(acc + c, lo);
          store(acc + c + 8, hi);
        }
      }
    } while (k < taps.count);
    // The last 0..15 columns: 8-column and single steps on the accumulator.
    if (wide == columns) continue;
    const int32_t rest = columns - wide;
    store(acc, half);
    store(acc + 8, half);
    for (uint32_t t = 0; t < taps.count; ++t)
      accumulate8(acc, first + intptr_t{t} * sourceStride + wide, rest, taps.weight(t));
    for (int32_t c = 0; c < rest; ++c) out[wide + c] = static_cast<uint8_t>(acc[c] >> 8);
  }
}

// --- 16-bit: 32-bit accumulators, full 16 x 16-bit products
//
// Two taps at a time through the signed multiply-add: with s' = s - 32768 and w'
// the weight read as signed, s w = s' w' + 32768 w + 65536 s' [w >= 32768] modulo
// 2^32. The middle term is the same for every column and goes into the seed; the
// last is added for the taps whose weight has its top bit set.

struct TapPair {
  __m128i weights;  // (w'k, w'k+1) in each 32-bit lane
  __m128i topBits;  // (1, 1) where the weight's top bit is set, else 0
};

TapPair tapPair(uint16_t a, uint16_t b) {
  return {_mm_set1_epi32(static_cast<int32_t>(uint32_t{b} << 16 | a)),
          _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(b >> 15) << 16 | static_cast<uint32_t>(a >> 15)))};
}

// Bits 8..23 of four accumulators, as signed 16-bit values, so that the signed
// pack keeps them as they are.
inline __m128i middleBits(__m128i acc) { return _mm_srai_epi32(_mm_slli_epi32(acc, 8), 16); }

// Up to 16 taps whose sums stay in registers while they run over 8 columns.
constexpr uint32_t kPairsPerChunk = 8;
struct TapChunk {
  TapPair pair[kPairsPerChunk];
  intptr_t rowA[kPairsPerChunk], rowB[kPairsPerChunk];  // in samples from the first tap's row
  bool topBits[kPairsPerChunk];
  uint32_t pairs = 0;
};

TapChunk tapChunk(const Taps& taps, uint32_t first, intptr_t step) {
  TapChunk chunk;
  for (uint32_t k = first; k < taps.count && chunk.pairs < kPairsPerChunk; k += 2) {
    const bool single = k + 1 == taps.count;  // an odd last tap pairs with a weight of 0
    const uint16_t a = taps.weight(k), b = single ? 0 : taps.weight(k + 1);
    chunk.pair[chunk.pairs] = tapPair(a, b);
    chunk.topBits[chunk.pairs] = ((a | b) & 0x8000) != 0;
    chunk.rowA[chunk.pairs] = intptr_t{k} * step;
    chunk.rowB[chunk.pairs] = intptr_t{single ? k : k + 1} * step;
    ++chunk.pairs;
  }
  return chunk;
}

// Adds a chunk's taps to the sums of 8 columns (lo: columns 0-3, hi: 4-7).
inline void addChunk(const TapChunk& chunk, const uint16_t* at, __m128i& lo, __m128i& hi) {
  const __m128i bias = _mm_set1_epi16(-32768);
  for (uint32_t q = 0; q < chunk.pairs; ++q) {
    const __m128i a = _mm_xor_si128(load(at + chunk.rowA[q]), bias);
    const __m128i b = _mm_xor_si128(load(at + chunk.rowB[q]), bias);
    const __m128i l = _mm_unpacklo_epi16(a, b), h = _mm_unpackhi_epi16(a, b);
    lo = _mm_add_epi32(lo, _mm_madd_epi16(l, chunk.pair[q].weights));
    hi = _mm_add_epi32(hi, _mm_madd_epi16(h, chunk.pair[q].weights));
    if (chunk.topBits[q]) {
      lo = _mm_add_epi32(lo, _mm_slli_epi32(_mm_madd_epi16(l, chunk.pair[q].topBits), 16));
      hi = _mm_add_epi32(hi, _mm_slli_epi32(_mm_madd_epi16(h, chunk.pair[q].topBits), 16));
    }
  }
}

// The accumulator row holds the sums between chunks of taps; with at most 16 taps
// it is not touched at all.
void strip16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStep,
             int32_t destinationStep, const uint32_t* block) {
  const Taps taps = tapsOf(block);
  alignas(16) uint32_t acc[kAccumulatorEntries];
  columns = std::min(columns, kStrip);
  uint32_t seed = 128;
  for (uint32_t k = 0; k < taps.count; ++k) seed += 32768u * taps.weight(k);
  const int32_t vectorColumns = columns & ~7;
  const __m128i seeds = _mm_set1_epi32(static_cast<int32_t>(seed));
  for (int32_t r = 0; r < rows; ++r) {
    const uint16_t* first = source + intptr_t{r} * sourceStep;
    uint16_t* out = destination + intptr_t{destinationStep} * r;
    uint32_t k = 0;
    do {
      const TapChunk chunk = tapChunk(taps, k, sourceStep);
      k += 2 * kPairsPerChunk;
      const bool firstChunk = k == 2 * kPairsPerChunk, lastChunk = k >= taps.count;
      for (int32_t c = 0; c < vectorColumns; c += 8) {
        __m128i lo = firstChunk ? seeds : load(acc + c), hi = firstChunk ? seeds : load(acc + c + 4);
        addChunk(chunk, first + c, lo, hi);
        if (lastChunk) {
          store(out + c, _mm_packs_epi32(middleBits(lo), middleBits(hi)));
        } else {
          store(acc + c, lo);
          store(acc + c + 4, hi);
        }
      }
    } while (k < taps.count);
    for (int32_t c = vectorColumns; c < columns; ++c) {
      uint32_t sum = 128;
      for (uint32_t t = 0; t < taps.count; ++t) sum += uint32_t{first[intptr_t{t} * sourceStep + c]} * taps.weight(t);
      out[c] = static_cast<uint16_t>(sum >> 8);
    }
  }
}

}  // namespace


void filterSlot28(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, const uint32_t* block) {
  if (rows < 1 || columns < 1) return;
  const Taps taps = tapsOf(block);
  inStrips(source, destination, columns, [&](const uint8_t* s, uint8_t* d, int32_t n) {
    strip8(s, d, rows, n, sourceStride, destinationStride, taps);
  });
}

namespace {

constinit const WeightedSumStrips stripsSse2 = {&strip16};

// Strides of 16-bit planes are counted in samples: halved, rounding down. One
// body per strip kernel.
template <const WeightedSumStrips* Kernels>
void weightedSum16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                   int32_t destinationStride, const uint32_t* block) {
  if (rows < 1 || columns < 1) return;
  inStrips(source, destination, columns, [&](const uint16_t* s, uint16_t* d, int32_t n) {
    Kernels->strip16(s, d, rows, n, sourceStride >> 1, destinationStride >> 1, block);
  });
}

}  // namespace

constinit const FilterTable g_weightedSumSse2 = {.filterSlot74 = &weightedSum16<&stripsSse2>};
constinit const FilterTable g_weightedSumAvx2 = {.filterSlot74 = &weightedSum16<&g_weightedSumStripsAvx2>};

}  // namespace tarnell::filter
