// The kernel table: for every routine that has bodies at several instruction-set
// levels (or only at a level above the baseline), the body this processor runs.
//
// It is resolved once at start-up, right after the processor flags, in ascending
// tiers: the plain bodies first, then each tier whose flag holds overwrites the
// routines it has a body of, the way a codec fills its function table. Installers
// read it; no routine tests the flags when it is called. Which slots an installer
// writes, in which order and under which flag, stays the installer's own business:
// the table only decides which body stands behind a slot.
#pragma once

#include <tarnell/host_interface.h>

#include <type_traits>

#include "blend/blend8.h"
#include "blend/blend16.h"
#include "blend/blendf.h"
#include "convert/convert_sse2.h"
#include "filter/filter.h"
#include "host/cpu_features.h"
#include "host/kernel_table.h"
#include "memory/memory_routines.h"
#include "paint/paint.h"
#include "resample/resample_routines.h"
#include "selection/selection.h"

namespace tarnell {

const char* levelName(Level level);  // "plain", "sse2", ... "avx2"
// The level named as a file suffix; false for any other name.
bool levelFromName(const char* name, Level* level);
// Whether a processor with these flags runs code of this level.
bool flagsReach(const CpuFeatureFlags& flags, Level level);
// The same processor with every level above `level` taken away: a flag set of that
// tier, for running the narrower bodies on a wider processor.
CpuFeatureFlags flagsAtLevel(const CpuFeatureFlags& flags, Level level);
// The widest level these flags reach.
Level widestLevel(const CpuFeatureFlags& flags);

// One routine's resolved body.
template <class Fn>
struct Kernel {
  Fn fn = nullptr;
  Level level = Level::plain;
  explicit operator bool() const { return fn != nullptr; }
};

// A family's kernels: one Kernel per entry of its list, with take() (a tier's
// table over them), get() (by slot name) and visit() (every entry).
#define TARNELL_KERNEL_SET_MEMBER(NAME) ::tarnell::Kernel<::tarnell::SlotFnOf<::tarnell::slot::NAME>> NAME;
#define TARNELL_KERNEL_SET_TAKE(NAME) \
  if (table.NAME != nullptr) NAME = {table.NAME, level};
#define TARNELL_KERNEL_SET_GET(NAME)                                                       \
  const ::tarnell::Kernel<::tarnell::SlotFnOf<::tarnell::slot::NAME>>& get(                \
      std::remove_cv_t<decltype(::tarnell::slot::NAME)>) const {                           \
    return NAME;                                                                           \
  }
#define TARNELL_KERNEL_SET_VISIT(NAME) \
  visitor(::tarnell::slot::NAME, reinterpret_cast<::tarnell::HostRoutine>(NAME.fn), NAME.level);
#define TARNELL_KERNEL_SET(TYPE, TABLE, LIST)        \
  struct TYPE {                                      \
    LIST(TARNELL_KERNEL_SET_MEMBER)                  \
    void take(const TABLE& table, Level level) {     \
      LIST(TARNELL_KERNEL_SET_TAKE)                  \
    }                                                \
    LIST(TARNELL_KERNEL_SET_GET)                     \
    template <class Visitor>                         \
    void visit(Visitor&& visitor) const {            \
      LIST(TARNELL_KERNEL_SET_VISIT)                 \
    }                                                \
  };

TARNELL_KERNEL_SET(MemoryKernels, memory::MemoryTable, TARNELL_MEMORY_KERNELS)
TARNELL_KERNEL_SET(Blend8Kernels, blend8::Blend8Table, TARNELL_BLEND8_KERNELS)
TARNELL_KERNEL_SET(Blend16Kernels, blend16::Blend16Table, TARNELL_BLEND16_KERNELS)
TARNELL_KERNEL_SET(BlendFloatKernels, blendf::BlendFloatTable, TARNELL_BLENDF_KERNELS)
TARNELL_KERNEL_SET(ConvertKernels, convert::ConvertTable, TARNELL_CONVERT_KERNELS)
TARNELL_KERNEL_SET(FilterKernels, filter::FilterTable, TARNELL_FILTER_KERNELS)
TARNELL_KERNEL_SET(ResampleKernels, resample::ResampleTable, TARNELL_RESAMPLE_KERNELS)
TARNELL_KERNEL_SET(PaintKernels, paint::PaintTable, TARNELL_PAINT_KERNELS)
TARNELL_KERNEL_SET(SelectionKernels, selection::SelectionTable, TARNELL_SELECTION_KERNELS)

// Several families' kernels as one: get(slot::X) finds X's in whichever family has
// it, take() a tier's table of any of them, visit() every routine of every family.
template <class... Sets>
struct KernelSets : Sets... {
  using Sets::get...;
  using Sets::take...;
  template <class Visitor>
  void visit(Visitor&& visitor) const {
    (Sets::visit(visitor), ...);
  }
};

// Every family's kernels.
struct Kernels : KernelSets<MemoryKernels, Blend8Kernels, Blend16Kernels, BlendFloatKernels, ConvertKernels,
                            FilterKernels, ResampleKernels, PaintKernels, SelectionKernels> {};

// The bodies for a processor with these flags.
Kernels resolveKernels(const CpuFeatureFlags& flags);

// The process's table: resolved by start-up from the process-wide flags.
extern Kernels g_kernels;

}  // namespace tarnell
