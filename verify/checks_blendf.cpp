// Checks of the float composites driven by a parameter record ('blnd').
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> blendfChecks() { return {}; }

}  // namespace tarnell::verify
