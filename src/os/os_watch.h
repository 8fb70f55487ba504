// Tells what changes in folders and in all that lies below them: the directory notifications of the system.
//
//     Windows: ReadDirectoryChangesW, one overlapped read per root
//     Linux:   inotify, one watch per folder of the tree; or fanotify on the whole file system of a root,
//              where the rights allow (no walk over the tree, no limit of watches)
//
// Events come in the order in which the system tells of them, with full inside paths. They say that something
// happened at a path, not what is there now: who gets one looks for himself.
//
// A folder that is new in a tree is told as one added, once it is watched like the rest of its tree. What it
// holds by then may or may not be told by events of its own, so the receiver scans an added folder, and may
// meet an item twice. A folder can be told as removed and added where only a scan shows what happened in it.
// So who adds a root and scans it behind that, and whatever is told as added, misses nothing.
//
// What left a tree and came back at another place of the same tree is renamed; on Windows only within one
// folder, else it is removed and added. What came from another place or went there is added or removed, and
// so is what a filter leaves out at the one end.
//
// Links are items and never entered; what lies in another file system than the root is not told, and neither
// is that a folder above the root was renamed.
//
// Owner: the creator destroys it. One thread at a time adds, removes and waits; os_watch_stop and
// os_watch_wake are for any thread, while it lives.
#pragma once

#include "base/types.h"

namespace findwright {

struct os_watch_t;

enum os_watch_action_t : u32 {
    OS_WATCH_OVERFLOW = 0, // events of this root were lost: only a scan that begins now tells
    OS_WATCH_ADDED = 1,
    OS_WATCH_REMOVED = 2,
    OS_WATCH_MODIFIED = 3, // size, dates, attributes
    OS_WATCH_RENAMED = 5,  // `path` became `new_path`, both below roots of the same number
    OS_WATCH_LOST = 6,     // the root is gone, or cannot be followed any more; its handle has ended
    OS_WATCH_LIMIT = 7,    // the system has no more watches to give; the root's handle has ended
};

struct os_watch_event_t {
    os_watch_action_t action;
    u32 root;         // its handle
    const char *path; // full, inside form, terminated; empty where the root as a whole is meant
    u32 length;
    const char *new_path; // of a rename
    u32 new_length;
};

// Not to be called back into the watch.
using os_watch_proc_t = void(void *param, const os_watch_event_t *event);

// Which folders below a root are watched: false leaves one out, and what is below it. That one comes or goes
// may be told all the same, since it changes the folder that holds it. The path is full. On the thread that
// adds or waits.
using os_watch_filter_t = bool(void *param, const char *path, u32 length);

inline constexpr u32 OS_WATCH_NONE = 0xFFFFFFFF;

os_watch_t *os_watch_create(os_watch_filter_t *filter, void *param);
void os_watch_destroy(os_watch_t *watch);

// Watches a folder, through a link at the end of its path, and all below it from now on. Its handle, or
// OS_WATCH_NONE with os_get_last_error. `buffer_size`: bytes for events that wait, where the system asks for
// that (Windows); 0 is 65,536. On Linux this takes a walk over the folders; os_watch_stop ends that early.
u32 os_watch_add(os_watch_t *watch, const char *path, u32 buffer_size);
// Whether the error number of os_watch_add says that the system has no more watches to give.
bool os_watch_error_is_limit(u32 error);
// The handle may be given to another root afterwards.
void os_watch_remove(os_watch_t *watch, u32 root);

enum os_watch_wait_t : u32 {
    OS_WATCH_FIRED, // proc was called for what came
    OS_WATCH_TIMEOUT,
    OS_WATCH_STOPPED,
    OS_WATCH_WOKEN,
};
// Waits up to `timeout` milliseconds, OS_INFINITE for no limit, and calls proc(param, &event) for each event
// that came. Once stopped, a watch stays so.
os_watch_wait_t os_watch_wait(os_watch_t *watch, u32 timeout, os_watch_proc_t *proc, void *param);
void os_watch_stop(os_watch_t *watch);
// Ends the present wait, or else the next one, before its time. Any thread.
void os_watch_wake(os_watch_t *watch);

// Watches that the system has given, for a root; 0 where it needs none per folder.
u32 os_watch_get_watch_count(const os_watch_t *watch, u32 root);
// Takes no more than so many of them for all roots, 0 for as many as there are. For tests.
void os_watch_set_limit(os_watch_t *watch, u32 count);

} // namespace findwright
