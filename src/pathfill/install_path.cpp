#include "host/install.h"
#include "host/module_state.h"
#include "host/startup.h"

namespace tarnell {

void installPath(const SuiteWriter<code::path>& /*writer*/, const char* /*moduleName*/) {
  // Nothing is replaced in this suite yet.
}

int32_t installPathSuite(HostInfo* /*hostInfo*/) {
  installPath(SuiteWriter<code::path>(g_liveTables[kPath]), kModuleName);
  return 1;
}

}  // namespace tarnell
