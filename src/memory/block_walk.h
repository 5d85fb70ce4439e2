// The scalar parts that every level's memory bodies share: whether a block is one
// run, where a row starts, the tail of the small copies, the row walks of slot 1
// (a block copied on the level's slot 0) and of slot 36 (the bounding rectangle of
// the bytes that differ from a value, the levels differing only in how they
// search a run). Internal linkage: each level's file, built for
// its own instruction set, keeps its own copy, so a wider level's code never
// stands in for a narrower one's.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/inline.h"
#include "memory/memory_routines.h"

namespace tarnell::memory {
namespace {

// Whether a block of rows x width elements is one run: row step equal to the row's
// width in bytes, and an element count a 32-bit count can hold.
TARNELL_INLINE bool isOneRun(int32_t rows, int32_t width, int32_t step, std::size_t elementBytes) {
  return int64_t{step} == int64_t{width} * static_cast<int64_t>(elementBytes) &&
         int64_t{rows} * int64_t{width} < kOneRunLimit;
}

TARNELL_INLINE const unsigned char* rowAt(const void* base, int32_t row, int32_t step) {
  return static_cast<const unsigned char*>(base) + static_cast<std::ptrdiff_t>(row) * step;
}
TARNELL_INLINE unsigned char* rowAt(void* base, int32_t row, int32_t step) {
  return static_cast<unsigned char*>(base) + static_cast<std::ptrdiff_t>(row) * step;
}

// Copies n < 16 bytes with both loads before the first store (a copy through a
// temporary, whichever way the runs overlap): the tail of every level's
// small-copy ladder.
TARNELL_INLINE void copyUnder16(const unsigned char* s, unsigned char* d, std::size_t n) {
  auto pair = [&]<typename T>(T) {
    T a, b;
    __builtin_memcpy(&a, s, sizeof(T)), __builtin_memcpy(&b, s + n - sizeof(T), sizeof(T));
    __builtin_memcpy(d, &a, sizeof(T)), __builtin_memcpy(d + n - sizeof(T), &b, sizeof(T));
  };
  if (n >= 8)
    pair(uint64_t{});
  else if (n >= 4)
    pair(uint32_t{});
  else if (n >= 2)
    pair(uint16_t{});
  else if (n == 1)
    d[0] = s[0];
}

// Slot 1 on a level's slot 0: one copy when both steps equal the width (and the
// count fits slot 0's), else row by row.
template <typename CopyRun>
TARNELL_INLINE void copyBlockWalk(const void* source, void* destination, int32_t rows, int32_t widthBytes,
                                  int32_t sourceStep, int32_t destinationStep, CopyRun copyRun) {
  if (source == destination || rows < 1 || widthBytes < 1) return;
  if (sourceStep == widthBytes && destinationStep == widthBytes && int64_t{rows} * widthBytes < kOneRunLimit) {
    copyRun(source, destination, rows * widthBytes);
    return;
  }
  for (int32_t r = 0; r < rows; ++r)
    copyRun(rowAt(source, r, sourceStep), rowAt(destination, r, destinationStep), widthBytes);
}

// Slot 36: (top, left, bottom, right) of the bytes that differ from the value,
// bottom and right one past the last such row and column. `first(p, n)` and
// `last(p, n)` give the index of the first and last differing byte of p[0..n), n
// when there is none. The top and bottom rows are the first and last rows holding
// such a byte (found in one run when the rows are tight: the first differing byte
// of the run lies in the top row and is that row's leftmost, the last lies in the
// bottom row and is its rightmost); the rows in between are searched only where
// they could widen the rectangle (left of the leftmost column found so far, right
// of the rightmost).
template <typename First, typename Last>
TARNELL_INLINE void byteBoundsWalk(const void* address, int32_t rows, int32_t width, int32_t step, int16_t* bounds,
                                   First first, Last last) {
  const auto n = static_cast<std::size_t>(width);
  auto row = [&](int32_t r) { return rowAt(address, r, step); };
  const bool tight = isOneRun(rows, width, step, 1);

  int32_t top = rows;
  std::size_t left = n, right = 0;  // right: one past the rightmost differing column
  if (tight) {
    const std::size_t all = n * static_cast<std::size_t>(rows);
    const std::size_t f = first(row(0), all);
    if (f < all) {
      top = static_cast<int32_t>(f / n);
      left = f % n;
      right = last(row(top), n) + 1;
    }
  } else {
    for (top = 0; top < rows; ++top) {
      const std::size_t f = first(row(top), n);
      if (f < n) {
        left = f;
        right = last(row(top), n) + 1;
        break;
      }
    }
  }
  if (top == rows) {
    bounds[0] = static_cast<int16_t>(rows), bounds[1] = static_cast<int16_t>(width);
    bounds[2] = 0, bounds[3] = 0;
    return;
  }
  int32_t bottom = top;
  if (tight) {
    // The rows below the top one, as one run: its last differing byte.
    const std::size_t span = n * static_cast<std::size_t>(rows - 1 - top);
    const std::size_t l = span == 0 ? span : last(row(top + 1), span);
    if (l < span) {
      bottom = top + 1 + static_cast<int32_t>(l / n);
      const std::size_t f = first(row(bottom), n);
      if (f < left) left = f;
      if (l % n + 1 > right) right = l % n + 1;
    }
  } else {
    for (bottom = rows - 1; bottom > top; --bottom) {
      const std::size_t f = first(row(bottom), n);
      if (f < n) {
        if (f < left) left = f;
        const std::size_t l = last(row(bottom), n) + 1;
        if (l > right) right = l;
        break;
      }
    }
  }
  for (int32_t r = top + 1; r < bottom && (left > 0 || right < n); ++r) {
    const unsigned char* p = row(r);
    if (left > 0) {
      const std::size_t f = first(p, left);
      if (f < left) left = f;
    }
    if (right < n) {
      const std::size_t l = last(p + right, n - right);
      if (l < n - right) right += l + 1;
    }
  }
  bounds[0] = static_cast<int16_t>(top), bounds[1] = static_cast<int16_t>(left);
  bounds[2] = static_cast<int16_t>(bottom + 1), bounds[3] = static_cast<int16_t>(right);
}

}  // namespace
}  // namespace tarnell::memory
