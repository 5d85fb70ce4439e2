// The bench report: one self-contained HTML page (no scripts, no fetched
// resources) with a bar per slot, grouped by suite, on a logarithmic speedup axis.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarnell::tool {

struct BenchReportRow {
  std::string suite;  // four-character key, "blnd"
  int slot = 0;
  std::string name;
  double hostNs = 0, moduleNs = 0;
  double speedup = 0;      // host time / module time
  double memcpyShare = 0;  // memcpy time on the same bytes / module time
  double moduleGBps = 0;
  // One call's work does not grow with the plane (a forwarded record): shown, but
  // left out of the summary's figures.
  bool fixedWork = false;
  uint64_t bytes = 0;   // read and written by one call
  double memcpyNs = 0;  // memcpy of as many bytes
};

struct BenchReportHeader {
  std::string processor;  // brand string, or the vendor
  std::string flags;      // the feature flags the module saw, "MMX=1 SSE=1 ..."
  std::string topology;
  int width = 0, height = 0;
  double minSeconds = 0;
  std::string date;       // when the run ended, UTC
  std::string module;     // path of the module benched
  std::string filter;     // empty: every slot
  std::string version;    // of the tool
};

// The figures a speed target is stated in, over the rows whose work grows with the
// plane: the median speedup, and the slowest slot by speedup and by share of
// memcpy (valid when counted > 0). The others are listed in leftOut.
struct BenchSummary {
  std::size_t counted = 0;
  double medianSpeedup = 0;
  BenchReportRow slowest, leastShare;
  std::vector<BenchReportRow> leftOut;
};
BenchSummary summarize(const std::vector<BenchReportRow>& rows);

// Rows grouped by suite in the ten suites' order and sorted by slot: the order of
// the page and of the tool's text.
void sortBySuiteAndSlot(std::vector<BenchReportRow>& rows);

// The page; rows in any order.
std::string renderBenchReport(const BenchReportHeader& header, const std::vector<BenchReportRow>& rows);

// The lower and upper ends of the speedup axis: powers of two around every
// speedup and 1x, at least 1/2x..2x.
std::pair<double, double> speedupAxis(const std::vector<BenchReportRow>& rows);

// Why a row is left out of the summary, as the page and the text say it.
inline constexpr const char* kFixedWorkReason = "one call does the same work at any plane size";

}  // namespace tarnell::tool
