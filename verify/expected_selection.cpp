#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// Nothing is replaced for the selection routines ('sele') yet.
void expectedSelection(const FeatureSet& /*features*/, std::vector<ExpectedSlot>& /*out*/) {}

}  // namespace tarnell::verify
