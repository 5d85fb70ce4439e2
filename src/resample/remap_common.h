// What the two 8-bit remaps share: the coordinate offset and acceptance test, and
// the per-pixel copy and interpolation through SignedMul255Table.
#pragma once

#include <emmintrin.h>

#include <array>
#include <cstdint>
#include <cstring>

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

// --- four-sample pixels in 16-bit lanes (SSE2) ---------------------------------

// a + f/255 of (b - a) in eight 16-bit lanes, rounded as SignedMul255Table rounds.
// 255 is odd, so no quotient is a tie and the table's entry is floor((f (b - a) +
// 127) / 255) whatever the sign; adding 255 a inside gives the non-negative
// (255 - f) a + f b + 127 < 2^16, divided by 255 exactly as x 0x8081 >> 23.
// g is 255 - f.
inline __m128i lerp8(__m128i a, __m128i b, __m128i f, __m128i g) {
  const __m128i n = _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, g), _mm_mullo_epi16(b, f)), _mm_set1_epi16(127));
  return _mm_srli_epi16(_mm_mulhi_epu16(n, _mm_set1_epi16(static_cast<int16_t>(0x8081))), 7);
}

// Eight 16-bit lanes of f, for every fraction: loaded instead of broadcast.
struct alignas(16) Splat {
  int16_t lane[8];
};
inline constexpr auto kSplat = [] {
  std::array<Splat, 256> t{};
  for (int f = 0; f < 256; ++f)
    for (int16_t& v : t[static_cast<std::size_t>(f)].lane) v = static_cast<int16_t>(f);
  return t;
}();
inline __m128i splat(uint32_t f) { return _mm_load_si128(reinterpret_cast<const __m128i*>(&kSplat[f])); }

// Two four-sample pixels as eight 16-bit lanes.
inline __m128i pixelPair(const uint8_t* left, const uint8_t* right) {
  uint32_t l, r;
  std::memcpy(&l, left, 4);
  std::memcpy(&r, right, 4);
  return _mm_unpacklo_epi8(_mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(l)), _mm_cvtsi32_si128(static_cast<int>(r))),
                           _mm_setzero_si128());
}

// Four samples f/255 of the way from a to b, stored at d.
inline void lerpPixel4(const uint8_t* a, const uint8_t* b, uint32_t f, uint8_t* d) {
  const __m128i v = pixelPair(a, b);
  const __m128i out = lerp8(v, _mm_unpackhi_epi64(v, v), splat(f), splat(255 - f));
  const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(out, out));
  std::memcpy(d, &bytes, 4);
}

}  // namespace tarnell::resample
