// The slot fuzzer's harness: one input runs one verification check on one case
// (or the few the input asks for), at one tier, with every choice the check makes
// taken from the input.
//
// An input is a header and two byte streams:
//
//   byte 0      tier: 0 no SSE, 1 SSE without SSE2, 2 sse2, 3 ssse3, 4 sse41,
//               5 avx, 6 avx2 (modulo 7; a level this processor does not reach
//               runs as its widest, and a tier that does not replace the slot
//               gives way to the next one that does)
//   byte 1      placement (modulo 3): planes where the check puts them, or every
//               plane flush against an inaccessible page after its end, or before
//               its start
//   bytes 2-4   the check: the suite's index and the slot (big-endian); a key
//               without a check picks the next check in that order
//   bytes 5-6   n, the length of the structure stream (big-endian)
//   7 .. 7+n    the structure stream: which part of the check runs, sizes,
//               strides, misalignments, parameters, records
//   the rest    the content stream: plane contents, arrays, coordinates
//
// (verify/rng.h: a stream that runs out goes on with a generator seeded from the
// whole input.) The module's routine and the host's run on identical copies behind
// gates that credit every call into the host to the side that made it; a case
// fails on any byte that differs, on any difference in those calls (the check's
// own judged calls and hand-overs to the host's routine of the slot excepted), or
// on a fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/cpu_features.h"
#include "refhost/refhost.h"
#include "verify/check.h"
#include "verify/planes.h"

namespace tarnell::fuzz {

struct Tier {
  const char* name;  // "nosse", "sse", then the levels' names
  CpuFeatureFlags flags;
  bool reached;      // this processor runs it
};
// Every tier an input can name, in the header's numbering.
const std::vector<Tier>& tiers();

// Placements in the header's numbering.
constexpr verify::Placement kPlacements[] = {verify::Placement::Heap, verify::Placement::GuardPageAfter,
                                             verify::Placement::GuardPageBefore};
const char* placementLabel(int placement);

constexpr std::size_t kHeaderBytes = 7;

struct Header {
  int tier = 2;
  int placement = 0;
  int suiteIndex = 0;
  int slot = 0;
};
std::vector<uint8_t> encodeInput(const Header& header, const std::vector<uint8_t>& structure,
                                 const std::vector<uint8_t>& content);

// The checks an input can pick, by suite index and slot.
std::vector<const verify::Check*> checksInKeyOrder();
// The family each check comes from ("blend8", "memory", ...).
const char* familyOf(const verify::Check& check);

struct Outcome {
  const verify::Check* check = nullptr;  // null: nothing ran (no tier replaces the slot)
  int tier = 0;                          // the tier that ran
  int placement = 0;
  int64_t cases = 0;
  std::string failure;                   // empty: host and module agreed
};

// The gates a check is handed in place of the host's and the module's routines,
// and the routines they lead to now (the harness sets them for each case).
HostRoutine hostGate();
HostRoutine moduleGate();
void leadGates(HostRoutine host, HostRoutine module);

// The calls each side made into the host during a case (see slot_harness.cpp).
class CallJournal;

class SlotHarness {
 public:
  SlotHarness();
  ~SlotHarness();

  Outcome run(const uint8_t* data, std::size_t size);
  // A seed input: one case of the check drawn from `seed` at the tier (or the next
  // that replaces the slot), its draws recorded; the content stream cut after
  // `contentBytes` (a replay draws the rest from its own generator). The outcome
  // is the recorded run's.
  std::vector<uint8_t> record(const verify::Check& check, int tier, int placement, uint64_t seed,
                              std::size_t contentBytes, Outcome& outcome);

  // The reference host started at the tier (restarted when the tier changes).
  refhost::ReferenceHost& hostAt(int tier);

 private:
  // The first tier at or after `tier` (wrapping at none) whose start-up replaces
  // the check's slot, or -1.
  int tierFor(const verify::Check& check, int tier);
  Outcome runCase(const verify::Check& check, int tier, int placement, const verify::Rng& entropy);

  std::unique_ptr<refhost::ReferenceHost> host_;
  int hostTier_ = -1;
  std::vector<std::vector<bool>> installed_;  // per tier, per check in key order
  std::unique_ptr<CallJournal> journal_;
};

}  // namespace tarnell::fuzz
