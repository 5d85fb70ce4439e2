// Decaying propagation of (strength, value) pairs along lanes: 16 adjacent lanes
// a vector step when the lane step is 1 (propagate_lanes_sse2.h).
#include "selection/propagate_lanes_sse2.h"
#include "selection/selection.h"

namespace tarnell::selection {

namespace {

struct Lanes16 {
  static constexpr int32_t kLanes = 16;
  static TARNELL_INLINE void step(const uint8_t* prevStrength, const uint8_t* prevValue, uint8_t* strength,
                                  uint8_t* value) {
    step16(prevStrength, prevValue, strength, value);
  }
};

}  // namespace

void propagateDecaying(uint8_t* strength, uint8_t* value, int32_t laneCount, int32_t length, int32_t laneStep,
                       int32_t alongStep) {
  propagate<Lanes16>(strength, value, laneCount, length, laneStep, alongStep);
}

constinit const SelectionTable g_propagateSse2 = {.propagateDecaying = &propagateDecaying};

}  // namespace tarnell::selection
