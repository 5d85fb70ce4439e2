// The load hook: the module records its own instance handle when the process
// attaches it, ignores every other notification, and always reports success.
#include <gtest/gtest.h>

#include "host/module_state.h"

#if defined(_WIN32)
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

TEST(ProcessAttach, StoresTheInstanceHandleOnProcessAttachOnly) {
  void* const before = tarnell::moduleHandle();
  auto* const handle = reinterpret_cast<HINSTANCE>(static_cast<uintptr_t>(0x7ff00000));
  auto* const other = reinterpret_cast<HINSTANCE>(static_cast<uintptr_t>(0x7ee00000));
  for (DWORD reason : {DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}, DWORD{DLL_PROCESS_DETACH}}) {
    EXPECT_EQ(DllMain(other, reason, nullptr), TRUE) << reason;
    EXPECT_EQ(tarnell::moduleHandle(), before) << reason;
  }
  EXPECT_EQ(DllMain(handle, DLL_PROCESS_ATTACH, nullptr), TRUE);
  EXPECT_EQ(tarnell::moduleHandle(), handle);
  EXPECT_EQ(DllMain(other, DLL_PROCESS_DETACH, nullptr), TRUE);
  EXPECT_EQ(tarnell::moduleHandle(), handle);
  tarnell::setModuleHandle(before);
}

}  // namespace

#else
#include <dlfcn.h>

namespace {

// Here the hook is a load-time constructor that records the module's base address.
TEST(ProcessAttach, RecordsTheBaseOfTheObjectHoldingTheModuleCode) {
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&tarnell::moduleHandle), &info), 0);
  EXPECT_EQ(tarnell::moduleHandle(), info.dli_fbase);
}

}  // namespace
#endif
