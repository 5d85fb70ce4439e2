#include "host/kernels.h"

#include <cstring>

namespace tarnell {

Kernels g_kernels;

namespace {

constexpr const char* kLevelNames[kLevelCount] = {"plain", "sse2", "ssse3", "sse41", "avx", "avx2"};

// One tier's tables: each is one file's bodies at that level (a file whose bodies
// are baseline code around a wider kernel lists them at the kernel's level).
// Ascending, so that a wider tier overwrites what a narrower one set.
struct TierTable {
  Level level;
  void (*take)(Kernels& kernels, Level level);
};
template <auto& Table>
void take(Kernels& kernels, Level level) {
  kernels.take(Table, level);
}

constexpr TierTable kTiers[] = {
    {Level::plain, &take<blend8::g_blend8Tables>},
    {Level::plain, &take<convert::g_convertPlain>},
    {Level::plain, &take<resample::g_resampleSse>},
    {Level::sse2, &take<memory::g_memorySse2>},
    {Level::sse2, &take<blend8::g_blend8Sse2>},
    {Level::sse2, &take<blend8::g_overlay8Sse2>},
    {Level::sse2, &take<filter::g_weightedSumSse2>},
    {Level::sse2, &take<filter::g_boxMeanSse2>},
    {Level::sse2, &take<paint::g_paintSse2>},
    {Level::sse2, &take<selection::g_propagateSse2>},
    {Level::sse2, &take<selection::g_classifySse2>},
    {Level::sse2, &take<selection::g_spreadMarkSse2>},
    {Level::sse2, &take<blend16::g_blend16Sse2>},
    {Level::sse2, &take<blendf::g_blendFloatSse2>},
    {Level::sse2, &take<convert::g_convertSse2>},
    {Level::sse2, &take<resample::g_resampleSse2>},
    {Level::ssse3, &take<memory::g_memorySsse3>},
    {Level::sse41, &take<memory::g_memorySse41>},
    {Level::sse41, &take<filter::g_angularRemapSse41>},
    {Level::sse41, &take<resample::g_resampleSse41>},
    {Level::avx, &take<memory::g_memoryAvx>},
    {Level::avx2, &take<memory::g_memoryAvx2>},
    {Level::avx2, &take<blend8::g_blend8Avx2>},
    {Level::avx2, &take<blend8::g_overlay8Avx2>},
    {Level::avx2, &take<filter::g_weightedSumAvx2>},
    {Level::avx2, &take<filter::g_boxMeanAvx2>},
    {Level::avx2, &take<filter::g_angularRemapAvx2>},
    {Level::avx2, &take<paint::g_paintAvx2>},
    {Level::avx2, &take<selection::g_propagateAvx2>},
    {Level::avx2, &take<selection::g_classifyAvx2>},
    {Level::avx2, &take<selection::g_spreadMarkAvx2>},
    {Level::avx2, &take<blend16::g_blend16Avx2>},
    {Level::avx2, &take<blendf::g_blendFloatAvx2>},
    {Level::avx2, &take<convert::g_convertAvx2>},
    {Level::avx2, &take<resample::g_remapAvx2>},
    {Level::avx2, &take<resample::g_boxReduceAvx2>},
    {Level::avx2, &take<resample::g_boxAverageRowsAvx2>},
    {Level::avx2, &take<resample::g_filterFloatAvx2>},
    {Level::avx2, &take<resample::g_kernelFiltersAvx2>},
};

}  // namespace

const char* levelName(Level level) { return kLevelNames[static_cast<int>(level)]; }

bool levelFromName(const char* name, Level* level) {
  for (int i = 0; i < kLevelCount; ++i)
    if (std::strcmp(name, kLevelNames[i]) == 0) {
      *level = static_cast<Level>(i);
      return true;
    }
  return false;
}

bool flagsReach(const CpuFeatureFlags& flags, Level level) {
  switch (level) {
    case Level::plain:
      return true;
    case Level::sse2:
      return flags.sse2 != 0;
    case Level::ssse3:
      return flags.ssse3 != 0;
    case Level::sse41:
      return flags.sse41 != 0;
    case Level::avx:
      return flags.avx != 0;
    case Level::avx2:
      // AVX2 code needs the AVX state saved too; the flag's own test implies it,
      // injected flags may not.
      return flags.avx2 != 0 && flags.avx != 0;
  }
  return false;
}

CpuFeatureFlags flagsAtLevel(const CpuFeatureFlags& flags, Level level) {
  CpuFeatureFlags f = flags;
  if (level < Level::avx2) f.avx2 = 0;
  if (level < Level::avx) f.avx = 0;
  if (level < Level::sse41) f.sse41 = 0;
  if (level < Level::ssse3) f.ssse3 = 0, f.sse3 = 0;
  if (level < Level::sse2) f.sse2 = 0;
  return f;
}

Level widestLevel(const CpuFeatureFlags& flags) {
  Level widest = Level::plain;
  for (int i = 0; i < kLevelCount; ++i)
    if (flagsReach(flags, static_cast<Level>(i))) widest = static_cast<Level>(i);
  return widest;
}

Kernels resolveKernels(const CpuFeatureFlags& flags) {
  Kernels k;
  for (const TierTable& tier : kTiers)
    if (flagsReach(flags, tier.level)) tier.take(k, tier.level);
  return k;
}

}  // namespace tarnell
