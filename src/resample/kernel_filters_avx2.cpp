// The integer kernel filters (slots 5, 6 and 13), AVX2: the body of
// kernel_filters_body.h compiled for AVX2, with wider steps where the filters
// spend their time:
// - row filters (8-bit and 16-bit), the tap counts with loops of their own, where
//   sixteen outputs' positions do not step by one (a reduction): two groups of
//   four outputs share each 256-bit register, one per 128-bit half, so every
//   multiply-add, fold and shift serves eight outputs (the SSE2 body: four). The
//   kernels are loaded and arranged exactly as the SSE2 groups arrange them.
// - the column filter: 32 samples a step (SSE2: 16), the same interleaving of two
//   rows and (weight, weight) multiply-adds per 128-bit half.
// The sums are the same 32-bit integers in every lane (integer sums are exact),
// shifted, clamped and packed by the same rules, so the bytes are the SSE2
// body's. Everything stays in this file; the table at the end is the one way in
// (the column filter's row copies for 0 and 1 tap call the live 'memo' slot 0, as
// the SSE2 body does). Where sixteen positions step by one (a convolution) the
// SSE2 stepping blocks run as they are. Measured (peer benchmark, 4:3 reductions,
// per output at 256x256, SSE2 -> AVX2): rows 4 taps 0.29 -> 0.25 ns, 8 taps 0.42 ->
// 0.33; columns 4 taps 0.20 -> 0.11, 8 taps 0.38 -> 0.21 to 0.24; FilterRows16
// 1.1 times (tarnell-host bench, its mixed cases).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "host/module_state.h"
#include "resample/kernel_filters_body.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {
namespace {

inline __m256i both(__m128i low, __m128i high) { return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1); }

// Lanes 0..3 of each half: the sums of four outputs from the halves' registers
// (sum4 per 128-bit half).
inline __m256i sum4(__m256i a, __m256i b, __m256i c, __m256i d) {
  const __m256i ab = _mm256_add_epi32(_mm256_unpacklo_epi32(a, b), _mm256_unpackhi_epi32(a, b));
  const __m256i cd = _mm256_add_epi32(_mm256_unpacklo_epi32(c, d), _mm256_unpackhi_epi32(c, d));
  return _mm256_add_epi32(_mm256_unpacklo_epi64(ab, cd), _mm256_unpackhi_epi64(ab, cd));
}

// Eight outputs: two PackedGroups of four (outputs 0..3 in the low halves, 4..7
// in the high), their weights and biases side by side.
template <class S, int Taps>
struct Packed8 {
  using G = PackedGroup<S, Taps>;
  using T = typename S::T;
  static constexpr std::size_t kArray = G::kArray;
  G low, high;
  __m256i bias;
  __m256i even[kArray], odd[kArray];
  Packed8(const int32_t* indices, const uint8_t* phases, const int16_t* weights)
      : low(indices, phases, weights), high(indices + 4, phases + 4, weights) {
    bias = both(low.bias, high.bias);
    for (std::size_t j = 0; j < kArray; ++j) {
      even[j] = both(low.even[j], high.even[j]);
      odd[j] = both(low.odd[j], high.odd[j]);
    }
  }
  // The eight results of source row s, shifted but not yet clamped: 0..3 | 4..7.
  __m256i row(const T* s) const {
    __m128i a[kArray], b[kArray];
    low.registers(s, a);
    high.registers(s, b);
    __m256i acc[kArray];
    for (std::size_t j = 0; j < kArray; ++j) {
      const __m256i reg = both(a[j], b[j]);
      if constexpr (G::kUnpack)
        acc[j] = _mm256_madd_epi16(_mm256_unpacklo_epi8(reg, _mm256_setzero_si256()), even[j]);
      else if constexpr (G::kBytes)
        acc[j] = _mm256_add_epi32(_mm256_madd_epi16(_mm256_and_si256(reg, _mm256_set1_epi16(0xFF)), even[j]),
                                  _mm256_madd_epi16(_mm256_srli_epi16(reg, 8), odd[j]));
      else
        acc[j] = _mm256_madd_epi16(_mm256_xor_si256(reg, _mm256_set1_epi16(-32768)), even[j]);
    }
    __m256i sum;
    if constexpr (G::kRegisters == 1)
      sum = acc[0];
    else if constexpr (G::kRegisters == 2)
      sum = _mm256_add_epi32(acc[0], acc[1]);
    else
      sum = sum4(acc[0], acc[1], acc[2], acc[3]);
    return _mm256_srai_epi32(_mm256_add_epi32(sum, bias), 14);
  }
};

// Sixteen outputs from two eights (p: 0..3 | 4..7, q: 8..11 | 12..15), clamped and
// stored in order, as ByteSamples / WordSamples store them.
inline void store16(uint8_t* d, __m256i p, __m256i q) {
  // Words 0..3 8..11 | 4..7 12..15, then bytes; dwords 0 4 1 5 put them in order.
  const __m256i words = _mm256_packs_epi32(p, q);
  const __m256i bytes = _mm256_packus_epi16(words, words);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(
                                                      bytes, _mm256_setr_epi32(0, 4, 1, 5, 0, 4, 1, 5))));
}
inline void store16(uint16_t* d, __m256i p, __m256i q) {
  // Clamp to 0..32768 through the signed range (WordSamples::pack), then order.
  const __m256i full = _mm256_set1_epi32(32768);
  const __m256i words = _mm256_packs_epi32(_mm256_sub_epi32(p, full), _mm256_sub_epi32(q, full));
  const __m256i clamped = _mm256_xor_si256(_mm256_min_epi16(words, _mm256_setzero_si256()), _mm256_set1_epi16(-32768));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_permute4x64_epi64(clamped, 0xD8));
}

// The AVX2 policy of the row filters: sixteen outputs as two Packed8.
struct Avx2Rows {
  template <class S, int Taps, template <class, int> class Group>
  static bool sixteen(const int32_t* indices, const uint8_t* phases, const int16_t* weights, const typename S::T* s,
                      typename S::T* d, int32_t bandRows, intptr_t sourceStride, intptr_t destinationStride) {
    if constexpr (!std::is_same_v<Group<S, Taps>, PackedGroup<S, Taps>>) {
      return false;
    } else {
      const Packed8<S, Taps> a(indices, phases, weights), b(indices + 8, phases + 8, weights);
      for (int32_t r = 0; r < bandRows; ++r, s += sourceStride, d += destinationStride) store16(d, a.row(s), b.row(s));
      return true;
    }
  }
};

void filterRows8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                 const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                 const int16_t* weights) {
  filterRows<ByteSamples, Avx2Rows>(source, destination, rows, width, indices, phases, sourceStride, destinationStride,
                                    taps, weights);
}

void filterRows16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                  const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                  const int16_t* weights) {
  filterRows<WordSamples, Avx2Rows>(source, destination, rows, width, indices, phases, sourceStride / 2,
                                    destinationStride / 2, taps, weights);
}

// Thirty-two samples of a column filter's row: Sixteen on each 128-bit half (the
// low half samples 0..7 and 16..23, the high 8..15 and 24..31 before the pack).
struct ThirtyTwo {
  static constexpr int32_t kSamples = 32;
  __m256i acc[4] = {_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256()};
  static __m256i load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
  void add(__m256i a, __m256i b, __m128i weightPairs) {
    const __m256i pair = _mm256_broadcastsi128_si256(weightPairs), zero = _mm256_setzero_si256();
    const __m256i lo = _mm256_unpacklo_epi8(a, b), hi = _mm256_unpackhi_epi8(a, b);
    acc[0] = _mm256_add_epi32(acc[0], _mm256_madd_epi16(_mm256_unpacklo_epi8(lo, zero), pair));
    acc[1] = _mm256_add_epi32(acc[1], _mm256_madd_epi16(_mm256_unpackhi_epi8(lo, zero), pair));
    acc[2] = _mm256_add_epi32(acc[2], _mm256_madd_epi16(_mm256_unpacklo_epi8(hi, zero), pair));
    acc[3] = _mm256_add_epi32(acc[3], _mm256_madd_epi16(_mm256_unpackhi_epi8(hi, zero), pair));
  }
  static __m256i finish(__m256i v) { return _mm256_srai_epi32(_mm256_add_epi32(v, _mm256_set1_epi32(8192)), 14); }
  void store(uint8_t* d) const {
    // Per half: samples 0..3 4..7 | 16..19 20..23, then 8..15 | 24..31: in order.
    const __m256i lo = _mm256_packs_epi32(finish(acc[0]), finish(acc[1]));
    const __m256i hi = _mm256_packs_epi32(finish(acc[2]), finish(acc[3]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_packus_epi16(lo, hi));
  }
};

// A row copied through the live 'memo' slot 0 (0 or 1 tap).
void copyThroughMemo(const uint8_t* source, uint8_t* destination, int32_t width) {
  reinterpret_cast<SlotFnOf<slot::copyBytes>>(g_liveTables[kMemo][slot::copyBytes.number])(source, destination, width);
}

void filterColumns8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                    const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                    const int16_t* weights) {
  eachColumnRow(source, destination, rows, width, indices, phases, sourceStride, destinationStride, taps, weights,
                copyThroughMemo, [&](const uint8_t* row0, const int16_t* w, uint8_t* d) {
                  columnRowFor<ThirtyTwo>(row0, sourceStride, w, taps, d, width);
                });
}

}  // namespace

constinit const ResampleTable g_kernelFiltersAvx2 = {
    .FilterRowsSse2_8 = &filterRows8, .FilterColumnsSse2_8 = &filterColumns8, .FilterRows16 = &filterRows16};

}  // namespace tarnell::resample
