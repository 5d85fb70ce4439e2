// Family Q: a colour painted through the mask. The 8-bit worker scales the
// distance to the colour by the mask, the division by 255 ending on one dither
// byte per pixel; the 16-bit worker blends by the mask, without dither.
#include "paint/paint_rows.h"

namespace tarnell::paint {

void PaintQ8(uint8_t* plane, int32_t x, int32_t y, int32_t rows, int32_t columns, int32_t stride, uint8_t colour,
             const PaintRecord* record) {
  dab8<1>(plane, x, y, rows, columns, stride, record, Constant8(colour), pixelQ(), vectorQ());
}

void PaintQ8x3(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, int32_t x, int32_t y, int32_t rows,
               int32_t columns, int32_t stride, uint8_t colour0, uint8_t colour1, uint8_t colour2,
               const PaintRecord* record) {
  PaintQ8(plane0, x, y, rows, columns, stride, colour0, record);
  PaintQ8(plane1, x, y, rows, columns, stride, colour1, record);
  PaintQ8(plane2, x, y, rows, columns, stride, colour2, record);
}

void PaintQ8x4(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, uint8_t* plane3, int32_t x, int32_t y, int32_t rows,
               int32_t columns, int32_t stride, uint8_t colour0, uint8_t colour1, uint8_t colour2, uint8_t colour3,
               const PaintRecord* record) {
  PaintQ8x3(plane0, plane1, plane2, x, y, rows, columns, stride, colour0, colour1, colour2, record);
  PaintQ8(plane3, x, y, rows, columns, stride, colour3, record);
}

void PaintQ16(uint16_t* plane, int32_t, int32_t, int32_t rows, int32_t columns, int32_t stride, uint16_t colour,
              const PaintRecord* record) {
  dab16(plane, rows, columns, stride, record, Constant16(colour), alphaMask(), alphaMaskV());
}

void PaintQ16x3(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, int32_t x, int32_t y, int32_t rows,
                int32_t columns, int32_t stride, uint16_t colour0, uint16_t colour1, uint16_t colour2,
                const PaintRecord* record) {
  PaintQ16(plane0, x, y, rows, columns, stride, colour0, record);
  PaintQ16(plane1, x, y, rows, columns, stride, colour1, record);
  PaintQ16(plane2, x, y, rows, columns, stride, colour2, record);
}

void PaintQ16x4(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, uint16_t* plane3, int32_t x, int32_t y,
                int32_t rows, int32_t columns, int32_t stride, uint16_t colour0, uint16_t colour1, uint16_t colour2,
                uint16_t colour3, const PaintRecord* record) {
  PaintQ16x3(plane0, plane1, plane2, x, y, rows, columns, stride, colour0, colour1, colour2, record);
  PaintQ16(plane3, x, y, rows, columns, stride, colour3, record);
}

}  // namespace tarnell::paint
