// The start-up lookup tables: products and quotients of 8-bit values scaled by
// 1/255, read by the 8-bit routines. Row-major; the first index is the row.
#pragma once

#include <cstdint>

namespace tarnell {

extern uint8_t Mul255Table[256][256];     // [a][b] = a*b/255, rounded to nearest
extern uint8_t Screen255Table[256][256];  // [a][b] = a + b - Mul255Table[a][b]
extern uint8_t Div255Table[256][256];     // [a][b] = 255*a/b rounded, 255 where b <= a
extern int16_t SignedMul255Table[256][512];  // [a][c + 255] = a*c/255, ties away from zero; column 511 is 0

// Fills all four; run at every start-up, before any installer.
void buildStartupTables();

}  // namespace tarnell
