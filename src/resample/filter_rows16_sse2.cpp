// FilterRows16: the 16-bit horizontal kernel filter (full scale 32768). Strides
// count bytes and are halved, truncating. Same loops as the 8-bit filter: the
// samples enter the multiply-add offset by 32768, which the bias puts back.
#include "resample/kernel_sse2.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void FilterRows16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                  const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                  const int16_t* weights) {
  filterRows<WordSamples>(source, destination, rows, width, indices, phases, sourceStride / 2, destinationStride / 2,
                          taps, weights);
}

}  // namespace tarnell::resample
