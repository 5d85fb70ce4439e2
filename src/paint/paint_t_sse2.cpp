// Family T: family P's rules with the colour read per pixel from a source
// channel, as in family S (the second argument is the channel and the dither
// start's x); the opacity is the low byte (8-bit) or the low 16 bits (16-bit)
// of a 32-bit argument that all planes share.
#include "paint/paint_rows_sse2.h"

namespace tarnell::paint {

void PaintT8(int32_t, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t, uint8_t* plane,
             int32_t stride, uint32_t opacity, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const Source8 source{sourceOf<uint8_t>(record, channel), record->sourceStride};
  const int o = static_cast<int>(opacity & 0xFFu);
  dab8<2>(plane, channel, y, rows, columns, stride, record, source, pixelP(o), vectorP(o));
}

void PaintT16(int32_t, int32_t channel, int32_t, int32_t rows, int32_t columns, int32_t, uint16_t* plane,
              int32_t stride, uint32_t opacity, const PaintRecord* record) {
  if (rows < 1 || columns < 1) return;
  const Source16 source{sourceOf<uint16_t>(record, channel), record->sourceStride};
  const uint32_t o = opacity & 0xFFFFu;
  dab16(plane, rows, columns, stride, record, source, alphaTimes(o), alphaTimesV(o));
}

}  // namespace tarnell::paint
