// The overlay and screen routines as vector code: the bits of the table-driven
// routines (blend8_tables.cpp) computed with 16-bit lane arithmetic. Included by
// overlay8_sse2.cpp and overlay8_avx2.cpp, which differ only in the widest step
// (blend8_vectors.h): everything keeps internal linkage.
//
// Why the arithmetic gives the tables' bytes (the tables are formulas):
// - M(a, b) is round255(a * b), which the vector product forms exactly.
// - S(a, b) = a + b - M(a, b) = 255 - M(255 - a, 255 - b): (255 - a)(255 - b) is
//   255 (255 - a - b) + a b, and a whole multiple of 255 passes through the
//   rounding unchanged. 255 - x is x XOR 255 on a byte.
// - So both overlay forms are one product between two XORs with flip, 0xFF where
//   the base is in its upper half: O(b, x) = M(2 (b ^ flip), x ^ flip) ^ flip,
//   since for b >= 128, 255 - (2b - 255) = 2 (255 - b); and H(b, x) =
//   M(2 (b ^ flip) + (1 where flipped), x ^ flip) ^ flip, since 255 - (2b - 256) =
//   2 (255 - b) + 1. Both first operands fit a byte (at most 254 and 255).
// - d + L(w, t - d) is round255(255 d + w (t - d)), the mix of the plane
//   operations; in the screen mixes S - d is never negative, so d + M(S - d, w) is
//   the same mix.
#pragma once

#include <cstdint>

#include "blend/blend8.h"
#include "blend/blend8_vectors.h"
#include "blend/overlay8_rows.h"
#include "host/inline.h"
#include "host/startup_tables.h"

namespace tarnell::blend8 {
namespace {

// ------------------------------------------------------------ per vector

// O(d, x), the destination the base.
template <class V>
TARNELL_INLINE V overlayDv(V base, V x) {
  const V flip = gt8(bytes<V>(0), base);
  const V half = xorv(base, flip);
  return xorv(mulv(add8(half, half), xorv(x, flip)), flip);
}
// H(b, x), the other operand the base.
template <class V>
TARNELL_INLINE V overlayHv(V base, V x) {
  const V flip = gt8(bytes<V>(0), base);
  const V half = xorv(base, flip);
  return xorv(mulv(sub8(add8(half, half), flip), xorv(x, flip)), flip);
}
// S(a, b).
template <class V>
TARNELL_INLINE V screenv(V a, V b) {
  const V ones = bytes<V>(255);
  return xorv(mulv(xorv(a, ones), xorv(b, ones)), ones);
}

// ------------------------------------------------------------ rows

// Every row, staged as the plain routines stage it (overlay8_rows.h): rule(d, x,
// o) is a sample's table look-up, vector(d, x, o) the same on a vector, with x
// the staged operand and o the other plane's sample (none: zero).
template <bool HasOther, class Rule, class VectorRule>
TARNELL_INLINE void overlayRows(const uint8_t* staged, int32_t stagedStride, uint8_t* destination,
                                int32_t destinationStride, const uint8_t* other, int32_t otherStride, int32_t rows,
                                int32_t columns, Rule rule, VectorRule vector) {
  eachStagedRow<HasOther>(
      staged, stagedStride, destination, destinationStride, other, otherStride, rows, columns,
      [&](uint8_t* d, const uint8_t* x, const uint8_t* o, intptr_t n) {
        samplesInOrder<HasOther>(d, x, o, 0, n, rule);
      },
      [&](uint8_t* d, const uint8_t* x, const uint8_t* o, intptr_t n) {
        run(d, n, [&](intptr_t i) { samplesInOrder<HasOther>(d, x, o, i, i + 1, rule); },
            [&]<class V>(V, intptr_t i) {
              V ov{};
              if constexpr (HasOther) ov = loadu<V>(o + i);
              storea(d + i, vector(loada<V>(d + i), loadu<V>(x + i), ov));
            });
      });
}

// ---------------------------------------------------------------- routines

void OverlaySource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                    int32_t destinationStride) {
  overlayRows<false>(
      source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
      [](int d, int s, int) { return overlayD(d, s); }, [](auto d, auto s, auto) { return overlayDv(d, s); });
}

void SourceBasedOverlay8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                         int32_t sourceStride, int32_t destinationStride) {
  overlayRows<false>(
      source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
      [](int d, int s, int) { return overlayH(s, d); }, [](auto d, auto s, auto) { return overlayHv(s, d); });
}

void OverlaySourceThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                               int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride) {
  overlayRows<true>(
      source, sourceStride, destination, destinationStride, mask, maskStride, rows, columns,
      [](int d, int s, int m) { return mixTo(d, overlayD(d, s), m); },
      [](auto d, auto s, auto m) { return mixv(d, overlayDv(d, s), m); });
}

void SourceBasedOverlayThroughMask8(const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                    int32_t columns, int32_t sourceStride, int32_t destinationStride,
                                    int32_t maskStride) {
  overlayRows<true>(
      source, sourceStride, destination, destinationStride, mask, maskStride, rows, columns,
      [](int d, int s, int m) { return mixTo(d, overlayH(s, d), m); },
      [](auto d, auto s, auto m) { return mixv(d, overlayHv(s, d), m); });
}

void OverlayConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                                 int32_t destinationStride, int32_t maskStride) {
  overlayRows<false>(
      mask, maskStride, destination, destinationStride, nullptr, 0, rows, columns,
      [c](int d, int m, int) { return mixTo(d, overlayD(d, c), m); },
      [c]<class V>(V d, V m, V) { return mixv(d, overlayDv(d, bytes<V>(c)), m); });
}

void ConstantBasedOverlayThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows,
                                      int32_t columns, int32_t destinationStride, int32_t maskStride) {
  // The constant is the base: its half and its table row are decided once.
  const uint8_t* overlayRow = c < 128 ? Mul255Table[2 * c] : Screen255Table[(2 * c) & 255];
  overlayRows<false>(
      mask, maskStride, destination, destinationStride, nullptr, 0, rows, columns,
      [overlayRow](int d, int m, int) { return mixTo(d, overlayRow[d], m); },
      [c]<class V>(V d, V m, V) { return mixv(d, overlayHv(bytes<V>(c), d), m); });
}

void OverlaySourceWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                               int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  overlayRows<false>(
      source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
      [k](int d, int s, int) { return mixTo(d, overlayD(d, s), k); },
      [k]<class V>(V d, V s, V) { return mixv(d, overlayDv(d, s), bytes<V>(k)); });
}

void SourceBasedOverlayWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                                    int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  overlayRows<false>(
      source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
      [k](int d, int s, int) { return mixTo(d, overlayH(s, d), k); },
      [k]<class V>(V d, V s, V) { return mixv(d, overlayHv(s, d), bytes<V>(k)); });
}

void ScreenSource8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                   int32_t destinationStride) {
  overlayRows<false>(
      source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
      [](int d, int s, int) { return screenOf(s, d); }, [](auto d, auto s, auto) { return screenv(s, d); });
}

void ScreenSourceWithOpacity8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                              int32_t sourceStride, int32_t destinationStride, uint8_t k) {
  overlayRows<false>(
      source, sourceStride, destination, destinationStride, nullptr, 0, rows, columns,
      [k](int d, int s, int) { return d + productOf((screenOf(d, s) - d) & 255, k); },
      [k]<class V>(V d, V s, V) { return mixv(d, screenv(d, s), bytes<V>(k)); });
}

void ScreenConstantThroughMask8(uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns,
                                int32_t destinationStride, int32_t maskStride) {
  overlayRows<false>(
      mask, maskStride, destination, destinationStride, nullptr, 0, rows, columns,
      [c](int d, int m, int) { return d + productOf((screenOf(d, c) - d) & 255, m); },
      [c]<class V>(V d, V m, V) { return mixv(d, screenv(d, bytes<V>(c)), m); });
}

// The table each overlay file exports.
constexpr Blend8Table overlayTable() {
  return {
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
}

}  // namespace
}  // namespace tarnell::blend8
