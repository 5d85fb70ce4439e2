#include "verify/installs.h"

#include <algorithm>

namespace tarnell::verify {

namespace {

template <class... Ids>
std::vector<SlotRef> refs(Ids... ids) {
  return {ref(ids)...};
}

}  // namespace

std::string slotLabel(uint32_t suite, int slot, const char* name) {
  return std::string(kSuites[suiteIndexOf(suite)].name) + ":" + std::to_string(slot) + " " + name;
}

bool gateHolds(Gate gate, const FeatureSet& f) {
  switch (gate) {
    case Gate::always:
      return true;
    case Gate::sse:
      return f.sse;
    case Gate::sse2:
      return f.sse2;
    case Gate::ssse3:
      return f.ssse3;
    case Gate::sse41:
      return f.sse41;
    case Gate::avx:
      return f.avx;
    case Gate::withoutSse2:
      return !f.sse2;
  }
  return false;
}

// The installer tables. Blending: the SSE group, then, with SSE2, the SSE2 group
// (its forwarded members in their places); nothing further for wider processors.
// Filters: slot 12 before any flag is read; the SSE4.1 group whether or not SSE2
// is there. Memory: each tier on its own flag, a wider one writing some slots
// again. Resampling: slots 5 and 6 written by the SSE and again by the SSE2 step.
// Selection: slot 26 alone without SSE2. Path filling: the plain or the checking
// fill-array operation (by the host's debug gestalts) in slot 24 on every processor.
const std::vector<InstallerWrites>& installerWrites() {
  static const std::vector<InstallerWrites> all = {
      {"installNoiseHook", code::core, {
          {Gate::always, refs(slot::registerNoiseTable)},
      }},
      {"InstallBlendRoutines", code::blnd, {
          {Gate::sse, refs(slot::SourceBasedOverlayThroughMask8, slot::ConstantBasedOverlayThroughMask8,
                          slot::SourceBasedOverlay8, slot::SourceBasedOverlayWithOpacity8,
                          slot::OverlaySourceThroughMask8, slot::OverlayConstantThroughMask8, slot::OverlaySource8,
                          slot::OverlaySourceWithOpacity8, slot::ScreenSourceWithOpacity8,
                          slot::ScreenConstantThroughMask8, slot::ScreenSource8)},
          {Gate::sse2, refs(slot::ScaleByConstant8, slot::MixConstantThroughMask8, slot::MixSourceThroughMask8,
                          slot::CopyWhereMaskSet8, slot::FillWhereMaskSet8, slot::MultiplySource8, slot::MaxSource8,
                          slot::MinSource8, slot::BlendPlaneRoutine53, slot::SubtractCoverage8,
                          slot::BlendPlaneRoutine96, slot::DarkenTowardSourceThroughMask8,
                          slot::DarkenTowardConstantThroughMask8, slot::LightenTowardSourceThroughMask8,
                          slot::LightenTowardConstantThroughMask8, slot::MultiplySourceThroughMask8,
                          slot::MultiplySourceThroughMask16, slot::BlendPlaneRoutine66, slot::BlendPlaneRoutine72,
                          slot::MultiplyInto8, slot::InverseMultiplyInto8, slot::BlendPlaneRoutine97,
                          slot::FillWhereMaskClear8, slot::OrderedCombineInto8, slot::ScaleByConstant16,
                          slot::MixSourceThroughMask16, slot::MultiplySource16, slot::BlendPlaneRoutine191,
                          slot::SubtractCoverage16, slot::BlendPlaneRoutine198, slot::BlendPlaneRoutine216,
                          slot::BlendPlaneRoutine218, slot::MultiplyInto16, slot::InverseMultiplyInto16,
                          slot::ComplementMultiplyInto16, slot::FillWhereMaskClear16, slot::OrderedCombineInto16,
                          slot::MultiplyWithOpacity8, slot::DarkenTowardSourceFloat, slot::LightenTowardSourceFloat,
                          slot::OverlaySourceFloat, slot::FloatCompositeRecord275, slot::AddSourceFloat,
                          slot::MinSourceFloat)},
      }},
      {"installConvertSuite", code::conv, {
          {Gate::always, refs(slot::rescale16)},
          {Gate::sse2, refs(slot::convert16To8Planar3, slot::convert16To8, slot::convert8To16,
                          slot::convertFloatTo8)},
      }},
      {"installFilterSuite", code::filt, {
          {Gate::always, refs(slot::localDeviation3x3)},
          {Gate::sse, refs(slot::filterSlot34)},
          {Gate::sse2, refs(slot::filterSlot28, slot::filterSlot31, slot::filterSlot75, slot::filterSlot74,
                          slot::filterSlot106, slot::maskedDifferenceSum, slot::blockDifferenceSum,
                          slot::blockMatrixFilter2, slot::blockMatrixFilter3, slot::blockMatrixFilter4,
                          slot::blockMatrixFilter5, slot::transposeFloatTiles, slot::filterSlot197)},
          {Gate::sse41, refs(slot::angularRemap8, slot::angularRemap16, slot::angularRemapSlot202,
                          slot::filterSlot155)},
      }},
      {"installMemorySuite", code::memo, {
          {Gate::sse2, refs(slot::copyBytes, slot::copyBlock, slot::fillBytes, slot::fillBlock, slot::memoSlot11,
                          slot::bytesAllEqual, slot::blockBytesAllEqual, slot::fillWords, slot::fillWordBlock,
                          slot::memoSlot67, slot::blockWordsUniformValue, slot::blockWordsAllEqual,
                          slot::fillDwords)},
          {Gate::ssse3, refs(slot::copyBytes, slot::copyBlock)},
          {Gate::sse41, refs(slot::byteBounds)},
          {Gate::avx, refs(slot::fillBytes, slot::fillBlock, slot::blockDwordsUniform, slot::fillDwords,
                          slot::fillDwordBlock)},
      }},
      {"InstallPaintRoutines", code::pntg, {
          {Gate::sse2, refs(slot::PaintP8, slot::PaintP8x3, slot::PaintP8x4, slot::PaintP16, slot::PaintP16x3,
                          slot::PaintP16x4, slot::PaintQ8, slot::PaintQ8x3, slot::PaintQ8x4, slot::PaintQ16,
                          slot::PaintQ16x3, slot::PaintQ16x4, slot::PaintSingle5, slot::PaintSingle81, slot::PaintR8,
                          slot::PaintR8x3, slot::PaintR8x4, slot::PaintR16, slot::PaintR16x3, slot::PaintR16x4,
                          slot::PaintS8, slot::PaintS8x3, slot::PaintS8x4, slot::PaintS16, slot::PaintS16x3,
                          slot::PaintS16x4, slot::PaintT8, slot::PaintT8x3, slot::PaintT8x4, slot::PaintT16,
                          slot::PaintT16x3, slot::PaintT16x4, slot::PaintSingle18, slot::PaintSingle38,
                          slot::PaintSingle9, slot::PaintSingle92, slot::PaintSingle79)},
      }},
      {"InstallResampleRoutines", code::rsmp, {
          {Gate::sse, refs(slot::ResampleByRatio8, slot::FilterRowsSse2_8, slot::FilterColumnsSse2_8,
                          slot::RemapAxis8, slot::RemapPlane8, slot::BoxReduce8, slot::FilterRows16)},
          {Gate::sse2, refs(slot::FilterRowsSse2_8, slot::FilterColumnsSse2_8, slot::BoxAverageRows8,
                          slot::FilterColumnsFloat)},
          {Gate::sse41, refs(slot::FilterRowsFloat)},
      }},
      {"installSelectionSuite", code::sele, {
          {Gate::withoutSse2, refs(slot::spreadMarkVertical)},
          {Gate::sse2, refs(slot::propagateDecaying, slot::propagateDecaying16, slot::selectionSlot33,
                          slot::selectionSlot75, slot::spreadMarkVertical)},
      }},
      {"installPathSuite", code::path, {
          {Gate::always, refs(slot::ApplyFillArrayOperation, slot::EstimateRowCrossings, slot::pathSlot47)},
      }},
  };
  return all;
}

std::vector<SlotRef> writesOf(const InstallerWrites& installer, const FeatureSet& features) {
  std::vector<SlotRef> out;
  for (const WriteStep& step : installer.steps)
    if (gateHolds(step.gate, features)) out.insert(out.end(), step.slots.begin(), step.slots.end());
  return out;
}

std::vector<int> expectedReplacedSlots(uint32_t suite, const FeatureSet& features) {
  std::vector<int> slots;
  for (const InstallerWrites& installer : installerWrites())
    if (installer.suite == suite)
      for (const SlotRef& s : writesOf(installer, features)) slots.push_back(s.slot);
  std::sort(slots.begin(), slots.end());
  slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
  return slots;
}

}  // namespace tarnell::verify
