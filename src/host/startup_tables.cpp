#include "host/startup_tables.h"

namespace tarnell {

alignas(64) uint8_t Mul255Table[256][256];
alignas(64) uint8_t Screen255Table[256][256];
alignas(64) uint8_t Div255Table[256][256];
alignas(64) int16_t SignedMul255Table[256][512];

namespace {
// Rounded division by 255 of a product 0..65535, in the form the vector code uses.
constexpr int round255(int t) { return (t + 128 + ((t + 128) >> 8)) >> 8; }

// Nearest integer to a*c/255 with ties away from zero: the negative side is
// biased by one so that the result is odd-symmetric in c. Shifts are arithmetic.
constexpr int signedMul255(int a, int c) {
  const int t = a * c - (c < 0 ? 1 : 0);
  const int u = t + 128;
  return (u + (u >> 8)) >> 8;
}
}  // namespace

void buildStartupTables() {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      const int product = round255(a * b);
      Mul255Table[a][b] = static_cast<uint8_t>(product);
      Screen255Table[a][b] = static_cast<uint8_t>(a + b - product);
    }
    for (int j = 0; j < 511; ++j) SignedMul255Table[a][j] = static_cast<int16_t>(signedMul255(a, j - 255));
    SignedMul255Table[a][511] = 0;
  }
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b)
      Div255Table[a][b] = b <= a ? uint8_t{255} : static_cast<uint8_t>((255 * a + (b >> 1)) / b);
  }
}

}  // namespace tarnell
