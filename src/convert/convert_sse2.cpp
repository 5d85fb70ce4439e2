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

#include <cstring>

#include "convert/noise_table.h"
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
inline void storeu(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline void storea(Byte* p, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }

// Bytes from row to row: 16-bit planes step by the stride rounded down to an even
// number of bytes (halved, in samples), float planes by the stride divided by 4
// truncating towards zero (in floats).
inline intptr_t wordRowStep(int32_t stride) { return static_cast<intptr_t>(stride >> 1) * 2; }
inline intptr_t floatRowStep(int32_t stride) { return static_cast<intptr_t>(stride / 4) * 4; }

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

template <bool Dither>
inline uint32_t roundingAt(const Byte* noise, int32_t c) {
  if constexpr (Dither)
    return loadWord(noise + 2 * static_cast<intptr_t>(c)) & 0x7FFFu;
  else
    return kNoDitherRounding;
}

// One row of one plane. noise (entries at 16-bit steps, masked to 15 bits) is
// unused without dither. AlignHead: single samples first until the destination is
// 16-byte aligned (the one-plane form); otherwise vector steps from column 0.
template <bool Dither, bool AlignHead>
void row16To8(const Byte* source, Byte* destination, int32_t columns, const Byte* noise) {
  int32_t c = 0;
  if constexpr (AlignHead) {
    int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
    if (head > columns) head = columns;
    for (; c < head; ++c)
      destination[c] = word15To8(loadWord(source + 2 * static_cast<intptr_t>(c)), roundingAt<Dither>(noise, c));
  }
  const __m128i mask15 = _mm_set1_epi16(0x7FFF);
  const __m128i fixed = _mm_set1_epi16(static_cast<short>(kNoDitherRounding));
  for (; c + 16 <= columns; c += 16) {
    const Byte* s = source + 2 * static_cast<intptr_t>(c);
    __m128i n0 = fixed, n1 = fixed;
    if constexpr (Dither) {
      const Byte* n = noise + 2 * static_cast<intptr_t>(c);
      n0 = _mm_and_si128(loadu(n), mask15);
      n1 = _mm_and_si128(loadu(n + 16), mask15);
    }
    const __m128i packed = _mm_packus_epi16(words15To8(loadu(s), n0), words15To8(loadu(s + 16), n1));
    if constexpr (AlignHead)
      storea(destination + c, packed);
    else
      storeu(destination + c, packed);
  }
  for (; c < columns; ++c)
    destination[c] = word15To8(loadWord(source + 2 * static_cast<intptr_t>(c)), roundingAt<Dither>(noise, c));
}

// One or three planes; for three, the same noise entry serves all planes at a column.
struct Planes16To8 {
  const Byte* source[3];
  Byte* destination[3];
  int count;  // 1 or 3
};

template <bool Dither>
void rowOfPlanes(const Planes16To8& planes, intptr_t sourceOffset, intptr_t destinationOffset, int32_t columns,
                 const Byte* noise) {
  if (planes.count == 1) {
    row16To8<Dither, true>(planes.source[0] + sourceOffset, planes.destination[0] + destinationOffset, columns, noise);
    return;
  }
  for (int k = 0; k < planes.count; ++k)
    row16To8<Dither, false>(planes.source[k] + sourceOffset, planes.destination[k] + destinationOffset, columns, noise);
}

// The dithered region: split by columns while the noise run of a row (4 bytes per
// column) exceeds the repeated part of the buffer, then walk the noise from a start
// that depends on the first destination's address. A single column is never split.
void dithered16To8(Planes16To8 planes, int32_t rows, int32_t columns, intptr_t sourceStep, intptr_t destinationStep) {
  const NoiseTable table = g_noiseTable;
  const uint64_t room = static_cast<uint32_t>(table.size - table.period);
  while (room < 4 * static_cast<uint64_t>(columns) && columns > 1) {
    const int32_t half = columns / 2;
    dithered16To8(planes, rows, half, sourceStep, destinationStep);
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
    rowOfPlanes<true>(planes, r * sourceStep, r * destinationStep, columns, reinterpret_cast<const Byte*>(position));
    position += 2 * static_cast<uintptr_t>(columns);
    if (position >= end) position -= table.period;
  }
}

void region16To8(const Planes16To8& planes, int32_t rows, int32_t columns, int32_t sourceStride,
                 int32_t destinationStride, uint8_t dither) {
  if (rows < 1 || columns < 1) return;
  const intptr_t sourceStep = wordRowStep(sourceStride);
  const intptr_t destinationStep = destinationStride;
  if (dither != 0) {
    dithered16To8(planes, rows, columns, sourceStep, destinationStep);
    return;
  }
  for (int32_t r = 0; r < rows; ++r) rowOfPlanes<false>(planes, r * sourceStep, r * destinationStep, columns, nullptr);
}

// ------------------------------------------------------------- 8-bit to 16-bit

// floor((x * 32768 + 127) / 255), an exact division.
inline uint16_t byteTo15(uint32_t x) { return static_cast<uint16_t>(((x << 15) | 127u) / 255u); }

// The same quotient for eight samples: 128 x + floor((128 x + 127) / 255), and
// floor((128 x + 127) / 255) = ((x + 1) * 257) >> 9 for x in 0..255, taken as the
// high half of ((x + 1) << 7) * 257.
inline __m128i bytesTo15(__m128i x) {
  const __m128i plusOne = _mm_slli_epi16(_mm_add_epi16(x, _mm_set1_epi16(1)), 7);
  return _mm_add_epi16(_mm_slli_epi16(x, 7), _mm_mulhi_epu16(plusOne, _mm_set1_epi16(257)));
}

template <bool Aligned>
inline void bytesTo15Step(const Byte* s, Byte* d) {
  const __m128i bytes = loadu(s);
  const __m128i zero = _mm_setzero_si128();
  const __m128i lo = bytesTo15(_mm_unpacklo_epi8(bytes, zero));
  const __m128i hi = bytesTo15(_mm_unpackhi_epi8(bytes, zero));
  if constexpr (Aligned) {
    storea(d, lo);
    storea(d + 16, hi);
  } else {
    storeu(d, lo);
    storeu(d + 16, hi);
  }
}

void row8To16(const Byte* source, Byte* destination, int32_t columns) {
  int32_t c = 0;
  if ((reinterpret_cast<uintptr_t>(destination) & 1u) == 0) {
    int32_t head = static_cast<int32_t>(((16u - misalignment(destination)) & 15u) / 2);
    if (head > columns) head = columns;
    for (; c < head; ++c) storeWord(destination + 2 * static_cast<intptr_t>(c), byteTo15(source[c]));
    for (; c + 16 <= columns; c += 16) bytesTo15Step<true>(source + c, destination + 2 * static_cast<intptr_t>(c));
  } else {
    // An odd address never reaches 16-byte alignment: unaligned stores throughout.
    for (; c + 16 <= columns; c += 16) bytesTo15Step<false>(source + c, destination + 2 * static_cast<intptr_t>(c));
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
// product form equals 2x - (x > 16384).
inline uint16_t word15To16(uint32_t x) {
  return static_cast<uint16_t>(x >= 32768 ? 65535u : (x * 65535u + 16384u) >> 15);
}
inline __m128i words15To16(__m128i x) {
  const __m128i aboveHalf = _mm_cmpgt_epi16(x, _mm_set1_epi16(16384));  // signed: false from 32768 up
  const __m128i fromFull = _mm_srai_epi16(x, 15);                       // all ones from 32768 up
  return _mm_or_si128(_mm_add_epi16(_mm_add_epi16(x, x), aboveHalf), fromFull);
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
      for (; c + 8 <= columns; c += 8) {
        Byte* p = row + 2 * static_cast<intptr_t>(c);
        const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
        storea(p, Up ? words15To16(x) : words16To15(x));
      }
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
inline __m128i floatsTo8(__m128 v) {
  v = _mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(1.0f));  // max(NaN, 0) is the second operand: 0
  return _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(v, _mm_set1_ps(255.0f)), _mm_set1_ps(0.5f)));
}

inline __m128 loadFloats(const Byte* p) { return _mm_loadu_ps(reinterpret_cast<const float*>(p)); }

void rowFloatTo8(const Byte* source, Byte* destination, int32_t columns) {
  const int32_t vectorColumns = columns & ~3;
  int32_t c = 0;
  for (; c + 16 <= vectorColumns; c += 16) {
    const Byte* s = source + 4 * static_cast<intptr_t>(c);
    const __m128i a = _mm_packs_epi32(floatsTo8(loadFloats(s)), floatsTo8(loadFloats(s + 16)));
    const __m128i b = _mm_packs_epi32(floatsTo8(loadFloats(s + 32)), floatsTo8(loadFloats(s + 48)));
    storeu(destination + c, _mm_packus_epi16(a, b));
  }
  for (; c < vectorColumns; c += 4) {
    const __m128i w =
        _mm_packs_epi32(floatsTo8(loadFloats(source + 4 * static_cast<intptr_t>(c))), _mm_setzero_si128());
    const int32_t four = _mm_cvtsi128_si32(_mm_packus_epi16(w, w));
    std::memcpy(destination + c, &four, 4);
  }
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
  for (int32_t r = 0; r < rows; ++r)
    row8To16(source + r * static_cast<intptr_t>(sourceStride), d + r * destinationStep, columns);
}

void rescale16(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride) {
  const bool down = sourceMax == 65535 && targetMax == 32768;
  const bool up = sourceMax == 32768 && targetMax == 65535;
  if (!down && !up) {
    savedRoutine<code::conv, 19>()(data, sourceMax, targetMax, rows, columns, stride);
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
    savedRoutine<code::conv, 58>()(source, destination, rows, columns, sourceStride, destinationStride, dither);
    return;
  }
  if (rows < 1 || columns < 1) return;
  const intptr_t sourceStep = floatRowStep(sourceStride);
  const auto* s = reinterpret_cast<const Byte*>(source);
  for (int32_t r = 0; r < rows; ++r)
    rowFloatTo8(s + r * sourceStep, destination + r * static_cast<intptr_t>(destinationStride), columns);
}

}  // namespace tarnell
