// The module's painting routines ('pntg'): each family's 8-bit and 16-bit
// workers, their three- and four-plane companions, and the single entries. Every
// one has a body at each level (paint_sse2.cpp, paint_avx2.cpp), written once
// over the vector width (paint_workers.h); the kernel table picks the level.
//
// Types only, so that files built for a wider instruction set can include it.
#pragma once

#include <tarnell/host_interface.h>

#include "host/kernel_table.h"

namespace tarnell::paint {

// Every entry the installer writes with a routine of its own, in its order: a
// companion is listed with its worker, and its body at a level calls the worker's
// body at the same level.
#define TARNELL_PAINT_KERNELS(X) \
  X(PaintP8)                     \
  X(PaintP8x3)                   \
  X(PaintP8x4)                   \
  X(PaintP16)                    \
  X(PaintP16x3)                  \
  X(PaintP16x4)                  \
  X(PaintQ8)                     \
  X(PaintQ8x3)                   \
  X(PaintQ8x4)                   \
  X(PaintQ16)                    \
  X(PaintQ16x3)                  \
  X(PaintQ16x4)                  \
  X(PaintSingle5)                \
  X(PaintSingle81)               \
  X(PaintR8)                     \
  X(PaintR8x3)                   \
  X(PaintR8x4)                   \
  X(PaintR16)                    \
  X(PaintR16x3)                  \
  X(PaintR16x4)                  \
  X(PaintS8)                     \
  X(PaintS8x3)                   \
  X(PaintS8x4)                   \
  X(PaintS16)                    \
  X(PaintS16x3)                  \
  X(PaintS16x4)                  \
  X(PaintT8)                     \
  X(PaintT8x3)                   \
  X(PaintT8x4)                   \
  X(PaintT16)                    \
  X(PaintT16x3)                  \
  X(PaintT16x4)                  \
  X(PaintSingle18)               \
  X(PaintSingle9)                \
  X(PaintSingle92)
TARNELL_KERNEL_TABLE(PaintTable, TARNELL_PAINT_KERNELS)

extern constinit const PaintTable g_paintSse2;  // paint_sse2.cpp
extern constinit const PaintTable g_paintAvx2;  // paint_avx2.cpp

}  // namespace tarnell::paint
