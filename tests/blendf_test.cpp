// The float composites' dispatch, seen from outside: which live-table slots a
// record reaches with which arguments (through live tables whose slots 289, 290 and
// 'memo' 110 are recorders, and a saved slot 275 that is one), and the rounding
// mode each path runs in and gives back, for the bodies of every level this
// processor runs (the same entries over SSE2 or AVX2 loops). The byte results are
// the checks' work.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "blend/blendf.h"
#include "host/kernels.h"
#include "host/module_state.h"
#include "tests/tiers.h"

using namespace tarnell;

namespace {

struct Seen {
  int slot;
  const void* first;
  const void* second;
  int32_t columns, rows, strideA, strideB;
  uint32_t valueBits;
  bool operator==(const Seen&) const = default;
};
std::vector<Seen> g_seen;

void recordMin(const float* s, float* d, int32_t columns, int32_t rows, int32_t ss, int32_t ds) {
  g_seen.push_back({289, s, d, columns, rows, ss, ds, 0});
}
void recordMax(const float* s, float* d, int32_t columns, int32_t rows, int32_t ss, int32_t ds) {
  g_seen.push_back({290, s, d, columns, rows, ss, ds, 0});
}
void recordFill(float* d, int32_t columns, int32_t rows, int32_t stride, int32_t step, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  g_seen.push_back({110, d, nullptr, columns, rows, stride, step, bits});
}
void recordHost275(const FloatCompositeRecord* r) { g_seen.push_back({275, r, nullptr, 0, 0, 0, 0, 0}); }

uint32_t readCsr() {
  uint32_t v;
  asm volatile("stmxcsr %0" : "=m"(v));
  return v;
}
void writeCsr(uint32_t v) { asm volatile("ldmxcsr %0" : : "m"(v) : "memory"); }

// Calls f with the caller's control word set to csr; returns the word f left.
template <class F>
uint32_t withCsr(uint32_t csr, F f) {
  const uint32_t own = readCsr();
  writeCsr(csr);
  f();
  const uint32_t after = readCsr();
  writeCsr(own);
  return after;
}

// The bodies under test, one level at a time, called by the names of the slots.
const blendf::BlendFloatTable* g_bodies = nullptr;
void DarkenTowardSourceFloat(const FloatCompositeRecord* r) { g_bodies->DarkenTowardSourceFloat(r); }
void LightenTowardSourceFloat(const FloatCompositeRecord* r) { g_bodies->LightenTowardSourceFloat(r); }
void AddSourceFloat(const FloatCompositeRecord* r) { g_bodies->AddSourceFloat(r); }
void OverlaySourceFloat(const FloatCompositeRecord* r) { g_bodies->OverlaySourceFloat(r); }
void MinSourceFloat(const float* s, float* d, int32_t columns, int32_t rows, int32_t ss, int32_t ds) {
  g_bodies->MinSourceFloat(s, d, columns, rows, ss, ds);
}

std::vector<Level> floatLevels() {
  std::vector<Level> levels = {Level::sse2};
  if (flagsReach(tests::thisProcessor(), Level::avx2)) levels.push_back(Level::avx2);
  return levels;
}

// Live tables of recorders for the test's duration, and three 4 x 8 planes.
class BlendFloat : public ::testing::TestWithParam<Level> {
 protected:
  void SetUp() override {
    g_bodies = GetParam() == Level::avx2 ? &blendf::g_blendFloatAvx2 : &blendf::g_blendFloatSse2;
    savedBlnd_ = g_liveTables[kBlnd];
    savedMemo_ = g_liveTables[kMemo];
    saved275_ = tarnell_saved_tables[kBlnd][275];
    blnd_[289] = reinterpret_cast<HostRoutine>(&recordMin);
    blnd_[290] = reinterpret_cast<HostRoutine>(&recordMax);
    memo_[110] = reinterpret_cast<HostRoutine>(&recordFill);
    g_liveTables[kBlnd] = blnd_.data();
    g_liveTables[kMemo] = memo_.data();
    tarnell_saved_tables[kBlnd][275] = reinterpret_cast<HostRoutine>(&recordHost275);
    g_seen.clear();
    for (std::size_t i = 0; i < 32; ++i) {
      source[i] = 0.25f;
      destination[i] = 0.75f;
      mask[i] = 0.5f;
    }
  }
  void TearDown() override {
    g_liveTables[kBlnd] = savedBlnd_;
    g_liveTables[kMemo] = savedMemo_;
    tarnell_saved_tables[kBlnd][275] = saved275_;
  }

  // Case 4 (source, no mask, full opacity), packed: 7 of 8 columns, 3 rows.
  FloatCompositeRecord packedRecord() {
    FloatCompositeRecord r{};
    r.kind = 3;
    r.columns = 7;
    r.rows = 3;
    r.source = source;
    r.sourceRowStride = 32;
    r.sourceSampleStep = 4;
    r.destination = destination;
    r.destinationRowStride = 32;
    r.destinationSampleStep = 4;
    r.maskRowStride = -8;  // no mask: its layout does not matter
    r.maskSampleStep = 12;
    r.opacity = 255;
    return r;
  }
  bool destinationUnchanged() const {
    for (float v : destination)
      if (v != 0.75f) return false;
    return true;
  }

  float source[32], destination[32], mask[32];

 private:
  std::vector<HostRoutine> blnd_ = std::vector<HostRoutine>(kSuites[kBlnd].slotCount);
  std::vector<HostRoutine> memo_ = std::vector<HostRoutine>(kSuites[kMemo].slotCount);
  HostRoutine* savedBlnd_ = nullptr;
  HostRoutine* savedMemo_ = nullptr;
  HostRoutine saved275_ = nullptr;
};

TEST_P(BlendFloat, CaseFourOfDarkenAndLightenGoesToTheLiveMinimumAndMaximum) {
  FloatCompositeRecord r = packedRecord();
  r.sourceRowStride = 0;  // every row reads the same source row: still packed
  DarkenTowardSourceFloat(&r);
  LightenTowardSourceFloat(&r);
  EXPECT_EQ(g_seen, (std::vector<Seen>{{289, source, destination, 7, 3, 0, 32, 0},
                                       {290, source, destination, 7, 3, 0, 32, 0}}));
  EXPECT_TRUE(destinationUnchanged());  // the recorders wrote nothing
}

TEST_P(BlendFloat, EveryOtherCaseRunsTheModulesOwnLoops) {
  auto runs = [&](void (*routine)(const FloatCompositeRecord*), const FloatCompositeRecord& r) {
    g_seen.clear();
    for (float& v : destination) v = 0.75f;
    routine(&r);
    return g_seen.empty() && !destinationUnchanged();
  };
  for (auto* routine : {&DarkenTowardSourceFloat, &LightenTowardSourceFloat, &AddSourceFloat, &OverlaySourceFloat}) {
    if (routine == &LightenTowardSourceFloat) {
      for (float& v : source) v = 1.0f;  // a source above the destination
    }
    FloatCompositeRecord r = packedRecord();
    r.opacity = 254;  // case 5
    EXPECT_TRUE(runs(routine, r));
    r = packedRecord();
    r.mask = mask;  // case 6
    r.maskRowStride = 32;
    r.maskSampleStep = 4;
    EXPECT_TRUE(runs(routine, r));
    r = packedRecord();
    r.sourceRowStride = -32;  // case 4, not packed: the general loop
    r.source = source + 16;
    EXPECT_TRUE(runs(routine, r));
    r = packedRecord();
    r.destinationSampleStep = 8;
    r.columns = 4;
    EXPECT_TRUE(runs(routine, r));
    if (routine == &AddSourceFloat || routine == &OverlaySourceFloat) {
      EXPECT_TRUE(runs(routine, packedRecord()));  // case 4 of its own
    }
    for (float& v : source) v = 0.25f;
  }
}

TEST_P(BlendFloat, DarkenTowardAZeroConstantFillsThroughTheLiveMemorySuite) {
  FloatCompositeRecord r = packedRecord();
  r.source = nullptr;
  r.sourceConstant = -0.0f;  // equal to 0
  r.destination = destination + 24;
  r.destinationRowStride = -32;  // any layout: the fill takes it as it is
  r.destinationSampleStep = 8;
  r.columns = 4;
  DarkenTowardSourceFloat(&r);
  EXPECT_EQ(g_seen, (std::vector<Seen>{{110, destination + 24, nullptr, 4, 3, -32, 2, 0}}));

  // Near misses take the general loop; other routines have no short cut.
  g_seen.clear();
  FloatCompositeRecord miss = r;
  miss.sourceConstant = 1e-45f;
  DarkenTowardSourceFloat(&miss);
  miss = r;
  miss.opacity = 254;
  DarkenTowardSourceFloat(&miss);
  miss = r;
  miss.mask = mask;
  DarkenTowardSourceFloat(&miss);
  LightenTowardSourceFloat(&r);
  AddSourceFloat(&r);
  EXPECT_TRUE(g_seen.empty());
  miss = r;
  miss.kind = 2;
  DarkenTowardSourceFloat(&miss);
  EXPECT_TRUE(g_seen.empty());
}

TEST_P(BlendFloat, Slot275HandsEveryRecordWithSomethingToDoToTheHost) {
  FloatCompositeRecord r = packedRecord();
  r.source = nullptr;
  r.destinationSampleStep = -12;
  blendf::FloatCompositeRecord275(&r);
  EXPECT_EQ(g_seen, (std::vector<Seen>{{275, &r, nullptr, 0, 0, 0, 0, 0}}));
  g_seen.clear();
  for (auto edit : {+[](FloatCompositeRecord& x) { x.kind = 2; }, +[](FloatCompositeRecord& x) { x.destination = nullptr; },
                    +[](FloatCompositeRecord& x) { x.columns = 0; }, +[](FloatCompositeRecord& x) { x.rows = 0; },
                    +[](FloatCompositeRecord& x) { x.opacity = 0; }}) {
    FloatCompositeRecord none = packedRecord();
    edit(none);
    blendf::FloatCompositeRecord275(&none);
  }
  EXPECT_TRUE(g_seen.empty());
}

// Rows that follow one another in every plane give the same samples as the same
// rows apart: every loop, every weight, with a source or the constant.
TEST_P(BlendFloat, RowsThatFollowOneAnotherGiveTheSameSamplesAsRowsApart) {
  constexpr int32_t kRows = 4, kColumns = 12, kApart = 16;
  std::vector<float> src(kRows * kApart), msk(kRows * kApart), together(kRows * kApart), apart(kRows * kApart);
  for (std::size_t i = 0; i < src.size(); ++i) {
    src[i] = static_cast<float>(i * 7 % 23) / 22.0f;
    msk[i] = static_cast<float>(i * 5 % 17) / 16.0f;
  }
  const auto fill = [](std::vector<float>& d, int32_t stride) {
    for (int32_t r = 0; r < kRows; ++r)
      for (int32_t c = 0; c < kColumns; ++c)
        d[static_cast<std::size_t>(r * stride + c)] = static_cast<float>(r * 13 + c) / 60.0f;
  };
  auto run = [&](void (*routine)(const FloatCompositeRecord*), bool withSource, bool withMask, uint8_t opacity) {
    for (int32_t stride : {kColumns, kApart}) {
      std::vector<float>& d = stride == kColumns ? together : apart;
      std::vector<float> s(src.size()), m(msk.size());
      for (int32_t r = 0; r < kRows; ++r)
        for (int32_t c = 0; c < kColumns; ++c) {
          s[static_cast<std::size_t>(r * stride + c)] = src[static_cast<std::size_t>(r * kApart + c)];
          m[static_cast<std::size_t>(r * stride + c)] = msk[static_cast<std::size_t>(r * kApart + c)];
        }
      fill(d, stride);
      FloatCompositeRecord r{};
      r.kind = 3;
      r.columns = kColumns;
      r.rows = kRows;
      r.source = withSource ? s.data() : nullptr;
      r.sourceConstant = 0.375f;
      r.sourceRowStride = r.destinationRowStride = r.maskRowStride = 4 * stride;
      r.sourceSampleStep = r.destinationSampleStep = r.maskSampleStep = 4;
      r.destination = d.data();
      r.mask = withMask ? m.data() : nullptr;
      r.opacity = opacity;
      routine(&r);
    }
    for (int32_t r = 0; r < kRows; ++r)
      for (int32_t c = 0; c < kColumns; ++c)
        ASSERT_EQ(together[static_cast<std::size_t>(r * kColumns + c)], apart[static_cast<std::size_t>(r * kApart + c)])
            << "row " << r << " column " << c << " source " << withSource << " mask " << withMask << " opacity "
            << int{opacity};
  };
  for (auto* routine : {&DarkenTowardSourceFloat, &LightenTowardSourceFloat, &AddSourceFloat, &OverlaySourceFloat})
    for (bool withSource : {true, false})
      for (bool withMask : {false, true})
        for (uint8_t opacity : {uint8_t{255}, uint8_t{200}}) {
          if (withSource && !withMask && opacity == 255 &&
              (routine == &DarkenTowardSourceFloat || routine == &LightenTowardSourceFloat))
            continue;  // case 4 of these goes to the live table
          run(routine, withSource, withMask, opacity);
        }
  for (int32_t stride : {kColumns, kApart}) {
    std::vector<float>& d = stride == kColumns ? together : apart;
    std::vector<float> s(src.size());
    for (int32_t r = 0; r < kRows; ++r)
      for (int32_t c = 0; c < kColumns; ++c)
        s[static_cast<std::size_t>(r * stride + c)] = src[static_cast<std::size_t>(r * kApart + c)];
    fill(d, stride);
    MinSourceFloat(s.data(), d.data(), kColumns, kRows, 4 * stride, 4 * stride);
  }
  for (int32_t r = 0; r < kRows; ++r)
    for (int32_t c = 0; c < kColumns; ++c)
      ASSERT_EQ(together[static_cast<std::size_t>(r * kColumns + c)], apart[static_cast<std::size_t>(r * kApart + c)])
          << "minimum, row " << r << " column " << c;
}

// Rounding up, flush-to-zero, and the invalid-operation flag already set.
constexpr uint32_t kCallerCsr = 0x1F80 | 0x4000 | 0x8000 | 0x01;

TEST_P(BlendFloat, GeneralLoopsAndTheMinimumGiveTheWholeControlWordBackOnEveryReturn) {
  FloatCompositeRecord early = packedRecord();
  early.source = nullptr;  // the general loop, which finds no rows
  early.rows = -2;
  FloatCompositeRecord working = packedRecord();
  working.opacity = 200;
  working.mask = mask;  // case 7: the general loop, inexact results
  working.maskRowStride = 32;
  working.maskSampleStep = 4;
  for (auto* routine : {&DarkenTowardSourceFloat, &LightenTowardSourceFloat, &AddSourceFloat, &OverlaySourceFloat}) {
    EXPECT_EQ(withCsr(kCallerCsr, [&] { routine(&early); }), kCallerCsr);
    EXPECT_EQ(withCsr(kCallerCsr & ~1u, [&] { routine(&working); }), kCallerCsr & ~1u);
  }
  EXPECT_EQ(withCsr(kCallerCsr, [&] { MinSourceFloat(source, destination, -1, 3, 32, 32); }), kCallerCsr);
  EXPECT_EQ(withCsr(kCallerCsr, [&] { MinSourceFloat(source, destination, 7, 3, 32, 32); }), kCallerCsr);
}

TEST_P(BlendFloat, OwnLoopsRoundAsTheCallerAsksAndGeneralLoopsTruncate) {
  // 1 + 0.75 ulp: up gives 1 + ulp, truncation 1. A whole row of 32, so that the
  // scalar and vector forms both run; every sample must come out the same.
  const float tiny = 0.75f * 0x1p-23f;
  FloatCompositeRecord r = packedRecord();
  r.rows = 1;
  r.columns = 32;
  auto addWith = [&](const FloatCompositeRecord& record) {
    for (std::size_t i = 0; i < 32; ++i) {
      destination[i] = 1.0f;
      source[i] = tiny;
    }
    withCsr(kCallerCsr & ~1u, [&] { AddSourceFloat(&record); });
    for (std::size_t i = 1; i < 32; ++i) EXPECT_EQ(destination[i], destination[0]) << "column " << i;
    return destination[0];
  };
  EXPECT_EQ(addWith(r), 1.0f + 0x1p-23f);  // case 4: the module's own loop
  FloatCompositeRecord general = r;
  general.destinationSampleStep = 0;
  general.columns = 1;  // (every column lands on the first sample)
  EXPECT_EQ(addWith(general), 1.0f);
  general = r;
  general.mask = mask;  // case 6 weighs by the mask: its own loop again
  general.maskRowStride = 128;
  general.maskSampleStep = 4;
  for (float& m : mask) m = 1.0f;
  EXPECT_EQ(addWith(general), 1.0f + 0x1p-23f);
  general.opacity = 254;  // case 7: the general loop, packed rows
  EXPECT_EQ(addWith(general), 1.0f);
  general = r;
  general.source = nullptr;
  general.sourceConstant = tiny;
  EXPECT_EQ(addWith(general), 1.0f);
}

std::string levelOf(const ::testing::TestParamInfo<Level>& param) { return levelName(param.param); }
INSTANTIATE_TEST_SUITE_P(Levels, BlendFloat, ::testing::ValuesIn(floatLevels()), levelOf);

}  // namespace
