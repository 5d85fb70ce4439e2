// The slot fuzzer's harness, run here without the fuzzer: the gates hand every
// argument and result through, a module routine that calls the host where the
// host's routine does not is caught, every check runs one case from a recorded
// input and replays it, and every seed in the corpus names a check.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/slot_harness.h"
#include "verify/runner.h"

using namespace tarnell;

namespace {

struct Pair {
  int64_t low, high;
};

// Six integer and eight vector registers, then three arguments on the stack.
double spread(int64_t a, int64_t b, int64_t c, int64_t d, int64_t e, int64_t f, double x0, double x1, double x2,
              double x3, double x4, double x5, double x6, double x7, int64_t s0, double s1, int32_t s2) {
  return static_cast<double>(a + 2 * b + 3 * c + 4 * d + 5 * e + 6 * f) + x0 + 2 * x1 + 3 * x2 + 4 * x3 + 5 * x4 +
         6 * x5 + 7 * x6 + 8 * x7 + static_cast<double>(1000 * s0) + 10000 * s1 + 100000.0 * s2;
}
Pair twoWords(int64_t a, int64_t b) { return {a * 3, b * 5}; }
float lastFloat(float a, float b, int32_t c) { return a * b + static_cast<float>(c); }

TEST(FuzzHarness, GatesHandEveryArgumentAndResultThrough) {
  fuzz::leadGates(reinterpret_cast<HostRoutine>(&spread), reinterpret_cast<HostRoutine>(&twoWords));
  const auto gatedSpread = reinterpret_cast<decltype(&spread)>(fuzz::hostGate());
  EXPECT_EQ(gatedSpread(1, 2, 3, 4, 5, 6, 0.5, 0.25, 1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7, 8.5, 9),
            spread(1, 2, 3, 4, 5, 6, 0.5, 0.25, 1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7, 8.5, 9));
  const Pair p = reinterpret_cast<decltype(&twoWords)>(fuzz::moduleGate())(-11, 1LL << 40);
  EXPECT_EQ(p.low, -33);
  EXPECT_EQ(p.high, 5LL << 40);
  fuzz::leadGates(reinterpret_cast<HostRoutine>(&lastFloat), reinterpret_cast<HostRoutine>(&lastFloat));
  EXPECT_EQ(reinterpret_cast<decltype(&lastFloat)>(fuzz::moduleGate())(1.5f, 3.0f, -2), 2.5f);
}

const verify::Check& checkOf(uint32_t suite, int slot) {
  for (const verify::Check& c : verify::allChecks())
    if (c.suite == suite && c.slot == slot) return c;
  throw std::runtime_error("no such check");
}

HostRoutine g_realScale = nullptr;
// The module's routine, then a buffer notification the host's routine never makes.
void scaleAndNotify(uint8_t* destination, int32_t rows, int32_t columns, int32_t stride, uint16_t k) {
  reinterpret_cast<SlotFnOf<slot::ScaleByConstant8>>(g_realScale)(destination, rows, columns, stride, k);
  if (refhost::ReferenceHost* host = refhost::ReferenceHost::active())
    reinterpret_cast<SlotFnOf<slot::notifyBuffer>>(host->live(code::core, 0))(reinterpret_cast<uintptr_t>(destination),
                                                                               0, 0, 0);
}

TEST(FuzzHarness, ACallTheHostsRoutineDoesNotMakeIsAMismatch) {
  static_assert(std::is_same_v<decltype(&scaleAndNotify), SlotFnOf<slot::ScaleByConstant8>>);
  fuzz::SlotHarness harness;
  const verify::Check& check = checkOf(code::blnd, slot::ScaleByConstant8.number);
  constexpr int kSse2 = 2;
  HostRoutine& live = harness.hostAt(kSse2).liveTable(code::blnd)[check.slot];
  g_realScale = live;
  live = reinterpret_cast<HostRoutine>(&scaleAndNotify);
  fuzz::Outcome outcome;
  for (uint64_t seed = 1; seed < 40 && outcome.failure.empty(); ++seed)
    harness.record(check, kSse2, 0, seed, 512, outcome);
  live = g_realScale;
  EXPECT_NE(outcome.failure.find("calls into the host differ: host none; module core:0(plane "), std::string::npos)
      << outcome.failure;
  // With the module's own routine back, the same case passes.
  harness.record(check, kSse2, 0, 1, 512, outcome);
  EXPECT_EQ(outcome.failure, "");
}

// Every check at this processor's widest tier, in every placement: recorded cases
// pass, stop after the few the input asks for, and their inputs replay the same
// number of cases, which pass too.
TEST(FuzzHarness, EveryCheckRunsFromAnInputAndReplays) {
  fuzz::SlotHarness harness;
  int widest = 0;
  for (std::size_t t = 0; t < fuzz::tiers().size(); ++t)
    if (fuzz::tiers()[t].reached) widest = static_cast<int>(t);
  for (const verify::Check* check : fuzz::checksInKeyOrder()) {
    SCOPED_TRACE(verify::checkLabel(*check));
    int ran = 0;
    for (uint64_t seed = 1; seed <= 9; ++seed) {
      const int placement = static_cast<int>(seed % 3);
      fuzz::Outcome recorded;
      const std::vector<uint8_t> input = harness.record(*check, widest, placement, seed, 1 << 20, recorded);
      ASSERT_NE(recorded.check, nullptr);
      EXPECT_EQ(recorded.failure, "");
      EXPECT_LE(recorded.cases, verify::Context::kMostCases);  // none once the check was told to stop
      if (recorded.cases > 0) ++ran;
      if (recorded.cases == 0 || seed > 3) continue;
      const fuzz::Outcome replayed = harness.run(input.data(), input.size());
      EXPECT_EQ(replayed.check, check);
      EXPECT_EQ(replayed.tier, recorded.tier);
      EXPECT_EQ(replayed.cases, recorded.cases);
      EXPECT_EQ(replayed.failure, "");
    }
    EXPECT_GT(ran, 0);
  }
}

TEST(FuzzHarness, EverySeedOfTheCorpusNamesACheck) {
  const std::filesystem::path corpus = TARNELL_FUZZ_CORPUS;
  ASSERT_TRUE(std::filesystem::is_directory(corpus));
  std::size_t seeds = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    ASSERT_GE(bytes.size(), fuzz::kHeaderBytes) << entry.path();
    const uint32_t suite = kSuites[bytes[2] % kSuiteCount].key;
    const int slot = bytes[3] << 8 | bytes[4];
    bool found = false;
    for (const verify::Check& c : verify::allChecks()) found = found || (c.suite == suite && c.slot == slot);
    EXPECT_TRUE(found) << entry.path();
    EXPECT_EQ(entry.path().parent_path().filename().string(), found ? fuzz::familyOf(checkOf(suite, slot)) : "")
        << entry.path();
    ++seeds;
  }
  EXPECT_GE(seeds, verify::allChecks().size());
}

}  // namespace
