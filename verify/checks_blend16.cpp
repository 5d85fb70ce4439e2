// Checks of the 16-bit blend plane operations ('blnd').
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> blend16Checks() { return {}; }

}  // namespace tarnell::verify
