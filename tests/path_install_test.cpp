// The 'path' installer: the two debug gestalts it asks, what it derives from the
// answers (flag, guard, reports), which fill-array build it installs, and the
// forwarded slot 47.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "pathfill/fill_array.h"
#include "refhost/refhost.h"
#include "tests/module_start.h"
#include "tests/install_recorder.h"


using namespace tarnell;
using refhost::GestaltAnswer;
using refhost::HostOptions;
using refhost::ReferenceHost;

namespace {

struct Installed {
  std::vector<int> order;
  std::vector<HostRoutine> table;
  std::vector<std::pair<uint32_t, uint32_t>> queries;
  std::vector<refhost::Diagnostic> reports;
  uint8_t enabled = 0xEE;
  uint32_t guard = 0xEEEEEEEE;
};

// Runs the installer against the host's live 'core' table (its query and report
// services), writing into a scratch 'path' table. queryOverride replaces the
// host's slot 5 for hosts that answer in ways the reference host does not.
Installed install(GestaltAnswer debug, GestaltAnswer guard, HostRoutine queryOverride = nullptr) {
  HostOptions options;
  options.pathDebug = debug;
  options.pathDebugGuard = guard;
  ReferenceHost host(options);
  if (queryOverride != nullptr) host.liveTable(code::core)[5] = queryOverride;
  HostRoutine* const keep = g_liveTables[kCore];
  g_liveTables[kCore] = host.liveTable(code::core);
  pathfill::pathDebugEnabled = 0xEE;
  pathfill::pathDebugGuard = 0xEEEEEEEE;
  Installed out;
  const installs::Installed w =
      installs::recordInstall<code::path>([](const SuiteWriter<code::path>& writer) { installPath(writer, "Tarnell"); },
                                          CpuFeatureFlags{});
  g_liveTables[kCore] = keep;
  out.order = w.order;
  out.table = w.table;
  out.queries = host.queries();
  out.reports = host.diagnostics();
  out.enabled = pathfill::pathDebugEnabled;
  out.guard = pathfill::pathDebugGuard;
  return out;
}

HostRoutine slot24(const Installed& i) { return i.table[24]; }
const HostRoutine kPlain = reinterpret_cast<HostRoutine>(&pathfill::ApplyFillArrayOperation);
const HostRoutine kChecking = reinterpret_cast<HostRoutine>(&pathfill::CApplyFillArrayOperation);

std::vector<int32_t> lines(const Installed& i) {
  std::vector<int32_t> out;
  for (const refhost::Diagnostic& d : i.reports) {
    EXPECT_EQ(d.source, "CommonPathLoops");
    EXPECT_EQ(d.severity, 1);
    out.push_back(d.line);
  }
  return out;
}

TEST(PathInstall, AsksDebugThenGuardWithTheGestaltClassAndWritesItsThreeSlotsInOrder) {
  const Installed i = install({}, {});
  const std::vector<std::pair<uint32_t, uint32_t>> asked = {{code::gestaltClass, code::pathDebug},
                                                            {code::gestaltClass, code::pathDebugGuard}};
  EXPECT_EQ(i.queries, asked);
  EXPECT_EQ(i.order, installs::listedOrder(code::path, CpuFeatureFlags{}));
  EXPECT_EQ(i.table[46], reinterpret_cast<HostRoutine>(&pathfill::EstimateRowCrossings));
  EXPECT_NE(i.table[47], nullptr);
}

TEST(PathInstall, NeitherGestaltRecognisedInstallsThePlainBuildSilently) {
  const Installed i = install({}, {});
  EXPECT_TRUE(i.reports.empty());
  EXPECT_EQ(slot24(i), kPlain);
  EXPECT_EQ(i.enabled, 0);
  EXPECT_EQ(i.guard, 0u);
}

TEST(PathInstall, DebugOffKeepsTheGuardAtZeroWhateverItsAnswer) {
  for (GestaltAnswer guard : {GestaltAnswer{true, 5}, GestaltAnswer{true, uint64_t{1} << 40}, GestaltAnswer{false, 0}}) {
    const Installed i = install({true, 0}, guard);
    EXPECT_EQ(slot24(i), kPlain);
    EXPECT_EQ(i.enabled, 0);
    EXPECT_EQ(i.guard, 0u);
    EXPECT_TRUE(i.reports.empty());
  }
}

TEST(PathInstall, DebugOnInstallsTheCheckingBuildWithTheGuardsLow32Bits) {
  const Installed i = install({true, 1}, {true, 0xC0FFEE});
  EXPECT_EQ(slot24(i), kChecking);
  EXPECT_EQ(i.enabled, 1);
  EXPECT_EQ(i.guard, 0xC0FFEEu);
  EXPECT_TRUE(i.reports.empty());
  // Any nonzero 64-bit answer turns debugging on, the top bit alone included.
  EXPECT_EQ(install({true, uint64_t{1} << 63}, {true, 3}).enabled, 1);
}

TEST(PathInstall, UnrecognisedGuardGestaltIsReportedAndLeavesGuardZero) {
  const Installed i = install({true, 1}, {false, 0});
  EXPECT_EQ(lines(i), (std::vector<int32_t>{287}));
  EXPECT_EQ(i.reports[0].message, "Path debug guard value gestalt, 'pdgv' not recognized");
  EXPECT_EQ(slot24(i), kChecking);
  EXPECT_EQ(i.guard, 0u);
}

TEST(PathInstall, GuardAnswersFrom4294967295UpAreReportedNegativeOnesPass) {
  const Installed big = install({true, 1}, {true, uint64_t{1} << 32});
  EXPECT_EQ(lines(big), (std::vector<int32_t>{288}));
  EXPECT_EQ(big.reports[0].message, "Path debug guard value is bigger than expected");
  EXPECT_EQ(big.guard, 0u);
  EXPECT_EQ(slot24(big), kChecking);
  EXPECT_EQ(lines(install({true, 1}, {true, 0xFFFFFFFF})), (std::vector<int32_t>{288}));
  EXPECT_TRUE(install({true, 1}, {true, 0xFFFFFFFE}).reports.empty());
  const Installed negative = install({true, 1}, {true, static_cast<uint64_t>(-5)});
  EXPECT_TRUE(negative.reports.empty());
  EXPECT_EQ(negative.guard, 0xFFFFFFFBu);
}

// A host that writes an answer while saying it does not recognise the selector:
// the answer is used as it stands, and each gestalt is reported.
std::vector<uint64_t> g_answersOnEntry;
uint8_t writesButRecognisesNothing(uint32_t cls, uint32_t selector, void* out, const void*) {
  auto* answer = static_cast<uint64_t*>(out);
  g_answersOnEntry.push_back(*answer);
  if (cls == code::gestaltClass) *answer = selector == code::pathDebug ? 7 : (uint64_t{1} << 40) + 9;
  return 0;
}

TEST(PathInstall, AllThreeReportsInOrderWhenTheHostWritesUnrecognisedAnswers) {
  g_answersOnEntry.clear();
  const Installed i = install({}, {}, reinterpret_cast<HostRoutine>(&writesButRecognisesNothing));
  EXPECT_EQ(g_answersOnEntry, (std::vector<uint64_t>{0, 0}));  // each answer zeroed before the call
  EXPECT_EQ(lines(i), (std::vector<int32_t>{286, 287, 288}));
  ASSERT_EQ(i.reports.size(), 3u);
  EXPECT_EQ(i.reports[0].message, "Path debug enabled gestalt, 'pdbg' not recognized");
  EXPECT_EQ(slot24(i), kChecking);
  EXPECT_EQ(i.enabled, 1);
  EXPECT_EQ(i.guard, 9u);
}

// Slot 47 jumps to the host's own routine with the arguments untouched.
int64_t g_forwarded[3];
void savedSlot47(int64_t a, int64_t b, int64_t c) { g_forwarded[0] = a, g_forwarded[1] = b, g_forwarded[2] = c; }

TEST(PathInstall, SlotFortySevenForwardsToTheHostsRoutine) {
  const Installed i = install({}, {});
  HostRoutine* saved = tarnell_saved_tables[kPath];
  const HostRoutine keep = saved[47];
  saved[47] = reinterpret_cast<HostRoutine>(&savedSlot47);
  reinterpret_cast<void (*)(int64_t, int64_t, int64_t)>(i.table[47])(-1, 1LL << 40, 47);
  saved[47] = keep;
  EXPECT_EQ(g_forwarded[0], -1);
  EXPECT_EQ(g_forwarded[1], 1LL << 40);
  EXPECT_EQ(g_forwarded[2], 47);
}

TEST(PathInstall, RunsLastAtStartUp) {
  HostOptions options;
  options.pathDebug = {true, 1};
  ReferenceHost host(options);
  int16_t result = -9;
  PluginMain(kSelectorStartup, host.hostInfo(), 0, &result);
  ASSERT_EQ(result, 0);
  const auto queries = host.queries();
  ASSERT_GE(queries.size(), 2u);
  EXPECT_EQ(queries.back(), std::make_pair(code::gestaltClass, code::pathDebugGuard));
  EXPECT_EQ(host.live(code::path, 24), kChecking);
  EXPECT_EQ(host.replacedSlots(code::path), (std::vector<int>{24, 46, 47}));
  EXPECT_EQ(lines({{}, {}, {}, host.diagnostics()}), (std::vector<int32_t>{287}));
}

}  // namespace
