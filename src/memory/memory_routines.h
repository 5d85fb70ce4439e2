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

// Fills of at least this many bytes (one run, or a whole block counted together)
// bypass the caches with non-temporal stores and one closing store fence. The
// last-level cache of the processors this is tuned for holds 32 MiB: a fill smaller
// than that stays in it, and the plane is most often used right after it is filled
// (and again filled next time): there a cached fill of a 16 MiB plane followed by a
// read of it runs about twice as fast as a streamed one. A fill as large as the
// cache cannot stay in it anyway; streaming it is then as fast or faster and spares
// what the caller keeps cached. docs/contracts.md has the measurements. Fixed rather
// than read from the processor at start-up, because the routines keep no state.
constexpr std::size_t kNonTemporalFillBytes = std::size_t{32} << 20;

// Runs of at least this many bytes are copied with non-temporal stores by the SSE2
// copy loop: a copy touches twice its length, and from 8 MiB on (16 MiB between
// source and destination) a streamed copy measured faster than a cached one even
// when the same run is copied again and again.
constexpr std::size_t kNonTemporalCopyBytes = std::size_t{8} << 20;

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
// The slots with bodies at several levels, in slot order: the SSE2 tier's own
// (memory_sse2.cpp, written by the SSE2 step), the SSSE3 copies, the AVX fills and
// 32-bit test, and the AVX2 tests and search; see host/kernels.h. Which step writes
// a slot stays the installer's: an AVX body of slot 65 is what the SSE2 step
// writes there on a processor with AVX.
#define TARNELL_MEMORY_KERNELS(X) \
  X(copyBytes)                    \
  X(copyBlock)                    \
  X(fillBytes)                    \
  X(fillBlock)                    \
  X(bytesAllEqual)                \
  X(blockBytesAllEqual)           \
  X(byteBounds)                   \
  X(fillWords)                    \
  X(fillWordBlock)                \
  X(blockWordsUniformValue)       \
  X(blockWordsAllEqual)           \
  X(blockDwordsUniform)           \
  X(fillDwords)                   \
  X(fillDwordBlock)
TARNELL_KERNEL_TABLE(MemoryTable, TARNELL_MEMORY_KERNELS)

extern constinit const MemoryTable g_memorySse2;   // memory_sse2.cpp
extern constinit const MemoryTable g_memorySsse3;  // memory_ssse3.cpp
extern constinit const MemoryTable g_memorySse41;  // memory_sse41.cpp
extern constinit const MemoryTable g_memoryAvx;    // memory_avx.cpp
extern constinit const MemoryTable g_memoryAvx2;   // memory_avx2.cpp

}  // namespace tarnell::memory
