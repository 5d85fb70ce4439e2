// SSE2 building blocks of the integer kernel filters (baseline files only).
//
// Loads read exactly the bytes a kernel covers, never past them: the caller
// guarantees only the taps themselves lie inside the source, and the weight table
// ends with the last phase's weights.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "resample/kernel_scalar.h"

namespace tarnell::resample {

// N bytes (0..16) from p into the low bytes of a vector, zero above.
template <int N>
inline __m128i loadBytes(const void* p) {
  const auto* b = static_cast<const unsigned char*>(p);
  if constexpr (N <= 0) {
    return _mm_setzero_si128();
  } else if constexpr (N >= 16) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
  } else if constexpr (N >= 8) {
    return _mm_unpacklo_epi64(_mm_loadl_epi64(static_cast<const __m128i*>(p)), loadBytes<N - 8>(b + 8));
  } else if constexpr (N >= 4) {
    uint32_t v;
    std::memcpy(&v, b, 4);
    return _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(v)), loadBytes<N - 4>(b + 4));
  } else if constexpr (N >= 2) {
    uint16_t v;
    std::memcpy(&v, b, 2);
    const int rest = N == 3 ? b[2] : 0;
    return _mm_cvtsi32_si128(int{v} | (rest << 16));
  } else {
    return _mm_cvtsi32_si128(b[0]);
  }
}

// loadBytes with a count known only at run time (1..16).
inline __m128i loadBytesUpTo16(const void* p, int n) {
  switch (n) {
#define TARNELL_LOAD_CASE(K) \
  case K: return loadBytes<K>(p);
    TARNELL_LOAD_CASE(1) TARNELL_LOAD_CASE(2) TARNELL_LOAD_CASE(3) TARNELL_LOAD_CASE(4) TARNELL_LOAD_CASE(5)
    TARNELL_LOAD_CASE(6) TARNELL_LOAD_CASE(7) TARNELL_LOAD_CASE(8) TARNELL_LOAD_CASE(9) TARNELL_LOAD_CASE(10)
    TARNELL_LOAD_CASE(11) TARNELL_LOAD_CASE(12) TARNELL_LOAD_CASE(13) TARNELL_LOAD_CASE(14) TARNELL_LOAD_CASE(15)
#undef TARNELL_LOAD_CASE
    default: return n >= 16 ? loadBytes<16>(p) : _mm_setzero_si128();
  }
}

// The four 32-bit sums of a, b, c and d, as lanes 0..3.
inline __m128i sum4(__m128i a, __m128i b, __m128i c, __m128i d) {
  const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
  const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
  return _mm_add_epi32(_mm_unpacklo_epi64(ab, cd), _mm_unpackhi_epi64(ab, cd));
}

// How a row filter sees its samples: eight taps of samples as 16-bit lanes that
// multiply-add exactly with signed weights (pmaddwd), and how the 32-bit result is
// clamped and stored.
//
// 8-bit samples are zero-extended. 16-bit samples (0..65535 as unsigned values)
// do not fit a signed lane, so they enter as s - 32768 and the sum gets
// 32768 x (sum of the weights) back through the bias; all of it modulo 2^32,
// as the host's 32-bit accumulator.
struct ByteSamples {
  using T = uint8_t;
  template <int Taps>
  static __m128i load(const T* p) {
    return _mm_unpacklo_epi8(loadBytes<Taps>(p), _mm_setzero_si128());
  }
  static __m128i loadUpTo8(const T* p, int taps) { return _mm_unpacklo_epi8(loadBytesUpTo16(p, taps), _mm_setzero_si128()); }
  static int32_t bias(const int16_t*, int32_t) { return 8192; }
  static void store4(T* d, __m128i shifted) {
    const __m128i words = _mm_packs_epi32(shifted, shifted);
    const int v = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(d, &v, 4);
  }
  static T clamp(int32_t v) { return clamp8(v); }
};

struct WordSamples {
  using T = uint16_t;
  template <int Taps>
  static __m128i load(const T* p) {
    return _mm_xor_si128(loadBytes<2 * Taps>(p), _mm_set1_epi16(-32768));
  }
  static __m128i loadUpTo8(const T* p, int taps) {
    return _mm_xor_si128(loadBytesUpTo16(p, 2 * taps), _mm_set1_epi16(-32768));
  }
  static int32_t bias(const int16_t* w, int32_t taps) {
    uint32_t sum = 0;
    for (int32_t k = 0; k < taps; ++k) sum += static_cast<uint32_t>(int32_t{w[k]});
    return static_cast<int32_t>(8192u + (sum << 15));
  }
  // Clamp to 0..32768, then pack through the signed range: v - 32768 lies in
  // -32768..0 and packs exactly; flipping the top bit gives v back.
  static void store4(T* d, __m128i shifted) {
    __m128i t = _mm_sub_epi32(shifted, _mm_set1_epi32(32768));
    t = _mm_and_si128(t, _mm_srai_epi32(t, 31));  // above 32768 -> 32768
    const __m128i words = _mm_xor_si128(_mm_packs_epi32(t, t), _mm_set1_epi16(-32768));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d), words);
  }
  static T clamp(int32_t v) { return clamp16(v); }
};

// One output's partial sums (four 32-bit lanes) for a kernel of Taps taps.
template <class S, int Taps>
struct FixedKernel {
  static constexpr int kGroups = (Taps + 7) / 8;
  __m128i w[static_cast<std::size_t>(kGroups)];
  void loadWeights(const int16_t* weights) {
    for (int g = 0; g < kGroups; ++g) w[g] = loadGroup(weights + 8 * g, g);
  }
  static __m128i loadGroup(const int16_t* p, int g) {
    if (g + 1 < kGroups || Taps % 8 == 0) return loadBytes<16>(p);
    return loadBytes<2 * (Taps % 8)>(p);
  }
  __m128i sum(const typename S::T* p) const {
    __m128i acc = _mm_madd_epi16(loadSamples(p, 0), w[0]);
    for (int g = 1; g < kGroups; ++g) acc = _mm_add_epi32(acc, _mm_madd_epi16(loadSamples(p + 8 * g, g), w[g]));
    return acc;
  }
  static __m128i loadSamples(const typename S::T* p, int g) {
    if (g + 1 < kGroups || Taps % 8 == 0) return S::template load<8>(p);
    return S::template load<Taps % 8>(p);
  }
};

// Rows are filtered in bands of this many: one group of four outputs loads its
// indices and weights once per band.
constexpr int32_t kRowBand = 8;

// The horizontal integer filter with Taps fixed: four outputs at a time, the
// remaining (width mod 4) one at a time with the scalar rule.
template <class S, int Taps>
void filterRowsFixed(const typename S::T* source, typename S::T* destination, int32_t rows, int32_t width,
                     const int32_t* indices, const uint8_t* phases, intptr_t sourceStride,
                     intptr_t destinationStride, const int16_t* weights) {
  using T = typename S::T;
  for (int32_t band = 0; band < rows; band += kRowBand) {
    const int32_t bandRows = std::min(kRowBand, rows - band);
    const T* src = rowAt(source, band, sourceStride);
    T* dst = rowAt(destination, band, destinationStride);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4) {
      FixedKernel<S, Taps> k[4];
      intptr_t at[4];
      int32_t bias[4];
      for (int i = 0; i < 4; ++i) {
        const int16_t* w = weights + int32_t{phases[x + i]} * Taps;
        k[i].loadWeights(w);
        at[i] = firstTap(indices[x + i], Taps);
        bias[i] = S::bias(w, Taps);
      }
      const __m128i b = _mm_setr_epi32(bias[0], bias[1], bias[2], bias[3]);
      for (int32_t r = 0; r < bandRows; ++r) {
        const T* s = rowAt(src, r, sourceStride);
        const __m128i acc = sum4(k[0].sum(s + at[0]), k[1].sum(s + at[1]), k[2].sum(s + at[2]), k[3].sum(s + at[3]));
        S::store4(rowAt(dst, r, destinationStride) + x, _mm_srai_epi32(_mm_add_epi32(acc, b), 14));
      }
    }
    for (; x < width; ++x) {
      const int16_t* w = weights + int32_t{phases[x]} * Taps;
      const intptr_t at = firstTap(indices[x], Taps);
      for (int32_t r = 0; r < bandRows; ++r)
        rowAt(dst, r, destinationStride)[x] = S::clamp(kernelSum(rowAt(src, r, sourceStride) + at, 1, w, Taps));
    }
  }
}

// One output's partial sums for any tap count: eight taps at a time, then the rest.
template <class S>
__m128i generalSum(const typename S::T* p, const int16_t* w, int32_t taps) {
  __m128i acc = _mm_setzero_si128();
  int32_t k = 0;
  for (; k + 8 <= taps; k += 8)
    acc = _mm_add_epi32(acc, _mm_madd_epi16(S::template load<8>(p + k), loadBytes<16>(w + k)));
  if (k < taps) acc = _mm_add_epi32(acc, _mm_madd_epi16(S::loadUpTo8(p + k, taps - k), loadBytesUpTo16(w + k, 2 * (taps - k))));
  return acc;
}

// The horizontal integer filter for any tap count (none or negative: every output
// is the rounding term alone, 0).
template <class S>
void filterRowsGeneral(const typename S::T* source, typename S::T* destination, int32_t rows, int32_t width,
                       const int32_t* indices, const uint8_t* phases, intptr_t sourceStride,
                       intptr_t destinationStride, int32_t taps, const int16_t* weights) {
  using T = typename S::T;
  const int32_t n = std::max(taps, int32_t{0});
  for (int32_t r = 0; r < rows; ++r) {
    const T* s = rowAt(source, r, sourceStride);
    T* d = rowAt(destination, r, destinationStride);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4) {
      __m128i part[4];
      int32_t bias[4];
      for (int i = 0; i < 4; ++i) {
        const int16_t* w = weights + int32_t{phases[x + i]} * n;
        part[i] = generalSum<S>(s + firstTap(indices[x + i], taps), w, n);
        bias[i] = S::bias(w, n);
      }
      const __m128i acc = _mm_add_epi32(sum4(part[0], part[1], part[2], part[3]),
                                        _mm_setr_epi32(bias[0], bias[1], bias[2], bias[3]));
      S::store4(d + x, _mm_srai_epi32(acc, 14));
    }
    for (; x < width; ++x)
      d[x] = S::clamp(kernelSum(s + firstTap(indices[x], taps), 1, weights + int32_t{phases[x]} * n, n));
  }
}

// Picks the loop for the tap count: the specialised ones the host uses most, the
// general one for everything else.
template <class S>
void filterRows(const typename S::T* source, typename S::T* destination, int32_t rows, int32_t width,
                const int32_t* indices, const uint8_t* phases, intptr_t sourceStride, intptr_t destinationStride,
                int16_t taps, const int16_t* weights) {
  if (rows < 1 || width < 1) return;
  switch (taps) {
#define TARNELL_FIXED_CASE(K)                                                                                   \
  case K:                                                                                                       \
    return filterRowsFixed<S, K>(source, destination, rows, width, indices, phases, sourceStride,               \
                                 destinationStride, weights);
    TARNELL_FIXED_CASE(2) TARNELL_FIXED_CASE(4) TARNELL_FIXED_CASE(6) TARNELL_FIXED_CASE(8) TARNELL_FIXED_CASE(10)
    TARNELL_FIXED_CASE(16)
#undef TARNELL_FIXED_CASE
    default:
      return filterRowsGeneral<S>(source, destination, rows, width, indices, phases, sourceStride,
                                  destinationStride, taps, weights);
  }
}

}  // namespace tarnell::resample
