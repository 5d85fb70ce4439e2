// Slot signatures and shared record types of the painting routines ('pntg').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

}  // namespace tarnell
