// The 'memo' suite's routines: the baseline (SSE2) set, and the tables through
// which the files built for wider instruction sets hand over theirs.
//
// Types and constants only below the baseline declarations, so that the wider-ISA
// files can include this header without pulling in baseline code.
#pragma once

#include <tarnell/host_interface.h>

#include "host/kernel_table.h"

#include <cstddef>
#include <cstdint>

namespace tarnell::memory {

// Runs of at least this many bytes are written with non-temporal stores (the SSE2
// copy loop and every fill, one run or one row at a time): 8 MiB is a quarter of a 32 MiB
// last-level cache, about what one core can keep when the others are busy, and
// comfortably above any L2. A run this long would evict the caller's working set
// for data it is unlikely to read back soon. Fixed rather than measured at start-up
// because the routines keep no state.
constexpr std::size_t kNonTemporalBytes = std::size_t{8} << 20;

// Below this many bytes the SSE2 copy moves the run through registers (all loads
// before any store, so overlap in either direction is safe); the SSSE3 copy does
// so up to 64 bytes and leaves longer runs to the C library's wider vectors.
constexpr int32_t kSmallCopyBytes = 128;

// Block forms treat a block as one run when the row step equals the row's width
// in bytes and the element count stays below this limit (the one-dimensional
// routines take a 32-bit count).
constexpr int64_t kOneRunLimit = 0x7FFFFFFF;

// ---------------------------------------------------------------- SSE2 tier
// memory_sse2.cpp
void copyBytesSse2(const void* source, void* destination, int32_t count);
void copyBlockSse2(const void* source, void* destination, int32_t rows, int32_t widthBytes, int32_t sourceStep,
                   int32_t destinationStep);
void fillBytesSse2(void* destination, int32_t count, uint8_t value);
void fillBlockSse2(void* destination, int32_t rows, int32_t width, int32_t step, uint8_t value);
uint8_t bytesAllEqualSse2(const void* address, int32_t count, uint8_t value);
uint8_t blockBytesAllEqualSse2(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value);
void fillWordsSse2(void* destination, int32_t count, uint16_t value);
void fillWordBlockSse2(void* destination, int32_t rows, int32_t width, int32_t step, uint16_t value);
uint32_t blockWordsUniformValueSse2(const void* address, int32_t rows, int32_t width, int32_t step);
uint8_t blockWordsAllEqualSse2(const void* address, int32_t rows, int32_t width, int32_t step, uint16_t value);
void fillDwordsSse2(void* destination, int32_t count, uint32_t value);

// ----------------------------------------------------------- kernel tables
// The bodies of the wider tiers, by slot: the SSSE3 copies, the SSE4.1 search,
// the AVX fills and test; see host/kernels.h.
#define TARNELL_MEMORY_KERNELS(X) \
  X(copyBytes)                    \
  X(copyBlock)                    \
  X(fillBytes)                    \
  X(fillBlock)                    \
  X(fillDwords)                   \
  X(byteBounds)                   \
  X(blockDwordsUniform)           \
  X(fillDwordBlock)
TARNELL_KERNEL_TABLE(MemoryTable, TARNELL_MEMORY_KERNELS)

extern constinit const MemoryTable g_memorySsse3;  // memory_ssse3.cpp
extern constinit const MemoryTable g_memorySse41;  // memory_sse41.cpp
extern constinit const MemoryTable g_memoryAvx;    // memory_avx.cpp

}  // namespace tarnell::memory
