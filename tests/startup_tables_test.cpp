// The four start-up tables, entry by entry, against the exact integer formulas
// computed here independently (plain division, no shifts).
#include <gtest/gtest.h>

#include "host/startup_tables.h"

using namespace tarnell;

namespace {

class StartupTables : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { buildStartupTables(); }
};

// a*b/255 to nearest; no ties occur for products of 8-bit values.
int nearest255(int t) { return (t + 127) / 255; }

// x/255 to nearest with ties away from zero, for a signed x.
int signedNearest255(int x) {
  const int magnitude = x < 0 ? -x : x;
  const int q = (2 * magnitude + 255) / 510;
  return x < 0 ? -q : q;
}

TEST_F(StartupTables, EveryEntryMatchesItsFormula) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      const int m = nearest255(a * b);
      ASSERT_EQ(Mul255Table[a][b], m) << a << ',' << b;
      ASSERT_EQ(Screen255Table[a][b], a + b - m) << a << ',' << b;
      const int div = b <= a ? 255 : (255 * a + b / 2) / b;
      ASSERT_EQ(Div255Table[a][b], div) << a << ',' << b;
    }
    for (int c = -255; c <= 255; ++c) ASSERT_EQ(SignedMul255Table[a][c + 255], signedNearest255(a * c)) << a << ',' << c;
    ASSERT_EQ(SignedMul255Table[a][511], 0) << a;
  }
}

TEST_F(StartupTables, KnownValues) {
  EXPECT_EQ(Mul255Table[255][255], 255);
  EXPECT_EQ(Mul255Table[128][128], 64);
  for (int b = 0; b < 256; ++b) {
    EXPECT_EQ(Mul255Table[255][b], b);
    EXPECT_EQ(Mul255Table[0][b], 0);
    EXPECT_EQ(Screen255Table[0][b], b);
    EXPECT_EQ(Screen255Table[255][b], 255);
  }
  for (int a = 0; a < 256; ++a) {
    EXPECT_EQ(Div255Table[a][0], 255);
    EXPECT_EQ(Div255Table[a][a], 255);
  }
  for (int b = 1; b < 256; ++b) EXPECT_EQ(Div255Table[0][b], 0);
  EXPECT_EQ(Div255Table[100][200], 128);
  EXPECT_EQ(Div255Table[254][255], 254);
  EXPECT_EQ(SignedMul255Table[255][-255 + 255], -255);
  EXPECT_EQ(SignedMul255Table[1][-128 + 255], -1);
  EXPECT_EQ(SignedMul255Table[1][128 + 255], 1);
  EXPECT_EQ(SignedMul255Table[0][-5 + 255], 0);
}

TEST_F(StartupTables, SymmetriesTheRoutinesRelyOn) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) ASSERT_EQ(Mul255Table[a][b], Mul255Table[b][a]);
    for (int c = 1; c <= 255; ++c) ASSERT_EQ(SignedMul255Table[a][255 - c], -SignedMul255Table[a][255 + c]);
  }
}

}  // namespace
