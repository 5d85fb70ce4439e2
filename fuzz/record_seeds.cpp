// Writes the slot fuzzer's seed corpus: for every check, a few one-case runs of
// the check drawn from fixed seeds, at the SSE2 tier, at this processor's widest
// and at the narrowest tier that replaces the slot, their draws recorded as fuzzer
// inputs (content cut short), one directory per family:
//
//   fuzz_record_seeds DIR [runs per check, default 3] [content bytes, default 512]
//
// Each run must pass; a run that drew no case at all is drawn again.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/slot_harness.h"
#include "verify/runner.h"

using namespace tarnell;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s DIR [runs per check] [content bytes]\n", argv[0]);
    return 2;
  }
  const std::filesystem::path dir = argv[1];
  const int runs = argc > 2 ? std::atoi(argv[2]) : 3;
  const std::size_t contentBytes = argc > 3 ? static_cast<std::size_t>(std::atoll(argv[3])) : 512;
  fuzz::SlotHarness harness;
  int widest = 2;
  for (std::size_t t = 0; t < fuzz::tiers().size(); ++t)
    if (fuzz::tiers()[t].reached) widest = static_cast<int>(t);
  std::size_t written = 0, bytes = 0;
  for (const verify::Check* check : fuzz::checksInKeyOrder()) {
    uint64_t seed = (uint64_t{check->suite} << 16) ^ static_cast<uint64_t>(check->slot);
    for (int k = 0; k < runs; ++k) {
      const int tier = k % 3 == 0 ? 2 : k % 3 == 1 ? widest : 0;
      fuzz::Outcome outcome;
      std::vector<uint8_t> input;
      for (int attempt = 0; attempt < 64 && outcome.cases == 0; ++attempt)
        input = harness.record(*check, tier, k % 3, ++seed, contentBytes, outcome);
      if (outcome.check == nullptr) break;  // no tier here replaces the slot
      if (!outcome.failure.empty()) {
        std::fprintf(stderr, "%s: %s\n", verify::checkLabel(*check).c_str(), outcome.failure.c_str());
        return 1;
      }
      const std::filesystem::path family = dir / fuzz::familyOf(*check);
      std::filesystem::create_directories(family);
      char name[64];
      std::snprintf(name, sizeof name, "%s-%d-%d", kSuites[suiteIndexOf(check->suite)].name, check->slot, k);
      std::ofstream(family / name, std::ios::binary)
          .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
      ++written;
      bytes += input.size();
    }
  }
  std::printf("fuzz_record_seeds: %zu seeds, %zu bytes, in %s\n", written, bytes, dir.c_str());
  return 0;
}
