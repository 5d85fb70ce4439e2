#include "tools/html_page.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarnell::tool::html {

namespace {

// One style for every page. Tables of results (class "results") put a chart cell
// (c-chart) between a key (c-key), a name (c-name), a headline figure (c-head) and
// further figures (with data-label, shown above the figure on narrow windows).
constexpr const char* kStyle = R"(
:root { --ink: #1f2328; --muted: #656d76; --rule: #d0d7de; --grid: #e6e9ed;
        --up: #2e7d4f; --down: #c4472f; --share: #4a6fd1; --fixed: #8c959f; }
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body { margin: 28px 36px; color: var(--ink); background: #fff;
       font: 14px/1.45 system-ui, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
h1 { font-size: 24px; margin: 0 0 2px; }
.sub { color: var(--muted); margin: 0 0 16px; }
code { overflow-wrap: anywhere; }
dl.meta { display: grid; grid-template-columns: max-content minmax(0, 1fr); gap: 3px 18px; margin: 0 0 14px; }
dl.meta dt { color: var(--muted); }
dl.meta dd { margin: 0; min-width: 0; overflow-wrap: anywhere; }
.chip { display: inline-block; padding: 0 6px; margin: 0 3px 2px 0; border-radius: 9px; font-size: 12px;
        background: #e8f3ec; color: #1d5c37; }
.chip.off { background: #f1f2f4; color: #8c959f; text-decoration: line-through; }
.summary { display: flex; flex-wrap: wrap; gap: 10px 28px; margin: 6px 0 18px; padding: 10px 14px;
           background: #f6f8fa; border: 1px solid var(--rule); border-radius: 6px; }
.summary > div { min-width: 0; max-width: 100%; }
.summary b { display: block; font-size: 20px; }
.summary span { display: block; color: var(--muted); font-size: 12px; overflow-wrap: anywhere; }
.summary p { flex-basis: 100%; margin: 0; color: var(--muted); font-size: 12px; overflow-wrap: anywhere; }
.legend { color: var(--muted); font-size: 13px; max-width: 980px; margin: 0 0 14px; }
.swatch { display: inline-block; width: 18px; height: 8px; border-radius: 2px; margin: 0 4px 0 10px; }
table.results { border-collapse: collapse; width: 100%; }
th, td { padding: 2px 7px; white-space: nowrap; text-align: left; }
.num { text-align: right; font-variant-numeric: tabular-nums; }
td.c-key { color: var(--muted); font-variant-numeric: tabular-nums; }
td.c-head { font-weight: 600; }
th.c-chart, td.c-chart { width: 100%; min-width: 180px; }
thead th { font-weight: 600; font-size: 12px; color: var(--muted); vertical-align: bottom; }
tr.group th { padding-top: 16px; font-size: 15px; border-bottom: 1px solid var(--rule); white-space: normal; }
tr.group th small { font-weight: normal; color: var(--muted); font-size: 13px; margin-left: 8px; }
tbody tr.row:hover { background: #f6f8fa; }
.track { position: relative; height: 18px; margin: 0 14px; }
.grid { position: absolute; top: 0; bottom: 0; width: 1px; background: var(--grid); }
.grid.one { width: 2px; margin-left: -1px; background: #3d444d; }
.bar { position: absolute; top: 4px; height: 10px; min-width: 2px; border-radius: 2px; }
.bar.up { background: var(--up); }
.bar.down { background: var(--down); }
.bar.fixed { background: var(--fixed); }
.axis .track { height: 16px; }
.tick { position: absolute; bottom: 0; transform: translateX(-50%); font-size: 11px; color: var(--muted); }
.tick.one { color: var(--ink); font-weight: 700; }
.share { display: inline-block; position: relative; width: 110px; height: 10px; margin-right: 6px;
         vertical-align: middle; background: #eef1f5; border-radius: 2px; }
.share i { position: absolute; left: 0; top: 0; bottom: 0; background: var(--share); border-radius: 2px; }
.share.over i { background: #203f99; }
.note { display: inline-block; margin-left: 6px; padding: 0 6px; border-radius: 9px; font-size: 11px;
        font-weight: normal; background: #f1f2f4; color: var(--muted); }
footer { margin-top: 22px; color: var(--muted); font-size: 12px; }
@media (max-width: 860px) {
  body { margin: 16px 12px; }
  table.results, table.results thead, table.results tbody, table.results tfoot { display: block; }
  table.results tr.head { display: none; }
  table.results tr.group, table.results tr.group th { display: block; }
  table.results tr.row, table.results tr.axis { display: grid; grid-template-columns: repeat(4, minmax(0, 1fr));
                                                column-gap: 8px; }
  table.results tr.axis > * { display: none; }
  table.results tr.axis > .c-chart { display: block; grid-row: 1; grid-column: 1 / -1; }
  table.results tr.row { padding: 6px 0; border-bottom: 1px solid var(--grid); }
  table.results td, table.results tr.axis > th { padding: 1px 0; min-width: 0; }
  td.c-key { grid-row: 1; grid-column: 1; }
  td.c-name { grid-row: 1; grid-column: 2 / 4; white-space: normal; overflow-wrap: anywhere; }
  td.c-head { grid-row: 1; grid-column: 4; }
  td.c-wide { grid-row: 1; grid-column: 1 / -1; }
  th.c-chart, td.c-chart { grid-row: 2; grid-column: 1 / -1; width: auto; min-width: 0; }
  td[data-label] { text-align: left; white-space: normal; font-size: 12px; }
  td[data-label]:empty { display: none; }
  td[data-label]::before { content: attr(data-label); display: block; color: var(--muted); font-size: 11px; }
  .share { width: 40%; }
}
)";

}  // namespace

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

std::string times(double value) { return (value < 1 ? format("%g", value) : format("%.0f", value)) + "\u00d7"; }

std::string pageStart(const std::string& title) {
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
         escape(title) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n";
}

std::string pageEnd() { return "</body>\n</html>\n"; }

std::string flagChips(const std::string& flags) {
  std::string chips;
  std::size_t from = 0;
  while (from < flags.size()) {
    std::size_t to = flags.find(' ', from);
    if (to == std::string::npos) to = flags.size();
    const std::string flag = flags.substr(from, to - from);
    const auto eq = flag.find('=');
    if (!flag.empty()) {
      const bool off = eq != std::string::npos && flag.substr(eq + 1) == "0";
      chips += std::string("<span class=\"chip") + (off ? " off" : "") + "\">" + escape(flag.substr(0, eq)) + "</span>";
    }
    from = to + 1;
  }
  return chips;
}

std::string metaItem(const char* term, const std::string& html) {
  return "<dt>" + std::string(term) + "</dt><dd>" + html + "</dd>\n";
}

std::pair<double, double> ratioAxis(const std::vector<double>& ratios) {
  double lo = 0.5, hi = 2;
  for (const double r : ratios) {
    if (!(r > 0) || !std::isfinite(r)) continue;
    while (lo > r && lo > 1.0 / 1024) lo /= 2;
    while (hi < r && hi < 1 << 20) hi *= 2;
  }
  return {lo, hi};
}

double LogAxis::at(double ratio) const {
  const double s = std::clamp(ratio > 0 ? ratio : lo_, lo_, hi_);
  return 100 * (std::log2(s) - std::log2(lo_)) / (std::log2(hi_) - std::log2(lo_));
}

std::string LogAxis::grid() const {
  std::string html;
  for (double v = lo_; v <= hi_ * 1.0001; v *= 2)
    html += std::string("<div class=\"grid") + (v == 1 ? " one" : "") + "\" style=\"left:" + format("%.3f", at(v)) +
            "%\"></div>";
  return html;
}

std::string LogAxis::ticks() const {
  std::string html;
  for (double v = lo_; v <= hi_ * 1.0001; v *= 2)
    html += std::string("<span class=\"tick") + (v == 1 ? " one" : "") + "\" style=\"left:" + format("%.3f", at(v)) +
            "%\">" + times(v) + "</span>";
  return html;
}

std::string LogAxis::barGeometry(double ratio) const {
  const double one = at(1), end = at(ratio);
  return "left:" + format("%.3f", std::min(one, end)) + "%;width:" + format("%.3f", std::abs(end - one)) + "%";
}

}  // namespace tarnell::tool::html
