// A forwarder reaches the saved host routine of its slot with every argument
// unchanged, including arguments passed on the stack and in vector registers.
#include <gtest/gtest.h>

#include "host/install.h"
#include "host/module_state.h"

TARNELL_FORWARDER(testForwardPath52, kPath, 52);

namespace {

struct Seen {
  int64_t a, b, c, d, e, f, g, h, i;
  double x;
  float y;
} seen;

int64_t hostRoutine(int64_t a, int64_t b, int64_t c, int64_t d, double x, int64_t e, int64_t f, int64_t g, int64_t h,
                    float y, int64_t i) {
  seen = {a, b, c, d, e, f, g, h, i, x, y};
  return a + i;
}

using Fn = int64_t(int64_t, int64_t, int64_t, int64_t, double, int64_t, int64_t, int64_t, int64_t, float, int64_t);

TEST(Forwarder, PassesEveryArgumentAndTheResult) {
  tarnell::HostRoutine saved = tarnell_saved_tables[tarnell::kPath][52];
  tarnell_saved_tables[tarnell::kPath][52] = reinterpret_cast<tarnell::HostRoutine>(&hostRoutine);
  auto forward = reinterpret_cast<Fn*>(&testForwardPath52);
  const int64_t r = forward(1, -2, 3, -4, 0.5, 5, -6, 7, -8, 2.25f, 1LL << 40);
  tarnell_saved_tables[tarnell::kPath][52] = saved;
  EXPECT_EQ(r, 1 + (1LL << 40));
  EXPECT_EQ(seen.a, 1);
  EXPECT_EQ(seen.b, -2);
  EXPECT_EQ(seen.d, -4);
  EXPECT_EQ(seen.h, -8);
  EXPECT_EQ(seen.i, 1LL << 40);
  EXPECT_EQ(seen.x, 0.5);
  EXPECT_EQ(seen.y, 2.25f);
}

}  // namespace
