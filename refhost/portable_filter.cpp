// The host's filters ('filt' slots 12, 28, 74, 75, 188, 189, 191-194), one sample
// at a time from the formulas; the angular remap is in portable_filter_remap.cpp.
//
// Contracts decided here (see docs/contracts.md, "Filters"):
// - Rows or columns below 1 do nothing. Row strides are signed, in bytes; 16-bit
//   planes step rows by the stride halved rounding down (-7 steps by -4 samples)
//   and start on even addresses.
// - Slot 12: the host's own routine only filters (the notification through 'core'
//   slot 0 is the module's) and returns 0.
// - Slots 28/74: tap count at block entry 20, weights in the low 16 bits of the
//   entries after it. Slot 28 adds each product modulo 2^16, except that in the
//   columns of whole 16-column groups (counted from each 4096-column strip's start)
//   an even column's carry out of 16 bits goes into the odd column after it. Slot 74
//   accumulates modulo 2^32 and keeps bits 8..23.
// - Slot 75: floor((n + floor(d / 2)) / d), the nearest mean with halves rounded
//   up, where n is the box sum modulo 2^32 and d = (2r + 1)^2; the quotient's low
//   16 bits are stored (32768 stays 32768). A negative radius does nothing. The
//   routine works for any radius and logs every call (first four arguments).
// - Slots 188/189: a mask byte counts as set when it is not zero.
// - Slots 191-194: for each output channel, the 4k products are summed in order
//   (group element 0 first, channel 0 first within an element), starting from the
//   first product. A count below one whole group does nothing. The result is the
//   number of elements written; every call is logged (input, count, fourth, fifth).
#include "refhost/portable_filter.h"

#include <cmath>
#include <vector>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

uintptr_t word(intptr_t v) { return static_cast<uintptr_t>(v); }

intptr_t samples16(int32_t strideBytes) { return intptr_t{strideBytes} >> 1; }

// --- slot 12: 3x3 local deviation

int32_t localDeviation3x3(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns,
                          int32_t sourceStride, int32_t destinationStride) {
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < columns; ++c) {
      int32_t s1 = 0, s2 = 0;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          const int32_t v = source[intptr_t{sourceStride} * (r + dy) + c + dx];
          s1 += v;
          s2 += v * v;
        }
      }
      const int32_t q = (9 * s2 - s1 * s1) / 21;
      destination[intptr_t{destinationStride} * r + c] = static_cast<uint8_t>(std::sqrt(static_cast<float>(q)));
    }
  }
  return 0;
}

// --- slots 28, 74: vertical weighted sums

constexpr int32_t kWeightedStrip = 4096;

void filterSlot28(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, const uint32_t* block) {
  if (rows < 1 || columns < 1) return;
  const uint32_t taps = block[kWeightedSumTapCountEntry];
  std::vector<uint16_t> accumulators(static_cast<size_t>(columns));
  uint16_t* acc = accumulators.data();
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t stripStart = 0; stripStart < columns; stripStart += kWeightedStrip) {
      const int32_t stripColumns = std::min(kWeightedStrip, columns - stripStart);
      const int32_t paired = stripStart + stripColumns / 16 * 16;  // end of the whole 16-column groups
      for (int32_t c = stripStart; c < stripStart + stripColumns; ++c) acc[c] = 128;
      for (uint32_t k = 0; k < taps; ++k) {
        const uint16_t weight = static_cast<uint16_t>(block[kWeightedSumTapCountEntry + 1 + k]);
        const uint8_t* row = source + (intptr_t{r} + k) * sourceStride;
        for (int32_t c = stripStart; c < stripStart + stripColumns; ++c) {
          const uint32_t sum = acc[c] + static_cast<uint16_t>(row[c] * weight);
          acc[c] = static_cast<uint16_t>(sum);
          if (c < paired && (c - stripStart) % 2 == 0) acc[c + 1] = static_cast<uint16_t>(acc[c + 1] + (sum >> 16));
        }
      }
    }
    for (int32_t c = 0; c < columns; ++c)
      destination[intptr_t{destinationStride} * r + c] = static_cast<uint8_t>(acc[c] >> 8);
  }
}

void filterSlot74(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                  int32_t destinationStride, const uint32_t* block) {
  if (rows < 1 || columns < 1) return;
  const uint32_t taps = block[kWeightedSumTapCountEntry];
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < columns; ++c) {
      uint32_t acc = 128;
      for (uint32_t k = 0; k < taps; ++k) {
        const uint32_t weight = static_cast<uint16_t>(block[kWeightedSumTapCountEntry + 1 + k]);
        acc += source[(intptr_t{r} + k) * samples16(sourceStride) + c] * weight;
      }
      destination[r * samples16(destinationStride) + c] = static_cast<uint16_t>(acc >> 8);
    }
  }
}

// --- slot 75: 16-bit box mean

int32_t filterSlot75(const uint16_t* source, uint16_t* destination, int32_t rows, int32_t columns, int32_t sourceStride,
                     int32_t destinationStride, int32_t radius) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({code::filt,
                  75,
                  {word(reinterpret_cast<intptr_t>(source)), word(reinterpret_cast<intptr_t>(destination)), word(rows),
                   word(columns)}});
  if (rows < 1 || columns < 1 || radius < 0) return 0;
  const uint32_t span = 2 * static_cast<uint32_t>(radius) + 1;
  const uint32_t area = span * span;
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < columns; ++c) {
      uint32_t n = 0;
      for (int32_t y = r - radius; y <= r + radius; ++y)
        for (int32_t x = c - radius; x <= c + radius; ++x) n += source[y * samples16(sourceStride) + x];
      destination[r * samples16(destinationStride) + c] = static_cast<uint16_t>((n + area / 2) / area);
    }
  }
  return 0;
}

// --- slots 188, 189: difference sums over 128-byte blocks

uint16_t blockDifferenceSum(const uint8_t* first, const uint8_t* second) {
  uint32_t sum = 0;
  for (int i = 0; i < kDifferenceBlockBytes; ++i)
    sum += first[i] > second[i] ? first[i] - second[i] : second[i] - first[i];
  return static_cast<uint16_t>(sum);
}

uint16_t maskedDifferenceSum(const uint8_t* first, const uint8_t* second, const uint8_t* mask) {
  uint32_t sum = 0;
  for (int i = 0; i < kDifferenceBlockBytes; ++i) {
    const int32_t d = mask[i] != 0 ? second[i] - first[i] : first[i] - second[i];
    if (d > 0) sum += static_cast<uint32_t>(d);
  }
  return static_cast<uint16_t>(sum);
}

// --- slots 191-194: block matrix filters

template <int K, int Slot>
int32_t blockMatrix(const float* input, int32_t count, const float* coefficients, uintptr_t fourth, uintptr_t fifth,
                    float* output) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({code::filt, Slot, {word(reinterpret_cast<intptr_t>(input)), word(count), fourth, fifth}});
  const int32_t outputs = count / 4 - (K - 1);
  for (int32_t e = 0; e < outputs; ++e) {
    for (int o = 0; o < 4; ++o) {
      float sum = 0.0f;
      for (int j = 0; j < K; ++j) {
        for (int c = 0; c < 4; ++c) {
          const float product = coefficients[o * 4 * K + 4 * j + c] * input[4 * (e + j) + c];
          sum = j == 0 && c == 0 ? product : sum + product;
        }
      }
      output[4 * e + o] = sum;
    }
  }
  return outputs > 0 ? outputs : 0;
}

const PortableRoutine kOwn[] = {
    portable(slot::localDeviation3x3, &localDeviation3x3),    portable(slot::filterSlot28, &filterSlot28),
    portable(slot::filterSlot74, &filterSlot74),         portable(slot::filterSlot75, &filterSlot75),
    portable(slot::blockDifferenceSum, &blockDifferenceSum),  portable(slot::maskedDifferenceSum, &maskedDifferenceSum),
    portable(slot::blockMatrixFilter2, &blockMatrix<2, 191>), portable(slot::blockMatrixFilter3, &blockMatrix<3, 192>),
    portable(slot::blockMatrixFilter4, &blockMatrix<4, 193>), portable(slot::blockMatrixFilter5, &blockMatrix<5, 194>),
};

}  // namespace

std::span<const PortableRoutine> portableFilter() {
  static const std::vector<PortableRoutine> all = [] {
    std::vector<PortableRoutine> list(std::begin(kOwn), std::end(kOwn));
    for (const PortableRoutine& r : portableFilterRemap()) list.push_back(r);
    return list;
  }();
  return all;
}

}  // namespace tarnell::refhost
