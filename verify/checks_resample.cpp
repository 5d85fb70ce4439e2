// Checks of the resampling routines ('rsmp'): kernel filters driven by index,
// phase and weight arrays, box reductions, and remaps from 16.16 coordinates.
//
// None fits the plane model (index arrays, coordinates, per-row counts), so each
// is a custom check over one shared case: every buffer (source, destination and
// the parameter arrays) exists twice with the same random bytes, the host's
// routine runs on one copy and the module's on the other, and both copies are then
// compared whole, guards included. Some cases put every buffer flush against an
// inaccessible page, so reading a byte beyond an array or a kernel faults.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/planes.h"
#include "verify/runner.h"

namespace tarnell::verify {

namespace {

using Byte = unsigned char;

// The buffers of one case, each twice: host side 0, module side 1.
class Arena {
 public:
  explicit Arena(Placement placement) : placement_(placement) {}

  // A plane of rows x rowBytes at the given stride (bytes); returns its id.
  int plane(const char* name, int32_t rows, int32_t rowBytes, int32_t stride, int misalign, Rng& rng) {
    PlaneLayout layout;
    layout.rows = std::max(rows, 1);
    layout.rowBytes = std::max(rowBytes, 1);
    layout.stride = stride;
    layout.misalign = misalign;
    Buffer b{name, {}, {}};
    for (auto& side : b.side) side = std::make_unique<PlaneBuffer>(layout, placement_);
    b.pristine.resize(b.side[0]->size());
    fillSamples(rng, Samples::Bytes, b.pristine.data(), b.pristine.size());
    buffers_.push_back(std::move(b));
    return static_cast<int>(buffers_.size()) - 1;
  }
  // A one-row array of n elements of T.
  template <typename T>
  int array(const char* name, std::size_t n, Rng& rng) {
    const auto bytes = static_cast<int32_t>(n * sizeof(T));
    return plane(name, 1, bytes, std::max(bytes, 1), static_cast<int>(rng.below(8)) * static_cast<int>(sizeof(T)), rng);
  }

  // The content both sides start from, at the plane's first sample.
  template <typename T>
  T* pristine(int id) {
    Buffer& b = buffers_[static_cast<std::size_t>(id)];
    return reinterpret_cast<T*>(b.pristine.data() + (b.side[0]->first() - b.side[0]->begin()));
  }
  template <typename T>
  T* side(int id, int s) const {
    return reinterpret_cast<T*>(buffers_[static_cast<std::size_t>(id)].side[s]->first());
  }
  Byte* base(int id, int s) const { return buffers_[static_cast<std::size_t>(id)].side[s]->first(); }

  void reset() {
    for (Buffer& b : buffers_)
      for (auto& side : b.side) std::memcpy(side->begin(), b.pristine.data(), b.pristine.size());
  }

  // Empty when both sides hold the same bytes and neither wrote outside a
  // buffer's rows (guards, padding between rows: the same write on both sides is
  // still a fault); else where the first write outside or difference is.
  std::string difference() const {
    for (const Buffer& b : buffers_)
      for (int s = 0; s < 2; ++s) {
        const Byte* bytes = b.side[s]->begin();
        if (std::memcmp(bytes, b.pristine.data(), b.pristine.size()) == 0) continue;
        // Rows may overlap (a remap's destination advance): a byte is in the rows
        // when it lies in any of them.
        const PlaneLayout& l = b.side[s]->layout();
        std::vector<bool> inRows(b.pristine.size(), false);
        const std::ptrdiff_t first = b.side[s]->first() - bytes;
        for (int32_t r = 0; r < l.rows; ++r)
          for (int32_t k = 0; k < l.rowBytes; ++k) {
            const std::ptrdiff_t at = first + static_cast<std::ptrdiff_t>(r) * l.stride + k;
            if (at >= 0 && static_cast<std::size_t>(at) < inRows.size()) inRows[static_cast<std::size_t>(at)] = true;
          }
        for (std::size_t i = 0; i < b.pristine.size(); ++i) {
          if (bytes[i] == b.pristine[i] || inRows[i]) continue;
          std::ostringstream out;
          out << (s == 0 ? "the host routine" : "the module") << " wrote " << b.name << " outside its rows, at byte "
              << static_cast<std::ptrdiff_t>(i) - (b.side[s]->first() - b.side[s]->begin()) << " from the first: 0x"
              << std::hex << int{bytes[i]} << " before 0x" << int{b.pristine[i]};
          return out.str();
        }
      }
    for (const Buffer& b : buffers_) {
      const Byte* h = b.side[0]->begin();
      const Byte* m = b.side[1]->begin();
      if (std::memcmp(h, m, b.pristine.size()) == 0) continue;
      std::size_t i = 0;
      while (h[i] == m[i]) ++i;
      std::ostringstream out;
      out << b.name << " differs";
      int32_t row = 0, byte = 0;
      if (b.side[0]->inRow(i, row, byte))
        out << " at row " << row << " byte " << byte;
      else
        out << " at byte " << static_cast<std::ptrdiff_t>(i) - (b.side[0]->first() - b.side[0]->begin())
            << " from the first (outside the rows)";
      out << ": host 0x" << std::hex << int{h[i]} << " module 0x" << int{m[i]} << " before 0x" << int{b.pristine[i]};
      return out.str();
    }
    return {};
  }

 private:
  struct Buffer {
    const char* name;
    std::unique_ptr<PlaneBuffer> side[2];
    std::vector<Byte> pristine;
  };
  Placement placement_;
  std::vector<Buffer> buffers_;
};

Placement drawPlacement(Rng& rng) {
  const uint32_t k = rng.below(10);
  return k == 0 ? Placement::GuardPageAfter : k == 1 ? Placement::GuardPageBefore : Placement::Heap;
}

// Runs a case on both sides; `call(side)` calls the routine of that side (0 host,
// 1 module). Returns false when the check should stop.
bool runCase(Context& ctx, Arena& arena, const std::string& what, const std::function<void(int)>& call) {
  arena.reset();
  call(0);
  call(1);
  return ctx.judge(what, arena.difference());
}


// A row stride of at least `bytes` for samples of `size` bytes: tight, padded (an
// odd number of bytes too: 16-bit and float routines truncate it), or going down.
int32_t drawStride(Rng& rng, int32_t bytes, bool negativeAllowed) {
  const uint32_t k = rng.below(4);
  const int32_t stride = k == 0 ? bytes : k == 1 ? bytes + 64 : bytes + 1 + static_cast<int32_t>(rng.below(47));
  return negativeAllowed && rng.chance(5) ? -stride : stride;
}

// The stride a routine steps by, for a stride passed in bytes: truncated to whole samples.
int32_t usedStride(int32_t stride, int size) { return stride / size * size; }

// ---------------------------------------------------------- kernel filters

// Tap counts 0..21 and a few negative ones, then wider kernels now and then.
int16_t drawTaps(Rng& rng, int64_t caseIndex) {
  if (caseIndex < 22 * 4) return static_cast<int16_t>(caseIndex % 22);
  const uint32_t k = rng.below(16);
  if (k == 0) return static_cast<int16_t>(-static_cast<int32_t>(rng.below(4)) - 1);
  if (k == 1) return k == 1 && rng.chance(2) ? int16_t{-32768} : static_cast<int16_t>(22 + rng.below(20));
  return static_cast<int16_t>(rng.below(22));
}

// Weight sets: most sum to 16384 (a constant area keeps its value), some are
// random over the whole signed range (overshoot, wrap-around of the 32-bit sum).
void fillWeights(Rng& rng, int16_t* w, int32_t phases, int32_t taps) {
  for (int32_t p = 0; p < phases; ++p) {
    int16_t* set = w + p * taps;
    if (rng.chance(3)) {
      for (int32_t k = 0; k < taps; ++k)
        set[k] = rng.chance(8) ? (rng.chance(2) ? int16_t{-32768} : int16_t{32767})
                               : static_cast<int16_t>(rng.range(-32768, 32767));
    } else {
      int32_t left = 16384;
      for (int32_t k = 0; k + 1 < taps; ++k) {
        set[k] = static_cast<int16_t>(rng.range(-4000, 12000));
        left -= set[k];
      }
      set[taps - 1] = static_cast<int16_t>(std::clamp(left, -32768, 32767));
    }
  }
}

// Source positions whose kernel lies inside n samples (or rows).
int32_t drawIndex(Rng& rng, int16_t taps, int32_t n) {
  if (taps <= 1) return static_cast<int32_t>(rng.range(-1, n - 2));
  const int32_t lo = taps / 2 - 1;
  return static_cast<int32_t>(rng.range(lo, lo + n - taps));
}

enum class Axis { Rows, Columns };

struct KernelCase;
class Arena;
// Calls a kernel filter on side s (0 host, 1 module) of a case's arena.
using KernelCall = void (*)(HostRoutine routine, const Arena& arena, int s, const KernelCase& k);

struct KernelShape {
  Axis axis;
  int sampleBytes;
  Samples samples;
  KernelCall call;
};

// One kernel-filter case: output rows x width; the source has `extra` more
// samples (or rows) than the widest kernel needs.
struct KernelCase {
  int32_t rows, width;
  int16_t taps;
  int32_t phaseCount;
  int32_t sourceStride, destinationStride;
  bool walk = false;  // positions step by one sample (row), as a plain convolution's, broken now and then
};

template <int Slot, typename T>
void callKernel(HostRoutine routine, const Arena& a, int s, const KernelCase& k) {
  as<code::rsmp, Slot>(routine)(a.side<T>(0, s), a.side<T>(1, s), k.rows, k.width, a.side<int32_t>(2, s),
                                a.side<uint8_t>(3, s), k.sourceStride, k.destinationStride, k.taps,
                                a.side<int16_t>(4, s));
}

// Builds the buffers of a case in an arena: ids 0 source, 1 destination, 2
// indices, 3 phases, 4 weights.
void buildKernelCase(Arena& a, Rng& rng, const KernelShape& shape, const KernelCase& k) {
  const int size = shape.sampleBytes;
  const int32_t taps = std::max<int32_t>(k.taps, 1);
  const int32_t positions = shape.axis == Axis::Rows ? std::max(k.width, 0) : std::max(k.rows, 0);
  const int32_t span = taps + 1 + static_cast<int32_t>(rng.below(9));  // source samples (rows) beyond the outputs'
  const int32_t srcRows = shape.axis == Axis::Rows ? std::max(k.rows, 1) : std::max(k.rows, 1) + span;
  const int32_t srcWidth = shape.axis == Axis::Rows ? std::max(k.width, 1) + span : std::max(k.width, 1);
  // Planes start on a sample boundary, at any sample of a 64-byte line.
  const auto misalign = [&] { return static_cast<int>(rng.below(static_cast<uint32_t>(64 / size))) * size; };
  a.plane("source", srcRows, srcWidth * size, usedStride(k.sourceStride, size), misalign(), rng);
  a.plane("destination", std::max(k.rows, 1), std::max(k.width, 1) * size, usedStride(k.destinationStride, size),
          misalign(), rng);
  a.array<int32_t>("indices", static_cast<std::size_t>(positions), rng);
  a.array<uint8_t>("phases", static_cast<std::size_t>(positions), rng);
  const int32_t weightCount = k.taps > 0 ? k.phaseCount * k.taps : 0;
  a.array<int16_t>("weights", static_cast<std::size_t>(weightCount), rng);

  // Source samples by the routine's kind, row by row (padding stays random).
  Byte* src = a.pristine<Byte>(0);
  const int32_t stride = usedStride(k.sourceStride, size);
  for (int32_t r = 0; r < srcRows; ++r)
    fillSamples(rng, shape.samples, src + static_cast<std::ptrdiff_t>(r) * stride, static_cast<std::size_t>(srcWidth * size));
  const int32_t extent = shape.axis == Axis::Rows ? srcWidth : srcRows;
  int32_t* indices = a.pristine<int32_t>(2);
  uint8_t* phases = a.pristine<uint8_t>(3);
  // A walk starts where its last position still has its kernel inside the source.
  const int32_t lowest = k.taps <= 1 ? -1 : k.taps / 2 - 1;
  const int32_t start =
      k.walk ? static_cast<int32_t>(rng.range(lowest, lowest + extent - taps - std::max(positions - 1, 0))) : 0;
  const Rng::Content content(rng);
  for (int32_t i = 0; i < positions; ++i) {
    indices[i] = k.walk && !rng.chance(40) ? start + i : drawIndex(rng, k.taps, extent);
    phases[i] = static_cast<uint8_t>(rng.below(static_cast<uint32_t>(k.phaseCount)));
  }
  if (weightCount > 0) fillWeights(rng, a.pristine<int16_t>(4), k.phaseCount, k.taps);
}

// The first taps check the rules' own examples: a constant area under weights
// summing to 16384 comes back exactly, and the clamps at both ends.
void verifyKernel(Context& ctx, HostRoutine host, HostRoutine module, const KernelShape& shape) {
  Rng& rng = ctx.rng();
  std::vector<int32_t> widths;
  for (int32_t w = 1; w <= (ctx.thorough() ? 40 : 24); ++w) widths.push_back(w);
  for (int32_t w : {47, 48, 49, 63, 64, 65, 127, 255, 256, 257, 300, 4100}) widths.push_back(w);
  const int64_t cases = ctx.thorough() ? 700 : 240;
  for (int64_t i : ctx.times(cases)) {
    KernelCase k{};
    k.taps = drawTaps(rng, i);
    k.width = widths[static_cast<std::size_t>(i) % widths.size()];
    k.rows = rng.chance(4) ? static_cast<int32_t>(9 + rng.below(10)) : static_cast<int32_t>(1 + rng.below(4));
    if (k.width > 1000) k.rows = static_cast<int32_t>(4 + rng.below(12));  // wide rows: several bands of rows
    if (i % 97 == 96) k.rows = -static_cast<int32_t>(rng.below(2));   // nothing to do
    if (i % 89 == 88) k.width = -static_cast<int32_t>(rng.below(2));
    k.phaseCount = 1 + static_cast<int32_t>(rng.below(rng.chance(4) ? 256 : 8));
    k.walk = rng.chance(3);
    const int32_t sourceRowBytes = (std::max(k.width, 1) + std::max<int32_t>(k.taps, 1) + 10) * shape.sampleBytes;
    k.sourceStride = drawStride(rng, sourceRowBytes, true);
    k.destinationStride = drawStride(rng, std::max(k.width, 1) * shape.sampleBytes, true);
    Arena a(drawPlacement(rng));
    buildKernelCase(a, rng, shape, k);
    const std::string what = words("rows", k.rows, "width", k.width, "taps", k.taps, "phases", k.phaseCount,
                                      "strides", k.sourceStride, k.destinationStride);
    if (!runCase(ctx, a, what, [&](int s) { shape.call(s == 0 ? host : module, a, s, k); })) return;
  }
}

// Records calls of the live 'memo' slot 0 and copies as the host's routine does.
void recordingCopy(const void* source, void* destination, int32_t count) {
  if (refhost::ReferenceHost* host = refhost::ReferenceHost::active())
    host->record({code::memo, 0, {reinterpret_cast<uintptr_t>(source), reinterpret_cast<uintptr_t>(destination),
                                  static_cast<uintptr_t>(static_cast<intptr_t>(count)), 0}});
  if (count > 0) std::memmove(destination, source, static_cast<std::size_t>(count));
}

// The 0- and 1-tap row copies go through the live 'memo' slot 0: the module must
// make the host's calls, row for row, with the same arguments.
void verifyRowCopyCalls(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  refhost::ReferenceHost& h = ctx.host();
  HostRoutine& slot0 = h.liveTable(code::memo)[0];
  const HostRoutine saved = slot0;
  slot0 = reinterpret_cast<HostRoutine>(&recordingCopy);
  for (int i : ctx.times(24)) {
    KernelCase k{};
    k.taps = static_cast<int16_t>(i % 2);
    k.rows = i < 2 ? 0 : static_cast<int32_t>(1 + rng.below(6));
    k.width = static_cast<int32_t>(1 + rng.below(70));
    k.phaseCount = 1;
    k.sourceStride = drawStride(rng, k.width + 16, true);
    k.destinationStride = drawStride(rng, k.width, true);
    Arena a(drawPlacement(rng));
    buildKernelCase(a, rng, {Axis::Columns, 1, Samples::Bytes, &callKernel<slot::FilterColumnsSse2_8.number, uint8_t>}, k);
    a.reset();
    std::vector<refhost::CallRecord> calls[2];
    for (int s = 0; s < 2; ++s) {
      h.clearLogs();
      as<slot::FilterColumnsSse2_8>(s == 0 ? host : module)(a.side<uint8_t>(0, s), a.side<uint8_t>(1, s), k.rows, k.width,
                                                 a.side<int32_t>(2, s), a.side<uint8_t>(3, s), k.sourceStride,
                                                 k.destinationStride, k.taps, a.side<int16_t>(4, s));
      for (refhost::CallRecord c : h.calls()) {
        c.args[0] -= reinterpret_cast<uintptr_t>(a.base(0, s));
        c.args[1] -= reinterpret_cast<uintptr_t>(a.base(1, s));
        calls[s].push_back(c);
      }
    }
    h.clearLogs();
    const bool same = calls[0].size() == calls[1].size() &&
                      std::equal(calls[0].begin(), calls[0].end(), calls[1].begin(), [](const auto& x, const auto& y) {
                        return x.suite == y.suite && x.slot == y.slot && std::memcmp(x.args, y.args, sizeof x.args) == 0;
                      });
    std::string problem = a.difference();
    if (!same || calls[0].size() != static_cast<std::size_t>(std::max(k.rows, 0)))
      problem = "'memo' slot 0 calls: host " + std::to_string(calls[0].size()) + ", module " +
                std::to_string(calls[1].size()) + (calls[0].size() == calls[1].size() ? " with other arguments" : "") +
                (problem.empty() ? "" : "; " + problem);
    if (!ctx.judge(words("taps", k.taps, "rows", k.rows, "width", k.width), problem)) break;
  }
  slot0 = saved;
}

// Bench data: outputs over a source as wide (or tall) as the output plus the
// kernel; 256 phases; the tap count from TARNELL_BENCH_TAPS (default 4).
int16_t benchTaps() {
  const char* text = std::getenv("TARNELL_BENCH_TAPS");
  const int taps = text != nullptr ? std::atoi(text) : 4;
  return static_cast<int16_t>(std::clamp(taps, 0, 64));
}

struct KernelBench final : BenchCase {
  KernelBench(const KernelShape& s, int width, int height) : arena(Placement::Heap), shape(s) {
    Rng rng(0xB3C4);
    k = {height, width, benchTaps(), 256, 0, 0, false};
    const int32_t extra = std::max<int32_t>(k.taps, 1) + 1;
    k.sourceStride = (shape.axis == Axis::Rows ? width + extra : width) * shape.sampleBytes;
    k.destinationStride = width * shape.sampleBytes;
    buildKernelCase(arena, rng, shape, k);
    // Positions that walk the source in order, as a resize does.
    int32_t* indices = arena.pristine<int32_t>(2);
    const int32_t positions = shape.axis == Axis::Rows ? width : height;
    for (int32_t i = 0; i < positions; ++i) indices[i] = i + std::max<int32_t>(k.taps, 1) / 2;
    arena.reset();
    bytesMoved = static_cast<uint64_t>(2) * static_cast<uint64_t>(width) * static_cast<uint64_t>(height) *
                 static_cast<uint64_t>(shape.sampleBytes);
  }
  void run(HostRoutine routine) override { shape.call(routine, arena, 1, k); }
  Arena arena;
  KernelShape shape;
  KernelCase k;
};

template <int Slot, typename T, Axis A, Samples S>
void verifyKernelOf(Context& ctx, HostRoutine host, HostRoutine module) {
  verifyKernel(ctx, host, module, {A, sizeof(T), S, &callKernel<Slot, T>});
  if constexpr (Slot == slot::FilterColumnsSse2_8.number) verifyRowCopyCalls(ctx, host, module);
}
template <int Slot, typename T, Axis A, Samples S>
BenchCase* benchKernelOf(int width, int height) {
  return new KernelBench({A, sizeof(T), S, &callKernel<Slot, T>}, width, height);
}

// ---------------------------------------------------------- box reductions

void verifyBoxAverageRows(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  const int64_t cases = ctx.thorough() ? 400 : 150;
  for (int64_t i : ctx.times(cases)) {
    int32_t rows = static_cast<int32_t>(1 + rng.below(6));
    int32_t width = i < 64 ? static_cast<int32_t>(i + 1) : static_cast<int32_t>(1 + rng.below(300));
    if (i % 61 == 60) rows = -static_cast<int32_t>(rng.below(2));
    if (i % 67 == 66) width = 0;
    std::vector<int32_t> counts(static_cast<std::size_t>(std::max(rows, 0)));
    int32_t total = 0;
    for (int32_t& n : counts) {
      const uint32_t k = rng.below(12);
      n = k == 0 ? 0 : k == 1 ? static_cast<int32_t>(250 + rng.below(20)) : static_cast<int32_t>(1 + rng.below(5));
      total += n;
    }
    Arena a(drawPlacement(rng));
    const int32_t ss = drawStride(rng, std::max(width, 1), true), ds = drawStride(rng, std::max(width, 1), true);
    a.plane("source", std::max(total, 1), std::max(width, 1), ss, static_cast<int>(rng.below(64)), rng);
    a.plane("destination", std::max(rows, 1), std::max(width, 1), ds, static_cast<int>(rng.below(64)), rng);
    a.array<int32_t>("counts", counts.size(), rng);
    std::copy(counts.begin(), counts.end(), a.pristine<int32_t>(2));
    if (i % 5 == 0)  // all 255: the truncated reciprocal must still give 255
      for (int32_t r = 0; r < total; ++r) std::memset(a.pristine<Byte>(0) + static_cast<std::ptrdiff_t>(r) * ss, 255, static_cast<std::size_t>(std::max(width, 1)));
    if (!runCase(ctx, a, words("rows", rows, "width", width, "source rows", total), [&](int s) {
          as<slot::BoxAverageRows8>(s == 0 ? host : module)(a.side<uint8_t>(0, s), a.side<uint8_t>(1, s), rows, width,
                                                     a.side<int32_t>(2, s), ss, ds);
        }))
      return;
  }
}

struct BoxAverageBench final : BenchCase {
  BoxAverageBench(int w, int height) : arena(Placement::Heap), rows(height), width(w) {
    Rng rng(0xB0C5);
    // Two and three rows alternately: a reduction by 2.5.
    std::vector<int32_t> counts(static_cast<std::size_t>(height));
    int32_t total = 0;
    for (int32_t r = 0; r < height; ++r) total += counts[static_cast<std::size_t>(r)] = 2 + r % 2;
    arena.plane("source", total, w, w, 0, rng);
    arena.plane("destination", height, w, w, 0, rng);
    arena.array<int32_t>("counts", counts.size(), rng);
    std::copy(counts.begin(), counts.end(), arena.pristine<int32_t>(2));
    arena.reset();
    bytesMoved = static_cast<uint64_t>(w) * static_cast<uint64_t>(total + height);
  }
  void run(HostRoutine routine) override {
    as<slot::BoxAverageRows8>(routine)(arena.side<uint8_t>(0, 1), arena.side<uint8_t>(1, 1), rows, width,
                               arena.side<int32_t>(2, 1), width, width);
  }
  Arena arena;
  int32_t rows, width;
};
BenchCase* benchBoxAverageRows(int width, int height) { return new BoxAverageBench(width, height); }

struct BoxReduceCase {
  int32_t rows, width, spp, a, b, ss, ds;
};

void buildBoxReduce(Arena& arena, Rng& rng, const BoxReduceCase& c) {
  const int32_t w = std::max(c.width, 1), spp = std::max(c.spp, 1), fa = std::max(c.a, 1);
  const int32_t lastPixel = (w - 1) / spp;
  const int32_t rowBytes = (lastPixel * fa + fa - 1) * spp + (w - 1) % spp + 1;
  arena.plane("source", std::max(c.rows, 1) * std::max(c.b, 1), rowBytes, c.ss, static_cast<int>(rng.below(64)), rng);
  arena.plane("destination", std::max(c.rows, 1), w, c.ds, static_cast<int>(rng.below(64)), rng);
}

// Widths above 1500 output samples must reach the host's own routine, whole and
// unchanged (the reference host records each call of its slot-24 routine).
void verifyBoxReduce(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  refhost::ReferenceHost& h = ctx.host();
  const int64_t cases = ctx.thorough() ? 800 : 200;
  for (int64_t i : ctx.times(cases)) {
    BoxReduceCase c{};
    // The module's vector path takes 1..4 samples per pixel and factors up to 8, in
    // steps of sixteen source bytes and sixteen outputs: draw around all of those.
    c.rows = static_cast<int32_t>(1 + rng.below(4));
    c.spp = static_cast<int32_t>(1 + rng.below(i % 4 == 0 ? 6 : 4));
    c.a = static_cast<int32_t>(1 + rng.below(i % 3 == 0 ? 10 : 5));
    c.b = static_cast<int32_t>(1 + rng.below(i % 5 == 0 ? 10 : 5));
    c.width = i % 20 == 19  ? static_cast<int32_t>(1499 + rng.below(4))
              : i % 2 == 0 ? static_cast<int32_t>(1 + rng.below(40))
                           : static_cast<int32_t>(1 + rng.below(200));
    if (i % 7 == 3) {  // whole pixels of 1, 2 or 4 samples, halved or quartered across
      c.spp = 1 << rng.below(3), c.a = 2 << rng.below(2);
      c.width = c.width / c.spp * c.spp + c.spp;
    }
    if (i % 31 == 30) c.rows = 0;
    if (i % 37 == 36) c.width = -1;
    const int32_t lastPixel = (std::max(c.width, 1) - 1) / c.spp;
    c.ss = drawStride(rng, ((lastPixel + 1) * c.a) * c.spp, true);
    c.ds = drawStride(rng, std::max(c.width, 1), true);
    Arena a(drawPlacement(rng));
    buildBoxReduce(a, rng, c);
    std::size_t hostCalls[2] = {0, 0};
    const std::string what = words("rows", c.rows, "width", c.width, "spp", c.spp, "a", c.a, "b", c.b);
    if (!runCase(ctx, a, what, [&](int s) {
          h.clearLogs();
          as<slot::BoxReduce8>(s == 0 ? host : module)(a.side<uint8_t>(0, s), a.side<uint8_t>(1, s), c.rows, c.width,
                                                      c.ss, c.ds, c.spp, c.a, c.b);
          for (const refhost::CallRecord& r : h.calls())
            if (r.suite == code::rsmp && r.slot == 24 && r.args[3] == static_cast<uintptr_t>(static_cast<intptr_t>(c.width)))
              ++hostCalls[s];
        }))
      return;
    const std::size_t expected = c.width > 1500 ? 1 : 0;
    if (hostCalls[1] != expected &&
        !ctx.judge(what, "the module's call reached the host's routine " + std::to_string(hostCalls[1]) +
                             " times, expected " + std::to_string(expected)))
      return;
  }
  h.clearLogs();
}

// Bench shape from TARNELL_BENCH_BOX = "spp,a,b" (default 4,2,2): outputs of whole
// pixels, at most 1500 per row, over a source of the bench size's bytes per row.
BoxReduceCase benchBoxShape(int width, int height) {
  int spp = 4, a = 2, b = 2;
  if (const char* text = std::getenv("TARNELL_BENCH_BOX")) {
    int values[3] = {spp, a, b};
    for (int k = 0; k < 3 && *text != '\0'; ++k) {
      values[k] = std::clamp(std::atoi(text), 1, 16);
      while (*text != '\0' && *text++ != ',') {
      }
    }
    spp = values[0], a = values[1], b = values[2];
  }
  const int32_t outputs = std::max(std::min(width / a, 1500) / spp * spp, spp);
  return {std::max(1, height / b), outputs, spp, a, b, width, outputs};
}

struct BoxReduceBench final : BenchCase {
  BoxReduceBench(int width, int height) : arena(Placement::Heap), c(benchBoxShape(width, height)) {
    Rng rng(0xB0C6);
    c.ss = std::max(c.ss, (c.width / c.spp) * c.a * c.spp);
    buildBoxReduce(arena, rng, c);
    arena.reset();
    bytesMoved = static_cast<uint64_t>(c.width) * static_cast<uint64_t>(c.rows) * static_cast<uint64_t>(1 + c.a * c.b);
  }
  void run(HostRoutine routine) override {
    as<slot::BoxReduce8>(routine)(arena.side<uint8_t>(0, 1), arena.side<uint8_t>(1, 1), c.rows, c.width, c.ss, c.ds,
                                c.spp, c.a, c.b);
  }
  Arena arena;
  BoxReduceCase c;
};
BenchCase* benchBoxReduce(int width, int height) { return new BoxReduceBench(width, height); }

// ------------------------------------------------------------------ remaps

// A coordinate for an axis [first, end): on the acceptance bounds, just past
// them, with a zero or non-zero fraction, or anywhere; only accepted ones when
// inside (whole groups of pixels written, as a real warp does).
uint32_t drawCoordinate(Rng& rng, int32_t first, int32_t end, bool interpolate, bool inside) {
  const uint32_t origin = (static_cast<uint32_t>(first) << 16) + (interpolate ? 128u : 32768u);
  const uint32_t limit = (static_cast<uint32_t>(end - first) << 16) - 65536u;
  if (end <= first) return rng.chance(2) ? origin : static_cast<uint32_t>(rng.next());  // nothing is accepted
  // Inside: mostly interior, now and then on a bound (groups of interior pixels with
  // one on the last column or row).
  uint64_t pick = inside ? (rng.chance(12) ? 2 * rng.below(2) : 5 + rng.below(2)) : rng.below(10);
  switch (pick) {
    case 0: return origin + limit;          // the last accepted
    case 1: return origin + limit + 1;      // just past: rejected
    case 2: return origin;                  // the first accepted
    case 3: return origin - 1;              // just before: rejected
    case 4: return static_cast<uint32_t>(rng.next());
    case 5: return origin + (static_cast<uint32_t>(rng.below(static_cast<uint32_t>(end - first))) << 16);  // fraction 0
    default: return origin + static_cast<uint32_t>(rng.below(limit + 1));
  }
}

struct RemapCase {
  int32_t rows, pixels, spp, destinationAdvance, pixelStride;
  int32_t first[2], end[2];  // x, y (the one-axis remap uses [0])
  int16_t interpolate;
  bool inside;  // every coordinate accepted (when the ranges allow it)
  // The destination walks: a pixel stride after each pixel, the advance after
  // each row, so rows start pixels x pixel stride + advance apart.
  int32_t rowBytes() const { return (std::max(pixels, 1) - 1) * pixelStride + spp; }
  int32_t rowPitch() const { return std::max(pixels, 1) * pixelStride + destinationAdvance; }
};

// The destination advance, drawn by the row pitch it gives: none (the pitch is a
// whole number of pixel strides), a few bytes either way, rows ending at their
// last sample, padded rows, rows that overlap (all at one place for a pitch of 0),
// and rows going up in memory, apart or overlapping. Later rows are written after
// earlier ones, so where rows overlap the later one's accepted pixels stay.
int32_t drawAdvance(Rng& rng, const RemapCase& c) {
  const int32_t bytes = c.rowBytes(), span = c.rowPitch() - c.destinationAdvance;
  const auto some = [&](int32_t n) { return static_cast<int32_t>(rng.below(static_cast<uint32_t>(n))); };
  switch (rng.below(10)) {
    case 0:
    case 1: return 0;
    case 2: return 1 + some(7);
    case 3: return -1 - some(7);
    case 4: return bytes - span;
    case 5:
    case 6: return drawStride(rng, bytes, false) - span;
    case 7: return some(bytes) - span;
    case 8: return -drawStride(rng, bytes, false) - span;
    default: return -1 - some(bytes) - span;
  }
}

// Destination plane of a remap: rows of pixels at pixelStride, one row pitch
// apart, so that the guards sit right outside the bytes the walk may write.
void remapDestination(Arena& arena, Rng& rng, const RemapCase& c) {
  arena.plane("destination", std::max(c.rows, 1), c.rowBytes(), c.rowPitch(), static_cast<int>(rng.below(64)), rng);
}

// Guard pages more often than the other checks: reads one past the last column
// or row weigh 0 and show only as a fault.
Placement remapPlacement(Rng& rng) {
  const uint32_t k = rng.below(5);
  return k == 0 ? Placement::GuardPageAfter : k == 1 ? Placement::GuardPageBefore : Placement::Heap;
}

RemapCase drawRemapCase(Rng& rng, int64_t i) {
  RemapCase c{};
  c.rows = static_cast<int32_t>(1 + rng.below(4));
  c.pixels = i < 40 ? static_cast<int32_t>(i + 1) : static_cast<int32_t>(1 + rng.below(90));
  // Now and then more rows and pixels than the remaps take in one tile (16 x 64).
  if (i >= 40 && rng.chance(16)) {
    c.rows = static_cast<int32_t>(17 + rng.below(24));
    c.pixels = static_cast<int32_t>(65 + rng.below(100));
  }
  c.spp = static_cast<int32_t>(rng.chance(3) ? 1 : 1 + rng.below(5));  // one sample most often: its own paths
  c.inside = rng.chance(3);
  // Side by side (whole groups stored at once) more often when inside.
  c.pixelStride = c.spp + (c.inside && rng.chance(2) ? 0 : static_cast<int32_t>(rng.below(3)));
  if (i % 53 == 52) c.rows = 0;
  if (i % 59 == 58) c.pixels = -2;
  c.destinationAdvance = drawAdvance(rng, c);
  for (int axis = 0; axis < 2; ++axis) {
    c.first[axis] = static_cast<int32_t>(rng.range(-3, 5));
    c.end[axis] = c.first[axis] + static_cast<int32_t>(1 + rng.below(rng.chance(4) ? 2 : 40));
    if (rng.chance(40)) c.end[axis] = c.first[axis] - static_cast<int32_t>(rng.below(2));  // an empty range
  }
  c.interpolate = static_cast<int16_t>(i % 2 == 0 ? 0 : rng.chance(3) ? 0x100 : 1);
  return c;
}

// Ids: 0 coordinates, 1 source, 2 destination.
void verifyRemapAxis(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  const int64_t cases = ctx.thorough() ? 1000 : 400;
  for (int64_t i : ctx.times(cases)) {
    RemapCase c = drawRemapCase(rng, i);
    const int32_t lines = std::max(c.rows, 1), along = std::max(c.end[0] - c.first[0], 1);
    // Along a row (sample steps of a pixel) or down a column (steps of a row).
    const bool down = rng.chance(2);
    const int32_t imageWidth = down ? lines : along, imageRows = down ? along : lines;
    const int32_t pixelBytes = c.spp + static_cast<int32_t>(rng.below(2));
    const int32_t stride = drawStride(rng, imageWidth * pixelBytes, true);
    const int32_t advance = down ? pixelBytes : stride, step = down ? stride : pixelBytes;
    Arena a(remapPlacement(rng));
    a.array<uint32_t>("coordinates", static_cast<std::size_t>(lines) * static_cast<std::size_t>(std::max(c.pixels, 1)), rng);
    a.plane("source", imageRows, (imageWidth - 1) * pixelBytes + c.spp, stride, static_cast<int>(rng.below(64)), rng);
    remapDestination(a, rng, c);
    uint32_t* coords = a.pristine<uint32_t>(0);
    {
      const Rng::Content content(rng);
      for (int32_t k = 0; k < lines * std::max(c.pixels, 1); ++k)
        coords[k] = drawCoordinate(rng, c.first[0], c.end[0], c.interpolate != 0, c.inside);
    }
    const std::string what = words("rows", c.rows, "pixels", c.pixels, "spp", c.spp, "first", c.first[0], "end",
                                      c.end[0], "interpolate", c.interpolate, down ? "down" : "across",
                                      "destination advance", c.destinationAdvance, "pixel stride", c.pixelStride);
    if (!runCase(ctx, a, what, [&](int s) {
          as<slot::RemapAxis8>(s == 0 ? host : module)(a.side<uint32_t>(0, s), a.side<uint8_t>(1, s),
                                                      a.side<uint8_t>(2, s), c.rows, c.pixels, c.spp, advance, step,
                                                      c.destinationAdvance, c.pixelStride, c.first[0], c.end[0],
                                                      c.interpolate);
        }))
      return;
  }
}

void verifyRemapPlane(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  const int64_t cases = ctx.thorough() ? 1000 : 400;
  for (int64_t i : ctx.times(cases)) {
    RemapCase c = drawRemapCase(rng, i);
    const int32_t nx = std::max(c.end[0] - c.first[0], 1), ny = std::max(c.end[1] - c.first[1], 1);
    const int32_t ps = c.spp + static_cast<int32_t>(rng.below(2));
    const int32_t rs = drawStride(rng, nx * ps, true);
    const std::size_t count = static_cast<std::size_t>(std::max(c.rows, 1)) * static_cast<std::size_t>(std::max(c.pixels, 1));
    Arena a(remapPlacement(rng));
    a.array<uint32_t>("coordinates", 2 * count, rng);
    a.plane("source", ny, (nx - 1) * ps + c.spp, rs, static_cast<int>(rng.below(64)), rng);
    remapDestination(a, rng, c);
    uint32_t* coords = a.pristine<uint32_t>(0);
    {
      const Rng::Content content(rng);
      for (std::size_t k = 0; k < count; ++k) {
        coords[2 * k] = drawCoordinate(rng, c.first[0], c.end[0], c.interpolate != 0, c.inside);
        coords[2 * k + 1] = drawCoordinate(rng, c.first[1], c.end[1], c.interpolate != 0, c.inside);
      }
    }
    const std::string what = words("rows", c.rows, "pixels", c.pixels, "spp", c.spp, "x", c.first[0], c.end[0],
                                      "y", c.first[1], c.end[1], "interpolate", c.interpolate, "destination advance",
                                      c.destinationAdvance, "pixel stride", c.pixelStride);
    if (!runCase(ctx, a, what, [&](int s) {
          as<slot::RemapPlane8>(s == 0 ? host : module)(a.side<uint32_t>(0, s), a.side<uint8_t>(1, s),
                                                      a.side<uint8_t>(2, s), c.rows, c.pixels, c.spp, ps, rs,
                                                      c.destinationAdvance, c.pixelStride, c.first[0], c.end[0],
                                                      c.first[1], c.end[1], c.interpolate);
        }))
      return;
  }
}

// Bench: four-sample pixels, a quarter as many pixels per row as the bench's
// width in samples, bilinear, coordinates a gentle warp of the source inside it;
// destination rows back to back (advance 0).
struct RemapBench final : BenchCase {
  RemapBench(int width, int height, bool plane) : arena(Placement::Heap), twoAxes(plane) {
    Rng rng(0xB0C7);
    pixels = std::max(1, width / 4);
    rows = height;
    const int32_t nx = pixels + 1, ny = rows + 1;
    arena.array<uint32_t>("coordinates", static_cast<std::size_t>(pixels) * static_cast<std::size_t>(rows) * (plane ? 2 : 1), rng);
    arena.plane("source", ny, nx * 4, nx * 4, 0, rng);
    arena.plane("destination", rows, pixels * 4, pixels * 4, 0, rng);
    uint32_t* coords = arena.pristine<uint32_t>(0);
    for (int32_t r = 0, k = 0; r < rows; ++r)
      for (int32_t p = 0; p < pixels; ++p) {
        coords[k++] = (static_cast<uint32_t>(p) << 16) + static_cast<uint32_t>(rng.below(65536));
        if (plane) coords[k++] = (static_cast<uint32_t>(r) << 16) + static_cast<uint32_t>(rng.below(65536));
      }
    arena.reset();
    bytesMoved = static_cast<uint64_t>(pixels) * static_cast<uint64_t>(rows) * (plane ? 16 : 12);
  }
  void run(HostRoutine routine) override {
    const int32_t stride = (pixels + 1) * 4;
    if (twoAxes)
      as<slot::RemapPlane8>(routine)(arena.side<uint32_t>(0, 1), arena.side<uint8_t>(1, 1), arena.side<uint8_t>(2, 1),
                                  rows, pixels, 4, 4, stride, 0, 4, 0, pixels + 1, 0, rows + 1, 1);
    else
      as<slot::RemapAxis8>(routine)(arena.side<uint32_t>(0, 1), arena.side<uint8_t>(1, 1), arena.side<uint8_t>(2, 1),
                                  rows, pixels, 4, stride, 4, 0, 4, 0, pixels + 1, 1);
  }
  Arena arena;
  bool twoAxes;
  int32_t pixels = 0, rows = 0;
};
BenchCase* benchRemapAxis(int width, int height) { return new RemapBench(width, height, false); }
BenchCase* benchRemapPlane(int width, int height) { return new RemapBench(width, height, true); }

const Check kChecks[] = {
    customCheck(slot::BoxAverageRows8, &verifyBoxAverageRows, &benchBoxAverageRows),
    customCheck(slot::FilterRowsSse2_8, &verifyKernelOf<slot::FilterRowsSse2_8.number, uint8_t, Axis::Rows, Samples::Bytes>,
                               &benchKernelOf<slot::FilterRowsSse2_8.number, uint8_t, Axis::Rows, Samples::Bytes>),
    customCheck(slot::FilterColumnsSse2_8, &verifyKernelOf<slot::FilterColumnsSse2_8.number, uint8_t, Axis::Columns, Samples::Bytes>,
                               &benchKernelOf<slot::FilterColumnsSse2_8.number, uint8_t, Axis::Columns, Samples::Bytes>),
    customCheck(slot::FilterRows16, &verifyKernelOf<slot::FilterRows16.number, uint16_t, Axis::Rows, Samples::Words16>,
                                &benchKernelOf<slot::FilterRows16.number, uint16_t, Axis::Rows, Samples::Words15>),
    customCheck(slot::RemapAxis8, &verifyRemapAxis, &benchRemapAxis),
    customCheck(slot::RemapPlane8, &verifyRemapPlane, &benchRemapPlane),
    customCheck(slot::BoxReduce8, &verifyBoxReduce, &benchBoxReduce),
    customCheck(slot::FilterRowsFloat, &verifyKernelOf<slot::FilterRowsFloat.number, float, Axis::Rows, Samples::FloatsWide>,
                                &benchKernelOf<slot::FilterRowsFloat.number, float, Axis::Rows, Samples::FloatsWide>),
    customCheck(slot::FilterColumnsFloat, &verifyKernelOf<slot::FilterColumnsFloat.number, float, Axis::Columns, Samples::FloatsWide>,
                                &benchKernelOf<slot::FilterColumnsFloat.number, float, Axis::Columns, Samples::FloatsWide>),
};

}  // namespace

std::span<const Check> checksResample() { return kChecks; }

}  // namespace tarnell::verify
