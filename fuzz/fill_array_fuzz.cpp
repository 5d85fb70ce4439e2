// Fuzz target for the fill-array operation ('path' slot 24). The input chooses the
// build (plain or checking), whether debugging is on, the guard value (0 or any),
// where the array lies (between guard bytes, or flush against an inaccessible page
// after its end or before its start), the operation code, the winding rule, and
// the array itself: rows, stride, counts and contents, valid or hostile. The
// module's operation and the reference host's run on identical copies; any
// difference in the bytes (working space and surroundings included) or in the
// reports is a failure, and so is any access the sanitizers or the pages catch.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/startup.h"
#include "pathfill/fill_array.h"
#include "refhost/portable_pathfill.h"
#include "refhost/refhost.h"
#include "verify/fill_array_cases.h"

using namespace tarnell;

namespace {

// Numbers from the input, as few bytes as each needs; zeros once it runs out.
class InputSource {
 public:
  InputSource(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  uint64_t next() { return take(4); }
  uint32_t below(uint32_t n) {
    const uint64_t v = take(n <= 0x100 ? 1 : n <= 0x10000 ? 2 : 4);
    return static_cast<uint32_t>(v % n);
  }

 private:
  uint64_t take(int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes && size_ > 0; ++i, ++data_, --size_) v = v << 8 | *data_;
    return v;
  }
  const uint8_t* data_;
  std::size_t size_;
};

refhost::FillArraySettings g_settings;
void hostOperation(uint32_t* a, uint32_t operation, int32_t rule) {
  refhost::portableApplyFillArray(a, operation, rule, g_settings);
}

// The module is started once, statically linked, against a reference host whose
// services (reports, byte copy) both sides use.
refhost::ReferenceHost& session() {
  static refhost::ReferenceHost* host = [] {
    auto* h = new refhost::ReferenceHost();
    int16_t result = -1;
    startup(h->hostInfo(), &result);
    if (result != 0) {
      std::fprintf(stderr, "fuzz_fill_array: start-up failed\n");
      std::abort();
    }
    return h;
  }();
  return *host;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  refhost::ReferenceHost& host = session();
  InputSource src(data, size);
  const uint32_t choice = src.below(256);
  g_settings.checking = (choice & 1) != 0;
  g_settings.debug = (choice & 2) != 0;
  // The installer's derivation: no guard while debugging is off.
  const uint32_t guard = (choice & 4) != 0 ? static_cast<uint32_t>(src.next()) | 1 : 0;
  g_settings.guard = g_settings.debug ? guard : 0;
  pathfill::pathDebugEnabled = g_settings.debug ? 1 : 0;
  pathfill::pathDebugGuard = g_settings.guard;
  const verify::Placement placement = static_cast<verify::Placement>((choice >> 3) % 3);

  const verify::FillArrayCase c = verify::drawFillArray(src, g_settings);
  const auto module = g_settings.checking ? &pathfill::CApplyFillArrayOperation : &pathfill::ApplyFillArrayOperation;
  const std::string problem = verify::compareFillArray(c, &hostOperation, module, host, placement);
  if (!problem.empty()) {
    std::fprintf(stderr, "fuzz_fill_array: %s build, debug %d, guard 0x%x: %s\n",
                 g_settings.checking ? "checking" : "plain", g_settings.debug ? 1 : 0, g_settings.guard,
                 problem.c_str());
    std::abort();
  }
  return 0;
}
