// Exact floor(n / d) for every 32-bit n and a fixed d >= 1, by multiplication with
// a reciprocal computed once (division by an invariant integer): with l the bit
// length of d - 1, m = floor(2^32 (2^l - d) / d) + 1 taken modulo 2^32,
// s1 = min(l, 1) and s2 = max(l - 1, 0), q = (t + ((n - t) >> s1)) >> s2 with
// t = (n m) >> 32. For d = 1 all three are 0 and q = n.
//
// The functions have internal linkage: files built for wider instruction sets
// include this header too, and must not share compiled code with baseline files.
#pragma once

#include <cstdint>

namespace tarnell {

struct InvariantDivisor {
  uint32_t m;
  int32_t s1, s2;
};

// floor(n / d) = (n m) >> k with one multiplication, for every n up to a known
// bound: with m = ceil(2^k / d), n m / 2^k exceeds n / d by n (m d - 2^k) / (d 2^k),
// less than 1/d whenever bound (d - 1) < 2^k, so the floor does not move. k is
// the smallest shift from 32 up for which that holds and m fits 32 bits; k = 0
// when there is none.
struct BoundedDivisor {
  uint32_t m;
  int32_t k;
};

namespace {

inline InvariantDivisor invariantDivisor(uint32_t d) {
  int32_t l = 0;
  while (l < 32 && (uint64_t{1} << l) < d) ++l;
  if (l == 0) return {0, 0, 0};
  return {static_cast<uint32_t>((uint64_t{1} << 32) * ((uint64_t{1} << l) - d) / d + 1), 1, l - 1};
}

inline BoundedDivisor boundedDivisor(uint32_t d, uint64_t bound) {
  if (d < 2) return {0, 0};
  for (int32_t k = 32; k < 64; ++k) {
    const uint64_t m = ((uint64_t{1} << k) + d - 1) / d;
    if (m > 0xFFFFFFFFu) break;
    // bound (d - 1) < 2^k, without overflow: bound < 2^k / (d - 1), rounded up.
    if (bound < ((uint64_t{1} << k) + d - 2) / (d - 1)) return {static_cast<uint32_t>(m), k};
  }
  return {0, 0};
}

inline uint32_t boundedQuotient(const BoundedDivisor& v, uint32_t n) {
  return static_cast<uint32_t>((uint64_t{n} * v.m) >> v.k);
}

inline uint32_t exactQuotient(const InvariantDivisor& v, uint32_t n) {
  const auto t = static_cast<uint32_t>((uint64_t{n} * v.m) >> 32);
  return (t + ((n - t) >> v.s1)) >> v.s2;
}

}  // namespace
}  // namespace tarnell
