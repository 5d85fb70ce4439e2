// The painting routines, written once over the vector width V (paint_rows_sse2.h):
// each family's 8-bit and 16-bit workers, their three- and four-plane companions,
// and the single entries. paintTable<V>() is one level's table of them; a
// companion in it calls the worker of the same level.
//
// Everything is at internal linkage: each level's file instantiates its own.
#pragma once

#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {
namespace {

using Record = const PaintRecord*;

// ------------------------------------------------------------------ family P
// A colour painted through the mask at an opacity. The 8-bit worker scales the
// distance to the colour by the mask and then by the opacity, each division by
// 255 ending on a dither byte (two per pixel); the 16-bit worker blends by mask
// times opacity, without dither.

template <class V>
void PaintP8(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, uint32_t opacity, Record record) {
  const int o = static_cast<int>(opacity & 0xFFu);
  dab8<V, 2>(plane, x, y, rows, columns, stride, record, Constant8{static_cast<uint8_t>(colour)}, pixelP(o),
             vectorP(o));
}

template <class V>
void PaintP16(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, uint32_t opacity, Record record) {
  const uint32_t o = opacity & 0xFFFFu;
  dab16<V>(plane, rows, columns, stride, record, Constant16{colour & 0xFFFFu}, alphaTimes(o), alphaTimesV(o));
}

// ------------------------------------------------------------------ family Q
// A colour painted through the mask. The 8-bit worker scales the distance to the
// colour by the mask, the division by 255 ending on one dither byte per pixel;
// the 16-bit worker blends by the mask, without dither.

template <class V>
void PaintQ8(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, Record record) {
  dab8<V, 1>(plane, x, y, rows, columns, stride, record, Constant8{static_cast<uint8_t>(colour)}, pixelQ(),
             vectorQ());
}

template <class V>
void PaintQ16(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, Record record) {
  dab16<V>(plane, rows, columns, stride, record, Constant16{colour & 0xFFFFu}, alphaMask(), alphaMaskV());
}

// ------------------------------------------------------------------ family R
// A hard-edged fill. Wherever the mask reaches the threshold (the low byte of the
// worker's second argument, or its low 16 bits for 16-bit painting) the sample
// becomes the colour (its low byte, or low 16 bits); nothing is blended or
// dithered. A vector step whose mask is all below the threshold writes nothing.

template <class V>
void PaintR8(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colourArg, Record record) {
  const auto colour = static_cast<uint8_t>(colourArg);
  threshold8<V>(
      plane, threshold, rows, columns, stride, record, [&](uint8_t) { return colour; },
      [&](auto w, auto load, auto hit, bool all) {
        using W = decltype(w);
        const VecOf<W> cv = W::bytes(colour);
        return all ? cv : select<W>(hit, cv, load());
      });
}

template <class V>
void PaintR16(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colourArg, Record record) {
  if (rows < 1 || columns < 1) return;
  const auto colour = static_cast<uint16_t>(colourArg);
  const auto t = static_cast<uint16_t>(threshold);
  eachRow(plane, rows, stride, maskOf<uint16_t>(record), record->maskStride,
          [&](uint16_t* d, const uint16_t* m, int32_t) {
            walkRow<V>(
                d, columns, [&](int32_t i) { if (get16(m + i) >= t) put16(d + i, colour); },
                [&](auto w, int32_t i, const auto& lanes) {
                  using W = decltype(w);
                  // Unsigned 16-bit order through the signed compare: both sides
                  // biased by 0x8000.
                  const VecOf<W> bias = W::words(0x8000);
                  const VecOf<W> below = W::cmpgt16(W::xor_(W::words(t), bias), W::xor_(W::loadu(m + i), bias));
                  const uint32_t bits = W::movemask(below);
                  if (bits == 0) {
                    lanes.template store<W>(d + i, W::words(colour));
                  } else if (bits != W::kAllBytes) {
                    lanes.template store<W>(d + i, select<W>(below, lanes.template load<W>(d + i), W::words(colour)));
                  }
                });
          });
}

// ------------------------------------------------------------------ family S
// Family Q's rules with the colour read per pixel from a source channel. The
// worker's second argument picks the channel and is the x of the dither start
// too; the companions add the plane's number, so each plane reads its own
// channel and starts its dither from its own x.

template <class V>
void PaintS8(int32_t, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t, uint8_t* plane,
             int32_t stride, Record record) {
  if (rows < 1 || columns < 1) return;
  const Source8 source{sourceOf<uint8_t>(record, channel), record->sourceStride};
  dab8<V, 1>(plane, channel, y, rows, columns, stride, record, source, pixelQ(), vectorQ());
}

template <class V>
void PaintS16(int32_t, int32_t channel, int32_t, int32_t rows, int32_t columns, int32_t, uint16_t* plane,
              int32_t stride, Record record) {
  if (rows < 1 || columns < 1) return;
  const Source16 source{sourceOf<uint16_t>(record, channel), record->sourceStride};
  dab16<V>(plane, rows, columns, stride, record, source, alphaMask(), alphaMaskV());
}

// ------------------------------------------------------------------ family T
// Family P's rules with the colour read per pixel from a source channel, as in
// family S (the second argument is the channel and the dither start's x); the
// opacity is the low byte (8-bit) or the low 16 bits (16-bit) of a 32-bit
// argument that all planes share.

template <class V>
void PaintT8(int32_t, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t, uint8_t* plane,
             int32_t stride, uint32_t opacity, Record record) {
  if (rows < 1 || columns < 1) return;
  const Source8 source{sourceOf<uint8_t>(record, channel), record->sourceStride};
  const int o = static_cast<int>(opacity & 0xFFu);
  dab8<V, 2>(plane, channel, y, rows, columns, stride, record, source, pixelP(o), vectorP(o));
}

template <class V>
void PaintT16(int32_t, int32_t channel, int32_t, int32_t rows, int32_t columns, int32_t, uint16_t* plane,
              int32_t stride, uint32_t opacity, Record record) {
  if (rows < 1 || columns < 1) return;
  const Source16 source{sourceOf<uint16_t>(record, channel), record->sourceStride};
  const uint32_t o = opacity & 0xFFFFu;
  dab16<V>(plane, rows, columns, stride, record, source, alphaTimes(o), alphaTimesV(o));
}

// ------------------------------------------------------------------ companions
// The three- and four-plane companions call their worker once per plane, first
// plane first, with the other arguments unchanged. P, Q, R: colour k goes to
// plane k.

template <auto Worker, class T, class... Tail>
void colours3(int32_t a0, int32_t a, int32_t b, int32_t rows, int32_t columns, T* plane0, T* plane1, T* plane2,
              int32_t stride, uint32_t colour0, uint32_t colour1, uint32_t colour2, Tail... tail) {
  Worker(a0, a, b, rows, columns, plane0, stride, colour0, tail...);
  Worker(a0, a, b, rows, columns, plane1, stride, colour1, tail...);
  Worker(a0, a, b, rows, columns, plane2, stride, colour2, tail...);
}
template <auto Worker, class T, class... Tail>
void colours4(int32_t a0, int32_t a, int32_t b, int32_t rows, int32_t columns, T* plane0, T* plane1, T* plane2,
              T* plane3, int32_t stride, uint32_t colour0, uint32_t colour1, uint32_t colour2, uint32_t colour3,
              Tail... tail) {
  colours3<Worker, T, Tail...>(a0, a, b, rows, columns, plane0, plane1, plane2, stride, colour0, colour1, colour2,
                               tail...);
  Worker(a0, a, b, rows, columns, plane3, stride, colour3, tail...);
}
// S, T: plane k gets the second argument raised by k, so it reads source channel
// + k and starts its dither from x + k.
TARNELL_INLINE int32_t raised(int32_t channel, uint32_t k) {
  return static_cast<int32_t>(static_cast<uint32_t>(channel) + k);
}
template <auto Worker, class T, class... Tail>
void channels3(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, T* plane0,
               T* plane1, T* plane2, int32_t stride, Tail... tail) {
  Worker(a0, channel, y, rows, columns, a5, plane0, stride, tail...);
  Worker(a0, raised(channel, 1), y, rows, columns, a5, plane1, stride, tail...);
  Worker(a0, raised(channel, 2), y, rows, columns, a5, plane2, stride, tail...);
}
template <auto Worker, class T, class... Tail>
void channels4(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, T* plane0,
               T* plane1, T* plane2, T* plane3, int32_t stride, Tail... tail) {
  channels3<Worker, T, Tail...>(a0, channel, y, rows, columns, a5, plane0, plane1, plane2, stride, tail...);
  Worker(a0, raised(channel, 3), y, rows, columns, a5, plane3, stride, tail...);
}

// ------------------------------------------------------------------ single entries
// Raise-only painting (5, 81), the raise-only threshold fill (9), and the two-row
// moves inside the record's buffer (18, 92).

template <class V>
void PaintSingle5(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
                  uint32_t colour, Record record) {
  dab8<V, 1>(
      plane, x, y, rows, columns, stride, record, Constant8{static_cast<uint8_t>(colour)},
      [](int d, int c, int m, uint32_t r0, uint32_t) {
        return c > d ? stepQ(d, c, m, static_cast<int>(r0)) : static_cast<uint8_t>(d);
      },
      [](auto w, auto d, auto c, auto m, const Noise& n) { return raiseQV<decltype(w)>(d, c, m, n); });
}

template <class V>
void PaintSingle81(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
                   uint32_t colour, Record record) {
  if (rows < 1 || columns < 1) return;
  const uint32_t c = colour & 0xFFFFu;
  eachRow(plane, rows, stride, maskOf<uint16_t>(record), record->maskStride,
          [&](uint16_t* d, const uint16_t* m, int32_t) {
            walkRow<V>(
                d, columns,
                [&](int32_t i) {
                  const uint32_t mi = get16(m + i), di = get16(d + i);
                  if (mi != 0 && c > di) put16(d + i, di + mulRound15(mi, c - di));
                },
                [&](auto w, int32_t i, const auto& lanes) {
                  using W = decltype(w);
                  const VecOf<W> mv = W::loadu(m + i);
                  if (allZero<W>(mv)) return;
                  const VecOf<W> dv = lanes.template load<W>(d + i);
                  lanes.template store<W>(
                      d + i, W::add16(dv, mulRound15V<W>(mv, W::subsu16(W::words(static_cast<int>(c)), dv))));
                });
          });
}

template <class V>
void PaintSingle9(int32_t, int32_t threshold, int32_t, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
                  uint32_t colourArg, Record record) {
  const auto colour = static_cast<uint8_t>(colourArg);
  threshold8<V>(
      plane, threshold, rows, columns, stride, record, [&](uint8_t d) { return d < colour ? colour : d; },
      [&](auto w, auto load, auto hit, bool) {
        using W = decltype(w);
        const VecOf<W> dv = load();
        return select<W>(hit, W::maxu8(dv, W::bytes(colour)), dv);
      });
}

// Row n of the record's buffer at the call's offset.
template <class T>
TARNELL_INLINE T* bufferRow(Record record, int32_t n, int32_t offset) {
  return rowOf(static_cast<T*>(record->buffer), record->bufferStride, n) + offset;
}

// The dither starts from (offset, offset2) and the first sample written.
template <class V>
void PaintSingle18(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t offset2, int32_t width,
                   int32_t weight, Record record) {
  const int w = weight & 0xFF;
  if (w == 0 || w == 255 || count < 1 || width < 1) return;
  Dither dither(offset, offset2, bufferRow<uint8_t>(record, xRow, offset));
  alignas(32) uint8_t scratch[2 * Dither::kRun];
  for (int32_t i = 0; i < count; ++i) {
    uint8_t* x = bufferRow<uint8_t>(record, xRow + i, offset);
    const uint8_t* y = bufferRow<const uint8_t>(record, yRow + i, offset);
    walkRow<V>(
        x, width, [&](int32_t j) { x[j] = stepQ(x[j], y[j], w, static_cast<int>(dither.next())); },
        [&](auto v, int32_t j, const auto& lanes) {
          using W = decltype(v);
          const Noise n = lanes.template noise<W, 1>(dither, scratch);
          lanes.template store<W>(x + j, stepQV<W>(lanes.template load<W>(x + j), W::loadu(y + j), W::bytes(w), n));
        });
  }
}

template <class V>
void PaintSingle92(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t, int32_t width, int32_t weight,
                   Record record) {
  const uint32_t w = static_cast<uint32_t>(weight) & 0xFFu;
  if (w == 0 || w == 255 || count < 1 || width < 1) return;
  // floor(v / 255) for v below 2^16 is (v * 0x8081) >> 23: a high multiply and a
  // shift. The product |y - x| w reaches 2^24, so it is split: with
  // |y - x| = 255 a + b, (|y - x| w + 127) / 255 = a w + (b w + 127) / 255.
  for (int32_t i = 0; i < count; ++i) {
    uint16_t* x = bufferRow<uint16_t>(record, xRow + i, offset);
    const uint16_t* y = bufferRow<const uint16_t>(record, yRow + i, offset);
    walkRow<V>(
        x, width,
        [&](int32_t j) {
          const uint32_t xv = get16(x + j), yv = get16(y + j);
          const uint32_t q = ((yv > xv ? yv - xv : xv - yv) * w + 127u) / 255u;
          put16(x + j, yv >= xv ? xv + q : xv - q);
        },
        [&](auto v, int32_t j, const auto& lanes) {
          using W = decltype(v);
          const VecOf<W> k8081 = W::words(0x8081), wv = W::words(static_cast<int>(w));
          const VecOf<W> xv = lanes.template load<W>(x + j), yv = W::loadu(y + j);
          const VecOf<W> down = W::subsu16(xv, yv);
          const VecOf<W> distance = W::or_(W::subsu16(yv, xv), down);
          const VecOf<W> a = W::srl16(W::mulhiu16(distance, k8081), 7);
          const VecOf<W> b = W::sub16(distance, W::mullo16(a, W::words(255)));
          const VecOf<W> rest = W::add16(W::mullo16(b, wv), W::words(127));
          const VecOf<W> q = W::add16(W::mullo16(a, wv), W::srl16(W::mulhiu16(rest, k8081), 7));
          const VecOf<W> rising = W::cmpeq16(down, W::zero());
          lanes.template store<W>(x + j, W::sub16(W::add16(xv, W::and_(rising, q)), W::andnot(rising, q)));
        });
  }
}

// ------------------------------------------------------------------ the table

template <class V>
constexpr PaintTable paintTable() {
  using u8 = uint8_t;
  using u16 = uint16_t;
  return {
      .PaintP8 = &PaintP8<V>,
      .PaintP8x3 = &colours3<&PaintP8<V>, u8, uint32_t, Record>,
      .PaintP8x4 = &colours4<&PaintP8<V>, u8, uint32_t, Record>,
      .PaintP16 = &PaintP16<V>,
      .PaintP16x3 = &colours3<&PaintP16<V>, u16, uint32_t, Record>,
      .PaintP16x4 = &colours4<&PaintP16<V>, u16, uint32_t, Record>,
      .PaintQ8 = &PaintQ8<V>,
      .PaintQ8x3 = &colours3<&PaintQ8<V>, u8, Record>,
      .PaintQ8x4 = &colours4<&PaintQ8<V>, u8, Record>,
      .PaintQ16 = &PaintQ16<V>,
      .PaintQ16x3 = &colours3<&PaintQ16<V>, u16, Record>,
      .PaintQ16x4 = &colours4<&PaintQ16<V>, u16, Record>,
      .PaintSingle5 = &PaintSingle5<V>,
      .PaintSingle81 = &PaintSingle81<V>,
      .PaintR8 = &PaintR8<V>,
      .PaintR8x3 = &colours3<&PaintR8<V>, u8, Record>,
      .PaintR8x4 = &colours4<&PaintR8<V>, u8, Record>,
      .PaintR16 = &PaintR16<V>,
      .PaintR16x3 = &colours3<&PaintR16<V>, u16, Record>,
      .PaintR16x4 = &colours4<&PaintR16<V>, u16, Record>,
      .PaintS8 = &PaintS8<V>,
      .PaintS8x3 = &channels3<&PaintS8<V>, u8, Record>,
      .PaintS8x4 = &channels4<&PaintS8<V>, u8, Record>,
      .PaintS16 = &PaintS16<V>,
      .PaintS16x3 = &channels3<&PaintS16<V>, u16, Record>,
      .PaintS16x4 = &channels4<&PaintS16<V>, u16, Record>,
      .PaintT8 = &PaintT8<V>,
      .PaintT8x3 = &channels3<&PaintT8<V>, u8, uint32_t, Record>,
      .PaintT8x4 = &channels4<&PaintT8<V>, u8, uint32_t, Record>,
      .PaintT16 = &PaintT16<V>,
      .PaintT16x3 = &channels3<&PaintT16<V>, u16, uint32_t, Record>,
      .PaintT16x4 = &channels4<&PaintT16<V>, u16, uint32_t, Record>,
      .PaintSingle18 = &PaintSingle18<V>,
      .PaintSingle9 = &PaintSingle9<V>,
      .PaintSingle92 = &PaintSingle92<V>,
  };
}

}  // namespace
}  // namespace tarnell::paint
