// Installer plumbing, and what every suite's installer keeps to whatever the
// processor offers: it writes only slots the module copied, and never a null routine.
#include <gtest/gtest.h>

#include <vector>

#include "host/install.h"

using namespace tarnell;

namespace {

struct Writes {
  std::vector<int> slots;
  std::vector<HostRoutine> routines;
  static void observe(void* context, int slot, HostRoutine routine) {
    static_cast<Writes*>(context)->slots.push_back(slot);
    static_cast<Writes*>(context)->routines.push_back(routine);
  }
};

std::vector<CpuFeatureFlags> everyFlagSet() {
  std::vector<CpuFeatureFlags> sets;
  for (unsigned bits = 0; bits < 64; ++bits) {
    CpuFeatureFlags f{};
    f.mmx = 1;
    f.sse = f.sseSecond = bits & 1;
    f.sse2 = (bits >> 1) & 1;
    f.sse3 = f.ssse3 = (bits >> 2) & 1;
    f.sse41 = (bits >> 3) & 1;
    f.avx = (bits >> 4) & 1;
    f.avx2 = (bits >> 5) & 1;
    sets.push_back(f);
  }
  return sets;
}

template <uint32_t Suite>
void expectSlotsInRange(void (*install)(const SuiteWriter<Suite>&, const CpuFeatureFlags&)) {
  const int count = kSuites[suiteIndexOf(Suite)].slotCount;
  for (const CpuFeatureFlags& f : everyFlagSet()) {
    std::vector<HostRoutine> table(static_cast<std::size_t>(count), nullptr);
    Writes w;
    install(SuiteWriter<Suite>(table.data(), &Writes::observe, &w), f);
    for (std::size_t i = 0; i < w.slots.size(); ++i) {
      EXPECT_TRUE(w.slots[i] >= 0 && w.slots[i] < count) << kSuites[suiteIndexOf(Suite)].name << ' ' << w.slots[i];
      EXPECT_NE(w.routines[i], nullptr) << kSuites[suiteIndexOf(Suite)].name << ' ' << w.slots[i];
    }
  }
}

TEST(Installers, EverySuiteWritesOnlyCopiedSlotsAndNoNullRoutine) {
  expectSlotsInRange<code::blnd>(&installBlend);
  expectSlotsInRange<code::conv>(&installConvert);
  expectSlotsInRange<code::filt>(&installFilter);
  expectSlotsInRange<code::memo>(&installMemory);
  expectSlotsInRange<code::pntg>(&installPaint);
  expectSlotsInRange<code::rsmp>(&installResample);
  expectSlotsInRange<code::sele>(&installSelection);
}

TEST(Installers, WriterRecordsEveryWriteInOrder) {
  std::vector<HostRoutine> table(8, nullptr);
  Writes w;
  SuiteWriter<code::core> writer(table.data(), &Writes::observe, &w);
  auto a = reinterpret_cast<HostRoutine>(&Writes::observe);
  writer.write(5, a);
  writer.write(2, a);
  writer.write(5, nullptr);
  EXPECT_EQ(w.slots, (std::vector<int>{5, 2, 5}));
  EXPECT_EQ(table[2], a);
  EXPECT_EQ(table[5], nullptr);
}

}  // namespace
