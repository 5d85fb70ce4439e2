// The host calls installed routines from its own threads, several at once. These
// tests start the real module, then have several threads call every installed
// routine at the same time on planes of their own, and require exactly the bytes
// that the same calls gave on one thread. Under ThreadSanitizer (preset tsan, the
// module built with it too) any shared write the routines make is reported as well.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/cpu_features.h"
#include "refhost/refhost.h"
#include "verify/planes.h"
#include "verify/runner.h"
#include "verify/session.h"

using namespace tarnell;
using namespace tarnell::verify;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 8;

// Holds every thread until all have arrived, so that their calls overlap. (A
// plain spin: std::latch waits can miss their wake-up with MinGW's libstdc++.)
class StartGate {
 public:
  void arriveAndWait() {
    arrived_.fetch_add(1);
    while (arrived_.load() < kThreads) std::this_thread::yield();
  }

 private:
  std::atomic<int> arrived_{0};
};

PluginMainFn* pluginMain() {
  static std::unique_ptr<LoadedModule> loaded = [] {
    std::string error;
    auto m = LoadedModule::load(TARNELL_MODULE_PATH, &error);
    if (!m) ADD_FAILURE() << error;
    return m;
  }();
  return loaded ? loaded->pluginMain() : nullptr;
}

// One thread's call of one plane routine: its own planes, parameters and
// misalignment, and the bytes the call gave when it ran alone.
class PlaneCase {
 public:
  PlaneCase(const PlaneShape& shape, int32_t columns, int32_t rows, int misalign, uint64_t seed) : shape_(shape) {
    Rng rng(seed);
    call_.rows = rows;
    call_.columns = columns;
    for (int i = 0; i < shape.paramCount; ++i) {
      const ParamSpec& p = shape.params[i];
      call_.param[i] = shape.benchParams != nullptr                  ? shape.benchParams[i]
                       : p.specialCount > 0 && rng.chance(2) ? p.special[rng.below(static_cast<uint32_t>(p.specialCount))]
                                                             : rng.range(p.lo, p.hi);
    }
    for (int p = 0; p < shape.planeCount; ++p) {
      const PlaneSpec& desc = shape.planes[p];
      PlaneLayout layout;
      layout.rows = rows;
      layout.rowBytes = columns * desc.sampleBytes;
      layout.stride = layout.rowBytes + 16 * desc.sampleBytes;
      layout.misalign = (misalign + 7 * p) % 64;
      planes_[p] = std::make_unique<PlaneBuffer>(layout, Placement::Heap);
      PlaneBuffer& b = *planes_[p];
      pristine_[p].resize(b.size());
      fillSamples(rng, Samples::Bytes, pristine_[p].data(), pristine_[p].size());
      const std::size_t first = static_cast<std::size_t>(b.first() - b.begin());
      for (int32_t r = 0; r < rows; ++r)
        fillSamples(rng, desc.samples, pristine_[p].data() + first + static_cast<std::size_t>(r) * static_cast<std::size_t>(layout.stride),
                    static_cast<std::size_t>(layout.rowBytes));
      call_.plane[p] = b.first();
      call_.stride[p] = layout.stride;
    }
  }

  // Runs the routine on fresh copies of the inputs; returns every plane's bytes
  // (guards and padding included) followed by the routine's result.
  std::vector<unsigned char> run(HostRoutine routine) {
    for (int p = 0; p < shape_.planeCount; ++p) std::memcpy(planes_[p]->begin(), pristine_[p].data(), pristine_[p].size());
    const uint64_t result = shape_.invoke(routine, call_);
    std::vector<unsigned char> out;
    for (int p = 0; p < shape_.planeCount; ++p) out.insert(out.end(), planes_[p]->begin(), planes_[p]->begin() + planes_[p]->size());
    if (shape_.compareResult) out.insert(out.end(), reinterpret_cast<const unsigned char*>(&result),
                                         reinterpret_cast<const unsigned char*>(&result) + sizeof result);
    return out;
  }

  std::vector<unsigned char> alone;

 private:
  const PlaneShape& shape_;
  std::unique_ptr<PlaneBuffer> planes_[kMaxPlanes];
  std::vector<unsigned char> pristine_[kMaxPlanes];
  PlaneCall call_{};
};

struct Installed {
  const Check* check;
  HostRoutine routine;
  std::vector<std::unique_ptr<PlaneCase>> perThread;
};

TEST(Concurrency, EveryPlaneRoutineGivesItsSingleThreadedBytesWhenCalledFromSeveralThreadsAtOnce) {
  ASSERT_NE(pluginMain(), nullptr);
  refhost::ReferenceHost host;
  ASSERT_TRUE(startModule(pluginMain(), host).ok());

  // Widths with a vector body, a head and a tail; each thread its own geometry.
  constexpr int32_t kColumns[kThreads] = {131, 64, 300, 77};
  std::vector<Installed> installed;
  for (const Check& check : allChecks()) {
    if (check.shape == nullptr || !host.replaced(check.suite, check.slot)) continue;
    Installed i{&check, host.live(check.suite, check.slot), {}};
    for (int t = 0; t < kThreads; ++t) {
      const int32_t columns = std::max(kColumns[t], check.shape->minColumns);
      i.perThread.push_back(std::make_unique<PlaneCase>(*check.shape, columns, 3 + t % 2, 5 * t + 1,
                                                        checkSeed(0xC0FFEE + static_cast<uint64_t>(t), check)));
      i.perThread.back()->alone = i.perThread.back()->run(i.routine);
    }
    installed.push_back(std::move(i));
  }
  if (installed.empty()) GTEST_SKIP() << "no plane routine is installed on this processor";

  // All threads start together and walk the routines from different places, so
  // that the same routine and different routines run at the same moment.
  StartGate go;
  std::mutex mutex;
  std::vector<std::string> mismatches;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      go.arriveAndWait();
      const std::size_t n = installed.size();
      for (int round = 0; round < kRounds; ++round) {
        for (std::size_t k = 0; k < n; ++k) {
          Installed& i = installed[(k + static_cast<std::size_t>(t) * n / kThreads) % n];
          PlaneCase& c = *i.perThread[static_cast<std::size_t>(t)];
          if (c.run(i.routine) != c.alone) {
            std::lock_guard lock(mutex);
            mismatches.push_back(checkLabel(*i.check) + " on thread " + std::to_string(t) + ", round " +
                                 std::to_string(round));
          }
        }
      }
    });
  }
  for (std::thread& th : threads) th.join();
  EXPECT_TRUE(mismatches.empty()) << mismatches.size() << " calls differed from the single-threaded run; first: "
                                  << mismatches.front();
}

// Slots outside the plane model (runs, overlapping copies, searches) have no
// plane description to compare by, and their own verification counts calls in the
// host's process-wide log, which other threads would add to. So: every thread calls
// each of them at once on a prepared case of its own (ThreadSanitizer watches the
// routines' memory traffic), then each still passes its verification.
TEST(Concurrency, EveryOtherRoutineRunsFromSeveralThreadsAtOnceAndStillVerifies) {
  ASSERT_NE(pluginMain(), nullptr);
  refhost::ReferenceHost host;
  ASSERT_TRUE(startModule(pluginMain(), host).ok());
  struct Custom {
    const Check* check;
    HostRoutine routine;
    std::vector<std::unique_ptr<BenchCase>> perThread;
  };
  std::vector<Custom> custom;
  for (const Check& check : allChecks()) {
    // (A registration moves no planes and has no bench case; a host makes it once.)
    if (check.shape != nullptr || !hasBench(check) || !host.replaced(check.suite, check.slot)) continue;
    Custom c{&check, host.live(check.suite, check.slot), {}};
    for (int t = 0; t < kThreads; ++t)
      c.perThread.push_back(makeBenchCase(check, 67 + 16 * t, 3 + t, checkSeed(static_cast<uint64_t>(t), check)));
    custom.push_back(std::move(c));
  }
  if (custom.empty()) GTEST_SKIP() << "no such routine is installed on this processor";

  StartGate go;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      go.arriveAndWait();
      const std::size_t n = custom.size();
      for (int round = 0; round < kRounds; ++round)
        for (std::size_t k = 0; k < n; ++k) {
          Custom& c = custom[(k + static_cast<std::size_t>(t) * n / kThreads) % n];
          c.perThread[static_cast<std::size_t>(t)]->run(c.routine);
        }
    });
  }
  for (std::thread& th : threads) th.join();

  VerifyOptions options;
  options.thorough = false;
  for (const Custom& c : custom) {
    if (!host.hasPortable(c.check->suite, c.check->slot)) continue;
    const CheckResult r = runCheck(*c.check, host, options);
    EXPECT_EQ(r.outcome, Outcome::Passed) << checkLabel(*c.check) << ": " << r.firstFailure;
  }
}

// The process-wide one-time values (identification, topology, the predicates built
// on them) are filled by whichever thread asks first; every thread must see one
// record and the same answers. Each ctest case runs in a fresh process, so here
// the first calls really race.
TEST(Concurrency, OneTimeProcessorValuesAreFilledOnceWhenFirstAskedFromSeveralThreads) {
  struct Seen {
    const CpuIdentification* record = nullptr;
    Topology topology{};
    uint32_t cores = 0, logical = 0, l2 = 0, line = 0;
    bool avx = false, smt = false;
    int vendor = 0;
  };
  StartGate go;
  std::vector<Seen> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      go.arriveAndWait();
      Seen& s = seen[static_cast<std::size_t>(t)];
      // Different threads start with different values.
      if (t % 2 == 0) s.record = &identification();
      s.topology = topology();
      s.cores = physicalCores();
      s.logical = logicalProcessors();
      s.l2 = l2Size();
      s.line = l2Line();
      s.avx = avxUsable();
      s.smt = smtInUse();
      s.vendor = vendorKind();
      if (t % 2 != 0) s.record = &identification();
    });
  }
  for (std::thread& th : threads) th.join();
  for (const Seen& s : seen) {
    EXPECT_EQ(s.record, seen[0].record);
    EXPECT_EQ(s.topology.physicalCores, s.cores);
    EXPECT_EQ(s.topology.logicalProcessors, s.logical);
    EXPECT_EQ(s.topology.l2Size, s.l2);
    EXPECT_EQ(s.topology.l2Line, s.line);
    EXPECT_EQ(s.cores, seen[0].cores);
    EXPECT_EQ(s.logical, seen[0].logical);
    EXPECT_EQ(s.avx, seen[0].avx);
    EXPECT_EQ(s.smt, seen[0].smt);
    EXPECT_EQ(s.vendor, seen[0].vendor);
  }
}

}  // namespace
