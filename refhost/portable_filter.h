// The host's filter routines ('filt') are split over a few files; each part
// returns its list, joined by portableFilter().
#pragma once

#include <span>

#include "refhost/refhost.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableFilterRemap();  // portable_filter_remap.cpp

}  // namespace tarnell::refhost
