// The harness's random generator: small, fast, and the same sequence for the
// same seed on every platform, so a printed seed reproduces a failure.
#pragma once

#include <cstdint>

namespace tarnell::verify {

class Rng {
 public:
  explicit Rng(uint64_t seed) {
    uint64_t x = seed;
    for (uint64_t& s : state_) s = splitmix(x);
  }

  uint64_t next() {
    const uint64_t result = rotl(state_[1] * 5, 7) * 9;
    const uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = rotl(state_[3], 45);
    return result;
  }

  // Uniform in lo..hi inclusive (hi - lo below 2^32 is all the harness needs).
  int64_t range(int64_t lo, int64_t hi) {
    const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
    return lo + static_cast<int64_t>(next() % span);
  }
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
  bool chance(uint32_t oneIn) { return below(oneIn) == 0; }
  // Uniform float in [lo, hi).
  float uniform(float lo, float hi) {
    return lo + (hi - lo) * static_cast<float>(next() >> 40) * (1.0f / 16777216.0f);
  }

 private:
  static uint64_t rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
  static uint64_t splitmix(uint64_t& x) {
    uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  uint64_t state_[4];
};

}  // namespace tarnell::verify
