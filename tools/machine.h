// The processor as the module sees it, described once for the tool's text, JSON
// and pages: brand, the ten feature flags, topology.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/cpu_features.h"

namespace tarnell::tool {

struct Machine {
  std::string processor;  // brand string and vendor, else the vendor
  std::string vendor;
  int vendorKind = 0;
  CpuFeatureFlags flags{};
  std::vector<std::pair<const char*, unsigned>> namedFlags;  // MMX, SSE, SSE(2nd), ... SMT
  uint32_t physicalCores = 0, logicalProcessors = 0;
  std::optional<uint32_t> l2Bytes, l2Line;  // empty when the system did not say

  // "MMX=1 SSE=1 SSE(2nd)=1 SSE2=1 ...": the form report prints and scripts grep.
  std::string flagList() const;
  // "2 physical cores, 2 logical processors, L2 1 MiB" (or "L2 unknown").
  std::string topologyText() const;
};

Machine thisMachine();
Machine describeMachine(const CpuIdentification& id, const std::string& brand, const Topology& t);

// "1 MiB", "512 KiB", "1000 bytes".
std::string byteSize(uint64_t bytes);

// The current time as "2026-01-31 12:00:00 UTC".
std::string utcNow();

}  // namespace tarnell::tool
