// BoxReduce8's 16-bit lane division, shared by the SSE2 and AVX2 files (each
// includes it; everything keeps internal linkage): for every area up to 8 x 8, a
// multiplier and a shift that divide every rounded sum the area can produce.
#pragma once

#include <cstdint>

namespace tarnell::resample {
namespace {

constexpr int32_t kMaxFactor = 8;
constexpr int32_t kMaxArea = kMaxFactor * kMaxFactor;

// n / d = (n x multiplier) >> (16 + shift) for every n in 0 .. 255 d + d / 2 (a
// rounded sum of the area): the smallest shift whose rounded-up reciprocal fits 16
// bits and is exact over that whole range, found and checked here at compile time (and
// over every sum, through the routine, by the tests).
struct LaneDivisor {
  uint16_t multiplier;
  uint16_t shift;
};
constexpr LaneDivisor laneDivisor(uint32_t d) {
  if (d == 1) return {0, 0};  // never used: area 1 copies the sums
  for (uint32_t s = 0; s < 16; ++s) {
    const uint64_t m = ((uint64_t{1} << (16 + s)) + d - 1) / d;
    if (m > 0xFFFF) break;
    // m >= 2^(16 + s) / d, so the product never falls below the quotient, and it
    // grows with n: checking the largest n of each quotient covers every n.
    const uint64_t last = 255 * d + d / 2;
    bool exact = true;
    for (uint64_t q = 0; q * d <= last && exact; ++q) {
      const uint64_t n = q * d + d - 1 < last ? q * d + d - 1 : last;
      exact = (n * m) >> (16 + s) == q;
    }
    if (exact) return {static_cast<uint16_t>(m), static_cast<uint16_t>(s)};
  }
  return {0, 0xFFFF};  // none: the speed path refuses the area
}
struct LaneDivisors {
  LaneDivisor area[kMaxArea + 1];
};
constexpr LaneDivisors kLaneDivisors = [] {
  LaneDivisors t{};
  for (uint32_t d = 1; d <= kMaxArea; ++d) t.area[d] = laneDivisor(d);
  return t;
}();
static_assert([] {
  for (uint32_t d = 2; d <= kMaxArea; ++d)
    if (kLaneDivisors.area[d].shift == 0xFFFF) return false;
  return true;
}());

}  // namespace
}  // namespace tarnell::resample
