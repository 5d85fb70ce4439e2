// What an installer writes into a scratch table of its suite, in order: the one
// recorder the installer tests share.
#pragma once

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

template <typename Fn>
HostRoutine erase(Fn* fn) {
  return reinterpret_cast<HostRoutine>(fn);
}

}  // namespace tarnell::installs
