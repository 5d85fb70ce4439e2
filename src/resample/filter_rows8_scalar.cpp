// FilterRowsScalar8: the 8-bit horizontal kernel filter of processors without
// SSE2 (replaced by FilterRowsSse2_8 wherever SSE2 exists). One output at a time.
#include "resample/kernel_scalar.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void FilterRowsScalar8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width,
                       const int32_t* indices, const uint8_t* phases, int32_t sourceStride, int32_t destinationStride,
                       int16_t taps, const int16_t* weights) {
  if (rows < 1 || width < 1) return;
  const int32_t n = taps < 0 ? 0 : taps;
  for (int32_t r = 0; r < rows; ++r) {
    const uint8_t* s = rowAt(source, r, sourceStride);
    uint8_t* d = rowAt(destination, r, destinationStride);
    for (int32_t x = 0; x < width; ++x)
      d[x] = clamp8(kernelSum(s + firstTap(indices[x], taps), 1, weights + int32_t{phases[x]} * n, n));
  }
}

}  // namespace tarnell::resample
