// The checks of each routine family (checks_<family>.cpp). registry.cpp joins them.
#pragma once

#include <span>

#include "verify/check.h"

namespace tarnell::verify {

std::span<const Check> blend8Checks();   // checks_blend8.cpp
std::span<const Check> memoryChecks();   // checks_memory.cpp
std::span<const Check> convertChecks();  // checks_convert.cpp
std::span<const Check> blend16Checks();  // checks_blend16.cpp
std::span<const Check> blendfChecks();  // checks_blendf.cpp
std::span<const Check> filterChecks();  // checks_filter.cpp
std::span<const Check> resampleChecks();  // checks_resample.cpp
std::span<const Check> paintChecks();  // checks_paint.cpp
std::span<const Check> pathfillChecks();  // checks_pathfill.cpp
std::span<const Check> selectionChecks();  // checks_selection.cpp

}  // namespace tarnell::verify
