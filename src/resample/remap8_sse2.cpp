// The 8-bit remaps, RemapAxis8 (slot 18) and RemapPlane8 (slot 19): the body of
// remap8_body.h with the SSE2 group kernels. The AVX2 file builds the same body
// with its own.
#include "resample/remap8_body.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void RemapAxis8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows, int32_t pixels,
                int32_t samplesPerPixel, int32_t sourceAdvance, int32_t sourceRowStride, int32_t destinationAdvance,
                int32_t destinationPixelStride, int32_t first, int32_t end, int16_t interpolate) {
  remapAxis8<Sse2Groups>(coordinates, source, destination, rows, pixels, samplesPerPixel, sourceAdvance,
                         sourceRowStride, destinationAdvance, destinationPixelStride, first, end, interpolate);
}

void RemapPlane8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows, int32_t pixels,
                 int32_t samplesPerPixel, int32_t sourcePixelStride, int32_t sourceRowStride,
                 int32_t destinationAdvance, int32_t destinationPixelStride, int32_t firstX, int32_t endX,
                 int32_t firstY, int32_t endY, int16_t interpolate) {
  remapPlane8<Sse2Groups>(coordinates, source, destination, rows, pixels, samplesPerPixel, sourcePixelStride,
                          sourceRowStride, destinationAdvance, destinationPixelStride, firstX, endX, firstY, endY,
                          interpolate);
}

}  // namespace tarnell::resample
