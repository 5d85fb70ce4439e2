// Slot signatures and shared record types of the float composites driven by a parameter record ('blnd').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

}  // namespace tarnell
