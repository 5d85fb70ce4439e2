// Loading a module the way a host does, and running its start-up against a
// reference host.
#pragma once

#include <tarnell/host_interface.h>

#include <memory>
#include <string>

#include "refhost/refhost.h"

namespace tarnell::verify {

// A module loaded from a file, found by its PluginMain export. It stays loaded
// for the life of the process: host tables may point into it.
class LoadedModule {
 public:
  // Null with *error set when the file does not load or lacks the export.
  static std::unique_ptr<LoadedModule> load(const std::string& path, std::string* error);
  PluginMainFn* pluginMain() const { return pluginMain_; }
  const std::string& path() const { return path_; }

 private:
  LoadedModule(std::string path, void* handle, PluginMainFn* entry)
      : path_(std::move(path)), handle_(handle), pluginMain_(entry) {}
  std::string path_;
  void* handle_;
  PluginMainFn* pluginMain_;
};

// Tarnell.qrx beside the running executable (found from the process, not from
// argv0, which a launcher may give relative or in another form).
std::string defaultModulePath(const char* argv0);

struct StartupOutcome {
  int32_t status = 0;  // PluginMain's return value
  int16_t result = 0;  // the result word
  bool ok() const { return result == 0; }
};

// Calls PluginMain(1, ...) on the host's directory, then registers the host's
// noise buffer through the live 'core' slot 3 as a host does after start-up.
StartupOutcome startModule(PluginMainFn* pluginMain, refhost::ReferenceHost& host);

// The first of the ten suites the host cannot supply as the module requires it
// (missing, wrong version, too old), or "" when all are there.
std::string firstUnmetSuite(const refhost::HostOptions& options);

}  // namespace tarnell::verify
