// The painting routines through the static library, every body this processor
// runs (the baseline's and each wider level's). The harness (EveryCheck, and
// Tiers/EveryBody for the narrower levels) compares every slot with the host's
// routine on random planes at every width and alignment; these tests add the
// dither's start and how it moves, the rules' fixed points, noise buffers too
// short to read a vector step in place, that unused arguments and bits do not
// count, and that the checks catch the faults a companion, a threshold or an
// argument list can have.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/kernels.h"
#include "host/noise_table.h"
#include "host/startup.h"
#include "paint/paint.h"
#include "paint/paint_rows_sse2.h"
#include "refhost/refhost.h"
#include "tests/module_start.h"
#include "tests/tiers.h"
#include "verify/runner.h"


using namespace tarnell;
using namespace tarnell::paint;
using refhost::ReferenceHost;

namespace {

void start(ReferenceHost& host) { tests::startModule(host, tests::Noise::Register); }

// The paint bodies of each level here that has its own, narrowest first.
struct Bodies {
  Level level;
  PaintKernels k;
};
std::vector<Bodies> everyLevel() {
  std::vector<Bodies> out;
  for (Level level : tests::levelsHere()) {
    const Kernels k = resolveKernels(flagsAtLevel(tests::thisProcessor(), level));
    if (out.empty() || out.back().k.PaintP8.fn != k.PaintP8.fn) out.push_back({level, k});
  }
  return out;
}

// An 8-bit plane of rows x columns, tightly packed at a chosen offset from a
// 64-byte boundary, with a mask of the same shape.
struct Dab {
  Dab(int32_t rows_, int32_t columns_, std::size_t offset = 0)
      : rows(rows_), columns(columns_), storage(static_cast<std::size_t>(rows * columns) + 128, 0) {
    const auto base = reinterpret_cast<uintptr_t>(storage.data());
    plane = storage.data() + (64 - base % 64) % 64 + offset;
    mask.assign(static_cast<std::size_t>(rows * columns), 0);
    record.mask = mask.data();
    record.maskStride = columns;
  }
  void fill(uint8_t d, uint8_t m) {
    std::memset(plane, d, static_cast<std::size_t>(rows * columns));
    std::memset(mask.data(), m, mask.size());
  }
  std::vector<uint8_t> pixels() const { return {plane, plane + rows * columns}; }
  int32_t rows, columns;
  std::vector<uint8_t> storage;
  uint8_t* plane;
  std::vector<uint8_t> mask;
  PaintRecord record{};
};

TEST(PaintDither, StartFollowsTheScrambledPosition) {
  // Worked by hand: s1 = (y a + 12345) >> 3, s2 = ((s1 ^ x) a + 12345) >> 3,
  // s3 = ((address ^ s2) a + 12345) >> 3, all mod 2^32; start = s3 mod 12281.
  EXPECT_EQ(ditherStart(0, 0, nullptr), 3865u);
  EXPECT_EQ(ditherStart(5, 7, reinterpret_cast<const void*>(uintptr_t{0x12345678})), 2155u);
  // Only the address's low 32 bits count; negative x and y wrap.
  EXPECT_EQ(ditherStart(-1, -1, reinterpret_cast<const void*>(uintptr_t{0xFFFFFFFFF0})), 5493u);
  EXPECT_EQ(ditherStart(-1, -1, reinterpret_cast<const void*>(uintptr_t{0xFFFFFFF0})), 5493u);
  EXPECT_EQ(ditherStart(100, -3, reinterpret_cast<const void*>(uintptr_t{0x7FFF0001})), 4032u);
}

TEST(PaintDither, SameCallSamePixelsAndThePatternMovesWithXYAndAddress) {
  ReferenceHost host;
  start(host);
  // A half-covered move from 100 toward 200: 50.2, rounded by the dither to 50 or 51.
  for (const Bodies& b : everyLevel()) {
    SCOPED_TRACE(levelName(b.level));
    auto paint = [&](Dab& dab, int32_t x, int32_t y) {
      dab.fill(100, 128);
      b.k.PaintQ8.fn(0, x, y, dab.rows, dab.columns, dab.plane, dab.columns, 200, &dab.record);
      return dab.pixels();
    };
    Dab a(4, 61), elsewhere(4, 61, 16);
    const std::vector<uint8_t> first = paint(a, 3, 9);
    EXPECT_EQ(paint(a, 3, 9), first);
    EXPECT_NE(paint(a, 4, 9), first);
    EXPECT_NE(paint(a, 3, 10), first);
    EXPECT_NE(paint(elsewhere, 3, 9), first);  // same contents elsewhere in memory
    for (uint8_t v : first) EXPECT_TRUE(v == 150 || v == 151) << int{v};
  }
}

TEST(PaintRules, FixedPoints) {
  ReferenceHost host;
  start(host);
  for (const Bodies& b : everyLevel()) {
    SCOPED_TRACE(levelName(b.level));
    Dab dab(3, 70, 5);
    // A zero mask leaves the plane alone whatever the colour and opacity.
    dab.fill(77, 0);
    b.k.PaintP8.fn(0, 1, 2, dab.rows, dab.columns, dab.plane, dab.columns, 255, 255, &dab.record);
    EXPECT_EQ(dab.pixels(), std::vector<uint8_t>(dab.pixels().size(), 77));
    // The colour equal to the sample, or no opacity, changes nothing.
    const std::vector<uint8_t> source(dab.pixels().size(), 3);
    const void* channels[] = {source.data()};
    dab.record.source = channels;
    dab.record.sourceStride = dab.columns;
    for (int m : {1, 128, 255}) {
      dab.fill(91, static_cast<uint8_t>(m));
      b.k.PaintP8.fn(0, 1, 2, dab.rows, dab.columns, dab.plane, dab.columns, 91, 255, &dab.record);
      b.k.PaintP8.fn(0, 1, 2, dab.rows, dab.columns, dab.plane, dab.columns, 3, 0, &dab.record);
      b.k.PaintT8.fn(0, 0, 2, dab.rows, dab.columns, 0, dab.plane, dab.columns, 0x100, &dab.record);  // low byte 0
      EXPECT_EQ(dab.pixels(), std::vector<uint8_t>(dab.pixels().size(), 91));
    }
    // Full mask and opacity reach the colour exactly, both ways.
    for (auto [d, c] : {std::pair<uint8_t, uint8_t>{0, 255}, {255, 0}, {10, 11}}) {
      dab.fill(d, 255);
      b.k.PaintP8.fn(0, 1, 2, dab.rows, dab.columns, dab.plane, dab.columns, c, 255, &dab.record);
      EXPECT_EQ(dab.pixels(), std::vector<uint8_t>(dab.pixels().size(), c));
    }
    // Raise-only: 5 and 9 never lower a sample.
    dab.fill(200, 255);
    b.k.PaintSingle5.fn(0, 1, 2, dab.rows, dab.columns, dab.plane, dab.columns, 10, &dab.record);
    b.k.PaintSingle9.fn(0, 0, 0, dab.rows, dab.columns, dab.plane, dab.columns, 10, &dab.record);
    EXPECT_EQ(dab.pixels(), std::vector<uint8_t>(dab.pixels().size(), 200));
    // Family R: only the threshold's low byte counts; 0 fills even a zero mask.
    dab.fill(5, 0);
    b.k.PaintR8.fn(0, 0x100, 0, dab.rows, dab.columns, dab.plane, dab.columns, 9, &dab.record);
    EXPECT_EQ(dab.pixels(), std::vector<uint8_t>(dab.pixels().size(), 9));
  }
}

TEST(PaintRules, MovesInTheBufferReturnAtOnceForTheEndWeights) {
  const std::vector<uint16_t> before = {0, 0, 0, 0, 32768, 32768, 32768, 32768};
  for (const Bodies& b : everyLevel()) {
    std::vector<uint16_t> buffer(before);
    PaintRecord record{};
    record.buffer = buffer.data();
    record.bufferStride = 8;
    for (int32_t w : {0, 255, 0x100, -1}) {
      b.k.PaintSingle92.fn(1, 0, 1, 0, 7, 4, w, &record);
      EXPECT_EQ(buffer, before) << w << ' ' << levelName(b.level);
    }
    b.k.PaintSingle92.fn(1, 0, 1, 1, 7, 2, 128, &record);  // columns 1 and 2 move halfway (rounded)
    EXPECT_EQ(buffer, (std::vector<uint16_t>{0, 16448, 16448, 0, 32768, 32768, 32768, 32768})) << levelName(b.level);
  }
}

// Every 16-bit sample value against the host: blending toward the ends and the
// middle at the mask's ends (colours and samples above 32768 included), and
// slot 92's division over every distance in both directions.
TEST(PaintRules, SixteenBitArithmeticOverEverySample) {
  ReferenceHost host;
  start(host);
  constexpr int32_t kAll = 65536;
  std::vector<uint16_t> ramp(kAll), fromHost, fromModule;
  for (int32_t i = 0; i < kAll; ++i) ramp[static_cast<std::size_t>(i)] = static_cast<uint16_t>(i);
  const auto hostQ16 = reinterpret_cast<SlotFnOf<slot::PaintQ16>>(host.original(code::pntg, 55));
  const std::vector<Bodies> levels = everyLevel();
  for (uint16_t m : std::initializer_list<uint16_t>{1, 2, 16383, 16384, 32767, 32768}) {
    const std::vector<uint16_t> mask(kAll, m);
    PaintRecord record{};
    record.mask = mask.data();
    record.maskStride = 2 * kAll;
    for (uint16_t c : std::initializer_list<uint16_t>{0, 1, 16384, 32767, 32768, 65535}) {
      fromHost = ramp;
      hostQ16(0, 0, 0, 1, kAll, fromHost.data(), 2 * kAll, c, &record);
      for (const Bodies& b : levels) {
        fromModule = ramp;
        b.k.PaintQ16.fn(0, 0, 0, 1, kAll, fromModule.data(), 2 * kAll, c, &record);
        ASSERT_EQ(fromModule, fromHost) << "m " << m << " c " << c << ' ' << levelName(b.level);
      }
    }
  }
  const auto host92 = reinterpret_cast<SlotFnOf<slot::PaintSingle92>>(host.original(code::pntg, 92));
  for (int32_t w : {1, 2, 127, 128, 253, 254}) {
    for (int32_t toward : {0, 1}) {
      std::vector<uint16_t> rows[2] = {ramp, ramp};
      std::fill(rows[toward == 0 ? 1 : 0].begin(), rows[toward == 0 ? 1 : 0].end(), uint16_t{0});
      std::vector<uint16_t> buffer(rows[0]);
      buffer.insert(buffer.end(), rows[1].begin(), rows[1].end());
      std::vector<uint16_t> expected = buffer;
      PaintRecord record{};
      record.bufferStride = 2 * kAll;
      record.buffer = expected.data();
      host92(toward, 1 - toward, 1, 0, 0, kAll, w, &record);
      for (const Bodies& b : levels) {
        std::vector<uint16_t> moved = buffer;
        record.buffer = moved.data();
        b.k.PaintSingle92.fn(toward, 1 - toward, 1, 0, 0, kAll, w, &record);
        ASSERT_EQ(moved, expected) << "w " << w << " toward row " << toward << ' ' << levelName(b.level);
      }
    }
  }
}

// The checks against the host's routines with a noise buffer whose repeat is too
// short for a vector step's run (read byte by byte), or whose period is short (the
// walk wraps within a row, or within a wider level's step of 64 bytes), for the
// bodies of every level.
TEST(PaintDither, ShortNoiseBuffersMatchTheHost) {
  for (const Bodies& b : everyLevel()) {
    for (auto [period, room] : {std::pair<uint32_t, uint32_t>{40, 0}, {64, 32}, {1002, 30}, {48, 40}}) {
      refhost::HostOptions options;
      options.noisePeriodBytes = period;
      options.noiseRoomBytes = room;
      ReferenceHost host(options);
      int16_t result = 1;
      startupAtTier(host.hostInfo(), &result, flagsAtLevel(tests::thisProcessor(), b.level));
      ASSERT_EQ(result, 0);
      host.registerNoise();
      verify::VerifyOptions quick;
      quick.thorough = false;
      for (const verify::Check& check : verify::allChecks()) {
        if (check.suite != code::pntg) continue;
        if (check.slot != 10 && check.slot != 4 && check.slot != 5 && check.slot != 17 && check.slot != 13 &&
            check.slot != 18)
          continue;
        const verify::CheckResult r = verify::runCheck(check, host, quick);
        EXPECT_EQ(r.outcome, verify::Outcome::Passed)
            << levelName(b.level) << ' ' << period << '/' << room << ' ' << r.firstFailure;
      }
    }
  }
}

// Arguments whose unused bits must not count: a0 and a5 (read by nobody), slot
// 92's second offset, and the bits of colours, opacities, thresholds and weights
// above the low 8 (16) that the routine uses. Junked<...>::call replaces them with
// junk that changes at every call and hands the rest to the module's routine.
uint32_t junk() {
  static uint32_t state = 0x9E3779B9u;
  state ^= state << 13;
  state ^= state >> 17;
  state ^= state << 5;
  return state;
}
enum class Junk : uint8_t { None, High, Whole };
template <class A>
A junked(A a, Junk how, unsigned bits) {
  if constexpr (std::is_integral_v<A>) {
    if (how == Junk::Whole) return static_cast<A>(junk());
    if (how == Junk::High) return static_cast<A>((static_cast<uint32_t>(a) & ((1u << bits) - 1)) | (junk() << bits));
  }
  return a;
}
// Bits: the low bits used; HighAt: an int32_t argument of which only those count
// (every uint32_t one is junked so too); WholeAt: the arguments nobody reads.
template <auto Id, unsigned Bits, int HighAt, int... WholeAt>
struct Junked {
  static inline SlotFnOf<Id> target = nullptr;
  template <class... A>
  struct Of;
  template <class... A>
  struct Of<void(A...)> {
    static Junk how(int i, bool wide) {
      for (int whole : {WholeAt..., -1})
        if (i == whole) return Junk::Whole;
      return wide || i == HighAt ? Junk::High : Junk::None;
    }
    template <std::size_t... I>
    static void forward(std::index_sequence<I...>, A... a) {
      target(junked(a, how(static_cast<int>(I), std::is_same_v<A, uint32_t>), Bits)...);
    }
    static void call(A... a) { forward(std::index_sequence_for<A...>(), a...); }
  };
  // The slot, and the junking form of one level's body of it.
  static std::pair<int, HostRoutine> of(const PaintKernels& k) {
    target = k.get(Id).fn;
    return {decltype(Id)::number, reinterpret_cast<HostRoutine>(&Of<SlotTypeOf<Id>>::call)};
  }
};

TEST(PaintArguments, UnusedBitsAndArgumentsDoNotCount) {
  ReferenceHost host;
  start(host);
  verify::VerifyOptions quick;
  quick.thorough = false;
  for (const Bodies& b : everyLevel()) {
    const PaintKernels& k = b.k;
    const std::pair<int, HostRoutine> junkedRoutines[] = {
        Junked<slot::PaintP8, 8, -1, 0>::of(k),           Junked<slot::PaintP8x3, 8, -1, 0>::of(k),
        Junked<slot::PaintP8x4, 8, -1, 0>::of(k),         Junked<slot::PaintP16, 16, -1, 0>::of(k),
        Junked<slot::PaintP16x3, 16, -1, 0>::of(k),       Junked<slot::PaintP16x4, 16, -1, 0>::of(k),
        Junked<slot::PaintQ8, 8, -1, 0>::of(k),           Junked<slot::PaintQ8x3, 8, -1, 0>::of(k),
        Junked<slot::PaintQ8x4, 8, -1, 0>::of(k),         Junked<slot::PaintQ16, 16, -1, 0>::of(k),
        Junked<slot::PaintQ16x3, 16, -1, 0>::of(k),       Junked<slot::PaintQ16x4, 16, -1, 0>::of(k),
        Junked<slot::PaintSingle5, 8, -1, 0>::of(k),      Junked<slot::PaintSingle81, 16, -1, 0>::of(k),
        Junked<slot::PaintR8, 8, 1, 0>::of(k),            Junked<slot::PaintR8x3, 8, 1, 0>::of(k),
        Junked<slot::PaintR8x4, 8, 1, 0>::of(k),          Junked<slot::PaintR16, 16, 1, 0>::of(k),
        Junked<slot::PaintR16x3, 16, 1, 0>::of(k),        Junked<slot::PaintR16x4, 16, 1, 0>::of(k),
        Junked<slot::PaintSingle9, 8, 1, 0>::of(k),       Junked<slot::PaintS8, 8, -1, 0, 5>::of(k),
        Junked<slot::PaintS8x3, 8, -1, 0, 5>::of(k),      Junked<slot::PaintS8x4, 8, -1, 0, 5>::of(k),
        Junked<slot::PaintS16, 16, -1, 0, 5>::of(k),      Junked<slot::PaintS16x3, 16, -1, 0, 5>::of(k),
        Junked<slot::PaintS16x4, 16, -1, 0, 5>::of(k),    Junked<slot::PaintT8, 8, -1, 0, 5>::of(k),
        Junked<slot::PaintT8x3, 8, -1, 0, 5>::of(k),      Junked<slot::PaintT8x4, 8, -1, 0, 5>::of(k),
        Junked<slot::PaintT16, 16, -1, 0, 5>::of(k),      Junked<slot::PaintT16x3, 16, -1, 0, 5>::of(k),
        Junked<slot::PaintT16x4, 16, -1, 0, 5>::of(k),    Junked<slot::PaintSingle18, 8, 6>::of(k),
        Junked<slot::PaintSingle92, 8, 6, 4>::of(k),
    };
    int seen = 0;
    for (const verify::Check& check : verify::allChecks()) {
      if (check.suite != code::pntg) continue;
      for (const auto& [slot, routine] : junkedRoutines) {
        if (slot != check.slot) continue;
        ++seen;
        const verify::CheckResult r =
            verify::runCheckOn(check, host, host.original(code::pntg, slot), routine, quick);
        EXPECT_EQ(r.outcome, verify::Outcome::Passed) << levelName(b.level) << ' ' << slot << ' ' << r.firstFailure;
      }
    }
    EXPECT_EQ(seen, 35);
  }
}

// Faulty forms the checks must reject (built on the baseline bodies).
void s8x3SameChannel(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5, uint8_t* p0,
                     uint8_t* p1, uint8_t* p2, int32_t stride, const PaintRecord* record) {
  for (uint8_t* p : {p0, p1, p2}) g_paintSse2.PaintS8(a0, channel, y, rows, columns, a5, p, stride, record);
}
// Plane k reads channel + k but starts its dither from the first plane's x.
void s8x3DitherFromTheFirstChannel(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5,
                                   uint8_t* p0, uint8_t* p1, uint8_t* p2, int32_t stride,
                                   const PaintRecord* record) {
  uint8_t* planes[] = {p0, p1, p2};
  for (int k = 0; k < 3; ++k) {
    PaintRecord shifted = *record;
    shifted.source = record->source + k;
    g_paintSse2.PaintS8(a0, channel, y, rows, columns, a5, planes[k], stride, &shifted);
  }
}
void r8ThresholdAbove(int32_t a0, int32_t threshold, int32_t y, int32_t rows, int32_t columns, uint8_t* p,
                      int32_t stride, uint32_t colour, const PaintRecord* record) {
  g_paintSse2.PaintR8(a0, (threshold & 0xFF) == 255 ? threshold : threshold + 1, y, rows, columns, p, stride, colour,
                      record);
}
void q8DitherFromTheNextRow(int32_t a0, int32_t x, int32_t y, int32_t rows, int32_t columns, uint8_t* p,
                            int32_t stride, uint32_t colour, const PaintRecord* record) {
  g_paintSse2.PaintQ8(a0, x, y + 1, rows, columns, p, stride, colour, record);
}
// The rectangle read one place off: x taken from the first argument.
void p8DitherFromTheFirstArgument(int32_t a0, int32_t, int32_t y, int32_t rows, int32_t columns, uint8_t* p,
                                  int32_t stride, uint32_t colour, uint32_t opacity, const PaintRecord* record) {
  g_paintSse2.PaintP8(a0, a0, y, rows, columns, p, stride, colour, opacity, record);
}
void t16x4PlanesSwapped(int32_t a0, int32_t channel, int32_t y, int32_t rows, int32_t columns, int32_t a5,
                        uint16_t* p0, uint16_t* p1, uint16_t* p2, uint16_t* p3, int32_t stride, uint32_t opacity,
                        const PaintRecord* record) {
  g_paintSse2.PaintT16x4(a0, channel, y, rows, columns, a5, p1, p0, p2, p3, stride, opacity, record);
}
// Slot 18's dither started from the width instead of the second offset.
void single18DitherFromTheWidth(int32_t yRow, int32_t xRow, int32_t count, int32_t offset, int32_t, int32_t width,
                                int32_t weight, const PaintRecord* record) {
  g_paintSse2.PaintSingle18(yRow, xRow, count, offset, width, width, weight, record);
}
// 16-bit colours cut to their low byte.
void q16ColourAsByte(int32_t a0, int32_t x, int32_t y, int32_t rows, int32_t columns, uint16_t* p, int32_t stride,
                     uint32_t colour, const PaintRecord* record) {
  g_paintSse2.PaintQ16(a0, x, y, rows, columns, p, stride, colour & 0xFFu, record);
}

TEST(PaintChecks, RejectFaultyRoutines) {
  ReferenceHost host;
  start(host);
  verify::VerifyOptions quick;
  quick.thorough = false;
  quick.maxFailures = 1;
  auto outcome = [&](int slot, HostRoutine candidate) {
    for (const verify::Check& check : verify::allChecks())
      if (check.suite == code::pntg && check.slot == slot)
        return verify::runCheckOn(check, host, host.original(code::pntg, slot), candidate, quick).outcome;
    return verify::Outcome::NotInstalled;
  };
  EXPECT_EQ(outcome(34, reinterpret_cast<HostRoutine>(&s8x3SameChannel)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(7, reinterpret_cast<HostRoutine>(&r8ThresholdAbove)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(4, reinterpret_cast<HostRoutine>(&q8DitherFromTheNextRow)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(89, reinterpret_cast<HostRoutine>(&t16x4PlanesSwapped)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(34, reinterpret_cast<HostRoutine>(&s8x3DitherFromTheFirstChannel)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(10, reinterpret_cast<HostRoutine>(&p8DitherFromTheFirstArgument)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(18, reinterpret_cast<HostRoutine>(&single18DitherFromTheWidth)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(55, reinterpret_cast<HostRoutine>(&q16ColourAsByte)), verify::Outcome::Failed);
  EXPECT_EQ(outcome(34, reinterpret_cast<HostRoutine>(g_paintSse2.PaintS8x3)), verify::Outcome::Passed);
}

}  // namespace
