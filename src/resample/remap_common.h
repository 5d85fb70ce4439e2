// What the two 8-bit remaps share: the coordinate offset and acceptance test, and
// the per-pixel copy and interpolation through SignedMul255Table.
#pragma once

#include <cstdint>

#include "host/startup_tables.h"

namespace tarnell::resample {

// One axis of a remap. The coordinate less (first << 16) less the bias, as a
// signed 32-bit value, is accepted from 0 to ((end - first) << 16) - 65536. The
// biases differ on purpose: nearest takes the integer part of the coordinate less
// one half; interpolation only rounds the fraction to 8 bits.
struct RemapAxis {
  RemapAxis(int32_t first, int32_t end, bool lerp)
      : origin((static_cast<uint32_t>(first) << 16) + (lerp ? 128u : 32768u)),
        limit(static_cast<int32_t>((static_cast<uint32_t>(end) - static_cast<uint32_t>(first)) * 65536u - 65536u)),
        interpolate(lerp) {}
  int32_t offset(uint32_t coordinate) const { return static_cast<int32_t>(coordinate - origin); }
  bool accepts(int32_t c) const { return c >= 0 && c <= limit; }
  uint32_t origin;
  int32_t limit;
  bool interpolate;
};

inline uint32_t fraction(int32_t c) { return (static_cast<uint32_t>(c) >> 8) & 255u; }

// a + f/255 of the way to b, rounded as the table rounds; kept as a byte.
inline uint8_t lerp(uint32_t a, uint32_t b, uint32_t f) {
  return static_cast<uint8_t>(static_cast<int32_t>(a) + SignedMul255Table[f][255 + static_cast<int32_t>(b) - static_cast<int32_t>(a)]);
}

// Samples two at a time, then the odd one.
inline void copySamples(const uint8_t* a, uint8_t* d, int32_t n) {
  int32_t s = 0;
  for (; s + 2 <= n; s += 2) {
    d[s] = a[s];
    d[s + 1] = a[s + 1];
  }
  if (s < n) d[s] = a[s];
}

inline void lerpSamples(const uint8_t* a, const uint8_t* b, uint32_t f, uint8_t* d, int32_t n) {
  int32_t s = 0;
  for (; s + 2 <= n; s += 2) {
    d[s] = lerp(a[s], b[s], f);
    d[s + 1] = lerp(a[s + 1], b[s + 1], f);
  }
  if (s < n) d[s] = lerp(a[s], b[s], f);
}

}  // namespace tarnell::resample
