// The 'path' installer, last at start-up: it asks the host's two path-debug
// gestalts, derives the debug flag and guard value from them, and installs the
// plain or the checking fill-array operation in slot 24, then slots 46 and 47.
#include "host/install.h"
#include "host/module_state.h"
#include "host/startup.h"
#include "pathfill/fill_array.h"

// Slot 47 (a row-range scan over a record of doubles that calls back into the
// suite's slot 30) is described too thinly to rebuild: forwarded to the host.
TARNELL_FORWARDER(tarnell_path_forward_47, kPath, 47);

namespace tarnell {

namespace {

struct Gestalt {
  bool recognised;
  uint64_t answer;
};

// The answer starts at 0, so a host that recognises nothing leaves 0.
Gestalt askGestalt(uint32_t selector) {
  Gestalt g{false, 0};
  g.recognised = liveRoutine<slot::query>()(code::gestaltClass, selector, &g.answer, nullptr) != 0;
  return g;
}

void reportPath(const char* message, int32_t line) {
  liveRoutine<slot::report>()(message, pathfill::kPathSourceName, line, 1);
}

}  // namespace

void installPath(const SuiteWriter<code::path>& writer, const char* /*moduleName*/) {
  using namespace pathfill;
  const Gestalt debug = askGestalt(code::pathDebug);
  const Gestalt guard = askGestalt(code::pathDebugGuard);
  pathDebugEnabled = debug.answer != 0 ? 1 : 0;
  if (pathDebugEnabled == 0) {
    pathDebugGuard = 0;
    writer.put(slot::ApplyFillArrayOperation, &ApplyFillArrayOperation);
  } else {
    pathDebugGuard = static_cast<uint32_t>(guard.answer);
    if (!debug.recognised) reportPath("Path debug enabled gestalt, 'pdbg' not recognized", 286);
    if (!guard.recognised) reportPath("Path debug guard value gestalt, 'pdgv' not recognized", 287);
    // Signed: a negative answer passes.
    if (static_cast<int64_t>(guard.answer) >= int64_t{0xFFFFFFFF})
      reportPath("Path debug guard value is bigger than expected", 288);
    writer.put(slot::ApplyFillArrayOperation, &CApplyFillArrayOperation);
  }
  writer.put(slot::EstimateRowCrossings, &EstimateRowCrossings);
  writer.forward(slot::pathSlot47, &tarnell_path_forward_47);
}

int32_t installPathSuite(HostInfo* /*hostInfo*/) {
  installPath(SuiteWriter<code::path>(g_liveTables[kPath], g_kernels), kModuleName);
  return 1;
}

}  // namespace tarnell
