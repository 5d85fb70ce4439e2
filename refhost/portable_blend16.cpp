// The host's portable routines of the 16-bit blend plane operations ('blnd').
#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableBlend16() { return {}; }

}  // namespace tarnell::refhost
