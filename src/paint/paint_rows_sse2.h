// What the painting routines share: the dither start and the cursor over the
// noise table, the per-pixel rules in scalar form and in vector form over a
// vector width, the row walker (scalar head up to the destination's 16-byte
// boundary, vector steps, scalar tail), and the workers' walks. The scalar and
// vector forms compute the same integers, so a pixel's result does not depend on
// where in a row it falls, nor on how wide the steps around it are.
//
// The vector forms are written once over a width: `Sse2` here (16 bytes a step),
// a wider one in the file of its level, which names `Sse2` as its Half for a
// step that brings the destination to its own alignment and for its last step.
//
// Everything is at internal linkage, so that files of every level can include it
// (each gets its own copy, built for its own level).
#pragma once

#include <emmintrin.h>

#include <cstdint>
#include <type_traits>

#include "host/inline.h"
#include "host/noise_table.h"
#include "paint/paint.h"

namespace tarnell::paint {
namespace {

// ------------------------------------------------------------------ dither

// Where a call's dither bytes start in the noise table, from the worker's x and
// y (its second and third arguments) and the low 32 bits of the destination's
// address. Unsigned 32-bit arithmetic, wrapping.
TARNELL_INLINE uint32_t ditherStart(int32_t x, int32_t y, const void* destination) {
  auto scramble = [](uint32_t v) { return (v * 1103515245u + 12345u) >> 3; };
  const uint32_t s1 = scramble(static_cast<uint32_t>(y));
  const uint32_t s2 = scramble(s1 ^ static_cast<uint32_t>(x));
  const uint32_t s3 = scramble(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(destination)) ^ s2);
  return s3 % 12281u;
}

// Walks the registered noise table from a call's start position, byte after byte
// over the whole rectangle (row after row, every pixel taking its bytes whether
// it is painted or not); byte k of the walk is the table's byte
// (start + k) mod period. The repeat of the period's start that follows it lets a
// vector step read its run in place.
class Dither {
 public:
  static constexpr uint32_t kRun = 32;  // the longest run read in one piece

  TARNELL_INLINE Dither(int32_t x, int32_t y, const void* destination)
      : base_(g_noiseTable.base), period_(g_noiseTable.period), pos_(ditherStart(x, y, destination) % period_),
        inPlace_(period_ >= kRun && uint64_t{g_noiseTable.size} >= uint64_t{period_} + kRun) {}

  TARNELL_INLINE uint32_t next() {
    const uint32_t b = base_[pos_];
    if (++pos_ == period_) pos_ = 0;
    return b;
  }
  // The next N bytes (N <= kRun), in place or copied to scratch.
  template <uint32_t N>
  TARNELL_INLINE const uint8_t* take(uint8_t* scratch) {
    static_assert(N <= kRun);
    if (inPlace_) {
      const uint8_t* p = base_ + pos_;
      pos_ += N;
      if (pos_ >= period_) pos_ -= period_;
      return p;
    }
    for (uint32_t k = 0; k < N; ++k) scratch[k] = static_cast<uint8_t>(next());
    return scratch;
  }
  // The next n bytes placed `skip` bytes into a run of kRun (n + skip <= kRun),
  // in place or copied to scratch: for a step of which only some lanes are the
  // walk's.
  TARNELL_INLINE const uint8_t* takeSome(uint32_t n, uint32_t skip, uint8_t* scratch) {
    if (inPlace_ && pos_ >= skip) {
      const uint8_t* p = base_ + pos_ - skip;
      pos_ += n;
      if (pos_ >= period_) pos_ -= period_;
      return p;
    }
    for (uint32_t k = 0; k < n; ++k) scratch[skip + k] = static_cast<uint8_t>(next());
    return scratch;
  }

 private:
  const uint8_t* base_;
  uint32_t period_;
  uint32_t pos_;
  bool inPlace_;
};

// A vector step's dither bytes: one run, or (for 64 bytes) two in a row.
struct Noise {
  const uint8_t* first;
  const uint8_t* second;
};
// The next `Bytes` bytes of the walk; scratch holds 2 kRun bytes.
template <uint32_t Bytes>
TARNELL_INLINE Noise takeNoise(Dither& dither, uint8_t* scratch) {
  static_assert(Bytes <= 2 * Dither::kRun);
  if constexpr (Bytes <= Dither::kRun) {
    return {dither.take<Bytes>(scratch), nullptr};
  } else {
    const uint8_t* first = dither.take<Dither::kRun>(scratch);
    return {first, dither.take<Bytes - Dither::kRun>(scratch + Dither::kRun)};
  }
}

// ------------------------------------------------------------------ scalar rules

// (r + ((t + (t >> 16) + 128) >> 8)) >> 8 with t = 257 p: p / 255 with its last
// rounding replaced by the dither byte r.
TARNELL_INLINE int ditherScale(int p, int r) {
  const int t = p * 257;
  return (((t + (t >> 16) + 128) >> 8) + r) >> 8;
}
// d moved by w toward c (w never exceeds |c - d|).
TARNELL_INLINE uint8_t toward(int d, int c, int w) { return static_cast<uint8_t>(c >= d ? d + w : d - w); }
TARNELL_INLINE int distance(int a, int b) { return a > b ? a - b : b - a; }

// Family Q's step (one dither byte) and family P's (two).
TARNELL_INLINE uint8_t stepQ(int d, int c, int m, int r) { return toward(d, c, ditherScale(m * distance(c, d), r)); }
TARNELL_INLINE uint8_t stepP(int d, int c, int m, int o, int r0, int r1) {
  return toward(d, c, ditherScale(ditherScale(m * distance(c, d), r0) * o, r1));
}

// (a b + 16384) >> 15, kept to 16 bits.
TARNELL_INLINE uint32_t mulRound15(uint32_t a, uint32_t b) { return ((a * b + 16384u) >> 15) & 0xFFFFu; }
// (c a + d (32768 - a) + 16384) >> 15 for a <= 32768, as d plus or minus the
// rounded share of |c - d| (the vector form's arithmetic).
TARNELL_INLINE uint16_t blend15(uint32_t d, uint32_t c, uint32_t a) {
  if (c >= d) return static_cast<uint16_t>(d + ((((c - d) * a + 16384u) >> 15) & 0xFFFFu));
  return static_cast<uint16_t>(d - ((((d - c) * a + 16383u) >> 15) & 0xFFFFu));
}

// ------------------------------------------------------------------ vector width

// The operations the vector rules use, 16 bytes at a time. Unsigned where the
// name says u (saturating byte and word arithmetic, high multiply, average,
// byte min and max); cmpgt16 is signed; lo16 and hi16 widen the low and high
// eight bytes (of each 16-byte half, at a wider level) to words, and pack16
// narrows words back with unsigned saturation, in the same order.
struct Sse2 {
  using Vec = __m128i;
  static constexpr int32_t kBytes = 16;
  static constexpr uint32_t kAllBytes = 0xFFFFu;  // movemask of a vector whose every byte is set

  static TARNELL_INLINE Vec loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
  static TARNELL_INLINE Vec loada(const void* p) { return _mm_load_si128(static_cast<const __m128i*>(p)); }
  static TARNELL_INLINE void storeu(void* p, Vec x) { _mm_storeu_si128(static_cast<__m128i*>(p), x); }
  static TARNELL_INLINE void storea(void* p, Vec x) { _mm_store_si128(static_cast<__m128i*>(p), x); }
  static TARNELL_INLINE Vec bytes(int v) { return _mm_set1_epi8(static_cast<char>(v)); }
  static TARNELL_INLINE Vec words(int v) { return _mm_set1_epi16(static_cast<short>(v)); }
  static TARNELL_INLINE Vec zero() { return _mm_setzero_si128(); }
  static TARNELL_INLINE Vec and_(Vec a, Vec b) { return _mm_and_si128(a, b); }
  static TARNELL_INLINE Vec andnot(Vec a, Vec b) { return _mm_andnot_si128(a, b); }
  static TARNELL_INLINE Vec or_(Vec a, Vec b) { return _mm_or_si128(a, b); }
  static TARNELL_INLINE Vec xor_(Vec a, Vec b) { return _mm_xor_si128(a, b); }
  static TARNELL_INLINE Vec add16(Vec a, Vec b) { return _mm_add_epi16(a, b); }
  static TARNELL_INLINE Vec sub16(Vec a, Vec b) { return _mm_sub_epi16(a, b); }
  static TARNELL_INLINE Vec mullo16(Vec a, Vec b) { return _mm_mullo_epi16(a, b); }
  static TARNELL_INLINE Vec mulhiu16(Vec a, Vec b) { return _mm_mulhi_epu16(a, b); }
  static TARNELL_INLINE Vec srl16(Vec a, int n) { return _mm_srli_epi16(a, n); }
  static TARNELL_INLINE Vec avgu16(Vec a, Vec b) { return _mm_avg_epu16(a, b); }
  static TARNELL_INLINE Vec addsu8(Vec a, Vec b) { return _mm_adds_epu8(a, b); }
  static TARNELL_INLINE Vec subsu8(Vec a, Vec b) { return _mm_subs_epu8(a, b); }
  static TARNELL_INLINE Vec subsu16(Vec a, Vec b) { return _mm_subs_epu16(a, b); }
  static TARNELL_INLINE Vec minu8(Vec a, Vec b) { return _mm_min_epu8(a, b); }
  static TARNELL_INLINE Vec maxu8(Vec a, Vec b) { return _mm_max_epu8(a, b); }
  static TARNELL_INLINE Vec cmpeq8(Vec a, Vec b) { return _mm_cmpeq_epi8(a, b); }
  static TARNELL_INLINE Vec cmpeq16(Vec a, Vec b) { return _mm_cmpeq_epi16(a, b); }
  static TARNELL_INLINE Vec cmpgt16(Vec a, Vec b) { return _mm_cmpgt_epi16(a, b); }
  static TARNELL_INLINE Vec lo16(Vec a) { return _mm_unpacklo_epi8(a, _mm_setzero_si128()); }
  static TARNELL_INLINE Vec hi16(Vec a) { return _mm_unpackhi_epi8(a, _mm_setzero_si128()); }
  static TARNELL_INLINE Vec pack16(Vec lo, Vec hi) { return _mm_packus_epi16(lo, hi); }
  static TARNELL_INLINE uint32_t movemask(Vec a) { return static_cast<uint32_t>(_mm_movemask_epi8(a)); }
  // Family P's two dither bytes per pixel as words (a pixel's first byte is its
  // word's low half), for the pixels of lo16 and of hi16.
  static TARNELL_INLINE void noiseWords(const Noise& n, Vec& lo, Vec& hi) {
    lo = loadu(n.first);
    hi = loadu(n.first + 16);
  }
};

// ------------------------------------------------------------------ vector rules

template <class V>
using VecOf = typename V::Vec;

template <class V>
TARNELL_INLINE VecOf<V> select(VecOf<V> where, VecOf<V> yes, VecOf<V> no) {
  return V::or_(V::and_(where, yes), V::andnot(where, no));
}
template <class V>
TARNELL_INLINE bool allZero(VecOf<V> x) {
  return V::movemask(V::cmpeq8(x, V::zero())) == V::kAllBytes;
}

// ditherScale on 16-bit lanes (p <= 65025, r <= 255). (257 p) >> 16 is one high
// multiply, and (257 p + h + 128) >> 8 is p + ((p + h + 128) >> 8), whose terms
// stay below 2^16; so does the sum with r (at most 65535).
template <class V>
TARNELL_INLINE VecOf<V> ditherScaleV(VecOf<V> p, VecOf<V> r) {
  const VecOf<V> h = V::mulhiu16(p, V::words(257));
  const VecOf<V> t1 = V::add16(p, V::srl16(V::add16(V::add16(p, h), V::words(128)), 8));
  return V::srl16(V::add16(t1, r), 8);
}

// The distance of d from c split by direction; exactly one of up and down is
// non-zero where c != d.
template <class V>
struct Apart {
  VecOf<V> up, down, distance;
};
template <class V>
TARNELL_INLINE Apart<V> apart8(VecOf<V> d, VecOf<V> c) {
  const VecOf<V> up = V::subsu8(c, d), down = V::subsu8(d, c);
  return {up, down, V::or_(up, down)};
}
// d moved by w toward c: w never exceeds the distance, so the saturating add
// and subtract of min(w, up) and min(w, down) are exact.
template <class V>
TARNELL_INLINE VecOf<V> towardV(VecOf<V> d, const Apart<V>& a, VecOf<V> w) {
  return V::subsu8(V::addsu8(d, V::minu8(w, a.up)), V::minu8(w, a.down));
}

// Family Q's step, one dither byte per pixel.
template <class V>
TARNELL_INLINE VecOf<V> stepQV(VecOf<V> d, VecOf<V> c, VecOf<V> m, const Noise& n) {
  const Apart<V> a = apart8<V>(d, c);
  const VecOf<V> r = V::loadu(n.first);
  const VecOf<V> lo = ditherScaleV<V>(V::mullo16(V::lo16(a.distance), V::lo16(m)), V::lo16(r));
  const VecOf<V> hi = ditherScaleV<V>(V::mullo16(V::hi16(a.distance), V::hi16(m)), V::hi16(r));
  return towardV<V>(d, a, V::pack16(lo, hi));
}

// Family P's step, two dither bytes per pixel; o holds the opacity in 16-bit
// lanes.
template <class V>
TARNELL_INLINE VecOf<V> stepPHalf(VecOf<V> distance, VecOf<V> m, VecOf<V> o, VecOf<V> n) {
  const VecOf<V> k = ditherScaleV<V>(V::mullo16(distance, m), V::and_(n, V::words(255)));
  return ditherScaleV<V>(V::mullo16(k, o), V::srl16(n, 8));
}
template <class V>
TARNELL_INLINE VecOf<V> stepPV(VecOf<V> d, VecOf<V> c, VecOf<V> m, VecOf<V> o, const Noise& n) {
  const Apart<V> a = apart8<V>(d, c);
  VecOf<V> nLo, nHi;
  V::noiseWords(n, nLo, nHi);
  const VecOf<V> lo = stepPHalf<V>(V::lo16(a.distance), V::lo16(m), o, nLo);
  const VecOf<V> hi = stepPHalf<V>(V::hi16(a.distance), V::hi16(m), o, nHi);
  return towardV<V>(d, a, V::pack16(lo, hi));
}

// Family Q's step where the colour is above the sample; elsewhere w is 0.
template <class V>
TARNELL_INLINE VecOf<V> raiseQV(VecOf<V> d, VecOf<V> c, VecOf<V> m, const Noise& n) {
  const VecOf<V> up = V::subsu8(c, d);
  const VecOf<V> r = V::loadu(n.first);
  const VecOf<V> lo = ditherScaleV<V>(V::mullo16(V::lo16(up), V::lo16(m)), V::lo16(r));
  const VecOf<V> hi = ditherScaleV<V>(V::mullo16(V::hi16(up), V::hi16(m)), V::hi16(r));
  return V::addsu8(d, V::pack16(lo, hi));
}

// mulRound15 on 16-bit lanes: 2 h + ((l + 16384) >> 15) for the product's high
// and low halves h and l, the last term as an average (which keeps its 17th bit).
template <class V>
TARNELL_INLINE VecOf<V> mulRound15V(VecOf<V> a, VecOf<V> b) {
  const VecOf<V> h = V::mulhiu16(a, b), l = V::mullo16(a, b);
  return V::add16(V::add16(h, h), V::srl16(V::avgu16(l, V::words(16383)), 14));
}
// blend15 on 16-bit lanes; the rounding term is 16384 toward a larger c, 16383
// toward a smaller one.
template <class V>
TARNELL_INLINE VecOf<V> blend15V(VecOf<V> d, VecOf<V> c, VecOf<V> a) {
  const VecOf<V> up = V::subsu16(c, d), down = V::subsu16(d, c);
  const VecOf<V> distance = V::or_(up, down);
  const VecOf<V> rising = V::cmpeq16(down, V::zero());
  const VecOf<V> h = V::mulhiu16(distance, a), l = V::mullo16(distance, a);
  const VecOf<V> q =
      V::add16(V::add16(h, h), V::srl16(V::avgu16(l, V::sub16(V::words(16382), rising)), 14));
  return V::sub16(V::add16(d, V::and_(rising, q)), V::andnot(rising, q));
}

// ------------------------------------------------------------------ rows

// Row r of a plane whose first row starts at first: 8-bit planes step by the
// stride, 16-bit planes by the stride rounded down to an even number of bytes.
template <class T>
TARNELL_INLINE T* rowOf(T* first, int32_t stride, int32_t r) {
  const int64_t step = sizeof(T) == 1 ? stride : stride - (stride & 1);
  using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(first) + static_cast<intptr_t>(step * r));
}

// The lanes of a vector step that are the walk's, and how the step reads and
// writes them. Whole: every lane, at a destination aligned to the step's width
// (8-bit rows) or anywhere (16-bit rows). Part: a 16-byte step at the head or
// the tail of a row of which only `count` samples, after `skip` others, are the
// walk's; the others are samples of the same row that the walk has not reached
// yet (head) or has finished (tail), so their lanes are stored back as they are
// in memory.
template <bool Aligned>
struct Whole {
  template <class W>
  TARNELL_INLINE VecOf<W> load(const void* p) const {
    if constexpr (Aligned) return W::loada(p);
    else return W::loadu(p);
  }
  template <class W>
  TARNELL_INLINE void store(void* p, VecOf<W> v) const {
    if constexpr (Aligned) W::storea(p, v);
    else W::storeu(p, v);
  }
  // The step's dither bytes, N a pixel.
  template <class W, int N>
  TARNELL_INLINE Noise noise(Dither& dither, uint8_t* scratch) const {
    return takeNoise<static_cast<uint32_t>(W::kBytes * N)>(dither, scratch);
  }
};

// Bytes 16..31 set: 16 bytes from 32 - n have the first n set, from n the last n.
alignas(16) constexpr uint8_t kLaneEdges[48] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0};

struct Part {
  __m128i lanes;  // the bytes of the walk's samples
  int32_t skip, count;

  // The first `count` samples of a step (the head), or its last (the tail).
  static TARNELL_INLINE Part first(int32_t count, int32_t size) {
    return {Sse2::loadu(kLaneEdges + 32 - count * size), 0, count};
  }
  static TARNELL_INLINE Part last(int32_t count, int32_t size) {
    return {Sse2::loadu(kLaneEdges + count * size), 16 / size - count, count};
  }
  template <class W>
  TARNELL_INLINE VecOf<W> load(const void* p) const {
    return W::loadu(p);
  }
  template <class W>
  TARNELL_INLINE void store(void* p, VecOf<W> v) const {
    W::storeu(p, select<W>(lanes, v, W::loadu(p)));
  }
  // The walk's pixels' dither bytes where the step's lanes expect them.
  template <class W, int N>
  TARNELL_INLINE Noise noise(Dither& dither, uint8_t* scratch) const {
    return {dither.takeSome(static_cast<uint32_t>(N * count), static_cast<uint32_t>(N * skip), scratch), nullptr};
  }
};

// One row of samples of type T. vector(W{}, i, lanes) does a step of W::kBytes
// bytes of samples from i, W being V or, at a wider V, its Half (Sse2), and
// lanes the Whole or Part of it that is the walk's. A row first takes one Part
// step up to the destination's 16-byte boundary, then Whole steps (at a wider
// level one Half step first where the destination is not aligned to its width,
// and one where 16 bytes or more are left), and last one Part step over the
// row's last 16 bytes for what is left. An 8-bit destination is aligned to every
// Whole step; a 16-bit one at an odd address never is, and has no head. Rows of
// fewer than 16 bytes go sample by sample, scalar(i).
template <class V, class T, class Scalar, class Vector>
TARNELL_INLINE void walkRow(const T* d, int32_t columns, Scalar scalar, Vector vector) {
  constexpr auto size = static_cast<int32_t>(sizeof(T));
  constexpr int32_t kHalf = 16 / size;  // samples of a 16-byte step
  if (columns < kHalf) {
    for (int32_t i = 0; i < columns; ++i) scalar(i);
    return;
  }
  constexpr Whole<size == 1> whole{};
  const auto address = reinterpret_cast<uintptr_t>(d);
  const auto misalign = static_cast<int32_t>(address & 15);
  const bool aligns = misalign % size == 0;
  int32_t i = misalign == 0 || !aligns ? 0 : (16 - misalign) / size;
  if (i > 0) vector(Sse2{}, 0, Part::first(i, size));
  if constexpr (V::kBytes > 16) {
    if (aligns && ((address + static_cast<uintptr_t>(i * size)) & (V::kBytes - 1)) != 0 && i + kHalf <= columns) {
      vector(Sse2{}, i, whole);
      i += kHalf;
    }
    for (; i + V::kBytes / size <= columns; i += V::kBytes / size) vector(V{}, i, whole);
    if (i + kHalf <= columns) {
      vector(Sse2{}, i, whole);
      i += kHalf;
    }
  } else {
    for (; i + kHalf <= columns; i += kHalf) vector(V{}, i, whole);
  }
  if (i < columns) vector(Sse2{}, columns - kHalf, Part::last(columns - i, size));
}

// Reads and writes of 16-bit samples at any byte address.
TARNELL_INLINE uint32_t get16(const uint16_t* p) {
  uint16_t v;
  __builtin_memcpy(&v, p, 2);
  return v;
}
TARNELL_INLINE void put16(uint16_t* p, uint32_t v) {
  const auto w = static_cast<uint16_t>(v);
  __builtin_memcpy(p, &w, 2);
}

// The mask plane of the record, and a source channel's first sample.
template <class T>
TARNELL_INLINE const T* maskOf(const PaintRecord* record) {
  return static_cast<const T*>(record->mask);
}
template <class T>
TARNELL_INLINE const T* sourceOf(const PaintRecord* record, int32_t channel) {
  return static_cast<const T*>(record->source[channel]);
}

// Calls body(destination row, mask row, r) for every row.
template <class T, class M, class Body>
TARNELL_INLINE void eachRow(T* plane, int32_t rows, int32_t stride, const M* mask, int32_t maskStride, Body body) {
  for (int32_t r = 0; r < rows; ++r) body(rowOf(plane, stride, r), rowOf(mask, maskStride, r), r);
}

// ------------------------------------------------------------------ walks

// The value painted at a pixel: one colour, or a source channel's samples.
struct Constant8 {
  int value;
  TARNELL_INLINE const Constant8& row(int32_t) const { return *this; }
  TARNELL_INLINE int at(int32_t) const { return value; }
  template <class W>
  TARNELL_INLINE VecOf<W> vec(int32_t) const {
    return W::bytes(value);
  }
};
struct Source8 {
  const uint8_t* s;
  int32_t stride;
  TARNELL_INLINE Source8 row(int32_t r) const { return {rowOf(s, stride, r), stride}; }
  TARNELL_INLINE int at(int32_t i) const { return s[i]; }
  template <class W>
  TARNELL_INLINE VecOf<W> vec(int32_t i) const {
    return W::loadu(s + i);
  }
};
struct Constant16 {
  uint32_t value;
  TARNELL_INLINE const Constant16& row(int32_t) const { return *this; }
  TARNELL_INLINE uint32_t at(int32_t) const { return value; }
  template <class W>
  TARNELL_INLINE VecOf<W> vec(int32_t) const {
    return W::words(static_cast<int>(value));
  }
};
struct Source16 {
  const uint16_t* s;
  int32_t stride;
  TARNELL_INLINE Source16 row(int32_t r) const { return {rowOf(s, stride, r), stride}; }
  TARNELL_INLINE uint32_t at(int32_t i) const { return get16(s + i); }
  template <class W>
  TARNELL_INLINE VecOf<W> vec(int32_t i) const {
    return W::loadu(s + i);
  }
};

// An 8-bit dithered walk: N dither bytes per pixel; pixel(d, c, m, r0, r1) and
// step(W{}, d, c, m, noise) give the new samples. Pixels with a zero mask are
// never written (a vector step whose mask is all zero stores nothing; elsewhere
// such a pixel's rule leaves it as it was).
template <class V, int N, class Colour, class Pixel, class Step>
TARNELL_INLINE void dab8(uint8_t* plane, int32_t x, int32_t y, int32_t rows, int32_t columns, int32_t stride,
                         const PaintRecord* record, const Colour& colour, Pixel pixel, Step step) {
  if (rows < 1 || columns < 1) return;
  Dither dither(x, y, plane);
  alignas(32) uint8_t scratch[2 * Dither::kRun];
  eachRow(plane, rows, stride, maskOf<uint8_t>(record), record->maskStride,
          [&](uint8_t* d, const uint8_t* m, int32_t r) {
            const auto c = colour.row(r);
            walkRow<V>(
                d, columns,
                [&](int32_t i) {
                  const uint32_t r0 = dither.next();
                  const uint32_t r1 = N == 2 ? dither.next() : 0;
                  if (m[i] != 0) d[i] = pixel(d[i], c.at(i), m[i], r0, r1);
                },
                [&](auto w, int32_t i, const auto& lanes) {
                  using W = decltype(w);
                  const Noise n = lanes.template noise<W, N>(dither, scratch);
                  const VecOf<W> mv = W::loadu(m + i);
                  if (allZero<W>(mv)) return;
                  lanes.template store<W>(d + i, step(w, lanes.template load<W>(d + i), c.template vec<W>(i), mv, n));
                });
          });
}

// A 16-bit blending walk: where the mask value m is not zero,
// d := blend15(d, c, alpha(m)); alpha(W{}, m) is the vector form.
template <class V, class Colour, class Alpha, class AlphaV>
TARNELL_INLINE void dab16(uint16_t* plane, int32_t rows, int32_t columns, int32_t stride, const PaintRecord* record,
                          const Colour& colour, Alpha alpha, AlphaV alphaV) {
  if (rows < 1 || columns < 1) return;
  eachRow(plane, rows, stride, maskOf<uint16_t>(record), record->maskStride,
          [&](uint16_t* d, const uint16_t* m, int32_t r) {
            const auto c = colour.row(r);
            walkRow<V>(
                d, columns,
                [&](int32_t i) {
                  const uint32_t mi = get16(m + i);
                  if (mi != 0) put16(d + i, blend15(get16(d + i), c.at(i), alpha(mi)));
                },
                [&](auto w, int32_t i, const auto& lanes) {
                  using W = decltype(w);
                  const VecOf<W> mv = W::loadu(m + i);
                  if (allZero<W>(mv)) return;
                  lanes.template store<W>(
                      d + i, blend15V<W>(lanes.template load<W>(d + i), c.template vec<W>(i), alphaV(w, mv)));
                });
          });
}

// Family R's walk (and slot 9's): where the mask reaches the threshold t (the
// low byte of the argument), put(d) is written; putV(W{}, load, hit, all) gives a
// vector step's samples when at least one mask byte reaches it (hit: those bytes;
// all: every one does; load() reads the destination). Steps where none does
// store nothing.
template <class V, class Put, class PutV>
TARNELL_INLINE void threshold8(uint8_t* plane, int32_t threshold, int32_t rows, int32_t columns, int32_t stride,
                               const PaintRecord* record, Put put, PutV putV) {
  if (rows < 1 || columns < 1) return;
  const auto t = static_cast<uint8_t>(threshold);
  eachRow(plane, rows, stride, maskOf<uint8_t>(record), record->maskStride,
          [&](uint8_t* d, const uint8_t* m, int32_t) {
            walkRow<V>(
                d, columns, [&](int32_t i) { if (m[i] >= t) d[i] = put(d[i]); },
                [&](auto w, int32_t i, const auto& lanes) {
                  using W = decltype(w);
                  const VecOf<W> mv = W::loadu(m + i);
                  const VecOf<W> hit = W::cmpeq8(W::maxu8(mv, W::bytes(t)), mv);
                  const uint32_t bits = W::movemask(hit);
                  if (bits == 0) return;
                  auto load = [&] { return lanes.template load<W>(d + i); };
                  lanes.template store<W>(d + i, putV(w, load, hit, bits == W::kAllBytes));
                });
          });
}

// The rules of the dithered 8-bit families, by the number of dither bytes.
TARNELL_INLINE auto pixelQ() {
  return [](int d, int c, int m, uint32_t r0, uint32_t) { return stepQ(d, c, m, static_cast<int>(r0)); };
}
TARNELL_INLINE auto vectorQ() {
  return [](auto w, auto d, auto c, auto m, const Noise& n) { return stepQV<decltype(w)>(d, c, m, n); };
}
TARNELL_INLINE auto pixelP(int o) {
  return [o](int d, int c, int m, uint32_t r0, uint32_t r1) {
    return stepP(d, c, m, o, static_cast<int>(r0), static_cast<int>(r1));
  };
}
TARNELL_INLINE auto vectorP(int o) {
  return [o](auto w, auto d, auto c, auto m, const Noise& n) {
    using W = decltype(w);
    return stepPV<W>(d, c, m, W::words(o), n);
  };
}
// 16-bit alphas: the mask itself (Q, S), or mask times opacity (P, T).
TARNELL_INLINE auto alphaMask() {
  return [](uint32_t m) { return m; };
}
TARNELL_INLINE auto alphaMaskV() {
  return [](auto, auto m) { return m; };
}
TARNELL_INLINE auto alphaTimes(uint32_t o) {
  return [o](uint32_t m) { return mulRound15(m, o); };
}
TARNELL_INLINE auto alphaTimesV(uint32_t o) {
  return [o](auto w, auto m) {
    using W = decltype(w);
    return mulRound15V<W>(m, W::words(static_cast<int>(o)));
  };
}

}  // namespace
}  // namespace tarnell::paint
