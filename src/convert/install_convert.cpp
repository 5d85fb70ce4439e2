#include "convert/convert_sse2.h"
#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

// Slot 19 is written before the processor test, on every processor: re-scaling
// needs nothing beyond the x86-64 baseline (the kernel table holds its baseline
// body on every processor). The other conversions need SSE2.
void installConvert(const SuiteWriter<code::conv>& writer, const CpuFeatureFlags& flags) {
  writer.put(slot::rescale16);
  if (flags.sse2 == 0) return;
  writer.put(slot::convert16To8Planar3);
  writer.put(slot::convert16To8);
  writer.put(slot::convert8To16);
  writer.put(slot::convertFloatTo8);
}

int32_t installConvertSuite(HostInfo* /*hostInfo*/) {
  installConvert(SuiteWriter<code::conv>(g_liveTables[kConv], g_kernels), g_cpuFeatureFlags);
  return 1;
}

// Kept as a step of its own in the start-up order; it installs nothing.
int32_t installEmptyStep(HostInfo* /*hostInfo*/) { return 1; }

}  // namespace tarnell
