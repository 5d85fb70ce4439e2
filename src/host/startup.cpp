#include "host/startup.h"

#include <xmmintrin.h>

#include <vector>

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

void recordInstallers(const CpuFeatureFlags& flags, void (*sink)(void* context, uint32_t suite, const SlotWrite& write),
                      void* context) {
  struct Recorder {
    void (*sink)(void*, uint32_t, const SlotWrite&);
    void* context;
    uint32_t suite;
  };
  const Kernels kernels = resolveKernels(flags);
  std::vector<HostRoutine> scratch(kMaxSlotCount);
  Recorder recorder{sink, context, 0};
  const auto observe = [](void* r, const SlotWrite& w) {
    const auto* self = static_cast<const Recorder*>(r);
    self->sink(self->context, self->suite, w);
  };
  auto writer = [&]<uint32_t Suite>() {
    recorder.suite = Suite;
    return SuiteWriter<Suite>(scratch.data(), kernels, observe, &recorder);
  };
  installNoiseHookInto(writer.operator()<code::core>());
  installBlend(writer.operator()<code::blnd>(), flags);
  installConvert(writer.operator()<code::conv>(), flags);
  installFilter(writer.operator()<code::filt>(), flags);
  installMemory(writer.operator()<code::memo>(), flags);
  installPaint(writer.operator()<code::pntg>(), flags);
  installResample(writer.operator()<code::rsmp>(), flags);
  installSelection(writer.operator()<code::sele>(), flags);
  installPath(writer.operator()<code::path>(), kModuleName);
}

}  // namespace tarnell
