// What the files of the folder monitors share. See db_monitor_folder.h for the picture.
//
//     db_monitor_folder.cpp         start, stop, state
//     db_monitor_folder_event.cpp   events and their queues
//     db_monitor_folder_thread.cpp  the monitor thread
//     db_monitor_folder_data.cpp    the get-data thread
//     db_monitor_folder_apply.cpp   the main thread
#pragma once

#include "db/db_file_info.h"
#include "os/os_watch.h"
#include "track/db_folder_update.h"
#include "track/db_monitor_folder.h"

#include <atomic>

namespace findwright {

struct db_monitor_folder_t;

// What is known of one path.
struct db_monitor_data_t {
    bool is_known; // it was there
    bool is_folder;
    bool is_entered;   // a folder that is listed
    bool is_covered;   // a folder that came in with a scan of one above it
    bool is_hidden;    // left out by its attributes
    db_file_info_t fd; // where it is known
};

struct db_monitor_folder_event_t {
    db_monitor_folder_event_t *next;
    db_monitor_folder_t *monitor;
    os_watch_action_t action; // OS_WATCH_ADDED, _REMOVED, _MODIFIED, _RENAMED
    bool is_look;             // nobody told: the index may have it, but not all that is below it
    u64 number;               // in the order in which they were told
    u32 epoch;                // of the monitor then
    u32 length, new_length;
    char *path, *new_path; // new_path: of a rename, else 0
    // From the get-data thread on: of the path, of a rename of the new one; of the folders that hold them.
    db_monitor_data_t data, parent, new_parent;
    db_folder_scan_t *scan; // of a folder that was added
};

struct db_monitor_queue_t {
    db_monitor_folder_event_t *first, *last;
    u32 count;
};

// A scan at a path, or above or below it, may have met renames that are told up to that event.
struct db_monitor_doubt_t {
    db_monitor_doubt_t *next;
    u64 until; // DB_MONITOR_OPEN: the system may have more of that time to tell
    u32 length;
    char *path;
};
inline constexpr u64 DB_MONITOR_OPEN = ~static_cast<u64>(0);

// A path that was told of and not found, for the renames of folders above it.
struct db_monitor_missed_t {
    db_monitor_missed_t *next;
    u32 ticks; // when it was not found
    u32 length;
    char *path;
};

// A folder that got another name, while another folder may come to the old one: what was looked up below the
// old name in between is that other folder's.
struct db_monitor_renamed_t {
    db_monitor_renamed_t *next;
    u32 ticks;
    char *from, *to;
};

// A scan of the get-data thread: what was told as added below it until then needs none of its own.
struct db_monitor_cover_t {
    u64 number; // of the last event that was told before it; 0 is none
    u32 length;
    char *path;
};
inline constexpr u32 DB_MONITOR_COVER_COUNT = 64;

struct db_monitor_folder_t {
    db_monitor_folder_t *next;
    db_monitor_folders_t *state;
    db_index_folder_t *index;
    char *path; // without a separator at its end
    u32 length;
    // Of the index, which the main thread changes with the settings.
    u32 buffer_size, rescan_if_full;
    bool has_schedule;

    // Monitor thread.
    u32 root; // of the watch; OS_WATCH_NONE: not followed
    u32 retry_delay_ms, retry_ticks;
    bool is_limit_said;

    // Under the lock.
    db_monitor_queue_t ready;
    db_monitor_doubt_t *doubts;
    bool needs_rescan;
    u32 epoch; // changes when events are dropped: one that is being looked up then is one of them

    // Get-data thread.
    db_monitor_missed_t *missed;
    u32 missed_count;
    db_monitor_renamed_t *renamed;
    u32 renamed_count;
    db_monitor_cover_t covers[DB_MONITOR_COVER_COUNT]; // a ring
    u32 cover_next;

    bool is_own_scan; // main thread: one of its events' scans is being applied
};

// The link is how it learns of the end of workers.
struct db_monitor_folders_t : db_query_link_t {
    db_t *db;
    db_monitor_folder_t *first;
    os_watch_t *watch;
    os_thread_t *thread, *data_thread;
    std::atomic<u32> cancel;
    os_event_t *stop;             // set with it
    std::atomic<bool> is_waiting; // the monitor thread follows what can be followed, and waits

    std::mutex lock;
    db_monitor_queue_t raw;
    u64 number;           // of the last event that was told
    u32 open_doubts;      // doubts that are still open
    u32 event_count;      // in all queues
    bool is_data_posted;  // the start of the get-data thread
    bool is_apply_posted; // the application

    // Main thread.
    bool is_throttled;
    u32 data_ticks; // when the last look-up ended
    bool was_looked_up;
};

// More events than this are no longer cheaper than a scan.
inline constexpr u32 DB_MONITOR_EVENT_MAX = 500000;

// --- Events (db_monitor_folder_event.cpp) ------------------------------------------------------------------

bool _db_monitor_path_is_below(const char *path, u32 length, const char *folder, u32 folder_length);
inline bool _db_monitor_path_is_equal(const db_monitor_folder_event_t *a,
                                      const db_monitor_folder_event_t *b) {
    return a->length == b->length && std::memcmp(a->path, b->path, a->length) == 0;
}
db_monitor_folder_event_t *_db_monitor_event_create(db_monitor_folder_t *monitor, os_watch_action_t action,
                                                    const char *path, u32 length, const char *new_path,
                                                    u32 new_length);
void _db_monitor_event_free(db_monitor_folder_event_t *event);
void _db_monitor_queue_append(db_monitor_queue_t *queue, db_monitor_folder_event_t *event);
db_monitor_folder_event_t *_db_monitor_queue_take(db_monitor_queue_t *queue);

// With the lock.
void _db_monitor_raw_append(db_monitor_folder_t *monitor, db_monitor_folder_event_t *event);
// All events of a monitor that are not in work go, since a scan is to come.
void _db_monitor_drop_events(db_monitor_folder_t *monitor);
// Has the source scanned from the main thread. `because_full`: for the log.
void _db_monitor_ask_rescan(db_monitor_folder_t *monitor);
// A scan at that path has ended.
void _db_monitor_doubt_add(db_monitor_folder_t *monitor, const char *path, u32 length);
// The system has nothing more to tell of the time until then.
void _db_monitor_doubts_close(db_monitor_folders_t *state);
// Those that no event in the queues can meet any more go.
void _db_monitor_doubts_forget(db_monitor_folder_t *monitor, u64 number);
// Whether a rename of that folder may have met a scan.
bool _db_monitor_is_doubtful(const db_monitor_folder_t *monitor, const db_monitor_folder_event_t *event);

// --- Threads -----------------------------------------------------------------------------------------------

void _db_monitor_folder_thread_proc(void *param);
bool _db_monitor_filter(void *param, const char *path, u32 length);
void _db_monitor_folder_get_fd_thread_proc(void *param);
void _db_monitor_missed_clear(db_monitor_folder_t *monitor);
void _db_monitor_renamed_clear(db_monitor_folder_t *monitor);
void _db_monitor_covers_clear(db_monitor_folder_t *monitor);

// Posted, with the state.
void _db_monitor_data_start_proc(void *param);
void _db_monitor_data_ended_proc(void *param);
void _db_monitor_rescan_proc(void *param);
void _db_monitor_apply_proc(void *param);
void _db_monitor_throttle_proc(void *param);

} // namespace findwright
