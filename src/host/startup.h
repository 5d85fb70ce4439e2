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

// What every installer writes for these flags, in start-up order, each write as a
// (suite, write) pair to `sink`; the tables written are scratch ones. The path
// installer asks the host's gestalts, so the module must have been started on a
// host (its live 'core' table is used). For tarnell-host, which says which level's
// body each slot runs.
struct SlotWrite;
void recordInstallers(const CpuFeatureFlags& flags, void (*sink)(void* context, uint32_t suite, const SlotWrite& write),
                      void* context);

inline constexpr char kModuleName[] = "Tarnell";

}  // namespace tarnell
