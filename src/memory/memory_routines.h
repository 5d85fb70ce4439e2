// The 'memo' suite's routines: the baseline (SSE2) set, and the tables through
// which the files built for wider instruction sets hand over theirs.
//
// Types and constants only below the baseline declarations, so that the wider-ISA
// files can include this header without pulling in baseline code.
#pragma once

#include <tarnell/host_interface.h>

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

// ------------------------------------------------------ wider tiers (tables)
struct Ssse3Routines {  // memory_ssse3.cpp
  SlotFn<code::memo, 0> copyBytes;
  SlotFn<code::memo, 1> copyBlock;
};
struct Sse41Routines {  // memory_sse41.cpp
  SlotFn<code::memo, 36> byteBounds;
};
struct AvxRoutines {  // memory_avx.cpp
  SlotFn<code::memo, 3> fillBytes;
  SlotFn<code::memo, 4> fillBlock;
  SlotFn<code::memo, 135> blockDwordsUniform;
  SlotFn<code::memo, 136> fillDwords;
  SlotFn<code::memo, 137> fillDwordBlock;
};

extern constinit const Ssse3Routines g_memorySsse3;
extern constinit const Sse41Routines g_memorySse41;
extern constinit const AvxRoutines g_memoryAvx;

}  // namespace tarnell::memory
