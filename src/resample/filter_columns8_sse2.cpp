// FilterColumnsSse2_8: the 8-bit vertical kernel filter. Every sample of an output
// row uses the same weights, so rows are taken two at a time: their bytes are
// interleaved and multiply-added with a (weight, weight) pair, sixteen samples per
// step, then four, then one. 0 or 1 tap copies source row indices[r] + 1 through
// the live 'memo' slot 0.
#include "host/module_state.h"
#include "resample/kernel_sse2.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

namespace {

__m128i weightPair(int16_t a, int16_t b) {
  return _mm_set1_epi32(static_cast<int32_t>(static_cast<uint16_t>(a) | (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16)));
}

// Adds pair j of the kernel to the sums of 16 samples (four lanes each).
struct Sixteen {
  __m128i acc[4] = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
  void add(__m128i a, __m128i b, __m128i pair) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(a, b), hi = _mm_unpackhi_epi8(a, b);
    acc[0] = _mm_add_epi32(acc[0], _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), pair));
    acc[1] = _mm_add_epi32(acc[1], _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), pair));
    acc[2] = _mm_add_epi32(acc[2], _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), pair));
    acc[3] = _mm_add_epi32(acc[3], _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), pair));
  }
  static __m128i finish(__m128i v) { return _mm_srai_epi32(_mm_add_epi32(v, _mm_set1_epi32(8192)), 14); }
  void store(uint8_t* d) const {
    const __m128i lo = _mm_packs_epi32(finish(acc[0]), finish(acc[1]));
    const __m128i hi = _mm_packs_epi32(finish(acc[2]), finish(acc[3]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
  }
};

struct Four {
  __m128i acc = _mm_setzero_si128();
  void add(__m128i a, __m128i b, __m128i pair) {
    acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi8(_mm_unpacklo_epi8(a, b), _mm_setzero_si128()), pair));
  }
  void store(uint8_t* d) const { ByteSamples::store4(d, Sixteen::finish(acc)); }
};

// One output row. Taps > 0 fixed at compile time for the unrolled loops; 0 for the
// general loop, which takes the count at run time (none or negative: zeros).
template <int Fixed>
void columnRow(const uint8_t* row0, intptr_t stride, const int16_t* w, int32_t taps, uint8_t* d, int32_t width) {
  const int32_t n = Fixed > 0 ? Fixed : std::max(taps, int32_t{0});
  const int32_t pairs = n / 2;
  auto kernel = [&](auto& sums, auto load, int32_t x) {
    for (int32_t j = 0; j < pairs; ++j) {
      const uint8_t* p = row0 + (2 * j) * stride + x;
      sums.add(load(p), load(p + stride), weightPair(w[2 * j], w[2 * j + 1]));
    }
    if (n % 2 != 0) sums.add(load(row0 + (n - 1) * stride + x), _mm_setzero_si128(), weightPair(w[n - 1], 0));
  };
  int32_t x = 0;
  for (; x + 16 <= width; x += 16) {
    Sixteen s;
    kernel(s, [](const uint8_t* p) { return loadBytes<16>(p); }, x);
    s.store(d + x);
  }
  for (; x + 4 <= width; x += 4) {
    Four s;
    kernel(s, [](const uint8_t* p) { return loadBytes<4>(p); }, x);
    s.store(d + x);
  }
  for (; x < width; ++x) d[x] = clamp8(kernelSum(row0 + x, stride, w, n));
}

}  // namespace

void FilterColumnsSse2_8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width,
                         const int32_t* indices, const uint8_t* phases, int32_t sourceStride,
                         int32_t destinationStride, int16_t taps, const int16_t* weights) {
  eachColumnRow(source, destination, rows, width, indices, phases, sourceStride, destinationStride, taps, weights,
                copyRow, [&](const uint8_t* row0, const int16_t* w, uint8_t* d) {
                  switch (taps) {
                    case 2: return columnRow<2>(row0, sourceStride, w, taps, d, width);
                    case 4: return columnRow<4>(row0, sourceStride, w, taps, d, width);
                    case 6: return columnRow<6>(row0, sourceStride, w, taps, d, width);
                    case 8: return columnRow<8>(row0, sourceStride, w, taps, d, width);
                    default: return columnRow<0>(row0, sourceStride, w, taps, d, width);
                  }
                });
}

}  // namespace tarnell::resample
