// The 8-bit blending files' vector building blocks, on 16 samples and, in a file
// built for AVX2, also on 32: one overload per width, so that a routine's vector
// step is written once. Included by blend8_avx2.cpp and the overlay files:
// everything keeps internal linkage and is compiled for the including file's
// level. The 256-bit forms, and the byte select (an SSE4.1 instruction), exist
// only where __AVX2__ is defined; the rest is SSE2.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "host/inline.h"

namespace tarnell::blend8 {
namespace {

using V16 = __m128i;

template <class V>
V loadu(const uint8_t* p);
template <class V>
V loada(const uint8_t* p);
template <class V>
V bytes(uint8_t c);
template <class V>
V words(int16_t c);

// ------------------------------------------------------------ 16 samples

template <>
TARNELL_INLINE V16 loadu<V16>(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const V16*>(p));
}
template <>
TARNELL_INLINE V16 loada<V16>(const uint8_t* p) {
  return _mm_load_si128(reinterpret_cast<const V16*>(p));
}
template <>
TARNELL_INLINE V16 bytes<V16>(uint8_t c) {
  return _mm_set1_epi8(static_cast<char>(c));
}
template <>
TARNELL_INLINE V16 words<V16>(int16_t c) {
  return _mm_set1_epi16(c);
}
TARNELL_INLINE void storea(uint8_t* p, V16 x) { _mm_store_si128(reinterpret_cast<V16*>(p), x); }
TARNELL_INLINE void storeu(uint8_t* p, V16 x) { _mm_storeu_si128(reinterpret_cast<V16*>(p), x); }
TARNELL_INLINE void stream(uint8_t* p, V16 x) { _mm_stream_si128(reinterpret_cast<V16*>(p), x); }

TARNELL_INLINE V16 widenLo(V16 x) { return _mm_unpacklo_epi8(x, _mm_setzero_si128()); }
TARNELL_INLINE V16 widenHi(V16 x) { return _mm_unpackhi_epi8(x, _mm_setzero_si128()); }
TARNELL_INLINE V16 pack(V16 lo, V16 hi) { return _mm_packus_epi16(lo, hi); }
TARNELL_INLINE V16 add16(V16 a, V16 b) { return _mm_add_epi16(a, b); }
TARNELL_INLINE V16 sub16(V16 a, V16 b) { return _mm_sub_epi16(a, b); }
TARNELL_INLINE V16 mullo16(V16 a, V16 b) { return _mm_mullo_epi16(a, b); }
TARNELL_INLINE V16 mulhi16(V16 a, V16 b) { return _mm_mulhi_epu16(a, b); }
TARNELL_INLINE V16 add8(V16 a, V16 b) { return _mm_add_epi8(a, b); }
TARNELL_INLINE V16 sub8(V16 a, V16 b) { return _mm_sub_epi8(a, b); }
TARNELL_INLINE V16 subs8(V16 a, V16 b) { return _mm_subs_epu8(a, b); }
TARNELL_INLINE V16 max8(V16 a, V16 b) { return _mm_max_epu8(a, b); }
TARNELL_INLINE V16 min8(V16 a, V16 b) { return _mm_min_epu8(a, b); }
TARNELL_INLINE V16 eq8(V16 a, V16 b) { return _mm_cmpeq_epi8(a, b); }
TARNELL_INLINE V16 gt8(V16 a, V16 b) { return _mm_cmpgt_epi8(a, b); }
TARNELL_INLINE V16 orv(V16 a, V16 b) { return _mm_or_si128(a, b); }
TARNELL_INLINE V16 xorv(V16 a, V16 b) { return _mm_xor_si128(a, b); }
TARNELL_INLINE V16 andnot(V16 a, V16 b) { return _mm_andnot_si128(a, b); }

// ------------------------------------------------------------ 32 samples
#if defined(__AVX2__)

using V32 = __m256i;

template <>
TARNELL_INLINE V32 loadu<V32>(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const V32*>(p));
}
template <>
TARNELL_INLINE V32 loada<V32>(const uint8_t* p) {
  return _mm256_load_si256(reinterpret_cast<const V32*>(p));
}
template <>
TARNELL_INLINE V32 bytes<V32>(uint8_t c) {
  return _mm256_set1_epi8(static_cast<char>(c));
}
template <>
TARNELL_INLINE V32 words<V32>(int16_t c) {
  return _mm256_set1_epi16(c);
}
TARNELL_INLINE void storea(uint8_t* p, V32 x) { _mm256_store_si256(reinterpret_cast<V32*>(p), x); }
TARNELL_INLINE void storeu(uint8_t* p, V32 x) { _mm256_storeu_si256(reinterpret_cast<V32*>(p), x); }
TARNELL_INLINE void stream(uint8_t* p, V32 x) { _mm256_stream_si256(reinterpret_cast<V32*>(p), x); }

// The 256-bit unpacks and packs work within each 128-bit lane, so widening a
// vector and packing it back keeps every sample in place.
TARNELL_INLINE V32 widenLo(V32 x) { return _mm256_unpacklo_epi8(x, _mm256_setzero_si256()); }
TARNELL_INLINE V32 widenHi(V32 x) { return _mm256_unpackhi_epi8(x, _mm256_setzero_si256()); }
TARNELL_INLINE V32 pack(V32 lo, V32 hi) { return _mm256_packus_epi16(lo, hi); }
TARNELL_INLINE V32 add16(V32 a, V32 b) { return _mm256_add_epi16(a, b); }
TARNELL_INLINE V32 sub16(V32 a, V32 b) { return _mm256_sub_epi16(a, b); }
TARNELL_INLINE V32 mullo16(V32 a, V32 b) { return _mm256_mullo_epi16(a, b); }
TARNELL_INLINE V32 mulhi16(V32 a, V32 b) { return _mm256_mulhi_epu16(a, b); }
TARNELL_INLINE V32 add8(V32 a, V32 b) { return _mm256_add_epi8(a, b); }
TARNELL_INLINE V32 sub8(V32 a, V32 b) { return _mm256_sub_epi8(a, b); }
TARNELL_INLINE V32 subs8(V32 a, V32 b) { return _mm256_subs_epu8(a, b); }
TARNELL_INLINE V32 max8(V32 a, V32 b) { return _mm256_max_epu8(a, b); }
TARNELL_INLINE V32 min8(V32 a, V32 b) { return _mm256_min_epu8(a, b); }
TARNELL_INLINE V32 eq8(V32 a, V32 b) { return _mm256_cmpeq_epi8(a, b); }
TARNELL_INLINE V32 gt8(V32 a, V32 b) { return _mm256_cmpgt_epi8(a, b); }
TARNELL_INLINE V32 orv(V32 a, V32 b) { return _mm256_or_si256(a, b); }
TARNELL_INLINE V32 xorv(V32 a, V32 b) { return _mm256_xor_si256(a, b); }
TARNELL_INLINE V32 andnot(V32 a, V32 b) { return _mm256_andnot_si256(a, b); }

// where ? yes : no per byte, by the top bit of each byte of `where` (a mask
// sample's own top bit is its m >= 128 test).
TARNELL_INLINE V16 select(V16 where, V16 yes, V16 no) { return _mm_blendv_epi8(no, yes, where); }
TARNELL_INLINE V32 select(V32 where, V32 yes, V32 no) { return _mm256_blendv_epi8(no, yes, where); }

#endif

// ------------------------------------------------------------ arithmetic

// round255 of a product p held as t = p + 128 in 16-bit lanes (t <= 65153):
// (t + (t >> 8)) >> 8, which equals (t * 257) >> 16 -- the fraction the inner
// shift drops can never carry into the outer one -- so one high multiply does it.
template <class V>
TARNELL_INLINE V reduce255(V t) {
  return mulhi16(t, words<V>(257));
}
// round255(a * b) on widened lanes: chained products stay widened between steps.
template <class V>
TARNELL_INLINE V mul16(V a, V b) {
  return reduce255(add16(mullo16(a, b), words<V>(128)));
}
// round255(a * b) per byte.
template <class V>
TARNELL_INLINE V mulv(V a, V b) {
  return pack(mul16(widenLo(a), widenLo(b)), mul16(widenHi(a), widenHi(b)));
}
// d + L(w, x - d) per byte, as round255(255 * d + w * (x - d)): the two agree
// because no quotient of 255 is a tie. The sum is d * (255 - w) + x * w, in
// 0..65025, so forming it modulo 2^16 (d * 255 plus the wrapped signed product)
// gives it exactly.
template <class V>
TARNELL_INLINE V mixHalf(V d16, V x16, V w16) {
  const V base = add16(mullo16(d16, words<V>(255)), words<V>(128));
  return reduce255(add16(base, mullo16(w16, sub16(x16, d16))));
}
template <class V>
TARNELL_INLINE V mixv(V d, V x, V w) {
  return pack(mixHalf(widenLo(d), widenLo(x), widenLo(w)), mixHalf(widenHi(d), widenHi(x), widenHi(w)));
}

// ------------------------------------------------------------------ runs

// One run of n samples: scalar(i) does sample i, vector(V{}, i) the samples from
// i on, 16 or 32 by the vector type, with the destination at i aligned to that
// many bytes. A scalar head up to the destination's 16-byte boundary; with AVX2
// one 16-sample step to a 32-byte boundary, then 32-sample steps; 16-sample
// steps; the scalar tail.
template <class Scalar, class Vector>
TARNELL_INLINE void run(const uint8_t* destination, intptr_t n, Scalar scalar, Vector vector) {
  const auto address = reinterpret_cast<uintptr_t>(destination);
  intptr_t head = static_cast<intptr_t>((0 - address) & 15), i = 0;
  if (head > n) head = n;
  for (; i < head; ++i) scalar(i);
#if defined(__AVX2__)
  if (((address + static_cast<uintptr_t>(i)) & 16) != 0 && n - i >= 16) {
    vector(V16{}, i);
    i += 16;
  }
  // Two steps an iteration: the loop's own count costs less per sample.
  for (const intptr_t pairs = i + ((n - i) & ~intptr_t{63}); i < pairs; i += 64) {
    vector(V32{}, i);
    vector(V32{}, i + 32);
  }
  if (n - i >= 32) {
    vector(V32{}, i);
    i += 32;
  }
#endif
  for (const intptr_t steps = i + ((n - i) & ~intptr_t{15}); i < steps; i += 16) vector(V16{}, i);
  for (; i < n; ++i) scalar(i);
}

}  // namespace
}  // namespace tarnell::blend8
