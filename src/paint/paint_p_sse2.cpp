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

void PaintP16(uint16_t* plane, int32_t, int32_t, int32_t rows, int32_t columns, int32_t stride, uint16_t colour,
              uint16_t opacity, const PaintRecord* record) {
  dab16(plane, rows, columns, stride, record, Constant16(colour), alphaTimes(opacity), alphaTimesV(opacity));
}

}  // namespace tarnell::paint
