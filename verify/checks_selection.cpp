// Checks of the selection routines: the mark spread as a plane check, the lane
// propagation and the region classification with lanes and regions laid out here
// (lane steps of any sign and size, regions of every class).
#include <algorithm>
#include <climits>
#include <cstring>
#include <sstream>
#include <vector>

#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/runner.h"
#include "verify/twin.h"

namespace tarnell::verify {

namespace {

using Byte = unsigned char;


// ------------------------------------------------------------ 26: mark spread

uint64_t invokeSpread(HostRoutine r, const PlaneCall& c) {
  as<slot::spreadMarkVertical>(r)(static_cast<uint8_t*>(c.plane[0]), c.rows, c.columns, c.stride[0]);
  return 0;
}
constexpr PlaneShape kShapeSpread = [] {
  PlaneShape s{};
  s.planes[0] = {"mask", 1, Role::InOut, Samples::Mask};
  s.planeCount = 1;
  s.invoke = &invokeSpread;
  s.negativeStrides = true;
  return s;
}();

// Both sides' outcome; false when the check should stop.
bool compare(Context& ctx, const std::string& what, std::initializer_list<const Twin*> twins, uint64_t hostResult,
             uint64_t moduleResult) {
  std::string problem;
  for (const Twin* twin : twins)
    if (problem.empty()) problem = twin->difference();
  return ctx.judge(what, problem.empty() ? resultMismatch(hostResult, moduleResult) : problem);
}

Placement drawPlacement(Rng& rng) { return rng.chance(8) ? kGuardPages[rng.below(2)] : Placement::Heap; }

// ------------------------------------------------------ 35: lane propagation

// Strengths: mostly empty or small (so decay, equal strengths and the strength 1
// that never decays all occur), some 254 and 255, some anything.
Byte drawStrength(Rng& rng) {
  const uint32_t r = rng.below(16);
  if (r < 6) return 0;
  if (r < 12) return static_cast<Byte>(1 + rng.below(6));
  if (r < 14) return static_cast<Byte>(254 + (r & 1));
  return rng.byte();
}

struct LaneLayout {
  int32_t lanes, length, laneStep, alongStep;
  // Offsets of the first and last byte touched, from the first lane's position 0.
  std::ptrdiff_t lastLane() const { return std::max<std::ptrdiff_t>(std::ptrdiff_t{lanes} - 1, 0) * laneStep; }
  std::ptrdiff_t lastPosition() const { return std::max<std::ptrdiff_t>(std::ptrdiff_t{length} - 1, 0) * alongStep; }
  std::ptrdiff_t low() const { return std::min<std::ptrdiff_t>(0, lastLane()) + std::min<std::ptrdiff_t>(0, lastPosition()); }
  std::ptrdiff_t high() const { return std::max<std::ptrdiff_t>(0, lastLane()) + std::max<std::ptrdiff_t>(0, lastPosition()); }
};

// Lanes of adjacent bytes (the vector path), reversed, spaced out, or running
// down the columns of a plane whose rows are the lanes.
LaneLayout drawLayout(Rng& rng, int32_t lanes, int32_t length) {
  const int32_t pad = rng.chance(3) ? 0 : static_cast<int32_t>(1 + rng.below(40));
  const int32_t sign = rng.chance(4) ? -1 : 1;
  switch (rng.below(5)) {
    case 0:
    case 1: return {lanes, length, 1, sign * (std::max(lanes, 1) + pad)};
    case 2: return {lanes, length, -1, sign * (std::max(lanes, 1) + pad)};
    case 3: {
      const int32_t spacing = static_cast<int32_t>(2 + rng.below(3));
      return {lanes, length, spacing, sign * (std::max(lanes, 1) * spacing + pad)};
    }
    default: return {lanes, length, sign * (std::max(length, 1) + pad), rng.chance(2) ? 1 : -1};
  }
}

bool propagateCase(Context& ctx, HostRoutine host, HostRoutine module, const LaneLayout& l, Placement placement) {
  Rng& rng = ctx.rng();
  const std::size_t misalign = rng.below(16);
  const std::size_t span = static_cast<std::size_t>(l.high() - l.low() + 1) + misalign;
  Twin strength(rng, span, placement), value(rng, span, placement);
  {
    const Rng::Content content(rng);
    for (std::size_t i = 0; i < span; ++i) strength.at(i) = drawStrength(rng);
  }
  strength.reset();
  const std::ptrdiff_t origin = static_cast<std::ptrdiff_t>(misalign) - l.low();
  as<slot::propagateDecaying>(host)(strength.host(origin), value.host(origin), l.lanes, l.length, l.laneStep, l.alongStep);
  as<slot::propagateDecaying>(module)(strength.module(origin), value.module(origin), l.lanes, l.length, l.laneStep, l.alongStep);
  std::ostringstream what;
  what << "lanes " << l.lanes << " length " << l.length << " lane step " << l.laneStep << " along step "
       << l.alongStep << ' ' << placementName(placement);
  return compare(ctx, what.str(), {&strength, &value}, 0, 0);
}

void verifyPropagate(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  std::vector<int32_t> laneCounts = {0, -1, 1, 2, 15, 16, 17, 31, 32, 33, 47, 48, 100, 257};
  for (int i = 0; i < (ctx.thorough() ? 24 : 8); ++i) laneCounts.push_back(static_cast<int32_t>(1 + rng.below(80)));
  for (int32_t lanes : ctx.each(laneCounts))
    for (int32_t length : ctx.each({INT32_MIN, 0, 1, 2, 3, 7, 16, 40}))
      for ([[maybe_unused]] int rep : ctx.times(ctx.thorough() ? 4 : 2))
        if (!propagateCase(ctx, host, module, drawLayout(rng, lanes, length), drawPlacement(rng))) return;
  // Long lanes: every strength decays to 1 somewhere along them.
  for (int32_t length : ctx.each({300, 1000}))
    if (!propagateCase(ctx, host, module, drawLayout(rng, 40, length), Placement::Heap)) return;
}

struct PropagateBench final : BenchCase {
  PropagateBench(int width, int height) : w(std::max(16, width)), h(std::max(2, height)), strength(size()), value(size()) {
    Rng rng(7);
    for (Byte& b : strength) b = drawStrength(rng);
    for (Byte& b : value) b = static_cast<Byte>(rng.next() >> 56);
    bytesMoved = 4 * size();  // both planes read and written
  }
  std::size_t size() const { return static_cast<std::size_t>(w) * static_cast<std::size_t>(h); }
  // Lanes along the rows' adjacent bytes: the data settles after the first call
  // and every later call walks it again.
  void run(HostRoutine routine) override { as<slot::propagateDecaying>(routine)(strength.data(), value.data(), w, h, 1, w); }
  int32_t w, h;
  std::vector<Byte> strength, value;
};

// ------------------------------------------------- 33: region classification

enum RegionClass { Empty, Faint, Full, Marked, Mixed, kClasses };

Byte drawOfClass(Rng& rng, int cls) {
  switch (cls) {
    case Empty: return 0;
    case Faint: return static_cast<Byte>(rng.chance(3) ? 0 : 1 + rng.below(127));
    case Full: return 255;
    default: return static_cast<Byte>(128 + rng.below(128));
  }
}

bool classifyCase(Context& ctx, HostRoutine host, HostRoutine module, int32_t rows, int32_t count, int32_t pitch,
                  int cls) {
  Rng& rng = ctx.rng();
  const bool down = rng.chance(4);
  const std::size_t misalign = rng.below(16);
  const int64_t usedRows = std::max(rows, 0), usedCount = std::max(count, 0);
  const std::size_t span = static_cast<std::size_t>(std::max<int64_t>(usedRows - 1, 0) * pitch + usedCount) + misalign;
  Twin region(rng, span, drawPlacement(rng));
  const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(misalign) + (down ? std::max<int64_t>(usedRows - 1, 0) * pitch : 0);
  const int32_t step = down ? -pitch : pitch;
  // Uniform regions; a mixed one is uniform but for one byte of the other kind,
  // anywhere, so the rows seen before the answer is settled vary.
  const int base = cls == Mixed ? static_cast<int>(rng.below(4)) : cls;
  {
    const Rng::Content content(rng);
    for (int64_t r = 0; r < usedRows; ++r)
      for (int64_t c = 0; c < usedCount; ++c) region.at(static_cast<std::size_t>(first + r * step + c)) = drawOfClass(rng, base);
  }
  if (cls == Mixed && usedRows * usedCount > 0) {
    const int64_t r = rng.below(static_cast<uint32_t>(usedRows)), c = rng.below(static_cast<uint32_t>(usedCount));
    region.at(static_cast<std::size_t>(first + r * step + c)) = base == Full || base == Marked ? static_cast<Byte>(rng.below(128))
                                                                                               : static_cast<Byte>(128 + rng.below(128));
  }
  region.reset();
  const auto hostResult = static_cast<uint32_t>(as<slot::selectionSlot33>(host)(region.host(first), rows, count, step));
  const auto moduleResult = static_cast<uint32_t>(as<slot::selectionSlot33>(module)(region.module(first), rows, count, step));
  std::ostringstream what;
  what << "rows " << rows << " count " << count << " step " << step << " class " << cls;
  return compare(ctx, what.str(), {&region}, hostResult, moduleResult);
}

void verifyClassify(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  std::vector<int32_t> counts;
  for (int32_t c = -1; c <= 40; ++c) counts.push_back(c);
  for (int32_t c : {47, 48, 63, 64, 65, 100, 1000, 4097}) counts.push_back(c);
  for (int32_t rows : ctx.each({INT32_MIN, 0, 1, 2, 3, 7}))
    for (int32_t count : ctx.each(counts))
      for (int cls : ctx.times(int{kClasses})) {
        const int32_t pitch = std::max(count, 1) + (rng.chance(2) ? 0 : static_cast<int32_t>(rng.below(33)));
        if (!classifyCase(ctx, host, module, rows, count, pitch, cls)) return;
      }
}

struct ClassifyBench final : BenchCase {
  // A fully set region: every byte is read, nothing settles the answer early.
  ClassifyBench(int width, int height) : w(std::max(16, width)), h(std::max(1, height)), region(size(), 255) {
    bytesMoved = size();
  }
  std::size_t size() const { return static_cast<std::size_t>(w) * static_cast<std::size_t>(h); }
  void run(HostRoutine routine) override {
    result = as<slot::selectionSlot33>(routine)(region.data(), h, w, w);
    if (++calls % 4096 == 0)  // the host logs each call; keep its log short
      if (refhost::ReferenceHost* host = refhost::ReferenceHost::active()) host->clearLogs();
  }
  int32_t w, h;
  std::vector<Byte> region;
  int32_t result = 0;
  uint64_t calls = 0;
};

template <typename T>
BenchCase* makeBench(int width, int height) {
  return new T(width, height);
}

const Check kChecks[] = {
    planeCheck(slot::spreadMarkVertical, kShapeSpread),
    customCheck(slot::propagateDecaying, &verifyPropagate, &makeBench<PropagateBench>),
    customCheck(slot::selectionSlot33, &verifyClassify, &makeBench<ClassifyBench>),
};

}  // namespace

std::span<const Check> checksSelection() { return kChecks; }

}  // namespace tarnell::verify
