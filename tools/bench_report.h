// The bench report: one self-contained HTML page (no scripts, no fetched
// resources) with a bar per slot, grouped by suite, on a logarithmic speedup axis.
#pragma once

#include <string>
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
};

struct BenchReportHeader {
  std::string processor;  // brand string, or the vendor
  std::string flags;      // the feature flags the module saw, "SSE2 SSSE3 ..."
  std::string topology;
  int width = 0, height = 0;
  double minSeconds = 0;
  std::string date;       // when the run ended, UTC
  std::string module;     // path of the module benched
  std::string filter;     // empty: every slot
  std::string version;    // of the tool
};

// The figures a speed target is stated in: the median speedup, and the slowest
// slot by speedup and by share of memcpy (rows must not be empty).
struct BenchSummary {
  double medianSpeedup;
  BenchReportRow slowest, leastShare;
};
BenchSummary summarize(const std::vector<BenchReportRow>& rows);

// The page; rows in any order (they are grouped by suite in the ten suites'
// order and sorted by slot).
std::string renderBenchReport(const BenchReportHeader& header, const std::vector<BenchReportRow>& rows);

// The lower and upper ends of the speedup axis: powers of two around every
// speedup and 1x, at least 1/2x..2x.
std::pair<double, double> speedupAxis(const std::vector<BenchReportRow>& rows);

}  // namespace tarnell::tool
