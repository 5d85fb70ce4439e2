// The 'memo' installer: four tiers, each gated by its own feature flag and
// written in this order, so a wider tier overwrites what a narrower one put in
// the same slot. A slot that only the SSE2 step writes and that has wider bodies
// (the tests, the 16-bit fills) gets the kernel table's body for this processor;
// the slots a later step writes again get the SSE2 routine first, as the tiers say.
#include "host/install.h"
#include "host/module_state.h"
#include "memory/memory_routines.h"

// Slots 11 and 67 (the host's long-run routines on 8- and 16-bit data with
// non-temporal stores) have no contract the module could match beyond "what the
// host's routine does", so they are jumps to the host's own routines: installed
// with the SSE2 tier, forwarded, not accelerated.
TARNELL_FORWARDER(tarnell_memo_forward_11, kMemo, 11);
TARNELL_FORWARDER(tarnell_memo_forward_67, kMemo, 67);

namespace tarnell {

void installMemory(const SuiteWriter<code::memo>& w, const CpuFeatureFlags& flags) {
  using namespace memory;
  if (flags.sse2 != 0) {
    w.put(slot::copyBytes, &copyBytesSse2);
    w.put(slot::copyBlock, &copyBlockSse2);
    w.put(slot::fillBytes, &fillBytesSse2);
    w.put(slot::fillBlock, &fillBlockSse2);
    w.forward(slot::memoSlot11, &tarnell_memo_forward_11);
    w.put(slot::bytesAllEqual);
    w.put(slot::blockBytesAllEqual);
    w.put(slot::fillWords);
    w.put(slot::fillWordBlock);
    w.forward(slot::memoSlot67, &tarnell_memo_forward_67);
    w.put(slot::blockWordsUniformValue);
    w.put(slot::blockWordsAllEqual);
    w.put(slot::fillDwords, &fillDwordsSse2);
  }
  if (flags.ssse3 != 0) {
    w.put(slot::copyBytes);
    w.put(slot::copyBlock);
  }
  if (flags.sse41 != 0) w.put(slot::byteBounds);
  if (flags.avx != 0) {
    w.put(slot::fillBytes);
    w.put(slot::fillBlock);
    w.put(slot::blockDwordsUniform);
    w.put(slot::fillDwords);
    w.put(slot::fillDwordBlock);
  }
}

int32_t installMemorySuite(HostInfo* /*hostInfo*/) {
  installMemory(SuiteWriter<code::memo>(g_liveTables[kMemo], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
