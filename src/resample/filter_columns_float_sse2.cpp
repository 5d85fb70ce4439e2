// FilterColumnsFloat: the float vertical kernel filter, four samples per step,
// then one at a time. The sum is formed four taps at a time in the order of a
// packed dot product, ((p0 + p1) + (p2 + p3)) with the products of taps past the
// end counted as +0.0, each group added to a sum that starts at +0.0; the result
// is that sum times 1/16384. The horizontal float filter and the host's portable
// routines use the same order, so all of them agree to the bit.
#include <emmintrin.h>

#include <algorithm>

#include "resample/filter_float_steps.h"
#include "resample/kernel_scalar.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void FilterColumnsFloat(const float* source, float* destination, int32_t rows, int32_t width, const int32_t* indices,
                        const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                        const int16_t* weights) {
  if (rows < 1 || width < 1) return;
  const intptr_t ss = sourceStride / 4, ds = destinationStride / 4;
  const int32_t n = std::max(int32_t{taps}, int32_t{0});
  for (int32_t r = 0; r < rows; ++r) {
    const float* row0 = rowAt(source, firstTap(indices[r], taps), ss);
    const int16_t* w = weights + int32_t{phases[r]} * n;
    float* d = rowAt(destination, r, ds);
    int32_t x = 0;
    for (; x + 4 <= width; x += 4) _mm_storeu_ps(d + x, columnSum4(row0 + x, ss, w, n));
    for (; x < width; ++x) d[x] = columnSum1(row0 + x, ss, w, n);
  }
}

}  // namespace tarnell::resample
