// Checks of the filters ('filt'). Filters read around their region (a border of
// one sample, r samples, the taps' rows, one sample past a remap's source row), so
// none fits the plane model: each case lays out a bordered source and a
// destination twice (host and module), with random padding, misalignment and
// sometimes rows going down in memory, runs both routines and compares every byte
// of both allocations and the result. Every third case puts the planes flush
// against an inaccessible page, so a read beyond the granted border faults.
// Routines that call the host (the 'core' slot-0 notification, a hand-over of the
// remainder or of a large radius) are checked through the host's call log.
#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <vector>

#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/planes.h"
#include "verify/runner.h"

namespace tarnell::verify {

namespace {


// A plane of `rows` x `samples` with a border: `top`/`bottom` rows, `left` samples
// before and `right` samples after each row, all readable.
struct PlaneSpan {
  int32_t rows = 1, samples = 0;
  int32_t top = 0, bottom = 0, left = 0, right = 0;
  int sampleBytes = 1;
  Samples kind = Samples::Bytes;
};

// What one call gets: the region's first sample and the stride of each plane.
struct Call {
  void* plane[3];
  int32_t stride[3];
};
using Run = std::function<uint64_t(HostRoutine, const Call&)>;

class Twins {
 public:
  Twins(Context& ctx, const PlaneSpan* spans, int count, Placement placement, bool negative) : count_(count) {
    Rng& rng = ctx.rng();
    for (int p = 0; p < count; ++p) {
      const PlaneSpan& s = spans[p];
      spans_[p] = s;
      PlaneLayout layout;
      layout.rows = std::max(1, s.rows + s.top + s.bottom);
      layout.rowBytes = std::max(1, s.samples + s.left + s.right) * s.sampleBytes;
      const int32_t pad = rng.chance(3) ? 0 : s.sampleBytes * static_cast<int32_t>(rng.below(24));
      layout.stride = (negative ? -1 : 1) * (layout.rowBytes + pad);
      layout.misalign = s.sampleBytes * static_cast<int>(rng.below(static_cast<uint32_t>(64 / s.sampleBytes)));
      for (auto& side : buffer_[p]) side = std::make_unique<PlaneBuffer>(layout, placement);
      pristine_[p].resize(buffer_[p][0]->size());
      fillUnread(rng, pristine_[p].data(), pristine_[p].size());
      const std::size_t lead = static_cast<std::size_t>(buffer_[p][0]->first() - buffer_[p][0]->begin());
      for (int32_t r = 0; r < layout.rows; ++r)
        fillSamples(rng, s.kind, pristine_[p].data() + lead + static_cast<std::ptrdiff_t>(r) * layout.stride,
                    static_cast<std::size_t>(layout.rowBytes));
      for (auto& side : buffer_[p]) std::memcpy(side->begin(), pristine_[p].data(), pristine_[p].size());
      for (int side = 0; side < 2; ++side) {
        call_[side].plane[p] = buffer_[p][side]->first() + intptr_t{layout.stride} * s.top + s.left * s.sampleBytes;
        call_[side].stride[p] = layout.stride;
      }
    }
  }
  const Call& call(int side) const { return call_[side]; }
  // Empty when host and module left the same bytes, and neither wrote outside a
  // plane's region (its rows and samples, borders excluded: the same write on both
  // sides is still a fault); else where the first difference or write is.
  std::string difference() const {
    if (std::string outside = writeOutside(); !outside.empty()) return outside;
    for (int p = 0; p < count_; ++p) {
      const unsigned char* h = buffer_[p][0]->begin();
      const unsigned char* m = buffer_[p][1]->begin();
      const std::size_t n = pristine_[p].size();
      if (std::memcmp(h, m, n) == 0) continue;
      std::size_t i = 0;
      while (h[i] == m[i]) ++i;
      std::ostringstream out;
      out << "plane " << p << " differs at byte "
          << static_cast<std::ptrdiff_t>(i) - (buffer_[p][0]->first() - buffer_[p][0]->begin())
          << " from its first: host 0x" << std::hex << int{h[i]} << " module 0x" << int{m[i]} << " before 0x"
          << int{pristine_[p][i]};
      return out.str();
    }
    return {};
  }

 private:
  std::string writeOutside() const {
    for (int p = 0; p < count_; ++p) {
      const PlaneSpan& s = spans_[p];
      const std::size_t n = pristine_[p].size();
      std::vector<bool> inside(n, false);
      if (s.rows >= 1 && s.samples >= 1) {
        const std::ptrdiff_t first = static_cast<const unsigned char*>(call_[0].plane[p]) - buffer_[p][0]->begin();
        for (int32_t r = 0; r < s.rows; ++r)
          for (int32_t b = 0; b < s.samples * s.sampleBytes; ++b) {
            const std::ptrdiff_t at = first + static_cast<std::ptrdiff_t>(r) * call_[0].stride[p] + b;
            if (at >= 0 && static_cast<std::size_t>(at) < n) inside[static_cast<std::size_t>(at)] = true;
          }
      }
      for (int side = 0; side < 2; ++side) {
        const unsigned char* bytes = buffer_[p][side]->begin();
        if (std::memcmp(bytes, pristine_[p].data(), n) == 0) continue;
        for (std::size_t i = 0; i < n; ++i) {
          if (inside[i] || bytes[i] == pristine_[p][i]) continue;
          std::ostringstream out;
          out << (side == 0 ? "the host routine" : "the module") << " wrote plane " << p
              << " outside its region, at byte "
              << static_cast<std::ptrdiff_t>(i) - (buffer_[p][side]->first() - buffer_[p][side]->begin())
              << " from its first: 0x" << std::hex << int{bytes[i]} << " before 0x" << int{pristine_[p][i]};
          return out.str();
        }
      }
    }
    return {};
  }

  int count_;
  PlaneSpan spans_[3];
  std::unique_ptr<PlaneBuffer> buffer_[3][2];
  std::vector<unsigned char> pristine_[3];
  Call call_[2];
};

constexpr Placement kPlacements[] = {Placement::Heap, Placement::GuardPageAfter, Placement::GuardPageBefore};

// Runs one case on both sides; `what` describes it. Returns false to stop.
bool runCase(Context& ctx, HostRoutine host, HostRoutine module, const PlaneSpan* spans, int count, const Run& run,
             const std::string& what, const std::function<std::string(const Call&)>& afterModule = nullptr) {
  const Placement placement = kPlacements[ctx.turn(3)];
  Twins twins(ctx, spans, count, placement, ctx.rng().chance(4));
  const uint64_t hostResult = run(host, twins.call(0));
  ctx.host().clearLogs();
  const uint64_t moduleResult = run(module, twins.call(1));
  std::string problem = twins.difference();
  if (problem.empty()) problem = resultMismatch(hostResult, moduleResult);
  if (problem.empty() && afterModule) problem = afterModule(twins.call(1));
  return ctx.judge(what, problem);
}

uintptr_t word(int64_t v) { return static_cast<uintptr_t>(static_cast<intptr_t>(v)); }
uintptr_t word(const void* p) { return reinterpret_cast<uintptr_t>(p); }

// The calls that reached the host's routine of (suite, slot) since the last clear.
std::vector<refhost::CallRecord> callsTo(Context& ctx, uint32_t suite, int slot) {
  std::vector<refhost::CallRecord> out;
  for (const refhost::CallRecord& c : ctx.host().calls())
    if (c.suite == suite && c.slot == slot) out.push_back(c);
  return out;
}

std::string expectCalls(Context& ctx, uint32_t suite, int slot, const std::vector<std::array<uintptr_t, 4>>& wanted) {
  const auto seen = callsTo(ctx, suite, slot);
  bool same = seen.size() == wanted.size();
  for (std::size_t i = 0; same && i < seen.size(); ++i)
    same = std::equal(std::begin(seen[i].args), std::end(seen[i].args), wanted[i].begin());
  if (same) return {};
  return words("host slot", slot, "saw", seen.size(), "calls, expected", wanted.size());
}

// Widths for region routines: every width up to `narrow`, then the given wide ones.
template <typename Each>
void widths(Context& ctx, int32_t narrow, std::vector<int32_t> wide, Each each) {
  for (int32_t c : ctx.range(1, narrow))
    if (!each(1 + static_cast<int32_t>(ctx.rng().below(3)), c)) return;
  // The widest take most of a one-case run's time: seldom there.
  std::vector<int32_t> widest;
  while (!wide.empty() && wide.back() > 2000) {
    widest.insert(widest.begin(), wide.back());
    wide.pop_back();
  }
  for (int32_t c : ctx.each(wide))
    if (!each(ctx.thorough() || c <= 4097 ? 2 : 1, c)) return;
  for (int32_t c : ctx.seldom(widest))
    if (!each(ctx.thorough() || c <= 4097 ? 2 : 1, c)) return;
  static constexpr std::array<int32_t, 2> kEmpty[] = {{0, 17}, {-1, 17}, {3, 0}, {3, -5}, {INT32_MIN, 4}};
  for (const auto& e : ctx.each(kEmpty))
    if (!each(e[0], e[1])) return;
}

// ------------------------------------------------------------- slot 12

void verifyDeviation(Context& ctx, HostRoutine host, HostRoutine module) {
  widths(ctx, 70, {255, 256, 4097}, [&](int32_t rows, int32_t columns) {
    const PlaneSpan spans[] = {{rows, columns, 1, 1, 1, 1, 1, Samples::Bytes},
                               {rows, columns, 0, 0, 0, 0, 1, Samples::Bytes}};
    const Run run = [&](HostRoutine r, const Call& c) {
      const int32_t result =
          as<slot::localDeviation3x3>(r)(static_cast<const uint8_t*>(c.plane[0]), static_cast<uint8_t*>(c.plane[1]), rows,
                                columns, c.stride[0], c.stride[1]);
      return uint64_t(uint32_t(result));
    };
    return runCase(ctx, host, module, spans, 2, run, words("rows", rows, "columns", columns), [&](const Call& c) {
      return expectCalls(ctx, code::core, 0, {{word(c.plane[0]), word(c.plane[1]), word(rows), word(columns)}});
    });
  });
}

// ------------------------------------------------------------- slots 28, 74

// Taps: a kernel that keeps brightness, or random 16-bit weights (negative ones
// and products that carry) with junk in the high bits that must be ignored.
std::vector<uint32_t> weightBlock(Rng& rng, uint32_t taps) {
  const Rng::Content content(rng);
  std::vector<uint32_t> block(kWeightedSumTapCountEntry + 1 + taps);
  for (uint32_t& v : block) v = static_cast<uint32_t>(rng.next());
  block[kWeightedSumTapCountEntry] = taps;
  const bool preserving = rng.chance(2);
  uint32_t left = 256;
  for (uint32_t k = 0; k < taps; ++k) {
    uint32_t& w = block[kWeightedSumTapCountEntry + 1 + k];
    if (preserving) {
      const uint32_t share = k + 1 == taps ? left : static_cast<uint32_t>(rng.below(left + 1));
      left -= share;
      w = (w & 0xFFFF0000u) | share;
    }
  }
  return block;
}

template <int Slot, typename Sample>
void verifyWeightedSum(Context& ctx, HostRoutine host, HostRoutine module) {
  constexpr int bytes = sizeof(Sample);
  const Samples kind = bytes == 1 ? Samples::Bytes : Samples::Words16;
  widths(ctx, 80, {4095, 4096, 4097, 5000, 8208, 10000}, [&](int32_t rows, int32_t columns) {
    // 0 and 1 taps, a few, and more than the 16 a pass keeps in registers.
    const uint32_t size = ctx.rng().below(6);
    const uint32_t taps = size == 0   ? ctx.rng().below(2)
                          : size == 1 ? 17 + ctx.rng().below(24)
                                      : 2 + ctx.rng().below(10);
    const std::vector<uint32_t> block = weightBlock(ctx.rng(), taps);
    const int32_t extra = static_cast<int32_t>(taps) - 1;
    const PlaneSpan spans[] = {{rows, columns, 0, std::max(extra, 0), 0, 0, bytes, kind},
                               {rows, columns, 0, 0, 0, 0, bytes, kind}};
    const Run run = [&](HostRoutine r, const Call& c) {
      as<code::filt, Slot>(r)(static_cast<const Sample*>(c.plane[0]), static_cast<Sample*>(c.plane[1]), rows, columns,
                              c.stride[0], c.stride[1], block.data());
      return uint64_t{0};
    };
    return runCase(ctx, host, module, spans, 2, run, words("rows", rows, "columns", columns, "taps", taps));
  });
}

// ------------------------------------------------------------- slot 75

void verifyBoxMean(Context& ctx, HostRoutine host, HostRoutine module) {
  auto one = [&](int32_t rows, int32_t columns, int32_t radius) {
    const int32_t border = std::max(radius, 0);
    const PlaneSpan spans[] = {{rows, columns, border, border, border, border, 2, Samples::Words15},
                               {rows, columns, 0, 0, 0, 0, 2, Samples::Words15}};
    const Run run = [&](HostRoutine r, const Call& c) {
      return uint64_t(
          uint32_t(as<slot::filterSlot75>(r)(static_cast<const uint16_t*>(c.plane[0]), static_cast<uint16_t*>(c.plane[1]),
                                         rows, columns, c.stride[0], c.stride[1], radius)));
    };
    return runCase(
        ctx, host, module, spans, 2, run, words("rows", rows, "columns", columns, "radius", radius),
        [&](const Call& c) {
          if (radius < kBoxMeanHostRadius) return expectCalls(ctx, code::filt, 75, {});
          return expectCalls(ctx, code::filt, 75, {{word(c.plane[0]), word(c.plane[1]), word(rows), word(columns)}});
        });
  };
  widths(ctx, 40, {},
         [&](int32_t rows, int32_t columns) { return one(rows, columns, static_cast<int32_t>(ctx.rng().below(6))); });
  // Large radii get the vector body (sixteen outputs a step) and a tail too. The
  // host's routine takes (2r + 1)^2 steps an output: the largest are seldom in a
  // one-case run.
  auto bodyAndTail = [&](int32_t radius) {
    return one(radius >= 128 ? 2 : 5, radius >= 180 ? 3 : radius >= 128 ? 19 : 37, radius);
  };
  for (int32_t radius : ctx.each({0, 1, 2, 7, 20}))
    if (!bodyAndTail(radius)) return;
  for (int32_t radius : ctx.seldom({128, 179, 180, 200}))
    if (!bodyAndTail(radius)) return;
  for (int32_t radius : ctx.each({-1}))
    if (!bodyAndTail(radius)) return;
  // Every radius up to 200 (every fifth in a quick run), each with its own
  // reciprocal, on one row a vector step and a tail wide.
  std::vector<int32_t> radii[2];
  for (int32_t radius = 0; radius <= 200; radius += ctx.thorough() ? 1 : 5) radii[radius >= 64].push_back(radius);
  for (int32_t radius : ctx.each(radii[0]))
    if (!one(1, 9 + radius % 8, radius)) return;
  for (int32_t radius : ctx.seldom(radii[1]))
    if (!one(1, 9 + radius % 8, radius)) return;
  // Strip splits: 8192 - 2r columns fit one strip, one more makes two.
  for (int32_t columns : ctx.seldom({8172, 8173, 10000}))
    if (!one(ctx.thorough() ? 2 : 1, columns, 10)) return;
  if (ctx.thorough())
    for (int32_t columns : ctx.seldom({8192})) one(1, columns, 0);
}

// ------------------------------------------------------------- slots 188, 189

template <int Slot>
void verifyDifferenceSum(Context& ctx, HostRoutine host, HostRoutine module) {
  for (int i : ctx.times(300)) {
    const Samples kind = i % 3 == 0 ? Samples::Mask : Samples::Bytes;
    const PlaneSpan block{1, kDifferenceBlockBytes, 0, 0, 0, 0, 1, kind};
    const PlaneSpan spans[] = {block, block, {1, kDifferenceBlockBytes, 0, 0, 0, 0, 1, Samples::Mask}};
    const Run run = [&](HostRoutine r, const Call& c) {
      const auto* a = static_cast<const uint8_t*>(c.plane[0]);
      const auto* b = static_cast<const uint8_t*>(c.plane[1]);
      if constexpr (Slot == slot::blockDifferenceSum.number)
        return uint64_t{as<slot::blockDifferenceSum>(r)(a, b)};
      else
        return uint64_t{as<slot::maskedDifferenceSum>(r)(a, b, static_cast<const uint8_t*>(c.plane[2]))};
    };
    if (!runCase(ctx, host, module, spans, Slot == slot::blockDifferenceSum.number ? 2 : 3, run, words("case", i))) return;
  }
}

// ------------------------------------------------------------- slots 191-194

template <int Slot, int K>
void verifyBlockMatrix(Context& ctx, HostRoutine host, HostRoutine module) {
  std::vector<int32_t> counts;
  for (int32_t c = -3; c <= 24 * K; ++c) counts.push_back(c);
  for (int32_t c : {1000, 4099, 4100 * K + 3}) counts.push_back(c);
  for (int32_t count : ctx.each(counts)) {
    const int32_t outputs = std::max(count / 4 - (K - 1), 0);
    float coefficients[static_cast<std::size_t>(16 * K)];
    {
      const Rng::Content content(ctx.rng());
      for (float& v : coefficients) v = ctx.rng().uniform(-2.0f, 2.0f);
    }
    const uintptr_t fourth = static_cast<uintptr_t>(ctx.rng().next()), fifth = static_cast<uintptr_t>(ctx.rng().next());
    const PlaneSpan spans[] = {{1, std::max(count, 0), 0, 0, 0, 0, 4, Samples::FloatsWide},
                               {1, 4 * outputs, 0, 0, 0, 0, 4, Samples::FloatsWide}};
    // The host's routine returns the elements it wrote, the module the host's
    // result for the rest: both sides must come to every element of the count.
    const int32_t whole = count / (4 * K) * (4 * K);
    const int32_t steps = whole > 0 ? (whole - 4 * (K - 1)) / 4 : 0;
    const Run run = [&](HostRoutine r, const Call& c) {
      const int32_t written = as<code::filt, Slot>(r)(static_cast<const float*>(c.plane[0]), count, coefficients,
                                                      fourth, fifth, static_cast<float*>(c.plane[1]));
      return uint64_t(uint32_t(written + (r == module ? steps : 0)));
    };
    const bool ok = runCase(ctx, host, module, spans, 2, run, words("count", count), [&](const Call& c) {
      // The module's share of the steps, then the host's routine on the rest with
      // k - 1 elements of history; nothing at all below one whole group.
      if (whole <= 0) return expectCalls(ctx, code::filt, Slot, {});
      return expectCalls(ctx, code::filt, Slot,
                         {{word(static_cast<const float*>(c.plane[0]) + 4 * steps), word(count - whole + 4 * (K - 1)),
                           fourth, fifth}});
    });
    if (!ok) return;
  }
}

// ------------------------------------------------------------- slots 200-202

struct RemapParams {
  int32_t background;
  float turn, centre, scale, rowCentre, columnCentre, rowScale, focal;
};

RemapParams remapParams(Rng& rng, int32_t rows, int32_t sourceWidth, int32_t width, bool identity) {
  RemapParams p{};
  p.background = static_cast<int32_t>(rng.next());
  if (identity) {  // no turn, no elevation, one source column per destination column
    p.centre = p.columnCentre = rng.uniform(0.0f, static_cast<float>(width));
    p.scale = p.focal = rng.uniform(1.0f, 2000.0f);
    p.rowScale = 1e30f;
    return p;
  }
  p.turn = rng.chance(8) ? 0.0f : rng.uniform(-0.7f, 0.7f);
  p.centre = rng.uniform(-0.2f, 1.2f) * static_cast<float>(sourceWidth);
  p.scale = rng.uniform(0.3f, 2.0f) * static_cast<float>(sourceWidth);
  p.columnCentre = rng.uniform(0.0f, 1.0f) * static_cast<float>(width);
  p.focal = rng.uniform(0.3f, 2.0f) * static_cast<float>(width);
  p.rowCentre = rng.uniform(-1.0f, 2.0f) * static_cast<float>(rows);
  p.rowScale = rng.uniform(0.3f, 3.0f) * static_cast<float>(std::max(rows, 1));
  return p;
}

template <int Slot, typename Sample, typename Background>
void verifyRemap(Context& ctx, HostRoutine host, HostRoutine module) {
  constexpr int bytes = sizeof(Sample);
  const Samples kind = bytes == 1 ? Samples::Bytes : bytes == 2 ? Samples::Words15 : Samples::FloatsWide;
  // Four parameter sets per width; a sixth of them without turn or elevation,
  // where the span's last column reads exactly one sample past the source row.
  auto with = [&](int32_t rows, int32_t sourceWidth, int32_t width, const RemapParams& p) {
    // The source row is read one sample past its end.
    const PlaneSpan spans[] = {{rows, sourceWidth, 0, 0, 0, 1, bytes, kind}, {rows, width, 0, 0, 0, 0, bytes, kind}};
    const uintptr_t junk = static_cast<uintptr_t>(ctx.rng().next());
    const Run run = [&](HostRoutine r, const Call& c) {
      as<code::filt, Slot>(r)(static_cast<const Sample*>(c.plane[0]), static_cast<Sample*>(c.plane[1]), rows,
                              sourceWidth, width, c.stride[0], c.stride[1], junk, static_cast<Background>(p.background),
                              ~junk, p.turn, junk >> 3, p.centre, junk << 5, p.scale, p.rowCentre, p.columnCentre,
                              p.rowScale, p.focal);
      return uint64_t{0};
    };
    return runCase(ctx, host, module, spans, 2, run,
                   words("rows", rows, "source", sourceWidth, "width", width, "turn", p.turn, "A", p.centre, "S",
                            p.scale, "R", p.rowCentre, "M", p.columnCentre, "Q", p.rowScale, "F", p.focal));
  };
  auto one = [&](int32_t rows, int32_t width) {
    rows = rows < 1 ? rows : rows + static_cast<int32_t>(ctx.rng().below(6));
    const bool identity = ctx.rng().chance(6);
    const int32_t sourceWidth =
        identity ? width : std::max(1, static_cast<int32_t>(ctx.rng().range(1, 2 * std::max(width, 1))));
    return with(rows, sourceWidth, width, remapParams(ctx.rng(), rows, sourceWidth, width, identity));
  };
  widths(ctx, 90, {300, 1023, 4100}, [&](int32_t rows, int32_t width) {
    for ([[maybe_unused]] int set : ctx.times(4))
      if (!one(rows, width)) return false;
    return true;
  });
  // A destination width below 1 does nothing. A negative focal length turns the
  // span around: clamped to such a row, its first column would be the width
  // itself and its last column -1, samples before the row (the fuzzer found
  // both routines writing them).
  for (int32_t width : ctx.each({-5, -1, 0})) {
    RemapParams p{};
    p.background = 0x5A;
    p.centre = 0.5f, p.scale = 1.0f, p.rowScale = 1e30f, p.focal = -20.0f;
    if (!with(3, 2, width, p)) return;
  }
}

// ------------------------------------------------------------- benchmarks

// One plane pair at width x height with the routine's bench parameters.
struct FilterBench final : BenchCase {
  FilterBench(const PlaneSpan& source, const PlaneSpan& destination, std::function<void(HostRoutine, const Call&)> fn)
      : call(std::move(fn)) {
    Rng rng(7);
    const PlaneSpan spans[] = {source, destination};
    for (int p = 0; p < 2; ++p) {
      PlaneLayout layout;
      layout.rows = spans[p].rows + spans[p].top + spans[p].bottom;
      layout.rowBytes = (spans[p].samples + spans[p].left + spans[p].right) * spans[p].sampleBytes;
      layout.stride = layout.rowBytes;
      planes[p] = std::make_unique<PlaneBuffer>(layout, Placement::Heap);
      fillSamples(rng, spans[p].kind, planes[p]->first(),
                  static_cast<std::size_t>(layout.rowBytes) * static_cast<std::size_t>(layout.rows));
      at.plane[p] = planes[p]->first() + intptr_t{layout.stride} * spans[p].top + spans[p].left * spans[p].sampleBytes;
      at.stride[p] = layout.stride;
      bytesMoved += static_cast<uint64_t>(spans[p].rows) * static_cast<uint64_t>(spans[p].samples) *
                    static_cast<uint64_t>(spans[p].sampleBytes);
    }
  }
  void run(HostRoutine routine) override { call(routine, at); }
  std::function<void(HostRoutine, const Call&)> call;
  std::unique_ptr<PlaneBuffer> planes[2];
  Call at{};
};

BenchCase* benchDeviation(int w, int h) {
  return new FilterBench({h, w, 1, 1, 1, 1, 1, Samples::Bytes}, {h, w, 0, 0, 0, 0, 1, Samples::Bytes},
                         [w, h](HostRoutine r, const Call& c) {
                           as<slot::localDeviation3x3>(r)(static_cast<const uint8_t*>(c.plane[0]),
                                                 static_cast<uint8_t*>(c.plane[1]), h, w, c.stride[0], c.stride[1]);
                         });
}

// A five-tap kernel that keeps brightness.
const uint32_t kBenchTaps[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 16, 64, 96, 64, 16};

template <int Slot, typename Sample>
BenchCase* benchWeightedSum(int w, int h) {
  constexpr int bytes = sizeof(Sample);
  const Samples kind = bytes == 1 ? Samples::Bytes : Samples::Words15;
  return new FilterBench(
      {h, w, 0, 4, 0, 0, bytes, kind}, {h, w, 0, 0, 0, 0, bytes, kind}, [w, h](HostRoutine r, const Call& c) {
        as<code::filt, Slot>(r)(static_cast<const Sample*>(c.plane[0]), static_cast<Sample*>(c.plane[1]), h, w,
                                c.stride[0], c.stride[1], kBenchTaps);
      });
}

template <int Radius>
BenchCase* benchBoxMean(int w, int h) {
  return new FilterBench({h, w, Radius, Radius, Radius, Radius, 2, Samples::Words15},
                         {h, w, 0, 0, 0, 0, 2, Samples::Words15}, [w, h](HostRoutine r, const Call& c) {
                           as<slot::filterSlot75>(r)(static_cast<const uint16_t*>(c.plane[0]),
                                                 static_cast<uint16_t*>(c.plane[1]), h, w, c.stride[0], c.stride[1],
                                                 Radius);
                         });
}
// The check's bench: radius 2 (tarnell-host bench cannot pick one).
BenchCase* benchBoxMeanCheck(int w, int h) { return benchBoxMean<2>(w, h); }

template <int Slot>
BenchCase* benchDifferenceSum(int w, int h) {
  // One call per 128 bytes of a w x h plane pair.
  return new FilterBench({h, w, 0, 0, 0, 0, 1, Samples::Bytes}, {h, w, 0, 0, 0, 0, 1, Samples::Mask},
                         [w, h](HostRoutine r, const Call& c) {
                           const auto* a = static_cast<const uint8_t*>(c.plane[0]);
                           const auto* b = static_cast<const uint8_t*>(c.plane[1]);
                           const intptr_t n = intptr_t{w} * h - 2 * kDifferenceBlockBytes;
                           uint32_t sink = 0;
                           for (intptr_t i = 0; i < n; i += kDifferenceBlockBytes) {
                             if constexpr (Slot == slot::blockDifferenceSum.number)
                               sink += as<slot::blockDifferenceSum>(r)(a + i, b + i);
                             else
                               sink += as<slot::maskedDifferenceSum>(r)(a + i, b + i + kDifferenceBlockBytes, b + i);
                           }
                           asm volatile("" : : "r"(sink));  // keeps the sums alive without a shared store
                         });
}

template <int Slot, int K>
BenchCase* benchBlockMatrix(int w, int h) {
  // w x h floats in (a quarter as many elements), as many out.
  const int32_t count = w * h;
  return new FilterBench({1, count, 0, 0, 0, 0, 4, Samples::Floats01}, {1, count, 0, 0, 0, 0, 4, Samples::Floats01},
                         [count](HostRoutine r, const Call& c) {
                           static const float* coefficients = [] {
                             static float m[static_cast<std::size_t>(16 * K)];
                             for (int i = 0; i < 16 * K; ++i) m[i] = 0.01f * static_cast<float>(i % 7) - 0.02f;
                             return m;
                           }();
                           as<code::filt, Slot>(r)(static_cast<const float*>(c.plane[0]), count, coefficients, 0, 0,
                                                   static_cast<float*>(c.plane[1]));
                         });
}

template <int Slot, typename Sample>
BenchCase* benchRemap(int w, int h) {
  constexpr int bytes = sizeof(Sample);
  const Samples kind = bytes == 1 ? Samples::Bytes : bytes == 2 ? Samples::Words15 : Samples::Floats01;
  // A 0.3 radian turn of a view as wide as the source, elevation over the rows.
  return new FilterBench(
      {h, w, 0, 0, 0, 1, bytes, kind}, {h, w, 0, 0, 0, 0, bytes, kind}, [w, h](HostRoutine r, const Call& c) {
        const float fw = static_cast<float>(w), fh = static_cast<float>(h);
        as<code::filt, Slot>(r)(static_cast<const Sample*>(c.plane[0]), static_cast<Sample*>(c.plane[1]), h, w, w,
                                c.stride[0], c.stride[1], 0, 0, 0, 0.3f, 0, fw / 2, 0, fw, fh / 2, fw / 2, 2 * fh, fw);
      });
}

// The module's routine notifies the host of the planes; the host's own does not.
constexpr CallKey kNotification[] = {{code::core, 0}};

const Check kChecks[] = {
    judgingCalls(customCheck(slot::localDeviation3x3, &verifyDeviation, &benchDeviation), kNotification),
    customCheck(slot::filterSlot28, &verifyWeightedSum<slot::filterSlot28.number, uint8_t>, &benchWeightedSum<slot::filterSlot28.number, uint8_t>),
    customCheck(slot::filterSlot74, &verifyWeightedSum<slot::filterSlot74.number, uint16_t>, &benchWeightedSum<slot::filterSlot74.number, uint16_t>),
    customCheck(slot::filterSlot75, &verifyBoxMean, &benchBoxMeanCheck),
    customCheck(slot::blockDifferenceSum, &verifyDifferenceSum<slot::blockDifferenceSum.number>, &benchDifferenceSum<slot::blockDifferenceSum.number>),
    customCheck(slot::maskedDifferenceSum, &verifyDifferenceSum<slot::maskedDifferenceSum.number>, &benchDifferenceSum<slot::maskedDifferenceSum.number>),
    customCheck(slot::blockMatrixFilter2, &verifyBlockMatrix<slot::blockMatrixFilter2.number, 2>, &benchBlockMatrix<slot::blockMatrixFilter2.number, 2>),
    customCheck(slot::blockMatrixFilter3, &verifyBlockMatrix<slot::blockMatrixFilter3.number, 3>, &benchBlockMatrix<slot::blockMatrixFilter3.number, 3>),
    customCheck(slot::blockMatrixFilter4, &verifyBlockMatrix<slot::blockMatrixFilter4.number, 4>, &benchBlockMatrix<slot::blockMatrixFilter4.number, 4>),
    customCheck(slot::blockMatrixFilter5, &verifyBlockMatrix<slot::blockMatrixFilter5.number, 5>, &benchBlockMatrix<slot::blockMatrixFilter5.number, 5>),
    customCheck(slot::angularRemap8, &verifyRemap<slot::angularRemap8.number, uint8_t, uint8_t>, &benchRemap<slot::angularRemap8.number, uint8_t>),
    customCheck(slot::angularRemap16, &verifyRemap<slot::angularRemap16.number, uint16_t, uint16_t>, &benchRemap<slot::angularRemap16.number, uint16_t>),
    customCheck(slot::angularRemapSlot202, &verifyRemap<slot::angularRemapSlot202.number, float, int32_t>, &benchRemap<slot::angularRemapSlot202.number, float>),
};

}  // namespace

std::span<const Check> checksFilter() { return kChecks; }

}  // namespace tarnell::verify
