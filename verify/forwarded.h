// The slots the module fills with a plain jump to the host's own routine (its
// forwarders), and how every slot a started module replaced is accounted for:
// checked by a verification check, or forwarded. The forwarded slots are those the
// installer lists (installs.h) mark; `tarnell-host report` and `verify` print
// them, and a test holds them against what the installers write.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tarnell::refhost {
class ReferenceHost;
}

namespace tarnell::verify {

struct Check;

struct SlotName {
  uint32_t suite;
  int slot;
  const char* name;  // the slot's name (slot::name), as docs/contracts.md gives it
};

// Every forwarded slot, in suite order and by slot. A forwarded slot runs the
// host's own code with the caller's arguments, so there is nothing to compare; it
// is not accelerated either.
std::span<const SlotName> forwardedSlots();
const SlotName* findForwarded(uint32_t suite, int slot);

// The check of a slot, or null.
const Check* findCheck(uint32_t suite, int slot);

// The slots a started module replaced, in suite order and by slot, each in one
// of three lists. `uncovered` should be empty: a replaced slot without a check
// that is not a documented forwarder runs code nobody compared with the host's.
struct Coverage {
  std::vector<SlotName> replaced;
  std::vector<SlotName> checked;
  std::vector<SlotName> forwarded;
  std::vector<SlotName> uncovered;  // name: "" (nothing is known of it)
};
Coverage coverageOf(const refhost::ReferenceHost& host);

}  // namespace tarnell::verify
