#include "host/install.h"
#include "host/module_state.h"
#include "paint/paint.h"

// Slots 38 and 79 keep the host's routines: nothing but their argument shapes is
// known, so the module installs jumps to them and implements neither.
TARNELL_FORWARDER(paintForward38, kPntg, 38);
TARNELL_FORWARDER(paintForward79, kPntg, 79);

namespace tarnell {

// All 37 entries with SSE2, in the suite's order, each once; nothing without it.
void installPaint(const SuiteWriter<code::pntg>& w, const CpuFeatureFlags& flags) {
  using namespace paint;
  if (flags.sse2 == 0) return;
  w.put<10>(&PaintP8);
  w.put<28>(PaintP8x3);
  w.put<29>(PaintP8x4);
  w.put<61>(&PaintP16);
  w.put<62>(PaintP16x3);
  w.put<63>(PaintP16x4);
  w.put<4>(&PaintQ8);
  w.put<26>(PaintQ8x3);
  w.put<27>(PaintQ8x4);
  w.put<55>(&PaintQ16);
  w.put<56>(PaintQ16x3);
  w.put<57>(PaintQ16x4);
  w.put<5>(&PaintSingle5);
  w.put<81>(&PaintSingle81);
  w.put<7>(&PaintR8);
  w.put<24>(PaintR8x3);
  w.put<25>(PaintR8x4);
  w.put<58>(&PaintR16);
  w.put<59>(PaintR16x3);
  w.put<60>(PaintR16x4);
  w.put<17>(&PaintS8);
  w.put<34>(PaintS8x3);
  w.put<35>(PaintS8x4);
  w.put<84>(&PaintS16);
  w.put<85>(PaintS16x3);
  w.put<86>(PaintS16x4);
  w.put<13>(&PaintT8);
  w.put<36>(PaintT8x3);
  w.put<37>(PaintT8x4);
  w.put<87>(&PaintT16);
  w.put<88>(PaintT16x3);
  w.put<89>(PaintT16x4);
  w.put<18>(&PaintSingle18);
  w.write(38, reinterpret_cast<HostRoutine>(&paintForward38));
  w.put<9>(&PaintSingle9);
  w.put<92>(&PaintSingle92);
  w.write(79, reinterpret_cast<HostRoutine>(&paintForward79));
}

// The start-up step that installs the painting routines.
int32_t InstallPaintRoutines(HostInfo* /*hostInfo*/) {
  installPaint(SuiteWriter<code::pntg>(g_liveTables[suiteIndexOf(code::pntg)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
