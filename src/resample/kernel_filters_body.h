// The integer kernel filters' body, shared by the SSE2 and AVX2 files: each
// includes it, so everything keeps internal linkage and is compiled for that
// file's level (SSE2 intrinsics here). The row filters (slots 5 and 13) take
// four outputs per vector step with loops of their own for 2, 4, 6, 8, 10 and 16
// taps; a level may take sixteen outputs of the fixed counts its own way through
// the policy W of filterRows (W::sixteen; the SSE2 one declines). The column
// filter's row kernel (slot 6) is here too.
//
// Loads read exactly the bytes a kernel covers, never past them: the caller
// guarantees only the taps themselves lie inside the source, and the weight table
// ends with the last phase's weights.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "resample/kernel_scalar.h"

namespace tarnell::resample {
namespace {

constexpr int32_t least(int32_t a, int32_t b) { return a < b ? a : b; }
constexpr int32_t most(int32_t a, int32_t b) { return a > b ? a : b; }

// N bytes (0..16) from p into the low bytes of a vector, zero above.
template <int N>
inline __m128i loadBytes(const void* p) {
  const auto* b = static_cast<const unsigned char*>(p);
  if constexpr (N <= 0) {
    return _mm_setzero_si128();
  } else if constexpr (N >= 16) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
  } else if constexpr (N == 8) {
    return _mm_loadl_epi64(static_cast<const __m128i*>(p));
  } else if constexpr (N > 8) {
    return _mm_unpacklo_epi64(_mm_loadl_epi64(static_cast<const __m128i*>(p)), loadBytes<N - 8>(b + 8));
  } else if constexpr (N == 4) {
    uint32_t v;
    std::memcpy(&v, b, 4);
    return _mm_cvtsi32_si128(static_cast<int>(v));
  } else if constexpr (N > 4) {
    return _mm_unpacklo_epi32(loadBytes<4>(b), loadBytes<N - 4>(b + 4));
  } else if constexpr (N >= 2) {
    uint16_t v;
    std::memcpy(&v, b, 2);
    const int rest = N == 3 ? b[2] : 0;
    return _mm_cvtsi32_si128(int{v} | (rest << 16));
  } else {
    return _mm_cvtsi32_si128(b[0]);
  }
}

// The four 32-bit sums of a, b, c and d, as lanes 0..3.
inline __m128i sum4(__m128i a, __m128i b, __m128i c, __m128i d) {
  const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
  const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
  return _mm_add_epi32(_mm_unpacklo_epi64(ab, cd), _mm_unpackhi_epi64(ab, cd));
}

// How a row filter sees its samples: eight taps of samples as 16-bit lanes that
// multiply-add exactly with signed weights (pmaddwd), and how the 32-bit result is
// clamped and stored.
//
// 8-bit samples are zero-extended. 16-bit samples (0..65535 as unsigned values)
// do not fit a signed lane, so they enter as s - 32768 and the sum gets
// 32768 x (sum of the weights) back through the bias; all of it modulo 2^32,
// as the host's 32-bit accumulator.
struct ByteSamples {
  using T = uint8_t;
  template <int Taps>
  static __m128i load(const T* p) {
    return widen(loadBytes<Taps>(p));
  }
  static __m128i widen(__m128i bytes) { return _mm_unpacklo_epi8(bytes, _mm_setzero_si128()); }
  static int32_t bias(const int16_t*, int32_t) { return 8192; }
  static void store4(T* d, __m128i shifted) {
    const __m128i words = _mm_packs_epi32(shifted, shifted);
    const int v = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(d, &v, 4);
  }
  static void store8(T* d, __m128i lo, __m128i hi) {
    const __m128i words = _mm_packs_epi32(lo, hi);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(words, words));
  }
  static T clamp(int32_t v) { return clamp8(v); }
};

struct WordSamples {
  using T = uint16_t;
  template <int Taps>
  static __m128i load(const T* p) {
    return widen(loadBytes<2 * Taps>(p));
  }
  static __m128i widen(__m128i words) { return _mm_xor_si128(words, _mm_set1_epi16(-32768)); }
  static int32_t bias(const int16_t* w, int32_t taps) {
    uint32_t sum = 0;
    for (int32_t k = 0; k < taps; ++k) sum += static_cast<uint32_t>(int32_t{w[k]});
    return static_cast<int32_t>(8192u + (sum << 15));
  }
  // Clamp to 0..32768 and pack through the signed range: v - 32768 packs with
  // saturation (below 0 becomes -32768), the minimum with 0 cuts what was above
  // 32768, and flipping the top bit gives v back.
  static __m128i pack(__m128i lo, __m128i hi) {
    const __m128i full = _mm_set1_epi32(32768);
    const __m128i words = _mm_packs_epi32(_mm_sub_epi32(lo, full), _mm_sub_epi32(hi, full));
    return _mm_xor_si128(_mm_min_epi16(words, _mm_setzero_si128()), _mm_set1_epi16(-32768));
  }
  static void store4(T* d, __m128i shifted) { _mm_storel_epi64(reinterpret_cast<__m128i*>(d), pack(shifted, shifted)); }
  static void store8(T* d, __m128i lo, __m128i hi) { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), pack(lo, hi)); }
  static T clamp(int32_t v) { return clamp16(v); }
};

// One output's partial sums (four 32-bit lanes) for a kernel of Taps taps.
template <class S, int Taps>
struct FixedKernel {
  static constexpr int kGroups = (Taps + 7) / 8;
  __m128i w[static_cast<std::size_t>(kGroups)];
  void loadWeights(const int16_t* weights) {
    for (int g = 0; g < kGroups; ++g) w[g] = loadGroup(weights + 8 * g, g);
  }
  static __m128i loadGroup(const int16_t* p, int g) {
    if (g + 1 < kGroups || Taps % 8 == 0) return loadBytes<16>(p);
    return loadBytes<2 * (Taps % 8)>(p);
  }
  __m128i sum(const typename S::T* p) const {
    __m128i acc = _mm_madd_epi16(loadSamples(p, 0), w[0]);
    for (int g = 1; g < kGroups; ++g) acc = _mm_add_epi32(acc, _mm_madd_epi16(loadSamples(p + 8 * g, g), w[g]));
    return acc;
  }
  static __m128i loadSamples(const typename S::T* p, int g) {
    if (g + 1 < kGroups || Taps % 8 == 0) return S::template load<8>(p);
    return S::template load<Taps % 8>(p);
  }
};

// Rows are filtered in bands: a group of outputs loads its indices and weights
// once per band and then walks down the band's rows. A band holds up to 128 rows
// and about 48 KiB of source, so that the rows stay in the first-level cache
// while the groups move across them.
inline int32_t rowBand(int32_t width, int sampleBytes) {
  const int32_t rowBytes = most(width, 1) * sampleBytes;
  return least(most(49152 / rowBytes, 4), 128);
}

// Four outputs of a kernel wider than a register (16-bit, 10 and 16 taps): each
// output keeps registers of its own, summed across at the end.
template <class S, int Taps>
struct WideGroup {
  using T = typename S::T;
  FixedKernel<S, Taps> k[4];
  intptr_t at[4];
  __m128i bias;
  WideGroup(const int32_t* indices, const uint8_t* phases, const int16_t* weights) {
    int32_t b[4];
    for (int i = 0; i < 4; ++i) {
      const int16_t* w = weights + int32_t{phases[i]} * Taps;
      k[i].loadWeights(w);
      at[i] = firstTap(indices[i], Taps);
      b[i] = S::bias(w, Taps);
    }
    bias = _mm_setr_epi32(b[0], b[1], b[2], b[3]);
  }
  __m128i row(const T* s) const {
    const __m128i acc = sum4(k[0].sum(s + at[0]), k[1].sum(s + at[1]), k[2].sum(s + at[2]), k[3].sum(s + at[3]));
    return _mm_srai_epi32(_mm_add_epi32(acc, bias), 14);
  }
};

// Four outputs of a tap count without a loop of its own. Every load stays inside
// its kernel: below 8 taps, two loads of Half samples, one at the kernel's start and
// one ending at its end (overlapping when the count is not 2 x Half); from 8 taps,
// 8 samples at a time and a last 8 ending at the kernel's end. A sample read twice
// gets weight 0 the second time. The last load's weights are set up once per band.
template <class S, int Half>
struct GeneralGroup {
  using T = typename S::T;
  static constexpr int kHalfBytes = Half * static_cast<int>(sizeof(T));
  const int16_t* w[4];
  intptr_t at[4];
  int32_t n, full;  // taps; loads of 8 before the last (8 taps and more)
  __m128i bias;
  __m128i last[4];

  GeneralGroup(const int32_t* indices, const uint8_t* phases, const int16_t* weights, int32_t taps)
      : n(taps), full(Half == 8 ? (taps - 1) / 8 : 0) {
    int32_t b[4];
    for (int i = 0; i < 4; ++i) {
      w[i] = weights + int32_t{phases[i]} * n;
      at[i] = firstTap(indices[i], n);
      b[i] = S::bias(w[i], n);
      alignas(16) int16_t lanes[8] = {};
      const int from = Half == 8 ? 0 : Half;  // lane of the last load's first sample
      const int counted = Half == 8 ? 8 * full : Half;
      for (int l = 0; l < Half; ++l) {
        if (Half < 8) lanes[l] = w[i][l];
        const int32_t tap = n - Half + l;
        lanes[from + l] = tap >= counted ? w[i][tap] : int16_t{0};
      }
      last[i] = _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
    }
    bias = _mm_setr_epi32(b[0], b[1], b[2], b[3]);
  }
  // Two loads of Half samples side by side in the low bytes.
  static __m128i halves(const T* p, const T* q) {
    const __m128i a = loadBytes<kHalfBytes>(p), b = loadBytes<kHalfBytes>(q);
    if constexpr (kHalfBytes == 8) return _mm_unpacklo_epi64(a, b);
    else if constexpr (kHalfBytes == 4) return _mm_unpacklo_epi32(a, b);
    else if constexpr (kHalfBytes == 2) return _mm_unpacklo_epi16(a, b);
    else return _mm_unpacklo_epi8(a, b);
  }
  __m128i sum(const T* p, int i) const {
    if constexpr (Half < 8) {
      return _mm_madd_epi16(S::widen(halves(p, p + n - Half)), last[i]);
    } else {
      __m128i acc = _mm_madd_epi16(S::template load<8>(p + n - 8), last[i]);
      for (int32_t c = 0; c < full; ++c)
        acc = _mm_add_epi32(acc, _mm_madd_epi16(S::template load<8>(p + 8 * c), loadBytes<16>(w[i] + 8 * c)));
      return acc;
    }
  }
  __m128i row(const T* s) const {
    const __m128i acc = sum4(sum(s + at[0], 0), sum(s + at[1], 1), sum(s + at[2], 2), sum(s + at[3], 3));
    return _mm_srai_epi32(_mm_add_epi32(acc, bias), 14);
  }
};

// The band walk of the row filters: per band of rows, sixteen(x, band's source,
// band's destination, rows) may take sixteen outputs at x (false: declined), then
// groups of four outputs made by make(x) go eight and four at a time, then one
// output at a time with the scalar rule.
template <class S, class Make, class Sixteen>
void filterRowsInBands(const typename S::T* source, typename S::T* destination, int32_t rows, int32_t width,
                       const int32_t* indices, const uint8_t* phases, intptr_t sourceStride,
                       intptr_t destinationStride, int32_t taps, const int16_t* weights, Make make,
                       Sixteen sixteen) {
  using T = typename S::T;
  const int32_t rowsPerBand = rowBand(width, static_cast<int>(sizeof(T)));
  for (int32_t band = 0; band < rows; band += rowsPerBand) {
    const int32_t bandRows = least(rowsPerBand, rows - band);
    const T* src = rowAt(source, band, sourceStride);
    T* dst = rowAt(destination, band, destinationStride);
    int32_t x = 0;
    while (x + 16 <= width && sixteen(x, src, dst, bandRows)) x += 16;
    for (; x + 8 <= width; x += 8) {
      const auto lo = make(x), hi = make(x + 4);
      for (int32_t r = 0; r < bandRows; ++r) {
        const T* s = rowAt(src, r, sourceStride);
        S::store8(rowAt(dst, r, destinationStride) + x, lo.row(s), hi.row(s));
      }
    }
    for (; x + 4 <= width; x += 4) {
      const auto g = make(x);
      for (int32_t r = 0; r < bandRows; ++r) S::store4(rowAt(dst, r, destinationStride) + x, g.row(rowAt(src, r, sourceStride)));
    }
    for (; x < width; ++x) {
      const int16_t* w = weights + int32_t{phases[x]} * taps;
      const intptr_t at = firstTap(indices[x], taps);
      for (int32_t r = 0; r < bandRows; ++r)
        rowAt(dst, r, destinationStride)[x] = S::clamp(kernelSum(rowAt(src, r, sourceStride) + at, 1, w, taps));
    }
  }
}

// How one output's kernel of Taps samples is loaded into a slot of kSlot bytes
// for the packed loop: loads stay inside the kernel (6 and 10 taps overlap two
// loads), and weights() lays the weights out in the slot's sample order, with 0
// for a repeated or padding sample.
template <class S, int Taps>
struct Packing {  // 2, 4 or 8 taps, and 16 of bytes: the kernel's own bytes
  static constexpr int kSlot = Taps * static_cast<int>(sizeof(typename S::T));
  static constexpr bool kWholeSlots = true;  // a slot is one load: two 8-byte slots load as one register
  static __m128i slot(const typename S::T* p) { return loadBytes<kSlot>(p); }
  // The weights in the slot's sample order, one 16-bit lane each (16 lanes: two registers).
  static void weights(const int16_t* w, __m128i& lo, __m128i& hi) {
    lo = loadBytes<2 * (Taps < 8 ? Taps : 8)>(w);
    hi = loadBytes<2 * (Taps - 8 > 0 ? Taps - 8 : 0)>(w + 8);
  }
};
template <class S>
struct Packing<S, 6> {  // samples 0..3, then 2..5
  static constexpr int kSlot = 8 * static_cast<int>(sizeof(typename S::T));
  static constexpr bool kWholeSlots = false;
  static __m128i slot(const typename S::T* p) {
    const __m128i a = loadBytes<kSlot / 2>(p), b = loadBytes<kSlot / 2>(p + 2);
    return kSlot == 8 ? _mm_unpacklo_epi32(a, b) : _mm_unpacklo_epi64(a, b);
  }
  static void weights(const int16_t* w, __m128i& lo, __m128i& hi) {  // w0..w3, 0, 0, w4, w5
    lo = _mm_or_si128(loadBytes<8>(w), _mm_slli_si128(loadBytes<4>(w + 4), 12));
    hi = _mm_setzero_si128();
  }
};
template <>
struct Packing<ByteSamples, 10> {  // samples 0..7, then 6..9
  static constexpr int kSlot = 16;
  static constexpr bool kWholeSlots = false;
  static __m128i slot(const uint8_t* p) { return _mm_unpacklo_epi64(loadBytes<8>(p), loadBytes<4>(p + 6)); }
  static void weights(const int16_t* w, __m128i& lo, __m128i& hi) {  // w0..w7, then 0, 0, w8, w9, 0...
    lo = loadBytes<16>(w);
    hi = _mm_slli_si128(loadBytes<4>(w + 8), 4);
  }
};

// Four outputs of the horizontal filter for a tap count with a Packing: their
// kernels share registers (16 / kSlot outputs per register; 8-byte kernels are
// split in halves, one register holding the first halves of all four), so that the
// sums need few shuffles. 8-bit samples are split into even and odd bytes by a mask and a
// shift instead of being unpacked; with weights laid out to match, two
// multiply-adds give each output's sum (or its halves) in lanes of its own.
template <class S, int Taps>
struct PackedGroup {
  using T = typename S::T;
  using P = Packing<S, Taps>;
  static constexpr bool kBytes = sizeof(T) == 1;
  static constexpr int kRegisters = P::kSlot >= 4 ? P::kSlot / 4 : 1;
  static constexpr auto kArray = static_cast<std::size_t>(kRegisters);
  static constexpr bool kUnpack = kBytes && P::kSlot == 2;  // two taps of bytes: unpack, no even/odd split

  intptr_t at[4];
  __m128i bias;
  __m128i even[kArray], odd[kArray];

  // Puts four slots (of samples, or of 16-bit weights) into the group's registers.
  static void combine(__m128i s0, __m128i s1, __m128i s2, __m128i s3, __m128i* reg) {
    if constexpr (P::kSlot == 16) {
      reg[0] = s0;
      reg[1] = s1;
      reg[2] = s2;
      reg[3] = s3;
    } else if constexpr (P::kSlot == 8) {
      const __m128i ab = _mm_unpacklo_epi32(s0, s1), cd = _mm_unpacklo_epi32(s2, s3);
      reg[0] = _mm_unpacklo_epi64(ab, cd);
      reg[1] = _mm_unpackhi_epi64(ab, cd);
    } else if constexpr (P::kSlot == 4) {
      reg[0] = _mm_unpacklo_epi64(_mm_unpacklo_epi32(s0, s1), _mm_unpacklo_epi32(s2, s3));
    } else {
      reg[0] = _mm_unpacklo_epi32(_mm_unpacklo_epi16(s0, s1), _mm_unpacklo_epi16(s2, s3));
    }
  }
  // The 8 bytes at p in the low half, the 8 at q in the high half.
  static __m128 loadPair(const T* p, const T* q) {
    return _mm_loadh_pi(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))),
                        reinterpret_cast<const __m64*>(q));
  }
  // Lanes 0..3: the sums of four outputs from their registers' multiply-adds.
  static __m128i reduce(const __m128i* acc) {
    if constexpr (kRegisters == 1) return acc[0];
    else if constexpr (kRegisters == 2) return _mm_add_epi32(acc[0], acc[1]);
    else return sum4(acc[0], acc[1], acc[2], acc[3]);
  }
  // Even and odd 16-bit lanes of eight weights, sign-extended to 32 bits.
  static __m128i evenLanes(__m128i w) { return _mm_srai_epi32(_mm_slli_epi32(w, 16), 16); }
  static __m128i oddLanes(__m128i w) { return _mm_srai_epi32(w, 16); }

  PackedGroup(const int32_t* indices, const uint8_t* phases, const int16_t* weights) {
    __m128i lo[4], hi[4];
    for (int i = 0; i < 4; ++i) {
      at[i] = firstTap(indices[i], Taps);
      P::weights(weights + int32_t{phases[i]} * Taps, lo[i], hi[i]);
    }
    if constexpr (!kBytes) {
      // 16-bit slots hold as many bytes as their weights: the same placement serves.
      combine(lo[0], lo[1], lo[2], lo[3], even);
      __m128i sums[kArray];
      for (std::size_t j = 0; j < kArray; ++j) {
        odd[j] = even[j];
        sums[j] = _mm_madd_epi16(even[j], _mm_set1_epi16(1));
      }
      bias = _mm_add_epi32(_mm_slli_epi32(reduce(sums), 15), _mm_set1_epi32(8192));
      return;
    }
    bias = _mm_set1_epi32(8192);
    if constexpr (kUnpack) {
      even[0] = odd[0] = _mm_unpacklo_epi64(_mm_unpacklo_epi32(lo[0], lo[1]), _mm_unpacklo_epi32(lo[2], lo[3]));
    } else if constexpr (P::kSlot == 16) {
      for (std::size_t i = 0; i < 4; ++i) {
        even[i] = _mm_packs_epi32(evenLanes(lo[i]), evenLanes(hi[i]));
        odd[i] = _mm_packs_epi32(oddLanes(lo[i]), oddLanes(hi[i]));
      }
    } else {
      // Lane m of the even weights belongs to byte 2m of a register, of the odd ones
      // to byte 2m + 1; register j holds part j of each output's slot.
      for (std::size_t j = 0; j < kArray; ++j) {
        const __m128i ab = j == 0 ? _mm_unpacklo_epi64(lo[0], lo[1]) : _mm_unpackhi_epi64(lo[0], lo[1]);
        const __m128i cd = j == 0 ? _mm_unpacklo_epi64(lo[2], lo[3]) : _mm_unpackhi_epi64(lo[2], lo[3]);
        even[j] = _mm_packs_epi32(evenLanes(ab), evenLanes(cd));
        odd[j] = _mm_packs_epi32(oddLanes(ab), oddLanes(cd));
      }
    }
  }

  // The four results of source row s, shifted but not yet clamped.
  __m128i row(const T* s) const {
    __m128i reg[kArray];
    registers(s, reg);
    __m128i acc[kArray];
    for (std::size_t j = 0; j < kArray; ++j) {
      if constexpr (kUnpack)
        acc[j] = _mm_madd_epi16(_mm_unpacklo_epi8(reg[j], _mm_setzero_si128()), even[j]);
      else if constexpr (kBytes)
        acc[j] = _mm_add_epi32(_mm_madd_epi16(_mm_and_si128(reg[j], _mm_set1_epi16(0xFF)), even[j]),
                               _mm_madd_epi16(_mm_srli_epi16(reg[j], 8), odd[j]));
      else
        acc[j] = _mm_madd_epi16(_mm_xor_si128(reg[j], _mm_set1_epi16(-32768)), even[j]);
    }
    const __m128i sum = reduce(acc);
    return _mm_srai_epi32(_mm_add_epi32(sum, bias), 14);
  }

  // The four outputs' kernels of source row s, in the group's registers.
  void registers(const T* s, __m128i* reg) const {
    if constexpr (P::kSlot == 8 && P::kWholeSlots) {
      // Slots 0|1 and 2|3 load as two registers (the high halves merged by the load
      // itself); one shuffle each then gathers the first and the second halves.
      const __m128 a = loadPair(s + at[0], s + at[1]), b = loadPair(s + at[2], s + at[3]);
      reg[0] = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
      reg[1] = _mm_castps_si128(_mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    } else {
      combine(P::slot(s + at[0]), P::slot(s + at[1]), P::slot(s + at[2]), P::slot(s + at[3]), reg);
    }
  }
};

// Four outputs whose kernels start one dword of samples apart (4 bytes, 2 words):
// lane i of register j holds dword j of output i's kernel, so that one unaligned
// load gives register j for all four, with no shuffle. The last dword of a kernel
// that is not a whole number of them (6 and 10 bytes) ends at the kernel's end and
// overlaps the one before, its repeated samples weighted 0: no load passes the
// last output's kernel.
template <class S, int Taps>
struct StepGroup {
  using T = typename S::T;
  static constexpr bool kBytes = sizeof(T) == 1;
  static constexpr int kStep = 4 / static_cast<int>(sizeof(T));  // samples per dword
  static constexpr int kRegisters = (Taps + kStep - 1) / kStep;
  static constexpr auto kArray = static_cast<std::size_t>(kRegisters);
  static_assert(Taps >= kStep && (kBytes || Taps % kStep == 0));
  // First sample of dword j, and how many of its samples an earlier dword counted.
  static constexpr int offset(int j) { return least(kStep * j, Taps - kStep); }
  static constexpr int repeated(int j) { return kStep * j - offset(j); }

  intptr_t at;
  __m128i bias;
  __m128i even[kArray], odd[kArray];  // bytes: weights of the even and odd bytes; words: even only

  // Output i is at indices[kStep * i].
  StepGroup(const int32_t* indices, const uint8_t* phases, const int16_t* weights) {
    at = firstTap(indices[0], Taps);
    const int16_t* w[4];
    for (int i = 0; i < 4; ++i) w[i] = weights + int32_t{phases[kStep * i]} * Taps;
    if constexpr (kBytes) {
      // Four weights per lane, split as the samples are: bytes 0 and 2, bytes 1 and 3.
      bias = _mm_set1_epi32(8192);
      for (std::size_t j = 0; j < kArray; ++j) {
        const int k = offset(static_cast<int>(j));
        const auto own = [&](__m128i c) {  // zero the weights of repeated samples
          const int bits = 16 * repeated(static_cast<int>(j));
          return _mm_slli_epi64(_mm_srli_epi64(c, bits), bits);
        };
        const __m128i ab = own(_mm_unpacklo_epi64(loadBytes<8>(w[0] + k), loadBytes<8>(w[1] + k)));
        const __m128i cd = own(_mm_unpacklo_epi64(loadBytes<8>(w[2] + k), loadBytes<8>(w[3] + k)));
        even[j] = _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(ab, 16), 16), _mm_srai_epi32(_mm_slli_epi32(cd, 16), 16));
        odd[j] = _mm_packs_epi32(_mm_srai_epi32(ab, 16), _mm_srai_epi32(cd, 16));
      }
    } else {
      // Two weights per lane: a transpose of the weight sets' dwords, four at a time.
      for (int c = 0; c < kRegisters; c += 4) {
        __m128i r[4];
        for (int i = 0; i < 4; ++i) r[i] = loadDwords(w[i] + 2 * c, kRegisters - c);
        const __m128i t0 = _mm_unpacklo_epi32(r[0], r[1]), t1 = _mm_unpackhi_epi32(r[0], r[1]);
        const __m128i t2 = _mm_unpacklo_epi32(r[2], r[3]), t3 = _mm_unpackhi_epi32(r[2], r[3]);
        const __m128i d[4] = {_mm_unpacklo_epi64(t0, t2), _mm_unpackhi_epi64(t0, t2), _mm_unpacklo_epi64(t1, t3),
                              _mm_unpackhi_epi64(t1, t3)};
        for (int j = c; j < least(c + 4, kRegisters); ++j) even[j] = odd[j] = d[j - c];
      }
      __m128i sums = _mm_setzero_si128();
      for (std::size_t j = 0; j < kArray; ++j) sums = _mm_add_epi32(sums, _mm_madd_epi16(even[j], _mm_set1_epi16(1)));
      bias = _mm_add_epi32(_mm_slli_epi32(sums, 15), _mm_set1_epi32(8192));
    }
  }
  // The first n dwords at p, at most four.
  static __m128i loadDwords(const int16_t* p, int n) {
    switch (n) {
      case 1: return loadBytes<4>(p);
      case 2: return loadBytes<8>(p);
      case 3: return loadBytes<12>(p);
      default: return loadBytes<16>(p);
    }
  }

  // The four results of source row s, shifted but not yet clamped.
  __m128i row(const T* s) const {
    __m128i acc = bias;
    for (std::size_t j = 0; j < kArray; ++j) {
      const __m128i reg = loadBytes<16>(s + at + offset(static_cast<int>(j)));
      if constexpr (kBytes)
        acc = _mm_add_epi32(acc, _mm_add_epi32(_mm_madd_epi16(_mm_and_si128(reg, _mm_set1_epi16(0xFF)), even[j]),
                                               _mm_madd_epi16(_mm_srli_epi16(reg, 8), odd[j])));
      else
        acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_xor_si128(reg, _mm_set1_epi16(-32768)), even[j]));
    }
    return _mm_srai_epi32(acc, 14);
  }
};

// Sixteen outputs whose kernels start one sample apart, as a plain convolution
// reads them: kStep step groups of interleaved outputs (group r holds outputs
// r, r + kStep, ...), stored back in order.
template <class S, int Taps>
struct StepBlock {
  using T = typename S::T;
  using G = StepGroup<S, Taps>;
  static constexpr int kStep = G::kStep;
  G g[4];
  StepBlock(const int32_t* indices, const uint8_t* phases, const int16_t* weights)
      : g{G(indices + first(0), phases + first(0), weights), G(indices + first(1), phases + first(1), weights),
          G(indices + first(2), phases + first(2), weights), G(indices + first(3), phases + first(3), weights)} {}
  // Output of lane 0 of group n: bytes 0, 1, 2, 3; words 0, 1, 8, 9.
  static constexpr int first(int n) { return kStep == 4 ? n : n % 2 + 8 * (n / 2); }

  void row(const T* s, T* d) const {
    const __m128i r0 = g[0].row(s), r1 = g[1].row(s), r2 = g[2].row(s), r3 = g[3].row(s);
    if constexpr (kStep == 2) {
      S::store8(d, _mm_unpacklo_epi32(r0, r1), _mm_unpackhi_epi32(r0, r1));
      S::store8(d + 8, _mm_unpacklo_epi32(r2, r3), _mm_unpackhi_epi32(r2, r3));
    } else {
      // Words 0 4 8 12 1 5 9 13 and 2 6 10 14 3 7 11 15; even and odd outputs; bytes.
      const __m128i a = _mm_packs_epi32(r0, r1), b = _mm_packs_epi32(r2, r3);
      const __m128i bytes = _mm_packus_epi16(_mm_unpacklo_epi16(a, b), _mm_unpackhi_epi16(a, b));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_unpacklo_epi8(bytes, _mm_unpackhi_epi64(bytes, bytes)));
    }
  }
};

// Two taps of bytes span half a dword: the even outputs take byte pairs (0, 1),
// (2, 3)... of the sixteen bytes at the first position, the odd ones those of the
// sixteen after it, which end where the last output's kernel ends.
template <>
struct StepBlock<ByteSamples, 2> {
  intptr_t at;
  __m128i w[4];  // a weight pair per lane: outputs 0 2 4 6, 8 10 12 14, 1 3 5 7, 9 11 13 15
  StepBlock(const int32_t* indices, const uint8_t* phases, const int16_t* weights) : at(firstTap(indices[0], 2)) {
    for (int g = 0; g < 4; ++g) {
      int32_t pair[4];
      for (int m = 0; m < 4; ++m) std::memcpy(&pair[m], weights + 2 * int32_t{phases[g / 2 + 8 * (g % 2) + 2 * m]}, 4);
      w[g] = _mm_setr_epi32(pair[0], pair[1], pair[2], pair[3]);
    }
  }
  void row(const uint8_t* s, uint8_t* d) const {
    const __m128i zero = _mm_setzero_si128(), half = _mm_set1_epi32(8192);
    const __m128i even = loadBytes<16>(s + at), odd = loadBytes<16>(s + at + 1);
    const auto sums = [&](__m128i bytes, __m128i weightPairs) {
      return _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(bytes, weightPairs), half), 14);
    };
    const __m128i e0 = sums(_mm_unpacklo_epi8(even, zero), w[0]), e1 = sums(_mm_unpackhi_epi8(even, zero), w[1]);
    const __m128i o0 = sums(_mm_unpacklo_epi8(odd, zero), w[2]), o1 = sums(_mm_unpackhi_epi8(odd, zero), w[3]);
    const __m128i lo = _mm_packs_epi32(_mm_unpacklo_epi32(e0, o0), _mm_unpackhi_epi32(e0, o0));
    const __m128i hi = _mm_packs_epi32(_mm_unpacklo_epi32(e1, o1), _mm_unpackhi_epi32(e1, o1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
  }
};

// True when the sixteen positions at p step by one sample.
inline bool stepsByOne(const int32_t* p) {
  const __m128i base = _mm_set1_epi32(p[0]);
  __m128i same = _mm_set1_epi32(-1);
  for (int i = 0; i < 16; i += 4) {
    const __m128i want = _mm_add_epi32(base, _mm_setr_epi32(i, i + 1, i + 2, i + 3));
    same = _mm_and_si128(same, _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)), want));
  }
  return _mm_movemask_epi8(same) == 0xFFFF;
}

// The horizontal filter for a fixed tap count, by groups G of four outputs: sixteen
// outputs a step (stepping blocks where the positions step by one), then eight,
// four, and one at a time with the scalar rule.
template <class S, int Taps, template <class, int> class Group, class W>
void filterRowsFixed(const typename S::T* source, typename S::T* destination, int32_t rows, int32_t width,
                     const int32_t* indices, const uint8_t* phases, intptr_t sourceStride,
                     intptr_t destinationStride, const int16_t* weights) {
  using T = typename S::T;
  using G = Group<S, Taps>;
  const auto make = [=](int32_t x) { return G(indices + x, phases + x, weights); };
  const auto sixteen = [=](int32_t x, const T* s, T* d, int32_t bandRows) {
    d += x;
    if (stepsByOne(indices + x)) {
      const StepBlock<S, Taps> block(indices + x, phases + x, weights);
      for (int32_t r = 0; r < bandRows; ++r, s += sourceStride, d += destinationStride) block.row(s, d);
      return true;
    }
    if (W::template sixteen<S, Taps, Group>(indices + x, phases + x, weights, s, d, bandRows, sourceStride,
                                            destinationStride))
      return true;
    const G a = make(x), b = make(x + 4), c = make(x + 8), e = make(x + 12);
    for (int32_t r = 0; r < bandRows; ++r, s += sourceStride, d += destinationStride) {
      S::store8(d, a.row(s), b.row(s));
      S::store8(d + 8, c.row(s), e.row(s));
    }
    return true;
  };
  filterRowsInBands<S>(source, destination, rows, width, indices, phases, sourceStride, destinationStride, Taps,
                       weights, make, sixteen);
}

// Picks the loop for the tap count: the specialised ones the host uses most, the
// general one for everything else.
template <class S, class W>
void filterRows(const typename S::T* source, typename S::T* destination, int32_t rows, int32_t width,
                const int32_t* indices, const uint8_t* phases, intptr_t sourceStride, intptr_t destinationStride,
                int16_t taps, const int16_t* weights) {
  if (rows < 1 || width < 1) return;
  // 16-bit kernels of 10 and 16 taps span more than a register.
  constexpr bool kWords = sizeof(typename S::T) == 2;
  const auto fixed = [&]<int K>() {
    if constexpr (kWords && K > 8)
      filterRowsFixed<S, K, WideGroup, W>(source, destination, rows, width, indices, phases, sourceStride,
                                       destinationStride, weights);
    else
      filterRowsFixed<S, K, PackedGroup, W>(source, destination, rows, width, indices, phases, sourceStride,
                                         destinationStride, weights);
  };
  switch (taps) {
    case 2: return fixed.template operator()<2>();
    case 4: return fixed.template operator()<4>();
    case 6: return fixed.template operator()<6>();
    case 8: return fixed.template operator()<8>();
    case 10: return fixed.template operator()<10>();
    case 16: return fixed.template operator()<16>();
    default:
      break;
  }
  // Other counts: no sixteen-output step.
  const auto general = [&]<int Half>() {
    filterRowsInBands<S>(
        source, destination, rows, width, indices, phases, sourceStride, destinationStride, taps, weights,
        [=](int32_t x) { return GeneralGroup<S, Half>(indices + x, phases + x, weights, taps); },
        [](int32_t, const typename S::T*, typename S::T*, int32_t) { return false; });
  };
  if (taps >= 8) return general.template operator()<8>();
  if (taps >= 4) return general.template operator()<4>();
  if (taps >= 2) return general.template operator()<2>();
  if (taps == 1) return general.template operator()<1>();
  // No taps (or a negative count): the rounding term alone, 0 for every output.
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t x = 0; x < width; ++x) rowAt(destination, r, destinationStride)[x] = typename S::T{0};
}

// The SSE2 policy: no sixteen-output step of its own.
struct Sse2Rows {
  template <class S, int Taps, template <class, int> class Group>
  static bool sixteen(const int32_t*, const uint8_t*, const int16_t*, const typename S::T*, typename S::T*, int32_t,
                      intptr_t, intptr_t) {
    return false;
  }
};

// ------------------------------------------------------- the column filter
// Every sample of an output row uses the same weights, so rows are taken two at a
// time: their bytes are interleaved and multiply-added with a (weight, weight)
// pair, sixteen samples per step, then four, then one.

__m128i weightPair(int16_t a, int16_t b) {
  return _mm_set1_epi32(static_cast<int32_t>(static_cast<uint16_t>(a) | (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16)));
}

// Adds pair j of the kernel to the sums of 16 samples (four lanes each).
struct Sixteen {
  __m128i acc[4] = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
  void add(__m128i a, __m128i b, __m128i pair) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(a, b), hi = _mm_unpackhi_epi8(a, b);
    acc[0] = _mm_add_epi32(acc[0], _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), pair));
    acc[1] = _mm_add_epi32(acc[1], _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), pair));
    acc[2] = _mm_add_epi32(acc[2], _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), pair));
    acc[3] = _mm_add_epi32(acc[3], _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), pair));
  }
  static __m128i finish(__m128i v) { return _mm_srai_epi32(_mm_add_epi32(v, _mm_set1_epi32(8192)), 14); }
  void store(uint8_t* d) const {
    const __m128i lo = _mm_packs_epi32(finish(acc[0]), finish(acc[1]));
    const __m128i hi = _mm_packs_epi32(finish(acc[2]), finish(acc[3]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
  }
};

struct Four {
  __m128i acc = _mm_setzero_si128();
  void add(__m128i a, __m128i b, __m128i pair) {
    acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi8(_mm_unpacklo_epi8(a, b), _mm_setzero_si128()), pair));
  }
  void store(uint8_t* d) const { ByteSamples::store4(d, Sixteen::finish(acc)); }
};

// No wider step than sixteen samples (the SSE2 column filter).
struct NoWideColumns {
  static constexpr int32_t kSamples = 0;
  void add(__m128i, __m128i, __m128i) {}
  void store(uint8_t*) const {}
  static __m128i load(const uint8_t*) { return _mm_setzero_si128(); }
};

// One output row: Wide::kSamples a step (when a level has such a step), then
// sixteen, four and one. Taps > 0 fixed at compile time for the unrolled loops; 0
// for the general loop, which takes the count at run time (none or negative:
// zeros).
template <class Wide, int Fixed>
void columnRow(const uint8_t* row0, intptr_t stride, const int16_t* w, int32_t taps, uint8_t* d, int32_t width) {
  const int32_t n = Fixed > 0 ? Fixed : most(taps, 0);
  const int32_t pairs = n / 2;
  auto kernel = [&](auto& sums, auto load, int32_t x) {
    for (int32_t j = 0; j < pairs; ++j) {
      const uint8_t* p = row0 + (2 * j) * stride + x;
      sums.add(load(p), load(p + stride), weightPair(w[2 * j], w[2 * j + 1]));
    }
    if (n % 2 != 0) {
      const auto last = load(row0 + (n - 1) * stride + x);
      sums.add(last, decltype(last){}, weightPair(w[n - 1], 0));  // the row paired with zeros
    }
  };
  int32_t x = 0;
  if constexpr (Wide::kSamples > 0)
    for (; x + Wide::kSamples <= width; x += Wide::kSamples) {
      Wide s;
      kernel(s, [](const uint8_t* p) { return Wide::load(p); }, x);
      s.store(d + x);
    }
  for (; x + 16 <= width; x += 16) {
    Sixteen s;
    kernel(s, [](const uint8_t* p) { return loadBytes<16>(p); }, x);
    s.store(d + x);
  }
  for (; x + 4 <= width; x += 4) {
    Four s;
    kernel(s, [](const uint8_t* p) { return loadBytes<4>(p); }, x);
    s.store(d + x);
  }
  for (; x < width; ++x) d[x] = clamp8(kernelSum(row0 + x, stride, w, n));
}

// The column filter's row for any tap count: the unrolled loops for 2, 4, 6, 8.
template <class Wide>
void columnRowFor(const uint8_t* row0, intptr_t stride, const int16_t* w, int32_t taps, uint8_t* d, int32_t width) {
  switch (taps) {
    case 2: return columnRow<Wide, 2>(row0, stride, w, taps, d, width);
    case 4: return columnRow<Wide, 4>(row0, stride, w, taps, d, width);
    case 6: return columnRow<Wide, 6>(row0, stride, w, taps, d, width);
    case 8: return columnRow<Wide, 8>(row0, stride, w, taps, d, width);
    default: return columnRow<Wide, 0>(row0, stride, w, taps, d, width);
  }
}

}  // namespace
}  // namespace tarnell::resample
