#include "host/install.h"
#include "host/module_state.h"
#include "paint/paint.h"

// Slots 38 and 79 keep the host's routines: nothing but their argument shapes is
// known, so the module installs jumps to them and implements neither.
TARNELL_FORWARDER(paintForward38, kPntg, 38);
TARNELL_FORWARDER(paintForward79, kPntg, 79);

namespace tarnell {

// All 37 entries with SSE2, in the suite's order, each once; nothing without it.
// The kernel table decides each routine's body (a companion's calls the worker
// body of its own level).
void installPaint(const SuiteWriter<code::pntg>& w, const CpuFeatureFlags& flags) {
  if (flags.sse2 == 0) return;
  w.put(slot::PaintP8);
  w.put(slot::PaintP8x3);
  w.put(slot::PaintP8x4);
  w.put(slot::PaintP16);
  w.put(slot::PaintP16x3);
  w.put(slot::PaintP16x4);
  w.put(slot::PaintQ8);
  w.put(slot::PaintQ8x3);
  w.put(slot::PaintQ8x4);
  w.put(slot::PaintQ16);
  w.put(slot::PaintQ16x3);
  w.put(slot::PaintQ16x4);
  w.put(slot::PaintSingle5);
  w.put(slot::PaintSingle81);
  w.put(slot::PaintR8);
  w.put(slot::PaintR8x3);
  w.put(slot::PaintR8x4);
  w.put(slot::PaintR16);
  w.put(slot::PaintR16x3);
  w.put(slot::PaintR16x4);
  w.put(slot::PaintS8);
  w.put(slot::PaintS8x3);
  w.put(slot::PaintS8x4);
  w.put(slot::PaintS16);
  w.put(slot::PaintS16x3);
  w.put(slot::PaintS16x4);
  w.put(slot::PaintT8);
  w.put(slot::PaintT8x3);
  w.put(slot::PaintT8x4);
  w.put(slot::PaintT16);
  w.put(slot::PaintT16x3);
  w.put(slot::PaintT16x4);
  w.put(slot::PaintSingle18);
  w.forward(slot::PaintSingle38, &paintForward38);
  w.put(slot::PaintSingle9);
  w.put(slot::PaintSingle92);
  w.forward(slot::PaintSingle79, &paintForward79);
}

// The start-up step that installs the painting routines.
int32_t InstallPaintRoutines(HostInfo* /*hostInfo*/) {
  installPaint(SuiteWriter<code::pntg>(g_liveTables[kPntg], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
