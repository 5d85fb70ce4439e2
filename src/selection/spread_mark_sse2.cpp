// The vector mark spread. A byte ends up marked when it, or the byte above or
// below it, was marked before the call, which is what the two passes over the
// row pairs amount to. Rows are walked once, top to bottom, in column blocks: the
// block's original bytes of the row above are kept on the stack, since that row
// has already been rewritten when the next one is done.
#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

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

}  // namespace

void spreadMarkVertical(uint8_t* mask, int32_t rows, int32_t columns, int32_t stride) {
  if (rows < 2 || columns < 1) return;
  alignas(16) uint8_t above[kBlock];
  const __m128i markBits = _mm_set1_epi8(static_cast<char>(0x80));
  for (int32_t c0 = 0; c0 < columns; c0 += kBlock) {
    const int32_t n = std::min(kBlock, columns - c0);
    const int32_t vectorEnd = n & ~15;
    std::memset(above, 0, static_cast<std::size_t>(n));  // nothing above the top row
    uint8_t* row = mask + c0;
    for (int32_t r = 0; r < rows; ++r, row += stride) {
      // The row below, unchanged yet; below the bottom row nothing counts.
      const uint8_t* below = r + 1 < rows ? row + stride : row;
      const __m128i belowMask = r + 1 < rows ? markBits : _mm_setzero_si128();
      int32_t i = 0;
      for (; i < vectorEnd; i += 16) {
        const __m128i self = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
        const __m128i up = _mm_load_si128(reinterpret_cast<const __m128i*>(above + i));
        const __m128i down = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(below + i)), belowMask);
        _mm_store_si128(reinterpret_cast<__m128i*>(above + i), self);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + i),
                         _mm_or_si128(self, _mm_and_si128(_mm_or_si128(up, down), markBits)));
      }
      for (; i < n; ++i) {
        const uint8_t self = row[i];
        const uint8_t down = r + 1 < rows ? below[i] : 0;
        row[i] = spread(above[i], self, down);
        above[i] = self;
      }
    }
  }
}

constinit const SelectionTable g_spreadMarkSse2 = {.spreadMarkVertical = &spreadMarkVertical};

}  // namespace tarnell::selection
