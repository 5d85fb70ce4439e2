// The 'memo' copies and fills against the C library's memcpy and memset, in the
// same run, from cache-resident sizes to runs far above the last-level cache.
// The module's routines come from the static library through its installer, for
// the tiers this processor runs ("best") and for the SSE2 tier alone ("sse2").
#include <benchmark/benchmark.h>

#include <cstring>
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
