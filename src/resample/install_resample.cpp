#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installResample(const SuiteWriter<code::rsmp>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installResampleSuite(HostInfo* /*hostInfo*/) {
  installResample(SuiteWriter<code::rsmp>(g_liveTables[suiteIndexOf(code::rsmp)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
