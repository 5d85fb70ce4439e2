// Topology on Windows: the OS's logical-processor information, walked record by
// record; any failure falls back to the plain processor count.
#ifdef _WIN32

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cstddef>
#include <new>
#include <vector>

#include "host/cpu_features.h"

namespace tarnell {

#ifdef _WIN64
// The walk reads this layout byte by byte; make sure it is the one the OS uses.
static_assert(sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION) == kProcessorRecordBytes);
static_assert(offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION, ProcessorMask) == 0);
static_assert(offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION, Relationship) == 8);
static_assert(offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION, Cache) == 16);
static_assert(offsetof(CACHE_DESCRIPTOR, Level) == 0 && offsetof(CACHE_DESCRIPTOR, Associativity) == 1 &&
              offsetof(CACHE_DESCRIPTOR, LineSize) == 2 && offsetof(CACHE_DESCRIPTOR, Size) == 4 &&
              offsetof(CACHE_DESCRIPTOR, Type) == 8);
static_assert(static_cast<uint32_t>(RelationProcessorCore) == kRelationProcessorCore &&
              static_cast<uint32_t>(RelationCache) == kRelationCache);
#endif

namespace {

Topology systemInfoFallback() {
  SYSTEM_INFO info{};
  ::GetSystemInfo(&info);
  return fallbackTopology(info.dwNumberOfProcessors);
}

}  // namespace

Topology queryTopology() {
  DWORD length = 0;
  if (::GetLogicalProcessorInformation(nullptr, &length) != FALSE || ::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    return systemInfoFallback();
  try {
    // Whole records, zeroed; the walk is told the byte count the OS reports.
    const size_t records = (length + sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION) - 1) /
                           sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION);
    std::vector<SYSTEM_LOGICAL_PROCESSOR_INFORMATION> buffer(records);
    if (::GetLogicalProcessorInformation(buffer.data(), &length) == FALSE) return systemInfoFallback();
    return walkProcessorInformation(reinterpret_cast<const unsigned char*>(buffer.data()), length);
  } catch (const std::bad_alloc&) {
    return systemInfoFallback();
  }
}

}  // namespace tarnell

#endif  // _WIN32
