// The 'memo' suite's AVX tier: fills of 8- and 32-bit values and the 32-bit
// uniformity test, thirty-two bytes per step. Built with -mavx: everything stays
// in this file (anonymous namespace), and the one way out is the table at the end.
//
// AVX has no 256-bit integer compare, so the uniformity test XORs as floats (a bit
// operation, exact for any pattern) and tests the result with VPTEST.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

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

// Fills n bytes (a whole number of elements of elementBytes, which divides 8) with
// a pattern whose first byte is the first byte of an element. Stores that start a
// whole number of elements in use the pattern as it is; the aligned body may start
// mid-element and uses it rotated by that phase.
void fillPattern(Byte* d, std::size_t n, uint64_t pattern, std::size_t elementBytes) {
  if (n < 16) {
    if (n >= 8) {
      __builtin_memcpy(d, &pattern, 8), __builtin_memcpy(d + n - 8, &pattern, 8);
    } else if (n >= 4) {
      __builtin_memcpy(d, &pattern, 4), __builtin_memcpy(d + n - 4, &pattern, 4);
    } else {
      for (std::size_t i = 0; i < n; ++i) d[i] = static_cast<Byte>(pattern >> (8 * (i % elementBytes)));
    }
    return;
  }
  // Broadcast in registers (AVX has no 64-bit broadcast from a register, and one
  // through memory costs a store-to-load round trip on every call).
  const __m128i x = _mm_set1_epi64x(static_cast<long long>(pattern));
  if (n <= 32) {
    store16(d, x), store16(d + n - 16, x);
    return;
  }
  // Up to 256 bytes: stores from both ends, all a whole number of elements in.
  const __m256i v = _mm256_insertf128_si256(_mm256_castsi128_si256(x), x, 1);
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
  std::size_t k = (32 - (reinterpret_cast<uintptr_t>(d) & 31)) & 31;
  const __m128i y =
      _mm_set1_epi64x(static_cast<long long>(rotateRight(pattern, static_cast<unsigned>(8 * (k % elementBytes)))));
  const __m256i body = _mm256_insertf128_si256(_mm256_castsi128_si256(y), y, 1);
  store32(d, v);
  if (n >= kNonTemporalBytes) {
    for (; k + 128 <= n; k += 128)
      stream32(d + k, body), stream32(d + k + 32, body), stream32(d + k + 64, body), stream32(d + k + 96, body);
    for (; k + 32 <= n; k += 32) stream32(d + k, body);
    _mm_sfence();
  } else {
    for (; k + 128 <= n; k += 128)
      store32Aligned(d + k, body), store32Aligned(d + k + 32, body), store32Aligned(d + k + 64, body),
          store32Aligned(d + k + 96, body);
    for (; k + 32 <= n; k += 32) store32Aligned(d + k, body);
  }
  store32(d + n - 32, v);
}

bool isOneRun(int32_t rows, int32_t width, int32_t step, std::size_t elementBytes) {
  return int64_t{step} == int64_t{width} * static_cast<int64_t>(elementBytes) &&
         int64_t{rows} * int64_t{width} < kOneRunLimit;
}

void fillBlockPattern(void* destination, int32_t rows, int32_t width, int32_t step, uint64_t pattern,
                      std::size_t elementBytes) {
  if (rows < 1 || width < 1) return;
  auto* d = static_cast<Byte*>(destination);
  const std::size_t rowBytes = static_cast<std::size_t>(width) * elementBytes;
  if (isOneRun(rows, width, step, elementBytes)) {
    fillPattern(d, rowBytes * static_cast<std::size_t>(rows), pattern, elementBytes);
    return;
  }
  for (int32_t r = 0; r < rows; ++r) fillPattern(d + static_cast<std::ptrdiff_t>(r) * step, rowBytes, pattern, elementBytes);
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
void fillBytes(void* destination, int32_t count, uint8_t value) {
  if (count < 1) return;
  fillPattern(static_cast<Byte*>(destination), static_cast<std::size_t>(count), uint64_t{value} * 0x0101010101010101ULL, 1);
}

// Slot 4.
void fillBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint8_t value) {
  fillBlockPattern(destination, rows, width, step, uint64_t{value} * 0x0101010101010101ULL, 1);
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
void fillDwords(void* destination, int32_t count, uint32_t value) {
  if (count < 1) return;
  fillPattern(static_cast<Byte*>(destination), 4 * static_cast<std::size_t>(count), uint64_t{value} * 0x100000001ULL, 4);
}

// Slot 137.
void fillDwordBlock(void* destination, int32_t rows, int32_t width, int32_t step, uint32_t value) {
  fillBlockPattern(destination, rows, width, step, uint64_t{value} * 0x100000001ULL, 4);
}

}  // namespace

constinit const AvxRoutines g_memoryAvx = {&fillBytes, &fillBlock, &blockDwordsUniform, &fillDwords, &fillDwordBlock};

}  // namespace tarnell::memory
