// Declarative verification checks: one per accelerated slot, shared by the test
// suite, `tarnell-host verify` and `tarnell-host bench`.
//
// A plane check describes a slot by its planes (sample size, role, how to fill
// them), its scalar parameters and one function that calls the slot's routine with
// a concrete argument set. The runner does the rest: random seeded contents, many
// widths, every destination misalignment, independent misalignment of the other
// planes, padded and (where allowed) negative strides, guard bytes around every
// plane, rows/columns below 1, and a byte-for-byte comparison of host and module.
//
// Slots that do not fit the plane model (copies with overlap, one-dimensional
// runs, searches) give a custom verify and bench function instead.
#pragma once

#include <tarnell/host_interface.h>

#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "verify/rng.h"

namespace tarnell::refhost {
class ReferenceHost;
}

namespace tarnell::verify {

constexpr int kMaxPlanes = 10;
constexpr int kMaxParams = 8;

enum class Role : uint8_t {
  Input,   // read only; must come back unchanged
  Output,  // written (not read by the contract); compared
  InOut,   // read and written; compared
};

// How a plane's samples are drawn.
enum class Samples : uint8_t {
  Bytes,      // 0..255, uniform, with a share of 0 and 255
  Mask,       // 8-bit mask: mostly 0 and 255, some 1, 127, 128, 254 and random
  Words15,    // 16-bit 0..32768 (the host's working range), with 0, 1, 16384, 32767, 32768
  Words16,    // 16-bit 0..65535, with its ends
  Mask15,     // 16-bit mask 0..32768: mostly 0 and 32768, some 1, 16384, 32767 and random
  Floats01,   // float 0..1 with its ends
  FloatsWide, // float -0.5..1.5, with 0, 1, 0.5 and values near them
};

struct PlaneSpec {
  const char* name;
  uint8_t sampleBytes;  // 1, 2 or 4
  Role role;
  Samples samples;
};

struct ParamSpec {
  const char* name;
  int64_t lo, hi;        // random values are drawn from lo..hi inclusive
  int64_t special[8];    // tried before random values
  int specialCount;
};

// One concrete call. Plane pointers point at the first sample of the first row;
// strides are in bytes (negative: rows go down in memory).
struct PlaneCall {
  void* plane[kMaxPlanes];
  int32_t stride[kMaxPlanes];
  int32_t rows;
  int32_t columns;
  int64_t param[kMaxParams];
};

class Context;

// Calls the routine with the slot's argument order; returns its result widened
// (0 for routines without one).
using Invoke = uint64_t (*)(HostRoutine routine, const PlaneCall& call);

struct PlaneShape {
  PlaneSpec planes[kMaxPlanes];
  int planeCount;
  ParamSpec params[kMaxParams];
  int paramCount;
  Invoke invoke;
  int alignPlane = 0;              // the plane whose row start the routine aligns on
  bool compareResult = false;      // the routine returns something meaningful
  bool negativeStrides = false;    // the contract allows rows going down in memory
  bool sharedStride = false;       // all planes of the same sample size use one stride
  int minColumns = 1;              // narrower rows are outside the contract
  int maxOverreadBytes = 0;        // bytes a routine may read past a row's end
  // The stride a routine really steps a plane's rows by, given the stride passed
  // (routines that count strides in samples round odd byte strides). The runner lays
  // rows out at the used stride and passes the raw one. Null: as passed.
  int32_t (*usedStride)(int plane, int32_t passedStride) = nullptr;
  // Parameters for benchmarks (paramCount values); null: drawn as for verification.
  const int64_t* benchParams = nullptr;
  // Run host and module on the same plane addresses, one after the other (results
  // that depend on where the destination lies, such as a dither pattern).
  bool sameAddresses = false;
  // One destination misalignment per width even in a thorough run: for forms
  // whose arithmetic is a worker's that has its own thorough check (the
  // multi-plane companions of the painting routines).
  bool fewerCases = false;
  // Cases the planes laid apart cannot give (planes that overlap), run after the
  // others with the check's context: null for none.
  void (*moreCases)(Context& context, HostRoutine host, HostRoutine module) = nullptr;
};

class Context;

// A call into the host, by the suite and slot of the host's routine or service it
// reached (diagnostics 'core' 16, noise registrations 'core' 3, queries 'core' 5).
struct CallKey {
  uint32_t suite;
  int slot;
};

struct Check {
  uint32_t suite;
  int slot;
  const char* name;       // the module routine's name
  const char* signature;  // for listings
  const PlaneShape* shape;  // plane check, or null with the two below set
  // Custom checks: verify reports mismatches through the context; bench runs the
  // routine once at the given size on data it prepares (see Bench below), or is
  // null for a slot with nothing to time (a registration).
  void (*customVerify)(Context& context, HostRoutine host, HostRoutine module);
  struct BenchCase* (*customBench)(int width, int height);
  // The calls into the host that this check compares with its contract itself,
  // because the contract has the module make them where the host's own routine
  // does not (the module's buffer notification of 'filt' 12, say). Every other
  // call the module's routine makes must be one the host's routine makes too, in
  // the same order and with the same arguments (the fuzzer holds them to it);
  // the calls that reach the host's own routine of the slot itself are its
  // hand-overs, whose effect is in the bytes compared.
  std::span<const CallKey> judgedCalls = {};
};

template <std::size_t N>
constexpr Check judgingCalls(Check check, const CallKey (&keys)[N]) {
  check.judgedCalls = keys;
  return check;
}

template <uint32_t Suite, int Slot>
constexpr Check planeCheck(SlotId<Suite, Slot>, const PlaneShape& shape) {
  return {Suite, Slot, SlotSignature<Suite, Slot>::name, SlotSignature<Suite, Slot>::text, &shape, nullptr, nullptr};
}


// A prepared benchmark case of a custom check: run() calls the routine once on
// the case's data; bytesMoved counts bytes read plus written by one call.
struct BenchCase {
  virtual ~BenchCase() = default;
  virtual void run(HostRoutine routine) = 0;
  uint64_t bytesMoved = 0;
  // One call does the same work whatever the plane size (a forwarded record):
  // its speedup says nothing about the routines that do grow with the plane.
  bool fixedWork = false;
};

template <uint32_t Suite, int Slot>
constexpr Check customCheck(SlotId<Suite, Slot>, void (*verifyFn)(Context&, HostRoutine, HostRoutine),
                            BenchCase* (*benchFn)(int, int)) {
  return {Suite, Slot, SlotSignature<Suite, Slot>::name, SlotSignature<Suite, Slot>::text, nullptr, verifyFn, benchFn};
}

// The values a check tries at one point: a list (see Context::each).
template <typename T>
class Sweep {
 public:
  explicit Sweep(std::vector<T> values) : values_(std::move(values)) {}
  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }

 private:
  std::vector<T> values_;
};

// What a check sees while it runs: the seeded generator, the reference host (for
// the noise buffer and logs), the options, and where mismatches go.
//
// A one-case run (the fuzzer, and recording its seeds) runs the same check code
// with draws from given bytes: every sweep (each, range, times) tries one of its
// values or none, so that the input chooses which part of the check runs and
// with what, and after each case the input says whether another follows (a few
// at most). Checks therefore write their loops over sweeps, never over plain
// counters, and let judge() (or more()) say whether to go on.
class Context {
 public:
  Context(const Check& check, refhost::ReferenceHost& host, uint64_t seed, bool thorough, int maxFailures = 8)
      : check_(check), host_(host), rng_(seed), seed_(seed), thorough_(thorough), maxFailures_(maxFailures) {}
  struct OneCase {};
  // The most cases a one-case run goes on to.
  static constexpr int kMostCases = 3;
  Context(const Check& check, refhost::ReferenceHost& host, Rng entropy, OneCase)
      : check_(check), host_(host), rng_(entropy), seed_(0), thorough_(true), maxFailures_(1), oneCase_(true) {}

  Rng& rng() { return rng_; }
  refhost::ReferenceHost& host() { return host_; }
  const Check& check() const { return check_; }
  uint64_t seed() const { return seed_; }
  // "[seed N]", or "[fuzz input]" in a one-case run: where a case came from.
  std::string origin() const;
  bool thorough() const { return thorough_; }
  bool oneCase() const { return oneCase_; }

  // Every value of the list in turn; in a one-case run one of them, or none.
  template <typename T>
  Sweep<T> each(std::vector<T> values) {
    if (stopped_) return Sweep<T>({});
    if (oneCase_) {
      if (values.empty() || rng_.chance(kSkipOneIn)) return Sweep<T>({});
      return Sweep<T>({values[rng_.below(static_cast<uint32_t>(values.size()))]});
    }
    return Sweep<T>(std::move(values));
  }
  template <typename T, std::size_t N>
  Sweep<T> each(const T (&values)[N]) {
    return each(std::vector<T>(values, values + N));
  }
  // Values whose cases take a hundred times as long as the others' (runs of
  // megabytes): every one in turn, as each(); in a one-case run rarely any, so
  // that a fuzzer spends its time where the cases are quick.
  template <typename T>
  Sweep<T> seldom(std::vector<T> values) {
    if (oneCase_ && !stopped_ && !rng_.chance(kSeldomOneIn)) return Sweep<T>({});
    return each(std::move(values));
  }
  template <typename T, std::size_t N>
  Sweep<T> seldom(const T (&values)[N]) {
    return seldom(std::vector<T>(values, values + N));
  }
  // lo, lo + 1, ... hi.
  template <typename T>
  Sweep<T> range(T lo, T hi) {
    if (stopped_) return Sweep<T>({});
    if (oneCase_) {
      if (hi < lo || rng_.chance(kSkipOneIn)) return Sweep<T>({});
      return Sweep<T>({static_cast<T>(rng_.range(static_cast<int64_t>(lo), static_cast<int64_t>(hi)))});
    }
    std::vector<T> values;
    for (T v = lo; v <= hi; ++v) values.push_back(v);
    return Sweep<T>(std::move(values));
  }
  // 0 .. n - 1.
  template <typename T>
  Sweep<T> times(T n) {
    return range<T>(0, n - 1);
  }
  // One of n ways, by turns: the case count modulo n, or drawn in a one-case run.
  uint32_t turn(uint32_t n) { return oneCase_ ? rng_.below(n) : static_cast<uint32_t>(cases_ % n); }

  // Records a mismatch; returns false once enough have been seen to stop.
  bool fail(const std::string& what);
  // Counts one case of a custom check and, when `problem` is not empty, records it
  // as a mismatch named by the check's label, its seed and `what`. Returns false
  // once the check should stop.
  bool judge(const std::string& what, const std::string& problem);
  // Whether the check goes on after a case: not once enough mismatches were seen,
  // and in a one-case run only when the input asks for another case. Once it
  // said no, every sweep is empty.
  bool more();
  // True once the check has seen as many mismatches as it reports.
  bool enough() const { return failures_ >= maxFailures_; }
  int failures() const { return failures_; }
  const std::string& firstFailure() const { return first_; }
  int64_t cases() const { return cases_; }
  // Counts a case whose routines have both run; a watcher, when set, may find a
  // mismatch in what they did besides their bytes (`what` names the case).
  void countCase(const std::string& what = {});

  // Sees every case as it ends, with its description (the fuzzer compares the
  // calls each side made to the host); returns a mismatch to record, or nothing.
  class Watcher {
   public:
    virtual std::string caseEnded(const Context& context, const std::string& what) = 0;

   protected:
    ~Watcher() = default;
  };
  void setWatcher(Watcher* watcher) { watcher_ = watcher; }
  bool watched() const { return watcher_ != nullptr; }

 private:
  static constexpr uint32_t kSkipOneIn = 4;
  static constexpr uint32_t kSeldomOneIn = 8;
  const Check& check_;
  refhost::ReferenceHost& host_;
  Rng rng_;
  uint64_t seed_;
  bool thorough_;
  int maxFailures_;
  bool oneCase_ = false;
  bool stopped_ = false;
  int failures_ = 0;
  int64_t cases_ = 0;
  std::string first_;
  Watcher* watcher_ = nullptr;
};

// "a b c": the parts of a case's description, separated by blanks.
template <typename... T>
std::string words(const T&... parts) {
  std::ostringstream out;
  const char* gap = "";
  ((out << gap << parts, gap = " "), ...);
  return out.str();
}

// "result host H module M" when the two results differ, else empty.
std::string resultMismatch(uint64_t host, uint64_t module);

// Every check, family by family (checks_<family>.cpp); see registry.cpp.
std::span<const Check> allChecks();

}  // namespace tarnell::verify
