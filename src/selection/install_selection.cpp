#include "host/install.h"
#include "host/module_state.h"
#include "selection/selection.h"

// Slots 73 (the 16-bit propagation) and 75 (a 16-bit region routine): what they
// compute is the host's alone, so they run the host's routine with the
// arguments untouched. They are installed so the suite's write order is the host's.
TARNELL_FORWARDER(selectionForward73, kSele, 73);
TARNELL_FORWARDER(selectionForward75, kSele, 75);

namespace tarnell {

void installSelection(const SuiteWriter<code::sele>& w, const CpuFeatureFlags& flags) {
  using namespace selection;
  if (flags.sse2 == 0) {
    w.put(slot::spreadMarkVertical, &spreadMarkVerticalScalar);
    return;
  }
  w.put(slot::propagateDecaying);
  w.forward(slot::propagateDecaying16, &selectionForward73);
  w.put(slot::selectionSlot33);
  w.forward(slot::selectionSlot75, &selectionForward75);
  w.put(slot::spreadMarkVertical);
}

int32_t installSelectionSuite(HostInfo* /*hostInfo*/) {
  installSelection(SuiteWriter<code::sele>(g_liveTables[kSele], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
