// FilterRowsSse2_8: the 8-bit horizontal kernel filter, four outputs per vector
// step, with loops of their own for 2, 4, 6, 8, 10 and 16 taps.
#include "resample/kernel_sse2.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void FilterRowsSse2_8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width,
                      const int32_t* indices, const uint8_t* phases, int32_t sourceStride, int32_t destinationStride,
                      int16_t taps, const int16_t* weights) {
  filterRows<ByteSamples>(source, destination, rows, width, indices, phases, sourceStride, destinationStride, taps,
                          weights);
}

}  // namespace tarnell::resample
