// The 'memo' suite's AVX bodies: fills of 8-, 16- and 32-bit values and the 32-bit
// uniformity test, thirty-two bytes per step. The 16-bit fills are the SSE2 tier's
// slots (65, 66) run with the AVX tier's stores: a fill is bound by its stores, and
// thirty-two bytes per store fill a cache-resident plane twice as fast as sixteen
// (the same bytes: every store holds the value pattern at its element phase). Built
// with -mavx: everything stays in this file (anonymous namespace), and the one way
// out is the table at the end.
//
// AVX has no 256-bit integer compare, so the uniformity test XORs as floats (a bit
// operation, exact for any pattern) and tests the result with VPTEST.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "host/inline.h"
#include "memory/block_walk.h"
#include "memory/memory_routines.h"

namespace tarnell::memory {
namespace {

using Byte = unsigned char;

void store16(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
void store32(Byte* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
void store32Aligned(Byte* p, __m256i v) { _mm256_store_si256(reinterpret_cast<__m256i*>(p), v); }
void stream32(Byte* p, __m256i v) { _mm256_stream_si256(reinterpret_cast<__m256i*>(p), v); }
__m256i load32(const Byte* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

uint64_t rotateRight(uint64_t x, unsigned bits) { return bits == 0 ? x : (x >> bits) | (x << (64 - bits)); }

// The value in every element of a 16-byte vector.
__m128i broadcast(uint8_t value) { return _mm_set1_epi8(static_cast<char>(value)); }
__m128i broadcast(uint16_t value) { return _mm_set1_epi16(static_cast<short>(value)); }
__m128i broadcast(uint32_t value) { return _mm_set1_epi32(static_cast<int>(value)); }
__m256i widen(__m128i x) { return _mm256_insertf128_si256(_mm256_castsi128_si256(x), x, 1); }

// The value repeated over 64 bits, for scalar stores and the rotated body pattern.
uint64_t repeated(uint8_t value) { return uint64_t{value} * 0x0101010101010101ULL; }
uint64_t repeated(uint16_t value) { return uint64_t{value} * 0x0001000100010001ULL; }
uint64_t repeated(uint32_t value) { return uint64_t{value} * 0x100000001ULL; }

// Fills n <= 32 bytes (a whole number of elements, at least one) with the value:
// two stores from the two ends, each a whole number of elements in.
template <typename T>
TARNELL_INLINE void fillShort(Byte* d, std::size_t n, T value) {
  if (n >= 16) {
    const __m128i x = broadcast(value);
    store16(d, x), store16(d + n - 16, x);
  } else if (n >= 8) {
    const uint64_t pattern = repeated(value);
    __builtin_memcpy(d, &pattern, 8), __builtin_memcpy(d + n - 8, &pattern, 8);
  } else if (n >= 4) {
    const auto pattern = static_cast<uint32_t>(repeated(value));
    __builtin_memcpy(d, &pattern, 4), __builtin_memcpy(d + n - 4, &pattern, 4);
  } else if (n >= 2) {
    // 2 or 3 bytes: one 16-bit value, or three bytes of a byte fill.
    const auto pattern = static_cast<uint16_t>(repeated(value));
    __builtin_memcpy(d, &pattern, 2), __builtin_memcpy(d + n - 2, &pattern, 2);
  } else {
    d[0] = static_cast<Byte>(value);
  }
}

// Fills n bytes (a whole number of elements) with the value. Stores that start a
// whole number of elements in use the broadcast value as it is; the aligned body of
// a long run may start mid-element and uses the pattern rotated by that phase. The
// broadcast stays in registers (AVX has no broadcast from a general register, and
// one through memory costs a store-to-load round trip per call). With `stream` the
// whole cache lines of the aligned body bypass the caches; the caller fences once
// when its last run is done. A line is written either by cached stores or by
// streaming ones, never both (a line first stored to in the cache and then
// streamed to costs a round trip to memory: rows of a padded block filled so ran
// at a third of the speed), so the ends of the run, up to the first whole line at
// least one store past its start and from the last one that ends a store before
// its end, are cached stores.
template <typename T>
void fillRun(Byte* d, std::size_t n, T value, bool stream) {
  if (n <= 32) {
    if (n != 0) fillShort(d, n, value);
    return;
  }
  // Up to 256 bytes: stores from both ends, all a whole number of elements in.
  const __m256i v = widen(broadcast(value));
  if (n <= 64) {
    store32(d, v), store32(d + n - 32, v);
    return;
  }
  if (n <= 128) {
    store32(d, v), store32(d + 32, v), store32(d + n - 64, v), store32(d + n - 32, v);
    return;
  }
  if (n <= 256) {
    store32(d, v), store32(d + 32, v), store32(d + 64, v), store32(d + 96, v);
    store32(d + n - 128, v), store32(d + n - 96, v), store32(d + n - 64, v), store32(d + n - 32, v);
    return;
  }
  const auto address = reinterpret_cast<uintptr_t>(d);
  std::size_t k = (32 - (address & 31)) & 31;
  const __m256i body = widen(
      _mm_set1_epi64x(static_cast<long long>(rotateRight(repeated(value), static_cast<unsigned>(8 * (k % sizeof(T)))))));
  store32(d, v);
  if (stream) {
    // n > 256, so the streamed lines [firstLine, lastLine) are not empty.
    const std::size_t firstLine = ((address + 32 + 63) & ~uintptr_t{63}) - address;
    const std::size_t lastLine = ((address + n - 32) & ~uintptr_t{63}) - address;
    for (; k < firstLine; k += 32) store32Aligned(d + k, body);
    for (; k + 128 <= lastLine; k += 128)
      stream32(d + k, body), stream32(d + k + 32, body), stream32(d + k + 64, body), stream32(d + k + 96, body);
    for (; k < lastLine; k += 32) stream32(d + k, body);
  }
  for (; k + 128 <= n; k += 128)
    store32Aligned(d + k, body), store32Aligned(d + k + 32, body), store32Aligned(d + k + 64, body),
        store32Aligned(d + k + 96, body);
  for (; k + 32 <= n; k += 32) store32Aligned(d + k, body);
  store32(d + n - 32, v);
}

// One run of count elements: below 16 bytes plain stores, otherwise the wide fill.
template <typename T>
void fillElements(void* destination, int32_t count, T value) {
  auto* d = static_cast<Byte*>(destination);
  // One unsigned compare admits 1..32 bytes and turns away counts below 1 as well.
  if (static_cast<uint32_t>(count) - 1u < 32u / sizeof(T)) {
    fillShort(d, sizeof(T) * static_cast<std::size_t>(count), value);
    return;
  }
  if (count < 1) return;
  const std::size_t n = sizeof(T) * static_cast<std::size_t>(count);
  const bool stream = n >= kNonTemporalFillBytes;
  fillRun(d, n, value, stream);
  if (stream) _mm_sfence();
}

// A block as one run or row by row. Whether the stores bypass the caches depends
// on the bytes of the whole block, not of one row, so a padded block is written
// the way the same block with tight rows is; the fence comes once, at the end.
template <typename T>
void fillBlockRuns(void* destination, int32_t rows, int32_t width, int32_t step, T value) {
  if (rows < 1 || width < 1) return;
  auto* d = static_cast<Byte*>(destination);
  const std::size_t rowBytes = static_cast<std::size_t>(width) * sizeof(T);
  const std::size_t total = rowBytes * static_cast<std::size_t>(rows);
  const bool stream = total >= kNonTemporalFillBytes;
  if (isOneRun(rows, width, step, sizeof(T))) {
    fillRun(d, total, value, stream);
  } else {
    for (int32_t r = 0; r < rows; ++r) fillRun(d + static_cast<std::ptrdiff_t>(r) * step, rowBytes, value, stream);
  }
  if (stream) _mm_sfence();
}

bool allZero(__m256 x) { return _mm256_testz_si256(_mm256_castps_si256(x), _mm256_castps_si256(x)) != 0; }
__m256 differences(const Byte* p, __m256 v) { return _mm256_xor_ps(_mm256_castsi256_ps(load32(p)), v); }

// True when the n bytes at p (whole 32-bit values) all equal the value. Loads start
// a whole number of values in (the last one flush with the end).
bool dwordsMatch(const Byte* p, std::size_t n, uint32_t value) {
  if (n < 32) {
    for (std::size_t i = 0; i < n; i += 4) {
      uint32_t x;
      __builtin_memcpy(&x, p + i, 4);
      if (x != value) return false;
    }
    return true;
  }
  const __m128i half = _mm_set1_epi32(static_cast<int>(value));
  const __m256 v = _mm256_castsi256_ps(_mm256_insertf128_si256(_mm256_castsi128_si256(half), half, 1));
  std::size_t k = 0;
  for (; k + 128 <= n; k += 128) {
    const __m256 x = _mm256_or_ps(_mm256_or_ps(differences(p + k, v), differences(p + k + 32, v)),
                                  _mm256_or_ps(differences(p + k + 64, v), differences(p + k + 96, v)));
    if (!allZero(x)) return false;
  }
  for (; k + 32 <= n; k += 32)
    if (!allZero(differences(p + k, v))) return false;
  return k == n || allZero(differences(p + n - 32, v));
}

// Slot 3: below 16 bytes plain stores, otherwise the wide fill.
void fillBytes(void* destination, int32_t count, uint8_t value) { fillElements(destination, count, value); }

// Slot 4.
void fillBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint8_t value) {
  fillBlockRuns(destination, rows, width, step, value);
}

// Slot 65: the SSE2 tier's slot, thirty-two bytes per step where AVX is present.
void fillWords(void* destination, int32_t count, uint16_t value) { fillElements(destination, count, value); }

// Slot 66.
void fillWordBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint16_t value) {
  fillBlockRuns(destination, rows, width, step, value);
}

// Slot 135: every 32-bit value of the block equals the first. An empty block has
// no second value, so the answer is true; it is written when a result byte is given.
uint8_t blockDwordsUniform(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t* result) {
  uint8_t answer = 1;
  if (rows >= 1 && width >= 1) {
    const auto* p = static_cast<const Byte*>(address);
    uint32_t first;
    __builtin_memcpy(&first, p, 4);
    const std::size_t rowBytes = 4 * static_cast<std::size_t>(width);
    if (isOneRun(rows, width, step, 4)) {
      answer = dwordsMatch(p, rowBytes * static_cast<std::size_t>(rows), first) ? 1 : 0;
    } else {
      for (int32_t r = 0; r < rows && answer != 0; ++r)
        answer = dwordsMatch(p + static_cast<std::ptrdiff_t>(r) * step, rowBytes, first) ? 1 : 0;
    }
  }
  if (result != nullptr) *result = answer;
  return answer;
}

// Slot 136: below 4 values plain stores, otherwise the wide fill.
void fillDwords(void* destination, int32_t count, uint32_t value) { fillElements(destination, count, value); }

// Slot 137.
void fillDwordBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint32_t value) {
  fillBlockRuns(destination, rows, width, step, value);
}

}  // namespace

constinit const MemoryTable g_memoryAvx = {.fillBytes = &fillBytes,
                                           .fillBlock = &fillBlock,
                                           .fillWords = &fillWords,
                                           .fillWordBlock = &fillWordBlock,
                                           .blockDwordsUniform = &blockDwordsUniform,
                                           .fillDwords = &fillDwords,
                                           .fillDwordBlock = &fillDwordBlock};

}  // namespace tarnell::memory
