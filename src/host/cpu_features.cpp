#include "host/cpu_features.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <thread>

#if defined(_MSC_VER)
#include <immintrin.h>
#include <intrin.h>
#else
#include <cpuid.h>
#endif

namespace tarnell {

CpuFeatureFlags g_cpuFeatureFlags{};

// ------------------------------------------------------------ identification

namespace {

void hardwareCpuid(uint32_t leaf, uint32_t subleaf, uint32_t out[4]) {
#if defined(_MSC_VER)
  int regs[4];
  __cpuidex(regs, static_cast<int>(leaf), static_cast<int>(subleaf));
  for (int i = 0; i < 4; ++i) out[i] = static_cast<uint32_t>(regs[i]);
#else
  // The raw instruction, not __get_cpuid: leaves are read even when leaf 0 reports a
  // lower maximum, and the record keeps whatever the processor answers.
  unsigned a = 0, b = 0, c = 0, d = 0;
  __cpuid_count(leaf, subleaf, a, b, c, d);
  out[0] = a;
  out[1] = b;
  out[2] = c;
  out[3] = d;
#endif
}

uint64_t hardwareXgetbv(uint32_t ecx) {
#if defined(_MSC_VER)
  return _xgetbv(ecx);
#else
  // Spelled as asm so that the baseline build needs no XSAVE code-generation flag.
  uint32_t lo = 0, hi = 0;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(ecx));
  return (static_cast<uint64_t>(hi) << 32) | lo;
#endif
}

constexpr uint32_t kOsxsaveBit = 1u << 27;      // leaf 1 ECX
constexpr uint64_t kXcr0YmmMask = 0x6;          // SSE + AVX state
constexpr uint64_t kXcr0ZmmMask = 0xE6;         // SSE + AVX + opmask, ZMM0-15 high, ZMM16-31

}  // namespace

const CpuidSource& hardwareCpuidSource() {
  static constexpr CpuidSource source{&hardwareCpuid, &hardwareXgetbv};
  return source;
}

CpuIdentification queryIdentification(const CpuidSource& source) {
  CpuIdentification id{};
  source.cpuid(0, 0, id.leaf0);
  source.cpuid(1, 0, id.leaf1);
  source.cpuid(7, 0, id.leaf7);
  source.cpuid(0x80000001u, 0, id.ext1);
  uint32_t ext0[4] = {};
  source.cpuid(0x80000000u, 0, ext0);
  id.maxExtendedLeaf = ext0[0];
  if (id.maxExtendedLeaf >= 0x80000006u) {
    uint32_t ext6[4] = {};
    source.cpuid(0x80000006u, 0, ext6);
    id.l2Info = ext6[2];
  }
  if ((id.leaf1[2] & kOsxsaveBit) != 0) {
    const uint64_t xcr0 = source.xgetbv(0);
    id.osSavesYmm = (xcr0 & kXcr0YmmMask) == kXcr0YmmMask;
    id.osSavesZmm = (xcr0 & kXcr0ZmmMask) == kXcr0ZmmMask;
  }
  std::memcpy(id.vendor + 0, &id.leaf0[1], 4);
  std::memcpy(id.vendor + 4, &id.leaf0[3], 4);
  std::memcpy(id.vendor + 8, &id.leaf0[2], 4);
  id.vendor[12] = '\0';
  return id;
}

const CpuIdentification& IdentificationOnce::get(const CpuidSource& source) {
  // The first caller fills the record while concurrent first callers wait; later
  // callers read it without the lock. The record is assigned only after the query
  // returns, so a throwing query leaves it unfilled for the next caller to try.
  if (!filled_.load(std::memory_order_acquire)) {
    std::lock_guard lock(mutex_);
    if (!filled_.load(std::memory_order_relaxed)) {
      record_ = queryIdentification(source);
      filled_.store(true, std::memory_order_release);
    }
  }
  return record_;
}

const CpuIdentification& identification() {
  static IdentificationOnce once;
  return once.get(hardwareCpuidSource());
}

uint32_t cpuStepping(const CpuIdentification& id) { return id.leaf1[0] & 0xFu; }
uint32_t cpuModel(const CpuIdentification& id) { return (id.leaf1[0] >> 4) & 0xFu; }
uint32_t cpuFamily(const CpuIdentification& id) { return (id.leaf1[0] >> 8) & 0xFu; }
uint32_t cpuExtendedModel(const CpuIdentification& id) { return (id.leaf1[0] >> 16) & 0xFu; }
uint32_t cpuExtendedFamily(const CpuIdentification& id) { return (id.leaf1[0] >> 20) & 0xFFu; }

// ------------------------------------------------------------ feature bits

bool cpuidBit(const CpuIdentification& id, CpuRegister reg, unsigned bit) {
  uint32_t word = 0;
  switch (reg) {
    case CpuRegister::leaf1Ecx: word = id.leaf1[2]; break;
    case CpuRegister::leaf1Edx: word = id.leaf1[3]; break;
    case CpuRegister::leaf7Ebx: word = id.leaf7[1]; break;
    case CpuRegister::leaf7Ecx: word = id.leaf7[2]; break;
    case CpuRegister::leaf7Edx: word = id.leaf7[3]; break;
    case CpuRegister::ext1Ecx: word = id.ext1[2]; break;
    case CpuRegister::ext1Edx: word = id.ext1[3]; break;
  }
  return bit < 32 && ((word >> bit) & 1u) != 0;
}

bool hasFeature(const CpuIdentification& id, const CpuFeature& f) {
  if (!cpuidBit(id, f.reg, f.bit)) return false;
  switch (f.needs) {
    case OsState::none: return true;
    case OsState::ymm: return avxUsable(id);
    case OsState::zmm: return avx512Usable(id);
  }
  return false;
}

bool hasFeature(const CpuFeature& f) {
  if (!cpuidBit(identification(), f.reg, f.bit)) return false;
  switch (f.needs) {
    case OsState::none: return true;
    case OsState::ymm: return avxUsable();
    case OsState::zmm: return avx512Usable();
  }
  return false;
}

uint32_t avxExclusionSignature(const CpuIdentification& id) {
  return (cpuExtendedFamily(id) << 20) | (cpuExtendedModel(id) << 16) | (cpuFamily(id) << 8);
}

bool isAvxExcludedModel(const CpuIdentification& id) {
  switch (avxExclusionSignature(id)) {
    case 0x600F00u:
    case 0x610F00u:
    case 0x620F00u:
    case 0x630F00u:
    case 0x700F00u: return true;
    default: return false;
  }
}

bool avxUsable(const CpuIdentification& id) {
  return cpuidBit(id, feature::kAvx.reg, feature::kAvx.bit) && id.osSavesYmm && !isAvxExcludedModel(id);
}

bool avxUsable() {
  static const bool usable = avxUsable(identification());
  return usable;
}

bool avx512Usable(const CpuIdentification& id) {
  return cpuidBit(id, feature::kAvx512f.reg, feature::kAvx512f.bit) && id.osSavesZmm;
}

bool avx512Usable() {
  static const bool usable = avx512Usable(identification());
  return usable;
}

int vendorKind(const CpuIdentification& id) {
  static const std::string intel("GenuineIntel");
  static const std::string amd("AuthenticAMD");
  const char* end = std::find(std::begin(id.vendor), std::end(id.vendor), '\0');
  const std::string_view vendor(id.vendor, static_cast<size_t>(end - id.vendor));
  const auto same = [&](const std::string& known) {
    return vendor.size() == known.size() && std::memcmp(vendor.data(), known.data(), known.size()) == 0;
  };
  if (same(intel)) return 1;
  if (same(amd)) return 2;
  return 0;
}

int vendorKind() { return vendorKind(identification()); }

// ------------------------------------------------------------ topology

namespace {

void putLe(std::vector<unsigned char>& buffer, size_t at, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) buffer[at + i] = static_cast<unsigned char>(value >> (8 * i));
}

uint64_t getLe(const unsigned char* p, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = bytes; i-- > 0;) value = (value << 8) | p[i];
  return value;
}

}  // namespace

void appendProcessorRecord(std::vector<unsigned char>& buffer, uint64_t mask, uint32_t relationship) {
  const size_t at = buffer.size();
  buffer.resize(at + kProcessorRecordBytes, 0);
  putLe(buffer, at + 0, mask, 8);
  putLe(buffer, at + 8, relationship, 4);
}

void appendCacheRecord(std::vector<unsigned char>& buffer, uint64_t mask, uint8_t level, uint8_t associativity,
                       uint16_t lineSize, uint32_t size, uint32_t type) {
  const size_t at = buffer.size();
  appendProcessorRecord(buffer, mask, kRelationCache);
  putLe(buffer, at + 16, level, 1);
  putLe(buffer, at + 17, associativity, 1);
  putLe(buffer, at + 18, lineSize, 2);
  putLe(buffer, at + 20, size, 4);
  putLe(buffer, at + 24, type, 4);
}

Topology walkProcessorInformation(const unsigned char* buffer, size_t bytes) {
  Topology t{0, 0, 0, 0};
  // Byte-wise little-endian reads: the buffer need not be aligned for the record.
  for (size_t at = 0; buffer != nullptr && bytes - at >= kProcessorRecordBytes; at += kProcessorRecordBytes) {
    const unsigned char* record = buffer + at;
    const uint32_t relationship = static_cast<uint32_t>(getLe(record + 8, 4));
    if (relationship == kRelationProcessorCore) {
      t.physicalCores += 1;
      t.logicalProcessors += static_cast<uint32_t>(std::popcount(getLe(record, 8)));
    } else if (relationship == kRelationCache && record[16] == 2) {
      const uint32_t lineSize = static_cast<uint32_t>(getLe(record + 18, 2));
      const uint32_t size = static_cast<uint32_t>(getLe(record + 20, 4));
      t.l2Size = std::max(t.l2Size, size);
      // Compared with the new l2Size, not the old line value: the result is the L2
      // size, which is what the rest of the system has always been given.
      t.l2Line = std::max(lineSize, t.l2Size);
    }
  }
  return t;
}

Topology fallbackTopology(uint32_t processorCount) { return Topology{processorCount, processorCount, 256, 32}; }

#if !defined(_WIN32) && !defined(__linux__)
Topology queryTopology() {
  const unsigned n = std::thread::hardware_concurrency();
  return fallbackTopology(n == 0 ? 1u : n);
}
#endif

Topology topology() {
  static const Topology t = queryTopology();
  return t;
}

uint32_t physicalCores() {
  static const uint32_t value = topology().physicalCores;
  return value;
}

uint32_t logicalProcessors() {
  static const uint32_t value = topology().logicalProcessors;
  return value;
}

uint32_t l2Size() {
  static const uint32_t value = topology().l2Size;
  return value;
}

uint32_t l2Line() {
  static const uint32_t value = topology().l2Line;
  return value;
}

bool smtInUse(const CpuIdentification& id, const Topology& t) {
  return hasFeature(id, feature::kHtt) && t.logicalProcessors > t.physicalCores;
}

bool smtInUse() {
  // The topology is asked for only when HTT is set.
  static const bool inUse = hasFeature(feature::kHtt) && logicalProcessors() > physicalCores();
  return inUse;
}

// ------------------------------------------------------------ flags

namespace {
uint32_t flag(bool value) { return value ? 1u : 0u; }
}  // namespace

CpuFeatureFlags computeFeatureFlags(const CpuIdentification& id, const Topology& t) {
  CpuFeatureFlags f{};
  f.mmx = flag(hasFeature(id, feature::kMmx));
  f.sse = flag(hasFeature(id, feature::kSse));
  f.sseSecond = flag(hasFeature(id, feature::kSse));
  f.smt = flag(smtInUse(id, t));
  f.sse2 = flag(hasFeature(id, feature::kSse2));
  f.sse3 = flag(hasFeature(id, feature::kSse3));
  f.ssse3 = flag(hasFeature(id, feature::kSsse3));
  f.sse41 = flag(hasFeature(id, feature::kSse41));
  f.avx = flag(avxUsable(id));
  f.avx2 = flag(hasFeature(id, feature::kAvx2));
  return f;
}

void flagsAtStartup() {
  CpuFeatureFlags& f = g_cpuFeatureFlags;
  f.mmx = flag(hasFeature(feature::kMmx));
  f.sse = flag(hasFeature(feature::kSse));
  f.sseSecond = flag(hasFeature(feature::kSse));
  f.smt = flag(smtInUse());
  f.sse2 = flag(hasFeature(feature::kSse2));
  f.sse3 = flag(hasFeature(feature::kSse3));
  f.ssse3 = flag(hasFeature(feature::kSsse3));
  f.sse41 = flag(hasFeature(feature::kSse41));
  f.avx = flag(avxUsable());
  f.avx2 = flag(hasFeature(feature::kAvx2));
}

}  // namespace tarnell
