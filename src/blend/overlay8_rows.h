// The overlay and screen routines' shared parts: the per-sample rules as look-ups
// in the start-up tables, and the row walk with its staging. Included by the
// plain (blend8_tables.cpp), SSE2 and AVX2 files: everything keeps internal
// linkage and is compiled for that file's level (plain C++ here).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "host/inline.h"
#include "host/startup_tables.h"

namespace tarnell::blend8 {
namespace {

// Rows of up to this many samples are staged: their operand row is read as it
// stood before the destination row is rewritten.
constexpr int32_t kStagedColumns = 4096;

// ------------------------------------------------------------ per sample

TARNELL_INLINE int productOf(int a, int b) { return Mul255Table[a][b]; }
TARNELL_INLINE int screenOf(int a, int b) { return Screen255Table[a][b]; }
// d + L(w, target - d).
TARNELL_INLINE uint8_t mixTo(int d, int target, int w) {
  return static_cast<uint8_t>(d + SignedMul255Table[w][target - d + 255]);
}

// The two overlay forms. O, with the destination as base, maps the upper half of
// the base to 1..255 before screening; H, with the other operand as base, maps it
// to 0..254. The asymmetry is the host's and is kept.
// The half of the base picks the table by index rather than by a branch: with
// image data the branch would be mispredicted about every other sample.
using TableRow = uint8_t[256];
constexpr const TableRow* kHalfTables[2] = {Mul255Table, Screen255Table};
TARNELL_INLINE int overlayD(int base, int x) {
  const int upper = base >> 7;  // base < 128 ? M(2b, x) : S(2b - 255, x)
  return kHalfTables[upper][2 * base - 255 * upper][x];
}
TARNELL_INLINE int overlayH(int base, int x) {
  const int upper = base >> 7;  // base < 128 ? M(2b, x) : S(2b - 256, x)
  return kHalfTables[upper][(2 * base) & 255][x];
}

// ------------------------------------------------------------ row walk

// Whether the n-byte runs at a and b share a byte.
TARNELL_INLINE bool overlaps(const uint8_t* a, const uint8_t* b, intptr_t n) {
  const auto x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
  return (x < y ? y - x : x - y) < static_cast<uintptr_t>(n);
}

// The vector bodies read a plane they do not stage a block of samples at a time,
// before writing that block; the plain routine reads it a sample at a time, after
// writing every earlier sample. The two read the same bytes unless the plane's
// row starts behind the destination's by less than a block: then some samples
// the plain routine reads were rewritten by it and not yet by the block. Such a
// row runs sample by sample. 64 covers every block width used.
constexpr uintptr_t kWidestBlock = 64;
TARNELL_INLINE bool trailsClosely(const uint8_t* read, const uint8_t* written) {
  const uintptr_t gap = reinterpret_cast<uintptr_t>(written) - reinterpret_cast<uintptr_t>(read);
  return gap - 1 < kWidestBlock - 1;  // 0 < gap < kWidestBlock
}

// Every row, the order of a plain routine's: `staged` is the operand row the
// routine stages (the source, or the mask where there is none), `other` a second
// read-only plane (the mask of the three-plane members) or null.
//
// A staged row is read as it stood before its destination row is rewritten: it
// is copied to the stack buffer when it shares a byte with the destination row,
// and otherwise read in place, which gives the same bytes. Longer rows are
// rewritten in place. inOrder(d, x, o, n) rewrites n samples one after another;
// vector(d, x, o, n) a block at a time, for rows where that reads the same bytes.
template <bool HasOther, class InOrder, class Vector>
TARNELL_INLINE void eachStagedRow(const uint8_t* staged, int32_t stagedStride, uint8_t* destination,
                                  int32_t destinationStride, const uint8_t* other, int32_t otherStride, int32_t rows,
                                  int32_t columns, InOrder inOrder, Vector vector) {
  if (rows < 1 || columns < 1) return;
  alignas(32) uint8_t buffer[kStagedColumns];
  const bool staging = columns <= kStagedColumns;
  for (; rows-- > 0; staged += stagedStride, destination += destinationStride) {
    const uint8_t* x = staged;
    if (staging && overlaps(x, destination, columns)) {
      std::memcpy(buffer, x, static_cast<std::size_t>(columns));
      x = buffer;
    }
    if ((!staging && trailsClosely(x, destination)) || (HasOther && trailsClosely(other, destination)))
      inOrder(destination, x, other, intptr_t{columns});
    else
      vector(destination, x, other, intptr_t{columns});
    if (HasOther) other += otherStride;
  }
}

// Samples begin .. end - 1 one after another: d[i] = rule(d[i], x[i], o[i]).
template <bool HasOther, class Rule>
TARNELL_INLINE void samplesInOrder(uint8_t* d, const uint8_t* x, const uint8_t* o, intptr_t begin, intptr_t end,
                                   Rule rule) {
  for (intptr_t i = begin; i < end; ++i) d[i] = static_cast<uint8_t>(rule(d[i], x[i], HasOther ? o[i] : 0));
}

}  // namespace
}  // namespace tarnell::blend8
