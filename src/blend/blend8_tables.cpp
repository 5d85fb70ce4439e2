// The table-driven 8-bit overlay and screen routines of the blending suite: the
// bodies for a processor with SSE and no SSE2 (the plain tier; the vector files
// compute the same bits where SSE2 is present).
//
// Scalar code only: every result is a look-up in the start-up tables. A row of up
// to 4096 samples first has one operand row (the source, or the mask where there
// is no source) copied into an aligned buffer on the stack, then is rewritten
// four samples a step; longer rows are rewritten in place two samples a step.
// The staging copy is a plain memcpy: the routine must not depend on what is
// installed in another suite's live table, and the bytes are the same either way.
#include <cstdint>
#include <cstring>

#include "blend/blend8.h"
#include "blend/overlay8_rows.h"
#include "host/inline.h"
#include "host/startup_tables.h"

namespace tarnell::blend8 {

namespace {

// Runs f(d[i], staged[i], other[i]) over every sample. `staged` is the operand
// row copied to the stack buffer for rows of up to 4096 samples; `other` is a
// second read-only plane (the mask of the three-plane members), or none.
template <bool HasOther, class PerSample>
TARNELL_INLINE void runRows(const uint8_t* staged, int32_t stagedStride, uint8_t* destination,
                            int32_t destinationStride, const uint8_t* other, int32_t otherStride, int32_t rows,
                            int32_t columns, PerSample f) {
  if (rows < 1 || columns < 1) return;
  auto at = [](int32_t i) { return static_cast<std::size_t>(i); };
  if (columns <= kStagedColumns) {
    alignas(16) uint8_t buffer[kStagedColumns];
    for (; rows-- > 0; staged += stagedStride, destination += destinationStride) {
      std::memcpy(buffer, staged, at(columns));
      uint8_t* d = destination;
      const uint8_t* o = other;
      int32_t i = 0;
      for (; i + 4 <= columns; i += 4) {
        d[i] = f(d[i], buffer[i], HasOther ? o[i] : 0);
        d[i + 1] = f(d[i + 1], buffer[i + 1], HasOther ? o[i + 1] : 0);
        d[i + 2] = f(d[i + 2], buffer[i + 2], HasOther ? o[i + 2] : 0);
        d[i + 3] = f(d[i + 3], buffer[i + 3], HasOther ? o[i + 3] : 0);
      }
      for (; i < columns; ++i) d[i] = f(d[i], buffer[i], HasOther ? o[i] : 0);
      if (HasOther) other += otherStride;
    }
  } else {
    for (; rows-- > 0; staged += stagedStride, destination += destinationStride) {
      uint8_t* d = destination;
      const uint8_t* s = staged;
      const uint8_t* o = other;
      int32_t i = 0;
      for (; i + 2 <= columns; i += 2) {
        d[i] = f(d[i], s[i], HasOther ? o[i] : 0);
        d[i + 1] = f(d[i + 1], s[i + 1], HasOther ? o[i + 1] : 0);
      }
      if (i < columns) d[i] = f(d[i], s[i], HasOther ? o[i] : 0);
      if (HasOther) other += otherStride;
    }
  }
}

void OverlaySource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                    int32_t destinationStride) {
  runRows<false>(source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [](int d, int s, int) { return static_cast<uint8_t>(overlayD(d, s)); });
}

void SourceBasedOverlay8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                         int32_t sourceStride, int32_t destinationStride) {
  runRows<false>(source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [](int d, int s, int) { return static_cast<uint8_t>(overlayH(s, d)); });
}

void OverlaySourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                               int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  runRows<true>(source, sourceStride, destination, destinationStride, mask, maskStride, rows, columns,
                [](int d, int s, int m) { return mixTo(d, overlayD(d, s), m); });
}

void SourceBasedOverlayThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                    int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                    int32_t maskStride) {
  runRows<true>(source, sourceStride, destination, destinationStride, mask, maskStride, rows, columns,
                [](int d, int s, int m) { return mixTo(d, overlayH(s, d), m); });
}

void OverlayConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                                 int32_t destinationStride, int32_t maskStride) {
  runRows<false>(mask, maskStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [c](int d, int m, int) { return mixTo(d, overlayD(d, c), m); });
}

void ConstantBasedOverlayThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                      int32_t columns, int32_t destinationStride, int32_t maskStride) {
  // The constant is the base: its half and its table row are decided once.
  const uint8_t* overlayRow = c < 128 ? Mul255Table[2 * c] : Screen255Table[(2 * c) & 255];
  runRows<false>(mask, maskStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [overlayRow](int d, int m, int) { return mixTo(d, overlayRow[d], m); });
}

void OverlaySourceWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                               int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  runRows<false>(source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [k](int d, int s, int) { return mixTo(d, overlayD(d, s), k); });
}

void SourceBasedOverlayWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                                    int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  runRows<false>(source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [k](int d, int s, int) { return mixTo(d, overlayH(s, d), k); });
}

void ScreenSource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                   int32_t destinationStride) {
  runRows<false>(source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [](int d, int s, int) { return static_cast<uint8_t>(screenOf(s, d)); });
}

// In the two screen mixes S(d, x) - d is never negative, so the unsigned
// product table scales it.
void ScreenSourceWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                              int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  runRows<false>(source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [k](int d, int s, int) { return static_cast<uint8_t>(d + productOf((screenOf(d, s) - d) & 255, k)); });
}

void ScreenConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                                int32_t destinationStride, int32_t maskStride) {
  runRows<false>(mask, maskStride, destination, destinationStride, nullptr, 0, rows, columns,
                 [c](int d, int m, int) { return static_cast<uint8_t>(d + productOf((screenOf(d, c) - d) & 255, m)); });
}

}  // namespace

constinit const Blend8Table g_blend8Tables = {
    .SourceBasedOverlayThroughMask8 = &SourceBasedOverlayThroughMask8,
    .ConstantBasedOverlayThroughMask8 = &ConstantBasedOverlayThroughMask8,
    .SourceBasedOverlay8 = &SourceBasedOverlay8,
    .SourceBasedOverlayWithOpacity8 = &SourceBasedOverlayWithOpacity8,
    .OverlaySourceThroughMask8 = &OverlaySourceThroughMask8,
    .OverlayConstantThroughMask8 = &OverlayConstantThroughMask8,
    .OverlaySource8 = &OverlaySource8,
    .OverlaySourceWithOpacity8 = &OverlaySourceWithOpacity8,
    .ScreenSourceWithOpacity8 = &ScreenSourceWithOpacity8,
    .ScreenConstantThroughMask8 = &ScreenConstantThroughMask8,
    .ScreenSource8 = &ScreenSource8,
};

}  // namespace tarnell::blend8
