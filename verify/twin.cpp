#include "verify/twin.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace tarnell::verify {

Twin::Twin(Rng& rng, std::size_t bytes, Placement placement) : bytes_(bytes) {
  PlaneLayout layout;
  layout.rows = 1;
  layout.rowBytes = static_cast<int32_t>(std::max<std::size_t>(bytes, 1));
  layout.stride = layout.rowBytes;
  for (auto& side : sides_) side = std::make_unique<PlaneBuffer>(layout, placement);
  pristine_.resize(sides_[0]->size());
  const Rng::Content content(rng);
  for (std::size_t i = 0; i < pristine_.size(); i += 8) {
    const uint64_t r = rng.next();
    std::memcpy(pristine_.data() + i, &r, std::min<std::size_t>(8, pristine_.size() - i));
  }
  lead_ = static_cast<std::size_t>(sides_[0]->first() - sides_[0]->begin());
  reset();
}

std::string Twin::difference() const {
  // Nothing may touch the guard areas, even the same way on both sides.
  if (std::string outside = writtenOutside({{0, static_cast<std::ptrdiff_t>(bytes_)}}); !outside.empty())
    return outside;
  const Byte* h = sides_[0]->begin();
  const Byte* m = sides_[1]->begin();
  if (std::memcmp(h, m, pristine_.size()) == 0) return {};
  std::size_t i = 0;
  while (h[i] == m[i]) ++i;
  std::ostringstream out;
  out << "memory differs at offset " << static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(lead_) << " of "
      << bytes_ << ": host 0x" << std::hex << int{h[i]} << " module 0x" << int{m[i]} << " before 0x"
      << int{pristine_[i]};
  return out.str();
}

std::string Twin::writtenOutside(std::vector<Span> mayWrite) const {
  std::sort(mayWrite.begin(), mayWrite.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
  // The gaps between the spans, in the compared range's indices.
  std::vector<std::pair<std::size_t, std::size_t>> gaps;
  const auto lead = static_cast<std::ptrdiff_t>(lead_);
  const auto size = static_cast<std::ptrdiff_t>(pristine_.size());
  std::ptrdiff_t from = 0;
  for (const Span& s : mayWrite) {
    const std::ptrdiff_t b = std::clamp(s.begin + lead, std::ptrdiff_t{0}, size);
    const std::ptrdiff_t e = std::clamp(s.end + lead, std::ptrdiff_t{0}, size);
    if (b >= e) continue;
    if (b > from) gaps.emplace_back(static_cast<std::size_t>(from), static_cast<std::size_t>(b));
    from = std::max(from, e);
  }
  if (from < size) gaps.emplace_back(static_cast<std::size_t>(from), static_cast<std::size_t>(size));
  for (int side = 0; side < 2; ++side) {
    const Byte* bytes = sides_[side]->begin();
    for (const auto& [b, e] : gaps) {
      if (std::memcmp(bytes + b, pristine_.data() + b, e - b) == 0) continue;
      std::size_t i = b;
      while (bytes[i] == pristine_[i]) ++i;
      std::ostringstream out;
      out << (side == 0 ? "the host routine" : "the module") << " wrote outside what it may, at offset "
          << static_cast<std::ptrdiff_t>(i) - lead << " of " << bytes_ << ": 0x" << std::hex << int{bytes[i]}
          << " before 0x" << int{pristine_[i]};
      return out.str();
    }
  }
  return {};
}

std::vector<Twin::Span> blockSpans(std::ptrdiff_t firstRow, int32_t rows, std::size_t rowBytes, int32_t step) {
  std::vector<Twin::Span> spans;
  for (int32_t r = 0; r < rows; ++r) {
    const std::ptrdiff_t start = firstRow + std::ptrdiff_t{r} * step;
    spans.push_back({start, start + static_cast<std::ptrdiff_t>(rowBytes)});
  }
  return spans;
}

const char* placementName(Placement placement) {
  return placement == Placement::Heap             ? ""
         : placement == Placement::GuardPageAfter ? "against the next page"
                                                  : "against the previous page";
}

}  // namespace tarnell::verify
