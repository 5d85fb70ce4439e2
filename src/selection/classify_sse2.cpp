// Classification of a region by its marked bytes (128 and up), from the bytewise
// OR and AND of its 16-byte groups. Only whether some byte is marked and some is
// not matters, so a row's last group may overlap the one before it; regions
// narrower than one group go to the host's routine.
#include <emmintrin.h>

#include <cstddef>

#include "host/module_state.h"
#include "selection/selection.h"

namespace tarnell::selection {

int32_t selectionSlot33(const uint8_t* plane, int32_t rows, int32_t count, int32_t step) {
  if (count < 16) return savedRoutine<slot::selectionSlot33>()(plane, rows, count, step);
  __m128i any = _mm_setzero_si128();
  __m128i all = _mm_set1_epi8(-1);
  const uint8_t* row = plane;
  for (int32_t r = 0; r < rows; ++r, row += step) {
    __m128i any2 = _mm_setzero_si128(), all2 = _mm_set1_epi8(-1);
    int32_t i = 0;
    for (; i + 32 <= count; i += 32) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i + 16));
      any = _mm_or_si128(any, a);
      all = _mm_and_si128(all, a);
      any2 = _mm_or_si128(any2, b);
      all2 = _mm_and_si128(all2, b);
    }
    if (i < count) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + (i + 16 <= count ? i : count - 16)));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + count - 16));
      any = _mm_or_si128(any, _mm_or_si128(a, b));
      all = _mm_and_si128(all, _mm_and_si128(a, b));
    }
    any = _mm_or_si128(any, any2);
    all = _mm_and_si128(all, all2);
    // Marked and unmarked bytes both seen: nothing later can change the answer.
    if (_mm_movemask_epi8(any) != 0 && _mm_movemask_epi8(all) != 0xFFFF) return 2;
  }
  const __m128i zero = _mm_setzero_si128();
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(any, zero)) == 0xFFFF) return 0;
  if (_mm_movemask_epi8(any) == 0) return 4;  // nothing marked, not every byte 0
  return _mm_movemask_epi8(_mm_cmpeq_epi8(all, _mm_set1_epi8(-1))) == 0xFFFF ? 1 : 3;
}

constinit const SelectionTable g_classifySse2 = {.selectionSlot33 = &selectionSlot33};

}  // namespace tarnell::selection
