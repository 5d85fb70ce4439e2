// Slot signatures and shared record types of the resampling routines ('rsmp').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

}  // namespace tarnell
