// The 'memo' suite's baseline tier: copies, fills and uniformity tests over
// one-dimensional runs and two-dimensional blocks, sixteen bytes per step.
//
// Multi-byte values (16- and 32-bit) may start at any byte address. Stores and
// loads that begin a whole number of elements from the start use the value
// pattern as it is; the aligned body of a fill may begin mid-element, so it uses
// the pattern rotated by that phase. Either way every byte gets the same value,
// so results do not depend on alignment.
#include <emmintrin.h>

#include <cstring>

#include "host/module_state.h"
#include "memory/block_walk.h"
#include "memory/memory_routines.h"

namespace tarnell::memory {

namespace {

using Byte = unsigned char;

inline __m128i load(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void store(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline void storeAligned(Byte* p, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }
inline void streamAligned(Byte* p, __m128i v) { _mm_stream_si128(reinterpret_cast<__m128i*>(p), v); }

template <typename T>
inline T loadScalar(const Byte* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <typename T>
inline void storeScalar(Byte* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

inline std::size_t bytesToAlign(const void* p) {
  return (16 - (reinterpret_cast<uintptr_t>(p) & 15)) & 15;
}

// Offsets from p of the first cache-line boundary at or after p + offset, and of
// the last one at or before it.
inline std::size_t lineAtOrAfter(const void* p, std::size_t offset) {
  const auto a = reinterpret_cast<uintptr_t>(p);
  return ((a + offset + 63) & ~uintptr_t{63}) - a;
}
inline std::size_t lineAtOrBefore(const void* p, std::size_t offset) {
  const auto a = reinterpret_cast<uintptr_t>(p);
  return ((a + offset) & ~uintptr_t{63}) - a;
}

// Copies n < 128 bytes: every load happens before the first store, so the result
// is that of a copy through a temporary whichever way the runs overlap.
inline void copySmall(const Byte* s, Byte* d, std::size_t n) {
  if (n > 64) {
    const __m128i a0 = load(s), a1 = load(s + 16), a2 = load(s + 32), a3 = load(s + 48);
    const __m128i b0 = load(s + n - 64), b1 = load(s + n - 48), b2 = load(s + n - 32), b3 = load(s + n - 16);
    store(d, a0), store(d + 16, a1), store(d + 32, a2), store(d + 48, a3);
    store(d + n - 64, b0), store(d + n - 48, b1), store(d + n - 32, b2), store(d + n - 16, b3);
  } else if (n > 32) {
    const __m128i a0 = load(s), a1 = load(s + 16), b0 = load(s + n - 32), b1 = load(s + n - 16);
    store(d, a0), store(d + 16, a1), store(d + n - 32, b0), store(d + n - 16, b1);
  } else if (n >= 16) {
    const __m128i a = load(s), b = load(s + n - 16);
    store(d, a), store(d + n - 16, b);
  } else {
    copyUnder16(s, d, n);
  }
}

// The own copy loop for n >= 128 when the destination does not start inside the
// source: aligned stores on the destination, the unaligned first and last sixteen
// bytes loaded up front and stored last. It runs forward, loading each block before
// storing it, so it is also right when the source starts inside the destination.
// Long runs that do not overlap at all bypass the caches in the whole lines between
// the ends (the lines with the first and last sixteen bytes are stored to in the
// cache, and a line is never written by both kinds of store).
void copyLoop(const Byte* s, Byte* d, std::size_t n) {
  const __m128i head = load(s), tail = load(s + n - 16);
  std::size_t k = bytesToAlign(d);
  const auto sa = reinterpret_cast<uintptr_t>(s), da = reinterpret_cast<uintptr_t>(d);
  const bool disjoint = sa >= da + n || da >= sa + n;
  const bool stream = disjoint && n >= kNonTemporalCopyBytes;
  if (stream) {
    const std::size_t firstLine = lineAtOrAfter(d, 16), lastLine = lineAtOrBefore(d, n - 16);
    for (; k < firstLine; k += 16) storeAligned(d + k, load(s + k));
    for (; k + 64 <= lastLine; k += 64) {
      const __m128i v0 = load(s + k), v1 = load(s + k + 16), v2 = load(s + k + 32), v3 = load(s + k + 48);
      streamAligned(d + k, v0), streamAligned(d + k + 16, v1), streamAligned(d + k + 32, v2),
          streamAligned(d + k + 48, v3);
    }
  }
  for (; k + 64 <= n; k += 64) {
    const __m128i v0 = load(s + k), v1 = load(s + k + 16), v2 = load(s + k + 32), v3 = load(s + k + 48);
    storeAligned(d + k, v0), storeAligned(d + k + 16, v1), storeAligned(d + k + 32, v2), storeAligned(d + k + 48, v3);
  }
  for (; k + 16 <= n; k += 16) storeAligned(d + k, load(s + k));
  store(d, head);
  store(d + n - 16, tail);
  if (stream) _mm_sfence();
}

inline uint64_t rotateRight(uint64_t x, unsigned bits) { return bits == 0 ? x : (x >> bits) | (x << (64 - bits)); }

// Fills n bytes (a whole number of elements of elementBytes, which divides 8) with
// a pattern whose first byte is the first byte of an element. With `stream` the
// aligned body bypasses the caches (all fills: the host asks it of the 32-bit fill,
// and the others gain as much from it); the caller fences once after its last run.
void fillPattern(Byte* d, std::size_t n, uint64_t pattern, std::size_t elementBytes, bool stream) {
  if (n < 16) {
    if (n >= 8) {
      storeScalar(d, pattern), storeScalar(d + n - 8, pattern);
    } else if (n >= 4) {
      storeScalar(d, static_cast<uint32_t>(pattern)), storeScalar(d + n - 4, static_cast<uint32_t>(pattern));
    } else if (n >= 2) {
      storeScalar(d, static_cast<uint16_t>(pattern)), storeScalar(d + n - 2, static_cast<uint16_t>(pattern));
    } else if (n == 1) {
      d[0] = static_cast<Byte>(pattern);
    }
    return;
  }
  // Up to 256 bytes: stores from both ends, all a whole number of elements in.
  const __m128i v = _mm_set1_epi64x(static_cast<long long>(pattern));
  if (n <= 32) {
    store(d, v), store(d + n - 16, v);
    return;
  }
  if (n <= 64) {
    store(d, v), store(d + 16, v), store(d + n - 32, v), store(d + n - 16, v);
    return;
  }
  if (n <= 128) {
    store(d, v), store(d + 16, v), store(d + 32, v), store(d + 48, v);
    store(d + n - 64, v), store(d + n - 48, v), store(d + n - 32, v), store(d + n - 16, v);
    return;
  }
  if (n <= 256) {
    for (std::size_t k = 0; k < 128; k += 16) store(d + k, v), store(d + n - 128 + k, v);
    return;
  }
  std::size_t k = bytesToAlign(d);
  const __m128i body =
      _mm_set1_epi64x(static_cast<long long>(rotateRight(pattern, static_cast<unsigned>(8 * (k % elementBytes)))));
  store(d, v);
  if (stream) {
    // The whole lines in between are streamed (n > 256: there are some); a line is
    // never written by both kinds of store (streaming to a line just stored to in
    // the cache costs a round trip to memory).
    const std::size_t firstLine = lineAtOrAfter(d, 16), lastLine = lineAtOrBefore(d, n - 16);
    for (; k < firstLine; k += 16) storeAligned(d + k, body);
    for (; k + 64 <= lastLine; k += 64)
      streamAligned(d + k, body), streamAligned(d + k + 16, body), streamAligned(d + k + 32, body),
          streamAligned(d + k + 48, body);
  }
  for (; k + 64 <= n; k += 64)
    storeAligned(d + k, body), storeAligned(d + k + 16, body), storeAligned(d + k + 32, body),
        storeAligned(d + k + 48, body);
  for (; k + 16 <= n; k += 16) storeAligned(d + k, body);
  store(d + n - 16, v);
}

// True when n bytes (a whole number of elements) all match the pattern. Loads
// start a whole number of elements in (the last one overlaps), so the pattern
// needs no rotation.
bool runMatches(const Byte* p, std::size_t n, uint64_t pattern) {
  if (n < 16) {
    if (n >= 8) return loadScalar<uint64_t>(p) == pattern && loadScalar<uint64_t>(p + n - 8) == pattern;
    if (n >= 4)
      return loadScalar<uint32_t>(p) == static_cast<uint32_t>(pattern) &&
             loadScalar<uint32_t>(p + n - 4) == static_cast<uint32_t>(pattern);
    if (n >= 2)
      return loadScalar<uint16_t>(p) == static_cast<uint16_t>(pattern) &&
             loadScalar<uint16_t>(p + n - 2) == static_cast<uint16_t>(pattern);
    return n == 0 || p[0] == static_cast<Byte>(pattern);
  }
  const __m128i v = _mm_set1_epi64x(static_cast<long long>(pattern));
  std::size_t k = 0;
  for (; k + 64 <= n; k += 64) {
    const __m128i e = _mm_and_si128(_mm_and_si128(_mm_cmpeq_epi8(load(p + k), v), _mm_cmpeq_epi8(load(p + k + 16), v)),
                                    _mm_and_si128(_mm_cmpeq_epi8(load(p + k + 32), v), _mm_cmpeq_epi8(load(p + k + 48), v)));
    if (_mm_movemask_epi8(e) != 0xFFFF) return false;
  }
  for (; k + 16 <= n; k += 16)
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(load(p + k), v)) != 0xFFFF) return false;
  return k == n || _mm_movemask_epi8(_mm_cmpeq_epi8(load(p + n - 16), v)) == 0xFFFF;
}

inline uint64_t replicate8(uint8_t v) { return uint64_t{v} * 0x0101010101010101ULL; }
inline uint64_t replicate16(uint16_t v) { return uint64_t{v} * 0x0001000100010001ULL; }
inline uint64_t replicate32(uint32_t v) { return uint64_t{v} * 0x0000000100000001ULL; }

// One run of n bytes, streamed from the fill threshold on.
void fillOneRun(Byte* d, std::size_t n, uint64_t pattern, std::size_t elementBytes) {
  const bool stream = n >= kNonTemporalFillBytes;
  fillPattern(d, n, pattern, elementBytes, stream);
  if (stream) _mm_sfence();
}

// Fills a block row by row (or as one run) with a pattern of elementBytes. Whether
// the stores bypass the caches depends on the bytes of the whole block, so a padded
// block is written the way the same block with tight rows is; one fence at the end.
void fillBlockPattern(void* destination, int32_t rows, int32_t width, int32_t step, uint64_t pattern,
                      std::size_t elementBytes) {
  if (rows < 1 || width < 1) return;
  const std::size_t rowBytes = static_cast<std::size_t>(width) * elementBytes;
  const std::size_t total = rowBytes * static_cast<std::size_t>(rows);
  if (isOneRun(rows, width, step, elementBytes)) {
    fillOneRun(static_cast<Byte*>(destination), total, pattern, elementBytes);
    return;
  }
  const bool stream = total >= kNonTemporalFillBytes;
  for (int32_t r = 0; r < rows; ++r) fillPattern(rowAt(destination, r, step), rowBytes, pattern, elementBytes, stream);
  if (stream) _mm_sfence();
}

// Every element of the block matches the pattern (rows and width at least 1).
bool blockMatches(const void* address, int32_t rows, int32_t width, int32_t step, uint64_t pattern,
                  std::size_t elementBytes) {
  const std::size_t rowBytes = static_cast<std::size_t>(width) * elementBytes;
  if (isOneRun(rows, width, step, elementBytes))
    return runMatches(static_cast<const Byte*>(address), rowBytes * static_cast<std::size_t>(rows), pattern);
  for (int32_t r = 0; r < rows; ++r)
    if (!runMatches(rowAt(address, r, step), rowBytes, pattern)) return false;
  return true;
}

// The host's buffer notification that both 16-bit block tests make first, with
// their four block arguments as machine words (integers sign-extended).
inline void notifyHost(const void* address, int32_t rows, int32_t width, int32_t step) {
  liveRoutine<slot::notifyBuffer>()(reinterpret_cast<uintptr_t>(address), static_cast<uintptr_t>(intptr_t{rows}),
                               static_cast<uintptr_t>(intptr_t{width}), static_cast<uintptr_t>(intptr_t{step}));
}

// The corner test of the 16-bit block tests: the last value of the first row and
// the first and last values of the last row against the reference.
inline bool cornersMatch(const void* address, int32_t rows, int32_t width, int32_t step, uint16_t reference) {
  const std::size_t last = 2 * (static_cast<std::size_t>(width) - 1);
  const Byte* lastRow = rowAt(address, rows - 1, step);
  return loadScalar<uint16_t>(static_cast<const Byte*>(address) + last) == reference &&
         loadScalar<uint16_t>(lastRow) == reference && loadScalar<uint16_t>(lastRow + last) == reference;
}

}  // namespace

// Slot 0. The destination starting inside the source needs a backward move; short
// runs go through registers; the rest use the own loop (forward, which is right
// when the source starts inside the destination).
void copyBytesSse2(const void* source, void* destination, int32_t count) {
  if (count < 1) return;
  const auto* s = static_cast<const Byte*>(source);
  auto* d = static_cast<Byte*>(destination);
  const auto n = static_cast<std::size_t>(count);
  if (count < kSmallCopyBytes) {
    copySmall(s, d, n);
  } else if (reinterpret_cast<uintptr_t>(d) - reinterpret_cast<uintptr_t>(s) < n) {
    std::memmove(d, s, n);
  } else {
    copyLoop(s, d, n);
  }
}

// Slot 1.
void copyBlockSse2(const void* source, void* destination, int32_t rows, int32_t widthBytes, int32_t sourceStep,
                   int32_t destinationStep) {
  copyBlockWalk(source, destination, rows, widthBytes, sourceStep, destinationStep, &copyBytesSse2);
}

// Slot 3.
void fillBytesSse2(void* destination, int32_t count, uint8_t value) {
  if (count < 1) return;
  fillOneRun(static_cast<Byte*>(destination), static_cast<std::size_t>(count), replicate8(value), 1);
}

// Slot 4.
void fillBlockSse2(void* destination, int32_t rows, int32_t width, int32_t step, uint8_t value) {
  fillBlockPattern(destination, rows, width, step, replicate8(value), 1);
}

// Slot 17. An empty run holds no differing byte.
uint8_t bytesAllEqualSse2(const void* address, int32_t count, uint8_t value) {
  if (count < 1) return 1;
  return runMatches(static_cast<const Byte*>(address), static_cast<std::size_t>(count), replicate8(value)) ? 1 : 0;
}

// Slot 18.
uint8_t blockBytesAllEqualSse2(const void* address, int32_t rows, int32_t width, int32_t step, uint8_t value) {
  if (rows < 1 || width < 1) return 1;
  return blockMatches(address, rows, width, step, replicate8(value), 1) ? 1 : 0;
}

// Slot 65.
void fillWordsSse2(void* destination, int32_t count, uint16_t value) {
  if (count < 1) return;
  fillOneRun(static_cast<Byte*>(destination), 2 * static_cast<std::size_t>(count), replicate16(value), 2);
}

// Slot 66.
void fillWordBlockSse2(void* destination, int32_t rows, int32_t width, int32_t step, uint16_t value) {
  fillBlockPattern(destination, rows, width, step, replicate16(value), 2);
}

// Slot 83: the block's one value, or 0xFFFFFFFF when it holds two.
uint32_t blockWordsUniformValueSse2(const void* address, int32_t rows, int32_t width, int32_t step) {
  notifyHost(address, rows, width, step);
  if (rows < 1 || width < 1) return 0;
  const uint16_t reference = loadScalar<uint16_t>(static_cast<const Byte*>(address));
  if (!cornersMatch(address, rows, width, step, reference)) return 0xFFFFFFFFu;
  return blockMatches(address, rows, width, step, replicate16(reference), 2) ? reference : 0xFFFFFFFFu;
}

// Slot 102.
uint8_t blockWordsAllEqualSse2(const void* address, int32_t rows, int32_t width, int32_t step, uint16_t value) {
  notifyHost(address, rows, width, step);
  if (rows < 1 || width < 1) return 1;
  if (!cornersMatch(address, rows, width, step, value)) return 0;
  return blockMatches(address, rows, width, step, replicate16(value), 2) ? 1 : 0;
}

// Slot 136.
void fillDwordsSse2(void* destination, int32_t count, uint32_t value) {
  if (count < 1) return;
  fillOneRun(static_cast<Byte*>(destination), 4 * static_cast<std::size_t>(count), replicate32(value), 4);
}

// The SSE2 tier's slots with wider bodies elsewhere (the kernel table takes the
// widest one the processor runs; the installer's SSE2 step writes it).
constinit const MemoryTable g_memorySse2 = {.bytesAllEqual = &bytesAllEqualSse2,
                                            .blockBytesAllEqual = &blockBytesAllEqualSse2,
                                            .fillWords = &fillWordsSse2,
                                            .fillWordBlock = &fillWordBlockSse2,
                                            .blockWordsUniformValue = &blockWordsUniformValueSse2,
                                            .blockWordsAllEqual = &blockWordsAllEqualSse2};

}  // namespace tarnell::memory
