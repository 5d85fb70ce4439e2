// The overlay and screen routines, SSE2: the table-driven routines' bits
// computed 16 samples a vector step (overlay8_bodies.h says why they are the
// same), with their staging. The plain bodies (blend8_tables.cpp) serve a
// processor with SSE and no SSE2.
#include <emmintrin.h>

#include "blend/blend8.h"
#include "blend/overlay8_bodies.h"

namespace tarnell::blend8 {

constinit const Blend8Table g_overlay8Sse2 = overlayTable();

}  // namespace tarnell::blend8
