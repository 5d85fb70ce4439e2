// The 'conv' suite and the noise hook, through the static library. The harness
// (EveryCheck) already compares every slot with the host's routine on random
// in-range planes at every width and alignment, dithered or not; these tests add
// what random in-range data cannot reach: the installer's writes, the noise hook,
// samples above full, floats outside 0..1 (NaN, infinities), exhaustive sweeps of
// the vector arithmetic, a host with another noise period, and the calls handed to
// the host's routines. The conversions' tests run on every level of bodies this
// processor has (SSE2 rows, and AVX2 rows where it has AVX2).
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "convert/convert_sse2.h"
#include "host/noise_table.h"
#include "host/install.h"
#include "host/module_state.h"
#include "tests/install_recorder.h"
#include "refhost/refhost.h"
#include "tests/module_start.h"
#include "tests/tiers.h"


using namespace tarnell;
using refhost::ReferenceHost;

namespace {

void start(ReferenceHost& host) { tests::startModule(host, tests::Noise::Register); }

// Runs test(kernels) once per level of conversion bodies this processor runs,
// narrowest first (the five conversions change bodies together, one table a level).
template <class Test>
void forEachLevel(Test&& test) {
  HostRoutine last = nullptr;
  for (Level level : tests::levelsHere()) {
    const Kernels kernels = resolveKernels(flagsAtLevel(tests::thisProcessor(), level));
    const auto body = reinterpret_cast<HostRoutine>(kernels.get(slot::convert16To8).fn);
    if (body == last) continue;
    last = body;
    SCOPED_TRACE(levelName(level));
    test(kernels);
  }
}

// Bytes with a chosen misalignment from a 64-byte boundary.
struct Buffer {
  explicit Buffer(std::size_t bytes, std::size_t offset = 0) : storage(bytes + 128, 0) {
    const auto base = reinterpret_cast<uintptr_t>(storage.data());
    data = storage.data() + ((64 - base % 64) % 64) + offset;
  }
  template <typename T>
  T* as() {
    return reinterpret_cast<T*>(data);
  }
  std::vector<unsigned char> storage;
  unsigned char* data;
};

uint16_t wordAt(const unsigned char* p, std::size_t i) {
  uint16_t v;
  std::memcpy(&v, p + 2 * i, 2);
  return v;
}
void setWord(unsigned char* p, std::size_t i, uint16_t v) { std::memcpy(p + 2 * i, &v, 2); }
void setFloat(unsigned char* p, std::size_t i, float v) { std::memcpy(p + 4 * i, &v, 4); }
float floatAt(const unsigned char* p, std::size_t i) {
  float v;
  std::memcpy(&v, p + 4 * i, 4);
  return v;
}

// ------------------------------------------------------------------ installers

using installs::erase;

// Without SSE2 only slot 19, with its baseline body; with SSE2 the other four
// too, each with the AVX2 rows where the processor has AVX2.
TEST(ConvertInstall, SlotNineteenFirstThenTheSse2ConversionsAndTheNoiseHook) {
  for (const uint32_t level : {0u, 1u, 2u}) {
    const uint32_t sse2 = level >= 1 ? 1 : 0, avx2 = level >= 2 ? 1 : 0;
    SCOPED_TRACE(level == 0 ? "no SSE2" : level == 1 ? "SSE2" : "AVX2");
    CpuFeatureFlags flags{1, 1, 1, sse2, sse2, sse2, sse2, avx2, avx2, 0};
    const installs::Installed w = installs::recordInstall<code::conv>(&installConvert, flags);
    EXPECT_EQ(w.order, installs::listedOrder(code::conv, flags));
    EXPECT_EQ(w.order.front(), 19);
    const convert::ConvertTable& bodies = avx2 ? convert::g_convertAvx2 : convert::g_convertSse2;
    EXPECT_EQ(w.at(19), erase(bodies.rescale16));
    if (!avx2) {
      EXPECT_EQ(w.at(19), erase(&rescale16));
    }
    const std::pair<int, HostRoutine> sse2Slots[] = {{16, erase(bodies.convert16To8Planar3)},
                                                     {17, erase(bodies.convert16To8)},
                                                     {18, erase(bodies.convert8To16)},
                                                     {58, erase(bodies.convertFloatTo8)}};
    for (const auto& [slot, fn] : sse2Slots) EXPECT_EQ(w.at(slot), sse2 ? fn : nullptr);
  }
  const installs::Installed w = installs::recordInstall<code::core>(&installNoiseHookInto, CpuFeatureFlags{});
  EXPECT_EQ(w.order, installs::listedOrder(code::core, CpuFeatureFlags{}));
  EXPECT_EQ(w.at(3), erase(&registerNoiseTable));
}

// ------------------------------------------------------------------ noise hook

TEST(NoiseHook, RecordsTheTableAndPassesArgumentsAndResultThrough) {
  ReferenceHost host;
  start(host);  // one registration so far
  EXPECT_EQ(g_noiseTable.base, reinterpret_cast<const unsigned char*>(host.noiseBase()));
  EXPECT_EQ(g_noiseTable.size, host.noiseSizeBytes());
  EXPECT_EQ(g_noiseTable.period, host.noisePeriodBytes());
  EXPECT_EQ(g_noiseTable.end, g_noiseTable.base + host.noisePeriodBytes());

  // Arbitrary arguments through the live slot reach the host unchanged and its
  // result (the registration count) comes back; a null base still gets its end.
  auto live = reinterpret_cast<SlotFnOf<slot::registerNoiseTable>>(host.live(code::core, 3));
  static const unsigned char buffer[64] = {};
  EXPECT_EQ(live(buffer + 6, 50, 17), 2);
  EXPECT_EQ(live(nullptr, 0xFFFFFFFFu, 0x80000000u), 3);
  const auto seen = host.noiseRegistrations();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(std::tuple(seen[1].base, seen[1].size, seen[1].period), std::tuple(buffer + 6, 50u, 17u));
  EXPECT_EQ(std::tuple(seen[2].base, seen[2].size, seen[2].period), std::tuple(nullptr, 0xFFFFFFFFu, 0x80000000u));
  EXPECT_EQ(std::tuple(g_noiseTable.base, g_noiseTable.size, g_noiseTable.period),
            std::tuple(nullptr, 0xFFFFFFFFu, 0x80000000u));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(g_noiseTable.end), uintptr_t{0x80000000u});
  host.registerNoise();
}

// ------------------------------------------------------------------ edge values

// Samples above full (outside the host's range, so never in the harness's data)
// count as full. Repeated so that every value passes through head, body and tail.
TEST(Convert16To8, EdgeValuesWithoutDither) {
  forEachLevel([&](const Kernels& kernels) {
    const auto threeTo8 = kernels.get(slot::convert16To8Planar3).fn;
    const auto oneTo8 = kernels.get(slot::convert16To8).fn;
    const uint16_t in[] = {0, 64, 128, 16384, 32640, 32768, 127, 129, 32767, 40000, 65535};
    const uint8_t want[] = {0, 0, 1, 128, 254, 255, 1, 1, 255, 255, 255};
    constexpr int32_t n = 11, kColumns = 64 * n - 8;
    Buffer source(2 * 64 * n), d1(64 * n), d3[3] = {Buffer(64 * n), Buffer(64 * n), Buffer(64 * n)};
    for (int i = 0; i < 64 * n; ++i) setWord(source.data, static_cast<std::size_t>(i), in[i % n]);
    for (int32_t offset : {0, 1, 7}) {
      oneTo8(source.as<uint16_t>(), d1.data + offset, 1, kColumns, 0, 0, 0);
      threeTo8(source.as<uint16_t>(), source.as<uint16_t>(), source.as<uint16_t>(), d3[0].data + offset, d3[1].data,
               d3[2].data, 1, kColumns, 0, 0, 0);
      for (int i = 0; i < kColumns; ++i) {
        ASSERT_EQ(d1.data[offset + i], want[i % n]) << "x=" << in[i % n] << " column " << i;
        for (int k = 0; k < 3; ++k) ASSERT_EQ(d3[k].data[(k == 0 ? offset : 0) + i], want[i % n]) << k;
      }
    }
  });
}

// Every 16-bit value, in range or above it, through the vector loops of both
// routines without dither (their rounded form differs from the dithered one).
TEST(Convert16To8, EveryValueWithoutDither) {
  forEachLevel([&](const Kernels& kernels) {
    const auto threeTo8 = kernels.get(slot::convert16To8Planar3).fn;
    const auto oneTo8 = kernels.get(slot::convert16To8).fn;
    constexpr int32_t kColumns = 65536;
    Buffer source(2 * kColumns), d1(kColumns), d3[3] = {Buffer(kColumns), Buffer(kColumns), Buffer(kColumns)};
    for (uint32_t x = 0; x < 65536; ++x) setWord(source.data, x, static_cast<uint16_t>(x));
    const auto* s = source.as<uint16_t>();
    oneTo8(s, d1.data, 1, kColumns, 0, 0, 0);
    threeTo8(s, s, s, d3[0].data, d3[1].data, d3[2].data, 1, kColumns, 0, 0, 0);
    for (uint32_t x = 0; x < 65536; ++x) {
      const uint32_t want = x >= 32768 ? 255 : (255 * x + 16384) >> 15;
      ASSERT_EQ(d1.data[x], want) << x;
      for (const Buffer& d : d3) ASSERT_EQ(d.data[x], want) << x;
    }
  });
}

// Every byte value at every position of the head, the vector steps (aligned, or
// unaligned for an odd destination) and the tail.
TEST(Convert8To16, EveryValueAtEveryPosition) {
  forEachLevel([&](const Kernels& kernels) {
    const auto to16 = kernels.get(slot::convert8To16).fn;
    constexpr int32_t kColumns = 256 + 37;
    Buffer source(kColumns), destination(2 * kColumns + 16);
    for (int32_t shift = 0; shift < 16; ++shift) {
      for (int32_t i = 0; i < kColumns; ++i) source.data[i] = static_cast<uint8_t>(i + shift);
      for (std::size_t offset : {0u, 1u, 2u, 14u}) {
        to16(source.data, reinterpret_cast<uint16_t*>(destination.data + offset), 1, kColumns, 0, 0);
        for (int32_t i = 0; i < kColumns; ++i) {
          const uint32_t x = source.data[i];
          ASSERT_EQ(wordAt(destination.data + offset, static_cast<std::size_t>(i)), ((x << 15) | 127) / 255)
              << x << " at " << i << " offset " << offset;
        }
      }
    }
  });
}

// Every 16-bit value of both re-scalings, through the vector loop (even addresses)
// and the scalar loop (odd ones).
TEST(Rescale16, EveryValueBothDirectionsVectorAndScalar) {
  forEachLevel([&](const Kernels& kernels) {
    const auto rescale = kernels.get(slot::rescale16).fn;
    Buffer buffer(2 * 65536 + 64);
    for (std::size_t offset : {0u, 1u, 6u}) {
      unsigned char* p = buffer.data + offset;
      for (uint32_t x = 0; x < 65536; ++x) setWord(p, x, static_cast<uint16_t>(x));
      rescale(reinterpret_cast<uint16_t*>(p), 65535, 32768, 1, 65536, 0);
      for (uint32_t x = 0; x < 65536; ++x) ASSERT_EQ(wordAt(p, x), ((x << 15) | 0x7FFF) / 65535) << x;
      for (uint32_t x = 0; x < 65536; ++x) setWord(p, x, static_cast<uint16_t>(x));
      rescale(reinterpret_cast<uint16_t*>(p), 32768, 65535, 1, 65536, 0);
      for (uint32_t x = 0; x < 65536; ++x) ASSERT_EQ(wordAt(p, x), x >= 32768 ? 65535 : (x * 65535 + 16384) >> 15) << x;
    }
  });
}

// ------------------------------------------------------------ float to 8-bit

// The host's rule, computed here independently: trunc(clamp(v) * 255 + 0.5) in
// single precision for the columns up to the last multiple of four of the call,
// exactly (in double) for the rest.
float clampedFloat(float v) { return v >= 0.0f ? std::min(v, 1.0f) : 0.0f; }
uint8_t singleFloatTo8(float v) {
  const float product = clampedFloat(v) * 255.0f;
  return static_cast<uint8_t>(product + 0.5f);
}
uint8_t exactFloatTo8(float v) {
  return static_cast<uint8_t>(std::floor(static_cast<double>(clampedFloat(v)) * 255.0 + 0.5));
}
uint8_t ruleFloatTo8(float v, int32_t column, int32_t columns) {
  return column < columns / 4 * 4 ? singleFloatTo8(v) : exactFloatTo8(v);
}

// Values outside 0..1 (the harness draws from -0.5..1.5 only), at every position of
// the vector body, the four-at-a-time loop and the scalar tail.
TEST(ConvertFloatTo8, NamedValuesAndTheOnesOutsideZeroToOne) {
  forEachLevel([&](const Kernels& kernels) {
    const auto floatTo8 = kernels.get(slot::convertFloatTo8).fn;
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const float denormal = std::numeric_limits<float>::denorm_min();
    const uint32_t otherNans[] = {0x7F800001u, 0xFFC00000u};  // signalling, negative
    float signalling, negativeNan;
    std::memcpy(&signalling, &otherNans[0], 4);
    std::memcpy(&negativeNan, &otherNans[1], 4);
    const std::pair<float, uint8_t> named[] = {
        {1.5f, 255},  {-0.25f, 0},    {0.5f, 128},       {nan, 0},          {signalling, 0}, {negativeNan, 0},
        {inf, 255},   {-inf, 0},      {-0.0f, 0},        {0.0f, 0},         {1.0f, 255},     {denormal, 0},
        {1e30f, 255}, {-1e30f, 0},    {1.0000001f, 255}, {0.001960784f, 0}, {0.0019607844f, 1}, {0.998f, 254}};
    constexpr int32_t n = 18;
    Buffer source(4 * 32 * n), destination(32 * n);
    for (int i = 0; i < 32 * n; ++i) setFloat(source.data, static_cast<std::size_t>(i), named[i % n].first);
    for (int32_t columns : {32 * n, 32 * n - 1, 32 * n - 2, 32 * n - 3}) {
      std::memset(destination.data, 0xAA, 32 * n);
      floatTo8(source.as<float>(), destination.data, 1, columns, 0, 0, 0);
      for (int i = 0; i < columns; ++i)
        ASSERT_EQ(destination.data[i], named[i % n].second) << "value " << named[i % n].first << " at " << i;
    }
  });
}

// Every float in 0..1, nearly all through the single-precision vector loop and the
// last four of each block through the double-precision tail. Single and double
// precision disagree (single one higher, fl(v * 255) rounding up across a half) for
// exactly 128 of them, the first 0x3B008080, as docs/contracts.md says; each of
// those is then run at every position of the loops, so a column computed in the
// wrong precision shows.
TEST(ConvertFloatTo8, EveryFloatFromZeroToOneFollowsTheColumnRule) {
  forEachLevel([&](const Kernels& kernels) {
    const auto floatTo8 = kernels.get(slot::convertFloatTo8).fn;
    constexpr uint32_t kBlock = 1u << 16, kLast = 0x3F800000u;  // 1.0f
    Buffer source(4 * kBlock), destination(kBlock);
    std::vector<uint8_t> single(kBlock), exact(kBlock);
    std::vector<uint32_t> differing;
    uint64_t mismatches = 0;
    for (uint32_t first = 0; first <= kLast; first += kBlock) {
      const uint32_t count = std::min(kLast - first + 1, kBlock);
      for (uint32_t i = 0; i < count; ++i) {
        const uint32_t bits = first + i;
        std::memcpy(source.data + 4 * i, &bits, 4);
      }
      const auto body = static_cast<int32_t>(count == kBlock ? count - 3 : count);
      floatTo8(source.as<float>(), destination.data, 1, body, 0, 0, 0);
      floatTo8(source.as<float>() + body, destination.data + body, 1, static_cast<int32_t>(count) - body, 0, 0, 0);
      // Arrays first and one comparison per block: this runs for a billion floats.
      for (uint32_t i = 0; i < count; ++i) {
        const float v = floatAt(source.data, i);
        exact[i] = static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(v) * 255.0 + 0.5));
        const float product = v * 255.0f;
        single[i] = static_cast<uint8_t>(static_cast<int32_t>(product + 0.5f));
      }
      const auto singleColumns = static_cast<uint32_t>(body / 4 * 4);
      if (std::memcmp(destination.data, single.data(), singleColumns) != 0 ||
          std::memcmp(destination.data + singleColumns, exact.data() + singleColumns, count - singleColumns) != 0)
        for (uint32_t i = 0; i < count; ++i) {
          const uint8_t want = i < singleColumns ? single[i] : exact[i];
          if (destination.data[i] != want && mismatches++ < 5)
            ADD_FAILURE() << "float 0x" << std::hex << first + i << std::dec << ": module " << int{destination.data[i]}
                          << ", rule " << int{want};
        }
      if (std::memcmp(single.data(), exact.data(), count) != 0)
        for (uint32_t i = 0; i < count; ++i)
          if (single[i] != exact[i]) differing.push_back(first + i);
    }
    EXPECT_EQ(mismatches, 0u);
    ASSERT_EQ(differing.size(), 128u);
    EXPECT_EQ(differing.front(), 0x3B008080u);
    Buffer shifted(4 * 64), out(64 + 16);
    for (uint32_t bits : differing) {
      float v;
      std::memcpy(&v, &bits, 4);
      ASSERT_EQ(singleFloatTo8(v), exactFloatTo8(v) + 1) << v;
      for (int i = 0; i < 64; ++i) setFloat(shifted.data, static_cast<std::size_t>(i), v);
      for (int offset : {0, 5})  // a misaligned destination starts with single samples
        for (int32_t columns : {64, 63, 62, 61, 7, 5, 4, 3, 2, 1}) {
          floatTo8(shifted.as<float>(), out.data + offset, 1, columns, 0, 0, 0);
          for (int i = 0; i < columns; ++i)
            ASSERT_EQ(out.data[offset + i], ruleFloatTo8(v, i, columns))
                << v << " column " << i << " offset " << offset;
        }
    }
  });
}

// Regions whose rows follow one another in both planes (taken as one row when
// every column is single precision), and rows with a sum too large for 32 bits
// (which the wider rows' fast steps hand back to the limited form): every column
// by its row's rule.
TEST(ConvertFloatTo8, ContiguousRowsAndHugeValues) {
  forEachLevel([&](const Kernels& kernels) {
    const auto floatTo8 = kernels.get(slot::convertFloatTo8).fn;
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    constexpr int32_t kRows = 6;
    for (int32_t columns : {128, 130, 4, 3}) {
      const auto count = static_cast<std::size_t>(kRows * columns);
      Buffer source(4 * count);
      for (std::size_t i = 0; i < count; ++i) setFloat(source.data, i, static_cast<float>(i * 37 % 1021) / 1020.0f);
      // Row 1 a huge value, row 3 infinity, row 4 NaN and a huge negative; rows 0, 2 and 5 plain.
      const auto at = [&](int32_t row, int32_t column) { return static_cast<std::size_t>(row * columns + column); };
      setFloat(source.data, at(1, columns - 1), 1e30f);
      setFloat(source.data, at(3, columns / 2), inf);
      setFloat(source.data, at(4, 0), nan);
      setFloat(source.data, at(4, columns - 1), -1e30f);
      for (int32_t stride : {columns, columns + 5}) {  // one row in all, or row by row
        Buffer destination(static_cast<std::size_t>(kRows * stride));
        std::memset(destination.data, 0xAA, static_cast<std::size_t>(kRows * stride));
        floatTo8(source.as<float>(), destination.data, kRows, columns, 4 * columns, stride, 0);
        for (int32_t r = 0; r < kRows; ++r)
          for (int32_t c = 0; c < columns; ++c) {
            const float v = floatAt(source.data, at(r, c));
            ASSERT_EQ(destination.data[r * stride + c], ruleFloatTo8(v, c, columns))
                << v << " row " << r << " column " << c << " of " << columns << ", stride " << stride;
          }
      }
    }
  });
}

// The rule evaluated in the test under the rounding mode in force (out of line, so
// that the compiler keeps it between the mode changes).
[[gnu::noinline]] void ruleUnderCurrentMode(const float* v, uint8_t* want, int32_t columns) {
  for (int32_t i = 0; i < columns; ++i) want[i] = ruleFloatTo8(v[i], i, columns);
  asm volatile("" ::: "memory");
}

// Sampled bit patterns of every sign and exponent, under each rounding mode, with
// and without flush-to-zero and denormals-are-zero: the single-precision columns
// round in the mode in force (as the host's do), the double-precision ones are
// exact in any mode, and the control word is left as it was.
TEST(ConvertFloatTo8, AnyFloatAnyRoundingModeOrFlushSetting) {
  forEachLevel([&](const Kernels& kernels) {
    const auto floatTo8 = kernels.get(slot::convertFloatTo8).fn;
    constexpr int32_t kCount = 1 << 20;
    Buffer source(4 * kCount), destination(kCount);
    std::vector<uint8_t> want(kCount);
    for (uint32_t i = 0; i < static_cast<uint32_t>(kCount); ++i) {
      const uint32_t bits = i * 4093u + (i >> 9);
      std::memcpy(source.data + 4 * i, &bits, 4);
    }
    const unsigned saved = _mm_getcsr();
    for (unsigned mode : {0x0000u, 0x2000u, 0x4000u, 0x6000u})
      for (unsigned flush : {0x0000u, 0x8040u})
        for (int32_t columns : {kCount - 1, 3}) {
          const unsigned csr = (saved & ~0xE040u) | mode | flush;
          _mm_setcsr(csr);
          floatTo8(source.as<float>(), destination.data, 1, columns, 0, 0, 0);
          const unsigned after = _mm_getcsr();
          ruleUnderCurrentMode(source.as<float>(), want.data(), columns);
          _mm_setcsr(saved);
          EXPECT_EQ(after & ~0x3Fu, csr & ~0x3Fu);  // nothing changed but status flags
          for (int32_t i = 0; i < columns; ++i) {
            const float v = floatAt(source.data, static_cast<std::size_t>(i));
            ASSERT_EQ(destination.data[i], want[static_cast<std::size_t>(i)])
                << v << " mode " << mode << " flush " << flush << " column " << i;
          }
        }
  });
}

// ------------------------------------------------------------- large regions

// Regions of 8 MiB of destination or more take the streaming stores: the same
// bytes as the host's routines, rows of every alignment (an odd padded stride),
// nothing written into the padding.
TEST(ConvertLargeRegions, StreamTheSameBytesAsTheHost) {
  forEachLevel([&](const Kernels& kernels) {
    const auto oneTo8 = kernels.get(slot::convert16To8).fn;
    const auto to16 = kernels.get(slot::convert8To16).fn;
    const auto floatTo8 = kernels.get(slot::convertFloatTo8).fn;
    ReferenceHost host;
    constexpr int32_t kRows = 1031, kColumns = 8190, kPad = 21;
    constexpr std::size_t kSamples = std::size_t{kRows} * (kColumns + kPad);
    Buffer source(4 * kSamples), module(2 * kSamples + 2, 1), reference(2 * kSamples + 2, 1);
    uint32_t state = 7;
    for (std::size_t i = 0; i < 4 * kSamples; i += 2) {
      state = state * 1664525u + 1013904223u;
      setWord(source.data, i / 2, static_cast<uint16_t>((state >> 8) % 32769u));
    }
    auto compare = [&](std::size_t bytes, const char* what) {
      std::memset(reference.data, 0x55, bytes);
      std::memset(module.data, 0x55, bytes);
      return [&, bytes, what] { ASSERT_EQ(std::memcmp(module.data, reference.data, bytes), 0) << what; };
    };
    {
      auto check = compare(kSamples, "16 to 8");
      reinterpret_cast<SlotFnOf<slot::convert16To8>>(host.original(code::conv, 17))(
          source.as<uint16_t>(), reference.data, kRows, kColumns, 2 * (kColumns + kPad), kColumns + kPad, 0);
      oneTo8(source.as<uint16_t>(), module.data, kRows, kColumns, 2 * (kColumns + kPad), kColumns + kPad, 0);
      check();
    }
    {
      auto check = compare(2 * kSamples, "8 to 16");
      reinterpret_cast<SlotFnOf<slot::convert8To16>>(host.original(code::conv, 18))(
          source.data, reference.as<uint16_t>(), kRows, kColumns, kColumns + kPad, 2 * (kColumns + kPad));
      to16(source.data, module.as<uint16_t>(), kRows, kColumns, kColumns + kPad, 2 * (kColumns + kPad));
      check();
    }
    {
      // Three planes, each large: converted plane after plane, streamed. The sources
      // overlap (read only) at different word offsets; the destinations lie apart.
      const auto threeTo8 = kernels.get(slot::convert16To8Planar3).fn;
      Buffer module3(3 * kSamples, 1), reference3(3 * kSamples, 1);
      std::memset(module3.data, 0x55, 3 * kSamples);
      std::memset(reference3.data, 0x55, 3 * kSamples);
      const uint16_t* s = source.as<uint16_t>();
      auto run = [&](auto routine, unsigned char* d) {
        routine(s, s + 1, s + 7, d, d + kSamples, d + 2 * kSamples + 3, kRows, kColumns, 2 * (kColumns + kPad),
                kColumns + kPad - 1, 0);
      };
      run(reinterpret_cast<SlotFnOf<slot::convert16To8Planar3>>(host.original(code::conv, 16)), reference3.data);
      run(threeTo8, module3.data);
      ASSERT_EQ(std::memcmp(module3.data, reference3.data, 3 * kSamples), 0) << "three planes 16 to 8";
    }
    {
      for (std::size_t i = 0; i < kSamples; ++i)
        setFloat(source.data, i, static_cast<float>(i % 4099) / 4000.0f - 0.01f);
      auto check = compare(kSamples, "float to 8");
      reinterpret_cast<SlotFnOf<slot::convertFloatTo8>>(host.original(code::conv, 58))(
          source.as<float>(), reference.data, kRows, kColumns + 1, 4 * (kColumns + kPad), kColumns + kPad, 0);
      floatTo8(source.as<float>(), module.data, kRows, kColumns + 1, 4 * (kColumns + kPad), kColumns + kPad, 0);
      check();
    }
  });
}

// ------------------------------------------------------------------- dithering

// Noise entries all holding one value n (with the unused top bit set for odd n, so
// it must be masked off): the dithered vector path computes (x + ((n - x) >> 8)) >> 7,
// which must equal floor((255 x + n) / 32768) for every x in 0..32768, n in 0..32767.
TEST(Convert16To8, ShiftFormEqualsTheProductFormForEveryXAndN) {
  forEachLevel([&](const Kernels& kernels) {
    const auto oneTo8 = kernels.get(slot::convert16To8).fn;
    ReferenceHost host;
    start(host);
    constexpr uint32_t kPeriod = 16384, kRoom = 8192;
    constexpr int32_t kColumns = 32769;
    std::vector<uint16_t> noise((kPeriod + kRoom) / 2);
    Buffer source(2 * kColumns), destination(kColumns + 16);
    for (uint32_t x = 0; x <= 32768; ++x) setWord(source.data, x, static_cast<uint16_t>(x));
    std::vector<uint8_t> want(kColumns);
    uint64_t mismatches = 0;
    for (uint32_t n = 0; n < 32768; ++n) {
      std::fill(noise.begin(), noise.end(), static_cast<uint16_t>(n | ((n & 1) << 15)));
      registerNoiseTable(noise.data(), kPeriod + kRoom, kPeriod);
      unsigned char* d = destination.data + (n % 16);  // every head length
      oneTo8(source.as<uint16_t>(), d, 1, kColumns, 0, 0, 1);
      for (uint32_t x = 0; x <= 32768; ++x) want[x] = static_cast<uint8_t>((255 * x + n) >> 15);
      if (std::memcmp(d, want.data(), kColumns) != 0 && mismatches++ < 5) {
        uint32_t x = 0;
        while (d[x] == want[x]) ++x;
        ADD_FAILURE() << "x=" << x << " n=" << n << ": " << int{d[x]} << " instead of " << int{want[x]};
      }
    }
    EXPECT_EQ(mismatches, 0u);
    host.registerNoise();
  });
}

// A host with another noise period than the harness's host: rows long enough for
// the walk to wrap several times, which must go back by the registered period.
TEST(Dither, HostWithAnotherNoisePeriod) {
  forEachLevel([&](const Kernels& kernels) {
    const auto oneTo8 = kernels.get(slot::convert16To8).fn;
    refhost::HostOptions options;
    options.noisePeriodBytes = 12288;
    options.noiseRoomBytes = 8192;
    ReferenceHost host(options);
    start(host);
    const auto hostRoutine = reinterpret_cast<SlotFnOf<slot::convert16To8>>(host.original(code::conv, 17));
    constexpr int32_t kRows = 8, kMaxColumns = 2048;
    Buffer source(2 * kMaxColumns * kRows), destination(kMaxColumns * kRows + 16);
    for (int i = 0; i < kMaxColumns * kRows; ++i)
      setWord(source.data, static_cast<std::size_t>(i),
              static_cast<uint16_t>(static_cast<uint32_t>(i) * 40503u % 32769));
    for (int32_t columns : {kMaxColumns, 1531, 1000})
      for (std::size_t offset = 0; offset < 16; offset += 3) {
        // The pattern follows the destination address: module and host write to the same one.
        unsigned char* d = destination.data + offset;
        const auto bytes = static_cast<std::size_t>(kRows * columns);
        oneTo8(source.as<uint16_t>(), d, kRows, columns, 2 * columns, columns, 1);
        const std::vector<uint8_t> fromModule(d, d + bytes);
        hostRoutine(source.as<uint16_t>(), d, kRows, columns, 2 * columns, columns, 1);
        ASSERT_EQ(std::memcmp(d, fromModule.data(), bytes), 0) << columns << " columns, offset " << offset;
      }
  });
}

// ------------------------------------------------------- calls to the host

// A stand-in for a saved routine: counts its calls and keeps every argument.
std::vector<uintptr_t> g_seen;
int g_calls = 0;
template <typename T>
uintptr_t asWord(T v) {
  if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<uintptr_t>(v);
  else
    return static_cast<uintptr_t>(v);
}
template <typename... Args>
void record(Args... args) {
  g_seen = {asWord(args)...};
  ++g_calls;
}
uintptr_t arg(int32_t v) { return static_cast<uintptr_t>(v); }

// Only range pairs other than the module's two, and dithered floats, go to the
// host's routines, with every argument unchanged (even with nothing to convert).
TEST(ConvertFallbacks, OnlyOtherRangePairsAndDitheredFloatsReachTheHostWithEveryArgument) {
  forEachLevel([&](const Kernels& kernels) {
    const auto rescale = kernels.get(slot::rescale16).fn;
    const auto floatTo8 = kernels.get(slot::convertFloatTo8).fn;
    HostRoutine& saved19 = tarnell_saved_tables[kConv][19];
    HostRoutine& saved58 = tarnell_saved_tables[kConv][58];
    const HostRoutine before19 = saved19, before58 = saved58;
    saved19 = erase(&record<uint16_t*, uint32_t, uint32_t, int32_t, int32_t, int32_t>);
    saved58 = erase(&record<const float*, uint8_t*, int32_t, int32_t, int32_t, int32_t, uint8_t>);
    g_calls = 0;

    uint16_t data[4] = {1, 2, 3, 4};
    rescale(data, 32768, 65535, 1, 4, 8);
    rescale(data, 65535, 32768, 1, 4, 8);
    EXPECT_EQ(g_calls, 0);
    auto* words = reinterpret_cast<uint16_t*>(uintptr_t{0x1234560});
    rescale(words, 40000, 70000, -3, 123456, -98);
    EXPECT_EQ(g_calls, 1);
    EXPECT_EQ(g_seen, (std::vector<uintptr_t>{0x1234560, 40000, 70000, arg(-3), 123456, arg(-98)}));
    rescale(data, 65535, 65535, 1, 4, 8);
    EXPECT_EQ(g_seen[2], 65535u);
    rescale(data, 255, 32768, 0, 4, 8);
    EXPECT_EQ(g_calls, 3);
    EXPECT_EQ(g_seen, (std::vector<uintptr_t>{reinterpret_cast<uintptr_t>(data), 255, 32768, 0, 4, 8}));

    float floats[3] = {0.25f, 0.5f, 0.75f};
    uint8_t bytes[3] = {};
    floatTo8(floats, bytes, 1, 3, 12, 3, 0);
    EXPECT_EQ(g_calls, 3);
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 3), (std::vector<uint8_t>{64, 128, 191}));
    auto* source = reinterpret_cast<const float*>(uintptr_t{0x7654320});
    floatTo8(source, reinterpret_cast<uint8_t*>(uintptr_t{0x1111}), 0, -5, 77, -1, 200);
    EXPECT_EQ(g_calls, 4);
    EXPECT_EQ(g_seen, (std::vector<uintptr_t>{0x7654320, 0x1111, 0, arg(-5), 77, arg(-1), 200}));
    saved19 = before19;
    saved58 = before58;
  });
}

}  // namespace
