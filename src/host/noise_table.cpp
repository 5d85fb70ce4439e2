#include "convert/noise_table.h"

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

}  // namespace tarnell
