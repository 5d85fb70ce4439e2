// The float composites driven by a parameter record, and the float minimum.
//
// Every record routine runs the same entry: the nothing-to-do test, the layout
// test (every present plane packed, sample step 4, row stride >= 0), the case
// number (4 with a source, + 2 with a mask, + 1 below full opacity) and the
// dispatch to a loop of its own for the cases it accelerates. Those loops run in
// the caller's rounding mode; the general loop, which reads the whole record and
// honours any sample step and stride, and MinSourceFloat run with rounding set to
// truncation and give the caller's control word back on every return.
//
// A row is a scalar head up to the destination's 16-byte boundary, a vector body
// of four samples a step and a scalar tail; the scalar and vector forms do the
// same single-precision operations in the same order, so the result does not
// depend on alignment or width. The loops over packed planes are this file's
// SSE2 kernels or blendf_avx2.cpp's; the entries here serve both.
#include <emmintrin.h>

#include <cstdint>
#include <type_traits>

#include "blend/blendf.h"
#include "blend/blendf_packed.h"
#include "host/inline.h"
#include "host/module_state.h"

namespace tarnell::blendf {

namespace {


// Rounding toward zero for the guard's life; the caller's whole control and
// status word comes back when it ends, whichever way the routine returns.
class TruncatingRounding {
 public:
  TruncatingRounding() {
    asm volatile("stmxcsr %0" : "=m"(saved_));
    const uint32_t truncating = saved_ | 0x6000u;
    asm volatile("ldmxcsr %0" : : "m"(truncating) : "memory");
  }
  ~TruncatingRounding() { asm volatile("ldmxcsr %0" : : "m"(saved_) : "memory"); }
  TruncatingRounding(const TruncatingRounding&) = delete;
  TruncatingRounding& operator=(const TruncatingRounding&) = delete;

 private:
  uint32_t saved_;
};

// The compiler assumes the default floating-point environment. A value passed
// through here is one it can neither compute before the mode in force was set nor
// fold into an identity that flush-to-zero or denormals-are-zero would break (a
// sample kept as d must keep its bits, not become d + -0).
TARNELL_INLINE float opaque(float v) {
  asm volatile("" : "+x"(v));
  return v;
}
TARNELL_INLINE __m128 opaque(__m128 v) {
  asm("" : "+x"(v));
  return v;
}
TARNELL_INLINE float opacityWeight(uint8_t opacity) { return opaque(static_cast<float>(opacity)) / 255.0f; }

// Byte strides and steps become float strides by an arithmetic shift.
TARNELL_INLINE std::ptrdiff_t floats(int32_t bytes) { return static_cast<std::ptrdiff_t>(bytes >> 2); }

TARNELL_INLINE __m128 select(__m128 where, __m128 yes, __m128 no) {
  return _mm_or_ps(_mm_and_ps(where, yes), _mm_andnot_ps(where, no));
}

// ---------------------------------------------------------------- operations
// apply(d, s, w) gives the new destination sample; Weighted false: w is 1 and no
// multiply is done (the cases without opacity or mask).

// Moves d toward s where s lies on the routine's side of d: above it (lighten)
// or below it (darken).
template <bool Below>
struct Toward {
  static constexpr PackedLoop* PackedLoops::*loop = Below ? &PackedLoops::darken : &PackedLoops::lighten;
  template <bool Weighted>
  static TARNELL_INLINE float apply(float d, float s, float w) {
    if (!(Below ? d > s : s > d)) return d;
    float t = s - d;
    if (Weighted) t = t * w;
    return opaque(d + t);
  }
  template <bool Weighted>
  static TARNELL_INLINE __m128 apply(__m128 d, __m128 s, __m128 w) {
    __m128 t = _mm_sub_ps(s, d);
    if (Weighted) t = _mm_mul_ps(t, w);
    return select(Below ? _mm_cmpgt_ps(d, s) : _mm_cmpgt_ps(s, d), opaque(_mm_add_ps(d, t)), d);
  }
};
using Lighten = Toward<false>;
using Darken = Toward<true>;

// d + w s, no clamping.
struct Add {
  static constexpr PackedLoop* PackedLoops::*loop = &PackedLoops::add;
  template <bool Weighted>
  static TARNELL_INLINE float apply(float d, float s, float w) {
    return d + (Weighted ? w * s : s);
  }
  template <bool Weighted>
  static TARNELL_INLINE __m128 apply(__m128 d, __m128 s, __m128 w) {
    return _mm_add_ps(d, Weighted ? _mm_mul_ps(w, s) : s);
  }
};

// r = 2 d s below d = 0.5, else 1 - 2 (1 - d)(1 - s); then d + (r - d) w.
struct Overlay {
  static constexpr PackedLoop* PackedLoops::*loop = &PackedLoops::overlay;
  template <bool Weighted>
  static TARNELL_INLINE float apply(float d, float s, float w) {
    const float r = d < 0.5f ? (2.0f * d) * s : 1.0f - (2.0f * (1.0f - d)) * (1.0f - s);
    float t = r - d;
    if (Weighted) t = t * w;
    return d + t;
  }
  template <bool Weighted>
  static TARNELL_INLINE __m128 apply(__m128 d, __m128 s, __m128 w) {
    const __m128 half = _mm_set1_ps(0.5f), one = _mm_set1_ps(1.0f), two = _mm_set1_ps(2.0f);
    const __m128 low = _mm_mul_ps(_mm_mul_ps(two, d), s);
    const __m128 high = _mm_sub_ps(one, _mm_mul_ps(_mm_mul_ps(two, _mm_sub_ps(one, d)), _mm_sub_ps(one, s)));
    __m128 t = _mm_sub_ps(select(_mm_cmplt_ps(d, half), low, high), d);
    if (Weighted) t = _mm_mul_ps(t, w);
    return _mm_add_ps(d, t);
  }
};

// min(d, s) as s < d ? s : d (a NaN keeps d), by the minimum instruction in
// both forms: with denormals-are-zero it writes a denormal operand as zero, which a
// compare and a move would not.
struct Min {
  static constexpr PackedLoop* PackedLoops::*loop = &PackedLoops::minimum;
  template <bool>
  static TARNELL_INLINE float apply(float d, float s, float) {
    return _mm_cvtss_f32(_mm_min_ss(_mm_set_ss(s), _mm_set_ss(d)));
  }
  template <bool>
  static TARNELL_INLINE __m128 apply(__m128 d, __m128 s, __m128) {
    return _mm_min_ps(s, d);
  }
};

// ---------------------------------------------------------------- rows

// One row of packed samples (step 4 in every present plane), w as W says. Without
// a source plane every source sample is c; m is read only by the mask weights.
template <class Op, PackedWeight W, bool SourcePlane = true>
TARNELL_INLINE void packedRow(float* d, const float* s, float c, const float* m, float k, int32_t columns) {
  constexpr bool weighted = W != PackedWeight::none;
  auto weight = [&](int32_t i) {
    if constexpr (W == PackedWeight::mask) return m[i];
    else if constexpr (W == PackedWeight::opacityMask) return k * m[i];
    else return k;
  };
  auto scalar = [&](int32_t i) { d[i] = Op::template apply<weighted>(d[i], SourcePlane ? s[i] : c, weight(i)); };
  const __m128 kv = _mm_set1_ps(k), cv = _mm_set1_ps(c);
  auto vector = [&](int32_t i) {
    __m128 w = kv;
    if constexpr (W == PackedWeight::mask) w = _mm_loadu_ps(m + i);
    else if constexpr (W == PackedWeight::opacityMask) w = _mm_mul_ps(kv, _mm_loadu_ps(m + i));
    const __m128 sv = SourcePlane ? _mm_loadu_ps(s + i) : cv;
    _mm_storeu_ps(d + i, Op::template apply<weighted>(_mm_loadu_ps(d + i), sv, w));
  };
  const auto misalign = static_cast<int32_t>(reinterpret_cast<uintptr_t>(d) & 15);
  int32_t head = ((16 - misalign) & 15) >> 2;
  if (head > columns) head = columns;
  const int32_t end = columns - ((columns - head) & 3);
  int32_t i = 0;
  for (; i + 2 <= head; i += 2) {
    scalar(i);
    scalar(i + 1);
  }
  if (i < head) scalar(i++);
  for (; i < end; i += 4) vector(i);
  for (; i + 2 <= columns; i += 2) {
    scalar(i);
    scalar(i + 1);
  }
  if (i < columns) scalar(i);
}

// The SSE2 kernel of an operation's packed loops: the weights its cases use, with
// a source plane or the constant.
template <class Op>
void packedLoop(const PackedPlanes& p, PackedWeight w) {
  packedLoopOf<std::is_same_v<Op, Min>>(p, w, [](auto weight, auto sourcePlane, auto... row) {
    packedRow<Op, decltype(weight)::value, decltype(sourcePlane)::value>(row...);
  });
}

constinit const PackedLoops kPackedLoopsSse2 = {&packedLoop<Lighten>, &packedLoop<Darken>, &packedLoop<Add>,
                                                &packedLoop<Overlay>, &packedLoop<Min>};

// Runs Op's packed loop. Rows that follow one another in every plane the loop
// reads are one row to it (every sample is computed on its own, so only the
// steps at the rows' ends are spared).
template <class Op, const PackedLoops* Loops>
void packedPlanes(PackedPlanes p, PackedWeight w) {
  const bool maskRead = w == PackedWeight::mask || w == PackedWeight::opacityMask;
  if (p.destinationRow == p.columns && (p.source == nullptr || p.sourceRow == p.columns) &&
      (!maskRead || p.maskRow == p.columns) && int64_t{p.rows} * p.columns <= int64_t{1} << 30) {
    p.columns *= p.rows;
    p.rows = 1;
  }
  (Loops->*Op::loop)(p, w);
}

// A loop of its own for one case: packed planes, rows >= 0 apart. Source and
// mask may be null (no plane).
template <class Op, const PackedLoops* Loops>
void ownLoop(const float* source, float* destination, const float* mask, int32_t columns, int32_t rows,
             int32_t sourceStride, int32_t destinationStride, int32_t maskStride, float k, PackedWeight w) {
  if (rows < 1 || columns < 1) return;
  packedPlanes<Op, Loops>({destination, source, mask, 0.0f, k, columns, rows, floats(destinationStride),
                           floats(sourceStride), floats(maskStride)},
                          w);
}

// ---------------------------------------------------------------- records

bool nothingToDo(const FloatCompositeRecord& r) {
  return r.kind != 3 || r.destination == nullptr || r.columns == 0 || r.rows == 0 || r.opacity == 0;
}

bool packed(int32_t rowStride, int32_t sampleStep) { return sampleStep == 4 && rowStride >= 0; }

bool fastLayout(const FloatCompositeRecord& r) {
  return packed(r.destinationRowStride, r.destinationSampleStep) &&
         (r.source == nullptr || packed(r.sourceRowStride, r.sourceSampleStep)) &&
         (r.mask == nullptr || packed(r.maskRowStride, r.maskSampleStep));
}

int caseNumber(const FloatCompositeRecord& r) {
  return (r.source != nullptr ? 4 : 0) + (r.mask != nullptr ? 2 : 0) + (r.opacity != 255 ? 1 : 0);
}

// Every case, any layout: w = k m (m = 1 without a mask), under truncation. Rows
// whose planes are all packed take the vector row; the others go sample by
// sample, in order, at the steps given.
template <class Op, const PackedLoops* Loops>
void generalLoop(const FloatCompositeRecord& r) {
  const TruncatingRounding truncating;
  if (r.rows < 1 || r.columns < 1) return;
  const float k = opacityWeight(r.opacity);
  const float c = opaque(r.sourceConstant);
  const std::ptrdiff_t dRow = floats(r.destinationRowStride), dStep = floats(r.destinationSampleStep);
  const std::ptrdiff_t sRow = floats(r.sourceRowStride), sStep = floats(r.sourceSampleStep);
  const std::ptrdiff_t mRow = floats(r.maskRowStride), mStep = floats(r.maskSampleStep);
  const bool rowsPacked =
      dStep == 1 && (r.source == nullptr || sStep == 1) && (r.mask == nullptr || mStep == 1);
  float* d = r.destination;
  const float* s = r.source;
  const float* m = r.mask;
  if (rowsPacked)
    return packedPlanes<Op, Loops>({d, s, m, c, k, r.columns, r.rows, dRow, sRow, mRow},
                                   m != nullptr ? PackedWeight::opacityMask : PackedWeight::opacity);
  for (int32_t y = 0; y < r.rows; ++y) {
    for (int32_t x = 0; x < r.columns; ++x) {
      float& dv = d[x * dStep];
      const float w = m != nullptr ? k * m[x * mStep] : k;
      dv = Op::template apply<true>(dv, s != nullptr ? s[x * sStep] : c, w);
    }
    d += dRow;
    if (s != nullptr) s += sRow;
    if (m != nullptr) m += mRow;
  }
}

// The entry shared by the four record composites, over either level's loops.
// Case 4 of the lighten and darken forms goes to the live blending table (slots
// 290 and 289); the others run their own loop for it.
template <class Op, const PackedLoops* Loops>
void composite(const FloatCompositeRecord* record) {
  const FloatCompositeRecord& r = *record;
  if (nothingToDo(r)) return;
  if constexpr (std::is_same_v<Op, Darken>) {
    // Darkening toward a constant 0 at full opacity sets every sample to 0.
    if (r.source == nullptr && r.sourceConstant == 0.0f && r.opacity == 255 && r.mask == nullptr) {
      liveRoutine<slot::fillFloatRect>()(r.destination, r.columns, r.rows, r.destinationRowStride,
                                     r.destinationSampleStep >> 2, 0.0f);
      return;
    }
  }
  if (!fastLayout(r)) return generalLoop<Op, Loops>(r);
  switch (caseNumber(r)) {
    case 4:
      if constexpr (std::is_same_v<Op, Lighten>) {
        liveRoutine<slot::MaxSourceFloat>()(r.source, r.destination, r.columns, r.rows, r.sourceRowStride,
                                       r.destinationRowStride);
      } else if constexpr (std::is_same_v<Op, Darken>) {
        liveRoutine<slot::MinSourceFloat>()(r.source, r.destination, r.columns, r.rows, r.sourceRowStride,
                                       r.destinationRowStride);
      } else {
        ownLoop<Op, Loops>(r.source, r.destination, nullptr, r.columns, r.rows, r.sourceRowStride,
                           r.destinationRowStride, 0, 1.0f, PackedWeight::none);
      }
      return;
    case 5:
      return ownLoop<Op, Loops>(r.source, r.destination, nullptr, r.columns, r.rows, r.sourceRowStride,
                                r.destinationRowStride, 0, static_cast<float>(r.opacity) / 255.0f,
                                PackedWeight::opacity);
    case 6:
      return ownLoop<Op, Loops>(r.source, r.destination, r.mask, r.columns, r.rows, r.sourceRowStride,
                                r.destinationRowStride, r.maskRowStride, 1.0f, PackedWeight::mask);
    default:
      return generalLoop<Op, Loops>(r);
  }
}

template <const PackedLoops* Loops>
void minimum(const float* source, float* destination, int32_t columns, int32_t rows, int32_t sourceRowStride,
             int32_t destinationRowStride) {
  const TruncatingRounding truncating;
  ownLoop<Min, Loops>(source, destination, nullptr, columns, rows, sourceRowStride, destinationRowStride, 0, 1.0f,
                      PackedWeight::none);
}

}  // namespace

void LightenTowardSourceFloat(const FloatCompositeRecord* record) { composite<Lighten, &kPackedLoopsSse2>(record); }
void DarkenTowardSourceFloat(const FloatCompositeRecord* record) { composite<Darken, &kPackedLoopsSse2>(record); }
void AddSourceFloat(const FloatCompositeRecord* record) { composite<Add, &kPackedLoopsSse2>(record); }
void OverlaySourceFloat(const FloatCompositeRecord* record) { composite<Overlay, &kPackedLoopsSse2>(record); }

// Its formula is the host's alone: after the nothing-to-do test the record goes
// to the host's own routine unchanged. Not an accelerated routine.
void FloatCompositeRecord275(const FloatCompositeRecord* record) {
  if (nothingToDo(*record)) return;
  savedRoutine<slot::FloatCompositeRecord275>()(record);
}

void MinSourceFloat(const float* source, float* destination, int32_t columns, int32_t rows, int32_t sourceRowStride,
                    int32_t destinationRowStride) {
  minimum<&kPackedLoopsSse2>(source, destination, columns, rows, sourceRowStride, destinationRowStride);
}

constinit const BlendFloatTable g_blendFloatSse2 = {
    .DarkenTowardSourceFloat = &DarkenTowardSourceFloat,
    .LightenTowardSourceFloat = &LightenTowardSourceFloat,
    .OverlaySourceFloat = &OverlaySourceFloat,
    .AddSourceFloat = &AddSourceFloat,
    .MinSourceFloat = &MinSourceFloat,
};
// The same entries over the AVX2 loops: listed at the loops' level.
constinit const BlendFloatTable g_blendFloatAvx2 = {
    .DarkenTowardSourceFloat = &composite<Darken, &g_packedLoopsAvx2>,
    .LightenTowardSourceFloat = &composite<Lighten, &g_packedLoopsAvx2>,
    .OverlaySourceFloat = &composite<Overlay, &g_packedLoopsAvx2>,
    .AddSourceFloat = &composite<Add, &g_packedLoopsAvx2>,
    .MinSourceFloat = &minimum<&g_packedLoopsAvx2>,
};

}  // namespace tarnell::blendf
