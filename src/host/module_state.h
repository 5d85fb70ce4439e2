// Process-wide state of the module: the saved host tables, the live table
// pointers, and the module handle. Written at load and start-up only.
#pragma once

#include <tarnell/host_interface.h>

// The saved host tables: one row per suite (acquisition order), of which the first
// kSuites[i].slotCount entries hold the host's routines copied before any installer
// ran. C linkage so that the forwarding trampolines can address it directly.
extern "C" tarnell::HostRoutine tarnell_saved_tables[tarnell::kSuiteCount][tarnell::kMaxSlotCount];

namespace tarnell {

// Live host tables, one per suite; null until acquired.
extern HostRoutine* g_liveTables[kSuiteCount];

template <uint32_t Suite, int Slot>
SlotFn<Suite, Slot> savedRoutine() {
  static_assert(Slot >= 0 && Slot < kSuites[suiteIndexOf(Suite)].slotCount);
  return reinterpret_cast<SlotFn<Suite, Slot>>(tarnell_saved_tables[suiteIndexOf(Suite)][Slot]);
}

// By slot name: savedRoutine<slot::rescale16>().
template <auto Id>
SlotFnOf<Id> savedRoutine() {
  return savedRoutine<decltype(Id)::suite, decltype(Id)::number>();
}

template <uint32_t Suite, int Slot>
SlotFn<Suite, Slot> liveRoutine() {
  static_assert(Slot >= 0 && Slot < kSuites[suiteIndexOf(Suite)].slotCount);
  return reinterpret_cast<SlotFn<Suite, Slot>>(g_liveTables[suiteIndexOf(Suite)][Slot]);
}

template <auto Id>
SlotFnOf<Id> liveRoutine() {
  return liveRoutine<decltype(Id)::suite, decltype(Id)::number>();
}

// The module's instance handle (its load address on Linux), stored at process attach.
void* moduleHandle();
void setModuleHandle(void* handle);

// A second pointer-sized process-wide value; nothing in the module reads it.
void setModuleAuxValue(uintptr_t value);
uintptr_t moduleAuxValue();

}  // namespace tarnell
