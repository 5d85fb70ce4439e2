// The reference host: a HostInfo with the ten suites, tables in which every slot
// holds a routine of the host's own, and the host services a module calls.
//
// It is the oracle of the tests and of tarnell-host. It shares the interface
// types with the module and nothing else: every portable routine here is written
// from the per-sample formulas, never from the module's code or tables.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace tarnell::refhost {

// A host routine for one slot, with its signature checked at compile time.
struct PortableRoutine {
  uint32_t suite;
  int slot;
  HostRoutine routine;
};
template <uint32_t Suite, int Slot>
PortableRoutine portable(SlotId<Suite, Slot>, SlotFn<Suite, Slot> routine) {
  return {Suite, Slot, reinterpret_cast<HostRoutine>(routine)};
}

// Every portable routine of the host, family by family (see portable_*.cpp).
std::span<const PortableRoutine> allPortableRoutines();

// A call that reached one of the host's recording routines (a slot the host
// implements only as a stand-in) or a recorded service.
struct CallRecord {
  uint32_t suite;
  int slot;
  uintptr_t args[4];
};

struct Diagnostic {
  std::string message;
  std::string source;
  int32_t line;
  int32_t severity;
};

struct NoiseRegistration {
  const void* base;
  uint32_t size;
  uint32_t period;
};

struct GestaltAnswer {
  bool recognised = false;
  uint64_t answer = 0;  // written to the caller's answer only when recognised
};

struct HostOptions {
  std::vector<uint32_t> omit;                // suites left out of the directory
  std::vector<uint32_t> offerThroughQuery;   // left out of the directory, answered by 'core' slot 5
  std::map<uint32_t, int16_t> version;       // per-suite version overrides
  std::map<uint32_t, int16_t> revision;      // per-suite revision overrides
  bool overrideEntryCount = false;
  int32_t entryCount = 0;                    // used when overrideEntryCount
  GestaltAnswer pathDebug;                   // 'pdbg'
  GestaltAnswer pathDebugGuard;              // 'pdgv'
  uint32_t noisePeriodBytes = 32768;         // one period of 16-bit noise entries
  uint32_t noiseRoomBytes = 8192;            // bytes of repeated start after the period
  uint64_t noiseSeed = 0x5EED0F7A57E11ULL;
};

class ReferenceHost {
 public:
  explicit ReferenceHost(HostOptions options = {});
  ~ReferenceHost();
  ReferenceHost(const ReferenceHost&) = delete;
  ReferenceHost& operator=(const ReferenceHost&) = delete;

  HostInfo* hostInfo() { return reinterpret_cast<HostInfo*>(directory_.data()); }
  const HostOptions& options() const { return options_; }

  // The live table the module patches, and what the host itself put in a slot.
  HostRoutine* liveTable(uint32_t key);
  HostRoutine original(uint32_t key, int slot) const;
  HostRoutine live(uint32_t key, int slot) const;
  bool replaced(uint32_t key, int slot) const { return live(key, slot) != original(key, slot); }
  std::vector<int> replacedSlots(uint32_t key) const;
  // True when the host has a real (portable) routine in the slot, not a recorder.
  bool hasPortable(uint32_t key, int slot) const;

  // Registers the host's noise buffer through the live 'core' slot 3, as a host
  // does after loading modules. Returns what that call returned.
  int32_t registerNoise();
  const uint16_t* noiseBase() const { return noise_.data(); }
  uint32_t noiseSizeBytes() const { return static_cast<uint32_t>(noise_.size() * 2); }
  uint32_t noisePeriodBytes() const { return options_.noisePeriodBytes; }

  // What the module did through the host's routines and services.
  std::vector<CallRecord> calls() const;
  std::vector<Diagnostic> diagnostics() const;
  std::vector<NoiseRegistration> noiseRegistrations() const;
  std::vector<std::pair<uint32_t, uint32_t>> queries() const;  // (requester or class, selector) per 'core' slot 5 call
  void clearLogs();

  // The host whose services answer calls now: the most recently constructed one
  // still alive. Host routines have no context argument, as in a real host.
  static ReferenceHost* active();

  // Used by the recording routines and services.
  void record(const CallRecord& call);
  void recordDiagnostic(Diagnostic diagnostic);
  void recordNoise(const NoiseRegistration& registration);
  void recordQuery(uint32_t requester, uint32_t selector);
  HostSuite* offeredSuite(uint32_t key);

 private:
  HostOptions options_;
  std::vector<unsigned char> directory_;  // HostInfo header + entries
  std::vector<HostRoutine> tables_[kSuiteCount];
  std::vector<HostRoutine> originals_[kSuiteCount];
  std::vector<bool> portable_[kSuiteCount];
  std::vector<HostSuite> offered_;        // suites answered through 'core' slot 5
  std::vector<uint16_t> noise_;
  ReferenceHost* previous_;

  mutable std::mutex mutex_;
  std::vector<CallRecord> calls_;
  std::vector<Diagnostic> diagnostics_;
  std::vector<NoiseRegistration> noiseRegistrations_;
  std::vector<std::pair<uint32_t, uint32_t>> queries_;
};

}  // namespace tarnell::refhost
