// Checks of path filling ('path').
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> pathfillChecks() { return {}; }

}  // namespace tarnell::verify
