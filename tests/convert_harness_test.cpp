// The harness features the conversion checks rely on: rows laid out at the stride a
// routine really uses (odd byte strides of 16-bit planes), runs on the same
// addresses for address-dependent results (dither), strides shared per sample size,
// and fixed benchmark parameters.
#include <gtest/gtest.h>

#include <cstring>

#include "refhost/refhost.h"
#include "verify/runner.h"

using namespace tarnell;
using namespace tarnell::verify;

namespace {

using WordFn = void(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t sStride, int32_t dStride);

// Copies 16-bit samples; rows step by the stride rounded down to even bytes.
void copyWordsHalvingStrides(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  if (columns < 1) return;
  for (int32_t r = 0; r < rows; ++r)
    std::memcpy(d + static_cast<intptr_t>(ds >> 1) * 2 * r, s + static_cast<intptr_t>(ss >> 1) * 2 * r,
                2 * static_cast<std::size_t>(columns));
}

// A byte copy xor-ed with a hash of the destination's address.
void copyMarkedByAddress(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  const auto mark = static_cast<uint8_t>((reinterpret_cast<uintptr_t>(d) >> 4) * 2654435761u >> 24);
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < columns; ++c) d[r * ds + c] = static_cast<uint8_t>(s[r * ss + c] ^ mark);
}

int64_t g_lastParam = -1;
bool g_groupStridesDiffered = false;
uint64_t invoke(HostRoutine routine, const PlaneCall& c) {
  g_lastParam = c.param[0];
  g_groupStridesDiffered |= c.stride[0] != c.stride[1];
  reinterpret_cast<WordFn*>(routine)(static_cast<const uint8_t*>(c.plane[0]), static_cast<uint8_t*>(c.plane[1]), c.rows,
                                     c.columns, c.stride[0], c.stride[1]);
  return 0;
}

int32_t evenStride(int, int32_t stride) { return stride - (stride & 1); }

CheckResult run(const PlaneShape& shape, WordFn* fn) {
  static Check check{};
  check = {code::conv, 999, "TestConvertShape", "test", &shape, nullptr, nullptr};
  refhost::ReferenceHost host;
  VerifyOptions options;
  options.seed = 11;
  options.thorough = false;
  return runCheckOn(check, host, reinterpret_cast<HostRoutine>(fn), reinterpret_cast<HostRoutine>(fn), options);
}

TEST(HarnessForConversions, RowsFollowTheStrideTheRoutineUses) {
  PlaneShape shape{
      .planes = {{"source", 2, Role::Input, Samples::Words15}, {"destination", 2, Role::Output, Samples::Words15}},
      .planeCount = 2,
      .params = {},
      .paramCount = 0,
      .invoke = &invoke,
      .alignPlane = 1,
      .negativeStrides = true};
  const CheckResult plain = run(shape, &copyWordsHalvingStrides);
  EXPECT_EQ(plain.outcome, Outcome::Failed);  // odd strides: rows land where the runner does not expect them
  shape.usedStride = &evenStride;
  const CheckResult rounded = run(shape, &copyWordsHalvingStrides);
  EXPECT_EQ(rounded.outcome, Outcome::Passed) << rounded.firstFailure;
}

TEST(HarnessForConversions, AddressDependentResultsNeedTheSameAddresses) {
  PlaneShape shape{
      .planes = {{"source", 1, Role::Input, Samples::Bytes}, {"destination", 1, Role::Output, Samples::Bytes}},
      .planeCount = 2,
      .params = {},
      .paramCount = 0,
      .invoke = &invoke,
      .alignPlane = 1,
      .negativeStrides = true};
  EXPECT_EQ(run(shape, &copyMarkedByAddress).outcome, Outcome::Failed);
  shape.sameAddresses = true;
  const CheckResult r = run(shape, &copyMarkedByAddress);
  EXPECT_EQ(r.outcome, Outcome::Passed) << r.firstFailure;
  EXPECT_GT(r.cases, 300);
}

// With shared strides, planes of one sample size get one stride and planes of
// another size their own (not the first plane's).
void copyWordsToBytesTwoGroups(const uint8_t* s, uint8_t* d, int32_t rows, int32_t columns, int32_t ss, int32_t ds) {
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < columns; ++c) d[r * ds + c] = s[r * ss + 2 * c];
}

TEST(HarnessForConversions, SharedStridesArePerSampleSize) {
  PlaneShape shape{
      .planes = {{"source", 2, Role::Input, Samples::Words15}, {"destination", 1, Role::Output, Samples::Bytes}},
      .planeCount = 2,
      .params = {},
      .paramCount = 0,
      .invoke = &invoke,
      .alignPlane = 1,
      .sharedStride = true};
  g_groupStridesDiffered = false;
  const CheckResult r = run(shape, &copyWordsToBytesTwoGroups);
  EXPECT_EQ(r.outcome, Outcome::Passed) << r.firstFailure;
  EXPECT_TRUE(g_groupStridesDiffered);
}

TEST(HarnessForConversions, BenchmarksUseTheFixedParameters) {
  static constexpr int64_t kFixed[] = {42};
  const PlaneShape shape{
      .planes = {{"source", 1, Role::Input, Samples::Bytes}, {"destination", 1, Role::Output, Samples::Bytes}},
      .planeCount = 2,
      .params = {{"p", 0, 7, {}, 0}},
      .paramCount = 1,
      .invoke = &invoke,
      .alignPlane = 1,
      .benchParams = kFixed};
  const Check check{code::conv, 999, "TestConvertShape", "test", &shape, nullptr, nullptr};
  for (uint64_t seed : {1u, 2u, 3u}) {
    auto bench = makeBenchCase(check, 64, 4, seed);
    bench->run(reinterpret_cast<HostRoutine>(&copyMarkedByAddress));
    EXPECT_EQ(g_lastParam, 42);
  }
}

}  // namespace
