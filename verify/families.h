// The checks of each routine family (checks_<family>.cpp). registry.cpp joins them.
#pragma once

#include <span>

#include "verify/check.h"

namespace tarnell::verify {

std::span<const Check> blend8Checks();   // checks_blend8.cpp
std::span<const Check> memoryChecks();   // checks_memory.cpp
std::span<const Check> convertChecks();  // checks_convert.cpp

}  // namespace tarnell::verify
