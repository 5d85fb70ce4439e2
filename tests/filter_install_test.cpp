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

const std::vector<int> kSse2Group = {28, 31, 75, 74, 106, 189, 188, 191, 192, 193, 194, 195, 197};
const std::vector<int> kSse41Group = {200, 201, 202, 155};

TEST(FilterInstall, WritesInTheGroupsOrderUnderEachFlag) {
  const std::vector<int> twelve = {12}, twelve34 = {12, 34};
  // No SSE: only the plain-code slot.
  EXPECT_EQ(install(false, false, false).order, twelve);
  // SSE without SSE2.
  EXPECT_EQ(install(true, false, false).order, twelve34);
  // SSE4.1 reported without SSE2 (with and without SSE): the SSE4.1 group still runs.
  EXPECT_EQ(install(true, false, true).order, installs::joined({twelve34, kSse41Group}));
  EXPECT_EQ(install(false, false, true).order, installs::joined({twelve, kSse41Group}));
  EXPECT_EQ(install(true, true, false).order, installs::joined({twelve34, kSse2Group}));
  EXPECT_EQ(install(true, true, true).order, installs::joined({twelve34, kSse2Group, kSse41Group}));
}

TEST(FilterInstall, EachSlotGetsItsRoutine) {
  using namespace filter;
  const Installed all = install(true, true, true);
  auto at = [&](int slot) { return all.at(slot); };
  auto erase = [](auto* fn) { return reinterpret_cast<HostRoutine>(fn); };
  EXPECT_EQ(at(12), erase(&localDeviation3x3));
  EXPECT_EQ(at(28), erase(&filterSlot28));
  EXPECT_EQ(at(74), erase(&filterSlot74));
  EXPECT_EQ(at(75), erase(&filterSlot75));
  EXPECT_EQ(at(188), erase(&blockDifferenceSum));
  EXPECT_EQ(at(189), erase(&maskedDifferenceSum));
  EXPECT_EQ(at(191), erase(blockMatrixFilter2));
  EXPECT_EQ(at(194), erase(blockMatrixFilter5));
  EXPECT_EQ(at(200), erase(angularRemap8));
  EXPECT_EQ(at(201), erase(angularRemap16));
  EXPECT_EQ(at(202), erase(angularRemapSlot202));
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
