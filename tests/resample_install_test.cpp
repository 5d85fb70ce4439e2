// The resampling installer on a scratch table with injected processor flags, and
// the two ways a resampling slot reaches the host's own routine: the slot-7
// forwarder and BoxReduce8's hand-over of rows wider than 1500 samples.
#include <gtest/gtest.h>

#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "resample/resample_routines.h"
#include "tests/install_recorder.h"

using namespace tarnell;
using namespace tarnell::resample;

namespace {

using installs::erase;
using installs::Installed;

Installed install(bool sse, bool sse2, bool sse41) {
  return installs::recordInstall<code::rsmp>(&installResample, installs::sseFlags(sse, sse2, sse41));
}

// The steps as the installer lists state them.
const std::vector<int> kSseStep = installs::listedOrder(code::rsmp, installs::sseFlags(true, false, false));
const std::vector<int> kSse2Step = installs::listedOrder(code::rsmp, installs::sseFlags(false, true, false));

TEST(ResampleInstall, NothingWithoutSse) {
  EXPECT_TRUE(install(false, false, false).order.empty());
  // The SSE2 and SSE4.1 steps do not stand alone: each has its own flag.
  EXPECT_EQ(install(false, true, true).order, installs::joined({kSse2Step, {26}}));
}

TEST(ResampleInstall, SseOnlyGetsTheScalarFiltersAndLeavesTheOthers) {
  const Installed r = install(true, false, false);
  EXPECT_EQ(r.order, kSseStep);
  EXPECT_EQ(r.at(5), erase(&FilterRowsScalar8));
  EXPECT_EQ(r.at(6), erase(&FilterColumns8));
  EXPECT_EQ(r.at(18), erase(&RemapAxis8));
  EXPECT_EQ(r.at(19), erase(&RemapPlane8));
  EXPECT_EQ(r.at(24), erase(&BoxReduce8));
  EXPECT_EQ(r.at(13), erase(&FilterRows16));
  EXPECT_NE(r.table[7], nullptr);
  for (std::size_t slot : {3u, 26u, 27u}) EXPECT_EQ(r.table[slot], nullptr) << slot;
}

TEST(ResampleInstall, Sse2ReplacesSlots5And6ButNotSlot26) {
  const Installed r = install(true, true, false);
  EXPECT_EQ(r.order, installs::joined({kSseStep, kSse2Step}));
  EXPECT_EQ(r.at(5), erase(&FilterRowsSse2_8));
  EXPECT_EQ(r.at(6), erase(&FilterColumnsSse2_8));
  EXPECT_EQ(r.at(3), erase(&BoxAverageRows8));
  EXPECT_EQ(r.at(27), erase(&FilterColumnsFloat));
  EXPECT_EQ(r.table[26], nullptr);
}

TEST(ResampleInstall, EverythingAddsTheFloatRowFilterLast) {
  const Installed r = install(true, true, true);
  EXPECT_EQ(r.order, installs::joined({kSseStep, kSse2Step, {26}}));
  EXPECT_EQ(r.at(26), erase(g_resampleSse41.FilterRowsFloat));
  EXPECT_EQ(r.at(5), erase(&FilterRowsSse2_8));
}

TEST(ResampleInstall, TheStartUpEntryWritesTheLiveTableAndReturns1) {
  std::vector<HostRoutine> live(kSuites[kRsmp].slotCount, nullptr);
  HostRoutine* const saved = g_liveTables[kRsmp];
  const CpuFeatureFlags flags = g_cpuFeatureFlags;
  const Kernels kernels = g_kernels;
  g_liveTables[kRsmp] = live.data();
  g_cpuFeatureFlags = CpuFeatureFlags{};
  EXPECT_EQ(InstallResampleRoutines(nullptr), 1);  // nothing to write, still 1
  EXPECT_EQ(live[5], nullptr);
  g_cpuFeatureFlags.sse = g_cpuFeatureFlags.sseSecond = g_cpuFeatureFlags.sse2 = 1;
  g_kernels = resolveKernels(g_cpuFeatureFlags);  // as start-up resolves it for these flags
  EXPECT_EQ(InstallResampleRoutines(nullptr), 1);
  EXPECT_EQ(live[5], reinterpret_cast<HostRoutine>(&FilterRowsSse2_8));
  EXPECT_EQ(live[18], reinterpret_cast<HostRoutine>(&RemapAxis8));
  g_liveTables[kRsmp] = saved;
  g_cpuFeatureFlags = flags;
  g_kernels = kernels;
}

// --- reaching the host's routines ------------------------------------------------

struct Seen {
  int calls = 0;
  const void* source = nullptr;
  int32_t args[7] = {};
} seen;

void hostBoxReduce(const uint8_t* s, uint8_t*, int32_t rows, int32_t width, int32_t ss, int32_t ds, int32_t spp,
                   int32_t a, int32_t b) {
  ++seen.calls;
  seen.source = s;
  const int32_t args[7] = {rows, width, ss, ds, spp, a, b};
  std::copy(args, args + 7, seen.args);
}

void hostRatio(const void* s, void* d, int32_t n, double ratio, int32_t k) {
  ++seen.calls;
  seen.source = s;
  seen.args[0] = n;
  seen.args[1] = static_cast<int32_t>(ratio * 4);
  seen.args[2] = k;
  (void)d;
}

class SavedSlot {
 public:
  SavedSlot(int slot, HostRoutine routine) : slot_(slot), saved_(tarnell_saved_tables[kRsmp][slot]) {
    tarnell_saved_tables[kRsmp][slot] = routine;
    seen = {};
  }
  ~SavedSlot() { tarnell_saved_tables[kRsmp][slot_] = saved_; }

 private:
  int slot_;
  HostRoutine saved_;
};

TEST(ResampleInstall, Slot7ForwardsToTheHostsRoutineWithItsArgumentsUnchanged) {
  SavedSlot slot(7, reinterpret_cast<HostRoutine>(&hostRatio));
  const uint8_t data[4] = {};
  auto forward = reinterpret_cast<void (*)(const void*, void*, int32_t, double, int32_t)>(install(true, false, false).table[7]);
  forward(data, nullptr, 77, 2.75, -5);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.source, data);
  EXPECT_EQ(seen.args[0], 77);
  EXPECT_EQ(seen.args[1], 11);
  EXPECT_EQ(seen.args[2], -5);
}

TEST(ResampleInstall, BoxReduceHandsRowsWiderThan1500ToTheHostWhole) {
  SavedSlot slot(24, reinterpret_cast<HostRoutine>(&hostBoxReduce));
  // Two source rows of 1501 / 4 pixels of 2 x 4 samples each, 3004 bytes apart.
  std::vector<uint8_t> source(2 * 3004, 7), destination(1501, 0);
  BoxReduce8(source.data(), destination.data(), 1, 1501, 3004, 1501, 4, 2, 2);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.source, source.data());
  const int32_t expected[7] = {1, 1501, 3004, 1501, 4, 2, 2};
  EXPECT_TRUE(std::equal(expected, expected + 7, seen.args));
  EXPECT_EQ(destination[0], 0);  // written by nobody: the stand-in host routine does nothing

  BoxReduce8(source.data(), destination.data(), 1, 1500, 3004, 1500, 4, 2, 2);
  EXPECT_EQ(seen.calls, 1);  // 1500 is the module's own
  EXPECT_EQ(destination[0], 7);
  EXPECT_EQ(destination[1499], 7);
}

}  // namespace
