// Installer plumbing, and what every suite's installer keeps to whatever the
// processor offers: it writes only slots the module copied, and never a null routine.
#include <gtest/gtest.h>

#include <vector>

#include "host/install.h"
#include "tests/install_recorder.h"

using namespace tarnell;

namespace {

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
    const installs::Installed w = installs::recordInstall<Suite>(install, f);
    for (std::size_t i = 0; i < w.order.size(); ++i) {
      EXPECT_TRUE(w.order[i] >= 0 && w.order[i] < count) << kSuites[suiteIndexOf(Suite)].name << ' ' << w.order[i];
      EXPECT_NE(w.routines[i], nullptr) << kSuites[suiteIndexOf(Suite)].name << ' ' << w.order[i];
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
  const auto a = reinterpret_cast<HostRoutine>(&everyFlagSet);
  const installs::Installed w = installs::recordInstall<code::core>([&](const SuiteWriter<code::core>& writer) {
    writer.write(5, a);
    writer.write(2, a);
    writer.write(5, nullptr);
  });
  EXPECT_EQ(w.order, (std::vector<int>{5, 2, 5}));
  EXPECT_EQ(w.routines, (std::vector<HostRoutine>{a, a, nullptr}));
  EXPECT_EQ(w.at(2), a);
  EXPECT_EQ(w.at(5), nullptr);
}

}  // namespace
