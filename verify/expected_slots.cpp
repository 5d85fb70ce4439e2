#include "verify/expected_slots.h"

#include <algorithm>

namespace tarnell::verify {

std::vector<int> expectedReplacedSlots(uint32_t suite, const FeatureSet& features) {
  std::vector<ExpectedSlot> all;
  expectedBlend8(features, all);
  expectedMemory(features, all);
  expectedConvert(features, all);
  expectedBlend16(features, all);
  expectedBlendFloat(features, all);
  expectedFilter(features, all);
  expectedResample(features, all);
  expectedPaint(features, all);
  expectedPathFill(features, all);
  expectedSelection(features, all);
  std::vector<int> slots;
  for (const ExpectedSlot& e : all)
    if (e.suite == suite) slots.push_back(e.slot);
  std::sort(slots.begin(), slots.end());
  slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
  return slots;
}

}  // namespace tarnell::verify
