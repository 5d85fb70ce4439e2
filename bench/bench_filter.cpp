// The 16-bit box mean (filt slot 75) at radii from 1 to 179 on the same 256 x 256
// region: its cost per output sample should not grow with the radius. The body
// comes from the static library's kernel table for this processor's flags, as in
// the module; boxMeanSse2 takes the table of the SSE2 tier to time the narrower
// kernel. "ns/sample" is per output sample.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "host/cpu_features.h"
#include "host/kernels.h"

namespace {

void boxMeanWith(benchmark::State& state, tarnell::Level level) {
  const tarnell::CpuFeatureFlags flags = tarnell::computeFeatureFlags(tarnell::identification(), tarnell::topology());
  const auto boxMean = tarnell::resolveKernels(tarnell::flagsAtLevel(flags, level)).filterSlot75.fn;
  const int32_t radius = static_cast<int32_t>(state.range(0));
  constexpr int32_t kSize = 256;
  const int32_t width = kSize + 2 * radius;
  std::vector<uint16_t> source(static_cast<std::size_t>(width) * static_cast<std::size_t>(width));
  std::vector<uint16_t> destination(static_cast<std::size_t>(kSize) * kSize);
  uint32_t x = 12345;
  for (uint16_t& v : source) v = static_cast<uint16_t>((x = x * 1103515245u + 12345u) >> 17);
  const uint16_t* region = source.data() + static_cast<std::ptrdiff_t>(radius) * width + radius;
  for (auto _ : state) {
    boxMean(region, destination.data(), kSize, kSize, 2 * width, 2 * kSize, radius);
    benchmark::ClobberMemory();
  }
  state.counters["ns/sample"] = benchmark::Counter(static_cast<double>(state.iterations()) * kSize * kSize,
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
void boxMean(benchmark::State& state) { boxMeanWith(state, tarnell::Level::avx2); }
void boxMeanSse2(benchmark::State& state) { boxMeanWith(state, tarnell::Level::sse2); }
BENCHMARK(boxMeanSse2)->Arg(2)->Arg(20)->Unit(benchmark::kMicrosecond);
BENCHMARK(boxMean)->Arg(1)->Arg(2)->Arg(5)->Arg(10)->Arg(20)->Arg(40)->Arg(100)->Arg(179)->Unit(benchmark::kMicrosecond);

}  // namespace
