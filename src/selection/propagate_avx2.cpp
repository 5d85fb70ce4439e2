// Decaying propagation, AVX2: 32 adjacent lanes a vector step when the lane step
// is 1 and there are 32 lanes or more (rows of 16 to 31 lanes take the 16-lane
// step, every other call the scalar walk, as the baseline body does).
//
// Same bytes: the step is the baseline step16's comparisons on 32 lanes (the
// choice between the position's own pair and the carry made by one blend per
// plane instead of and/andnot/or). The last group of a row of lanes overlaps the
// one before it, which the step allows (see propagate_lanes_sse2.h).
// Measured at 256 lanes x 256 positions (tarnell-host bench --tier sse2,avx2,
// median of three): 1.8x faster than the baseline body; 173k instructions a call
// down to 79k.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "selection/propagate_lanes_sse2.h"
#include "selection/selection.h"

namespace tarnell::selection {
namespace {

struct Lanes32 {
  static constexpr int32_t kLanes = 32;
  static TARNELL_INLINE void step(const uint8_t* prevStrength, const uint8_t* prevValue, uint8_t* strength,
                                  uint8_t* value) {
    const __m256i one = _mm256_set1_epi8(1);
    const __m256i bias = _mm256_set1_epi8(static_cast<char>(0x80));
    const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(prevStrength));
    const __m256i carried = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(prevValue));
    const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(strength));
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(value));
    const __m256i dIsOne = _mm256_cmpeq_epi8(d, one);
    const __m256i same = _mm256_andnot_si256(dIsOne, _mm256_cmpeq_epi8(s, d));
    const __m256i empty = _mm256_cmpeq_epi8(d, _mm256_setzero_si256());
    // d - 1 where d > 1 (unsigned, by biasing both sides).
    const __m256i decayed =
        _mm256_add_epi8(d, _mm256_cmpgt_epi8(_mm256_xor_si256(d, bias), _mm256_xor_si256(one, bias)));
    const __m256i stronger = _mm256_cmpgt_epi8(_mm256_xor_si256(s, bias), _mm256_xor_si256(decayed, bias));
    const __m256i keep = _mm256_or_si256(_mm256_or_si256(same, empty), stronger);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(strength), _mm256_blendv_epi8(decayed, s, keep));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(value), _mm256_blendv_epi8(carried, v, keep));
  }
};

void propagateDecaying32(uint8_t* strength, uint8_t* value, int32_t laneCount, int32_t length, int32_t laneStep,
                       int32_t alongStep) {
  propagate<Lanes32>(strength, value, laneCount, length, laneStep, alongStep);
}

}  // namespace

constinit const SelectionTable g_propagateAvx2 = {.propagateDecaying = &propagateDecaying32};

}  // namespace tarnell::selection
