// Two copies of one arena of random bytes with guard areas, for checks that lay
// out their own runs, blocks or lanes: the host's routine works on one copy, the
// module's on the other, and the two are compared byte for byte, guards included.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "verify/planes.h"
#include "verify/rng.h"

namespace tarnell::verify {

// Heap: the arena starts on a 64-byte boundary with kGuardBytes guard bytes on both
// sides. Guard-page placements put the arena flush against an inaccessible page
// (after its end or before its start), so that touching a byte beyond it faults.
class Twin {
 public:
  using Byte = unsigned char;

  Twin(Rng& rng, std::size_t bytes, Placement placement = Placement::Heap);

  std::size_t size() const { return bytes_; }
  // Content both sides start from (reset() copies it over).
  Byte& at(std::size_t offset) { return pristine_[lead_ + offset]; }
  void fill(std::size_t offset, std::size_t n, Byte value) { std::memset(&at(offset), value, n); }
  void reset() {
    for (auto& side : sides_) std::memcpy(side->begin(), pristine_.data(), pristine_.size());
  }
  Byte* host(std::ptrdiff_t offset) { return sides_[0]->first() + offset; }
  Byte* module(std::ptrdiff_t offset) { return sides_[1]->first() + offset; }

  // Empty when both sides are alike and neither touched the guard areas; else
  // where the first write to a guard or difference is.
  std::string difference() const;
  // Empty when neither side changed a byte outside the spans the routine may
  // write (offsets from the arena's start; the same write on both sides is still
  // a fault); else the first such write.
  struct Span {
    std::ptrdiff_t begin, end;
  };
  std::string writtenOutside(std::vector<Span> mayWrite) const;

 private:
  std::size_t bytes_;
  std::unique_ptr<PlaneBuffer> sides_[2];
  std::vector<Byte> pristine_;
  std::size_t lead_ = 0;  // bytes before the arena's start in the compared range
};

// The spans of a block of rows x rowBytes whose first row starts at firstRow,
// rows `step` bytes apart (none for rows below 1).
std::vector<Twin::Span> blockSpans(std::ptrdiff_t firstRow, int32_t rows, std::size_t rowBytes, int32_t step);

// The guard-page placements, and how a failure message names them.
constexpr Placement kGuardPages[] = {Placement::GuardPageAfter, Placement::GuardPageBefore};
const char* placementName(Placement placement);

}  // namespace tarnell::verify
