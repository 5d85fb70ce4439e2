#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// The 16-bit members of the SSE2 group of 'blnd', including the four slots it
// fills with forwarders to the host's own routine (191, 198, 216, 218).
void expectedBlend16(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  if (features.sse2)
    for (int slot : {259, 193, 235, 194, 191, 192, 198, 216, 218, 219, 221, 195, 222, 223})
      out.push_back({code::blnd, slot});
}

}  // namespace tarnell::verify
