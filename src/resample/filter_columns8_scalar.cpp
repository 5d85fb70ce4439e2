// FilterColumns8: the 8-bit vertical kernel filter of processors without SSE2
// (replaced by FilterColumnsSse2_8 wherever SSE2 exists). Four samples at a time
// in general-purpose registers, then the rest; 0 or 1 tap copies source row
// indices[r] + 1 through the live 'memo' slot 0.
#include "host/module_state.h"
#include "resample/kernel_scalar.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void copyRow(const uint8_t* source, uint8_t* destination, int32_t width) {
  liveRoutine<slot::copyBytes>()(source, destination, width);
}

void FilterColumns8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                    const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                    const int16_t* weights) {
  const int32_t n = taps < 0 ? 0 : taps;
  eachColumnRow(source, destination, rows, width, indices, phases, sourceStride, destinationStride, taps, weights,
                copyRow, [&](const uint8_t* row0, const int16_t* w, uint8_t* d) {
                  int32_t x = 0;
                  for (; x + 4 <= width; x += 4) {
                    uint32_t acc[4] = {8192, 8192, 8192, 8192};
                    for (int32_t k = 0; k < n; ++k) {
                      const uint8_t* p = row0 + intptr_t{k} * sourceStride + x;
                      for (int i = 0; i < 4; ++i) acc[i] += static_cast<uint32_t>(int32_t{w[k]} * int32_t{p[i]});
                    }
                    for (int i = 0; i < 4; ++i) d[x + i] = clamp8(static_cast<int32_t>(acc[i]) >> 14);
                  }
                  for (; x < width; ++x) d[x] = clamp8(kernelSum(row0 + x, sourceStride, w, n));
                });
}

}  // namespace tarnell::resample
