// The depth conversions of the 'conv' suite. Their entries (the dither split and
// walk, the streaming choice, the fallbacks to the host) are baseline code
// (convert_sse2.cpp) over row kernels of two levels: SSE2 there, AVX2 in
// convert_avx2.cpp. Types and declarations only: the AVX2 file includes it too.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>

#include "host/kernel_table.h"

namespace tarnell {

// The SSE2 bodies.
void convert16To8Planar3(const uint16_t* source0, const uint16_t* source1, const uint16_t* source2,
                         uint8_t* destination0, uint8_t* destination1, uint8_t* destination2, int32_t rows,
                         int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither);
void convert16To8(const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, uint8_t dither);
void convert8To16(const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride);
void rescale16(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride);
void convertFloatTo8(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride, uint8_t dither);

// The dither start for a destination address: a byte offset into the noise
// buffer's first period (below 12281). Exposed for tests.
uint32_t ditherStartOffset(const void* destination);

namespace convert {

// How a row's vector steps store: unaligned from column 0 (the three-plane
// form), or aligned on the destination after a scalar head, cached or streamed.
enum class RowStore : uint8_t { unaligned, aligned, stream };

// One row of each conversion. Planes are byte pointers (16-bit and float planes
// may start at any address). noise: the row's first noise entry, or null for no
// dither.
struct ConvertRows {
  void (*words15ToBytes)(const uint8_t* source, uint8_t* destination, int32_t columns, const uint8_t* noise,
                         RowStore store);
  void (*bytesToWords15)(const uint8_t* source, uint8_t* destination, int32_t columns, RowStore store);
  void (*rescaleWords)(uint8_t* row, int32_t columns, bool up);
  void (*floatsToBytes)(const uint8_t* source, uint8_t* destination, int32_t columns, RowStore store);
};
extern constinit const ConvertRows g_convertRowsAvx2;  // convert_avx2.cpp

#define TARNELL_CONVERT_KERNELS(X) \
  X(rescale16)                     \
  X(convert16To8Planar3)           \
  X(convert16To8)                  \
  X(convert8To16)                  \
  X(convertFloatTo8)
TARNELL_KERNEL_TABLE(ConvertTable, TARNELL_CONVERT_KERNELS)

// All in convert_sse2.cpp: the entries over the SSE2 rows, and over the AVX2 rows;
// and rescale16 alone for a processor without the SSE2 flag (the installer writes
// slot 19 on every processor; its SSE2 code is the x86-64 baseline).
extern constinit const ConvertTable g_convertSse2, g_convertAvx2, g_convertPlain;

}  // namespace convert
}  // namespace tarnell
