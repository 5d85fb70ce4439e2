#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> blend8Checks() { return {}; }

}  // namespace tarnell::verify
