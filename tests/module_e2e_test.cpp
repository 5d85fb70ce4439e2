// The real module, loaded the way a host loads it: start-up, installed slots, a
// second start-up on a fresh host, and every verification check.
#include <gtest/gtest.h>
#include <xmmintrin.h>


#include "host/cpu_features.h"
#include "refhost/refhost.h"
#include "tests/ftz_probe.h"
#include "verify/installs.h"
#include "verify/runner.h"
#include "verify/session.h"

using namespace tarnell;

namespace {

verify::LoadedModule& module() {
  static std::unique_ptr<verify::LoadedModule> loaded = [] {
    std::string error;
    auto m = verify::LoadedModule::load(TARNELL_MODULE_PATH, &error);
    if (!m) ADD_FAILURE() << error;
    return m;
  }();
  return *loaded;
}

verify::FeatureSet thisProcessor() {
  const CpuFeatureFlags f = computeFeatureFlags(identification(), topology());
  return {f.sseSecond != 0, f.sse2 != 0, f.ssse3 != 0, f.sse41 != 0, f.avx != 0, f.avx2 != 0};
}

void expectInstalledAsTheTablesSay(const refhost::ReferenceHost& host) {
  for (const SuiteSpec& desc : kSuites)
    EXPECT_EQ(host.replacedSlots(desc.key), verify::expectedReplacedSlots(desc.key, thisProcessor())) << desc.name;
}

TEST(Module, StartsUpAndReplacesExactlyTheExpectedSlots) {
  refhost::ReferenceHost host;
  const verify::StartupOutcome outcome = verify::startModule(module().pluginMain(), host);
  ASSERT_TRUE(outcome.ok()) << outcome.result;
  expectInstalledAsTheTablesSay(host);
}

TEST(Module, SecondStartupOnAFreshHostInstallsAgain) {
  refhost::ReferenceHost first;
  ASSERT_TRUE(verify::startModule(module().pluginMain(), first).ok());
  refhost::ReferenceHost second;
  ASSERT_TRUE(verify::startModule(module().pluginMain(), second).ok());
  expectInstalledAsTheTablesSay(second);
  expectInstalledAsTheTablesSay(first);  // the first host's tables keep their routines
}

TEST(Module, MissingSuiteFailsStartupAndInstallsNothing) {
  for (const SuiteSpec& desc : kSuites) {
    refhost::HostOptions options;
    options.omit = {desc.key};
    refhost::ReferenceHost host(options);
    int16_t result = 0;
    EXPECT_EQ(module().pluginMain()(kSelectorStartup, host.hostInfo(), 0, &result), -1) << desc.name;
    EXPECT_EQ(result, -1);
    for (const SuiteSpec& other : kSuites) EXPECT_TRUE(host.replacedSlots(other.key).empty()) << desc.name;
  }
}

TEST(Module, FlushToZeroOnlyOnTheStartupThread) {
  const FlushToZeroSeen seen = observeFlushToZero([] {
    refhost::ReferenceHost host;
    verify::startModule(module().pluginMain(), host);
  });
  EXPECT_EQ(seen.onStartupThread, thisProcessor().sse);
  EXPECT_FALSE(seen.onOtherThread);
}

// Every check of the harness against the real module, on this processor.
class EveryCheck : public ::testing::TestWithParam<const verify::Check*> {};

TEST_P(EveryCheck, ModuleMatchesHost) {
  refhost::ReferenceHost host;
  ASSERT_TRUE(verify::startModule(module().pluginMain(), host).ok());
  verify::VerifyOptions options;
  options.seed = 20261121;
  const verify::CheckResult r = verify::runCheck(*GetParam(), host, options);
  if (r.outcome == verify::Outcome::NotInstalled) GTEST_SKIP() << "not installed on this processor";
  ASSERT_NE(r.outcome, verify::Outcome::NoHostRoutine) << "the reference host lacks this slot's routine";
  EXPECT_EQ(r.outcome, verify::Outcome::Passed) << r.failures << " mismatches; first: " << r.firstFailure;
  EXPECT_GT(r.cases, 0);
}

std::vector<const verify::Check*> checks() {
  std::vector<const verify::Check*> all;
  for (const verify::Check& c : verify::allChecks()) all.push_back(&c);
  return all;
}

std::string checkName(const ::testing::TestParamInfo<const verify::Check*>& info) {
  return std::string(kSuites[suiteIndexOf(info.param->suite)].name) + "_" + std::to_string(info.param->slot) + "_" +
         info.param->name;
}

INSTANTIATE_TEST_SUITE_P(Verify, EveryCheck, ::testing::ValuesIn(checks()), checkName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(EveryCheck);

}  // namespace
