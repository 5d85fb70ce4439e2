// Slot signatures and shared record types of the float composites driven by a parameter record ('blnd').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

// The host's description of one float composite of a source plane into a
// destination plane, optionally through a mask plane and at an opacity. The host
// owns it; routines only read it. Samples are 32-bit floats; strides and sample
// steps are in bytes.
struct FloatCompositeRecord {
  int32_t kind;     // 3; anything else: nothing to do
  int32_t columns;  // samples per row; 0: nothing to do
  int32_t rows;     // 0: nothing to do
  const float* source;  // null: every source sample is sourceConstant
  int32_t sourceRowStride;
  int32_t sourceSampleStep;
  float sourceConstant;
  float* destination;  // null: nothing to do
  int32_t destinationRowStride;
  int32_t destinationSampleStep;
  const float* mask;  // null: every mask sample is 1.0
  int32_t maskRowStride;
  int32_t maskSampleStep;
  uint8_t opacity;  // 0: nothing to do; 255: full
};
static_assert(sizeof(FloatCompositeRecord) == 80);
static_assert(offsetof(FloatCompositeRecord, kind) == 0 && offsetof(FloatCompositeRecord, columns) == 4 &&
              offsetof(FloatCompositeRecord, rows) == 8 && offsetof(FloatCompositeRecord, source) == 16 &&
              offsetof(FloatCompositeRecord, sourceRowStride) == 24 &&
              offsetof(FloatCompositeRecord, sourceSampleStep) == 28 &&
              offsetof(FloatCompositeRecord, sourceConstant) == 32 && offsetof(FloatCompositeRecord, destination) == 40 &&
              offsetof(FloatCompositeRecord, destinationRowStride) == 48 &&
              offsetof(FloatCompositeRecord, destinationSampleStep) == 52 && offsetof(FloatCompositeRecord, mask) == 56 &&
              offsetof(FloatCompositeRecord, maskRowStride) == 64 && offsetof(FloatCompositeRecord, maskSampleStep) == 68 &&
              offsetof(FloatCompositeRecord, opacity) == 72);

// The record-driven composites.
#define TARNELL_BLENDF_RECORD(SLOT, NAME) TARNELL_SLOT(blnd, SLOT, NAME, void, const FloatCompositeRecord* record)
TARNELL_BLENDF_RECORD(275, FloatCompositeRecord275)
TARNELL_BLENDF_RECORD(276, LightenTowardSourceFloat)
TARNELL_BLENDF_RECORD(277, DarkenTowardSourceFloat)
TARNELL_BLENDF_RECORD(278, AddSourceFloat)
TARNELL_BLENDF_RECORD(320, OverlaySourceFloat)

// Two float planes, columns before rows, strides in bytes: min (289, the module's)
// and max (290, the host's own, which the module calls but never replaces).
#define TARNELL_BLENDF_SD(SLOT, NAME)                                                                            \
  TARNELL_SLOT(blnd, SLOT, NAME, void, const float* source, float* destination, int32_t columns, int32_t rows, \
               int32_t sourceRowStride, int32_t destinationRowStride)
TARNELL_BLENDF_SD(289, MinSourceFloat)
TARNELL_BLENDF_SD(290, MaxSourceFloat)

}  // namespace tarnell
