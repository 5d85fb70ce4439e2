// The depth conversions' rows, AVX2: the row kernels that the entries of
// convert_sse2.cpp (strides, the dither split and walk, the streaming choice and
// fence, the fallbacks to the host, all unchanged) run when the processor has AVX2.
//
// What differs from the SSE2 rows: after the same scalar head to the
// destination's 16-byte boundary, one SSE2-sized step brings the destination to
// a 32-byte boundary, the body writes 32 bytes a step (aligned, or streamed where
// the SSE2 row streams), and an SSE2-sized step and the same scalar tail finish
// the row; the three-plane form steps unaligned from column 0 as before. Why the
// bytes are the same: each lane computes the per-sample rule of depth_samples.h
// that the SSE2 lanes compute, operation for operation, and each of those equals
// its scalar form for every input, so which step a sample falls in changes
// nothing. Float to 8-bit keeps the column rule: the columns below the last
// multiple of four are single precision (in whichever step), the rest double.
// rescale16 keeps its rule that only an even row with at least 8 samples past
// its alignment run has vector steps.
//
// Float to 8-bit also drops the limit to 1 from its 32-column steps where the
// packs give the same bytes without it, and redoes a row where they may not (see
// rowFloatTo8). Unlike the SSE2 rows these prefetch nothing: on this processor
// the hardware's prefetch alone runs them faster, in the caches and beyond.
//
// Measured here (tarnell-host bench --tier sse2,avx2, 256x256, median of three):
// float to 8-bit 2.4x, 16-bit to 8-bit 1.7x, re-scaling 1.6x, 8-bit to 16-bit
// 1.4x; planes beyond the caches run near the memory's speed at either level.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "convert/convert_sse2.h"
#include "convert/depth_samples.h"

namespace tarnell::convert {
namespace {

inline __m256i loadu256(const Byte* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

template <RowStore S>
inline void put(Byte* p, __m128i v) {
  if constexpr (S == RowStore::stream)
    _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
  else if constexpr (S == RowStore::aligned)
    _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
template <RowStore S>
inline void put(Byte* p, __m256i v) {
  if constexpr (S == RowStore::stream)
    _mm256_stream_si256(reinterpret_cast<__m256i*>(p), v);
  else if constexpr (S == RowStore::aligned)
    _mm256_store_si256(reinterpret_cast<__m256i*>(p), v);
  else
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

// Whether p lies 16 bytes past a 32-byte boundary (it is 16-byte aligned).
inline bool halfway(const Byte* p) { return (reinterpret_cast<uintptr_t>(p) & 16u) != 0; }

// ------------------------------------------------------------- 16-bit to 8-bit

// words15To8 and words15To8Rounded of depth_samples.h in sixteen lanes.
inline __m256i words15To8(__m256i x, __m256i n) {
  const __m256i full = _mm256_set1_epi16(static_cast<short>(0x8000));
  x = _mm256_sub_epi16(x, _mm256_subs_epu16(x, full));
  const __m256i sum = _mm256_add_epi16(x, _mm256_srai_epi16(_mm256_sub_epi16(n, x), 8));
  return _mm256_srli_epi16(sum, 7);
}
inline __m256i words15To8Rounded(__m256i x) {
  const __m256i scaled = _mm256_mulhi_epu16(x, _mm256_set1_epi16(static_cast<short>(65280)));
  return _mm256_srli_epi16(_mm256_add_epi16(scaled, _mm256_set1_epi16(64)), 7);
}

// 32 samples to 32 bytes; the in-lane pack interleaves the two halves' quarters,
// which the 64-bit permutation puts back in order.
template <bool Dither>
inline __m256i thirtyTwoWords15To8(const Byte* s, const Byte* n) {
  __m256i a, b;
  if constexpr (Dither) {
    const __m256i mask15 = _mm256_set1_epi16(0x7FFF);
    a = words15To8(loadu256(s), _mm256_and_si256(loadu256(n), mask15));
    b = words15To8(loadu256(s + 32), _mm256_and_si256(loadu256(n + 32), mask15));
  } else {
    a = words15To8Rounded(loadu256(s));
    b = words15To8Rounded(loadu256(s + 32));
  }
  return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
}

template <bool Dither, RowStore S>
void row16To8(const Byte* source, Byte* destination, int32_t columns, const Byte* noise) {
  const auto word = [](const Byte* p, int32_t c) { return p + 2 * static_cast<intptr_t>(c); };
  int32_t c = 0;
  if constexpr (S != RowStore::unaligned) {
    int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
    if (head > columns) head = columns;
    for (; c < head; ++c) destination[c] = word15To8(loadWord(word(source, c)), roundingAt<Dither>(noise, c));
    if (halfway(destination + c) && c + 16 <= columns) {
      put<S>(destination + c, sixteenWords15To8<Dither>(word(source, c), noiseAt<Dither>(noise, c)));
      c += 16;
    }
  }
  for (; c + 32 <= columns; c += 32)
    put<S>(destination + c, thirtyTwoWords15To8<Dither>(word(source, c), noiseAt<Dither>(noise, c)));
  if (c + 16 <= columns) {
    put<S>(destination + c, sixteenWords15To8<Dither>(word(source, c), noiseAt<Dither>(noise, c)));
    c += 16;
  }
  for (; c < columns; ++c) destination[c] = word15To8(loadWord(word(source, c)), roundingAt<Dither>(noise, c));
}

template <bool Dither>
void rows16To8(const Byte* source, Byte* destination, int32_t columns, const Byte* noise, RowStore store) {
  switch (store) {
    case RowStore::unaligned:
      return row16To8<Dither, RowStore::unaligned>(source, destination, columns, noise);
    case RowStore::aligned:
      return row16To8<Dither, RowStore::aligned>(source, destination, columns, noise);
    case RowStore::stream:
      return row16To8<Dither, RowStore::stream>(source, destination, columns, noise);
  }
}
void words15ToBytes(const Byte* source, Byte* destination, int32_t columns, const Byte* noise, RowStore store) {
  if (noise != nullptr)
    rows16To8<true>(source, destination, columns, noise, store);
  else
    rows16To8<false>(source, destination, columns, nullptr, store);
}

// ------------------------------------------------------------- 8-bit to 16-bit

// 8 samples (16 destination bytes), 16 (32) and 32 (64): bytePairsTo15 of each
// byte repeated in both halves of its lane.
template <RowStore S>
inline void bytesTo15Eight(const Byte* s, Byte* d) {
  const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
  put<S>(d, bytePairsTo15(_mm_unpacklo_epi8(bytes, bytes)));
}
template <RowStore S>
inline void bytesTo15Sixteen(const Byte* s, Byte* d) {
  const __m128i bytes = loadu(s);
  put<S>(d, bytePairsTo15(_mm_unpacklo_epi8(bytes, bytes)));
  put<S>(d + 16, bytePairsTo15(_mm_unpackhi_epi8(bytes, bytes)));
}
template <RowStore S>
inline void bytesTo15ThirtyTwo(const Byte* s, Byte* d) {
  // Quarters 0 2 1 3, so that the in-lane unpacks give samples 0-15, then 16-31.
  const __m256i bytes = _mm256_permute4x64_epi64(loadu256(s), 0xD8);
  put<S>(d, _mm256_avg_epu16(_mm256_unpacklo_epi8(bytes, bytes), _mm256_setzero_si256()));
  put<S>(d + 32, _mm256_avg_epu16(_mm256_unpackhi_epi8(bytes, bytes), _mm256_setzero_si256()));
}

template <RowStore S>
void row8To16(const Byte* source, Byte* destination, int32_t columns) {
  const auto word = [&](int32_t c) { return destination + 2 * static_cast<intptr_t>(c); };
  int32_t c = 0;
  if ((reinterpret_cast<uintptr_t>(destination) & 1u) == 0) {
    int32_t head = static_cast<int32_t>(((16u - misalignment(destination)) & 15u) / 2);
    if (head > columns) head = columns;
    for (; c < head; ++c) storeWord(word(c), byteTo15(source[c]));
    if (halfway(word(c)) && c + 8 <= columns) {
      bytesTo15Eight<S>(source + c, word(c));
      c += 8;
    }
    for (; c + 32 <= columns; c += 32) bytesTo15ThirtyTwo<S>(source + c, word(c));
    if (c + 16 <= columns) {
      bytesTo15Sixteen<S>(source + c, word(c));
      c += 16;
    }
  } else {
    // An odd address never reaches 16-byte alignment: unaligned stores throughout.
    for (; c + 32 <= columns; c += 32) bytesTo15ThirtyTwo<RowStore::unaligned>(source + c, word(c));
    if (c + 16 <= columns) {
      bytesTo15Sixteen<RowStore::unaligned>(source + c, word(c));
      c += 16;
    }
  }
  for (; c + 2 <= columns; c += 2) {
    storeWord(word(c), byteTo15(source[c]));
    storeWord(word(c) + 2, byteTo15(source[c + 1]));
  }
  if (c < columns) storeWord(word(c), byteTo15(source[c]));
}
void bytesToWords15(const Byte* source, Byte* destination, int32_t columns, RowStore store) {
  if (store == RowStore::stream)
    row8To16<RowStore::stream>(source, destination, columns);
  else
    row8To16<RowStore::aligned>(source, destination, columns);
}

// ----------------------------------------------------------- range re-scaling

inline __m256i words16To15(__m256i x) { return _mm256_avg_epu16(x, _mm256_setzero_si256()); }
inline __m256i words15To16(__m256i x) {
  return _mm256_add_epi16(_mm256_adds_epu16(x, x), _mm256_cmpgt_epi16(x, _mm256_set1_epi16(16384)));
}

template <bool Up>
void rescaleRow(Byte* row, int32_t columns) {
  const auto word = [&](int32_t c) { return row + 2 * static_cast<intptr_t>(c); };
  const auto eight = [&](int32_t c) {
    const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(word(c)));
    put<RowStore::aligned>(word(c), Up ? words15To16(x) : words16To15(x));
  };
  const auto sixteen = [&](int32_t c) {
    const __m256i x = _mm256_load_si256(reinterpret_cast<const __m256i*>(word(c)));
    put<RowStore::aligned>(word(c), Up ? words15To16(x) : words16To15(x));
  };
  int32_t c = 0;
  if (const int32_t head = rescaleHead(row, columns); head >= 0) {
    for (; c < head; ++c) rescaleOne(row, c, Up);
    if (halfway(word(c)) && c + 8 <= columns) {
      eight(c);
      c += 8;
    }
    for (; c + 32 <= columns; c += 32) {  // two steps a turn: the loop's own work is a large share of one
      sixteen(c);
      sixteen(c + 16);
    }
    if (c + 16 <= columns) {
      sixteen(c);
      c += 16;
    }
    if (c + 8 <= columns) {
      eight(c);
      c += 8;
    }
  }
  for (; c < columns; ++c) rescaleOne(row, c, Up);
}
void rescaleWords(Byte* row, int32_t columns, bool up) {
  if (up)
    rescaleRow<true>(row, columns);
  else
    rescaleRow<false>(row, columns);
}

// ------------------------------------------------------------ float to 8-bit

// floatsTo8 of depth_samples.h in eight lanes: min(1, v), times 255, plus 0.5,
// truncated, each rounded as the single-precision form rounds it.
inline __m256i floatsTo8(__m256 v) {
  v = _mm256_min_ps(_mm256_set1_ps(1.0f), v);
  return _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(v, _mm256_set1_ps(255.0f)), _mm256_set1_ps(0.5f)));
}
// The same without the limit. For v up to 1 (and NaN, which the minimum keeps)
// the operations are the same; above 1 the sum is at least 255.5 (every rounding
// is monotonic and 255.5 is a float), so the truncation is at least 255, which
// the packs saturate to 255 as the limit would, unless the sum reaches 2^31 or is
// infinite: then the truncation gives 0x80000000, which the signed pack turns
// into -32768 and the row is done again with the limit (see rowFloatTo8).
inline __m256i floatsTo8Unlimited(__m256 v) {
  return _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(v, _mm256_set1_ps(255.0f)), _mm256_set1_ps(0.5f)));
}
inline __m256 loadFloats256(const Byte* p) { return _mm256_loadu_ps(reinterpret_cast<const float*>(p)); }

// 32 columns to 32 bytes: the in-lane packs leave the four groups' halves in the
// order a0 b0 c0 d0 a1 b1 c1 d1 (four bytes each), put back in order by one
// 32-bit permutation. With Limited false, lowest keeps the least 16-bit value the
// signed packs gave.
template <bool Limited>
inline __m256i thirtyTwoFloatsTo8(const Byte* s, __m256i& lowest) {
  const auto four = [&](int k) {
    return Limited ? floatsTo8(loadFloats256(s + 32 * k)) : floatsTo8Unlimited(loadFloats256(s + 32 * k));
  };
  const __m256i a = _mm256_packs_epi32(four(0), four(1));
  const __m256i b = _mm256_packs_epi32(four(2), four(3));
  if constexpr (!Limited) lowest = _mm256_min_epi16(lowest, _mm256_min_epi16(a, b));
  return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(a, b), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// The 32-column steps skip the limit to 1 (one operation in four): a sum of 2^31
// or more (a float of at least 8421504, or infinity) is the one input the packs
// alone get wrong, and it leaves -32768 in the packed values, as do NaN and
// floats below -128, which the limit does not change. Where the row's steps saw
// that value they are all done again with the limit, over the bytes just
// written, so the bytes left are the limited form's.
template <RowStore S>
void rowFloatTo8(const Byte* source, Byte* destination, int32_t columns) {
  const auto floats = [&](int32_t c) { return source + 4 * static_cast<intptr_t>(c); };
  const int32_t vectorColumns = columns & ~3;
  int32_t c = 0;
  int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
  if (head > vectorColumns) head = vectorColumns;
  for (; c < head; ++c) destination[c] = singleFloatTo8(floats(c));
  if (halfway(destination + c) && c + 16 <= vectorColumns) {
    put<S>(destination + c, sixteenFloatsTo8(floats(c)));
    c += 16;
  }
  const int32_t body = c;
  __m256i lowest = _mm256_setzero_si256();
  for (; c + 64 <= vectorColumns; c += 64) {
    put<S>(destination + c, thirtyTwoFloatsTo8<false>(floats(c), lowest));
    put<S>(destination + c + 32, thirtyTwoFloatsTo8<false>(floats(c + 32), lowest));
  }
  if (c + 32 <= vectorColumns) {
    put<S>(destination + c, thirtyTwoFloatsTo8<false>(floats(c), lowest));
    c += 32;
  }
  const __m256i overflowed = _mm256_cmpeq_epi16(lowest, _mm256_set1_epi16(static_cast<short>(0x8000)));
  if (!_mm256_testz_si256(overflowed, overflowed))
    for (int32_t k = body; k < c; k += 32) put<S>(destination + k, thirtyTwoFloatsTo8<true>(floats(k), lowest));
  if (c + 16 <= vectorColumns) {
    put<S>(destination + c, sixteenFloatsTo8(floats(c)));
    c += 16;
  }
  finishFloatRow(source, destination, c, vectorColumns, columns);
}
void floatsToBytes(const Byte* source, Byte* destination, int32_t columns, RowStore store) {
  if (store == RowStore::stream)
    rowFloatTo8<RowStore::stream>(source, destination, columns);
  else
    rowFloatTo8<RowStore::aligned>(source, destination, columns);
}

}  // namespace

constinit const ConvertRows g_convertRowsAvx2 = {&words15ToBytes, &bytesToWords15, &rescaleWords, &floatsToBytes};

}  // namespace tarnell::convert
