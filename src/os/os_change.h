// Tells one waiting thread that something changed in any of a few folders: names of files in them, or dates
// of last writes, not what lies in their subfolders. It may fire without a change that matters, and once for
// many changes; what changed is for the waiting thread to look up.
//
// Owner: the creator destroys it. One thread at a time adds and waits; os_change_set_stop is for any thread,
// while the set lives. A change between two waits is told by the second.
#pragma once

#include "base/types.h"

namespace findwright {

struct os_change_set_t;

enum os_change_wait_t : u32 {
    OS_CHANGE_FIRED,
    OS_CHANGE_TIMEOUT,
    OS_CHANGE_STOPPED,
};

inline constexpr u32 OS_CHANGE_NONE = 0xFFFFFFFF;
// As many as a thread of Windows can wait for, beside the stop.
inline constexpr u32 OS_CHANGE_LIMIT = 63;

os_change_set_t *os_change_set_create();
void os_change_set_destroy(os_change_set_t *set);

// Watches a folder, through a link at the end of its path. Its handle, counted from 0, or OS_CHANGE_NONE when
// the system refuses: no such folder, no more watches, more than OS_CHANGE_LIMIT folders.
u32 os_change_set_add(os_change_set_t *set, const char *folder);

// Waits up to `timeout` milliseconds, OS_INFINITE for no limit. Once stopped, a set stays so.
os_change_wait_t os_change_set_wait(os_change_set_t *set, u32 timeout);
void os_change_set_stop(os_change_set_t *set);

// Whether that folder was deleted, moved away where the system tells that, or unmounted: it is watched no
// more. The wait has fired when it became so. The handle is not used again.
bool os_change_set_is_lost(const os_change_set_t *set, u32 handle);

} // namespace findwright
