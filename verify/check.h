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
};

template <uint32_t Suite, int Slot>
constexpr Check planeCheck(SlotId<Suite, Slot>, const PlaneShape& shape) {
  return {Suite, Slot, SlotSignature<Suite, Slot>::name, SlotSignature<Suite, Slot>::text, &shape, nullptr, nullptr};
}

// A routine of the slot's type: as<slot::MultiplyInto8>(routine), or by number
// where a check serves several slots.
template <auto Id>
SlotFnOf<Id> as(HostRoutine routine) {
  return reinterpret_cast<SlotFnOf<Id>>(routine);
}
template <uint32_t Suite, int Slot>
SlotFn<Suite, Slot> as(HostRoutine routine) {
  return reinterpret_cast<SlotFn<Suite, Slot>>(routine);
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

// What a check sees while it runs: the seeded generator, the reference host (for
// the noise buffer and logs), the options, and where mismatches go.
class Context {
 public:
  Context(const Check& check, refhost::ReferenceHost& host, uint64_t seed, bool thorough, int maxFailures = 8)
      : check_(check), host_(host), rng_(seed), seed_(seed), thorough_(thorough), maxFailures_(maxFailures) {}

  Rng& rng() { return rng_; }
  refhost::ReferenceHost& host() { return host_; }
  const Check& check() const { return check_; }
  uint64_t seed() const { return seed_; }
  bool thorough() const { return thorough_; }

  // Records a mismatch; returns false once enough have been seen to stop.
  bool fail(const std::string& what);
  // Counts one case of a custom check and, when `problem` is not empty, records it
  // as a mismatch named by the check's label, its seed and `what`. Returns false
  // once the check should stop.
  bool judge(const std::string& what, const std::string& problem);
  // True once the check has seen as many mismatches as it reports.
  bool enough() const { return failures_ >= maxFailures_; }
  int failures() const { return failures_; }
  const std::string& firstFailure() const { return first_; }
  int64_t cases() const { return cases_; }
  void countCase() { ++cases_; }

 private:
  const Check& check_;
  refhost::ReferenceHost& host_;
  Rng rng_;
  uint64_t seed_;
  bool thorough_;
  int maxFailures_;
  int failures_ = 0;
  int64_t cases_ = 0;
  std::string first_;
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
