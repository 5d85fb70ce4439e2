// The host's float composites driven by a parameter record ('blnd' slots 275,
// 276, 277, 278, 320), its float minimum (289) and maximum (290), one sample at a
// time from the formulas.
//
// Contracts decided here (see docs/contracts.md, "Blending (float composites)"):
// - Entry of every record routine: nothing to do when kind != 3, the destination
//   is null, columns or rows is 0, or opacity is 0. A record whose present planes
//   all have sample step 4 and row stride >= 0 is "packed"; its case is 4 with a
//   source, + 2 with a mask, + 1 below full opacity.
// - Samples: plane + r * (rowStride >> 2) + c * (sampleStep >> 2) floats (the shifts
//   arithmetic); rows or columns below 1 change nothing. s is the source sample or
//   sourceConstant, m the mask sample or 1, k = opacity / 255 in single precision.
// - Formulas, in single precision, in this order: lighten: where s > d,
//   d + (s - d) w; darken: where d > s, d + (s - d) w; add: d + w s; overlay:
//   r = (2 d) s when d < 0.5, else 1 - (2 (1 - d)) (1 - s), then d + (r - d) w.
// - Packed cases 5 (w = k) and 6 (w = m), and case 4 of add and overlay (w = 1, no
//   multiply), run in the caller's rounding mode. Case 4 of lighten is the maximum
//   of slot 290, of darken the minimum of slot 289. Every other case runs with
//   w = k m under truncation, the caller's control word restored on return.
// - Darken with no source, a constant equal to 0 (either sign), opacity 255 and no
//   mask sets every destination sample to +0, addressed as 'memo' slot 110 does
//   (rows by the row stride in bytes, samples by sampleStep >> 2 floats), whatever
//   the layout.
// - 289: d = s < d ? s : d; 290: d = s > d ? s : d (a NaN keeps d), as the
//   processor's scalar minimum and maximum give them (with denormals-are-zero a
//   denormal operand is written as a zero); strides in bytes, shifted as above; 289
//   runs under truncation (which no result shows).
// - 275: its formula is the real host's alone. This host's routine only notes the
//   call (the record's address) in the call log and changes nothing.
// - 289, 290 and 275 record every call: 289/290 as (source, destination,
//   columns | rows << 32, sourceRowStride | destinationRowStride << 32).
#include <xmmintrin.h>

#include <cstdint>

#include "refhost/portable.h"

namespace tarnell::refhost {

namespace {

uintptr_t word(const void* p) { return reinterpret_cast<uintptr_t>(p); }
uintptr_t pair(int32_t low, int32_t high) {
  return uintptr_t{static_cast<uint32_t>(low)} | (uintptr_t{static_cast<uint32_t>(high)} << 32);
}

// Runs f with the rounding-control field set to truncation, then puts the whole
// control and status word back. Values f computes with come from memory or pass
// fenced(), so the compiler cannot compute them before the mode is set.
template <class F>
void truncating(F f) {
  uint32_t saved;
  asm volatile("stmxcsr %0" : "=m"(saved));
  const uint32_t truncate = saved | 0x6000u;
  asm volatile("ldmxcsr %0" : : "m"(truncate) : "memory");
  f();
  asm volatile("ldmxcsr %0" : : "m"(saved) : "memory");
}

// Also keeps the compiler from folding "d kept" and "d + change" into one addition
// of a selected change or -0, which flush-to-zero and denormals-are-zero break.
float fenced(float v) {
  asm volatile("" : "+x"(v));
  return v;
}

float& sampleAt(float* plane, int32_t rowStride, int32_t step, int32_t r, int32_t c) {
  return plane[static_cast<intptr_t>(r) * (rowStride >> 2) + static_cast<intptr_t>(c) * (step >> 2)];
}
float sampleAt(const float* plane, int32_t rowStride, int32_t step, int32_t r, int32_t c) {
  return plane[static_cast<intptr_t>(r) * (rowStride >> 2) + static_cast<intptr_t>(c) * (step >> 2)];
}

// The four formulas. weighted false: w is 1 and not multiplied.
enum class Formula { Lighten, Darken, Add, Overlay };

float apply(Formula f, float d, float s, float w, bool weighted) {
  float change;
  switch (f) {
    case Formula::Lighten:
      if (!(s > d)) return d;
      change = s - d;
      break;
    case Formula::Darken:
      if (!(d > s)) return d;
      change = s - d;
      break;
    case Formula::Add:
      return weighted ? d + w * s : d + s;
    case Formula::Overlay:
    default: {
      float r;
      if (d < 0.5f) {
        r = 2.0f * d;
        r = r * s;
      } else {
        const float a = 2.0f * (1.0f - d);
        r = 1.0f - a * (1.0f - s);
      }
      change = r - d;
      break;
    }
  }
  if (weighted) change = change * w;
  return fenced(d + change);
}

// Every sample of the record's rectangle: f(r, c, d, s, m) with m = 1 without a mask.
template <class F>
void eachSample(const FloatCompositeRecord& rec, float constant, F f) {
  for (int32_t r = 0; r < rec.rows; ++r)
    for (int32_t c = 0; c < rec.columns; ++c) {
      float& d = sampleAt(rec.destination, rec.destinationRowStride, rec.destinationSampleStep, r, c);
      const float s = rec.source != nullptr ? sampleAt(rec.source, rec.sourceRowStride, rec.sourceSampleStep, r, c)
                                            : constant;
      const float m = rec.mask != nullptr ? sampleAt(rec.mask, rec.maskRowStride, rec.maskSampleStep, r, c) : 1.0f;
      d = f(d, s, m);
    }
}

// d = s < d ? s : d (minimum) or s > d ? s : d (maximum), as the processor's
// minimum and maximum give it: with denormals-are-zero a denormal operand counts,
// and is written, as a zero of its sign.
template <bool Minimum>
void extremum(const float* source, float* destination, int32_t columns, int32_t rows, int32_t sourceRowStride,
              int32_t destinationRowStride) {
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < columns; ++c) {
      float& d = sampleAt(destination, destinationRowStride, 4, r, c);
      const float s = sampleAt(source, sourceRowStride, 4, r, c);
      const __m128 sv = _mm_set_ss(s), dv = _mm_set_ss(d);
      d = _mm_cvtss_f32(Minimum ? _mm_min_ss(sv, dv) : _mm_max_ss(sv, dv));
    }
}

void minimum(const float* source, float* destination, int32_t columns, int32_t rows, int32_t sourceRowStride,
             int32_t destinationRowStride) {
  truncating([&] { extremum<true>(source, destination, columns, rows, sourceRowStride, destinationRowStride); });
}
constexpr auto maximum = &extremum<false>;

bool packed(int32_t rowStride, int32_t step) { return step == 4 && rowStride >= 0; }

void composite(Formula f, const FloatCompositeRecord* record) {
  const FloatCompositeRecord& rec = *record;
  if (rec.kind != 3 || rec.destination == nullptr || rec.columns == 0 || rec.rows == 0 || rec.opacity == 0) return;
  if (f == Formula::Darken && rec.source == nullptr && rec.sourceConstant == 0.0f && rec.opacity == 255 &&
      rec.mask == nullptr) {
    for (int32_t r = 0; r < rec.rows; ++r) {
      auto* row = reinterpret_cast<float*>(reinterpret_cast<unsigned char*>(rec.destination) +
                                           static_cast<intptr_t>(r) * rec.destinationRowStride);
      for (int32_t c = 0; c < rec.columns; ++c) row[static_cast<intptr_t>(c) * (rec.destinationSampleStep >> 2)] = 0.0f;
    }
    return;
  }
  const bool fast = packed(rec.destinationRowStride, rec.destinationSampleStep) &&
                    (rec.source == nullptr || packed(rec.sourceRowStride, rec.sourceSampleStep)) &&
                    (rec.mask == nullptr || packed(rec.maskRowStride, rec.maskSampleStep));
  const int which = (rec.source != nullptr ? 4 : 0) + (rec.mask != nullptr ? 2 : 0) + (rec.opacity != 255 ? 1 : 0);
  if (fast && which == 4 && f == Formula::Lighten)
    return maximum(rec.source, rec.destination, rec.columns, rec.rows, rec.sourceRowStride, rec.destinationRowStride);
  if (fast && which == 4 && f == Formula::Darken)
    return minimum(rec.source, rec.destination, rec.columns, rec.rows, rec.sourceRowStride, rec.destinationRowStride);
  if (fast && which == 4) return eachSample(rec, 0.0f, [&](float d, float s, float) { return apply(f, d, s, 1.0f, false); });
  if (fast && which == 5) {
    const float k = static_cast<float>(rec.opacity) / 255.0f;
    return eachSample(rec, 0.0f, [&](float d, float s, float) { return apply(f, d, s, k, true); });
  }
  if (fast && which == 6) return eachSample(rec, 0.0f, [&](float d, float s, float m) { return apply(f, d, s, m, true); });
  truncating([&] {
    const float k = fenced(static_cast<float>(rec.opacity)) / 255.0f;
    const float constant = fenced(rec.sourceConstant);
    eachSample(rec, constant, [&](float d, float s, float m) { return apply(f, d, s, k * m, true); });
  });
}

void lightenTowardSourceFloat(const FloatCompositeRecord* record) { composite(Formula::Lighten, record); }
void darkenTowardSourceFloat(const FloatCompositeRecord* record) { composite(Formula::Darken, record); }
void addSourceFloat(const FloatCompositeRecord* record) { composite(Formula::Add, record); }
void overlaySourceFloat(const FloatCompositeRecord* record) { composite(Formula::Overlay, record); }

void floatComposite275(const FloatCompositeRecord* record) {
  if (ReferenceHost* host = ReferenceHost::active()) host->record({code::blnd, 275, {word(record), 0, 0, 0}});
}

// 289 and 290 as the host's tables hold them: each call recorded, then done.
template <int Slot, auto Routine>
void recordedPair(const float* source, float* destination, int32_t columns, int32_t rows, int32_t sourceRowStride,
                  int32_t destinationRowStride) {
  if (ReferenceHost* host = ReferenceHost::active())
    host->record({code::blnd, Slot,
                  {word(source), word(destination), pair(columns, rows), pair(sourceRowStride, destinationRowStride)}});
  Routine(source, destination, columns, rows, sourceRowStride, destinationRowStride);
}

const PortableRoutine kRoutines[] = {
    portable(slot::FloatCompositeRecord275, &floatComposite275),        portable(slot::LightenTowardSourceFloat, &lightenTowardSourceFloat),
    portable(slot::DarkenTowardSourceFloat, &darkenTowardSourceFloat),  portable(slot::AddSourceFloat, &addSourceFloat),
    portable(slot::MinSourceFloat, &recordedPair<289, &minimum>), portable(slot::MaxSourceFloat, &recordedPair<290, maximum>),
    portable(slot::OverlaySourceFloat, &overlaySourceFloat),
};

}  // namespace

std::span<const PortableRoutine> portableBlendFloat() { return kRoutines; }

}  // namespace tarnell::refhost
