#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// The path installer needs no processor feature: slot 24 (the plain or the
// checking fill-array operation, as the host's debug gestalts decide), slot 46
// and slot 47 (forwarded) are written on every processor.
void expectedPathFill(const FeatureSet& /*features*/, std::vector<ExpectedSlot>& out) {
  for (int slot : {24, 46, 47}) out.push_back({code::path, slot});
}

}  // namespace tarnell::verify
