// The tiers of this processor: one flag set per instruction-set level it reaches,
// from the baseline up, and the distinct bodies a routine has across them, so that
// a test runs every body this machine can run, not only the one it picks.
#pragma once

#include <algorithm>
#include <vector>

#include "host/cpu_features.h"
#include "host/kernels.h"

namespace tarnell::tests {

inline CpuFeatureFlags thisProcessor() { return computeFeatureFlags(identification(), topology()); }

// sse2 up to the widest level this processor reaches.
inline std::vector<Level> levelsHere() {
  std::vector<Level> levels;
  const CpuFeatureFlags f = thisProcessor();
  for (int i = static_cast<int>(Level::sse2); i < kLevelCount; ++i)
    if (flagsReach(f, static_cast<Level>(i))) levels.push_back(static_cast<Level>(i));
  return levels;
}

// The bodies of one routine at every level here, each once, narrowest first.
template <uint32_t Suite, int Slot>
std::vector<Kernel<SlotFn<Suite, Slot>>> bodiesOf(SlotId<Suite, Slot> id) {
  std::vector<Kernel<SlotFn<Suite, Slot>>> bodies;
  for (Level level : levelsHere()) {
    const Kernels k = resolveKernels(flagsAtLevel(thisProcessor(), level));
    const auto& body = k.get(id);
    if (body && std::none_of(bodies.begin(), bodies.end(), [&](const auto& b) { return b.fn == body.fn; }))
      bodies.push_back(body);
  }
  return bodies;
}

}  // namespace tarnell::tests
