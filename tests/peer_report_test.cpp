// The peer report page: a row per operation and size with a bar per peer on one
// axis around 1x, the largest difference of each pair in the operation's heading,
// the header, and a layout that reads from a phone's width up. (The peer benchmark
// that feeds it needs OpenCV and pixman; the page does not.)
#include "tools/peer_report.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/page_checks.h"

namespace tarnell::tool {
namespace {

using tests::countOf;

PeerReportRow row(const char* operation, const char* size, const char* peer, double moduleNs, double peerNs) {
  return {operation, size, peer, moduleNs, peerNs, 1, 1};
}

TEST(PeerReport, ARowPerOperationAndSizeWithABarPerPeer) {
  PeerReportHeader header;
  header.processor = "A Processor";
  header.flags = "SSE2=1 AVX=0";
  header.peers = "OpenCV 4.6.0, pixman 0.42.2";
  header.date = "2026-01-31 12:00:00 UTC";
  const std::vector<PeerOperation> operations = {{"scale8", "blnd:1", {{"opencv", 0}, {"pixman", 1}}},
                                                 {"boxMean16_r2", "filt:75", {{"opencv", 0}}}};
  const std::vector<PeerReportRow> rows = {
      row("scale8", "256x256", "opencv", 0.5, 1.0),       row("scale8", "256x256", "pixman", 0.5, 2.0),
      row("scale8", "4096x4096", "opencv", 1.0, 0.5),     row("scale8", "4096x4096", "pixman", 1.0, 1.0),
      row("boxMean16_r2", "256x256", "opencv", 2.0, 8.0),
  };
  const std::string page = renderPeerReport(header, operations, rows);
  tests::expectPageFitsAnyWidth(page);

  EXPECT_EQ(countOf(page, "<tbody class=\"operation\""), 2u);
  EXPECT_EQ(countOf(page, "<tr class=\"row\">"), 3u);  // (scale8, 256), (scale8, 4096), (boxMean16_r2, 256)
  EXPECT_EQ(countOf(page, "<div class=\"bar\""), rows.size());
  // Module / peer in speed: the peer's time over the module's, on one axis.
  EXPECT_NE(page.find("data-operation=\"scale8\" data-size=\"256x256\" data-peer=\"pixman\" data-ratio=\"4.000\""),
            std::string::npos);
  EXPECT_NE(page.find("data-operation=\"scale8\" data-size=\"4096x4096\" data-peer=\"opencv\" data-ratio=\"0.500\""),
            std::string::npos);
  EXPECT_NE(page.find("<b>4.00\u00d7</b> <small>(8.000 ns)</small>"), std::string::npos);
  EXPECT_EQ(countOf(page, "<div class=\"grid one\""), 3u);
  EXPECT_NE(page.find("<span class=\"tick one\""), std::string::npos);
  // Headings: the slot and the largest difference of each pair.
  EXPECT_NE(page.find("scale8 <small>blnd:1 \u00b7 largest difference opencv 0, pixman 1</small>"), std::string::npos);
  EXPECT_NE(page.find("boxMean16_r2 <small>filt:75 \u00b7 largest difference opencv 0</small>"), std::string::npos);
  // Sizes in the order of the rows; the header.
  EXPECT_LT(page.find("<td class=\"c-key c-wide\">256\u00d7256</td>"),
            page.find("<td class=\"c-key c-wide\">4096\u00d74096</td>"));
  EXPECT_NE(page.find("<dt>Processor</dt><dd>A Processor</dd>"), std::string::npos);
  EXPECT_NE(page.find("<dt>Peers</dt><dd>OpenCV 4.6.0, pixman 0.42.2</dd>"), std::string::npos);
  EXPECT_NE(page.find("<dt>Date</dt><dd>2026-01-31 12:00:00 UTC</dd>"), std::string::npos);
  EXPECT_EQ(countOf(page, "<span class=\"chip"), 2u);
  // The summary: per peer, the median and the lowest.
  EXPECT_NE(page.find("<b>2.00\u00d7</b><span>median against opencv (3 cases)</span>"), std::string::npos);
  EXPECT_NE(page.find("<b>0.50\u00d7</b><span>lowest against opencv: scale8 4096\u00d74096</span>"), std::string::npos);
  // The boxMean16 row has no pixman figure: its cell is empty, the columns stay.
  EXPECT_EQ(countOf(page, "data-label=\"pixman\">"), 3u);
  EXPECT_EQ(countOf(page, "data-label=\"pixman\"></td>"), 1u);
}

TEST(PeerReport, RowsOfAnUnlistedOperationStillShow) {
  const std::string page = renderPeerReport({}, {}, {row("copy", "256x256", "opencv", 1, 1)});
  EXPECT_EQ(countOf(page, "<tr class=\"row\">"), 1u);
  EXPECT_NE(page.find("copy <small>largest difference not measured</small>"), std::string::npos);
}

}  // namespace
}  // namespace tarnell::tool
