// The overlay and screen routines, AVX2: the SSE2 bodies (overlay8_bodies.h)
// built for AVX2, so that after the scalar head and one 16-sample step to a
// 32-byte boundary they run 32 samples a step (blend8_vectors.h). Each sample
// is computed by the same rule on every path, so the bytes are the SSE2 bodies';
// the staging and the sample-by-sample rows are theirs too. Everything stays in
// this file (anonymous namespace); the table at the end is the one way in.
// Measured on the development machine (AMD EPYC, Zen 4 class) at 256x256
// (tarnell-host bench --tier sse2,avx2, median of three): about twice the SSE2
// bodies' speed, 17 to 50 times the host's routines (the SSE2 bodies 9 to 24).
#include <immintrin.h>

#include "blend/blend8.h"
#include "blend/overlay8_bodies.h"

namespace tarnell::blend8 {

constinit const Blend8Table g_overlay8Avx2 = overlayTable();

}  // namespace tarnell::blend8
