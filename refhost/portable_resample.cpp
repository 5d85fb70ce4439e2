// The host's portable routines of the resampling routines ('rsmp').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableResample() { return {}; }

}  // namespace tarnell::refhost
