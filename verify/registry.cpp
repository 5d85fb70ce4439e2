#include <vector>

#include "verify/check.h"
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> allChecks() {
  static const std::vector<Check> all = [] {
    std::vector<Check> checks;
#define TARNELL_CHECK_FAMILY(F) \
  for (const Check& c : checks##F()) checks.push_back(c);
    TARNELL_FAMILIES(TARNELL_CHECK_FAMILY)
#undef TARNELL_CHECK_FAMILY
    return checks;
  }();
  return all;
}

}  // namespace tarnell::verify
