// The reference host itself: the oracle must be right before it can judge.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "refhost/refhost.h"

using namespace tarnell;
using refhost::HostOptions;
using refhost::ReferenceHost;

namespace {

TEST(ReferenceHost, DirectoryHoldsTheTenSuitesAtTheirVersions) {
  ReferenceHost host;
  const HostInfo* info = host.hostInfo();
  ASSERT_EQ(info->entryCount, kSuiteCount);
  const auto* entries = reinterpret_cast<const HostSuite*>(reinterpret_cast<const unsigned char*>(info) + 8);
  for (int i = 0; i < kSuiteCount; ++i) {
    EXPECT_EQ(entries[i].key, kSuites[i].key);
    EXPECT_EQ(entries[i].version, kSuites[i].version);
    EXPECT_EQ(entries[i].revision, kSuites[i].minRevision);
    EXPECT_EQ(entries[i].slots, host.liveTable(kSuites[i].key));
  }
}

TEST(ReferenceHost, EverySlotHoldsADistinctRoutine) {
  ReferenceHost host;
  std::set<HostRoutine> seen;
  std::size_t total = 0;
  for (const SuiteSpec& desc : kSuites) {
    for (int slot = 0; slot < desc.slotCount; ++slot) {
      ASSERT_NE(host.live(desc.key, slot), nullptr);
      seen.insert(host.live(desc.key, slot));
      ++total;
    }
  }
  EXPECT_EQ(seen.size(), total);
}

TEST(ReferenceHost, StandInRoutinesRecordTheirCalls) {
  ReferenceHost host;
  using Fn = uintptr_t(uintptr_t, uintptr_t, uintptr_t, uintptr_t);
  reinterpret_cast<Fn*>(host.live(code::disp, 81))(1, 2, 3, 4);
  const auto calls = host.calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].suite, code::disp);
  EXPECT_EQ(calls[0].slot, 81);
  EXPECT_EQ(calls[0].args[3], 4u);
}

TEST(ReferenceHost, OptionsShapeTheDirectory) {
  HostOptions options;
  options.omit = {code::memo};
  options.offerThroughQuery = {code::path};
  options.version[code::blnd] = 5;
  options.revision[code::conv] = -3;
  ReferenceHost host(options);
  const HostInfo* info = host.hostInfo();
  ASSERT_EQ(info->entryCount, kSuiteCount - 2);
  const auto* entries = reinterpret_cast<const HostSuite*>(reinterpret_cast<const unsigned char*>(info) + 8);
  for (int i = 0; i < info->entryCount; ++i) {
    EXPECT_NE(entries[i].key, code::memo);
    EXPECT_NE(entries[i].key, code::path);
    if (entries[i].key == code::blnd) {
      EXPECT_EQ(entries[i].version, 5);
    }
    if (entries[i].key == code::conv) {
      EXPECT_EQ(entries[i].revision, -3);
    }
  }
  auto query = reinterpret_cast<SlotFnOf<slot::query>>(host.live(code::core, 5));
  HostSuite* found = nullptr;
  EXPECT_EQ(query(code::requesterModule, code::path, &found, nullptr), 1);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->slots, host.liveTable(code::path));
  found = nullptr;
  EXPECT_EQ(query(code::requesterModule, code::memo, &found, nullptr), 0);
  EXPECT_EQ(found, nullptr);
}

TEST(ReferenceHost, GestaltsAnswerOnlyWhenRecognised) {
  HostOptions options;
  options.pathDebug = {true, 1};
  ReferenceHost host(options);
  auto query = reinterpret_cast<SlotFnOf<slot::query>>(host.live(code::core, 5));
  uint64_t answer = 0;
  EXPECT_EQ(query(code::gestaltClass, code::pathDebug, &answer, nullptr), 1);
  EXPECT_EQ(answer, 1u);
  answer = 99;
  EXPECT_EQ(query(code::gestaltClass, code::pathDebugGuard, &answer, nullptr), 0);
  EXPECT_EQ(answer, 99u);
}

TEST(ReferenceHost, DiagnosticsAreCaptured) {
  ReferenceHost host;
  reinterpret_cast<SlotFnOf<slot::report>>(host.live(code::core, 16))("message", "Source", 286, 1);
  const auto d = host.diagnostics();
  ASSERT_EQ(d.size(), 1u);
  EXPECT_EQ(d[0].message, "message");
  EXPECT_EQ(d[0].source, "Source");
  EXPECT_EQ(d[0].line, 286);
  EXPECT_EQ(d[0].severity, 1);
}

TEST(ReferenceHost, NoiseBufferRepeatsItsStartAfterOnePeriod) {
  ReferenceHost host;
  const uint32_t period = host.noisePeriodBytes() / 2, size = host.noiseSizeBytes() / 2;
  ASSERT_GT(size, period);
  ASSERT_GE(host.noisePeriodBytes(), 12282u);  // any start position leaves a full run
  for (uint32_t i = period; i < size; ++i) ASSERT_EQ(host.noiseBase()[i], host.noiseBase()[i - period]);
  EXPECT_EQ(host.registerNoise(), 1);
  const auto r = host.noiseRegistrations();
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(r[0].base, host.noiseBase());
  EXPECT_EQ(r[0].size, host.noiseSizeBytes());
  EXPECT_EQ(r[0].period, host.noisePeriodBytes());
}

TEST(ReferenceHost, CopyBytesIsOverlapSafeBothWays) {
  ReferenceHost host;
  auto copy = reinterpret_cast<SlotFnOf<slot::copyBytes>>(host.live(code::memo, 0));
  std::vector<unsigned char> b(64);
  for (std::size_t i = 0; i < b.size(); ++i) b[i] = static_cast<unsigned char>(i);
  copy(b.data(), b.data() + 5, 40);
  for (std::size_t i = 0; i < 40; ++i) ASSERT_EQ(b[5 + i], i);
  for (std::size_t i = 0; i < b.size(); ++i) b[i] = static_cast<unsigned char>(i);
  copy(b.data() + 5, b.data(), 40);
  for (std::size_t i = 0; i < 40; ++i) ASSERT_EQ(b[i], i + 5);
}

TEST(ReferenceHost, FloatRectangleFillHonoursStrideAndStep) {
  ReferenceHost host;
  auto fill = reinterpret_cast<SlotFnOf<slot::fillFloatRect>>(host.live(code::memo, 110));
  std::vector<float> plane(4 * 8, -1.0f);
  fill(plane.data(), 3, 4, 8 * 4, 2, 0.25f);
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 8; ++c) EXPECT_EQ(plane[r * 8 + c], (c % 2 == 0 && c < 6) ? 0.25f : -1.0f) << r << ',' << c;
  fill(plane.data(), 3, 0, 32, 1, 9.0f);
  fill(plane.data(), -1, 4, 32, 1, 9.0f);
  for (float v : plane) EXPECT_NE(v, 9.0f);
}

}  // namespace
