// Per-sample arithmetic of the integer kernel filters, shared by the scalar
// routines and the vector routines' heads and tails, so that every path gives
// the same bytes. Plain C++: no vector instructions of its own.
#pragma once

#include <cstdint>

namespace tarnell::resample {

// Copies a row through the live 'memo' slot 0, as the host's own routine does
// (filter_columns8_scalar.cpp).
void copyRow(const uint8_t* source, uint8_t* destination, int32_t width);

// The helpers have internal linkage: files built for wider instruction sets
// include this header too, and must not share compiled code with baseline files.
namespace {

// First sample (or row) a kernel of `taps` reads for a position centred on index.
inline intptr_t firstTap(int32_t index, int32_t taps) { return intptr_t{index} + 1 - taps / 2; }

// 8192 + sum of weight x sample over the taps, kept modulo 2^32 as a signed 32-bit
// register keeps it, shifted right by 14 with sign. `step` is the distance between
// taps in samples (1 along a row, the row stride down a column).
template <typename T>
int32_t kernelSum(const T* p, intptr_t step, const int16_t* w, int32_t taps) {
  uint32_t acc = 8192;
  for (int32_t k = 0; k < taps; ++k) acc += static_cast<uint32_t>(int32_t{w[k]} * int32_t{p[k * step]});
  return static_cast<int32_t>(acc) >> 14;
}

inline uint8_t clamp8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }
inline uint16_t clamp16(int32_t v) { return static_cast<uint16_t>(v < 0 ? 0 : v > 32768 ? 32768 : v); }

template <typename T>
inline const T* rowAt(const T* base, intptr_t row, intptr_t strideSamples) {
  return base + row * strideSamples;
}
template <typename T>
inline T* rowAt(T* base, intptr_t row, intptr_t strideSamples) {
  return base + row * strideSamples;
}

// The row walk of the 8-bit vertical filters: 0 or 1 tap copies source row
// indices[r] + 1 through the live 'memo' slot 0 (copy); otherwise row(first row,
// weights, destination row) filters one output row.
template <class Copy, class Row>
void eachColumnRow(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                   const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                   const int16_t* weights, Copy copy, Row row) {
  if (rows < 1 || width < 1) return;
  const int32_t n = taps < 0 ? 0 : taps;
  for (int32_t r = 0; r < rows; ++r) {
    uint8_t* d = rowAt(destination, r, destinationStride);
    if (taps == 0 || taps == 1)
      copy(rowAt(source, intptr_t{indices[r]} + 1, sourceStride), d, width);
    else
      row(rowAt(source, firstTap(indices[r], taps), sourceStride), weights + int32_t{phases[r]} * n, d);
  }
}

}  // namespace
}  // namespace tarnell::resample
