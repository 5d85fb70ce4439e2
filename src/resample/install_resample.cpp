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
  // The second SSE report gates this suite (the first is the start-up's).
  if (flags.sseSecond != 0) {
    w.forward(slot::ResampleByRatio8, &ResampleByRatio8);
    w.put(slot::FilterRowsSse2_8, &FilterRowsScalar8);
    w.put(slot::FilterColumnsSse2_8, &FilterColumns8);
    w.put(slot::RemapAxis8, &RemapAxis8);
    w.put(slot::RemapPlane8, &RemapPlane8);
    w.put(slot::BoxReduce8, &BoxReduce8);
    w.put(slot::FilterRows16, &FilterRows16);
  }
  if (flags.sse2 != 0) {
    w.put(slot::FilterRowsSse2_8, &FilterRowsSse2_8);
    w.put(slot::FilterColumnsSse2_8, &FilterColumnsSse2_8);
    w.put(slot::BoxAverageRows8, &BoxAverageRows8);
    w.put(slot::FilterColumnsFloat, &FilterColumnsFloat);
  }
  if (flags.sse41 != 0) w.put(slot::FilterRowsFloat);
}

int32_t InstallResampleRoutines(HostInfo* /*hostInfo*/) {
  installResample(SuiteWriter<code::rsmp>(g_liveTables[kRsmp], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
