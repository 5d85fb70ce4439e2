// The selection routines: the installer's order and forms, the worked cases of
// the spread, the propagation and the classification on the host's routines and
// every body of the module's this processor runs alike, and the spread's baseline
// form, which this processor never installs, against the host.
#include <gtest/gtest.h>

#include <vector>

#include "host/install.h"
#include "host/module_state.h"
#include "refhost/refhost.h"
#include "selection/selection.h"
#include "tests/install_recorder.h"
#include "tests/tiers.h"
#include "verify/runner.h"

using namespace tarnell;

namespace {

installs::Installed install(bool sse2) {
  CpuFeatureFlags f{};
  f.mmx = f.sse = f.sseSecond = 1;
  f.sse2 = sse2;
  return installs::recordInstall<code::sele>(&installSelection, f);
}

template <int Slot>
HostRoutine erase(SlotFn<code::sele, Slot> routine) {
  return reinterpret_cast<HostRoutine>(routine);
}

TEST(SelectionInstall, WithSse2FiveSlotsInOrderWithTheVectorSpread) {
  const installs::Installed w = install(true);
  CpuFeatureFlags f{};
  f.sse2 = 1;
  EXPECT_EQ(w.order, installs::listedOrder(code::sele, f));
  EXPECT_EQ(w.routines[0], erase<35>(&selection::propagateDecaying));
  EXPECT_EQ(w.routines[2], erase<33>(&selection::selectionSlot33));
  EXPECT_EQ(w.routines[4], erase<26>(&selection::spreadMarkVertical));
}

TEST(SelectionInstall, WithAvx2TheSameSlotsWithTheWiderBodies) {
  CpuFeatureFlags f{};
  f.mmx = f.sse = f.sseSecond = f.sse2 = f.avx = f.avx2 = 1;
  const installs::Installed w = installs::recordInstall<code::sele>(&installSelection, f);
  const installs::Installed narrow = install(true);
  EXPECT_EQ(w.order, narrow.order);
  EXPECT_EQ(w.routines[0], erase<35>(selection::g_propagateAvx2.propagateDecaying));
  EXPECT_EQ(w.routines[1], narrow.routines[1]);
  EXPECT_EQ(w.routines[2], erase<33>(selection::g_classifyAvx2.selectionSlot33));
  EXPECT_EQ(w.routines[3], narrow.routines[3]);
  EXPECT_EQ(w.routines[4], erase<26>(selection::g_spreadMarkAvx2.spreadMarkVertical));
  for (std::size_t i : {0u, 2u, 4u}) EXPECT_EQ(w.writes[i].level, Level::avx2) << w.order[i];
}

TEST(SelectionInstall, WithoutSse2OnlyTheBaselineSpread) {
  const installs::Installed w = install(false);
  EXPECT_EQ(w.order, installs::listedOrder(code::sele, CpuFeatureFlags{}));
  EXPECT_EQ(w.routines[0], erase<26>(&selection::spreadMarkVerticalScalar));
}

// 73 and 75 run the host's routine with the arguments as given.
int64_t g_seen[6];
int64_t recordSix(int64_t a, int64_t b, int64_t c, int64_t d, int64_t e, int64_t f) {
  const int64_t args[] = {a, b, c, d, e, f};
  std::copy(std::begin(args), std::end(args), g_seen);
  return a ^ f;
}
TEST(SelectionInstall, SlotsSeventyThreeAndSeventyFiveForwardToTheHost) {
  const installs::Installed w = install(true);
  for (std::size_t i : {1u, 3u}) {
    const int slot = w.order[i];
    HostRoutine saved = tarnell_saved_tables[kSele][slot];
    tarnell_saved_tables[kSele][slot] = reinterpret_cast<HostRoutine>(&recordSix);
    const int64_t r = reinterpret_cast<decltype(&recordSix)>(w.routines[i])(1, -2, 3, -4, 5, 1LL << 40);
    tarnell_saved_tables[kSele][slot] = saved;
    EXPECT_EQ(r, 1 ^ (1LL << 40)) << slot;
    EXPECT_EQ(g_seen[1], -2) << slot;
    EXPECT_EQ(g_seen[5], 1LL << 40) << slot;
  }
}

// The host's routine and every body of the module's, for the worked cases below.
struct Both {
  refhost::ReferenceHost host;
  template <auto Id>
  std::vector<SlotFnOf<Id>> routines() {
    std::vector<SlotFnOf<Id>> out = {
        reinterpret_cast<SlotFnOf<Id>>(host.original(code::sele, decltype(Id)::number))};
    for (const auto& body : tests::bodiesOf(Id)) out.push_back(body.fn);
    EXPECT_GE(out.size(), 2u);
    return out;
  }
};

// One lane, and the same lane repeated across 20 and 40 adjacent lanes (the
// vector paths).
void expectPropagation(std::vector<uint8_t> strength, const std::vector<uint8_t>& wantStrength,
                       const std::vector<uint8_t>& wantValue) {
  Both both;
  const std::size_t length = strength.size();
  for (auto routine : both.routines<slot::propagateDecaying>()) {
    for (std::size_t lanes : {1u, 20u, 40u}) {
      std::vector<uint8_t> s(length * lanes), v(s.size());
      for (std::size_t k = 0; k < length; ++k)
        for (std::size_t i = 0; i < lanes; ++i) {
          s[k * lanes + i] = strength[k];
          v[k * lanes + i] = static_cast<uint8_t>(10 + k);  // each position's own value
        }
      const auto n = static_cast<int32_t>(lanes);
      routine(s.data(), v.data(), n, static_cast<int32_t>(length), 1, n);
      for (std::size_t k = 0; k < length; ++k)
        for (std::size_t i = 0; i < lanes; ++i) {
          EXPECT_EQ(s[k * lanes + i], wantStrength[k]) << "position " << k << " lane " << i << " of " << lanes;
          EXPECT_EQ(v[k * lanes + i], wantValue[k]) << "position " << k << " lane " << i << " of " << lanes;
        }
    }
  }
}

TEST(SelectionPropagate, DecaysByOneAndCarriesOnAtOne) {
  expectPropagation({5, 0, 0, 0, 0, 0, 0}, {5, 4, 3, 2, 1, 1, 1}, {10, 10, 10, 10, 10, 10, 10});
}

TEST(SelectionPropagate, AStrongerPositionStartsANewCarry) {
  expectPropagation({3, 7, 0}, {3, 7, 6}, {10, 11, 11});
}

TEST(SelectionPropagate, AnEmptyStartTakesTheFirstNonEmptyPosition) {
  expectPropagation({0, 0, 4, 0, 0}, {0, 0, 4, 3, 2}, {10, 11, 12, 12, 12});
}

TEST(SelectionPropagate, EqualStrengthCarriesWithoutDecayAndOneOverrunsEverything) {
  // Meeting an equal strength costs no decay; a carried 1 overwrites weaker and
  // equal positions alike (1 meeting 1 is not "equal": it overwrites).
  expectPropagation({3, 3, 0, 0, 1, 0}, {3, 3, 2, 1, 1, 1}, {10, 11, 11, 11, 11, 11});
}

TEST(SelectionSpread, OneRowChangesNothingTwoRowsMarkEachOther) {
  Both both;
  for (auto routine : both.routines<slot::spreadMarkVertical>()) {
    std::vector<uint8_t> one = {0, 200, 127, 128};
    routine(one.data(), 1, 4, 4);
    EXPECT_EQ(one, (std::vector<uint8_t>{0, 200, 127, 128}));
    // Columns: marked over unmarked, unmarked over marked, both, neither.
    std::vector<uint8_t> two = {130, 5, 129, 7, 3, 140, 255, 9};
    routine(two.data(), 2, 4, 4);
    EXPECT_EQ(two, (std::vector<uint8_t>{130, 133, 129, 7, 131, 140, 255, 9}));
  }
}

// The baseline spread, on every shape the installed form is checked on.
TEST(SelectionSpread, BaselineFormMatchesTheHost) {
  const verify::Check* check = nullptr;
  for (const verify::Check& c : verify::allChecks())
    if (c.suite == code::sele && c.slot == 26) check = &c;
  ASSERT_NE(check, nullptr);
  refhost::ReferenceHost host;
  verify::VerifyOptions options;
  const verify::CheckResult r = verify::runCheckOn(*check, host, host.original(code::sele, 26),
                                                   erase<26>(&selection::spreadMarkVerticalScalar), options);
  EXPECT_EQ(r.outcome, verify::Outcome::Passed) << r.firstFailure;
}

TEST(SelectionClassify, EveryClassAndNarrowRegionsGoToTheHost) {
  Both both;
  const std::vector<std::pair<std::vector<uint8_t>, int32_t>> cases = {
      {std::vector<uint8_t>(32, 0), 0},   {std::vector<uint8_t>(32, 255), 1}, {std::vector<uint8_t>(32, 128), 3},
      {std::vector<uint8_t>(32, 127), 4},
  };
  for (auto routine : both.routines<slot::selectionSlot33>()) {
    for (const auto& [bytes, want] : cases) EXPECT_EQ(routine(bytes.data(), 2, 16, 16), want);
    std::vector<uint8_t> mixed(32, 255);
    mixed[31] = 0;  // the last byte of the last row
    EXPECT_EQ(routine(mixed.data(), 2, 16, 16), 2);
    EXPECT_EQ(routine(mixed.data(), 0, 16, 16), 0);  // no rows: nothing is set
  }
  auto hostCalls = [&] { return both.host.calls().size(); };
  std::vector<uint8_t> region(64, 200);
  for (const auto& body : tests::bodiesOf(slot::selectionSlot33)) {
    both.host.clearLogs();
    EXPECT_EQ(body.fn(region.data(), 2, 16, 16), 3);
    EXPECT_EQ(hostCalls(), 0u);
    // Narrower than a vector group: the host's own routine answers.
    const HostRoutine saved = tarnell_saved_tables[kSele][33];
    tarnell_saved_tables[kSele][33] = both.host.original(code::sele, 33);
    EXPECT_EQ(body.fn(region.data(), 2, 15, 16), 3);
    tarnell_saved_tables[kSele][33] = saved;
    ASSERT_EQ(hostCalls(), 1u) << levelName(body.level);
    EXPECT_EQ(both.host.calls()[0].args[2], 15u);
  }
}

}  // namespace
