// The checks of each routine family (checks_<family>.cpp), declared from the one
// list of families (refhost/families.h). registry.cpp joins them.
#pragma once

#include <span>

#include "refhost/families.h"
#include "verify/check.h"

namespace tarnell::verify {

#define TARNELL_CHECK_FAMILY(F) std::span<const Check> checks##F();
TARNELL_FAMILIES(TARNELL_CHECK_FAMILY)
#undef TARNELL_CHECK_FAMILY

}  // namespace tarnell::verify
