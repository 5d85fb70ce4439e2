// The host's fill-array operation with its build and debug settings given
// explicitly: the oracle of the path-fill checks, tests and fuzzer.
#pragma once

#include <cstdint>

namespace tarnell::refhost {

struct FillArraySettings {
  bool checking = false;  // the checking build (guard words, validation, reports)
  bool debug = false;     // the path-debug flag: the checking build's extra checks run only then
  uint32_t guard = 0;     // the guard value (0: no guard words)
};

// Applies the operation to every row, reporting to the active reference host.
void portableApplyFillArray(uint32_t* fillArray, uint32_t operation, int32_t nonZeroWinding,
                            const FillArraySettings& settings);

// The settings the host's own slot 24 runs with: those a module derives from the
// host's 'pdbg' and 'pdgv' answers (checking build exactly when debugging is on).
FillArraySettings hostFillArraySettings();

// Words of working space after the row blocks for the given settings.
int64_t fillArrayWorkingWords(int32_t rowStride, const FillArraySettings& settings);

}  // namespace tarnell::refhost
