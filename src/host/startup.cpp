#include "host/startup.h"

#include <xmmintrin.h>

#include "host/constants.h"
#include "host/cpu_features.h"
#include "host/install.h"
#include "host/kernels.h"
#include "host/startup_tables.h"
#include "host/suites.h"

namespace tarnell {

namespace {

int32_t startWithFlags(HostInfo* hostInfo, int16_t* result) {
  // The bodies behind every slot are settled here, once, from the flags.
  g_kernels = resolveKernels(g_cpuFeatureFlags);

  const int32_t acquired = acquireSuites(hostInfo);
  *result = static_cast<int16_t>(acquired);
  if (acquired != 0) return acquired;

  buildStartupTables();
  *result = 0;

  // Denormals are flushed on the host's start-up thread only, and never restored:
  // the host expects that lasting change there and nowhere else.
  if (g_cpuFeatureFlags.sse != 0) _mm_setcsr(_mm_getcsr() | 0x8000u);

  installNoiseHook(hostInfo);
  InstallBlendRoutines(hostInfo);
  installConvertSuite(hostInfo);
  installEmptyStep(hostInfo);
  installFilterSuite(hostInfo);
  installMemorySuite(hostInfo);
  InstallPaintRoutines(hostInfo);
  InstallResampleRoutines(hostInfo);
  installSelectionSuite(hostInfo);
  installPathSuite(hostInfo);

  if (g_cpuFeatureFlags.sse2 != 0) fillConstantVectors();
  *result = 0;
  return 0;
}

}  // namespace

int32_t startup(HostInfo* hostInfo, int16_t* result) {
  flagsAtStartup();
  return startWithFlags(hostInfo, result);
}

int32_t startupAtTier(HostInfo* hostInfo, int16_t* result, const CpuFeatureFlags& flags) {
  g_cpuFeatureFlags = flags;
  return startWithFlags(hostInfo, result);
}

}  // namespace tarnell
