// Checks of the selection routines ('sele').
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> selectionChecks() { return {}; }

}  // namespace tarnell::verify
