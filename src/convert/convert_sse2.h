// The depth conversions of the 'conv' suite, SSE2 (the x86-64 baseline).
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell {

void convert16To8Planar3(const uint16_t* source0, const uint16_t* source1, const uint16_t* source2,
                         uint8_t* destination0, uint8_t* destination1, uint8_t* destination2, int32_t rows,
                         int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither);
void convert16To8(const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, uint8_t dither);
void convert8To16(const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride);
void rescale16(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride);
void convertFloatTo8(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride, uint8_t dither);

// The dither start for a destination address: a byte offset into the noise
// buffer's first period (below 12281). Exposed for tests.
uint32_t ditherStartOffset(const void* destination);

}  // namespace tarnell
