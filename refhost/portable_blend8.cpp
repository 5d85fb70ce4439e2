// The host's portable 8-bit blending routines: one per-sample loop per slot,
// written from the formulas with integer division (no tables).
//
// Host contracts decided here (see docs/contracts.md, "Blending (8-bit)"):
// - rows or columns below 1 do nothing;
// - ScaleByConstant8 (slot 1) uses only the low byte of its 16-bit constant;
// - the three-plane overlays (47, 50) take (source, destination, mask, rows,
//   columns, source stride, destination stride, mask stride).
#include <cstdint>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

// a*b/255 to the nearest integer (a quotient of 255 is never a tie).
int product(int a, int b) { return (a * b + 127) / 255; }
// 255 - (255 - a)(255 - b)/255 in the same rounding.
int screen(int a, int b) { return a + b - product(a, b); }
// x*w/255 for x in -255..255, to the nearest integer.
int signedScale(int w, int x) { return x >= 0 ? product(w, x) : -product(w, -x); }
// d moved toward target by the weight w (0..255).
int mixToward(int d, int target, int w) { return d + signedScale(w, target - d); }

// The overlay with the destination as base: the upper half of the base maps to 1..255.
int overlayD(int base, int x) { return base < 128 ? product(2 * base, x) : screen(2 * base - 255, x); }
// The overlay with the other operand as base: the upper half maps to 0..254.
int overlayH(int base, int x) { return base < 128 ? product(2 * base, x) : screen(2 * base - 256, x); }

uint8_t byte(int v) { return static_cast<uint8_t>(v); }

// Row walkers, one per argument shape; f computes the new destination sample.
template <class F>
void walkK(uint8_t* d, int32_t rows, int32_t columns, int32_t ds, F f) {
  if (rows < 1 || columns < 1) return;
  for (int32_t y = 0; y < rows; ++y, d += ds)
    for (int32_t x = 0; x < columns; ++x) d[x] = byte(f(d[x]));
}

template <class F>
void walkSD(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds, F f) {
  if (rows < 1 || columns < 1) return;
  for (int32_t y = 0; y < rows; ++y, s += ss, d += ds)
    for (int32_t x = 0; x < columns; ++x) d[x] = byte(f(d[x], s[x]));
}

template <class F>
void walkDM(uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds, int32_t ms, F f) {
  if (rows < 1 || columns < 1) return;
  for (int32_t y = 0; y < rows; ++y, d += ds, m += ms)
    for (int32_t x = 0; x < columns; ++x) d[x] = byte(f(d[x], m[x]));
}

template <class F>
void walkSDM(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ss, int32_t ds,
             int32_t ms, F f) {
  if (rows < 1 || columns < 1) return;
  for (int32_t y = 0; y < rows; ++y, s += ss, d += ds, m += ms)
    for (int32_t x = 0; x < columns; ++x) d[x] = byte(f(d[x], s[x], m[x]));
}

template <class F>
void walkInto(const uint8_t* a, const uint8_t* b, uint8_t* d, int32_t rows, int32_t columns, int32_t as, int32_t bs,
              int32_t ds, F f) {
  if (rows < 1 || columns < 1) return;
  for (int32_t y = 0; y < rows; ++y, a += as, b += bs, d += ds)
    for (int32_t x = 0; x < columns; ++x) d[x] = byte(f(a[x], b[x]));
}

// ---------------------------------------------------------------- routines

void scaleByConstant(uint8_t* d, int32_t rows, int32_t columns, int32_t ds, uint16_t k) {
  const int w = k & 0xFF;
  walkK(d, rows, columns, ds, [w](int v) { return product(v, w); });
}

void mixConstantThroughMask(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds,
                            int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return mixToward(dv, c, mv); });
}

void mixSourceThroughMask(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ss,
                          int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms, [](int dv, int sv, int mv) { return mixToward(dv, sv, mv); });
}

void copyWhereMaskSet(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ss,
                      int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms, [](int dv, int sv, int mv) { return mv >= 128 ? sv : dv; });
}

void fillWhereMaskSet(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds, int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return mv >= 128 ? int{c} : dv; });
}

void fillWhereMaskClear(const uint8_t* m, uint8_t* d, int32_t rows, int32_t columns, int32_t ms, int32_t ds,
                        uint8_t c) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return mv == 0 ? int{c} : dv; });
}

void multiplySource(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  walkSD(s, d, rows, columns, ss, ds, [](int dv, int sv) { return product(dv, sv); });
}

void maxSource(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  walkSD(s, d, rows, columns, ss, ds, [](int dv, int sv) { return dv > sv ? dv : sv; });
}

void minSource(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  walkSD(s, d, rows, columns, ss, ds, [](int dv, int sv) { return dv < sv ? dv : sv; });
}

void darkenTowardSource(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ss,
                        int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms,
          [](int dv, int sv, int mv) { return dv > sv ? dv - product(dv - sv, mv) : dv; });
}

void darkenTowardConstant(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds,
                          int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return dv > c ? dv - product(dv - c, mv) : dv; });
}

void lightenTowardSource(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ss,
                         int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms,
          [](int dv, int sv, int mv) { return sv > dv ? dv + product(sv - dv, mv) : dv; });
}

void lightenTowardConstant(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds,
                           int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return c > dv ? dv + product(c - dv, mv) : dv; });
}

void multiplySourceThroughMask(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns,
                               int32_t ss, int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms,
          [](int dv, int sv, int mv) { return dv - product(dv - product(sv, dv), mv); });
}

void multiplyWithOpacity(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds,
                         uint8_t k) {
  walkSD(s, d, rows, columns, ss, ds, [k](int dv, int sv) { return dv - product(dv - product(dv, sv), k); });
}

void multiplyInto(const uint8_t* a, uint8_t* d, const uint8_t* b, int32_t rows, int32_t columns, int32_t as,
                  int32_t ds, int32_t bs) {
  walkInto(a, b, d, rows, columns, as, bs, ds, [](int av, int bv) { return product(av, bv); });
}

void inverseMultiplyInto(const uint8_t* a, uint8_t* d, const uint8_t* b, int32_t rows, int32_t columns, int32_t as,
                         int32_t ds, int32_t bs) {
  walkInto(a, b, d, rows, columns, as, bs, ds, [](int av, int bv) { return 255 - product(255 - av, bv); });
}

void orderedCombineInto(const uint8_t* a, const uint8_t* b, uint8_t* d, int32_t rows, int32_t columns, int32_t as,
                        int32_t bs, int32_t ds) {
  walkInto(a, b, d, rows, columns, as, bs, ds, [](int av, int bv) {
    const int p = product(av, bv);
    return av > bv ? bv - product(av - bv, bv - p) : av - product(bv - av, av - p);
  });
}

void subtractCoverage(uint8_t* a, uint8_t* b, int32_t rows, int32_t columns, int32_t as, int32_t bs) {
  if (rows < 1 || columns < 1) return;
  for (int32_t y = 0; y < rows; ++y, a += as, b += bs) {
    for (int32_t x = 0; x < columns; ++x) {
      const int av = a[x], bv = b[x];
      if (av == 255) {
        b[x] = 0;
      } else if (av != 0) {
        if (bv != 0) {
          const int covered = product(255 - av, bv);
          b[x] = byte(covered);
          a[x] = byte(covered != 0 ? 0 : 255);
        } else {
          a[x] = 0;
        }
      }
    }
  }
}

// --- overlay and screen ---

void overlaySource(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  walkSD(s, d, rows, columns, ss, ds, [](int dv, int sv) { return overlayD(dv, sv); });
}

void sourceBasedOverlay(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  walkSD(s, d, rows, columns, ss, ds, [](int dv, int sv) { return overlayH(sv, dv); });
}

void overlaySourceThroughMask(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns,
                              int32_t ss, int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms,
          [](int dv, int sv, int mv) { return mixToward(dv, overlayD(dv, sv), mv); });
}

void sourceBasedOverlayThroughMask(const uint8_t* s, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns,
                                   int32_t ss, int32_t ds, int32_t ms) {
  walkSDM(s, d, m, rows, columns, ss, ds, ms,
          [](int dv, int sv, int mv) { return mixToward(dv, overlayH(sv, dv), mv); });
}

void overlayConstantThroughMask(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds,
                                int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return mixToward(dv, overlayD(dv, c), mv); });
}

void constantBasedOverlayThroughMask(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns,
                                     int32_t ds, int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return mixToward(dv, overlayH(c, dv), mv); });
}

void overlaySourceWithOpacity(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds,
                              uint8_t k) {
  walkSD(s, d, rows, columns, ss, ds, [k](int dv, int sv) { return mixToward(dv, overlayD(dv, sv), k); });
}

void sourceBasedOverlayWithOpacity(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss,
                                   int32_t ds, uint8_t k) {
  walkSD(s, d, rows, columns, ss, ds, [k](int dv, int sv) { return mixToward(dv, overlayH(sv, dv), k); });
}

void screenSource(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  walkSD(s, d, rows, columns, ss, ds, [](int dv, int sv) { return screen(sv, dv); });
}

void screenSourceWithOpacity(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds,
                             uint8_t k) {
  walkSD(s, d, rows, columns, ss, ds, [k](int dv, int sv) { return dv + product((screen(dv, sv) - dv) % 256, k); });
}

void screenConstantThroughMask(uint8_t c, uint8_t* d, const uint8_t* m, int32_t rows, int32_t columns, int32_t ds,
                               int32_t ms) {
  walkDM(d, m, rows, columns, ds, ms, [c](int dv, int mv) { return dv + product((screen(dv, c) - dv) % 256, mv); });
}

}  // namespace

std::span<const PortableRoutine> portableBlend8() {
  static const PortableRoutine routines[] = {
      portable(slot::ScaleByConstant8, &scaleByConstant),
      portable(slot::MixSourceThroughMask8, &mixSourceThroughMask),
      portable(slot::MixConstantThroughMask8, &mixConstantThroughMask),
      portable(slot::DarkenTowardSourceThroughMask8, &darkenTowardSource),
      portable(slot::DarkenTowardConstantThroughMask8, &darkenTowardConstant),
      portable(slot::LightenTowardSourceThroughMask8, &lightenTowardSource),
      portable(slot::LightenTowardConstantThroughMask8, &lightenTowardConstant),
      portable(slot::MultiplySourceThroughMask8, &multiplySourceThroughMask),
      portable(slot::MultiplySource8, &multiplySource),
      portable(slot::ScreenConstantThroughMask8, &screenConstantThroughMask),
      portable(slot::ScreenSource8, &screenSource),
      portable(slot::MaxSource8, &maxSource),
      portable(slot::MinSource8, &minSource),
      portable(slot::CopyWhereMaskSet8, &copyWhereMaskSet),
      portable(slot::FillWhereMaskSet8, &fillWhereMaskSet),
      portable(slot::OverlaySourceThroughMask8, &overlaySourceThroughMask),
      portable(slot::OverlayConstantThroughMask8, &overlayConstantThroughMask),
      portable(slot::OverlaySource8, &overlaySource),
      portable(slot::SourceBasedOverlayThroughMask8, &sourceBasedOverlayThroughMask),
      portable(slot::ConstantBasedOverlayThroughMask8, &constantBasedOverlayThroughMask),
      portable(slot::SourceBasedOverlay8, &sourceBasedOverlay),
      portable(slot::SubtractCoverage8, &subtractCoverage),
      portable(slot::MultiplyWithOpacity8, &multiplyWithOpacity),
      portable(slot::ScreenSourceWithOpacity8, &screenSourceWithOpacity),
      portable(slot::OverlaySourceWithOpacity8, &overlaySourceWithOpacity),
      portable(slot::SourceBasedOverlayWithOpacity8, &sourceBasedOverlayWithOpacity),
      portable(slot::MultiplyInto8, &multiplyInto),
      portable(slot::InverseMultiplyInto8, &inverseMultiplyInto),
      portable(slot::FillWhereMaskClear8, &fillWhereMaskClear),
      portable(slot::OrderedCombineInto8, &orderedCombineInto),
  };
  return routines;
}

}  // namespace tarnell::refhost
