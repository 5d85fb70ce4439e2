// The 8-bit remaps (slots 18, 19), AVX2: the body of remap8_body.h, compiled for
// AVX2, with a group kernel of its own where a warp spends its time: eight
// interior four-sample pixels go four to a 256-bit register (the SSE2 kernel
// takes two to a 128-bit one), so each interpolation step serves four pixels.
// Every lane computes floor(((255 - f) a + f b + 127) / 255), the table's entry
// added to a, exactly as the SSE2 kernels do, from the same bytes (loads stay
// inside the pixels and the pixel across, as there). One-sample pixels keep the
// SSE2 kernel (a 256-bit step for their two rows measured slower: the scalar
// loads of the pairs bound them). Everything stays in this file; the table at the
// end is the one way in.
//
// Measured (tarnell-host bench --tier sse2,avx2, 256x256, four-sample pixels):
// RemapPlane8 bilinear 1.7 times the SSE2 body, RemapAxis8 interpolating 1.45
// times; one-sample pixels within 2 % of it.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "resample/remap8_body.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {
namespace {

// a + f/255 of the way to b in sixteen 16-bit lanes: lerp8 on twice the lanes.
inline __m256i lerp16(__m256i a, __m256i b, __m256i f, __m256i g) {
  const __m256i n =
      _mm256_add_epi16(_mm256_add_epi16(_mm256_mullo_epi16(a, g), _mm256_mullo_epi16(b, f)), _mm256_set1_epi16(127));
  return _mm256_srli_epi16(_mm256_mulhi_epu16(n, _mm256_set1_epi16(static_cast<int16_t>(0x8081))), 7);
}

// Four four-sample pixels at a[0..3] and the pixel across each (at + across;
// side by side when across is 4) as sixteen 16-bit lanes each, pixel k in lanes
// 4k..4k+3.
inline void quad(const uint8_t* const a[4], intptr_t across, __m256i& left, __m256i& right) {
  if (across == 4) {  // a pixel and the one across in one 64-bit load
    const __m128i p01 = _mm_unpacklo_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a[0])),
                                           _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a[1])));
    const __m128i p23 = _mm_unpacklo_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a[2])),
                                           _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a[3])));
    // Lanes: pixels 0 1, across 0 1 | pixels 2 3, across 2 3.
    const __m256i both = _mm256_inserti128_si256(_mm256_castsi128_si256(p01), p23, 1);
    left = _mm256_unpacklo_epi8(both, _mm256_setzero_si256());
    right = _mm256_unpackhi_epi8(both, _mm256_setzero_si256());
    return;
  }
  const __m128i l = _mm_unpacklo_epi64(_mm_unpacklo_epi32(load32(a[0]), load32(a[1])),
                                       _mm_unpacklo_epi32(load32(a[2]), load32(a[3])));
  const __m128i r = _mm_unpacklo_epi64(_mm_unpacklo_epi32(load32(a[0] + across), load32(a[1] + across)),
                                       _mm_unpacklo_epi32(load32(a[2] + across), load32(a[3] + across)));
  left = _mm256_cvtepu8_epi16(l);
  right = _mm256_cvtepu8_epi16(r);
}

// The eight 8-bit fractions of a group's offsets (dword lanes) spread over the
// four lanes of their pixels: pixels 0..3, then 4..7.
inline void spread(__m256i offsets, __m256i& low, __m256i& high) {
  __m256i f = _mm256_and_si256(_mm256_srli_epi32(offsets, 8), _mm256_set1_epi32(255));
  f = _mm256_or_si256(f, _mm256_slli_epi32(f, 16));
  low = _mm256_permutevar8x32_epi32(f, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
  high = _mm256_permutevar8x32_epi32(f, _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7));
}

struct Avx2Groups {
  // Eight interior four-sample pixels (as lerpInteriorPairs<4>): all accepted and
  // off the last column and row, so every neighbour exists. Returns false,
  // having done nothing, for other groups.
  template <bool TwoAxes>
  static bool interior4(const uint32_t* coordinates, const RemapRun& run, uint8_t* d) {
    __m256i cx, cy = _mm256_setzero_si256();
    if constexpr (TwoAxes) {
      const __m256 v0 = _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(coordinates)));
      const __m256 v1 = _mm256_castsi256_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(coordinates + 8)));
      // Per 128-bit lane x0 x1 x4 x5 | x2 x3 x6 x7; the 64-bit permute puts them in order.
      cx = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(v0, v1, _MM_SHUFFLE(2, 0, 2, 0))), 0xD8);
      cy = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(v0, v1, _MM_SHUFFLE(3, 1, 3, 1))), 0xD8);
      cy = _mm256_sub_epi32(cy, _mm256_set1_epi32(static_cast<int32_t>(run.originY)));
    } else {
      cx = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(coordinates));
    }
    cx = _mm256_sub_epi32(cx, _mm256_set1_epi32(static_cast<int32_t>(run.originX)));
    // Interior: every offset, read unsigned, below its limit (whose low 16 bits are 0).
    const __m256i sign = _mm256_set1_epi32(static_cast<int32_t>(0x80000000u));
    __m256i outside = _mm256_cmpgt_epi32(_mm256_xor_si256(cx, sign),
                                         _mm256_set1_epi32(static_cast<int32_t>((run.limitX - 1) ^ 0x80000000u)));
    if constexpr (TwoAxes)
      outside = _mm256_or_si256(
          outside, _mm256_cmpgt_epi32(_mm256_xor_si256(cy, sign),
                                      _mm256_set1_epi32(static_cast<int32_t>((run.limitY - 1) ^ 0x80000000u))));
    if (!_mm256_testz_si256(outside, outside)) return false;
    // Source offsets ix ps + iy rs from one multiply-add (indices and strides fit 16 bits).
    __m256i ij = _mm256_srli_epi32(cx, 16);
    if constexpr (TwoAxes) ij = _mm256_or_si256(ij, _mm256_andnot_si256(_mm256_set1_epi32(0xFFFF), cy));
    const __m256i steps = _mm256_set1_epi32(
        static_cast<int32_t>((static_cast<uint32_t>(run.ps) & 0xFFFFu) | static_cast<uint32_t>(run.rs) << 16));
    alignas(32) int32_t offset[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(offset), _mm256_madd_epi16(ij, steps));
    __m256i fx[2], fy[2];
    spread(cx, fx[0], fx[1]);
    if constexpr (TwoAxes) spread(cy, fy[0], fy[1]);
    const __m256i full = _mm256_set1_epi16(255);
    __m256i o[2];
    for (std::size_t q = 0; q < 2; ++q) {
      const uint8_t* const a[4] = {run.source + offset[4 * q], run.source + offset[4 * q + 1],
                                   run.source + offset[4 * q + 2], run.source + offset[4 * q + 3]};
      __m256i left, right;
      quad(a, run.ps, left, right);
      if constexpr (TwoAxes) {
        const uint8_t* const b[4] = {a[0] + run.rs, a[1] + run.rs, a[2] + run.rs, a[3] + run.rs};
        __m256i belowLeft, belowRight;
        quad(b, run.ps, belowLeft, belowRight);
        const __m256i g = _mm256_sub_epi16(full, fy[q]);
        left = lerp16(left, belowLeft, fy[q], g);
        right = lerp16(right, belowRight, fy[q], g);
      }
      o[q] = lerp16(left, right, fx[q], _mm256_sub_epi16(full, fx[q]));
    }
    // The in-lane pack gives pixels 0 1 4 5 | 2 3 6 7; the 64-bit permute orders them.
    const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(o[0], o[1]), 0xD8);
    if (run.dps == 4) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), bytes);
    } else {
      alignas(32) uint8_t out[32];
      _mm256_store_si256(reinterpret_cast<__m256i*>(out), bytes);
      for (std::size_t k = 0; k < 8; ++k, d += run.dps) std::memcpy(d, out + 4 * k, 4);
    }
    return true;
  }

  // Eight interior one-sample pixels: the SSE2 kernel, built for AVX2 (its scalar
  // loads of the pairs bound it; a 256-bit step for the two rows measured slower).
  template <bool TwoAxes>
  static bool interior1(const __m128i cx[2], const __m128i cy[2], const RemapRun& run, uint8_t* d) {
    return lerpInterior8<TwoAxes>(cx, cy, run, d);
  }
};

void remapAxis8Avx2(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                    int32_t pixels, int32_t samplesPerPixel, int32_t sourceAdvance, int32_t sourceRowStride,
                    int32_t destinationAdvance, int32_t destinationPixelStride, int32_t first, int32_t end,
                    int16_t interpolate) {
  remapAxis8<Avx2Groups>(coordinates, source, destination, rows, pixels, samplesPerPixel, sourceAdvance,
                         sourceRowStride, destinationAdvance, destinationPixelStride, first, end, interpolate);
}

void remapPlane8Avx2(const uint32_t* coordinates, const uint8_t* source, uint8_t* destination, int32_t rows,
                     int32_t pixels, int32_t samplesPerPixel, int32_t sourcePixelStride, int32_t sourceRowStride,
                     int32_t destinationAdvance, int32_t destinationPixelStride, int32_t firstX, int32_t endX,
                     int32_t firstY, int32_t endY, int16_t interpolate) {
  remapPlane8<Avx2Groups>(coordinates, source, destination, rows, pixels, samplesPerPixel, sourcePixelStride,
                          sourceRowStride, destinationAdvance, destinationPixelStride, firstX, endX, firstY, endY,
                          interpolate);
}

}  // namespace

constinit const ResampleTable g_remapAvx2 = {.RemapAxis8 = &remapAxis8Avx2, .RemapPlane8 = &remapPlane8Avx2};

}  // namespace tarnell::resample
