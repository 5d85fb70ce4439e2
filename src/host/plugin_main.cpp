// The module's one exported symbol, and the load-time hook that records its handle.
#include <tarnell/host_interface.h>

#include "host/module_state.h"
#include "host/startup.h"

#if defined(_WIN32)
#include <windows.h>
#define TARNELL_EXPORT extern "C" __declspec(dllexport)
#else
#include <dlfcn.h>
#define TARNELL_EXPORT extern "C" __attribute__((visibility("default")))
#endif

TARNELL_EXPORT int32_t PluginMain(int16_t selector, tarnell::HostInfo* hostInfo, intptr_t /*data*/,
                                  int16_t* result) {
  int16_t scratch = 0;
  if (result == nullptr) result = &scratch;  // nothing to report to; still do the work
  switch (selector) {
    case tarnell::kSelectorNone:
    case tarnell::kSelectorIdle:
      *result = 0;
      return 0;
    case tarnell::kSelectorStartup:
      *result = 0;
      return tarnell::startup(hostInfo, result);
    default:
      *result = tarnell::kResultUnknownSelector;
      return tarnell::kResultUnknownSelector;
  }
}

#if defined(_WIN32)
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) tarnell::setModuleHandle(instance);
  return TRUE;
}
#else
namespace {
// The load-time hook: record the module's own base address, which is what an
// instance handle is on the other platform.
[[gnu::constructor]] void onProcessAttach() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&onProcessAttach), &info) != 0) tarnell::setModuleHandle(info.dli_fbase);
}
}  // namespace
#endif
