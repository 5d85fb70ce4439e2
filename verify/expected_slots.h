// Which slots each suite's installer replaces for a given set of processor
// features, written down from the installer tables independently of the module's
// installers. Tests and `tarnell-host report` compare a started module with it.
#pragma once

#include <cstdint>
#include <vector>

namespace tarnell::verify {

struct FeatureSet {
  bool sse = false;  // both SSE flags: they are the same test
  bool sse2 = false;
  bool ssse3 = false;
  bool sse41 = false;
  bool avx = false;
  bool avx2 = false;
};

struct ExpectedSlot {
  uint32_t suite;
  int slot;
};

// Sorted slot numbers of one suite.
std::vector<int> expectedReplacedSlots(uint32_t suite, const FeatureSet& features);

// Each family appends the (suite, slot) pairs its installers write for these
// features, in any order (expected_<family>.cpp).
void expectedBlend8(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedMemory(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedConvert(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedBlend16(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedBlendFloat(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedFilter(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedResample(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedPaint(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedPathFill(const FeatureSet& features, std::vector<ExpectedSlot>& out);
void expectedSelection(const FeatureSet& features, std::vector<ExpectedSlot>& out);

}  // namespace tarnell::verify
