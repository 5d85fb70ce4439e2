// The 'memo' suite's SSE4.1 tier: the bounding rectangle of the bytes of a block
// that differ from a value. Built with -msse4.1: everything stays in this file
// (anonymous namespace), and the one way out is the table at the end.
#include <smmintrin.h>

#include <cstddef>
#include <cstdint>

#include "memory/block_walk.h"
#include "memory/memory_routines.h"

namespace tarnell::memory {
namespace {

using Byte = unsigned char;

__m128i load(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// Bit i set where byte i of the 32 at p equals the value.
uint32_t equalMask32(const Byte* p, __m128i v) {
  const auto lo = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(load(p), v)));
  const auto hi = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(load(p + 16), v)));
  return lo | (hi << 16);
}

bool all32Equal(const Byte* p, __m128i v) {
  return _mm_test_all_ones(_mm_and_si128(_mm_cmpeq_epi8(load(p), v), _mm_cmpeq_epi8(load(p + 16), v))) != 0;
}

// Index of the first byte of p[0..n) that differs from the value, or n. Reads only
// the run: steps of 32 bytes, then one last step flush with the run's end.
std::size_t firstDifferent(const Byte* p, std::size_t n, uint8_t value, __m128i v) {
  if (n < 32) {
    for (std::size_t i = 0; i < n; ++i)
      if (p[i] != value) return i;
    return n;
  }
  std::size_t k = 0;
  for (; k + 32 <= n; k += 32)
    if (!all32Equal(p + k, v)) return k + static_cast<std::size_t>(__builtin_ctz(~equalMask32(p + k, v)));
  if (k == n) return n;
  k = n - 32;  // bytes before the previous step's end are known equal
  const uint32_t differs = ~equalMask32(p + k, v);
  return differs == 0 ? n : k + static_cast<std::size_t>(__builtin_ctz(differs));
}

// Index of the last byte of p[0..n) that differs from the value, or n when none.
std::size_t lastDifferent(const Byte* p, std::size_t n, uint8_t value, __m128i v) {
  if (n < 32) {
    for (std::size_t i = n; i-- > 0;)
      if (p[i] != value) return i;
    return n;
  }
  std::size_t k = n;
  for (; k >= 32; k -= 32)
    if (!all32Equal(p + k - 32, v)) return k - 1 - static_cast<std::size_t>(__builtin_clz(~equalMask32(p + k - 32, v)));
  if (k == 0) return n;
  const uint32_t differs = ~equalMask32(p, v);  // the first 32, flush with the run's start
  return differs == 0 ? n : 31 - static_cast<std::size_t>(__builtin_clz(differs));
}

// Slot 36: the row walk of block_walk.h over this level's run searches.
void byteBounds(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value, int16_t* bounds) {
  if (bounds == nullptr || rows < 1 || width < 1) return;  // nothing to report, nothing to do
  const __m128i v = _mm_set1_epi8(static_cast<char>(value));
  byteBoundsWalk(
      address, rows, width, step, bounds,
      [&](const Byte* p, std::size_t n) { return firstDifferent(p, n, value, v); },
      [&](const Byte* p, std::size_t n) { return lastDifferent(p, n, value, v); });
}

}  // namespace

constinit const MemoryTable g_memorySse41 = {.byteBounds = &byteBounds};

}  // namespace tarnell::memory
