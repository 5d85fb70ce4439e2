// The host's portable routines of path filling ('path').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portablePathFill() { return {}; }

}  // namespace tarnell::refhost
