#include "host/constants.h"

#include <cstring>

namespace tarnell {

ConstantVector g_constantVectors[kConstantVectorCount];

namespace {
void fillBytes(ConstantVectorIndex v, uint8_t value) { std::memset(g_constantVectors[v].bytes, value, 16); }
void fillWords(ConstantVectorIndex v, uint16_t value) {
  for (int i = 0; i < 8; ++i) std::memcpy(g_constantVectors[v].bytes + 2 * i, &value, 2);
}
void fillDwords(ConstantVectorIndex v, uint32_t value) {
  for (int i = 0; i < 4; ++i) std::memcpy(g_constantVectors[v].bytes + 4 * i, &value, 4);
}
}  // namespace

void fillConstantVectors() {
  fillBytes(kVecZero, 0);
  fillBytes(kVecBytes80, 0x80);
  fillWords(kVecWords128, 128);
  fillBytes(kVecAllOnes, 0xFF);
  fillWords(kVecWords255, 255);
  fillWords(kVecWords4000, 0x4000);
  fillDwords(kVecDwords4000, 0x4000);
  fillWords(kVecWords8000, 0x8000);
  fillDwords(kVecDwords8000, 0x8000);
}

}  // namespace tarnell
