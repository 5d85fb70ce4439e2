// The 'filt' installer: slot 12 before any flag is looked at, 34 with SSE, the
// SSE2 group in its order, the SSE4.1 group in its order whether or not the SSE2
// group ran; the routines each slot ends up with; forwarded slots reach the host.
#include <gtest/gtest.h>

#include <vector>

#include "filter/filter.h"
#include "host/install.h"
#include "host/module_state.h"
#include "tests/install_recorder.h"

using namespace tarnell;

namespace {

using installs::Installed;

Installed install(bool sse, bool sse2, bool sse41) {
  return installs::recordInstall<code::filt>(&installFilter, installs::sseFlags(sse, sse2, sse41));
}

TEST(FilterInstall, WritesInTheGroupsOrderUnderEachFlag) {
  for (int bits = 0; bits < 8; ++bits) {
    const CpuFeatureFlags f = installs::sseFlags(bits & 1, bits & 2, bits & 4);
    EXPECT_EQ(installs::recordInstall<code::filt>(&installFilter, f).order, installs::listedOrder(code::filt, f)) << bits;
  }
  // No SSE: only the plain-code slot, first in every case.
  EXPECT_EQ(install(false, false, false).order, (std::vector<int>{12}));
  EXPECT_EQ(install(true, true, true).order.front(), 12);
  // SSE4.1 reported without SSE2 (with and without SSE): the SSE4.1 group still runs.
  EXPECT_NE(install(false, false, true).at(200), nullptr);
  EXPECT_NE(install(true, false, true).at(155), nullptr);
  EXPECT_EQ(install(true, false, true).at(28), nullptr);
}

TEST(FilterInstall, EachSlotGetsItsRoutine) {
  using namespace filter;
  const Installed all = install(true, true, true);
  auto at = [&](int slot) { return all.at(slot); };
  auto erase = [](auto* fn) { return reinterpret_cast<HostRoutine>(fn); };
  EXPECT_EQ(at(12), erase(&localDeviation3x3));
  EXPECT_EQ(at(28), erase(&filterSlot28));
  // The box mean and weighted sum run the widest strip kernel the flags reach.
  const Kernels kernels = resolveKernels(installs::sseFlags(true, true, true));
  EXPECT_EQ(at(74), erase(kernels.filterSlot74.fn));
  EXPECT_EQ(at(75), erase(kernels.filterSlot75.fn));
  EXPECT_EQ(at(74), erase(g_weightedSumSse2.filterSlot74));
  EXPECT_EQ(at(75), erase(g_boxMeanSse2.filterSlot75));
  EXPECT_EQ(at(188), erase(&blockDifferenceSum));
  EXPECT_EQ(at(189), erase(&maskedDifferenceSum));
  EXPECT_EQ(at(191), erase(blockMatrixFilter2));
  EXPECT_EQ(at(194), erase(blockMatrixFilter5));
  EXPECT_EQ(at(200), erase(g_angularRemapSse41.angularRemap8));
  EXPECT_EQ(at(201), erase(g_angularRemapSse41.angularRemap16));
  EXPECT_EQ(at(202), erase(g_angularRemapSse41.angularRemapSlot202));
  // With AVX2 the same slots run the AVX2 kernels' bodies.
  CpuFeatureFlags wide = installs::sseFlags(true, true, true);
  wide.avx = wide.avx2 = 1;
  const Installed avx2 = installs::recordInstall<code::filt>(&installFilter, wide);
  EXPECT_EQ(avx2.at(74), erase(g_weightedSumAvx2.filterSlot74));
  EXPECT_EQ(avx2.at(75), erase(g_boxMeanAvx2.filterSlot75));
  EXPECT_EQ(avx2.at(200), erase(g_angularRemapAvx2.angularRemap8));
  EXPECT_EQ(avx2.at(202), erase(g_angularRemapAvx2.angularRemapSlot202));
  EXPECT_EQ(avx2.at(28), at(28));
  // The forwarded slots hold distinct routines of the module's own.
  std::vector<HostRoutine> forwarders;
  for (int slot : {34, 31, 106, 195, 197, 155}) {
    ASSERT_NE(at(slot), nullptr) << slot;
    for (HostRoutine other : forwarders) EXPECT_NE(at(slot), other) << slot;
    forwarders.push_back(at(slot));
  }
}

// A forwarder reaches the saved host routine of its own slot with its arguments.
TEST(FilterInstall, ForwardedSlotsReachTheHostsRoutine) {
  const Installed all = install(true, true, true);
  static int seenSlot;
  static uintptr_t seenArgument;
  using Fn = int(uintptr_t);
  for (int slot : {34, 31, 106, 195, 197, 155}) {
    HostRoutine& saved = tarnell_saved_tables[kFilt][slot];
    const HostRoutine keep = saved;
    static int current;
    current = slot;
    saved = reinterpret_cast<HostRoutine>(+[](uintptr_t a) -> int {
      seenSlot = current;
      seenArgument = a;
      return 7;
    });
    seenSlot = -1;
    const int result = reinterpret_cast<Fn*>(all.at(slot))(uintptr_t{0xABCDEF} +
                                                                                        static_cast<uintptr_t>(slot));
    saved = keep;
    EXPECT_EQ(result, 7);
    EXPECT_EQ(seenSlot, slot);
    EXPECT_EQ(seenArgument, uintptr_t{0xABCDEF} + static_cast<uintptr_t>(slot));
  }
}

}  // namespace
