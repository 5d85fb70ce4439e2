// Fuzz target over every slot the module accelerates: each input runs one case
// of one verification check (or the few it asks for) at one tier, the module's
// routine against the reference host's, everything the check varies taken from
// the input (fuzz/slot_harness.h gives its layout). A difference in the bytes or
// in the calls into the host, or a fault, stops the run with the case described.
//
// With TARNELL_FUZZ_STATS=FILE set, the executions, cases and seconds spent per
// slot and per tier are written to FILE every ten seconds and at exit.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "fuzz/slot_harness.h"
#include "verify/forwarded.h"
#include "verify/runner.h"

using namespace tarnell;

namespace {

fuzz::SlotHarness& harness() {
  static fuzz::SlotHarness* h = new fuzz::SlotHarness();
  return *h;
}

struct Counts {
  uint64_t executions = 0;
  uint64_t cases = 0;
  double seconds = 0;
};
std::map<const verify::Check*, Counts> g_perCheck;
std::vector<Counts> g_perTier;
uint64_t g_idle = 0;  // inputs whose slot no tier here replaces

void writeStats() {
  const char* path = std::getenv("TARNELL_FUZZ_STATS");
  if (path == nullptr) return;
  std::FILE* f = std::fopen(path, "w");
  if (f == nullptr) return;
  Counts all;
  for (const auto& [check, n] : g_perCheck) {
    std::fprintf(f, "slot %s %s %llu %llu %.3f\n", verify::checkLabel(*check).c_str(), fuzz::familyOf(*check),
                 static_cast<unsigned long long>(n.executions), static_cast<unsigned long long>(n.cases), n.seconds);
    all.executions += n.executions;
    all.cases += n.cases;
    all.seconds += n.seconds;
  }
  for (std::size_t t = 0; t < g_perTier.size(); ++t)
    std::fprintf(f, "tier %s %llu %llu %.3f\n", fuzz::tiers()[t].name,
                 static_cast<unsigned long long>(g_perTier[t].executions),
                 static_cast<unsigned long long>(g_perTier[t].cases), g_perTier[t].seconds);
  std::fprintf(f, "idle %llu\n", static_cast<unsigned long long>(g_idle));
  std::fprintf(f, "all %llu %llu %.3f\n", static_cast<unsigned long long>(all.executions),
               static_cast<unsigned long long>(all.cases), all.seconds);
  std::fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::fprintf(stderr, "fuzz_slots: %zu checks; forwarded slots left out (they jump to the host's own routine):",
               verify::allChecks().size());
  for (const verify::SlotName& s : verify::forwardedSlots())
    std::fprintf(stderr, " %s:%d %s", kSuites[suiteIndexOf(s.suite)].name, s.slot, s.name);
  std::fprintf(stderr, "\nfuzz_slots: tiers");
  for (const fuzz::Tier& t : fuzz::tiers()) std::fprintf(stderr, " %s%s", t.name, t.reached ? "" : " (not here)");
  std::fprintf(stderr, "\n");
  harness();
  g_perTier.resize(fuzz::tiers().size());
  std::atexit(&writeStats);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const auto start = std::chrono::steady_clock::now();
  const fuzz::Outcome o = harness().run(data, size);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (o.check == nullptr) {
    ++g_idle;
    return 0;
  }
  Counts& c = g_perCheck[o.check];
  ++c.executions;
  c.cases += static_cast<uint64_t>(o.cases);
  c.seconds += seconds;
  Counts& t = g_perTier[static_cast<std::size_t>(o.tier)];
  ++t.executions;
  t.cases += static_cast<uint64_t>(o.cases);
  t.seconds += seconds;
  static auto lastWrite = std::chrono::steady_clock::now();
  if (const auto now = std::chrono::steady_clock::now(); now - lastWrite > std::chrono::seconds(10)) {
    writeStats();
    lastWrite = now;
  }
  if (!o.failure.empty()) {
    std::fprintf(stderr, "fuzz_slots: %s at tier %s, planes %s: %s\n", verify::checkLabel(*o.check).c_str(),
                 fuzz::tiers()[static_cast<std::size_t>(o.tier)].name, fuzz::placementLabel(o.placement),
                 o.failure.c_str());
    writeStats();
    std::abort();
  }
  return 0;
}
