#include "tools/machine.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace tarnell::tool {

namespace {

// The brand string (extended leaves 0x80000002..4), blanks trimmed; empty when the
// processor has none.
std::string brandString() {
  std::string brand;
#if defined(__x86_64__) || defined(__i386__)
  unsigned regs[12] = {};
  if (static_cast<unsigned>(__get_cpuid_max(0x80000000u, nullptr)) >= 0x80000004u) {
    for (unsigned leaf = 0; leaf < 3; ++leaf)
      __get_cpuid(0x80000002u + leaf, &regs[4 * leaf], &regs[4 * leaf + 1], &regs[4 * leaf + 2], &regs[4 * leaf + 3]);
    char text[49] = {};
    std::memcpy(text, regs, 48);
    brand = text;
    brand.erase(0, brand.find_first_not_of(' '));
    brand.erase(brand.find_last_not_of(' ') + 1);
  }
#endif
  return brand;
}

}  // namespace

std::string Machine::flagList() const {
  std::string text;
  for (const auto& [name, value] : namedFlags) {
    if (!text.empty()) text += ' ';
    text.append(name).append("=").append(std::to_string(value));
  }
  return text;
}

std::string byteSize(uint64_t bytes) {
  if (bytes >= (1u << 20) && bytes % (1u << 20) == 0) return std::to_string(bytes >> 20) + " MiB";
  if (bytes >= (1u << 10) && bytes % (1u << 10) == 0) return std::to_string(bytes >> 10) + " KiB";
  return std::to_string(bytes) + " bytes";
}

std::string Machine::topologyText() const {
  std::string text = std::to_string(physicalCores);
  text += physicalCores == 1 ? " physical core, " : " physical cores, ";
  text += std::to_string(logicalProcessors);
  text += logicalProcessors == 1 ? " logical processor, L2 " : " logical processors, L2 ";
  text += l2Bytes ? byteSize(*l2Bytes) : std::string("unknown");
  return text;
}

Machine describeMachine(const CpuIdentification& id, const std::string& brand, const Topology& t) {
  Machine m;
  m.vendor = id.vendor;
  m.processor = brand.empty() ? m.vendor : brand + " (" + m.vendor + ")";
  m.vendorKind = vendorKind(id);
  m.flags = computeFeatureFlags(id, t);
  const CpuFeatureFlags& f = m.flags;
  m.namedFlags = {{"MMX", f.mmx},     {"SSE", f.sse},      {"SSE(2nd)", f.sseSecond}, {"SSE2", f.sse2},
                  {"SSE3", f.sse3},   {"SSSE3", f.ssse3},  {"SSE4.1", f.sse41},       {"AVX", f.avx},
                  {"AVX2", f.avx2},   {"SMT", f.smt}};
  m.physicalCores = t.physicalCores;
  m.logicalProcessors = t.logicalProcessors;
  if (t.l2Size != 0) m.l2Bytes = t.l2Size;
  if (t.l2Line != 0) m.l2Line = t.l2Line;
  return m;
}

Machine thisMachine() { return describeMachine(identification(), brandString(), topology()); }

std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  char text[40] = "";
  if (const std::tm* tm = std::gmtime(&now)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", tm);
  return text;
}

}  // namespace tarnell::tool
