#include "host/module_state.h"

extern "C" {
alignas(64) tarnell::HostRoutine tarnell_saved_tables[tarnell::kSuiteCount][tarnell::kMaxSlotCount];
}

namespace tarnell {

HostRoutine* g_liveTables[kSuiteCount];

namespace {
void* g_moduleHandle;
uintptr_t g_moduleAuxValue;
}  // namespace

void* moduleHandle() { return g_moduleHandle; }
void setModuleHandle(void* handle) { g_moduleHandle = handle; }
void setModuleAuxValue(uintptr_t value) { g_moduleAuxValue = value; }
uintptr_t moduleAuxValue() { return g_moduleAuxValue; }

}  // namespace tarnell
