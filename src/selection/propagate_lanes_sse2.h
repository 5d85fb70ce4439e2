// What the bodies of the decaying propagation share: the rule for one position,
// in scalar form and on 16 adjacent lanes, and the walk over a call's lanes.
//
// After position k of a lane is done, the carried strength and value are exactly
// the pair stored at k: a position is either taken over as the new carry (and
// keeps its own pair) or overwritten with the carry. So every position depends
// only on the finished position before it, and all lanes can advance together,
// one position at a time. With adjacent lanes (lane step 1) that is a vector's
// width of lanes a step; applying the step twice to a position gives the same
// pair, so the last group of a row of lanes may overlap the one before it.
//
// Everything is at internal linkage, so that files of every level can include it.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "host/inline.h"

namespace tarnell::selection {
namespace {

// One position: d and carried are the previous position's finished pair.
TARNELL_INLINE void step(uint8_t d, uint8_t carried, uint8_t& strength, uint8_t& value) {
  const uint8_t s = strength;
  if (d != 1) {
    if (s == d) return;  // the carry takes this position's value, nothing written
    if (d > 1) --d;      // a strength of 1 never decays
    if (d == 0) return;  // an empty carry takes this position over
  }
  if (s > d) return;     // a stronger position starts a new carry
  strength = d;
  value = carried;
}

// 16 adjacent lanes at position k, from their finished pairs at k - 1.
TARNELL_INLINE void step16(const uint8_t* prevStrength, const uint8_t* prevValue, uint8_t* strength, uint8_t* value) {
  const __m128i one = _mm_set1_epi8(1);
  const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(prevStrength));
  const __m128i carried = _mm_loadu_si128(reinterpret_cast<const __m128i*>(prevValue));
  const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(strength));
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(value));
  const __m128i dIsOne = _mm_cmpeq_epi8(d, one);
  const __m128i same = _mm_andnot_si128(dIsOne, _mm_cmpeq_epi8(s, d));
  const __m128i empty = _mm_cmpeq_epi8(d, _mm_setzero_si128());
  // d - 1 where d > 1 (unsigned, by biasing both sides).
  const __m128i decayed = _mm_add_epi8(d, _mm_cmpgt_epi8(_mm_xor_si128(d, bias), _mm_xor_si128(one, bias)));
  const __m128i stronger = _mm_cmpgt_epi8(_mm_xor_si128(s, bias), _mm_xor_si128(decayed, bias));
  const __m128i keep = _mm_or_si128(_mm_or_si128(same, empty), stronger);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(strength), _mm_or_si128(_mm_and_si128(keep, s), _mm_andnot_si128(keep, decayed)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(value), _mm_or_si128(_mm_and_si128(keep, v), _mm_andnot_si128(keep, carried)));
}

// The whole call. Wide::step does Wide::kLanes adjacent lanes (16 or more) the
// way step16 does 16; rows of fewer lanes than that go 16 at a time.
template <class Wide>
TARNELL_INLINE void propagate(uint8_t* strength, uint8_t* value, int32_t laneCount, int32_t length, int32_t laneStep,
                              int32_t alongStep) {
  if (length <= 1 || laneCount <= 0) return;
  const auto along = static_cast<std::ptrdiff_t>(alongStep);
  if (laneStep == 1 && laneCount >= 16) {
    const bool wide = laneCount >= Wide::kLanes;
    const int32_t group = wide ? Wide::kLanes : 16;
    for (int32_t k = 1; k < length; ++k) {
      uint8_t* s = strength + k * along;
      uint8_t* v = value + k * along;
      for (int32_t i = 0;; i += group) {
        if (i > laneCount - group) i = laneCount - group;  // the last group overlaps the one before
        if (wide) {
          Wide::step(s + i - along, v + i - along, s + i, v + i);
        } else {
          step16(s + i - along, v + i - along, s + i, v + i);
        }
        if (i == laneCount - group) break;
      }
    }
    return;
  }
  const auto lane = static_cast<std::ptrdiff_t>(laneStep);
  for (int32_t i = 0; i < laneCount; ++i) {
    uint8_t* s = strength + i * lane;
    uint8_t* v = value + i * lane;
    for (int32_t k = 1; k < length; ++k) step(s[(k - 1) * along], v[(k - 1) * along], s[k * along], v[k * along]);
  }
}

}  // namespace
}  // namespace tarnell::selection
