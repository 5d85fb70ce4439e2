// Angular remap rows (slots 200-202), AVX2: the shared row, whose four-column
// groups go two at a time in eight lanes (the same single-precision operations per
// column), source positions first over a chunk, then the reads (plain loads of
// each sample pair) and the interpolation. Everything stays in this file; the
// table at the end is the one way in.
#include <immintrin.h>

#include "filter/angular_remap_row.h"

namespace tarnell::filter {
namespace {

// The pairs s[i], s[i + 1] of eight columns as floats (left, right).
template <typename Sample>
inline void gather8(const Sample* s, const int32_t* index, __m256& left, __m256& right) {
  if constexpr (sizeof(Sample) == 4) {
    // Plain 8-byte loads of each pair, sorted into left and right samples: faster
    // here than the hardware gather.
    auto pair = [s, index](int j) {
      return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + index[j])));
    };
    const __m128 a = _mm_movelh_ps(pair(0), pair(1)), b = _mm_movelh_ps(pair(2), pair(3));
    const __m128 c = _mm_movelh_ps(pair(4), pair(5)), d = _mm_movelh_ps(pair(6), pair(7));
    left =
        _mm256_set_m128(_mm_shuffle_ps(c, d, _MM_SHUFFLE(2, 0, 2, 0)), _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    right =
        _mm256_set_m128(_mm_shuffle_ps(c, d, _MM_SHUFFLE(3, 1, 3, 1)), _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
  } else {
    __m256i lanes;  // each 32-bit lane: right << 16 | left
    if constexpr (sizeof(Sample) == 2) {
      // Plain loads: the hardware gather is slower here than eight of them.
      auto pair = [s](int32_t at) {
        int32_t v;
        __builtin_memcpy(&v, s + at, 4);
        return v;
      };
      __m128i a = _mm_cvtsi32_si128(pair(index[0])), b = _mm_cvtsi32_si128(pair(index[4]));
      a = _mm_insert_epi32(a, pair(index[1]), 1);
      b = _mm_insert_epi32(b, pair(index[5]), 1);
      a = _mm_insert_epi32(a, pair(index[2]), 2);
      b = _mm_insert_epi32(b, pair(index[6]), 2);
      a = _mm_insert_epi32(a, pair(index[3]), 3);
      b = _mm_insert_epi32(b, pair(index[7]), 3);
      lanes = _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
    } else {
      auto pair = [s](int32_t at) {
        uint16_t v;
        __builtin_memcpy(&v, s + at, 2);
        return static_cast<int>(v);
      };
      __m128i pairs = _mm_cvtsi32_si128(pair(index[0]));
      pairs = _mm_insert_epi16(pairs, pair(index[1]), 1);
      pairs = _mm_insert_epi16(pairs, pair(index[2]), 2);
      pairs = _mm_insert_epi16(pairs, pair(index[3]), 3);
      pairs = _mm_insert_epi16(pairs, pair(index[4]), 4);
      pairs = _mm_insert_epi16(pairs, pair(index[5]), 5);
      pairs = _mm_insert_epi16(pairs, pair(index[6]), 6);
      pairs = _mm_insert_epi16(pairs, pair(index[7]), 7);
      lanes = _mm256_cvtepu8_epi16(pairs);
    }
    left = _mm256_cvtepi32_ps(_mm256_and_si256(lanes, _mm256_set1_epi32(0xFFFF)));
    right = _mm256_cvtepi32_ps(_mm256_srli_epi32(lanes, 16));
  }
}

// Eight results to eight samples: the truncated integer's low bits, or the float.
template <typename Sample>
inline void store8(Sample* out, __m256 v) {
  if constexpr (sizeof(Sample) == 4) {
    _mm256_storeu_ps(out, v);
  } else {
    const __m256i w = _mm256_and_si256(_mm256_cvttps_epi32(v), _mm256_set1_epi32(sizeof(Sample) == 2 ? 0xFFFF : 0xFF));
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1));
    if constexpr (sizeof(Sample) == 2) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), words);
    } else {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
    }
  }
}

// Pairs of four-column groups from the span's first column; returns where it stopped.
template <typename Sample>
int32_t eightColumns(const RemapRow& row, const Sample* s, Sample* out, int32_t end) {
  constexpr int32_t kChunk = 256;
  alignas(32) int32_t index[kChunk];
  alignas(32) float fraction[kChunk];
  const __m256 m = _mm256_set1_ps(row.columnCentre), k = _mm256_set1_ps(row.k), ft = _mm256_set1_ps(row.ft);
  const __m256 t = _mm256_set1_ps(row.t), f = _mm256_set1_ps(row.focal);
  const __m256 scale = _mm256_set1_ps(row.scale), centre = _mm256_set1_ps(row.centre);
  const __m256 eight = _mm256_set1_ps(8.0f);
  int32_t x = row.first;
  __m256 xs = _mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_set1_epi32(x), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7)));
  const int32_t stop = x + (end - x) / 8 * 8;
  while (x < stop) {
    const int32_t n = stop - x < kChunk ? stop - x : kChunk;
    for (int32_t g = 0; g < n; g += 8) {
      const __m256 u = _mm256_mul_ps(_mm256_sub_ps(xs, m), k);
      xs = _mm256_add_ps(xs, eight);
      const __m256 p = _mm256_add_ps(
          _mm256_mul_ps(_mm256_div_ps(_mm256_sub_ps(u, ft), _mm256_add_ps(_mm256_mul_ps(u, t), f)), scale), centre);
      const __m256i i = _mm256_cvttps_epi32(p);
      _mm256_store_si256(reinterpret_cast<__m256i*>(index + g), i);
      _mm256_store_ps(fraction + g, _mm256_sub_ps(p, _mm256_cvtepi32_ps(i)));
    }
    for (int32_t g = 0; g < n; g += 8) {
      __m256 left, right;
      gather8(s, index + g, left, right);
      store8(out + x + g, _mm256_add_ps(left, _mm256_mul_ps(_mm256_sub_ps(right, left), _mm256_load_ps(fraction + g))));
    }
    x += n;
  }
  return x;
}

template <typename Sample>
void remapRow(const RemapRow& row, Sample background) {
  remapRowWith(row, background, &eightColumns<Sample>);
}

}  // namespace

constinit const AngularRemapRows g_angularRemapRowsAvx2 = {&remapRow<uint8_t>, &remapRow<uint16_t>, &remapRow<float>};

}  // namespace tarnell::filter
