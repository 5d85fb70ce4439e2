// Checks of the painting routines ('pntg').
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> paintChecks() { return {}; }

}  // namespace tarnell::verify
