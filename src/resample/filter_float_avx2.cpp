// The float kernel filters (slots 26 and 27), AVX2. The summation order is part
// of the results (see the contracts): each output's sum is built four taps at a
// time as ((p0 + p1) + (p2 + p3)), products past the last tap +0.0, each group
// added to a sum that starts at +0.0, then times 1/16384, every step a
// single-precision operation. The wider bodies keep that order exactly:
// - FilterRowsFloat: the packed dot product on 256 bits is the SSE4.1 one in each
//   128-bit half, so two source rows of the same output column go through one
//   instruction (the SSE4.1 body does one row at a time); an odd last row of a
//   band takes the 128-bit form.
// - FilterColumnsFloat: eight samples a step instead of four, the same
//   operations per lane; then four, then one at a time, as the SSE2 body.
// Everything stays in this file; the table at the end is the one way in.
// Measured (tarnell-host bench --tier, 256x256, medians of three): FilterRowsFloat
// about 1.15 times the SSE4.1 body (the dot product's own cost bounds it),
// FilterColumnsFloat 2.4 times the SSE2 body.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "resample/filter_float_steps.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {
namespace {

// ---------------------------------------------------------------- slot 26



// The same in each 128-bit half.
inline __m256 dot(__m256 s, __m256 w, int n) {
  switch (n) {
    case 1: return _mm256_dp_ps(s, w, 0x11);
    case 2: return _mm256_dp_ps(s, w, 0x31);
    case 3: return _mm256_dp_ps(s, w, 0x71);
    default: return _mm256_dp_ps(s, w, 0xF1);
  }
}

inline __m256 both(__m128 low, __m128 high) { return _mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1); }

// One output column over rows rows from s (rows ss apart) into d (ds apart):
// weights w[g] of the groups (lanes(g) taps each), two rows per step.
template <class Lanes>
inline void column(const float* s, float* d, int32_t rows, intptr_t ss, intptr_t ds, const __m128* w, int32_t groups,
                   Lanes lanes) {
  int32_t r = 0;
  for (; r + 2 <= rows; r += 2, s += 2 * ss, d += 2 * ds) {
    __m256 acc = _mm256_setzero_ps();
    for (int32_t g = 0; g < groups; ++g) {
      const int m = lanes(g);
      acc = _mm256_add_ps(acc, dot(both(loadFloats(s + 4 * g, m), loadFloats(s + ss + 4 * g, m)), both(w[g], w[g]), m));
    }
    acc = _mm256_mul_ps(acc, _mm256_set1_ps(kWeightScale));
    _mm_store_ss(d, _mm256_castps256_ps128(acc));
    _mm_store_ss(d + ds, _mm256_extractf128_ps(acc, 1));
  }
  if (r < rows) {
    __m128 acc = _mm_setzero_ps();
    for (int32_t g = 0; g < groups; ++g) acc = _mm_add_ss(acc, dot(loadFloats(s + 4 * g, lanes(g)), w[g], lanes(g)));
    _mm_store_ss(d, _mm_mul_ss(acc, _mm_set_ss(kWeightScale)));
  }
}

// Any tap count (none or negative: every output 0).
void rowsGeneral(const float* source, float* destination, int32_t rowCount, int32_t width, const int32_t* indices,
                 const uint8_t* phases, intptr_t ss, intptr_t ds, int32_t taps, const int16_t* weights) {
  const int32_t n = taps < 0 ? 0 : taps;
  const int32_t groups = (n + 3) / 4;
  for (int32_t x = 0; x < width; ++x) {
    const int16_t* w = weights + int32_t{phases[x]} * n;
    const float* s = source + (intptr_t{indices[x]} + 1 - taps / 2);
    float* d = destination + x;
    const auto lanes = [n](int32_t g) { return n - 4 * g < 4 ? static_cast<int>(n - 4 * g) : 4; };
    // Weights of up to 64 groups converted at a time; a longer kernel converts per group.
    if (groups <= 64) {
      __m128 converted[64];
      for (int32_t g = 0; g < groups; ++g) converted[g] = loadWeights(w + 4 * g, lanes(g));
      column(s, d, rowCount, ss, ds, converted, groups, lanes);
      continue;
    }
    for (int32_t r = 0; r < rowCount; ++r, s += ss, d += ds) {
      __m128 acc = _mm_setzero_ps();
      for (int32_t g = 0; g < groups; ++g)
        acc = _mm_add_ss(acc, dot(loadFloats(s + 4 * g, lanes(g)), loadWeights(w + 4 * g, lanes(g)), lanes(g)));
      _mm_store_ss(d, _mm_mul_ss(acc, _mm_set_ss(kWeightScale)));
    }
  }
}

// Taps fixed: each output converts its weights once per band of rows (up to 128
// rows, about 48 KiB of source) and then walks down the band, two rows a step.
template <int Taps>
void rowsFixed(const float* source, float* destination, int32_t rowCount, int32_t width, const int32_t* indices,
               const uint8_t* phases, intptr_t ss, intptr_t ds, const int16_t* weights) {
  constexpr int kGroups = (Taps + 3) / 4;
  const auto lanes = [](int32_t g) { return Taps - 4 * g < 4 ? static_cast<int>(Taps - 4 * g) : 4; };
  const int32_t band = bandRows(width);
  for (int32_t top = 0; top < rowCount; top += band) {
    const int32_t rows = rowCount - top < band ? rowCount - top : band;
    for (int32_t x = 0; x < width; ++x) {
      __m128 w[static_cast<std::size_t>(kGroups)];
      for (int32_t g = 0; g < kGroups; ++g) w[g] = loadWeights(weights + int32_t{phases[x]} * Taps + 4 * g, lanes(g));
      column(source + top * ss + (intptr_t{indices[x]} + 1 - Taps / 2), destination + top * ds + x, rows, ss, ds, w,
             kGroups, lanes);
    }
  }
}

void filterRowsFloat(const float* source, float* destination, int32_t rowCount, int32_t width,
                     const int32_t* indices, const uint8_t* phases, int32_t sourceStride, int32_t destinationStride,
                     int16_t taps, const int16_t* weights) {
  if (rowCount < 1 || width < 1) return;
  const intptr_t ss = sourceStride / 4, ds = destinationStride / 4;
  byTapCount(
      taps,
      [&](auto k) {
        rowsFixed<decltype(k)::value>(source, destination, rowCount, width, indices, phases, ss, ds, weights);
      },
      [&] { rowsGeneral(source, destination, rowCount, width, indices, phases, ss, ds, taps, weights); });
}

// ---------------------------------------------------------------- slot 27

// Eight, four or one output samples at x, the same operations per lane.
__m256 columnSum8(const float* row0, intptr_t stride, const int16_t* w, int32_t n) {
  __m256 acc = _mm256_setzero_ps();
  for (int32_t k = 0; k < n; k += 4) {
    __m256 p[4];
    for (int32_t i = 0; i < 4; ++i)
      p[i] = k + i < n ? _mm256_mul_ps(_mm256_set1_ps(static_cast<float>(w[k + i])),
                                       _mm256_loadu_ps(row0 + (k + i) * stride))
                       : _mm256_setzero_ps();
    acc = _mm256_add_ps(acc, _mm256_add_ps(_mm256_add_ps(p[0], p[1]), _mm256_add_ps(p[2], p[3])));
  }
  return _mm256_mul_ps(acc, _mm256_set1_ps(kWeightScale));
}


void filterColumnsFloat(const float* source, float* destination, int32_t rows, int32_t width, const int32_t* indices,
                        const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                        const int16_t* weights) {
  if (rows < 1 || width < 1) return;
  const intptr_t ss = sourceStride / 4, ds = destinationStride / 4;
  const int32_t n = taps < 0 ? 0 : taps;
  for (int32_t r = 0; r < rows; ++r) {
    const float* row0 = source + (intptr_t{indices[r]} + 1 - taps / 2) * ss;
    const int16_t* w = weights + int32_t{phases[r]} * n;
    float* d = destination + r * ds;
    int32_t x = 0;
    for (; x + 8 <= width; x += 8) _mm256_storeu_ps(d + x, columnSum8(row0 + x, ss, w, n));
    for (; x + 4 <= width; x += 4) _mm_storeu_ps(d + x, columnSum4(row0 + x, ss, w, n));
    for (; x < width; ++x) d[x] = columnSum1(row0 + x, ss, w, n);
  }
}

}  // namespace

constinit const ResampleTable g_filterFloatAvx2 = {.FilterRowsFloat = &filterRowsFloat,
                                                   .FilterColumnsFloat = &filterColumnsFloat};

}  // namespace tarnell::resample
