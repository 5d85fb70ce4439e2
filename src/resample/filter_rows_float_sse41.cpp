// FilterRowsFloat: the float horizontal kernel filter. Each output's sum is built
// four taps at a time with the packed dot product (dpps), whose order is
// ((p0 + p1) + (p2 + p3)) with masked-out taps as +0.0, added group by group to a
// sum that starts at +0.0; then times 1/16384. Loops of their own for 1 tap and
// every even count from 2 to 20, a general loop otherwise. Built with -msse4.1:
// everything stays in this file; the table at the end is the one way out.
#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "resample/filter_float_steps.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {
namespace {




// One output for any tap count (none or negative: 0).
float output(const float* p, const int16_t* w, int32_t n) {
  __m128 acc = _mm_setzero_ps();
  for (int32_t k = 0; k < n; k += 4) {
    const int m = n - k < 4 ? static_cast<int>(n - k) : 4;
    acc = _mm_add_ss(acc, dot(loadFloats(p + k, m), loadWeights(w + k, m), m));
  }
  return _mm_cvtss_f32(_mm_mul_ss(acc, _mm_set_ss(kWeightScale)));
}

void rowsGeneral(const float* source, float* destination, int32_t rowCount, int32_t width, const int32_t* indices,
                 const uint8_t* phases, intptr_t ss, intptr_t ds, int32_t taps, const int16_t* weights) {
  const int32_t n = taps < 0 ? 0 : taps;
  for (int32_t r = 0; r < rowCount; ++r)
    for (int32_t x = 0; x < width; ++x)
      destination[r * ds + x] = output(source + r * ss + (intptr_t{indices[x]} + 1 - taps / 2),
                                       weights + int32_t{phases[x]} * n, n);
}

// Taps fixed: each output converts its weights once per band of rows (up to 128
// rows, about 48 KiB of source) and then walks down the band.
template <int Taps>
void rowsFixed(const float* source, float* destination, int32_t rowCount, int32_t width, const int32_t* indices,
               const uint8_t* phases, intptr_t ss, intptr_t ds, const int16_t* weights) {
  constexpr int kGroups = (Taps + 3) / 4;
  constexpr auto lanes = [](int g) { return Taps - 4 * g < 4 ? Taps - 4 * g : 4; };
  const int32_t band = bandRows(width);
  for (int32_t top = 0; top < rowCount; top += band) {
    const int32_t rows = rowCount - top < band ? rowCount - top : band;
    for (int32_t x = 0; x < width; ++x) {
      __m128 w[static_cast<std::size_t>(kGroups)];
      for (int g = 0; g < kGroups; ++g) w[g] = loadWeights(weights + int32_t{phases[x]} * Taps + 4 * g, lanes(g));
      const float* s = source + top * ss + (intptr_t{indices[x]} + 1 - Taps / 2);
      float* d = destination + top * ds + x;
      for (int32_t r = 0; r < rows; ++r, s += ss, d += ds) {
        __m128 acc = _mm_setzero_ps();
        for (int g = 0; g < kGroups; ++g) acc = _mm_add_ss(acc, dot(loadFloats(s + 4 * g, lanes(g)), w[g], lanes(g)));
        _mm_store_ss(d, _mm_mul_ss(acc, _mm_set_ss(kWeightScale)));
      }
    }
  }
}

void FilterRowsFloat(const float* source, float* destination, int32_t rowCount, int32_t width,
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

}  // namespace

constinit const ResampleTable g_resampleSse41 = {.FilterRowsFloat = &FilterRowsFloat};

}  // namespace tarnell::resample
