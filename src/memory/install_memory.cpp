// The 'memo' installer: four tiers, each gated by its own feature flag and
// written in this order, so a wider tier overwrites what a narrower one put in
// the same slot.
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

void installMemory(const SuiteWriter<code::memo>& writer, const CpuFeatureFlags& flags) {
  using namespace memory;
  if (flags.sse2 != 0) {
    writer.put<0>(&copyBytesSse2);
    writer.put<1>(&copyBlockSse2);
    writer.put<3>(&fillBytesSse2);
    writer.put<4>(&fillBlockSse2);
    writer.write(11, reinterpret_cast<HostRoutine>(&tarnell_memo_forward_11));
    writer.put<17>(&bytesAllEqualSse2);
    writer.put<18>(&blockBytesAllEqualSse2);
    writer.put<65>(&fillWordsSse2);
    writer.put<66>(&fillWordBlockSse2);
    writer.write(67, reinterpret_cast<HostRoutine>(&tarnell_memo_forward_67));
    writer.put<83>(&blockWordsUniformValueSse2);
    writer.put<102>(&blockWordsAllEqualSse2);
    writer.put<136>(&fillDwordsSse2);
  }
  if (flags.ssse3 != 0) {
    writer.put<0>(g_memorySsse3.copyBytes);
    writer.put<1>(g_memorySsse3.copyBlock);
  }
  if (flags.sse41 != 0) {
    writer.put<36>(g_memorySse41.byteBounds);
  }
  if (flags.avx != 0) {
    writer.put<3>(g_memoryAvx.fillBytes);
    writer.put<4>(g_memoryAvx.fillBlock);
    writer.put<135>(g_memoryAvx.blockDwordsUniform);
    writer.put<136>(g_memoryAvx.fillDwords);
    writer.put<137>(g_memoryAvx.fillDwordBlock);
  }
}

int32_t installMemorySuite(HostInfo* /*hostInfo*/) {
  installMemory(SuiteWriter<code::memo>(g_liveTables[suiteIndexOf(code::memo)]), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
