#include "tools/tiers.h"

#include "host/install.h"
#include "host/kernels.h"
#include "host/startup.h"

namespace tarnell::tool {

CpuFeatureFlags processorFlags() { return computeFeatureFlags(identification(), topology()); }

std::vector<Level> levelsHere() {
  std::vector<Level> levels;
  const CpuFeatureFlags f = processorFlags();
  for (int i = static_cast<int>(Level::sse2); i < kLevelCount; ++i)
    if (flagsReach(f, static_cast<Level>(i))) levels.push_back(static_cast<Level>(i));
  return levels;
}

Level widestHere() { return levelsHere().back(); }

BuiltInModule::BuiltInModule(Level level, const refhost::HostOptions& options)
    : level_(level), host_(std::make_unique<refhost::ReferenceHost>(options)) {
  int16_t result = 1;
  startupAtTier(host_->hostInfo(), &result, flagsAtLevel(processorFlags(), level));
  host_->registerNoise();
}

BodyMap bodiesAt(BuiltInModule& module) {
  BodyMap bodies;
  recordInstallers(
      flagsAtLevel(processorFlags(), module.level()),
      [](void* context, uint32_t suite, const SlotWrite& w) {
        (*static_cast<BodyMap*>(context))[{suite, w.slot}] = {w.level, w.forwarded};
      },
      &bodies);
  return bodies;
}

const char* bodyName(const Body& body) { return body.forwarded ? "forwarded" : levelName(body.level); }

}  // namespace tarnell::tool
