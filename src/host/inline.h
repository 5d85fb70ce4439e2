// TARNELL_INLINE: a helper the compiler must fold into its caller. The per-sample
// rules and vector steps are written as small functions so that the scalar and
// vector forms read alike; inside a row loop they must cost nothing, and in a
// file built for a wider level they must not stay behind as calls.
//
// A macro only, so that files of every instruction-set level can include it.
#pragma once

#if defined(__GNUC__)
#define TARNELL_INLINE inline __attribute__((always_inline))
#else
#define TARNELL_INLINE inline
#endif
