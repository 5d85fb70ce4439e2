#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installConvert(const SuiteWriter<code::conv>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installConvertSuite(HostInfo* /*hostInfo*/) {
  installConvert(SuiteWriter<code::conv>(g_liveTables[suiteIndexOf(code::conv)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell

namespace tarnell {

void installNoiseHookInto(const SuiteWriter<code::core>& /*writer*/) {
  // The noise hook is not installed yet.
}

int32_t installNoiseHook(HostInfo* /*hostInfo*/) {
  installNoiseHookInto(SuiteWriter<code::core>(g_liveTables[kCore]));
  return 1;
}

// Kept as a step of its own in the start-up order; it installs nothing.
int32_t installEmptyStep(HostInfo* /*hostInfo*/) { return 1; }

}  // namespace tarnell
