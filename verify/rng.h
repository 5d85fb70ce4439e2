// The harness's random generator: small, fast, and the same sequence for the
// same seed on every platform, so a printed seed reproduces a failure.
//
// It can also take its draws from given bytes instead (a fuzzer's input), so that
// the input steers every choice a check makes, and it can record the bytes that
// would reproduce its own draws (seed inputs for the fuzzer, taken from the cases
// a verification run draws). Draws come from two streams: the structure of a case
// (sizes, strides, parameters, which part of a check runs) and, inside a Content
// scope, the bulk of its data (plane contents). Keeping them apart keeps the
// structure of a fuzzer's input in place however much data a case takes. Inside a
// Filler scope (guard bytes, padding between rows: bytes a routine must not read)
// draws never come from the input. With a seed every stream is the one generator,
// so a scope changes nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnell::verify {

class Rng {
 public:
  explicit Rng(uint64_t seed) { seedState(seed); }

  // Draws read from bytes: the structure stream from the first, the content
  // stream from the second; each goes on with the generator seeded with
  // `tailSeed` once its bytes run out. The bytes must outlive the generator.
  static Rng reading(const uint8_t* structure, std::size_t structureSize, const uint8_t* content,
                     std::size_t contentSize, uint64_t tailSeed) {
    Rng rng(tailSeed);
    rng.mode_ = Mode::Reading;
    rng.streams_[0] = {structure, structureSize};
    rng.streams_[1] = {content, contentSize};
    return rng;
  }
  // Draws as Rng(seed) makes them, each also appended to the bytes of its stream
  // in the form reading() turns back into the same value.
  static Rng recording(uint64_t seed, std::vector<uint8_t>* structure, std::vector<uint8_t>* content) {
    Rng rng(seed);
    rng.mode_ = Mode::Recording;
    rng.records_[0] = structure;
    rng.records_[1] = content;
    return rng;
  }

  uint64_t next() {
    if (reading()) return take(8);
    const uint64_t v = generate();
    if (recording()) put(v, 8);
    return v;
  }

  // The top byte of next(), read from one byte.
  uint8_t byte() {
    if (reading()) return static_cast<uint8_t>(take(1));
    const auto v = static_cast<uint8_t>(generate() >> 56);
    if (recording()) put(v, 1);
    return v;
  }

  // Uniform in lo..hi inclusive (hi - lo below 2^32 is all the harness needs).
  int64_t range(int64_t lo, int64_t hi) {
    const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
    return lo + static_cast<int64_t>(drawBelow(span));
  }
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(drawBelow(n)); }
  bool chance(uint32_t oneIn) { return below(oneIn) == 0; }
  // Uniform float in [lo, hi).
  float uniform(float lo, float hi) {
    uint64_t bits;
    if (reading()) {
      bits = take(3);
    } else {
      bits = generate() >> 40;
      if (recording()) put(bits, 3);
    }
    return lo + (hi - lo) * static_cast<float>(bits) * (1.0f / 16777216.0f);
  }

  // Draws of plane contents and other bulk data, while it lives (inside a Filler
  // scope they stay filler).
  class Content {
   public:
    explicit Content(Rng& rng) : rng_(rng), previous_(rng.stream_) {
      if (rng.stream_ != kFiller) rng.stream_ = kContent;
    }
    ~Content() { rng_.stream_ = previous_; }
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;

   private:
    Rng& rng_;
    int previous_;
  };
  // Draws of bytes nobody should read, while it lives: from the generator only,
  // never from given bytes, and never recorded.
  class Filler {
   public:
    explicit Filler(Rng& rng) : rng_(rng), previous_(rng.stream_) { rng.stream_ = kFiller; }
    ~Filler() { rng_.stream_ = previous_; }
    Filler(const Filler&) = delete;
    Filler& operator=(const Filler&) = delete;

   private:
    Rng& rng_;
    int previous_;
  };

 private:
  enum class Mode : uint8_t { Seeded, Reading, Recording };
  static constexpr int kContent = 1, kFiller = 2;
  struct Stream {
    const uint8_t* data = nullptr;
    std::size_t size = 0;
  };

  void seedState(uint64_t seed) {
    uint64_t x = seed;
    for (uint64_t& s : state_) s = splitmix(x);
  }
  uint64_t generate() {
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
  // Bytes a value below n is read from: as few as hold n - 1.
  static int bytesFor(uint64_t n) {
    int bytes = 1;
    while (bytes < 8 && (n - 1) >> (8 * bytes) != 0) ++bytes;
    return bytes;
  }
  // Below n (0: below 2^64). Seeded draws are next() % n, as they always were.
  uint64_t drawBelow(uint64_t n) {
    if (reading()) {
      const uint64_t v = take(n == 0 ? 8 : bytesFor(n));
      return n == 0 ? v : v % n;
    }
    const uint64_t v = n == 0 ? generate() : generate() % n;
    if (recording()) put(v, n == 0 ? 8 : bytesFor(n));
    return v;
  }
  bool reading() const { return mode_ == Mode::Reading && stream_ != kFiller; }
  bool recording() const { return mode_ == Mode::Recording && stream_ != kFiller; }
  // The next `bytes` bytes of the current stream, most significant first; the
  // generator's bytes once the stream is used up.
  uint64_t take(int bytes) {
    Stream& s = streams_[stream_];
    if (s.size == 0) return generate() >> (64 - 8 * bytes);
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) {
      uint8_t b;
      if (s.size > 0) {
        b = *s.data++;
        --s.size;
      } else {
        b = static_cast<uint8_t>(generate() >> 56);
      }
      v = v << 8 | b;
    }
    return v;
  }
  void put(uint64_t v, int bytes) {
    std::vector<uint8_t>* out = records_[stream_];
    for (int i = bytes - 1; i >= 0; --i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
  }

  static uint64_t rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
  static uint64_t splitmix(uint64_t& x) {
    uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }

  uint64_t state_[4];
  Mode mode_ = Mode::Seeded;
  int stream_ = 0;
  Stream streams_[2];
  std::vector<uint8_t>* records_[2] = {nullptr, nullptr};
};

}  // namespace tarnell::verify
