// Every body of every slot on this one machine: the module's code (the static
// library) is started on a reference host once per flag set at or below this
// processor, narrowest first, and every check runs wherever a tier installs a
// body that no other tier checked here has run: the bodies of the narrower tiers
// that this processor's own never reaches (the loaded module's tier is
// EveryCheck's), and the bodies a processor without SSE2 would get.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "host/kernels.h"
#include "host/startup.h"
#include "refhost/refhost.h"
#include "tests/tiers.h"
#include "verify/installs.h"
#include "verify/runner.h"

using namespace tarnell;

namespace {

struct Tier {
  std::string name;
  CpuFeatureFlags flags;
};

// No SSE at all; SSE without SSE2; then each level this processor reaches.
const std::vector<Tier>& tiers() {
  static const std::vector<Tier> all = [] {
    const CpuFeatureFlags here = tests::thisProcessor();
    CpuFeatureFlags none = flagsAtLevel(here, Level::plain);
    none.sse = none.sseSecond = 0;
    CpuFeatureFlags sse = flagsAtLevel(here, Level::plain);
    sse.sse = sse.sseSecond = 1;
    std::vector<Tier> out = {{"nosse", none}, {"sse", sse}};
    for (Level level : tests::levelsHere()) out.push_back({levelName(level), flagsAtLevel(here, level)});
    return out;
  }();
  return all;
}

void startAt(refhost::ReferenceHost& host, const CpuFeatureFlags& flags) {
  int16_t result = 1;
  startupAtTier(host.hostInfo(), &result, flags);
  ASSERT_EQ(result, 0);
  host.registerNoise();
}

// What each tier installs in each checked slot.
std::vector<std::map<const verify::Check*, HostRoutine>> installedPerTier() {
  std::vector<std::map<const verify::Check*, HostRoutine>> out;
  for (const Tier& tier : tiers()) {
    refhost::ReferenceHost host;
    startAt(host, tier.flags);
    std::map<const verify::Check*, HostRoutine> slots;
    for (const verify::Check& c : verify::allChecks())
      if (host.replaced(c.suite, c.slot)) slots[&c] = host.live(c.suite, c.slot);
    out.push_back(std::move(slots));
  }
  return out;
}

struct Case {
  std::size_t tier;
  const verify::Check* check;
};

// A check runs at a tier when the body installed there differs from this
// processor's and from every body a narrower tier already ran.
std::vector<Case> cases() {
  const auto installed = installedPerTier();
  const auto& native = installed.back();
  std::vector<Case> out;
  for (const verify::Check& c : verify::allChecks()) {
    std::vector<HostRoutine> seen;
    if (auto n = native.find(&c); n != native.end()) seen.push_back(n->second);
    for (std::size_t t = 0; t + 1 < installed.size(); ++t) {
      const auto it = installed[t].find(&c);
      if (it == installed[t].end() || std::find(seen.begin(), seen.end(), it->second) != seen.end()) continue;
      seen.push_back(it->second);
      out.push_back({t, &c});
    }
  }
  return out;
}

class EveryBody : public ::testing::TestWithParam<Case> {};

TEST_P(EveryBody, MatchesTheHost) {
  const Case c = GetParam();
  refhost::ReferenceHost host;
  startAt(host, tiers()[c.tier].flags);
  verify::VerifyOptions options;
  options.seed = 20261125;
  const verify::CheckResult r = verify::runCheck(*c.check, host, options);
  ASSERT_NE(r.outcome, verify::Outcome::NotInstalled);
  EXPECT_EQ(r.outcome, verify::Outcome::Passed) << r.failures << " mismatches; first: " << r.firstFailure;
  EXPECT_GT(r.cases, 0);
}

std::string caseName(const ::testing::TestParamInfo<Case>& info) {
  const verify::Check& c = *info.param.check;
  return tiers()[info.param.tier].name + "_" + kSuites[suiteIndexOf(c.suite)].name + "_" + std::to_string(c.slot) +
         "_" + c.name;
}

INSTANTIATE_TEST_SUITE_P(Tiers, EveryBody, ::testing::ValuesIn(cases()), caseName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(EveryBody);

// The narrower tiers install exactly the slots the installer lists give for their
// flags, and never a body above their level.
TEST(Tiers, EachTierInstallsItsListedSlotsWithBodiesAtOrBelowItsLevel) {
  for (const Tier& tier : tiers()) {
    refhost::ReferenceHost host;
    startAt(host, tier.flags);
    const verify::FeatureSet features{tier.flags.sseSecond != 0, tier.flags.sse2 != 0, tier.flags.ssse3 != 0,
                                      tier.flags.sse41 != 0,     tier.flags.avx != 0,  tier.flags.avx2 != 0};
    for (const SuiteSpec& desc : kSuites)
      EXPECT_EQ(host.replacedSlots(desc.key), verify::expectedReplacedSlots(desc.key, features))
          << tier.name << ' ' << desc.name;
    const Kernels k = resolveKernels(tier.flags);
    k.visit([&](auto, HostRoutine routine, Level level) {
      EXPECT_TRUE(routine == nullptr || flagsReach(tier.flags, level)) << tier.name << ' ' << levelName(level);
    });
  }
}

}  // namespace
