// Checks of the 'memo' routines: one-dimensional runs and blocks of 8-, 16- and
// 32-bit values, copies that overlap, and tests that answer yes or no.
//
// Every case runs the host's routine and the module's on two identical arenas
// (random bytes, guard areas on both sides) at the same offsets, then compares
// the two arenas byte for byte, guards included, and the results exactly. Blocks
// keep random bytes in their row padding, so a routine that reads or writes past
// a row's end shows up. Some cases put the run or block flush against an
// inaccessible page, where reading a byte beyond it faults.
#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <cstring>
#include <sstream>
#include <vector>

#include "refhost/refhost.h"
#include "verify/families.h"
#include "verify/planes.h"
#include "verify/runner.h"
#include "verify/twin.h"

namespace tarnell::verify {

namespace {

using Byte = unsigned char;
constexpr std::size_t kMiB = std::size_t{1} << 20;
// Runs start at every offset within the widest bodies' alignment (32 bytes): each
// offset gives the aligned loop another head and phase.
constexpr std::size_t kOffsets = 32;

// Compares a case's outcome: the two arenas, that neither side wrote a byte
// outside the spans the routine may write, and the results. False when the check
// should stop.
bool compare(Context& ctx, const std::string& what, const Twin& twin, uint64_t hostResult, uint64_t moduleResult,
             std::vector<Twin::Span> mayWrite) {
  std::string problem = twin.writtenOutside(std::move(mayWrite));
  if (problem.empty()) problem = twin.difference();
  return ctx.judge(what, problem.empty() ? resultMismatch(hostResult, moduleResult) : problem);
}
// The n bytes at `at`.
std::vector<Twin::Span> bytesAt(std::size_t at, std::size_t n) {
  return {{static_cast<std::ptrdiff_t>(at), static_cast<std::ptrdiff_t>(at + n)}};
}

// Where a block's rows lie in an arena: the first row's offset and the bytes spanned.
struct BlockPlace {
  std::size_t firstRow;
  std::size_t lowest;
  std::size_t span;
};
BlockPlace placeBlock(std::size_t lowest, int32_t rows, std::size_t rowBytes, int32_t step) {
  const std::size_t pitch = static_cast<std::size_t>(step < 0 ? -int64_t{step} : int64_t{step});
  const std::size_t r = rows < 1 ? 0 : static_cast<std::size_t>(rows - 1);
  const std::size_t span = pitch * r + rowBytes;
  return {step < 0 ? lowest + pitch * r : lowest, lowest, span};
}
std::size_t rowOffset(const BlockPlace& b, int32_t row, int32_t step) {
  return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(b.firstRow) + static_cast<std::ptrdiff_t>(row) * step);
}

// A row step for a row of rowBytes: tight, padded, or going down in memory.
int32_t drawStep(Rng& rng, std::size_t rowBytes, int kind) {
  const auto tight = static_cast<int32_t>(rowBytes);
  switch (kind) {
    case 0: return tight;
    case 1: return tight + 1 + static_cast<int32_t>(rng.below(40));
    case 2: return tight + 64;
    default: return -(tight + static_cast<int32_t>(rng.below(24)));
  }
}

// Rows and widths with nothing to do.
constexpr std::array<int32_t, 2> kEmpties[] = {{0, 37}, {-1, 37}, {INT32_MIN, 5}, {2, 0}, {2, -3}, {-2, -2}};

// 1..139 one by one, then every 23rd up to 300: runs against a guard page.
std::vector<int32_t> guardLengths() {
  std::vector<int32_t> lengths;
  for (int32_t n = 1; n <= 300; n += n < 140 ? 1 : 23) lengths.push_back(n);
  return lengths;
}

// Small and awkward widths first, then ones around vector and loop boundaries.
std::vector<int32_t> blockWidths(Context& ctx) {
  std::vector<int32_t> widths;
  const int32_t dense = ctx.thorough() ? 80 : 40;
  for (int32_t w = 1; w <= dense; ++w) widths.push_back(w);
  for (int32_t w : {95, 96, 97, 127, 128, 129, 191, 255, 256, 257, 300, 1000, 4095, 4097}) widths.push_back(w);
  return widths;
}

// ============================================================ copies (0, 1)

using CopyFn = SlotFnOf<slot::copyBytes>;
using CopyBlockFn = SlotFnOf<slot::copyBlock>;

bool copyCase(Context& ctx, CopyFn host, CopyFn module, std::size_t arena, std::size_t from, std::size_t to,
              int32_t count, Placement placement = Placement::Heap) {
  Twin twin(ctx.rng(), arena, placement);
  host(twin.host(static_cast<std::ptrdiff_t>(from)), twin.host(static_cast<std::ptrdiff_t>(to)), count);
  module(twin.module(static_cast<std::ptrdiff_t>(from)), twin.module(static_cast<std::ptrdiff_t>(to)), count);
  return compare(ctx,
                 words("count", count, "source at", from, "destination at", to, "arena", arena,
                          placementName(placement)),
                 twin, 0, 0, bytesAt(to, count < 1 ? 0 : static_cast<std::size_t>(count)));
}

void verifyCopyBytes(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<CopyFn>(hostRoutine);
  const auto module = reinterpret_cast<CopyFn>(moduleRoutine);
  Rng& rng = ctx.rng();
  // Separate runs: every length up to 300, every destination misalignment, and
  // independently every source misalignment.
  for (int32_t n : ctx.range(0, 300)) {
    const std::size_t len = static_cast<std::size_t>(n);
    for (std::size_t mis : ctx.range<std::size_t>(0, kOffsets - 1)) {
      if (!ctx.thorough() && mis != static_cast<std::size_t>(n) % kOffsets) continue;
      const std::size_t other = rng.below(64);
      if (!copyCase(ctx, host, module, 2 * len + 192, 64 + len + 32 + mis, other, n)) return;
      if (!copyCase(ctx, host, module, 2 * len + 192, mis, 64 + len + 32 + other, n)) return;
    }
  }
  // Overlap: destination inside the source, source inside the destination, the
  // same run, and runs that just touch.
  std::vector<int32_t> lengths;
  for (int32_t n = 1; n <= 300; n += ctx.thorough() ? 1 : 7) lengths.push_back(n);
  for (int32_t n : {1000, 4096, 4099, 70001}) lengths.push_back(n);
  for (int32_t n : ctx.each(lengths)) {
    std::vector<int32_t> shifts = {0, 1, -1, 2, -2, 15, -15, 16, -16, 17, -17, 33, -33, n - 1, 1 - n, n, -n};
    for (int i = 0; i < 4; ++i) shifts.push_back(static_cast<int32_t>(rng.range(-int64_t{n}, n)));
    for (int32_t shift : ctx.each(shifts)) {
      const std::size_t magnitude = static_cast<std::size_t>(shift < 0 ? -int64_t{shift} : shift);
      const std::size_t base = rng.below(32);
      const std::size_t from = shift < 0 ? base + magnitude : base;
      const std::size_t to = shift < 0 ? base : base + magnitude;
      if (!copyCase(ctx, host, module, static_cast<std::size_t>(n) + magnitude + 64, from, to, n)) return;
    }
  }
  // Long runs: inside the caches and past the non-temporal threshold; apart and
  // overlapping both ways.
  for (std::size_t n : ctx.seldom({3 * kMiB + 17, 9 * kMiB + 5})) {
    const auto count = static_cast<int32_t>(n);
    if (!copyCase(ctx, host, module, 2 * n + 128, rng.below(64), n + 64 + rng.below(64), count)) return;
    if (!copyCase(ctx, host, module, n + 64, 3, 1, count)) return;
    if (!copyCase(ctx, host, module, n + 64, 1, 20, count)) return;
    if (!copyCase(ctx, host, module, n + 4096, 4000, 5, count)) return;
  }
  // Runs flush against an inaccessible page: the source's end, the destination's
  // end, or both starts.
  for (Placement where : ctx.each(kGuardPages)) {
    for (int32_t n : ctx.each(guardLengths())) {
      const auto len = static_cast<std::size_t>(n);
      if (where == Placement::GuardPageAfter) {
        if (!copyCase(ctx, host, module, 2 * len + 40, 0, len + 40, n, where)) return;
        if (!copyCase(ctx, host, module, 2 * len + 40, len + 40, 0, n, where)) return;
      } else {
        if (!copyCase(ctx, host, module, 2 * len + 40, 0, len + 40 - rng.below(8), n, where)) return;
        if (!copyCase(ctx, host, module, 2 * len + 40, len + 40 - rng.below(8), 0, n, where)) return;
      }
    }
  }
  // Nothing to do.
  for (int32_t n : ctx.each({-1, -300, INT32_MIN}))
    if (!copyCase(ctx, host, module, 256, 7, 100, n)) return;
}

bool copyBlockCase(Context& ctx, CopyBlockFn host, CopyBlockFn module, int32_t rows, int32_t width,
                   int32_t sourceStep, int32_t destinationStep, std::ptrdiff_t shift,
                   Placement placement = Placement::Heap) {
  const std::size_t rowBytes = width < 1 ? 0 : static_cast<std::size_t>(width);
  const BlockPlace s0 = placeBlock(0, rows, rowBytes, sourceStep);
  const BlockPlace d0 = placeBlock(0, rows, rowBytes, destinationStep);
  // shift: where the destination's lowest byte lies relative to the source's; the
  // blocks overlap when it is small, and lie apart when it is 0x7FFFFFFF.
  std::size_t sourceLow = 16 + ctx.rng().below(16), destinationLow;
  std::size_t arena;
  if (placement != Placement::Heap) {
    // Apart, the source first against the previous page, the destination last
    // against the next one.
    sourceLow = 0;
    destinationLow = s0.span + ctx.rng().below(32);
    arena = destinationLow + d0.span;
  } else if (shift == PTRDIFF_MAX) {
    destinationLow = sourceLow + s0.span + 32 + ctx.rng().below(32);
    arena = destinationLow + d0.span + 32;
  } else {
    if (shift < 0 && static_cast<std::size_t>(-shift) > sourceLow) sourceLow = static_cast<std::size_t>(-shift) + 16;
    destinationLow = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(sourceLow) + shift);
    arena = std::max(sourceLow + s0.span, destinationLow + d0.span) + 32;
  }
  const BlockPlace s = placeBlock(sourceLow, rows, rowBytes, sourceStep);
  const BlockPlace d = placeBlock(destinationLow, rows, rowBytes, destinationStep);
  Twin twin(ctx.rng(), arena, placement);
  const auto sOff = static_cast<std::ptrdiff_t>(s.firstRow), dOff = static_cast<std::ptrdiff_t>(d.firstRow);
  host(twin.host(sOff), twin.host(dOff), rows, width, sourceStep, destinationStep);
  module(twin.module(sOff), twin.module(dOff), rows, width, sourceStep, destinationStep);
  return compare(ctx,
                 words("rows", rows, "width", width, "source step", sourceStep, "destination step",
                          destinationStep, "source at", s.firstRow, "destination at", d.firstRow,
                          placementName(placement)),
                 twin, 0, 0, blockSpans(dOff, width < 1 ? 0 : rows, rowBytes, destinationStep));
}

void verifyCopyBlock(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<CopyBlockFn>(hostRoutine);
  const auto module = reinterpret_cast<CopyBlockFn>(moduleRoutine);
  Rng& rng = ctx.rng();
  constexpr std::ptrdiff_t kApart = PTRDIFF_MAX;
  for (int32_t width : ctx.each(blockWidths(ctx))) {
    const auto rowBytes = static_cast<std::size_t>(width);
    for (int32_t rows : ctx.each({1, 2, 3, 5})) {
      for (int kinds : ctx.times(16)) {
        const int32_t ss = drawStep(rng, rowBytes, kinds % 4), ds = drawStep(rng, rowBytes, kinds / 4);
        if (!copyBlockCase(ctx, host, module, rows, width, ss, ds, kApart)) return;
      }
      // Overlapping blocks: tight steps copy as one run, padded ones row by row.
      for (int kind : ctx.each({0, 1, 2})) {
        const int32_t step = drawStep(rng, rowBytes, kind);
        for (std::ptrdiff_t shift : ctx.each({std::ptrdiff_t{1}, std::ptrdiff_t{-1}, std::ptrdiff_t{step},
                                              -std::ptrdiff_t{step}, std::ptrdiff_t{17}, std::ptrdiff_t{-17}}))
          if (!copyBlockCase(ctx, host, module, rows, width, step, step, shift)) return;
      }
      // Source and destination the same block: nothing happens.
      if (!copyBlockCase(ctx, host, module, rows, width, width + 3, width + 3, 0)) return;
    }
  }
  // Blocks flush against inaccessible pages.
  for (Placement where : ctx.each(kGuardPages))
    for (int32_t width : ctx.each({1, 15, 16, 17, 63, 64, 65, 130, 1000}))
      for (int kind : ctx.times(4)) {
        const auto rowBytes = static_cast<std::size_t>(width);
        if (!copyBlockCase(ctx, host, module, 3, width, drawStep(rng, rowBytes, kind), drawStep(rng, rowBytes, kind), 0,
                           where))
          return;
      }
  // A large tight block (one long run) and a large padded one: rows, width and
  // the two steps.
  constexpr std::array<int32_t, 4> kLarge[] = {{72, 131072 + 5, 131072 + 5, 131072 + 5},
                                               {40, 70000, 70000 + 48, 70000 + 16}};
  for (const auto& [rows, width, sourceStep, destinationStep] : ctx.seldom(kLarge))
    if (!copyBlockCase(ctx, host, module, rows, width, sourceStep, destinationStep, kApart)) return;
  // Nothing to do.
  for (const auto& e : ctx.each(kEmpties))
    if (!copyBlockCase(ctx, host, module, e[0], e[1], 64, 64, kApart)) return;
}

// ==================================================== fills (3, 65, 136)

template <typename T>
using FillFn = void (*)(void*, int32_t, T);
template <typename T>
using FillBlockFn = void (*)(void*, int32_t, int32_t, int32_t, T);

template <typename T>
T drawValue(Rng& rng) {
  switch (rng.below(4)) {
    case 0: return T{0};
    case 1: return static_cast<T>(~T{0});
    default: return static_cast<T>(rng.next());
  }
}

template <typename T>
bool fillCase(Context& ctx, FillFn<T> host, FillFn<T> module, std::size_t offset, int32_t count, T value,
              Placement placement = Placement::Heap) {
  const std::size_t bytes = count < 1 ? 0 : static_cast<std::size_t>(count) * sizeof(T);
  // Against the next page the run ends the arena; against the previous one it starts it.
  if (placement == Placement::GuardPageBefore) offset = 0;
  Twin twin(ctx.rng(), offset + bytes + (placement == Placement::Heap ? 64 : 0), placement);
  host(twin.host(static_cast<std::ptrdiff_t>(offset)), count, value);
  module(twin.module(static_cast<std::ptrdiff_t>(offset)), count, value);
  return compare(ctx, words("count", count, "at", offset, "value", uint64_t{value}, placementName(placement)), twin, 0,
                 0, bytesAt(offset, bytes));
}

template <typename T>
void verifyFill(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<FillFn<T>>(hostRoutine);
  const auto module = reinterpret_cast<FillFn<T>>(moduleRoutine);
  Rng& rng = ctx.rng();
  for (int32_t n : ctx.range(0, 300))
    for (std::size_t mis : ctx.range<std::size_t>(0, kOffsets - 1)) {
      if (!ctx.thorough() && mis != static_cast<std::size_t>(n) % kOffsets) continue;
      if (!fillCase<T>(ctx, host, module, mis + 64 * rng.below(2), n, drawValue<T>(rng))) return;
    }
  // Long runs: cached, and past the fills' non-temporal threshold (32 MiB).
  for (std::size_t bytes : ctx.seldom({3 * kMiB + 12, 33 * kMiB + 36}))
    for (std::size_t mis : ctx.each({std::size_t{0}, std::size_t{1}, std::size_t{6}, std::size_t{45}}))
      if (!fillCase<T>(ctx, host, module, mis, static_cast<int32_t>(bytes / sizeof(T)), drawValue<T>(rng))) return;
  for (Placement where : ctx.each(kGuardPages))
    for (int32_t n : ctx.each(guardLengths()))
      if (!fillCase<T>(ctx, host, module, rng.below(kOffsets), n, drawValue<T>(rng), where)) return;
  for (int32_t n : ctx.each({-1, -64, INT32_MIN}))
    if (!fillCase<T>(ctx, host, module, 5, n, drawValue<T>(rng))) return;
}

template <typename T>
bool fillBlockCase(Context& ctx, FillBlockFn<T> host, FillBlockFn<T> module, int32_t rows, int32_t width,
                   int32_t step, T value, Placement placement = Placement::Heap) {
  const std::size_t rowBytes = width < 1 ? 0 : static_cast<std::size_t>(width) * sizeof(T);
  const BlockPlace b = placeBlock(placement == Placement::GuardPageBefore ? 0 : ctx.rng().below(48), rows, rowBytes, step);
  Twin twin(ctx.rng(), b.lowest + b.span + (placement == Placement::Heap ? 64 : 0), placement);
  const auto at = static_cast<std::ptrdiff_t>(b.firstRow);
  host(twin.host(at), rows, width, step, value);
  module(twin.module(at), rows, width, step, value);
  return compare(ctx,
                 words("rows", rows, "width", width, "step", step, "at", b.firstRow, "value", uint64_t{value},
                          placementName(placement)),
                 twin, 0, 0, blockSpans(at, width < 1 ? 0 : rows, rowBytes, step));
}

template <typename T>
void verifyFillBlock(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<FillBlockFn<T>>(hostRoutine);
  const auto module = reinterpret_cast<FillBlockFn<T>>(moduleRoutine);
  Rng& rng = ctx.rng();
  for (int32_t width : ctx.each(blockWidths(ctx)))
    for (int32_t rows : ctx.each({1, 2, 3, 7}))
      for (int kind : ctx.times(4))
        if (!fillBlockCase<T>(ctx, host, module, rows, width,
                              drawStep(rng, static_cast<std::size_t>(width) * sizeof(T), kind), drawValue<T>(rng)))
          return;
  for (Placement where : ctx.each(kGuardPages))
    for (int32_t width : ctx.each({1, 7, 8, 9, 16, 33, 64, 100, 1000}))
      for (int kind : ctx.times(4))
        if (!fillBlockCase<T>(ctx, host, module, 3, width, drawStep(rng, static_cast<std::size_t>(width) * sizeof(T), kind),
                              drawValue<T>(rng), where))
          return;
  // Large: one tight run past the non-temporal threshold (32 MiB for the whole
  // block), a padded block past it (streamed row by row) and one below it.
  const auto wide = static_cast<int32_t>(262144 / sizeof(T)) + 3;
  const int32_t tight = wide * static_cast<int32_t>(sizeof(T));
  constexpr std::array<int32_t, 2> kLarge[] = {{132, 0}, {130, 40}, {12, 40}};
  for (const auto& [rows, pad] : ctx.seldom(kLarge))
    if (!fillBlockCase<T>(ctx, host, module, rows, wide, tight + pad, drawValue<T>(rng))) return;
  for (const auto& e : ctx.each(kEmpties))
    if (!fillBlockCase<T>(ctx, host, module, e[0], e[1], 256, drawValue<T>(rng))) return;
}

// ===================================================== tests (17, 18, ...)

// Where a planted difference goes: element index in the block's rows (row-major).
// The corners that the 16-bit tests look at first, the first element, the ends of
// each 16- and 32-byte step and a random one.
std::vector<int64_t> differencePositions(Rng& rng, int32_t rows, int32_t width, std::size_t elementBytes) {
  const int64_t total = int64_t{rows} * width;
  std::vector<int64_t> at = {0, width - 1, int64_t{rows - 1} * width, total - 1};
  for (int64_t k = 16; k < int64_t{width} * static_cast<int64_t>(elementBytes) && at.size() < 14; k += 16) {
    at.push_back(k / static_cast<int64_t>(elementBytes) - 1);
    at.push_back(k / static_cast<int64_t>(elementBytes));
  }
  for (int i = 0; i < 3; ++i) at.push_back(rng.range(0, total - 1));
  std::vector<int64_t> valid;
  for (int64_t p : at)
    if (p >= 0 && p < total && std::find(valid.begin(), valid.end(), p) == valid.end()) valid.push_back(p);
  return valid;
}

// A block of elements all equal to value (padding stays random), optionally one
// element with one byte changed.
template <typename T>
BlockPlace uniformBlock(Twin& twin, std::size_t lowest, int32_t rows, int32_t width, int32_t step, T value,
                        int64_t differing, Rng& rng) {
  const std::size_t rowBytes = static_cast<std::size_t>(width) * sizeof(T);
  const BlockPlace b = placeBlock(lowest, rows, rowBytes, step);
  for (int32_t r = 0; r < rows; ++r) {
    const std::size_t row = rowOffset(b, r, step);
    for (int32_t c = 0; c < width; ++c) std::memcpy(&twin.at(row + static_cast<std::size_t>(c) * sizeof(T)), &value, sizeof(T));
  }
  if (differing >= 0) {
    const std::size_t row = rowOffset(b, static_cast<int32_t>(differing / width), step);
    const std::size_t byte = static_cast<std::size_t>(differing % width) * sizeof(T) + rng.below(sizeof(T));
    twin.at(row + byte) ^= static_cast<Byte>(1u << rng.below(8));
  }
  twin.reset();
  return b;
}

// The recorded 'core' slot 0 calls since the log was cleared, with the address
// argument made relative to the arena side's start.
std::vector<refhost::CallRecord> notifications(refhost::ReferenceHost& host, const Byte* start) {
  std::vector<refhost::CallRecord> calls;
  for (const refhost::CallRecord& c : host.calls())
    if (c.suite == code::core && c.slot == 0) calls.push_back(c);
  for (refhost::CallRecord& c : calls) c.args[0] -= reinterpret_cast<uintptr_t>(start);
  return calls;
}

// Runs a block test on both sides. The routine's result and, for the 16-bit tests,
// the 'core' slot 0 calls it made must match; it writes nothing but its result
// byte, at resultAt (or nowhere, for -1).
template <typename Invoke>
bool testCase(Context& ctx, Twin& twin, std::ptrdiff_t at, std::ptrdiff_t resultAt, bool notifies,
              const std::string& what, Invoke invoke) {
  refhost::ReferenceHost& host = ctx.host();
  host.clearLogs();
  const uint64_t h = invoke(true, twin.host(at));
  const auto hostCalls = notifications(host, twin.host(0));
  host.clearLogs();
  const uint64_t m = invoke(false, twin.module(at));
  const auto moduleCalls = notifications(host, twin.module(0));
  host.clearLogs();
  if (notifies) {
    const bool same = hostCalls.size() == moduleCalls.size() &&
                      std::equal(hostCalls.begin(), hostCalls.end(), moduleCalls.begin(),
                                 [](const refhost::CallRecord& a, const refhost::CallRecord& b) {
                                   return std::memcmp(a.args, b.args, sizeof a.args) == 0;
                                 });
    if (!same || hostCalls.size() != 1)
      return ctx.judge(what, "'core' slot 0 calls " + std::to_string(hostCalls.size()) + " by the host, " +
                                 std::to_string(moduleCalls.size()) + " by the module" +
                                 (hostCalls.size() == moduleCalls.size() ? ", with other arguments" : ""));
  }
  return compare(ctx, what, twin, h, m, resultAt < 0 ? std::vector<Twin::Span>{} : bytesAt(static_cast<std::size_t>(resultAt), 1));
}

// The block tests: (address, rows, width, step[, value]) with a 0/1 or value answer.
enum class TestKind { BytesEqual, WordsUniformValue, WordsEqual, DwordsUniform };

template <typename T, TestKind Kind>
uint64_t callTest(HostRoutine routine, const Byte* address, int32_t rows, int32_t width, int32_t step, T value,
                  Byte* resultByte) {
  if constexpr (Kind == TestKind::BytesEqual)
    return reinterpret_cast<SlotFnOf<slot::blockBytesAllEqual>>(routine)(address, rows, width, step, static_cast<uint8_t>(value));
  if constexpr (Kind == TestKind::WordsUniformValue)
    return reinterpret_cast<SlotFnOf<slot::blockWordsUniformValue>>(routine)(address, rows, width, step);
  if constexpr (Kind == TestKind::WordsEqual)
    return reinterpret_cast<SlotFnOf<slot::blockWordsAllEqual>>(routine)(address, rows, width, step, static_cast<uint16_t>(value));
  if constexpr (Kind == TestKind::DwordsUniform) {
    (void)value;
    return reinterpret_cast<SlotFnOf<slot::blockDwordsUniform>>(routine)(address, rows, width, step, resultByte);
  }
  return 0;
}

// Where a block test's block and result go: on the heap the result follows the
// block; against the next page the block ends the arena and the result comes
// first; against the previous page the block starts the arena.
struct TestLayout {
  BlockPlace block;
  std::size_t resultAt;
  std::size_t arena;
};
TestLayout layTest(Rng& rng, int32_t rows, std::size_t rowBytes, int32_t step, Placement placement) {
  const int32_t memoryRows = rows < 1 ? 1 : rows;
  if (placement == Placement::GuardPageAfter) {
    std::size_t lowest = 16 + rng.below(32);
    // An even arena keeps the result (16-bit values for slot 36) aligned.
    if ((lowest + placeBlock(0, memoryRows, rowBytes, step).span) % 2 != 0) ++lowest;
    const BlockPlace b = placeBlock(lowest, memoryRows, rowBytes, step);
    return {b, 0, b.lowest + b.span};
  }
  const BlockPlace b = placeBlock(placement == Placement::Heap ? 8 + rng.below(48) : 0, memoryRows, rowBytes, step);
  const std::size_t resultAt = (b.lowest + b.span + 8) & ~std::size_t{1};
  return {b, resultAt, resultAt + 8 + 64};
}

template <typename T, TestKind Kind>
bool blockTestCase(Context& ctx, HostRoutine host, HostRoutine module, int32_t rows, int32_t width, int32_t step,
                   T value, int64_t differing, bool withResultByte, Placement placement = Placement::Heap) {
  Rng& rng = ctx.rng();
  const std::size_t rowBytes = width < 1 ? 16 : static_cast<std::size_t>(width) * sizeof(T);
  const TestLayout layout = layTest(rng, rows, rowBytes, step, placement);
  const BlockPlace& probe = layout.block;
  Twin twin(rng, layout.arena, placement);
  std::ptrdiff_t at = static_cast<std::ptrdiff_t>(probe.firstRow);
  if (rows >= 1 && width >= 1) uniformBlock<T>(twin, probe.lowest, rows, width, step, value, differing, rng);
  // The result byte of slot 135 sits in the arena, outside the block.
  const std::size_t resultAt = layout.resultAt;
  const bool notifies = Kind == TestKind::WordsUniformValue || Kind == TestKind::WordsEqual;
  return testCase(ctx, twin, at, withResultByte ? static_cast<std::ptrdiff_t>(resultAt) : -1, notifies,
                  words("rows", rows, "width", width, "step", step, "at", probe.firstRow, "value", uint64_t{value},
                           "differing element", differing, withResultByte ? "with result byte" : "",
                           placementName(placement)),
                  [&](bool hostSide, Byte* address) {
                    Byte* resultByte = nullptr;
                    if (withResultByte)
                      resultByte = hostSide ? twin.host(static_cast<std::ptrdiff_t>(resultAt))
                                            : twin.module(static_cast<std::ptrdiff_t>(resultAt));
                    return callTest<T, Kind>(hostSide ? host : module, address, rows, width, step, value, resultByte);
                  });
}

template <typename T, TestKind Kind>
void verifyBlockTest(Context& ctx, HostRoutine host, HostRoutine module) {
  Rng& rng = ctx.rng();
  for (int32_t width : ctx.each(blockWidths(ctx))) {
    for (int32_t rows : ctx.each({1, 2, 3, 5})) {
      for (int kind : ctx.times(4)) {
        const int32_t step = drawStep(rng, static_cast<std::size_t>(width) * sizeof(T), kind);
        const T value = drawValue<T>(rng);
        const bool resultByte = rng.chance(2);
        if (!blockTestCase<T, Kind>(ctx, host, module, rows, width, step, value, -1, resultByte)) return;
        for (int64_t p : ctx.each(differencePositions(rng, rows, width, sizeof(T))))
          if (!blockTestCase<T, Kind>(ctx, host, module, rows, width, step, value, p, resultByte)) return;
      }
    }
  }
  // Blocks flush against inaccessible pages, uniform and with a difference.
  for (Placement where : ctx.each(kGuardPages))
    for (int32_t width : ctx.each({1, 2, 7, 8, 9, 15, 16, 17, 31, 33, 64, 100, 1000}))
      for (int kind : ctx.times(4)) {
        const int32_t step = drawStep(rng, static_cast<std::size_t>(width) * sizeof(T), kind);
        const T value = drawValue<T>(rng);
        if (!blockTestCase<T, Kind>(ctx, host, module, 3, width, step, value, -1, true, where)) return;
        if (!blockTestCase<T, Kind>(ctx, host, module, 3, width, step, value, 3 * int64_t{width} - 1, false, where))
          return;
      }
  // Large blocks: uniform, and one difference near the end.
  for (int kind : ctx.seldom({0, 1})) {
    const int32_t width = static_cast<int32_t>(131072 / sizeof(T)) + 9;
    const int32_t step = drawStep(rng, static_cast<std::size_t>(width) * sizeof(T), kind);
    const T value = drawValue<T>(rng);
    if (!blockTestCase<T, Kind>(ctx, host, module, 24, width, step, value, -1, true)) return;
    if (!blockTestCase<T, Kind>(ctx, host, module, 24, width, step, value, int64_t{24} * width - 2, true)) return;
    if (!blockTestCase<T, Kind>(ctx, host, module, 24, width, step, value, int64_t{11} * width + 5000, false)) return;
  }
  for (const auto& e : ctx.each(kEmpties))
    if (!blockTestCase<T, Kind>(ctx, host, module, e[0], e[1], 256, drawValue<T>(rng), -1, true)) return;
}

// Slot 17: one-dimensional.
void verifyBytesAllEqual(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<SlotFnOf<slot::bytesAllEqual>>(hostRoutine);
  const auto module = reinterpret_cast<SlotFnOf<slot::bytesAllEqual>>(moduleRoutine);
  Rng& rng = ctx.rng();
  auto run = [&](std::size_t offset, int32_t count, uint8_t value, int64_t differing,
                 Placement placement = Placement::Heap) {
    const std::size_t bytes = count < 1 ? 0 : static_cast<std::size_t>(count);
    if (placement == Placement::GuardPageBefore) offset = 0;
    Twin twin(rng, offset + bytes + (placement == Placement::Heap ? 64 : 0), placement);
    twin.fill(offset, bytes, value);
    if (differing >= 0) twin.at(offset + static_cast<std::size_t>(differing)) ^= static_cast<Byte>(1u << rng.below(8));
    twin.reset();
    const auto at = static_cast<std::ptrdiff_t>(offset);
    const uint64_t h = host(twin.host(at), count, value);
    const uint64_t m = module(twin.module(at), count, value);
    return compare(ctx,
                   words("count", count, "at", offset, "value", int{value}, "differing byte", differing,
                            placementName(placement)),
                   twin, h, m, {});
  };
  for (int32_t n : ctx.range(0, 300)) {
    for (std::size_t mis : ctx.range<std::size_t>(0, kOffsets - 1)) {
      if (!ctx.thorough() && mis != static_cast<std::size_t>(n) % kOffsets) continue;
      const uint8_t value = drawValue<uint8_t>(rng);
      if (!run(mis, n, value, -1)) return;
      if (n == 0) continue;
      for (int64_t p : ctx.each(differencePositions(rng, 1, n, 1)))
        if (!run(mis, n, value, p)) return;
    }
  }
  for (Placement where : ctx.each(kGuardPages))
    for (int32_t n : ctx.each(guardLengths())) {
      const uint8_t value = drawValue<uint8_t>(rng);
      if (!run(rng.below(kOffsets), n, value, -1, where)) return;
      if (!run(rng.below(kOffsets), n, value, n - 1, where)) return;
    }
  for (std::size_t bytes : ctx.seldom({3 * kMiB + 7})) {
    const auto n = static_cast<int32_t>(bytes);
    const uint8_t value = drawValue<uint8_t>(rng);
    for (int64_t p : ctx.each({int64_t{-1}, int64_t{n} - 1, int64_t{n} - 40, int64_t{n} / 2}))
      if (!run(3, n, value, p)) return;
  }
  for (int32_t n : ctx.each({-1, INT32_MIN}))
    if (!run(0, n, 7, -1)) return;
}

// ============================================================ bounds (36)

void verifyByteBounds(Context& ctx, HostRoutine hostRoutine, HostRoutine moduleRoutine) {
  const auto host = reinterpret_cast<SlotFnOf<slot::byteBounds>>(hostRoutine);
  const auto module = reinterpret_cast<SlotFnOf<slot::byteBounds>>(moduleRoutine);
  Rng& rng = ctx.rng();
  // plants: element positions (row-major) given a byte other than the value.
  auto run = [&](int32_t rows, int32_t width, int32_t step, uint8_t value, const std::vector<int64_t>& plants,
                 bool nullResult, Placement placement = Placement::Heap) {
    const std::size_t rowBytes = width < 1 ? 16 : static_cast<std::size_t>(width);
    const TestLayout layout = layTest(rng, rows, rowBytes, step, placement);
    const BlockPlace& b = layout.block;
    const std::size_t resultAt = layout.resultAt;
    Twin twin(rng, layout.arena, placement);
    if (rows >= 1 && width >= 1) {
      uniformBlock<uint8_t>(twin, b.lowest, rows, width, step, value, -1, rng);
      for (int64_t p : plants)
        twin.at(rowOffset(b, static_cast<int32_t>(p / width), step) + static_cast<std::size_t>(p % width)) =
            static_cast<Byte>(value ^ (1 + rng.below(255)));
      twin.reset();
    }
    const auto at = static_cast<std::ptrdiff_t>(b.firstRow), res = static_cast<std::ptrdiff_t>(resultAt);
    host(twin.host(at), rows, width, step, value, nullResult ? nullptr : reinterpret_cast<int16_t*>(twin.host(res)));
    module(twin.module(at), rows, width, step, value,
           nullResult ? nullptr : reinterpret_cast<int16_t*>(twin.module(res)));
    std::ostringstream planted;
    for (int64_t p : plants) planted << ' ' << p;
    return compare(ctx,
                   words("rows", rows, "width", width, "step", step, "value", int{value}, "differing elements",
                            planted.str(), nullResult ? "null result" : "", placementName(placement)),
                   twin, 0, 0, bytesAt(resultAt, nullResult ? 0 : 4 * sizeof(int16_t)));
  };
  for (int32_t width : ctx.each(blockWidths(ctx))) {
    for (int32_t rows : ctx.each({1, 2, 3, 4, 7})) {
      for (int kind : ctx.times(4)) {
        const int32_t step = drawStep(rng, static_cast<std::size_t>(width), kind);
        const uint8_t value = drawValue<uint8_t>(rng);
        const int64_t total = int64_t{rows} * width;
        if (!run(rows, width, step, value, {}, false)) return;
        for (int64_t p : ctx.each(differencePositions(rng, rows, width, 1)))
          if (!run(rows, width, step, value, {p}, false)) return;
        for ([[maybe_unused]] int i : ctx.times(3)) {
          std::vector<int64_t> plants;
          for (uint32_t k = 1 + rng.below(4); k > 0; --k) plants.push_back(rng.range(0, total - 1));
          if (!run(rows, width, step, value, plants, rng.chance(8))) return;
        }
        // One difference on each edge of the block: the rectangle is the whole block.
        if (!run(rows, width, step, value, {int64_t{rows / 2} * width, int64_t{width} - 1, total - width / 2 - 1},
                 false))
          return;
      }
    }
  }
  for (Placement where : ctx.each(kGuardPages))
    for (int32_t width : ctx.each({1, 2, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100, 1000}))
      for (int kind : ctx.times(4)) {
        const int32_t step = drawStep(rng, static_cast<std::size_t>(width), kind);
        const uint8_t value = drawValue<uint8_t>(rng);
        if (!run(3, width, step, value, {}, false, where)) return;
        if (!run(3, width, step, value, {int64_t{width} - 1}, false, where)) return;
        if (!run(3, width, step, value, {2 * int64_t{width}}, false, where)) return;
      }
  // Rows wider than 16-bit results can hold: stored modulo 2^16 on both sides.
  if (!run(3, 40000, 40000, 9, {int64_t{40000} + 39990}, false)) return;
  if (!run(2, 40000, 40017, 9, {}, false)) return;
  for (const auto& e : ctx.each(kEmpties))
    if (!run(e[0], e[1], 256, 3, {}, false)) return;
}

// =============================================================== benchmarks

// Arrays for one benchmark case, 64-byte aligned.
struct Buffer {
  explicit Buffer(std::size_t bytes, Byte fill) : raw(bytes + 64, fill) {
    const auto base = reinterpret_cast<uintptr_t>(raw.data());
    data = raw.data() + ((base + 63) / 64 * 64 - base);
  }
  std::vector<Byte> raw;
  Byte* data;
};

std::size_t benchBytes(int width, int height) {
  return static_cast<std::size_t>(std::max(1, width)) * static_cast<std::size_t>(std::max(1, height));
}

struct CopyBench final : BenchCase {
  CopyBench(int width, int height) : n(benchBytes(width, height)), from(n, 0x5A), to(n, 0) { bytesMoved = 2 * n; }
  void run(HostRoutine routine) override {
    reinterpret_cast<CopyFn>(routine)(from.data, to.data, static_cast<int32_t>(n));
  }
  std::size_t n;
  Buffer from, to;
};

struct CopyBlockBench final : BenchCase {
  CopyBlockBench(int width, int height) : w(std::max(1, width)), h(std::max(1, height)), from(benchBytes(width, height), 1), to(benchBytes(width, height), 0) {
    bytesMoved = 2 * benchBytes(width, height);
  }
  void run(HostRoutine routine) override { reinterpret_cast<CopyBlockFn>(routine)(from.data, to.data, h, w, w, w); }
  int32_t w, h;
  Buffer from, to;
};

template <typename T>
struct FillBench final : BenchCase {
  FillBench(int width, int height) : n(benchBytes(width, height) / sizeof(T)), to(benchBytes(width, height), 0) {
    bytesMoved = n * sizeof(T);
  }
  void run(HostRoutine routine) override {
    reinterpret_cast<FillFn<T>>(routine)(to.data, static_cast<int32_t>(n), static_cast<T>(0x3C5A1E69u));
  }
  std::size_t n;
  Buffer to;
};

template <typename T>
struct FillBlockBench final : BenchCase {
  FillBlockBench(int width, int height)
      : w(std::max<int32_t>(1, width / static_cast<int32_t>(sizeof(T)))), h(std::max(1, height)),
        to(benchBytes(width, height) + sizeof(T), 0) {
    bytesMoved = static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * sizeof(T);
  }
  void run(HostRoutine routine) override {
    reinterpret_cast<FillBlockFn<T>>(routine)(to.data, h, w, w * static_cast<int32_t>(sizeof(T)),
                                              static_cast<T>(0x3C5A1E69u));
  }
  int32_t w, h;
  Buffer to;
};

// The block tests on a uniform block, the case where every element is read.
template <typename T, TestKind Kind>
struct BlockTestBench final : BenchCase {
  BlockTestBench(int width, int height)
      : w(std::max<int32_t>(1, width / static_cast<int32_t>(sizeof(T)))), h(std::max(1, height)),
        block(benchBytes(width, height) + sizeof(T), 0x42) {
    bytesMoved = static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * sizeof(T);
  }
  void run(HostRoutine routine) override {
    callTest<T, Kind>(routine, block.data, h, w, w * static_cast<int32_t>(sizeof(T)), static_cast<T>(0x4242424242424242ULL),
                      &result);
    // The 16-bit tests notify the host each call; keep its log short.
    if constexpr (Kind == TestKind::WordsEqual || Kind == TestKind::WordsUniformValue)
      if (++calls % 4096 == 0)
        if (refhost::ReferenceHost* host = refhost::ReferenceHost::active()) host->clearLogs();
  }
  int32_t w, h;
  Buffer block;
  Byte result = 0;
  uint64_t calls = 0;
};

struct BytesEqualBench final : BenchCase {
  BytesEqualBench(int width, int height) : n(benchBytes(width, height)), block(n, 0x42) { bytesMoved = n; }
  void run(HostRoutine routine) override {
    reinterpret_cast<SlotFnOf<slot::bytesAllEqual>>(routine)(block.data, static_cast<int32_t>(n), 0x42);
  }
  std::size_t n;
  Buffer block;
};

struct BoundsBench final : BenchCase {
  BoundsBench(int width, int height) : w(std::max(1, width)), h(std::max(1, height)), block(benchBytes(width, height), 0x42) {
    bytesMoved = benchBytes(width, height);
  }
  void run(HostRoutine routine) override {
    reinterpret_cast<SlotFnOf<slot::byteBounds>>(routine)(block.data, h, w, w, 0x42, bounds);
  }
  int32_t w, h;
  Buffer block;
  int16_t bounds[4] = {};
};

template <typename B>
BenchCase* makeBench(int width, int height) {
  return new B(width, height);
}

const Check kMemoryChecks[] = {
    customCheck(slot::copyBytes, &verifyCopyBytes, &makeBench<CopyBench>),
    customCheck(slot::copyBlock, &verifyCopyBlock, &makeBench<CopyBlockBench>),
    customCheck(slot::fillBytes, &verifyFill<uint8_t>, &makeBench<FillBench<uint8_t>>),
    customCheck(slot::fillBlock, &verifyFillBlock<uint8_t>, &makeBench<FillBlockBench<uint8_t>>),
    customCheck(slot::bytesAllEqual, &verifyBytesAllEqual, &makeBench<BytesEqualBench>),
    customCheck(slot::blockBytesAllEqual, &verifyBlockTest<uint8_t, TestKind::BytesEqual>,
                                &makeBench<BlockTestBench<uint8_t, TestKind::BytesEqual>>),
    customCheck(slot::byteBounds, &verifyByteBounds, &makeBench<BoundsBench>),
    customCheck(slot::fillWords, &verifyFill<uint16_t>, &makeBench<FillBench<uint16_t>>),
    customCheck(slot::fillWordBlock, &verifyFillBlock<uint16_t>, &makeBench<FillBlockBench<uint16_t>>),
    customCheck(slot::blockWordsUniformValue, &verifyBlockTest<uint16_t, TestKind::WordsUniformValue>,
                                &makeBench<BlockTestBench<uint16_t, TestKind::WordsUniformValue>>),
    customCheck(slot::blockWordsAllEqual, &verifyBlockTest<uint16_t, TestKind::WordsEqual>,
                                 &makeBench<BlockTestBench<uint16_t, TestKind::WordsEqual>>),
    customCheck(slot::blockDwordsUniform, &verifyBlockTest<uint32_t, TestKind::DwordsUniform>,
                                 &makeBench<BlockTestBench<uint32_t, TestKind::DwordsUniform>>),
    customCheck(slot::fillDwords, &verifyFill<uint32_t>, &makeBench<FillBench<uint32_t>>),
    customCheck(slot::fillDwordBlock, &verifyFillBlock<uint32_t>, &makeBench<FillBlockBench<uint32_t>>),
};

}  // namespace

std::span<const Check> checksMemory() { return kMemoryChecks; }

}  // namespace tarnell::verify
