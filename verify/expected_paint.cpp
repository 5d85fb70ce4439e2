#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// 'pntg': all 37 entries with SSE2, in the installer's order (38 and 79 are
// forwarders to the host's own routines); nothing without it.
void expectedPaint(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  if (!features.sse2) return;
  for (int slot : {10, 28, 29, 61, 62, 63, 4,  26, 27, 55, 56, 57, 5,  81, 7,  24, 25, 58, 59,
                   60, 17, 34, 35, 84, 85, 86, 13, 36, 37, 87, 88, 89, 18, 38, 9,  92, 79})
    out.push_back({code::pntg, slot});
}

}  // namespace tarnell::verify
