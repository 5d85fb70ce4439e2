// The host's depth conversions ('conv' slots 16, 17, 18, 19, 58), one sample at a
// time from the formulas.
//
// Contracts decided here (see docs/contracts.md, "Conversion"):
// - Rows or columns below 1 convert nothing.
// - Row strides of 16-bit planes are rounded down to an even number of bytes (so
//   -7 steps by -8); float strides are divided by 4 truncating towards zero and
//   counted in floats. Planes may start at any byte address.
// - 16-bit to 8-bit: floor((255 x + n) / 32768); a sample above 32768 counts as
//   32768 (gives 255). n is 16384, or with dither a noise entry masked to 15 bits.
// - Float to 8-bit without dither: v is clamped to 0..1 (NaN counts as 0), then the
//   result is trunc(v * 255 + 0.5). Columns below columns rounded down to a multiple
//   of four compute it in single precision (product and sum each rounded to float,
//   in the thread's rounding mode); the remaining columns in double precision, where
//   it is exact. In round-to-nearest the two differ for 128 floats in 0..1, where
//   single precision is one higher. With dither: floor(v * 255 + n / 32768) for the
//   clamped v and a noise entry n walked as for 16-bit to 8-bit.
// - rescale16 for any pair: x becomes floor((x * target + floor(source / 2)) /
//   source), x at or above source becomes target; a target above 65535 saturates to
//   65535 and a source of 0 leaves the data unchanged. The two pairs 32768/65535 and
//   65535/32768 are the module's; the formula gives exactly their values.
// - Dither noise: the buffer this host registered. A region is split by columns
//   while (size - period) < 4 x columns (the left floor(columns / 2) columns first,
//   each part recursively; one column is never split); each part starts at the
//   offset ((low 32 bits of its first destination address) x 1103515245 + 12345
//   mod 2^32) >> 3 mod 12281; each row rounds the position up to an even address,
//   takes one entry per column, then advances by the column count (in entries),
//   wrapping back by one period once at or past the period's end.
// - Slots 19 and 58 log every call (the first four arguments) in the host's call
//   record, so a test sees which calls reached the host.
#include <cstring>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

using Byte = unsigned char;

uint16_t readWord(const Byte* p) {
  uint16_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
void writeWord(Byte* p, uint16_t v) { std::memcpy(p, &v, sizeof v); }
float readFloat(const Byte* p) {
  float v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Byte distance between rows r and 0 of a plane of 16-bit samples or floats.
intptr_t wordRowOffset(int32_t stride, int32_t r) {
  const int64_t even = static_cast<int64_t>(stride) - (stride & 1);  // rounded down to even
  return static_cast<intptr_t>(even * r);
}
intptr_t floatRowOffset(int32_t stride, int32_t r) {
  const int64_t floats = stride / 4;  // truncates towards zero
  return static_cast<intptr_t>(floats * 4 * r);
}

uintptr_t word(int32_t v) { return static_cast<uintptr_t>(static_cast<intptr_t>(v)); }
uintptr_t word(const void* p) { return reinterpret_cast<uintptr_t>(p); }

// --- dither noise ------------------------------------------------------------

struct Noise {
  uintptr_t base;
  uint32_t size;
  uint32_t period;
};

Noise registeredNoise() {
  const ReferenceHost* host = ReferenceHost::active();
  return {reinterpret_cast<uintptr_t>(host->noiseBase()), host->noiseSizeBytes(), host->noisePeriodBytes()};
}

uint32_t noiseStart(uintptr_t destination) {
  uint32_t s = static_cast<uint32_t>(destination & 0xFFFFFFFFu);
  s = static_cast<uint32_t>((uint64_t{s} * 1103515245u + 12345u) & 0xFFFFFFFFu);
  return (s >> 3) % 12281u;
}

// Calls sample(row, column, n) for every sample of columns [first, first + count)
// of the region whose first 8-bit destination row starts at destination.
template <typename Sample>
void walkNoise(const Noise& noise, uintptr_t destination, int32_t rows, int32_t first, int32_t count,
               const Sample& sample) {
  const uint64_t room = static_cast<uint32_t>(noise.size - noise.period);
  while (room < 4 * static_cast<uint64_t>(count) && count > 1) {
    const int32_t left = count / 2;
    walkNoise(noise, destination, rows, first, left, sample);
    first += left;
    count -= left;
  }
  const uintptr_t end = noise.base + noise.period;
  uintptr_t position = noise.base + noiseStart(destination + static_cast<uintptr_t>(first));
  for (int32_t r = 0; r < rows; ++r) {
    if (position % 2 != 0) ++position;
    for (int32_t c = 0; c < count; ++c) {
      const uint16_t entry = readWord(reinterpret_cast<const Byte*>(position + 2 * static_cast<uintptr_t>(c)));
      sample(r, first + c, static_cast<uint32_t>(entry & 0x7FFF));
    }
    position += 2 * static_cast<uintptr_t>(count);
    if (position >= end) position -= noise.period;
  }
}

// --- 16-bit to 8-bit -----------------------------------------------------------

uint8_t to8(uint16_t x, uint32_t n) {
  if (x > 32768) return 255;
  return static_cast<uint8_t>((255u * x + n) / 32768u);
}

void planes16To8(int planeCount, const uint16_t* const* sources, uint8_t* const* destinations, int32_t rows,
                 int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither) {
  if (rows < 1 || columns < 1) return;
  auto convert = [&](int32_t r, int32_t c, uint32_t n) {
    for (int k = 0; k < planeCount; ++k) {
      const Byte* s = reinterpret_cast<const Byte*>(sources[k]) + wordRowOffset(sourceStride, r) + 2 * intptr_t{c};
      uint8_t* d = destinations[k] + static_cast<intptr_t>(destinationStride) * r + c;
      *d = to8(readWord(s), n);
    }
  };
  if (dither == 0) {
    for (int32_t r = 0; r < rows; ++r)
      for (int32_t c = 0; c < columns; ++c) convert(r, c, 16384);
    return;
  }
  walkNoise(registeredNoise(), word(destinations[0]), rows, 0, columns, convert);
}

void convert16To8Planar3(const uint16_t* source0, const uint16_t* source1, const uint16_t* source2,
                         uint8_t* destination0, uint8_t* destination1, uint8_t* destination2, int32_t rows,
                         int32_t columns, int32_t sourceStride, int32_t destinationStride, uint8_t dither) {
  const uint16_t* sources[] = {source0, source1, source2};
  uint8_t* destinations[] = {destination0, destination1, destination2};
  planes16To8(3, sources, destinations, rows, columns, sourceStride, destinationStride, dither);
}

void convert16To8(const uint16_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, uint8_t dither) {
  planes16To8(1, &source, &destination, rows, columns, sourceStride, destinationStride, dither);
}

// --- 8-bit to 16-bit -----------------------------------------------------------

void convert8To16(const uint8_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride) {
  for (int32_t r = 0; r < rows; ++r) {
    const uint8_t* s = source + static_cast<intptr_t>(sourceStride) * r;
    Byte* d = reinterpret_cast<Byte*>(destination) + wordRowOffset(destinationStride, r);
    for (int32_t c = 0; c < columns; ++c)
      writeWord(d + 2 * intptr_t{c}, static_cast<uint16_t>((uint32_t{s[c]} * 32768u + 127u) / 255u));
  }
}

// --- range re-scaling ------------------------------------------------------------

void rescale16(uint16_t* data, uint32_t sourceMax, uint32_t targetMax, int32_t rows, int32_t columns, int32_t stride) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({code::conv, 19, {word(data), sourceMax, targetMax, word(rows)}});
  if (sourceMax == 0) return;
  const uint64_t target = targetMax > 65535 ? 65535 : targetMax;
  for (int32_t r = 0; r < rows; ++r) {
    Byte* row = reinterpret_cast<Byte*>(data) + wordRowOffset(stride, r);
    for (int32_t c = 0; c < columns; ++c) {
      Byte* p = row + 2 * intptr_t{c};
      const uint64_t x = readWord(p);
      const uint64_t y = x >= sourceMax ? target : (x * targetMax + sourceMax / 2) / sourceMax;
      writeWord(p, static_cast<uint16_t>(y > 65535 ? 65535 : y));
    }
  }
}

// --- float to 8-bit ------------------------------------------------------------

float clamped(float v) {
  if (v > 1.0f) return 1.0f;
  if (v >= 0.0f) return v;
  return 0.0f;  // below zero, or NaN
}

uint8_t singleTo8(float v) {
  const float product = clamped(v) * 255.0f;
  return static_cast<uint8_t>(product + 0.5f);
}
uint8_t doubleTo8(float v) { return static_cast<uint8_t>(static_cast<double>(clamped(v)) * 255.0 + 0.5); }

void convertFloatTo8(const float* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride, uint8_t dither) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({code::conv, 58, {word(source), word(destination), word(rows), word(columns)}});
  if (rows < 1 || columns < 1) return;
  auto at = [&](int32_t r, int32_t c) {
    return readFloat(reinterpret_cast<const Byte*>(source) + floatRowOffset(sourceStride, r) + 4 * intptr_t{c});
  };
  auto out = [&](int32_t r, int32_t c) -> uint8_t& {
    return destination[static_cast<intptr_t>(destinationStride) * r + c];
  };
  if (dither == 0) {
    const int32_t singleColumns = columns / 4 * 4;
    for (int32_t r = 0; r < rows; ++r)
      for (int32_t c = 0; c < columns; ++c) out(r, c) = c < singleColumns ? singleTo8(at(r, c)) : doubleTo8(at(r, c));
    return;
  }
  walkNoise(registeredNoise(), word(destination), rows, 0, columns, [&](int32_t r, int32_t c, uint32_t n) {
    const double v = static_cast<double>(clamped(at(r, c))) * 255.0 + n / 32768.0;
    out(r, c) = static_cast<uint8_t>(v > 255.0 ? 255.0 : v);
  });
}

const PortableRoutine kRoutines[] = {
    portable(slot::convert16To8Planar3, &convert16To8Planar3), portable(slot::convert16To8, &convert16To8),
    portable(slot::convert8To16, &convert8To16),        portable(slot::rescale16, &rescale16),
    portable(slot::convertFloatTo8, &convertFloatTo8),
};

}  // namespace

std::span<const PortableRoutine> portableConvert() { return kRoutines; }

}  // namespace tarnell::refhost
