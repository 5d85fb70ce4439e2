// The host's portable 16-bit blending routines: one per-sample loop per slot,
// written from the formulas. Samples are 0..32768 (32768 is full); every product
// is P(a, b) = (a b + 16384) >> 15, evaluated in 32 bits.
//
// Host contracts decided here (see docs/contracts.md, "Blending (16-bit)"):
// - rows or columns below 1 do nothing;
// - strides are signed byte counts, halved and used in samples: an odd stride
//   steps by the even stride below it (-7 steps by -8 bytes);
// - planes may start at any byte address (samples are read and written as bytes);
// - ScaleByConstant16 takes any 16-bit k as it is (results stay within 16 bits
//   for samples in range); FillWhereMaskClear16 writes its 16-bit constant as is;
// - ComplementMultiplyInto16 treats any non-zero flag byte as set;
// - samples above 32768 are outside the contract.
#include <cstring>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

using Byte = unsigned char;
constexpr uint32_t kFull = 32768;

uint32_t product(uint32_t a, uint32_t b) { return (a * b + 16384) >> 15; }

// A plane row by row: the byte address of sample x of the current row.
template <class B>
struct Rows {
  B* row;
  intptr_t step;  // the stride halved, in samples, as bytes
  Rows(B* first, int32_t stride) : row(first), step(static_cast<intptr_t>(stride >> 1) * 2) {}
  uint32_t operator[](int32_t x) const {
    uint16_t v;
    std::memcpy(&v, row + 2 * static_cast<intptr_t>(x), 2);
    return v;
  }
  void put(int32_t x, uint32_t v) const {
    const auto w = static_cast<uint16_t>(v);
    std::memcpy(row + 2 * static_cast<intptr_t>(x), &w, 2);
  }
  void next() { row += step; }
};
Rows<Byte> rows(uint16_t* p, int32_t stride) { return {reinterpret_cast<Byte*>(p), stride}; }
Rows<const Byte> rows(const uint16_t* p, int32_t stride) { return {reinterpret_cast<const Byte*>(p), stride}; }

// Calls f(x, planes...) for every sample of every row; each plane advances by its step.
template <class F, class... P>
void walk(int32_t rowCount, int32_t columns, F f, P... planes) {
  if (rowCount < 1 || columns < 1) return;
  for (int32_t y = 0; y < rowCount; ++y, (planes.next(), ...))
    for (int32_t x = 0; x < columns; ++x) f(x, planes...);
}

// ---------------------------------------------------------------- routines

void scaleByConstant(uint16_t* d, int32_t rowCount, int32_t columns, int32_t ds, uint16_t k) {
  walk(rowCount, columns, [k](int32_t x, auto pd) { pd.put(x, product(pd[x], k)); }, rows(d, ds));
}

void multiplySource(const uint16_t* s, uint16_t* d, int32_t rowCount, int32_t columns, int32_t ss, int32_t ds) {
  walk(rowCount, columns, [](int32_t x, auto ps, auto pd) { pd.put(x, product(ps[x], pd[x])); }, rows(s, ss),
       rows(d, ds));
}

void mixSourceThroughMask(const uint16_t* s, uint16_t* d, const uint16_t* m, int32_t rowCount, int32_t columns,
                          int32_t ss, int32_t ds, int32_t ms) {
  walk(rowCount, columns, [](int32_t x, auto ps, auto pd, auto pm) {
    pd.put(x, (ps[x] * pm[x] + (kFull - pm[x]) * pd[x] + 16384) >> 15);
  }, rows(s, ss), rows(d, ds), rows(m, ms));
}

void multiplySourceThroughMask(const uint16_t* s, uint16_t* d, const uint16_t* m, int32_t rowCount, int32_t columns,
                               int32_t ss, int32_t ds, int32_t ms) {
  walk(rowCount, columns, [](int32_t x, auto ps, auto pd, auto pm) {
    pd.put(x, (product(ps[x], pd[x]) * pm[x] + (kFull - pm[x]) * pd[x] + 16384) >> 15);
  }, rows(s, ss), rows(d, ds), rows(m, ms));
}

void multiplyInto(const uint16_t* a, uint16_t* d, const uint16_t* b, int32_t rowCount, int32_t columns, int32_t as,
                  int32_t ds, int32_t bs) {
  walk(rowCount, columns, [](int32_t x, auto pa, auto pd, auto pb) { pd.put(x, product(pa[x], pb[x])); },
       rows(a, as), rows(d, ds), rows(b, bs));
}

void inverseMultiplyInto(const uint16_t* a, uint16_t* d, const uint16_t* b, int32_t rowCount, int32_t columns,
                         int32_t as, int32_t ds, int32_t bs) {
  walk(rowCount, columns, [](int32_t x, auto pa, auto pd, auto pb) {
    pd.put(x, kFull - product(kFull - pa[x], pb[x]));
  }, rows(a, as), rows(d, ds), rows(b, bs));
}

void complementMultiplyInto(const uint16_t* a, const uint16_t* b, uint16_t* d, int32_t rowCount, int32_t columns,
                            int32_t as, int32_t bs, int32_t ds, uint8_t flagA, uint8_t flagB, uint8_t flagResult) {
  walk(rowCount, columns, [=](int32_t x, auto pa, auto pb, auto pd) {
    const uint32_t av = flagA != 0 ? kFull - pa[x] : pa[x];
    const uint32_t bv = flagB != 0 ? kFull - pb[x] : pb[x];
    const uint32_t r = product(av, bv);
    pd.put(x, flagResult != 0 ? kFull - r : r);
  }, rows(a, as), rows(b, bs), rows(d, ds));
}

void fillWhereMaskClear(const uint16_t* m, uint16_t* d, int32_t rowCount, int32_t columns, int32_t ms, int32_t ds,
                        uint16_t c) {
  walk(rowCount, columns, [c](int32_t x, auto pm, auto pd) {
    if (pm[x] == 0) pd.put(x, c);
  }, rows(m, ms), rows(d, ds));
}

void subtractCoverage(uint16_t* a, uint16_t* b, int32_t rowCount, int32_t columns, int32_t as, int32_t bs) {
  walk(rowCount, columns, [](int32_t x, auto pa, auto pb) {
    const uint32_t av = pa[x], bv = pb[x];
    if (av == kFull) {
      pb.put(x, 0);
    } else if (bv != 0) {
      const uint32_t covered = product(kFull - av, bv);
      pb.put(x, covered);
      pa.put(x, covered != 0 ? 0 : kFull);
    } else {
      pa.put(x, 0);
    }
  }, rows(a, as), rows(b, bs));
}

void orderedCombineInto(const uint16_t* a, const uint16_t* b, uint16_t* d, int32_t rowCount, int32_t columns,
                        int32_t as, int32_t bs, int32_t ds) {
  walk(rowCount, columns, [](int32_t x, auto pa, auto pb, auto pd) {
    const uint32_t av = pa[x], bv = pb[x], p = product(av, bv);
    pd.put(x, av > bv ? bv - product(av - bv, bv - p) : av - product(bv - av, av - p));
  }, rows(a, as), rows(b, bs), rows(d, ds));
}

}  // namespace

std::span<const PortableRoutine> portableBlend16() {
  static const PortableRoutine routines[] = {
      portable(slot::SubtractCoverage16, &subtractCoverage),
      portable(slot::ScaleByConstant16, &scaleByConstant),
      portable(slot::MultiplySource16, &multiplySource),
      portable(slot::ComplementMultiplyInto16, &complementMultiplyInto),
      portable(slot::MultiplyInto16, &multiplyInto),
      portable(slot::InverseMultiplyInto16, &inverseMultiplyInto),
      portable(slot::FillWhereMaskClear16, &fillWhereMaskClear),
      portable(slot::OrderedCombineInto16, &orderedCombineInto),
      portable(slot::MixSourceThroughMask16, &mixSourceThroughMask),
      portable(slot::MultiplySourceThroughMask16, &multiplySourceThroughMask),
  };
  return routines;
}

}  // namespace tarnell::refhost
