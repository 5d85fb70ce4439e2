#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// The float members of the SSE2 group: the five record composites and the float
// minimum. Slot 290 (the host's maximum, which the lighten form calls) stays the host's.
void expectedBlendFloat(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  if (features.sse2)
    for (int slot : {277, 276, 320, 275, 278, 289}) out.push_back({code::blnd, slot});
}

}  // namespace tarnell::verify
