// The binary interface between the host and an extension module: the suite
// directory, the four-character codes, the ten suites the module works on, and
// the calling signature of every slot that the module replaces or calls.
//
// Shared by the module and the reference host. It holds types and constants only:
// no arithmetic, no tables, and no out-of-line code, so that including it in a
// file compiled for a wider instruction set cannot leak code into baseline paths.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarnell {

// A slot of a suite table. Routines are stored type-erased and cast back to the
// slot's signature (SlotSignature<>::Fn) at the call.
using HostRoutine = void (*)();

// Four-character code: first character in the most significant byte.
constexpr uint32_t fourcc(const char (&s)[5]) {
  return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
         (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

namespace code {
constexpr uint32_t blnd = fourcc("blnd");
constexpr uint32_t conv = fourcc("conv");
constexpr uint32_t core = fourcc("core");
constexpr uint32_t disp = fourcc("disp");
constexpr uint32_t filt = fourcc("filt");
constexpr uint32_t memo = fourcc("memo");
constexpr uint32_t pntg = fourcc("pntg");
constexpr uint32_t rsmp = fourcc("rsmp");
constexpr uint32_t sele = fourcc("sele");
constexpr uint32_t path = fourcc("path");
constexpr uint32_t requesterModule = fourcc("QRXM");  // 'core' slot 5: suite lookup
constexpr uint32_t gestaltClass = fourcc("QRIM");     // 'core' slot 5: gestalt query
constexpr uint32_t pathDebug = fourcc("pdbg");
constexpr uint32_t pathDebugGuard = fourcc("pdgv");
}  // namespace code

// One entry of the host's suite directory (host-defined layout, 16 bytes).
struct HostSuite {
  uint32_t key;
  int16_t version;   // matched exactly
  int16_t revision;  // must reach the suite's minimum (compared unsigned after sign extension)
  HostRoutine* slots;
};
static_assert(sizeof(HostSuite) == 16 && offsetof(HostSuite, version) == 4 &&
              offsetof(HostSuite, revision) == 6 && offsetof(HostSuite, slots) == 8);

// The block the host passes to PluginMain. entryCount HostSuite records follow
// the header back to back, starting at byte 8.
struct HostInfo {
  uint32_t hostPrivate;  // never read by the module
  int32_t entryCount;    // below 1: empty directory
};
static_assert(sizeof(HostInfo) == 8 && offsetof(HostInfo, entryCount) == 4);
constexpr std::size_t kHostInfoEntriesOffset = 8;

// The ten suites, in acquisition order.
struct SuiteSpec {
  uint32_t key;
  int16_t version;
  int16_t minRevision;
  int32_t slotCount;  // slots copied into the module's saved host table
  const char* name;
};
enum SuiteIndex : int { kBlnd, kConv, kCore, kDisp, kFilt, kMemo, kPntg, kRsmp, kSele, kPath, kSuiteCount };
constexpr SuiteSpec kSuites[kSuiteCount] = {
    {code::blnd, 6, 109, 395, "blnd"}, {code::conv, 12, 15, 79, "conv"},
    {code::core, 4, 8, 17, "core"},    {code::disp, 7, 24, 82, "disp"},
    {code::filt, 9, 60, 345, "filt"},  {code::memo, 4, 36, 182, "memo"},
    {code::pntg, 11, 92, 151, "pntg"}, {code::rsmp, 5, 9, 62, "rsmp"},
    {code::sele, 6, 115, 123, "sele"}, {code::path, 16, 47, 53, "path"},
};
constexpr int kMaxSlotCount = 395;

constexpr int suiteIndexOf(uint32_t key) {
  for (int i = 0; i < kSuiteCount; ++i)
    if (kSuites[i].key == key) return i;
  return -1;
}

// PluginMain(selector, hostInfo, data, result) -> status.
using PluginMainFn = int32_t(int16_t selector, HostInfo* hostInfo, intptr_t data, int16_t* result);
enum : int16_t { kSelectorNone = 0, kSelectorStartup = 1, kSelectorIdle = 2 };
constexpr int16_t kResultUnknownSelector = -30300;
constexpr int16_t kResultSuiteMissing = -1;

// ---------------------------------------------------------------------------
// Slot signatures. SlotSignature<suite, slot>::Fn is the function type of the
// slot; ::name is the module routine's name, ::text the signature as text.
// Both sides take the type from here, so a mismatch is a compile error.
//
// Conventions: counts and strides are signed 32-bit; strides are in bytes; plane
// routines take the plane pointers first, then rows and columns, then one stride
// per plane in pointer order, then their parameters.
template <uint32_t Suite, int Slot>
struct SlotSignature;  // declared only for the slots the module touches

// A slot by name: slot::MultiplyInto8 is SlotId<code::blnd, 74>. Every slot the
// module writes or calls gets one, declared with its signature, so that code names
// a slot instead of typing its number again.
template <uint32_t Suite, int Slot>
struct SlotId {
  static constexpr uint32_t suite = Suite;
  static constexpr int number = Slot;
  static constexpr const char* name() { return SlotSignature<Suite, Slot>::name; }
  static constexpr bool forwarded() { return SlotSignature<Suite, Slot>::forwarded; }
};

#define TARNELL_SLOT(SUITE, SLOT, NAME, RET, ...)                              \
  template <>                                                                  \
  struct SlotSignature<code::SUITE, SLOT> {                                    \
    using Fn = RET(__VA_ARGS__);                                               \
    static constexpr const char* name = #NAME;                                 \
    static constexpr const char* text = #RET " " #NAME "(" #__VA_ARGS__ ")";   \
    static constexpr bool forwarded = false;                                   \
  };                                                                           \
  namespace slot {                                                             \
  inline constexpr SlotId<code::SUITE, SLOT> NAME{};                           \
  }

// A slot the module fills with a jump to the host's own routine: its argument
// list is the host's alone, so it has a name and no signature.
#define TARNELL_FORWARDED_SLOT(SUITE, SLOT, NAME)                                        \
  template <>                                                                            \
  struct SlotSignature<code::SUITE, SLOT> {                                              \
    static constexpr const char* name = #NAME;                                           \
    static constexpr const char* text = #NAME "(the host's own arguments, forwarded)";   \
    static constexpr bool forwarded = true;                                              \
  };                                                                                     \
  namespace slot {                                                                       \
  inline constexpr SlotId<code::SUITE, SLOT> NAME{};                                     \
  }

template <uint32_t Suite, int Slot>
using SlotFn = typename SlotSignature<Suite, Slot>::Fn*;
// The routine type of a named slot, as a pointer (SlotFnOf<slot::MultiplyInto8>)
// and as the function type that declares a routine (SlotTypeOf<...> name;).
template <auto Id>
using SlotFnOf = SlotFn<decltype(Id)::suite, decltype(Id)::number>;
template <auto Id>
using SlotTypeOf = typename SlotSignature<decltype(Id)::suite, decltype(Id)::number>::Fn;
// A table entry as the routine of its slot's type: as<slot::MultiplyInto8>(routine),
// or by number (as<code::blnd, 30>(routine)) where one piece of code serves several
// slots. For the host's side and the tools, which call what the tables hold.
template <auto Id>
SlotFnOf<Id> as(HostRoutine routine) {
  return reinterpret_cast<SlotFnOf<Id>>(routine);
}
template <uint32_t Suite, int Slot>
SlotFn<Suite, Slot> as(HostRoutine routine) {
  return reinterpret_cast<SlotFn<Suite, Slot>>(routine);
}

// --- 'core': host services the module calls -------------------------------
// Slot 0: the host's buffer notification. Its arguments are four machine words
// (pointers, or 32-bit integers sign-extended); the result is ignored by callers.
TARNELL_SLOT(core, 0, notifyBuffer, int32_t, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d)
// Slot 3: the host (re)registers its dither-noise buffer (16-bit entries).
TARNELL_SLOT(core, 3, registerNoiseTable, int32_t, const void* base, uint32_t size, uint32_t period)
// Slot 5: the query routine. With 'QRXM' it looks up a suite: (requester, key,
// HostSuite** out, const HostSuite* coreEntry). With 'QRIM' it answers a gestalt:
// (class, selector, uint64_t* answer, nullptr). Nonzero low byte: recognised.
TARNELL_SLOT(core, 5, query, uint8_t, uint32_t requester, uint32_t selector, void* out, const void* context)
// Slot 16: diagnostic report.
TARNELL_SLOT(core, 16, report, void, const char* message, const char* source, int32_t line, int32_t severity)

// --- 'memo' -----------------------------------------------------------------
TARNELL_SLOT(memo, 0, copyBytes, void, const void* source, void* destination, int32_t count)
TARNELL_SLOT(memo, 1, copyBlock, void, const void* source, void* destination, int32_t rows, int32_t widthBytes, int32_t sourceStep, int32_t destinationStep)
TARNELL_SLOT(memo, 3, fillBytes, void, void* destination, int32_t count, uint8_t value)
TARNELL_SLOT(memo, 4, fillBlock, void, void* destination, int32_t rows, int32_t width, int32_t step, uint8_t value)
TARNELL_SLOT(memo, 17, bytesAllEqual, uint8_t, const void* address, int32_t count, uint8_t value)
TARNELL_SLOT(memo, 18, blockBytesAllEqual, uint8_t, const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value)
TARNELL_SLOT(memo, 36, byteBounds, void, const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value, int16_t* bounds)
TARNELL_SLOT(memo, 65, fillWords, void, void* destination, int32_t count, uint16_t value)
TARNELL_SLOT(memo, 66, fillWordBlock, void, void* destination, int32_t rows, int32_t width, int32_t step, uint16_t value)
TARNELL_SLOT(memo, 83, blockWordsUniformValue, uint32_t, const void* address, int32_t rows, int32_t width, int32_t step)
TARNELL_SLOT(memo, 102, blockWordsAllEqual, uint8_t, const void* address, int32_t rows, int32_t width, int32_t step, uint16_t value)
// Slot 110: fills a float rectangle; sampleStep is in floats.
TARNELL_SLOT(memo, 110, fillFloatRect, void, float* destination, int32_t columns, int32_t rows, int32_t stride, int32_t sampleStep, float value)
TARNELL_SLOT(memo, 135, blockDwordsUniform, uint8_t, const void* address, int32_t rows, int32_t width, int32_t step, uint8_t* result)
TARNELL_SLOT(memo, 136, fillDwords, void, void* destination, int32_t count, uint32_t value)
TARNELL_SLOT(memo, 137, fillDwordBlock, void, void* destination, int32_t rows, int32_t width, int32_t step, uint32_t value)
// Slots 11 and 67: the host's long-run routines on 8- and 16-bit data.
TARNELL_FORWARDED_SLOT(memo, 11, memoSlot11)
TARNELL_FORWARDED_SLOT(memo, 67, memoSlot67)

// --- 'conv' -----------------------------------------------------------------
TARNELL_SLOT(conv, 16, convert16To8Planar3, void, const uint16_t* source0, const uint16_t* source1, const uint16_t* source2, uint8_t* destination0, uint8_t* destination1, uint8_t* destination2, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither)
TARNELL_SLOT(conv, 17, convert16To8, void, const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither)
TARNELL_SLOT(conv, 18, convert8To16, void, const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride)
TARNELL_SLOT(conv, 19, rescale16, void, uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride)
TARNELL_SLOT(conv, 58, convertFloatTo8, void, const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither)

// --- 'blnd', 8-bit ------------------------------------------------------------
// Shapes: K = one plane and a constant; CDM = constant, destination, mask;
// SD = source and destination; SDM = source, destination, mask; ADB = first
// operand, destination, second operand; MDC = mask-first fill; SDK = source and
// destination with an opacity byte last.
#define TARNELL_BLEND8_K(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, uint8_t* destination, int32_t rows, int32_t columns, int32_t destinationStride, uint16_t k)
#define TARNELL_BLEND8_CDM(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, uint8_t c, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns, int32_t destinationStride, int32_t maskStride)
#define TARNELL_BLEND8_SD(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride)
#define TARNELL_BLEND8_SDM(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const uint8_t* source, uint8_t* destination, const uint8_t* mask, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride, int32_t maskStride)
#define TARNELL_BLEND8_ADB(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const uint8_t* a, uint8_t* destination, const uint8_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t destinationStride, int32_t bStride)
#define TARNELL_BLEND8_SDK(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t k)

TARNELL_BLEND8_K(1, ScaleByConstant8)
TARNELL_BLEND8_SDM(2, MixSourceThroughMask8)
TARNELL_BLEND8_CDM(3, MixConstantThroughMask8)
TARNELL_BLEND8_SDM(7, DarkenTowardSourceThroughMask8)
TARNELL_BLEND8_CDM(8, DarkenTowardConstantThroughMask8)
TARNELL_BLEND8_SDM(10, LightenTowardSourceThroughMask8)
TARNELL_BLEND8_CDM(11, LightenTowardConstantThroughMask8)
TARNELL_BLEND8_SDM(22, MultiplySourceThroughMask8)
TARNELL_BLEND8_SD(24, MultiplySource8)
TARNELL_BLEND8_CDM(26, ScreenConstantThroughMask8)
TARNELL_BLEND8_SD(27, ScreenSource8)
TARNELL_BLEND8_SD(28, MaxSource8)
TARNELL_BLEND8_SD(29, MinSource8)
TARNELL_BLEND8_SDM(30, CopyWhereMaskSet8)
TARNELL_BLEND8_CDM(31, FillWhereMaskSet8)
TARNELL_BLEND8_SDM(47, OverlaySourceThroughMask8)
TARNELL_BLEND8_CDM(48, OverlayConstantThroughMask8)
TARNELL_BLEND8_SD(49, OverlaySource8)
TARNELL_BLEND8_SDM(50, SourceBasedOverlayThroughMask8)
TARNELL_BLEND8_CDM(51, ConstantBasedOverlayThroughMask8)
TARNELL_BLEND8_SD(52, SourceBasedOverlay8)
TARNELL_SLOT(blnd, 54, SubtractCoverage8, void, uint8_t* a, uint8_t* b, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride)
TARNELL_BLEND8_SDK(56, MultiplyWithOpacity8)
TARNELL_BLEND8_SDK(57, ScreenSourceWithOpacity8)
TARNELL_BLEND8_SDK(58, OverlaySourceWithOpacity8)
TARNELL_BLEND8_SDK(59, SourceBasedOverlayWithOpacity8)
TARNELL_BLEND8_ADB(74, MultiplyInto8)
TARNELL_BLEND8_ADB(75, InverseMultiplyInto8)
TARNELL_SLOT(blnd, 106, FillWhereMaskClear8, void, const uint8_t* mask, uint8_t* destination, int32_t rows, int32_t columns, int32_t maskStride, int32_t destinationStride, uint8_t c)
TARNELL_SLOT(blnd, 115, OrderedCombineInto8, void, const uint8_t* a, const uint8_t* b, uint8_t* destination, int32_t rows, int32_t columns, int32_t aStride, int32_t bStride, int32_t destinationStride)
// The 8-bit members of the group whose formulas are the host's alone.
TARNELL_FORWARDED_SLOT(blnd, 53, BlendPlaneRoutine53)
TARNELL_FORWARDED_SLOT(blnd, 66, BlendPlaneRoutine66)
TARNELL_FORWARDED_SLOT(blnd, 72, BlendPlaneRoutine72)
TARNELL_FORWARDED_SLOT(blnd, 96, BlendPlaneRoutine96)
TARNELL_FORWARDED_SLOT(blnd, 97, BlendPlaneRoutine97)

}  // namespace tarnell

// The other families' slots and record types, one header each, so that families
// grow without touching each other's lines.
#include <tarnell/slots_blend16.h>
#include <tarnell/slots_blendf.h>
#include <tarnell/slots_filter.h>
#include <tarnell/slots_resample.h>
#include <tarnell/slots_paint.h>
#include <tarnell/slots_pathfill.h>
#include <tarnell/slots_selection.h>
