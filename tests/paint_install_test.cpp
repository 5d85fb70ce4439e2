// The painting installer on a scratch table with injected processor flags, and
// the two forwarded slots reaching the saved host routine.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "tests/install_recorder.h"
#include "paint/paint.h"

using namespace tarnell;

namespace {

CpuFeatureFlags withSse2(bool sse2, bool wider) {
  CpuFeatureFlags f{};
  f.mmx = f.sse = f.sseSecond = 1;
  f.sse2 = sse2;
  f.sse3 = f.ssse3 = f.sse41 = f.avx = f.avx2 = wider;
  return f;
}

std::vector<int> installed(const CpuFeatureFlags& flags, std::vector<HostRoutine>* tableOut = nullptr) {
  installs::Installed r = installs::recordInstall<code::pntg>(&installPaint, flags);
  if (tableOut != nullptr) *tableOut = r.table;
  return r.order;
}

// The order as the installer lists state it.
const std::vector<int> kOrder = installs::listedOrder(code::pntg, withSse2(true, false));

TEST(PaintInstall, NothingWithoutSse2) {
  EXPECT_TRUE(installed(withSse2(false, false)).empty());
  // Wider sets do not stand in for SSE2.
  EXPECT_TRUE(installed(withSse2(false, true)).empty());
}

TEST(PaintInstall, AllEntriesInOrderEachOnce) {
  std::vector<HostRoutine> table;
  EXPECT_EQ(installed(withSse2(true, false), &table), kOrder);
  EXPECT_EQ(installed(withSse2(true, true)), kOrder);
  std::vector<int> sorted = kOrder;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
  EXPECT_EQ(table[10], installs::erase(paint::g_paintSse2.PaintP8));
  EXPECT_EQ(table[89], installs::erase(paint::g_paintSse2.PaintT16x4));
  EXPECT_EQ(table[92], installs::erase(paint::g_paintSse2.PaintSingle92));
  for (std::size_t slot = 0; slot < table.size(); ++slot)
    EXPECT_EQ(table[slot] != nullptr, std::count(kOrder.begin(), kOrder.end(), static_cast<int>(slot)) == 1) << slot;
}

// With AVX2 every entry but the two forwarded ones runs its AVX2 body, the
// companions included; without it, every one its baseline body.
TEST(PaintInstall, TheWidestLevelReachedGivesEveryBody) {
  const installs::Installed narrow = installs::recordInstall<code::pntg>(&installPaint, withSse2(true, false));
  const installs::Installed wide = installs::recordInstall<code::pntg>(&installPaint, withSse2(true, true));
  ASSERT_EQ(wide.order, narrow.order);
  int bodies = 0;
  for (std::size_t i = 0; i < wide.writes.size(); ++i) {
    if (wide.writes[i].forwarded) {
      EXPECT_EQ(wide.writes[i].routine, narrow.writes[i].routine) << wide.order[i];
      continue;
    }
    ++bodies;
    EXPECT_EQ(narrow.writes[i].level, Level::sse2) << wide.order[i];
    EXPECT_EQ(wide.writes[i].level, Level::avx2) << wide.order[i];
    EXPECT_NE(wide.writes[i].routine, narrow.writes[i].routine) << wide.order[i];
  }
  EXPECT_EQ(bodies, 35);
  EXPECT_EQ(wide.at(29), installs::erase(paint::g_paintAvx2.PaintP8x4));
  EXPECT_EQ(wide.at(86), installs::erase(paint::g_paintAvx2.PaintS16x4));
}

TEST(PaintInstall, ForwardedSlotsReachTheSavedHostRoutine) {
  static int called = -1;
  static const void* seen = nullptr;
  std::vector<HostRoutine> table;
  installed(withSse2(true, false), &table);
  using Probe = void(const void*, int32_t, int32_t, int32_t);
  for (int slot : {38, 79}) {
    const HostRoutine saved = tarnell_saved_tables[kPntg][slot];
    static int probeSlot;
    probeSlot = slot;
    tarnell_saved_tables[kPntg][slot] = reinterpret_cast<HostRoutine>(+[](const void* p, int32_t, int32_t, int32_t) {
      called = probeSlot;
      seen = p;
    });
    const int marker = 0;
    called = -1;
    reinterpret_cast<Probe*>(table[static_cast<std::size_t>(slot)])(&marker, 1, 2, 3);
    tarnell_saved_tables[kPntg][slot] = saved;
    EXPECT_EQ(called, slot);
    EXPECT_EQ(seen, &marker);
  }
}

TEST(PaintInstall, StartupStepWritesTheLiveTable) {
  std::vector<HostRoutine> live(kSuites[kPntg].slotCount, nullptr);
  HostRoutine* savedLive = g_liveTables[kPntg];
  const CpuFeatureFlags savedFlags = g_cpuFeatureFlags;
  const Kernels savedKernels = g_kernels;
  g_liveTables[kPntg] = live.data();
  g_cpuFeatureFlags = withSse2(true, false);
  g_kernels = resolveKernels(g_cpuFeatureFlags);
  EXPECT_EQ(InstallPaintRoutines(nullptr), 1);
  g_cpuFeatureFlags = withSse2(false, false);
  std::vector<HostRoutine> untouched(live.size(), nullptr);
  g_liveTables[kPntg] = untouched.data();
  EXPECT_EQ(InstallPaintRoutines(nullptr), 1);
  g_liveTables[kPntg] = savedLive;
  g_cpuFeatureFlags = savedFlags;
  g_kernels = savedKernels;
  EXPECT_EQ(live[4], installs::erase(paint::g_paintSse2.PaintQ8));
  EXPECT_EQ(live[0], nullptr);
  EXPECT_TRUE(std::all_of(untouched.begin(), untouched.end(), [](HostRoutine r) { return r == nullptr; }));
}

}  // namespace
