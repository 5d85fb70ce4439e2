// The routine families, in one list. The reference host's portable routines
// (refhost/portable_<family>.cpp, portable<Family>()) and the harness's checks
// (verify/checks_<family>.cpp, checks<Family>()) are declared and joined from it,
// so a family is added here and nowhere else.
#pragma once

#define TARNELL_FAMILIES(X) \
  X(Blend8)                 \
  X(Memory)                 \
  X(Convert)                \
  X(Blend16)                \
  X(BlendFloat)             \
  X(Filter)                 \
  X(Resample)               \
  X(Paint)                  \
  X(PathFill)               \
  X(Selection)
