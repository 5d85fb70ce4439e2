// The 'memo' installer: which slots each tier writes, in which order, and what
// every slot holds at the end for each combination of features.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "memory/memory_routines.h"
#include "tests/install_recorder.h"

using namespace tarnell;

namespace {

using installs::erase;
using installs::Installed;

Installed install(bool sse2, bool ssse3, bool sse41, bool avx) {
  CpuFeatureFlags f{};
  f.mmx = f.sse = f.sseSecond = 1;
  f.sse2 = sse2, f.ssse3 = ssse3, f.sse41 = sse41, f.avx = avx, f.avx2 = avx;
  return installs::recordInstall<code::memo>(&installMemory, f);
}

// Each tier writes its slots in order after the narrower ones.
TEST(MemoryInstall, EachTierWritesItsSlotsInOrderAfterTheNarrowerOnes) {
  for (unsigned bits = 0; bits < 16; ++bits) {
    const bool sse2 = bits & 1, ssse3 = bits & 2, sse41 = bits & 4, avx = bits & 8;
    CpuFeatureFlags f{};
    f.mmx = f.sse = f.sseSecond = 1;
    f.sse2 = sse2, f.ssse3 = ssse3, f.sse41 = sse41, f.avx = avx, f.avx2 = avx;
    EXPECT_EQ(install(sse2, ssse3, sse41, avx).order, installs::listedOrder(code::memo, f)) << "features " << bits;
  }
  // The SSE2 tier alone, as the lists state it.
  CpuFeatureFlags sse2{};
  sse2.sse2 = 1;
  EXPECT_EQ(installs::listedOrder(code::memo, sse2), (std::vector<int>{0, 1, 3, 4, 11, 17, 18, 65, 66, 67, 83, 102, 136}));
}

TEST(MemoryInstall, WiderTiersReplaceTheNarrowerRoutines) {
  using namespace memory;
  const Installed all = install(true, true, true, true);
  const std::map<int, HostRoutine> expected = {
      {0, erase(g_memoryAvx2.copyBytes)},            {1, erase(g_memoryAvx2.copyBlock)},
      {3, erase(g_memoryAvx.fillBytes)},             {4, erase(g_memoryAvx.fillBlock)},
      {17, erase(g_memoryAvx2.bytesAllEqual)},       {18, erase(g_memoryAvx2.blockBytesAllEqual)},
      {36, erase(g_memoryAvx2.byteBounds)},          {65, erase(g_memoryAvx.fillWords)},
      {66, erase(g_memoryAvx.fillWordBlock)},        {83, erase(g_memoryAvx2.blockWordsUniformValue)},
      {102, erase(g_memoryAvx2.blockWordsAllEqual)}, {135, erase(g_memoryAvx.blockDwordsUniform)},
      {136, erase(g_memoryAvx.fillDwords)},          {137, erase(g_memoryAvx.fillDwordBlock)},
  };
  for (const auto& [slot, routine] : expected) EXPECT_EQ(all.table[static_cast<std::size_t>(slot)], routine) << slot;

  const Installed sse2 = install(true, false, false, false);
  EXPECT_EQ(sse2.table[0], erase(&copyBytesSse2));
  EXPECT_EQ(sse2.table[1], erase(&copyBlockSse2));
  EXPECT_EQ(sse2.table[3], erase(&fillBytesSse2));
  EXPECT_EQ(sse2.table[4], erase(&fillBlockSse2));
  EXPECT_EQ(sse2.table[136], erase(&fillDwordsSse2));
  EXPECT_EQ(sse2.table[17], erase(&bytesAllEqualSse2));
  EXPECT_EQ(sse2.table[65], erase(&fillWordsSse2));
  EXPECT_EQ(sse2.table[83], erase(&blockWordsUniformValueSse2));
  EXPECT_EQ(sse2.table[36], nullptr);
  EXPECT_EQ(sse2.table[135], nullptr);

  // AVX without SSE2 writes the AVX tier alone; SSSE3 alone only slots 0 and 1.
  const Installed avxOnly = install(false, false, false, true);
  EXPECT_EQ(avxOnly.table[136], erase(g_memoryAvx.fillDwords));
  EXPECT_EQ(avxOnly.table[0], nullptr);
  const Installed ssse3Only = install(false, true, false, false);
  EXPECT_EQ(ssse3Only.table[0], erase(g_memorySsse3.copyBytes));
  EXPECT_EQ(ssse3Only.table[3], nullptr);
}

TEST(MemoryInstall, TheWiderTablesHoldEveryRoutine) {
  using namespace memory;
  EXPECT_NE(g_memorySsse3.copyBytes, nullptr);
  EXPECT_NE(g_memorySsse3.copyBlock, nullptr);
  EXPECT_NE(g_memorySse41.byteBounds, nullptr);
  for (HostRoutine r : {erase(g_memoryAvx.fillBytes), erase(g_memoryAvx.fillBlock), erase(g_memoryAvx.fillWords),
                        erase(g_memoryAvx.fillWordBlock), erase(g_memoryAvx.blockDwordsUniform),
                        erase(g_memoryAvx.fillDwords), erase(g_memoryAvx.fillDwordBlock)})
    EXPECT_NE(r, nullptr);
  for (HostRoutine r : {erase(g_memorySse2.bytesAllEqual), erase(g_memorySse2.blockBytesAllEqual),
                        erase(g_memorySse2.fillWords), erase(g_memorySse2.fillWordBlock),
                        erase(g_memorySse2.blockWordsUniformValue), erase(g_memorySse2.blockWordsAllEqual),
                        erase(g_memoryAvx2.copyBytes), erase(g_memoryAvx2.copyBlock),
                        erase(g_memoryAvx2.bytesAllEqual), erase(g_memoryAvx2.blockBytesAllEqual),
                        erase(g_memoryAvx2.byteBounds), erase(g_memoryAvx2.blockWordsUniformValue),
                        erase(g_memoryAvx2.blockWordsAllEqual)})
    EXPECT_NE(r, nullptr);
}

// Slots 11 and 67 are forwarded: each jumps to the host's routine of its own slot.
int64_t g_forwardedSlot = -1;
int64_t g_forwardedArgs[3];
template <int Slot>
void savedStandIn(int64_t a, int64_t b, int64_t c) {
  g_forwardedSlot = Slot;
  g_forwardedArgs[0] = a, g_forwardedArgs[1] = b, g_forwardedArgs[2] = c;
}

TEST(MemoryInstall, SlotsElevenAndSixtySevenForwardToTheHostsRoutines) {
  const Installed sse2 = install(true, false, false, false);
  HostRoutine* saved = tarnell_saved_tables[kMemo];
  const HostRoutine keep11 = saved[11], keep67 = saved[67];
  saved[11] = erase(&savedStandIn<11>);
  saved[67] = erase(&savedStandIn<67>);
  using Fn = void(int64_t, int64_t, int64_t);
  reinterpret_cast<Fn*>(sse2.table[11])(1, -2, 1LL << 40);
  EXPECT_EQ(g_forwardedSlot, 11);
  EXPECT_EQ(g_forwardedArgs[2], 1LL << 40);
  reinterpret_cast<Fn*>(sse2.table[67])(7, -8, 9);
  EXPECT_EQ(g_forwardedSlot, 67);
  EXPECT_EQ(g_forwardedArgs[1], -8);
  saved[11] = keep11;
  saved[67] = keep67;
}

}  // namespace
