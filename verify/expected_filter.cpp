#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// 'filt': slot 12 on every processor; 34 with SSE; the SSE2 group (its forwarded
// slots included); the SSE4.1 group whether or not SSE2 is there.
void expectedFilter(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  out.push_back({code::filt, 12});
  if (features.sse) out.push_back({code::filt, 34});
  if (features.sse2)
    for (int slot : {28, 31, 75, 74, 106, 189, 188, 191, 192, 193, 194, 195, 197}) out.push_back({code::filt, slot});
  if (features.sse41)
    for (int slot : {200, 201, 202, 155}) out.push_back({code::filt, slot});
}

}  // namespace tarnell::verify
