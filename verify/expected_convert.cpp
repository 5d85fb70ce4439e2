#include <tarnell/host_interface.h>

#include "verify/expected_slots.h"

namespace tarnell::verify {

// 'conv': re-scaling (19) on every processor, the other four conversions with SSE2.
// 'core' 3: the noise hook, on every processor.
void expectedConvert(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  out.push_back({code::core, 3});
  out.push_back({code::conv, 19});
  if (!features.sse2) return;
  for (int slot : {16, 17, 18, 58}) out.push_back({code::conv, slot});
}

}  // namespace tarnell::verify
