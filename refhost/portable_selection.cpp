// The host's portable routines of the selection routines ('sele').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableSelection() { return {}; }

}  // namespace tarnell::refhost
