// Every installer against the verification layer's lists, for every combination of
// the flags they read: the slots, their order, which are forwarded, and that no
// write is null or outside the copied table. What a list holds is checked against
// the counts the installer tables give; a forwarded slot reaches the saved host
// routine of its own slot.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "refhost/refhost.h"
#include "tests/install_recorder.h"
#include "verify/forwarded.h"
#include "verify/installs.h"

using namespace tarnell;

namespace {

std::vector<CpuFeatureFlags> everyFlagSet() {
  std::vector<CpuFeatureFlags> sets;
  for (unsigned bits = 0; bits < 128; ++bits) sets.push_back(installs::flagsOfBits(bits));
  return sets;
}


TEST(Installers, EveryInstallerWritesWhatItsListSaysForEveryFlagSet) {
  for (const CpuFeatureFlags& f : everyFlagSet()) {
    for (const verify::InstallerWrites& installer : verify::installerWrites()) {
      const std::vector<verify::SlotRef> listed = verify::writesOf(installer, installs::featuresOf(f));
      const installs::Installed got = installs::recordSuite(installer.suite, f);
      const std::string where = std::string(installer.installer) + " sse " + std::to_string(f.sseSecond) + " sse2 " +
                                std::to_string(f.sse2) + " ssse3 " + std::to_string(f.ssse3) + " sse41 " +
                                std::to_string(f.sse41) + " avx " + std::to_string(f.avx) + " avx2 " +
                                std::to_string(f.avx2);
      ASSERT_EQ(got.writes.size(), listed.size()) << where;
      const int count = kSuites[suiteIndexOf(installer.suite)].slotCount;
      for (std::size_t i = 0; i < listed.size(); ++i) {
        const SlotWrite& w = got.writes[i];
        EXPECT_EQ(w.slot, listed[i].slot) << where << " write " << i;
        EXPECT_EQ(w.forwarded, listed[i].forwarded) << where << ' ' << verify::slotLabel(listed[i]);
        EXPECT_TRUE(w.slot >= 0 && w.slot < count) << where << ' ' << w.slot;
        EXPECT_NE(w.routine, nullptr) << where << ' ' << verify::slotLabel(listed[i]);
        // Baseline code runs anywhere; a wider body only where the flags reach it.
        EXPECT_TRUE(w.level <= Level::sse2 || flagsReach(f, w.level)) << where << ' ' << verify::slotLabel(listed[i]) << " runs a "
                                            << levelName(w.level) << " body";
      }
    }
  }
}

// The sizes of the lists' steps as the installer tables count them.
TEST(Installers, ListsHoldWhatTheInstallerTablesCount) {
  std::map<std::pair<std::string, verify::Gate>, std::size_t> sizes;
  for (const verify::InstallerWrites& installer : verify::installerWrites())
    for (const verify::WriteStep& step : installer.steps) sizes[{installer.installer, step.gate}] = step.slots.size();
  using verify::Gate;
  const std::map<std::pair<std::string, verify::Gate>, std::size_t> expected = {
      {{"installNoiseHook", Gate::always}, 1},
      {{"InstallBlendRoutines", Gate::sse}, 11},
      {{"InstallBlendRoutines", Gate::sse2}, 44},
      {{"installConvertSuite", Gate::always}, 1},
      {{"installConvertSuite", Gate::sse2}, 4},
      {{"installFilterSuite", Gate::always}, 1},
      {{"installFilterSuite", Gate::sse}, 1},
      {{"installFilterSuite", Gate::sse2}, 13},
      {{"installFilterSuite", Gate::sse41}, 4},
      {{"installMemorySuite", Gate::sse2}, 13},
      {{"installMemorySuite", Gate::ssse3}, 2},
      {{"installMemorySuite", Gate::sse41}, 1},
      {{"installMemorySuite", Gate::avx}, 5},
      {{"InstallPaintRoutines", Gate::sse2}, 37},
      {{"InstallResampleRoutines", Gate::sse}, 7},
      {{"InstallResampleRoutines", Gate::sse2}, 4},
      {{"InstallResampleRoutines", Gate::sse41}, 1},
      {{"installSelectionSuite", Gate::withoutSse2}, 1},
      {{"installSelectionSuite", Gate::sse2}, 5},
      {{"installPathSuite", Gate::always}, 3},
  };
  EXPECT_EQ(sizes, expected);
  // Per suite, a processor with every feature: 55 blending slots, 19 filter slots,
  // twelve resampling routines in ten slots, 37 painting entries; slot 290 stays
  // the host's.
  const verify::FeatureSet every{true, true, true, true, true, true};
  EXPECT_EQ(verify::expectedReplacedSlots(code::blnd, every).size(), 55u);
  EXPECT_EQ(verify::expectedReplacedSlots(code::filt, every).size(), 19u);
  EXPECT_EQ(verify::expectedReplacedSlots(code::rsmp, every).size(), 10u);
  for (const verify::InstallerWrites& installer : verify::installerWrites())
    if (installer.suite == code::rsmp) {
      EXPECT_EQ(verify::writesOf(installer, every).size(), 12u);
    }
  EXPECT_EQ(verify::expectedReplacedSlots(code::pntg, every).size(), 37u);
  const std::vector<int> blend = verify::expectedReplacedSlots(code::blnd, every);
  EXPECT_EQ(std::count(blend.begin(), blend.end(), 290), 0);
}

// Every forwarder an installer writes jumps to the saved host routine of its own
// slot with the arguments untouched.
TEST(Installers, ForwardedSlotsReachTheSavedHostRoutineOfTheirSlot) {
  CpuFeatureFlags all{};
  all.mmx = all.sse = all.sseSecond = all.sse2 = all.sse3 = all.ssse3 = all.sse41 = all.avx = all.avx2 = 1;
  static int seenSuite, seenSlot;
  static uintptr_t seenArguments[6];
  static int current[2];
  using Probe = int(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t);
  const auto forwarded = verify::forwardedSlots();
  EXPECT_FALSE(forwarded.empty());
  for (const verify::SlotName& s : forwarded) {
    const installs::Installed got = installs::recordSuite(s.suite, all);
    const int row = suiteIndexOf(s.suite);
    HostRoutine& saved = tarnell_saved_tables[row][s.slot];
    const HostRoutine keep = saved;
    current[0] = row, current[1] = s.slot;
    saved = reinterpret_cast<HostRoutine>(
        +[](uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, uintptr_t e, uintptr_t f) -> int {
          seenSuite = current[0], seenSlot = current[1];
          const uintptr_t args[6] = {a, b, c, d, e, f};
          std::copy(args, args + 6, seenArguments);
          return 7;
        });
    seenSuite = seenSlot = -1;
    const uintptr_t base = 0xABCD00 + static_cast<uintptr_t>(s.slot);
    const int result = reinterpret_cast<Probe*>(got.at(s.slot))(base, base + 1, base + 2, base + 3, base + 4, base + 5);
    saved = keep;
    EXPECT_EQ(result, 7) << verify::slotLabel(s.suite, s.slot, s.name);
    EXPECT_EQ(seenSuite, row) << verify::slotLabel(s.suite, s.slot, s.name);
    EXPECT_EQ(seenSlot, s.slot) << verify::slotLabel(s.suite, s.slot, s.name);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(seenArguments[i], base + static_cast<uintptr_t>(i)) << verify::slotLabel(s.suite, s.slot, s.name);
  }
}

TEST(Installers, WriterRecordsEveryWriteInOrder) {
  const auto a = reinterpret_cast<SlotFnOf<slot::registerNoiseTable>>(+[](const void*, uint32_t, uint32_t) {
    return int32_t{0};
  });
  const auto b = reinterpret_cast<SlotFnOf<slot::registerNoiseTable>>(+[](const void*, uint32_t, uint32_t) {
    return int32_t{1};
  });
  CpuFeatureFlags none{};
  const installs::Installed w = installs::recordInstall<code::core>(
      [&](const SuiteWriter<code::core>& writer) {
        writer.put(slot::registerNoiseTable, a);
        writer.put(slot::query, +[](uint32_t, uint32_t, void*, const void*) { return uint8_t{0}; });
        writer.put(slot::registerNoiseTable, b);
      },
      none);
  EXPECT_EQ(w.order, (std::vector<int>{3, 5, 3}));
  EXPECT_EQ(w.at(3), reinterpret_cast<HostRoutine>(b));
  EXPECT_NE(w.at(5), nullptr);
  EXPECT_EQ(w.routines[0], reinterpret_cast<HostRoutine>(a));
}

}  // namespace
