#include "filter/filter.h"
#include "host/install.h"
#include "host/module_state.h"

// The slots whose routines the module does not model: their descriptions leave
// the argument lists and formulas to the host. Each jumps to the host's own
// routine with its arguments untouched, so that the suite's write order is kept.
TARNELL_FORWARDER(filterForward34, kFilt, 34);
TARNELL_FORWARDER(filterForward31, kFilt, 31);
TARNELL_FORWARDER(filterForward106, kFilt, 106);
TARNELL_FORWARDER(filterForward195, kFilt, 195);
TARNELL_FORWARDER(filterForward197, kFilt, 197);
TARNELL_FORWARDER(filterForward155, kFilt, 155);

namespace tarnell {

void installFilter(const SuiteWriter<code::filt>& w, const CpuFeatureFlags& flags) {
  using namespace filter;
  // Plain code: written on every processor, before any flag is looked at.
  w.put(slot::localDeviation3x3, &localDeviation3x3);
  // The second SSE report gates this suite (the first is the start-up's).
  if (flags.sseSecond != 0) w.forward(slot::filterSlot34, &filterForward34);
  if (flags.sse2 != 0) {
    w.put(slot::filterSlot28, &filterSlot28);
    w.forward(slot::filterSlot31, &filterForward31);
    w.put(slot::filterSlot75);
    w.put(slot::filterSlot74);
    w.forward(slot::filterSlot106, &filterForward106);
    w.put(slot::maskedDifferenceSum, &maskedDifferenceSum);
    w.put(slot::blockDifferenceSum, &blockDifferenceSum);
    w.put(slot::blockMatrixFilter2, blockMatrixFilter2);
    w.put(slot::blockMatrixFilter3, blockMatrixFilter3);
    w.put(slot::blockMatrixFilter4, blockMatrixFilter4);
    w.put(slot::blockMatrixFilter5, blockMatrixFilter5);
    w.forward(slot::transposeFloatTiles, &filterForward195);
    w.forward(slot::filterSlot197, &filterForward197);
  }
  // Tested on its own: a processor may report SSE4.1 without SSE2.
  if (flags.sse41 != 0) {
    w.put(slot::angularRemap8);
    w.put(slot::angularRemap16);
    w.put(slot::angularRemapSlot202);
    w.forward(slot::filterSlot155, &filterForward155);
  }
}

int32_t installFilterSuite(HostInfo* /*hostInfo*/) {
  installFilter(SuiteWriter<code::filt>(g_liveTables[kFilt], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
