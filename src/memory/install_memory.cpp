#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installMemory(const SuiteWriter<code::memo>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installMemorySuite(HostInfo* /*hostInfo*/) {
  installMemory(SuiteWriter<code::memo>(g_liveTables[suiteIndexOf(code::memo)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
