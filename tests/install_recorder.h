// What an installer writes into a scratch table of its suite, in order: the one
// recorder the installer tests share.
#pragma once

#include <initializer_list>
#include <vector>

#include "host/install.h"

namespace tarnell::installs {

struct Installed {
  std::vector<int> order;             // slots, in the order written
  std::vector<HostRoutine> routines;  // what each write put there
  std::vector<HostRoutine> table;     // the scratch table afterwards
  HostRoutine at(int slot) const { return table[static_cast<std::size_t>(slot)]; }
};

// Runs install(writer) on a fresh table of the suite's copied length.
template <uint32_t Suite, typename Install>
Installed recordInstall(Install&& install) {
  Installed out;
  out.table.assign(static_cast<std::size_t>(kSuites[suiteIndexOf(Suite)].slotCount), nullptr);
  const SuiteWriter<Suite> writer(
      out.table.data(),
      [](void* context, int slot, HostRoutine routine) {
        auto* self = static_cast<Installed*>(context);
        self->order.push_back(slot);
        self->routines.push_back(routine);
      },
      &out);
  install(writer);
  return out;
}

// The usual form: installX(writer, flags).
template <uint32_t Suite>
Installed recordInstall(void (*install)(const SuiteWriter<Suite>&, const CpuFeatureFlags&), const CpuFeatureFlags& flags) {
  return recordInstall<Suite>([&](const SuiteWriter<Suite>& writer) { install(writer, flags); });
}

// Injected flags for the installers gated by SSE, SSE2 and SSE4.1: MMX always, SSE
// as both of its reports, SSE3 and SSSE3 along with SSE4.1.
inline CpuFeatureFlags sseFlags(bool sse, bool sse2, bool sse41) {
  CpuFeatureFlags f{};
  f.mmx = 1;
  f.sse = f.sseSecond = sse;
  f.sse2 = sse2;
  f.sse3 = f.ssse3 = f.sse41 = sse41;
  return f;
}

// Write orders one after the other.
inline std::vector<int> joined(std::initializer_list<std::vector<int>> parts) {
  std::vector<int> out;
  for (const std::vector<int>& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

template <typename Fn>
HostRoutine erase(Fn* fn) {
  return reinterpret_cast<HostRoutine>(fn);
}

}  // namespace tarnell::installs
