#include "host/install.h"
#include "host/module_state.h"

namespace tarnell {

void installPaint(const SuiteWriter<code::pntg>& /*writer*/, const CpuFeatureFlags& /*flags*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installPaintSuite(HostInfo* /*hostInfo*/) {
  installPaint(SuiteWriter<code::pntg>(g_liveTables[suiteIndexOf(code::pntg)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
