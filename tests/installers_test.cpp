// Installer plumbing, and the suites whose routines are not built yet: their
// installers write nothing whatever the processor offers.
#include <gtest/gtest.h>

#include <vector>

#include "host/install.h"

using namespace tarnell;

namespace {

struct Writes {
  std::vector<int> slots;
  static void observe(void* context, int slot, HostRoutine) { static_cast<Writes*>(context)->slots.push_back(slot); }
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
std::vector<int> writesOf(void (*install)(const SuiteWriter<Suite>&, const CpuFeatureFlags&), const CpuFeatureFlags& f) {
  std::vector<HostRoutine> table(kSuites[suiteIndexOf(Suite)].slotCount, nullptr);
  Writes w;
  install(SuiteWriter<Suite>(table.data(), &Writes::observe, &w), f);
  return w.slots;
}

// One test per suite, so that each family replaces its own when it lands.
TEST(Installers, FilterNotYetBuiltWritesNothing) {
  for (const CpuFeatureFlags& f : everyFlagSet()) EXPECT_TRUE(writesOf<code::filt>(&installFilter, f).empty());
}

TEST(Installers, ResampleNotYetBuiltWritesNothing) {
  for (const CpuFeatureFlags& f : everyFlagSet()) EXPECT_TRUE(writesOf<code::rsmp>(&installResample, f).empty());
}

TEST(Installers, PathNotYetBuiltWritesNothing) {
  std::vector<HostRoutine> table(kSuites[kPath].slotCount, nullptr);
  Writes w;
  installPath(SuiteWriter<code::path>(table.data(), &Writes::observe, &w), "Tarnell");
  EXPECT_TRUE(w.slots.empty());
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
