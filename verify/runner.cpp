#include "verify/runner.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstring>
#include <memory>
#include <sstream>

#include "refhost/refhost.h"

namespace tarnell::verify {

bool Context::fail(const std::string& what) {
  if (failures_++ == 0) first_ = what;
  return !enough();
}

void Context::countCase(const std::string& what) {
  ++cases_;
  // The check's own fault, not the module's: code that runs a case outside the
  // sweeps once a one-case run was told to stop.
  if (oneCase_ && stopped_)
    fail((what.empty() ? checkLabel(check_) : what) + ": a case ran after the check was told to stop");
  if (watcher_ == nullptr) return;
  if (const std::string problem = watcher_->caseEnded(*this, what); !problem.empty())
    fail((what.empty() ? checkLabel(check_) : what) + ": " + problem);
}

bool Context::judge(const std::string& what, const std::string& problem) {
  if (watcher_ == nullptr && problem.empty()) {
    countCase();
  } else {
    const std::string label = checkLabel(check_) + ' ' + origin() + ' ' + what;
    countCase(label);
    if (!problem.empty()) fail(label + ": " + problem);
  }
  return more();
}

std::string Context::origin() const {
  return oneCase_ ? "[fuzz input]" : "[seed " + std::to_string(seed_) + "]";
}

bool Context::more() {
  if (!stopped_) stopped_ = enough() || (oneCase_ && (cases_ >= kMostCases || !rng_.chance(3)));
  return !stopped_;
}

std::string resultMismatch(uint64_t host, uint64_t module) {
  if (host == module) return {};
  return "result host " + std::to_string(host) + " module " + std::to_string(module);
}

uint64_t checkSeed(uint64_t seed, const Check& check) {
  uint64_t x = seed ^ (uint64_t{check.suite} << 20) ^ static_cast<uint64_t>(check.slot);
  x = (x ^ (x >> 33)) * 0xFF51AFD7ED558CCDULL;
  return x ^ (x >> 29);
}

std::string checkLabel(const Check& check) {
  const int index = suiteIndexOf(check.suite);
  std::ostringstream out;
  out << (index >= 0 ? kSuites[index].name : "????") << ':' << check.slot << ' ' << check.name;
  return out.str();
}

namespace {

bool globMatch(const char* pattern, const char* text) {
  if (*pattern == '\0') return *text == '\0';
  if (*pattern == '*') return globMatch(pattern + 1, text) || (*text != '\0' && globMatch(pattern, text + 1));
  return *text != '\0' && (*pattern == '?' || *pattern == *text) && globMatch(pattern + 1, text + 1);
}

// ------------------------------------------------------------ plane checks

struct Geometry {
  int32_t rows;
  int32_t columns;
  int misalign[kMaxPlanes];
  int pad[kMaxPlanes];
  bool negative;
  int64_t param[kMaxParams];
};

std::string describe(const Context& ctx, const PlaneShape& shape, const Geometry& g) {
  std::ostringstream out;
  out << checkLabel(ctx.check()) << ' ' << ctx.origin() << " rows=" << g.rows << " columns=" << g.columns;
  for (int p = 0; p < shape.planeCount; ++p)
    out << ' ' << shape.planes[p].name << "+" << g.misalign[p] << (g.negative ? "/-" : "/") << g.pad[p];
  for (int i = 0; i < shape.paramCount; ++i) out << ' ' << shape.params[i].name << '=' << g.param[i];
  return out.str();
}

int64_t drawParam(Rng& rng, const ParamSpec& desc) {
  if (desc.specialCount > 0 && rng.chance(2)) return desc.special[rng.below(static_cast<uint32_t>(desc.specialCount))];
  return rng.range(desc.lo, desc.hi);
}

// Runs one geometry: both routines on identical copies, then every byte compared.
// Returns false when the check should stop.
bool runPlaneCase(Context& ctx, const PlaneShape& shape, HostRoutine reference, HostRoutine candidate,
                  const Geometry& g, Placement placement) {
  const bool empty = g.rows < 1 || g.columns < 1;
  std::unique_ptr<PlaneBuffer> ref[kMaxPlanes], mod[kMaxPlanes];
  std::vector<unsigned char> pristine[kMaxPlanes];
  PlaneCall refCall{}, modCall{};
  refCall.rows = modCall.rows = g.rows;
  refCall.columns = modCall.columns = g.columns;
  for (int i = 0; i < shape.paramCount; ++i) refCall.param[i] = modCall.param[i] = g.param[i];

  int32_t sharedStride[9] = {};  // by sample size (1, 2, 4 or 8 bytes)
  for (int p = 0; p < shape.planeCount; ++p) {
    const PlaneSpec& desc = shape.planes[p];
    PlaneLayout layout;
    layout.rows = g.rows < 1 ? 1 : g.rows;
    layout.rowBytes = (g.columns < 1 ? 16 : g.columns) * desc.sampleBytes;
    int32_t stride = layout.rowBytes + g.pad[p];
    if (shape.sharedStride) {
      int32_t& shared = sharedStride[desc.sampleBytes];
      if (shared == 0) shared = stride;
      stride = std::max(shared, layout.rowBytes);
    }
    const int32_t passedStride = g.negative ? -stride : stride;
    layout.stride = shape.usedStride != nullptr ? shape.usedStride(p, passedStride) : passedStride;
    layout.misalign = g.misalign[p];
    layout.slackBytes = shape.maxOverreadBytes;
    ref[p] = std::make_unique<PlaneBuffer>(layout, placement);
    mod[p] = std::make_unique<PlaneBuffer>(layout, placement);
    std::vector<unsigned char>& bytes = pristine[p];
    bytes.resize(ref[p]->size());
    fillUnread(ctx.rng(), bytes.data(), bytes.size());
    // Row contents follow the plane's sample kind; guards and padding stay random.
    const PlaneLayout& l = ref[p]->layout();
    const std::size_t rowOffset = static_cast<std::size_t>(ref[p]->first() - ref[p]->begin());
    for (int32_t r = 0; r < l.rows; ++r) {
      const auto at = static_cast<std::ptrdiff_t>(rowOffset) + static_cast<std::ptrdiff_t>(r) * l.stride;
      fillSamples(ctx.rng(), desc.samples, bytes.data() + at, static_cast<std::size_t>(l.rowBytes));
    }
    std::memcpy(ref[p]->begin(), bytes.data(), bytes.size());
    std::memcpy(mod[p]->begin(), bytes.data(), bytes.size());
    refCall.plane[p] = ref[p]->first();
    modCall.plane[p] = mod[p]->first();
    refCall.stride[p] = modCall.stride[p] = passedStride;
  }

  const uint64_t refResult = shape.invoke(reference, refCall);
  uint64_t modResult = 0;
  if (shape.sameAddresses) {
    // Both routines run on the very same addresses: the host's bytes are moved
    // aside, the planes restored, and the module's bytes moved to its own copies.
    for (int p = 0; p < shape.planeCount; ++p) {
      std::memcpy(mod[p]->begin(), ref[p]->begin(), pristine[p].size());
      std::memcpy(ref[p]->begin(), pristine[p].data(), pristine[p].size());
    }
    modResult = shape.invoke(candidate, refCall);
    for (int p = 0; p < shape.planeCount; ++p) {
      std::vector<unsigned char> moduleBytes(ref[p]->begin(), ref[p]->begin() + pristine[p].size());
      std::memcpy(ref[p]->begin(), mod[p]->begin(), pristine[p].size());
      std::memcpy(mod[p]->begin(), moduleBytes.data(), moduleBytes.size());
    }
  } else {
    modResult = shape.invoke(candidate, modCall);
  }
  ctx.countCase(ctx.watched() ? describe(ctx, shape, g) : std::string());

  if (shape.compareResult && refResult != modResult) {
    std::ostringstream out;
    out << describe(ctx, shape, g) << ": result host " << refResult << " module " << modResult;
    if (!ctx.fail(out.str())) return false;
  }
  for (int p = 0; p < shape.planeCount; ++p) {
    const PlaneSpec& desc = shape.planes[p];
    const unsigned char* r = ref[p]->begin();
    const unsigned char* m = mod[p]->begin();
    const unsigned char* o = pristine[p].data();
    const std::size_t n = pristine[p].size();
    if (std::memcmp(r, m, n) == 0 && std::memcmp(m, o, n) == 0) continue;  // nothing written at all
    for (std::size_t i = 0; i < n; ++i) {
      int32_t row = -1, byte = -1;
      const bool inside = !empty && desc.role != Role::Input && ref[p]->inRow(i, row, byte);
      const char* problem = nullptr;
      if (inside) {
        if (r[i] != m[i]) problem = "differs";
      } else if (m[i] != o[i]) {
        problem = desc.role == Role::Input ? "module wrote to an input plane" : "module wrote outside its rectangle";
      } else if (r[i] != o[i]) {
        problem = "host routine wrote outside its rectangle";
      }
      if (problem == nullptr) continue;
      std::ostringstream out;
      out << describe(ctx, shape, g) << ": plane " << desc.name << ' ' << problem;
      if (ref[p]->inRow(i, row, byte))
        out << " at row " << row << " sample " << byte / desc.sampleBytes << " byte " << byte % desc.sampleBytes;
      else
        out << " at byte " << static_cast<std::ptrdiff_t>(i) - (ref[p]->first() - ref[p]->begin())
            << " from the first sample";
      out << ": host 0x" << std::hex << int{r[i]} << " module 0x" << int{m[i]} << " before 0x" << int{o[i]};
      if (!ctx.fail(out.str())) return false;
      break;  // one report per plane and case
    }
  }
  return ctx.more();
}

void runPlaneCheck(Context& ctx, const PlaneShape& shape, HostRoutine reference, HostRoutine candidate,
                   Placement placement) {
  Rng& rng = ctx.rng();
  auto make = [&](int32_t rows, int32_t columns, int destinationMisalign) {
    Geometry g{};
    g.rows = rows;
    g.columns = columns;
    g.negative = shape.negativeStrides && rng.chance(4);
    for (int p = 0; p < shape.planeCount; ++p) {
      // Other planes: any misalignment, independent of the destination's; the
      // destination sometimes also off a 32-byte boundary.
      g.misalign[p] = p == shape.alignPlane ? destinationMisalign + 16 * static_cast<int>(rng.below(2))
                                            : static_cast<int>(rng.below(64));
      const uint32_t kind = rng.below(4);
      g.pad[p] = kind == 0 ? 0 : kind == 1 ? 64 : static_cast<int>(1 + rng.below(47));
    }
    for (int i = 0; i < shape.paramCount; ++i) g.param[i] = drawParam(rng, shape.params[i]);
    return g;
  };
  auto run = [&](const Geometry& g) { return runPlaneCase(ctx, shape, reference, candidate, g, placement); };

  // A one-case run may pick any misalignment, even of a form with fewer cases.
  const bool thorough = ctx.thorough() && (!shape.fewerCases || ctx.oneCase());
  const int lo = std::max(1, shape.minColumns);
  for (int32_t columns : ctx.range(lo, 300)) {
    for (int mis : ctx.range(0, 15)) {
      if (!thorough && mis != (columns + columns / 16) % 16) continue;
      if (!run(make(1 + static_cast<int32_t>(rng.below(3)), columns, mis))) return;
    }
  }
  std::vector<int> wideMisalignments;
  for (int mis = 0; mis < 16; mis += thorough ? 1 : 5) wideMisalignments.push_back(mis);
  // Wide rows take most of a one-case run's time: seldom there.
  for (int32_t columns : ctx.seldom({4095, 4096, 4097})) {
    for (int mis : ctx.each(wideMisalignments))
      if (!run(make(2, columns, mis))) return;
  }
  for (int32_t columns : ctx.each({511, 512, 513, 1031}))
    if (!run(make(3, columns, static_cast<int>(rng.below(16))))) return;
  for (int32_t columns : ctx.seldom({2047, 2048, 2049, 8191, 8193}))
    if (!run(make(3, columns, static_cast<int>(rng.below(16))))) return;
  // Nothing to do: every byte must come back as it was.
  std::vector<std::array<int32_t, 2>> empties;
  for (const auto& e : std::initializer_list<std::array<int32_t, 2>>{{0, 37}, {-1, 37}, {INT32_MIN, 5}, {2, 0}, {2, -3}, {-2, -2}})
    if (e[1] >= shape.minColumns || e[1] < 1) empties.push_back(e);
  for (const auto& e : ctx.each(empties))
    if (!run(make(e[0], e[1], static_cast<int>(rng.below(16))))) return;
}

// ------------------------------------------------------------------ timing

double seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

}  // namespace

double timeCall(void (*fn)(void*), void* context, double minSeconds) {
  using clock = std::chrono::steady_clock;
  fn(context);  // warm caches and pages
  const double batchSeconds = minSeconds / 5;
  uint64_t n = 1;
  for (;;) {
    const auto t0 = clock::now();
    for (uint64_t i = 0; i < n; ++i) fn(context);
    const double t = seconds(clock::now() - t0);
    if (t >= batchSeconds || n >= (uint64_t{1} << 30)) break;
    n = t <= 0 ? n * 16 : std::max(n + 1, static_cast<uint64_t>(static_cast<double>(n) * batchSeconds * 1.2 / t));
  }
  std::vector<double> samples;
  for (int s = 0; s < 5; ++s) {
    const auto t0 = clock::now();
    for (uint64_t i = 0; i < n; ++i) fn(context);
    samples.push_back(seconds(clock::now() - t0) * 1e9 / static_cast<double>(n));
  }
  std::sort(samples.begin(), samples.end());
  return samples[2];
}

std::vector<std::string> filterGlobs(const std::string& filter) {
  std::vector<std::string> globs;
  for (std::size_t begin = 0; begin <= filter.size();) {
    const std::size_t end = std::min(filter.find(',', begin), filter.size());
    std::string glob = filter.substr(begin, end - begin);
    glob.erase(0, glob.find_first_not_of(" \t"));
    glob.erase(glob.find_last_not_of(" \t") + 1);
    if (!glob.empty()) globs.push_back(glob);
    begin = end + 1;
  }
  return globs;
}

namespace {

// The glob against a key or a label: its part up to the first blank (the key's
// part) in lower case, as suite keys are.
std::string keyCase(const std::string& glob) {
  std::string out = glob;
  const std::size_t end = std::min(out.find(' '), out.size());
  for (std::size_t i = 0; i < end; ++i)
    if (out[i] >= 'A' && out[i] <= 'Z') out[i] = static_cast<char>(out[i] - 'A' + 'a');
  return out;
}

bool globMatchesCheck(const std::string& glob, const Check& check) {
  const std::string label = checkLabel(check);
  const std::string key = label.substr(0, label.find(' '));
  const std::string lowered = keyCase(glob);
  return globMatch(glob.c_str(), check.name) || globMatch(lowered.c_str(), key.c_str()) ||
         globMatch(lowered.c_str(), label.c_str());
}

}  // namespace

bool matchesFilter(const Check& check, const std::string& filter) {
  const std::vector<std::string> globs = filterGlobs(filter);
  if (globs.empty()) return true;
  return std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) { return globMatchesCheck(glob, check); });
}

std::vector<std::string> unmatchedGlobs(const std::string& filter) {
  std::vector<std::string> unmatched;
  for (const std::string& glob : filterGlobs(filter)) {
    const std::span<const Check> all = allChecks();
    if (std::none_of(all.begin(), all.end(), [&](const Check& check) { return globMatchesCheck(glob, check); }))
      unmatched.push_back(glob);
  }
  return unmatched;
}

CheckResult runCheckOn(const Check& check, refhost::ReferenceHost& host, HostRoutine reference, HostRoutine candidate,
                       const VerifyOptions& options) {
  CheckResult result;
  result.check = &check;
  result.seed = checkSeed(options.seed, check);
  Context ctx(check, host, result.seed, options.thorough, options.maxFailures);
  if (check.shape != nullptr) {
    runPlaneCheck(ctx, *check.shape, reference, candidate, options.placement);
    if (check.shape->moreCases != nullptr && !ctx.enough()) check.shape->moreCases(ctx, reference, candidate);
  } else {
    check.customVerify(ctx, reference, candidate);
  }
  result.cases = ctx.cases();
  result.failures = ctx.failures();
  result.firstFailure = ctx.firstFailure();
  result.outcome = ctx.failures() == 0 ? Outcome::Passed : Outcome::Failed;
  return result;
}

CheckResult runOneCase(const Check& check, refhost::ReferenceHost& host, HostRoutine reference, HostRoutine candidate,
                       const Rng& entropy, Context::Watcher* watcher) {
  CheckResult result;
  result.check = &check;
  Context ctx(check, host, entropy, Context::OneCase{});
  ctx.setWatcher(watcher);
  if (check.shape != nullptr) {
    runPlaneCheck(ctx, *check.shape, reference, candidate, Placement::Heap);
  } else {
    check.customVerify(ctx, reference, candidate);
  }
  result.cases = ctx.cases();
  result.failures = ctx.failures();
  result.firstFailure = ctx.firstFailure();
  result.outcome = ctx.failures() == 0 ? Outcome::Passed : Outcome::Failed;
  return result;
}

CheckResult runCheck(const Check& check, refhost::ReferenceHost& host, const VerifyOptions& options) {
  CheckResult result;
  result.check = &check;
  result.seed = checkSeed(options.seed, check);
  if (!host.replaced(check.suite, check.slot)) {
    result.outcome = Outcome::NotInstalled;
    return result;
  }
  if (!host.hasPortable(check.suite, check.slot)) {
    result.outcome = Outcome::NoHostRoutine;
    return result;
  }
  return runCheckOn(check, host, host.original(check.suite, check.slot), host.live(check.suite, check.slot),
                    options);
}

// -------------------------------------------------------------- benchmarks

namespace {

struct PlaneBench final : BenchCase {
  PlaneBench(const PlaneShape& s, int width, int height, Rng& rng) : shape(s) {
    call.rows = height;
    call.columns = width;
    for (int i = 0; i < shape.paramCount; ++i)
      call.param[i] = shape.benchParams != nullptr ? shape.benchParams[i] : drawParam(rng, shape.params[i]);
    for (int p = 0; p < shape.planeCount; ++p) {
      const PlaneSpec& desc = shape.planes[p];
      PlaneLayout layout;
      layout.rows = height;
      layout.rowBytes = width * desc.sampleBytes;
      layout.stride = layout.rowBytes;
      planes[p] = std::make_unique<PlaneBuffer>(layout, Placement::Heap);
      fillSamples(rng, desc.samples, planes[p]->first(),
                  static_cast<std::size_t>(layout.rowBytes) * static_cast<std::size_t>(height));
      call.plane[p] = planes[p]->first();
      call.stride[p] = layout.stride;
      const uint64_t bytes = static_cast<uint64_t>(layout.rowBytes) * static_cast<uint64_t>(height);
      bytesMoved += desc.role == Role::InOut ? 2 * bytes : bytes;
    }
  }
  void run(HostRoutine routine) override { shape.invoke(routine, call); }
  const PlaneShape& shape;
  std::unique_ptr<PlaneBuffer> planes[kMaxPlanes];
  PlaneCall call{};
};

struct Timed {
  BenchCase* bench;
  HostRoutine routine;
};

struct MemcpyBench {
  std::vector<unsigned char> from, to;
};

}  // namespace

bool hasBench(const Check& check) { return check.shape != nullptr || check.customBench != nullptr; }

std::unique_ptr<BenchCase> makeBenchCase(const Check& check, int width, int height, uint64_t seed) {
  if (!hasBench(check)) return nullptr;
  if (check.shape != nullptr) {
    Rng rng(seed);
    return std::make_unique<PlaneBench>(*check.shape, width, height, rng);
  }
  return std::unique_ptr<BenchCase>(check.customBench(width, height));
}

BenchResult benchCheck(const Check& check, refhost::ReferenceHost& host, const BenchOptions& options) {
  BenchResult result;
  result.check = &check;
  if (!host.replaced(check.suite, check.slot) || !host.hasPortable(check.suite, check.slot) || !hasBench(check))
    return result;
  // Separate but identical data for each side, so neither inherits the other's output.
  const uint64_t seed = checkSeed(1, check);
  std::unique_ptr<BenchCase> forHost = makeBenchCase(check, options.width, options.height, seed);
  std::unique_ptr<BenchCase> forModule = makeBenchCase(check, options.width, options.height, seed);
  auto timedRun = [](void* c) {
    auto* t = static_cast<Timed*>(c);
    t->bench->run(t->routine);
  };
  Timed h{forHost.get(), host.original(check.suite, check.slot)};
  Timed m{forModule.get(), host.live(check.suite, check.slot)};
  result.hostNs = timeCall(timedRun, &h, options.minSeconds);
  result.moduleNs = timeCall(timedRun, &m, options.minSeconds);
  result.bytesMoved = forModule->bytesMoved;
  result.fixedWork = forModule->fixedWork;

  MemcpyBench copy;
  copy.from.assign(std::max<uint64_t>(1, result.bytesMoved / 2), 1);
  copy.to.assign(copy.from.size(), 0);
  result.memcpyNs = timeCall(
      [](void* c) {
        auto* b = static_cast<MemcpyBench*>(c);
        std::memcpy(b->to.data(), b->from.data(), b->from.size());
      },
      &copy, options.minSeconds);
  result.ran = true;
  return result;
}

}  // namespace tarnell::verify
