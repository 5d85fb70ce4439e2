#include "verify/planes.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace tarnell::verify {

namespace {

std::size_t pageSize() {
#if defined(_WIN32)
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
#else
  return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
}

std::size_t roundUp(std::size_t n, std::size_t to) { return (n + to - 1) / to * to; }

unsigned char* mapPages(std::size_t bytes) {
#if defined(_WIN32)
  return static_cast<unsigned char*>(VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
#else
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : static_cast<unsigned char*>(p);
#endif
}

// A guard that silently stayed accessible would let every overread pass: fail loudly.
void protectPage(unsigned char* page, std::size_t bytes) {
#if defined(_WIN32)
  DWORD old;
  const bool ok = VirtualProtect(page, bytes, PAGE_NOACCESS, &old) != FALSE;
#else
  const bool ok = mprotect(page, bytes, PROT_NONE) == 0;
#endif
  if (!ok) throw std::runtime_error("cannot make a guard page inaccessible");
}

void unmapPages(unsigned char* p, std::size_t bytes) {
#if defined(_WIN32)
  (void)bytes;
  VirtualFree(p, 0, MEM_RELEASE);
#else
  munmap(p, bytes);
#endif
}

// Guarded mappings are kept for reuse by the same thread: a verification run
// makes thousands of planes of a few sizes, and mapping plus protecting each one
// anew costs far more than the check itself. A kept mapping keeps its guards.
class MappingCache {
 public:
  ~MappingCache() {
    for (const Entry& e : entries_) unmapPages(e.mapping, e.bytes);
  }
  unsigned char* take(std::size_t bytes) {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].bytes != bytes) continue;
      unsigned char* mapping = entries_[i].mapping;
      entries_[i] = entries_.back();
      entries_.pop_back();
      return mapping;
    }
    return nullptr;
  }
  void give(unsigned char* mapping, std::size_t bytes) {
    if (entries_.size() == kKept) {
      unmapPages(entries_.front().mapping, entries_.front().bytes);
      entries_.erase(entries_.begin());
    }
    entries_.push_back({mapping, bytes});
  }

 private:
  static constexpr std::size_t kKept = 4 * kMaxPlanes;
  struct Entry {
    unsigned char* mapping;
    std::size_t bytes;
  };
  std::vector<Entry> entries_;
};

MappingCache& mappingCache() {
  thread_local MappingCache cache;
  return cache;
}

thread_local Placement t_heapGoesTo = Placement::Heap;

float floatOfBits(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}
const float kDefaultNaN = floatOfBits(0xFFC00000u);
const float kInfinity = floatOfBits(0x7F800000u);
// This thread's live planes, oldest first.
thread_local std::vector<const PlaneBuffer*> t_livePlanes;

}  // namespace

bool guardPagesSupported() { return true; }

PagePlacement::PagePlacement(Placement placement) : previous_(t_heapGoesTo) { t_heapGoesTo = placement; }
PagePlacement::~PagePlacement() { t_heapGoesTo = previous_; }

bool locatePlaneAddress(uintptr_t address, PlaneAddress& where) {
  for (std::size_t i = 0; i < t_livePlanes.size(); ++i) {
    const PlaneBuffer& b = *t_livePlanes[i];
    const auto begin = reinterpret_cast<uintptr_t>(b.begin());
    if (address < begin || address > begin + b.size()) continue;
    const std::ptrdiff_t lead = b.first() - b.begin();
    std::size_t rank = 0;
    for (std::size_t j = 0; j < i; ++j)
      if (t_livePlanes[j]->size() == b.size() && t_livePlanes[j]->first() - t_livePlanes[j]->begin() == lead) ++rank;
    where = {b.size(), lead, rank / 2, static_cast<std::ptrdiff_t>(address - reinterpret_cast<uintptr_t>(b.first()))};
    return true;
  }
  return false;
}

PlaneBuffer::PlaneBuffer(const PlaneLayout& layout, Placement placement) : layout_(layout) {
  if (placement == Placement::Heap) placement = t_heapGoesTo;
  const int32_t rows = layout.rows < 1 ? 1 : layout.rows;
  layout_.rows = rows;
  const std::size_t pitch = static_cast<std::size_t>(layout.stride < 0 ? -static_cast<int64_t>(layout.stride)
                                                                        : layout.stride);
  const std::size_t span = pitch * static_cast<std::size_t>(rows - 1) + static_cast<std::size_t>(layout.rowBytes);

  if (placement == Placement::Heap) {
    // [guard][misalignment][rows][guard]; the comparisons cover all of it.
    heap_.resize(span + 2 * kGuardBytes + 64 + 64);
    auto base = reinterpret_cast<uintptr_t>(heap_.data());
    auto* aligned = reinterpret_cast<unsigned char*>(roundUp(base + kGuardBytes, 64));
    lowestRow_ = aligned + layout.misalign;
    begin_ = lowestRow_ - kGuardBytes;
    size_ = span + 2 * kGuardBytes;
  } else {
    // One inaccessible page on each side; the rows touch one of them. A routine
    // allowed to read past a row's end gets exactly that many readable bytes.
    const std::size_t page = pageSize();
    const std::size_t body = roundUp(span + static_cast<std::size_t>(layout.slackBytes) + 64, page);
    mappingSize_ = body + 2 * page;
    mapping_ = mappingCache().take(mappingSize_);
    if (mapping_ != nullptr) {
      std::memset(mapping_ + page, 0, body);  // as a fresh mapping would be
    } else {
      mapping_ = mapPages(mappingSize_);
      if (mapping_ == nullptr) throw std::runtime_error("cannot map guard pages");
      try {
        protectPage(mapping_, page);
        protectPage(mapping_ + page + body, page);
      } catch (...) {
        unmapPages(mapping_, mappingSize_);
        throw;
      }
    }
    if (placement == Placement::GuardPageAfter) {
      lowestRow_ = mapping_ + page + body - span - static_cast<std::size_t>(layout.slackBytes);
    } else {
      lowestRow_ = mapping_ + page;
    }
    begin_ = mapping_ + page;
    size_ = body;
  }
  first_ = layout.stride < 0 ? lowestRow_ + pitch * static_cast<std::size_t>(rows - 1) : lowestRow_;
  t_livePlanes.push_back(this);
}

PlaneBuffer::~PlaneBuffer() {
  if (mapping_ != nullptr) mappingCache().give(mapping_, mappingSize_);
  for (std::size_t i = t_livePlanes.size(); i-- > 0;)
    if (t_livePlanes[i] == this) {
      t_livePlanes.erase(t_livePlanes.begin() + static_cast<std::ptrdiff_t>(i));
      break;
    }
}

bool PlaneBuffer::inRow(std::size_t i, int32_t& row, int32_t& byteInRow) const {
  const unsigned char* p = begin_ + i;
  if (p < lowestRow_) return false;
  const auto offset = static_cast<std::size_t>(p - lowestRow_);
  const std::size_t pitch = static_cast<std::size_t>(layout_.stride < 0 ? -static_cast<int64_t>(layout_.stride)
                                                                         : layout_.stride);
  const std::size_t memRow = pitch == 0 ? 0 : offset / pitch;
  const std::size_t col = pitch == 0 ? offset : offset % pitch;
  if (memRow >= static_cast<std::size_t>(layout_.rows) || col >= static_cast<std::size_t>(layout_.rowBytes))
    return false;
  row = static_cast<int32_t>(layout_.stride < 0 ? static_cast<std::size_t>(layout_.rows) - 1 - memRow : memRow);
  byteInRow = static_cast<int32_t>(col);
  return true;
}

void fillUnread(Rng& rng, unsigned char* bytes, std::size_t count) {
  const Rng::Filler filler(rng);
  fillSamples(rng, Samples::Bytes, bytes, count);
}

void fillSamples(Rng& rng, Samples kind, unsigned char* bytes, std::size_t count) {
  const Rng::Content content(rng);
  switch (kind) {
    case Samples::Bytes:
      for (std::size_t i = 0; i < count; ++i) {
        const uint32_t r = rng.below(64);
        bytes[i] = r == 0 ? 0 : r == 1 ? 255 : rng.byte();
      }
      break;
    case Samples::Mask: {
      static constexpr unsigned char kEdges[] = {0, 0, 0, 255, 255, 255, 1, 127, 128, 254};
      // A quarter of the rows are runs of 0 or 255, 1 to 48 samples each, so that
      // whole vector steps all clear or all set occur.
      if (rng.chance(4)) {
        for (std::size_t i = 0; i < count;) {
          const std::size_t n = std::min<std::size_t>(count - i, 1 + rng.below(48));
          std::memset(bytes + i, rng.chance(2) ? 0 : 255, n);
          i += n;
        }
        break;
      }
      for (std::size_t i = 0; i < count; ++i) {
        const uint32_t r = rng.below(16);
        bytes[i] = r < 10 ? kEdges[r] : rng.byte();
      }
      break;
    }
    case Samples::Words15:
    case Samples::Words16: {
      const uint32_t full = kind == Samples::Words15 ? 32768 : 65535;
      for (std::size_t i = 0; i + 1 < count; i += 2) {
        const uint32_t r = rng.below(32);
        uint16_t v = static_cast<uint16_t>(r == 0 ? 0 : r == 1 ? full : r == 2 ? full - 1 : rng.below(full + 1));
        if (kind == Samples::Words15 && (r == 3 || r == 4)) v = r == 3 ? 1 : 16384;
        std::memcpy(bytes + i, &v, 2);
      }
      break;
    }
    case Samples::Mask15: {
      static constexpr uint16_t kEdges[] = {0, 0, 0, 32768, 32768, 32768, 1, 16384, 32767, 16383};
      // Runs of 0 or 32768 in a quarter of the rows, as for 8-bit masks.
      if (rng.chance(4)) {
        for (std::size_t i = 0; i + 1 < count;) {
          const uint16_t v = rng.chance(2) ? 0 : 32768;
          for (std::size_t n = 1 + rng.below(48); n > 0 && i + 1 < count; --n, i += 2) std::memcpy(bytes + i, &v, 2);
        }
        break;
      }
      for (std::size_t i = 0; i + 1 < count; i += 2) {
        const uint32_t r = rng.below(16);
        const uint16_t v = r < 10 ? kEdges[r] : static_cast<uint16_t>(rng.below(32769));
        std::memcpy(bytes + i, &v, 2);
      }
      break;
    }
    case Samples::Floats01:
    case Samples::FloatsWide: {
      const bool wide = kind == Samples::FloatsWide;
      // Wide samples also take the processor's default NaN (the one invalid
      // operations make), denormals of both signs and an infinity.
      static const float kEdges[] = {0.0f,  1.0f, 0.5f,   0.00196078f, 0.99803922f, -0.25f,
                                     1.5f, -0.0f, kDefaultNaN, 1e-40f, -1e-40f, kInfinity};
      for (std::size_t i = 0; i + 3 < count; i += 4) {
        const uint32_t r = rng.below(wide ? 32 : 16);
        float v = r < (wide ? 12u : 5u) ? kEdges[r] : (wide ? rng.uniform(-0.5f, 1.5f) : rng.uniform(0.0f, 1.0f));
        std::memcpy(bytes + i, &v, 4);
      }
      break;
    }
  }
}

}  // namespace tarnell::verify
