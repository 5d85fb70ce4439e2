// RemapPlane8: each output pixel fetched from an (x, y) pair of 16.16 source
// coordinates, by nearest pixel or bilinearly: down by fy in columns i and i + 1
// (each kept as a byte), then across by fx. A pixel is written only when both
// coordinates are inside their ranges. The destination walks as in RemapAxis8: a
// pixel stride after each pixel, the advance after each row.
//
// Bilinear four-sample pixels take a vector path: the two columns are
// interpolated down in one step and then across, with the table's rounding
// computed exactly in 16-bit lanes (lerp8). A zero fraction makes its step the identity
// (the table's row 0 is all zeros), so the one path serves every case; its
// neighbour is then read at the pixel itself, never past the source's edge.
#include "resample/remap_common.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

namespace {

// One four-sample pixel at a: the pixel to its right is a + across, the one below
// a + down (0 for a zero fraction).
void bilinear4(const uint8_t* a, intptr_t across, intptr_t down, uint32_t fx, uint32_t fy, uint8_t* d) {
  const __m128i top = pixelPair(a, a + across), bottom = pixelPair(a + down, a + across + down);
  const __m128i columns = lerp8(top, bottom, splat(fy), splat(255 - fy));
  const __m128i out = lerp8(columns, _mm_unpackhi_epi64(columns, columns), splat(fx), splat(255 - fx));
  const int v = _mm_cvtsi128_si32(_mm_packus_epi16(out, out));
  std::memcpy(d, &v, 4);
}

// Every row and pixel of a bilinear remap of four-sample pixels: groups of eight
// interior pixels in pairs (lerpRow4), the others one at a time. A coordinate is
// accepted when its offset, read unsigned, is at most the (non-negative) limit.
void bilinearPlane4(const uint32_t* coordinates, uint8_t* destination, int32_t rows, int32_t pixels,
                    intptr_t destinationAdvance, const RemapRun& run) {
  const auto pixel = [&run](const uint32_t* c, uint8_t* d) {
    const uint32_t cx = c[0] - run.originX, cy = c[1] - run.originY;
    if (cx > run.limitX || cy > run.limitY) return;
    const uint32_t fx = (cx >> 8) & 255u, fy = (cy >> 8) & 255u;
    bilinear4(run.source + intptr_t{cx >> 16} * run.ps + intptr_t{cy >> 16} * run.rs, fx != 0 ? run.ps : 0,
              fy != 0 ? run.rs : 0, fx, fy, d);
  };
  uint8_t* d = destination;
  for (int32_t r = 0; r < rows; ++r, coordinates += 2 * intptr_t{pixels})
    d = lerpRow4<true>(coordinates, run, d, pixels, pixel) + destinationAdvance;
}

}  // namespace

void RemapPlane8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                 int32_t pixels, int32_t samplesPerPixel, int32_t sourcePixelStride, int32_t sourceRowStride,
                 int32_t destinationAdvance, int32_t destinationPixelStride, int32_t firstX, int32_t endX,
                 int32_t firstY, int32_t endY, int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const bool lerpOn = interpolate != 0;
  const RemapAxis ax(firstX, endX, lerpOn), ay(firstY, endY, lerpOn);
  const intptr_t ps = sourcePixelStride, rs = sourceRowStride;
  // Nothing is accepted when a limit is negative.
  if (ax.limit < 0 || ay.limit < 0) return;
  const auto limitX = static_cast<uint32_t>(ax.limit), limitY = static_cast<uint32_t>(ay.limit);
  const RemapRun run{source,  ps,     rs,     destinationPixelStride,
                     ax.origin, limitX, ay.origin, limitY,
                     interiorFits(ps, limitX, rs, limitY, true)};
  if (lerpOn && samplesPerPixel == 4) return bilinearPlane4(coordinates, destination, rows, pixels, destinationAdvance, run);
  // One to four samples: groups of eight pixels, the rest of each row below.
  const bool groups = samplesPerPixel >= 1 && samplesPerPixel <= 4;
  uint8_t* d = destination;
  for (int32_t r = 0; r < rows; ++r, d += destinationAdvance) {
    const int32_t done = groups ? remapRow8<true>(coordinates, run, lerpOn, d, pixels, samplesPerPixel) : 0;
    coordinates += 2 * done;
    d += intptr_t{done} * destinationPixelStride;
    for (int32_t p = done; p < pixels; ++p, d += destinationPixelStride, coordinates += 2) {
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
