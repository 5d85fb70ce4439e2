#include <vector>

#include "verify/check.h"
#include "verify/families.h"

namespace tarnell::verify {

std::span<const Check> allChecks() {
  static const std::vector<Check> all = [] {
    std::vector<Check> checks;
    for (std::span<const Check> family : {blend8Checks(), memoryChecks(), convertChecks(), blend16Checks(), blendfChecks(),
                                             filterChecks(), resampleChecks(), paintChecks(), pathfillChecks(),
                                             selectionChecks()})
      checks.insert(checks.end(), family.begin(), family.end());
    return checks;
  }();
  return all;
}

}  // namespace tarnell::verify
