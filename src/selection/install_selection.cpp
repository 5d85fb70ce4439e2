#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installSelection(const SuiteWriter<code::sele>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installSelectionSuite(HostInfo* /*hostInfo*/) {
  installSelection(SuiteWriter<code::sele>(g_liveTables[suiteIndexOf(code::sele)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
