// The host's selection routines ('sele' slots 26, 33, 35), a byte at a time.
//
// Contracts decided here (see docs/contracts.md, "Selection"):
// - Strides and steps are byte distances and may be negative.
// - 26: rows below 2 or columns below 1 change nothing. Rows do not overlap.
// - 35: both steps apply to both planes; the positions of different lanes never
//   coincide (the host runs it along rows or columns of one plane pair).
// - 33 returns 0 when every byte of the region is 0 (also for an empty region), 2
//   as soon as the rows so far hold a marked (128 and up) and an unmarked byte, 1
//   when every byte is 255, 3 when every byte is marked but not all are 255, and 4
//   when no byte is marked but not all are 0. Every call is logged (first four
//   arguments), so a test sees which calls reached the host.
#include <cstddef>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

uint8_t* at(uint8_t* base, std::ptrdiff_t row, int32_t step, std::ptrdiff_t column) {
  return base + row * step + column;
}

// Downward over the row pairs, then upward, as two passes.
void spreadMarkVertical(uint8_t* mask, int32_t rows, int32_t columns, int32_t stride) {
  if (rows < 2) return;
  for (int32_t r = 0; r <= rows - 2; ++r)
    for (int32_t c = 0; c < columns; ++c)
      if (*at(mask, r + 1, stride, c) >= 128 && *at(mask, r, stride, c) < 128) *at(mask, r, stride, c) += 128;
  for (int32_t r = rows - 2; r >= 0; --r)
    for (int32_t c = 0; c < columns; ++c)
      if (*at(mask, r, stride, c) >= 128 && *at(mask, r + 1, stride, c) < 128) *at(mask, r + 1, stride, c) += 128;
}

void propagateDecaying(uint8_t* strength, uint8_t* value, int32_t laneCount, int32_t length, int32_t laneStep,
                       int32_t alongStep) {
  if (length <= 1 || laneCount <= 0) return;
  for (int32_t i = 0; i < laneCount; ++i) {
    auto pos = [&](int32_t k) { return static_cast<std::ptrdiff_t>(i) * laneStep + static_cast<std::ptrdiff_t>(k) * alongStep; };
    int d = strength[pos(0)];
    uint8_t v = value[pos(0)];
    for (int32_t k = 1; k < length; ++k) {
      const std::ptrdiff_t p = pos(k);
      const int s = strength[p];
      if (d != 1) {
        if (s == d) {
          v = value[p];
          continue;
        }
        if (d > 1) d -= 1;
        if (d == 0) {
          v = value[p];
          d = s;
          strength[p] = static_cast<uint8_t>(s);
          continue;
        }
      }
      if (s > d) {
        v = value[p];
        d = s;
      } else {
        value[p] = v;
        strength[p] = static_cast<uint8_t>(d);
      }
    }
  }
}

int32_t selectionSlot33(const uint8_t* plane, int32_t rows, int32_t count, int32_t step) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({code::sele, 33,
                  {reinterpret_cast<uintptr_t>(plane), static_cast<uintptr_t>(static_cast<intptr_t>(rows)),
                   static_cast<uintptr_t>(static_cast<intptr_t>(count)),
                   static_cast<uintptr_t>(static_cast<intptr_t>(step))}});
  bool marked = false, unmarked = false, nonZero = false, notFull = false;
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < count; ++c) {
      const uint8_t b = plane[static_cast<std::ptrdiff_t>(r) * step + c];
      (b >= 128 ? marked : unmarked) = true;
      nonZero = nonZero || b != 0;
      notFull = notFull || b != 255;
    }
    if (marked && unmarked) return 2;
  }
  if (!nonZero) return 0;
  if (!marked) return 4;
  return notFull ? 3 : 1;
}

const PortableRoutine kRoutines[] = {
    portable(slot::spreadMarkVertical, &spreadMarkVertical),
    portable(slot::propagateDecaying, &propagateDecaying),
    portable(slot::selectionSlot33, &selectionSlot33),
};

}  // namespace

std::span<const PortableRoutine> portableSelection() { return kRoutines; }

}  // namespace tarnell::refhost
