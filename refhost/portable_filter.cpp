// The host's portable routines of the filters ('filt').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableFilter() { return {}; }

}  // namespace tarnell::refhost
