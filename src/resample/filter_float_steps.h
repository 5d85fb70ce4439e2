// The steps of the float kernel filters (slots 26 and 27) that fix the summation
// order, shared by every level's body so that the order is written once: four
// taps at a time as ((p0 + p1) + (p2 + p3)), products past the last tap +0.0,
// each group added to a sum that starts at +0.0, then times 1/16384. The column
// sums are SSE2; the row steps (the packed dot product) need SSE4.1 and exist
// only in files built for it. Internal linkage: each level's file keeps its own
// copy, built for its own instruction set.
#pragma once

#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "resample/resample_routines.h"

#if defined(__SSE4_1__)
#include <smmintrin.h>
#endif

namespace tarnell::resample {
namespace {

// Four output samples of the vertical filter at row0, n taps stride floats apart.
inline __m128 columnSum4(const float* row0, intptr_t stride, const int16_t* w, int32_t n) {
  __m128 acc = _mm_setzero_ps();
  for (int32_t k = 0; k < n; k += 4) {
    __m128 p[4];
    for (int32_t i = 0; i < 4; ++i)
      p[i] = k + i < n ? _mm_mul_ps(_mm_set1_ps(static_cast<float>(w[k + i])), _mm_loadu_ps(row0 + (k + i) * stride))
                       : _mm_setzero_ps();
    acc = _mm_add_ps(acc, _mm_add_ps(_mm_add_ps(p[0], p[1]), _mm_add_ps(p[2], p[3])));
  }
  return _mm_mul_ps(acc, _mm_set1_ps(kWeightScale));
}

// One output sample of the vertical filter, in the same order.
inline float columnSum1(const float* row0, intptr_t stride, const int16_t* w, int32_t n) {
  float acc = 0.0f;
  for (int32_t k = 0; k < n; k += 4) {
    float p[4];
    for (int32_t i = 0; i < 4; ++i) p[i] = k + i < n ? static_cast<float>(w[k + i]) * row0[(k + i) * stride] : 0.0f;
    acc = acc + ((p[0] + p[1]) + (p[2] + p[3]));
  }
  return acc * kWeightScale;
}

// Rows of a band for the fixed-tap row loops, which convert an output's weights
// once per band: about 48 KiB of source rows, 4 to 128 of them.
inline int32_t bandRows(int32_t width) {
  const int64_t band = 49152 / (int64_t{width} * 4);
  return band < 4 ? 4 : band > 128 ? 128 : static_cast<int32_t>(band);
}

// The tap counts that have row loops of their own, 1 and every even count from 2
// to 20, as fixed(std::integral_constant<int, K>{}); any other count: general().
template <class Fixed, class General>
inline void byTapCount(int32_t taps, Fixed fixed, General general) {
  switch (taps) {
#define TARNELL_FLOAT_CASE(K) \
  case K: return fixed(std::integral_constant<int, K>{});
    TARNELL_FLOAT_CASE(1) TARNELL_FLOAT_CASE(2) TARNELL_FLOAT_CASE(4) TARNELL_FLOAT_CASE(6) TARNELL_FLOAT_CASE(8)
    TARNELL_FLOAT_CASE(10) TARNELL_FLOAT_CASE(12) TARNELL_FLOAT_CASE(14) TARNELL_FLOAT_CASE(16)
    TARNELL_FLOAT_CASE(18) TARNELL_FLOAT_CASE(20)
#undef TARNELL_FLOAT_CASE
    default: return general();
  }
}

#if defined(__SSE4_1__)
// n floats (1..4) from p, zero above; reads nothing past them.
inline __m128 loadFloats(const float* p, int n) {
  switch (n) {
    case 1: return _mm_load_ss(p);
    case 2: return _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p)));
    case 3: return _mm_movelh_ps(_mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p))), _mm_load_ss(p + 2));
    default: return _mm_loadu_ps(p);
  }
}

// n weights (1..4) as floats, zero above; reads only those n.
inline __m128 loadWeights(const int16_t* w, int n) {
  __m128i words;
  switch (n) {
    case 1: words = _mm_cvtsi32_si128(static_cast<uint16_t>(w[0])); break;
    case 2: {
      int32_t v;
      std::memcpy(&v, w, 4);
      words = _mm_cvtsi32_si128(v);
      break;
    }
    case 3: {
      int32_t v;
      std::memcpy(&v, w, 4);
      words = _mm_insert_epi16(_mm_cvtsi32_si128(v), w[2], 2);
      break;
    }
    default: words = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(w)); break;
  }
  return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(words));
}

// Dot product of the first n lanes (1..4), in lane 0: ((p0 + p1) + (p2 + p3)),
// the lanes past n +0.0.
inline __m128 dot(__m128 s, __m128 w, int n) {
  switch (n) {
    case 1: return _mm_dp_ps(s, w, 0x11);
    case 2: return _mm_dp_ps(s, w, 0x31);
    case 3: return _mm_dp_ps(s, w, 0x71);
    default: return _mm_dp_ps(s, w, 0xF1);
  }
}
#endif

}  // namespace
}  // namespace tarnell::resample
