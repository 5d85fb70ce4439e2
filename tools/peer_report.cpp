#include "tools/peer_report.h"

#include <algorithm>
#include <iterator>

#include "tools/html_page.h"

namespace tarnell::tool {
namespace {

using html::escape;
using html::format;

// One colour per peer, in the order the peers first appear.
constexpr const char* kPeerColours[] = {"#4a6fd1", "#c77c1e", "#8a4fbf", "#2e7d4f"};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n == 0 ? 0 : n % 2 != 0 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string sizeText(const std::string& size) {  // "256x256" as "256×256"
  std::string out = size;
  if (const auto x = out.find('x'); x != std::string::npos) out.replace(x, 1, "\u00d7");
  return out;
}

class PeerPage {
 public:
  PeerPage(const PeerReportHeader& h, const std::vector<PeerOperation>& operations,
           const std::vector<PeerReportRow>& rows)
      : h_(h), operations_(operations), rows_(rows) {
    std::vector<double> ratios;
    for (const PeerReportRow& r : rows_) {
      ratios.push_back(r.ratio());
      if (std::find(peers_.begin(), peers_.end(), r.peer) == peers_.end()) peers_.push_back(r.peer);
      if (std::none_of(operations_.begin(), operations_.end(),
                       [&](const PeerOperation& op) { return op.name == r.operation; }))
        operations_.push_back({r.operation, "", {}});
    }
    axis_ = html::LogAxis(html::ratioAxis(ratios));
  }

  std::string render() {
    out_ += html::pageStart("Tarnell against its peers, " + h_.date);
    out_ += "<header>\n<h1>Tarnell against its peers</h1>\n<p class=\"sub\">The module's routine against libraries "
            "doing the same work, on the same planes, one thread.</p>\n<dl class=\"meta\">\n";
    out_ += html::metaItem("Processor", escape(h_.processor));
    out_ += html::metaItem("Flags", html::flagChips(h_.flags));
    if (!h_.topology.empty()) out_ += html::metaItem("Topology", escape(h_.topology));
    out_ += html::metaItem("Peers", escape(h_.peers));
    if (!h_.sizes.empty()) out_ += html::metaItem("Sizes", escape(h_.sizes));
    out_ += html::metaItem("Module", "<code>" + escape(h_.module) + "</code>");
    out_ += html::metaItem("Date", escape(h_.date));
    out_ += "</dl>\n";
    summary();
    out_ += "<p class=\"legend\">Each bar runs from the 1\u00d7 line to module \u00f7 peer in speed (the peer's "
            "time per output sample over the module's), on a logarithmic axis: right of the line the module is "
            "faster, left of it the peer. One bar per peer:";
    for (std::size_t p = 0; p < peers_.size(); ++p)
      out_ += "<span class=\"swatch\" style=\"background:" + std::string(colour(p)) + "\"></span>" + escape(peers_[p]);
    out_ += ". The largest difference is between a sample the module writes and the peer's, on the same input "
            "(rounding apart, both do the same work).</p>\n</header>\n";
    if (!rows_.empty()) table();
    out_ += "<footer>Written by the peer benchmark of Tarnell " + escape(h_.version) +
            ". Times are processor time per call, the median of the benchmark's repetitions, divided by the "
            "output samples of one call.</footer>\n";
    out_ += html::pageEnd();
    return std::move(out_);
  }

 private:
  const char* colour(std::size_t peer) const {
    return kPeerColours[std::min(peer, std::size(kPeerColours) - 1)];
  }
  std::size_t peerIndex(const std::string& peer) const {
    return static_cast<std::size_t>(std::find(peers_.begin(), peers_.end(), peer) - peers_.begin());
  }

  void summary() {
    out_ += "<div class=\"summary\">";
    if (rows_.empty()) out_ += "<p>Nothing was measured.</p>";
    for (const std::string& peer : peers_) {
      std::vector<double> ratios;
      const PeerReportRow* lowest = nullptr;
      for (const PeerReportRow& r : rows_) {
        if (r.peer != peer || !(r.ratio() > 0)) continue;
        ratios.push_back(r.ratio());
        if (lowest == nullptr || r.ratio() < lowest->ratio()) lowest = &r;
      }
      if (lowest == nullptr) continue;
      out_ += "<div><b>" + format("%.2f", median(ratios)) + "\u00d7</b><span>median against " + escape(peer) + " (" +
              std::to_string(ratios.size()) + " cases)</span></div>";
      out_ += "<div><b>" + format("%.2f", lowest->ratio()) + "\u00d7</b><span>lowest against " + escape(peer) + ": " +
              escape(lowest->operation + " " + sizeText(lowest->size)) + "</span></div>";
    }
    out_ += "</div>\n";
  }

  void axisRow() {
    out_ += "<tr class=\"axis\"><th></th><th class=\"c-chart\"><div class=\"track\">" + axis_.ticks() + "</div></th><th colspan=\"" +
            std::to_string(peers_.size() + 2) + "\"></th></tr>\n";
  }

  void table() {
    out_ += "<table class=\"results\">\n<thead>\n<tr class=\"head\"><th>Size</th>"
            "<th class=\"c-chart\">Module \u00f7 peer (log scale)</th>";
    for (const std::string& peer : peers_) out_ += "<th class=\"num\">" + escape(peer) + "</th>";
    out_ += "<th class=\"num\">Module ns per sample</th><th class=\"num\">Module GB/s</th></tr>\n";
    axisRow();
    out_ += "</thead>\n";
    const std::string lines = axis_.grid();
    const std::size_t columns = peers_.size() + 4;
    for (const PeerOperation& op : operations_) {
      std::vector<std::string> sizes;
      for (const PeerReportRow& r : rows_)
        if (r.operation == op.name && std::find(sizes.begin(), sizes.end(), r.size) == sizes.end())
          sizes.push_back(r.size);
      if (sizes.empty()) continue;
      std::string heading = escape(op.name) + " <small>";
      if (!op.slot.empty()) heading += escape(op.slot) + " \u00b7 ";
      heading += "largest difference";
      for (std::size_t i = 0; i < op.largestDifference.size(); ++i)
        heading += (i == 0 ? " " : ", ") + escape(op.largestDifference[i].first) + " " +
                   format("%g", op.largestDifference[i].second);
      if (op.largestDifference.empty()) heading += " not measured";
      heading += "</small>";
      out_ += "<tbody class=\"operation\" data-operation=\"" + escape(op.name) + "\">\n<tr class=\"group\"><th colspan=\"" +
              std::to_string(columns) + "\">" + heading + "</th></tr>\n";
      for (const std::string& size : sizes) row(op, size, lines);
      out_ += "</tbody>\n";
    }
    if (rows_.size() > 12) {
      out_ += "<tfoot>\n";
      axisRow();
      out_ += "</tfoot>\n";
    }
    out_ += "</table>\n";
  }

  void row(const PeerOperation& op, const std::string& size, const std::string& lines) {
    std::vector<const PeerReportRow*> mine;
    for (const PeerReportRow& r : rows_)
      if (r.operation == op.name && r.size == size) mine.push_back(&r);
    out_ += "<tr class=\"row\"><td class=\"c-key c-wide\">" + escape(sizeText(size)) + "</td>";
    out_ += "<td class=\"c-chart\"><div class=\"track\">" + lines;
    const double band = 14.0 / static_cast<double>(mine.size());
    for (std::size_t i = 0; i < mine.size(); ++i) {
      const PeerReportRow& r = *mine[i];
      out_ += "<div class=\"bar\" data-operation=\"" + escape(op.name) + "\" data-size=\"" + escape(size) +
              "\" data-peer=\"" + escape(r.peer) + "\" data-ratio=\"" + format("%.3f", r.ratio()) + "\" style=\"" +
              axis_.barGeometry(r.ratio()) + ";top:" + format("%.1f", 2 + band * static_cast<double>(i)) +
              "px;height:" + format("%.1f", std::max(2.0, band - 2)) + "px;background:" + colour(peerIndex(r.peer)) +
              "\" title=\"" + escape(op.name + " " + sizeText(size) + " against " + r.peer) + ": " +
              format("%.2f", r.ratio()) + "\u00d7\"></div>";
    }
    out_ += "</div></td>";
    double moduleNs = 0, moduleGBps = 0;
    for (const std::string& peer : peers_) {
      const auto found =
          std::find_if(mine.begin(), mine.end(), [&](const PeerReportRow* r) { return r->peer == peer; });
      out_ += "<td class=\"num\" data-label=\"" + escape(peer) + "\">";
      if (found != mine.end()) {
        const PeerReportRow& r = **found;
        out_ += "<b>" + format("%.2f", r.ratio()) + "\u00d7</b> <small>(" + format("%.3f", r.peerNs) + " ns)</small>";
        moduleNs = r.moduleNs;
        moduleGBps = r.moduleGBps;
      }
      out_ += "</td>";
    }
    out_ += "<td class=\"num\" data-label=\"module ns per sample\">" + format("%.3f", moduleNs) +
            "</td><td class=\"num\" data-label=\"module GB/s\">" + format("%.2f", moduleGBps) + "</td></tr>\n";
  }

  const PeerReportHeader& h_;
  std::vector<PeerOperation> operations_;
  const std::vector<PeerReportRow>& rows_;
  std::vector<std::string> peers_;
  html::LogAxis axis_{{0.5, 2.0}};
  std::string out_;
};

}  // namespace

std::string renderPeerReport(const PeerReportHeader& header, const std::vector<PeerOperation>& operations,
                             const std::vector<PeerReportRow>& rows) {
  return PeerPage(header, operations, rows).render();
}

}  // namespace tarnell::tool
