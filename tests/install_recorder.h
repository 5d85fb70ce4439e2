// What an installer writes into a scratch table of its suite, in order: the one
// recorder the installer tests share.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "host/install.h"
#include "host/kernels.h"
#include "host/module_state.h"
#include "refhost/refhost.h"
#include "verify/installs.h"

namespace tarnell::installs {

struct Installed {
  std::vector<int> order;             // slots, in the order written
  std::vector<HostRoutine> routines;  // what each write put there
  std::vector<SlotWrite> writes;      // each write whole (level, forwarded)
  std::vector<HostRoutine> table;     // the scratch table afterwards
  HostRoutine at(int slot) const { return table[static_cast<std::size_t>(slot)]; }
};

// Runs install(writer) on a fresh table of the suite's copied length, with the
// kernel table of the given flags.
template <uint32_t Suite, typename Install>
Installed recordInstall(Install&& install, const CpuFeatureFlags& flags) {
  Installed out;
  out.table.assign(static_cast<std::size_t>(kSuites[suiteIndexOf(Suite)].slotCount), nullptr);
  const Kernels kernels = resolveKernels(flags);
  const SuiteWriter<Suite> writer(
      out.table.data(), kernels,
      [](void* context, const SlotWrite& w) {
        auto* self = static_cast<Installed*>(context);
        self->order.push_back(w.slot);
        self->routines.push_back(w.routine);
        self->writes.push_back(w);
      },
      &out);
  install(writer);
  return out;
}

// The usual form: installX(writer, flags).
template <uint32_t Suite>
Installed recordInstall(void (*install)(const SuiteWriter<Suite>&, const CpuFeatureFlags&), const CpuFeatureFlags& flags) {
  return recordInstall<Suite>([&](const SuiteWriter<Suite>& writer) { install(writer, flags); }, flags);
}

// The suite's installer on a scratch table. The path installer asks the host's
// gestalts, so it runs with a reference host's live 'core' table.
inline Installed recordSuite(uint32_t suite, const CpuFeatureFlags& f) {
  switch (suite) {
    case code::core:
      return recordInstall<code::core>([](const SuiteWriter<code::core>& w) { installNoiseHookInto(w); }, f);
    case code::blnd:
      return recordInstall<code::blnd>(&installBlend, f);
    case code::conv:
      return recordInstall<code::conv>(&installConvert, f);
    case code::filt:
      return recordInstall<code::filt>(&installFilter, f);
    case code::memo:
      return recordInstall<code::memo>(&installMemory, f);
    case code::pntg:
      return recordInstall<code::pntg>(&installPaint, f);
    case code::rsmp:
      return recordInstall<code::rsmp>(&installResample, f);
    case code::sele:
      return recordInstall<code::sele>(&installSelection, f);
    case code::path: {
      refhost::ReferenceHost host;
      HostRoutine* const keep = g_liveTables[kCore];
      g_liveTables[kCore] = host.liveTable(code::core);
      Installed out =
          recordInstall<code::path>([](const SuiteWriter<code::path>& w) { installPath(w, "Tarnell"); }, f);
      g_liveTables[kCore] = keep;
      return out;
    }
  }
  ADD_FAILURE() << "no installer for suite " << suite;
  return {};
}

// One of the 128 combinations of the flags the installers read: bits 0 to 5 SSE
// (both reports), SSE2, SSE3 with SSSE3, SSE4.1, AVX, AVX2; bit 6 flips the first
// SSE report (flush-to-zero) apart from the second (the installers').
inline CpuFeatureFlags flagsOfBits(unsigned bits) {
  CpuFeatureFlags f{};
  f.mmx = 1;
  f.sse = f.sseSecond = bits & 1;
  f.sse2 = (bits >> 1) & 1;
  f.sse3 = f.ssse3 = (bits >> 2) & 1;
  f.sse41 = (bits >> 3) & 1;
  f.avx = (bits >> 4) & 1;
  f.avx2 = (bits >> 5) & 1;
  if ((bits >> 6) & 1) f.sse = !f.sse;
  return f;
}

// Injected flags for the installers gated by SSE, SSE2 and SSE4.1: MMX always, SSE
// as both of its reports, SSE3 and SSSE3 along with SSE4.1.
inline CpuFeatureFlags sseFlags(bool sse, bool sse2, bool sse41) {
  CpuFeatureFlags f{};
  f.mmx = 1;
  f.sse = f.sseSecond = sse;
  f.sse2 = sse2;
  f.sse3 = f.ssse3 = f.sse41 = sse41;
  return f;
}

// The features an installer sees in these flags (the suites gated by SSE read the
// second report).
inline verify::FeatureSet featuresOf(const CpuFeatureFlags& f) {
  return {f.sseSecond != 0, f.sse2 != 0, f.ssse3 != 0, f.sse41 != 0, f.avx != 0, f.avx2 != 0 && f.avx != 0};
}

// The order the verification layer's installer lists give for these flags.
inline std::vector<int> listedOrder(uint32_t suite, const CpuFeatureFlags& flags) {
  std::vector<int> out;
  for (const verify::InstallerWrites& installer : verify::installerWrites())
    if (installer.suite == suite)
      for (const verify::SlotRef& s : verify::writesOf(installer, featuresOf(flags))) out.push_back(s.slot);
  return out;
}

// Write orders one after the other.
inline std::vector<int> joined(std::initializer_list<std::vector<int>> parts) {
  std::vector<int> out;
  for (const std::vector<int>& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

template <typename Fn>
HostRoutine erase(Fn* fn) {
  return reinterpret_cast<HostRoutine>(fn);
}

}  // namespace tarnell::installs
