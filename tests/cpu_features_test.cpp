// Processor identification, the feature predicates, the topology walk and the ten
// start-up flags, driven by synthetic processors, synthetic OS records and a fake
// sysfs tree, plus a sanity pass over the real machine.
#include <gtest/gtest.h>

#ifdef __linux__
#include <unistd.h>
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "host/cpu_features.h"

using namespace tarnell;

namespace {

// Bit numbers are spelled out here, not taken from the module's feature table.
constexpr uint32_t bit(unsigned n) { return 1u << n; }
constexpr uint32_t kEcxSse3 = bit(0), kEcxSsse3 = bit(9), kEcxFma = bit(12), kEcxSse41 = bit(19), kEcxOsxsave = bit(27),
                   kEcxAvx = bit(28), kEcxF16c = bit(29);
constexpr uint32_t kEdxMmx = bit(23), kEdxSse = bit(25), kEdxSse2 = bit(26), kEdxHtt = bit(28);
constexpr uint32_t kEbx7Avx2 = bit(5), kEbx7Avx512f = bit(16), kEbx7Avx512bw = bit(30);

uint32_t word(const char* four) {
  uint32_t w = 0;
  std::memcpy(&w, four, 4);
  return w;
}

// AVX, AVX2, FMA, F16C and the OS saving YMM state: each case takes one condition away.
CpuIdentification avx2Machine(uint32_t signature = 0x000906EA) {
  CpuIdentification id{};
  id.leaf1[0] = signature;
  id.leaf1[2] = kEcxSse3 | kEcxSsse3 | kEcxFma | kEcxSse41 | kEcxOsxsave | kEcxAvx | kEcxF16c;
  id.leaf1[3] = kEdxMmx | kEdxSse | kEdxSse2;
  id.leaf7[1] = kEbx7Avx2;
  id.osSavesYmm = true;
  return id;
}

Topology cores(uint32_t physical, uint32_t logical) { return Topology{physical, logical, 1u << 20, 1u << 20}; }

using Quad = std::array<uint32_t, 4>;
Quad fields(const Topology& t) { return {t.physicalCores, t.logicalProcessors, t.l2Size, t.l2Line}; }

using Flags = std::array<uint32_t, 10>;  // mmx sse sse' sse2 sse3 ssse3 sse41 avx avx2 smt
Flags asArray(const CpuFeatureFlags& f) {
  return {f.mmx, f.sse, f.sseSecond, f.sse2, f.sse3, f.ssse3, f.sse41, f.avx, f.avx2, f.smt};
}

// ------------------------------------------------------------ queryIdentification

// A CPUID/XGETBV model that logs every query.
struct FakeCpu {
  std::map<uint32_t, std::array<uint32_t, 4>> leaves;
  uint64_t xcr0 = 0;
  bool cpuidThrows = false;
  std::vector<std::pair<uint32_t, uint32_t>> cpuidCalls;
  std::vector<uint32_t> xgetbvCalls;
};

FakeCpu* g_fake = nullptr;

void fakeCpuid(uint32_t leaf, uint32_t subleaf, uint32_t out[4]) {
  g_fake->cpuidCalls.emplace_back(leaf, subleaf);
  if (g_fake->cpuidThrows) throw std::runtime_error("cpuid unavailable");
  const auto it = g_fake->leaves.find(leaf);
  for (size_t i = 0; i < 4; ++i) out[i] = it == g_fake->leaves.end() ? 0 : it->second[i];
}

uint64_t fakeXgetbv(uint32_t ecx) {
  g_fake->xgetbvCalls.push_back(ecx);
  return g_fake->xcr0;
}

constexpr CpuidSource kFakeSource{&fakeCpuid, &fakeXgetbv};

class CpuidQuery : public ::testing::Test {
 protected:
  CpuidQuery() {
    g_fake = &cpu;
    // Leaf 0 reports 1 as the highest leaf: leaf 7 is read all the same.
    cpu.leaves[0] = {1, word("Genu"), word("ntel"), word("ineI")};
    cpu.leaves[1] = {0x000906EA, 0x00100800, kEcxOsxsave | kEcxAvx, kEdxSse2 | kEdxHtt};
    cpu.leaves[7] = {0, kEbx7Avx2, 0x11, 0x22};
    cpu.leaves[0x80000000u] = {0x80000008u, 0, 0, 0};
    cpu.leaves[0x80000001u] = {0xA1, 0xB1, 0xC1, 0xD1};
    cpu.leaves[0x80000006u] = {0, 0, 0x01006040, 0};
    cpu.xcr0 = 0x7;
  }
  ~CpuidQuery() override { g_fake = nullptr; }

  std::vector<uint32_t> leavesAsked() const {
    std::vector<uint32_t> leaves;
    for (const auto& [leaf, subleaf] : cpu.cpuidCalls) leaves.push_back(leaf);
    return leaves;
  }

  FakeCpu cpu;
};

TEST_F(CpuidQuery, AsksTheLeavesInOrderAndKeepsTheirRegisters) {
  // Leaf 0x80000006 is read when the extended maximum reaches it, even by exactly it.
  for (const auto& [maxExtended, readsL2] : {std::pair{0x80000008u, true}, {0x80000006u, true}, {0x80000005u, false}}) {
    SCOPED_TRACE(testing::Message() << std::hex << maxExtended);
    cpu.cpuidCalls.clear();
    cpu.leaves[0x80000000u][0] = maxExtended;
    const CpuIdentification id = queryIdentification(kFakeSource);
    std::vector<uint32_t> want{0, 1, 7, 0x80000001u, 0x80000000u};
    if (readsL2) want.push_back(0x80000006u);
    EXPECT_EQ(leavesAsked(), want);
    for (const auto& [leaf, subleaf] : cpu.cpuidCalls) EXPECT_EQ(subleaf, 0u) << "leaf " << leaf;
    EXPECT_EQ(id.maxExtendedLeaf, maxExtended);
    EXPECT_EQ(id.l2Info, readsL2 ? 0x01006040u : 0u);

    EXPECT_EQ(std::to_array(id.leaf0), (Quad{1, word("Genu"), word("ntel"), word("ineI")}));
    EXPECT_EQ(std::to_array(id.leaf1), (Quad{0x000906EA, 0x00100800, kEcxOsxsave | kEcxAvx, kEdxSse2 | kEdxHtt}));
    EXPECT_EQ(std::to_array(id.leaf7), (Quad{0, kEbx7Avx2, 0x11, 0x22}));
    EXPECT_EQ(std::to_array(id.ext1), (Quad{0xA1, 0xB1, 0xC1, 0xD1}));
    EXPECT_STREQ(id.vendor, "GenuineIntel");  // EBX, EDX, ECX
    EXPECT_EQ(id.vendor[12], '\0');
  }
}

TEST_F(CpuidQuery, XgetbvOnlyWithOsxsaveAndXcr0MasksDecideYmmAndZmm) {
  const std::tuple<bool, uint64_t, bool, bool> rows[] = {
      {true, 0x7, true, false},    {true, 0x6, true, false},   {true, 0x3, false, false},  {true, 0x5, false, false},
      {true, 0xE7, true, true},    {true, 0xE6, true, true},   {true, 0x67, true, false},  {true, 0xA7, true, false},
      {true, 0xC7, true, false},   {true, 0xE3, false, false}, {true, 0xE5, false, false}, {true, 0x2FF, true, true},
      {false, 0xE7, false, false},  // XGETBV faults unless the OS announced XSAVE use
  };
  for (const auto& [osxsave, xcr0, ymm, zmm] : rows) {
    SCOPED_TRACE(testing::Message() << "osxsave " << osxsave << " xcr0 " << std::hex << xcr0);
    cpu.xgetbvCalls.clear();
    cpu.xcr0 = xcr0;
    cpu.leaves[1][2] = kEcxAvx | (osxsave ? kEcxOsxsave : 0);
    const CpuIdentification id = queryIdentification(kFakeSource);
    EXPECT_EQ(cpu.xgetbvCalls, osxsave ? std::vector<uint32_t>{0u} : std::vector<uint32_t>{});
    EXPECT_EQ(id.osSavesYmm, ymm);
    EXPECT_EQ(id.osSavesZmm, zmm);
  }
}

TEST_F(CpuidQuery, RunOnceRecordPassesAThrowOnAndFillsOnTheNextAttempt) {
  IdentificationOnce once;
  cpu.cpuidThrows = true;
  EXPECT_THROW(once.get(kFakeSource), std::runtime_error);
  cpu.cpuidThrows = false;
  cpu.cpuidCalls.clear();
  const CpuIdentification& first = once.get(kFakeSource);
  EXPECT_STREQ(first.vendor, "GenuineIntel");
  EXPECT_EQ(cpu.cpuidCalls.size(), 6u);
  cpu.leaves[0][1] = word("Xxxx");
  const CpuIdentification& again = once.get(kFakeSource);
  EXPECT_EQ(&again, &first);
  EXPECT_EQ(cpu.cpuidCalls.size(), 6u) << "filled once, never asked again";
  EXPECT_STREQ(again.vendor, "GenuineIntel");
}

// ------------------------------------------------------------ predicates

TEST(CpuSignature, FieldsComeFromTheirBitsOfLeaf1Eax) {
  const CpuIdentification id = avx2Machine(0xFFE33FA5);
  EXPECT_EQ(cpuStepping(id), 0x5u);
  EXPECT_EQ(cpuModel(id), 0xAu);
  EXPECT_EQ(cpuFamily(id), 0xFu);
  EXPECT_EQ(cpuExtendedModel(id), 0x3u);
  EXPECT_EQ(cpuExtendedFamily(id), 0xFEu);
  EXPECT_EQ(avxExclusionSignature(id), 0xFE30F00u);
}

// AVX needs its bit, YMM state and a model not on the exclusion list; AVX2 needs
// leaf 7 EBX bit 5 on top, and FMA/F16C follow AVX. SSE4.1 is never affected.
TEST(AvxUsability, BitOsStateAndModelDecideAvxAndAvx2) {
  struct Row {
    std::string name;
    CpuIdentification id;
    bool avx, avx2;
  };
  const auto hex = [](uint32_t v) {
    char text[8];
    return std::string(text, std::to_chars(text, text + 8, v, 16).ptr);
  };
  std::vector<Row> rows{{"baseline", avx2Machine(), true, true}};
  rows.push_back({"no AVX bit", avx2Machine(), false, false});
  rows.back().id.leaf1[2] &= ~kEcxAvx;
  rows.push_back({"ZMM state without YMM state", avx2Machine(), false, false});
  rows.back().id.osSavesYmm = false;
  rows.back().id.osSavesZmm = true;
  rows.push_back({"every leaf-7 EBX bit but 5", avx2Machine(), true, false});
  rows.back().id.leaf7[1] = ~kEbx7Avx2;
  rows.push_back({"bit 5 in the wrong registers", avx2Machine(), true, false});
  rows.back().id.leaf7[1] = 0;
  rows.back().id.leaf7[2] = rows.back().id.leaf7[3] = rows.back().id.ext1[1] = kEbx7Avx2;
  // Excluded: model, stepping and the processor-type bits take no part in the match.
  for (uint32_t sig : {0x00620F00u, 0x00600F00u, 0x00610F12u, 0x00630FFFu, 0x00700F31u, 0x00623F21u, 0xF0620F00u})
    rows.push_back({"excluded " + hex(sig), avx2Machine(sig), false, false});
  // Neighbouring extended models and families, and family 0xE with an excluded extended part.
  for (uint32_t sig : {0x00640F00u, 0x00710F00u, 0x00720F00u, 0x00500F00u, 0x00800F00u, 0x00600E00u, 0x00620E00u,
                       0x00000F00u, 0x00060F00u, 0x06200F00u})
    rows.push_back({"allowed " + hex(sig), avx2Machine(sig), true, true});

  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(avxUsable(row.id), row.avx);
    const CpuFeatureFlags f = computeFeatureFlags(row.id, cores(4, 4));
    EXPECT_EQ(f.avx, row.avx ? 1u : 0u);
    EXPECT_EQ(f.avx2, row.avx2 ? 1u : 0u);
    EXPECT_EQ(f.sse41, 1u);
    EXPECT_EQ(hasFeature(row.id, feature::kFma), row.avx);
    EXPECT_EQ(hasFeature(row.id, feature::kF16c), row.avx);
    EXPECT_EQ(isAvxExcludedModel(row.id), row.name.starts_with("excluded"));
  }
}

TEST(AvxUsability, Avx512NeedsFoundationBitAndZmmState) {
  auto machine = [](uint32_t ebx7, bool zmm) {
    CpuIdentification id = avx2Machine();
    id.leaf7[1] |= ebx7;
    id.osSavesZmm = zmm;
    return id;
  };
  EXPECT_TRUE(avx512Usable(machine(kEbx7Avx512f, true)));
  EXPECT_FALSE(avx512Usable(machine(kEbx7Avx512f, false)));
  EXPECT_FALSE(avx512Usable(machine(~kEbx7Avx512f, true)));
  // The 512-bit family goes through that predicate: its own bit is not enough.
  EXPECT_FALSE(hasFeature(machine(kEbx7Avx512bw, true), feature::kAvx512bw));
  EXPECT_TRUE(hasFeature(machine(kEbx7Avx512bw | kEbx7Avx512f, true), feature::kAvx512bw));
  // None of it reaches the ten flags.
  EXPECT_EQ(asArray(computeFeatureFlags(avx2Machine(), cores(2, 2))),
            asArray(computeFeatureFlags(machine(0xFFFF0000u, true), cores(2, 2))));
}

// SMT also needs more logical processors than cores.
TEST(FeatureBits, EachFlagReadsItsOwnBit) {
  const std::tuple<const char*, uint32_t, uint32_t, Topology, Flags> rows[] = {
      {"none", 0, 0, cores(8, 16), {}},
      {"MMX", 0, kEdxMmx, cores(8, 16), {1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"SSE sets both copies", 0, kEdxSse, cores(8, 16), {0, 1, 1, 0, 0, 0, 0, 0, 0, 0}},
      {"SSE2", 0, kEdxSse2, cores(8, 16), {0, 0, 0, 1, 0, 0, 0, 0, 0, 0}},
      {"SSE3", kEcxSse3, 0, cores(8, 16), {0, 0, 0, 0, 1, 0, 0, 0, 0, 0}},
      {"SSSE3", kEcxSsse3, 0, cores(8, 16), {0, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
      {"SSE4.1", kEcxSse41, 0, cores(8, 16), {0, 0, 0, 0, 0, 0, 1, 0, 0, 0}},
      {"AVX", kEcxAvx, 0, cores(8, 16), {0, 0, 0, 0, 0, 0, 0, 1, 0, 0}},
      {"HTT, 2 cores of 4", 0, kEdxHtt, cores(2, 4), {0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
      {"all but HTT", ~0u, ~kEdxHtt, cores(2, 4), {1, 1, 1, 1, 1, 1, 1, 1, 0, 0}},
      {"HTT, as many logical as cores", 0, kEdxHtt, cores(4, 4), {}},
      {"HTT, fewer logical than cores", 0, kEdxHtt, cores(4, 2), {}},
      {"HTT, fallback topology", 0, kEdxHtt, fallbackTopology(8), {}},
  };
  for (const auto& [name, ecx1, edx1, t, want] : rows) {
    CpuIdentification id{};
    id.leaf1[2] = ecx1;
    id.leaf1[3] = edx1;
    id.osSavesYmm = true;
    EXPECT_EQ(asArray(computeFeatureFlags(id, t)), want) << name;
    EXPECT_EQ(smtInUse(id, t), want[9] == 1) << name;
  }
  CpuIdentification all{};
  for (uint32_t* regs : {all.leaf0, all.leaf1, all.leaf7, all.ext1}) std::fill_n(regs, 4, 0xFFFFFFFFu);
  all.leaf1[0] = 0x000906EA;
  all.osSavesYmm = all.osSavesZmm = true;
  EXPECT_EQ(asArray(computeFeatureFlags(all, cores(8, 16))), (Flags{1, 1, 1, 1, 1, 1, 1, 1, 1, 1}));
}

// The register each named feature lives in, spelled out here rather than taken from the module.
uint32_t& registerWord(CpuIdentification& id, CpuRegister reg) {
  switch (reg) {
    case CpuRegister::leaf1Ecx: return id.leaf1[2];
    case CpuRegister::leaf1Edx: return id.leaf1[3];
    case CpuRegister::leaf7Ebx: return id.leaf7[1];
    case CpuRegister::leaf7Ecx: return id.leaf7[2];
    case CpuRegister::leaf7Edx: return id.leaf7[3];
    case CpuRegister::ext1Ecx: return id.ext1[2];
    case CpuRegister::ext1Edx: return id.ext1[3];
  }
  return id.leaf0[0];
}

TEST(FeatureBits, EveryNamedFeatureReadsOneDistinctBitWithItsOsCondition) {
  std::set<std::pair<int, unsigned>> seen;
  for (const CpuFeature& f : feature::kAll) {
    SCOPED_TRACE(f.name);
    EXPECT_TRUE(seen.insert({static_cast<int>(f.reg), f.bit}).second) << "shares its bit";
    EXPECT_LT(f.bit, 32u);
    // Every bit but this one: off. Only this one, plus what its OS condition needs: on.
    CpuIdentification allButThis{};
    for (uint32_t* regs : {allButThis.leaf1, allButThis.leaf7, allButThis.ext1}) std::fill_n(regs + 1, 3, ~0u);
    allButThis.osSavesYmm = allButThis.osSavesZmm = true;
    registerWord(allButThis, f.reg) &= ~bit(f.bit);
    CpuIdentification onlyThis{};
    onlyThis.osSavesYmm = onlyThis.osSavesZmm = true;
    registerWord(onlyThis, f.reg) |= bit(f.bit);
    if (f.needs == OsState::ymm) onlyThis.leaf1[2] |= kEcxAvx;
    if (f.needs == OsState::zmm) onlyThis.leaf7[1] |= kEbx7Avx512f;
    EXPECT_FALSE(hasFeature(allButThis, f));
    EXPECT_TRUE(hasFeature(onlyThis, f));
    // Without the saved state the bit alone is not enough.
    CpuIdentification noState = onlyThis;
    noState.osSavesYmm = noState.osSavesZmm = false;
    EXPECT_EQ(hasFeature(noState, f), f.needs == OsState::none);
  }
}

TEST(Vendor, KnownStringsExactlyAndNothingElse) {
  const std::pair<const char*, int> rows[] = {
      {"GenuineIntel", 1}, {"AuthenticAMD", 2}, {"GenuineIotel", 0}, {"AuthenticAMd", 0},
      {"HygonGenuine", 0}, {"CentaurHauls", 0}, {"GenuineInte", 0},  {"", 0},
  };
  for (const auto& [text, kind] : rows) {
    CpuIdentification id{};
    std::memcpy(id.vendor, text, std::strlen(text));
    EXPECT_EQ(vendorKind(id), kind) << text;
  }
  CpuIdentification unterminated{};
  std::memcpy(unterminated.vendor, "GenuineIntelX", 13);
  EXPECT_EQ(vendorKind(unterminated), 0);
}

// ------------------------------------------------------------ the OS records

// Writes records with explicit offsets, independently of the module's encoder.
struct RecordWriter {
  std::vector<unsigned char> bytes;
  void put(size_t at, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
  }
  RecordWriter& record(uint64_t mask, uint32_t relationship) {
    bytes.resize(bytes.size() + 32, 0);
    put(bytes.size() - 32, mask, 8);
    put(bytes.size() - 24, relationship, 4);
    return *this;
  }
  RecordWriter& cache(uint8_t level, uint16_t line, uint32_t size, uint32_t type = 0, uint32_t relationship = 2) {
    record(0b1, relationship);
    const size_t at = bytes.size() - 32;
    put(at + 16, level, 1);
    put(at + 17, 8, 1);
    put(at + 18, line, 2);
    put(at + 20, size, 4);
    put(at + 24, type, 4);
    return *this;
  }
  Quad walk() const { return fields(walkProcessorInformation(bytes.data(), bytes.size())); }
};

TEST(ProcessorInformationWalk, CountsCoresTheirMaskBitsAndTheLargestL2) {
  RecordWriter w;
  w.record(0b11, 0).record(0b1100, 0).record(0b10000, 0).record(~0ull, 0);
  EXPECT_EQ(w.walk(), (Quad{4, 2 + 2 + 1 + 64, 0, 0}));
  // The line value is the larger of this record's line size and the new L2 size.
  RecordWriter l2;
  l2.cache(2, 64, 16);
  EXPECT_EQ(l2.walk(), (Quad{0, 0, 16, 64}));
  l2.cache(2, 8, 32);  // replaced from this record, not kept as a running maximum
  EXPECT_EQ(l2.walk(), (Quad{0, 0, 32, 32}));
  l2.cache(2, 128, 24);  // smaller L2: the size stays, the line value follows this record
  EXPECT_EQ(l2.walk(), (Quad{0, 0, 32, 128}));
  l2.cache(2, 64, 512 * 1024).cache(2, 64, 256 * 1024);
  EXPECT_EQ(l2.walk(), (Quad{0, 0, 512 * 1024, 512 * 1024}));
}

TEST(ProcessorInformationWalk, OtherCacheLevelsAndOtherRelationshipsAreIgnored) {
  RecordWriter w;
  w.cache(1, 64, 48 * 1024, 2).cache(1, 64, 32 * 1024, 1).cache(3, 64, 32u << 20).cache(4, 64, 1u << 30);
  // Package, NUMA and unknown records whose union bytes look like an L2.
  w.cache(2, 64, 64u << 20, 0, 3).cache(2, 64, 64u << 20, 0, 1).cache(2, 64, 64u << 20, 0, 7);
  EXPECT_EQ(w.walk(), (Quad{0, 0, 0, 0}));
  w.cache(2, 64, 1u << 20, 1);  // the cache type takes no part
  w.record(0b111, 3).record(0b1, 1).record(0b1, 4);
  EXPECT_EQ(w.walk(), (Quad{0, 0, 1u << 20, 1u << 20}));
}

TEST(ProcessorInformationWalk, BufferEdgesAndFallback) {
  RecordWriter w;
  w.record(0b1011, 0).cache(2, 64, 2u << 20);
  // A trailing partial record is ignored; the buffer need not be aligned.
  std::vector<unsigned char> shifted(w.bytes.size() + 3, 0xEE);
  std::memcpy(shifted.data() + 3, w.bytes.data(), w.bytes.size());
  EXPECT_EQ(fields(walkProcessorInformation(shifted.data() + 3, w.bytes.size())), (Quad{1, 3, 2u << 20, 2u << 20}));
  EXPECT_EQ(fields(walkProcessorInformation(shifted.data() + 3, w.bytes.size() - 1)), (Quad{1, 3, 0, 0}));
  EXPECT_EQ(fields(walkProcessorInformation(w.bytes.data(), 31)), (Quad{0, 0, 0, 0}));
  EXPECT_EQ(fields(walkProcessorInformation(nullptr, 0)), (Quad{0, 0, 0, 0}));

  EXPECT_EQ(fields(fallbackTopology(6)), (Quad{6, 6, 256, 32}));
  EXPECT_EQ(fields(fallbackTopology(1)), (Quad{1, 1, 256, 32}));
}

// ------------------------------------------------------------ sysfs

#ifdef __linux__

namespace fs = std::filesystem;

// A throw-away sysfs-like tree under the temp directory.
class FakeSysfs {
 public:
  FakeSysfs() {
    static std::atomic<int> counter{0};
    root_ = fs::temp_directory_path() /
            ("tarnell-sysfs-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1)));
    fs::create_directories(root_);
  }
  ~FakeSysfs() {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  FakeSysfs(const FakeSysfs&) = delete;
  FakeSysfs& operator=(const FakeSysfs&) = delete;

  void write(const std::string& relative, const std::string& content) const {
    const fs::path p = root_ / relative;
    fs::create_directories(p.parent_path());
    std::ofstream(p) << content << "\n";
  }
  void cpu(uint32_t n, int package, int core, int die = -1) const {
    const std::string t = "cpu" + std::to_string(n) + "/topology/";
    write(t + "physical_package_id", std::to_string(package));
    write(t + "core_id", std::to_string(core));
    if (die >= 0) write(t + "die_id", std::to_string(die));
  }
  void cache(uint32_t cpuNumber, int index, int level, const std::string& type, const std::string& size,
             const std::string& shared) const {
    const std::string c = "cpu" + std::to_string(cpuNumber) + "/cache/index" + std::to_string(index) + "/";
    write(c + "level", std::to_string(level));
    write(c + "type", type);
    write(c + "size", size);
    write(c + "coherency_line_size", "64");
    write(c + "ways_of_associativity", "16");
    write(c + "shared_cpu_list", shared);
  }
  std::string path() const { return root_.string(); }

 private:
  fs::path root_;
};

// (relationship, mask, level, line size, size, type) of every record.
using Decoded = std::tuple<uint32_t, uint64_t, unsigned, unsigned, uint32_t, uint32_t>;

std::multiset<Decoded> decode(const std::vector<unsigned char>& bytes) {
  const auto get = [&](size_t at, size_t width) {
    uint64_t v = 0;
    for (size_t i = width; i-- > 0;) v = (v << 8) | bytes[at + i];
    return v;
  };
  std::multiset<Decoded> out;
  for (size_t at = 0; at + 32 <= bytes.size(); at += 32)
    out.insert({static_cast<uint32_t>(get(at + 8, 4)), get(at, 8), bytes[at + 16],
                static_cast<unsigned>(get(at + 18, 2)), static_cast<uint32_t>(get(at + 20, 4)),
                static_cast<uint32_t>(get(at + 24, 4))});
  return out;
}

// Four online CPUs on two cores of one package, each core with its own L1 and L2, one
// shared L3; cpu4 is present but offline, with a larger L2 that must take no part.
TEST(SysfsTopology, OneRecordPerCorePackageAndDistinctCache) {
  FakeSysfs fs;
  fs.write("online", "0-3");
  fs.write("possible", "0-4");
  for (uint32_t c = 0; c < 4; ++c) {
    fs.cpu(c, 0, static_cast<int>(c % 2), 0);
    const std::string siblings = c % 2 == 0 ? "0,2" : "1,3";
    fs.cache(c, 0, 1, "Data", "48K", siblings);
    fs.cache(c, 1, 1, "Instruction", "32K", siblings);
    fs.cache(c, 2, 2, "Unified", "1280K", siblings);
    fs.cache(c, 3, 3, "Unified", "30720K", "0-3");
  }
  fs.cpu(4, 0, 7, 0);
  fs.cache(4, 2, 2, "Unified", "4096K", "4");

  const auto records = processorInformationFromSysfs(fs.path());
  ASSERT_TRUE(records.has_value());
  EXPECT_EQ(records->size() % 32, 0u);
  const std::multiset<Decoded> want{
      {kRelationProcessorCore, 0b0101, 0, 0, 0, 0},
      {kRelationProcessorCore, 0b1010, 0, 0, 0, 0},
      {kRelationProcessorPackage, 0b1111, 0, 0, 0, 0},
      {kRelationCache, 0b0101, 1, 64, 48 * 1024, kCacheData},
      {kRelationCache, 0b1010, 1, 64, 48 * 1024, kCacheData},
      {kRelationCache, 0b0101, 1, 64, 32 * 1024, kCacheInstruction},
      {kRelationCache, 0b1010, 1, 64, 32 * 1024, kCacheInstruction},
      {kRelationCache, 0b0101, 2, 64, 1280 * 1024, kCacheUnified},
      {kRelationCache, 0b1010, 2, 64, 1280 * 1024, kCacheUnified},
      {kRelationCache, 0b1111, 3, 64, 30720 * 1024, kCacheUnified},
  };
  EXPECT_EQ(decode(*records), want);
  EXPECT_EQ(fields(topologyFromSysfs(fs.path(), 99)), (Quad{2, 4, 1280u * 1024u, 1280u * 1024u}));
}

// Core numbers repeat across packages and across the dies of one package; CPU
// numbers past 64 still count; without the online list, CPUs with a topology count.
TEST(SysfsTopology, CoresAreKeyedByPackageDieAndCore) {
  struct Cpu {
    uint32_t n;
    int package, core, die;
  };
  struct Row {
    const char* name;
    const char* online;  // nullptr: no online list
    std::vector<Cpu> cpus;
    Quad want;
  };
  const Row rows[] = {
      {"packages", "0-3", {{0, 0, 0, -1}, {1, 0, 1, -1}, {2, 1, 0, -1}, {3, 1, 1, -1}}, {4, 4, 0, 0}},
      {"dies", "0-3", {{0, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 0, 1}, {3, 0, 0, 1}}, {2, 4, 0, 0}},
      {"past 64", "0,70,130-131", {{0, 0, 0, -1}, {70, 0, 0, -1}, {130, 0, 1, -1}, {131, 0, 1, -1}}, {2, 4, 0, 0}},
      {"no online list", nullptr, {{0, 0, 0, -1}, {1, 0, 0, -1}, {2, 0, 1, -1}}, {2, 3, 0, 0}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    FakeSysfs fs;
    for (const Cpu& c : row.cpus) fs.cpu(c.n, c.package, c.core, c.die);
    if (row.online != nullptr) {
      fs.write("online", row.online);
    } else {  // the directory is scanned: an offline CPU (no topology) and other entries
      fs.write("cpu3/online", "0");
      fs.write("cpufreq/policy0/scaling_driver", "none");
      fs.write("cpuidle/current_driver", "none");
    }
    EXPECT_EQ(fields(topologyFromSysfs(fs.path(), 99)), row.want);
  }
}

TEST(SysfsTopology, UnreadableTreeFallsBackAndUnreadableCachesAreSkipped) {
  FakeSysfs empty;
  EXPECT_FALSE(processorInformationFromSysfs(empty.path()).has_value());
  EXPECT_EQ(fields(topologyFromSysfs(empty.path(), 3)), fields(fallbackTopology(3)));
  EXPECT_EQ(fields(topologyFromSysfs(empty.path() + "/does-not-exist", 5)), fields(fallbackTopology(5)));

  FakeSysfs missingCore;
  missingCore.write("online", "0-1");
  missingCore.cpu(0, 0, 0);
  missingCore.write("cpu1/topology/physical_package_id", "0");
  EXPECT_FALSE(processorInformationFromSysfs(missingCore.path()).has_value());
  EXPECT_EQ(fields(topologyFromSysfs(missingCore.path(), 2)), fields(fallbackTopology(2)));

  FakeSysfs badList;
  badList.write("online", "0-x");
  badList.cpu(0, 0, 0);
  EXPECT_EQ(fields(topologyFromSysfs(badList.path(), 4)), fields(fallbackTopology(4)));

  FakeSysfs badCache;
  badCache.write("online", "0");
  badCache.cpu(0, 0, 0);
  badCache.cache(0, 0, 2, "Unified", "bogus", "0");
  badCache.cache(0, 1, 3, "Unified", "8M", "0");
  EXPECT_EQ(fields(topologyFromSysfs(badCache.path(), 9)), (Quad{1, 1, 0, 0}));
}

TEST(SysfsTopology, CpuListsAndCacheSizesParse) {
  EXPECT_EQ(parseCpuList("0-3,8,10-11\n"), (std::vector<uint32_t>{0, 1, 2, 3, 8, 10, 11}));
  EXPECT_EQ(parseCpuList("5"), (std::vector<uint32_t>{5}));
  EXPECT_EQ(parseCpuList("3,1-2,2"), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(parseCpuList(""), (std::vector<uint32_t>{}));
  for (const char* bad : {"3-1", "a", "1,,2", "-1"}) EXPECT_FALSE(parseCpuList(bad).has_value()) << bad;

  EXPECT_EQ(parseCacheSize("1024K\n"), uint64_t{1} << 20);
  EXPECT_EQ(parseCacheSize("8M"), uint64_t{8} << 20);
  EXPECT_EQ(parseCacheSize("1G"), uint64_t{1} << 30);
  EXPECT_EQ(parseCacheSize("512"), uint64_t{512});
  for (const char* bad : {"K", "12Q", ""}) EXPECT_FALSE(parseCacheSize(bad).has_value()) << bad;
}

#endif  // __linux__

// ------------------------------------------------------------ the real machine

TEST(RealProcessor, IdentificationIsFilledOnceAndSharedAcrossThreads) {
  const CpuIdentification& first = identification();
  std::vector<const CpuIdentification*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&seen, i] { seen[i] = &identification(); });
  for (std::thread& t : threads) t.join();
  for (const CpuIdentification* p : seen) EXPECT_EQ(p, &first);

  // A fresh query of the hardware agrees.
  const CpuIdentification fresh = queryIdentification(hardwareCpuidSource());
  EXPECT_EQ(std::to_array(fresh.leaf0), std::to_array(first.leaf0));
  EXPECT_EQ(std::tie(fresh.leaf1[0], fresh.leaf1[2], fresh.leaf1[3], fresh.maxExtendedLeaf, fresh.l2Info),
            std::tie(first.leaf1[0], first.leaf1[2], first.leaf1[3], first.maxExtendedLeaf, first.l2Info));
  EXPECT_EQ(std::tie(fresh.osSavesYmm, fresh.osSavesZmm), std::tie(first.osSavesYmm, first.osSavesZmm));
  EXPECT_STREQ(fresh.vendor, first.vendor);
}

TEST(RealProcessor, CachedValuesAndStartupFlagsMatchThePureRules) {
  const CpuIdentification& id = identification();
  const Topology t = topology();
  EXPECT_EQ(avxUsable(), avxUsable(id));
  EXPECT_EQ(avx512Usable(), avx512Usable(id));
  EXPECT_EQ(smtInUse(), smtInUse(id, t));
  EXPECT_EQ(vendorKind(), vendorKind(id));
  EXPECT_EQ(fields(t), (Quad{physicalCores(), logicalProcessors(), l2Size(), l2Line()}));
  EXPECT_GE(t.physicalCores, 1u);
  EXPECT_GE(t.logicalProcessors, t.physicalCores);
  for (const CpuFeature& f : feature::kAll) EXPECT_EQ(hasFeature(f), hasFeature(id, f)) << f.name;
  EXPECT_TRUE(hasFeature(feature::kLongMode));

  flagsAtStartup();
  const CpuFeatureFlags f = g_cpuFeatureFlags;
  EXPECT_EQ(asArray(f), asArray(computeFeatureFlags(id, t)));
  EXPECT_EQ(f.sse2, 1u) << "every x86-64 processor has SSE2";
  flagsAtStartup();
  EXPECT_EQ(asArray(g_cpuFeatureFlags), asArray(f)) << "a second start-up stores the same values";
}

}  // namespace
