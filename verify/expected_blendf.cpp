#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// Nothing is replaced for the float composites driven by a parameter record ('blnd') yet.
void expectedBlendFloat(const FeatureSet& /*features*/, std::vector<ExpectedSlot>& /*out*/) {}

}  // namespace tarnell::verify
