// What installers share: a typed writer into a suite table, the installer entry
// points in start-up order, and the forwarding trampolines to the saved host table.
#pragma once

#include <tarnell/host_interface.h>

#include "host/cpu_features.h"
#include "host/kernels.h"

namespace tarnell {

// One write of an installer, as an observer sees it.
struct SlotWrite {
  int slot;
  HostRoutine routine;
  Level level;     // of the body written (a routine put directly is baseline code: sse2)
  bool forwarded;  // a jump to the host's own routine of the slot
};

// Writes routine pointers into one suite's table (the host's live table at
// start-up, a scratch table in tests). Routines with bodies at several levels come
// from the kernel table it is given. The optional observer sees every write in
// order, which is how tests and the tool see an installer's sequence. Slots are
// never read back.
template <uint32_t Suite>
class SuiteWriter {
 public:
  using Observer = void (*)(void* context, const SlotWrite& write);

  SuiteWriter(HostRoutine* table, const Kernels& kernels, Observer observer = nullptr, void* context = nullptr)
      : table_(table), kernels_(kernels), observer_(observer), context_(context) {}

  // A routine with one body; its type is checked against the slot's signature.
  template <int Slot>
  void put(SlotId<Suite, Slot>, SlotFn<Suite, Slot> routine) const {
    write({Slot, reinterpret_cast<HostRoutine>(routine), Level::sse2, false});
  }
  // The kernel table's body for the slot of that name.
  template <int Slot>
  void put(SlotId<Suite, Slot> id) const {
    const auto& kernel = kernels_.get(id);
    write({Slot, reinterpret_cast<HostRoutine>(kernel.fn), kernel.level, false});
  }
  // A jump to the host's own routine; only for slots declared as forwarded.
  template <int Slot>
  void forward(SlotId<Suite, Slot>, void (*forwarder)()) const {
    static_assert(SlotSignature<Suite, Slot>::forwarded, "a slot with a signature gets a routine");
    write({Slot, reinterpret_cast<HostRoutine>(forwarder), Level::sse2, true});
  }

 private:
  void write(const SlotWrite& w) const {
    if (observer_ != nullptr) observer_(context_, w);
    table_[w.slot] = w.routine;
  }

  HostRoutine* table_;
  const Kernels& kernels_;
  Observer observer_;
  void* context_;
};

// The per-suite installation, on any table and any flag set (tests inject both).
void installBlend(const SuiteWriter<code::blnd>& writer, const CpuFeatureFlags& flags);
void installConvert(const SuiteWriter<code::conv>& writer, const CpuFeatureFlags& flags);
void installNoiseHookInto(const SuiteWriter<code::core>& writer);
void installFilter(const SuiteWriter<code::filt>& writer, const CpuFeatureFlags& flags);
void installMemory(const SuiteWriter<code::memo>& writer, const CpuFeatureFlags& flags);
void installPaint(const SuiteWriter<code::pntg>& writer, const CpuFeatureFlags& flags);
void installResample(const SuiteWriter<code::rsmp>& writer, const CpuFeatureFlags& flags);
void installSelection(const SuiteWriter<code::sele>& writer, const CpuFeatureFlags& flags);
void installPath(const SuiteWriter<code::path>& writer, const char* moduleName);

// The start-up sequence's installers: each writes into the live table of its
// suite with the process-wide flags, ignores hostInfo and returns 1.
int32_t installNoiseHook(HostInfo* hostInfo);
int32_t InstallBlendRoutines(HostInfo* hostInfo);
int32_t installConvertSuite(HostInfo* hostInfo);
int32_t installEmptyStep(HostInfo* hostInfo);
int32_t installFilterSuite(HostInfo* hostInfo);
int32_t installMemorySuite(HostInfo* hostInfo);
int32_t InstallPaintRoutines(HostInfo* hostInfo);
int32_t InstallResampleRoutines(HostInfo* hostInfo);
int32_t installSelectionSuite(HostInfo* hostInfo);
int32_t installPathSuite(HostInfo* hostInfo);

}  // namespace tarnell

// A routine that jumps to the saved host routine of (suite index, slot) with every
// register and stack argument untouched, so it serves any signature, including
// slots whose argument list the module does not model. The symbol is local to its
// object file. Declare it with TARNELL_FORWARDER(name, kBlnd, 53) at namespace
// scope in a baseline file, then write `reinterpret_cast<HostRoutine>(&name)`.
#define TARNELL_FORWARDER_STR2(x) #x
#define TARNELL_FORWARDER_STR(x) TARNELL_FORWARDER_STR2(x)
#if defined(_WIN32)
#define TARNELL_FORWARDER_TYPE(NAME) ".def " #NAME "; .scl 3; .type 32; .endef\n"
#else
#define TARNELL_FORWARDER_TYPE(NAME) ".type " #NAME ", @function\n"
#endif
#define TARNELL_FORWARDER(NAME, SUITE_INDEX, SLOT)                                                   \
  static_assert((SLOT) >= 0 && (SLOT) < ::tarnell::kSuites[::tarnell::SUITE_INDEX].slotCount);     \
  extern "C" void NAME();                                                                           \
  asm(".text\n.p2align 4\n" TARNELL_FORWARDER_TYPE(NAME) #NAME ":\n"                                \
      "\tjmp *(tarnell_saved_tables + 8 * (" TARNELL_FORWARDER_STR(TARNELL_SUITE_ROW_##SUITE_INDEX) \
      " * 395 + " #SLOT "))(%rip)\n")

// Row numbers of the saved tables, for the assembler (must match SuiteIndex).
#define TARNELL_SUITE_ROW_kBlnd 0
#define TARNELL_SUITE_ROW_kConv 1
#define TARNELL_SUITE_ROW_kCore 2
#define TARNELL_SUITE_ROW_kDisp 3
#define TARNELL_SUITE_ROW_kFilt 4
#define TARNELL_SUITE_ROW_kMemo 5
#define TARNELL_SUITE_ROW_kPntg 6
#define TARNELL_SUITE_ROW_kRsmp 7
#define TARNELL_SUITE_ROW_kSele 8
#define TARNELL_SUITE_ROW_kPath 9
static_assert(TARNELL_SUITE_ROW_kPath == tarnell::kPath && TARNELL_SUITE_ROW_kMemo == tarnell::kMemo &&
              TARNELL_SUITE_ROW_kBlnd == tarnell::kBlnd && tarnell::kMaxSlotCount == 395);
