#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installFilter(const SuiteWriter<code::filt>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installFilterSuite(HostInfo* /*hostInfo*/) {
  installFilter(SuiteWriter<code::filt>(g_liveTables[suiteIndexOf(code::filt)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
