// The nine shared 16-byte constant vectors the SIMD routines load.
#pragma once

#include <cstdint>

namespace tarnell {

struct alignas(16) ConstantVector {
  uint8_t bytes[16];
};

enum ConstantVectorIndex : int {
  kVecZero,        // all zero
  kVecBytes80,     // sixteen bytes 0x80
  kVecWords128,    // eight 16-bit lanes of 128
  kVecAllOnes,     // all bits one
  kVecWords255,    // eight 16-bit lanes of 255
  kVecWords4000,   // eight 16-bit lanes of 0x4000
  kVecDwords4000,  // four 32-bit lanes of 0x4000
  kVecWords8000,   // eight 16-bit lanes of 0x8000
  kVecDwords8000,  // four 32-bit lanes of 0x8000
  kConstantVectorCount
};

extern ConstantVector g_constantVectors[kConstantVectorCount];

// Run at start-up when SSE2 is present.
void fillConstantVectors();

}  // namespace tarnell
