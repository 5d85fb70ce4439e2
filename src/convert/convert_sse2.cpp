// Depth conversions between 8-bit, 16-bit (0..32768 and 0..65535) and float planes.
//
// Every loop here gives the same bits as the host's portable routines at any width,
// alignment and stride: the vector bodies evaluate the very same integer quantities
// as the scalar heads and tails (depth_samples.h). The float conversion is the one
// exception the host defines: columns up to the last multiple of four in single
// precision, the rest in double. 16-bit planes may start at odd addresses, so
// samples are read and written through byte pointers.
//
// The entries (rows, strides, the dither split and walk, the streaming choice, the
// fallbacks to the host) are written once over a table of row kernels: this file's
// SSE2 rows, or the AVX2 rows of convert_avx2.cpp.
#include "convert/convert_sse2.h"

#include <emmintrin.h>
#include <xmmintrin.h>

#include <cstring>

#include "convert/depth_samples.h"
#include "host/module_state.h"
#include "host/noise_table.h"

namespace tarnell {
namespace convert {
namespace {

// Bytes from row to row: 16-bit planes step by the stride rounded down to an even
// number of bytes (halved, in samples), float planes by the stride divided by 4
// truncating towards zero (in floats).
inline intptr_t wordRowStep(int32_t stride) { return static_cast<intptr_t>(stride >> 1) * 2; }
inline intptr_t floatRowStep(int32_t stride) { return static_cast<intptr_t>(stride / 4) * 4; }

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

template <RowStore S>
inline void put(Byte* p, __m128i v) {
  if constexpr (S == RowStore::stream)
    _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
  else if constexpr (S == RowStore::aligned)
    _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// ------------------------------------------------------------- SSE2 rows

// One row of one plane. noise (entries at 16-bit steps, masked to 15 bits) is
// unused without dither. With aligned stores: single samples first until the
// destination is 16-byte aligned (the one-plane form); otherwise vector steps from
// column 0.
template <bool Dither, RowStore S>
void row16To8(const Byte* source, Byte* destination, int32_t columns, const Byte* noise) {
  int32_t c = 0;
  if constexpr (S != RowStore::unaligned) {
    int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
    if (head > columns) head = columns;
    for (; c < head; ++c)
      destination[c] = word15To8(loadWord(source + 2 * static_cast<intptr_t>(c)), roundingAt<Dither>(noise, c));
  }
  c = vectorSteps<16, 2>(c, columns, source, [&](int32_t at) {
    put<S>(destination + at,
           sixteenWords15To8<Dither>(source + 2 * static_cast<intptr_t>(at), noiseAt<Dither>(noise, at)));
  });
  for (; c < columns; ++c)
    destination[c] = word15To8(loadWord(source + 2 * static_cast<intptr_t>(c)), roundingAt<Dither>(noise, c));
}

template <bool Dither>
void rows16To8(const Byte* source, Byte* destination, int32_t columns, const Byte* noise, RowStore store) {
  switch (store) {
    case RowStore::unaligned:
      return row16To8<Dither, RowStore::unaligned>(source, destination, columns, noise);
    case RowStore::aligned:
      return row16To8<Dither, RowStore::aligned>(source, destination, columns, noise);
    case RowStore::stream:
      return row16To8<Dither, RowStore::stream>(source, destination, columns, noise);
  }
}
void words15ToBytes(const Byte* source, Byte* destination, int32_t columns, const Byte* noise, RowStore store) {
  if (noise != nullptr)
    rows16To8<true>(source, destination, columns, noise, store);
  else
    rows16To8<false>(source, destination, columns, nullptr, store);
}

template <RowStore S>
inline void bytesTo15Step(const Byte* s, Byte* d) {
  const __m128i bytes = loadu(s);
  put<S>(d, bytePairsTo15(_mm_unpacklo_epi8(bytes, bytes)));
  put<S>(d + 16, bytePairsTo15(_mm_unpackhi_epi8(bytes, bytes)));
}

template <RowStore S>
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
      bytesTo15Step<RowStore::unaligned>(source + at, destination + 2 * static_cast<intptr_t>(at));
    });
  }
  for (; c + 2 <= columns; c += 2) {
    storeWord(destination + 2 * static_cast<intptr_t>(c), byteTo15(source[c]));
    storeWord(destination + 2 * static_cast<intptr_t>(c) + 2, byteTo15(source[c + 1]));
  }
  if (c < columns) storeWord(destination + 2 * static_cast<intptr_t>(c), byteTo15(source[c]));
}
void bytesToWords15(const Byte* source, Byte* destination, int32_t columns, RowStore store) {
  if (store == RowStore::stream)
    row8To16<RowStore::stream>(source, destination, columns);
  else
    row8To16<RowStore::aligned>(source, destination, columns);
}

template <bool Up>
void rescaleRow(Byte* row, int32_t columns) {
  int32_t c = 0;
  if (const int32_t head = rescaleHead(row, columns); head >= 0) {
    for (; c < head; ++c) rescaleOne(row, c, Up);
    c = vectorSteps<8, 2>(c, columns, row, [&](int32_t at) {
      Byte* p = row + 2 * static_cast<intptr_t>(at);
      const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
      put<RowStore::aligned>(p, Up ? words15To16(x) : words16To15(x));
    });
  }
  for (; c < columns; ++c) rescaleOne(row, c, Up);
}
void rescaleWords(Byte* row, int32_t columns, bool up) {
  if (up)
    rescaleRow<true>(row, columns);
  else
    rescaleRow<false>(row, columns);
}

// Single samples of the single-precision columns reach the destination's 16-byte
// boundary first (the same arithmetic, one lane used), then 16 a step with aligned
// stores, then 4 a step, then the double-precision columns.
template <RowStore S>
void rowFloatTo8(const Byte* source, Byte* destination, int32_t columns) {
  const int32_t vectorColumns = columns & ~3;
  int32_t c = 0;
  int32_t head = static_cast<int32_t>((16u - misalignment(destination)) & 15u);
  if (head > vectorColumns) head = vectorColumns;
  for (; c < head; ++c) destination[c] = singleFloatTo8(source + 4 * static_cast<intptr_t>(c));
  c = vectorSteps<16, 4>(c, vectorColumns, source, [&](int32_t at) {
    put<S>(destination + at, sixteenFloatsTo8(source + 4 * static_cast<intptr_t>(at)));
  });
  finishFloatRow(source, destination, c, vectorColumns, columns);
}
void floatsToBytes(const Byte* source, Byte* destination, int32_t columns, RowStore store) {
  if (store == RowStore::stream)
    rowFloatTo8<RowStore::stream>(source, destination, columns);
  else
    rowFloatTo8<RowStore::aligned>(source, destination, columns);
}

constinit const ConvertRows kRowsSse2 = {&words15ToBytes, &bytesToWords15, &rescaleWords, &floatsToBytes};

// ------------------------------------------------------------- entries

// One or three planes; for three, the same noise entry serves all planes at a column.
struct Planes16To8 {
  const Byte* source[3];
  Byte* destination[3];
  int count;  // 1 or 3
};

// The one-plane form aligns its stores (streaming them for a large region); the
// three-plane form stores unaligned from column 0.
template <const ConvertRows* Rows>
void rowOfPlanes(const Planes16To8& planes, intptr_t sourceOffset, intptr_t destinationOffset, int32_t columns,
                 const Byte* noise, bool stream) {
  if (planes.count == 1) {
    Rows->words15ToBytes(planes.source[0] + sourceOffset, planes.destination[0] + destinationOffset, columns, noise,
                         stream ? RowStore::stream : RowStore::aligned);
    return;
  }
  for (int k = 0; k < planes.count; ++k)
    Rows->words15ToBytes(planes.source[k] + sourceOffset, planes.destination[k] + destinationOffset, columns, noise,
                         RowStore::unaligned);
}

// The dithered region: split by columns while the noise run of a row (4 bytes per
// column) exceeds the repeated part of the buffer, then walk the noise from a start
// that depends on the first destination's address. A single column is never split.
template <const ConvertRows* Rows>
void dithered16To8(Planes16To8 planes, int32_t rows, int32_t columns, intptr_t sourceStep, intptr_t destinationStep,
                   bool stream) {
  const NoiseTable table = g_noiseTable;
  const uint64_t room = static_cast<uint32_t>(table.size - table.period);
  while (room < 4 * static_cast<uint64_t>(columns) && columns > 1) {
    const int32_t half = columns / 2;
    dithered16To8<Rows>(planes, rows, half, sourceStep, destinationStep, stream);
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
    rowOfPlanes<Rows>(planes, r * sourceStep, r * destinationStep, columns, reinterpret_cast<const Byte*>(position),
                      stream);
    position += 2 * static_cast<uintptr_t>(columns);
    if (position >= end) position -= table.period;
  }
}

template <const ConvertRows* Rows>
void region16To8(const Planes16To8& planes, int32_t rows, int32_t columns, int32_t sourceStride,
                 int32_t destinationStride, uint8_t dither) {
  if (rows < 1 || columns < 1) return;
  const intptr_t sourceStep = wordRowStep(sourceStride);
  const intptr_t destinationStep = destinationStride;
  const bool stream = planes.count == 1 && streams(rows, columns, 1);
  if (dither != 0) {
    dithered16To8<Rows>(planes, rows, columns, sourceStep, destinationStep, stream);
  } else {
    for (int32_t r = 0; r < rows; ++r)
      rowOfPlanes<Rows>(planes, r * sourceStep, r * destinationStep, columns, nullptr, stream);
  }
  if (stream) _mm_sfence();
}

template <const ConvertRows* Rows>
void onePlane16To8(const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                   int32_t destinationStride, uint8_t dither) {
  const Planes16To8 planes{
      {reinterpret_cast<const Byte*>(source), nullptr, nullptr}, {destination, nullptr, nullptr}, 1};
  region16To8<Rows>(planes, rows, columns, sourceStride, destinationStride, dither);
}

template <const ConvertRows* Rows>
void planar3(const uint16_t* source0, const uint16_t* source1, const uint16_t* source2, uint8_t* destination0,
             uint8_t* destination1, uint8_t* destination2, int32_t rows, int32_t columns, int32_t sourceStride,
             int32_t destinationStride, uint8_t dither) {
  // A large region without dither goes plane after plane, each as the one-plane
  // form (streamed): two memory streams at a time instead of six, and no
  // destination line read for ownership. Only the dither ties the planes' rows.
  if (dither == 0 && rows > 0 && columns > 0 && streams(rows, columns, 1)) {
    onePlane16To8<Rows>(source0, destination0, rows, columns, sourceStride, destinationStride, 0);
    onePlane16To8<Rows>(source1, destination1, rows, columns, sourceStride, destinationStride, 0);
    onePlane16To8<Rows>(source2, destination2, rows, columns, sourceStride, destinationStride, 0);
    return;
  }
  const Planes16To8 planes{{reinterpret_cast<const Byte*>(source0), reinterpret_cast<const Byte*>(source1),
                            reinterpret_cast<const Byte*>(source2)},
                           {destination0, destination1, destination2},
                           3};
  region16To8<Rows>(planes, rows, columns, sourceStride, destinationStride, dither);
}

template <const ConvertRows* Rows>
void bytesToWords(const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride) {
  if (rows < 1 || columns < 1) return;
  const intptr_t destinationStep = wordRowStep(destinationStride);
  auto* d = reinterpret_cast<Byte*>(destination);
  const bool stream = streams(rows, columns, 2);
  for (int32_t r = 0; r < rows; ++r)
    Rows->bytesToWords15(source + r * static_cast<intptr_t>(sourceStride), d + r * destinationStep, columns,
                         stream ? RowStore::stream : RowStore::aligned);
  if (stream) _mm_sfence();
}

template <const ConvertRows* Rows>
void rescale(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride) {
  const bool down = sourceMax == 65535 && targetMax == 32768;
  const bool up = sourceMax == 32768 && targetMax == 65535;
  if (!down && !up) {
    savedRoutine<slot::rescale16>()(data, sourceMax, targetMax, rows, columns, stride);
    return;
  }
  if (rows < 1 || columns < 1) return;
  const intptr_t step = wordRowStep(stride);
  auto* first = reinterpret_cast<Byte*>(data);
  for (int32_t r = 0; r < rows; ++r) Rows->rescaleWords(first + r * step, columns, up);
}

template <const ConvertRows* Rows>
void floatPlaneTo8(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
               int32_t destinationStride, uint8_t dither) {
  if (dither != 0) {
    savedRoutine<slot::convertFloatTo8>()(source, destination, rows, columns, sourceStride, destinationStride, dither);
    return;
  }
  if (rows < 1 || columns < 1) return;
  const intptr_t sourceStep = floatRowStep(sourceStride);
  const auto* s = reinterpret_cast<const Byte*>(source);
  const bool stream = streams(rows, columns, 1);
  // Rows that follow one another in both planes, every column single precision
  // (a multiple of four): one row, which spares the steps at the rows' ends.
  if (columns % 4 == 0 && sourceStep == 4 * intptr_t{columns} && destinationStride == columns &&
      int64_t{rows} * columns <= int64_t{1} << 30) {
    columns *= rows;
    rows = 1;
  }
  for (int32_t r = 0; r < rows; ++r)
    Rows->floatsToBytes(s + r * sourceStep, destination + r * static_cast<intptr_t>(destinationStride), columns,
                        stream ? RowStore::stream : RowStore::aligned);
  if (stream) _mm_sfence();
}

}  // namespace

}  // namespace convert

uint32_t ditherStartOffset(const void* destination) {
  uint32_t s = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(destination));
  s = s * 1103515245u + 12345u;
  return (s >> 3) % 12281u;
}

// The SSE2 bodies.
void convert16To8Planar3(const uint16_t* source0, const uint16_t* source1, const uint16_t* source2,
                         uint8_t* destination0, uint8_t* destination1, uint8_t* destination2, int32_t rows,
                         int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither) {
  convert::planar3<&convert::kRowsSse2>(source0, source1, source2, destination0, destination1, destination2, rows,
                                        columns, sourceStride, destinationStride, dither);
}
void convert16To8(const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, uint8_t dither) {
  convert::onePlane16To8<&convert::kRowsSse2>(source, destination, rows, columns, sourceStride, destinationStride,
                                              dither);
}
void convert8To16(const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride) {
  convert::bytesToWords<&convert::kRowsSse2>(source, destination, rows, columns, sourceStride, destinationStride);
}
void rescale16(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride) {
  convert::rescale<&convert::kRowsSse2>(data, sourceMax, targetMax, rows, columns, stride);
}
void convertFloatTo8(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride, uint8_t dither) {
  convert::floatPlaneTo8<&convert::kRowsSse2>(source, destination, rows, columns, sourceStride, destinationStride,
                                              dither);
}

namespace convert {

constinit const ConvertTable g_convertSse2 = {
    .rescale16 = &rescale16,
    .convert16To8Planar3 = &convert16To8Planar3,
    .convert16To8 = &convert16To8,
    .convert8To16 = &convert8To16,
    .convertFloatTo8 = &convertFloatTo8,
};
// Slot 19 is written before the installer tests any flag: without the SSE2 flag
// its body is still this one, which needs nothing beyond the x86-64 baseline.
constinit const ConvertTable g_convertPlain = {.rescale16 = &rescale16};
// The same entries over the AVX2 rows: listed at the rows' level.
constinit const ConvertTable g_convertAvx2 = {
    .rescale16 = &rescale<&g_convertRowsAvx2>,
    .convert16To8Planar3 = &planar3<&g_convertRowsAvx2>,
    .convert16To8 = &onePlane16To8<&g_convertRowsAvx2>,
    .convert8To16 = &bytesToWords<&g_convertRowsAvx2>,
    .convertFloatTo8 = &floatPlaneTo8<&g_convertRowsAvx2>,
};

}  // namespace convert
}  // namespace tarnell
