// The host's portable painting routines ('pntg'), one pixel at a time from the
// per-pixel rules.
//
// Contracts decided here (see docs/contracts.md, "Painting"):
// - The paint record (PaintRecord): the mask at the rectangle's first pixel and
//   its stride; for families S and T an array of source channels (source[k] is
//   channel k's first sample) with one stride; for slots 18 and 92 a buffer and
//   its stride. Strides are bytes, signed; 16-bit planes step rows by the stride
//   rounded down to an even number of bytes and may start at any byte address.
// - Workers: (a0, x, y, rows, columns, plane, stride, values..., record); family R
//   has its threshold in place of x (its y is unused); families S and T a source
//   channel in place of x, which is also the x of the dither start, and one more
//   leading value a5 after columns. a0 and a5 are never read; the 16-bit workers
//   ignore x and y too. Colours, opacities and thresholds are 32-bit values of
//   which the low byte (8-bit) or the low 16 bits (16-bit) count.
// - Dither: byte k of a call's walk is the registered noise buffer's byte
//   (start + k) mod period; the walk runs over the whole rectangle, row after
//   row, and every pixel takes its one (Q, S, 5, 18) or two (P, T) bytes whether
//   it is painted or not.
// - Rows or columns below 1 do nothing; pixels with a zero mask are not written
//   (family R and slot 9 go by the threshold alone, so threshold 0 fills every
//   pixel). 16-bit mask values and opacities are 0..32768; above that the
//   results are outside the contract.
// - 18 and 92 (yRow, xRow, count, offset, offset2, width, weight, record): for
//   i = 0 .. count - 1 in that order, row xRow + i of the buffer moves toward row
//   yRow + i, over width samples from column offset. The weight is the low byte
//   of its argument. offset2 moves nothing; 18's dither starts from x = offset,
//   y = offset2 and the address of the first sample written, and runs on over
//   the following rows.
#include <cstdint>
#include <cstring>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

using Byte = unsigned char;

// --- planes ---------------------------------------------------------------------

// Sample j of row r: 8-bit rows step by the stride, 16-bit rows by the stride
// rounded down to an even number of bytes.
Byte* at8(const void* first, int32_t stride, int64_t r, int64_t j) {
  return static_cast<Byte*>(const_cast<void*>(first)) + stride * r + j;
}
Byte* at16(const void* first, int32_t stride, int64_t r, int64_t j) {
  const int64_t even = stride - (stride & 1);
  return static_cast<Byte*>(const_cast<void*>(first)) + even * r + 2 * j;
}
uint32_t read16(const Byte* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}
void write16(Byte* p, int64_t v) {
  const auto w = static_cast<uint16_t>(v);
  std::memcpy(p, &w, 2);
}

// --- dither ---------------------------------------------------------------------

class Dither {
 public:
  Dither(int32_t x, int32_t y, const void* destination) {
    const ReferenceHost* host = ReferenceHost::active();
    noise_ = reinterpret_cast<const Byte*>(host->noiseBase());
    period_ = host->noisePeriodBytes();
    const uint32_t s1 = scramble(static_cast<uint32_t>(y));
    const uint32_t s2 = scramble(s1 ^ static_cast<uint32_t>(x));
    const uint32_t s3 = scramble(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(destination)) ^ s2);
    index_ = s3 % 12281u;
  }
  int next() { return noise_[index_++ % period_]; }

 private:
  static uint32_t scramble(uint32_t v) { return (v * 1103515245u + 12345u) >> 3; }
  const Byte* noise_;
  uint64_t period_;
  uint64_t index_;
};

// --- per-pixel rules --------------------------------------------------------------

// m x delta / 255 with the last rounding replaced by the dither byte r.
int scaled(int m, int delta, int r) {
  const int t = m * delta * 257;
  const int t1 = (t + (t >> 16) + 128) >> 8;
  return (t1 + r) >> 8;
}
int moved(int d, int c, int w) { return c > d ? d + w : d - w; }
int gap(int a, int b) { return a > b ? a - b : b - a; }

int ruleQ(int d, int c, int m, int r) { return moved(d, c, scaled(m, gap(c, d), r)); }
int ruleP(int d, int c, int m, int o, int r0, int r1) {
  const int delta = gap(c, d);
  const int t = m * delta * 257;
  const int t1 = (t + (t >> 16) + 128) >> 8;
  const int u = ((t1 + r0) >> 8) * o;
  const int v = (u * 257 + ((u * 257) >> 16) + 128) >> 8;
  return moved(d, c, (v + r1) >> 8);
}
int64_t blend16(int64_t d, int64_t c, int64_t a) { return (c * a + d * (32768 - a) + 16384) >> 15; }
int64_t opacityTimesMask(uint32_t m, uint32_t o) { return ((m * o + 16384u) >> 15) & 0xFFFFu; }

// --- walkers ----------------------------------------------------------------------

// Every pixel of an 8-bit rectangle, with its dither bytes (count per pixel);
// f(d, m, j, r, r0, r1) gives the new sample, called only where the mask is not zero.
template <int Count, class F>
void paint8(uint8_t* plane, int32_t x, int32_t y, int32_t rows, int32_t columns, int32_t stride,
            const PaintRecord* record, F f) {
  if (rows < 1 || columns < 1) return;
  Dither dither(x, y, plane);
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t j = 0; j < columns; ++j) {
      const int r0 = Count >= 1 ? dither.next() : 0;
      const int r1 = Count >= 2 ? dither.next() : 0;
      const int m = *at8(record->mask, record->maskStride, r, j);
      Byte* d = at8(plane, stride, r, j);
      if (m != 0) *d = static_cast<Byte>(f(*d, m, r, j, r0, r1));
    }
}

// Every pixel of a 16-bit rectangle; f(d, m, r, j) gives the new sample, called
// only where the mask is not zero.
template <class F>
void paint16(uint16_t* plane, int32_t rows, int32_t columns, int32_t stride, const PaintRecord* record, F f) {
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t j = 0; j < columns; ++j) {
      const uint32_t m = read16(at16(record->mask, record->maskStride, r, j));
      Byte* d = at16(plane, stride, r, j);
      if (m != 0) write16(d, f(read16(d), m, r, j));
    }
}

// Family R and slot 9: where the mask reaches the threshold, f(d) is written.
template <class F>
void fill8(uint8_t* plane, int32_t threshold, int32_t rows, int32_t columns, int32_t stride,
           const PaintRecord* record, F f) {
  const int t = threshold & 0xFF;
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t j = 0; j < columns; ++j)
      if (*at8(record->mask, record->maskStride, r, j) >= t) {
        Byte* d = at8(plane, stride, r, j);
        *d = static_cast<Byte>(f(*d));
      }
}

int source8(const PaintRecord* record, int32_t channel, int32_t r, int32_t j) {
  return *at8(record->source[channel], record->sourceStride, r, j);
}
int64_t source16(const PaintRecord* record, int32_t channel, int32_t r, int32_t j) {
  return read16(at16(record->source[channel], record->sourceStride, r, j));
}

// --- family P -----------------------------------------------------------------------

void paintP8(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, uint32_t opacity, const PaintRecord* record) {
  const int c = static_cast<int>(colour & 0xFF), o = static_cast<int>(opacity & 0xFF);
  paint8<2>(plane, x, y, rows, columns, stride, record,
            [&](int d, int m, int32_t, int32_t, int r0, int r1) { return ruleP(d, c, m, o, r0, r1); });
}
void paintP16(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, uint32_t opacity, const PaintRecord* record) {
  const int64_t c = colour & 0xFFFF;
  const uint32_t o = opacity & 0xFFFF;
  paint16(plane, rows, columns, stride, record, [&](int64_t d, uint32_t m, int32_t, int32_t) {
    return blend16(d, c, opacityTimesMask(m, o));
  });
}

// --- family Q -----------------------------------------------------------------------

void paintQ8(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, const PaintRecord* record) {
  const int c = static_cast<int>(colour & 0xFF);
  paint8<1>(plane, x, y, rows, columns, stride, record,
            [&](int d, int m, int32_t, int32_t, int r0, int) { return ruleQ(d, c, m, r0); });
}
void paintQ16(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, const PaintRecord* record) {
  const int64_t c = colour & 0xFFFF;
  paint16(plane, rows, columns, stride, record,
          [&](int64_t d, uint32_t m, int32_t, int32_t) { return blend16(d, c, m); });
}

// --- family R -----------------------------------------------------------------------

void paintR8(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, const PaintRecord* record) {
  const int c = static_cast<int>(colour & 0xFF);
  fill8(plane, threshold, rows, columns, stride, record, [&](int) { return c; });
}
void paintR16(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, const PaintRecord* record) {
  const uint32_t t = static_cast<uint32_t>(threshold) & 0xFFFFu;
  const int64_t c = colour & 0xFFFF;
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t j = 0; j < columns; ++j)
      if (read16(at16(record->mask, record->maskStride, r, j)) >= t) write16(at16(plane, stride, r, j), c);
}

// --- family S -----------------------------------------------------------------------

void paintS8(int32_t, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t, uint8_t* plane,
             int32_t stride, const PaintRecord* record) {
  paint8<1>(plane, channel, y, rows, columns, stride, record, [&](int d, int m, int32_t r, int32_t j, int r0, int) {
    return ruleQ(d, source8(record, channel, r, j), m, r0);
  });
}
void paintS16(int32_t, int32_t channel, int32_t, int32_t rows, int32_t columns, int32_t, uint16_t* plane,
              int32_t stride, const PaintRecord* record) {
  paint16(plane, rows, columns, stride, record, [&](int64_t d, uint32_t m, int32_t r, int32_t j) {
    return blend16(d, source16(record, channel, r, j), m);
  });
}

// --- family T -----------------------------------------------------------------------

void paintT8(int32_t, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t, uint8_t* plane,
             int32_t stride, uint32_t opacity, const PaintRecord* record) {
  const int o = static_cast<int>(opacity & 0xFF);
  paint8<2>(plane, channel, y, rows, columns, stride, record, [&](int d, int m, int32_t r, int32_t j, int r0, int r1) {
    return ruleP(d, source8(record, channel, r, j), m, o, r0, r1);
  });
}
void paintT16(int32_t, int32_t channel, int32_t, int32_t rows, int32_t columns, int32_t, uint16_t* plane,
              int32_t stride, uint32_t opacity, const PaintRecord* record) {
  const uint32_t o = opacity & 0xFFFF;
  paint16(plane, rows, columns, stride, record, [&](int64_t d, uint32_t m, int32_t r, int32_t j) {
    return blend16(d, source16(record, channel, r, j), opacityTimesMask(m, o));
  });
}

// --- companions: the worker once per plane, first plane first ------------------------

// P, Q, R: colour k goes to plane k; the other arguments are shared.
template <auto Worker, class T, class... Tail>
void colours3(int32_t a0, int32_t a, int32_t b, int32_t rows, int32_t columns, T* p0, T* p1, T* p2, int32_t stride,
              uint32_t c0, uint32_t c1, uint32_t c2, Tail... tail) {
  Worker(a0, a, b, rows, columns, p0, stride, c0, tail...);
  Worker(a0, a, b, rows, columns, p1, stride, c1, tail...);
  Worker(a0, a, b, rows, columns, p2, stride, c2, tail...);
}
template <auto Worker, class T, class... Tail>
void colours4(int32_t a0, int32_t a, int32_t b, int32_t rows, int32_t columns, T* p0, T* p1, T* p2, T* p3,
              int32_t stride, uint32_t c0, uint32_t c1, uint32_t c2, uint32_t c3, Tail... tail) {
  colours3<Worker, T, Tail...>(a0, a, b, rows, columns, p0, p1, p2, stride, c0, c1, c2, tail...);
  Worker(a0, a, b, rows, columns, p3, stride, c3, tail...);
}

// S, T: plane k gets the second argument plus k (wrapping): it reads channel + k
// and starts its dither from x + k.
int32_t plusK(int32_t channel, uint32_t k) {
  return static_cast<int32_t>(static_cast<uint32_t>(channel) + k);
}
template <auto Worker, class T, class... Tail>
void channels3(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, T* p0, T* p1, T* p2,
               int32_t stride, Tail... tail) {
  Worker(a0, channel, y, rows, columns, a5, p0, stride, tail...);
  Worker(a0, plusK(channel, 1), y, rows, columns, a5, p1, stride, tail...);
  Worker(a0, plusK(channel, 2), y, rows, columns, a5, p2, stride, tail...);
}
template <auto Worker, class T, class... Tail>
void channels4(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, T* p0, T* p1, T* p2,
               T* p3, int32_t stride, Tail... tail) {
  channels3<Worker, T, Tail...>(a0, channel, y, rows, columns, a5, p0, p1, p2, stride, tail...);
  Worker(a0, plusK(channel, 3), y, rows, columns, a5, p3, stride, tail...);
}

using Record = const PaintRecord*;

// --- single entries ---------------------------------------------------------------

// 5: family Q's rule where the colour is above the sample; never lowers it.
void paintSingle5(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
                  uint32_t colour, const PaintRecord* record) {
  const int c = static_cast<int>(colour & 0xFF);
  paint8<1>(plane, x, y, rows, columns, stride, record,
            [&](int d, int m, int32_t, int32_t, int r0, int) { return c > d ? ruleQ(d, c, m, r0) : d; });
}

// 81: the 16-bit counterpart of 5, without dither.
void paintSingle81(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
                   uint32_t colour, const PaintRecord* record) {
  const uint32_t c = colour & 0xFFFF;
  paint16(plane, rows, columns, stride, record, [&](int64_t d, uint32_t m, int32_t, int32_t) -> int64_t {
    if (c <= d) return d;
    return d + ((m * (c - static_cast<uint32_t>(d)) + 16384u) >> 15);
  });
}

// 9: family R's threshold with a raise-only write.
void paintSingle9(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
                  uint32_t colour, const PaintRecord* record) {
  const int c = static_cast<int>(colour & 0xFF);
  fill8(plane, threshold, rows, columns, stride, record, [&](int d) { return d < c ? c : d; });
}

Byte* bufferAt(const PaintRecord* record, int64_t row, int32_t offset, int bytes) {
  return bytes == 1 ? at8(record->buffer, record->bufferStride, row, offset)
                    : at16(record->buffer, record->bufferStride, row, offset);
}

// 18: row xRow + i moves toward row yRow + i by the weight, dithered.
void paintSingle18(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t offset2, int32_t width,
                   int32_t weight, const PaintRecord* record) {
  const int w = weight & 0xFF;
  if (w == 0 || w == 255 || count < 1 || width < 1) return;
  Dither dither(offset, offset2, bufferAt(record, xRow, offset, 1));
  for (int32_t i = 0; i < count; ++i) {
    Byte* x = bufferAt(record, int64_t{xRow} + i, offset, 1);
    const Byte* y = bufferAt(record, int64_t{yRow} + i, offset, 1);
    for (int32_t j = 0; j < width; ++j) {
      const int r = dither.next();
      if (x[j] != y[j]) x[j] = static_cast<Byte>(ruleQ(x[j], y[j], w, r));
    }
  }
}

// 92: the same move on 16-bit samples by (|y - x| w + 127) / 255, without dither.
void paintSingle92(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t, int32_t width, int32_t weight,
                   const PaintRecord* record) {
  const int64_t w = weight & 0xFF;
  if (w == 0 || w == 255 || count < 1 || width < 1) return;
  for (int32_t i = 0; i < count; ++i) {
    Byte* x = bufferAt(record, int64_t{xRow} + i, offset, 2);
    const Byte* y = bufferAt(record, int64_t{yRow} + i, offset, 2);
    for (int32_t j = 0; j < width; ++j) {
      const int64_t xv = read16(x + 2 * j), yv = read16(y + 2 * j);
      const int64_t q = ((yv > xv ? yv - xv : xv - yv) * w + 127) / 255;
      write16(x + 2 * j, yv > xv ? xv + q : xv - q);
    }
  }
}

const PortableRoutine kRoutines[] = {
    portable(slot::PaintP8, &paintP8),
    portable(slot::PaintP8x3, &colours3<paintP8, uint8_t, uint32_t, Record>),
    portable(slot::PaintP8x4, &colours4<paintP8, uint8_t, uint32_t, Record>),
    portable(slot::PaintP16, &paintP16),
    portable(slot::PaintP16x3, &colours3<paintP16, uint16_t, uint32_t, Record>),
    portable(slot::PaintP16x4, &colours4<paintP16, uint16_t, uint32_t, Record>),
    portable(slot::PaintQ8, &paintQ8),
    portable(slot::PaintQ8x3, &colours3<paintQ8, uint8_t, Record>),
    portable(slot::PaintQ8x4, &colours4<paintQ8, uint8_t, Record>),
    portable(slot::PaintQ16, &paintQ16),
    portable(slot::PaintQ16x3, &colours3<paintQ16, uint16_t, Record>),
    portable(slot::PaintQ16x4, &colours4<paintQ16, uint16_t, Record>),
    portable(slot::PaintSingle5, &paintSingle5),
    portable(slot::PaintSingle81, &paintSingle81),
    portable(slot::PaintR8, &paintR8),
    portable(slot::PaintR8x3, &colours3<paintR8, uint8_t, Record>),
    portable(slot::PaintR8x4, &colours4<paintR8, uint8_t, Record>),
    portable(slot::PaintR16, &paintR16),
    portable(slot::PaintR16x3, &colours3<paintR16, uint16_t, Record>),
    portable(slot::PaintR16x4, &colours4<paintR16, uint16_t, Record>),
    portable(slot::PaintS8, &paintS8),
    portable(slot::PaintS8x3, &channels3<paintS8, uint8_t, Record>),
    portable(slot::PaintS8x4, &channels4<paintS8, uint8_t, Record>),
    portable(slot::PaintS16, &paintS16),
    portable(slot::PaintS16x3, &channels3<paintS16, uint16_t, Record>),
    portable(slot::PaintS16x4, &channels4<paintS16, uint16_t, Record>),
    portable(slot::PaintT8, &paintT8),
    portable(slot::PaintT8x3, &channels3<paintT8, uint8_t, uint32_t, Record>),
    portable(slot::PaintT8x4, &channels4<paintT8, uint8_t, uint32_t, Record>),
    portable(slot::PaintT16, &paintT16),
    portable(slot::PaintT16x3, &channels3<paintT16, uint16_t, uint32_t, Record>),
    portable(slot::PaintT16x4, &channels4<paintT16, uint16_t, uint32_t, Record>),
    portable(slot::PaintSingle18, &paintSingle18),
    portable(slot::PaintSingle9, &paintSingle9),
    portable(slot::PaintSingle92, &paintSingle92),
};

}  // namespace

std::span<const PortableRoutine> portablePaint() { return kRoutines; }

}  // namespace tarnell::refhost
