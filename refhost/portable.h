// The host's portable routines, one list per routine family. Each family's file
// (portable_<family>.cpp) defines its list; portable.cpp joins them.
#pragma once

#include <span>

#include "refhost/refhost.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableBlend8();   // portable_blend8.cpp
std::span<const PortableRoutine> portableMemory();   // portable_memory.cpp
std::span<const PortableRoutine> portableConvert();  // portable_convert.cpp
std::span<const PortableRoutine> portableBlend16();  // portable_blend16.cpp
std::span<const PortableRoutine> portableBlendFloat();  // portable_blendf.cpp
std::span<const PortableRoutine> portableFilter();  // portable_filter.cpp
std::span<const PortableRoutine> portableResample();  // portable_resample.cpp
std::span<const PortableRoutine> portablePaint();  // portable_paint.cpp
std::span<const PortableRoutine> portablePathFill();  // portable_pathfill.cpp
std::span<const PortableRoutine> portableSelection();  // portable_selection.cpp

}  // namespace tarnell::refhost
