#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// The 'rsmp' slots the installer writes. SSE: 7 (a forwarder to the host's own
// routine), 5, 6, 18, 19, 24, 13. SSE2: 5 and 6 again, 3 and 27. SSE4.1: 26.
void expectedResample(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  if (features.sse)
    for (int slot : {7, 5, 6, 18, 19, 24, 13}) out.push_back({code::rsmp, slot});
  if (features.sse2)
    for (int slot : {5, 6, 3, 27}) out.push_back({code::rsmp, slot});
  if (features.sse41) out.push_back({code::rsmp, 26});
}

}  // namespace tarnell::verify
