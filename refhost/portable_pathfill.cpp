// The host's portable routines of path filling ('path'): the fill-array operation
// in its plain and checking builds (slot 24) and the crossing-count estimate
// (slot 46), written step by step from the operation's description.
//
// Contracts decided here (see docs/contracts.md):
// - rows = bottom - top in wrapping 32-bit arithmetic; rows below 1 is no work.
// - A rowStride below 2 cannot hold a row's two counts: the operation, the
//   validation and the guard check leave such an array alone and report nothing.
// - Counts (crossings, spans, edges, result) are compared with the row's capacity
//   rowStride - 2 as unsigned numbers, so a negative count is clamped like a large
//   one. The validation does not clamp: it counts directions among the last
//   `count` words of the block (the counts and spans too when count is above the
//   capacity; the whole block at most; nothing for a negative count).
// - Crossings, edges and spans are unsigned 32-bit numbers throughout: sorted,
//   shifted (logically), cancelled and merged as such.
// - A full scratch row ends the merge at the first value it cannot take: one
//   report (checking build), the rest of the row dropped.
// - The guard check does nothing while the guard value is 0: there are no guard
//   words then.
// - Slot 46 reads vertical values only (never the horizontal coordinate of any
//   knot); an open path has no segment from its last knot back to its first; one
//   direction state runs through the whole walk.
#include "refhost/portable_pathfill.h"

#include <algorithm>
#include <vector>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

constexpr char kSource[] = "CommonPathLoops";

void say(const char* message, const char* source, int32_t line, int32_t severity) {
  if (ReferenceHost* host = ReferenceHost::active()) host->recordDiagnostic({message, source, line, severity});
}

// Truth value of the combined region for state 2 x (in the old spans) + (in the new).
constexpr uint8_t kOperationTables[5][4] = {
    {0, 1, 1, 1},  // union
    {0, 0, 1, 0},  // old minus new
    {0, 0, 0, 1},  // intersection
    {0, 1, 1, 0},  // exclusive or
    {0, 0, 1, 1},  // anything else: keep the old spans
};

struct Layout {
  int32_t rows;
  int64_t stride;
  int64_t capacity;  // entries a row can hold: stride - 2
  int64_t end;       // word after the last row block
};

Layout layoutOf(const uint32_t* a) {
  Layout l;
  l.rows = static_cast<int32_t>(a[fillarray::kBottom] - a[fillarray::kTop]);
  l.stride = static_cast<int32_t>(a[fillarray::kRowStride]);
  l.capacity = l.stride - 2;
  l.end = fillarray::kFirstRow + (l.rows > 0 ? l.rows * l.stride : 0);
  return l;
}

int64_t evenFloor(int64_t v) { return v - (v % 2 != 0 ? 1 : 0); }

// An unsigned count above the capacity (which a negative count always is).
bool above(uint32_t count, int64_t capacity) { return int64_t{count} > capacity; }

void verifyGuards(const uint32_t* a, const char* source, int32_t line, uint32_t guard) {
  const Layout l = layoutOf(a);
  if (l.stride < 2 || guard == 0) return;
  if (a[l.end] != guard)
    say("VerifyPathFillArray crossings buffer guard mismatch, possible buffer overwrite", source, line, 1);
  if (a[l.end + 1 + l.stride] != guard)
    say("VerifyPathFillArray calc buffer guard mismatch, possible buffer overwrite", source, line, 1);
}

void validate(const uint32_t* a, const char* source, int32_t line, uint32_t guard) {
  const Layout l = layoutOf(a);
  if (l.stride < 2) return;
  for (int32_t r = 0; r < l.rows; ++r) {
    const uint32_t* block = a + fillarray::kFirstRow + r * l.stride;
    const auto count = static_cast<int32_t>(block[fillarray::kCrossingCount]);
    if (count > l.capacity) say("ValidateFillArray: count too large.", source, line, 1);
    if (count < 0) say("ValidateFillArray: count is negative.", source, line, 1);
    if (count % 2 != 0) continue;
    // Among the last count words of the block: all of it at most, none for a
    // negative count.
    const int64_t n = count < 0 ? 0 : count > l.stride ? l.stride : count;
    int64_t up = 0, down = 0;
    for (int64_t i = l.stride - n; i < l.stride; ++i) (block[i] & 1) != 0 ? ++up : ++down;
    if (up != down) say("ValidateFillArray: Up does not match down.", source, line, 1);
  }
  verifyGuards(a, source, line, guard);
}

void applyFillArray(uint32_t* a, uint32_t operation, int32_t nonZeroWinding, const FillArraySettings& settings) {
  const bool debug = settings.checking && settings.debug;
  const bool guarded = settings.checking && settings.guard != 0;
  auto check = [&](bool failed, const char* message, int32_t line) {
    if (debug && failed) say(message, kSource, line, 1);
  };
  auto warn = [&](const char* message, int32_t line) { say(message, kSource, line, 0); };
  auto guards = [&](int32_t line) {
    if (debug && guarded) verifyGuards(a, kSource, line, settings.guard);
  };

  if (static_cast<int32_t>(a[fillarray::kRowStride]) < 2) return;
  check(operation > 3, "CApplyFillArrayOperation Unexpected operation code. -Dovik", 671);
  if (debug) validate(a, kSource, 676, guarded ? settings.guard : 0);
  const Layout l = layoutOf(a);
  if (l.rows <= 0) {
    check(true, "ApplyFillArrayOperation rows <= 0", 680);
    return;
  }
  const uint8_t* table = kOperationTables[std::min<uint32_t>(operation, 4)];
  // A count after a step: checked for 32 bits and evenness, clamped to the row.
  auto settle = [&](int64_t& count, int32_t overflowLine, const char* odd, int32_t oddLine, const char* warning,
                    int32_t warningLine) {
    check(count > 0xFFFFFFFF, "Pointer arithmetic uint32 overflow", overflowLine);
    check(count % 2 != 0, odd, oddLine);
    if (count > l.capacity) {
      warn(warning, warningLine);
      count = evenFloor(l.capacity);
    }
  };
  uint32_t* scratch = a + l.end + (guarded ? 1 : 0);

  for (int32_t r = 0; r < l.rows; ++r) {
    uint32_t* block = a + fillarray::kFirstRow + r * l.stride;
    // 1-3: the crossing count, clamped to the row.
    const uint32_t crossings = block[fillarray::kCrossingCount];
    if (above(crossings, l.capacity)) warn("WARNING - illegal value for row count", 695);
    if (crossings == 0) {
      if (operation == 2) block[fillarray::kSpanCount] = 0;
      continue;
    }
    const int64_t n = above(crossings, l.capacity) ? evenFloor(l.capacity) : crossings;
    check(n % 2 != 0, "ApplyFillArrayOperation Odd number of entries. (0)", 712);

    // 4: sort.
    uint32_t* edges = block + l.stride - n;
    std::sort(edges, edges + n);

    // 5: crossings to span edges, in place.
    int64_t m = 0;
    if (nonZeroWinding == 0) {
      for (int64_t i = 0; i < n; ++i) edges[i] >>= 1;
      m = n;
    } else {
      // Two crossings a step; an odd last one only opens a span, never closes one.
      int64_t w = 0;
      bool inside = false;
      for (int64_t i = 0; i < n - n % 2; ++i) {
        w += (edges[i] & 1) != 0 ? 1 : -1;
        if ((w != 0) != inside) {
          edges[m++] = edges[i] >> 1;
          inside = w != 0;
        }
      }
      if (n % 2 != 0 && !inside) edges[m++] = edges[n - 1] >> 1;
    }
    check(m > 0xFFFFFFFF, "Pointer arithmetic uint32 overflow", 768);

    // 6: cancel runs of equal edges (an odd run leaves one).
    int64_t kept = 0;
    for (int64_t i = 0; i < m;) {
      int64_t j = i;
      while (j < m && edges[j] == edges[i]) ++j;
      if ((j - i) % 2 != 0) edges[kept++] = edges[i];
      i = j;
    }
    m = kept;
    guards(795);

    // 7: counts of both lists, clamped.
    settle(m, 797, "CApplyFillArrayOperation Odd number of entries. (1)", 799,
           "WARNING - illegal value for new row count", 801);
    check(table[0] != 0, "CApplyFillArrayOperation Logic is confused about state. -Dovik", 811);
    const uint32_t spanWord = block[fillarray::kSpanCount];
    check(spanWord % 2 != 0, "CApplyFillArrayOperation Odd number of entries. (2)", 821);
    int64_t spanCount = spanWord;
    if (above(spanWord, l.capacity)) {
      warn("WARNING - illegal value for old row count", 823);
      spanCount = evenFloor(l.capacity);
    }

    // 8: merge through the operation table into the scratch row.
    const uint32_t* spans = block + fillarray::kSpans;
    int64_t ia = 0, ib = 0, k = 0;
    unsigned s = 0;
    uint8_t current = table[0];
    bool full = false;
    auto emit = [&](uint32_t value, int32_t line) {
      if (table[s] == current) return;
      if (k == l.capacity) {
        check(true, line == 863   ? "CApplyFillArrayOperation Too many entries."
                    : line == 884 ? "CApplyFillArrayOperation Too many entries. (2)"
                                  : "CApplyFillArrayOperation Too many entries. (3)",
              line);
        full = true;
        return;
      }
      scratch[k++] = value;
      current = table[s];
    };
    while (!full && ia < m && ib < spanCount) {
      const uint32_t x = edges[ia], y = spans[ib];
      if (x < y) {
        s ^= 1, ++ia;
        emit(x, 863);
      } else if (y < x) {
        s ^= 2, ++ib;
        emit(y, 863);
      } else {
        check(x != y, "CApplyFillArrayOperation Entries don't match.", 850);
        s ^= 3, ++ia, ++ib;
        emit(x, 863);
      }
    }
    while (!full && ib < spanCount) {
      s ^= 2;
      emit(spans[ib++], 884);
    }
    while (!full && ia < m) {
      s ^= 1;
      emit(edges[ia++], 905);
    }
    guards(914);

    // 9: the result back into the row, through the host's byte copy.
    settle(k, 918, "CApplyFillArrayOperation Odd number of entries. (3)", 920,
           "WARNING - illegal result value for row count", 922);
    block[fillarray::kCrossingCount] = 0;
    block[fillarray::kSpanCount] = static_cast<uint32_t>(k);
    for (int64_t i = 0; i < k; ++i) block[fillarray::kSpans + i] = scratch[i];
    guards(932);
  }
}

// Slot 24 of the host itself: the build its own debug answers select.
void hostApplyFillArrayOperation(uint32_t* fillArray, uint32_t operation, int32_t nonZeroWinding) {
  applyFillArray(fillArray, operation, nonZeroWinding, hostFillArraySettings());
}

// Slot 46: counts the vertically monotonic pieces of the segments that can reach
// rows firstRow..lastRow.
int32_t estimateRowCrossings(int32_t firstRow, int32_t lastRow, const double* const* knots, uint32_t knotCount,
                             uint8_t closed) {
  if (knotCount == 0) return 0;
  const double first = firstRow, last = lastRow;
  const uint32_t segments = closed != 0 ? knotCount : knotCount - 1;
  int32_t count = 0;
  int direction = 0;
  for (uint32_t i = 0; i < segments; ++i) {
    const double* from = knots[i];
    const double* to = knots[(i + 1) % knotCount];
    if (first >= from[knot::kOutUpper] && first >= to[knot::kInUpper]) continue;
    if (from[knot::kOutLower] >= last && to[knot::kInLower] >= last) continue;
    const double path[4] = {from[knot::kAnchorY], from[knot::kOutY], to[knot::kInY], to[knot::kAnchorY]};
    for (int step = 0; step < 3; ++step) {
      const int d = path[step + 1] > path[step] ? 1 : path[step + 1] < path[step] ? -1 : 0;
      if (d != 0 && d != direction) {
        direction = d;
        ++count;
      }
    }
  }
  return count;
}

const PortableRoutine kRoutines[] = {
    portable(slot::ApplyFillArrayOperation, &hostApplyFillArrayOperation),
    portable(slot::EstimateRowCrossings, &estimateRowCrossings),
};

}  // namespace

FillArraySettings hostFillArraySettings() {
  FillArraySettings settings;
  const ReferenceHost* host = ReferenceHost::active();
  if (host == nullptr) return settings;
  const GestaltAnswer& debug = host->options().pathDebug;
  const GestaltAnswer& guard = host->options().pathDebugGuard;
  settings.debug = settings.checking = debug.recognised && debug.answer != 0;
  settings.guard = settings.debug && guard.recognised ? static_cast<uint32_t>(guard.answer) : 0;
  return settings;
}

int64_t fillArrayWorkingWords(int32_t rowStride, const FillArraySettings& settings) {
  if (rowStride < 2) return 0;
  return settings.checking && settings.guard != 0 ? int64_t{rowStride} + 2 : int64_t{rowStride} - 2;
}

void portableApplyFillArray(uint32_t* fillArray, uint32_t operation, int32_t nonZeroWinding,
                            const FillArraySettings& settings) {
  applyFillArray(fillArray, operation, nonZeroWinding, settings);
}

std::span<const PortableRoutine> portablePathFill() { return kRoutines; }

}  // namespace tarnell::refhost
