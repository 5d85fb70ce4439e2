// The host's portable resampling routines ('rsmp'), written from the per-sample
// rules: the kernel filters (slots 5, 6, 13, 26, 27), the box reductions (3, 24)
// and the 16.16 remaps (18, 19).
//
// Host contracts decided here (see docs/contracts.md, "Resampling"):
// - kernel filters: the accumulator is a signed 32-bit register (sums wrap modulo
//   2^32); taps below 0 sum nothing; the float sum is built four taps at a time as
//   ((p0 + p1) + (p2 + p3)), products past the last tap counted as +0.0, each group
//   added to a sum starting at +0.0;
// - the 8-bit vertical filter copies rows for 0 or 1 tap through the live 'memo'
//   slot 0, (source row, destination row, width);
// - BoxReduce8 takes (source, destination, rows, width, source stride, destination
//   stride, samples per pixel, a, b), width in output samples; a, b or samples per
//   pixel below 1 do nothing; every call is recorded;
// - remaps: coordinate arithmetic in 32 bits (see RemapAxis below); the
//   destination is one pointer that moves by the pixel stride after each pixel and
//   by the advance after each row, so the advance is the gap after a row's last
//   pixel stride, not the distance between row starts.
#include <cstdint>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

uintptr_t word(const void* p) { return reinterpret_cast<uintptr_t>(p); }
uintptr_t word(int32_t v) { return static_cast<uintptr_t>(static_cast<intptr_t>(v)); }

template <typename T>
const T* rowOf(const T* base, int64_t row, int64_t stride) {
  return base + row * stride;
}
template <typename T>
T* rowOf(T* base, int64_t row, int64_t stride) {
  return base + row * stride;
}

// --- kernel filters -----------------------------------------------------------

// 8192 + sum of weight x sample, kept as a 32-bit register keeps it, then >> 14
// with sign. step: distance between the taps in samples.
template <typename T>
int32_t integerKernel(const T* first, int64_t step, const int16_t* w, int32_t taps) {
  uint32_t acc = 8192;
  for (int32_t k = 0; k < taps; ++k) acc += static_cast<uint32_t>(w[k] * static_cast<int32_t>(first[k * step]));
  return static_cast<int32_t>(acc) >> 14;
}

float floatKernel(const float* first, int64_t step, const int16_t* w, int32_t taps) {
  float acc = 0.0f;
  for (int32_t k = 0; k < taps; k += 4) {
    float p[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (int32_t i = 0; i < 4 && k + i < taps; ++i) p[i] = static_cast<float>(w[k + i]) * first[(k + i) * step];
    acc = acc + ((p[0] + p[1]) + (p[2] + p[3]));
  }
  return acc * 6.1035156e-5f;
}

uint8_t clamp8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }
uint16_t clamp16(int32_t v) { return static_cast<uint16_t>(v < 0 ? 0 : v > 32768 ? 32768 : v); }

int64_t firstTap(int32_t index, int16_t taps) { return int64_t{index} + 1 - taps / 2; }
int32_t tapCount(int16_t taps) { return taps < 0 ? 0 : taps; }

// Output (r, x) of a horizontal filter reads row r from firstTap(indices[x]); of a
// vertical one, column x from row firstTap(indices[r]).
template <bool Vertical, typename T, typename Out, class Finish>
void kernelFilter(const T* s, Out* d, int32_t rows, int32_t width, const int32_t* indices, const uint8_t* phases,
                  int64_t ss, int64_t ds, int16_t taps, const int16_t* weights, Finish finish) {
  if (rows < 1 || width < 1) return;
  const int32_t n = tapCount(taps);
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t x = 0; x < width; ++x) {
      const int32_t at = Vertical ? r : x;
      const T* first = Vertical ? rowOf(s, firstTap(indices[r], taps), ss) + x : rowOf(s, r, ss) + firstTap(indices[x], taps);
      rowOf(d, r, ds)[x] = finish(first, Vertical ? ss : 1, weights + phases[at] * n, n);
    }
}

auto finish8 = [](const uint8_t* p, int64_t step, const int16_t* w, int32_t n) {
  return clamp8(integerKernel(p, step, w, n));
};

void filterRows8(const uint8_t* s, uint8_t* d, int32_t rows, int32_t width, const int32_t* indices,
                 const uint8_t* phases, int32_t ss, int32_t ds, int16_t taps, const int16_t* weights) {
  kernelFilter<false>(s, d, rows, width, indices, phases, ss, ds, taps, weights, finish8);
}

// 0 or 1 tap: a byte copy of row indices[r] + 1 through the live 'memo' slot 0.
void filterColumns8(const uint8_t* s, uint8_t* d, int32_t rows, int32_t width, const int32_t* indices,
                    const uint8_t* phases, int32_t ss, int32_t ds, int16_t taps, const int16_t* weights) {
  if (rows < 1 || width < 1) return;
  if (taps == 0 || taps == 1) {
    ReferenceHost* host = ReferenceHost::active();
    const auto copy = reinterpret_cast<SlotFnOf<slot::copyBytes>>(host->live(code::memo, 0));
    for (int32_t r = 0; r < rows; ++r) copy(rowOf(s, int64_t{indices[r]} + 1, ss), rowOf(d, r, ds), width);
    return;
  }
  kernelFilter<true>(s, d, rows, width, indices, phases, ss, ds, taps, weights, finish8);
}

// 0 or fewer taps: the rounding term alone, 0 for every output.
void filterRows16(const uint16_t* s, uint16_t* d, int32_t rows, int32_t width, const int32_t* indices,
                  const uint8_t* phases, int32_t ss, int32_t ds, int16_t taps, const int16_t* weights) {
  kernelFilter<false>(s, d, rows, width, indices, phases, ss / 2, ds / 2, taps, weights,
             [](const uint16_t* p, int64_t step, const int16_t* w, int32_t n) {
               return clamp16(integerKernel(p, step, w, n));
             });
}

void filterRowsFloat(const float* s, float* d, int32_t rows, int32_t width, const int32_t* indices,
                     const uint8_t* phases, int32_t ss, int32_t ds, int16_t taps, const int16_t* weights) {
  kernelFilter<false>(s, d, rows, width, indices, phases, ss / 4, ds / 4, taps, weights, &floatKernel);
}

void filterColumnsFloat(const float* s, float* d, int32_t rows, int32_t width, const int32_t* indices,
                        const uint8_t* phases, int32_t ss, int32_t ds, int16_t taps, const int16_t* weights) {
  kernelFilter<true>(s, d, rows, width, indices, phases, ss / 4, ds / 4, taps, weights, &floatKernel);
}

// --- box reductions -----------------------------------------------------------

// Output row r: the next counts[r] source rows, (n / 2 + sum) x (2^24 / n) >> 24.
void boxAverageRows8(const uint8_t* s, uint8_t* d, int32_t rows, int32_t width, const int32_t* counts, int32_t ss,
                     int32_t ds) {
  if (rows < 1 || width < 1) return;
  for (int32_t r = 0; r < rows; ++r) {
    const auto n = static_cast<uint32_t>(counts[r]);
    if (n != 0) {
      const uint64_t recip = 16777216u / n;
      for (int32_t x = 0; x < width; ++x) {
        uint64_t sum = n / 2;
        for (uint32_t k = 0; k < n; ++k) sum += rowOf(s, k, ss)[x];
        rowOf(d, r, ds)[x] = static_cast<uint8_t>((sum * recip) >> 24);
      }
      s = rowOf(s, n, ss);
    }
  }
}

// Output sample x of row r: channel x % spp of pixel x / spp, the rounded mean of
// the a x b block of that channel starting at source row r b, pixel (x / spp) a.
void boxReduce8(const uint8_t* s, uint8_t* d, int32_t rows, int32_t width, int32_t ss, int32_t ds, int32_t spp,
                int32_t a, int32_t b) {
  if (ReferenceHost* host = ReferenceHost::active()) host->record({code::rsmp, 24, {word(s), word(d), word(rows), word(width)}});
  if (rows < 1 || width < 1 || spp < 1 || a < 1 || b < 1) return;
  const uint64_t area = static_cast<uint64_t>(a) * static_cast<uint64_t>(b);
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t x = 0; x < width; ++x) {
      const int64_t column = int64_t{x / spp} * a * spp + x % spp;
      uint64_t sum = 0;
      for (int32_t dy = 0; dy < b; ++dy)
        for (int32_t dx = 0; dx < a; ++dx) sum += rowOf(s, int64_t{r} * b + dy, ss)[column + int64_t{dx} * spp];
      rowOf(d, r, ds)[x] = static_cast<uint8_t>((sum + area / 2) / area);
    }
}

// --- remaps -------------------------------------------------------------------

// f/255 of a signed difference, to the nearest integer with ties away from zero.
int32_t scaled(uint32_t f, int32_t diff) {
  const int32_t m = (static_cast<int32_t>(f) * (diff < 0 ? -diff : diff) + 127) / 255;
  return diff < 0 ? -m : m;
}
uint8_t lerp(uint8_t a, uint8_t b, uint32_t f) { return static_cast<uint8_t>(a + scaled(f, b - a)); }

// One coordinate axis: c = coordinate - (first << 16) - bias in 32-bit arithmetic
// (bias 128 interpolating, 32768 nearest), accepted when 0 <= c <= ((end - first)
// << 16) - 65536 as signed 32-bit values.
struct RemapAxis {
  int32_t c;
  bool inside;
  RemapAxis(uint32_t coordinate, int32_t first, int32_t end, bool interpolate) {
    c = static_cast<int32_t>(coordinate - (static_cast<uint32_t>(first) << 16) - (interpolate ? 128u : 32768u));
    const auto limit = static_cast<int32_t>((static_cast<uint32_t>(end - first) << 16) - 65536u);
    inside = c >= 0 && c <= limit;
  }
  int64_t index() const { return c >> 16; }
  uint32_t fraction(bool interpolate) const { return interpolate ? (static_cast<uint32_t>(c) >> 8) & 255u : 0u; }
};

void remapAxis8(const uint32_t* coords, const uint8_t* s, uint8_t* d, int32_t rows, int32_t pixels, int32_t spp,
                int32_t sourceAdvance, int32_t rowStride, int32_t destinationAdvance, int32_t pixelStride,
                int32_t first, int32_t end, int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const bool lerpOn = interpolate != 0;
  for (int32_t r = 0; r < rows; ++r, s += sourceAdvance, d += destinationAdvance)
    for (int32_t p = 0; p < pixels; ++p, d += pixelStride) {
      const RemapAxis axis(*coords++, first, end, lerpOn);
      if (!axis.inside) continue;
      const uint8_t* a = s + axis.index() * rowStride;
      const uint32_t f = axis.fraction(lerpOn);
      for (int32_t k = 0; k < spp; ++k) d[k] = f == 0 ? a[k] : lerp(a[k], a[k + rowStride], f);
    }
}

void remapPlane8(const uint32_t* coords, const uint8_t* s, uint8_t* d, int32_t rows, int32_t pixels, int32_t spp,
                 int32_t ps, int32_t rs, int32_t destinationAdvance, int32_t pixelStride, int32_t firstX,
                 int32_t endX, int32_t firstY, int32_t endY, int16_t interpolate) {
  if (rows < 1 || pixels < 1) return;
  const bool lerpOn = interpolate != 0;
  for (int32_t r = 0; r < rows; ++r, d += destinationAdvance)
    for (int32_t p = 0; p < pixels; ++p, coords += 2, d += pixelStride) {
      const RemapAxis x(coords[0], firstX, endX, lerpOn), y(coords[1], firstY, endY, lerpOn);
      if (!x.inside || !y.inside) continue;
      const uint8_t* a = s + x.index() * ps + y.index() * rs;
      const uint32_t fx = x.fraction(lerpOn), fy = y.fraction(lerpOn);
      for (int32_t k = 0; k < spp; ++k) {
        if (fy == 0)
          d[k] = fx == 0 ? a[k] : lerp(a[k], a[k + ps], fx);
        else if (fx == 0)
          d[k] = lerp(a[k], a[k + rs], fy);
        else
          d[k] = lerp(lerp(a[k], a[k + rs], fy), lerp(a[k + ps], a[k + ps + rs], fy), fx);
      }
    }
}

const PortableRoutine kRoutines[] = {
    portable(slot::BoxAverageRows8, &boxAverageRows8),   portable(slot::FilterRowsSse2_8, &filterRows8),
    portable(slot::FilterColumnsSse2_8, &filterColumns8),    portable(slot::FilterRows16, &filterRows16),
    portable(slot::RemapAxis8, &remapAxis8),       portable(slot::RemapPlane8, &remapPlane8),
    portable(slot::BoxReduce8, &boxReduce8),       portable(slot::FilterRowsFloat, &filterRowsFloat),
    portable(slot::FilterColumnsFloat, &filterColumnsFloat),
};

}  // namespace

std::span<const PortableRoutine> portableResample() { return kRoutines; }

}  // namespace tarnell::refhost
