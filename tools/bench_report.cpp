#include "tools/bench_report.h"

#include <tarnell/host_interface.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace tarnell::tool {
namespace {

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

std::string escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string format(const char* fmt, double value) {
  char text[64];
  std::snprintf(text, sizeof text, fmt, value);
  return text;
}

// "0.25×", "1×", "16×": the tick labels.
std::string times(double value) {
  return (value < 1 ? format("%g", value) : format("%.0f", value)) + "\u00d7";
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n == 0 ? 0 : n % 2 != 0 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

constexpr const char* kStyle = R"(
:root { --ink: #1f2328; --muted: #656d76; --rule: #d0d7de; --grid: #e6e9ed;
        --up: #2e7d4f; --down: #c4472f; --share: #4a6fd1; }
* { box-sizing: border-box; }
body { margin: 28px 36px; color: var(--ink); background: #fff;
       font: 14px/1.45 system-ui, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
h1 { font-size: 24px; margin: 0 0 2px; }
.sub { color: var(--muted); margin: 0 0 16px; }
dl.meta { display: grid; grid-template-columns: max-content 1fr; gap: 3px 18px; margin: 0 0 14px; }
dl.meta dt { color: var(--muted); }
dl.meta dd { margin: 0; }
.chip { display: inline-block; padding: 0 6px; margin: 0 3px 2px 0; border-radius: 9px; font-size: 12px;
        background: #e8f3ec; color: #1d5c37; }
.chip.off { background: #f1f2f4; color: #8c959f; text-decoration: line-through; }
.summary { display: flex; gap: 28px; margin: 6px 0 18px; padding: 10px 14px; background: #f6f8fa;
           border: 1px solid var(--rule); border-radius: 6px; }
.summary b { display: block; font-size: 20px; }
.summary span { color: var(--muted); font-size: 12px; }
.legend { color: var(--muted); font-size: 13px; max-width: 980px; margin: 0 0 14px; }
table { border-collapse: collapse; }
th, td { padding: 2px 7px; white-space: nowrap; text-align: left; }
td.num, th.num { text-align: right; font-variant-numeric: tabular-nums; }
td.slot { color: var(--muted); font-variant-numeric: tabular-nums; }
td.speedup { font-weight: 600; }
thead th { font-weight: 600; font-size: 12px; color: var(--muted); vertical-align: bottom; }
tr.group th { padding-top: 16px; font-size: 15px; border-bottom: 1px solid var(--rule); }
tr.group th small { font-weight: normal; color: var(--muted); font-size: 13px; margin-left: 8px; }
tbody tr.row:hover { background: #f6f8fa; }
.track { position: relative; width: 340px; height: 18px; }
.grid { position: absolute; top: 0; bottom: 0; width: 1px; background: var(--grid); }
.grid.one { width: 2px; margin-left: -1px; background: #3d444d; }
.bar { position: absolute; top: 4px; height: 10px; min-width: 2px; border-radius: 2px; }
.bar.up { background: var(--up); }
.bar.down { background: var(--down); }
.axis .track { height: 16px; }
.tick { position: absolute; bottom: 0; transform: translateX(-50%); font-size: 11px; color: var(--muted); }
.tick.one { color: var(--ink); font-weight: 700; }
.share { display: inline-block; position: relative; width: 110px; height: 10px; margin-right: 6px;
         vertical-align: middle; background: #eef1f5; border-radius: 2px; }
.share i { position: absolute; left: 0; top: 0; bottom: 0; background: var(--share); border-radius: 2px; }
.share.over i { background: #203f99; }
footer { margin-top: 22px; color: var(--muted); font-size: 12px; }
)";

class Page {
 public:
  Page(const BenchReportHeader& header, std::vector<BenchReportRow> rows) : h_(header), rows_(std::move(rows)) {
    std::stable_sort(rows_.begin(), rows_.end(), [](const BenchReportRow& a, const BenchReportRow& b) {
      const int sa = suiteOrder(a.suite), sb = suiteOrder(b.suite);
      return sa != sb ? sa < sb : a.slot < b.slot;
    });
    std::tie(lo_, hi_) = speedupAxis(rows_);
  }

  std::string render() {
    out_ += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n";
    out_ += "<title>Tarnell bench report, " + std::to_string(h_.width) + "\u00d7" + std::to_string(h_.height) + ", " +
            escape(h_.date) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n";
    header();
    table();
    out_ += "<footer>Written by tarnell-host " + escape(h_.version) +
            ". Times are the median of one call over at least the minimum time per routine; "
            "rerun on a quiet machine before comparing small differences.</footer>\n</body>\n</html>\n";
    return std::move(out_);
  }

 private:
  // Where a speedup sits on the axis, in percent of the track.
  double at(double speedup) const {
    const double s = std::clamp(speedup, lo_, hi_);
    return 100 * (std::log2(s) - std::log2(lo_)) / (std::log2(hi_) - std::log2(lo_));
  }

  std::string label(const BenchReportRow& r) const { return r.suite + ":" + std::to_string(r.slot); }

  void header() {
    out_ += "<header>\n<h1>Tarnell bench report</h1>\n<p class=\"sub\">The module's routine against the host's "
            "portable routine of the same slot, on the same planes.</p>\n<dl class=\"meta\">\n";
    item("Processor", escape(h_.processor));
    std::string chips;
    std::size_t from = 0;
    while (from < h_.flags.size()) {  // "SSE2=1 AVX=0 ..." as chips, the absent ones struck
      std::size_t to = h_.flags.find(' ', from);
      if (to == std::string::npos) to = h_.flags.size();
      const std::string flag = h_.flags.substr(from, to - from);
      const auto eq = flag.find('=');
      if (!flag.empty()) {
        const bool off = eq != std::string::npos && flag.substr(eq + 1) == "0";
        chips += std::string("<span class=\"chip") + (off ? " off" : "") + "\">" + escape(flag.substr(0, eq)) + "</span>";
      }
      from = to + 1;
    }
    item("Flags", chips);
    if (!h_.topology.empty()) item("Topology", escape(h_.topology));
    item("Plane size", std::to_string(h_.width) + " \u00d7 " + std::to_string(h_.height) + " samples, " +
                           format("%g", h_.minSeconds) + " s minimum per routine");
    item("Slots", h_.filter.empty() ? "every slot the module replaced" : "filter <code>" + escape(h_.filter) + "</code>");
    item("Module", "<code>" + escape(h_.module) + "</code>");
    item("Date", escape(h_.date));
    out_ += "</dl>\n";
    if (!rows_.empty()) summary();
    out_ += "<p class=\"legend\">Each bar runs from the 1\u00d7 line (as fast as the host) to the module's speedup, "
            "on a logarithmic axis: green is faster than the host, red slower. The share of memcpy is "
            "memcpy's time for the bytes one call reads and writes, over the routine's time: 100% means the "
            "routine moves its data as fast as a plain copy.</p>\n</header>\n";
  }

  void item(const char* term, const std::string& html) { out_ += "<dt>" + std::string(term) + "</dt><dd>" + html + "</dd>\n"; }

  void summary() {
    const BenchSummary sum = summarize(rows_);
    const BenchReportRow& slow = sum.slowest;
    const BenchReportRow& share = sum.leastShare;
    out_ += "<div class=\"summary\">";
    out_ += "<div><b>" + std::to_string(rows_.size()) + "</b><span>slots benched</span></div>";
    out_ += "<div><b>" + format("%.2f", sum.medianSpeedup) + "\u00d7</b><span>median speedup</span></div>";
    out_ += "<div><b>" + format("%.2f", slow.speedup) + "\u00d7</b><span>lowest: " + escape(label(slow) + " " + slow.name) +
            "</span></div>";
    out_ += "<div><b>" + format("%.0f", 100 * share.memcpyShare) + "%</b><span>lowest share of memcpy: " +
            escape(label(share) + " " + share.name) + "</span></div>";
    out_ += "</div>\n";
  }

  // The track's grid: a line per power of two, the 1x line stronger; with labels
  // for the axis rows.
  std::string grid(bool labels) const {
    std::string html;
    for (double v = lo_; v <= hi_ * 1.0001; v *= 2) {
      const std::string left = format("%.3f", at(v));
      const char* one = v == 1 ? " one" : "";
      if (labels)
        html += std::string("<span class=\"tick") + one + "\" style=\"left:" + left + "%\">" + times(v) + "</span>";
      else
        html += std::string("<div class=\"grid") + one + "\" style=\"left:" + left + "%\"></div>";
    }
    return html;
  }

  void axisRow() {
    out_ += "<tr class=\"axis\"><th></th><th></th><th><div class=\"track\">" + grid(true) +
            "</div></th><th colspan=\"5\"></th></tr>\n";
  }

  void table() {
    out_ += "<table>\n<thead>\n<tr><th>Slot</th><th>Routine</th><th>Speedup over the host (log scale)</th>"
            "<th class=\"num\">Speedup</th><th class=\"num\">Host ns</th><th class=\"num\">Module ns</th>"
            "<th class=\"num\">Module GB/s</th><th>Share of memcpy</th></tr>\n";
    axisRow();
    out_ += "</thead>\n";
    const std::string lines = grid(false);
    for (std::size_t first = 0; first < rows_.size();) {
      std::size_t end = first;
      std::vector<double> speedups;
      while (end < rows_.size() && rows_[end].suite == rows_[first].suite) speedups.push_back(rows_[end++].speedup);
      const std::string& suite = rows_[first].suite;
      const auto title = kSuiteTitles.find(suite);
      out_ += "<tbody class=\"suite\" data-suite=\"" + escape(suite) + "\">\n<tr class=\"group\"><th colspan=\"8\">" +
              escape(suite) + " <small>" + (title != kSuiteTitles.end() ? title->second : "") + " \u00b7 " +
              std::to_string(end - first) + (end - first == 1 ? " slot" : " slots") + " \u00b7 median " +
              format("%.2f", median(speedups)) + "\u00d7</small></th></tr>\n";
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
    const double one = at(1), end = at(r.speedup);
    const std::string tag = label(r);
    out_ += "<tr class=\"row\"><td class=\"slot\">" + escape(tag) + "</td><td>" + escape(r.name) + "</td>";
    out_ += "<td><div class=\"track\">" + lines + "<div class=\"bar " + (r.speedup >= 1 ? "up" : "down") +
            "\" data-slot=\"" + escape(tag) + "\" data-speedup=\"" + format("%.3f", r.speedup) + "\" style=\"left:" +
            format("%.3f", std::min(one, end)) + "%;width:" + format("%.3f", std::abs(end - one)) + "%\" title=\"" +
            escape(tag + " " + r.name) + ": " + format("%.2f", r.speedup) + "\u00d7\"></div></div></td>";
    out_ += "<td class=\"num speedup\">" + format("%.2f", r.speedup) + "\u00d7</td>";
    out_ += "<td class=\"num\">" + format("%.0f", r.hostNs) + "</td><td class=\"num\">" + format("%.0f", r.moduleNs) +
            "</td><td class=\"num\">" + format("%.2f", r.moduleGBps) + "</td>";
    const double share = std::max(0.0, r.memcpyShare);
    out_ += std::string("<td class=\"num\"><span class=\"share") + (share > 1 ? " over" : "") + "\"><i style=\"width:" +
            format("%.1f", 100 * std::min(share, 1.0)) + "%\"></i></span>" + format("%.0f", 100 * share) +
            "%</td></tr>\n";
  }

  const BenchReportHeader& h_;
  std::vector<BenchReportRow> rows_;
  double lo_ = 0.5, hi_ = 2;
  std::string out_;
};

}  // namespace

BenchSummary summarize(const std::vector<BenchReportRow>& rows) {
  std::vector<double> speedups;
  for (const BenchReportRow& r : rows) speedups.push_back(r.speedup);
  auto lowest = [&](double BenchReportRow::*key) {
    return *std::min_element(rows.begin(), rows.end(),
                             [&](const BenchReportRow& a, const BenchReportRow& b) { return a.*key < b.*key; });
  };
  return {median(speedups), lowest(&BenchReportRow::speedup), lowest(&BenchReportRow::memcpyShare)};
}

std::pair<double, double> speedupAxis(const std::vector<BenchReportRow>& rows) {
  double lo = 0.5, hi = 2;
  for (const BenchReportRow& r : rows) {
    if (!(r.speedup > 0) || !std::isfinite(r.speedup)) continue;
    while (lo > r.speedup && lo > 1.0 / 1024) lo /= 2;
    while (hi < r.speedup && hi < 1 << 20) hi *= 2;
  }
  return {lo, hi};
}

std::string renderBenchReport(const BenchReportHeader& header, const std::vector<BenchReportRow>& rows) {
  return Page(header, rows).render();
}

}  // namespace tarnell::tool
