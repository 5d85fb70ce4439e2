// tarnell-host: loads a module into the reference host and reports what it does
// on this processor, verifies every replaced slot against the host's routine, and
// benchmarks host against module.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "host/cpu_features.h"
#include "refhost/refhost.h"
#include "verify/expected_slots.h"
#include "verify/runner.h"
#include "verify/session.h"

namespace {

using namespace tarnell;

constexpr const char* kUsage =
    "usage: tarnell-host <command> [options]\n"
    "\n"
    "commands:\n"
    "  report   load the module, run its start-up, print the processor features\n"
    "           and the slots it replaced in each suite\n"
    "  verify   compare every replaced slot with the host's routine, byte for byte\n"
    "  bench    time host against module for every replaced slot\n"
    "  list     list the checks\n"
    "\n"
    "options:\n"
    "  --module PATH        the module to load (default: Tarnell.qrx beside this program)\n"
    "  --seed N             verify: random seed (default: 1; printed with every failure)\n"
    "  --filter GLOB[,GLOB]  verify/bench: only checks whose name or suite:slot matches one of them\n"
    "  --quick              verify: fewer alignment combinations\n"
    "  --guard-pages        verify: place rows against inaccessible pages\n"
    "  --size WxH           bench: plane size (default 256x256)\n"
    "  --min-time SECONDS   bench: measuring time per routine (default 0.1)\n"
    "  --json               bench: machine-readable output\n"
    "  --omit-suite KEY     host: leave a suite out of the directory\n"
    "  --suite-version KEY=V, --suite-revision KEY=R   host: change a suite's entry\n";

struct Options {
  std::string command;
  std::string module;
  uint64_t seed = 1;
  std::string filter;
  bool quick = false;
  bool guardPages = false;
  int width = 256, height = 256;
  double minTime = 0.1;
  bool json = false;
  refhost::HostOptions host;
};

[[noreturn]] void usageError(const std::string& message) {
  std::fprintf(stderr, "tarnell-host: %s\n(run 'tarnell-host --help' for usage)\n", message.c_str());
  std::exit(2);
}

std::optional<uint32_t> parseKey(const std::string& text) {
  if (text.size() != 4) return std::nullopt;
  const char chars[5] = {text[0], text[1], text[2], text[3], 0};
  const uint32_t key = fourcc(chars);
  return suiteIndexOf(key) >= 0 ? std::optional<uint32_t>(key) : std::nullopt;
}

template <typename T>
bool parseNumber(const std::string& text, T& out, long long lo, long long hi) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || errno != 0 || v < lo || v > hi) return false;
  out = static_cast<T>(v);
  return true;
}

verify::FeatureSet featuresOf(const CpuFeatureFlags& f) {
  return {f.sseSecond != 0, f.sse2 != 0, f.ssse3 != 0, f.sse41 != 0, f.avx != 0, f.avx2 != 0};
}

Options parse(int argc, char** argv) {
  Options o;
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) usageError("no command given");
  std::size_t i = 0;
  auto value = [&](const std::string& flag) -> std::string {
    if (i + 1 >= args.size()) usageError("option " + flag + " needs a value");
    return args[++i];
  };
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      std::exit(0);
    } else if (a == "--module") {
      o.module = value(a);
    } else if (a == "--seed") {
      if (!parseNumber(value(a), o.seed, 0, INT64_MAX)) usageError("--seed takes a non-negative integer");
    } else if (a == "--filter") {
      o.filter = value(a);
    } else if (a == "--quick") {
      o.quick = true;
    } else if (a == "--guard-pages") {
      o.guardPages = true;
    } else if (a == "--json") {
      o.json = true;
    } else if (a == "--size") {
      const std::string v = value(a);
      const auto x = v.find('x');
      // Heights past 16384 give planes several times a large last-level cache.
      if (x == std::string::npos || !parseNumber(v.substr(0, x), o.width, 1, 16384) ||
          !parseNumber(v.substr(x + 1), o.height, 1, 131072))
        usageError("--size takes WxH with W 1..16384 and H 1..131072, for example 256x256");
    } else if (a == "--min-time") {
      char* end = nullptr;
      const std::string v = value(a);
      o.minTime = std::strtod(v.c_str(), &end);
      if (v.empty() || *end != '\0' || !(o.minTime > 0 && o.minTime <= 60)) usageError("--min-time takes seconds, 0 < s <= 60");
    } else if (a == "--omit-suite") {
      auto key = parseKey(value(a));
      if (!key) usageError("--omit-suite takes one of the ten suite keys, for example blnd");
      o.host.omit.push_back(*key);
    } else if (a == "--suite-version" || a == "--suite-revision") {
      const std::string v = value(a);
      const auto eq = v.find('=');
      std::optional<uint32_t> key = eq == std::string::npos ? std::nullopt : parseKey(v.substr(0, eq));
      int16_t n = 0;
      if (!key || !parseNumber(v.substr(eq + 1), n, INT16_MIN, INT16_MAX))
        usageError(a + " takes KEY=N with a suite key and a 16-bit number, for example blnd=6");
      (a == "--suite-version" ? o.host.version : o.host.revision)[*key] = n;
    } else if (!a.empty() && a[0] == '-') {
      usageError("unknown option '" + a + "'");
    } else if (o.command.empty()) {
      o.command = a;
    } else {
      usageError("unexpected argument '" + a + "'");
    }
  }
  if (o.command != "report" && o.command != "verify" && o.command != "bench" && o.command != "list")
    usageError("unknown command '" + o.command + "'");
  return o;
}

// Loads the module and runs its start-up on a fresh reference host; exits with a
// message when either fails.
struct Started {
  std::unique_ptr<verify::LoadedModule> module;
  std::unique_ptr<refhost::ReferenceHost> host;
};

Started start(const Options& o, const char* argv0) {
  Started s;
  const std::string path = o.module.empty() ? verify::defaultModulePath(argv0) : o.module;
  std::string error;
  s.module = verify::LoadedModule::load(path, &error);
  if (!s.module) {
    std::fprintf(stderr, "tarnell-host: %s\n", error.c_str());
    std::exit(3);
  }
  s.host = std::make_unique<refhost::ReferenceHost>(o.host);
  const verify::StartupOutcome outcome = verify::startModule(s.module->pluginMain(), *s.host);
  if (!outcome.ok()) {
    const std::string unmet = verify::firstUnmetSuite(o.host);
    std::fprintf(stderr, "tarnell-host: the module's start-up failed (result %d): %s\n", outcome.result,
                 unmet.empty() ? "it rejected the host's suites"
                               : ("suite '" + unmet + "' is missing or does not meet the required version and revision").c_str());
    std::exit(4);
  }
  return s;
}

int report(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  const CpuIdentification& id = identification();
  const CpuFeatureFlags f = computeFeatureFlags(id, topology());
  const Topology t = topology();
  std::printf("module     %s\n", s.module->path().c_str());
  std::printf("vendor     %s (kind %d)\n", id.vendor, vendorKind(id));
  std::printf("flags      MMX=%u SSE=%u SSE(2nd)=%u SSE2=%u SSE3=%u SSSE3=%u SSE4.1=%u AVX=%u AVX2=%u SMT=%u\n", f.mmx,
              f.sse, f.sseSecond, f.sse2, f.sse3, f.ssse3, f.sse41, f.avx, f.avx2, f.smt);
  std::printf("topology   %u physical cores, %u logical processors, L2 %u bytes (line value %u)\n", t.physicalCores,
              t.logicalProcessors, t.l2Size, t.l2Line);
  std::printf("start-up   ok\n\nslots replaced:\n");
  bool asExpected = true;
  for (const SuiteSpec& desc : kSuites) {
    const std::vector<int> slots = s.host->replacedSlots(desc.key);
    const std::vector<int> expected = verify::expectedReplacedSlots(desc.key, featuresOf(f));
    std::printf("  %s  %3zu", desc.name, slots.size());
    for (std::size_t k = 0; k < slots.size(); ++k) std::printf("%s%d", k == 0 ? "  " : " ", slots[k]);
    if (slots != expected) {
      asExpected = false;
      std::printf("   (expected %zu slots for these flags)", expected.size());
    }
    std::printf("\n");
  }
  if (!asExpected) {
    std::fprintf(stderr, "tarnell-host: the module replaced other slots than its installer tables give for these flags\n");
    return 1;
  }
  return 0;
}

int runVerify(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  verify::VerifyOptions vo;
  vo.seed = o.seed;
  vo.thorough = !o.quick;
  vo.filter = o.filter;
  vo.placement = o.guardPages ? verify::Placement::GuardPageAfter : verify::Placement::Heap;
  int failed = 0, passed = 0, skipped = 0;
  for (const verify::Check& check : verify::allChecks()) {
    if (!verify::matchesFilter(check, o.filter)) continue;
    std::vector<verify::Placement> placements{vo.placement};
    if (o.guardPages) placements.push_back(verify::Placement::GuardPageBefore);
    verify::CheckResult r;
    int64_t cases = 0;  // over both placements
    for (verify::Placement p : placements) {
      vo.placement = p;
      r = verify::runCheck(check, *s.host, vo);
      cases += r.cases;
      if (r.outcome == verify::Outcome::Failed) break;
    }
    r.cases = cases;
    const std::string label = verify::checkLabel(check);
    switch (r.outcome) {
      case verify::Outcome::Passed:
        ++passed;
        std::printf("ok      %-48s %8" PRId64 " cases\n", label.c_str(), r.cases);
        break;
      case verify::Outcome::Failed:
        ++failed;
        std::printf("FAILED  %-48s %d mismatches (seed %" PRIu64 ")\n        %s\n", label.c_str(), r.failures,
                    o.seed, r.firstFailure.c_str());
        break;
      case verify::Outcome::NotInstalled:
        ++skipped;
        std::printf("skip    %-48s not installed on this processor\n", label.c_str());
        break;
      case verify::Outcome::NoHostRoutine:
        ++skipped;
        std::printf("skip    %-48s the host has no portable routine\n", label.c_str());
        break;
    }
  }
  std::printf("verify: %d passed, %d failed, %d skipped (seed %" PRIu64 ")\n", passed, failed, skipped, o.seed);
  return failed == 0 ? 0 : 1;
}

int runBench(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  verify::BenchOptions bo;
  bo.width = o.width;
  bo.height = o.height;
  bo.minSeconds = o.minTime;
  if (o.json) std::printf("{\"width\": %d, \"height\": %d, \"results\": [", o.width, o.height);
  else
    std::printf("%-48s %12s %12s %9s %10s %9s\n", "slot", "host ns", "module ns", "speedup", "module GB/s",
                "vs memcpy");
  bool first = true;
  struct Row {
    double speedup, share;
    std::string label;
  };
  std::vector<Row> rows;
  for (const verify::Check& check : verify::allChecks()) {
    if (!verify::matchesFilter(check, o.filter)) continue;
    const verify::BenchResult r = verify::benchCheck(check, *s.host, bo);
    if (!r.ran) continue;
    const double gbps = r.moduleNs > 0 ? static_cast<double>(r.bytesMoved) / r.moduleNs : 0;
    const std::string label = verify::checkLabel(check);
    rows.push_back({r.speedup(), r.memcpyShare(), label});
    if (o.json) {
      std::printf("%s\n  {\"suite\": \"%s\", \"slot\": %d, \"name\": \"%s\", \"host_ns\": %.1f, \"module_ns\": %.1f, "
                  "\"speedup\": %.3f, \"bytes\": %" PRIu64 ", \"module_gbps\": %.3f, \"memcpy_ns\": %.1f, "
                  "\"memcpy_share\": %.3f}",
                  first ? "" : ",", kSuites[suiteIndexOf(check.suite)].name, check.slot, check.name, r.hostNs,
                  r.moduleNs, r.speedup(), r.bytesMoved, gbps, r.memcpyNs, r.memcpyShare());
    } else {
      std::printf("%-48s %12.0f %12.0f %8.2fx %10.2f %8.0f%%\n", label.c_str(), r.hostNs, r.moduleNs, r.speedup(), gbps,
                  100 * r.memcpyShare());
    }
    first = false;
  }
  if (o.json) {
    std::printf("\n]}\n");
  } else if (!rows.empty()) {
    // The figures a speed target is stated in: the median speedup, and the slowest
    // slot by speedup and by share of memcpy.
    std::vector<double> speedups;
    for (const Row& r : rows) speedups.push_back(r.speedup);
    std::sort(speedups.begin(), speedups.end());
    const std::size_t n = speedups.size();
    const double median = n % 2 != 0 ? speedups[n / 2] : (speedups[n / 2 - 1] + speedups[n / 2]) / 2;
    auto lowest = [&](auto key) {
      return *std::min_element(rows.begin(), rows.end(), [&](const Row& a, const Row& b) { return key(a) < key(b); });
    };
    const Row slowest = lowest([](const Row& r) { return r.speedup; });
    const Row leastShare = lowest([](const Row& r) { return r.share; });
    std::printf("bench: %zu slots at %dx%d; median speedup %.2fx; lowest %.2fx (%s); lowest share of memcpy %.0f%% (%s)\n",
                n, o.width, o.height, median, slowest.speedup, slowest.label.c_str(), 100 * leastShare.share,
                leastShare.label.c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (o.command == "list") {
    for (const verify::Check& check : verify::allChecks())
      std::printf("%-48s %s\n", verify::checkLabel(check).c_str(), check.signature);
    return 0;
  }
  if (o.command == "report") return report(o, argv[0]);
  if (o.command == "verify") return runVerify(o, argv[0]);
  return runBench(o, argv[0]);
}
