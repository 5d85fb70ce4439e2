#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// 'sele': with SSE2 slots 35, 73, 33, 75 and 26 (73 and 75 forwarded to the
// host's routines); without it only 26, in its baseline form.
void expectedSelection(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  if (!features.sse2) {
    out.push_back({code::sele, 26});
    return;
  }
  for (int slot : {35, 73, 33, 75, 26}) out.push_back({code::sele, slot});
}

}  // namespace tarnell::verify
