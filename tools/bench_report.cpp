#include "tools/bench_report.h"

#include <tarnell/host_interface.h>

#include <algorithm>
#include <map>

#include "tools/html_page.h"

namespace tarnell::tool {
namespace {

using html::escape;
using html::format;

// What each suite holds, for the group headings.
const std::map<std::string, const char*> kSuiteTitles = {
    {"blnd", "blending"},  {"conv", "depth conversion"}, {"core", "host services"},
    {"disp", "display"},   {"filt", "filters"},          {"memo", "memory and pixel buffers"},
    {"pntg", "painting"},  {"rsmp", "resampling"},       {"sele", "selection"},
    {"path", "path filling"}};

int suiteOrder(const std::string& name) {
  for (int i = 0; i < kSuiteCount; ++i)
    if (name == kSuites[i].name) return i;
  return kSuiteCount;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n == 0 ? 0 : n % 2 != 0 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string label(const BenchReportRow& r) { return r.suite + ":" + std::to_string(r.slot); }

class Page {
 public:
  Page(const BenchReportHeader& header, std::vector<BenchReportRow> rows)
      : h_(header), rows_(std::move(rows)), axis_(speedupAxis(rows_)) {
    sortBySuiteAndSlot(rows_);
  }

  std::string render() {
    out_ += html::pageStart("Tarnell bench report, " + std::to_string(h_.width) + "\u00d7" + std::to_string(h_.height) +
                            ", " + h_.date);
    header();
    if (!rows_.empty()) table();
    out_ += "<footer>Written by tarnell-host " + escape(h_.version) +
            ". Times are the median of one call over at least the minimum time per routine; "
            "rerun on a quiet machine before comparing small differences.</footer>\n";
    out_ += html::pageEnd();
    return std::move(out_);
  }

 private:
  void header() {
    out_ += "<header>\n<h1>Tarnell bench report</h1>\n<p class=\"sub\">The module's routine against the host's "
            "portable routine of the same slot, on the same planes.</p>\n<dl class=\"meta\">\n";
    out_ += html::metaItem("Processor", escape(h_.processor));
    out_ += html::metaItem("Flags", html::flagChips(h_.flags));
    if (!h_.topology.empty()) out_ += html::metaItem("Topology", escape(h_.topology));
    out_ += html::metaItem("Plane size", std::to_string(h_.width) + " \u00d7 " + std::to_string(h_.height) +
                                             " samples, " + format("%g", h_.minSeconds) + " s minimum per routine");
    out_ += html::metaItem("Slots", h_.filter.empty() ? "every slot the module replaced"
                                                      : "filter <code>" + escape(h_.filter) + "</code>");
    out_ += html::metaItem("Module", "<code>" + escape(h_.module) + "</code>");
    out_ += html::metaItem("Date", escape(h_.date));
    out_ += "</dl>\n";
    summary();
    out_ += "<p class=\"legend\">Each bar runs from the 1\u00d7 line (as fast as the host) to the module's speedup, "
            "on a logarithmic axis: green is faster than the host, red slower";
    if (std::any_of(rows_.begin(), rows_.end(), [](const BenchReportRow& r) { return r.fixedWork; }))
      out_ += ", grey a routine of fixed work (" + std::string(kFixedWorkReason) +
              "), left out of the summary";
    out_ += ". The share of memcpy is memcpy's time for the bytes one call reads and writes, over the routine's "
            "time: 100% means the routine moves its data as fast as a plain copy.</p>\n</header>\n";
  }

  void summary() {
    const BenchSummary sum = summarize(rows_);
    out_ += "<div class=\"summary\">";
    if (rows_.empty()) {
      out_ += "<p>Nothing was benched: the module replaces none of the selected slots on this processor.</p>";
    } else {
      out_ += "<div><b>" + std::to_string(rows_.size()) + "</b><span>slots benched</span></div>";
      if (sum.counted > 0) {
        const BenchReportRow& slow = sum.slowest;
        const BenchReportRow& share = sum.leastShare;
        out_ += "<div><b>" + format("%.2f", sum.medianSpeedup) + "\u00d7</b><span>median speedup</span></div>";
        out_ += "<div><b>" + format("%.2f", slow.speedup) + "\u00d7</b><span>lowest: " +
                escape(label(slow) + " " + slow.name) + "</span></div>";
        out_ += "<div><b>" + format("%.0f", 100 * share.memcpyShare) + "%</b><span>lowest share of memcpy: " +
                escape(label(share) + " " + share.name) + "</span></div>";
      }
      if (!sum.leftOut.empty()) {
        std::string names;
        for (const BenchReportRow& r : sum.leftOut) names += (names.empty() ? "" : ", ") + escape(label(r) + " " + r.name);
        out_ += "<p class=\"leftout\">Left out of the median and the lowest: " + names + " (fixed work: " +
                kFixedWorkReason + ").</p>";
      }
    }
    out_ += "</div>\n";
  }

  void axisRow() {
    out_ += "<tr class=\"axis\"><th></th><th></th><th class=\"c-chart\"><div class=\"track\">" + axis_.ticks() +
            "</div></th><th colspan=\"5\"></th></tr>\n";
  }

  void table() {
    out_ += "<table class=\"results\">\n<thead>\n<tr class=\"head\"><th>Slot</th><th>Routine</th>"
            "<th class=\"c-chart\">Speedup over the host (log scale)</th><th class=\"num\">Speedup</th>"
            "<th class=\"num\">Host ns</th><th class=\"num\">Module ns</th><th class=\"num\">Module GB/s</th>"
            "<th>Share of memcpy</th></tr>\n";
    axisRow();
    out_ += "</thead>\n";
    const std::string lines = axis_.grid();
    for (std::size_t first = 0; first < rows_.size();) {
      std::size_t end = first;
      std::vector<double> speedups;
      while (end < rows_.size() && rows_[end].suite == rows_[first].suite) {
        if (!rows_[end].fixedWork) speedups.push_back(rows_[end].speedup);
        ++end;
      }
      const std::string& suite = rows_[first].suite;
      const auto title = kSuiteTitles.find(suite);
      out_ += "<tbody class=\"suite\" data-suite=\"" + escape(suite) + "\">\n<tr class=\"group\"><th colspan=\"8\">" +
              escape(suite) + " <small>" + (title != kSuiteTitles.end() ? title->second : "") + " \u00b7 " +
              std::to_string(end - first) + (end - first == 1 ? " slot" : " slots") +
              (speedups.empty() ? std::string() : " \u00b7 median " + format("%.2f", median(speedups)) + "\u00d7") +
              "</small></th></tr>\n";
      for (std::size_t i = first; i < end; ++i) row(rows_[i], lines);
      out_ += "</tbody>\n";
      first = end;
    }
    if (rows_.size() > 12) {  // long tables get the axis at the bottom too
      out_ += "<tfoot>\n";
      axisRow();
      out_ += "</tfoot>\n";
    }
    out_ += "</table>\n";
  }

  void row(const BenchReportRow& r, const std::string& lines) {
    const std::string tag = label(r);
    const char* kind = r.fixedWork ? "fixed" : r.speedup >= 1 ? "up" : "down";
    out_ += std::string("<tr class=\"row") + (r.fixedWork ? " fixed" : "") + "\"><td class=\"c-key\">" + escape(tag) +
            "</td><td class=\"c-name\">" + escape(r.name) +
            (r.fixedWork ? "<span class=\"note\" title=\"" + std::string(kFixedWorkReason) +
                               "; not in the summary\">fixed work</span>"
                         : "") +
            "</td>";
    out_ += "<td class=\"c-chart\"><div class=\"track\">" + lines + "<div class=\"bar " + kind + "\" data-slot=\"" +
            escape(tag) + "\" data-speedup=\"" + format("%.3f", r.speedup) + "\" style=\"" + axis_.barGeometry(r.speedup) +
            "\" title=\"" + escape(tag + " " + r.name) + ": " + format("%.2f", r.speedup) + "\u00d7\"></div></div></td>";
    out_ += "<td class=\"num c-head speedup\">" + format("%.2f", r.speedup) + "\u00d7</td>";
    out_ += "<td class=\"num\" data-label=\"host ns\">" + format("%.0f", r.hostNs) +
            "</td><td class=\"num\" data-label=\"module ns\">" + format("%.0f", r.moduleNs) +
            "</td><td class=\"num\" data-label=\"module GB/s\">" + format("%.2f", r.moduleGBps) + "</td>";
    const double share = std::max(0.0, r.memcpyShare);
    out_ += std::string("<td class=\"num\" data-label=\"share of memcpy\"><span class=\"share") +
            (share > 1 ? " over" : "") + "\"><i style=\"width:" + format("%.1f", 100 * std::min(share, 1.0)) +
            "%\"></i></span>" + format("%.0f", 100 * share) + "%</td></tr>\n";
  }

  const BenchReportHeader& h_;
  std::vector<BenchReportRow> rows_;
  html::LogAxis axis_;
  std::string out_;
};

}  // namespace

void sortBySuiteAndSlot(std::vector<BenchReportRow>& rows) {
  std::stable_sort(rows.begin(), rows.end(), [](const BenchReportRow& a, const BenchReportRow& b) {
    const int sa = suiteOrder(a.suite), sb = suiteOrder(b.suite);
    return sa != sb ? sa < sb : a.slot < b.slot;
  });
}

BenchSummary summarize(const std::vector<BenchReportRow>& rows) {
  BenchSummary sum;
  std::vector<double> speedups;
  for (const BenchReportRow& r : rows) {
    if (r.fixedWork) {
      sum.leftOut.push_back(r);
      continue;
    }
    if (sum.counted == 0 || r.speedup < sum.slowest.speedup) sum.slowest = r;
    if (sum.counted == 0 || r.memcpyShare < sum.leastShare.memcpyShare) sum.leastShare = r;
    speedups.push_back(r.speedup);
    ++sum.counted;
  }
  sum.medianSpeedup = median(speedups);
  return sum;
}

std::pair<double, double> speedupAxis(const std::vector<BenchReportRow>& rows) {
  std::vector<double> speedups;
  for (const BenchReportRow& r : rows) speedups.push_back(r.speedup);
  return html::ratioAxis(speedups);
}

std::string renderBenchReport(const BenchReportHeader& header, const std::vector<BenchReportRow>& rows) {
  return Page(header, rows).render();
}

}  // namespace tarnell::tool
