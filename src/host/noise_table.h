// The host's dither-noise buffer as the host last registered it through 'core'
// slot 3. Written only by registerNoiseTable; the dithering conversions and the
// painting routines read it.
#pragma once

#include <cstdint>

namespace tarnell {

struct NoiseTable {
  const unsigned char* base;  // first byte of the buffer (16-bit entries)
  uint32_t size;              // bytes in the whole buffer
  uint32_t period;            // bytes in one period; a repeat of the start follows it
  const unsigned char* end;   // base + period
};

// Empty (null base, zero size and period) until the host registers a buffer.
extern NoiseTable g_noiseTable;

// 'core' slot 3: records the buffer, then hands the call to the host's own slot-3
// routine with the same arguments and returns its result.
int32_t registerNoiseTable(const void* base, uint32_t size, uint32_t period);

}  // namespace tarnell
