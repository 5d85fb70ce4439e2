// Every slot the installers write is accounted for: it has a verification check,
// or it is in the list of forwarded slots (marked in the installer lists) and what is
// written there forwards to the host's routine of that slot. The list holds no
// slot the installers do not write, and no slot that also has a check.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "host/install.h"
#include "host/module_state.h"
#include "refhost/refhost.h"
#include "tests/install_recorder.h"
#include "verify/forwarded.h"
#include "verify/runner.h"
#include "verify/session.h"

using namespace tarnell;

namespace {

using SlotKey = std::pair<uint32_t, int>;

constexpr unsigned kEveryFeature = 63;

// What every installer leaves in its suite's table for these flags: slot -> routine.
std::map<SlotKey, HostRoutine> written(const CpuFeatureFlags& flags) {
  std::map<SlotKey, HostRoutine> out;
  std::set<uint32_t> suites;
  for (const verify::InstallerWrites& installer : verify::installerWrites()) suites.insert(installer.suite);
  for (uint32_t suite : suites) {
    const installs::Installed w = installs::recordSuite(suite, flags);
    for (int slot : w.order) out[{suite, slot}] = w.at(slot);
  }
  return out;
}

std::string keyText(SlotKey k) { return std::string(kSuites[suiteIndexOf(k.first)].name) + ":" + std::to_string(k.second); }

TEST(Coverage, ForwardedSlotsAreListedOnceInSuiteAndSlotOrderAndHaveNoCheck) {
  const auto list = verify::forwardedSlots();
  ASSERT_FALSE(list.empty());
  for (std::size_t i = 0; i < list.size(); ++i) {
    EXPECT_EQ(verify::findCheck(list[i].suite, list[i].slot), nullptr) << keyText({list[i].suite, list[i].slot});
    EXPECT_NE(std::string(list[i].name), "");
    if (i == 0) continue;
    const int a = suiteIndexOf(list[i - 1].suite), b = suiteIndexOf(list[i].suite);
    EXPECT_TRUE(a < b || (a == b && list[i - 1].slot < list[i].slot)) << keyText({list[i].suite, list[i].slot});
  }
}

TEST(Coverage, EveryForwardedSlotIsWrittenWithAForwarderOnAProcessorWithEveryFeature) {
  const std::map<SlotKey, HostRoutine> all = written(installs::flagsOfBits(kEveryFeature));
  // The host routine a forwarder must reach: it notes its arguments and answers.
  static uintptr_t seen[4];
  static int calls;
  using Fn = uintptr_t(uintptr_t, uintptr_t, uintptr_t, uintptr_t);
  Fn* const host = [](uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) -> uintptr_t {
    seen[0] = a, seen[1] = b, seen[2] = c, seen[3] = d;
    ++calls;
    return 0x5EC0DE;
  };
  for (const verify::SlotName& f : verify::forwardedSlots()) {
    const SlotKey key{f.suite, f.slot};
    const auto found = all.find(key);
    ASSERT_NE(found, all.end()) << keyText(key) << " (" << f.name << ") is listed as forwarded but no installer writes it";
    HostRoutine& saved = tarnell_saved_tables[suiteIndexOf(f.suite)][f.slot];
    const HostRoutine keep = saved;
    saved = reinterpret_cast<HostRoutine>(host);
    calls = 0;
    const uintptr_t result = reinterpret_cast<Fn*>(found->second)(11, 0xFFFFFFFF80000000u, 33, uintptr_t{1} << 40);
    saved = keep;
    EXPECT_EQ(calls, 1) << keyText(key);
    EXPECT_EQ(result, 0x5EC0DEu) << keyText(key);
    EXPECT_EQ(seen[0], 11u) << keyText(key);
    EXPECT_EQ(seen[1], 0xFFFFFFFF80000000u) << keyText(key);
    EXPECT_EQ(seen[3], uintptr_t{1} << 40) << keyText(key);
  }
}

TEST(Coverage, EveryWrittenSlotIsCheckedOrForwardedUnderEveryFlagSet) {
  std::set<SlotKey> uncovered;
  for (unsigned bits = 0; bits <= kEveryFeature; ++bits)
    for (const auto& [key, routine] : written(installs::flagsOfBits(bits)))
      if (verify::findCheck(key.first, key.second) == nullptr && verify::findForwarded(key.first, key.second) == nullptr)
        uncovered.insert(key);
  std::string names;
  for (const SlotKey& k : uncovered) names.append(" ").append(keyText(k));
  EXPECT_TRUE(uncovered.empty()) << "written, but neither checked nor listed as forwarded:" << names;
}

// The module as the tool loads it: its start-up on this processor leaves nothing
// unaccounted for, and the three lists add up.
TEST(Coverage, TheStartedModuleHasEveryReplacedSlotAccountedFor) {
  std::string error;
  static auto module = verify::LoadedModule::load(TARNELL_MODULE_PATH, &error);
  ASSERT_TRUE(module) << error;
  refhost::ReferenceHost host;
  ASSERT_TRUE(verify::startModule(module->pluginMain(), host).ok());
  const verify::Coverage c = verify::coverageOf(host);
  EXPECT_TRUE(c.uncovered.empty()) << c.uncovered.size() << " slots, the first "
                                   << keyText({c.uncovered.front().suite, c.uncovered.front().slot});
  EXPECT_EQ(c.replaced.size(), c.checked.size() + c.forwarded.size() + c.uncovered.size());
  std::size_t replaced = 0;
  for (const SuiteSpec& desc : kSuites) replaced += host.replacedSlots(desc.key).size();
  EXPECT_EQ(c.replaced.size(), replaced);
  for (const verify::SlotName& f : c.forwarded) EXPECT_NE(verify::findForwarded(f.suite, f.slot), nullptr);
}

}  // namespace
