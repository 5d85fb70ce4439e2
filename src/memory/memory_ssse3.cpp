// The 'memo' suite's SSSE3 tier: byte copies that leave long runs to the C
// library's copy (tuned per processor) and keep overlap safe in both directions.
// Built with -mssse3: everything stays in this file (anonymous namespace), and the
// one way out is the table at the end.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "host/inline.h"
#include "memory/block_walk.h"
#include "memory/memory_routines.h"

// The C library's copies (declared here: this file includes no library header
// that could bring inline code built for this instruction set).
extern "C" void* memcpy(void*, const void*, std::size_t) noexcept;
extern "C" void* memmove(void*, const void*, std::size_t) noexcept;

namespace tarnell::memory {
namespace {

using Byte = unsigned char;

// The library's copies, called through their addresses: one indirect jump straight
// into the library rather than a second hop through the procedure linkage table.
// Indexed by whether the runs overlap.
using LibraryCopy = void* (*)(void*, const void*, std::size_t);
constinit const LibraryCopy libraries[2] = {&memcpy, &memmove};

__m128i load(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
void store(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Copies n <= 64 bytes with every load before the first store: a copy through a
// temporary, whichever way the runs overlap.
TARNELL_INLINE void copySmall(const Byte* s, Byte* d, std::size_t n) {
  if (n > 32) {
    const __m128i a0 = load(s), a1 = load(s + 16), b0 = load(s + n - 32), b1 = load(s + n - 16);
    store(d, a0), store(d + 16, a1), store(d + n - 32, b0), store(d + n - 16, b1);
  } else if (n >= 16) {
    const __m128i a = load(s), b = load(s + n - 16);
    store(d, a), store(d + n - 16, b);
  } else {
    copyUnder16(s, d, n);
  }
}

// Slot 0: overlap in either direction takes the overlap-safe move, everything else
// the ordinary copy; runs of up to 64 bytes go through registers, which is both
// (and saves the library call; longer runs gain from the library's wider vectors).
void copyBytes(const void* source, void* destination, int32_t count) {
  const auto* s = static_cast<const Byte*>(source);
  auto* d = static_cast<Byte*>(destination);
  // One unsigned compare admits 1..64 and turns away counts below 1 as well.
  if (static_cast<uint32_t>(count) - 1u < 64u) {
    copySmall(s, d, static_cast<std::size_t>(count));
    return;
  }
  if (count < 1) return;
  const auto n = static_cast<std::size_t>(count);
  // The runs overlap when the addresses are less than n apart either way. The
  // choice indexes a table rather than branching: one taken jump fewer.
  const uintptr_t apart = reinterpret_cast<uintptr_t>(d) - reinterpret_cast<uintptr_t>(s) + (n - 1);
  libraries[apart < 2 * n - 1](d, s, n);
}

// Slot 1: one copy when both steps equal the width, else row by row.
void copyBlock(const void* source, void* destination, int32_t rows, int32_t widthBytes, int32_t sourceStep,
               int32_t destinationStep) {
  copyBlockWalk(source, destination, rows, widthBytes, sourceStep, destinationStep, &copyBytes);
}

}  // namespace

constinit const MemoryTable g_memorySsse3 = {.copyBytes = &copyBytes, .copyBlock = &copyBlock};

}  // namespace tarnell::memory
