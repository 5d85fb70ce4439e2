// The 'memo' routines of every tier this processor can run, taken from the
// static library through the installer and checked against the reference host;
// the contracts' edge cases; and proof that the checks catch typical faults.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "host/cpu_features.h"
#include "host/install.h"
#include "host/module_state.h"
#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/runner.h"

using namespace tarnell;

namespace {

std::vector<HostRoutine> installed(const CpuFeatureFlags& f) {
  std::vector<HostRoutine> table(static_cast<std::size_t>(kSuites[kMemo].slotCount), nullptr);
  const Kernels kernels = resolveKernels(f);
  installMemory(SuiteWriter<code::memo>(table.data(), kernels), f);
  return table;
}

// The module's 16-bit block tests notify the host through the live 'core' table;
// point it at this test's host while the test runs.
class WithHost : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = g_liveTables[kCore];
    g_liveTables[kCore] = host_.liveTable(code::core);
  }
  void TearDown() override { g_liveTables[kCore] = previous_; }
  refhost::ReferenceHost host_;
  HostRoutine* previous_ = nullptr;
};

const verify::Check& checkOf(int slot) {
  for (const verify::Check& c : verify::checksMemory())
    if (c.slot == slot) return c;
  throw std::logic_error("no check for the slot");
}

using MemoryTiers = WithHost;

TEST_F(MemoryTiers, EveryTierMatchesTheHost) {
  const CpuFeatureFlags cpu = computeFeatureFlags(identification(), topology());
  struct Tier {
    const char* name;
    bool runs;
    CpuFeatureFlags flags;
  };
  CpuFeatureFlags sse2{}, ssse3{}, sse41{}, avx{}, avx2{};
  sse2.sse2 = 1;
  ssse3 = sse2, ssse3.ssse3 = 1;
  sse41 = ssse3, sse41.sse41 = 1;
  avx = sse41, avx.avx = 1;
  avx2 = avx, avx2.avx2 = 1;
  const Tier tiers[] = {{"SSE2", cpu.sse2 != 0, sse2},
                        {"SSSE3", cpu.ssse3 != 0, ssse3},
                        {"SSE4.1", cpu.sse41 != 0, sse41},
                        {"AVX", cpu.avx != 0, avx},
                        {"AVX2", cpu.avx2 != 0, avx2}};
  std::vector<HostRoutine> previous(static_cast<std::size_t>(kSuites[kMemo].slotCount), nullptr);
  for (const Tier& tier : tiers) {
    if (!tier.runs) continue;
    const std::vector<HostRoutine> table = installed(tier.flags);
    for (const verify::Check& check : verify::checksMemory()) {
      const auto slot = static_cast<std::size_t>(check.slot);
      // Each routine once, in the first tier that installs it.
      if (table[slot] == nullptr || table[slot] == previous[slot]) continue;
      verify::VerifyOptions options;
      options.seed = 4242;
      const verify::CheckResult r =
          verify::runCheckOn(check, host_, host_.original(code::memo, check.slot), table[slot], options);
      EXPECT_EQ(r.outcome, verify::Outcome::Passed) << tier.name << ": " << r.firstFailure;
      EXPECT_GT(r.cases, 100) << tier.name << " slot " << check.slot;
    }
    previous = table;
  }
}

// ------------------------------------------------------------ edge cases

std::vector<HostRoutine> everyTierThisProcessorRuns() {
  return installed(computeFeatureFlags(identification(), topology()));
}

using MemoryEdges = WithHost;

TEST_F(MemoryEdges, SixteenBitBlockTestsNotifyTheHostFirstWithSignExtendedArguments) {
  const auto table = everyTierThisProcessorRuns();
  const auto uniform = reinterpret_cast<SlotFnOf<slot::blockWordsUniformValue>>(table[83]);
  const auto allEqual = reinterpret_cast<SlotFnOf<slot::blockWordsAllEqual>>(table[102]);
  uint16_t storage[40] = {};
  uint16_t* block = storage + 20;  // rows go down in memory
  for (int32_t rows : {-3, 0, 2}) {
    host_.clearLogs();
    const uint32_t value = uniform(block, rows, 5, -12);
    const uint8_t equal = allEqual(block + 1, rows, 4, -12, 0);
    EXPECT_EQ(value, 0u);  // empty block: 0; uniform block of zeros: its value, 0
    EXPECT_EQ(equal, 1);
    const auto calls = host_.calls();
    ASSERT_EQ(calls.size(), 2u) << rows;
    for (const auto& c : calls) EXPECT_TRUE(c.suite == code::core && c.slot == 0);
    EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(block));
    EXPECT_EQ(calls[0].args[1], static_cast<uintptr_t>(intptr_t{rows}));
    EXPECT_EQ(calls[0].args[2], 5u);
    EXPECT_EQ(calls[0].args[3], static_cast<uintptr_t>(intptr_t{-12}));
    EXPECT_EQ(calls[1].args[0], reinterpret_cast<uintptr_t>(block + 1));
    EXPECT_EQ(calls[1].args[2], 4u);
  }
}

TEST_F(MemoryEdges, UniformValueIsTheValueEvenWhenAllBitsAreSet) {
  const auto uniform = reinterpret_cast<SlotFnOf<slot::blockWordsUniformValue>>(everyTierThisProcessorRuns()[83]);
  std::vector<uint16_t> block(3 * 40, 0xFFFF);
  EXPECT_EQ(uniform(block.data(), 3, 37, 80), 0xFFFFu);  // padding is 0xFFFF too
  block[2 * 40 + 36] = 0xFFFE;                             // last value of the last row
  EXPECT_EQ(uniform(block.data(), 3, 37, 80), 0xFFFFFFFFu);
  block[2 * 40 + 36] = 0xFFFF;
  block[1 * 40 + 17] = 0x7FFF;  // inside, not a corner
  EXPECT_EQ(uniform(block.data(), 3, 37, 80), 0xFFFFFFFFu);
  block[1 * 40 + 17] = 0xFFFF;
  block[1 * 40 + 38] = 0;  // row padding is not part of the block
  EXPECT_EQ(uniform(block.data(), 3, 37, 80), 0xFFFFu);
}

TEST_F(MemoryEdges, ByteBoundsIsExclusiveAndEmptyForAnEqualBlock) {
  const auto table = everyTierThisProcessorRuns();
  if (table[36] == nullptr) GTEST_SKIP() << "no SSE4.1";
  const auto bounds = reinterpret_cast<SlotFnOf<slot::byteBounds>>(table[36]);
  std::vector<uint8_t> block(6 * 50, 9);
  int16_t r[4] = {-7, -7, -7, -7};
  bounds(block.data(), 6, 45, 50, 9, r);
  EXPECT_EQ((std::vector<int16_t>(r, r + 4)), (std::vector<int16_t>{6, 45, 0, 0}));
  block[2 * 50 + 44] = 0;  // row 2, last column
  block[4 * 50 + 3] = 8;   // row 4, column 3
  block[5 * 50 + 47] = 0;  // padding of the last row: outside
  bounds(block.data(), 6, 45, 50, 9, r);
  EXPECT_EQ((std::vector<int16_t>(r, r + 4)), (std::vector<int16_t>{2, 3, 5, 45}));
  const std::vector<uint8_t> before = block;
  bounds(block.data(), 6, 45, 50, 9, nullptr);  // nothing to write to
  EXPECT_EQ(block, before);
  int16_t untouched[4] = {-7, -7, -7, -7};
  bounds(block.data(), 0, 45, 50, 9, untouched);
  bounds(block.data(), 6, -1, 50, 9, untouched);
  EXPECT_EQ((std::vector<int16_t>(untouched, untouched + 4)), (std::vector<int16_t>{-7, -7, -7, -7}));
}

TEST_F(MemoryEdges, DwordUniformityAnswersTrueForAnEmptyBlockAndWritesTheResultByte) {
  const auto table = everyTierThisProcessorRuns();
  if (table[135] == nullptr) GTEST_SKIP() << "no AVX";
  const auto uniform = reinterpret_cast<SlotFnOf<slot::blockDwordsUniform>>(table[135]);
  uint32_t block[40];
  for (uint32_t& v : block) v = 0x80000000u;  // a float -0: equal to +0 as a float, not as bits
  uint8_t result = 7;
  EXPECT_EQ(uniform(block, 0, 10, 40, &result), 1);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(uniform(block, 4, 10, 40, &result), 1);
  block[33] = 0;
  result = 7;
  EXPECT_EQ(uniform(block, 4, 10, 40, &result), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(uniform(block, 4, 10, 40, nullptr), 0);
}

// ------------------------------------------------- the checks catch faults

// Copies forward byte by byte: wrong when the destination starts inside the source.
void copyIgnoringOverlap(const void* s, void* d, int32_t n) {
  for (int32_t i = 0; i < n; ++i) static_cast<uint8_t*>(d)[i] = static_cast<const uint8_t*>(s)[i];
}
// Right except for runs of several MiB, where it loses the last byte.
void copyWrongWhenLong(const void* s, void* d, int32_t n) {
  if (n > 0) std::memmove(d, s, static_cast<std::size_t>(n) - (n > (8 << 20) ? 1 : 0));
}
// One byte too many on some lengths.
void fillBytesOnePast(void* d, int32_t n, uint8_t v) {
  if (n > 0) std::memset(d, v, static_cast<std::size_t>(n) + (n % 16 == 13 ? 1 : 0));
}
// Puts the low byte on even addresses: right only when the destination is even.
void fillWordsAssumingEvenAddress(void* d, int32_t n, uint16_t v) {
  auto* p = static_cast<uint8_t*>(d);
  for (int32_t i = 0; i < 2 * n; ++i)
    p[i] = static_cast<uint8_t>((reinterpret_cast<uintptr_t>(p + i) & 1) == 0 ? v : v >> 8);
}
// Misses the last byte of each row.
uint8_t blockBytesEqualButTheLast(const void* a, int32_t rows, int32_t width, int32_t step, uint8_t v) {
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c + 1 < width; ++c)
      if (static_cast<const uint8_t*>(a)[r * step + c] != v) return 0;
  return 1;
}
// Inclusive bottom and right.
void byteBoundsInclusive(const void* a, int32_t rows, int32_t width, int32_t step, uint8_t v, int16_t* b) {
  if (b == nullptr || rows < 1 || width < 1) return;
  int32_t t = rows, l = width, bo = 0, ri = 0;
  bool any = false;
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < width; ++c)
      if (static_cast<const uint8_t*>(a)[r * step + c] != v) {
        any = true;
        t = std::min(t, r), l = std::min(l, c), bo = std::max(bo, r), ri = std::max(ri, c);
      }
  b[0] = static_cast<int16_t>(t), b[1] = static_cast<int16_t>(l);
  b[2] = static_cast<int16_t>(any ? bo : 0), b[3] = static_cast<int16_t>(any ? ri : 0);
}
// Right answer, but never tells the host.
uint8_t wordsEqualWithoutNotifying(const void* a, int32_t rows, int32_t width, int32_t step, uint16_t v) {
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < width; ++c) {
      uint16_t x;
      std::memcpy(&x, static_cast<const uint8_t*>(a) + r * step + 2 * c, 2);
      if (x != v) return 0;
    }
  return 1;
}

using MemoryChecks = WithHost;

TEST_F(MemoryChecks, CatchTypicalFaults) {
  struct Mutant {
    int slot;
    HostRoutine routine;
  };
  const Mutant mutants[] = {
      {0, reinterpret_cast<HostRoutine>(&copyIgnoringOverlap)},
      {0, reinterpret_cast<HostRoutine>(&copyWrongWhenLong)},
      {3, reinterpret_cast<HostRoutine>(&fillBytesOnePast)},
      {65, reinterpret_cast<HostRoutine>(&fillWordsAssumingEvenAddress)},
      {18, reinterpret_cast<HostRoutine>(&blockBytesEqualButTheLast)},
      {36, reinterpret_cast<HostRoutine>(&byteBoundsInclusive)},
      {102, reinterpret_cast<HostRoutine>(&wordsEqualWithoutNotifying)},
  };
  for (const Mutant& m : mutants) {
    verify::VerifyOptions options;
    options.thorough = false;
    const verify::CheckResult r =
        verify::runCheckOn(checkOf(m.slot), host_, host_.original(code::memo, m.slot), m.routine, options);
    EXPECT_EQ(r.outcome, verify::Outcome::Failed) << "slot " << m.slot;
  }
}

}  // namespace
