// Slot signatures and shared record types of the 16-bit blend plane operations ('blnd').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

}  // namespace tarnell
