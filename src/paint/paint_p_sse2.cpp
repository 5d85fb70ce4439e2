// Family P: a colour painted through the mask at an opacity. The 8-bit worker
// scales the distance to the colour by the mask and then by the opacity, each
// division by 255 ending on a dither byte (two per pixel); the 16-bit worker
// blends by mask times opacity, without dither.
#include "paint/paint_rows.h"

namespace tarnell::paint {

void PaintP8(uint8_t* plane, int32_t x, int32_t y, int32_t rows, int32_t columns, int32_t stride, uint8_t colour,
             uint8_t opacity, const PaintRecord* record) {
  dab8<2>(plane, x, y, rows, columns, stride, record, Constant8(colour), pixelP(opacity), vectorP(opacity));
}

void PaintP8x3(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, int32_t x, int32_t y, int32_t rows,
               int32_t columns, int32_t stride, uint8_t colour0, uint8_t colour1, uint8_t colour2, uint8_t opacity,
               const PaintRecord* record) {
  PaintP8(plane0, x, y, rows, columns, stride, colour0, opacity, record);
  PaintP8(plane1, x, y, rows, columns, stride, colour1, opacity, record);
  PaintP8(plane2, x, y, rows, columns, stride, colour2, opacity, record);
}

void PaintP8x4(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, uint8_t* plane3, int32_t x, int32_t y, int32_t rows,
               int32_t columns, int32_t stride, uint8_t colour0, uint8_t colour1, uint8_t colour2, uint8_t colour3,
               uint8_t opacity, const PaintRecord* record) {
  PaintP8x3(plane0, plane1, plane2, x, y, rows, columns, stride, colour0, colour1, colour2, opacity, record);
  PaintP8(plane3, x, y, rows, columns, stride, colour3, opacity, record);
}

void PaintP16(uint16_t* plane, int32_t, int32_t, int32_t rows, int32_t columns, int32_t stride, uint16_t colour,
              uint16_t opacity, const PaintRecord* record) {
  dab16(plane, rows, columns, stride, record, Constant16(colour), alphaTimes(opacity), alphaTimesV(opacity));
}

void PaintP16x3(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, int32_t x, int32_t y, int32_t rows,
                int32_t columns, int32_t stride, uint16_t colour0, uint16_t colour1, uint16_t colour2,
                uint16_t opacity, const PaintRecord* record) {
  PaintP16(plane0, x, y, rows, columns, stride, colour0, opacity, record);
  PaintP16(plane1, x, y, rows, columns, stride, colour1, opacity, record);
  PaintP16(plane2, x, y, rows, columns, stride, colour2, opacity, record);
}

void PaintP16x4(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, uint16_t* plane3, int32_t x, int32_t y,
                int32_t rows, int32_t columns, int32_t stride, uint16_t colour0, uint16_t colour1, uint16_t colour2,
                uint16_t colour3, uint16_t opacity, const PaintRecord* record) {
  PaintP16x3(plane0, plane1, plane2, x, y, rows, columns, stride, colour0, colour1, colour2, opacity, record);
  PaintP16(plane3, x, y, rows, columns, stride, colour3, opacity, record);
}

}  // namespace tarnell::paint
