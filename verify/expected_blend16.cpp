#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// Nothing is replaced for the 16-bit blend plane operations ('blnd') yet.
void expectedBlend16(const FeatureSet& /*features*/, std::vector<ExpectedSlot>& /*out*/) {}

}  // namespace tarnell::verify
