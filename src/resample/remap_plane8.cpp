// RemapPlane8: each output pixel fetched from an (x, y) pair of 16.16 source
// coordinates, by nearest pixel or bilinearly: down by fy in columns i and i + 1
// (each kept as a byte), then across by fx. A pixel is written only when both
// coordinates are inside their ranges.
#include "resample/remap_common.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void RemapPlane8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                 int32_t pixels, int32_t samplesPerPixel, int32_t sourcePixelStride, int32_t sourceRowStride,
                 int32_t destinationAdvance, int32_t destinationPixelStride, int32_t firstX, int32_t endX,
                 int32_t firstY, int32_t endY, int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const bool lerpOn = interpolate != 0;
  const RemapAxis ax(firstX, endX, lerpOn), ay(firstY, endY, lerpOn);
  const intptr_t ps = sourcePixelStride, rs = sourceRowStride;
  for (int32_t r = 0; r < rows; ++r) {
    uint8_t* d = destination + intptr_t{r} * destinationAdvance;
    for (int32_t p = 0; p < pixels; ++p, d += destinationPixelStride, coordinates += 2) {
      const int32_t cx = ax.offset(coordinates[0]), cy = ay.offset(coordinates[1]);
      if (!ax.accepts(cx) || !ay.accepts(cy)) continue;
      const uint8_t* a = source + intptr_t{cx >> 16} * ps + intptr_t{cy >> 16} * rs;
      const uint32_t fx = lerpOn ? fraction(cx) : 0, fy = lerpOn ? fraction(cy) : 0;
      if (fy == 0) {
        if (fx == 0)
          copySamples(a, d, samplesPerPixel);
        else
          lerpSamples(a, a + ps, fx, d, samplesPerPixel);
      } else if (fx == 0) {
        lerpSamples(a, a + rs, fy, d, samplesPerPixel);
      } else {
        for (int32_t s = 0; s < samplesPerPixel; ++s)
          d[s] = lerp(lerp(a[s], a[s + rs], fy), lerp(a[s + ps], a[s + ps + rs], fy), fx);
      }
    }
  }
}

}  // namespace tarnell::resample
