#include "refhost/portable.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableConvert() { return {}; }

}  // namespace tarnell::refhost
