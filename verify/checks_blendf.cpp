// Checks of the float composites driven by a parameter record ('blnd' 275, 276,
// 277, 278, 320) and of the float minimum (289). A record does not fit the plane
// model, so one custom check serves all six: records are drawn at random and built
// on purpose (every case with every plane packed or not, null planes with any step,
// the darken short cut and its near misses, every nothing-to-do field, NaN,
// infinities, values outside 0..1), each plane with guard bytes, and each call made
// with one of several caller control words (rounding modes, flush-to-zero,
// denormals-are-zero, sticky flags). The check compares every byte of every plane
// with the host's, requires the control word's control bits back unchanged, and
// compares the calls that reached the host's recorded routines ('blnd' 275, 289,
// 290 and 'memo' 110) with the calls the record asks for.
//
// NaN samples are the processor's default NaN, the one invalid operations make: a
// result then does not depend on which operand a NaN came from.
#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/planes.h"
#include "verify/runner.h"

namespace tarnell::verify {

namespace {

using Byte = unsigned char;
using Record = FloatCompositeRecord;

enum { kSource, kDestination, kMask, kPlanes };
const char* const kPlaneNames[kPlanes] = {"source", "destination", "mask"};

constexpr uint32_t kDefaultCsr = 0x1F80;
// Caller control words: nearest; down; up with flush-to-zero and denormals-are-zero;
// truncation; nearest with every sticky flag set; flush-to-zero alone.
constexpr uint32_t kCallerCsr[] = {0x1F80, 0x3F80, 0xDFC0, 0x7F80, 0x1FBF, 0x9F80};
constexpr uint32_t kStickyFlags = 0x3F;

uint32_t readCsr() {
  uint32_t v;
  asm volatile("stmxcsr %0" : "=m"(v));
  return v;
}
void writeCsr(uint32_t v) { asm volatile("ldmxcsr %0" : : "m"(v) : "memory"); }

// The control bits this processor keeps as written. A processor keeps them all;
// valgrind does not model flush-to-zero and denormals-are-zero, and reads them
// back clear whatever was written, so under it the control word can only be
// compared without them.
uint32_t keptControlBits() {
  static const uint32_t kept = [] {
    constexpr uint32_t kFlushBits = 0x8040;  // flush-to-zero, denormals-are-zero
    const uint32_t own = readCsr();
    writeCsr(own | kFlushBits);
    const uint32_t back = readCsr();
    writeCsr(own);
    return ~(kFlushBits & ~back);
  }();
  return kept;
}

float bitsToFloat(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}
uint32_t floatBits(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return bits;
}
const float kNaN = bitsToFloat(0xFFC00000u);  // the default NaN
const float kInf = bitsToFloat(0x7F800000u);
const float kSpecials[] = {0.0f, -0.0f, 1.0f, 0.5f, 0.25f, kNaN, kInf, -kInf, 1e-40f, -1e-40f, 3e38f, -2.0f, 1.5f};
template <class T, std::size_t N>
T pick(Rng& rng, const T (&list)[N]) {
  return list[rng.below(N)];
}

// ------------------------------------------------------------ building records

struct Layout {
  bool present = true;
  int32_t rowStride = 0;  // bytes, a multiple of 4
  int32_t step = 4;       // bytes, anything
  int misalign = 0;       // of the first sample from a 16-byte boundary: 0, 4, 8 or 12
};

// Which samples a plane gets: 0..1 with repeats, -0.5..1.5, or a third specials.
enum class Values { Unit, Wide, Specials };

// A record before it has planes: what the builder draws or a case fixes.
struct RecordPlan {
  int32_t kind = 3, columns = 1, rows = 1;
  Layout plane[kPlanes];
  float constant = 0.5f;
  uint8_t opacity = 255;
  uint32_t csr = kDefaultCsr;
  Values values[kPlanes] = {Values::Unit, Values::Unit, Values::Unit};
};

std::string describe(const Context& ctx, const RecordPlan& s) {
  std::ostringstream out;
  out << checkLabel(ctx.check()) << ' ' << ctx.origin() << " kind=" << s.kind << " columns=" << s.columns
      << " rows=" << s.rows << " opacity=" << int{s.opacity} << " constant=0x" << std::hex << floatBits(s.constant)
      << " mxcsr=0x" << s.csr << std::dec;
  for (int p = 0; p < kPlanes; ++p) {
    out << ' ' << kPlaneNames[p] << (s.plane[p].present ? "" : "(null)") << "/stride " << s.plane[p].rowStride
        << "/step " << s.plane[p].step << "/+" << s.plane[p].misalign;
  }
  return out.str();
}

// A packed plane (step 4, rows below each other) or one of the others.
Layout layoutFor(Rng& rng, int32_t columns, bool packed) {
  static const int32_t kSteps[] = {0, 8, 12, -4, -8, 6, 2, 7, -6};
  Layout l;
  l.misalign = 4 * static_cast<int>(rng.below(4));
  l.step = packed ? 4 : pick(rng, kSteps);
  const int32_t wide = (columns < 1 ? 1 : columns) * 4 * ((l.step < 0 ? -l.step : l.step) >> 2);
  l.rowStride = wide + 4 * static_cast<int32_t>(rng.below(4));
  if (!packed && rng.chance(2)) l.rowStride = rng.chance(4) ? 0 : -l.rowStride;
  return l;
}

// A random record: any case, any layout, sometimes nothing to do.
RecordPlan randomPlan(Rng& rng) {
  static const int32_t kWidths[] = {0, -1, -7, 63, 64, 65, 257, 1031};
  static const int32_t kRows[] = {0, -1, -2};
  static const int32_t kKinds[] = {2, 0, -3, 4};
  static const uint8_t kOpacities[] = {0, 1, 254, 255, 255, 255, 128};
  RecordPlan s;
  s.kind = rng.chance(16) ? pick(rng, kKinds) : 3;
  s.columns = rng.chance(8) ? pick(rng, kWidths) : static_cast<int32_t>(rng.range(1, 40));
  s.rows = rng.chance(12) ? pick(rng, kRows) : static_cast<int32_t>(rng.range(1, 4));
  for (int p = 0; p < kPlanes; ++p) {
    s.plane[p] = layoutFor(rng, s.columns, !rng.chance(3));
    s.values[p] = static_cast<Values>(rng.below(3));
  }
  s.plane[kSource].present = !rng.chance(4);
  s.plane[kMask].present = rng.chance(2);
  s.plane[kDestination].present = !rng.chance(20);
  s.opacity = rng.chance(2) ? pick(rng, kOpacities) : static_cast<uint8_t>(rng.below(256));
  s.constant = rng.chance(2) ? pick(rng, kSpecials) : rng.uniform(-0.5f, 1.5f);
  s.csr = pick(rng, kCallerCsr);
  return s;
}

constexpr int kWidthSweep = 64 * 4;

// Records built on purpose, numbered: every width from 1 to 64 at every
// destination misalignment in a random case; every case (source, mask, partial
// opacity) with all planes packed and with one plane off the packed layout in each
// of four ways; the darken short cut and its near misses; each nothing-to-do field.
RecordPlan purposefulPlan(Rng& rng, int n) {
  static const int32_t kWidths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 64, 67, 100};
  if (n < kWidthSweep) {
    RecordPlan s = randomPlan(rng);
    s.kind = 3;
    s.columns = 1 + n / 4;
    s.rows = 1 + n % 2;
    s.opacity = static_cast<uint8_t>(s.opacity == 0 ? 255 : s.opacity);
    s.plane[kDestination] = layoutFor(rng, s.columns, true);
    s.plane[kDestination].misalign = 4 * (n % 4);
    return s;
  }
  n -= kWidthSweep;
  RecordPlan s;
  s.columns = kWidths[n % 16];
  s.rows = 1 + n % 3;
  s.csr = kCallerCsr[n % 6];
  for (int p = 0; p < kPlanes; ++p) {
    s.plane[p] = layoutFor(rng, s.columns, true);
    s.values[p] = static_cast<Values>((n + p) % 3);
  }
  const int group = n / 16;
  if (group < 8 * 13) {
    const int which = group % 8, variant = group / 8;  // variant 0: packed; then plane x way
    s.plane[kSource].present = (which & 4) != 0;
    s.plane[kMask].present = (which & 2) != 0;
    s.opacity = (which & 1) != 0 ? static_cast<uint8_t>(n % 2 == 0 ? 1 + n % 254 : 254) : 255;
    if (variant > 0) {
      Layout& l = s.plane[(variant - 1) % 3];
      switch ((variant - 1) / 3) {
        case 0: l.rowStride = -l.rowStride; break;
        case 1: l = layoutFor(rng, s.columns, false); break;
        case 2: l.step = 0; break;
        default: l.step = -4; l.rowStride = -l.rowStride; break;
      }
    }
    s.constant = pick(rng, kSpecials);
    return s;
  }
  // The short cut: no source, constant 0 of either sign, full opacity, no mask;
  // then the same with one thing changed, and every nothing-to-do field.
  s.plane[kSource].present = false;
  s.plane[kMask].present = false;
  s.opacity = 255;
  s.constant = n % 2 == 0 ? 0.0f : -0.0f;
  if (n % 5 == 1) s.plane[kDestination] = layoutFor(rng, s.columns, false);
  switch (group - 8 * 13) {
    case 0: break;
    case 1: s.constant = 1e-45f; break;
    case 2: s.opacity = 254; break;
    case 3: s.plane[kMask].present = true; break;
    case 4: s.kind = 2; break;
    case 5: s.plane[kDestination].present = false; break;
    case 6: s.columns = 0; break;
    case 7: s.rows = 0; break;
    case 8: s.opacity = 0; s.plane[kSource].present = true; break;
    default: s.rows = -1; s.plane[kSource].present = n % 2 == 0; break;
  }
  return s;
}
constexpr int kPurposeful = kWidthSweep + 16 * (8 * 13 + 10);

// ------------------------------------------------------------ planes

float drawSample(Rng& rng, Values v) {
  static const float kRepeats[] = {0.0f, 0.25f, 0.5f, 1.0f};
  switch (v) {
    case Values::Unit: return rng.chance(8) ? pick(rng, kRepeats) : rng.uniform(0.0f, 1.0f);
    case Values::Wide: return rng.uniform(-0.5f, 1.5f);
    default: return rng.chance(3) ? pick(rng, kSpecials) : rng.uniform(-0.5f, 1.5f);
  }
}

// The planes of a record, each as the content both sides start from (guards,
// samples, gaps) and the host's and the module's copies of it (planes with guard
// bytes, or against an inaccessible page where the fuzzer puts them); every sample
// the rectangle names holds a float.
struct Planes {
  std::vector<Byte> pristine[kPlanes];
  std::unique_ptr<PlaneBuffer> side[kPlanes][2];
  std::ptrdiff_t first[kPlanes] = {};  // of sample 0, from the start of the compared bytes
};

std::unique_ptr<Planes> makePlanes(Rng& rng, const RecordPlan& s) {
  auto planes = std::make_unique<Planes>();
  const int64_t rows = s.rows < 1 ? 1 : s.rows, columns = s.columns < 1 ? 1 : s.columns;
  for (int p = 0; p < kPlanes; ++p) {
    const Layout& l = s.plane[p];
    const int64_t rowStep = int64_t{l.rowStride >> 2} * 4, step = int64_t{l.step >> 2} * 4;
    const int64_t lo = std::min<int64_t>(0, (rows - 1) * rowStep) + std::min<int64_t>(0, (columns - 1) * step);
    const int64_t hi = std::max<int64_t>(0, (rows - 1) * rowStep) + std::max<int64_t>(0, (columns - 1) * step) + 4;
    // The samples' bytes as one row, its lowest byte placed so that sample 0 lies
    // at the layout's misalignment.
    PlaneLayout layout;
    layout.rowBytes = static_cast<int32_t>(hi - lo);
    layout.stride = layout.rowBytes;
    layout.misalign = static_cast<int>(((l.misalign + lo) % 64 + 64) % 64);
    for (auto& side : planes->side[p]) side = std::make_unique<PlaneBuffer>(layout, Placement::Heap);
    const PlaneBuffer& host = *planes->side[p][0];
    const std::ptrdiff_t first = host.first() - host.begin() - static_cast<std::ptrdiff_t>(lo);
    planes->first[p] = first;
    std::vector<Byte>& bytes = planes->pristine[p];
    bytes.resize(host.size());
    {
      const Rng::Filler filler(rng);
      for (Byte& b : bytes) b = rng.byte();
    }
    const Rng::Content content(rng);
    for (int64_t r = 0; r < rows; ++r)
      for (int64_t c = 0; c < columns; ++c) {
        const float v = drawSample(rng, s.values[p]);
        std::memcpy(bytes.data() + first + r * rowStep + c * step, &v, sizeof v);
      }
    for (auto& side : planes->side[p]) std::memcpy(side->begin(), bytes.data(), bytes.size());
  }
  return planes;
}

float* sampleZero(Planes& planes, int p, int side) {
  return reinterpret_cast<float*>(planes.side[p][side]->begin() + planes.first[p]);
}

Record recordFor(const RecordPlan& s, Planes& planes, int side) {
  Record r{};
  r.kind = s.kind;
  r.columns = s.columns;
  r.rows = s.rows;
  r.source = s.plane[kSource].present ? sampleZero(planes, kSource, side) : nullptr;
  r.sourceRowStride = s.plane[kSource].rowStride;
  r.sourceSampleStep = s.plane[kSource].step;
  r.sourceConstant = s.constant;
  r.destination = s.plane[kDestination].present ? sampleZero(planes, kDestination, side) : nullptr;
  r.destinationRowStride = s.plane[kDestination].rowStride;
  r.destinationSampleStep = s.plane[kDestination].step;
  r.mask = s.plane[kMask].present ? sampleZero(planes, kMask, side) : nullptr;
  r.maskRowStride = s.plane[kMask].rowStride;
  r.maskSampleStep = s.plane[kMask].step;
  r.opacity = s.opacity;
  return r;
}

// ------------------------------------------------------------ slots

using CallFn = void (*)(HostRoutine routine, const Record& record);
template <int Slot>
void callRecord(HostRoutine routine, const Record& record) {
  reinterpret_cast<SlotFn<code::blnd, Slot>>(routine)(&record);
}
void callMinimum(HostRoutine routine, const Record& r) {
  reinterpret_cast<SlotFnOf<slot::MinSourceFloat>>(routine)(r.source, r.destination, r.columns, r.rows, r.sourceRowStride,
                                                      r.destinationRowStride);
}

// The minimum takes two packed planes and no record: the same records, shaped so.
void shapeForMinimum(RecordPlan& s) {
  for (int p : {kSource, kDestination}) {
    s.plane[p].present = true;
    s.plane[p].step = 4;
  }
  s.plane[kMask].present = false;
}

uintptr_t pair(int32_t low, int32_t high) {
  return uintptr_t{static_cast<uint32_t>(low)} | (uintptr_t{static_cast<uint32_t>(high)} << 32);
}

// The calls a record must make into the host's recorded routines, found from the
// record alone: 275 hands every record with something to do to the host; case 4
// of the lighten and darken forms calls the live 290 and 289 (recorded when the
// host's own routine is there); darken's short cut calls the live 'memo' 110.
std::vector<refhost::CallRecord> expectedCalls(int slot, const Record& r, refhost::ReferenceHost& host) {
  std::vector<refhost::CallRecord> calls;
  if (slot == 289 || r.kind != 3 || r.destination == nullptr || r.columns == 0 || r.rows == 0 || r.opacity == 0)
    return calls;
  auto word = [](const void* p) { return reinterpret_cast<uintptr_t>(p); };
  if (slot == 275) {
    calls.push_back({code::blnd, 275, {word(&r), 0, 0, 0}});
    return calls;
  }
  if (slot == 277 && r.source == nullptr && r.sourceConstant == 0.0f && r.opacity == 255 && r.mask == nullptr) {
    if (!host.replaced(code::memo, 110))
      calls.push_back({code::memo, 110,
                       {word(r.destination), pair(r.columns, r.rows),
                        pair(r.destinationRowStride, r.destinationSampleStep >> 2), 0}});
    return calls;
  }
  auto packed = [](int32_t stride, int32_t step) { return step == 4 && stride >= 0; };
  const bool fast = packed(r.destinationRowStride, r.destinationSampleStep) && r.source != nullptr &&
                    packed(r.sourceRowStride, r.sourceSampleStep) && r.mask == nullptr && r.opacity == 255;
  const int target = slot == 276 ? 290 : slot == 277 ? 289 : -1;
  if (fast && target > 0 && !host.replaced(code::blnd, target))
    calls.push_back({code::blnd, target,
                     {word(r.source), word(r.destination), pair(r.columns, r.rows),
                      pair(r.sourceRowStride, r.destinationRowStride)}});
  return calls;
}

bool sameCalls(const std::vector<refhost::CallRecord>& a, const std::vector<refhost::CallRecord>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].suite != b[i].suite || a[i].slot != b[i].slot || std::memcmp(a[i].args, b[i].args, sizeof a[i].args) != 0)
      return false;
  return true;
}

// One record: the host's routine and the module's on identical planes, with the
// same caller control word. Returns false when the check should stop.
bool runRecord(Context& ctx, int slot, CallFn call, HostRoutine host, HostRoutine module, const RecordPlan& plan) {
  const std::unique_ptr<Planes> planes = makePlanes(ctx.rng(), plan);
  const Record hostRecord = recordFor(plan, *planes, 0), moduleRecord = recordFor(plan, *planes, 1);
  const uint32_t own = readCsr();
  writeCsr(plan.csr);
  call(host, hostRecord);
  const uint32_t afterHost = readCsr();
  writeCsr(own);
  ctx.host().clearLogs();
  writeCsr(plan.csr);
  call(module, moduleRecord);
  const uint32_t afterModule = readCsr();
  writeCsr(own);
  const std::vector<refhost::CallRecord> calls = ctx.host().calls();
  ctx.countCase(ctx.watched() ? describe(ctx, plan) : std::string());

  auto fail = [&](const std::string& what) { return ctx.fail(describe(ctx, plan) + ": " + what); };
  const uint32_t compared = ~kStickyFlags & keptControlBits();
  if ((afterModule & compared) != (plan.csr & compared)) {
    std::ostringstream out;
    out << "the module left the control word at 0x" << std::hex << afterModule;
    if (!fail(out.str())) return false;
  }
  if ((afterHost & compared) != (plan.csr & compared) && !fail("the host routine changed the control word"))
    return false;
  // The constant is compared with 0 as the caller's mode compares it (a denormal
  // is 0 when denormals count as zero).
  writeCsr(plan.csr);
  const std::vector<refhost::CallRecord> expected = expectedCalls(slot, moduleRecord, ctx.host());
  writeCsr(own);
  if (!sameCalls(calls, expected)) {
    std::ostringstream out;
    out << "the module made " << calls.size() << " recorded host call(s) other than the record asks for";
    for (const refhost::CallRecord& c : calls) out << " [" << c.slot << ": " << std::hex << c.args[2] << ' ' << c.args[3] << std::dec << ']';
    if (!fail(out.str())) return false;
  }
  if (std::memcmp(&moduleRecord, &hostRecord, offsetof(Record, source)) != 0) return fail("the record changed");
  for (int p = 0; p < kPlanes; ++p) {
    const Byte* h = planes->side[p][0]->begin();
    const Byte* m = planes->side[p][1]->begin();
    const std::vector<Byte>& o = planes->pristine[p];
    // The destination's samples of the rectangle; its guards and the gaps between
    // samples must come back as they were on both sides.
    std::vector<bool> sample(o.size(), false);
    if (p == kDestination && plan.rows >= 1 && plan.columns >= 1) {
      const Layout& l = plan.plane[p];
      const int64_t rowStep = int64_t{l.rowStride >> 2} * 4, step = int64_t{l.step >> 2} * 4;
      for (int64_t r = 0; r < plan.rows; ++r)
        for (int64_t c = 0; c < plan.columns; ++c)
          for (int64_t b = 0; b < 4; ++b) sample[static_cast<std::size_t>(planes->first[p] + r * rowStep + c * step + b)] = true;
    }
    for (std::size_t i = 0; i < o.size(); ++i) {
      const char* problem = p == kDestination && !sample[i]
                                ? (h[i] != o[i]   ? "outside the samples was written by the host routine"
                                   : m[i] != o[i] ? "outside the samples was written by the module"
                                                  : nullptr)
                            : p == kDestination ? (h[i] != m[i] ? "differs from the host's" : nullptr)
                            : m[i] != o[i]      ? "was written by the module"
                            : h[i] != o[i]      ? "was written by the host routine"
                                                : nullptr;
      if (problem == nullptr) continue;
      std::ostringstream out;
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(i) - planes->first[p];
      out << kPlaneNames[p] << " byte " << at << " from the first sample " << problem << ": host 0x" << std::hex
          << int{h[i]} << " module 0x" << int{m[i]} << " before 0x" << int{o[i]};
      if (!fail(out.str())) return false;
      break;
    }
  }
  return ctx.more();
}

template <int Slot>
constexpr CallFn callOf() {
  if constexpr (Slot == slot::MinSourceFloat.number) return &callMinimum;
  else return &callRecord<Slot>;
}

template <int Slot>
void verifyFloatComposite(Context& ctx, HostRoutine host, HostRoutine module) {
  constexpr CallFn call = callOf<Slot>();
  const int randomCount = ctx.thorough() ? 3000 : 600;
  for (int n : ctx.times(kPurposeful + randomCount)) {
    RecordPlan plan = n < kPurposeful ? purposefulPlan(ctx.rng(), n) : randomPlan(ctx.rng());
    if (Slot == slot::MinSourceFloat.number) shapeForMinimum(plan);
    if (!runRecord(ctx, Slot, call, host, module, plan)) return;
  }
}

// ------------------------------------------------------------ benchmarks

// Packed planes of width x height; one call of run() makes one call per case that
// the routine has a loop of its own for (cases 5 and 6; and 4 for add and
// overlay), or for the minimum one call, or for 275 one case-5 record.
struct FloatCompositeBench final : BenchCase {
  FloatCompositeBench(int slot, CallFn fn, std::vector<int> cases, int width, int height)
      : call(fn), recorded(slot == 275 || slot == 289) {
    Rng rng(static_cast<uint64_t>(slot));
    const std::size_t n = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    for (std::vector<float>* plane : {&source, &destination, &mask}) {
      plane->resize(n);
      for (float& v : *plane) v = rng.uniform(0.0f, 1.0f);
    }
    for (int c : cases) {
      Record r{};
      r.kind = 3;
      r.columns = width;
      r.rows = height;
      r.source = source.data();
      r.sourceRowStride = r.destinationRowStride = r.maskRowStride = 4 * width;
      r.sourceSampleStep = r.destinationSampleStep = r.maskSampleStep = 4;
      r.destination = destination.data();
      r.mask = (c & 2) != 0 ? mask.data() : nullptr;
      r.opacity = (c & 1) != 0 ? 200 : 255;
      records.push_back(r);
      // The forwarded slot moves nothing of its own but the record.
      bytesMoved += slot == 275 ? sizeof(Record) : 4 * n * ((c & 2) != 0 ? 4 : 3);
    }
    fixedWork = slot == 275;
  }
  void run(HostRoutine routine) override {
    for (const Record& r : records) call(routine, r);
    // The host's routines of 275 and 289 note every call: keep the log short.
    if (recorded && ++runs % 4096 == 0)
      if (refhost::ReferenceHost* host = refhost::ReferenceHost::active()) host->clearLogs();
  }
  CallFn call;
  bool recorded;
  uint64_t runs = 0;
  std::vector<float> source, destination, mask;
  std::vector<Record> records;
};

template <int Slot>
BenchCase* benchFloatComposite(int width, int height) {
  std::vector<int> cases = {Slot == slot::FloatCompositeRecord275.number ? 5 : 4};
  if (Slot == slot::AddSourceFloat.number || Slot == slot::OverlaySourceFloat.number) cases = {4, 5, 6};
  if (Slot == slot::LightenTowardSourceFloat.number || Slot == slot::DarkenTowardSourceFloat.number) cases = {5, 6};
  return new FloatCompositeBench(Slot, callOf<Slot>(), cases, width, height);
}

// The calls expectedCalls() holds the module's to: the fill and the minimum and
// maximum the module's routines call through the live tables where the host's
// compute on their own.
constexpr CallKey kRecordCalls[] = {{code::memo, 110}, {code::blnd, 289}, {code::blnd, 290}};

template <auto Id>
constexpr Check floatCheck() {
  constexpr int Slot = decltype(Id)::number;
  return judgingCalls(customCheck(Id, &verifyFloatComposite<Slot>, &benchFloatComposite<Slot>), kRecordCalls);
}

const Check kChecks[] = {floatCheck<slot::DarkenTowardSourceFloat>(), floatCheck<slot::LightenTowardSourceFloat>(),
                         floatCheck<slot::OverlaySourceFloat>(),      floatCheck<slot::FloatCompositeRecord275>(),
                         floatCheck<slot::AddSourceFloat>(),          floatCheck<slot::MinSourceFloat>()};

}  // namespace

std::span<const Check> checksBlendFloat() { return kChecks; }

}  // namespace tarnell::verify
