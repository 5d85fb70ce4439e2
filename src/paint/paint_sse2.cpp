// The painting routines' baseline bodies: 16 bytes a vector step.
#include "paint/paint_workers.h"

namespace tarnell::paint {

constinit const PaintTable g_paintSse2 = paintTable<Sse2>();

}  // namespace tarnell::paint
