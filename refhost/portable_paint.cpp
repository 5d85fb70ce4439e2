// The host's portable routines of the painting routines ('pntg').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portablePaint() { return {}; }

}  // namespace tarnell::refhost
