// The instruction-set tiers tarnell-host runs on this processor. The loaded module
// runs at this processor's own level; a narrower tier runs the module's code that
// is linked into the tool (the same object files the module is linked from),
// started with the flags of a processor of that level, on a host of its own.
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "host/cpu_features.h"
#include "host/kernel_table.h"
#include "refhost/refhost.h"

namespace tarnell::tool {

CpuFeatureFlags processorFlags();
// sse2 up to the widest level this processor reaches, narrowest first.
std::vector<Level> levelsHere();
Level widestHere();

// The module's code started at a tier, on a fresh reference host.
class BuiltInModule {
 public:
  BuiltInModule(Level level, const refhost::HostOptions& options);
  refhost::ReferenceHost& host() { return *host_; }
  Level level() const { return level_; }

 private:
  Level level_;
  std::unique_ptr<refhost::ReferenceHost> host_;
};

// The body behind each slot an installer writes at a tier: its level, or forwarded.
struct Body {
  Level level = Level::sse2;
  bool forwarded = false;
};
using BodyMap = std::map<std::pair<uint32_t, int>, Body>;
// Needs the built-in copy started (its path installer asks the host).
BodyMap bodiesAt(BuiltInModule& module);
// "sse2", "avx2", "forwarded".
const char* bodyName(const Body& body);

}  // namespace tarnell::tool
