// Angular remap rows (slots 200-202), SSE4.1. The visible span is resampled four
// columns at a time in single precision; the columns after the last whole group
// (at least the span's last column) one at a time in double precision. Both forms
// are part of the results. Everything stays in this file; the table at the end is
// the one way in.
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
  if constexpr (sizeof(Sample) == 1) v = _mm_set1_epi8(static_cast<char>(value));
  else if constexpr (sizeof(Sample) == 2) v = _mm_set1_epi16(static_cast<int16_t>(value));
  else v = _mm_castps_si128(_mm_set1_ps(value));
  constexpr int32_t kPerStore = 16 / sizeof(Sample);
  for (; x + kPerStore <= to; x += kPerStore) _mm_store_si128(reinterpret_cast<__m128i*>(out + x), v);
  for (; x < to; ++x) out[x] = value;
}

template <typename Sample>
inline __m128 gather(const Sample* s, int i0, int i1, int i2, int i3) {
  if constexpr (sizeof(Sample) == 4) {
    return _mm_setr_ps(s[i0], s[i1], s[i2], s[i3]);
  } else {
    return _mm_cvtepi32_ps(_mm_setr_epi32(s[i0], s[i1], s[i2], s[i3]));
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

template <typename Sample>
void remapRow(const RemapRow& row, Sample background) {
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
  int32_t x = row.first;
  for (const int32_t end = row.first + (row.last - row.first) / 4 * 4; x < end; x += 4) {
    const __m128 u = _mm_mul_ps(_mm_sub_ps(_mm_cvtepi32_ps(_mm_setr_epi32(x, x + 1, x + 2, x + 3)), m), k);
    const __m128 p =
        _mm_add_ps(_mm_mul_ps(_mm_div_ps(_mm_sub_ps(u, ft), _mm_add_ps(_mm_mul_ps(u, t), f)), scale), centre);
    const __m128i i = _mm_cvttps_epi32(p);
    const __m128 fraction = _mm_sub_ps(p, _mm_cvtepi32_ps(i));
    const int i0 = _mm_cvtsi128_si32(i), i1 = _mm_extract_epi32(i, 1);
    const int i2 = _mm_extract_epi32(i, 2), i3 = _mm_extract_epi32(i, 3);
    const __m128 s0 = gather(s, i0, i1, i2, i3);
    const __m128 s1 = gather(s + 1, i0, i1, i2, i3);
    store4(out + x, _mm_add_ps(s0, _mm_mul_ps(_mm_sub_ps(s1, s0), fraction)));
  }
  const double dm = row.columnCentre, dk = row.k, dft = row.ft, dt = row.t, df = row.focal;
  const double dscale = row.scale, dcentre = row.centre;
  for (; x <= row.last; ++x) {
    const double u = (static_cast<double>(x) - dm) * dk;
    const double p = (u - dft) / (u * dt + df) * dscale + dcentre;
    const auto i = static_cast<int32_t>(p);
    const double fraction = p - i;
    const double a = s[i], b = s[i + 1];
    out[x] = fromDouble<Sample>(a + (b - a) * fraction);
  }
  fill(out, row.last + 1, width, background);
}

}  // namespace

constinit const AngularRemapKernels g_angularRemapSse41 = {&remapRow<uint8_t>, &remapRow<uint16_t>,
                                                           &remapRow<float>};

}  // namespace tarnell::filter
