// What the Linux sources of the directory watch share.
//
//     os_watch_posix.cpp           roots, waiting, what is told
//     os_watch_tree_posix.cpp      the folders that are watched, as a tree of nodes
//     os_watch_walk_posix.cpp      how folders get into the tree and out of it
//     os_watch_inotify_posix.cpp   inotify's events
//     os_watch_fanotify_posix.cpp  fanotify's, for whole file systems
//
// A node knows its name and its parent, not its path, so that a folder that is renamed takes along what is
// below it at no cost. A watch of the system belongs to a folder and not to a path: nodes of several roots
// that hold the same folder share one, as twins.
//
// Events tell of names as they were, and the walk sees names as they are, perhaps some events later. What
// keeps the two together: a folder's watch is set before the folder is listed; whatever changes in it then is
// behind in the queue, and the last event about a name tells whether it is there. A walk that finds that a
// path leads to another folder by now takes back what it did there and leaves the node marked as partial: the
// rename that must be in the queue has the folder walked again, under its new path.
#pragma once

#include "base/ref_map.h"
#include "base/utf8_buf.h"
#include "os/os_watch_internal.h"

#include <atomic>

namespace findwright {

// Never fanotify, for tests.
inline bool os_watch_is_per_folder;

struct os_watch_root_t;

struct os_watch_node_t {
    os_watch_node_t *parent; // 0: the root's
    os_watch_node_t *first_child;
    os_watch_node_t *next, *prev; // children of one folder, in no order
    os_watch_node_t *hash_next;   // in the table of names
    os_watch_node_t *twin;        // the next one with this watch
    os_watch_root_t *root;
    int watch;
    u32 length;
    bool is_new;     // its walk is still to come
    bool is_partial; // what is below may not be all in the tree
    char *name;      // inside form, terminated; of a root its path
};

struct os_watch_root_t {
    u32 handle;
    char *path;
    os_watch_node_t *node; // 0 where it could not be watched again
    u64 device;
    u32 count; // nodes
    u32 partial_count;
    bool has_excluded; // the filter left something out: other paths may bring it in
    bool by_fanotify;  // the one node tells of the end of the root only
    u64 file_system;   // of fanotify
    // The last rename, while the next event may turn out to be its reverse: both are one exchange.
    struct {
        os_watch_node_t *from, *to; // 0: none
        utf8_buf_t from_name, to_name;
    } last;
};

// A folder or file that left its place, until the system tells where to.
struct os_watch_from_t {
    os_watch_from_t *next;
    os_watch_node_t *parent;
    u32 cookie;
    bool is_folder;
    u32 round; // of the wait in which it was told
    u32 length;
    char name[];
};

// A change of data that was told, so that more of the same need not be.
struct os_watch_modified_t {
    size_t at;      // of the event among the bytes that were read; 0 is none, the first event is never kept
    size_t covered; // events in front of this had happened when it was told
};
inline constexpr u32 OS_WATCH_MODIFIED_COUNT = 256;

// The folders that a walk has brought into the tree: of each tree of new ones the top.
struct os_watch_found_t {
    os_watch_node_t **nodes;
    u32 count, capacity;
};

struct os_watch_t {
    os_watch_filter_t *filter;
    void *filter_param;
    int inotify;  // -1 where the user has no more of them, or before the first root
    int fanotify; // -1: none yet
    struct os_watch_fan_t *fan;
    int stop; // eventfd, of the stop and of a wake
    std::atomic<bool> is_stopped;
    u32 limit; // watches that may be taken; 0 is no limit but the system's
    u32 count;

    os_watch_root_t **roots; // by handle; 0 for one that is free
    u32 root_capacity;
    ref_map_t<os_watch_node_t *> by_watch;
    os_watch_node_t **names; // hash table of the nodes but the roots', by parent and name
    u32 name_bits;
    u32 name_count;

    char *input; // what was read of inotify and not yet taken
    size_t input_size, input_length, input_at;
    bool overflow;
    os_watch_from_t *from_first, *from_last;
    u32 round;
    os_watch_modified_t modified[OS_WATCH_MODIFIED_COUNT];
    os_watch_proc_t *proc; // while waiting
    void *proc_param;
    bool told;
};

// --- Telling (os_watch_posix.cpp) --------------------------------------------------------------------------

// `new_path`: of a rename.
void os_watch_tell(os_watch_t *watch, os_watch_action_t action, const os_watch_root_t *root,
                   const utf8_buf_t *path, const utf8_buf_t *new_path = nullptr);
// The root is watched no longer, and its owner is told why: OS_WATCH_LOST, OS_WATCH_LIMIT.
void os_watch_end_root(os_watch_t *watch, os_watch_root_t *root, os_watch_action_t why);
// A root that inotify has no watches for is handed to fanotify, if that can be; else its end.
void os_watch_limit_root(os_watch_t *watch, os_watch_root_t *root);
// Sets what watches the root needs; false with the error number, perhaps with a part of them.
bool os_watch_root_enter(os_watch_t *watch, os_watch_root_t *root);
bool os_watch_passes(const os_watch_t *watch, const utf8_buf_t *path);
void os_watch_cat_name(utf8_buf_t *path, const char *name, u32 length);

// --- Tree (os_watch_tree_posix.cpp) ------------------------------------------------------------------------

void os_watch_get_path(const os_watch_node_t *node, utf8_buf_t *out);
os_watch_node_t *os_watch_find(const os_watch_t *watch, const os_watch_node_t *parent, const char *name,
                               u32 length);
os_watch_node_t *os_watch_find_watch(const os_watch_t *watch, int number);
// A node of a watch that the system gave; `parent` 0: the root's, whose name is the path.
os_watch_node_t *os_watch_node_add(os_watch_t *watch, os_watch_root_t *root, os_watch_node_t *parent,
                                   const char *name, u32 length, int number);
// Takes one without children out, and frees it. True when no other node has its watch.
bool os_watch_node_remove(os_watch_t *watch, os_watch_node_t *node);
// Another place and name in the same root.
void os_watch_node_move(os_watch_t *watch, os_watch_node_t *node, os_watch_node_t *parent, const char *name,
                        u32 length);
void os_watch_node_set_partial(os_watch_node_t *node, bool is_partial);
bool os_watch_node_is_below(const os_watch_node_t *node, const os_watch_node_t *folder);

// --- Walk (os_watch_walk_posix.cpp) ------------------------------------------------------------------------

// All these are false when the system has no more watches; then the root has to end.

// Takes in a folder by name and all below it, and appends it to `found` unless it was there already. A folder
// that is gone or left out is not taken in.
bool os_watch_enter(os_watch_t *watch, os_watch_node_t *parent, const char *name, u32 length,
                    os_watch_found_t *found);
// Takes in what is below a folder and is not there yet.
bool os_watch_walk(os_watch_t *watch, os_watch_node_t *top, os_watch_found_t *found);
// The node of a root, whose path may be a link, and all below it.
bool os_watch_enter_root(os_watch_t *watch, os_watch_root_t *root);
// Takes out a folder and all below it.
void os_watch_drop(os_watch_t *watch, os_watch_node_t *node);
// The node of a root that fanotify follows: its watch tells of the folder's own end alone.
bool os_watch_enter_end(os_watch_t *watch, os_watch_root_t *root);

// --- inotify (os_watch_inotify_posix.cpp) ------------------------------------------------------------------

// Reads what the system has, for os_watch_take. Called during long work, too, lest the queue overflows.
void os_watch_drain(os_watch_t *watch);
// Tells of all that was read.
void os_watch_take(os_watch_t *watch);
// Tells of what left its place before this round and has come to none: it is removed.
void os_watch_flush_old(os_watch_t *watch);
// The same for what left that folder, or one below it.
void os_watch_flush_below(os_watch_t *watch, const os_watch_node_t *folder);
// Events were lost, and so may be what the tree says: everything anew.
void os_watch_restart(os_watch_t *watch);

// --- fanotify (os_watch_fanotify_posix.cpp) ----------------------------------------------------------------

// Follows the root's whole file system. False where kernel, rights or file system do not allow it.
bool os_watch_fanotify_add(os_watch_t *watch, os_watch_root_t *root);
// Whether the root is the whole of a file system, as far as the path shows it.
bool os_watch_fanotify_is_whole(const char *path);
void os_watch_fanotify_remove(os_watch_t *watch, const os_watch_root_t *root);
void os_watch_fanotify_kill(os_watch_t *watch);
// Reads and tells of all that the system has.
void os_watch_fanotify_take(os_watch_t *watch);

} // namespace findwright
