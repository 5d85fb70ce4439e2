// The guard-page placements of the verification planes: the rows may be touched
// everywhere, the byte just past the last row's end (after the granted overread)
// or just before the first row's start faults, and a reused mapping still does.
#include <gtest/gtest.h>

#include <cstring>

#include "verify/planes.h"

#if defined(_WIN32)
#include <windows.h>
#endif

using namespace tarnell::verify;

namespace {

PlaneLayout layout(int32_t stride, int slack) {
  PlaneLayout l;
  l.rows = 3;
  l.rowBytes = 37;
  l.stride = stride;
  l.misalign = 5;
  l.slackBytes = slack;
  return l;
}

// The lowest and highest row in memory, whichever way the rows go.
const unsigned char* lowestRow(const PlaneBuffer& b) {
  const PlaneLayout& l = b.layout();
  return l.stride < 0 ? b.first() + static_cast<std::ptrdiff_t>(l.rows - 1) * l.stride : b.first();
}
const unsigned char* highestRowEnd(const PlaneBuffer& b) {
  const PlaneLayout& l = b.layout();
  return (l.stride < 0 ? b.first() : b.first() + static_cast<std::ptrdiff_t>(l.rows - 1) * l.stride) + l.rowBytes;
}

TEST(GuardPages, RowsAndTheWholeComparedAreaAreAccessibleAndMapBackToRows) {
  for (Placement placement : {Placement::GuardPageAfter, Placement::GuardPageBefore})
    for (int32_t stride : {42, -42, 37})
      for (int slack : {0, 2}) {
        PlaneBuffer b(layout(stride, slack), placement);
        std::memset(b.begin(), 0xA5, b.size());
        ASSERT_LE(b.begin(), lowestRow(b));
        ASSERT_LE(highestRowEnd(b) + slack, b.begin() + b.size());
        for (int32_t r = 0; r < 3; ++r)
          for (int32_t c = 0; c < 37; ++c) {
            const unsigned char* p = b.first() + static_cast<std::ptrdiff_t>(r) * stride + c;
            int32_t row = -1, byte = -1;
            ASSERT_TRUE(b.inRow(static_cast<std::size_t>(p - b.begin()), row, byte));
            EXPECT_EQ(row, r);
            EXPECT_EQ(byte, c);
          }
        if (placement == Placement::GuardPageAfter)
          EXPECT_EQ(highestRowEnd(b) + slack, b.begin() + b.size()) << "the granted bytes end at the guard";
        else
          EXPECT_EQ(lowestRow(b), b.begin()) << "the lowest row starts at the guard";
      }
}

TEST(GuardPages, ReusedMappingsComeBackZeroed) {
  for (int round = 0; round < 3; ++round) {
    PlaneBuffer b(layout(42, 0), Placement::GuardPageAfter);
    for (std::size_t i = 0; i < b.size(); ++i) ASSERT_EQ(b.begin()[i], 0) << "round " << round << " byte " << i;
    std::memset(b.begin(), 0xFF, b.size());
  }
}

#if defined(_WIN32)
// No death tests here: ask the memory manager what the neighbouring bytes are.
bool inaccessible(const unsigned char* p) {
  MEMORY_BASIC_INFORMATION info{};
  return VirtualQuery(p, &info, sizeof info) == sizeof info && info.State == MEM_COMMIT &&
         (info.Protect & PAGE_NOACCESS) != 0;
}

TEST(GuardPages, BytesPastTheRowsAreInaccessible) {
  for (int round = 0; round < 2; ++round) {  // the second round gets reused mappings
    for (int32_t stride : {42, -42}) {
      PlaneBuffer after(layout(stride, 0), Placement::GuardPageAfter);
      EXPECT_TRUE(inaccessible(highestRowEnd(after))) << "stride " << stride;
      EXPECT_FALSE(inaccessible(highestRowEnd(after) - 1));
      PlaneBuffer granted(layout(stride, 3), Placement::GuardPageAfter);
      EXPECT_FALSE(inaccessible(highestRowEnd(granted) + 2));
      EXPECT_TRUE(inaccessible(highestRowEnd(granted) + 3)) << "stride " << stride;
      PlaneBuffer before(layout(stride, 0), Placement::GuardPageBefore);
      EXPECT_TRUE(inaccessible(lowestRow(before) - 1)) << "stride " << stride;
      EXPECT_FALSE(inaccessible(lowestRow(before)));
    }
  }
}
#endif

#if GTEST_HAS_DEATH_TEST && !defined(_WIN32)
unsigned char readByte(const unsigned char* p) { return *static_cast<const volatile unsigned char*>(p); }

TEST(GuardPagesDeathTest, TouchingPastTheRowsFaults) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int round = 0; round < 2; ++round) {  // the second round gets reused mappings
    for (int32_t stride : {42, -42}) {
      PlaneBuffer after(layout(stride, 0), Placement::GuardPageAfter);
      EXPECT_DEATH(readByte(highestRowEnd(after)), "") << "stride " << stride;
      PlaneBuffer granted(layout(stride, 3), Placement::GuardPageAfter);
      EXPECT_EQ(readByte(highestRowEnd(granted) + 2), 0);
      EXPECT_DEATH(readByte(highestRowEnd(granted) + 3), "") << "stride " << stride;
      PlaneBuffer before(layout(stride, 0), Placement::GuardPageBefore);
      EXPECT_DEATH(readByte(lowestRow(before) - 1), "") << "stride " << stride;
    }
  }
}
#endif

}  // namespace
