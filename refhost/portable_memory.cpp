#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableMemory() { return {}; }

}  // namespace tarnell::refhost
