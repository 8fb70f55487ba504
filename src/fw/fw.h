// The console client: fills a database from the sources that its options name, searches it, prints the results.
#pragma once

#include "base/types.h"

namespace findwright {

// Exit statuses.
inline constexpr int FW_FOUND = 0;
inline constexpr int FW_NOT_FOUND = 1;
inline constexpr int FW_ERROR = 2;

// Runs the client with UTF-8 arguments, program name first. os_init has been called.
int fw_run(u32 count, const char *const *arguments);

} // namespace findwright
