// Every verification check as a pair of Google Benchmark cases, host and module,
// on the same data, at 256x256 (cache-resident) and 4096x4096.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include "refhost/refhost.h"
#include "verify/runner.h"
#include "verify/session.h"

namespace {

using namespace tarnell;

void registerChecks(refhost::ReferenceHost& host) {
  for (const verify::Check& check : verify::allChecks()) {
    if (!host.replaced(check.suite, check.slot) || !host.hasPortable(check.suite, check.slot) ||
        !verify::hasBench(check))
      continue;
    for (int size : {256, 4096}) {
      for (bool moduleSide : {false, true}) {
        const HostRoutine routine = moduleSide ? host.live(check.suite, check.slot) : host.original(check.suite, check.slot);
        const std::string name = verify::checkLabel(check) + (moduleSide ? "/module/" : "/host/") +
                                 std::to_string(size) + "x" + std::to_string(size);
        benchmark::RegisterBenchmark(name.c_str(), [&check, routine, size](benchmark::State& state) {
          std::unique_ptr<verify::BenchCase> bench =
              verify::makeBenchCase(check, size, size, verify::checkSeed(1, check));
          for (auto _ : state) bench->run(routine);
          state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bench->bytesMoved));
        })->Unit(benchmark::kMicrosecond);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  static auto module = verify::LoadedModule::load(TARNELL_MODULE_PATH, &error);
  if (!module) {
    std::fprintf(stderr, "tarnell_bench: %s\n", error.c_str());
    return 3;
  }
  static refhost::ReferenceHost host;
  if (!verify::startModule(module->pluginMain(), host).ok()) {
    std::fprintf(stderr, "tarnell_bench: the module's start-up failed\n");
    return 4;
  }
  registerChecks(host);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
