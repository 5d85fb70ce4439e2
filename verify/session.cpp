#include "verify/session.h"

#include <algorithm>
#include <filesystem>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace tarnell::verify {

std::unique_ptr<LoadedModule> LoadedModule::load(const std::string& path, std::string* error) {
#if defined(_WIN32)
  HMODULE handle = LoadLibraryA(path.c_str());
  if (handle == nullptr) {
    *error = "cannot load module '" + path + "' (error " + std::to_string(GetLastError()) + ")";
    return nullptr;
  }
  auto entry = reinterpret_cast<PluginMainFn*>(reinterpret_cast<void*>(GetProcAddress(handle, "PluginMain")));
  void* opaque = reinterpret_cast<void*>(handle);
#else
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = dlerror();
    *error = "cannot load module '" + path + "': " + (why ? why : "unknown error");
    return nullptr;
  }
  auto entry = reinterpret_cast<PluginMainFn*>(dlsym(handle, "PluginMain"));
  void* opaque = handle;
#endif
  if (entry == nullptr) {
    *error = "module '" + path + "' does not export PluginMain";
    return nullptr;
  }
  return std::unique_ptr<LoadedModule>(new LoadedModule(path, opaque, entry));
}

std::string defaultModulePath(const char* argv0) {
  std::error_code ec;
  std::filesystem::path self;
#if defined(__linux__)
  self = std::filesystem::read_symlink("/proc/self/exe", ec);
#elif defined(_WIN32)
  std::wstring name(32768, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size()));
  if (length > 0 && length < name.size()) self = std::filesystem::path(name.substr(0, length));
#endif
  if (self.empty() || ec) self = std::filesystem::absolute(argv0 ? argv0 : ".", ec);
  return (self.parent_path() / "Tarnell.qrx").string();
}

StartupOutcome startModule(PluginMainFn* pluginMain, refhost::ReferenceHost& host) {
  StartupOutcome outcome;
  outcome.status = pluginMain(kSelectorStartup, host.hostInfo(), 0, &outcome.result);
  if (outcome.ok()) host.registerNoise();
  return outcome;
}

std::string firstUnmetSuite(const refhost::HostOptions& options) {
  for (const SuiteSpec& desc : kSuites) {
    auto has = [&](const std::vector<uint32_t>& keys) {
      return std::find(keys.begin(), keys.end(), desc.key) != keys.end();
    };
    if (has(options.omit)) return std::string(desc.name);
    if (auto v = options.version.find(desc.key); v != options.version.end() && v->second != desc.version)
      return std::string(desc.name);
    if (auto r = options.revision.find(desc.key);
        r != options.revision.end() &&
        static_cast<uint32_t>(static_cast<int32_t>(r->second)) < static_cast<uint32_t>(desc.minRevision))
      return std::string(desc.name);
  }
  return {};
}

}  // namespace tarnell::verify
