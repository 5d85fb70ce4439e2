// Slot signatures and shared record types of the filters ('filt').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

}  // namespace tarnell
