// tarnell-host: loads a module into the reference host and reports what it does
// on this processor, verifies every replaced slot against the host's routine, and
// benchmarks host against module.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/cpu_features.h"
#include "refhost/refhost.h"
#include "tools/bench_report.h"
#include "tools/output.h"
#include "verify/installs.h"
#include "verify/runner.h"
#include "verify/session.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

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
    "  list     list the checks (with --module: and whether the module replaces each slot here)\n"
    "\n"
    "options:\n"
    "  --module PATH        every command: the module to load (default: Tarnell.qrx beside this\n"
    "                       program, else the installed one, " TARNELL_MODULE_FROM_TOOL "/Tarnell.qrx)\n"
    "  --json               every command: machine-readable output on stdout, no progress\n"
    "  --no-progress        verify/bench: no progress line, even on a terminal\n"
    "  --seed N             verify: random seed (default: 1; printed with every failure)\n"
    "  --filter GLOB[,GLOB]  verify/bench: only checks whose name or suite:slot matches one of them\n"
    "  --quick              verify: fewer alignment combinations\n"
    "  --guard-pages        verify: place rows against inaccessible pages\n"
    "  --size WxH           bench: plane size (default 256x256)\n"
    "  --min-time SECONDS   bench: measuring time per routine (default 0.1)\n"
    "  --report FILE.html   bench: also write a self-contained HTML page of the results\n"
    "  --omit-suite KEY     host: leave a suite out of the directory\n"
    "  --suite-version KEY=V, --suite-revision KEY=R   host: change a suite's entry\n"
    "  --version            print the version\n";

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
  bool progress = true;
  std::string reportFile;
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
    } else if (a == "--version") {
      std::printf("tarnell-host %s\n", TARNELL_VERSION);
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
    } else if (a == "--no-progress") {
      o.progress = false;
    } else if (a == "--report") {
      o.reportFile = value(a);
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
  if (!o.reportFile.empty() && o.command != "bench") usageError("--report is an option of bench");
  return o;
}

// The module to load: --module, else Tarnell.qrx beside the tool (the build tree),
// else the installed one at TARNELL_MODULE_FROM_TOOL relative to the tool's
// directory. When neither exists, the first is named in the error.
std::string modulePath(const Options& o, const char* argv0) {
  if (!o.module.empty()) return o.module;
  const std::filesystem::path beside = verify::defaultModulePath(argv0);
  const std::filesystem::path installed =
      (beside.parent_path() / TARNELL_MODULE_FROM_TOOL / beside.filename()).lexically_normal();
  std::error_code ec;
  return (!std::filesystem::exists(beside, ec) && std::filesystem::exists(installed, ec) ? installed : beside).string();
}

// Loads the module and runs its start-up on a fresh reference host; exits with a
// message when either fails.
struct Started {
  std::unique_ptr<verify::LoadedModule> module;
  std::unique_ptr<refhost::ReferenceHost> host;
};

Started start(const Options& o, const char* argv0) {
  Started s;
  const std::string path = modulePath(o, argv0);
  std::string error;
  s.module = verify::LoadedModule::load(path, &error);
  if (!s.module) {
    std::fprintf(stderr, "tarnell-host: %s%s\n", error.c_str(),
                 o.module.empty() ? " (name the module with --module PATH)" : "");
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

const char* suiteName(uint32_t key) { return kSuites[suiteIndexOf(key)].name; }

// The ten flags as "MMX=1 SSE=1 ...", the form report prints and scripts grep.
std::string flagList(const CpuFeatureFlags& f) {
  char text[160];
  std::snprintf(text, sizeof text, "MMX=%u SSE=%u SSE(2nd)=%u SSE2=%u SSE3=%u SSSE3=%u SSE4.1=%u AVX=%u AVX2=%u SMT=%u",
                f.mmx, f.sse, f.sseSecond, f.sse2, f.sse3, f.ssse3, f.sse41, f.avx, f.avx2, f.smt);
  return text;
}

// The processor's brand string (extended leaves 0x80000002..4), else the vendor.
std::string processorName(const CpuIdentification& id) {
  std::string brand;
#if defined(__x86_64__) || defined(__i386__)
  unsigned regs[12] = {};
  if (static_cast<unsigned>(__get_cpuid_max(0x80000000u, nullptr)) >= 0x80000004u) {
    for (unsigned leaf = 0; leaf < 3; ++leaf)
      __get_cpuid(0x80000002u + leaf, &regs[4 * leaf], &regs[4 * leaf + 1], &regs[4 * leaf + 2], &regs[4 * leaf + 3]);
    char text[49] = {};
    std::memcpy(text, regs, 48);
    brand = text;
    brand.erase(0, brand.find_first_not_of(' '));
    brand.erase(brand.find_last_not_of(' ') + 1);
  }
#endif
  return brand.empty() ? std::string(id.vendor) : brand + " (" + id.vendor + ")";
}

int report(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  const CpuIdentification& id = identification();
  const Topology t = topology();
  const CpuFeatureFlags f = computeFeatureFlags(id, t);
  const std::string flags = flagList(f);
  if (o.json) {
    std::printf("{\"module\": %s, \"processor\": %s, \"vendor\": %s, \"vendor_kind\": %d,\n \"flags\": {",
                tool::jsonString(s.module->path()).c_str(), tool::jsonString(processorName(id)).c_str(),
                tool::jsonString(id.vendor).c_str(), vendorKind(id));
    const std::pair<const char*, unsigned> named[] = {{"MMX", f.mmx},     {"SSE", f.sse},     {"SSE(2nd)", f.sseSecond},
                                                      {"SSE2", f.sse2},   {"SSE3", f.sse3},   {"SSSE3", f.ssse3},
                                                      {"SSE4.1", f.sse41}, {"AVX", f.avx},    {"AVX2", f.avx2},
                                                      {"SMT", f.smt}};
    for (const auto& [name, value] : named) std::printf("%s\"%s\": %u", name == named[0].first ? "" : ", ", name, value);
    std::printf("},\n \"topology\": {\"physical_cores\": %u, \"logical_processors\": %u, \"l2_bytes\": %u, \"l2_line\": %u},\n"
                " \"startup\": \"ok\", \"suites\": [",
                t.physicalCores, t.logicalProcessors, t.l2Size, t.l2Line);
  } else {
    std::printf("module     %s\n", s.module->path().c_str());
    std::printf("processor  %s\n", processorName(id).c_str());
    std::printf("vendor     %s (kind %d)\n", id.vendor, vendorKind(id));
    std::printf("flags      %s\n", flags.c_str());
    std::printf("topology   %u physical cores, %u logical processors, L2 %u bytes (line value %u)\n", t.physicalCores,
                t.logicalProcessors, t.l2Size, t.l2Line);
    std::printf("start-up   ok\n\nslots replaced:\n");
  }
  bool asExpected = true;
  for (const SuiteSpec& desc : kSuites) {
    const std::vector<int> slots = s.host->replacedSlots(desc.key);
    const std::vector<int> expected = verify::expectedReplacedSlots(desc.key, featuresOf(f));
    asExpected = asExpected && slots == expected;
    if (o.json) {
      std::printf("%s\n  {\"suite\": \"%s\", \"as_expected\": %s, \"replaced\": [", &desc == kSuites ? "" : ",", desc.name,
                  slots == expected ? "true" : "false");
      for (std::size_t k = 0; k < slots.size(); ++k) std::printf("%s%d", k == 0 ? "" : ", ", slots[k]);
      std::printf("]}");
      continue;
    }
    std::printf("  %s  %3zu", desc.name, slots.size());
    for (std::size_t k = 0; k < slots.size(); ++k) std::printf("%s%d", k == 0 ? "  " : " ", slots[k]);
    if (slots != expected) std::printf("   (expected %zu slots for these flags)", expected.size());
    std::printf("\n");
  }
  if (o.json) std::printf("\n]}\n");
  if (!asExpected) {
    std::fprintf(stderr, "tarnell-host: the module replaced other slots than its installer tables give for these flags\n");
    return 1;
  }
  return 0;
}

// The checks a --filter selects, in the harness's order.
std::vector<const verify::Check*> selectedChecks(const Options& o) {
  std::vector<const verify::Check*> checks;
  for (const verify::Check& check : verify::allChecks())
    if (verify::matchesFilter(check, o.filter)) checks.push_back(&check);
  return checks;
}

bool showProgress(const Options& o) { return o.progress && !o.json && tool::isTerminal(stderr); }

int runVerify(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  verify::VerifyOptions vo;
  vo.seed = o.seed;
  vo.thorough = !o.quick;
  vo.filter = o.filter;
  int failed = 0, passed = 0, skipped = 0;
  const std::vector<const verify::Check*> checks = selectedChecks(o);
  tool::Progress progress(showProgress(o), "verify", static_cast<int>(checks.size()));
  if (o.json)
    std::printf("{\"seed\": %" PRIu64 ", \"quick\": %s, \"guard_pages\": %s, \"results\": [", o.seed,
                o.quick ? "true" : "false", o.guardPages ? "true" : "false");
  for (const verify::Check* check : checks) {
    const std::string label = verify::checkLabel(*check);
    progress.start(label);
    std::vector<verify::Placement> placements{verify::Placement::Heap};
    if (o.guardPages) placements = {verify::Placement::GuardPageAfter, verify::Placement::GuardPageBefore};
    verify::CheckResult r;
    int64_t cases = 0;  // over both placements
    for (verify::Placement p : placements) {
      vo.placement = p;
      r = verify::runCheck(*check, *s.host, vo);
      cases += r.cases;
      if (r.outcome == verify::Outcome::Failed) break;
    }
    r.cases = cases;
    static constexpr const char* kOutcome[] = {"passed", "failed", "not installed", "no host routine"};
    if (o.json) {
      std::printf("%s\n  {\"suite\": \"%s\", \"slot\": %d, \"name\": \"%s\", \"outcome\": \"%s\", \"cases\": %" PRId64
                  ", \"mismatches\": %d, \"first_failure\": %s}",
                  check == checks.front() ? "" : ",", suiteName(check->suite), check->slot, check->name,
                  kOutcome[static_cast<int>(r.outcome)], r.cases, r.failures, tool::jsonString(r.firstFailure).c_str());
    }
    switch (r.outcome) {
      case verify::Outcome::Passed:
        ++passed;
        if (!o.json) progress.print("ok      %-48s %8" PRId64 " cases\n", label.c_str(), r.cases);
        break;
      case verify::Outcome::Failed:
        ++failed;
        if (!o.json)
          progress.print("FAILED  %-48s %d mismatches (seed %" PRIu64 ")\n        %s\n", label.c_str(), r.failures, o.seed,
                         r.firstFailure.c_str());
        break;
      case verify::Outcome::NotInstalled:
      case verify::Outcome::NoHostRoutine:
        ++skipped;
        if (!o.json)
          progress.print("skip    %-48s %s\n", label.c_str(),
                         r.outcome == verify::Outcome::NotInstalled ? "not installed on this processor"
                                                                    : "the host has no portable routine");
        break;
    }
  }
  if (o.json)
    std::printf("\n], \"passed\": %d, \"failed\": %d, \"skipped\": %d}\n", passed, failed, skipped);
  else
    progress.print("verify: %d passed, %d failed, %d skipped (seed %" PRIu64 ")\n", passed, failed, skipped, o.seed);
  return failed == 0 ? 0 : 1;
}

std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  char text[40] = "";
  if (const std::tm* tm = std::gmtime(&now)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", tm);
  return text;
}

bool writeBenchReport(const Options& o, const Started& s, const std::vector<tool::BenchReportRow>& rows) {
  const CpuIdentification& id = identification();
  const Topology t = topology();
  tool::BenchReportHeader h;
  h.processor = processorName(id);
  h.flags = flagList(computeFeatureFlags(id, t));
  char topology[120];
  std::snprintf(topology, sizeof topology, "%u physical cores, %u logical processors, L2 %u KiB", t.physicalCores,
                t.logicalProcessors, t.l2Size / 1024);
  h.topology = topology;
  h.width = o.width;
  h.height = o.height;
  h.minSeconds = o.minTime;
  h.date = utcNow();
  h.module = s.module->path();
  h.filter = o.filter;
  h.version = TARNELL_VERSION;
  const std::string page = tool::renderBenchReport(h, rows);
  std::FILE* file = std::fopen(o.reportFile.c_str(), "wb");
  const bool ok = file != nullptr && std::fwrite(page.data(), 1, page.size(), file) == page.size();
  if (file != nullptr && std::fclose(file) != 0) return false;
  return ok;
}

int runBench(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  verify::BenchOptions bo;
  bo.width = o.width;
  bo.height = o.height;
  bo.minSeconds = o.minTime;
  const std::vector<const verify::Check*> checks = selectedChecks(o);
  tool::Progress progress(showProgress(o), "bench", static_cast<int>(checks.size()));
  if (o.json)
    std::printf("{\"width\": %d, \"height\": %d, \"results\": [", o.width, o.height);
  else
    std::printf("%-48s %12s %12s %9s %10s %9s\n", "slot", "host ns", "module ns", "speedup", "module GB/s", "vs memcpy");
  std::vector<tool::BenchReportRow> rows;
  for (const verify::Check* check : checks) {
    const std::string label = verify::checkLabel(*check);
    progress.start(label);
    const verify::BenchResult r = verify::benchCheck(*check, *s.host, bo);
    if (!r.ran) continue;
    const double gbps = r.moduleNs > 0 ? static_cast<double>(r.bytesMoved) / r.moduleNs : 0;
    rows.push_back({suiteName(check->suite), check->slot, check->name, r.hostNs, r.moduleNs, r.speedup(),
                    r.memcpyShare(), gbps});
    if (o.json) {
      std::printf("%s\n  {\"suite\": \"%s\", \"slot\": %d, \"name\": \"%s\", \"host_ns\": %.1f, \"module_ns\": %.1f, "
                  "\"speedup\": %.3f, \"bytes\": %" PRIu64 ", \"module_gbps\": %.3f, \"memcpy_ns\": %.1f, "
                  "\"memcpy_share\": %.3f}",
                  rows.size() == 1 ? "" : ",", suiteName(check->suite), check->slot, check->name, r.hostNs,
                  r.moduleNs, r.speedup(), r.bytesMoved, gbps, r.memcpyNs, r.memcpyShare());
    } else {
      progress.print("%-48s %12.0f %12.0f %8.2fx %10.2f %8.0f%%\n", label.c_str(), r.hostNs, r.moduleNs, r.speedup(),
                     gbps, 100 * r.memcpyShare());
    }
  }
  if (o.json) {
    std::printf("\n]}\n");
  } else if (!rows.empty()) {
    const tool::BenchSummary sum = tool::summarize(rows);
    const tool::BenchReportRow& slowest = sum.slowest;
    const tool::BenchReportRow& leastShare = sum.leastShare;
    progress.print("bench: %zu slots at %dx%d; median speedup %.2fx; lowest %.2fx (%s:%d %s); lowest share of memcpy "
                   "%.0f%% (%s:%d %s)\n",
                   rows.size(), o.width, o.height, sum.medianSpeedup, slowest.speedup, slowest.suite.c_str(), slowest.slot,
                   slowest.name.c_str(), 100 * leastShare.memcpyShare, leastShare.suite.c_str(), leastShare.slot,
                   leastShare.name.c_str());
  }
  if (!o.reportFile.empty() && !writeBenchReport(o, s, rows)) {
    std::fprintf(stderr, "tarnell-host: cannot write the report '%s': %s\n", o.reportFile.c_str(), std::strerror(errno));
    return 5;
  }
  return 0;
}

// Every check; with --module, also whether that module replaces the slot on this
// processor (list needs no module otherwise).
int runList(const Options& o, const char* argv0) {
  Started s;
  if (!o.module.empty()) s = start(o, argv0);
  auto replaced = [&](const verify::Check& check) {
    const std::vector<int> slots = s.host->replacedSlots(check.suite);
    return std::find(slots.begin(), slots.end(), check.slot) != slots.end();
  };
  if (o.json) std::printf("[");
  bool first = true;
  for (const verify::Check& check : verify::allChecks()) {
    if (o.json) {
      std::printf("%s\n  {\"suite\": \"%s\", \"slot\": %d, \"name\": \"%s\", \"signature\": %s", first ? "" : ",",
                  suiteName(check.suite), check.slot, check.name, tool::jsonString(check.signature).c_str());
      if (s.host) std::printf(", \"replaced\": %s", replaced(check) ? "true" : "false");
      std::printf("}");
    } else if (s.host) {
      std::printf("%-48s %-8s %s\n", verify::checkLabel(check).c_str(), replaced(check) ? "replaced" : "host",
                  check.signature);
    } else {
      std::printf("%-48s %s\n", verify::checkLabel(check).c_str(), check.signature);
    }
    first = false;
  }
  if (o.json) std::printf("\n]\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (o.command == "list") return runList(o, argv[0]);
  if (o.command == "report") return report(o, argv[0]);
  if (o.command == "verify") return runVerify(o, argv[0]);
  return runBench(o, argv[0]);
}
