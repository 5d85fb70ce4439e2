// The 'rsmp' installer: three steps, each gated by its own flag and written in
// this order, so that the SSE2 filters replace the SSE ones in slots 5 and 6.
#include "host/install.h"
#include "host/module_state.h"
#include "resample/resample_routines.h"

// Slot 7 resamples a run by a real-valued ratio; its argument list and output rule
// are the host's alone, so the slot gets a jump to the host's own routine: it is
// forwarded, not accelerated.
TARNELL_FORWARDER(ResampleByRatio8, kRsmp, 7);

namespace tarnell {

void installResample(const SuiteWriter<code::rsmp>& w, const CpuFeatureFlags& flags) {
  using namespace resample;
  if (flags.sse != 0) {
    w.write(7, reinterpret_cast<HostRoutine>(&ResampleByRatio8));
    w.put<5>(&FilterRowsScalar8);
    w.put<6>(&FilterColumns8);
    w.put<18>(&RemapAxis8);
    w.put<19>(&RemapPlane8);
    w.put<24>(&BoxReduce8);
    w.put<13>(&FilterRows16);
  }
  if (flags.sse2 != 0) {
    w.put<5>(&FilterRowsSse2_8);
    w.put<6>(&FilterColumnsSse2_8);
    w.put<3>(&BoxAverageRows8);
    w.put<27>(&FilterColumnsFloat);
  }
  if (flags.sse41 != 0) w.put<26>(g_resampleSse41.filterRowsFloat);
}

int32_t InstallResampleRoutines(HostInfo* /*hostInfo*/) {
  installResample(SuiteWriter<code::rsmp>(g_liveTables[suiteIndexOf(code::rsmp)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
