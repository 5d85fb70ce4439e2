// The fill-array operation, plain and checking builds. Each row's crossings are
// sorted in place, turned into span edges by the even-odd or non-zero rule,
// cleared of coincident pairs, merged with the row's spans through the
// operation's truth table into the scratch row after the rows, and copied back
// through the live 'memo' slot 0. The operation clamps every count to the row's
// capacity before using it, so a hostile array is processed within its own words
// and its working space; the validation counts what the count names, within the
// row. Nothing allocates; the only state read is the two debug values.
#include "pathfill/fill_array.h"

#include <emmintrin.h>

#include <algorithm>

#include "host/module_state.h"

namespace tarnell::pathfill {

uint8_t pathDebugEnabled = 0;
uint32_t pathDebugGuard = 0;

const FillArrayMessage kFillArrayMessages[kFillArrayMessageCount] = {
    {"CApplyFillArrayOperation Unexpected operation code. -Dovik", 671, 1, false},
    {"ApplyFillArrayOperation rows <= 0", 680, 1, false},
    {"WARNING - illegal value for row count", 695, 0, true},
    {"ApplyFillArrayOperation Odd number of entries. (0)", 712, 1, false},
    {"Pointer arithmetic uint32 overflow", 768, 1, false},
    {"Pointer arithmetic uint32 overflow", 797, 1, false},
    {"CApplyFillArrayOperation Odd number of entries. (1)", 799, 1, false},
    {"WARNING - illegal value for new row count", 801, 0, true},
    {"CApplyFillArrayOperation Logic is confused about state. -Dovik", 811, 1, false},
    {"CApplyFillArrayOperation Odd number of entries. (2)", 821, 1, false},
    {"WARNING - illegal value for old row count", 823, 0, true},
    {"CApplyFillArrayOperation Entries don't match.", 850, 1, false},
    {"CApplyFillArrayOperation Too many entries.", 863, 1, false},
    {"CApplyFillArrayOperation Too many entries. (2)", 884, 1, false},
    {"CApplyFillArrayOperation Too many entries. (3)", 905, 1, false},
    {"Pointer arithmetic uint32 overflow", 918, 1, false},
    {"CApplyFillArrayOperation Odd number of entries. (3)", 920, 1, false},
    {"WARNING - illegal result value for row count", 922, 0, true},
};

namespace {

using namespace fillarray;

void report(FillArrayMessageId id) {
  const FillArrayMessage& m = kFillArrayMessages[id];
  liveRoutine<slot::report>()(m.text, kPathSourceName, m.line, m.severity);
}

// Bit s: whether the combined region is filled in state s = 2 x (inside the row's
// spans) + (inside the new ones). Union, old minus new, intersection, exclusive
// or, and for any other code the row's spans as they are.
constexpr uint32_t kOperationMasks[5] = {0b1110, 0b0100, 0b1000, 0b0110, 0b1100};

// The header's geometry. rows is bottom - top in 32-bit arithmetic, as the host
// computes it; fewer than 1 row means no row blocks.
struct Geometry {
  int64_t rows;
  int64_t stride;
  int64_t capacity;  // entries a row holds: stride - 2
  int64_t end;       // word after the last row block
};
Geometry geometryOf(const uint32_t* a) {
  Geometry g;
  g.rows = static_cast<int32_t>(a[kBottom] - a[kTop]);
  g.stride = static_cast<int32_t>(a[kRowStride]);
  g.capacity = g.stride - 2;
  g.end = kFirstRow + (g.rows > 0 ? g.rows * g.stride : 0);
  return g;
}

int64_t evenFloor(int64_t nonNegative) { return nonNegative & ~int64_t{1}; }

// Sorting. Rows hold tens of crossings in no useful order, where a comparison
// sort's unpredictable branches cost more than the comparisons: a few are sorted
// by insertion, up to 256 by byte-wise radix passes (only over the bytes some
// crossing uses) between the row and a stack buffer, longer rows by the library.
constexpr int64_t kRadixLimit = 256;

void insertionSort(uint32_t* p, int64_t n) {
  for (int64_t i = 1; i < n; ++i) {
    const uint32_t v = p[i];
    int64_t j = i;
    for (; j > 0 && p[j - 1] > v; --j) p[j] = p[j - 1];
    p[j] = v;
  }
}

void radixSort(uint32_t* p, int64_t n) {
  uint32_t used = 0;
  for (int64_t i = 0; i < n; ++i) used |= p[i];
  uint32_t buffer[kRadixLimit];
  uint32_t* from = p;
  uint32_t* to = buffer;
  for (unsigned shift = 0; shift < 32 && (used >> shift) != 0; shift += 8) {
    uint32_t start[256] = {};
    for (int64_t i = 0; i < n; ++i) ++start[(from[i] >> shift) & 0xFF];
    uint32_t sum = 0;
    for (uint32_t& s : start) {
      const uint32_t count = s;
      s = sum;
      sum += count;
    }
    for (int64_t i = 0; i < n; ++i) to[start[(from[i] >> shift) & 0xFF]++] = from[i];
    std::swap(from, to);
  }
  if (from != p) std::copy(from, from + n, p);
}

void sortCrossings(uint32_t* p, int64_t n) {
  if (n <= 16)
    insertionSort(p, n);
  else if (n <= kRadixLimit)
    radixSort(p, n);
  else
    std::sort(p, p + n);
}

// Even-odd rule: every crossing becomes its x, four at a time.
void shiftOutDirections(uint32_t* p, int64_t n) {
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    auto* v = reinterpret_cast<__m128i*>(p + i);
    _mm_storeu_si128(v, _mm_srli_epi32(_mm_loadu_si128(v), 1));
  }
  for (; i < n; ++i) p[i] >>= 1;
}

// Non-zero rule: an edge wherever the winding number becomes or stops being 0.
// Crossings go in pairs; an odd last one is an edge only while outside.
int64_t windNonZero(uint32_t* p, int64_t n) {
  int64_t winding = 0, m = 0;
  bool inside = false;
  const int64_t paired = n & ~int64_t{1};
  for (int64_t i = 0; i < paired; ++i) {
    winding += (p[i] & 1) != 0 ? 1 : -1;
    if ((winding != 0) != inside) {
      p[m++] = p[i] >> 1;
      inside = !inside;
    }
  }
  if ((n & 1) != 0 && !inside) p[m++] = p[n - 1] >> 1;
  return m;
}

// A run of equal edges opens and closes at one x: an even run leaves nothing, an
// odd one a single edge.
int64_t cancelEqualRuns(uint32_t* p, int64_t m) {
  int64_t kept = 0;
  for (int64_t i = 0; i < m;) {
    const uint32_t v = p[i];
    int64_t j = i + 1;
    while (j < m && p[j] == v) ++j;
    if (((j - i) & 1) != 0) p[kept++] = v;
    i = j;
  }
  return kept;
}

// Merges the new edges with the row's spans; an edge is written where the
// combined region changes. A full scratch row ends the merge (reported by the
// checking build, per loop). Returns the entries written.
int64_t mergeSpans(const uint32_t* edges, int64_t m, const uint32_t* spans, int64_t spanCount, uint32_t mask,
                   uint32_t* out, int64_t capacity, bool debug) {
  unsigned state = 0;
  uint32_t filled = mask & 1;
  int64_t k = 0, ia = 0, ib = 0;
  // False once the scratch row is full.
  auto take = [&](uint32_t value, FillArrayMessageId whenFull) {
    const uint32_t now = (mask >> state) & 1;
    if (now == filled) return true;
    if (k == capacity) {
      if (debug) report(whenFull);
      return false;
    }
    out[k++] = value;
    filled = now;
    return true;
  };
  while (ia < m && ib < spanCount) {
    const uint32_t a = edges[ia], b = spans[ib];
    if (a < b) {
      state ^= 1, ++ia;
    } else if (b < a) {
      state ^= 2, ++ib;
    } else {
      if (debug && a != b) report(kEntriesDiffer);
      state ^= 3, ++ia, ++ib;
    }
    if (!take(a < b ? a : b, kFullWhileMerging)) return k;
  }
  for (; ib < spanCount; ++ib) {
    state ^= 2;
    if (!take(spans[ib], kFullDrainingOld)) return k;
  }
  for (; ia < m; ++ia) {
    state ^= 1;
    if (!take(edges[ia], kFullDrainingNew)) return k;
  }
  return k;
}

template <bool Checking>
void applyFillArray(uint32_t* a, uint32_t operation, int32_t nonZeroWinding) {
  const Geometry g = geometryOf(a);
  if (g.stride < 2) return;  // no room for a row's two counts: not an array
  const bool debug = Checking && pathDebugEnabled != 0;
  const uint32_t guard = Checking ? pathDebugGuard : 0;
  const bool verify = debug && guard != 0;
  if (debug && operation > 3) report(kUnexpectedOperation);
  if (debug) ValidateFillArray(a, kPathSourceName, 676);
  if (g.rows <= 0) {
    if (debug) report(kRowsNotPositive);
    return;
  }
  const int64_t evenCapacity = evenFloor(g.capacity);
  const uint32_t mask = kOperationMasks[std::min(operation, 4u)];
  uint32_t* scratch = a + g.end + (guard != 0 ? 1 : 0);
  const auto copy = liveRoutine<slot::copyBytes>();
  // A count after a step: checked for 32 bits and evenness, clamped to the row.
  auto settle = [&](int64_t& count, FillArrayMessageId overflow, FillArrayMessageId odd, FillArrayMessageId beyond) {
    if (debug && count > 0xFFFFFFFF) report(overflow);
    if (debug && (count & 1) != 0) report(odd);
    if (count > g.capacity) {
      report(beyond);
      count = evenCapacity;
    }
  };

  for (int64_t r = 0; r < g.rows; ++r) {
    uint32_t* block = a + kFirstRow + r * g.stride;
    const uint32_t crossings = block[kCrossingCount];
    const bool tooMany = crossings > g.capacity;  // a negative count too
    if (tooMany) report(kRowCountWarning);
    if (crossings == 0) {
      if (operation == 2) block[kSpanCount] = 0;
      continue;
    }
    const int64_t n = tooMany ? evenCapacity : crossings;
    if (debug && (n & 1) != 0) report(kOddCrossings);

    uint32_t* edges = block + g.stride - n;
    sortCrossings(edges, n);
    int64_t m = n;
    if (nonZeroWinding == 0)
      shiftOutDirections(edges, n);
    else
      m = windNonZero(edges, n);
    if (debug && m > 0xFFFFFFFF) report(kConvertedOverflow);
    m = cancelEqualRuns(edges, m);
    if (verify) VerifyPathFillArray(a, kPathSourceName, 795);

    settle(m, kEdgesOverflow, kOddEdges, kNewCountWarning);
    if (debug && (mask & 1) != 0) report(kConfusedState);
    const uint32_t spanWord = block[kSpanCount];
    if (debug && (spanWord & 1) != 0) report(kOddSpans);
    int64_t spanCount = spanWord;
    if (spanCount > g.capacity) {
      report(kOldCountWarning);
      spanCount = evenCapacity;
    }

    int64_t k = mergeSpans(edges, m, block + kSpans, spanCount, mask, scratch, g.capacity, debug);
    if (verify) VerifyPathFillArray(a, kPathSourceName, 914);
    settle(k, kResultOverflow, kOddResult, kResultCountWarning);
    block[kCrossingCount] = 0;
    block[kSpanCount] = static_cast<uint32_t>(k);
    copy(scratch, block + kSpans, static_cast<int32_t>(k * 4));
    if (verify) VerifyPathFillArray(a, kPathSourceName, 932);
  }
}

void reportAt(const char* text, const char* sourceName, int32_t line) {
  liveRoutine<slot::report>()(text, sourceName, line, 1);
}

}  // namespace

void ApplyFillArrayOperation(uint32_t* fillArray, uint32_t operation, int32_t nonZeroWinding) {
  applyFillArray<false>(fillArray, operation, nonZeroWinding);
}

void CApplyFillArrayOperation(uint32_t* fillArray, uint32_t operation, int32_t nonZeroWinding) {
  applyFillArray<true>(fillArray, operation, nonZeroWinding);
}

void ValidateFillArray(const uint32_t* fillArray, const char* sourceName, int32_t line) {
  const Geometry g = geometryOf(fillArray);
  if (g.stride < 2) return;
  for (int64_t r = 0; r < g.rows; ++r) {
    const uint32_t* block = fillArray + kFirstRow + r * g.stride;
    const auto count = static_cast<int32_t>(block[kCrossingCount]);
    if (count > g.capacity) reportAt("ValidateFillArray: count too large.", sourceName, line);
    if (count < 0) reportAt("ValidateFillArray: count is negative.", sourceName, line);
    if ((count & 1) != 0) continue;
    // The last count words of the block, unclamped (unlike the operation): a count
    // beyond the crossings' room takes in the counts and spans before them, up to
    // the whole block; a negative one takes none.
    const int64_t n = std::clamp<int64_t>(count, 0, g.stride);
    int64_t up = 0;
    for (int64_t i = g.stride - n; i < g.stride; ++i) up += block[i] & 1;
    if (2 * up != n) reportAt("ValidateFillArray: Up does not match down.", sourceName, line);
  }
  VerifyPathFillArray(fillArray, sourceName, line);
}

void VerifyPathFillArray(const uint32_t* fillArray, const char* sourceName, int32_t line) {
  const uint32_t guard = pathDebugGuard;
  const Geometry g = geometryOf(fillArray);
  if (guard == 0 || g.stride < 2) return;
  if (fillArray[g.end] != guard)
    reportAt("VerifyPathFillArray crossings buffer guard mismatch, possible buffer overwrite", sourceName, line);
  if (fillArray[g.end + 1 + g.stride] != guard)
    reportAt("VerifyPathFillArray calc buffer guard mismatch, possible buffer overwrite", sourceName, line);
}

// Slot 46: vertically monotonic pieces of the segments that can reach rows
// firstRow..lastRow. Only vertical values are read; an open path has no closing
// segment; one direction state runs through the whole walk.
int32_t EstimateRowCrossings(int32_t firstRow, int32_t lastRow, const double* const* knots, uint32_t knotCount,
                             uint8_t closed) {
  if (knotCount == 0) return 0;
  const double first = firstRow, last = lastRow;
  const uint32_t segments = closed != 0 ? knotCount : knotCount - 1;
  int32_t pieces = 0;
  int direction = 0;
  for (uint32_t i = 0; i < segments; ++i) {
    const double* start = knots[i];
    const double* end = knots[i + 1 == knotCount ? 0 : i + 1];
    if (first >= start[knot::kOutUpper] && first >= end[knot::kInUpper]) continue;  // above the rows
    if (start[knot::kOutLower] >= last && end[knot::kInLower] >= last) continue;    // below them
    const double ys[4] = {start[knot::kAnchorY], start[knot::kOutY], end[knot::kInY], end[knot::kAnchorY]};
    for (int j = 1; j < 4; ++j) {
      const int step = ys[j] > ys[j - 1] ? 1 : ys[j] < ys[j - 1] ? -1 : 0;
      if (step != 0 && step != direction) {
        direction = step;
        ++pieces;
      }
    }
  }
  return pieces;
}

}  // namespace tarnell::pathfill
