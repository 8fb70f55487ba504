// Folder sources that are kept current by the system's notifications.
#pragma once

#include "db/db.h"

namespace findwright {

// Setting: time before a source that could not be followed is tried again, in milliseconds.
inline i32 monitor_retry_milliseconds = 30000;

} // namespace findwright
