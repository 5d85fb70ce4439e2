// The start-up sequence run by PluginMain's start-up selector.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell {

// Flags, acquisition, tables, flush-to-zero (this thread only), installers, constant
// vectors. Writes *result as the host expects and returns 0 or -1.
int32_t startup(HostInfo* hostInfo, int16_t* result);

// The same start-up with the flags given instead of read from the processor: the
// tests and tarnell-host run the narrower tiers' bodies this way on a wider
// processor. Never reached from the exported entry point.
struct CpuFeatureFlags;
int32_t startupAtTier(HostInfo* hostInfo, int16_t* result, const CpuFeatureFlags& flags);

inline constexpr char kModuleName[] = "Tarnell";

}  // namespace tarnell
