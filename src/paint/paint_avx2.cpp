// The painting routines' AVX2 bodies: the baseline bodies' rules and walks
// (paint_workers.h) on 32 bytes a vector step, with one 16-byte step where an
// 8-bit destination row is 16- but not 32-byte aligned and one before the row's
// tail step where 16 bytes or more are left; the head and tail steps are the
// baseline's 16-byte ones.
//
// Same bytes: every lane operation is the baseline one on a wider register. The
// byte-to-word widening and the narrowing back work within each 16-byte half,
// so a pixel's word sits beside its mask, colour and dither byte as in the
// baseline; family P's word pairs of dither bytes are the two 32-byte runs of a
// step interleaved by halves to match. The dither walk takes the same bytes in
// the same order (at most 32 in one piece, as the baseline), and a pixel's
// result does not depend on the step that computes it.
//
// Measured at 256x256 against the baseline bodies (tarnell-host bench --tier
// sse2,avx2, median of three): 2.0x faster at the median entry, from 1.5x to
// 2.3x (PaintQ8 2.3x, PaintP8 2.0x, PaintQ16 2.1x, PaintR8 1.8x); half the
// instructions a call (PaintQ8 258k to 120k, PaintP16 328k to 143k).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "paint/paint_workers.h"

namespace tarnell::paint {
namespace {

struct Avx2 {
  using Vec = __m256i;
  using Half = Sse2;
  static constexpr int32_t kBytes = 32;
  static constexpr uint32_t kAllBytes = 0xFFFFFFFFu;

  static TARNELL_INLINE Vec loadu(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
  static TARNELL_INLINE Vec loada(const void* p) { return _mm256_load_si256(static_cast<const __m256i*>(p)); }
  static TARNELL_INLINE void storeu(void* p, Vec x) { _mm256_storeu_si256(static_cast<__m256i*>(p), x); }
  static TARNELL_INLINE void storea(void* p, Vec x) { _mm256_store_si256(static_cast<__m256i*>(p), x); }
  static TARNELL_INLINE Vec bytes(int v) { return _mm256_set1_epi8(static_cast<char>(v)); }
  static TARNELL_INLINE Vec words(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
  static TARNELL_INLINE Vec zero() { return _mm256_setzero_si256(); }
  static TARNELL_INLINE Vec and_(Vec a, Vec b) { return _mm256_and_si256(a, b); }
  static TARNELL_INLINE Vec andnot(Vec a, Vec b) { return _mm256_andnot_si256(a, b); }
  static TARNELL_INLINE Vec or_(Vec a, Vec b) { return _mm256_or_si256(a, b); }
  static TARNELL_INLINE Vec xor_(Vec a, Vec b) { return _mm256_xor_si256(a, b); }
  static TARNELL_INLINE Vec add16(Vec a, Vec b) { return _mm256_add_epi16(a, b); }
  static TARNELL_INLINE Vec sub16(Vec a, Vec b) { return _mm256_sub_epi16(a, b); }
  static TARNELL_INLINE Vec mullo16(Vec a, Vec b) { return _mm256_mullo_epi16(a, b); }
  static TARNELL_INLINE Vec mulhiu16(Vec a, Vec b) { return _mm256_mulhi_epu16(a, b); }
  static TARNELL_INLINE Vec srl16(Vec a, int n) { return _mm256_srli_epi16(a, n); }
  static TARNELL_INLINE Vec avgu16(Vec a, Vec b) { return _mm256_avg_epu16(a, b); }
  static TARNELL_INLINE Vec addsu8(Vec a, Vec b) { return _mm256_adds_epu8(a, b); }
  static TARNELL_INLINE Vec subsu8(Vec a, Vec b) { return _mm256_subs_epu8(a, b); }
  static TARNELL_INLINE Vec subsu16(Vec a, Vec b) { return _mm256_subs_epu16(a, b); }
  static TARNELL_INLINE Vec minu8(Vec a, Vec b) { return _mm256_min_epu8(a, b); }
  static TARNELL_INLINE Vec maxu8(Vec a, Vec b) { return _mm256_max_epu8(a, b); }
  static TARNELL_INLINE Vec cmpeq8(Vec a, Vec b) { return _mm256_cmpeq_epi8(a, b); }
  static TARNELL_INLINE Vec cmpeq16(Vec a, Vec b) { return _mm256_cmpeq_epi16(a, b); }
  static TARNELL_INLINE Vec cmpgt16(Vec a, Vec b) { return _mm256_cmpgt_epi16(a, b); }
  static TARNELL_INLINE Vec lo16(Vec a) { return _mm256_unpacklo_epi8(a, _mm256_setzero_si256()); }
  static TARNELL_INLINE Vec hi16(Vec a) { return _mm256_unpackhi_epi8(a, _mm256_setzero_si256()); }
  static TARNELL_INLINE Vec pack16(Vec lo, Vec hi) { return _mm256_packus_epi16(lo, hi); }
  static TARNELL_INLINE uint32_t movemask(Vec a) { return static_cast<uint32_t>(_mm256_movemask_epi8(a)); }
  // lo16 holds pixels 0-7 and 16-23, hi16 pixels 8-15 and 24-31: their word
  // pairs are the first and second 16 bytes of each run (pixels 0-15, 16-31).
  static TARNELL_INLINE void noiseWords(const Noise& n, Vec& lo, Vec& hi) {
    lo = join(n.first, n.second);
    hi = join(n.first + 16, n.second + 16);
  }
  static TARNELL_INLINE Vec join(const uint8_t* low, const uint8_t* high) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(Sse2::loadu(low)), Sse2::loadu(high), 1);
  }
};

}  // namespace

constinit const PaintTable g_paintAvx2 = paintTable<Avx2>();

}  // namespace tarnell::paint
