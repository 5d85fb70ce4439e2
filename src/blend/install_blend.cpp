#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installBlend(const SuiteWriter<code::blnd>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t InstallBlendRoutines(HostInfo* /*hostInfo*/) {
  installBlend(SuiteWriter<code::blnd>(g_liveTables[suiteIndexOf(code::blnd)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
