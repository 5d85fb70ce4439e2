#include "refhost/portable.h"

#include <vector>

namespace tarnell::refhost {

std::span<const PortableRoutine> allPortableRoutines() {
  static const std::vector<PortableRoutine> all = [] {
    std::vector<PortableRoutine> routines;
#define TARNELL_PORTABLE_FAMILY(F)                 \
  for (const PortableRoutine& r : portable##F()) \
    routines.push_back(r);
    TARNELL_FAMILIES(TARNELL_PORTABLE_FAMILY)
#undef TARNELL_PORTABLE_FAMILY
    return routines;
  }();
  return all;
}

}  // namespace tarnell::refhost
