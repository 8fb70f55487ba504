// Keeps other processes of the program away while a file that they share is read and put in place anew.
//
// The lock is advisory: who does not ask for it is not held up. It goes with the process that holds it, and
// leaves no file behind. On POSIX it is one on the folder of the file (flock), on Windows a file beside it
// that goes when it is closed.
//
// Any thread. Not to be taken twice by one process for files of one folder: the second waits for the first.
#pragma once

#include "base/platform.h"
#include "base/types.h"

namespace findwright {

// Takes the lock of a file, whose folder must be there; waits up to `timeout` milliseconds for who has it.
// os_close gives it back. PLATFORM_FILE_NONE when it was not given, with os_get_last_error. A file system
// that knows no locks gives one that keeps nobody away.
platform_file_t os_lock_file(const char *name, u32 timeout);

} // namespace findwright
