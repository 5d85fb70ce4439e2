// Depth conversions between 8-bit, 16-bit (0..32768 and 0..65535) and float planes.
//
// Every loop here gives the same bits as the host's portable routines at any width,
// alignment and stride: the vector bodies evaluate the very same integer quantities
// as the scalar heads and tails. The float conversion is the one exception the host
// defines: columns up to the last multiple of four in single precision, the rest in
// double. 16-bit planes may start
// at odd addresses, so samples are read and written through byte pointers.
#include "convert/convert_sse2.h"

#include <emmintrin.h>
#include <xmmintrin.h>

#include <cstring>

#include "host/noise_table.h"
#include "host/module_state.h"

namespace tarnell {

namespace {

using Byte = unsigned char;

inline uint16_t loadWord(const Byte* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}
inline void storeWord(Byte* p, uint16_t v) { std::memcpy(p, &v, 2); }
inline float loadFloat(const Byte* p) {
  float v;
  std::memcpy(&v, p, 4);
  return v;
}
inline __m128i loadu(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// Bytes from row to row: 16-bit planes step by the stride rounded down to an even
// number of bytes (halved, in samples), float planes by the stride divided by 4
// truncating towards zero (in floats).
inline intptr_t wordRowStep(int32_t stride) { return static_cast<intptr_t>(stride >> 1) * 2; }
inline intptr_t floatRowStep(int32_t stride) { return static_cast<intptr_t>(stride / 4) * 4; }

// Source rows are fetched ahead of the loop: the processor's own prefetch does not
// keep up with a stream this regular once the planes leave the caches (it about
// doubles the throughput of large planes here); a prefetch never faults, so it
// may run past the plane.
constexpr intptr_t kPrefetchBytes = 4096;
inline void prefetch(const Byte* p) { _mm_prefetch(reinterpret_cast<const char*>(p) + kPrefetchBytes, _MM_HINT_T0); }

// Calls step(c) for c = first, first + Samples, ... while the step ends by end,
// and returns the first column left. Steps are grouped so that one prefetch covers
// each 64 bytes of source (SourceBytes per sample).
template <int32_t Samples, int32_t SourceBytes, class Step>
inline int32_t vectorSteps(int32_t c, int32_t end, const Byte* source, Step step) {
  constexpr int32_t kGroup = Samples * SourceBytes >= 64 ? 1 : 64 / (Samples * SourceBytes);
  for (; c + kGroup * Samples <= end; c += kGroup * Samples) {
    prefetch(source + SourceBytes * static_cast<intptr_t>(c));
    for (int32_t g = 0; g < kGroup; ++g) step(c + g * Samples);
  }
  for (; c + Samples <= end; c += Samples) step(c);
  return c;
}

// A destination region of 8 MiB or more (a quarter of a 32 MiB last-level cache,
// the threshold of the memory routines) is written with non-temporal stores in the
// aligned vector loops, and a store fence before returning: it would not stay in
// the caches anyway, and the stores then skip reading the lines first.
constexpr uint64_t kStreamBytes = uint64_t{8} << 20;
inline bool streams(int32_t rows, int32_t columns, uint64_t sampleBytes) {
  return static_cast<uint64_t>(rows) * static_cast<uint64_t>(columns) * sampleBytes >= kStreamBytes;
}

enum class Store { Unaligned, Aligned, Stream };
template <Store S>
inline void put(Byte* p, __m128i v) {
  if constexpr (S == Store::Stream)
    _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
  else if constexpr (S == Store::Aligned)
    _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

inline unsigned misalignment(const void* p) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p) & 15u); }

// ------------------------------------------------------------- 16-bit to 8-bit

constexpr uint32_t kNoDitherRounding = 16384;

// floor((255 x + n) / 32768). Samples above full (outside the contract) count as
// full, so they give 255 as the vector form does.
inline uint8_t word15To8(uint32_t x, uint32_t n) {
  if (x > 32768) x = 32768;
  return static_cast<uint8_t>((255 * x + n) >> 15);
}

// Eight samples in 16-bit lanes: (x + ((n - x) >> 8)) >> 7, arithmetic then
// logical shift, which equals floor((255 x + n) / 32768) for x in 0..32768 and n
// in 0..32767. x is first limited to 32768 (x - saturating(x - 32768)).
inline __m128i words15To8(__m128i x, __m128i n) {
  const __m128i full = _mm_set1_epi16(static_cast<short>(0x8000));
  x = _mm_sub_epi16(x, _mm_subs_epu16(x, full));
  const __m128i sum = _mm_add_epi16(x, _mm_srai_epi16(_mm_sub_epi16(n, x), 8));
  return _mm_srli_epi16(sum, 7);
}

// The same with n = 16384 in three operations: floor((255 x + 16384) / 32768) =
// floor((floor(255 x / 256) + 64) / 128), and floor(255 x / 256) is the high half
// of x * 65280. Above 32768 the result only grows (to 510 at most, no wrap), so
// the unsigned pack turns it into 255 without a separate limit.
inline __m128i words15To8Rounded(__m128i x) {
  const __m128i scaled = _mm_mulhi_epu16(x, _mm_set1_epi16(static_cast<short>(65280)));
  return _mm_srli_epi16(_mm_add_epi16(scaled, _mm_set1_epi16(64)), 7);
}

template <bool Dither>
inline uint32_t roundingAt(const Byte* noise, int32_t c) {
  if constexpr (Dither)
    return loadWord(noise + 2 * static_cast<intptr_t>(c)) & 0x7FFFu;
  else
    return kNoDitherRounding;
}

// One row of one plane. noise (entries at 16-bit steps, masked to 15 bits) is
// unused without dither. With aligned stores: single samples first until the
// destination is 16-byte aligned (the one-plane form); otherwise vector steps from
// column 0.
template <bool Dither, Store S>
void row16To8(const Byte* source, Byte* destination, int32_t columns, const Byte* noise) {
  int32_t c = 0;
  if constexpr (S != Store::Unaligned) {
    int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
    if (head > columns) head = columns;
    for (; c < head; ++c)
      destination[c] = word15To8(loadWord(source + 2 * static_cast<intptr_t>(c)), roundingAt<Dither>(noise, c));
  }
  const __m128i mask15 = _mm_set1_epi16(0x7FFF);
  c = vectorSteps<16, 2>(c, columns, source, [&](int32_t at) {
    const Byte* s = source + 2 * static_cast<intptr_t>(at);
    __m128i packed;
    if constexpr (Dither) {
      const Byte* n = noise + 2 * static_cast<intptr_t>(at);
      packed = _mm_packus_epi16(words15To8(loadu(s), _mm_and_si128(loadu(n), mask15)),
                                words15To8(loadu(s + 16), _mm_and_si128(loadu(n + 16), mask15)));
    } else {
      packed = _mm_packus_epi16(words15To8Rounded(loadu(s)), words15To8Rounded(loadu(s + 16)));
    }
    put<S>(destination + at, packed);
  });
  for (; c < columns; ++c)
    destination[c] = word15To8(loadWord(source + 2 * static_cast<intptr_t>(c)), roundingAt<Dither>(noise, c));
}

// One or three planes; for three, the same noise entry serves all planes at a column.
struct Planes16To8 {
  const Byte* source[3];
  Byte* destination[3];
  int count;  // 1 or 3
};

// The one-plane form aligns its stores (streaming them for a large region).
template <bool Dither>
void rowOfPlanes(const Planes16To8& planes, intptr_t sourceOffset, intptr_t destinationOffset, int32_t columns,
                 const Byte* noise, bool stream) {
  if (planes.count == 1) {
    const Byte* s = planes.source[0] + sourceOffset;
    Byte* d = planes.destination[0] + destinationOffset;
    if (stream)
      row16To8<Dither, Store::Stream>(s, d, columns, noise);
    else
      row16To8<Dither, Store::Aligned>(s, d, columns, noise);
    return;
  }
  for (int k = 0; k < planes.count; ++k)
    row16To8<Dither, Store::Unaligned>(planes.source[k] + sourceOffset, planes.destination[k] + destinationOffset,
                                       columns, noise);
}

// The dithered region: split by columns while the noise run of a row (4 bytes per
// column) exceeds the repeated part of the buffer, then walk the noise from a start
// that depends on the first destination's address. A single column is never split.
void dithered16To8(Planes16To8 planes, int32_t rows, int32_t columns, intptr_t sourceStep, intptr_t destinationStep,
                   bool stream) {
  const NoiseTable table = g_noiseTable;
  const uint64_t room = static_cast<uint32_t>(table.size - table.period);
  while (room < 4 * static_cast<uint64_t>(columns) && columns > 1) {
    const int32_t half = columns / 2;
    dithered16To8(planes, rows, half, sourceStep, destinationStep, stream);
    for (int k = 0; k < planes.count; ++k) {
      planes.source[k] += 2 * static_cast<intptr_t>(half);
      planes.destination[k] += half;
    }
    columns -= half;
  }

  uintptr_t position = reinterpret_cast<uintptr_t>(table.base) + ditherStartOffset(planes.destination[0]);
  const uintptr_t end = reinterpret_cast<uintptr_t>(table.end);
  for (int32_t r = 0; r < rows; ++r) {
    position = (position + 1) & ~uintptr_t{1};
    rowOfPlanes<true>(planes, r * sourceStep, r * destinationStep, columns, reinterpret_cast<const Byte*>(position),
                      stream);
    position += 2 * static_cast<uintptr_t>(columns);
    if (position >= end) position -= table.period;
  }
}

void region16To8(const Planes16To8& planes, int32_t rows, int32_t columns, int32_t sourceStride,
                 int32_t destinationStride, uint8_t dither) {
  if (rows < 1 || columns < 1) return;
  const intptr_t sourceStep = wordRowStep(sourceStride);
  const intptr_t destinationStep = destinationStride;
  const bool stream = planes.count == 1 && streams(rows, columns, 1);
  if (dither != 0) {
    dithered16To8(planes, rows, columns, sourceStep, destinationStep, stream);
  } else {
    for (int32_t r = 0; r < rows; ++r)
      rowOfPlanes<false>(planes, r * sourceStep, r * destinationStep, columns, nullptr, stream);
  }
  if (stream) _mm_sfence();
}

// ------------------------------------------------------------- 8-bit to 16-bit

// floor((x * 32768 + 127) / 255), an exact division.
inline uint16_t byteTo15(uint32_t x) { return static_cast<uint16_t>(((x << 15) | 127u) / 255u); }

// The same quotient for eight samples: it equals ceil(257 x / 2), and 257 x is the
// byte repeated in both halves of a 16-bit lane, so one unpack of the bytes with
// themselves and one rounding average with zero do it.
inline __m128i bytePairsTo15(__m128i repeated) { return _mm_avg_epu16(repeated, _mm_setzero_si128()); }

template <Store S>
inline void bytesTo15Step(const Byte* s, Byte* d) {
  const __m128i bytes = loadu(s);
  put<S>(d, bytePairsTo15(_mm_unpacklo_epi8(bytes, bytes)));
  put<S>(d + 16, bytePairsTo15(_mm_unpackhi_epi8(bytes, bytes)));
}

template <Store S>
void row8To16(const Byte* source, Byte* destination, int32_t columns) {
  int32_t c = 0;
  if ((reinterpret_cast<uintptr_t>(destination) & 1u) == 0) {
    int32_t head = static_cast<int32_t>(((16u - misalignment(destination)) & 15u) / 2);
    if (head > columns) head = columns;
    for (; c < head; ++c) storeWord(destination + 2 * static_cast<intptr_t>(c), byteTo15(source[c]));
    c = vectorSteps<16, 1>(c, columns, source, [&](int32_t at) {
      bytesTo15Step<S>(source + at, destination + 2 * static_cast<intptr_t>(at));
    });
  } else {
    // An odd address never reaches 16-byte alignment: unaligned stores throughout.
    c = vectorSteps<16, 1>(c, columns, source, [&](int32_t at) {
      bytesTo15Step<Store::Unaligned>(source + at, destination + 2 * static_cast<intptr_t>(at));
    });
  }
  for (; c + 2 <= columns; c += 2) {
    storeWord(destination + 2 * static_cast<intptr_t>(c), byteTo15(source[c]));
    storeWord(destination + 2 * static_cast<intptr_t>(c) + 2, byteTo15(source[c + 1]));
  }
  if (c < columns) storeWord(destination + 2 * static_cast<intptr_t>(c), byteTo15(source[c]));
}

// ----------------------------------------------------------- range re-scaling

// 65535 -> 32768: floor((x * 32768 + 32767) / 65535), which is ceil(x / 2).
inline uint16_t word16To15(uint32_t x) { return static_cast<uint16_t>(((x << 15) | 0x7FFFu) / 65535u); }
inline __m128i words16To15(__m128i x) { return _mm_avg_epu16(x, _mm_setzero_si128()); }

// 32768 -> 65535: (x * 65535 + 16384) >> 15 below 32768, 65535 from 32768 up. The
// product form equals 2x - (x > 16384); the saturating doubling gives 65535 from
// 32768 up, where the signed comparison is false.
inline uint16_t word15To16(uint32_t x) {
  return static_cast<uint16_t>(x >= 32768 ? 65535u : (x * 65535u + 16384u) >> 15);
}
inline __m128i words15To16(__m128i x) {
  return _mm_add_epi16(_mm_adds_epu16(x, x), _mm_cmpgt_epi16(x, _mm_set1_epi16(16384)));
}

template <bool Up>
void rescaleRow(Byte* row, int32_t columns) {
  const auto one = [](uint32_t x) { return Up ? word15To16(x) : word16To15(x); };
  int32_t c = 0;
  // The vector loop needs an even row address (samples then reach 16-byte
  // alignment) and at least 8 samples after the alignment run.
  if ((reinterpret_cast<uintptr_t>(row) & 1u) == 0) {
    const int32_t head = static_cast<int32_t>(((16u - misalignment(row)) & 15u) / 2);
    if (columns - head >= 8) {
      for (; c < head; ++c)
        storeWord(row + 2 * static_cast<intptr_t>(c), one(loadWord(row + 2 * static_cast<intptr_t>(c))));
      c = vectorSteps<8, 2>(c, columns, row, [&](int32_t at) {
        Byte* p = row + 2 * static_cast<intptr_t>(at);
        const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
        put<Store::Aligned>(p, Up ? words15To16(x) : words16To15(x));
      });
    }
  }
  for (; c < columns; ++c) {
    Byte* p = row + 2 * static_cast<intptr_t>(c);
    storeWord(p, one(loadWord(p)));
  }
}

// ------------------------------------------------------------ float to 8-bit

// The columns past the last multiple of four: clamp(v, 0, 1) * 255 + 0.5 in double
// precision, where the product and the sum are exact, truncated. NaN gives 0.
inline uint8_t floatTo8(float v) {
  double x = v;
  if (!(x > 0.0))
    x = 0.0;
  else if (x > 1.0)
    x = 1.0;
  return static_cast<uint8_t>(static_cast<int32_t>(x * 255.0 + 0.5));
}

// The columns up to the last multiple of four, four at a time: the same in single
// precision, trunc(fl(fl(v * 255) + 0.5)), in the thread's rounding mode. This is
// the host's own rule, one too high for 128 floats in 0..1 where fl(v * 255)
// rounds up across a half (see docs/contracts.md).
//
// Only the upper limit is applied as such: below 0 the sum is below 0.5, so the
// truncation gives 0 or a negative number that the packs turn into 0, and NaN
// (kept by the minimum, which returns its second operand for NaN) or a sum too
// large for 32 bits gives 0x80000000, packed to 0 as well.
inline __m128i floatsTo8(__m128 v) {
  v = _mm_min_ps(_mm_set1_ps(1.0f), v);
  return _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(v, _mm_set1_ps(255.0f)), _mm_set1_ps(0.5f)));
}

inline __m128 loadFloats(const Byte* p) { return _mm_loadu_ps(reinterpret_cast<const float*>(p)); }

// Up to four results of floatsTo8, saturated to bytes, in the low bytes of an int.
inline int32_t packedBytes(__m128i w) {
  w = _mm_packs_epi32(w, w);
  return _mm_cvtsi128_si32(_mm_packus_epi16(w, w));
}

inline Byte singleFloatTo8(const Byte* p) {
  return static_cast<Byte>(packedBytes(floatsTo8(_mm_set_ss(loadFloat(p)))));
}

// Single samples of the single-precision columns reach the destination's 16-byte
// boundary first (the same arithmetic, one lane used), then 16 a step with aligned
// stores, then 4 a step, then the double-precision columns.
template <Store S>
void rowFloatTo8(const Byte* source, Byte* destination, int32_t columns) {
  const int32_t vectorColumns = columns & ~3;
  int32_t c = 0;
  int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
  if (head > vectorColumns) head = vectorColumns;
  for (; c < head; ++c) destination[c] = singleFloatTo8(source + 4 * static_cast<intptr_t>(c));
  c = vectorSteps<16, 4>(c, vectorColumns, source, [&](int32_t at) {
    const Byte* s = source + 4 * static_cast<intptr_t>(at);
    const __m128i a = _mm_packs_epi32(floatsTo8(loadFloats(s)), floatsTo8(loadFloats(s + 16)));
    const __m128i b = _mm_packs_epi32(floatsTo8(loadFloats(s + 32)), floatsTo8(loadFloats(s + 48)));
    put<S>(destination + at, _mm_packus_epi16(a, b));
  });
  for (; c + 4 <= vectorColumns; c += 4) {
    const int32_t four = packedBytes(floatsTo8(loadFloats(source + 4 * static_cast<intptr_t>(c))));
    std::memcpy(destination + c, &four, 4);
  }
  for (; c < vectorColumns; ++c) destination[c] = singleFloatTo8(source + 4 * static_cast<intptr_t>(c));
  for (; c + 2 <= columns; c += 2) {
    destination[c] = floatTo8(loadFloat(source + 4 * static_cast<intptr_t>(c)));
    destination[c + 1] = floatTo8(loadFloat(source + 4 * static_cast<intptr_t>(c) + 4));
  }
  if (c < columns) destination[c] = floatTo8(loadFloat(source + 4 * static_cast<intptr_t>(c)));
}

}  // namespace

uint32_t ditherStartOffset(const void* destination) {
  uint32_t s = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(destination));
  s = s * 1103515245u + 12345u;
  return (s >> 3) % 12281u;
}

void convert16To8Planar3(const uint16_t* source0, const uint16_t* source1, const uint16_t* source2,
                         uint8_t* destination0, uint8_t* destination1, uint8_t* destination2, int32_t rows,
                         int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither) {
  const Planes16To8 planes{{reinterpret_cast<const Byte*>(source0), reinterpret_cast<const Byte*>(source1),
                            reinterpret_cast<const Byte*>(source2)},
                           {destination0, destination1, destination2},
                           3};
  region16To8(planes, rows, columns, sourceStride, destinationStride, dither);
}

void convert16To8(const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, uint8_t dither) {
  const Planes16To8 planes{
      {reinterpret_cast<const Byte*>(source), nullptr, nullptr}, {destination, nullptr, nullptr}, 1};
  region16To8(planes, rows, columns, sourceStride, destinationStride, dither);
}

void convert8To16(const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  const intptr_t destinationStep = wordRowStep(destinationStride);
  auto* d = reinterpret_cast<Byte*>(destination);
  if (streams(rows, columns, 2)) {
    for (int32_t r = 0; r < rows; ++r)
      row8To16<Store::Stream>(source + r * static_cast<intptr_t>(sourceStride), d + r * destinationStep, columns);
    _mm_sfence();
    return;
  }
  for (int32_t r = 0; r < rows; ++r)
    row8To16<Store::Aligned>(source + r * static_cast<intptr_t>(sourceStride), d + r * destinationStep, columns);
}

void rescale16(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride) {
  const bool down = sourceMax == 65535 && targetMax == 32768;
  const bool up = sourceMax == 32768 && targetMax == 65535;
  if (!down && !up) {
    savedRoutine<slot::rescale16>()(data, sourceMax, targetMax, rows, columns, stride);
    return;
  }
  if (rows < 1 || columns < 1) return;
  const intptr_t step = wordRowStep(stride);
  auto* first = reinterpret_cast<Byte*>(data);
  for (int32_t r = 0; r < rows; ++r) {
    if (up)
      rescaleRow<true>(first + r * step, columns);
    else
      rescaleRow<false>(first + r * step, columns);
  }
}

void convertFloatTo8(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride, uint8_t dither) {
  if (dither != 0) {
    savedRoutine<slot::convertFloatTo8>()(source, destination, rows, columns, sourceStride, destinationStride, dither);
    return;
  }
  if (rows < 1 || columns < 1) return;
  const intptr_t sourceStep = floatRowStep(sourceStride);
  const auto* s = reinterpret_cast<const Byte*>(source);
  if (streams(rows, columns, 1)) {
    for (int32_t r = 0; r < rows; ++r)
      rowFloatTo8<Store::Stream>(s + r * sourceStep, destination + r * static_cast<intptr_t>(destinationStride), columns);
    _mm_sfence();
    return;
  }
  for (int32_t r = 0; r < rows; ++r)
    rowFloatTo8<Store::Aligned>(s + r * sourceStep, destination + r * static_cast<intptr_t>(destinationStride), columns);
}

}  // namespace tarnell
