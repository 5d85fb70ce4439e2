// The 16-bit box mean's strip, shared by the SSE2 and AVX2 files: each includes
// it, so everything keeps internal linkage and is compiled for that file's level
// (plain C++ here). A strip has at most 8192 source columns, columns + 2r; its
// column sums, one row of 32-bit sums, live on the stack.
#pragma once

#include <cstddef>
#include <cstdint>

#include "filter/filter.h"
#include "host/invariant_divisor.h"

namespace tarnell::filter {
namespace {

// sums[i] += entering[i] - leaving[i] for i from `from` to n - 1, leaving may be null.
inline void addRowTail(uint32_t* sums, const uint16_t* entering, const uint16_t* leaving, int32_t from, int32_t n) {
  for (int32_t i = from; i < n; ++i) sums[i] += entering[i] - (leaving != nullptr ? uint32_t{leaving[i]} : 0u);
}

// Outputs x to columns - 1 of a row, box being the box sum of output x - 1 plus the
// rounding offset.
inline void finishRow(const uint32_t* sums, int32_t span, uint16_t* out, int32_t x, int32_t columns, uint32_t box,
                      const BoxMeanDivisor& divisor) {
  for (; x < columns; ++x) {
    box += sums[x + span] - sums[x];
    out[x] = static_cast<uint16_t>(exactQuotient(divisor, box));
  }
}

// One strip, steps in samples. AddRow(sums, entering, leaving, n) moves the column
// sums down a row (leaving may be null); BoxRow(sums, span, out, columns, box,
// divisor) writes a row from the box sum left of output 0 plus the offset. sums[0]
// is a zero column left of the strip, so that every output, the first included, is
// the previous box sum plus entering minus leaving column: box(x) = box(x - 1) +
// sums[x + span] - sums[x].
template <auto AddRow, auto BoxRow>
void boxStrip(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, intptr_t sourceStep,
              intptr_t destinationStep, int32_t radius, const BoxMeanDivisor& divisor) {
  const int32_t width = columns + 2 * radius;
  alignas(32) uint32_t sums[kBoxMeanStripColumns + 8];
  for (int32_t i = 0; i <= width; ++i) sums[i] = 0;
  uint32_t* columnSums = sums + 1;
  const uint16_t* left = source - radius;
  for (int32_t y = -radius; y <= radius; ++y) AddRow(columnSums, left + y * sourceStep, nullptr, width);
  for (int32_t r = 0; r < rows; ++r) {
    if (r > 0) AddRow(columnSums, left + (r + radius) * sourceStep, left + (r - radius - 1) * sourceStep, width);
    uint32_t box = divisor.half;  // the box sum left of output 0 (its first 2r columns), plus the offset
    for (int32_t i = 0; i < 2 * radius; ++i) box += columnSums[i];
    BoxRow(sums, 2 * radius + 1, destination + r * destinationStep, columns, box, divisor);
  }
}

}  // namespace
}  // namespace tarnell::filter
