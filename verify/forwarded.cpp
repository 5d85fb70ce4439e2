#include "verify/forwarded.h"

#include <tarnell/host_interface.h>

#include <algorithm>

#include "refhost/refhost.h"
#include "verify/check.h"
#include "verify/installs.h"

namespace tarnell::verify {

std::span<const SlotName> forwardedSlots() {
  static const std::vector<SlotName> all = [] {
    const FeatureSet every{true, true, true, true, true, true};
    std::vector<SlotName> out;
    for (const InstallerWrites& installer : installerWrites())
      for (const SlotRef& s : writesOf(installer, every))
        if (s.forwarded && std::none_of(out.begin(), out.end(), [&](const SlotName& f) {
              return f.suite == s.suite && f.slot == s.slot;
            }))
          out.push_back({s.suite, s.slot, s.name});
    std::sort(out.begin(), out.end(), [](const SlotName& a, const SlotName& b) {
      const int sa = suiteIndexOf(a.suite), sb = suiteIndexOf(b.suite);
      return sa != sb ? sa < sb : a.slot < b.slot;
    });
    return out;
  }();
  return all;
}

const SlotName* findForwarded(uint32_t suite, int slot) {
  for (const SlotName& f : forwardedSlots())
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
