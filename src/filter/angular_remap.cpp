// Angular remap (slots 200-202), the per-call and per-row part: the limits of
// the visible source, each row's elevation and visible span. It uses the
// library's tangent, which is why it is baseline code; each row is then done by
// a row kernel (angular_remap_sse41.cpp, angular_remap_avx2.cpp). Installed with
// SSE4.1 only.
#include <cmath>

#include "filter/filter.h"

namespace tarnell::filter {

namespace {

// ceil/floor of a span end, clamped to the row before conversion so that an
// infinite limit (a turn that puts the source edge behind the viewer) gives an
// empty or a full span rather than an undefined conversion.
int32_t firstColumn(float v, int32_t width) {
  const float c = std::ceil(v);
  if (!(c > 0.0f)) return 0;
  return c < static_cast<float>(width) ? static_cast<int32_t>(c) : width;
}
int32_t lastColumn(float v, int32_t width) {
  const float c = std::floor(v);
  if (!(c < static_cast<float>(width - 1))) return width - 1;
  return c > -1.0f ? static_cast<int32_t>(c) : -1;
}

// The slot's routine for one sample kind; Kernel is its row kernel in one level's
// table (SSE4.1 or AVX2). The unread words (8, 10, 12, 14) are accepted and ignored.
template <typename Sample, typename Background, typename Value, const AngularRemapRows* Rows, auto Kernel>
void remap(const Sample* source, Sample* destination, int32_t rows, int32_t sourceWidth, int32_t destinationWidth,
           int32_t sourceStride, int32_t destinationStride, uintptr_t, Background backgroundValue, uintptr_t,
           float turn, uintptr_t, float centre, uintptr_t, float scale, float rowCentre, float columnCentre,
           float rowScale, float focal) {
  // Rows or destination columns below 1: nothing to do (a span clamped to a row of
  // fewer than one column would start before the row).
  if (rows < 1 || destinationWidth < 1) return;
  const auto kernel = Rows->*Kernel;
  const auto background = static_cast<Value>(backgroundValue);
  RemapRow row{};
  row.destinationWidth = destinationWidth;
  row.t = std::tan(turn);
  row.ft = focal * row.t;
  row.centre = centre, row.scale = scale, row.columnCentre = columnCentre, row.focal = focal;
  // tan(turn - atan(A/S)) and tan(atan(((W - 1) - A)/S) + turn): the visible
  // source edges as tangents in the turned view.
  const float leftRatio = centre / scale;
  const float lower = (row.t - leftRatio) / (leftRatio * row.t + 1.0f);
  const float rightRatio = (static_cast<float>(sourceWidth - 1) - centre) / scale;
  const float upper = (rightRatio + row.t) / (1.0f - row.t * rightRatio);
  // Each row's elevation and span is a long chain of dependent operations; a
  // batch of rows is set up first so that the chains of different rows overlap.
  constexpr int32_t kBatch = 8;
  float k[kBatch];
  int32_t first[kBatch], last[kBatch];
  for (int32_t y0 = 0; y0 < rows; y0 += kBatch) {
    const int32_t n = rows - y0 < kBatch ? rows - y0 : kBatch;
    for (int32_t b = 0; b < n; ++b) {
      const float e = std::tan((static_cast<float>(y0 + b) - rowCentre) / rowScale);
      const double e2 = static_cast<double>(e);
      k[b] = static_cast<float>(std::sqrt(e2 * e2 + 1.0));
      first[b] = firstColumn(lower / k[b] * focal + columnCentre, destinationWidth);
      last[b] = lastColumn(upper / k[b] * focal + columnCentre, destinationWidth);
    }
    for (int32_t b = 0; b < n; ++b) {
      const int32_t y = y0 + b;
      row.k = k[b], row.first = first[b], row.last = last[b];
      row.source = reinterpret_cast<const unsigned char*>(source) + intptr_t{sourceStride} * y;
      row.destination = reinterpret_cast<unsigned char*>(destination) + intptr_t{destinationStride} * y;
      kernel(row, background);
    }
  }
}

}  // namespace

constinit const FilterTable g_angularRemapSse41 = {
    .angularRemap8 = &remap<uint8_t, uint8_t, uint8_t, &g_angularRemapRowsSse41, &AngularRemapRows::row8>,
    .angularRemap16 = &remap<uint16_t, uint16_t, uint16_t, &g_angularRemapRowsSse41, &AngularRemapRows::row16>,
    .angularRemapSlot202 = &remap<float, int32_t, float, &g_angularRemapRowsSse41, &AngularRemapRows::rowFloat>};
constinit const FilterTable g_angularRemapAvx2 = {
    .angularRemap8 = &remap<uint8_t, uint8_t, uint8_t, &g_angularRemapRowsAvx2, &AngularRemapRows::row8>,
    .angularRemap16 = &remap<uint16_t, uint16_t, uint16_t, &g_angularRemapRowsAvx2, &AngularRemapRows::row16>,
    .angularRemapSlot202 = &remap<float, int32_t, float, &g_angularRemapRowsAvx2, &AngularRemapRows::rowFloat>};

}  // namespace tarnell::filter
