#include "verify/expected_slots.h"

namespace tarnell::verify {

void expectedBlend8(const FeatureSet& /*features*/, std::vector<ExpectedSlot>& /*out*/) {}

}  // namespace tarnell::verify
