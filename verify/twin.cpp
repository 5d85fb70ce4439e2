#include "verify/twin.h"

#include <algorithm>
#include <sstream>

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
  if (std::string outside = writtenOutside([this](std::ptrdiff_t o) {
        return o >= 0 && static_cast<std::size_t>(o) < bytes_;
      });
      !outside.empty())
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

std::string Twin::outsideWrite(int side, std::size_t i) const {
  std::ostringstream out;
  out << (side == 0 ? "the host routine" : "the module") << " wrote outside what it may, at offset "
      << static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(lead_) << " of " << bytes_ << ": 0x" << std::hex
      << int{sides_[side]->begin()[i]} << " before 0x" << int{pristine_[i]};
  return out.str();
}

const char* placementName(Placement placement) {
  return placement == Placement::Heap             ? ""
         : placement == Placement::GuardPageAfter ? "against the next page"
                                                  : "against the previous page";
}

}  // namespace tarnell::verify
