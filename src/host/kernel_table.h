// What a family's files share to hand their bodies to the kernel table: the
// instruction-set levels and the macro that turns a family's list of routines
// into the table type each level's file exports (plain typed pointers, null for
// a routine the file has no body of).
//
// Types only, so that files built for a wider instruction set can include it.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

namespace tarnell {

// The levels a body is written for, named as the file suffixes. `plain` is code
// without vector instructions that serves processors without SSE2 (it is replaced
// wherever an SSE2 body exists and the processor reports SSE2).
enum class Level : uint8_t { plain, sse2, ssse3, sse41, avx, avx2 };
inline constexpr int kLevelCount = 6;

}  // namespace tarnell

// A family lists its routines as X(slotName) entries; each entry is the body for
// the slot of that name. TARNELL_KERNEL_TABLE(Type, LIST) declares the table type.
#define TARNELL_KERNEL_TABLE_MEMBER(NAME) ::tarnell::SlotFnOf<::tarnell::slot::NAME> NAME = nullptr;
#define TARNELL_KERNEL_TABLE(TYPE, LIST) \
  struct TYPE {                          \
    LIST(TARNELL_KERNEL_TABLE_MEMBER)    \
  };
