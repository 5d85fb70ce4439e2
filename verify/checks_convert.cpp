#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> convertChecks() { return {}; }

}  // namespace tarnell::verify
