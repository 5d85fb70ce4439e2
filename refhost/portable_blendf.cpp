// The host's portable routines of the float composites driven by a parameter record ('blnd').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableBlendFloat() { return {}; }

}  // namespace tarnell::refhost
