#include "fuzz/slot_harness.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>

#include "host/kernels.h"
#include "host/startup.h"
#include "verify/families.h"
#include "verify/runner.h"

// The gates (gates.S): the harness hands the checks these two instead of the
// host's and the module's routines.
extern "C" void tarnell_fuzz_gate_host();
extern "C" void tarnell_fuzz_gate_module();

namespace tarnell::fuzz {

// One call into the host as the journal keeps it: its key and its arguments, an
// address in one of the case's planes written as that plane's pair and offset, so
// that the host's side and the module's compare.
struct Entry {
  uint32_t suite;
  int slot;
  std::string arguments;
  bool operator==(const Entry&) const = default;
};

class CallJournal final : public verify::Context::Watcher {
 public:
  void start(const verify::Check& check) {
    check_ = &check;
    for (auto& s : sides_) s.clear();
  }
  void add(int side, Entry entry) { sides_[side].push_back(std::move(entry)); }

  std::string caseEnded(const verify::Context&, const std::string& what) override {
    if (std::getenv("TARNELL_FUZZ_VERBOSE") != nullptr) std::fprintf(stderr, "case: %s\n", what.c_str());
    std::vector<Entry> kept[2];
    for (int s = 0; s < 2; ++s) {
      for (Entry& e : sides_[s])
        if (!notCompared(e)) kept[s].push_back(std::move(e));
      sides_[s].clear();
    }
    if (kept[0] == kept[1]) return {};
    std::ostringstream out;
    out << "calls into the host differ: host";
    for (int s = 0; s < 2; ++s) {
      if (s == 1) out << "; module";
      if (kept[s].empty()) out << " none";
      for (const Entry& e : kept[s])
        out << ' ' << kSuites[suiteIndexOf(e.suite)].name << ':' << e.slot << '(' << e.arguments << ')';
    }
    return out.str();
  }

 private:
  // The host's own routine of the slot (the call under test, or the module's
  // hand-over to it) and the calls the check judges itself.
  bool notCompared(const Entry& e) const {
    if (e.suite == check_->suite && e.slot == check_->slot) return true;
    return std::any_of(check_->judgedCalls.begin(), check_->judgedCalls.end(),
                       [&](const verify::CallKey& k) { return k.suite == e.suite && k.slot == e.slot; });
  }

  const verify::Check* check_ = nullptr;
  std::vector<Entry> sides_[2];
};

namespace {

// ------------------------------------------------------------------ the gates

struct Frame {
  int side;
  void* returnTo;
  std::size_t logged[4];  // the host's log lengths when the routine was entered
};

struct GateState {
  HostRoutine target[2] = {nullptr, nullptr};
  CallJournal* journal = nullptr;
  Frame frames[8];
  int depth = 0;
} g_gates;

std::string argument(uintptr_t value) {
  verify::PlaneAddress where;
  std::ostringstream out;
  if (verify::locatePlaneAddress(value, where))
    out << "plane " << where.size << '/' << where.lead << " #" << where.pair << '+' << where.offset;
  else
    out << "0x" << std::hex << value;
  return out.str();
}

std::size_t logLengths(const refhost::ReferenceHost& host, int which) {
  switch (which) {
    case 0: return host.calls().size();
    case 1: return host.diagnostics().size();
    case 2: return host.noiseRegistrations().size();
    default: return host.queries().size();
  }
}

// Everything the host logged since the frame's routine was entered.
void collect(const Frame& frame) {
  refhost::ReferenceHost* host = refhost::ReferenceHost::active();
  if (host == nullptr || g_gates.journal == nullptr) return;
  CallJournal& journal = *g_gates.journal;
  const auto calls = host->calls();
  for (std::size_t i = frame.logged[0]; i < calls.size(); ++i) {
    const refhost::CallRecord& c = calls[i];
    journal.add(frame.side, {c.suite, c.slot,
                             argument(c.args[0]) + ", " + argument(c.args[1]) + ", " + argument(c.args[2]) + ", " +
                                 argument(c.args[3])});
  }
  const auto diagnostics = host->diagnostics();
  for (std::size_t i = frame.logged[1]; i < diagnostics.size(); ++i) {
    const refhost::Diagnostic& d = diagnostics[i];
    journal.add(frame.side, {code::core, 16,
                             "\"" + d.message + "\", \"" + d.source + "\", " + std::to_string(d.line) + ", " +
                                 std::to_string(d.severity)});
  }
  const auto noise = host->noiseRegistrations();
  for (std::size_t i = frame.logged[2]; i < noise.size(); ++i)
    journal.add(frame.side, {code::core, 3,
                             argument(reinterpret_cast<uintptr_t>(noise[i].base)) + ", " +
                                 std::to_string(noise[i].size) + ", " + std::to_string(noise[i].period)});
  const auto queries = host->queries();
  for (std::size_t i = frame.logged[3]; i < queries.size(); ++i)
    journal.add(frame.side, {code::core, 5, argument(queries[i].first) + ", " + argument(queries[i].second)});
}

}  // namespace

}  // namespace tarnell::fuzz

extern "C" tarnell::HostRoutine tarnell_fuzz_gate_enter(int side, void* returnTo) {
  using namespace tarnell::fuzz;
  if (g_gates.depth == static_cast<int>(std::size(g_gates.frames))) __builtin_trap();
  Frame& f = g_gates.frames[g_gates.depth++];
  f.side = side;
  f.returnTo = returnTo;
  if (const tarnell::refhost::ReferenceHost* host = tarnell::refhost::ReferenceHost::active())
    for (int i = 0; i < 4; ++i) f.logged[i] = logLengths(*host, i);
  return g_gates.target[side];
}

extern "C" void* tarnell_fuzz_gate_leave() {
  using namespace tarnell::fuzz;
  const Frame f = g_gates.frames[--g_gates.depth];
  collect(f);
  return f.returnTo;
}

namespace tarnell::fuzz {

namespace {

}  // namespace

HostRoutine hostGate() { return reinterpret_cast<HostRoutine>(&tarnell_fuzz_gate_host); }
HostRoutine moduleGate() { return reinterpret_cast<HostRoutine>(&tarnell_fuzz_gate_module); }
void leadGates(HostRoutine host, HostRoutine module) {
  g_gates.target[0] = host;
  g_gates.target[1] = module;
}

namespace {

uint64_t hashBytes(const uint8_t* data, std::size_t size) {
  uint64_t h = 0xCBF29CE484222325ULL;
  for (std::size_t i = 0; i < size; ++i) h = (h ^ data[i]) * 0x100000001B3ULL;
  return h;
}

std::string snakeCase(const char* camel) {
  std::string out;
  for (const char* c = camel; *c != '\0'; ++c) {
    if (std::isupper(static_cast<unsigned char>(*c)) && !out.empty() &&
        !std::isdigit(static_cast<unsigned char>(out.back())))
      out += '_';
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
  }
  return out;
}

int widestReached() {
  int widest = 0;
  for (std::size_t t = 0; t < tiers().size(); ++t)
    if (tiers()[t].reached) widest = static_cast<int>(t);
  return widest;
}

}  // namespace

const std::vector<Tier>& tiers() {
  static const std::vector<Tier> all = [] {
    const CpuFeatureFlags here = computeFeatureFlags(identification(), topology());
    CpuFeatureFlags none = flagsAtLevel(here, Level::plain);
    none.sse = none.sseSecond = 0;
    CpuFeatureFlags sse = flagsAtLevel(here, Level::plain);
    sse.sse = sse.sseSecond = 1;
    std::vector<Tier> out = {{"nosse", none, true}, {"sse", sse, true}};
    for (int i = static_cast<int>(Level::sse2); i < kLevelCount; ++i) {
      const auto level = static_cast<Level>(i);
      out.push_back({levelName(level), flagsAtLevel(here, level), flagsReach(here, level)});
    }
    return out;
  }();
  return all;
}

const char* placementLabel(int placement) {
  return placement == 0 ? "as drawn" : placement == 1 ? "against the next page" : "against the previous page";
}

std::vector<uint8_t> encodeInput(const Header& header, const std::vector<uint8_t>& structure,
                                 const std::vector<uint8_t>& content) {
  const uint8_t head[kHeaderBytes] = {static_cast<uint8_t>(header.tier),
                                      static_cast<uint8_t>(header.placement),
                                      static_cast<uint8_t>(header.suiteIndex),
                                      static_cast<uint8_t>(header.slot >> 8),
                                      static_cast<uint8_t>(header.slot),
                                      static_cast<uint8_t>(structure.size() >> 8),
                                      static_cast<uint8_t>(structure.size())};
  std::vector<uint8_t> out(kHeaderBytes + structure.size() + content.size());
  std::memcpy(out.data(), head, kHeaderBytes);
  if (!structure.empty()) std::memcpy(out.data() + kHeaderBytes, structure.data(), structure.size());
  if (!content.empty()) std::memcpy(out.data() + kHeaderBytes + structure.size(), content.data(), content.size());
  return out;
}

std::vector<const verify::Check*> checksInKeyOrder() {
  std::vector<const verify::Check*> out;
  for (const verify::Check& c : verify::allChecks()) out.push_back(&c);
  std::sort(out.begin(), out.end(), [](const verify::Check* a, const verify::Check* b) {
    return std::pair(suiteIndexOf(a->suite), a->slot) < std::pair(suiteIndexOf(b->suite), b->slot);
  });
  return out;
}

const char* familyOf(const verify::Check& check) {
  struct Family {
    std::string name;
    std::span<const verify::Check> checks;
  };
  // Kept to the very end: the fuzz target names families in its exit handler.
  static const auto* families = new std::vector<Family>{
#define TARNELL_FAMILY_ENTRY(F) {snakeCase(#F), verify::checks##F()},
      TARNELL_FAMILIES(TARNELL_FAMILY_ENTRY)
#undef TARNELL_FAMILY_ENTRY
  };
  for (const Family& f : *families)
    for (const verify::Check& c : f.checks)
      if (c.suite == check.suite && c.slot == check.slot) return f.name.c_str();
  return "unknown";
}

SlotHarness::SlotHarness() : journal_(std::make_unique<CallJournal>()) {
  const std::vector<const verify::Check*> checks = checksInKeyOrder();
  installed_.assign(tiers().size(), std::vector<bool>(checks.size(), false));
  for (std::size_t t = 0; t < tiers().size(); ++t) {
    if (!tiers()[t].reached) continue;
    refhost::ReferenceHost& host = hostAt(static_cast<int>(t));
    for (std::size_t i = 0; i < checks.size(); ++i)
      installed_[t][i] = host.replaced(checks[i]->suite, checks[i]->slot) &&
                         host.hasPortable(checks[i]->suite, checks[i]->slot);
  }
  g_gates.journal = journal_.get();
}

SlotHarness::~SlotHarness() { g_gates.journal = nullptr; }

refhost::ReferenceHost& SlotHarness::hostAt(int tier) {
  if (hostTier_ != tier) {
    host_.reset();  // the one before it becomes the active host again, then the new one
    host_ = std::make_unique<refhost::ReferenceHost>();
    int16_t result = 1;
    startupAtTier(host_->hostInfo(), &result, tiers()[static_cast<std::size_t>(tier)].flags);
    if (result != 0) __builtin_trap();  // the reference host has every suite
    host_->registerNoise();
    hostTier_ = tier;
  }
  return *host_;
}

int SlotHarness::tierFor(const verify::Check& check, int tier) {
  static const std::vector<const verify::Check*> checks = checksInKeyOrder();
  const auto index = static_cast<std::size_t>(std::find(checks.begin(), checks.end(), &check) - checks.begin());
  const int count = static_cast<int>(tiers().size());
  if (!tiers()[static_cast<std::size_t>(tier)].reached) tier = widestReached();
  for (int k = 0; k < count; ++k) {
    const int t = (tier + k) % count;
    if (tiers()[static_cast<std::size_t>(t)].reached && installed_[static_cast<std::size_t>(t)][index]) return t;
  }
  return -1;
}

Outcome SlotHarness::runCase(const verify::Check& check, int tier, int placement, const verify::Rng& entropy) {
  refhost::ReferenceHost& host = hostAt(tier);
  leadGates(host.original(check.suite, check.slot), host.live(check.suite, check.slot));
  journal_->start(check);
  host.clearLogs();
  std::optional<verify::PagePlacement> pages;
  if (placement != 0) pages.emplace(kPlacements[placement]);
  const verify::CheckResult r =
      verify::runOneCase(check, host, hostGate(), moduleGate(), entropy, journal_.get());
  host.clearLogs();
  Outcome outcome;
  outcome.check = &check;
  outcome.tier = tier;
  outcome.placement = placement;
  outcome.cases = r.cases;
  if (r.failures > 0) outcome.failure = r.firstFailure;
  return outcome;
}

Outcome SlotHarness::run(const uint8_t* data, std::size_t size) {
  uint8_t header[kHeaderBytes] = {};
  std::memcpy(header, data, std::min(size, kHeaderBytes));
  static const std::vector<const verify::Check*> checks = checksInKeyOrder();
  const auto key = std::pair<int, int>(header[2], header[3] << 8 | header[4]);
  auto it = std::lower_bound(checks.begin(), checks.end(), key, [](const verify::Check* c, std::pair<int, int> k) {
    return std::pair(suiteIndexOf(c->suite), c->slot) < k;
  });
  const verify::Check& check = **(it == checks.end() ? checks.begin() : it);
  const int tier = tierFor(check, header[0] % static_cast<int>(tiers().size()));
  if (tier < 0) return {};

  const std::size_t rest = size > kHeaderBytes ? size - kHeaderBytes : 0;
  const std::size_t structureSize = std::min<std::size_t>(rest, static_cast<std::size_t>(header[5] << 8 | header[6]));
  const uint8_t* structure = data + std::min(size, kHeaderBytes);
  const verify::Rng entropy = verify::Rng::reading(structure, structureSize, structure + structureSize,
                                                   rest - structureSize, hashBytes(data, size));
  return runCase(check, tier, header[1] % 3, entropy);
}

std::vector<uint8_t> SlotHarness::record(const verify::Check& check, int tier, int placement, uint64_t seed,
                                         std::size_t contentBytes, Outcome& outcome) {
  outcome = {};
  const int ran = tierFor(check, tier);
  if (ran < 0) return {};
  std::vector<uint8_t> structure, content;
  outcome = runCase(check, ran, placement, verify::Rng::recording(seed, &structure, &content));
  if (content.size() > contentBytes) content.resize(contentBytes);
  Header header;
  header.tier = ran;
  header.placement = placement;
  header.suiteIndex = suiteIndexOf(check.suite);
  header.slot = check.slot;
  return encodeInput(header, structure, content);
}

}  // namespace tarnell::fuzz
