// The per-sample rules of the depth conversions, scalar and in 128-bit lanes,
// shared by the SSE2 and AVX2 rows: each file includes it, so everything keeps
// internal linkage and is compiled for that file's level. Every vector form here
// gives exactly its scalar form's result (see each), so a row may take any
// sample in any form.
#pragma once

#include <emmintrin.h>
#include <xmmintrin.h>

#include <cstdint>
#include <cstring>

namespace tarnell::convert {
namespace {

using Byte = unsigned char;

inline uint16_t loadWord(const Byte* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}
inline void storeWord(Byte* p, uint16_t v) { std::memcpy(p, &v, 2); }
inline float loadFloat(const Byte* p) {
  float v;
  std::memcpy(&v, p, 4);
  return v;
}
inline __m128i loadu(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128 loadFloats(const Byte* p) { return _mm_loadu_ps(reinterpret_cast<const float*>(p)); }
inline unsigned misalignment(const void* p) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p) & 15u); }

// Source rows are fetched ahead of the loop: the processor's own prefetch does not
// keep up with a stream this regular once the planes leave the caches (it about
// doubles the throughput of large planes here); a prefetch never faults, so it
// may run past the plane.
constexpr intptr_t kPrefetchBytes = 4096;
inline void prefetch(const Byte* p) { _mm_prefetch(reinterpret_cast<const char*>(p) + kPrefetchBytes, _MM_HINT_T0); }

// ------------------------------------------------------------- 16-bit to 8-bit

constexpr uint32_t kNoDitherRounding = 16384;

// floor((255 x + n) / 32768). Samples above full (outside the contract) count as
// full, so they give 255 as the vector form does.
inline uint8_t word15To8(uint32_t x, uint32_t n) {
  if (x > 32768) x = 32768;
  return static_cast<uint8_t>((255 * x + n) >> 15);
}
// The row's noise entry for column c, masked to 15 bits; without dither, the
// rounding to nearest.
template <bool Dither>
inline uint32_t roundingAt(const Byte* noise, int32_t c) {
  if constexpr (Dither)
    return loadWord(noise + 2 * static_cast<intptr_t>(c)) & 0x7FFFu;
  else
    return kNoDitherRounding;
}

// The noise entries from column c on (none without dither).
template <bool Dither>
inline const Byte* noiseAt(const Byte* noise, int32_t c) {
  if constexpr (Dither)
    return noise + 2 * static_cast<intptr_t>(c);
  else
    return nullptr;
}

// Eight samples in 16-bit lanes: (x + ((n - x) >> 8)) >> 7, arithmetic then
// logical shift, which equals floor((255 x + n) / 32768) for x in 0..32768 and n
// in 0..32767. x is first limited to 32768 (x - saturating(x - 32768)).
inline __m128i words15To8(__m128i x, __m128i n) {
  const __m128i full = _mm_set1_epi16(static_cast<short>(0x8000));
  x = _mm_sub_epi16(x, _mm_subs_epu16(x, full));
  const __m128i sum = _mm_add_epi16(x, _mm_srai_epi16(_mm_sub_epi16(n, x), 8));
  return _mm_srli_epi16(sum, 7);
}

// The same with n = 16384 in three operations: floor((255 x + 16384) / 32768) =
// floor((floor(255 x / 256) + 64) / 128), and floor(255 x / 256) is the high half
// of x * 65280. Above 32768 the result only grows (to 510 at most, no wrap), so
// the unsigned pack turns it into 255 without a separate limit.
inline __m128i words15To8Rounded(__m128i x) {
  const __m128i scaled = _mm_mulhi_epu16(x, _mm_set1_epi16(static_cast<short>(65280)));
  return _mm_srli_epi16(_mm_add_epi16(scaled, _mm_set1_epi16(64)), 7);
}

// Sixteen samples from s (with dither, noise entries from n) packed to sixteen bytes.
template <bool Dither>
inline __m128i sixteenWords15To8(const Byte* s, const Byte* n) {
  if constexpr (Dither) {
    const __m128i mask15 = _mm_set1_epi16(0x7FFF);
    return _mm_packus_epi16(words15To8(loadu(s), _mm_and_si128(loadu(n), mask15)),
                            words15To8(loadu(s + 16), _mm_and_si128(loadu(n + 16), mask15)));
  } else {
    return _mm_packus_epi16(words15To8Rounded(loadu(s)), words15To8Rounded(loadu(s + 16)));
  }
}

// ------------------------------------------------------------- 8-bit to 16-bit

// floor((x * 32768 + 127) / 255), an exact division.
inline uint16_t byteTo15(uint32_t x) { return static_cast<uint16_t>(((x << 15) | 127u) / 255u); }

// The same quotient for eight samples: it equals ceil(257 x / 2), and 257 x is the
// byte repeated in both halves of a 16-bit lane, so one unpack of the bytes with
// themselves and one rounding average with zero do it.
inline __m128i bytePairsTo15(__m128i repeated) { return _mm_avg_epu16(repeated, _mm_setzero_si128()); }

// ----------------------------------------------------------- range re-scaling

// 65535 -> 32768: floor((x * 32768 + 32767) / 65535), which is ceil(x / 2).
inline uint16_t word16To15(uint32_t x) { return static_cast<uint16_t>(((x << 15) | 0x7FFFu) / 65535u); }
inline __m128i words16To15(__m128i x) { return _mm_avg_epu16(x, _mm_setzero_si128()); }

// 32768 -> 65535: (x * 65535 + 16384) >> 15 below 32768, 65535 from 32768 up. The
// product form equals 2x - (x > 16384); the saturating doubling gives 65535 from
// 32768 up, where the signed comparison is false.
inline uint16_t word15To16(uint32_t x) {
  return static_cast<uint16_t>(x >= 32768 ? 65535u : (x * 65535u + 16384u) >> 15);
}
inline __m128i words15To16(__m128i x) {
  return _mm_add_epi16(_mm_adds_epu16(x, x), _mm_cmpgt_epi16(x, _mm_set1_epi16(16384)));
}

// The row's vector loop needs an even row address (samples then reach 16-byte
// alignment) and at least 8 samples after the alignment run; returns that run,
// or -1 when the whole row is scalar.
inline int32_t rescaleHead(const Byte* row, int32_t columns) {
  if ((reinterpret_cast<uintptr_t>(row) & 1u) != 0) return -1;
  const auto head = static_cast<int32_t>(((16u - misalignment(row)) & 15u) / 2);
  return columns - head >= 8 ? head : -1;
}
inline void rescaleOne(Byte* row, int32_t c, bool up) {
  Byte* p = row + 2 * static_cast<intptr_t>(c);
  storeWord(p, up ? word15To16(loadWord(p)) : word16To15(loadWord(p)));
}

// ------------------------------------------------------------ float to 8-bit

// The columns past the last multiple of four: clamp(v, 0, 1) * 255 + 0.5 in double
// precision, where the product and the sum are exact, truncated. NaN gives 0.
inline uint8_t floatTo8(float v) {
  double x = v;
  if (!(x > 0.0))
    x = 0.0;
  else if (x > 1.0)
    x = 1.0;
  return static_cast<uint8_t>(static_cast<int32_t>(x * 255.0 + 0.5));
}

// The columns up to the last multiple of four, four at a time: the same in single
// precision, trunc(fl(fl(v * 255) + 0.5)), in the thread's rounding mode. This is
// the host's own rule, one too high for 128 floats in 0..1 where fl(v * 255)
// rounds up across a half (see docs/contracts.md).
//
// Only the upper limit is applied as such: below 0 the sum is below 0.5, so the
// truncation gives 0 or a negative number that the packs turn into 0, and NaN
// (kept by the minimum, which returns its second operand for NaN) or a sum too
// large for 32 bits gives 0x80000000, packed to 0 as well.
inline __m128i floatsTo8(__m128 v) {
  v = _mm_min_ps(_mm_set1_ps(1.0f), v);
  return _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(v, _mm_set1_ps(255.0f)), _mm_set1_ps(0.5f)));
}

// Up to four results of floatsTo8, saturated to bytes, in the low bytes of an int.
inline int32_t packedBytes(__m128i w) {
  w = _mm_packs_epi32(w, w);
  return _mm_cvtsi128_si32(_mm_packus_epi16(w, w));
}

inline Byte singleFloatTo8(const Byte* p) {
  return static_cast<Byte>(packedBytes(floatsTo8(_mm_set_ss(loadFloat(p)))));
}

// Sixteen single-precision columns from s, packed to sixteen bytes.
inline __m128i sixteenFloatsTo8(const Byte* s) {
  const __m128i a = _mm_packs_epi32(floatsTo8(loadFloats(s)), floatsTo8(loadFloats(s + 16)));
  const __m128i b = _mm_packs_epi32(floatsTo8(loadFloats(s + 32)), floatsTo8(loadFloats(s + 48)));
  return _mm_packus_epi16(a, b);
}

// The single-precision columns from c to vectorColumns four, then one, at a time,
// and the double-precision columns after them.
inline void finishFloatRow(const Byte* source, Byte* destination, int32_t c, int32_t vectorColumns, int32_t columns) {
  for (; c + 4 <= vectorColumns; c += 4) {
    const int32_t four = packedBytes(floatsTo8(loadFloats(source + 4 * static_cast<intptr_t>(c))));
    std::memcpy(destination + c, &four, 4);
  }
  for (; c < vectorColumns; ++c) destination[c] = singleFloatTo8(source + 4 * static_cast<intptr_t>(c));
  for (; c + 2 <= columns; c += 2) {
    destination[c] = floatTo8(loadFloat(source + 4 * static_cast<intptr_t>(c)));
    destination[c + 1] = floatTo8(loadFloat(source + 4 * static_cast<intptr_t>(c) + 4));
  }
  if (c < columns) destination[c] = floatTo8(loadFloat(source + 4 * static_cast<intptr_t>(c)));
}

}  // namespace
}  // namespace tarnell::convert
