// Family P: a colour painted through the mask at an opacity. The 8-bit worker
// scales the distance to the colour by the mask and then by the opacity, each
// division by 255 ending on a dither byte (two per pixel); the 16-bit worker
// blends by mask times opacity, without dither.
#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {

void PaintP8(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, uint32_t opacity, const PaintRecord* record) {
  const int o = static_cast<int>(opacity & 0xFFu);
  dab8<2>(plane, x, y, rows, columns, stride, record, Constant8(static_cast<uint8_t>(colour)), pixelP(o), vectorP(o));
}

void PaintP16(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, uint32_t opacity, const PaintRecord* record) {
  const uint32_t o = opacity & 0xFFFFu;
  dab16(plane, rows, columns, stride, record, Constant16(static_cast<uint16_t>(colour)), alphaTimes(o),
        alphaTimesV(o));
}

}  // namespace tarnell::paint
