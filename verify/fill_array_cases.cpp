#include "verify/fill_array_cases.h"

#include <cstring>
#include <memory>
#include <sstream>

#include "refhost/refhost.h"
#include "verify/twin.h"

namespace tarnell::verify {

namespace {

std::string describeReports(const std::vector<refhost::Diagnostic>& reports) {
  std::ostringstream out;
  out << reports.size() << " reports";
  for (const refhost::Diagnostic& d : reports)
    out << " [\"" << d.message << "\" " << d.source << ':' << d.line << " severity " << d.severity << ']';
  return out.str();
}

bool sameReports(const std::vector<refhost::Diagnostic>& a, const std::vector<refhost::Diagnostic>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].message != b[i].message || a[i].source != b[i].source || a[i].line != b[i].line ||
        a[i].severity != b[i].severity)
      return false;
  return true;
}

}  // namespace

std::string compareFillArray(const FillArrayCase& c, SlotFnOf<slot::ApplyFillArrayOperation> host, SlotFnOf<slot::ApplyFillArrayOperation> module,
                             refhost::ReferenceHost& reference, Placement placement) {
  Rng surroundings(c.words.size());
  Twin twin(surroundings, c.words.size() * 4, placement);
  std::memcpy(&twin.at(0), c.words.data(), c.words.size() * 4);
  twin.reset();

  // The words are 4-byte aligned in every placement (page and 64-byte boundaries).
  reference.clearLogs();
  host(reinterpret_cast<uint32_t*>(twin.host(0)), c.operation, c.nonZeroWinding);
  const std::vector<refhost::Diagnostic> hostReports = reference.diagnostics();
  reference.clearLogs();
  module(reinterpret_cast<uint32_t*>(twin.module(0)), c.operation, c.nonZeroWinding);
  const std::vector<refhost::Diagnostic> moduleReports = reference.diagnostics();
  reference.clearLogs();

  std::ostringstream out;
  if (std::string problem = twin.difference(); !problem.empty()) {
    out << problem;
  } else if (!sameReports(hostReports, moduleReports)) {
    out << "reports differ: host " << describeReports(hostReports) << "; module " << describeReports(moduleReports);
  } else {
    return {};
  }
  out << " (operation " << c.operation << ", rule " << c.nonZeroWinding << ", " << c.words.size() << " words, rows "
      << static_cast<int32_t>(c.words[fillarray::kBottom] - c.words[fillarray::kTop]) << ", stride "
      << static_cast<int32_t>(c.words[fillarray::kRowStride]) << ' ' << placementName(placement) << ")";
  return out.str();
}

}  // namespace tarnell::verify
