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
    // Slots 5 and 6 take the SSE step's own routines; the SSE2 step replaces them.
    w.put(slot::FilterRowsSse2_8, &FilterRowsScalar8);
    w.put(slot::FilterColumnsSse2_8, &FilterColumns8);
    w.put(slot::RemapAxis8);
    w.put(slot::RemapPlane8);
    w.put(slot::BoxReduce8);
    w.put(slot::FilterRows16);
  }
  if (flags.sse2 != 0) {
    w.put(slot::FilterRowsSse2_8);
    w.put(slot::FilterColumnsSse2_8);
    w.put(slot::BoxAverageRows8);
    w.put(slot::FilterColumnsFloat);
  }
  if (flags.sse41 != 0) w.put(slot::FilterRowsFloat);
}

// The baseline bodies: the SSE step's (reached without SSE2 only by injected flag
// sets) and every SSE2 routine of the suite.
constinit const resample::ResampleTable resample::g_resampleSse = {
    .FilterRows16 = &resample::FilterRows16,
    .RemapAxis8 = &resample::RemapAxis8,
    .RemapPlane8 = &resample::RemapPlane8,
    .BoxReduce8 = &resample::BoxReduce8,
};
constinit const resample::ResampleTable resample::g_resampleSse2 = {
    .BoxAverageRows8 = &resample::BoxAverageRows8,
    .FilterRowsSse2_8 = &resample::FilterRowsSse2_8,
    .FilterColumnsSse2_8 = &resample::FilterColumnsSse2_8,
    .FilterRows16 = &resample::FilterRows16,
    .RemapAxis8 = &resample::RemapAxis8,
    .RemapPlane8 = &resample::RemapPlane8,
    .BoxReduce8 = &resample::BoxReduce8,
    .FilterColumnsFloat = &resample::FilterColumnsFloat,
};

int32_t InstallResampleRoutines(HostInfo* /*hostInfo*/) {
  installResample(SuiteWriter<code::rsmp>(g_liveTables[kRsmp], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
