// 3x3 local deviation (slot 12): plain code, installed on every processor.
#include <cmath>

#include "filter/filter.h"
#include "host/module_state.h"

namespace tarnell::filter {

namespace {

// (9 S2 - S1^2) / 21, square root in single precision, truncated: 9/sqrt(21)
// times the standard deviation, so that the widest spread still fits a byte.
inline uint8_t deviationOf(uint32_t s1, uint32_t s2) {
  const uint32_t q = (9 * s2 - s1 * s1) / 21;
  return static_cast<uint8_t>(std::sqrt(static_cast<float>(q)));
}

struct ColumnSums {
  uint32_t sum, squares;
};

inline ColumnSums column(const uint8_t* above, const uint8_t* here, const uint8_t* below, intptr_t c) {
  const uint32_t a = above[c], b = here[c], d = below[c];
  return {a + b + d, a * a + b * b + d * d};
}

}  // namespace

int32_t localDeviation3x3(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                          int32_t sourceStride, int32_t destinationStride) {
  const int32_t notified = liveRoutine<slot::notifyBuffer>()(
      reinterpret_cast<uintptr_t>(source), reinterpret_cast<uintptr_t>(destination),
      static_cast<uintptr_t>(static_cast<intptr_t>(rows)), static_cast<uintptr_t>(static_cast<intptr_t>(columns)));
  if (rows < 1 || columns < 1) return notified;  // no columns: nothing to read or write
  for (int32_t r = 0; r < rows; ++r) {
    const uint8_t* here = source + intptr_t{sourceStride} * r;
    const uint8_t* above = here - sourceStride;
    const uint8_t* below = here + sourceStride;
    uint8_t* out = destination + intptr_t{destinationStride} * r;
    // The neighbourhood of column 0 spans source columns -1..1; each step right
    // drops the oldest column's sums and adds the entering one's.
    ColumnSums left = column(above, here, below, -1);
    ColumnSums mid = column(above, here, below, 0);
    intptr_t c = 0;
    const intptr_t triples = columns / 3 * 3;
    for (; c < triples; c += 3) {
      const ColumnSums a = column(above, here, below, c + 1);
      const ColumnSums b = column(above, here, below, c + 2);
      const ColumnSums d = column(above, here, below, c + 3);
      out[c] = deviationOf(left.sum + mid.sum + a.sum, left.squares + mid.squares + a.squares);
      out[c + 1] = deviationOf(mid.sum + a.sum + b.sum, mid.squares + a.squares + b.squares);
      out[c + 2] = deviationOf(a.sum + b.sum + d.sum, a.squares + b.squares + d.squares);
      left = b;
      mid = d;
    }
    for (; c < columns; ++c) {
      const ColumnSums a = column(above, here, below, c + 1);
      out[c] = deviationOf(left.sum + mid.sum + a.sum, left.squares + mid.squares + a.squares);
      left = mid;
      mid = a;
    }
  }
  return notified;
}

}  // namespace tarnell::filter
