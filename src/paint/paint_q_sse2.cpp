// Family Q: a colour painted through the mask. The 8-bit worker scales the
// distance to the colour by the mask, the division by 255 ending on one dither
// byte per pixel; the 16-bit worker blends by the mask, without dither.
#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {

void PaintQ8(int32_t, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* plane, int32_t stride,
             uint32_t colour, const PaintRecord* record) {
  dab8<1>(plane, x, y, rows, columns, stride, record, Constant8(static_cast<uint8_t>(colour)), pixelQ(), vectorQ());
}

void PaintQ16(int32_t, int32_t, int32_t, int32_t rows, int32_t columns, uint16_t* plane, int32_t stride,
              uint32_t colour, const PaintRecord* record) {
  dab16(plane, rows, columns, stride, record, Constant16(static_cast<uint16_t>(colour)), alphaMask(), alphaMaskV());
}

}  // namespace tarnell::paint
