// Block matrix filters (slots 191-194): every output element is a 4 x 4k matrix
// times the group of the last k input elements. The module makes the steps whose
// group lies within the whole groups of the count and hands the rest, with k - 1
// elements of history, to the host's routine of the same slot.
//
// Summation order, shared with the host's routine: for each output channel the
// 4k products are added one after the other, oldest group element first and
// channel 0 first within an element, starting from the first product. In vector
// form each of the 4k products is a column of the matrix times one broadcast
// input channel, added to one accumulator in that order.
#include <emmintrin.h>

#include <cstddef>

#include "filter/filter.h"
#include "host/module_state.h"

namespace tarnell::filter {

namespace {

template <int K>
constexpr int32_t wholeGroups(int32_t count) {
  return count / (4 * K) * (4 * K);
}

template <int C>
inline __m128 channel(__m128 element) {
  return _mm_shuffle_ps(element, element, C * 0x55);
}

// The matrix's columns: column[4j + c] holds the coefficients of input channel c
// of group element j for the four output channels.
template <int K>
struct Columns {
  __m128 column[static_cast<std::size_t>(4 * K)];
  explicit Columns(const float* coefficients) {
    for (int i = 0; i < 4 * K; ++i)
      column[i] =
          _mm_setr_ps(coefficients[i], coefficients[4 * K + i], coefficients[8 * K + i], coefficients[12 * K + i]);
  }
};

template <int K>
inline __m128 apply(const Columns<K>& m, const __m128 (&group)[static_cast<std::size_t>(K)]) {
  __m128 acc = _mm_mul_ps(m.column[0], channel<0>(group[0]));
  acc = _mm_add_ps(acc, _mm_mul_ps(m.column[1], channel<1>(group[0])));
  acc = _mm_add_ps(acc, _mm_mul_ps(m.column[2], channel<2>(group[0])));
  acc = _mm_add_ps(acc, _mm_mul_ps(m.column[3], channel<3>(group[0])));
  for (int j = 1; j < K; ++j) {
    acc = _mm_add_ps(acc, _mm_mul_ps(m.column[4 * j], channel<0>(group[j])));
    acc = _mm_add_ps(acc, _mm_mul_ps(m.column[4 * j + 1], channel<1>(group[j])));
    acc = _mm_add_ps(acc, _mm_mul_ps(m.column[4 * j + 2], channel<2>(group[j])));
    acc = _mm_add_ps(acc, _mm_mul_ps(m.column[4 * j + 3], channel<3>(group[j])));
  }
  return acc;
}

template <int K, int Slot>
int32_t blockMatrix(const float* input, int32_t count, const float* coefficients, uintptr_t hostFourth,
                    uintptr_t hostFifth, float* output) {
  const int32_t whole = wholeGroups<K>(count);
  if (whole <= 0) return 0;
  const Columns<K> m(coefficients);
  const int32_t steps = (whole - 4 * (K - 1)) / 4;
  __m128 group[static_cast<std::size_t>(K)];
  for (int j = 0; j < K - 1; ++j) group[j] = _mm_loadu_ps(input + 4 * j);
  for (int32_t s = 0; s < steps; ++s) {
    group[K - 1] = _mm_loadu_ps(input + 4 * (s + K - 1));
    _mm_storeu_ps(output + 4 * s, apply<K>(m, group));
    for (int j = 0; j + 1 < K; ++j) group[j] = group[j + 1];
  }
  return savedRoutine<code::filt, Slot>()(input + 4 * intptr_t{steps}, count - whole + 4 * (K - 1), coefficients,
                                          hostFourth, hostFifth, output + 4 * intptr_t{steps});
}

}  // namespace

const SlotFnOf<slot::blockMatrixFilter2> blockMatrixFilter2 = &blockMatrix<2, 191>;
const SlotFnOf<slot::blockMatrixFilter3> blockMatrixFilter3 = &blockMatrix<3, 192>;
const SlotFnOf<slot::blockMatrixFilter4> blockMatrixFilter4 = &blockMatrix<4, 193>;
const SlotFnOf<slot::blockMatrixFilter5> blockMatrixFilter5 = &blockMatrix<5, 194>;

}  // namespace tarnell::filter
