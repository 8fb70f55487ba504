// Folder sources between monitors: scans by schedule and on demand, and how the result of a scan enters the
// index.
#pragma once

#include "db/db.h"

namespace findwright {

// Setting: scans run at background priority.
inline u32 folder_update_thread_mode_background = 1;

} // namespace findwright
