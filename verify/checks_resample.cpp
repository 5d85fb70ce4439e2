// Checks of the resampling routines ('rsmp').
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> resampleChecks() { return {}; }

}  // namespace tarnell::verify
