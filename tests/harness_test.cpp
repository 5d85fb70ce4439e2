// The verification harness must catch real faults: a wrong sample in a tail, a
// write past the row, into row padding or into an input plane, a fault that shows
// only at some misalignments, and a wrong result. A correct routine must pass.
#include <gtest/gtest.h>

#include <cstring>

#include "refhost/refhost.h"
#include "verify/runner.h"
#include "verify/twin.h"

using namespace tarnell;
using namespace tarnell::verify;

namespace {

using Fn = void(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t sStride, int32_t dStride);

template <typename Body>
void rowsOf(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds, Body body) {
  for (int32_t r = 0; r < rows; ++r, s += ss, d += ds) body(s, d, columns);
}

// Reference: d = 255 - s.
void invert(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  rowsOf(s, d, rows, columns, ss, ds, [](const uint8_t* sr, uint8_t* dr, int32_t n) {
    for (int32_t c = 0; c < n; ++c) dr[c] = static_cast<uint8_t>(255 - sr[c]);
  });
}
void invertWrongTail(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  invert(s, d, rows, columns, ss, ds);
  if (rows > 0 && columns % 16 == 13) d[columns - 1] ^= 1;
}
void invertOnePastTheRow(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  invert(s, d, rows, columns, ss, ds);
  if (rows > 0 && columns > 200) d[columns] = 0;
}
void invertIntoInput(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  invert(s, d, rows, columns, ss, ds);
  if (rows > 1 && columns > 100) const_cast<uint8_t*>(s)[ss] ^= 0x10;
}
void invertMisalignedOnly(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  invert(s, d, rows, columns, ss, ds);
  if (rows > 0 && columns > 40 && reinterpret_cast<uintptr_t>(d) % 16 == 7) d[20] = 0;
}
void invertIgnoringRows(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  invert(s, d, rows < 1 ? 1 : rows, columns, ss, ds);  // writes even when rows < 1
}

uint64_t invoke(HostRoutine routine, const PlaneCall& c) {
  reinterpret_cast<Fn*>(routine)(static_cast<const uint8_t*>(c.plane[0]), static_cast<uint8_t*>(c.plane[1]), c.rows,
                                 c.columns, c.stride[0], c.stride[1]);
  return 0;
}

const PlaneShape kShape{{{"source", 1, Role::Input, Samples::Bytes}, {"destination", 1, Role::Output, Samples::Bytes}},
                        2, {}, 0, &invoke, 1, false, true};
const Check kCheck{code::blnd, 999, "TestInvert", "test", &kShape, nullptr, nullptr};

CheckResult run(Fn* candidate, bool thorough = true) {
  refhost::ReferenceHost host;
  VerifyOptions options;
  options.seed = 7;
  options.thorough = thorough;
  return runCheckOn(kCheck, host, reinterpret_cast<HostRoutine>(&invert), reinterpret_cast<HostRoutine>(candidate),
                    options);
}

TEST(Harness, CorrectRoutinePasses) {
  const CheckResult r = run(&invert);
  EXPECT_EQ(r.outcome, Outcome::Passed) << r.firstFailure;
  EXPECT_GT(r.cases, 300 * 16);
}

TEST(Harness, CatchesEachKindOfFault) {
  struct Case {
    Fn* fn;
    const char* expected;
  } cases[] = {
      {&invertWrongTail, "differs at row"},
      {&invertOnePastTheRow, "module wrote outside its rectangle"},
      {&invertIntoInput, "module wrote to an input plane"},
      {&invertMisalignedOnly, "differs at row"},
      {&invertIgnoringRows, "rows=0"},
  };
  for (const Case& c : cases) {
    const CheckResult r = run(c.fn);
    EXPECT_EQ(r.outcome, Outcome::Failed) << c.expected;
    EXPECT_NE(r.firstFailure.find(c.expected), std::string::npos) << r.firstFailure;
    EXPECT_NE(r.firstFailure.find("[seed "), std::string::npos);
  }
}

TEST(Harness, SameSeedSameCases) {
  const CheckResult a = run(&invertWrongTail), b = run(&invertWrongTail);
  EXPECT_EQ(a.firstFailure, b.firstFailure);
  EXPECT_EQ(a.failures, b.failures);
}

TEST(Harness, GuardPagesAroundRows) {
  refhost::ReferenceHost host;
  VerifyOptions options;
  options.thorough = false;
  for (Placement p : {Placement::GuardPageAfter, Placement::GuardPageBefore}) {
    options.placement = p;
    const CheckResult r = runCheckOn(kCheck, host, reinterpret_cast<HostRoutine>(&invert),
                                     reinterpret_cast<HostRoutine>(&invert), options);
    EXPECT_EQ(r.outcome, Outcome::Passed) << r.firstFailure;
  }
}

// Custom checks hold both sides to what a routine may write: the same stray
// write on both sides (a shared misreading of the contract) is still a fault, in
// the arena's guards always, inside the arena where the case says so.
TEST(Harness, TwinsCatchTheSameWriteOnBothSides) {
  Rng rng(5);
  Twin twin(rng, 64);
  const std::vector<Twin::Span> firstHalf = {{0, 32}};
  *twin.host(3) ^= 1;
  *twin.module(3) ^= 1;
  EXPECT_EQ(twin.difference(), "");
  EXPECT_EQ(twin.writtenOutside(firstHalf), "");
  *twin.host(40) ^= 1;
  *twin.module(40) ^= 1;
  EXPECT_EQ(twin.difference(), "");
  EXPECT_NE(twin.writtenOutside(firstHalf).find("the host routine wrote outside what it may, at offset 40"),
            std::string::npos);
  EXPECT_EQ(twin.writtenOutside({{35, 41}, {0, 32}}), "");
  *twin.host(-1) ^= 1;  // a guard byte before the arena
  *twin.module(-1) ^= 1;
  EXPECT_NE(twin.difference().find("the host routine wrote outside what it may, at offset -1"), std::string::npos);
  const std::vector<Twin::Span> rows = blockSpans(50, 3, 8, -20);  // rows at 50, 30 and 10
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[2].begin, 10);
  EXPECT_EQ(rows[2].end, 18);
}

TEST(Harness, FilterMatchesNameOrSlotOfAnyGlob) {
  EXPECT_TRUE(matchesFilter(kCheck, ""));
  EXPECT_TRUE(matchesFilter(kCheck, "TestInv*"));
  EXPECT_TRUE(matchesFilter(kCheck, "blnd:999"));
  EXPECT_TRUE(matchesFilter(kCheck, "blnd:*"));
  EXPECT_FALSE(matchesFilter(kCheck, "memo:*"));
  EXPECT_FALSE(matchesFilter(kCheck, "Invert"));
  // Comma-separated alternatives: any one may match.
  EXPECT_TRUE(matchesFilter(kCheck, "memo:*,blnd:999"));
  EXPECT_TRUE(matchesFilter(kCheck, "blnd:999,memo:*"));
  EXPECT_FALSE(matchesFilter(kCheck, "memo:*,conv:*"));
}

}  // namespace
