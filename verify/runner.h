// Runs checks: verification (host routine against module routine, byte for byte)
// and benchmarks (host against module on the same inputs).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "verify/check.h"
#include "verify/planes.h"

namespace tarnell::refhost {
class ReferenceHost;
}

namespace tarnell::verify {

struct VerifyOptions {
  uint64_t seed = 1;
  bool thorough = true;       // every width x every destination misalignment
  std::string filter;         // glob on the routine name or "suite:slot"; empty: all
  int maxFailures = 8;        // per check
  Placement placement = Placement::Heap;
};

enum class Outcome { Passed, Failed, NotInstalled, NoHostRoutine };

struct CheckResult {
  const Check* check = nullptr;
  Outcome outcome = Outcome::Passed;
  uint64_t seed = 0;
  int64_t cases = 0;
  int failures = 0;
  std::string firstFailure;
};

// The check's own seed: derived from the run's seed and the slot, so a filtered
// run reproduces what the full run did for that check.
uint64_t checkSeed(uint64_t seed, const Check& check);

// A filter is globs separated by commas, blanks around them ignored ("*" any run
// of characters, "?" one). A glob matches a check when it matches its routine
// name, its "suite:slot" key or its whole label; the suite key in any case
// ("BLND:1" is "blnd:1"). An empty filter selects every check.
std::vector<std::string> filterGlobs(const std::string& filter);
bool matchesFilter(const Check& check, const std::string& filter);
// The globs of the filter that match no check at all (a misspelt name, a suite
// without the slot number): a run with them would silently verify less.
std::vector<std::string> unmatchedGlobs(const std::string& filter);
std::string checkLabel(const Check& check);  // "blnd:7 DarkenTowardSourceThroughMask8"

// Compares the host's original routine of the slot with what is installed now.
CheckResult runCheck(const Check& check, refhost::ReferenceHost& host, const VerifyOptions& options);
// The same, with explicit routines (the harness's own tests use this).
CheckResult runCheckOn(const Check& check, refhost::ReferenceHost& host, HostRoutine reference,
                       HostRoutine candidate, const VerifyOptions& options);

// One case of the check, or the few the input asks for, with every draw taken from
// `entropy` (a fuzzer's input, or a seeded generator recording its draws): which
// part of the check runs, the case's shape and its data. The watcher sees each case
// end. Heap planes go where a PagePlacement in force puts them.
CheckResult runOneCase(const Check& check, refhost::ReferenceHost& host, HostRoutine reference, HostRoutine candidate,
                       const Rng& entropy, Context::Watcher* watcher = nullptr);

struct BenchOptions {
  int width = 256;
  int height = 256;
  double minSeconds = 0.1;  // per routine measured
};

struct BenchResult {
  const Check* check = nullptr;
  bool ran = false;
  bool fixedWork = false;  // see BenchCase::fixedWork
  double hostNs = 0;     // median time of one call
  double moduleNs = 0;
  double memcpyNs = 0;   // memcpy of as many bytes as one call moves (read + written)
  uint64_t bytesMoved = 0;
  double speedup() const { return moduleNs > 0 ? hostNs / moduleNs : 0; }
  // Module throughput as a share of memcpy's on the same bytes.
  double memcpyShare() const { return moduleNs > 0 ? memcpyNs / moduleNs : 0; }
};

// False for a check with nothing to time (its slot moves no planes).
bool hasBench(const Check& check);
// A prepared case of the check at width x height, with data drawn from seed; null
// when the check has no bench.
std::unique_ptr<BenchCase> makeBenchCase(const Check& check, int width, int height, uint64_t seed);

BenchResult benchCheck(const Check& check, refhost::ReferenceHost& host, const BenchOptions& options);

// Median time of one call of fn, in nanoseconds.
double timeCall(void (*fn)(void*), void* context, double minSeconds);

}  // namespace tarnell::verify
