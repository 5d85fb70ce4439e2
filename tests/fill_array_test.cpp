// The fill-array operation in its plain and checking builds, against explicit
// expectations and against the reference host's portable operation with the same
// settings: the worked cases of the operation's description, the even-odd and
// non-zero rules with odd counts, clamping of hostile counts, every report, the
// guard words, and the copy through the live 'memo' slot 0.
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/module_state.h"
#include "pathfill/fill_array.h"
#include "refhost/portable_pathfill.h"
#include "refhost/refhost.h"
#include "verify/fill_array_cases.h"
#include "verify/rng.h"
#include "verify/runner.h"
#include "verify/session.h"

using namespace tarnell;
using namespace tarnell::fillarray;
using refhost::FillArraySettings;

namespace {

constexpr FillArraySettings kPlain{false, false, 0};
constexpr FillArraySettings kCheckingQuiet{true, false, 0};
constexpr FillArraySettings kDebug{true, true, 0};
constexpr FillArraySettings kGuarded{true, true, 0x600DF00D};

FillArraySettings g_settings;
void oracle(uint32_t* a, uint32_t operation, int32_t rule) {
  refhost::portableApplyFillArray(a, operation, rule, g_settings);
}

// A fill array with rows of the given stride, empty rows, and its working space
// (guard words set when the settings have a guard).
struct Array {
  Array(int32_t rows, int32_t rowStride, const FillArraySettings& s = kPlain) : stride(rowStride) {
    words.assign(static_cast<std::size_t>(kFirstRow + rows * stride + refhost::fillArrayWorkingWords(stride, s)), 0xDEAD);
    words[kTop] = 100;
    words[kBottom] = static_cast<uint32_t>(100 + rows);
    words[kRowStride] = static_cast<uint32_t>(stride);
    for (int32_t r = 0; r < rows; ++r) row(r)[kSpanCount] = row(r)[kCrossingCount] = 0;
    end = kFirstRow + rows * stride;
    if (s.checking && s.guard != 0) words[static_cast<std::size_t>(end)] = words[static_cast<std::size_t>(end + 1 + stride)] = s.guard;
  }
  uint32_t* row(int32_t r) { return words.data() + kFirstRow + r * stride; }
  Array& spans(int32_t r, std::initializer_list<uint32_t> xs) {
    row(r)[kSpanCount] = static_cast<uint32_t>(xs.size());
    int i = 0;
    for (uint32_t x : xs) row(r)[kSpans + i++] = x;
    return *this;
  }
  // (x, direction) pairs, stored at the block's end in the order given.
  Array& crossings(int32_t r, std::initializer_list<std::pair<uint32_t, uint32_t>> cs) {
    row(r)[kCrossingCount] = static_cast<uint32_t>(cs.size());
    int32_t i = stride - static_cast<int32_t>(cs.size());
    for (auto [x, direction] : cs) row(r)[i++] = x << 1 | direction;
    return *this;
  }
  std::vector<uint32_t> spansOf(int32_t r) {
    return {row(r) + kSpans, row(r) + kSpans + row(r)[kSpanCount]};
  }
  int32_t stride;
  int32_t end;
  std::vector<uint32_t> words;
};

using Reports = std::vector<std::pair<std::string, int32_t>>;  // message, line

class FillArray : public ::testing::Test {
 protected:
  void SetUp() override {
    keepCore_ = g_liveTables[kCore];
    keepMemo_ = g_liveTables[kMemo];
    g_liveTables[kCore] = host_.liveTable(code::core);
    g_liveTables[kMemo] = host_.liveTable(code::memo);
  }
  void TearDown() override {
    g_liveTables[kCore] = keepCore_;
    g_liveTables[kMemo] = keepMemo_;
    pathfill::pathDebugEnabled = 0;
    pathfill::pathDebugGuard = 0;
  }

  // The module's build for the settings, set up as the installer would.
  static SlotFnOf<slot::ApplyFillArrayOperation> build(const FillArraySettings& s) {
    g_settings = s;
    pathfill::pathDebugEnabled = s.debug ? 1 : 0;
    pathfill::pathDebugGuard = s.guard;
    return s.checking ? &pathfill::CApplyFillArrayOperation : &pathfill::ApplyFillArrayOperation;
  }

  // Runs the module on the array and the host's operation on a copy; both must
  // leave the same words and make the same reports. Returns the reports, with
  // their source name and severity checked.
  Reports run(Array& a, uint32_t operation, int32_t rule, const FillArraySettings& s = kPlain) {
    std::vector<uint32_t> copy = a.words;
    const auto module = build(s);
    host_.clearLogs();
    oracle(copy.data(), operation, rule);
    const auto expected = host_.diagnostics();
    host_.clearLogs();
    module(a.words.data(), operation, rule);
    const auto got = host_.diagnostics();
    EXPECT_EQ(a.words, copy) << "module and host differ";
    Reports out;
    for (std::size_t i = 0; i < got.size(); ++i) {
      EXPECT_EQ(got[i].source, "CommonPathLoops");
      EXPECT_EQ(got[i].severity, got[i].message.rfind("WARNING", 0) == 0 ? 0 : 1) << got[i].message;
      if (i < expected.size()) {
        EXPECT_EQ(got[i].message, expected[i].message);
        EXPECT_EQ(got[i].line, expected[i].line);
      }
      out.emplace_back(got[i].message, got[i].line);
    }
    EXPECT_EQ(got.size(), expected.size());
    return out;
  }

  // The reports of the validation the checking build runs first (line 676).
  static Reports validation(const Reports& r) {
    Reports out;
    for (const auto& report : r)
      if (report.second == 676) out.push_back(report);
    return out;
  }

  static std::vector<int32_t> lines(const Reports& r) {
    std::vector<int32_t> out;
    for (const auto& [message, line] : r) out.push_back(line);
    return out;
  }

  refhost::ReferenceHost host_;

 private:
  HostRoutine* keepCore_ = nullptr;
  HostRoutine* keepMemo_ = nullptr;
};

TEST_F(FillArray, TheFourOperationsOnOneRow) {
  struct Case {
    uint32_t operation;
    std::initializer_list<uint32_t> before;
    std::vector<uint32_t> after;
  };
  const Case cases[] = {{0, {}, {10, 20}},
                        {2, {15, 30}, {15, 20}},
                        {1, {0, 30}, {0, 10, 20, 30}},
                        {3, {15, 30}, {10, 15, 20, 30}},
                        {0, {15, 30}, {10, 30}},
                        {7, {15, 30}, {15, 30}}};
  for (const FillArraySettings& s : {kPlain, kCheckingQuiet, kGuarded}) {
    for (const Case& c : cases) {
      Array a(1, 12, s);
      a.spans(0, c.before).crossings(0, {{20, 0}, {10, 1}});
      const Reports r = run(a, c.operation, 0, s);
      EXPECT_EQ(a.spansOf(0), c.after) << "operation " << c.operation;
      EXPECT_EQ(a.row(0)[kCrossingCount], 0u);
      // Only an unknown code is reported, by the checking build while debugging.
      EXPECT_EQ(r.size(), c.operation == 7 && s.debug ? 1u : 0u);
    }
  }
}

TEST_F(FillArray, RowsWithoutCrossingsChangeOnlyUnderIntersection) {
  for (uint32_t operation : {0u, 1u, 2u, 3u, 9u}) {
    Array a(2, 8);
    a.spans(0, {3, 4}).spans(1, {5, 9, 11, 12});
    run(a, operation, 0);
    EXPECT_EQ(a.row(0)[kSpanCount], operation == 2 ? 0u : 2u);
    EXPECT_EQ(a.row(1)[kSpanCount], operation == 2 ? 0u : 4u);
    EXPECT_EQ(a.row(1)[kSpans + 3], 12u);
  }
}

TEST_F(FillArray, CoincidentCrossingsCancel) {
  Array a(1, 10);
  a.spans(0, {1, 3}).crossings(0, {{5, 1}, {5, 0}});
  run(a, 0, 0);
  EXPECT_EQ(a.spansOf(0), (std::vector<uint32_t>{1, 3}));
  // Three at one x leave one edge; under the non-zero rule as well.
  Array b(1, 10);
  b.crossings(0, {{5, 1}, {5, 0}, {5, 1}, {9, 0}});
  run(b, 0, 0);
  EXPECT_EQ(b.spansOf(0), (std::vector<uint32_t>{5, 9}));
}

TEST_F(FillArray, NonZeroRuleJoinsNestedEdges) {
  Array a(1, 10);
  a.crossings(0, {{40, 0}, {10, 1}, {30, 0}, {12, 1}});
  run(a, 0, 1);
  EXPECT_EQ(a.spansOf(0), (std::vector<uint32_t>{10, 40}));
  Array b(1, 10);
  b.crossings(0, {{40, 0}, {10, 1}, {30, 0}, {12, 1}});
  run(b, 0, 0);
  EXPECT_EQ(b.spansOf(0), (std::vector<uint32_t>{10, 12, 30, 40}));
  // Any nonzero rule argument means non-zero winding.
  Array c(1, 10);
  c.crossings(0, {{40, 0}, {10, 1}, {30, 0}, {12, 1}});
  run(c, 0, -7);
  EXPECT_EQ(c.spansOf(0), (std::vector<uint32_t>{10, 40}));
}

TEST_F(FillArray, AnOddLastCrossingOnlyOpensASpan) {
  // Outside after the pairs: the last crossing is an edge.
  Array a(1, 10, kDebug);
  a.crossings(0, {{10, 1}, {20, 0}, {30, 1}});
  EXPECT_EQ(lines(run(a, 0, 1, kDebug)), (std::vector<int32_t>{712, 799, 920}));
  EXPECT_EQ(a.spansOf(0), (std::vector<uint32_t>{10, 20, 30}));
  // Inside after the pairs: it is dropped.
  Array b(1, 10);
  b.crossings(0, {{10, 1}, {20, 1}, {30, 0}});
  run(b, 0, 1);
  EXPECT_EQ(b.spansOf(0), (std::vector<uint32_t>{10}));
}

TEST_F(FillArray, HostileCountsAreReportedAndClamped) {
  // Nine crossings in a row of capacity 5: the last 4 words are taken.
  Array a(1, 7);
  a.crossings(0, {{1, 0}, {2, 1}, {3, 0}, {4, 1}, {5, 0}});
  a.row(0)[kCrossingCount] = 9;
  EXPECT_EQ(lines(run(a, 0, 0)), (std::vector<int32_t>{695}));
  EXPECT_EQ(a.spansOf(0), (std::vector<uint32_t>{2, 3, 4, 5}));
  // A negative count is beyond the row too; so is a negative span count.
  Array b(2, 6);
  b.crossings(0, {{8, 1}, {9, 0}}).spans(1, {1, 2});
  b.row(0)[kCrossingCount] = static_cast<uint32_t>(-3);
  b.row(1)[kSpanCount] = static_cast<uint32_t>(-2);
  b.crossings(1, {{7, 1}, {9, 0}});
  EXPECT_EQ(lines(run(b, 0, 0)), (std::vector<int32_t>{695, 823}));
  // A stride of 2 holds nothing: every crossing count is beyond it.
  Array c(3, 2);
  c.row(1)[kCrossingCount] = 2;
  EXPECT_EQ(lines(run(c, 3, 1)), (std::vector<int32_t>{695}));
  EXPECT_EQ(c.row(1)[kSpanCount], 0u);
}

TEST_F(FillArray, TheCheckingBuildWithoutDebuggingReportsOnlyWarnings) {
  Array a(2, 7, kCheckingQuiet);
  a.crossings(0, {{1, 0}, {2, 1}, {3, 0}});
  a.row(1)[kCrossingCount] = 40;
  a.row(1)[kSpanCount] = 3;
  EXPECT_EQ(lines(run(a, 12, 0, kCheckingQuiet)), (std::vector<int32_t>{695}));
  Array b(0, 7, kCheckingQuiet);
  EXPECT_TRUE(run(b, 12, 0, kCheckingQuiet).empty());
}

TEST_F(FillArray, DebuggingReportsTheOperationCodeAndRowsBelowOne) {
  Array a(0, 6, kDebug);
  EXPECT_EQ(run(a, 4, 0, kDebug),
            (Reports{{"CApplyFillArrayOperation Unexpected operation code. -Dovik", 671},
                     {"ApplyFillArrayOperation rows <= 0", 680}}));
  Array b(1, 6, kDebug);
  b.words[kBottom] = b.words[kTop] - 1;
  EXPECT_EQ(lines(run(b, 0, 0, kDebug)), (std::vector<int32_t>{680}));
  // rows = bottom - top wraps in 32 bits.
  Array c(2, 6, kDebug);
  c.words[kTop] = 0x7FFFFFFF;
  c.words[kBottom] = 0x80000001;
  c.crossings(1, {{3, 1}, {4, 0}});
  EXPECT_TRUE(run(c, 0, 0, kDebug).empty());
  EXPECT_EQ(c.spansOf(1), (std::vector<uint32_t>{3, 4}));
}

TEST_F(FillArray, ValidationReportsEveryRowAtItsCallersLine) {
  Array a(4, 8, kDebug);
  a.row(0)[kCrossingCount] = 7;                          // too large (odd: nothing more)
  a.row(1)[kCrossingCount] = static_cast<uint32_t>(-2);  // negative (even: no words to count)
  a.crossings(2, {{1, 1}, {2, 1}});                      // up without down
  a.crossings(3, {{1, 1}, {2, 0}});
  EXPECT_EQ(validation(run(a, 0, 0, kDebug)), (Reports{{"ValidateFillArray: count too large.", 676},
                                                       {"ValidateFillArray: count is negative.", 676},
                                                       {"ValidateFillArray: Up does not match down.", 676}}));
}

// The direction check counts exactly the last `count` words of the block, whatever
// they hold, while the operation clamps: a count above the crossings' room takes
// in the span list and the two counts before them, up to the whole block, never a
// word outside it. The filler 0xDEAD (the header's unused words, the other rows,
// the working space) counts as up wherever it is read.
TEST_F(FillArray, ValidationCountsExactlyTheLastCountWordsOfTheBlock) {
  const std::string tooLarge = "ValidateFillArray: count too large.", negative = "ValidateFillArray: count is negative.",
                    unbalanced = "ValidateFillArray: Up does not match down.";
  // Row stride 31, count 30: words 1 to 30, the count word itself (30: down) and
  // the first span word (4: down) with 15 up and 13 down after them, are balanced;
  // words 3 to 30 alone (the clamped count, 28) are not.
  Array a(1, 31, kDebug);
  a.row(0)[kSpanCount] = 2;
  a.row(0)[kSpans] = 4;
  for (int32_t i = 3; i < 31; ++i) a.row(0)[i] = static_cast<uint32_t>(i) << 1 | (i < 18 ? 1u : 0u);
  a.row(0)[kCrossingCount] = 30;
  EXPECT_EQ(validation(run(a, 0, 0, kDebug)), (Reports{{tooLarge, 676}}));
  // Words 3 to 30 balanced, the count word and the first span word both down:
  // unbalanced, though the clamped count's words are not.
  Array b(1, 31, kDebug);
  b.row(0)[kSpanCount] = 2;
  b.row(0)[kSpans] = 4;
  for (int32_t i = 3; i < 31; ++i) b.row(0)[i] = static_cast<uint32_t>(i) << 1 | (i < 17 ? 1u : 0u);
  b.row(0)[kCrossingCount] = 30;
  EXPECT_EQ(validation(run(b, 0, 0, kDebug)), (Reports{{tooLarge, 676}, {unbalanced, 676}}));

  // A count of rowStride or more takes the whole block: the second of two rows of
  // stride 8, its counts (0 and the even count) down, then six words. The words
  // before the block (row 0's filler, up) would tip any of these.
  const auto secondRow = [](uint32_t count, const std::array<uint32_t, 6>& tail) {
    Array c(2, 8, kDebug);
    c.row(1)[kCrossingCount] = count;
    for (std::size_t i = 0; i < 6; ++i) c.row(1)[2 + i] = tail[i];
    return c;
  };
  for (const uint32_t count : {8u, 10u, 0x7FFFFFFEu}) {
    // Four up, four down in the block; the last six words (what the operation
    // takes) are not balanced.
    Array c = secondRow(count, {3, 5, 7, 9, 2, 4});
    EXPECT_EQ(validation(run(c, 0, 0, kDebug)), (Reports{{tooLarge, 676}})) << "count " << count;
    // The last six balanced (3, 5, 9 up; 6, 2, 4 down): the block is not.
    Array d = secondRow(count, {3, 5, 6, 9, 2, 4});
    EXPECT_EQ(validation(run(d, 0, 0, kDebug)), (Reports{{tooLarge, 676}, {unbalanced, 676}})) << "count " << count;
  }

  // A negative count is reported and counts nothing, even or odd: the block's tail
  // is all up (the filler).
  for (const int32_t count : {-2, -1, -0x7FFFFFFE}) {
    Array e(1, 8, kDebug);
    e.row(0)[kCrossingCount] = static_cast<uint32_t>(count);
    EXPECT_EQ(validation(run(e, 0, 0, kDebug)), (Reports{{negative, 676}})) << "count " << count;
  }
}

// Counts of rowStride and far beyond, against inaccessible pages on both sides of
// the array: the check reads inside the row only, in the module and the host.
TEST_F(FillArray, ValidationOfCountsBeyondTheRowStaysInsideIt) {
  for (const FillArraySettings& s : {kDebug, kGuarded}) {
    for (const uint32_t count : {30u, 31u, 32u, 0x7FFFFFFEu, 0x80000000u, 0xFFFFFFFEu}) {
      Array a(1, 31, s);
      a.row(0)[kCrossingCount] = count;
      verify::FillArrayCase c;
      c.words = a.words;
      const auto module = build(s);
      for (const verify::Placement placement : {verify::Placement::GuardPageBefore, verify::Placement::GuardPageAfter})
        EXPECT_EQ(verify::compareFillArray(c, &oracle, module, host_, placement), "") << "count " << count;
    }
  }
}

TEST_F(FillArray, GuardWordsAreCheckedAfterCancellingMergingAndCopying) {
  Array a(1, 8, kGuarded);
  a.crossings(0, {{1, 1}, {2, 0}});
  a.words[static_cast<std::size_t>(a.end)] = 1;
  const std::string crossings = "VerifyPathFillArray crossings buffer guard mismatch, possible buffer overwrite";
  EXPECT_EQ(run(a, 0, 0, kGuarded), (Reports{{crossings, 676}, {crossings, 795}, {crossings, 914}, {crossings, 932}}));
  Array b(1, 8, kGuarded);
  b.crossings(0, {{1, 1}, {2, 0}});
  b.words[static_cast<std::size_t>(b.end + 1 + b.stride)] = 0;
  EXPECT_EQ(lines(run(b, 0, 0, kGuarded)), (std::vector<int32_t>{676, 795, 914, 932}));
  // Intact guards: nothing reported, the scratch row sits after the first guard.
  Array c(1, 8, kGuarded);
  c.crossings(0, {{1, 1}, {2, 0}});
  EXPECT_TRUE(run(c, 0, 0, kGuarded).empty());
  EXPECT_EQ(c.words[static_cast<std::size_t>(c.end)], kGuarded.guard);
  EXPECT_EQ(c.words[static_cast<std::size_t>(c.end + 1)], 1u);
  EXPECT_EQ(c.words[static_cast<std::size_t>(c.end + 1 + c.stride)], kGuarded.guard);
}

// Copies reach the live 'memo' table's slot 0, whatever it holds.
int g_copies = 0;
int32_t g_copiedBytes = 0;
void countingCopy(const void* source, void* destination, int32_t count) {
  ++g_copies;
  g_copiedBytes += count;
  const auto* s = static_cast<const unsigned char*>(source);
  auto* d = static_cast<unsigned char*>(destination);
  for (int32_t i = 0; i < count; ++i) d[i] = s[i];
}

TEST_F(FillArray, TheResultIsCopiedThroughTheLiveByteCopy) {
  host_.liveTable(code::memo)[0] = reinterpret_cast<HostRoutine>(&countingCopy);
  g_copies = 0;
  g_copiedBytes = 0;
  Array a(3, 8);
  a.crossings(0, {{1, 1}, {2, 0}}).crossings(2, {{3, 1}, {4, 0}, {6, 1}, {7, 0}});
  build(kPlain)(a.words.data(), 0, 0);
  EXPECT_EQ(g_copies, 2);  // rows with crossings only
  EXPECT_EQ(g_copiedBytes, 6 * 4);
  EXPECT_EQ(a.spansOf(2), (std::vector<uint32_t>{3, 4, 6, 7}));
}

TEST_F(FillArray, MessagesOfTheOperation) {
  // Texts, lines and severities as the host's diagnostics expect them.
  const std::pair<const char*, int32_t> expected[] = {
      {"CApplyFillArrayOperation Unexpected operation code. -Dovik", 671},
      {"ApplyFillArrayOperation rows <= 0", 680},
      {"WARNING - illegal value for row count", 695},
      {"ApplyFillArrayOperation Odd number of entries. (0)", 712},
      {"Pointer arithmetic uint32 overflow", 768},
      {"Pointer arithmetic uint32 overflow", 797},
      {"CApplyFillArrayOperation Odd number of entries. (1)", 799},
      {"WARNING - illegal value for new row count", 801},
      {"CApplyFillArrayOperation Logic is confused about state. -Dovik", 811},
      {"CApplyFillArrayOperation Odd number of entries. (2)", 821},
      {"WARNING - illegal value for old row count", 823},
      {"CApplyFillArrayOperation Entries don't match.", 850},
      {"CApplyFillArrayOperation Too many entries.", 863},
      {"CApplyFillArrayOperation Too many entries. (2)", 884},
      {"CApplyFillArrayOperation Too many entries. (3)", 905},
      {"Pointer arithmetic uint32 overflow", 918},
      {"CApplyFillArrayOperation Odd number of entries. (3)", 920},
      {"WARNING - illegal result value for row count", 922},
  };
  for (int i = 0; i < pathfill::kFillArrayMessageCount; ++i) {
    const pathfill::FillArrayMessage& m = pathfill::kFillArrayMessages[i];
    EXPECT_STREQ(m.text, expected[i].first);
    EXPECT_EQ(m.line, expected[i].second);
    EXPECT_EQ(m.severity, m.bothBuilds ? 0 : 1);
    EXPECT_EQ(m.bothBuilds, std::string(m.text).rfind("WARNING", 0) == 0);
  }
}

// Drawn arrays, valid and hostile, in every build: the module matches the host,
// and between them the draws produce every message an array can cause. Seven
// cannot be caused by any array and stay as checks of the operation's own
// invariants: the three 32-bit overflows (counts are bounded by the row), a new
// edge count or a result above the row (neither can exceed the clamped input),
// a truth table filled outside both lists (none is) and unequal heads after
// neither was smaller.
TEST_F(FillArray, DrawnArraysMatchTheHostAndCauseEveryReachableMessage) {
  const std::set<int32_t> unreachable = {768, 797, 801, 811, 850, 918, 922};
  std::set<int32_t> seen;
  verify::Rng rng(20261123);
  for (const FillArraySettings& s : {kPlain, kCheckingQuiet, kDebug, kGuarded}) {
    for (int i = 0; i < 1500; ++i) {
      const verify::FillArrayCase c = verify::drawFillArray(rng, s);
      const auto module = build(s);
      const std::string problem = verify::compareFillArray(
          c, &oracle, module, host_, i % 2 ? verify::Placement::GuardPageAfter : verify::Placement::GuardPageBefore);
      ASSERT_EQ(problem, "") << "draw " << i;
      Array a(0, 2);
      a.words = c.words;
      host_.clearLogs();
      module(a.words.data(), c.operation, c.nonZeroWinding);
      for (const auto& d : host_.diagnostics()) seen.insert(d.line);
    }
  }
  for (int i = 0; i < pathfill::kFillArrayMessageCount; ++i) {
    const int32_t line = pathfill::kFillArrayMessages[i].line;
    EXPECT_EQ(seen.count(line), unreachable.count(line) ? 0u : 1u) << "line " << line;
  }
  for (int32_t line : {676, 795, 914, 932}) EXPECT_EQ(seen.count(line), 1u) << "line " << line;
}

}  // namespace

namespace {

// The loaded module, started by hosts whose debug answers install the checking
// build: the slot's check compares it with the host's own checking operation,
// reports included.
TEST(FillArrayModule, TheInstalledCheckingBuildMatchesTheHostsForEachGuard) {
  std::string error;
  static const std::unique_ptr<verify::LoadedModule> loaded = verify::LoadedModule::load(TARNELL_MODULE_PATH, &error);
  ASSERT_NE(loaded, nullptr) << error;
  for (uint64_t guard : {uint64_t{0}, uint64_t{0xA5A5A5A5}, uint64_t{1} << 36}) {
    refhost::HostOptions options;
    options.pathDebug = {true, 1};
    options.pathDebugGuard = {true, guard};
    refhost::ReferenceHost host(options);
    ASSERT_TRUE(verify::startModule(loaded->pluginMain(), host).ok());
    verify::VerifyOptions quick;
    quick.thorough = false;
    for (const verify::Check& check : verify::allChecks()) {
      if (check.suite != code::path) continue;
      const verify::CheckResult r = verify::runCheck(check, host, quick);
      EXPECT_EQ(r.outcome, verify::Outcome::Passed) << verify::checkLabel(check) << ": " << r.firstFailure;
    }
  }
}

}  // namespace

namespace {

// Slot 46, module and host alike: monotonic pieces along the walk, the closing
// segment only for a closed path, segments outside the rows skipped.
TEST(RowCrossings, CountsMonotonicPiecesOfTheSegmentsThatReachTheRows) {
  refhost::ReferenceHost host;
  const SlotFnOf<slot::EstimateRowCrossings> routines[] = {&pathfill::EstimateRowCrossings,
                                             reinterpret_cast<SlotFnOf<slot::EstimateRowCrossings>>(host.original(code::path, 46))};
  // A knot whose control points sit on its anchor, with bounds [y - 1, y + 1].
  auto knotAt = [](double y) {
    std::vector<double> k(knot::kValues, 0);
    k[knot::kInY] = k[knot::kAnchorY] = k[knot::kOutY] = y;
    k[knot::kInLower] = k[knot::kOutLower] = y - 1;
    k[knot::kInUpper] = k[knot::kOutUpper] = y + 1;
    k[knot::kAnchorX] = std::numeric_limits<double>::quiet_NaN();  // never read
    return k;
  };
  const std::vector<double> k0 = knotAt(0), k1 = knotAt(10), k2 = knotAt(20), k3 = knotAt(5);
  const double* rising[] = {k0.data(), k1.data(), k2.data()};
  const double* zigzag[] = {k0.data(), k1.data(), k3.data(), k2.data()};
  for (const auto estimate : routines) {
    EXPECT_EQ(estimate(0, 100, rising, 0, 1), 0);
    EXPECT_EQ(estimate(0, 100, rising, 1, 0), 0);  // one knot, open: no segment
    EXPECT_EQ(estimate(0, 100, rising, 3, 0), 1);  // one rising piece across two segments
    EXPECT_EQ(estimate(0, 100, rising, 3, 1), 2);  // and the way back down
    EXPECT_EQ(estimate(0, 100, zigzag, 4, 0), 3);
    EXPECT_EQ(estimate(0, 100, zigzag, 4, 1), 4);
    // Rows from 12 on: the segments 0-10 and 10-5 lie above them (upper bounds 1,
    // 11 and 6 are all below 12); only 5-20 and the closing 20-0 remain.
    EXPECT_EQ(estimate(12, 100, zigzag, 4, 1), 2);
    // Rows up to 4: every segment but 0-10 and 20-0 lies below (lower bounds >= 4).
    EXPECT_EQ(estimate(-50, 4, zigzag, 4, 1), 2);
  }
}

}  // namespace
