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

// ------------------------------------------------------------ helpers

constexpr uint32_t bit(unsigned n) { return 1u << n; }

constexpr uint32_t kLeaf1EcxSse3 = bit(0), kLeaf1EcxSsse3 = bit(9), kLeaf1EcxSse41 = bit(19),
                   kLeaf1EcxOsxsave = bit(27), kLeaf1EcxAvx = bit(28);
constexpr uint32_t kLeaf1EdxMmx = bit(23), kLeaf1EdxSse = bit(25), kLeaf1EdxSse2 = bit(26), kLeaf1EdxHtt = bit(28);
constexpr uint32_t kLeaf7EbxAvx2 = bit(5), kLeaf7EbxAvx512f = bit(16);

uint32_t word(const char* four) {
  uint32_t w = 0;
  std::memcpy(&w, four, 4);
  return w;
}

// A processor as the record describes it, built field by field.
struct Synthetic {
  CpuIdentification id{};
  Synthetic& signature(uint32_t eax) { id.leaf1[0] = eax; return *this; }
  Synthetic& ecx1(uint32_t bits) { id.leaf1[2] |= bits; return *this; }
  Synthetic& edx1(uint32_t bits) { id.leaf1[3] |= bits; return *this; }
  Synthetic& ebx7(uint32_t bits) { id.leaf7[1] |= bits; return *this; }
  Synthetic& ymm() { id.osSavesYmm = true; return *this; }
  Synthetic& zmm() { id.osSavesZmm = true; return *this; }
  Synthetic& vendor(const char* text) {
    std::memset(id.vendor, 0, sizeof id.vendor);
    std::memcpy(id.vendor, text, std::min(std::strlen(text), sizeof id.vendor - 1));
    return *this;
  }
};

// A modern processor with AVX, AVX2 and the OS saving YMM state: the baseline that
// each test then takes one condition away from.
Synthetic avx2Machine() {
  return Synthetic{}
      .signature(0x000906EA)
      .edx1(kLeaf1EdxMmx | kLeaf1EdxSse | kLeaf1EdxSse2)
      .ecx1(kLeaf1EcxSse3 | kLeaf1EcxSsse3 | kLeaf1EcxSse41 | kLeaf1EcxOsxsave | kLeaf1EcxAvx)
      .ebx7(kLeaf7EbxAvx2)
      .ymm();
}

Topology cores(uint32_t physical, uint32_t logical) { return Topology{physical, logical, 1u << 20, 1u << 20}; }

// Topology as its four fields in record order, so that gtest can compare and print it.
using Quad = std::array<uint32_t, 4>;
Quad fields(const Topology& t) { return {t.physicalCores, t.logicalProcessors, t.l2Size, t.l2Line}; }

std::array<uint32_t, 10> asArray(const CpuFeatureFlags& f) {
  return {f.mmx, f.sse, f.sseSecond, f.sse2, f.sse3, f.ssse3, f.sse41, f.avx, f.avx2, f.smt};
}

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
  for (int i = 0; i < 4; ++i) out[i] = it == g_fake->leaves.end() ? 0 : it->second[static_cast<size_t>(i)];
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
    cpu.leaves[0] = {0xD, word("Genu"), word("ntel"), word("ineI")};
    cpu.leaves[1] = {0x000906EA, 0x00100800, kLeaf1EcxOsxsave | kLeaf1EcxAvx, kLeaf1EdxSse2 | kLeaf1EdxHtt};
    cpu.leaves[7] = {0, kLeaf7EbxAvx2, 0x11, 0x22};
    cpu.leaves[0x80000000u] = {0x80000008u, 0, 0, 0};
    cpu.leaves[0x80000001u] = {0xA1, 0xB1, 0xC1, 0xD1};
    cpu.leaves[0x80000006u] = {0, 0, 0x01006040, 0};
    cpu.xcr0 = 0x7;
  }
  ~CpuidQuery() override { g_fake = nullptr; }

  std::vector<uint32_t> leavesAsked() const {
    std::vector<uint32_t> leaves;
    for (const auto& call : cpu.cpuidCalls) leaves.push_back(call.first);
    return leaves;
  }

  FakeCpu cpu;
};

// ------------------------------------------------------------ queryIdentification

TEST_F(CpuidQuery, AsksTheLeavesInOrderAndLeaf6OnlyWhenAvailable) {
  CpuIdentification id = queryIdentification(kFakeSource);
  EXPECT_EQ(leavesAsked(), (std::vector<uint32_t>{0, 1, 7, 0x80000001u, 0x80000000u, 0x80000006u}));
  for (const auto& call : cpu.cpuidCalls) EXPECT_EQ(call.second, 0u) << "leaf " << call.first;
  EXPECT_EQ(id.l2Info, 0x01006040u);

  cpu.cpuidCalls.clear();
  cpu.leaves[0x80000000u][0] = 0x80000006u;  // exactly the leaf: still read
  id = queryIdentification(kFakeSource);
  EXPECT_EQ(leavesAsked().size(), 6u);
  EXPECT_EQ(id.l2Info, 0x01006040u);

  cpu.cpuidCalls.clear();
  cpu.leaves[0x80000000u][0] = 0x80000005u;  // one below: not read, even though the model would answer
  id = queryIdentification(kFakeSource);
  EXPECT_EQ(leavesAsked(), (std::vector<uint32_t>{0, 1, 7, 0x80000001u, 0x80000000u}));
  EXPECT_EQ(id.maxExtendedLeaf, 0x80000005u);
  EXPECT_EQ(id.l2Info, 0u);
}

TEST_F(CpuidQuery, Leaf7IsAskedWhateverLeaf0ReportsAsHighest) {
  cpu.leaves[0][0] = 1;
  const CpuIdentification id = queryIdentification(kFakeSource);
  EXPECT_EQ(leavesAsked()[2], 7u);
  EXPECT_EQ(id.leaf7[1], kLeaf7EbxAvx2);
}

TEST_F(CpuidQuery, KeepsRegistersInEaxEbxEcxEdxOrderAndVendorInEbxEdxEcxOrder) {
  const CpuIdentification id = queryIdentification(kFakeSource);
  EXPECT_EQ(id.leaf0[0], 0xDu);
  EXPECT_EQ(id.leaf1[0], 0x000906EAu);
  EXPECT_EQ(id.leaf1[1], 0x00100800u);
  EXPECT_EQ(id.leaf7[2], 0x11u);
  EXPECT_EQ(id.leaf7[3], 0x22u);
  EXPECT_EQ((std::array<uint32_t, 4>{id.ext1[0], id.ext1[1], id.ext1[2], id.ext1[3]}),
            (std::array<uint32_t, 4>{0xA1, 0xB1, 0xC1, 0xD1}));
  EXPECT_STREQ(id.vendor, "GenuineIntel");
  EXPECT_EQ(id.vendor[12], '\0');
  EXPECT_EQ(vendorKind(id), 1);
}

TEST_F(CpuidQuery, WithoutOsxsaveXgetbvIsNeverExecuted) {
  cpu.leaves[1][2] = kLeaf1EcxAvx;  // AVX bit but no OSXSAVE
  cpu.xcr0 = 0xE7;                   // would say "everything saved" if it were asked
  const CpuIdentification id = queryIdentification(kFakeSource);
  EXPECT_TRUE(cpu.xgetbvCalls.empty());
  EXPECT_FALSE(id.osSavesYmm);
  EXPECT_FALSE(id.osSavesZmm);
  EXPECT_FALSE(avxUsable(id));
  Synthetic s{id};
  s.ebx7(kLeaf7EbxAvx2);
  const CpuFeatureFlags f = computeFeatureFlags(s.id, cores(4, 4));
  EXPECT_EQ(f.avx, 0u);
  EXPECT_EQ(f.avx2, 0u);
}

TEST_F(CpuidQuery, XcrZeroMasksDecideYmmAndZmmState) {
  struct Case {
    uint64_t xcr0;
    bool ymm, zmm;
  };
  const Case cases[] = {
      {0x7, true, false},  {0x6, true, false},   {0x3, false, false},  {0x5, false, false},
      {0xE7, true, true},  {0xE6, true, true},   {0x67, true, false},  {0xA7, true, false},
      {0xC7, true, false}, {0xE3, false, false}, {0xE5, false, false}, {0x2FF, true, true},
  };
  for (const Case& c : cases) {
    cpu.xgetbvCalls.clear();
    cpu.xcr0 = c.xcr0;
    const CpuIdentification id = queryIdentification(kFakeSource);
    EXPECT_EQ(cpu.xgetbvCalls, std::vector<uint32_t>{0u}) << std::hex << c.xcr0;
    EXPECT_EQ(id.osSavesYmm, c.ymm) << std::hex << c.xcr0;
    EXPECT_EQ(id.osSavesZmm, c.zmm) << std::hex << c.xcr0;
  }
}

// ------------------------------------------------------------ run-once record

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

// ------------------------------------------------------------ signature

TEST(CpuSignature, FieldsComeFromTheirBitsOfLeaf1Eax) {
  const CpuIdentification id = Synthetic{}.signature(0xFFE33FA5).id;
  EXPECT_EQ(cpuStepping(id), 0x5u);
  EXPECT_EQ(cpuModel(id), 0xAu);
  EXPECT_EQ(cpuFamily(id), 0xFu);
  EXPECT_EQ(cpuExtendedModel(id), 0x3u);
  EXPECT_EQ(cpuExtendedFamily(id), 0xFEu);
  EXPECT_EQ(avxExclusionSignature(id), 0xFE30F00u);
}

// ------------------------------------------------------------ AVX usability

TEST(AvxUsability, NeedsTheAvxBitAndTheOsSavingYmm) {
  EXPECT_TRUE(avxUsable(avx2Machine().id));
  Synthetic noBit = avx2Machine();
  noBit.id.leaf1[2] &= ~kLeaf1EcxAvx;
  EXPECT_FALSE(avxUsable(noBit.id));
  Synthetic noOs = avx2Machine();
  noOs.id.osSavesYmm = false;
  noOs.id.osSavesZmm = true;  // ZMM state alone does not make AVX usable
  EXPECT_FALSE(avxUsable(noOs.id));
  const CpuFeatureFlags f = computeFeatureFlags(noOs.id, cores(4, 4));
  EXPECT_EQ(f.avx, 0u);
  EXPECT_EQ(f.avx2, 0u);
}

TEST(AvxUsability, ExcludedModelsTurnAvxAndAvx2Off) {
  // Model, stepping and the processor-type bits take no part in the match.
  const uint32_t excluded[] = {0x00620F00, 0x00600F00, 0x00610F12, 0x00630FFF, 0x00700F31, 0x00623F21, 0xF0620F00};
  for (uint32_t sig : excluded) {
    const CpuIdentification id = avx2Machine().signature(sig).id;
    EXPECT_TRUE(isAvxExcludedModel(id)) << std::hex << sig;
    EXPECT_FALSE(avxUsable(id)) << std::hex << sig;
    const CpuFeatureFlags f = computeFeatureFlags(id, cores(4, 4));
    EXPECT_EQ(f.avx, 0u) << std::hex << sig;
    EXPECT_EQ(f.avx2, 0u) << std::hex << sig;
    EXPECT_EQ(f.sse41, 1u) << "only the AVX family is affected";
    Synthetic fma{id};
    fma.ecx1(bit(12) | bit(29));
    EXPECT_FALSE(hasFeature(fma.id, feature::kFma));
    EXPECT_FALSE(hasFeature(fma.id, feature::kF16c));
  }
}

TEST(AvxUsability, NearMissesOfTheExcludedModelsKeepAvx) {
  // Neighbouring extended models and families, and family 0xE with an excluded
  // extended part.
  const uint32_t allowed[] = {0x00640F00, 0x00710F00, 0x00720F00, 0x00500F00, 0x00800F00,
                              0x00600E00, 0x00620E00, 0x00000F00, 0x00060F00, 0x06200F00};
  for (uint32_t sig : allowed) {
    const CpuIdentification id = avx2Machine().signature(sig).id;
    EXPECT_FALSE(isAvxExcludedModel(id)) << std::hex << sig;
    const CpuFeatureFlags f = computeFeatureFlags(id, cores(4, 4));
    EXPECT_EQ(f.avx, 1u) << std::hex << sig;
    EXPECT_EQ(f.avx2, 1u) << std::hex << sig;
  }
}

TEST(AvxUsability, Avx2NeedsLeaf7Bit5AndUsableAvx) {
  const CpuIdentification both = avx2Machine().id;
  EXPECT_EQ(computeFeatureFlags(both, cores(1, 1)).avx2, 1u);

  Synthetic noLeaf7 = avx2Machine();
  noLeaf7.id.leaf7[1] = ~kLeaf7EbxAvx2;  // every other leaf-7 EBX bit set
  EXPECT_EQ(computeFeatureFlags(noLeaf7.id, cores(1, 1)).avx, 1u);
  EXPECT_EQ(computeFeatureFlags(noLeaf7.id, cores(1, 1)).avx2, 0u);

  Synthetic noAvx = avx2Machine();
  noAvx.id.leaf1[2] &= ~kLeaf1EcxAvx;
  EXPECT_EQ(computeFeatureFlags(noAvx.id, cores(1, 1)).avx2, 0u);

  Synthetic bitInWrongRegister = avx2Machine();
  bitInWrongRegister.id.leaf7[1] = 0;
  bitInWrongRegister.id.leaf7[2] = kLeaf7EbxAvx2;
  bitInWrongRegister.id.leaf7[3] = kLeaf7EbxAvx2;
  bitInWrongRegister.id.ext1[1] = kLeaf7EbxAvx2;
  EXPECT_EQ(computeFeatureFlags(bitInWrongRegister.id, cores(1, 1)).avx2, 0u);
}

TEST(AvxUsability, Avx512NeedsFoundationBitAndZmmState) {
  EXPECT_TRUE(avx512Usable(avx2Machine().ebx7(kLeaf7EbxAvx512f).zmm().id));
  EXPECT_FALSE(avx512Usable(avx2Machine().ebx7(kLeaf7EbxAvx512f).id));
  EXPECT_FALSE(avx512Usable(avx2Machine().zmm().ebx7(~kLeaf7EbxAvx512f).id));
  // The 512-bit family goes through that predicate: its own bit is not enough.
  const CpuIdentification bwOnly = avx2Machine().zmm().ebx7(bit(30)).id;
  EXPECT_FALSE(hasFeature(bwOnly, feature::kAvx512bw));
  EXPECT_TRUE(hasFeature(avx2Machine().zmm().ebx7(bit(30) | kLeaf7EbxAvx512f).id, feature::kAvx512bw));
  // None of it reaches the ten flags.
  EXPECT_EQ(asArray(computeFeatureFlags(avx2Machine().id, cores(2, 2))),
            asArray(computeFeatureFlags(avx2Machine().zmm().ebx7(0xFFFF0000u).id, cores(2, 2))));
}

// ------------------------------------------------------------ feature bits

TEST(FeatureBits, EachFlagReadsItsOwnBit) {
  struct Case {
    int reg;  // index into leaf 1: 2 ECX, 3 EDX
    unsigned bitNumber;
    size_t flagIndex;  // into asArray()
  };
  const Case cases[] = {
      {3, 23, 0},  // MMX
      {3, 26, 3},  // SSE2
      {2, 0, 4},   // SSE3
      {2, 9, 5},   // SSSE3
      {2, 19, 6},  // SSE4.1
  };
  for (const Case& c : cases) {
    CpuIdentification id{};
    id.leaf1[c.reg] = bit(c.bitNumber);
    std::array<uint32_t, 10> expected{};
    expected[c.flagIndex] = 1;
    EXPECT_EQ(asArray(computeFeatureFlags(id, cores(1, 1))), expected) << "bit " << c.bitNumber;
  }
  // SSE sets both of its copies.
  CpuIdentification sse{};
  sse.leaf1[3] = kLeaf1EdxSse;
  EXPECT_EQ(asArray(computeFeatureFlags(sse, cores(1, 1))), (std::array<uint32_t, 10>{0, 1, 1, 0, 0, 0, 0, 0, 0, 0}));
  // AVX with OS support sets only AVX.
  CpuIdentification avx{};
  avx.leaf1[2] = kLeaf1EcxAvx;
  avx.osSavesYmm = true;
  EXPECT_EQ(asArray(computeFeatureFlags(avx, cores(1, 1))), (std::array<uint32_t, 10>{0, 0, 0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(FeatureBits, NoBitsNoFlagsAndAllBitsEveryFlagIsOneOrZero) {
  EXPECT_EQ(asArray(computeFeatureFlags(CpuIdentification{}, cores(8, 16))), (std::array<uint32_t, 10>{}));
  CpuIdentification all{};
  for (uint32_t* regs : {all.leaf0, all.leaf1, all.leaf7, all.ext1})
    for (int i = 0; i < 4; ++i) regs[i] = 0xFFFFFFFFu;
  all.leaf1[0] = 0x000906EA;
  all.osSavesYmm = all.osSavesZmm = true;
  EXPECT_EQ(asArray(computeFeatureFlags(all, cores(8, 16))), (std::array<uint32_t, 10>{1, 1, 1, 1, 1, 1, 1, 1, 1, 1}));
}

// The register each named feature lives in, spelled out here rather than taken
// from the module.
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
    EXPECT_TRUE(seen.insert({static_cast<int>(f.reg), f.bit}).second) << f.name << " shares its bit";
    EXPECT_LT(f.bit, 32u) << f.name;

    // Every bit set except this one: off. Only this one (plus what the OS condition
    // needs): on.
    CpuIdentification allButThis{};
    for (uint32_t* regs : {allButThis.leaf1, allButThis.leaf7, allButThis.ext1})
      for (int i = 1; i < 4; ++i) regs[i] = 0xFFFFFFFFu;
    allButThis.osSavesYmm = allButThis.osSavesZmm = true;
    registerWord(allButThis, f.reg) &= ~bit(f.bit);
    CpuIdentification onlyThis{};
    onlyThis.osSavesYmm = onlyThis.osSavesZmm = true;
    registerWord(onlyThis, f.reg) |= bit(f.bit);
    if (f.needs == OsState::ymm) onlyThis.leaf1[2] |= kLeaf1EcxAvx;
    if (f.needs == OsState::zmm) onlyThis.leaf7[1] |= kLeaf7EbxAvx512f;
    EXPECT_FALSE(hasFeature(allButThis, f)) << f.name;
    EXPECT_TRUE(hasFeature(onlyThis, f)) << f.name;

    // The OS condition: without the saved state, the bit alone is not enough.
    if (f.needs != OsState::none) {
      CpuIdentification noState = onlyThis;
      noState.osSavesYmm = noState.osSavesZmm = false;
      EXPECT_FALSE(hasFeature(noState, f)) << f.name;
    }
  }
}

// ------------------------------------------------------------ SMT

TEST(SmtFlag, HttWithMoreLogicalProcessorsThanCores) {
  const CpuIdentification htt = Synthetic{}.edx1(kLeaf1EdxHtt).id;
  const CpuIdentification noHtt = Synthetic{}.edx1(~kLeaf1EdxHtt).id;
  EXPECT_TRUE(smtInUse(htt, cores(2, 4)));
  EXPECT_EQ(computeFeatureFlags(htt, cores(2, 4)).smt, 1u);
  EXPECT_FALSE(smtInUse(noHtt, cores(2, 4)));
  EXPECT_EQ(computeFeatureFlags(noHtt, cores(2, 4)).smt, 0u);
  EXPECT_FALSE(smtInUse(htt, cores(4, 4)));
  EXPECT_FALSE(smtInUse(htt, cores(4, 2)));
  EXPECT_FALSE(smtInUse(htt, fallbackTopology(8)));
  EXPECT_EQ(computeFeatureFlags(htt, fallbackTopology(8)).smt, 0u);
}

TEST(SmtFlag, TwoCoresOfTwoFromTheOsRecords) {
  std::vector<unsigned char> records;
  appendProcessorRecord(records, 0b0011, kRelationProcessorCore);
  appendProcessorRecord(records, 0b1100, kRelationProcessorCore);
  const Topology t = walkProcessorInformation(records.data(), records.size());
  EXPECT_TRUE(smtInUse(Synthetic{}.edx1(kLeaf1EdxHtt).id, t));
  EXPECT_FALSE(smtInUse(CpuIdentification{}, t));
}

// ------------------------------------------------------------ vendor

TEST(Vendor, KnownStringsExactlyAndNothingElse) {
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("GenuineIntel").id), 1);
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("AuthenticAMD").id), 2);
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("GenuineIotel").id), 0);  // same length, one byte off
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("AuthenticAMd").id), 0);
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("HygonGenuine").id), 0);
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("CentaurHauls").id), 0);
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("GenuineInte").id), 0);  // a prefix
  EXPECT_EQ(vendorKind(Synthetic{}.vendor("").id), 0);
  CpuIdentification unterminated = Synthetic{}.vendor("GenuineIntel").id;
  unterminated.vendor[12] = 'X';
  EXPECT_EQ(vendorKind(unterminated), 0);
}

TEST(Vendor, RealProcessorMatchesItsRecord) {
  EXPECT_EQ(vendorKind(), vendorKind(identification()));
  const std::string v = identification().vendor;
  EXPECT_EQ(vendorKind(), v == "GenuineIntel" ? 1 : v == "AuthenticAMD" ? 2 : 0);
}

// ------------------------------------------------------------ the OS records

// Writes a record with explicit offsets, independently of the module's encoder.
struct RecordWriter {
  std::vector<unsigned char> bytes;
  void put(size_t at, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
  }
  RecordWriter& record(uint64_t mask, uint32_t relationship) {
    bytes.resize(bytes.size() + 32, 0);
    const size_t at = bytes.size() - 32;
    put(at, mask, 8);
    put(at + 8, relationship, 4);
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
  Topology walk() const { return walkProcessorInformation(bytes.data(), bytes.size()); }
};

TEST(ProcessorInformationWalk, CountsCoresAndTheBitsOfTheirMasks) {
  RecordWriter w;
  w.record(0b11, 0).record(0b1100, 0).record(0b10000, 0).record(0xFFFFFFFFFFFFFFFFull, 0);
  EXPECT_EQ(fields(w.walk()), (Quad{4, 2 + 2 + 1 + 64, 0, 0}));
}

TEST(ProcessorInformationWalk, SecondLevelCacheGivesSizeAndTheLineValueEqualToIt) {
  RecordWriter w;
  w.record(0b11, 0).cache(2, 64, 1u << 20);
  EXPECT_EQ(fields(w.walk()), (Quad{1, 2, 1u << 20, 1u << 20}));
}

TEST(ProcessorInformationWalk, LineValueIsTheLargerOfLineSizeAndTheNewL2Size) {
  RecordWriter w;
  w.cache(2, 64, 16);
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 16, 64}));
  w.cache(2, 8, 32);  // replaced from this record, not kept as a running maximum
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 32, 32}));
  w.cache(2, 128, 24);  // smaller L2: the size stays, the line value follows this record
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 32, 128}));
  w.cache(2, 64, 512 * 1024);
  w.cache(2, 64, 256 * 1024);
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 512 * 1024, 512 * 1024}));
}

TEST(ProcessorInformationWalk, OtherCacheLevelsAndOtherRelationshipsAreIgnored) {
  RecordWriter w;
  w.cache(1, 64, 48 * 1024, 2).cache(1, 64, 32 * 1024, 1).cache(3, 64, 32u << 20).cache(4, 64, 1u << 30);
  w.cache(2, 64, 64u << 20, 0, 3);  // a package record whose union bytes look like an L2
  w.cache(2, 64, 64u << 20, 0, 1);  // a NUMA record likewise
  w.cache(2, 64, 64u << 20, 0, 7);
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 0, 0}));
  w.cache(2, 64, 1u << 20, 1);  // the cache type takes no part
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 1u << 20, 1u << 20}));
  w.record(0b111, 3).record(0b1, 1).record(0b1, 4);
  EXPECT_EQ(fields(w.walk()), (Quad{0, 0, 1u << 20, 1u << 20}));
}

TEST(ProcessorInformationWalk, TrailingPartialRecordAndEmptyBufferAreIgnored) {
  RecordWriter w;
  w.record(0b11, 0).record(0b11, 0);
  std::vector<unsigned char> truncated(w.bytes.begin(), w.bytes.end() - 1);
  EXPECT_EQ(fields(walkProcessorInformation(truncated.data(), truncated.size())), (Quad{1, 2, 0, 0}));
  EXPECT_EQ(fields(walkProcessorInformation(w.bytes.data(), 31)), (Quad{0, 0, 0, 0}));
  EXPECT_EQ(fields(walkProcessorInformation(w.bytes.data(), 0)), (Quad{0, 0, 0, 0}));
  EXPECT_EQ(fields(walkProcessorInformation(nullptr, 0)), (Quad{0, 0, 0, 0}));
}

TEST(ProcessorInformationWalk, BufferNeedNotBeAligned) {
  RecordWriter w;
  w.record(0b1011, 0).cache(2, 64, 2u << 20);
  std::vector<unsigned char> shifted(w.bytes.size() + 3, 0xEE);
  std::memcpy(shifted.data() + 3, w.bytes.data(), w.bytes.size());
  EXPECT_EQ(fields(walkProcessorInformation(shifted.data() + 3, w.bytes.size())), (Quad{1, 3, 2u << 20, 2u << 20}));
}

TEST(ProcessorInformationWalk, EncoderWritesThePublishedLayout) {
  std::vector<unsigned char> mine;
  appendProcessorRecord(mine, 0x8000000000000005ull, kRelationProcessorCore);
  appendCacheRecord(mine, 0b11, 2, 16, 64, 0x00140000, kCacheData);
  RecordWriter w;
  w.record(0x8000000000000005ull, 0);
  w.record(0b11, 2);
  w.put(32 + 16, 2, 1);
  w.put(32 + 17, 16, 1);
  w.put(32 + 18, 64, 2);
  w.put(32 + 20, 0x00140000, 4);
  w.put(32 + 24, 2, 4);
  EXPECT_EQ(mine, w.bytes);
}

TEST(ProcessorInformationWalk, FallbackIsCountCount256And32) {
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
  void cache(uint32_t cpuNumber, int index, int level, const std::string& type, const std::string& size, int line,
             const std::string& shared) const {
    const std::string c = "cpu" + std::to_string(cpuNumber) + "/cache/index" + std::to_string(index) + "/";
    write(c + "level", std::to_string(level));
    write(c + "type", type);
    write(c + "size", size);
    write(c + "coherency_line_size", std::to_string(line));
    write(c + "ways_of_associativity", "16");
    write(c + "shared_cpu_list", shared);
  }
  std::string path() const { return root_.string(); }

 private:
  fs::path root_;
};

struct DecodedRecord {
  uint64_t mask;
  uint32_t relationship;
  unsigned level, line;
  uint32_t size, type;
};

std::vector<DecodedRecord> decode(const std::vector<unsigned char>& bytes) {
  std::vector<DecodedRecord> out;
  const auto get = [&](size_t at, size_t width) {
    uint64_t v = 0;
    for (size_t i = width; i-- > 0;) v = (v << 8) | bytes[at + i];
    return v;
  };
  for (size_t at = 0; at + 32 <= bytes.size(); at += 32)
    out.push_back({get(at, 8), static_cast<uint32_t>(get(at + 8, 4)), bytes[at + 16],
                   static_cast<unsigned>(get(at + 18, 2)), static_cast<uint32_t>(get(at + 20, 4)),
                   static_cast<uint32_t>(get(at + 24, 4))});
  return out;
}

// Four online CPUs on two cores of one package, each core with its own L1 and L2,
// one shared L3; cpu4 is present but offline.
void twoCoresOfTwo(const FakeSysfs& fs) {
  fs.write("online", "0-3");
  fs.write("possible", "0-4");
  for (uint32_t c = 0; c < 4; ++c) {
    fs.cpu(c, 0, static_cast<int>(c % 2), 0);
    const std::string siblings = c % 2 == 0 ? "0,2" : "1,3";
    fs.cache(c, 0, 1, "Data", "48K", 64, siblings);
    fs.cache(c, 1, 1, "Instruction", "32K", 64, siblings);
    fs.cache(c, 2, 2, "Unified", "1280K", 64, siblings);
    fs.cache(c, 3, 3, "Unified", "30720K", 64, "0-3");
  }
  fs.cpu(4, 0, 7, 0);
  fs.cache(4, 2, 2, "Unified", "4096K", 64, "4");
}

TEST(SysfsTopology, BuildsOneRecordPerCorePackageAndDistinctCache) {
  FakeSysfs fs;
  twoCoresOfTwo(fs);
  const auto records = processorInformationFromSysfs(fs.path());
  ASSERT_TRUE(records.has_value());
  ASSERT_EQ(records->size() % 32, 0u);
  std::map<uint32_t, std::vector<DecodedRecord>> byRelationship;
  for (const DecodedRecord& r : decode(*records)) byRelationship[r.relationship].push_back(r);

  ASSERT_EQ(byRelationship[0].size(), 2u);
  std::set<uint64_t> coreMasks{byRelationship[0][0].mask, byRelationship[0][1].mask};
  EXPECT_EQ(coreMasks, (std::set<uint64_t>{0b0101, 0b1010}));
  ASSERT_EQ(byRelationship[3].size(), 1u);
  EXPECT_EQ(byRelationship[3][0].mask, 0b1111u);

  std::map<std::pair<unsigned, uint32_t>, int> caches;  // (level, type) -> count
  for (const DecodedRecord& r : byRelationship[2]) {
    ++caches[{r.level, r.type}];
    EXPECT_EQ(r.line, 64u);
    if (r.level == 2) {
      EXPECT_EQ(r.size, 1280u * 1024u);
    }
    if (r.level == 3) {
      EXPECT_EQ(r.mask, 0b1111u);
    }
  }
  const std::map<std::pair<unsigned, uint32_t>, int> expected{
      {{1, kCacheData}, 2}, {{1, kCacheInstruction}, 2}, {{2, kCacheUnified}, 2}, {{3, kCacheUnified}, 1}};
  EXPECT_EQ(caches, expected);
}

TEST(SysfsTopology, WalkOfTheTreeGivesCoresThreadsAndTheL2Values) {
  FakeSysfs fs;
  twoCoresOfTwo(fs);
  const Topology t = topologyFromSysfs(fs.path(), 99);
  EXPECT_EQ(fields(t), (Quad{2, 4, 1280u * 1024u, 1280u * 1024u})) << "the offline CPU and its larger L2 take no part";
  EXPECT_TRUE(smtInUse(Synthetic{}.edx1(kLeaf1EdxHtt).id, t));
}

TEST(SysfsTopology, CoreNumbersRepeatAcrossPackagesAndDies) {
  FakeSysfs packages;
  packages.write("online", "0-3");
  packages.cpu(0, 0, 0);
  packages.cpu(1, 0, 1);
  packages.cpu(2, 1, 0);
  packages.cpu(3, 1, 1);
  EXPECT_EQ(fields(topologyFromSysfs(packages.path(), 99)), (Quad{4, 4, 0, 0}));

  FakeSysfs dies;
  dies.write("online", "0-3");
  dies.cpu(0, 0, 0, 0);
  dies.cpu(1, 0, 0, 0);
  dies.cpu(2, 0, 0, 1);
  dies.cpu(3, 0, 0, 1);
  EXPECT_EQ(fields(topologyFromSysfs(dies.path(), 99)), (Quad{2, 4, 0, 0}));
}

TEST(SysfsTopology, WithoutTheOnlineListCpusWithTopologyAreTaken) {
  FakeSysfs fs;
  fs.cpu(0, 0, 0);
  fs.cpu(1, 0, 0);
  fs.cpu(2, 0, 1);
  fs.cache(0, 0, 2, "Unified", "2M", 64, "0-1");
  fs.write("cpu3/online", "0");  // offline: no topology directory
  fs.write("cpufreq/policy0/scaling_driver", "none");
  fs.write("cpuidle/current_driver", "none");
  EXPECT_EQ(fields(topologyFromSysfs(fs.path(), 99)), (Quad{2, 3, 2u << 20, 2u << 20}));
}

TEST(SysfsTopology, CpuNumbersBeyondTheMaskStillCount) {
  FakeSysfs fs;
  fs.write("online", "0,70,130-131");
  fs.cpu(0, 0, 0);
  fs.cpu(70, 0, 0);
  fs.cpu(130, 0, 1);
  fs.cpu(131, 0, 1);
  EXPECT_EQ(fields(topologyFromSysfs(fs.path(), 99)), (Quad{2, 4, 0, 0}));
}

TEST(SysfsTopology, UnreadableTreeFallsBack) {
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
}

TEST(SysfsTopology, UnreadableCacheEntriesAreSkipped) {
  FakeSysfs fs;
  fs.write("online", "0");
  fs.cpu(0, 0, 0);
  fs.cache(0, 0, 2, "Unified", "bogus", 64, "0");
  fs.cache(0, 1, 3, "Unified", "8M", 64, "0");
  EXPECT_EQ(fields(topologyFromSysfs(fs.path(), 9)), (Quad{1, 1, 0, 0}));
}

TEST(SysfsTopology, CpuListsAndCacheSizesParse) {
  EXPECT_EQ(parseCpuList("0-3,8,10-11\n"), (std::vector<uint32_t>{0, 1, 2, 3, 8, 10, 11}));
  EXPECT_EQ(parseCpuList("5"), (std::vector<uint32_t>{5}));
  EXPECT_EQ(parseCpuList("3,1-2,2"), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(parseCpuList(""), (std::vector<uint32_t>{}));
  EXPECT_FALSE(parseCpuList("3-1").has_value());
  EXPECT_FALSE(parseCpuList("a").has_value());
  EXPECT_FALSE(parseCpuList("1,,2").has_value());
  EXPECT_FALSE(parseCpuList("-1").has_value());

  EXPECT_EQ(parseCacheSize("1024K\n"), uint64_t{1} << 20);
  EXPECT_EQ(parseCacheSize("8M"), uint64_t{8} << 20);
  EXPECT_EQ(parseCacheSize("1G"), uint64_t{1} << 30);
  EXPECT_EQ(parseCacheSize("512"), uint64_t{512});
  EXPECT_FALSE(parseCacheSize("K").has_value());
  EXPECT_FALSE(parseCacheSize("12Q").has_value());
  EXPECT_FALSE(parseCacheSize("").has_value());
}

TEST(SysfsTopology, RealMachineGivesAPlausibleAnswer) {
  const Topology t = topologyFromSysfs("/sys/devices/system/cpu", 1);
  EXPECT_GE(t.physicalCores, 1u);
  EXPECT_GE(t.logicalProcessors, t.physicalCores);
}

#endif  // __linux__

// ------------------------------------------------------------ the real machine

TEST(RealProcessor, IdentificationIsFilledOnceAndSharedAcrossThreads) {
  const CpuIdentification& first = identification();
  EXPECT_EQ(&identification(), &first);
  std::vector<const CpuIdentification*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&seen, i] { seen[i] = &identification(); });
  for (std::thread& t : threads) t.join();
  for (const CpuIdentification* p : seen) EXPECT_EQ(p, &first);

  // A fresh query agrees, but for the initial APIC ID, which depends on where the
  // thread ran.
  CpuIdentification fresh = queryIdentification(hardwareCpuidSource());
  fresh.leaf1[1] = (fresh.leaf1[1] & 0x00FFFFFFu) | (first.leaf1[1] & 0xFF000000u);
  EXPECT_EQ(std::memcmp(fresh.leaf0, first.leaf0, sizeof fresh.leaf0), 0);
  EXPECT_EQ(std::memcmp(fresh.leaf1, first.leaf1, sizeof fresh.leaf1), 0);
  EXPECT_EQ(fresh.maxExtendedLeaf, first.maxExtendedLeaf);
  EXPECT_EQ(fresh.l2Info, first.l2Info);
  EXPECT_EQ(fresh.osSavesYmm, first.osSavesYmm);
  EXPECT_EQ(fresh.osSavesZmm, first.osSavesZmm);
  EXPECT_STREQ(fresh.vendor, first.vendor);
}

TEST(RealProcessor, StartupFlagsAreZeroOrOneAndMatchThePureRules) {
  flagsAtStartup();
  const CpuFeatureFlags f = g_cpuFeatureFlags;
  for (uint32_t v : asArray(f)) EXPECT_LE(v, 1u);
  EXPECT_EQ(asArray(f), asArray(computeFeatureFlags(identification(), topology())));
  EXPECT_EQ(f.sse2, 1u) << "every x86-64 processor has SSE2";
  EXPECT_EQ(f.sse, 1u);
  EXPECT_EQ(f.sseSecond, f.sse);
  EXPECT_LE(f.avx2, f.avx);
  EXPECT_EQ(f.avx, avxUsable() ? 1u : 0u);
  EXPECT_EQ(f.smt, smtInUse() ? 1u : 0u);
  flagsAtStartup();
  EXPECT_EQ(asArray(g_cpuFeatureFlags), asArray(f)) << "a second start-up stores the same values";
}

TEST(RealProcessor, CachedValuesAgreeWithTheirPureForms) {
  EXPECT_EQ(avxUsable(), avxUsable(identification()));
  EXPECT_EQ(avx512Usable(), avx512Usable(identification()));
  EXPECT_EQ(smtInUse(), smtInUse(identification(), topology()));
  const Topology t = topology();
  EXPECT_EQ(fields(t), fields(topology()));
  EXPECT_EQ(physicalCores(), t.physicalCores);
  EXPECT_EQ(logicalProcessors(), t.logicalProcessors);
  EXPECT_EQ(l2Size(), t.l2Size);
  EXPECT_EQ(l2Line(), t.l2Line);
  EXPECT_GE(t.physicalCores, 1u);
  EXPECT_GE(t.logicalProcessors, t.physicalCores);
  for (const CpuFeature& feat : feature::kAll)
    EXPECT_EQ(hasFeature(feat), hasFeature(identification(), feat)) << feat.name;
  EXPECT_TRUE(hasFeature(feature::kSse2));
  EXPECT_TRUE(hasFeature(feature::kLongMode));
}

}  // namespace
