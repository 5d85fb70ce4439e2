// RemapAxis8: each output row is a run fetched along one source line from 16.16
// coordinates, by nearest sample or by linear interpolation through
// SignedMul255Table. Pixels whose coordinate falls outside [first, end) are left
// untouched. The destination is one walking pointer: a pixel stride after each
// pixel, the advance after each row (so row r starts r x (pixels x pixel stride +
// advance) in).
#include "resample/remap_common.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

void RemapAxis8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                int32_t pixels, int32_t samplesPerPixel, int32_t sourceAdvance, int32_t sourceRowStride,
                int32_t destinationAdvance, int32_t destinationPixelStride, int32_t first, int32_t end,
                int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const RemapAxis axis(first, end, interpolate != 0);
  // Nothing is accepted when the limit is negative.
  if (axis.limit < 0) return;
  const auto limit = static_cast<uint32_t>(axis.limit);
  const bool fits = interiorFits(sourceRowStride, limit, 0, 0, false);
  uint8_t* d = destination;
  for (int32_t r = 0; r < rows; ++r, d += destinationAdvance) {
    const uint8_t* line = source + intptr_t{r} * sourceAdvance;
    const RemapRun run{line, sourceRowStride, 0, destinationPixelStride, axis.origin, limit, 0, 0, fits};
    // Interpolated four-sample pixels: groups of eight interior ones in pairs, the
    // others one vector step each; a zero fraction interpolates toward the pixel
    // itself (the identity), so its neighbour is never read.
    if (axis.interpolate && samplesPerPixel == 4) {
      d = lerpRow4<false>(coordinates, run, d, pixels, [&](const uint32_t* c, uint8_t* out) {
        const uint32_t offset = *c - axis.origin;
        if (offset > limit) return;
        const uint8_t* a = line + intptr_t{offset >> 16} * sourceRowStride;
        const uint32_t f = fraction(static_cast<int32_t>(offset));
        lerpPixel4(a, f != 0 ? a + sourceRowStride : a, f, out);
      });
      coordinates += pixels;
      continue;
    }
    // One to four samples: groups of eight pixels, the rest of the row below.
    const bool groups = samplesPerPixel >= 1 && samplesPerPixel <= 4;
    const int32_t done = groups ? remapRow8<false>(coordinates, run, axis.interpolate, d, pixels, samplesPerPixel) : 0;
    coordinates += done;
    d += intptr_t{done} * destinationPixelStride;
    for (int32_t p = done; p < pixels; ++p, d += destinationPixelStride) {
      const int32_t c = axis.offset(*coordinates++);
      if (!axis.accepts(c)) continue;
      const uint8_t* a = line + intptr_t{c >> 16} * sourceRowStride;
      if (!axis.interpolate || fraction(c) == 0)
        copySamples(a, d, samplesPerPixel);
      else
        lerpSamples(a, a + sourceRowStride, fraction(c), d, samplesPerPixel);
    }
  }
}

}  // namespace tarnell::resample
