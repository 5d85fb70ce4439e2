// Fill arrays for the path-fill checks, tests and fuzzer: drawn from any source
// of numbers (the harness's generator, or a fuzzer's input), valid and hostile
// alike, and run through two fill-array operations on identical copies placed
// between guard bytes or against an inaccessible page.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "refhost/portable_pathfill.h"
#include "verify/planes.h"
#include "verify/rng.h"

namespace tarnell::refhost {
class ReferenceHost;
}

namespace tarnell::verify {

struct FillArrayCase {
  std::vector<uint32_t> words;  // header, row blocks and working space
  uint32_t operation = 0;
  int32_t nonZeroWinding = 0;
};

// Runs host and module on copies of the case placed between guard bytes or
// against an inaccessible page (reports captured by the active host, in order),
// and returns the first difference in the bytes, guards included, or in the
// reports; empty when none.
std::string compareFillArray(const FillArrayCase& c, SlotFnOf<slot::ApplyFillArrayOperation> host, SlotFnOf<slot::ApplyFillArrayOperation> module,
                             refhost::ReferenceHost& reference, Placement placement);

// The generator's content stream for the words' random filling; nothing for
// other sources of numbers.
template <typename Source>
auto contentScope(Source& src) {
  if constexpr (std::is_same_v<Source, Rng>)
    return Rng::Content(src);
  else
    return 0;
}

// Draws a case; Source has next() (64 random bits) and below(n).
template <typename Source>
FillArrayCase drawFillArray(Source& src, const refhost::FillArraySettings& settings) {
  using namespace fillarray;
  FillArrayCase c;
  auto chance = [&](uint32_t oneIn) { return src.below(oneIn) == 0; };
  auto any = [&] { return static_cast<uint32_t>(src.next()); };

  int32_t rows = 1 + static_cast<int32_t>(src.below(6));
  if (chance(16)) rows = chance(2) ? 0 : -static_cast<int32_t>(src.below(4) + 1);
  if (chance(16)) rows = 7 + static_cast<int32_t>(src.below(30));
  int32_t stride = 2 + static_cast<int32_t>(chance(4) ? src.below(4) : chance(2) ? src.below(20) : src.below(150));
  if (chance(32)) stride = 260 + static_cast<int32_t>(src.below(400));  // long rows
  if (chance(64)) stride = static_cast<int32_t>(src.below(4)) - 2;      // no room for the counts
  const int64_t blocks = stride >= 2 && rows > 0 ? int64_t{rows} * stride : 0;
  const int64_t working = refhost::fillArrayWorkingWords(stride, settings);
  c.words.resize(static_cast<std::size_t>(kFirstRow + blocks + working));
  {
    [[maybe_unused]] const auto content = contentScope(src);
    for (uint32_t& w : c.words) w = any();
  }
  const uint32_t top = any();
  c.words[kTop] = top;
  c.words[kBottom] = top + static_cast<uint32_t>(rows);
  c.words[kRowStride] = static_cast<uint32_t>(stride);
  c.operation = chance(8) ? (chance(2) ? 4 + src.below(8) : any()) : src.below(4);
  c.nonZeroWinding = chance(2) ? 0 : chance(2) ? 1 : static_cast<int32_t>(any());

  // Positions: a narrow range most of the time, so that crossings coincide with
  // each other and with the spans; sometimes anything.
  const uint32_t range = chance(4) ? 0x7FFFFFFF : 4 + src.below(60);
  auto position = [&] { return src.below(range + 1); };
  const int64_t capacity = stride - 2;
  // Hostile crossing counts reach past the crossings' room into the counts and
  // spans (capacity + 1 and + 2: all of the block but the span count, and all of
  // it), beyond the block, and below 0; the direction check counts exactly the
  // words such a count names.
  auto count = [&](int64_t valid) -> uint32_t {
    switch (src.below(13)) {
      case 0: return static_cast<uint32_t>(capacity + 1 + src.below(4));  // just beyond the room
      case 1: return static_cast<uint32_t>(-static_cast<int32_t>(1 + src.below(5)));  // negative
      case 2: return any();
      case 3: return static_cast<uint32_t>(valid | 1) <= capacity ? static_cast<uint32_t>(valid | 1) : 1;  // odd
      case 4: return static_cast<uint32_t>(stride) + src.below(3 * static_cast<uint32_t>(stride));  // past the block
      default: return static_cast<uint32_t>(valid);
    }
  };
  for (int64_t r = 0; r < (blocks > 0 ? rows : 0); ++r) {
    uint32_t* block = c.words.data() + kFirstRow + r * stride;
    const int64_t crossings = capacity < 1 ? 0 : (chance(6) ? 0 : src.below(static_cast<uint32_t>(capacity / 2) + 1) * 2);
    const int64_t room = capacity - crossings;
    const int64_t spans = room < 2 ? 0 : src.below(static_cast<uint32_t>(room / 2) + 1) * 2;
    block[kSpanCount] = count(spans);
    block[kCrossingCount] = count(crossings);
    // Spans ascending (unless hostile); crossings in pairs of opposite direction
    // (unless hostile), in any order.
    const bool sortedSpans = !chance(8), balanced = !chance(4);
    uint32_t x = 0;
    for (int64_t i = 0; i < spans; ++i) block[kSpans + i] = sortedSpans ? (x += src.below(8)) : any();
    for (int64_t i = 0; i < crossings; ++i) {
      const uint32_t direction = balanced ? static_cast<uint32_t>(i & 1) : src.below(2);
      block[stride - 1 - i] = chance(32) ? any() : (position() << 1 | direction);
    }
  }
  if (settings.checking && settings.guard != 0 && stride >= 2) {
    const int64_t end = kFirstRow + blocks;
    c.words[static_cast<std::size_t>(end)] = chance(8) ? any() : settings.guard;
    c.words[static_cast<std::size_t>(end + 1 + stride)] = chance(8) ? any() : settings.guard;
  }
  return c;
}

}  // namespace tarnell::verify
