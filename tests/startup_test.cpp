// PluginMain's selectors, suite lookup and acquisition, and the start-up sequence,
// through the static library against the reference host.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cstring>

#include "host/constants.h"
#include "host/cpu_features.h"
#include "host/module_state.h"
#include "host/suites.h"
#include "refhost/refhost.h"
#include "tests/module_start.h"
#include "tests/ftz_probe.h"


using namespace tarnell;
using refhost::HostOptions;
using refhost::ReferenceHost;

namespace {

int16_t start(ReferenceHost& host, int32_t* status = nullptr) {
  int16_t result = 12345;
  const int32_t s = PluginMain(kSelectorStartup, host.hostInfo(), 0, &result);
  if (status) *status = s;
  return result;
}

bool anySlotReplaced(const ReferenceHost& host) {
  for (const SuiteSpec& desc : kSuites)
    if (!host.replacedSlots(desc.key).empty()) return true;
  return false;
}

TEST(PluginMain, SelectorsOtherThanStartupDoNothing) {
  ReferenceHost host;
  for (int16_t selector : {int16_t{0}, int16_t{2}}) {
    int16_t result = 77;
    EXPECT_EQ(PluginMain(selector, host.hostInfo(), 0, &result), 0);
    EXPECT_EQ(result, 0);
  }
  for (int16_t selector : {int16_t{3}, int16_t{-1}, int16_t{32767}}) {
    int16_t result = 77;
    EXPECT_EQ(PluginMain(selector, host.hostInfo(), 0, &result), -30300);
    EXPECT_EQ(result, -30300);
  }
  EXPECT_FALSE(anySlotReplaced(host));
  EXPECT_TRUE(host.calls().empty());
}

TEST(PluginMain, StartupSucceedsAndCopiesEveryTableBeforeInstalling) {
  ReferenceHost host;
  int32_t status = -5;
  EXPECT_EQ(start(host, &status), 0);
  EXPECT_EQ(status, 0);
  for (int i = 0; i < kSuiteCount; ++i) {
    EXPECT_EQ(g_liveTables[i], host.liveTable(kSuites[i].key)) << kSuites[i].name;
    for (int slot = 0; slot < kSuites[i].slotCount; ++slot)
      ASSERT_EQ(tarnell_saved_tables[i][slot], host.original(kSuites[i].key, slot)) << kSuites[i].name << slot;
  }
}

TEST(PluginMain, StartupFillsTheConstantVectors) {
  ReferenceHost host;
  ASSERT_EQ(start(host), 0);
  if (g_cpuFeatureFlags.sse2 == 0) GTEST_SKIP() << "no SSE2";
  auto words = [](int v, uint16_t expected) {
    for (int i = 0; i < 8; ++i) {
      uint16_t w;
      std::memcpy(&w, g_constantVectors[v].bytes + 2 * i, 2);
      if (w != expected) return false;
    }
    return true;
  };
  auto dwords = [](int v, uint32_t expected) {
    for (int i = 0; i < 4; ++i) {
      uint32_t w;
      std::memcpy(&w, g_constantVectors[v].bytes + 4 * i, 4);
      if (w != expected) return false;
    }
    return true;
  };
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(g_constantVectors[kVecZero].bytes[i], 0);
    EXPECT_EQ(g_constantVectors[kVecBytes80].bytes[i], 0x80);
    EXPECT_EQ(g_constantVectors[kVecAllOnes].bytes[i], 0xFF);
  }
  EXPECT_TRUE(words(kVecWords128, 128));
  EXPECT_TRUE(words(kVecWords255, 255));
  EXPECT_TRUE(words(kVecWords4000, 0x4000));
  EXPECT_TRUE(words(kVecWords8000, 0x8000));
  EXPECT_TRUE(dwords(kVecDwords4000, 0x4000));
  EXPECT_TRUE(dwords(kVecDwords8000, 0x8000));
}

TEST(PluginMain, EmptyOrNegativeDirectoryFailsWithoutAskingTheHost) {
  for (int32_t count : {0, -1, INT32_MIN}) {
    HostOptions options;
    options.overrideEntryCount = true;
    options.entryCount = count;
    ReferenceHost host(options);
    int32_t status = 0;
    EXPECT_EQ(start(host, &status), -1) << count;
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(host.queries().empty());
    EXPECT_FALSE(anySlotReplaced(host));
  }
}

TEST(PluginMain, NullDirectoryFails) {
  int16_t result = 0;
  EXPECT_EQ(PluginMain(kSelectorStartup, nullptr, 0, &result), -1);
  EXPECT_EQ(result, -1);
}

TEST(SuiteLookup, WrongVersionIsNotTakenButTheHostIsAsked) {
  HostOptions options;
  options.version[code::filt] = 8;
  ReferenceHost host(options);
  EXPECT_EQ(start(host), -1);
  ASSERT_FALSE(host.queries().empty());
  EXPECT_EQ(host.queries().back(), std::make_pair(code::requesterModule, code::filt));
  EXPECT_FALSE(anySlotReplaced(host));
}

TEST(SuiteLookup, SuiteOfferedThroughTheQueryIsAcquired) {
  HostOptions options;
  options.offerThroughQuery = {code::sele, code::disp};
  ReferenceHost host(options);
  EXPECT_EQ(start(host), 0);
  EXPECT_EQ(g_liveTables[kSele], host.liveTable(code::sele));
  EXPECT_EQ(g_liveTables[kDisp], host.liveTable(code::disp));
}

TEST(SuiteLookup, QueryIsNotAskedOfAnOldCoreSuite) {
  // The core entry must be version 4 and revision 5 or more to be asked; a core of
  // revision 4 fails start-up itself, so look the suite up directly.
  HostOptions options;
  options.omit = {code::rsmp};
  options.revision[code::core] = 4;
  ReferenceHost host(options);
  EXPECT_EQ(findSuite(host.hostInfo(), code::rsmp, 5), nullptr);
  EXPECT_TRUE(host.queries().empty());
  EXPECT_NE(findSuite(host.hostInfo(), code::blnd, 6), nullptr);
}

TEST(SuiteLookup, NegativeRevisionPassesEveryMinimum) {
  HostOptions options;
  options.revision[code::blnd] = -1;
  options.revision[code::core] = INT16_MIN;  // also still asked as a fallback
  ReferenceHost host(options);
  EXPECT_EQ(start(host), 0);
}

TEST(SuiteLookup, RevisionBelowTheMinimumFails) {
  for (const SuiteSpec& desc : kSuites) {
    HostOptions options;
    options.revision[desc.key] = static_cast<int16_t>(desc.minRevision - 1);
    ReferenceHost host(options);
    EXPECT_EQ(start(host), -1) << desc.name;
    HostOptions exact;
    exact.revision[desc.key] = desc.minRevision;
    ReferenceHost enough(exact);
    EXPECT_EQ(start(enough), 0) << desc.name;
  }
}

TEST(SuiteLookup, FirstMatchingEntryWins) {
  ReferenceHost host;
  const HostSuite* blnd = findSuite(host.hostInfo(), code::blnd, 6);
  ASSERT_NE(blnd, nullptr);
  EXPECT_EQ(blnd->slots, host.liveTable(code::blnd));
  EXPECT_EQ(findSuite(host.hostInfo(), code::blnd, 7), nullptr);
}

TEST(Acquisition, MissingLastSuiteLeavesNineCopiedAndNothingInstalled) {
  ReferenceHost earlier;  // gives the saved tables a known state to be overwritten
  ASSERT_EQ(start(earlier), 0);
  HostOptions options;
  options.omit = {code::path};
  ReferenceHost host(options);
  EXPECT_EQ(start(host), -1);
  for (int i = 0; i < kPath; ++i) {
    EXPECT_EQ(g_liveTables[i], host.liveTable(kSuites[i].key));
    EXPECT_EQ(tarnell_saved_tables[i][0], host.original(kSuites[i].key, 0));
  }
  EXPECT_EQ(g_liveTables[kPath], earlier.liveTable(code::path));
  EXPECT_FALSE(anySlotReplaced(host));
}

TEST(Startup, FlushToZeroIsSetOnTheStartupThreadOnly) {
  if (g_cpuFeatureFlags.sse == 0 && identification().leaf1[3] == 0) GTEST_SKIP();
  const unsigned saved = _mm_getcsr();
  const FlushToZeroSeen seen = observeFlushToZero([] {
    ReferenceHost host;
    start(host);
  });
  EXPECT_TRUE(seen.onStartupThread);
  EXPECT_FALSE(seen.onOtherThread);
  EXPECT_EQ(_mm_getcsr(), saved);  // this thread never ran start-up
}

TEST(ModuleState, AuxValueRoundTrips) {
  setModuleAuxValue(0xDEADBEEF);
  EXPECT_EQ(moduleAuxValue(), 0xDEADBEEFu);
  setModuleAuxValue(0);
}

}  // namespace
