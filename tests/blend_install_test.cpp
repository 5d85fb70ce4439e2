// The blending installer on a scratch table with injected processor flags: which
// slots each group writes, in which order, and under which flag.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "blend/blend8.h"
#include "host/install.h"
#include "host/kernels.h"
#include "host/module_state.h"
#include "tests/install_recorder.h"
#include "verify/forwarded.h"

using namespace tarnell;

namespace {

using installs::Installed;

Installed install(const CpuFeatureFlags& flags) { return installs::recordInstall<code::blnd>(&installBlend, flags); }

CpuFeatureFlags flagsWith(bool sse, bool sseSecond, bool sse2) {
  CpuFeatureFlags f{};
  f.mmx = 1;
  f.sse = sse;
  f.sseSecond = sseSecond;
  f.sse2 = sse2;
  return f;
}

// The two groups as the installer lists state them.
const std::vector<int> kSseGroup = installs::listedOrder(code::blnd, flagsWith(true, true, false));
const std::vector<int> kSse2Group = installs::listedOrder(code::blnd, flagsWith(false, false, true));
// Slots filled with forwarders to the host's own routine.
std::vector<int> forwardedInGroup() {
  std::vector<int> out;
  for (const verify::SlotName& s : verify::forwardedSlots())
    if (s.suite == code::blnd) out.push_back(s.slot);
  return out;
}

TEST(BlendInstall, NothingWithoutTheGatingFlags) {
  EXPECT_TRUE(install(flagsWith(false, false, false)).order.empty());
  // The first SSE flag is the start-up's (flush-to-zero); this suite reads the second.
  EXPECT_TRUE(install(flagsWith(true, false, false)).order.empty());
  CpuFeatureFlags wide = flagsWith(false, false, false);
  wide.sse3 = wide.ssse3 = wide.sse41 = wide.avx = wide.avx2 = 1;
  EXPECT_TRUE(install(wide).order.empty());
}

TEST(BlendInstall, SseGroupAloneInItsOrder) {
  EXPECT_EQ(install(flagsWith(true, true, false)).order, kSseGroup);
  EXPECT_EQ(install(flagsWith(false, true, false)).order, kSseGroup);
}

TEST(BlendInstall, Sse2GroupFollowsTheSseGroup) {
  EXPECT_EQ(install(flagsWith(true, true, true)).order, installs::joined({kSseGroup, kSse2Group}));
  EXPECT_EQ(install(flagsWith(false, false, true)).order, kSse2Group);
  // Nothing more for wider instruction sets: the SSE2 routines serve them.
  CpuFeatureFlags all = flagsWith(true, true, true);
  all.sse3 = all.ssse3 = all.sse41 = all.avx = all.avx2 = 1;
  EXPECT_EQ(install(all).order, installs::joined({kSseGroup, kSse2Group}));
}

TEST(BlendInstall, EachSlotOnceAndNothingElse) {
  const Installed r = install(flagsWith(true, true, true));
  std::vector<int> slots = r.order;
  std::sort(slots.begin(), slots.end());
  EXPECT_EQ(std::adjacent_find(slots.begin(), slots.end()), slots.end());
  EXPECT_EQ(slots.size(), kSseGroup.size() + kSse2Group.size());
  EXPECT_EQ(kSse2Group.size(), 44u);
  EXPECT_EQ(forwardedInGroup(), (std::vector<int>{53, 66, 72, 96, 97, 191, 198, 216, 218}));
  EXPECT_EQ(r.at(290), nullptr);
  for (std::size_t i = 0; i < r.order.size(); ++i) {
    EXPECT_NE(r.routines[i], nullptr) << r.order[i];
    EXPECT_EQ(r.at(r.order[i]), r.routines[i]) << r.order[i];
  }
}

TEST(BlendInstall, ForwardedSlotsReachTheSavedHostRoutine) {
  // Every forwarder, installed or kept as a fallback, jumps to the saved host
  // routine of its own slot with the arguments untouched.
  static int calledSlot = -1;
  static const uint8_t* seenSource = nullptr;
  static int32_t seenColumns = 0;
  const Installed r = install(flagsWith(false, false, true));
  std::vector<blend8::Forwarder> forwarders;
  for (int slot : forwardedInGroup()) forwarders.push_back({slot, r.at(slot)});
  const blend8::ForwarderList fallbacks = blend8::blendForwarders();
  std::vector<int> fallbackSlots;
  for (int i = 0; i < fallbacks.count; ++i) {
    forwarders.push_back(fallbacks.entries[i]);
    fallbackSlots.push_back(fallbacks.entries[i].slot);
  }
  EXPECT_EQ(fallbackSlots, (std::vector<int>{2, 3, 7, 8, 10, 11, 22, 23, 24, 25, 27, 28, 29, 30, 31, 40, 41, 53, 54,
                                             56, 57, 60, 72, 73, 96, 97}));

  using Probe = void(const uint8_t*, uint8_t*, int32_t, int32_t, int32_t, int32_t, uint8_t);
  for (const blend8::Forwarder& f : forwarders) {
    HostRoutine saved = tarnell_saved_tables[kBlnd][f.slot];
    // One probe per slot, told apart by the slot it records.
    static int probeSlot;
    probeSlot = f.slot;
    tarnell_saved_tables[kBlnd][f.slot] = reinterpret_cast<HostRoutine>(
        +[](const uint8_t* source, uint8_t*, int32_t, int32_t columns, int32_t, int32_t, uint8_t) {
          calledSlot = probeSlot;
          seenSource = source;
          seenColumns = columns;
        });
    calledSlot = -1;
    const uint8_t marker = 0;
    reinterpret_cast<Probe*>(f.routine)(&marker, nullptr, 3, 77 + f.slot, 0, 0, 9);
    tarnell_saved_tables[kBlnd][f.slot] = saved;
    EXPECT_EQ(calledSlot, f.slot);
    EXPECT_EQ(seenSource, &marker);
    EXPECT_EQ(seenColumns, 77 + f.slot);
  }
}

TEST(BlendInstall, StartupWrapperWritesTheLiveTable) {
  std::vector<HostRoutine> live(kSuites[kBlnd].slotCount, nullptr);
  HostRoutine* savedLive = g_liveTables[kBlnd];
  const CpuFeatureFlags savedFlags = g_cpuFeatureFlags;
  const Kernels savedKernels = g_kernels;
  g_liveTables[kBlnd] = live.data();
  g_cpuFeatureFlags = flagsWith(true, true, true);
  g_kernels = resolveKernels(g_cpuFeatureFlags);
  EXPECT_EQ(InstallBlendRoutines(nullptr), 1);
  g_liveTables[kBlnd] = savedLive;
  g_cpuFeatureFlags = savedFlags;
  g_kernels = savedKernels;
  // The bodies the kernel table gives an SSE2 processor.
  const Kernels sse2 = resolveKernels(flagsWith(true, true, true));
  EXPECT_EQ(live[24], reinterpret_cast<HostRoutine>(blend8::g_blend8Sse2.MultiplySource8));
  EXPECT_EQ(live[27], reinterpret_cast<HostRoutine>(blend8::g_overlay8Sse2.ScreenSource8));
  EXPECT_EQ(live[219], reinterpret_cast<HostRoutine>(sse2.get(slot::MultiplyInto16).fn));
  EXPECT_EQ(live[195], reinterpret_cast<HostRoutine>(sse2.get(slot::ComplementMultiplyInto16).fn));
  EXPECT_NE(live[219], nullptr);
}

}  // namespace
