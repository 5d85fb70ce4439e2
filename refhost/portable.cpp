#include "refhost/portable.h"

#include <vector>

namespace tarnell::refhost {

std::span<const PortableRoutine> allPortableRoutines() {
  static const std::vector<PortableRoutine> all = [] {
    std::vector<PortableRoutine> routines;
    for (std::span<const PortableRoutine> family : {portableBlend8(), portableMemory(), portableConvert(), portableBlend16(),
                                                       portableBlendFloat(), portableFilter(), portableResample(), portablePaint(),
                                                       portablePathFill(), portableSelection()})
      routines.insert(routines.end(), family.begin(), family.end());
    return routines;
  }();
  return all;
}

}  // namespace tarnell::refhost
