// The peer report: the module against other libraries doing the same work (the
// peer benchmark's module / peer table) as one self-contained HTML page in the
// bench report's style: per operation and size, a bar for each peer on one
// logarithmic axis around 1x.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tarnell::tool {

struct PeerReportRow {
  std::string operation;  // as the benchmark names it
  std::string size;       // "256x256"
  std::string peer;       // "opencv"
  double moduleNs = 0, peerNs = 0;  // per output sample
  double moduleGBps = 0, peerGBps = 0;
  // The peer's time over the module's for the same outputs: above 1 the module is
  // faster ("module / peer" in speed).
  double ratio() const { return moduleNs > 0 && peerNs > 0 ? peerNs / moduleNs : 0; }
};

struct PeerOperation {
  std::string name;
  std::string slot;  // "blnd:1"
  // The largest difference between a sample the module writes and each peer's,
  // on the same input.
  std::vector<std::pair<std::string, double>> largestDifference;
};

struct PeerReportHeader {
  std::string processor, flags, topology;
  std::string peers;  // the libraries and their versions
  std::string sizes;  // what the sizes are ("source pixels, one thread")
  std::string module, date, version;
};

// Operations in the order given (rows of an operation not listed are shown after
// them), sizes in the order of the rows.
std::string renderPeerReport(const PeerReportHeader& header, const std::vector<PeerOperation>& operations,
                             const std::vector<PeerReportRow>& rows);

}  // namespace tarnell::tool
