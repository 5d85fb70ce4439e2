// BoxReduce8: each output sample is the rounded mean of an a x b block of source
// samples of its channel, (sum + area / 2) / area. The division is exact without a
// divide instruction: a shift for a power-of-two area, else a multiply by the
// invariant-divisor reciprocal. Rows of more than 1500 output samples go, whole
// and unchanged, to the host's own routine.
#include "host/install.h"
#include "host/module_state.h"
#include "resample/kernel_scalar.h"
#include "resample/resample_routines.h"

// The host's own box reduction (saved slot 24), for rows wider than the local sums.
TARNELL_FORWARDER(HostBoxReduce8, kRsmp, 24);
// The host's own row-box average (saved slot 3). Nothing calls it: BoxAverageRows8
// handles every case itself.
TARNELL_FORWARDER(HostBoxAverageRows8, kRsmp, 3);

namespace tarnell::resample {

namespace {

// Exact q = n / d for every 32-bit n and a fixed d >= 1: with l = ceil(log2 d) and
// m = 2^32 (2^l - d) / d + 1, q = (t + ((n - t) >> 1)) >> (l - 1), t = (m n) >> 32.
struct Divider {
  explicit Divider(uint32_t d) {
    uint32_t l = 0;
    while ((uint64_t{1} << l) < d) ++l;
    if ((uint64_t{1} << l) == d) {
      shift = l;
      power = true;
    } else {
      multiplier = static_cast<uint32_t>(((uint64_t{1} << 32) * ((uint64_t{1} << l) - d)) / d + 1);
      shift = l - 1;
    }
  }
  uint32_t operator()(uint32_t n) const {
    if (power) return n >> shift;
    const auto t = static_cast<uint32_t>((uint64_t{multiplier} * n) >> 32);
    return (t + ((n - t) >> 1)) >> shift;
  }
  uint32_t multiplier = 0;
  uint32_t shift = 0;
  bool power = false;
};

}  // namespace

void BoxReduce8(const uint8_t* source, uint8_t* destination, int32_t rows, int32_t width, int32_t sourceStride,
                int32_t destinationStride, int32_t samplesPerPixel, int32_t a, int32_t b) {
  if (width > kBoxReduceMaxWidth) {
    reinterpret_cast<SlotFn<code::rsmp, 24>>(&HostBoxReduce8)(source, destination, rows, width, sourceStride,
                                                              destinationStride, samplesPerPixel, a, b);
    return;
  }
  if (rows < 1 || width < 1 || samplesPerPixel < 1 || a < 1 || b < 1) return;
  const auto area = static_cast<uint32_t>(a) * static_cast<uint32_t>(b);
  const Divider divide(area);
  const intptr_t pixelStep = intptr_t{a} * samplesPerPixel;  // source samples between output pixels
  uint32_t sums[kBoxReduceMaxWidth];
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t x = 0; x < width; ++x) sums[x] = area / 2;
    const uint8_t* top = rowAt(source, intptr_t{r} * b, sourceStride);
    for (int32_t dy = 0; dy < b; ++dy) {
      const uint8_t* row = rowAt(top, dy, sourceStride);
      int32_t x = 0;
      for (const uint8_t* pixel = row; x < width; pixel += pixelStep)
        for (int32_t c = 0; c < samplesPerPixel && x < width; ++c, ++x) {
          uint32_t s = 0;
          for (int32_t dx = 0; dx < a; ++dx) s += pixel[intptr_t{dx} * samplesPerPixel + c];
          sums[x] += s;
        }
    }
    uint8_t* d = rowAt(destination, r, destinationStride);
    for (int32_t x = 0; x < width; ++x) d[x] = static_cast<uint8_t>(divide(sums[x]));
  }
}

}  // namespace tarnell::resample
