// Suite lookup in the host's directory and acquisition of the ten suites.
#pragma once

#include <tarnell/host_interface.h>

namespace tarnell {

// The entry with exactly this key and version; failing that, the host's answer to
// a 'QRXM' query through slot 5 of the last 'core' version-4 entry (revision at
// least 5). Null when neither finds it.
const HostSuite* findSuite(const HostInfo* hostInfo, uint32_t key, int16_t version);

// Finds the ten suites in order, copies the first slots of each host table into
// the saved tables and records the live pointers. 0, or -1 at the first suite
// missing or below its minimum revision (earlier suites stay copied).
int32_t acquireSuites(const HostInfo* hostInfo);

}  // namespace tarnell
