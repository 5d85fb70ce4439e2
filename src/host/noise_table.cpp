// The host's dither-noise buffer, which conversion and painting read, and the hook
// that records it: the 'core' installer, first at start-up.
#include "host/noise_table.h"

#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

constinit NoiseTable g_noiseTable{nullptr, 0, 0, nullptr};

int32_t registerNoiseTable(const void* base, uint32_t size, uint32_t period) {
  g_noiseTable.size = size;
  g_noiseTable.period = period;
  g_noiseTable.base = static_cast<const unsigned char*>(base);
  // Integer arithmetic: the host may hand over a null base with a non-zero period.
  g_noiseTable.end = reinterpret_cast<const unsigned char*>(reinterpret_cast<uintptr_t>(base) + period);
  return savedRoutine<slot::registerNoiseTable>()(base, size, period);
}

// The noise hook goes in whatever the processor: the dithering routines of every
// suite read the table it keeps.
void installNoiseHookInto(const SuiteWriter<code::core>& writer) {
  writer.put(slot::registerNoiseTable, &registerNoiseTable);
}

int32_t installNoiseHook(HostInfo* /*hostInfo*/) {
  installNoiseHookInto(SuiteWriter<code::core>(g_liveTables[kCore], g_kernels));
  return 1;
}

}  // namespace tarnell
