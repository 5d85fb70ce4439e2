// RemapAxis8: each output row is a run fetched along one source line from 16.16
// coordinates, by nearest sample or by linear interpolation through
// SignedMul255Table. Pixels whose coordinate falls outside [first, end) are left
// untouched.
#include "resample/remap_common.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void RemapAxis8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                int32_t pixels, int32_t samplesPerPixel, int32_t sourceAdvance, int32_t sourceRowStride,
                int32_t destinationAdvance, int32_t destinationPixelStride, int32_t first, int32_t end,
                int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const RemapAxis axis(first, end, interpolate != 0);
  // Interpolated four-sample pixels: one vector step; a zero fraction interpolates
  // toward the pixel itself (the identity), so its neighbour is never read.
  const bool vector = axis.interpolate && samplesPerPixel == 4;
  // One to three samples: groups of eight pixels, the rest of each row below.
  const bool groups = samplesPerPixel >= 1 && samplesPerPixel <= 3 && axis.limit >= 0;
  for (int32_t r = 0; r < rows; ++r) {
    const uint8_t* line = source + intptr_t{r} * sourceAdvance;
    uint8_t* d = destination + intptr_t{r} * destinationAdvance;
    const auto limit = static_cast<uint32_t>(axis.limit);
    const RemapRun run{line, sourceRowStride, 0, destinationPixelStride, axis.origin, limit, 0, 0,
                       wordPairsFit(sourceRowStride, limit, 0, 0, false)};
    const int32_t done = groups ? remapRow8<false>(coordinates, run, axis.interpolate, d, pixels, samplesPerPixel) : 0;
    coordinates += done;
    d += intptr_t{done} * destinationPixelStride;
    for (int32_t p = done; p < pixels; ++p, d += destinationPixelStride) {
      const int32_t c = axis.offset(*coordinates++);
      if (!axis.accepts(c)) continue;
      const uint8_t* a = line + intptr_t{c >> 16} * sourceRowStride;
      const uint32_t f = fraction(c);
      if (vector)
        lerpPixel4(a, f != 0 ? a + sourceRowStride : a, f, d);
      else if (!axis.interpolate || f == 0)
        copySamples(a, d, samplesPerPixel);
      else
        lerpSamples(a, a + sourceRowStride, f, d, samplesPerPixel);
    }
  }
}

}  // namespace tarnell::resample
