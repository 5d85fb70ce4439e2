// Processor identification, topology and the ten process-wide feature flags.
//
// Everything the installers decide rests on two records read once per process: the
// CPUID/XGETBV identification and the OS's core/cache topology. Each derived value
// has a pure form taking the records (so tests can feed synthetic processors) and a
// cached form for the real processor.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnell {

// ------------------------------------------------------------ identification

// Registers are stored EAX, EBX, ECX, EDX in every four-word leaf.
struct CpuIdentification {
  uint32_t leaf0[4];         // highest standard leaf, vendor words
  uint32_t leaf1[4];         // signature and the classic feature bits
  uint32_t leaf7[4];         // structured extended features, sub-leaf 0
  uint32_t ext1[4];          // leaf 0x80000001
  uint32_t maxExtendedLeaf;  // EAX of leaf 0x80000000
  uint32_t l2Info;           // ECX of leaf 0x80000006, or 0 when that leaf is absent
  bool osSavesYmm;           // XCR0 has SSE and AVX state
  bool osSavesZmm;           // XCR0 has SSE, AVX and the three AVX-512 states
  char vendor[13];           // EBX, EDX, ECX of leaf 0, zero-terminated
};

// Where CPUID and XGETBV come from. The real instructions in production; tests pass
// plain functions that model a processor and record how they were called.
struct CpuidSource {
  void (*cpuid)(uint32_t leaf, uint32_t subleaf, uint32_t out[4]);
  uint64_t (*xgetbv)(uint32_t ecx);
};

// The processor's own CPUID and XGETBV instructions.
const CpuidSource& hardwareCpuidSource();

// Reads leaves 0, 1, 7, 0x80000001, 0x80000000 and (when present) 0x80000006, in
// that order. XGETBV runs only when the OS has announced XSAVE use (OSXSAVE): on an
// OS that has not enabled it the instruction faults.
CpuIdentification queryIdentification(const CpuidSource& source);

// A record filled at most once. A filling that throws leaves it unfilled, and the
// exception reaches the caller; the next call tries again.
class IdentificationOnce {
 public:
  const CpuIdentification& get(const CpuidSource& source);

 private:
  // A mutex and a flag rather than std::call_once: on some runtimes call_once never
  // returns for the caller after one whose callable threw.
  std::mutex mutex_;
  std::atomic<bool> filled_{false};
  CpuIdentification record_{};
};

// The real processor's record, filled on first call.
const CpuIdentification& identification();

// Signature fields of leaf 1 EAX.
uint32_t cpuStepping(const CpuIdentification& id);        // bits 0-3
uint32_t cpuModel(const CpuIdentification& id);           // bits 4-7
uint32_t cpuFamily(const CpuIdentification& id);          // bits 8-11
uint32_t cpuExtendedModel(const CpuIdentification& id);   // bits 16-19
uint32_t cpuExtendedFamily(const CpuIdentification& id);  // bits 20-27

// ------------------------------------------------------------ feature bits

enum class CpuRegister : uint8_t { leaf1Ecx, leaf1Edx, leaf7Ebx, leaf7Ecx, leaf7Edx, ext1Ecx, ext1Edx };

// Which operating-system state a feature needs before its instructions may run.
enum class OsState : uint8_t {
  none,    // the CPUID bit alone decides
  ymm,     // also needs avxUsable()
  zmm,     // also needs avx512Usable()
};

struct CpuFeature {
  CpuRegister reg;
  uint8_t bit;
  OsState needs;
  const char* name;
};

namespace feature {
// leaf 1 EDX
inline constexpr CpuFeature kFpu{CpuRegister::leaf1Edx, 0, OsState::none, "FPU"};
inline constexpr CpuFeature kTsc{CpuRegister::leaf1Edx, 4, OsState::none, "TSC"};
inline constexpr CpuFeature kCx8{CpuRegister::leaf1Edx, 8, OsState::none, "CX8"};
inline constexpr CpuFeature kCmov{CpuRegister::leaf1Edx, 15, OsState::none, "CMOV"};
inline constexpr CpuFeature kClflush{CpuRegister::leaf1Edx, 19, OsState::none, "CLFSH"};
inline constexpr CpuFeature kMmx{CpuRegister::leaf1Edx, 23, OsState::none, "MMX"};
inline constexpr CpuFeature kFxsr{CpuRegister::leaf1Edx, 24, OsState::none, "FXSR"};
inline constexpr CpuFeature kSse{CpuRegister::leaf1Edx, 25, OsState::none, "SSE"};
inline constexpr CpuFeature kSse2{CpuRegister::leaf1Edx, 26, OsState::none, "SSE2"};
inline constexpr CpuFeature kHtt{CpuRegister::leaf1Edx, 28, OsState::none, "HTT"};
// leaf 1 ECX
inline constexpr CpuFeature kSse3{CpuRegister::leaf1Ecx, 0, OsState::none, "SSE3"};
inline constexpr CpuFeature kPclmulqdq{CpuRegister::leaf1Ecx, 1, OsState::none, "PCLMULQDQ"};
inline constexpr CpuFeature kSsse3{CpuRegister::leaf1Ecx, 9, OsState::none, "SSSE3"};
inline constexpr CpuFeature kFma{CpuRegister::leaf1Ecx, 12, OsState::ymm, "FMA"};
inline constexpr CpuFeature kCx16{CpuRegister::leaf1Ecx, 13, OsState::none, "CX16"};
inline constexpr CpuFeature kSse41{CpuRegister::leaf1Ecx, 19, OsState::none, "SSE4.1"};
inline constexpr CpuFeature kSse42{CpuRegister::leaf1Ecx, 20, OsState::none, "SSE4.2"};
inline constexpr CpuFeature kMovbe{CpuRegister::leaf1Ecx, 22, OsState::none, "MOVBE"};
inline constexpr CpuFeature kPopcnt{CpuRegister::leaf1Ecx, 23, OsState::none, "POPCNT"};
inline constexpr CpuFeature kAes{CpuRegister::leaf1Ecx, 25, OsState::none, "AES"};
inline constexpr CpuFeature kXsave{CpuRegister::leaf1Ecx, 26, OsState::none, "XSAVE"};
inline constexpr CpuFeature kOsxsave{CpuRegister::leaf1Ecx, 27, OsState::none, "OSXSAVE"};
inline constexpr CpuFeature kAvx{CpuRegister::leaf1Ecx, 28, OsState::ymm, "AVX"};
inline constexpr CpuFeature kF16c{CpuRegister::leaf1Ecx, 29, OsState::ymm, "F16C"};
inline constexpr CpuFeature kRdrand{CpuRegister::leaf1Ecx, 30, OsState::none, "RDRAND"};
// leaf 7 EBX
inline constexpr CpuFeature kFsgsbase{CpuRegister::leaf7Ebx, 0, OsState::none, "FSGSBASE"};
inline constexpr CpuFeature kBmi1{CpuRegister::leaf7Ebx, 3, OsState::none, "BMI1"};
inline constexpr CpuFeature kHle{CpuRegister::leaf7Ebx, 4, OsState::none, "HLE"};
inline constexpr CpuFeature kAvx2{CpuRegister::leaf7Ebx, 5, OsState::ymm, "AVX2"};
inline constexpr CpuFeature kBmi2{CpuRegister::leaf7Ebx, 8, OsState::none, "BMI2"};
inline constexpr CpuFeature kErms{CpuRegister::leaf7Ebx, 9, OsState::none, "ERMS"};
inline constexpr CpuFeature kRtm{CpuRegister::leaf7Ebx, 11, OsState::none, "RTM"};
inline constexpr CpuFeature kAvx512f{CpuRegister::leaf7Ebx, 16, OsState::zmm, "AVX512F"};
inline constexpr CpuFeature kAvx512dq{CpuRegister::leaf7Ebx, 17, OsState::zmm, "AVX512DQ"};
inline constexpr CpuFeature kRdseed{CpuRegister::leaf7Ebx, 18, OsState::none, "RDSEED"};
inline constexpr CpuFeature kAdx{CpuRegister::leaf7Ebx, 19, OsState::none, "ADX"};
inline constexpr CpuFeature kAvx512ifma{CpuRegister::leaf7Ebx, 21, OsState::zmm, "AVX512IFMA"};
inline constexpr CpuFeature kClflushopt{CpuRegister::leaf7Ebx, 23, OsState::none, "CLFLUSHOPT"};
inline constexpr CpuFeature kClwb{CpuRegister::leaf7Ebx, 24, OsState::none, "CLWB"};
inline constexpr CpuFeature kAvx512pf{CpuRegister::leaf7Ebx, 26, OsState::zmm, "AVX512PF"};
inline constexpr CpuFeature kAvx512er{CpuRegister::leaf7Ebx, 27, OsState::zmm, "AVX512ER"};
inline constexpr CpuFeature kAvx512cd{CpuRegister::leaf7Ebx, 28, OsState::zmm, "AVX512CD"};
inline constexpr CpuFeature kSha{CpuRegister::leaf7Ebx, 29, OsState::none, "SHA"};
inline constexpr CpuFeature kAvx512bw{CpuRegister::leaf7Ebx, 30, OsState::zmm, "AVX512BW"};
inline constexpr CpuFeature kAvx512vl{CpuRegister::leaf7Ebx, 31, OsState::zmm, "AVX512VL"};
// leaf 7 ECX
inline constexpr CpuFeature kAvx512vbmi{CpuRegister::leaf7Ecx, 1, OsState::zmm, "AVX512VBMI"};
inline constexpr CpuFeature kAvx512vbmi2{CpuRegister::leaf7Ecx, 6, OsState::zmm, "AVX512VBMI2"};
inline constexpr CpuFeature kGfni{CpuRegister::leaf7Ecx, 8, OsState::none, "GFNI"};
inline constexpr CpuFeature kVaes{CpuRegister::leaf7Ecx, 9, OsState::ymm, "VAES"};
inline constexpr CpuFeature kVpclmulqdq{CpuRegister::leaf7Ecx, 10, OsState::ymm, "VPCLMULQDQ"};
inline constexpr CpuFeature kAvx512vnni{CpuRegister::leaf7Ecx, 11, OsState::zmm, "AVX512VNNI"};
inline constexpr CpuFeature kAvx512bitalg{CpuRegister::leaf7Ecx, 12, OsState::zmm, "AVX512BITALG"};
inline constexpr CpuFeature kAvx512vpopcntdq{CpuRegister::leaf7Ecx, 14, OsState::zmm, "AVX512VPOPCNTDQ"};
inline constexpr CpuFeature kRdpid{CpuRegister::leaf7Ecx, 22, OsState::none, "RDPID"};
// leaf 7 EDX
inline constexpr CpuFeature kAvx5124vnniw{CpuRegister::leaf7Edx, 2, OsState::zmm, "AVX5124VNNIW"};
inline constexpr CpuFeature kAvx5124fmaps{CpuRegister::leaf7Edx, 3, OsState::zmm, "AVX5124FMAPS"};
inline constexpr CpuFeature kFsrm{CpuRegister::leaf7Edx, 4, OsState::none, "FSRM"};
inline constexpr CpuFeature kAvx512vp2intersect{CpuRegister::leaf7Edx, 8, OsState::zmm, "AVX512VP2INTERSECT"};
inline constexpr CpuFeature kAvx512fp16{CpuRegister::leaf7Edx, 23, OsState::zmm, "AVX512FP16"};
// leaf 0x80000001 ECX
inline constexpr CpuFeature kLahfLm{CpuRegister::ext1Ecx, 0, OsState::none, "LAHF-LM"};
inline constexpr CpuFeature kLzcnt{CpuRegister::ext1Ecx, 5, OsState::none, "LZCNT"};
inline constexpr CpuFeature kSse4a{CpuRegister::ext1Ecx, 6, OsState::none, "SSE4A"};
inline constexpr CpuFeature kPrefetchw{CpuRegister::ext1Ecx, 8, OsState::none, "PREFETCHW"};
inline constexpr CpuFeature kXop{CpuRegister::ext1Ecx, 11, OsState::ymm, "XOP"};
inline constexpr CpuFeature kFma4{CpuRegister::ext1Ecx, 16, OsState::ymm, "FMA4"};
inline constexpr CpuFeature kTbm{CpuRegister::ext1Ecx, 21, OsState::none, "TBM"};
// leaf 0x80000001 EDX
inline constexpr CpuFeature kSyscall{CpuRegister::ext1Edx, 11, OsState::none, "SYSCALL"};
inline constexpr CpuFeature kNx{CpuRegister::ext1Edx, 20, OsState::none, "NX"};
inline constexpr CpuFeature kMmxExt{CpuRegister::ext1Edx, 22, OsState::none, "MMXEXT"};
inline constexpr CpuFeature kRdtscp{CpuRegister::ext1Edx, 27, OsState::none, "RDTSCP"};
inline constexpr CpuFeature kLongMode{CpuRegister::ext1Edx, 29, OsState::none, "LM"};
inline constexpr CpuFeature k3dnowExt{CpuRegister::ext1Edx, 30, OsState::none, "3DNOWEXT"};
inline constexpr CpuFeature k3dnow{CpuRegister::ext1Edx, 31, OsState::none, "3DNOW"};

// Every named feature, for reports and exhaustive tests.
inline constexpr CpuFeature kAll[] = {
    kFpu, kTsc, kCx8, kCmov, kClflush, kMmx, kFxsr, kSse, kSse2, kHtt,
    kSse3, kPclmulqdq, kSsse3, kFma, kCx16, kSse41, kSse42, kMovbe, kPopcnt, kAes, kXsave, kOsxsave, kAvx, kF16c,
    kRdrand,
    kFsgsbase, kBmi1, kHle, kAvx2, kBmi2, kErms, kRtm, kAvx512f, kAvx512dq, kRdseed, kAdx, kAvx512ifma, kClflushopt,
    kClwb, kAvx512pf, kAvx512er, kAvx512cd, kSha, kAvx512bw, kAvx512vl,
    kAvx512vbmi, kAvx512vbmi2, kGfni, kVaes, kVpclmulqdq, kAvx512vnni, kAvx512bitalg, kAvx512vpopcntdq, kRdpid,
    kAvx5124vnniw, kAvx5124fmaps, kFsrm, kAvx512vp2intersect, kAvx512fp16,
    kLahfLm, kLzcnt, kSse4a, kPrefetchw, kXop, kFma4, kTbm,
    kSyscall, kNx, kMmxExt, kRdtscp, kLongMode, k3dnowExt, k3dnow,
};
}  // namespace feature

// The raw CPUID bit, without any operating-system condition.
bool cpuidBit(const CpuIdentification& id, CpuRegister reg, unsigned bit);

// The feature's bit, and the OS state it needs (through avxUsable / avx512Usable).
bool hasFeature(const CpuIdentification& id, const CpuFeature& f);
// The same for the real processor, with the cached usability results.
bool hasFeature(const CpuFeature& f);

// (extended family << 20) | (extended model << 16) | (family << 8).
uint32_t avxExclusionSignature(const CpuIdentification& id);
// Family 0xF with extended family 6 and extended model 0..3, or extended family 7
// and extended model 0: AVX is treated as unusable there, on purpose.
bool isAvxExcludedModel(const CpuIdentification& id);

// AVX bit, YMM state saved by the OS, and not an excluded model.
bool avxUsable(const CpuIdentification& id);
bool avxUsable();  // real processor, computed once

// AVX-512 Foundation bit and ZMM state saved by the OS.
bool avx512Usable(const CpuIdentification& id);
bool avx512Usable();  // real processor, computed once

// 1 for "GenuineIntel", 2 for "AuthenticAMD", 0 for anything else.
int vendorKind(const CpuIdentification& id);
int vendorKind();  // real processor

// ------------------------------------------------------------ topology

struct Topology {
  uint32_t physicalCores;
  uint32_t logicalProcessors;
  uint32_t l2Size;
  uint32_t l2Line;
};

// The OS's 64-bit logical-processor information record: 32 bytes, an 8-byte
// processor mask at 0, a 32-bit relationship at 8, and for caches the level (16),
// associativity (17), 16-bit line size (18), 32-bit size (20) and 32-bit type (24).
inline constexpr size_t kProcessorRecordBytes = 32;
enum ProcessorRelationship : uint32_t {
  kRelationProcessorCore = 0,
  kRelationNumaNode = 1,
  kRelationCache = 2,
  kRelationProcessorPackage = 3,
};
enum ProcessorCacheType : uint32_t { kCacheUnified = 0, kCacheInstruction = 1, kCacheData = 2, kCacheTrace = 3 };

void appendProcessorRecord(std::vector<unsigned char>& buffer, uint64_t mask, uint32_t relationship);
void appendCacheRecord(std::vector<unsigned char>& buffer, uint64_t mask, uint8_t level, uint8_t associativity,
                       uint16_t lineSize, uint32_t size, uint32_t type);

// Counts cores and their logical processors and takes the largest level-2 cache.
// l2Line is the larger of the line size and the running l2Size, which makes it the
// L2 size in practice; consumers expect exactly that value, so it is kept.
// A trailing piece shorter than a record is ignored.
Topology walkProcessorInformation(const unsigned char* buffer, size_t bytes);

// What is assumed when the OS will not describe its processors.
Topology fallbackTopology(uint32_t processorCount);

#ifdef __linux__
// Online CPUs as listed in sysfs ("0-3,8,10-11"); nullopt on a malformed list.
std::optional<std::vector<uint32_t>> parseCpuList(std::string_view text);

// Cache sizes as sysfs prints them ("1024K"); nullopt when malformed.
std::optional<uint64_t> parseCacheSize(std::string_view text);

// Builds the same records the other platform's OS publishes from a sysfs CPU
// directory (normally /sys/devices/system/cpu): one core record per physical core,
// one package record per package and one cache record per distinct cache.
// nullopt when the CPUs or their topology cannot be read.
std::optional<std::vector<unsigned char>> processorInformationFromSysfs(const std::string& cpuDirectory);

// The walk over those records, or fallbackTopology(processorCount) without them.
Topology topologyFromSysfs(const std::string& cpuDirectory, uint32_t processorCount);
#endif

// Asks the operating system now (no caching).
Topology queryTopology();

// The real machine's topology and its four fields, each computed once.
Topology topology();
uint32_t physicalCores();
uint32_t logicalProcessors();
uint32_t l2Size();
uint32_t l2Line();

// HTT set and more logical processors than cores.
bool smtInUse(const CpuIdentification& id, const Topology& t);
bool smtInUse();  // real machine, computed once

// ------------------------------------------------------------ flags

// Ten flags, each 0 or 1, in storage order.
struct CpuFeatureFlags {
  uint32_t mmx;
  uint32_t sse;
  uint32_t sseSecond;  // same test as sse; gates other installers than sse does
  uint32_t sse2;
  uint32_t sse3;
  uint32_t ssse3;
  uint32_t sse41;
  uint32_t avx;
  uint32_t avx2;
  uint32_t smt;
};

// The flag rules applied to any processor and topology.
CpuFeatureFlags computeFeatureFlags(const CpuIdentification& id, const Topology& t);

// The process-wide flags; zero until flagsAtStartup() runs.
extern CpuFeatureFlags g_cpuFeatureFlags;

// Fills g_cpuFeatureFlags from the cached values of the real processor.
void flagsAtStartup();

}  // namespace tarnell
