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

namespace {
HostRoutine routine(void (*forwarder)()) { return reinterpret_cast<HostRoutine>(forwarder); }
}  // namespace

void installFilter(const SuiteWriter<code::filt>& w, const CpuFeatureFlags& flags) {
  using namespace filter;
  // Plain code: written on every processor, before any flag is looked at.
  w.put<12>(&localDeviation3x3);
  if (flags.sse != 0) w.write(34, routine(&filterForward34));
  if (flags.sse2 != 0) {
    w.put<28>(&filterSlot28);
    w.write(31, routine(&filterForward31));
    w.put<75>(&filterSlot75);
    w.put<74>(&filterSlot74);
    w.write(106, routine(&filterForward106));
    w.put<189>(&maskedDifferenceSum);
    w.put<188>(&blockDifferenceSum);
    w.put<191>(blockMatrixFilter2);
    w.put<192>(blockMatrixFilter3);
    w.put<193>(blockMatrixFilter4);
    w.put<194>(blockMatrixFilter5);
    w.write(195, routine(&filterForward195));
    w.write(197, routine(&filterForward197));
  }
  // Tested on its own: a processor may report SSE4.1 without SSE2.
  if (flags.sse41 != 0) {
    w.put<200>(angularRemap8);
    w.put<201>(angularRemap16);
    w.put<202>(angularRemapSlot202);
    w.write(155, routine(&filterForward155));
  }
}

int32_t installFilterSuite(HostInfo* /*hostInfo*/) {
  installFilter(SuiteWriter<code::filt>(g_liveTables[suiteIndexOf(code::filt)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
