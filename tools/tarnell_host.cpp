// tarnell-host: loads a module into the reference host and reports what it does
// on this processor, verifies every replaced slot against the host's routine, and
// benchmarks host against module.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/kernels.h"
#include "refhost/refhost.h"
#include "tools/bench_report.h"
#include "tools/machine.h"
#include "tools/output.h"
#include "tools/tiers.h"
#include "verify/forwarded.h"
#include "verify/installs.h"
#include "verify/runner.h"
#include "verify/session.h"

namespace {

using namespace tarnell;

constexpr const char* kUsage =
    "usage: tarnell-host <command> [options]\n"
    "\n"
    "commands:\n"
    "  report   load the module, run its start-up, print the processor features,\n"
    "           the slots it replaced in each suite and how each is accounted for\n"
    "  verify   compare every replaced slot with the host's routine, byte for byte\n"
    "  bench    time host against module for every replaced slot\n"
    "  list     list the checks (with --module: and whether the module replaces each slot here)\n"
    "  help     print this text\n"
    "\n"
    "options (an option a command does not use is an error):\n"
    "  --module PATH        every command: the module to load (default: Tarnell.qrx beside this\n"
    "                       program, else the installed one, " TARNELL_MODULE_FROM_TOOL "/Tarnell.qrx)\n"
    "  --json               every command: machine-readable output on stdout, no progress\n"
    "  --filter GLOB[,GLOB]  verify/bench/list: only checks whose name or suite:slot matches one of\n"
    "                       them (* and ?; blanks around commas ignored; each must match a check)\n"
    "  --no-progress        verify/bench: no progress line, even on a terminal\n"
    "  --seed N             verify: random seed (default: 1; printed with every failure)\n"
    "  --quick              verify: fewer alignment combinations\n"
    "  --guard-pages        verify: place rows against inaccessible pages\n"
    "  --tier LEVEL         verify: only the bodies of one level (sse2, ssse3, sse41, avx, avx2; at\n"
    "                       most this processor's); without it, this processor's level and then\n"
    "                       every narrower body it does not run\n"
    "  --tier LEVEL[,LEVEL] bench: time the bodies of these levels side by side (default: this\n"
    "                       processor's)\n"
    "  --size WxH           bench: plane size (default 256x256)\n"
    "  --min-time SECONDS   bench: measuring time per routine (default 0.1)\n"
    "  --report FILE.html   bench: also write a self-contained HTML page of the results\n"
    "  --omit-suite KEY     host: leave a suite out of the directory\n"
    "  --suite-version KEY=V, --suite-revision KEY=R   host: change a suite's entry\n"
    "                       (host options: report, verify, bench, and list with --module)\n"
    "  --version            print the version\n"
    "\n"
    "exit: 0 done, 1 a mismatch or an unaccounted slot, 2 bad arguments, 3 the module does not\n"
    "load, 4 its start-up failed, 5 the report cannot be written\n";

// The commands, as a bit set for the options that apply to them.
enum Command : unsigned { kReport = 1, kVerify = 2, kBench = 4, kList = 8 };

struct OptionRule {
  const char* name;
  bool takesValue;
  unsigned commands;
  bool repeatable;  // host options name one suite each
};

constexpr OptionRule kOptions[] = {
    {"--module", true, kReport | kVerify | kBench | kList, false},
    {"--json", false, kReport | kVerify | kBench | kList, false},
    {"--filter", true, kVerify | kBench | kList, false},
    {"--no-progress", false, kVerify | kBench, false},
    {"--seed", true, kVerify, false},
    {"--quick", false, kVerify, false},
    {"--guard-pages", false, kVerify, false},
    {"--tier", true, kVerify | kBench, false},
    {"--size", true, kBench, false},
    {"--min-time", true, kBench, false},
    {"--report", true, kBench, false},
    {"--omit-suite", true, kReport | kVerify | kBench | kList, true},
    {"--suite-version", true, kReport | kVerify | kBench | kList, true},
    {"--suite-revision", true, kReport | kVerify | kBench | kList, true},
};

struct Options {
  std::string command;
  unsigned commandBit = 0;
  std::string module;
  uint64_t seed = 1;
  std::optional<std::string> filter;
  bool quick = false;
  bool guardPages = false;
  int width = 256, height = 256;
  double minTime = 0.1;
  bool json = false;
  bool progress = true;
  std::string reportFile;
  std::vector<Level> tiers;  // --tier; empty: the default of the command
  bool hostOptions = false;
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

// "verify", "verify and bench", "report, verify, bench and list".
std::string commandsOf(unsigned bits) {
  static constexpr std::pair<unsigned, const char*> kNames[] = {
      {kReport, "report"}, {kVerify, "verify"}, {kBench, "bench"}, {kList, "list"}};
  std::vector<std::string> names;
  for (const auto& [bit, name] : kNames)
    if ((bits & bit) != 0) names.push_back(name);
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i)
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  return text;
}

unsigned commandBit(const std::string& command) {
  if (command == "report") return kReport;
  if (command == "verify") return kVerify;
  if (command == "bench") return kBench;
  if (command == "list") return kList;
  return 0;
}

Options parse(int argc, char** argv) {
  Options o;
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) usageError("no command given");
  std::vector<std::string> given;  // options in the order given, once each
  std::size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      std::exit(0);
    }
    if (a == "--version") {
      std::printf("tarnell-host %s\n", TARNELL_VERSION);
      std::exit(0);
    }
    if (a.empty() || a[0] != '-') {
      if (!o.command.empty()) usageError("unexpected argument '" + a + "'");
      o.command = a;
      continue;
    }
    const OptionRule* rule = nullptr;
    for (const OptionRule& r : kOptions)
      if (a == r.name) rule = &r;
    if (rule == nullptr) usageError("unknown option '" + a + "'");
    if (!rule->repeatable && std::find(given.begin(), given.end(), a) != given.end())
      usageError("option " + a + " given twice");
    given.push_back(a);
    std::string v;
    if (rule->takesValue) {
      if (i + 1 >= args.size()) usageError("option " + a + " needs a value");
      v = args[++i];
    }
    if (a == "--module") {
      o.module = v;
    } else if (a == "--seed") {
      if (!parseNumber(v, o.seed, 0, INT64_MAX)) usageError("--seed takes a non-negative integer");
    } else if (a == "--filter") {
      o.filter = v;
    } else if (a == "--quick") {
      o.quick = true;
    } else if (a == "--guard-pages") {
      o.guardPages = true;
    } else if (a == "--json") {
      o.json = true;
    } else if (a == "--no-progress") {
      o.progress = false;
    } else if (a == "--report") {
      if (v.empty()) usageError("--report takes a file name, for example bench.html");
      o.reportFile = v;
    } else if (a == "--tier") {
      for (const std::string& name : verify::filterGlobs(v)) {
        Level level{};
        if (!levelFromName(name.c_str(), &level) || level == Level::plain)
          usageError("--tier takes sse2, ssse3, sse41, avx or avx2 (a level named as the module's file suffixes), not '" +
                     name + "'");
        if (std::find(o.tiers.begin(), o.tiers.end(), level) == o.tiers.end()) o.tiers.push_back(level);
      }
      if (o.tiers.empty()) usageError("--tier takes a level, for example sse2");
    } else if (a == "--size") {
      const auto x = v.find('x');
      // Heights past 16384 give planes several times a large last-level cache.
      if (x == std::string::npos || !parseNumber(v.substr(0, x), o.width, 1, 16384) ||
          !parseNumber(v.substr(x + 1), o.height, 1, 131072))
        usageError("--size takes WxH with W 1..16384 and H 1..131072, for example 256x256");
    } else if (a == "--min-time") {
      char* end = nullptr;
      o.minTime = std::strtod(v.c_str(), &end);
      if (v.empty() || *end != '\0' || !(o.minTime > 0 && o.minTime <= 60)) usageError("--min-time takes seconds, 0 < s <= 60");
    } else if (a == "--omit-suite") {
      auto key = parseKey(v);
      if (!key) usageError("--omit-suite takes one of the ten suite keys, for example blnd");
      o.host.omit.push_back(*key);
      o.hostOptions = true;
    } else {  // --suite-version, --suite-revision
      const auto eq = v.find('=');
      std::optional<uint32_t> key = eq == std::string::npos ? std::nullopt : parseKey(v.substr(0, eq));
      int16_t n = 0;
      if (!key || !parseNumber(v.substr(eq + 1), n, INT16_MIN, INT16_MAX))
        usageError(a + " takes KEY=N with a suite key and a 16-bit number, for example blnd=6");
      (a == "--suite-version" ? o.host.version : o.host.revision)[*key] = n;
      o.hostOptions = true;
    }
  }
  if (o.command == "help") {
    std::fputs(kUsage, stdout);
    std::exit(0);
  }
  if (o.command.empty()) usageError("no command given");
  o.commandBit = commandBit(o.command);
  if (o.commandBit == 0) usageError("unknown command '" + o.command + "'");
  // One rule: an option the command does not use is an error, never ignored.
  for (const std::string& name : given) {
    for (const OptionRule& r : kOptions) {
      if (name != r.name || (r.commands & o.commandBit) != 0) continue;
      usageError(name + " is an option of " + commandsOf(r.commands) + ", not of " + o.command);
    }
  }
  if (o.command == "verify" && o.tiers.size() > 1) usageError("verify --tier takes one level");
  std::sort(o.tiers.begin(), o.tiers.end());
  if (!o.tiers.empty() && o.tiers.back() > tool::widestHere()) {
    std::string here;
    for (Level l : tool::levelsHere()) here += std::string(here.empty() ? "" : ", ") + levelName(l);
    usageError(std::string("this processor does not run ") + levelName(o.tiers.back()) +
               " code: its levels are " + here);
  }
  if (o.command == "list" && o.hostOptions && o.module.empty())
    usageError("host options apply to list only with --module (list loads no module otherwise)");
  return o;
}

// Every glob of --filter must select something: a glob that matches no check would
// otherwise pass having verified nothing.
void checkFilter(const Options& o) {
  if (!o.filter) return;
  if (verify::filterGlobs(*o.filter).empty())
    usageError("--filter takes one or more globs separated by commas, for example 'blnd:*,memo:0'");
  const std::vector<std::string> unmatched = verify::unmatchedGlobs(*o.filter);
  if (unmatched.empty()) return;
  std::string names, forwarded;
  for (const std::string& glob : unmatched) {
    names += (names.empty() ? "'" : ", '") + glob + "'";
    for (const verify::SlotName& f : verify::forwardedSlots()) {
      const std::string key = std::string(kSuites[suiteIndexOf(f.suite)].name) + ":" + std::to_string(f.slot);
      if (glob == key) forwarded += "; " + key + " (" + f.name + ") is forwarded to the host's own routine: nothing to check";
    }
  }
  std::fprintf(stderr, "tarnell-host: --filter %s %s no check%s ('tarnell-host list' shows every check)\n",
               names.c_str(), unmatched.size() == 1 ? "matches" : "match", forwarded.c_str());
  std::exit(2);
}

// The report is written after the run; whether it can be is known now, so a long
// bench does not end in an error.
void checkReportWritable(const Options& o) {
  if (o.reportFile.empty()) return;
  const std::string why = tool::whyNotWritable(o.reportFile);
  if (why.empty()) return;
  std::fprintf(stderr, "tarnell-host: cannot write the report '%s': %s\n", o.reportFile.c_str(), why.c_str());
  std::exit(5);
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

std::string keyOf(uint32_t suite, int slot) { return std::string(suiteName(suite)) + ":" + std::to_string(slot); }

verify::FeatureSet featuresOf(const CpuFeatureFlags& f) {
  return {f.sseSecond != 0, f.sse2 != 0, f.ssse3 != 0, f.sse41 != 0, f.avx != 0, f.avx2 != 0};
}

// Every check a --filter selects, grouped by suite in the ten suites' order and by
// slot: one order for every command.
std::vector<const verify::Check*> selectedChecks(const Options& o) {
  std::vector<const verify::Check*> checks;
  for (const verify::Check& check : verify::allChecks())
    if (verify::matchesFilter(check, o.filter.value_or(""))) checks.push_back(&check);
  std::stable_sort(checks.begin(), checks.end(), [](const verify::Check* a, const verify::Check* b) {
    const int sa = suiteIndexOf(a->suite), sb = suiteIndexOf(b->suite);
    return sa != sb ? sa < sb : a->slot < b->slot;
  });
  return checks;
}

bool showProgress(const Options& o) { return o.progress && !o.json && tool::isTerminal(stderr); }

// ----------------------------------------------------------------- JSON parts

void jsonSlots(tool::JsonWriter& j, const std::vector<verify::SlotName>& slots) {
  j.beginArray();
  for (const verify::SlotName& s : slots) {
    j.beginObject().key("suite").string(suiteName(s.suite)).key("slot").integer(s.slot).key("name");
    if (*s.name != '\0') j.string(s.name);
    else j.null();
    j.endObject();
  }
  j.endArray();
}

void jsonCoverage(tool::JsonWriter& j, const verify::Coverage& c) {
  j.key("coverage").beginObject();
  j.key("replaced").integer(static_cast<int64_t>(c.replaced.size()));
  j.key("checked").integer(static_cast<int64_t>(c.checked.size()));
  j.key("forwarded").integer(static_cast<int64_t>(c.forwarded.size()));
  j.key("uncovered").integer(static_cast<int64_t>(c.uncovered.size()));
  j.key("forwarded_slots");
  jsonSlots(j, c.forwarded);
  j.key("uncovered_slots");
  jsonSlots(j, c.uncovered);
  j.endObject();
}

void jsonMachine(tool::JsonWriter& j, const tool::Machine& m) {
  j.key("processor").string(m.processor);
  j.key("flags").beginObject();
  for (const auto& [name, value] : m.namedFlags) j.key(name).integer(value);
  j.endObject();
  j.key("topology").beginObject().key("physical_cores").integer(m.physicalCores);
  j.key("logical_processors").integer(m.logicalProcessors).key("l2_bytes");
  if (m.l2Bytes) j.integer(*m.l2Bytes);
  else j.null();
  j.key("l2_line");
  if (m.l2Line) j.integer(*m.l2Line);
  else j.null();
  j.endObject();
}

// ------------------------------------------------------------- text parts

// "blnd:53 BlendPlaneRoutine53, blnd:66 ..." wrapped after about 100 columns,
// continuation lines indented.
std::string slotList(const std::vector<verify::SlotName>& slots, std::size_t indent) {
  std::string text, line;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const std::string item = keyOf(slots[i].suite, slots[i].slot) + (*slots[i].name != '\0' ? " " : "") +
                             slots[i].name + (i + 1 < slots.size() ? "," : "");
    if (!line.empty() && indent + line.size() + 1 + item.size() > 100) {
      text += line + "\n" + std::string(indent, ' ');
      line.clear();
    }
    line += (line.empty() ? "" : " ") + item;
  }
  return text + line;
}

// The coverage paragraph of report and verify (the forwarded slots by name unless
// only the counts are asked for).
void printCoverage(const verify::Coverage& c, std::size_t indent, bool names) {
  std::printf("%-*s%zu slots replaced: %zu checked by verify, %zu forwarded to the host's own routine%s\n",
              static_cast<int>(indent), "coverage", c.replaced.size(), c.checked.size(), c.forwarded.size(),
              c.uncovered.empty() ? "" : (", " + std::to_string(c.uncovered.size()) + " neither").c_str());
  if (!c.forwarded.empty() && !names)
    std::printf("%*s(the forwarded slots by name: tarnell-host report)\n", static_cast<int>(indent), "");
  if (!c.forwarded.empty() && names)
    std::printf("%-*s%s\n%*s(the module's routine jumps to the host's with the same arguments: nothing to compare)\n",
                static_cast<int>(indent), "forwarded", slotList(c.forwarded, indent).c_str(), static_cast<int>(indent), "");
  if (!c.uncovered.empty())
    std::printf("%-*s%s\n%*s(replaced, but neither checked nor a documented forwarder)\n", static_cast<int>(indent),
                "UNCOVERED", slotList(c.uncovered, indent).c_str(), static_cast<int>(indent), "");
}

// --------------------------------------------------------------- commands

int report(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  const tool::Machine m = tool::thisMachine();
  const verify::Coverage coverage = verify::coverageOf(*s.host);
  tool::JsonWriter j;
  if (o.json) {
    j.beginObject().key("version").string(TARNELL_VERSION).key("module").string(s.module->path());
    jsonMachine(j, m);
    j.key("vendor").string(m.vendor).key("vendor_kind").integer(m.vendorKind);
    j.key("startup").string("ok").key("suites").beginArray();
  } else {
    std::printf("module     %s\n", s.module->path().c_str());
    std::printf("processor  %s\n", m.processor.c_str());
    std::printf("vendor     %s (kind %d)\n", m.vendor.c_str(), m.vendorKind);
    std::printf("flags      %s\n", m.flagList().c_str());
    std::printf("topology   %s%s\n", m.topologyText().c_str(),
                m.l2Line ? (" (line value " + std::to_string(*m.l2Line) + ")").c_str() : "");
    std::printf("start-up   ok\n\nslots replaced (the bodies of other levels than sse2, the baseline, below each suite):\n");
  }
  // The level of each slot's body, from the module's code built into the tool,
  // started with this processor's flags (the loaded module's installers decide
  // the same way; only the tool can watch them write).
  tool::BuiltInModule builtIn(tool::widestHere(), o.host);
  const tool::BodyMap bodies = tool::bodiesAt(builtIn);
  bool asExpected = true;
  for (const SuiteSpec& desc : kSuites) {
    const std::vector<int> slots = s.host->replacedSlots(desc.key);
    const std::vector<int> expected = verify::expectedReplacedSlots(desc.key, featuresOf(m.flags));
    asExpected = asExpected && slots == expected;
    auto bodyOf = [&](int slot) {
      const auto b = bodies.find({desc.key, slot});
      return b == bodies.end() ? "unknown" : tool::bodyName(b->second);
    };
    if (o.json) {
      j.beginObject().key("suite").string(desc.name).key("as_expected").boolean(slots == expected);
      j.key("replaced").beginArray();
      for (int slot : slots) j.integer(slot);
      j.endArray().key("bodies").beginArray();
      for (int slot : slots) j.beginObject().key("slot").integer(slot).key("body").string(bodyOf(slot)).endObject();
      j.endArray().endObject();
      continue;
    }
    std::printf("  %s  %3zu", desc.name, slots.size());
    for (std::size_t k = 0; k < slots.size(); ++k) std::printf("%s%d", k == 0 ? "  " : " ", slots[k]);
    if (slots != expected) std::printf("   (expected %zu slots for these flags)", expected.size());
    std::printf("\n");
    // The slots whose body is not baseline code, by level.
    std::string wider;
    for (const char* level : {"ssse3", "sse41", "avx", "avx2", "forwarded"}) {
      std::string list;
      for (int slot : slots)
        if (std::strcmp(bodyOf(slot), level) == 0) list.append(" ").append(std::to_string(slot));
      if (list.empty()) continue;
      if (!wider.empty()) wider.append("   ");
      wider.append(level).append(":").append(list);
    }
    if (!wider.empty()) std::printf("             %s\n", wider.c_str());
  }
  if (o.json) {
    j.endArray();
    jsonCoverage(j, coverage);
    j.endObject();
    std::fputs(j.text().c_str(), stdout);
  } else {
    std::printf("\n");
    printCoverage(coverage, 11, true);
  }
  if (!asExpected) {
    std::fprintf(stderr, "tarnell-host: the module replaced other slots than its installer tables give for these flags\n");
    return 1;
  }
  return 0;
}

// One tier's run: which routines (the loaded module's, or the built-in copy's at
// a level) and which checks to run on them.
struct TierRun {
  Level level;
  bool loaded;  // the loaded module; else the module's code built into the tool
  std::vector<const verify::Check*> checks;
};

// The tiers verify runs. With --tier, that level alone: the loaded module when it
// is this processor's, else the built-in copy at that level with every selected
// check. Without, this processor's level on the loaded module, then each narrower
// level on the built-in copy, with the checks whose body there differs from this
// processor's and from every narrower tier's already run. Each built-in tier is
// started on a host of its own only while it runs: the host routines log to the
// host constructed last.
std::vector<TierRun> verifyTiers(const Options& o) {
  const std::vector<const verify::Check*> checks = selectedChecks(o);
  const Level widest = tool::widestHere();
  if (!o.tiers.empty()) return {{o.tiers.front(), o.tiers.front() == widest, checks}};
  std::vector<TierRun> runs = {{widest, true, checks}};
  std::map<const verify::Check*, std::vector<HostRoutine>> seen;
  {
    tool::BuiltInModule native(widest, o.host);
    for (const verify::Check* check : checks)
      if (native.host().replaced(check->suite, check->slot))
        seen[check].push_back(native.host().live(check->suite, check->slot));
  }
  for (Level level : tool::levelsHere()) {
    if (level == widest) continue;
    tool::BuiltInModule tier(level, o.host);
    TierRun run{level, false, {}};
    for (const verify::Check* check : checks) {
      if (!tier.host().replaced(check->suite, check->slot)) continue;
      std::vector<HostRoutine>& bodies = seen[check];
      const HostRoutine body = tier.host().live(check->suite, check->slot);
      if (std::find(bodies.begin(), bodies.end(), body) != bodies.end()) continue;
      bodies.push_back(body);
      run.checks.push_back(check);
    }
    if (!run.checks.empty()) runs.push_back(std::move(run));
  }
  return runs;
}

int runVerify(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  verify::VerifyOptions vo;
  vo.seed = o.seed;
  vo.thorough = !o.quick;
  int failed = 0, passed = 0, skipped = 0;
  const verify::Coverage coverage = verify::coverageOf(*s.host);
  const std::vector<TierRun> runs = verifyTiers(o);
  int total = 0;
  for (const TierRun& run : runs) total += static_cast<int>(run.checks.size());
  tool::Progress progress(showProgress(o), "verify", total);
  tool::JsonWriter j;
  if (o.json) {
    j.beginObject().key("version").string(TARNELL_VERSION).key("module").string(s.module->path());
    j.key("processor").string(tool::thisMachine().processor);
    j.key("seed").integer(static_cast<int64_t>(o.seed)).key("quick").boolean(o.quick);
    j.key("guard_pages").boolean(o.guardPages).key("filter").stringOrNull(o.filter);
    j.key("tier").stringOrNull(o.tiers.empty() ? std::nullopt : std::optional<std::string>(levelName(o.tiers.front())));
    j.key("results").beginArray();
  }
  for (std::size_t t = 0; t < runs.size(); ++t) {
    const TierRun& run = runs[t];
    const char* tierName = levelName(run.level);
    std::unique_ptr<tool::BuiltInModule> builtIn;
    if (!run.loaded) builtIn = std::make_unique<tool::BuiltInModule>(run.level, o.host);
    refhost::ReferenceHost& host = run.loaded ? *s.host : builtIn->host();
    if (!o.json && (runs.size() > 1 || !o.tiers.empty()))
      progress.print("%s%s bodies (%s%s):\n", t == 0 ? "" : "\n", tierName,
                     run.loaded ? "the module" : "the module's code built into tarnell-host",
                     t == 0 || !o.tiers.empty() ? "" : "; those this processor does not run");
    for (const verify::Check* check : run.checks) {
      const std::string label = verify::checkLabel(*check);
      progress.start(label);
      std::vector<verify::Placement> placements{verify::Placement::Heap};
      if (o.guardPages) placements = {verify::Placement::GuardPageAfter, verify::Placement::GuardPageBefore};
      verify::CheckResult r;
      int64_t cases = 0;  // over both placements
      for (verify::Placement p : placements) {
        vo.placement = p;
        r = verify::runCheck(*check, host, vo);
        cases += r.cases;
        if (r.outcome == verify::Outcome::Failed) break;
      }
      r.cases = cases;
      static constexpr const char* kOutcome[] = {"passed", "failed", "not installed", "no host routine"};
      if (o.json) {
        j.beginObject().key("suite").string(suiteName(check->suite)).key("slot").integer(check->slot);
        j.key("name").string(check->name).key("tier").string(tierName);
        j.key("outcome").string(kOutcome[static_cast<int>(r.outcome)]);
        j.key("cases").integer(r.cases).key("mismatches").integer(r.failures).key("first_failure");
        if (r.failures > 0) j.string(r.firstFailure);
        else j.null();
        j.endObject();
      }
      switch (r.outcome) {
        case verify::Outcome::Passed:
          ++passed;
          if (!o.json) progress.print("ok      %-48s %8" PRId64 " cases\n", label.c_str(), r.cases);
          break;
        case verify::Outcome::Failed:
          ++failed;
          if (!o.json)
            progress.print("FAILED  %-48s %d mismatches (seed %" PRIu64 ", tier %s)\n        %s\n", label.c_str(),
                           r.failures, o.seed, tierName, r.firstFailure.c_str());
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
  }
  if (o.json) {
    j.endArray().key("passed").integer(passed).key("failed").integer(failed).key("skipped").integer(skipped);
    jsonCoverage(j, coverage);
    j.endObject();
    std::fputs(j.text().c_str(), stdout);
  } else {
    progress.print("\n");
    printCoverage(coverage, 11, !o.filter);
    progress.print("verify: %d passed, %d failed, %d skipped (seed %" PRIu64 ")%s\n", passed, failed, skipped, o.seed,
                   coverage.uncovered.empty() ? "" : "; replaced slots neither checked nor forwarded");
  }
  return failed == 0 && coverage.uncovered.empty() ? 0 : 1;
}

// Writes the page; "" when it was written, else why not.
std::string writeBenchReport(const Options& o, const Started& s, const tool::Machine& m,
                             const std::vector<tool::BenchReportRow>& rows, const std::string& date) {
  tool::BenchReportHeader h;
  h.processor = m.processor;
  h.flags = m.flagList();
  h.topology = m.topologyText();
  h.width = o.width;
  h.height = o.height;
  h.minSeconds = o.minTime;
  h.date = date;
  h.module = s.module->path();
  h.filter = o.filter.value_or("");
  h.version = TARNELL_VERSION;
  const std::string page = tool::renderBenchReport(h, rows);
  std::FILE* file = std::fopen(o.reportFile.c_str(), "wb");
  if (file == nullptr) return std::strerror(errno);
  const bool wrote = std::fwrite(page.data(), 1, page.size(), file) == page.size();
  const std::string why = wrote ? "" : std::strerror(errno);
  if (std::fclose(file) != 0 && wrote) return std::strerror(errno);
  return why;
}

int runBench(const Options& o, const char* argv0) {
  Started s = start(o, argv0);
  const tool::Machine m = tool::thisMachine();
  verify::BenchOptions bo;
  bo.width = o.width;
  bo.height = o.height;
  bo.minSeconds = o.minTime;
  const std::vector<const verify::Check*> checks = selectedChecks(o);
  // The tiers to time: this processor's by default (the loaded module); with
  // --tier, each level named, narrower ones on the module's code built into the
  // tool, one tier after the other, and their rows side by side per slot.
  const Level widest = tool::widestHere();
  const std::vector<Level> tiers = o.tiers.empty() ? std::vector<Level>{widest} : o.tiers;
  const bool sideBySide = tiers.size() > 1;
  tool::Progress progress(showProgress(o), "bench", static_cast<int>(checks.size() * tiers.size()));
  if (!o.json)
    std::printf("%-48s %12s %12s %9s %10s %9s\n", sideBySide ? "slot [level]" : "slot", "host ns", "module ns",
                "speedup", "module GB/s", "vs memcpy");
  struct Timed {
    const verify::Check* check;
    Level tier;
    tool::BenchReportRow row;
  };
  std::vector<Timed> timed;
  std::vector<std::pair<const verify::Check*, const char*>> skipped;
  auto line = [&](const tool::BenchReportRow& r, const std::string& label) {
    progress.print("%-48s %12.0f %12.0f %8.2fx %10.2f %8.0f%%%s\n", label.c_str(), r.hostNs, r.moduleNs, r.speedup,
                   r.moduleGBps, 100 * r.memcpyShare, r.fixedWork ? "  fixed work" : "");
  };
  for (Level tier : tiers) {
    std::unique_ptr<tool::BuiltInModule> builtIn;
    if (tier != widest) builtIn = std::make_unique<tool::BuiltInModule>(tier, o.host);
    refhost::ReferenceHost& host = tier == widest ? *s.host : builtIn->host();
    for (const verify::Check* check : checks) {
      std::string label = verify::checkLabel(*check);
      if (sideBySide) label.append(" [").append(levelName(tier)).append("]");
      progress.start(label);
      const verify::BenchResult r = verify::benchCheck(*check, host, bo);
      if (!r.ran) {
        const char* why = !host.replaced(check->suite, check->slot)      ? "not installed on this processor"
                          : !host.hasPortable(check->suite, check->slot) ? "the host has no portable routine"
                                                                         : "nothing to bench (it moves no planes)";
        if (tier == tiers.front()) skipped.emplace_back(check, why);
        if (!o.json) progress.print("%-48s skipped: %s\n", label.c_str(), why);
        continue;
      }
      const double gbps = r.moduleNs > 0 ? static_cast<double>(r.bytesMoved) / r.moduleNs : 0;
      std::string name = check->name;
      if (sideBySide) name.append(" [").append(levelName(tier)).append("]");
      timed.push_back({check, tier,
                       {suiteName(check->suite), check->slot, name, r.hostNs, r.moduleNs, r.speedup(), r.memcpyShare(),
                        gbps, r.fixedWork, r.bytesMoved, r.memcpyNs}});
      if (!o.json && !sideBySide) line(timed.back().row, label);
    }
  }
  // Side by side: every tier's row of a slot together, in the slots' order.
  if (sideBySide) {
    std::stable_sort(timed.begin(), timed.end(), [&](const Timed& a, const Timed& b) {
      const auto ia = std::find(checks.begin(), checks.end(), a.check), ib = std::find(checks.begin(), checks.end(), b.check);
      return ia != ib ? ia < ib : a.tier < b.tier;
    });
    if (!o.json)
      for (const Timed& t : timed) line(t.row, keyOf(t.check->suite, t.check->slot) + " " + t.row.name);
  }
  std::vector<tool::BenchReportRow> rows;
  for (const Timed& t : timed) rows.push_back(t.row);
  const std::string date = tool::utcNow();
  const tool::BenchSummary sum = tool::summarize(rows);
  std::string fixedNames;
  for (const tool::BenchReportRow& r : sum.leftOut)
    fixedNames += (fixedNames.empty() ? "" : ", ") + r.suite + ":" + std::to_string(r.slot) + " " + r.name;
  const std::string writeError = o.reportFile.empty() ? "" : writeBenchReport(o, s, m, rows, date);
  const bool written = writeError.empty();
  const std::string reportPath =
      o.reportFile.empty() ? std::string() : std::filesystem::absolute(o.reportFile).lexically_normal().string();

  if (o.json) {
    tool::JsonWriter j;
    j.beginObject().key("version").string(TARNELL_VERSION).key("module").string(s.module->path());
    jsonMachine(j, m);
    j.key("width").integer(o.width).key("height").integer(o.height).key("min_time").number(o.minTime, 3);
    j.key("filter").stringOrNull(o.filter).key("date").string(date);
    j.key("tiers").beginArray();
    for (Level tier : tiers) j.string(levelName(tier));
    j.endArray();
    j.key("report").stringOrNull(o.reportFile.empty() || !written ? std::nullopt : std::optional<std::string>(reportPath));
    j.key("results").beginArray();
    for (const Timed& t : timed) {
      const tool::BenchReportRow& r = t.row;
      j.beginObject().key("suite").string(r.suite).key("slot").integer(r.slot).key("name").string(t.check->name);
      j.key("tier").string(levelName(t.tier));
      j.key("host_ns").number(r.hostNs, 1).key("module_ns").number(r.moduleNs, 1).key("speedup").number(r.speedup, 3);
      j.key("bytes").integer(static_cast<int64_t>(r.bytes)).key("module_gbps").number(r.moduleGBps, 3);
      j.key("memcpy_ns").number(r.memcpyNs, 1).key("memcpy_share").number(r.memcpyShare, 3);
      j.key("fixed_work").boolean(r.fixedWork).endObject();
    }
    j.endArray().key("skipped").beginArray();
    for (const auto& [check, why] : skipped)
      j.beginObject()
          .key("suite").string(suiteName(check->suite)).key("slot").integer(check->slot).key("name").string(check->name)
          .key("reason").string(why).endObject();
    j.endArray();
    j.key("summary").beginObject().key("benched").integer(static_cast<int64_t>(rows.size()));
    j.key("counted").integer(static_cast<int64_t>(sum.counted)).key("median_speedup");
    if (sum.counted > 0) j.number(sum.medianSpeedup, 3);
    else j.null();
    j.key("lowest");
    if (sum.counted > 0)
      j.beginObject().key("suite").string(sum.slowest.suite).key("slot").integer(sum.slowest.slot)
          .key("name").string(sum.slowest.name).key("speedup").number(sum.slowest.speedup, 3).endObject();
    else
      j.null();
    j.key("lowest_memcpy_share");
    if (sum.counted > 0)
      j.beginObject().key("suite").string(sum.leastShare.suite).key("slot").integer(sum.leastShare.slot)
          .key("name").string(sum.leastShare.name).key("memcpy_share").number(sum.leastShare.memcpyShare, 3).endObject();
    else
      j.null();
    j.key("left_out").beginArray();
    for (const tool::BenchReportRow& r : sum.leftOut)
      j.beginObject().key("suite").string(r.suite).key("slot").integer(r.slot).key("name").string(r.name)
          .key("reason").string(std::string("fixed work: ") + tool::kFixedWorkReason).endObject();
    j.endArray().endObject().endObject();
    std::fputs(j.text().c_str(), stdout);
  } else if (rows.empty()) {
    progress.print("bench: nothing benched: none of the %zu selected slots could be benched here\n", checks.size());
  } else {
    if (sum.counted > 0) {
      const tool::BenchReportRow& slowest = sum.slowest;
      const tool::BenchReportRow& leastShare = sum.leastShare;
      progress.print("bench: %zu slot%s at %dx%d; median speedup %.2fx; lowest %.2fx (%s:%d %s); lowest share of "
                     "memcpy %.0f%% (%s:%d %s)\n",
                     rows.size(), rows.size() == 1 ? "" : "s", o.width, o.height, sum.medianSpeedup, slowest.speedup, slowest.suite.c_str(),
                     slowest.slot, slowest.name.c_str(), 100 * leastShare.memcpyShare, leastShare.suite.c_str(),
                     leastShare.slot, leastShare.name.c_str());
    } else {
      progress.print("bench: %zu slot%s at %dx%d\n", rows.size(), rows.size() == 1 ? "" : "s", o.width, o.height);
    }
    if (!sum.leftOut.empty())
      progress.print("bench: left out of the median and the lowest: %s (fixed work: %s)\n", fixedNames.c_str(),
                     tool::kFixedWorkReason);
  }
  if (!written) {
    std::fprintf(stderr, "tarnell-host: cannot write the report '%s': %s\n", o.reportFile.c_str(), writeError.c_str());
    return 5;
  }
  if (!o.reportFile.empty() && !o.json) progress.print("bench: report written to %s\n", reportPath.c_str());
  return 0;
}

// The checks (a --filter selects some); with --module, also whether that module
// replaces each slot on this processor (list needs no module otherwise). Without
// a filter, the forwarded slots follow: they have no check.
int runList(const Options& o, const char* argv0) {
  Started s;
  if (!o.module.empty()) s = start(o, argv0);
  auto replaced = [&](const verify::Check& check) {
    const std::vector<int> slots = s.host->replacedSlots(check.suite);
    return std::find(slots.begin(), slots.end(), check.slot) != slots.end();
  };
  const std::vector<const verify::Check*> checks = selectedChecks(o);
  // The level of the body each slot runs on this processor, from the module's code
  // built into the tool (null where nothing is installed here).
  tool::BodyMap bodies;
  {
    tool::BuiltInModule builtIn(tool::widestHere(), o.host);
    bodies = tool::bodiesAt(builtIn);
  }
  auto bodyOf = [&](const verify::Check& check) -> std::optional<std::string> {
    const auto b = bodies.find({check.suite, check.slot});
    if (b == bodies.end()) return std::nullopt;
    return std::string(tool::bodyName(b->second));
  };
  std::vector<verify::SlotName> forwarded;
  if (!o.filter)
    for (const verify::SlotName& f : verify::forwardedSlots()) forwarded.push_back(f);
  if (o.json) {
    tool::JsonWriter j;
    j.beginObject().key("version").string(TARNELL_VERSION).key("module").stringOrNull(s.module ? std::optional<std::string>(s.module->path()) : std::nullopt);
    j.key("filter").stringOrNull(o.filter).key("checks").beginArray();
    for (const verify::Check* check : checks) {
      j.beginObject().key("suite").string(suiteName(check->suite)).key("slot").integer(check->slot);
      j.key("name").string(check->name).key("signature").string(check->signature);
      j.key("body").stringOrNull(bodyOf(*check)).key("replaced");
      if (s.host) j.boolean(replaced(*check));
      else j.null();
      j.endObject();
    }
    j.endArray().key("forwarded");
    jsonSlots(j, forwarded);
    j.endObject();
    std::fputs(j.text().c_str(), stdout);
    return 0;
  }
  for (const verify::Check* check : checks) {
    const std::string body = bodyOf(*check).value_or("-");
    if (s.host)
      std::printf("%-48s %-8s %-6s %s\n", verify::checkLabel(*check).c_str(), replaced(*check) ? "replaced" : "host",
                  body.c_str(), check->signature);
    else
      std::printf("%-48s %-6s %s\n", verify::checkLabel(*check).c_str(), body.c_str(), check->signature);
  }
  if (!forwarded.empty())
    std::printf("\nforwarded, no check (the module's routine jumps to the host's own):\n  %s\n",
                slotList(forwarded, 2).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  checkFilter(o);
  checkReportWritable(o);
  if (o.command == "list") return runList(o, argv[0]);
  if (o.command == "report") return report(o, argv[0]);
  if (o.command == "verify") return runVerify(o, argv[0]);
  return runBench(o, argv[0]);
}
