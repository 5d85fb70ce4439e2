// The host's angular remap ('filt' slots 200-202), one column at a time.
//
// Contracts decided here (see docs/contracts.md, "Filters"):
// - The visible span's ends are clamped before they become integers: a first
//   column of ceil(L / k * F + M) at or beyond the row gives an empty span, a last
//   column of floor(U / k * F + M) at or beyond it ends the span at D - 1.
// - The interpolated span is done in groups of four columns in single precision,
//   floor((last - first) / 4) groups, then the remaining columns (the span's last
//   column among them) in double precision.
// - k is sqrt(e * e + 1) with e widened to double first; an integer result keeps
//   the low 8 or 16 bits of the value truncated towards zero.
// - Rows or destination columns below 1 do nothing.
// - Parameters that are not numbers are outside the contract.
#include <cmath>
#include <cstring>

#include "refhost/portable_filter.h"

namespace tarnell::refhost {

namespace {

int32_t spanStart(float v, int32_t width) {
  const float c = std::ceil(v);
  if (c > 0.0f) return c < static_cast<float>(width) ? static_cast<int32_t>(c) : width;
  return 0;
}
int32_t spanEnd(float v, int32_t width) {
  const float c = std::floor(v);
  if (c < static_cast<float>(width - 1)) return c > -1.0f ? static_cast<int32_t>(c) : -1;
  return width - 1;
}

template <typename Sample>
Sample sampleOfFloat(float v) {
  if constexpr (sizeof(Sample) == 4)
    return v;
  else
    return static_cast<Sample>(static_cast<int32_t>(v));
}
template <typename Sample>
Sample sampleOfDouble(double v) {
  if constexpr (sizeof(Sample) == 4)
    return static_cast<float>(v);
  else
    return static_cast<Sample>(static_cast<int32_t>(v));
}

template <typename Sample, typename Background>
void angularRemap(const Sample* source, Sample* destination, int32_t rows, int32_t sourceWidth,
                  int32_t destinationWidth, int32_t sourceStride, int32_t destinationStride, uintptr_t,
                  Background backgroundValue, uintptr_t, float turn, uintptr_t, float a, uintptr_t, float s, float rc,
                  float m, float q, float f) {
  if (rows < 1 || destinationWidth < 1) return;
  const Sample background = static_cast<Sample>(backgroundValue);
  const float t = std::tan(turn);
  const float ft = f * t;
  const float lower = (t - a / s) / ((a / s) * t + 1.0f);
  const float upper = ((static_cast<float>(sourceWidth - 1) - a) / s + t) /
                      (1.0f - t * ((static_cast<float>(sourceWidth - 1) - a) / s));
  for (int32_t y = 0; y < rows; ++y) {
    const auto* src =
        reinterpret_cast<const Sample*>(reinterpret_cast<const unsigned char*>(source) + intptr_t{sourceStride} * y);
    auto* out =
        reinterpret_cast<Sample*>(reinterpret_cast<unsigned char*>(destination) + intptr_t{destinationStride} * y);
    const float e = std::tan((static_cast<float>(y) - rc) / q);
    const float k = static_cast<float>(std::sqrt(static_cast<double>(e) * static_cast<double>(e) + 1.0));
    const int32_t first = spanStart(lower / k * f + m, destinationWidth);
    const int32_t last = spanEnd(upper / k * f + m, destinationWidth);
    for (int32_t x = 0; x < destinationWidth; ++x) out[x] = background;
    if (first > last) continue;
    const int32_t singleEnd = first + (last - first) / 4 * 4;
    for (int32_t x = first; x < singleEnd; ++x) {
      const float u = (static_cast<float>(x) - m) * k;
      const float p = (u - ft) / (u * t + f) * s + a;
      const auto i = static_cast<int32_t>(p);
      const float frac = p - static_cast<float>(i);
      const float lo = static_cast<float>(src[i]), hi = static_cast<float>(src[i + 1]);
      out[x] = sampleOfFloat<Sample>(lo + (hi - lo) * frac);
    }
    for (int32_t x = singleEnd; x <= last; ++x) {
      const double u = (static_cast<double>(x) - static_cast<double>(m)) * static_cast<double>(k);
      const double p = (u - static_cast<double>(ft)) / (u * static_cast<double>(t) + static_cast<double>(f)) *
                           static_cast<double>(s) +
                       static_cast<double>(a);
      const auto i = static_cast<int32_t>(p);
      const double frac = p - static_cast<double>(i);
      const double lo = static_cast<double>(src[i]), hi = static_cast<double>(src[i + 1]);
      out[x] = sampleOfDouble<Sample>(lo + (hi - lo) * frac);
    }
  }
}

const PortableRoutine kRemap[] = {
    portable(slot::angularRemap8, &angularRemap<uint8_t, uint8_t>),
    portable(slot::angularRemap16, &angularRemap<uint16_t, uint16_t>),
    portable(slot::angularRemapSlot202, &angularRemap<float, int32_t>),
};

}  // namespace

std::span<const PortableRoutine> portableFilterRemap() { return kRemap; }

}  // namespace tarnell::refhost
