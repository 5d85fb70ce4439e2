// The mark spread for processors without SSE2: the two passes over row pairs,
// two columns (one 16-bit word) a step.
#include <cstring>

#include "selection/selection.h"

namespace tarnell::selection {

namespace {

// Marks the bytes of `to` whose byte in `from` is marked; `to` may be above or
// below `from`.
void markFrom(const uint8_t* from, uint8_t* to, int32_t columns) {
  int32_t c = 0;
  for (; c + 2 <= columns; c += 2) {
    uint16_t f, t;
    std::memcpy(&f, from + c, 2);
    std::memcpy(&t, to + c, 2);
    t = static_cast<uint16_t>(t | (f & 0x8080u));
    std::memcpy(to + c, &t, 2);
  }
  if (c < columns) to[c] = static_cast<uint8_t>(to[c] | (from[c] & 0x80u));
}

}  // namespace

void spreadMarkVerticalScalar(uint8_t* mask, int32_t rows, int32_t columns, int32_t stride) {
  if (rows < 2 || columns < 1) return;
  auto row = [&](int32_t r) { return mask + static_cast<std::ptrdiff_t>(r) * stride; };
  // Downward over the pairs: each row takes the mark of the row below, read
  // before that row itself changes, so a mark moves up by one row.
  for (int32_t r = 0; r + 1 < rows; ++r) markFrom(row(r + 1), row(r), columns);
  // Upward over the pairs: each row takes the mark of the row above, so a mark
  // moves down by one row.
  for (int32_t r = rows - 2; r >= 0; --r) markFrom(row(r), row(r + 1), columns);
}

}  // namespace tarnell::selection
