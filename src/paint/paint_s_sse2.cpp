// Family S: family Q's rules with the colour read per pixel from a source
// channel. The worker's second argument picks the channel and is the x of the
// dither start too; the companions add the plane's number, so each plane reads
// its own channel and starts its dither from its own x.
#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {

void PaintS8(int32_t, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t, uint8_t* plane,
             int32_t stride, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const Source8 source{sourceOf<uint8_t>(record, channel), record->sourceStride};
  dab8<1>(plane, channel, y, rows, columns, stride, record, source, pixelQ(), vectorQ());
}

void PaintS16(int32_t, int32_t channel, int32_t, int32_t rows, int32_t columns, int32_t, uint16_t* plane,
              int32_t stride, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const Source16 source{sourceOf<uint16_t>(record, channel), record->sourceStride};
  dab16(plane, rows, columns, stride, record, source, alphaMask(), alphaMaskV());
}

}  // namespace tarnell::paint
