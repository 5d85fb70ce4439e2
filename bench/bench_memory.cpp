// The 'memo' copies and fills against the C library's memcpy and memset, in the
// same run, from cache-resident sizes to runs far above the last-level cache; and
// whole-plane fills in the workloads that decide when fills bypass the caches.
// The module's routines come from the static library through its installer, for
// the tiers this processor runs ("best") and for the SSE2 tier alone ("sse2").
#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/cpu_features.h"
#include "host/install.h"

namespace {

using namespace tarnell;

std::vector<HostRoutine> memoTable(bool best) {
  CpuFeatureFlags f{};
  if (best) {
    f = computeFeatureFlags(identification(), topology());
  } else {
    f.sse2 = 1;
  }
  std::vector<HostRoutine> table(static_cast<std::size_t>(kSuites[kMemo].slotCount), nullptr);
  const Kernels kernels = resolveKernels(f);
  installMemory(SuiteWriter<code::memo>(table.data(), kernels), f);
  return table;
}

template <int Slot>
SlotFn<code::memo, Slot> routine(bool best) {
  static const std::vector<HostRoutine> bestTable = memoTable(true), sse2Table = memoTable(false);
  return reinterpret_cast<SlotFn<code::memo, Slot>>((best ? bestTable : sse2Table)[Slot]);
}

// Two page-aligned arrays shared by every benchmark of this file, so that each
// routine and its library counterpart see the very same addresses (the distance
// between source and destination changes timings of short runs by itself).
struct Arrays {
  static constexpr std::size_t kBytes = (std::size_t{64} << 20) + 4096;
  Arrays() : from(kBytes + 4096, 1), to(kBytes + 4096, 0) {}
  static unsigned char* aligned(std::vector<unsigned char>& v) {
    const auto base = reinterpret_cast<uintptr_t>(v.data());
    return v.data() + ((base + 4095) / 4096 * 4096 - base);
  }
  std::vector<unsigned char> from, to;
};
Arrays& arrays() {
  static Arrays shared;
  return shared;
}
unsigned char* fromArray() { return Arrays::aligned(arrays().from); }
unsigned char* toArray() { return Arrays::aligned(arrays().to); }

// Short runs (where call overhead decides) up to 256 bytes, then one
// cache-resident size and one far above the last-level cache.
void sizes(benchmark::internal::Benchmark* b) {
  for (int64_t n : {1, 7, 16, 33, 64, 100, 128, 200, 256}) b->Arg(n);
  for (int64_t n : {int64_t{64} << 10, int64_t{64} << 20}) b->Arg(n);
}

void setBytes(benchmark::State& state, std::size_t bytesPerCall) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytesPerCall));
}

// The host reaches a slot's routine only through its table, an indirect call, and
// on some processors an indirect call costs a cycle or two more than a direct
// one. The library routines are called the same way (through a pointer the
// compiler cannot see through), so that short runs compare the routines and not
// the call instructions. The "_direct" forms call the library the usual way, for
// reference.
template <class Fn>
Fn opaque(Fn fn) {
  benchmark::DoNotOptimize(fn);
  return fn;
}

// Calls call(n) once per iteration, n the benchmark's byte count, and reports n
// bytes per call.
template <class Call>
void measure(benchmark::State& state, Call call) {
  const auto n = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    call(n);
    benchmark::ClobberMemory();
  }
  setBytes(state, n);
}

// ---------------------------------------------------------------- copies

void memoCopy_memcpy(benchmark::State& state) {
  unsigned char *const from = fromArray(), *const to = toArray();
  void* (*const copy)(void*, const void*, std::size_t) = opaque(&std::memcpy);
  measure(state, [=](std::size_t n) { copy(to, from, n); });
}

void memoCopy_memcpy_direct(benchmark::State& state) {
  unsigned char *const from = fromArray(), *const to = toArray();
  measure(state, [=](std::size_t n) { std::memcpy(to, from, n); });
}

template <bool Best>
void memoCopy_module(benchmark::State& state) {
  unsigned char *const from = fromArray(), *const to = toArray();
  const auto copy = routine<0>(Best);
  measure(state, [=](std::size_t n) { copy(from, to, static_cast<int32_t>(n)); });
}

// ------------------------------------------------------------------ fills

void memoFill_memset(benchmark::State& state) {
  unsigned char* const to = toArray();
  void* (*const fill)(void*, int, std::size_t) = opaque(&std::memset);
  measure(state, [=](std::size_t n) { fill(to, 0x5A, n); });
}

void memoFill_memset_direct(benchmark::State& state) {
  unsigned char* const to = toArray();
  int value = 0x5A;
  benchmark::DoNotOptimize(value);
  measure(state, [=](std::size_t n) { std::memset(to, value, n); });
}

template <bool Best>
void memoFillBytes_module(benchmark::State& state) {
  unsigned char* const to = toArray();
  const auto fill = routine<3>(Best);
  measure(state, [=](std::size_t n) { fill(to, static_cast<int32_t>(n), 0x5A); });
}

template <bool Best>
void memoFillWords_module(benchmark::State& state) {
  unsigned char* const to = toArray();
  const auto fill = routine<65>(Best);
  measure(state, [=](std::size_t n) { fill(to, static_cast<int32_t>(n / 2), 0x5A3C); });
}

template <bool Best>
void memoFillDwords_module(benchmark::State& state) {
  unsigned char* const to = toArray();
  const auto fill = routine<136>(Best);
  measure(state, [=](std::size_t n) { fill(to, static_cast<int32_t>(n / 4), 0x5A3C1E0Fu); });
}

// ------------------------------------------------------------ plane fills
// Whole 8-bit planes 4096 samples wide: 16 MiB (4096 rows, inside a 32 MiB
// last-level cache) and 256 MiB (far beyond it), in four workloads:
//   same:   the same plane filled again and again (what the peer benchmark does);
//   fresh:  a different plane each call, taken in turn out of 1 GiB (a plane
//           filled once and not soon again);
//   read:   the same plane filled and then read back (a plane used right after);
//   spared: a fresh plane filled, then an 8 MiB working set of the caller read
//           again; the time is the fill's and the read's together.
// Bytes per second count the plane's bytes. Sides: the module's fillBlock (tight
// rows: one run; "padded": rows 64 bytes apart, filled one by one), memset, and two
// reference loops that differ only in their stores (16 bytes, cached or streamed).
enum class Workload { same, fresh, read, spared };
constexpr std::size_t kPlaneWidth = 4096, kPoolBytes = std::size_t{1} << 30, kWorkingSetBytes = std::size_t{8} << 20;

unsigned char* pagesOf(std::size_t bytes) {
  auto* p = static_cast<unsigned char*>(std::aligned_alloc(4096, bytes));
  std::memset(p, 1, bytes);  // every page present before the first measurement
  return p;
}
unsigned char* pool() {
  static unsigned char* const p = pagesOf(kPoolBytes);
  return p;
}
unsigned char* workingSet() {
  static unsigned char* const p = pagesOf(kWorkingSetBytes);
  return p;
}

// Reads every cache line of n bytes; the sum keeps the loads.
uint32_t readBack(const unsigned char* p, std::size_t n) {
  __m128i sum = _mm_setzero_si128();
  for (std::size_t k = 0; k < n; k += 64) sum = _mm_add_epi32(sum, _mm_load_si128(reinterpret_cast<const __m128i*>(p + k)));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(sum));
}

void referenceCached(unsigned char* d, std::size_t n, unsigned char value) {
  const __m128i v = _mm_set1_epi8(static_cast<char>(value));
  for (std::size_t k = 0; k < n; k += 64)
    for (std::size_t j = 0; j < 64; j += 16) _mm_store_si128(reinterpret_cast<__m128i*>(d + k + j), v);
}
void referenceStreamed(unsigned char* d, std::size_t n, unsigned char value) {
  const __m128i v = _mm_set1_epi8(static_cast<char>(value));
  for (std::size_t k = 0; k < n; k += 64)
    for (std::size_t j = 0; j < 64; j += 16) _mm_stream_si128(reinterpret_cast<__m128i*>(d + k + j), v);
  _mm_sfence();
}

// Runs fill(plane, rows, step) in the workload on planes of state.range(0) MiB,
// rows `step` bytes apart.
template <class Fill>
void planeWorkload(benchmark::State& state, Workload workload, std::size_t step, Fill fill) {
  const std::size_t bytes = static_cast<std::size_t>(state.range(0)) << 20;
  const auto rows = static_cast<int32_t>(bytes / kPlaneWidth);
  const std::size_t span = step * static_cast<std::size_t>(rows);
  const std::size_t planes = kPoolBytes / span;
  unsigned char* const base = pool();
  std::size_t next = 0;
  uint32_t sink = 0;
  for (auto _ : state) {
    switch (workload) {
      case Workload::same:
        fill(base, rows, step);
        break;
      case Workload::fresh:
        fill(base + span * (next++ % planes), rows, step);
        break;
      case Workload::read:
        fill(base, rows, step);
        sink += readBack(base, span);
        break;
      case Workload::spared:
        fill(base + span * (next++ % planes), rows, step);
        sink += readBack(workingSet(), kWorkingSetBytes);
        break;
    }
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(sink);
  setBytes(state, bytes);
}

void memoPlane_module(benchmark::State& state, Workload workload) {
  const auto fill = routine<4>(true);
  planeWorkload(state, workload, kPlaneWidth, [=](unsigned char* d, int32_t rows, std::size_t step) {
    fill(d, rows, static_cast<int32_t>(kPlaneWidth), static_cast<int32_t>(step), 0x5A);
  });
}
void memoPlane_module_padded(benchmark::State& state, Workload workload) {
  const auto fill = routine<4>(true);
  planeWorkload(state, workload, kPlaneWidth + 64, [=](unsigned char* d, int32_t rows, std::size_t step) {
    fill(d, rows, static_cast<int32_t>(kPlaneWidth), static_cast<int32_t>(step), 0x5A);
  });
}
void memoPlane_memset(benchmark::State& state, Workload workload) {
  planeWorkload(state, workload, kPlaneWidth, [](unsigned char* d, int32_t rows, std::size_t step) {
    std::memset(d, 0x5A, step * static_cast<std::size_t>(rows));
  });
}
void memoPlane_cachedStores(benchmark::State& state, Workload workload) {
  planeWorkload(state, workload, kPlaneWidth, [](unsigned char* d, int32_t rows, std::size_t step) {
    referenceCached(d, step * static_cast<std::size_t>(rows), 0x5A);
  });
}
void memoPlane_streamedStores(benchmark::State& state, Workload workload) {
  planeWorkload(state, workload, kPlaneWidth, [](unsigned char* d, int32_t rows, std::size_t step) {
    referenceStreamed(d, step * static_cast<std::size_t>(rows), 0x5A);
  });
}

// memoPlane_<side>/<workload>/MiB:<16 or 256>.
const bool planesRegistered = [] {
  using Side = void (*)(benchmark::State&, Workload);
  const std::pair<const char*, Side> sides[] = {{"module", &memoPlane_module},
                                                {"module_padded", &memoPlane_module_padded},
                                                {"memset", &memoPlane_memset},
                                                {"cachedStores", &memoPlane_cachedStores},
                                                {"streamedStores", &memoPlane_streamedStores}};
  const std::pair<const char*, Workload> workloads[] = {
      {"same", Workload::same}, {"fresh", Workload::fresh}, {"read", Workload::read}, {"spared", Workload::spared}};
  for (const auto& [side, run] : sides)
    for (const auto& [name, workload] : workloads)
      benchmark::RegisterBenchmark((std::string("memoPlane_") + side + "/" + name).c_str(), run, workload)
          ->Arg(16)
          ->Arg(256)
          ->ArgName("MiB")
          ->Unit(benchmark::kMillisecond);
  return true;
}();

BENCHMARK(memoCopy_memcpy)->Apply(sizes);
BENCHMARK(memoCopy_memcpy_direct)->Apply(sizes);
BENCHMARK(memoCopy_module<true>)->Name("memoCopy_module/best")->Apply(sizes);
BENCHMARK(memoCopy_module<false>)->Name("memoCopy_module/sse2")->Apply(sizes);
BENCHMARK(memoFill_memset)->Apply(sizes);
BENCHMARK(memoFill_memset_direct)->Apply(sizes);
BENCHMARK(memoFillBytes_module<true>)->Name("memoFillBytes_module/best")->Apply(sizes);
BENCHMARK(memoFillBytes_module<false>)->Name("memoFillBytes_module/sse2")->Apply(sizes);
BENCHMARK(memoFillWords_module<true>)->Name("memoFillWords_module/best")->Apply(sizes);
BENCHMARK(memoFillDwords_module<true>)->Name("memoFillDwords_module/best")->Apply(sizes);
BENCHMARK(memoFillDwords_module<false>)->Name("memoFillDwords_module/sse2")->Apply(sizes);

}  // namespace
