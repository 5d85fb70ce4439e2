#include "host/suites.h"

#include <cstring>

#include "host/module_state.h"

namespace tarnell {

namespace {
// Revisions are compared unsigned after sign extension, so a negative revision
// passes every minimum; hosts rely on that.
bool revisionBelow(int16_t revision, int32_t minimum) {
  return static_cast<uint32_t>(static_cast<int32_t>(revision)) < static_cast<uint32_t>(minimum);
}
}  // namespace

const HostSuite* findSuite(const HostInfo* hostInfo, uint32_t key, int16_t version) {
  if (hostInfo == nullptr) return nullptr;
  const auto* entries = reinterpret_cast<const HostSuite*>(
      reinterpret_cast<const unsigned char*>(hostInfo) + kHostInfoEntriesOffset);
  const HostSuite* core = nullptr;
  for (int32_t i = 0; i < hostInfo->entryCount; ++i) {
    const HostSuite& entry = entries[i];
    if (entry.key == key && entry.version == version) return &entry;
    if (entry.key == code::core && entry.version == 4) core = &entry;
  }
  if (core == nullptr || revisionBelow(core->revision, 5)) return nullptr;

  HostSuite* found = nullptr;
  auto query = reinterpret_cast<SlotFnOf<slot::query>>(core->slots[5]);
  const uint8_t recognised = query(code::requesterModule, key, &found, core);
  if (recognised == 0 || found == nullptr || found->version != version) return nullptr;
  return found;
}

int32_t acquireSuites(const HostInfo* hostInfo) {
  for (int i = 0; i < kSuiteCount; ++i) {
    const SuiteSpec& desc = kSuites[i];
    const HostSuite* suite = findSuite(hostInfo, desc.key, desc.version);
    if (suite == nullptr || revisionBelow(suite->revision, desc.minRevision)) return kResultSuiteMissing;
    std::memcpy(tarnell_saved_tables[i], suite->slots,
                static_cast<std::size_t>(desc.slotCount) * sizeof(HostRoutine));
    g_liveTables[i] = suite->slots;
  }
  return 0;
}

}  // namespace tarnell
