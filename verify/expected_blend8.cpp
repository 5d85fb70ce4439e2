#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// The 'blnd' slots the installer writes. SSE: the eleven table-driven overlay and
// screen routines. SSE2: the 8-bit members of the SSE2 group, including the five
// slots it fills with forwarders (53, 66, 72, 96, 97). The group's 16-bit members
// are in expected_blend16.cpp, its float members in expected_blendf.cpp.
void expectedBlend8(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  if (features.sse)
    for (int slot : {50, 51, 52, 59, 47, 48, 49, 58, 57, 26, 27}) out.push_back({code::blnd, slot});
  if (features.sse2)
    for (int slot : {1, 3, 2, 30, 31, 24, 28, 29, 53, 54, 96, 7, 8, 10, 11, 22, 66, 72, 74, 75, 97, 106, 115, 56})
      out.push_back({code::blnd, slot});
}

}  // namespace tarnell::verify
