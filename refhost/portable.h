// The host's portable routines, one list per routine family (refhost/families.h).
// Each family's file (portable_<family>.cpp) defines its list; portable.cpp joins them.
#pragma once

#include <span>

#include "refhost/families.h"
#include "refhost/refhost.h"

namespace tarnell::refhost {

#define TARNELL_PORTABLE_FAMILY(F) std::span<const PortableRoutine> portable##F();
TARNELL_FAMILIES(TARNELL_PORTABLE_FAMILY)
#undef TARNELL_PORTABLE_FAMILY

}  // namespace tarnell::refhost
