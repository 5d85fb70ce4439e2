// Planes with guard areas, for checking that a routine writes exactly its
// rectangle and reads nothing it was not given.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "verify/check.h"
#include "verify/rng.h"

namespace tarnell::verify {

constexpr int kGuardBytes = 64;

// Where a plane's bytes sit. Heap: guard bytes on both sides, checked after the
// call. The guard-page placements put the rows flush against an inaccessible page
// (after the last row's end, or before the first row's start), so that touching a
// byte beyond the rectangle faults at once.
enum class Placement : uint8_t { Heap, GuardPageAfter, GuardPageBefore };

// The bytes of one plane: rows of rowBytes bytes, |stride| apart, the first row at
// the given misalignment from a 64-byte boundary (Heap placement).
struct PlaneLayout {
  int32_t rows = 1;      // rows of memory (at least 1, even for a call with rows < 1)
  int32_t rowBytes = 0;  // bytes of each row the routine may touch
  int32_t stride = 0;    // bytes from one row to the next; negative: rows go down in memory
  int misalign = 0;      // offset of the lowest row from a 64-byte boundary
  int slackBytes = 0;    // bytes a routine may read past a row's end
};

class PlaneBuffer {
 public:
  PlaneBuffer(const PlaneLayout& layout, Placement placement);
  ~PlaneBuffer();
  PlaneBuffer(const PlaneBuffer&) = delete;
  PlaneBuffer& operator=(const PlaneBuffer&) = delete;

  // The first sample of row 0.
  unsigned char* first() const { return first_; }
  // The whole allocation seen by comparisons: guards, rows and row padding.
  unsigned char* begin() const { return begin_; }
  std::size_t size() const { return size_; }
  const PlaneLayout& layout() const { return layout_; }

  // Where byte i of the allocation lies: row and byte in the row, or -1 outside rows.
  bool inRow(std::size_t i, int32_t& row, int32_t& byteInRow) const;

 private:
  PlaneLayout layout_;
  unsigned char* mapping_ = nullptr;
  std::size_t mappingSize_ = 0;
  std::vector<unsigned char> heap_;
  unsigned char* begin_ = nullptr;
  std::size_t size_ = 0;
  unsigned char* first_ = nullptr;
  unsigned char* lowestRow_ = nullptr;
};

// Fills bytes with samples of the given kind (sampleBytes each), from the
// generator's content stream.
void fillSamples(Rng& rng, Samples kind, unsigned char* bytes, std::size_t count);
// Fills guards and padding (random bytes, as fillSamples' Bytes) with the
// generator's filler: a fuzzer's input is not spent on bytes nobody should read.
void fillUnread(Rng& rng, unsigned char* bytes, std::size_t count);

// While one lives (on this thread), planes asked for on the heap are put flush
// against an inaccessible page instead, after their end or before their start:
// the fuzzer runs whole checks so, whatever placement their cases draw.
class PagePlacement {
 public:
  explicit PagePlacement(Placement placement);
  ~PagePlacement();
  PagePlacement(const PagePlacement&) = delete;
  PagePlacement& operator=(const PagePlacement&) = delete;

 private:
  Placement previous_;
};

// Where an address lies among this thread's live planes, told apart from their
// copies: the host's copy of a plane and the module's are made one after the
// other with the same layout, so the k-th plane of a layout and the k+1-th (k
// even) are one pair. Two calls, one on each side, that pass the same pair and
// offset pass the same place. False for an address in no plane.
struct PlaneAddress {
  std::size_t size = 0;      // the layout: bytes of the allocation seen by comparisons
  std::ptrdiff_t lead = 0;   //   and the first sample's offset in it
  std::size_t pair = 0;      // which pair of planes of that layout
  std::ptrdiff_t offset = 0; // from the first sample
};
bool locatePlaneAddress(uintptr_t address, PlaneAddress& where);

bool guardPagesSupported();

}  // namespace tarnell::verify
