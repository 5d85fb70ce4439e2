// The bench report page: axis range, grouping and order, bar geometry on the
// logarithmic axis, escaping. (Its structure for a real run is checked by the
// bench_report CTest script.)
#include "tools/bench_report.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/page_checks.h"

namespace tarnell::tool {
namespace {

BenchReportRow row(const char* suite, int slot, const char* name, double speedup) {
  BenchReportRow r;
  r.suite = suite;
  r.slot = slot;
  r.name = name;
  r.speedup = speedup;
  r.hostNs = 1000 * speedup;
  r.moduleNs = 1000;
  r.memcpyShare = 0.5;
  return r;
}

using tests::countOf;

TEST(BenchReport, AxisSpansPowersOfTwoAroundEverySpeedupAndOne) {
  EXPECT_EQ(speedupAxis({}), std::make_pair(0.5, 2.0));
  EXPECT_EQ(speedupAxis({row("blnd", 1, "a", 1.5)}), std::make_pair(0.5, 2.0));
  EXPECT_EQ(speedupAxis({row("blnd", 1, "a", 0.3), row("memo", 0, "b", 40)}), std::make_pair(0.25, 64.0));
  EXPECT_EQ(speedupAxis({row("blnd", 1, "a", 0), row("memo", 0, "b", 8)}), std::make_pair(0.5, 8.0));  // 0: not timed
}

TEST(BenchReport, SummaryGivesTheMedianAndTheLowestSlots) {
  std::vector<BenchReportRow> rows = {row("blnd", 1, "a", 3), row("blnd", 2, "b", 1.5), row("memo", 0, "c", 9),
                                      row("conv", 18, "d", 5)};
  rows[2].memcpyShare = 0.1;
  const BenchSummary sum = summarize(rows);
  EXPECT_EQ(sum.medianSpeedup, 4);  // even count: the mean of the middle two
  EXPECT_EQ(sum.slowest.name, "b");
  EXPECT_EQ(sum.leastShare.name, "c");
  EXPECT_EQ(summarize({rows[0], rows[1], rows[2]}).medianSpeedup, 3);
}

TEST(BenchReport, SummaryLeavesOutRoutinesOfFixedWork) {
  std::vector<BenchReportRow> rows = {row("blnd", 1, "a", 3), row("blnd", 275, "record", 0.9), row("memo", 0, "c", 9)};
  rows[1].fixedWork = true;
  rows[1].memcpyShare = 0.01;
  const BenchSummary sum = summarize(rows);
  EXPECT_EQ(sum.counted, 2u);
  EXPECT_EQ(sum.medianSpeedup, 6);
  EXPECT_EQ(sum.slowest.name, "a");
  EXPECT_EQ(sum.leastShare.name, "a");
  ASSERT_EQ(sum.leftOut.size(), 1u);
  EXPECT_EQ(sum.leftOut[0].slot, 275);
  EXPECT_EQ(summarize({}).counted, 0u);

  // The page shows the row, marked and grey, and says it is left out.
  const std::string page = renderBenchReport({}, rows);
  EXPECT_EQ(countOf(page, "<tr class=\"row"), 3u);
  EXPECT_EQ(countOf(page, "<tr class=\"row fixed\">"), 1u);
  EXPECT_NE(page.find("class=\"bar fixed\" data-slot=\"blnd:275\""), std::string::npos);
  EXPECT_NE(page.find(">fixed work</span>"), std::string::npos);
  EXPECT_NE(page.find("<b>6.00\u00d7</b><span>median speedup</span>"), std::string::npos);
  EXPECT_NE(page.find("<span>lowest: blnd:1 a</span>"), std::string::npos);
  EXPECT_NE(page.find("Left out of the median and the lowest: blnd:275 record (fixed work: "), std::string::npos);
  // The group's median leaves it out too.
  EXPECT_NE(page.find("2 slots \u00b7 median 3.00\u00d7"), std::string::npos);
}

TEST(BenchReport, ReadsFromAPhoneWidthUp) {
  // Long names, a long module path, many rows: still no fixed width beyond a
  // phone's, and one row (a card on narrow windows) per slot, each figure labelled.
  BenchReportHeader header;
  header.module = "/a/very/long/installation/prefix/that/goes/on/and/on/lib/tarnell/modules/Tarnell.qrx";
  std::vector<BenchReportRow> rows;
  for (int slot = 1; slot <= 40; ++slot)
    rows.push_back(row(slot % 2 ? "blnd" : "pntg", slot, "SourceBasedOverlayWithOpacityThroughMaskAndMore8", slot / 7.0));
  const std::string page = renderBenchReport(header, rows);
  tests::expectPageFitsAnyWidth(page);
  EXPECT_EQ(countOf(page, "<tr class=\"row\">"), rows.size());
  EXPECT_EQ(countOf(page, "<td class=\"c-chart\">"), rows.size());
  for (const char* label : {"host ns", "module ns", "module GB/s", "share of memcpy"})
    EXPECT_EQ(countOf(page, std::string("data-label=\"") + label + "\""), rows.size()) << label;
  // The wide layout's header row and the axis above and below the table.
  EXPECT_EQ(countOf(page, "<tr class=\"head\">"), 1u);
  EXPECT_EQ(countOf(page, "<tr class=\"axis\">"), 2u);
}

TEST(BenchReport, SaysSoWhenNothingWasBenched) {
  const std::string page = renderBenchReport({}, {});
  EXPECT_NE(page.find("Nothing was benched"), std::string::npos);
  EXPECT_EQ(page.find("<table"), std::string::npos);
  tests::expectPageFitsAnyWidth(page);
}

TEST(BenchReport, GroupsBySuiteInSuiteOrderAndSortsBySlot) {
  const std::string page = renderBenchReport(
      {}, {row("memo", 3, "m3", 2), row("blnd", 7, "b7", 3), row("conv", 18, "c18", 4), row("blnd", 1, "b1", 5)});
  EXPECT_EQ(countOf(page, "<tbody class=\"suite\""), 3u);
  EXPECT_EQ(countOf(page, "<div class=\"bar "), 4u);
  const std::size_t b1 = page.find("data-slot=\"blnd:1\""), b7 = page.find("data-slot=\"blnd:7\"");
  const std::size_t c18 = page.find("data-slot=\"conv:18\""), m3 = page.find("data-slot=\"memo:3\"");
  ASSERT_NE(m3, std::string::npos);
  EXPECT_LT(b1, b7);
  EXPECT_LT(b7, c18);
  EXPECT_LT(c18, m3);
  EXPECT_NE(page.find("blnd <small>blending \u00b7 2 slots \u00b7 median 4.00\u00d7"), std::string::npos);
}

TEST(BenchReport, BarsRunFromTheOneLineOnALogAxis) {
  // Axis 0.5x..8x: 1x sits at a quarter, 4x at three quarters, 0.5x at the left end.
  const std::string page = renderBenchReport({}, {row("blnd", 1, "fast", 4), row("blnd", 2, "slow", 0.5),
                                                  row("blnd", 3, "top", 8)});
  EXPECT_NE(page.find("class=\"bar up\" data-slot=\"blnd:1\" data-speedup=\"4.000\" style=\"left:25.000%;width:50.000%\""),
            std::string::npos);
  EXPECT_NE(page.find("class=\"bar down\" data-slot=\"blnd:2\" data-speedup=\"0.500\" style=\"left:0.000%;width:25.000%\""),
            std::string::npos);
  EXPECT_NE(page.find("<div class=\"grid one\" style=\"left:25.000%\">"), std::string::npos);
  for (const char* tick : {">0.5\u00d7<", ">1\u00d7<", ">2\u00d7<", ">4\u00d7<", ">8\u00d7<"})
    EXPECT_NE(page.find(tick), std::string::npos) << tick;
}

TEST(BenchReport, EscapesTextAndFetchesNothing) {
  BenchReportHeader header;
  header.module = "C:\\mods\\<odd> & \"name\".qrx";
  header.filter = "blnd:*";
  const std::string page = renderBenchReport(header, {row("blnd", 1, "a<b>", 2)});
  EXPECT_NE(page.find("C:\\mods\\&lt;odd&gt; &amp; &quot;name&quot;.qrx"), std::string::npos);
  EXPECT_NE(page.find("<td class=\"c-name\">a&lt;b&gt;</td>"), std::string::npos);
  EXPECT_EQ(page.find("<script"), std::string::npos);
  EXPECT_EQ(page.find("http"), std::string::npos);
}

}  // namespace
}  // namespace tarnell::tool
