// The start-up sequence run by PluginMain's start-up selector.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell {

// Flags, acquisition, tables, flush-to-zero (this thread only), installers, constant
// vectors. Writes *result as the host expects and returns 0 or -1.
int32_t startup(HostInfo* hostInfo, int16_t* result);

inline constexpr char kModuleName[] = "Tarnell";

}  // namespace tarnell
