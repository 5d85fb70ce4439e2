#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableBlend8() { return {}; }

}  // namespace tarnell::refhost
