#include "verify/fill_array_cases.h"

#include <cstring>
#include <memory>
#include <sstream>

#include "refhost/refhost.h"

namespace tarnell::verify {

std::string placementLabel(Placement placement) {
  return placement == Placement::Heap             ? "between guard bytes"
         : placement == Placement::GuardPageAfter ? "against the next page"
                                                  : "against the previous page";
}

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

std::string compareFillArray(const FillArrayCase& c, SlotFn<code::path, 24> host, SlotFn<code::path, 24> module,
                             refhost::ReferenceHost& reference, Placement placement) {
  PlaneLayout layout;
  layout.rowBytes = static_cast<int32_t>(c.words.size() * 4);
  layout.stride = layout.rowBytes;
  PlaneBuffer forHost(layout, placement), forModule(layout, placement);
  std::vector<unsigned char> pristine(forHost.size());
  for (std::size_t i = 0; i < pristine.size(); ++i) pristine[i] = static_cast<unsigned char>(i * 151 + 7);
  const auto offset = static_cast<std::size_t>(forHost.first() - forHost.begin());
  std::memcpy(pristine.data() + offset, c.words.data(), c.words.size() * 4);
  std::memcpy(forHost.begin(), pristine.data(), pristine.size());
  std::memcpy(forModule.begin(), pristine.data(), pristine.size());

  // The words are 4-byte aligned in both placements (page and 64-byte boundaries).
  reference.clearLogs();
  host(reinterpret_cast<uint32_t*>(forHost.first()), c.operation, c.nonZeroWinding);
  const std::vector<refhost::Diagnostic> hostReports = reference.diagnostics();
  reference.clearLogs();
  module(reinterpret_cast<uint32_t*>(forModule.first()), c.operation, c.nonZeroWinding);
  const std::vector<refhost::Diagnostic> moduleReports = reference.diagnostics();
  reference.clearLogs();

  std::ostringstream out;
  const std::size_t arrayEnd = offset + c.words.size() * 4;
  if (std::memcmp(forModule.begin(), pristine.data(), offset) != 0 ||
      std::memcmp(forModule.begin() + arrayEnd, pristine.data() + arrayEnd, pristine.size() - arrayEnd) != 0) {
    out << "module wrote outside the array and its working space";
  } else if (std::memcmp(forHost.begin(), forModule.begin(), pristine.size()) != 0) {
    std::size_t i = 0;
    while (forHost.begin()[i] == forModule.begin()[i]) ++i;
    const auto at = static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(offset);
    out << "word " << (at >= 0 ? at / 4 : (at - 3) / 4) << " (byte " << at << ") differs: host 0x" << std::hex
        << int{forHost.begin()[i]} << " module 0x" << int{forModule.begin()[i]} << " before 0x" << int{pristine[i]};
  } else if (!sameReports(hostReports, moduleReports)) {
    out << "reports differ: host " << describeReports(hostReports) << "; module " << describeReports(moduleReports);
  } else {
    return {};
  }
  out << std::dec << " (operation " << c.operation << ", rule " << c.nonZeroWinding << ", " << c.words.size()
      << " words, rows " << static_cast<int32_t>(c.words[fillarray::kBottom] - c.words[fillarray::kTop]) << ", stride "
      << static_cast<int32_t>(c.words[fillarray::kRowStride]) << ", " << placementLabel(placement) << ")";
  return out.str();
}

}  // namespace tarnell::verify
