// The angular remap's row, shared by the SSE4.1 and AVX2 files (each includes it
// inside its own anonymous namespace, so everything keeps internal linkage and is
// compiled for that file's level; only SSE4.1 instructions are used here). The
// visible span is resampled four columns at a time in single precision; the
// columns after the last whole group (at least the span's last column) one at a
// time in double precision. Both forms are part of the results.
#pragma once

#include <smmintrin.h>

#include <cstddef>
#include <cstdint>

#include "filter/filter.h"

namespace tarnell::filter {
namespace {

template <typename Sample>
void fill(Sample* out, int32_t from, int32_t to, Sample value) {
  int32_t x = from;
  for (; x < to && (reinterpret_cast<uintptr_t>(out + x) & 15) != 0; ++x) out[x] = value;
  __m128i v;
  if constexpr (sizeof(Sample) == 1)
    v = _mm_set1_epi8(static_cast<char>(value));
  else if constexpr (sizeof(Sample) == 2)
    v = _mm_set1_epi16(static_cast<int16_t>(value));
  else
    v = _mm_castps_si128(_mm_set1_ps(value));
  constexpr int32_t kPerStore = 16 / sizeof(Sample);
  for (; x + kPerStore <= to; x += kPerStore) _mm_store_si128(reinterpret_cast<__m128i*>(out + x), v);
  for (; x < to; ++x) out[x] = value;
}

// The source pairs s[i], s[i + 1] of four columns, as floats: one load per column
// (two samples side by side), then split into the left and the right samples.
struct Pairs {
  __m128 left, right;
};

template <typename Sample>
inline Pairs gather(const Sample* s, const int32_t* index) {
  const Sample* p0 = s + index[0];
  const Sample* p1 = s + index[1];
  const Sample* p2 = s + index[2];
  const Sample* p3 = s + index[3];
  if constexpr (sizeof(Sample) == 4) {
    auto pair = [](const float* p) { return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); };
    const __m128 a = _mm_movelh_ps(pair(p0), pair(p1)), b = _mm_movelh_ps(pair(p2), pair(p3));
    return {_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)), _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1))};
  } else {
    __m128i lanes;  // each 32-bit lane: right << 16 | left
    if constexpr (sizeof(Sample) == 2) {
      auto pair = [](const uint16_t* p) {
        int32_t v;
        __builtin_memcpy(&v, p, 4);
        return v;
      };
      lanes = _mm_cvtsi32_si128(pair(p0));
      lanes = _mm_insert_epi32(lanes, pair(p1), 1);
      lanes = _mm_insert_epi32(lanes, pair(p2), 2);
      lanes = _mm_insert_epi32(lanes, pair(p3), 3);
    } else {
      auto pair = [](const uint8_t* p) {
        uint16_t v;
        __builtin_memcpy(&v, p, 2);
        return static_cast<int>(v);
      };
      __m128i pairs = _mm_cvtsi32_si128(pair(p0));
      pairs = _mm_insert_epi16(pairs, pair(p1), 1);
      pairs = _mm_insert_epi16(pairs, pair(p2), 2);
      pairs = _mm_insert_epi16(pairs, pair(p3), 3);
      lanes = _mm_cvtepu8_epi16(pairs);
    }
    return {_mm_cvtepi32_ps(_mm_and_si128(lanes, _mm_set1_epi32(0xFFFF))), _mm_cvtepi32_ps(_mm_srli_epi32(lanes, 16))};
  }
}

// Four results to four samples: the truncated integer's low bits, or the float.
template <typename Sample>
inline void store4(Sample* out, __m128 v) {
  if constexpr (sizeof(Sample) == 4) {
    _mm_storeu_ps(out, v);
  } else if constexpr (sizeof(Sample) == 2) {
    const __m128i q = _mm_packus_epi32(_mm_and_si128(_mm_cvttps_epi32(v), _mm_set1_epi32(0xFFFF)), _mm_setzero_si128());
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), q);
  } else {
    const __m128i w = _mm_packus_epi32(_mm_and_si128(_mm_cvttps_epi32(v), _mm_set1_epi32(0xFF)), _mm_setzero_si128());
    const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(w, w));
    __builtin_memcpy(out, &bytes, 4);
  }
}

template <typename Sample>
inline Sample fromDouble(double v) {
  if constexpr (sizeof(Sample) == 4) {
    return static_cast<float>(v);
  } else {
    return static_cast<Sample>(static_cast<int32_t>(v));
  }
}

// One row. `wide` may do a leading share of the four-column groups with wider
// vectors (the same single-precision operations per column); it returns the first
// column it left, a whole number of groups from the span's first column.
template <typename Sample, typename Wide>
void remapRowWith(const RemapRow& row, Sample background, Wide wide) {
  const auto* s = static_cast<const Sample*>(row.source);
  auto* out = static_cast<Sample*>(row.destination);
  const int32_t width = row.destinationWidth;
  if (row.first > row.last) {
    fill(out, 0, width, background);
    return;
  }
  fill(out, 0, row.first, background);
  const __m128 m = _mm_set1_ps(row.columnCentre), k = _mm_set1_ps(row.k), ft = _mm_set1_ps(row.ft);
  const __m128 t = _mm_set1_ps(row.t), f = _mm_set1_ps(row.focal);
  const __m128 scale = _mm_set1_ps(row.scale), centre = _mm_set1_ps(row.centre);
  // The groups go in two passes over chunks of columns: source positions first
  // (the division's latency overlaps across groups), then the reads and the
  // interpolation. Fused, each group's long dependent chain stalls the next.
  constexpr int32_t kChunk = 256;
  alignas(16) int32_t index[kChunk];
  alignas(16) float fraction[kChunk];
  const int32_t end = row.first + (row.last - row.first) / 4 * 4;
  int32_t x = wide(row, s, out, end);
  // Column numbers as floats, stepped by 4 (exact: destination widths stay far
  // below 2^24).
  __m128 xs = _mm_cvtepi32_ps(_mm_setr_epi32(x, x + 1, x + 2, x + 3));
  const __m128 four = _mm_set1_ps(4.0f);
  while (x < end) {
    const int32_t n = end - x < kChunk ? end - x : kChunk;
    for (int32_t g = 0; g < n; g += 4) {
      const __m128 u = _mm_mul_ps(_mm_sub_ps(xs, m), k);
      xs = _mm_add_ps(xs, four);
      const __m128 p =
          _mm_add_ps(_mm_mul_ps(_mm_div_ps(_mm_sub_ps(u, ft), _mm_add_ps(_mm_mul_ps(u, t), f)), scale), centre);
      const __m128i i = _mm_cvttps_epi32(p);
      _mm_store_si128(reinterpret_cast<__m128i*>(index + g), i);
      _mm_store_ps(fraction + g, _mm_sub_ps(p, _mm_cvtepi32_ps(i)));
    }
    for (int32_t g = 0; g < n; g += 4) {
      const Pairs pairs = gather(s, index + g);
      store4(out + x + g,
             _mm_add_ps(pairs.left, _mm_mul_ps(_mm_sub_ps(pairs.right, pairs.left), _mm_load_ps(fraction + g))));
    }
    x += n;
  }
  const double dm = row.columnCentre, dk = row.k, dft = row.ft, dt = row.t, df = row.focal;
  const double dscale = row.scale, dcentre = row.centre;
  for (; x <= row.last; ++x) {
    const double u = (static_cast<double>(x) - dm) * dk;
    const double p = (u - dft) / (u * dt + df) * dscale + dcentre;
    const auto i = static_cast<int32_t>(p);
    const double part = p - i;
    const double a = s[i], b = s[i + 1];
    out[x] = fromDouble<Sample>(a + (b - a) * part);
  }
  fill(out, row.last + 1, width, background);
}

}  // namespace
}  // namespace tarnell::filter
