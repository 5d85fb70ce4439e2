// Slot signatures and shared record types of path filling ('path').
// Included by host_interface.h only, after TARNELL_SLOT is defined.
#pragma once

namespace tarnell {

}  // namespace tarnell
