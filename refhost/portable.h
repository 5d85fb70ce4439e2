// The host's portable routines, one list per routine family. Each family's file
// (portable_<family>.cpp) defines its list; portable.cpp joins them.
#pragma once

#include <span>

#include "refhost/refhost.h"

namespace tarnell::refhost {

std::span<const PortableRoutine> portableBlend8();   // portable_blend8.cpp
std::span<const PortableRoutine> portableMemory();   // portable_memory.cpp
std::span<const PortableRoutine> portableConvert();  // portable_convert.cpp

}  // namespace tarnell::refhost
