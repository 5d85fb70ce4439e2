#include "verify/expected_slots.h"

#include <tarnell/host_interface.h>

#include <initializer_list>

namespace tarnell::verify {

// The 'memo' installer's tiers: SSE2, then SSSE3, SSE4.1 and AVX, each on its own
// flag; a slot written by two tiers counts once.
void expectedMemory(const FeatureSet& features, std::vector<ExpectedSlot>& out) {
  auto add = [&out](std::initializer_list<int> slots) {
    for (int slot : slots) out.push_back({code::memo, slot});
  };
  if (features.sse2) add({0, 1, 3, 4, 11, 17, 18, 65, 66, 67, 83, 102, 136});
  if (features.ssse3) add({0, 1});
  if (features.sse41) add({36});
  if (features.avx) add({3, 4, 135, 136, 137});
}

}  // namespace tarnell::verify
