// The 8-bit remaps' body, shared by the SSE2 and AVX2 files: each includes it, so
// everything keeps internal linkage and is compiled for that file's level (SSE2
// intrinsics here; a level's own group kernels come in through the policy W of
// the entry templates at the end). What is here: the coordinate offset and
// acceptance test, the per-pixel copy and interpolation through
// SignedMul255Table, the groups of eight pixels, and the order in which the
// output is visited.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "host/startup_tables.h"

namespace tarnell::resample {
namespace {

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
struct SplatTable {
  Splat row[256];
};
inline constexpr SplatTable kSplat = [] {
  SplatTable t{};
  for (int f = 0; f < 256; ++f)
    for (int16_t& v : t.row[f].lane) v = static_cast<int16_t>(f);
  return t;
}();
inline __m128i splat(uint32_t f) { return _mm_load_si128(reinterpret_cast<const __m128i*>(&kSplat.row[f])); }

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


// --- groups of eight pixels (SSE2) ---------------------------------------------

// Eight pixels of a remap per step: the coordinates are offset and range-checked
// in vector lanes; a rejected lane is set to offset 0 (the source's first pixel,
// which exists whenever anything is accepted) so that its reads stay inside, and
// is never stored. The neighbours are gathered with byte loads, two per 16-bit
// lane (the sample and the one across), four pixels to a 64-bit word; the
// interpolation runs in 16-bit lanes with lerp8. A zero fraction reads its
// neighbour at the pixel itself. TwoAxes reads (x, y) pairs; otherwise one
// coordinate per pixel, and ps is the step between source rows along the line.
struct RemapRun {
  const uint8_t* source;
  intptr_t ps, rs, dps;
  uint32_t originX, limitX, originY, limitY;
  // At least two columns (and rows), indices and strides in signed 16 bits: groups
  // of interior pixels take offsets from pmaddwd (interiorOffsets8).
  bool interior;
};

inline bool interiorFits(intptr_t ps, uint32_t limitX, intptr_t rs, uint32_t limitY, bool twoAxes) {
  const auto fits = [](uint32_t limit) { return limit >= 0x10000u && limit < 0x80000000u; };
  const auto short16 = [](intptr_t v) { return v >= -32768 && v <= 32767; };
  return fits(limitX) && short16(ps) && (!twoAxes || (fits(limitY) && short16(rs)));
}

// The coordinates of eight pixels less the origins.
template <bool TwoAxes>
inline void offsets8(const uint32_t* coordinates, const RemapRun& run, __m128i cx[2], __m128i cy[2]) {
  for (std::size_t h = 0; h < 2; ++h) {
    if constexpr (TwoAxes) {
      const __m128 v0 = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(coordinates + 8 * h)));
      const __m128 v1 = _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(coordinates + 8 * h + 4)));
      cx[h] = _mm_sub_epi32(_mm_castps_si128(_mm_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0))),
                            _mm_set1_epi32(static_cast<int32_t>(run.originX)));
      cy[h] = _mm_sub_epi32(_mm_castps_si128(_mm_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1))),
                            _mm_set1_epi32(static_cast<int32_t>(run.originY)));
    } else {
      cx[h] = _mm_sub_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(coordinates + 4 * h)),
                            _mm_set1_epi32(static_cast<int32_t>(run.originX)));
      cy[h] = _mm_setzero_si128();
    }
  }
}

// Lanes whose offset, read unsigned, is above the limit (given here as limit ^ 2^31).
template <bool TwoAxes>
inline __m128i beyond(__m128i cx, __m128i cy, __m128i limitX, __m128i limitY) {
  const __m128i sign = _mm_set1_epi32(static_cast<int32_t>(0x80000000u));
  const __m128i x = _mm_cmpgt_epi32(_mm_xor_si128(cx, sign), limitX);
  if constexpr (!TwoAxes) return x;
  return _mm_or_si128(x, _mm_cmpgt_epi32(_mm_xor_si128(cy, sign), limitY));
}

// Zeroes the offsets of rejected lanes; returns the rejected lanes as eight bits.
template <bool TwoAxes>
inline unsigned reject8(const RemapRun& run, __m128i cx[2], __m128i cy[2]) {
  const __m128i limitX = _mm_set1_epi32(static_cast<int32_t>(run.limitX ^ 0x80000000u));
  const __m128i limitY = _mm_set1_epi32(static_cast<int32_t>(run.limitY ^ 0x80000000u));
  __m128i rejected[2];
  for (std::size_t h = 0; h < 2; ++h) {
    rejected[h] = beyond<TwoAxes>(cx[h], cy[h], limitX, limitY);
    cx[h] = _mm_andnot_si128(rejected[h], cx[h]);
    cy[h] = _mm_andnot_si128(rejected[h], cy[h]);
  }
  const __m128i bytes = _mm_packs_epi16(_mm_packs_epi32(rejected[0], rejected[1]), _mm_setzero_si128());
  return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

// Bits 8..15 of each offset (the 8-bit fraction) in eight 16-bit lanes.
inline __m128i fractions8(const __m128i c[2]) {
  return _mm_packs_epi32(_mm_srli_epi32(_mm_slli_epi32(c[0], 16), 24), _mm_srli_epi32(_mm_slli_epi32(c[1], 16), 24));
}

// Stores the samples of the eight pixels (byte k of out[s] is sample s of pixel k),
// skipping rejected ones.
template <std::size_t Spp>
inline void storePixels8(const uint64_t (&out)[Spp], unsigned rejected, uint8_t* d, intptr_t dps) {
  if (rejected == 0 && dps == static_cast<intptr_t>(Spp) && Spp <= 2) {
    if constexpr (Spp == 1) {
      std::memcpy(d, &out[0], 8);
    } else {
      const __m128i v = _mm_unpacklo_epi8(_mm_cvtsi64_si128(static_cast<long long>(out[0])),
                                          _mm_cvtsi64_si128(static_cast<long long>(out[Spp - 1])));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v);
    }
    return;
  }
  for (std::size_t k = 0; k < 8; ++k, d += dps)
    if ((rejected >> k & 1u) == 0)
      for (std::size_t s = 0; s < Spp; ++s) d[s] = static_cast<uint8_t>(out[s] >> (8 * k));
}

// The eight lanes of c[0] and c[1] as scalars.
inline void lanes8(const __m128i c[2], uint32_t out[8]) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), c[0]);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), c[1]);
}

// Source offsets ix ps + iy rs of eight accepted (or zeroed) lanes from one
// pmaddwd, for a run whose indices and strides fit 16 bits (run.interior).
template <bool TwoAxes>
inline void maddOffsets8(const __m128i cx[2], const __m128i cy[2], const RemapRun& run, int32_t offset[8]) {
  const __m128i steps = _mm_set1_epi32(
      static_cast<int32_t>((static_cast<uint32_t>(run.ps) & 0xFFFFu) | static_cast<uint32_t>(run.rs) << 16));
  for (std::size_t h = 0; h < 2; ++h) {
    __m128i ij = _mm_srli_epi32(cx[h], 16);
    if constexpr (TwoAxes) ij = _mm_or_si128(ij, _mm_andnot_si128(_mm_set1_epi32(0xFFFF), cy[h]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(offset + 4 * h), _mm_madd_epi16(ij, steps));
  }
}

// Nearest: the pixel at the integer parts, copied; eight one-sample pixels side by
// side and all accepted in one store.
template <std::size_t Spp, bool TwoAxes>
inline void nearest8(const uint32_t* coordinates, const RemapRun& run, uint8_t* d) {
  __m128i cx[2], cy[2];
  offsets8<TwoAxes>(coordinates, run, cx, cy);
  const unsigned rejected = reject8<TwoAxes>(run, cx, cy);
  if (rejected == 0xFFu) return;
  intptr_t offset[8];
  if (run.interior) {
    alignas(16) int32_t short16[8];
    maddOffsets8<TwoAxes>(cx, cy, run, short16);
    for (std::size_t k = 0; k < 8; ++k) offset[k] = short16[k];
  } else {
    alignas(16) uint32_t x[8], y[8];
    lanes8(cx, x);
    lanes8(cy, y);
    for (std::size_t k = 0; k < 8; ++k) offset[k] = intptr_t{x[k] >> 16} * run.ps + intptr_t{y[k] >> 16} * run.rs;
  }
  if (Spp == 1 && rejected == 0 && run.dps == 1) {
    uint64_t out = 0;
    for (std::size_t k = 0; k < 8; ++k) out |= uint64_t{run.source[offset[k]]} << (8 * k);
    std::memcpy(d, &out, 8);
    return;
  }
  for (std::size_t k = 0; k < 8; ++k, d += run.dps)
    if ((rejected >> k & 1u) == 0) std::memcpy(d, run.source + offset[k], Spp);
}

inline int32_t word16(const uint8_t* p) {
  uint16_t w;
  std::memcpy(&w, p, 2);
  return w;
}

// Eight 16-bit words at base + offset[k], lane k.
template <int... K>
inline __m128i gatherWords(const uint8_t* base, const int32_t* offset, std::integer_sequence<int, K...>) {
  __m128i v = _mm_setzero_si128();
  ((v = _mm_insert_epi16(v, word16(base + offset[K]), K)), ...);
  return v;
}

// When all eight pixels are accepted and none lies on the last column or row (the
// offset below the limit, whose low 16 bits are 0), their source offsets ix ps + iy
// rs from one pmaddwd; otherwise false. Every neighbour of such a pixel exists (a
// zero fraction weighs it 0).
template <bool TwoAxes>
inline bool interiorOffsets8(const __m128i cx[2], const __m128i cy[2], const RemapRun& run, int32_t offset[8]) {
  const __m128i innerX = _mm_set1_epi32(static_cast<int32_t>((run.limitX - 1) ^ 0x80000000u));
  const __m128i innerY = _mm_set1_epi32(static_cast<int32_t>((run.limitY - 1) ^ 0x80000000u));
  const __m128i outside = _mm_or_si128(beyond<TwoAxes>(cx[0], cy[0], innerX, innerY),
                                       beyond<TwoAxes>(cx[1], cy[1], innerX, innerY));
  if (_mm_movemask_epi8(outside) != 0) return false;
  maddOffsets8<TwoAxes>(cx, cy, run, offset);
  return true;
}

// Interpolating one-sample pixels side by side (ps 1), eight interior ones: each
// pixel's pair across is one 16-bit load. Returns false, having done nothing, for
// other groups.
template <bool TwoAxes>
inline bool lerpInterior8(const __m128i cx[2], const __m128i cy[2], const RemapRun& run, uint8_t* d) {
  alignas(16) int32_t offset[8];
  if (!interiorOffsets8<TwoAxes>(cx, cy, run, offset)) return false;
  const auto lanes = std::make_integer_sequence<int, 8>{};
  const __m128i low = _mm_set1_epi16(0xFF), full = _mm_set1_epi16(255);
  const __m128i t = gatherWords(run.source, offset, lanes);
  __m128i p = _mm_and_si128(t, low), q = _mm_srli_epi16(t, 8);
  if constexpr (TwoAxes) {
    const __m128i fy = fractions8(cy), gy = _mm_sub_epi16(full, fy);
    const __m128i b = gatherWords(run.source + run.rs, offset, lanes);
    p = lerp8(p, _mm_and_si128(b, low), fy, gy);
    q = lerp8(q, _mm_srli_epi16(b, 8), fy, gy);
  }
  const __m128i fx = fractions8(cx);
  const __m128i o = lerp8(p, q, fx, _mm_sub_epi16(full, fx));
  const uint64_t out[1] = {static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(o, o)))};
  storePixels8<1>(out, 0, d, run.dps);
  return true;
}

inline __m128i load32(const uint8_t* p) {
  int32_t v;
  std::memcpy(&v, p, 4);
  return _mm_cvtsi32_si128(v);
}

// Interpolating pixels of two to four samples, eight interior ones: two pixels
// share each vector (lanes 0-3 and 4-7), so that every lerp8 serves both. A
// pixel of fewer than four samples is read as four bytes: from itself (the rest lies
// at or before the end of the pixel across) and, for the pixel across, ending at
// its last sample, then shifted down; this needs ps >= 4 - Spp. Returns false,
// having done nothing, for other groups.
template <std::size_t Spp, bool TwoAxes>
inline bool lerpInteriorPairs(const __m128i cx[2], const __m128i cy[2], const RemapRun& run, uint8_t* d) {
  alignas(16) int32_t offset[8];
  if (!interiorOffsets8<TwoAxes>(cx, cy, run, offset)) return false;
  // Each fraction in the four lanes of its pixel, pixels 2m and 2m + 1 in pair m.
  const auto pairs = [](__m128i f, __m128i (&out)[4]) {
    const __m128i low = _mm_unpacklo_epi16(f, f), high = _mm_unpackhi_epi16(f, f);
    out[0] = _mm_unpacklo_epi32(low, low);
    out[1] = _mm_unpackhi_epi32(low, low);
    out[2] = _mm_unpacklo_epi32(high, high);
    out[3] = _mm_unpackhi_epi32(high, high);
  };
  __m128i fx[4], fy[4];
  pairs(fractions8(cx), fx);
  if constexpr (TwoAxes) pairs(fractions8(cy), fy);
  const __m128i full = _mm_set1_epi16(255), zero = _mm_setzero_si128();
  const auto two = [&](const uint8_t* a, const uint8_t* b) {
    return _mm_unpacklo_epi8(_mm_unpacklo_epi32(load32(a), load32(b)), zero);
  };
  constexpr intptr_t short4 = 4 - static_cast<intptr_t>(Spp);
  const auto across = [&](const uint8_t* a, const uint8_t* b, __m128i& left, __m128i& right) {
    if (Spp == 4 && run.ps == 4) {  // side by side: a pixel and the one across in one 64-bit load
      const __m128i both = _mm_unpacklo_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)),
                                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
      left = _mm_unpacklo_epi8(both, zero);
      right = _mm_unpackhi_epi8(both, zero);
    } else {
      left = two(a, b);
      right = _mm_srli_epi64(two(a + run.ps - short4, b + run.ps - short4), 16 * short4);
    }
  };
  __m128i o[4];
  for (std::size_t m = 0; m < 4; ++m) {
    const uint8_t* a = run.source + offset[2 * m];
    const uint8_t* b = run.source + offset[2 * m + 1];
    __m128i left, right;
    across(a, b, left, right);
    if constexpr (TwoAxes) {
      const __m128i g = _mm_sub_epi16(full, fy[m]);
      __m128i belowLeft, belowRight;
      across(a + run.rs, b + run.rs, belowLeft, belowRight);
      left = lerp8(left, belowLeft, fy[m], g);
      right = lerp8(right, belowRight, fy[m], g);
    }
    o[m] = lerp8(left, right, fx[m], _mm_sub_epi16(full, fx[m]));
  }
  const __m128i first = _mm_packus_epi16(o[0], o[1]), second = _mm_packus_epi16(o[2], o[3]);
  if (Spp == 4 && run.dps == 4) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), first);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16), second);
  } else {
    alignas(16) uint8_t bytes[32];
    _mm_store_si128(reinterpret_cast<__m128i*>(bytes), first);
    _mm_store_si128(reinterpret_cast<__m128i*>(bytes + 16), second);
    for (std::size_t k = 0; k < 8; ++k, d += run.dps) std::memcpy(d, bytes + 4 * k, Spp);
  }
  return true;
}

// An interpolating run of four-sample pixels: groups of eight interior ones
// through the level's interior4 (when the run allows it), every other pixel
// through pixel(its coordinates, its destination).
template <class W, bool TwoAxes, class Pixel>
inline void lerpRow4(const uint32_t* coordinates, const RemapRun& run, uint8_t* d, int32_t pixels, Pixel pixel) {
  constexpr std::ptrdiff_t step = TwoAxes ? 2 : 1;
  int32_t p = 0;
  if (run.interior)
    for (; p + 8 <= pixels; p += 8, coordinates += 8 * step, d += 8 * run.dps)
      if (!W::template interior4<TwoAxes>(coordinates, run, d))
        for (std::ptrdiff_t k = 0; k < 8; ++k) pixel(coordinates + k * step, d + k * run.dps);
  for (; p < pixels; ++p, coordinates += step, d += run.dps) pixel(coordinates, d);
}

// Interpolating: across by fx (between rows j and j + 1 first when TwoAxes).
template <class W, std::size_t Spp, bool TwoAxes>
inline void lerp8Pixels(const uint32_t* coordinates, const RemapRun& run, uint8_t* d) {
  __m128i cx[2], cy[2];
  offsets8<TwoAxes>(coordinates, run, cx, cy);
  if constexpr (Spp == 1) {
    if (run.interior && run.ps == 1 && W::template interior1<TwoAxes>(cx, cy, run, d)) return;
  } else {
    if (run.interior && run.ps >= 4 - static_cast<intptr_t>(Spp) && lerpInteriorPairs<Spp, TwoAxes>(cx, cy, run, d))
      return;
  }
  const unsigned rejected = reject8<TwoAxes>(run, cx, cy);
  if (rejected == 0xFFu) return;
  alignas(16) uint32_t x[8], y[8];
  lanes8(cx, x);
  lanes8(cy, y);
  // 16-bit lanes of (sample | sample across << 8): top row, and the row below.
  uint64_t top[Spp][2] = {}, bottom[Spp][2] = {};
  for (std::size_t k = 0; k < 8; ++k) {
    const uint8_t* a = run.source + intptr_t{x[k] >> 16} * run.ps + intptr_t{y[k] >> 16} * run.rs;
    const intptr_t across = (x[k] & 0xFF00u) != 0 ? run.ps : 0;
    const std::size_t shift = 16 * (k & 3);
    for (std::size_t s = 0; s < Spp; ++s)
      top[s][k >> 2] |= uint64_t{static_cast<uint32_t>(a[s] | (a + across)[s] << 8)} << shift;
    if constexpr (TwoAxes) {
      const uint8_t* b = a + ((y[k] & 0xFF00u) != 0 ? run.rs : 0);
      for (std::size_t s = 0; s < Spp; ++s)
        bottom[s][k >> 2] |= uint64_t{static_cast<uint32_t>(b[s] | (b + across)[s] << 8)} << shift;
    }
  }
  const __m128i low = _mm_set1_epi16(0xFF), full = _mm_set1_epi16(255);
  const __m128i fx = fractions8(cx), gx = _mm_sub_epi16(full, fx);
  uint64_t out[Spp];
  for (std::size_t s = 0; s < Spp; ++s) {
    const __m128i t = _mm_set_epi64x(static_cast<long long>(top[s][1]), static_cast<long long>(top[s][0]));
    __m128i p = _mm_and_si128(t, low), q = _mm_srli_epi16(t, 8);
    if constexpr (TwoAxes) {
      const __m128i fy = fractions8(cy), gy = _mm_sub_epi16(full, fy);
      const __m128i b = _mm_set_epi64x(static_cast<long long>(bottom[s][1]), static_cast<long long>(bottom[s][0]));
      p = lerp8(p, _mm_and_si128(b, low), fy, gy);
      q = lerp8(q, _mm_srli_epi16(b, 8), fy, gy);
    }
    const __m128i o = lerp8(p, q, fx, gx);
    out[s] = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(o, o)));
  }
  storePixels8<Spp>(out, rejected, d, run.dps);
}

// Groups of eight pixels of one output row; returns how many pixels were done.
template <class W, std::size_t Spp, bool TwoAxes>
inline int32_t remapRow8(const uint32_t* coordinates, const RemapRun& run, bool interpolate, uint8_t* d,
                         int32_t pixels) {
  constexpr int step = TwoAxes ? 16 : 8;
  int32_t p = 0;
  for (; p + 8 <= pixels; p += 8, coordinates += step, d += 8 * run.dps) {
    if (interpolate)
      lerp8Pixels<W, Spp, TwoAxes>(coordinates, run, d);
    else
      nearest8<Spp, TwoAxes>(coordinates, run, d);
  }
  return p;
}

// remapRow8 for a pixel size of 1 to 3 chosen at run time, and 4 when nearest
// (interpolated four-sample pixels take lerpRow4).
template <class W, bool TwoAxes>
inline int32_t remapRow8(const uint32_t* coordinates, const RemapRun& run, bool interpolate, uint8_t* d,
                         int32_t pixels, int32_t samplesPerPixel) {
  switch (samplesPerPixel) {
    case 1: return remapRow8<W, 1, TwoAxes>(coordinates, run, interpolate, d, pixels);
    case 2: return remapRow8<W, 2, TwoAxes>(coordinates, run, interpolate, d, pixels);
    case 3: return remapRow8<W, 3, TwoAxes>(coordinates, run, interpolate, d, pixels);
    case 4: return interpolate ? 0 : remapRow8<W, 4, TwoAxes>(coordinates, run, false, d, pixels);
    default: return 0;
  }
}

// One four-sample pixel at a: the pixel to its right is a + across, the one below
// a + down (0 for a zero fraction).
inline void bilinear4(const uint8_t* a, intptr_t across, intptr_t down, uint32_t fx, uint32_t fy, uint8_t* d) {
  const __m128i top = pixelPair(a, a + across), bottom = pixelPair(a + down, a + across + down);
  const __m128i columns = lerp8(top, bottom, splat(fy), splat(255 - fy));
  const __m128i out = lerp8(columns, _mm_unpackhi_epi64(columns, columns), splat(fx), splat(255 - fx));
  const int v = _mm_cvtsi128_si32(_mm_packus_epi16(out, out));
  std::memcpy(d, &v, 4);
}

// The SSE2 group kernels: eight interior pixels of four samples in pairs, of one
// sample with one 16-bit load per pixel pair across.
struct Sse2Groups {
  template <bool TwoAxes>
  static bool interior4(const uint32_t* coordinates, const RemapRun& run, uint8_t* d) {
    __m128i cx[2], cy[2];
    offsets8<TwoAxes>(coordinates, run, cx, cy);
    return lerpInteriorPairs<4, TwoAxes>(cx, cy, run, d);
  }
  template <bool TwoAxes>
  static bool interior1(const __m128i cx[2], const __m128i cy[2], const RemapRun& run, uint8_t* d) {
    return lerpInterior8<TwoAxes>(cx, cy, run, d);
  }
};

// ------------------------------------------------------------- visiting order
// Under a turn, a row of output pixels sweeps a steep line through the source: an
// output row of a 10-degree turn of an n-pixel plane crosses about 0.14 n source
// rows, a line or two of each, and the next output row needs nearly the same lines
// again. Visited row after row, four-sample pixels ran at speeds that depended on
// the plane's size and on what else the machine was doing (per output row 7 or 21
// cycles a pixel, changing between runs and between regions of one plane; 5.5 to
// 7.4 ns a pixel at 768 and 1024 pixels square against 2.1 to 2.9 at 1280 and up
// on an idle machine, 4.4 to 7.4 at 4096 under load). Tiles of 16 output rows by
// 64 pixels, where each row reuses the lines the rows above it fetched, ran at 2.6
// to 4.2 ns a pixel at every size idle and 4.4 to 5.2 under load, a few per cent
// apart from run to run: slower than row order's best, never near its worst.
// One-sample pixels read a quarter of the source per pixel, and most of their
// traffic is the coordinate and destination streams, which tiles cut into short
// runs: they keep row order (measured faster and as steady), as do runs along one
// source row.
constexpr int32_t kTileRows = 16;
constexpr int32_t kTilePixels = 64;  // a multiple of eight: whole groups

// Whether the rows of a remap's destination can be written in any order: each
// row's bytes lie after the previous row's (the row pitch at least a row's
// bytes) and the pixels walk forward. Otherwise rows go one after another, as
// the walk of one destination pointer orders them where rows overlap.
inline bool rowsApart(int32_t pixels, int32_t samplesPerPixel, intptr_t pixelStride, intptr_t advance) {
  const intptr_t rowBytes = (intptr_t{pixels} - 1) * pixelStride + samplesPerPixel;
  return pixelStride >= 0 && intptr_t{pixels} * pixelStride + advance >= rowBytes;
}

// Visits every output pixel once, as span(row, its first coordinate, its
// destination, pixels) over runs of one row: in tiles when asked and the rows
// are apart, else whole rows in order. Pixel p of row r is at destination + r x
// (pixels x pixel stride + advance) + p x pixel stride, where the walking
// pointer puts it.
template <int Step, class Span>
inline void visitRuns(const uint32_t* coordinates, uint8_t* destination, int32_t rows, int32_t pixels,
                      int32_t samplesPerPixel, intptr_t pixelStride, intptr_t advance, bool tiles, Span span) {
  const intptr_t pitch = intptr_t{pixels} * pixelStride + advance;
  const intptr_t coordinatePitch = intptr_t{pixels} * Step;
  if (!tiles || !rowsApart(pixels, samplesPerPixel, pixelStride, advance)) {
    for (int32_t r = 0; r < rows; ++r) span(r, coordinates + r * coordinatePitch, destination + r * pitch, pixels);
    return;
  }
  for (int32_t top = 0; top < rows; top += kTileRows) {
    const int32_t bottom = rows - top > kTileRows ? top + kTileRows : rows;
    for (int32_t p = 0; p < pixels; p += kTilePixels) {
      const int32_t count = pixels - p > kTilePixels ? kTilePixels : pixels - p;
      for (int32_t r = top; r < bottom; ++r)
        span(r, coordinates + r * coordinatePitch + intptr_t{p} * Step, destination + r * pitch + p * pixelStride,
             count);
    }
  }
}

// ---------------------------------------------------------------- slot 18
// RemapAxis8: each output row is a run fetched along one source line from 16.16
// coordinates, by nearest sample or by linear interpolation through
// SignedMul255Table. Pixels whose coordinate falls outside [first, end) are left
// untouched.
template <class W>
void remapAxis8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                int32_t pixels, int32_t samplesPerPixel, int32_t sourceAdvance, int32_t sourceRowStride,
                int32_t destinationAdvance, int32_t destinationPixelStride, int32_t first, int32_t end,
                int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const RemapAxis axis(first, end, interpolate != 0);
  // Nothing is accepted when the limit is negative.
  if (axis.limit < 0) return;
  const auto limit = static_cast<uint32_t>(axis.limit);
  const bool fits = interiorFits(sourceRowStride, limit, 0, 0, false);
  const intptr_t dps = destinationPixelStride;
  // Tiles where a run crosses source rows (down a column) with pixels of several samples.
  const bool tiles = samplesPerPixel >= 2 && (sourceRowStride > 64 || sourceRowStride < -64);
  visitRuns<1>(coordinates, destination, rows, pixels, samplesPerPixel, dps, destinationAdvance, tiles,
               [&](int32_t r, const uint32_t* c, uint8_t* d, int32_t count) {
    const uint8_t* line = source + intptr_t{r} * sourceAdvance;
    const RemapRun run{line, sourceRowStride, 0, dps, axis.origin, limit, 0, 0, fits};
    // Interpolated four-sample pixels: groups of eight interior ones in pairs, the
    // others one vector step each; a zero fraction interpolates toward the pixel
    // itself (the identity), so its neighbour is never read.
    if (axis.interpolate && samplesPerPixel == 4) {
      lerpRow4<W, false>(c, run, d, count, [&](const uint32_t* at, uint8_t* out) {
        const uint32_t offset = *at - axis.origin;
        if (offset > limit) return;
        const uint8_t* a = line + intptr_t{offset >> 16} * sourceRowStride;
        const uint32_t f = fraction(static_cast<int32_t>(offset));
        lerpPixel4(a, f != 0 ? a + sourceRowStride : a, f, out);
      });
      return;
    }
    // One to four samples: groups of eight pixels, the rest of the run below.
    const bool groups = samplesPerPixel >= 1 && samplesPerPixel <= 4;
    const int32_t done = groups ? remapRow8<W, false>(c, run, axis.interpolate, d, count, samplesPerPixel) : 0;
    c += done;
    d += intptr_t{done} * dps;
    for (int32_t p = done; p < count; ++p, d += dps) {
      const int32_t o = axis.offset(*c++);
      if (!axis.accepts(o)) continue;
      const uint8_t* a = line + intptr_t{o >> 16} * sourceRowStride;
      if (!axis.interpolate || fraction(o) == 0)
        copySamples(a, d, samplesPerPixel);
      else
        lerpSamples(a, a + sourceRowStride, fraction(o), d, samplesPerPixel);
    }
  });
}

// ---------------------------------------------------------------- slot 19
// RemapPlane8: each output pixel fetched from an (x, y) pair of 16.16 source
// coordinates, by nearest pixel or bilinearly: down by fy in columns i and i + 1
// (each kept as a byte), then across by fx. A pixel is written only when both
// coordinates are inside their ranges.
//
// Bilinear four-sample pixels take a vector path: the two columns are
// interpolated down in one step and then across, with the table's rounding
// computed exactly in 16-bit lanes (lerp8). A zero fraction makes its step the identity
// (the table's row 0 is all zeros), so the one path serves every case; its
// neighbour is then read at the pixel itself, never past the source's edge.
template <class W>
void remapPlane8(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                 int32_t pixels, int32_t samplesPerPixel, int32_t sourcePixelStride, int32_t sourceRowStride,
                 int32_t destinationAdvance, int32_t destinationPixelStride, int32_t firstX, int32_t endX,
                 int32_t firstY, int32_t endY, int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const bool lerpOn = interpolate != 0;
  const RemapAxis ax(firstX, endX, lerpOn), ay(firstY, endY, lerpOn);
  const intptr_t ps = sourcePixelStride, rs = sourceRowStride, dps = destinationPixelStride;
  // Nothing is accepted when a limit is negative.
  if (ax.limit < 0 || ay.limit < 0) return;
  const auto limitX = static_cast<uint32_t>(ax.limit), limitY = static_cast<uint32_t>(ay.limit);
  const RemapRun run{source, ps, rs, dps, ax.origin, limitX, ay.origin, limitY,
                     interiorFits(ps, limitX, rs, limitY, true)};
  if (lerpOn && samplesPerPixel == 4) {
    // Groups of eight interior pixels (lerpRow4), the others one at a time. A
    // coordinate is accepted when its offset, read unsigned, is at most the
    // (non-negative) limit.
    const auto pixel = [&run](const uint32_t* c, uint8_t* d) {
      const uint32_t cx = c[0] - run.originX, cy = c[1] - run.originY;
      if (cx > run.limitX || cy > run.limitY) return;
      const uint32_t fx = (cx >> 8) & 255u, fy = (cy >> 8) & 255u;
      bilinear4(run.source + intptr_t{cx >> 16} * run.ps + intptr_t{cy >> 16} * run.rs, fx != 0 ? run.ps : 0,
                fy != 0 ? run.rs : 0, fx, fy, d);
    };
    visitRuns<2>(coordinates, destination, rows, pixels, 4, dps, destinationAdvance, true,
                 [&](int32_t, const uint32_t* c, uint8_t* d, int32_t count) {
                   const RemapRun here = run;  // a copy the loop can keep in registers
                   lerpRow4<W, true>(c, here, d, count, pixel);
                 });
    return;
  }
  // One to four samples: groups of eight pixels, the rest of each run below.
  const bool groups = samplesPerPixel >= 1 && samplesPerPixel <= 4;
  visitRuns<2>(coordinates, destination, rows, pixels, samplesPerPixel, dps, destinationAdvance, samplesPerPixel >= 2,
               [&](int32_t, const uint32_t* c, uint8_t* d, int32_t count) {
    const RemapRun here = run;  // a copy the loop can keep in registers
    const int32_t done = groups ? remapRow8<W, true>(c, here, lerpOn, d, count, samplesPerPixel) : 0;
    c += 2 * done;
    d += intptr_t{done} * dps;
    for (int32_t p = done; p < count; ++p, d += dps, c += 2) {
      const int32_t cx = ax.offset(c[0]), cy = ay.offset(c[1]);
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
  });
}

}  // namespace
}  // namespace tarnell::resample
