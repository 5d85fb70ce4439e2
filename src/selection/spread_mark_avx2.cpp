// The vector mark spread, AVX2: the baseline body's walk (rows once, top to
// bottom, in column blocks, the row above's original bytes kept on the stack) on
// 32 columns a step, then one 16-column step where 16 or more are left, then
// single columns.
//
// Same bytes: each byte's result depends only on itself and the original bytes
// above and below it, whatever step computes it. Measured at 256x256
// (tarnell-host bench --tier sse2,avx2): 1.7x faster than the baseline body in the
// median of three (1.1x to 1.9x between runs on a loaded machine); 54k
// instructions a call down to 30k. At 4096x4096 both walk memory at about the
// same rate (1.15x).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "selection/selection.h"

namespace tarnell::selection {
namespace {

// Columns a block; its row above lives on the stack. Rows up to 4096 bytes wide
// are one block, walked row after row: narrower blocks of a wide plane put each
// row's piece in a page of its own (at 4096x4096, 1024-column blocks took four
// times as long).
constexpr int32_t kBlock = 4096;

inline uint8_t spread(uint8_t above, uint8_t self, uint8_t below) {
  return static_cast<uint8_t>(self | ((above | below) & 0x80u));
}

void spreadMark32(uint8_t* mask, int32_t rows, int32_t columns, int32_t stride) {
  if (rows < 2 || columns < 1) return;
  alignas(32) uint8_t above[kBlock];
  const __m256i markBits = _mm256_set1_epi8(static_cast<char>(0x80));
  for (int32_t c0 = 0; c0 < columns; c0 += kBlock) {
    const int32_t n = columns - c0 < kBlock ? columns - c0 : kBlock;
    __builtin_memset(above, 0, static_cast<std::size_t>(n));  // nothing above the top row
    uint8_t* row = mask + c0;
    for (int32_t r = 0; r < rows; ++r, row += stride) {
      // The row below, unchanged yet; below the bottom row nothing counts.
      const bool last = r + 1 == rows;
      const uint8_t* below = last ? row : row + stride;
      const __m256i belowMask = last ? _mm256_setzero_si256() : markBits;
      int32_t i = 0;
      for (; i + 32 <= n; i += 32) {
        const __m256i self = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + i));
        const __m256i up = _mm256_load_si256(reinterpret_cast<const __m256i*>(above + i));
        const __m256i down =
            _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(below + i)), belowMask);
        _mm256_store_si256(reinterpret_cast<__m256i*>(above + i), self);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(row + i),
                            _mm256_or_si256(self, _mm256_and_si256(_mm256_or_si256(up, down), markBits)));
      }
      if (i + 16 <= n) {
        const __m128i self = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
        const __m128i up = _mm_load_si128(reinterpret_cast<const __m128i*>(above + i));
        const __m128i down = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(below + i)),
                                           _mm256_castsi256_si128(belowMask));
        _mm_store_si128(reinterpret_cast<__m128i*>(above + i), self);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + i),
                         _mm_or_si128(self, _mm_and_si128(_mm_or_si128(up, down), _mm256_castsi256_si128(markBits))));
        i += 16;
      }
      for (; i < n; ++i) {
        const uint8_t self = row[i];
        const uint8_t down = last ? 0 : below[i];
        row[i] = spread(above[i], self, down);
        above[i] = self;
      }
    }
  }
}

}  // namespace

constinit const SelectionTable g_spreadMarkAvx2 = {.spreadMarkVertical = &spreadMark32};

}  // namespace tarnell::selection
