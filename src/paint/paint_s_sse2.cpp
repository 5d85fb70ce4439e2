// Family S: family Q's rules with the colour read per pixel from a source
// channel (the worker's second argument picks it; the companions add the
// plane's number, so each plane reads its own channel).
#include "paint/paint_rows.h"

namespace tarnell::paint {

void PaintS8(uint8_t* plane, int32_t channel, int32_t x, int32_t y, int32_t rows, int32_t columns, int32_t stride,
             const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const Source8 source{sourceOf<uint8_t>(record, channel), record->sourceStride};
  dab8<1>(plane, x, y, rows, columns, stride, record, source, pixelQ(), vectorQ());
}

void PaintS8x3(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, int32_t channel, int32_t x, int32_t y, int32_t rows,
               int32_t columns, int32_t stride, const PaintRecord* record) {
  PaintS8(plane0, channel, x, y, rows, columns, stride, record);
  PaintS8(plane1, channel + 1, x, y, rows, columns, stride, record);
  PaintS8(plane2, channel + 2, x, y, rows, columns, stride, record);
}

void PaintS8x4(uint8_t* plane0, uint8_t* plane1, uint8_t* plane2, uint8_t* plane3, int32_t channel, int32_t x,
               int32_t y, int32_t rows, int32_t columns, int32_t stride, const PaintRecord* record) {
  PaintS8x3(plane0, plane1, plane2, channel, x, y, rows, columns, stride, record);
  PaintS8(plane3, channel + 3, x, y, rows, columns, stride, record);
}

void PaintS16(uint16_t* plane, int32_t channel, int32_t, int32_t, int32_t rows, int32_t columns, int32_t stride,
              const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const Source16 source{sourceOf<uint16_t>(record, channel), record->sourceStride};
  dab16(plane, rows, columns, stride, record, source, alphaMask(), alphaMaskV());
}

void PaintS16x3(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, int32_t channel, int32_t x, int32_t y,
                int32_t rows, int32_t columns, int32_t stride, const PaintRecord* record) {
  PaintS16(plane0, channel, x, y, rows, columns, stride, record);
  PaintS16(plane1, channel + 1, x, y, rows, columns, stride, record);
  PaintS16(plane2, channel + 2, x, y, rows, columns, stride, record);
}

void PaintS16x4(uint16_t* plane0, uint16_t* plane1, uint16_t* plane2, uint16_t* plane3, int32_t channel, int32_t x,
                int32_t y, int32_t rows, int32_t columns, int32_t stride, const PaintRecord* record) {
  PaintS16x3(plane0, plane1, plane2, channel, x, y, rows, columns, stride, record);
  PaintS16(plane3, channel + 3, x, y, rows, columns, stride, record);
}

}  // namespace tarnell::paint
