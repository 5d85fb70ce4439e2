// The SSE2 integer kernel filters: FilterRowsSse2_8 (slot 5) and FilterRows16
// (slot 13), horizontal, four outputs per vector step with loops of their own for
// 2, 4, 6, 8, 10 and 16 taps; FilterColumnsSse2_8 (slot 6), vertical. The body is
// kernel_filters_body.h's; the AVX2 file builds it with wider steps.
#include "resample/kernel_filters_body.h"
#include "resample/resample_routines.h"

namespace tarnell::resample {

// ---------------------------------------------------------------- slot 5
// FilterRowsSse2_8: the 8-bit horizontal kernel filter, four outputs per vector
// step, with loops of their own for 2, 4, 6, 8, 10 and 16 taps.
void FilterRowsSse2_8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                      const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                      const int16_t* weights) {
  filterRows<ByteSamples, Sse2Rows>(source, destination, rows, width, indices, phases, sourceStride, destinationStride,
                                    taps, weights);
}

// --------------------------------------------------------------- slot 13
// FilterRows16: the 16-bit horizontal kernel filter (full scale 32768). Strides
// count bytes and are halved, truncating. Same loops as the 8-bit filter: the
// samples enter the multiply-add offset by 32768, which the bias puts back.
void FilterRows16(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t width, const int32_t* indices,
                  const uint8_t* phases, int32_t sourceStride, int32_t destinationStride, int16_t taps,
                  const int16_t* weights) {
  filterRows<WordSamples, Sse2Rows>(source, destination, rows, width, indices, phases, sourceStride / 2,
                                    destinationStride / 2, taps, weights);
}

// ---------------------------------------------------------------- slot 6
// FilterColumnsSse2_8: the 8-bit vertical kernel filter. Every sample of an output
// row uses the same weights, so rows are taken two at a time: their bytes are
// interleaved and multiply-added with a (weight, weight) pair, sixteen samples per
// step, then four, then one. 0 or 1 tap copies source row indices[r] + 1 through
// the live 'memo' slot 0.
void FilterColumnsSse2_8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width,
                         const int32_t* indices, const uint8_t* phases, int32_t sourceStride, int32_t destinationStride,
                         int16_t taps, const int16_t* weights) {
  eachColumnRow(source, destination, rows, width, indices, phases, sourceStride, destinationStride, taps, weights,
                copyRow, [&](const uint8_t* row0, const int16_t* w, uint8_t* d) {
                  columnRowFor<NoWideColumns>(row0, sourceStride, w, taps, d, width);
                });
}

}  // namespace tarnell::resample
