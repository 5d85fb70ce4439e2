// Angular remap rows (slots 200-202), SSE4.1: the shared row with four columns
// per vector step. Everything stays in this file; the table at the end is the one
// way in.
#include "filter/angular_remap_row.h"

namespace tarnell::filter {
namespace {

template <typename Sample>
void remapRow(const RemapRow& row, Sample background) {
  remapRowWith(row, background, [](const RemapRow& r, const Sample*, Sample*, int32_t) { return r.first; });
}

}  // namespace

constinit const AngularRemapRows g_angularRemapRowsSse41 = {&remapRow<uint8_t>, &remapRow<uint16_t>, &remapRow<float>};

}  // namespace tarnell::filter
