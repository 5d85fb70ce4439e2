#include "verify/expected_slots.h"

namespace tarnell::verify {

void expectedConvert(const FeatureSet& /*features*/, std::vector<ExpectedSlot>& /*out*/) {}

}  // namespace tarnell::verify
