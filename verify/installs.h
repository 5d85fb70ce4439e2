// What every installer writes, in which order and under which processor flag,
// written down from the installer tables independently of the module's installers.
// It is the one statement of that fact on this side: the installer tests compare
// the module's recorded writes with it, and the slot sets that `tarnell-host
// report` and the tests expect, and the list of forwarded slots (forwarded.h),
// derive from it.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace tarnell::verify {

// The processor features an installer looks at. The two SSE reports are the same
// test, so one value stands for both.
struct FeatureSet {
  bool sse = false;
  bool sse2 = false;
  bool ssse3 = false;
  bool sse41 = false;
  bool avx = false;
  bool avx2 = false;
};

// A slot as the lists name it: by its slot name, which carries its number.
struct SlotRef {
  uint32_t suite;
  int slot;
  const char* name;
  bool forwarded;  // filled with a jump to the host's own routine of the slot
  friend bool operator==(const SlotRef& a, const SlotRef& b) { return a.suite == b.suite && a.slot == b.slot; }
};
template <uint32_t Suite, int Slot>
constexpr SlotRef ref(SlotId<Suite, Slot>) {
  return {Suite, Slot, SlotSignature<Suite, Slot>::name, SlotSignature<Suite, Slot>::forwarded};
}
std::string slotLabel(uint32_t suite, int slot, const char* name);  // "blnd:74 MultiplyInto8"
inline std::string slotLabel(const SlotRef& s) { return slotLabel(s.suite, s.slot, s.name); }

// When a step runs.
enum class Gate : uint8_t { always, sse, sse2, ssse3, sse41, avx, withoutSse2 };
bool gateHolds(Gate gate, const FeatureSet& features);

// One step of an installer: under its gate, these slots in this order.
struct WriteStep {
  Gate gate;
  std::vector<SlotRef> slots;
};

struct InstallerWrites {
  const char* installer;  // the start-up step's name
  uint32_t suite;
  std::vector<WriteStep> steps;
};

// Every installer that writes a slot, in start-up order.
const std::vector<InstallerWrites>& installerWrites();

// What one installer writes for these features, in order (a slot may come twice).
std::vector<SlotRef> writesOf(const InstallerWrites& installer, const FeatureSet& features);
// Sorted slot numbers of one suite that some installer writes for these features.
std::vector<int> expectedReplacedSlots(uint32_t suite, const FeatureSet& features);

}  // namespace tarnell::verify
