#include "blend/blend16.h"
#include "blend/blend8.h"
#include "blend/blendf.h"
#include "host/install.h"
#include "host/module_state.h"

// Forwarders to the host's own blending routines. The first nine stand in the
// slots whose routines the module does not implement (their contracts are the
// host's alone); they are installed so that the slot order of the group is the
// host's, and reach the host's routine with the arguments untouched.
TARNELL_FORWARDER(blendForward53, kBlnd, 53);
TARNELL_FORWARDER(blendForward66, kBlnd, 66);
TARNELL_FORWARDER(blendForward72, kBlnd, 72);
TARNELL_FORWARDER(blendForward96, kBlnd, 96);
TARNELL_FORWARDER(blendForward97, kBlnd, 97);
TARNELL_FORWARDER(blendForward191, kBlnd, 191);
TARNELL_FORWARDER(blendForward198, kBlnd, 198);
TARNELL_FORWARDER(blendForward216, kBlnd, 216);
TARNELL_FORWARDER(blendForward218, kBlnd, 218);
// The fallbacks a module routine may hand a case back to. None is called today.
TARNELL_FORWARDER(blendForward2, kBlnd, 2);
TARNELL_FORWARDER(blendForward3, kBlnd, 3);
TARNELL_FORWARDER(blendForward7, kBlnd, 7);
TARNELL_FORWARDER(blendForward8, kBlnd, 8);
TARNELL_FORWARDER(blendForward10, kBlnd, 10);
TARNELL_FORWARDER(blendForward11, kBlnd, 11);
TARNELL_FORWARDER(blendForward22, kBlnd, 22);
TARNELL_FORWARDER(blendForward23, kBlnd, 23);
TARNELL_FORWARDER(blendForward24, kBlnd, 24);
TARNELL_FORWARDER(blendForward25, kBlnd, 25);
TARNELL_FORWARDER(blendForward27, kBlnd, 27);
TARNELL_FORWARDER(blendForward28, kBlnd, 28);
TARNELL_FORWARDER(blendForward29, kBlnd, 29);
TARNELL_FORWARDER(blendForward30, kBlnd, 30);
TARNELL_FORWARDER(blendForward31, kBlnd, 31);
TARNELL_FORWARDER(blendForward40, kBlnd, 40);
TARNELL_FORWARDER(blendForward41, kBlnd, 41);
TARNELL_FORWARDER(blendForward54, kBlnd, 54);
TARNELL_FORWARDER(blendForward56, kBlnd, 56);
TARNELL_FORWARDER(blendForward57, kBlnd, 57);
TARNELL_FORWARDER(blendForward60, kBlnd, 60);
TARNELL_FORWARDER(blendForward73, kBlnd, 73);

namespace tarnell {

namespace {
HostRoutine routine(void (*forwarder)()) { return reinterpret_cast<HostRoutine>(forwarder); }
}  // namespace

namespace blend8 {

ForwarderList blendForwarders() {
  static const Forwarder list[] = {
      {2, routine(&blendForward2)},   {3, routine(&blendForward3)},   {7, routine(&blendForward7)},
      {8, routine(&blendForward8)},   {10, routine(&blendForward10)}, {11, routine(&blendForward11)},
      {22, routine(&blendForward22)}, {23, routine(&blendForward23)}, {24, routine(&blendForward24)},
      {25, routine(&blendForward25)}, {27, routine(&blendForward27)}, {28, routine(&blendForward28)},
      {29, routine(&blendForward29)}, {30, routine(&blendForward30)}, {31, routine(&blendForward31)},
      {40, routine(&blendForward40)}, {41, routine(&blendForward41)}, {53, routine(&blendForward53)},
      {54, routine(&blendForward54)}, {56, routine(&blendForward56)}, {57, routine(&blendForward57)},
      {60, routine(&blendForward60)}, {72, routine(&blendForward72)}, {73, routine(&blendForward73)},
      {96, routine(&blendForward96)}, {97, routine(&blendForward97)},
  };
  return {list, static_cast<int>(sizeof(list) / sizeof(list[0]))};
}

}  // namespace blend8

void installBlend(const SuiteWriter<code::blnd>& w, const CpuFeatureFlags& flags) {
  using namespace blend8;
  using namespace blend16;
  // The table-driven overlay and screen routines need nothing beyond the
  // baseline; the second SSE flag is the one that gates this suite.
  if (flags.sseSecond != 0) {
    w.put(slot::SourceBasedOverlayThroughMask8);
    w.put(slot::ConstantBasedOverlayThroughMask8);
    w.put(slot::SourceBasedOverlay8);
    w.put(slot::SourceBasedOverlayWithOpacity8);
    w.put(slot::OverlaySourceThroughMask8);
    w.put(slot::OverlayConstantThroughMask8);
    w.put(slot::OverlaySource8);
    w.put(slot::OverlaySourceWithOpacity8);
    w.put(slot::ScreenSourceWithOpacity8);
    w.put(slot::ScreenConstantThroughMask8);
    w.put(slot::ScreenSource8);
  }
  if (flags.sse2 == 0) return;
  // The SSE2 group in the group's order: 8-bit, 16-bit and float members, the
  // forwarded slots in their places.
  w.put(slot::ScaleByConstant8);
  w.put(slot::MixConstantThroughMask8);
  w.put(slot::MixSourceThroughMask8);
  w.put(slot::CopyWhereMaskSet8);
  w.put(slot::FillWhereMaskSet8);
  w.put(slot::MultiplySource8);
  w.put(slot::MaxSource8);
  w.put(slot::MinSource8);
  w.forward(slot::BlendPlaneRoutine53, &blendForward53);
  w.put(slot::SubtractCoverage8);
  w.forward(slot::BlendPlaneRoutine96, &blendForward96);
  w.put(slot::DarkenTowardSourceThroughMask8);
  w.put(slot::DarkenTowardConstantThroughMask8);
  w.put(slot::LightenTowardSourceThroughMask8);
  w.put(slot::LightenTowardConstantThroughMask8);
  w.put(slot::MultiplySourceThroughMask8);
  w.put(slot::MultiplySourceThroughMask16);
  w.forward(slot::BlendPlaneRoutine66, &blendForward66);
  w.forward(slot::BlendPlaneRoutine72, &blendForward72);
  w.put(slot::MultiplyInto8);
  w.put(slot::InverseMultiplyInto8);
  w.forward(slot::BlendPlaneRoutine97, &blendForward97);
  w.put(slot::FillWhereMaskClear8);
  w.put(slot::OrderedCombineInto8);
  w.put(slot::ScaleByConstant16);
  w.put(slot::MixSourceThroughMask16);
  w.put(slot::MultiplySource16);
  w.forward(slot::BlendPlaneRoutine191, &blendForward191);
  w.put(slot::SubtractCoverage16);
  w.forward(slot::BlendPlaneRoutine198, &blendForward198);
  w.forward(slot::BlendPlaneRoutine216, &blendForward216);
  w.forward(slot::BlendPlaneRoutine218, &blendForward218);
  w.put(slot::MultiplyInto16);
  w.put(slot::InverseMultiplyInto16);
  w.put(slot::ComplementMultiplyInto16);
  w.put(slot::FillWhereMaskClear16);
  w.put(slot::OrderedCombineInto16);
  w.put(slot::MultiplyWithOpacity8);
  w.put(slot::DarkenTowardSourceFloat);
  w.put(slot::LightenTowardSourceFloat);
  w.put(slot::OverlaySourceFloat);
  w.put(slot::FloatCompositeRecord275, &blendf::FloatCompositeRecord275);
  w.put(slot::AddSourceFloat);
  w.put(slot::MinSourceFloat);
}

int32_t InstallBlendRoutines(HostInfo* /*hostInfo*/) {
  installBlend(SuiteWriter<code::blnd>(g_liveTables[kBlnd], g_kernels), g_cpuFeatureFlags);
  return 1;
}

}  // namespace tarnell
