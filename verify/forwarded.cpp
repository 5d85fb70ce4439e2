#include "verify/forwarded.h"

#include <tarnell/host_interface.h>

#include "refhost/refhost.h"
#include "verify/check.h"

namespace tarnell::verify {

namespace {

// Named as docs/contracts.md names them (the host's own names where it has them).
constexpr SlotName kForwarded[] = {
    {code::blnd, 53, "BlendPlaneRoutine53"},
    {code::blnd, 66, "BlendPlaneRoutine66"},
    {code::blnd, 72, "BlendPlaneRoutine72"},
    {code::blnd, 96, "BlendPlaneRoutine96"},
    {code::blnd, 97, "BlendPlaneRoutine97"},
    {code::blnd, 191, "BlendPlaneRoutine191"},
    {code::blnd, 198, "BlendPlaneRoutine198"},
    {code::blnd, 216, "BlendPlaneRoutine216"},
    {code::blnd, 218, "BlendPlaneRoutine218"},
    {code::filt, 31, "filterSlot31"},
    {code::filt, 34, "filterSlot34"},
    {code::filt, 106, "filterSlot106"},
    {code::filt, 155, "filterSlot155"},
    {code::filt, 195, "transposeFloatTiles"},
    {code::filt, 197, "filterSlot197"},
    {code::memo, 11, "long-run routine (8-bit)"},
    {code::memo, 67, "long-run routine (16-bit)"},
    {code::pntg, 38, "PaintSingle38"},
    {code::pntg, 79, "PaintSingle79"},
    {code::rsmp, 7, "ResampleByRatio8"},
    {code::sele, 73, "propagateDecaying16"},
    {code::sele, 75, "selectionSlot75"},
    {code::path, 47, "row-range scan"},
};

}  // namespace

std::span<const SlotName> forwardedSlots() { return kForwarded; }

const SlotName* findForwarded(uint32_t suite, int slot) {
  for (const SlotName& f : kForwarded)
    if (f.suite == suite && f.slot == slot) return &f;
  return nullptr;
}

const Check* findCheck(uint32_t suite, int slot) {
  for (const Check& check : allChecks())
    if (check.suite == suite && check.slot == slot) return &check;
  return nullptr;
}

Coverage coverageOf(const refhost::ReferenceHost& host) {
  Coverage c;
  for (const SuiteSpec& desc : kSuites) {
    for (int slot : host.replacedSlots(desc.key)) {
      SlotName entry{desc.key, slot, ""};
      if (const Check* check = findCheck(desc.key, slot)) {
        entry.name = check->name;
        c.checked.push_back(entry);
      } else if (const SlotName* forwarded = findForwarded(desc.key, slot)) {
        entry = *forwarded;
        c.forwarded.push_back(entry);
      } else {
        c.uncovered.push_back(entry);
      }
      c.replaced.push_back(entry);
    }
  }
  return c;
}

}  // namespace tarnell::verify
