// The 'conv' suite and the noise hook, through the static library: the installer's
// writes, the noise table and its pass-through to the host, the conversions' edge
// values, exhaustive sweeps of the vector arithmetic (16-bit to 8-bit shift form,
// every float in 0..1, every 16-bit value of both re-scalings), the dither walk
// (column splitting, wrap-around, address dependence) and the calls handed to the
// host's routines.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "convert/convert_sse2.h"
#include "convert/noise_table.h"
#include "host/install.h"
#include "host/module_state.h"
#include "refhost/refhost.h"

extern "C" int32_t PluginMain(int16_t selector, tarnell::HostInfo* hostInfo, intptr_t data, int16_t* result);

using namespace tarnell;
using refhost::ReferenceHost;

namespace {

// Starts the statically linked module on the host and registers the host's noise
// buffer through the (now patched) 'core' slot 3, as a host does.
void start(ReferenceHost& host) {
  int16_t result = 1;
  PluginMain(kSelectorStartup, host.hostInfo(), 0, &result);
  ASSERT_EQ(result, 0);
  host.registerNoise();
}

template <uint32_t Suite, int Slot>
SlotFn<Suite, Slot> hostRoutine(const ReferenceHost& host) {
  return reinterpret_cast<SlotFn<Suite, Slot>>(host.original(Suite, Slot));
}

int callsTo(const ReferenceHost& host, uint32_t suite, int slot) {
  int n = 0;
  for (const refhost::CallRecord& c : host.calls()) n += c.suite == suite && c.slot == slot;
  return n;
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

// ------------------------------------------------------------------ installers

struct Writes {
  std::vector<int> slots;
  static void observe(void* context, int slot, HostRoutine) { static_cast<Writes*>(context)->slots.push_back(slot); }
};

TEST(ConvertInstall, SlotNineteenFirstThenTheSse2Conversions) {
  for (int sse2 = 0; sse2 < 2; ++sse2) {
    CpuFeatureFlags flags{};
    flags.mmx = flags.sse = flags.sseSecond = 1;
    flags.sse2 = static_cast<uint32_t>(sse2);
    flags.sse3 = flags.ssse3 = flags.sse41 = flags.avx = flags.avx2 = static_cast<uint32_t>(sse2);
    std::vector<HostRoutine> table(kSuites[kConv].slotCount, nullptr);
    Writes w;
    installConvert(SuiteWriter<code::conv>(table.data(), &Writes::observe, &w), flags);
    const std::vector<int> want = sse2 ? std::vector<int>{19, 16, 17, 18, 58} : std::vector<int>{19};
    EXPECT_EQ(w.slots, want);
    EXPECT_EQ(table[19], reinterpret_cast<HostRoutine>(&rescale16));
    if (sse2) {
      EXPECT_EQ(table[16], reinterpret_cast<HostRoutine>(&convert16To8Planar3));
      EXPECT_EQ(table[17], reinterpret_cast<HostRoutine>(&convert16To8));
      EXPECT_EQ(table[18], reinterpret_cast<HostRoutine>(&convert8To16));
      EXPECT_EQ(table[58], reinterpret_cast<HostRoutine>(&convertFloatTo8));
    } else {
      for (int slot : {16, 17, 18, 58}) EXPECT_EQ(table[static_cast<std::size_t>(slot)], nullptr) << slot;
    }
  }
}

TEST(ConvertInstall, NoiseHookGoesIntoCoreSlotThreeOnly) {
  std::vector<HostRoutine> table(kSuites[kCore].slotCount, nullptr);
  Writes w;
  installNoiseHookInto(SuiteWriter<code::core>(table.data(), &Writes::observe, &w));
  EXPECT_EQ(w.slots, std::vector<int>{3});
  EXPECT_EQ(table[3], reinterpret_cast<HostRoutine>(&registerNoiseTable));
}

// ------------------------------------------------------------------ noise hook

TEST(NoiseHook, RecordsTheTableAndPassesArgumentsAndResultThrough) {
  ReferenceHost host;
  start(host);  // one registration so far
  ASSERT_EQ(host.noiseRegistrations().size(), 1u);
  EXPECT_EQ(g_noiseTable.base, reinterpret_cast<const unsigned char*>(host.noiseBase()));
  EXPECT_EQ(g_noiseTable.size, host.noiseSizeBytes());
  EXPECT_EQ(g_noiseTable.period, host.noisePeriodBytes());
  EXPECT_EQ(g_noiseTable.end, g_noiseTable.base + host.noisePeriodBytes());

  // Arbitrary arguments through the live slot: the host sees them unchanged and
  // its result (the registration count) comes back unchanged.
  auto live = reinterpret_cast<SlotFn<code::core, 3>>(host.live(code::core, 3));
  static const unsigned char buffer[64] = {};
  EXPECT_EQ(live(buffer + 6, 50, 17), 2);
  EXPECT_EQ(live(nullptr, 0xFFFFFFFFu, 0x80000000u), 3);
  const auto seen = host.noiseRegistrations();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[1].base, buffer + 6);
  EXPECT_EQ(seen[1].size, 50u);
  EXPECT_EQ(seen[1].period, 17u);
  EXPECT_EQ(seen[2].base, nullptr);
  EXPECT_EQ(seen[2].size, 0xFFFFFFFFu);
  EXPECT_EQ(seen[2].period, 0x80000000u);
  EXPECT_EQ(g_noiseTable.base, nullptr);
  EXPECT_EQ(g_noiseTable.size, 0xFFFFFFFFu);
  EXPECT_EQ(g_noiseTable.period, 0x80000000u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(g_noiseTable.end), uintptr_t{0x80000000u});
  host.registerNoise();
}

// ------------------------------------------------------------------ edge values

TEST(Convert16To8, EdgeValuesWithoutDither) {
  ReferenceHost host;
  start(host);
  const uint16_t in[] = {0, 64, 128, 16384, 32640, 32768, 127, 129, 32767, 40000, 65535};
  const uint8_t want[] = {0, 0, 1, 128, 254, 255, 1, 1, 255, 255, 255};  // above full: 255
  constexpr int32_t n = 11;
  // Repeated so that every position passes through the head, the vector body and the tail.
  Buffer source(2 * 64 * n), d1(64 * n), d3[3] = {Buffer(64 * n), Buffer(64 * n), Buffer(64 * n)};
  for (int i = 0; i < 64 * n; ++i) setWord(source.data, static_cast<std::size_t>(i), in[i % n]);
  for (int32_t offset : {0, 1, 7}) {
    convert16To8(source.as<uint16_t>(), d1.data + offset, 1, 64 * n - 8, 0, 0, 0);
    convert16To8Planar3(source.as<uint16_t>(), source.as<uint16_t>(), source.as<uint16_t>(), d3[0].data + offset,
                        d3[1].data, d3[2].data, 1, 64 * n - 8, 0, 0, 0);
    for (int i = 0; i < 64 * n - 8; ++i) {
      ASSERT_EQ(d1.data[offset + i], want[i % n]) << "x=" << in[i % n] << " column " << i;
      for (int k = 0; k < 3; ++k) ASSERT_EQ(d3[k].data[(k == 0 ? offset : 0) + i], want[i % n]) << k;
    }
  }
  // The host's routine agrees on the values in the contract.
  uint8_t fromHost[6];
  hostRoutine<code::conv, 17>(host)(in, fromHost, 1, 6, 0, 0, 0);
  EXPECT_EQ(std::memcmp(fromHost, want, 6), 0);
}

TEST(Convert8To16, EveryValueAndTheNamedOnes) {
  Buffer source(256 * 3), destination(2 * 256 * 3 + 2, 1);
  for (int i = 0; i < 256 * 3; ++i) source.data[i] = static_cast<uint8_t>(i);
  for (std::size_t offset : {0u, 1u, 2u}) {  // odd: a destination at an odd address
    unsigned char* d = destination.data - 1 + offset;
    convert8To16(source.data, reinterpret_cast<uint16_t*>(d), 1, 256 * 3, 0, 0);
    for (uint32_t i = 0; i < 256 * 3; ++i)
      ASSERT_EQ(wordAt(d, i), ((i % 256) * 32768 + 127) / 255) << i << " offset " << offset;
    EXPECT_EQ(wordAt(d, 1), 129);
    EXPECT_EQ(wordAt(d, 128), 16448);
    EXPECT_EQ(wordAt(d, 254), 32639);
    EXPECT_EQ(wordAt(d, 255), 32768);
  }
}

// Every 16-bit value through the vector loop (even, aligned rows) and the scalar
// loop (odd addresses, short rows) of both re-scalings, and the round trip.
TEST(Rescale16, EveryValueBothDirectionsVectorAndScalar) {
  ReferenceHost host;
  start(host);
  Buffer buffer(2 * 65536 + 64);
  for (std::size_t offset : {0u, 1u, 6u}) {
    unsigned char* p = buffer.data + offset;
    for (uint32_t x = 0; x < 65536; ++x) setWord(p, x, static_cast<uint16_t>(x));
    rescale16(reinterpret_cast<uint16_t*>(p), 65535, 32768, 1, 65536, 0);
    for (uint32_t x = 0; x < 65536; ++x) ASSERT_EQ(wordAt(p, x), ((x << 15) | 0x7FFF) / 65535) << x;
    for (uint32_t x = 0; x < 65536; ++x) setWord(p, x, static_cast<uint16_t>(x));
    rescale16(reinterpret_cast<uint16_t*>(p), 32768, 65535, 1, 65536, 0);
    for (uint32_t x = 0; x < 65536; ++x) ASSERT_EQ(wordAt(p, x), x >= 32768 ? 65535 : (x * 65535 + 16384) >> 15) << x;
    // 0..32768 -> 65535 -> 32768 is the identity.
    for (uint32_t x = 0; x <= 32768; ++x) setWord(p, x, static_cast<uint16_t>(x));
    rescale16(reinterpret_cast<uint16_t*>(p), 32768, 65535, 1, 32769, 0);
    rescale16(reinterpret_cast<uint16_t*>(p), 65535, 32768, 1, 32769, 0);
    for (uint32_t x = 0; x <= 32768; ++x) ASSERT_EQ(wordAt(p, x), x);
  }
  // Rows of 1..9 samples: the vector loop only runs with 8 samples past the alignment run.
  for (int32_t columns = 1; columns <= 9; ++columns)
    for (std::size_t offset = 0; offset < 16; ++offset) {
      unsigned char* p = buffer.data + offset;
      for (int32_t c = 0; c < columns; ++c) setWord(p, static_cast<std::size_t>(c), 32767);
      rescale16(reinterpret_cast<uint16_t*>(p), 32768, 65535, 1, columns, 0);
      for (int32_t c = 0; c < columns; ++c) ASSERT_EQ(wordAt(p, static_cast<std::size_t>(c)), 65533);
    }
  const std::pair<uint16_t, uint16_t> named[] = {{0, 0}, {1, 1}, {2, 1}, {65534, 32767}, {65535, 32768}};
  for (auto [x, y] : named) {
    uint16_t v = x;
    rescale16(&v, 65535, 32768, 1, 1, 2);
    EXPECT_EQ(v, y) << x;
  }
  const std::pair<uint16_t, uint16_t> up[] = {{1, 2}, {16384, 32768}, {32767, 65533}, {32768, 65535}};
  for (auto [x, y] : up) {
    uint16_t v = x;
    rescale16(&v, 32768, 65535, 1, 1, 2);
    EXPECT_EQ(v, y) << x;
  }
  EXPECT_EQ(callsTo(host, code::conv, 19), 0);
}

TEST(ConvertFloatTo8, NamedValuesAndTheOnesOutsideZeroToOne) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const float denormal = std::numeric_limits<float>::denorm_min();
  uint32_t signallingBits = 0x7F800001u, negativeNanBits = 0xFFC00000u;
  float signalling, negativeNan;
  std::memcpy(&signalling, &signallingBits, 4);
  std::memcpy(&negativeNan, &negativeNanBits, 4);
  const float in[] = {1.5f, -0.25f, 0.5f,     nan,        signalling, negativeNan, inf,          -inf,          -0.0f,
                      0.0f, 1.0f,   denormal, 1.0000001f, 1e30f,      -1e30f,      0.001960784f, 0.0019607844f, 0.998f};
  const uint8_t want[] = {255, 0, 128, 0, 0, 0, 255, 0, 0, 0, 255, 0, 255, 255, 0, 0, 1, 254};
  constexpr int32_t n = 18;
  Buffer source(4 * 32 * n), destination(32 * n);
  for (int i = 0; i < 32 * n; ++i) setFloat(source.data, static_cast<std::size_t>(i), in[i % n]);
  for (int32_t columns : {32 * n, 32 * n - 1, 32 * n - 2, 32 * n - 3}) {  // vector body and double tail
    std::memset(destination.data, 0xAA, 32 * n);
    convertFloatTo8(source.as<float>(), destination.data, 1, columns, 0, 0, 0);
    for (int i = 0; i < columns; ++i)
      ASSERT_EQ(destination.data[i], want[i % n]) << "value " << in[i % n] << " at " << i;
  }
}

// ------------------------------------------------------------ exhaustive sweeps

// The exact rounding the host defines, computed here independently.
uint8_t exactFloatTo8(float v) {
  if (!(v >= 0.0f)) return 0;
  if (v >= 1.0f) return 255;
  return static_cast<uint8_t>(std::floor(static_cast<double>(v) * 255.0 + 0.5));
}

// Every float in 0..1 through the module's single-precision vector loop (the last
// three of each block through the double-precision tail). The plain single-precision
// evaluation trunc(fl(fl(v * 255) + 0.5)) is one too high for some of them; those
// are collected and also run at every position of the loops.
TEST(ConvertFloatTo8, EveryFloatFromZeroToOneIsExact) {
  constexpr uint32_t kBlock = 1u << 16;
  constexpr uint32_t kLast = 0x3F800000u;  // 1.0f
  Buffer source(4 * kBlock), destination(kBlock);
  std::vector<uint8_t> want(kBlock), plain(kBlock);
  std::vector<float> hazards;
  uint64_t mismatches = 0;
  for (uint32_t first = 0; first <= kLast; first += kBlock) {
    const uint32_t count = kLast - first + 1 < kBlock ? kLast - first + 1 : kBlock;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t bits = first + i;
      std::memcpy(source.data + 4 * i, &bits, 4);
    }
    convertFloatTo8(source.as<float>(), destination.data, 1, static_cast<int32_t>(count == kBlock ? count - 3 : count),
                    0, 0, 0);
    convertFloatTo8(source.as<float>() + kBlock - 3, destination.data + kBlock - 3, 1, count == kBlock ? 3 : 0, 0, 0,
                    0);
    // Inside 0..1 the exact value is trunc(double(v) * 255 + 0.5); the plain
    // single-precision one is computed alongside to find the hazards.
    for (uint32_t i = 0; i < count; ++i) {
      float v;
      std::memcpy(&v, source.data + 4 * i, 4);
      want[i] = static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(v) * 255.0 + 0.5));
      const float product = v * 255.0f;
      plain[i] = static_cast<uint8_t>(static_cast<int32_t>(product + 0.5f));
    }
    if (std::memcmp(destination.data, want.data(), count) != 0)
      for (uint32_t i = 0; i < count; ++i)
        if (destination.data[i] != want[i] && mismatches++ < 5)
          ADD_FAILURE() << "float 0x" << std::hex << first + i << std::dec << ": module " << int{destination.data[i]}
                        << ", exact " << int{want[i]};
    if (std::memcmp(plain.data(), want.data(), count) != 0)
      for (uint32_t i = 0; i < count; ++i)
        if (plain[i] != want[i]) {
          float v;
          std::memcpy(&v, source.data + 4 * i, 4);
          hazards.push_back(v);
        }
  }
  EXPECT_EQ(mismatches, 0u);
  EXPECT_EQ(hazards.size(), 128u);  // what a plain single-precision loop would get wrong
  Buffer shifted(4 * 64), out(64);
  for (float v : hazards) {
    for (int i = 0; i < 64; ++i) setFloat(shifted.data, static_cast<std::size_t>(i), v);
    for (int32_t columns : {64, 63, 62, 61, 3, 2, 1}) {
      convertFloatTo8(shifted.as<float>(), out.data, 1, columns, 0, 0, 0);
      for (int i = 0; i < columns; ++i) ASSERT_EQ(out.data[i], exactFloatTo8(v)) << v << " column " << i;
    }
  }
}

// Sampled float bit patterns of every sign and exponent (NaNs, infinities,
// denormals, negatives, above one), under each rounding mode and with and without
// flush-to-zero and denormals-are-zero: the result depends on none of them.
TEST(ConvertFloatTo8, AnyFloatAnyRoundingModeOrFlushSetting) {
  constexpr int32_t kCount = 1 << 20;
  Buffer source(4 * kCount), destination(kCount);
  for (uint32_t i = 0; i < static_cast<uint32_t>(kCount); ++i) {
    const uint32_t bits = i * 4093u + (i >> 9);
    std::memcpy(source.data + 4 * i, &bits, 4);
  }
  const unsigned saved = _mm_getcsr();
  for (unsigned mode : {0x0000u, 0x2000u, 0x4000u, 0x6000u})
    for (unsigned flush : {0x0000u, 0x8040u}) {
      _mm_setcsr((saved & ~0xE040u) | mode | flush);
      convertFloatTo8(source.as<float>(), destination.data, 1, kCount - 1, 0, 0, 0);
      const unsigned after = _mm_getcsr();
      _mm_setcsr(saved);
      EXPECT_EQ(after & ~0x3Fu, ((saved & ~0xE040u) | mode | flush) & ~0x3Fu);  // nothing changed but status flags
      for (int32_t i = 0; i < kCount - 1; ++i) {
        float v;
        std::memcpy(&v, source.data + 4 * i, 4);
        ASSERT_EQ(destination.data[i], exactFloatTo8(v)) << v << " mode " << mode << " flush " << flush;
      }
    }
}

// A host whose noise entries all hold one value n (with the unused top bit set for
// odd n): the dithered vector path then computes (x + ((n - x) >> 8)) >> 7 for every
// x, which must equal floor((255 x + n) / 32768) for all x in 0..32768, n in 0..32767.
TEST(Convert16To8, ShiftFormEqualsTheProductFormForEveryXAndN) {
  ReferenceHost host;
  start(host);
  constexpr uint32_t kPeriod = 16384, kRoom = 8192;
  std::vector<uint16_t> noise((kPeriod + kRoom) / 2);
  constexpr int32_t kColumns = 32769;
  Buffer source(2 * kColumns), destination(kColumns + 16);
  for (uint32_t x = 0; x <= 32768; ++x) setWord(source.data, x, static_cast<uint16_t>(x));
  std::vector<uint8_t> want(kColumns);
  uint64_t mismatches = 0;
  for (uint32_t n = 0; n < 32768; ++n) {
    std::fill(noise.begin(), noise.end(), static_cast<uint16_t>(n | ((n & 1) << 15)));
    registerNoiseTable(noise.data(), kPeriod + kRoom, kPeriod);
    unsigned char* d = destination.data + (n % 16);  // every head length
    convert16To8(source.as<uint16_t>(), d, 1, kColumns, 0, 0, 1);
    for (uint32_t x = 0; x <= 32768; ++x) want[x] = static_cast<uint8_t>((255 * x + n) >> 15);
    if (std::memcmp(d, want.data(), kColumns) != 0 && mismatches++ < 5) {
      uint32_t x = 0;
      while (d[x] == want[x]) ++x;
      ADD_FAILURE() << "x=" << x << " n=" << n << ": " << int{d[x]} << " instead of " << int{want[x]};
    }
  }
  EXPECT_EQ(mismatches, 0u);
  host.registerNoise();
}

// ------------------------------------------------------------------- dithering

TEST(Dither, SameSourceSameDestinationSameBytes) {
  ReferenceHost host;
  start(host);
  constexpr int32_t kRows = 7, kColumns = 301;
  Buffer source(2 * kRows * kColumns), destination(kRows * kColumns + 1);
  uint32_t seed = 1;
  for (int i = 0; i < kRows * kColumns; ++i) {
    seed = seed * 747796405u + 2891336453u;
    setWord(source.data, static_cast<std::size_t>(i), static_cast<uint16_t>((seed >> 8) % 32769));
  }
  auto run = [&](unsigned char* d) {
    convert16To8(source.as<uint16_t>(), d, kRows, kColumns, 2 * kColumns, kColumns, 1);
    return std::vector<uint8_t>(d, d + kRows * kColumns);
  };
  const std::vector<uint8_t> first = run(destination.data);
  std::memset(destination.data, 0, kRows * kColumns);
  EXPECT_EQ(run(destination.data), first);
  // The pattern follows the destination's address, not a counter: one byte further
  // on it differs, and back at the first address it is the first pattern again.
  EXPECT_NE(run(destination.data + 1), first);
  EXPECT_EQ(run(destination.data), first);
}

// 4097 columns need 16388 bytes of repeated noise; the host has 8192, so the left
// 2048 columns go first (themselves within the limit), then the other 2049 are
// split again into 1024 and 1025, each part starting afresh from its own address.
TEST(Dither, WideRowsAreConvertedInColumnPartsWithFreshStarts) {
  ReferenceHost host;
  start(host);
  ASSERT_EQ(host.noiseSizeBytes() - host.noisePeriodBytes(), 8192u);
  constexpr int32_t kRows = 5, kColumns = 4097;
  Buffer source(2 * kRows * kColumns), whole(kRows * kColumns);
  for (int i = 0; i < kRows * kColumns; ++i)
    setWord(source.data, static_cast<std::size_t>(i),
            static_cast<uint16_t>((static_cast<uint32_t>(i) * 2654435761u >> 7) % 32769));
  const int32_t sourceStride = 2 * kColumns, destinationStride = kColumns;
  convert16To8(source.as<uint16_t>(), whole.data, kRows, kColumns, sourceStride, destinationStride, 1);
  const std::vector<uint8_t> fromModule(whole.data, whole.data + kRows * kColumns);
  // The same parts converted one by one into the same addresses.
  std::memset(whole.data, 0, kRows * kColumns);
  const int32_t spans[][2] = {{0, 2048}, {2048, 1024}, {3072, 1025}};
  for (const auto& s : spans)
    convert16To8(source.as<uint16_t>() + s[0], whole.data + s[0], kRows, s[1], sourceStride, destinationStride, 1);
  EXPECT_EQ(std::memcmp(whole.data, fromModule.data(), fromModule.size()), 0);
  // And the host's routine, with its own walk of its own buffer, agrees.
  std::memset(whole.data, 0, kRows * kColumns);
  hostRoutine<code::conv, 17>(host)(source.as<uint16_t>(), whole.data, kRows, kColumns, sourceStride, destinationStride,
                                    1);
  EXPECT_EQ(std::memcmp(whole.data, fromModule.data(), fromModule.size()), 0);
}

// Rows whose noise position lands exactly on the end of the period: module and host
// agree there. A host with a 12288-byte period; the column count divides the
// distance from the start to the end, so some row ends exactly at it.
TEST(Dither, PositionExactlyAtTheEndWraps) {
  refhost::HostOptions options;
  options.noisePeriodBytes = 12288;
  options.noiseRoomBytes = 8192;
  ReferenceHost host(options);
  start(host);
  Buffer source(2 * 2048 * 8), destination(2048 * 8 + 64);
  for (int i = 0; i < 2048 * 8; ++i)
    setWord(source.data, static_cast<std::size_t>(i),
            static_cast<uint16_t>((static_cast<uint32_t>(i) * 40503u) % 32769));
  int tried = 0;
  for (std::size_t offset = 0; offset < 64 && tried < 12; ++offset) {
    unsigned char* d = destination.data + offset;
    const uint32_t start = (ditherStartOffset(d) + 1) & ~1u;
    const uint32_t entries = (12288 - start) / 2;  // from the start to the period's end
    int32_t columns = 0;
    for (uint32_t k = 2; k <= 8 && columns == 0; ++k)
      if (entries % k == 0 && entries / k <= 2048) columns = static_cast<int32_t>(entries / k);
    if (columns == 0) continue;
    ++tried;
    const int32_t rows = 8;
    const auto bytes = static_cast<std::size_t>(rows * columns);
    convert16To8(source.as<uint16_t>(), d, rows, columns, 2 * columns, columns, 1);
    const std::vector<uint8_t> fromModule(d, d + bytes);
    hostRoutine<code::conv, 17>(host)(source.as<uint16_t>(), d, rows, columns, 2 * columns, columns, 1);
    ASSERT_EQ(std::memcmp(d, fromModule.data(), bytes), 0) << "offset " << offset;
  }
  EXPECT_GE(tried, 4);
}

// ------------------------------------------------------- calls to the host

TEST(ConvertFallbacks, OnlyOtherRangePairsAndDitheredFloatsReachTheHost) {
  ReferenceHost host;
  start(host);
  host.clearLogs();
  uint16_t data[4] = {1, 2, 3, 4};
  rescale16(data, 32768, 65535, 1, 4, 8);
  rescale16(data, 65535, 32768, 1, 4, 8);
  EXPECT_EQ(callsTo(host, code::conv, 19), 0);
  rescale16(data, 65535, 65535, 1, 4, 8);
  rescale16(data, 255, 32768, 0, 4, 8);  // handed over even with nothing to convert
  const auto calls = host.calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(data));
  EXPECT_EQ(calls[0].args[1], 65535u);
  EXPECT_EQ(calls[0].args[2], 65535u);
  EXPECT_EQ(calls[0].args[3], 1u);
  EXPECT_EQ(calls[1].args[1], 255u);

  host.clearLogs();
  float floats[3] = {0.25f, 0.5f, 0.75f};
  uint8_t bytes[3] = {};
  convertFloatTo8(floats, bytes, 1, 3, 12, 3, 0);
  EXPECT_EQ(callsTo(host, code::conv, 58), 0);
  convertFloatTo8(floats, bytes, 1, 3, 12, 3, 7);
  ASSERT_EQ(callsTo(host, code::conv, 58), 1);
  EXPECT_EQ(host.calls()[0].args[0], reinterpret_cast<uintptr_t>(floats));
  EXPECT_EQ(host.calls()[0].args[1], reinterpret_cast<uintptr_t>(bytes));
  EXPECT_EQ(host.calls()[0].args[3], 3u);
}

// Every argument reaches the saved routine unchanged (a stand-in takes its place).
struct Seen {
  uintptr_t a[7];
  int count;
};
Seen g_seen;
void seeRescale(uint16_t* data, uint32_t s, uint32_t t, int32_t rows, int32_t columns, int32_t stride) {
  g_seen = {{reinterpret_cast<uintptr_t>(data), s, t, static_cast<uintptr_t>(rows), static_cast<uintptr_t>(columns),
             static_cast<uintptr_t>(stride), 0},
            g_seen.count + 1};
}
void seeFloat(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t ss, int32_t ds,
              uint8_t dither) {
  g_seen = {
      {reinterpret_cast<uintptr_t>(source), reinterpret_cast<uintptr_t>(destination), static_cast<uintptr_t>(rows),
       static_cast<uintptr_t>(columns), static_cast<uintptr_t>(ss), static_cast<uintptr_t>(ds), dither},
      g_seen.count + 1};
}

TEST(ConvertFallbacks, EveryArgumentIsPassedOn) {
  HostRoutine& saved19 = tarnell_saved_tables[kConv][19];
  HostRoutine& saved58 = tarnell_saved_tables[kConv][58];
  const HostRoutine before19 = saved19, before58 = saved58;
  saved19 = reinterpret_cast<HostRoutine>(&seeRescale);
  saved58 = reinterpret_cast<HostRoutine>(&seeFloat);
  g_seen = {};
  auto* data = reinterpret_cast<uint16_t*>(uintptr_t{0x1234560});
  rescale16(data, 40000, 70000, -3, 123456, -98);
  EXPECT_EQ(g_seen.count, 1);
  EXPECT_EQ(g_seen.a[0], reinterpret_cast<uintptr_t>(data));
  EXPECT_EQ(g_seen.a[1], 40000u);
  EXPECT_EQ(g_seen.a[2], 70000u);
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[3]), -3);
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[4]), 123456);
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[5]), -98);
  auto* source = reinterpret_cast<const float*>(uintptr_t{0x7654320});
  auto* destination = reinterpret_cast<uint8_t*>(uintptr_t{0x1111});
  convertFloatTo8(source, destination, 0, -5, 77, -1, 200);
  EXPECT_EQ(g_seen.count, 2);
  EXPECT_EQ(g_seen.a[0], reinterpret_cast<uintptr_t>(source));
  EXPECT_EQ(g_seen.a[1], reinterpret_cast<uintptr_t>(destination));
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[2]), 0);
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[3]), -5);
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[4]), 77);
  EXPECT_EQ(static_cast<int32_t>(g_seen.a[5]), -1);
  EXPECT_EQ(g_seen.a[6], 200u);
  saved19 = before19;
  saved58 = before58;
}

}  // namespace
