// BoxReduce8: each output sample is the rounded mean of an a x b block of source
// samples of its channel, (sum + area / 2) / area. The division is exact without a
// divide instruction: the scalar walk multiplies by the invariant-divisor
// reciprocal (host/invariant_divisor.h), the speed path below by a 16-bit one. Rows of more than 1500 output samples go, whole
// and unchanged, to the host's own routine.
//
// Speed path (1..4 samples per pixel, a and b 1..8): the b rows are summed in
// 16-bit lanes (255 x 64 + 32 fits), the a pixels of each output pixel are folded
// from those sums, and the rounded sums are divided eight at a time by a 16-bit
// multiply-high reciprocal, exact over every sum the area can produce (checked
// when the table is built). Loads of the source stay inside the bytes the scalar
// walk reads: the last sixteen of a row overlap the previous ones. Whole pixels
// of 1, 2 or 4 samples halved or quartered across (the common cases) do all three
// steps in registers.
#include <emmintrin.h>

#include <cstring>

#include "host/install.h"
#include "host/invariant_divisor.h"
#include "host/module_state.h"
#include "resample/box_reduce8_divisor.h"
#include "resample/kernel_scalar.h"
#include "resample/resample_routines.h"

// The host's own box reduction (saved slot 24), for rows wider than the local sums.
TARNELL_FORWARDER(HostBoxReduce8, kRsmp, 24);
// The host's own row-box average (saved slot 3). Nothing calls it: BoxAverageRows8
// handles every case itself.
TARNELL_FORWARDER(HostBoxAverageRows8, kRsmp, 3);

namespace tarnell::resample {

namespace {

// (n + area / 2) / area in each 16-bit lane.
struct LaneDivide {
  explicit LaneDivide(uint32_t area)
      : round(_mm_set1_epi16(static_cast<int16_t>(area / 2))),
        multiplier(_mm_set1_epi16(static_cast<int16_t>(kLaneDivisors.area[area].multiplier))),
        shift(_mm_cvtsi32_si128(kLaneDivisors.area[area].shift)),
        copy(area == 1) {}
  __m128i operator()(__m128i sums) const {
    const __m128i n = _mm_add_epi16(sums, round);
    return copy ? n : _mm_srl_epi16(_mm_mulhi_epu16(n, multiplier), shift);
  }
  __m128i round, multiplier, shift;
  bool copy;
};

// Sums of the b rows, one 16-bit lane per source byte of the span the outputs read.
void sumRows(const uint8_t* top, intptr_t stride, int32_t b, int32_t span, uint16_t* sums) {
  if (span < 16) {
    for (int32_t i = 0; i < span; ++i) {
      uint32_t s = 0;
      for (int32_t dy = 0; dy < b; ++dy) s += rowAt(top, dy, stride)[i];
      sums[i] = static_cast<uint16_t>(s);
    }
    return;
  }
  const __m128i zero = _mm_setzero_si128();
  for (int32_t i = 0;; i += 16) {
    if (i > span - 16) i = span - 16;  // the last sixteen bytes, overlapping
    __m128i lo = zero, hi = zero;
    for (int32_t dy = 0; dy < b; ++dy) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rowAt(top, dy, stride) + i));
      lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(v, zero));
      hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(v, zero));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + i), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + i + 8), hi);
    if (i == span - 16) break;
  }
}

// Sums of adjacent pixel pairs of spp 16-bit lanes each (spp 1, 2 or 4): the eight
// pixel lanes of p then q become four pair sums.
template <int Spp>
__m128i pairSums(__m128i p, __m128i q) {
  if constexpr (Spp == 1) {  // lane sums < 2^15: the signed pack keeps them
    const __m128i ones = _mm_set1_epi16(1);
    return _mm_packs_epi32(_mm_madd_epi16(p, ones), _mm_madd_epi16(q, ones));
  } else {
    if constexpr (Spp == 2) {  // dword pixels 0 2 1 3: even pixels low, odd high
      p = _mm_shuffle_epi32(p, _MM_SHUFFLE(3, 1, 2, 0));
      q = _mm_shuffle_epi32(q, _MM_SHUFFLE(3, 1, 2, 0));
    }
    return _mm_add_epi16(_mm_unpacklo_epi64(p, q), _mm_unpackhi_epi64(p, q));
  }
}

// Halves the pixels of `lanes` lanes in place, log2(a) times: a power-of-two a.
template <int Spp>
void foldPairs(uint16_t* sums, int32_t lanes, int32_t a) {
  for (; a > 1; a /= 2, lanes /= 2)
    for (int32_t i = 0; i < lanes; i += 16)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + i / 2),
                       pairSums<Spp>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + i)),
                                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + i + 8))));
}

// Any a, 2..4 samples per pixel: eight output pixels at a time, each the sum of a
// four-lane loads (the fourth lane is the next pixel's, masked off for 3), packed
// into whole vectors so that the divide's loads match whole stores.
template <int Spp>
void foldEights(const uint16_t* sums, int32_t pixels, int32_t a, uint16_t* block) {
  const auto pixel = [&](const uint16_t* p) {
    __m128i s = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    for (int32_t dx = 1; dx < a; ++dx)
      s = _mm_add_epi16(s, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + dx * Spp)));
    return s;
  };
  const auto store = [](uint16_t* at, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(at), v); };
  const intptr_t step = intptr_t{a} * Spp;
  for (int32_t j = 0; j < pixels; j += 8, sums += 8 * step, block += 8 * Spp) {
    __m128i s[8];
    for (int k = 0; k < 8; ++k) s[k] = pixel(sums + k * step);
    if constexpr (Spp == 4) {
      for (int k = 0; k < 4; ++k) store(block + 8 * k, _mm_unpacklo_epi64(s[2 * k], s[2 * k + 1]));
    } else if constexpr (Spp == 2) {
      for (int k = 0; k < 2; ++k)
        store(block + 8 * k, _mm_unpacklo_epi64(_mm_unpacklo_epi32(s[4 * k], s[4 * k + 1]),
                                                _mm_unpacklo_epi32(s[4 * k + 2], s[4 * k + 3])));
    } else {  // lanes 0..2 of each pixel, laid end to end over three vectors
      const __m128i keep = _mm_set_epi32(0, 0, 0x0000FFFF, -1);
      for (__m128i& v : s) v = _mm_and_si128(v, keep);
      store(block, _mm_or_si128(_mm_or_si128(s[0], _mm_slli_si128(s[1], 6)), _mm_slli_si128(s[2], 12)));
      store(block + 8, _mm_or_si128(_mm_or_si128(_mm_srli_si128(s[2], 4), _mm_slli_si128(s[3], 2)),
                                    _mm_or_si128(_mm_slli_si128(s[4], 8), _mm_slli_si128(s[5], 14))));
      store(block + 16, _mm_or_si128(_mm_or_si128(_mm_srli_si128(s[5], 2), _mm_slli_si128(s[6], 4)),
                                     _mm_slli_si128(s[7], 10)));
    }
  }
}

// a = 2 or 4 with 1, 2 or 4 samples per pixel, whole pixels, at least sixteen
// outputs: each 16 a source bytes of the b rows give sixteen outputs, summed,
// folded and divided in registers (the row span is exactly a times the width, so
// the last, overlapping step stays inside it).
template <int Spp, int A>
void reducePairsRow(const uint8_t* top, intptr_t stride, int32_t b, int32_t width, uint32_t area, uint8_t* d) {
  const LaneDivide divide(area);  // a local: the byte stores cannot alias it
  const __m128i zero = _mm_setzero_si128();
  for (int32_t x = 0;; x += 16) {
    if (x > width - 16) x = width - 16;
    __m128i s[std::size_t{2} * A];
    for (__m128i& v : s) v = zero;
    for (int32_t dy = 0; dy < b; ++dy) {
      const uint8_t* p = rowAt(top, dy, stride) + intptr_t{A} * x;
      for (int k = 0; k < A; ++k) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
        s[2 * k] = _mm_add_epi16(s[2 * k], _mm_unpacklo_epi8(v, zero));
        s[2 * k + 1] = _mm_add_epi16(s[2 * k + 1], _mm_unpackhi_epi8(v, zero));
      }
    }
    for (int n = 2 * A; n > 2; n /= 2)
      for (int k = 0; k < n / 2; ++k) s[k] = pairSums<Spp>(s[2 * k], s[2 * k + 1]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + x), _mm_packus_epi16(divide(s[0]), divide(s[1])));
    if (x == width - 16) break;
  }
}



// Folds the a pixels of each output pixel: the result's lane x is the sum over dx
// of sums[(x / spp) a spp + dx spp + x % spp], for x in 0 .. width (rounded up to
// whole pixels; lanes past the width are never stored). Returns where it is.
const uint16_t* foldPixels(uint16_t* sums, int32_t width, int32_t spp, int32_t a, uint16_t* block) {
  const int32_t pixels = (width + spp - 1) / spp;
  if (a == 1) return sums;
  if ((a & (a - 1)) == 0 && spp != 3) {
    const int32_t lanes = pixels * a * spp;
    if (spp == 1) foldPairs<1>(sums, lanes, a);
    if (spp == 2) foldPairs<2>(sums, lanes, a);
    if (spp == 4) foldPairs<4>(sums, lanes, a);
    return sums;
  }
  if (spp == 1) {  // window sums of a lanes in place, eight at a time, then every a-th
    for (int32_t i = 0; i < pixels * a; i += 8) {
      __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + i));
      for (int32_t dx = 1; dx < a; ++dx)
        s = _mm_add_epi16(s, _mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + i + dx)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(sums + i), s);
    }
    // Eight picks per vector store: the divide's loads then match whole stores.
    for (int32_t j = 0; j < pixels; j += 8) {
      const uint16_t* p = sums + j * a;
      __m128i v = _mm_cvtsi32_si128(p[0]);
      v = _mm_insert_epi16(v, p[a], 1);
      v = _mm_insert_epi16(v, p[2 * a], 2);
      v = _mm_insert_epi16(v, p[3 * a], 3);
      v = _mm_insert_epi16(v, p[4 * a], 4);
      v = _mm_insert_epi16(v, p[5 * a], 5);
      v = _mm_insert_epi16(v, p[6 * a], 6);
      v = _mm_insert_epi16(v, p[7 * a], 7);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(block + j), v);
    }
    return block;
  }
  if (spp == 2) foldEights<2>(sums, pixels, a, block);
  if (spp == 3) foldEights<3>(sums, pixels, a, block);
  if (spp == 4) foldEights<4>(sums, pixels, a, block);
  return block;
}

// d[x] = (block[x] + area / 2) / area for x in 0 .. width.
void divideRow(const uint16_t* block, int32_t width, uint32_t area, uint8_t* d) {
  const LaneDivide divide(area);
  const auto quotient = [&](int32_t x) {
    return divide(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + x)));
  };
  if (width < 16) {
    alignas(16) uint8_t out[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(quotient(0), quotient(8)));
    std::memcpy(d, out, static_cast<std::size_t>(width));
    return;
  }
  for (int32_t x = 0;; x += 16) {
    if (x > width - 16) x = width - 16;  // the last sixteen outputs, overlapping
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + x), _mm_packus_epi16(quotient(x), quotient(x + 8)));
    if (x == width - 16) break;
  }
}

void boxReduceScalar(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width,
                     int32_t sourceStride, int32_t destinationStride, int32_t samplesPerPixel, int32_t a, int32_t b) {
  const auto area = static_cast<uint32_t>(a) * static_cast<uint32_t>(b);
  const InvariantDivisor divisor = invariantDivisor(area);
  const intptr_t pixelStep = intptr_t{a} * samplesPerPixel;  // source samples between output pixels
  uint32_t sums[kBoxReduceMaxWidth];
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t x = 0; x < width; ++x) sums[x] = area / 2;
    const uint8_t* top = rowAt(source, intptr_t{r} * b, sourceStride);
    for (int32_t dy = 0; dy < b; ++dy) {
      const uint8_t* row = rowAt(top, dy, sourceStride);
      int32_t x = 0;
      for (const uint8_t* pixel = row; x < width; pixel += pixelStep)
        for (int32_t c = 0; c < samplesPerPixel && x < width; ++c, ++x) {
          uint32_t s = 0;
          for (int32_t dx = 0; dx < a; ++dx) s += pixel[intptr_t{dx} * samplesPerPixel + c];
          sums[x] += s;
        }
    }
    uint8_t* d = rowAt(destination, r, destinationStride);
    for (int32_t x = 0; x < width; ++x) d[x] = static_cast<uint8_t>(exactQuotient(divisor, sums[x]));
  }
}

constinit const BoxReduceRows kRowsSse2 = {
    .pairs = {{nullptr, &reducePairsRow<1, 2>, &reducePairsRow<2, 2>, nullptr, &reducePairsRow<4, 2>},
              {nullptr, &reducePairsRow<1, 4>, &reducePairsRow<2, 4>, nullptr, &reducePairsRow<4, 4>}},
    .least = 16,
    .sumRows = &sumRows,
    .divideRow = &divideRow,
};

// The per-call part, baseline code whatever the level of the row kernels: the
// hand-over of wide rows, the shapes the speed path takes, the fold.
template <const BoxReduceRows* Rows>
void boxReduce8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, int32_t sourceStride,
                int32_t destinationStride, int32_t samplesPerPixel, int32_t a, int32_t b) {
  if (width > kBoxReduceMaxWidth) {
    reinterpret_cast<SlotFnOf<slot::BoxReduce8>>(&HostBoxReduce8)(source, destination, rows, width, sourceStride,
                                                              destinationStride, samplesPerPixel, a, b);
    return;
  }
  if (rows < 1 || width < 1 || samplesPerPixel < 1 || a < 1 || b < 1) return;
  if (samplesPerPixel > 4 || a > kMaxFactor || b > kMaxFactor) {
    boxReduceScalar(source, destination, rows, width, sourceStride, destinationStride, samplesPerPixel, a, b);
    return;
  }
  const int32_t spp = samplesPerPixel;
  const auto area = static_cast<uint32_t>(a * b);
  // a = 2 or 4 over whole pixels of 1, 2 or 4 samples: all in registers, the level's
  // kernel from its least width, the SSE2 one from sixteen outputs.
  if ((a == 2 || a == 4) && spp != 3 && width % spp == 0 && width >= kRowsSse2.least) {
    const BoxReduceRows& k = width >= Rows->least ? *Rows : kRowsSse2;
    BoxReduceRows::Pairs* const row = k.pairs[a / 4][spp];
    for (int32_t r = 0; r < rows; ++r)
      row(rowAt(source, intptr_t{r} * b, sourceStride), sourceStride, b, width, area,
          rowAt(destination, r, destinationStride));
    return;
  }
  const int32_t lastPixel = (width - 1) / spp;
  // Source bytes from the row start to the last one read (last pixel's last block
  // column, its last output channel).
  const int32_t span = (lastPixel * a + a - 1) * spp + (width - 1) % spp + 1;
  // Slack: folding reads up to eight whole pixels past the last and four lanes of
  // each, dividing reads sixteen lanes.
  alignas(32) uint16_t sums[kBoxReduceMaxWidth * kMaxFactor + 8 * 4 * kMaxFactor + 32];
  alignas(32) uint16_t block[kBoxReduceMaxWidth + 32];
  for (int32_t r = 0; r < rows; ++r) {
    Rows->sumRows(rowAt(source, intptr_t{r} * b, sourceStride), sourceStride, b, span, sums);
    Rows->divideRow(foldPixels(sums, width, spp, a, block), width, area, rowAt(destination, r, destinationStride));
  }
}

}  // namespace

void BoxReduce8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, int32_t sourceStride,
                int32_t destinationStride, int32_t samplesPerPixel, int32_t a, int32_t b) {
  boxReduce8<&kRowsSse2>(source, destination, rows, width, sourceStride, destinationStride, samplesPerPixel, a, b);
}

// The AVX2 body: this per-call part around the AVX2 row kernels.
constinit const ResampleTable g_boxReduceAvx2 = {.BoxReduce8 = &boxReduce8<&g_boxReduceRowsAvx2>};

}  // namespace tarnell::resample
