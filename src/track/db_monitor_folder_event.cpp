#include "base/mem.h"
#include "base/utf8.h"
#include "os/event.h"
#include "track/db_monitor_folder_internal.h"

#include <cstring>

namespace findwright {

// --- Events ------------------------------------------------------------------------------------------------

bool _db_monitor_path_is_below(const char *path, u32 length, const char *folder, u32 folder_length) {
    return length > folder_length && path[folder_length] == '\\' &&
           std::memcmp(path, folder, folder_length) == 0;
}

db_monitor_folder_event_t *_db_monitor_event_create(db_monitor_folder_t *monitor, os_watch_action_t action,
                                                    const char *path, u32 length, const char *new_path,
                                                    u32 new_length) {
    auto *event = static_cast<db_monitor_folder_event_t *>(mem_alloc(sizeof(db_monitor_folder_event_t)));
    *event = {};
    event->monitor = monitor;
    event->action = action;
    event->length = length;
    event->path = utf8_alloc_copy_length(path, length);
    if (action == OS_WATCH_RENAMED) {
        event->new_length = new_length;
        event->new_path = utf8_alloc_copy_length(new_path, new_length);
    }
    return event;
}

void _db_monitor_event_free(db_monitor_folder_event_t *event) {
    if (event->scan)
        db_folder_scan_free(event->scan);
    if (event->new_path)
        mem_free(event->new_path);
    mem_free(event->path);
    mem_free(event);
}

// --- Queues ------------------------------------------------------------------------------------------------

void _db_monitor_queue_append(db_monitor_queue_t *queue, db_monitor_folder_event_t *event) {
    event->next = nullptr;
    (queue->last ? queue->last->next : queue->first) = event;
    queue->last = event;
    queue->count++;
}

db_monitor_folder_event_t *_db_monitor_queue_take(db_monitor_queue_t *queue) {
    db_monitor_folder_event_t *event = queue->first;
    if (!event)
        return nullptr;
    queue->first = event->next;
    if (!queue->first)
        queue->last = nullptr;
    queue->count--;
    return event;
}

static void _db_monitor_queue_drop(db_monitor_queue_t *queue, const db_monitor_folder_t *monitor) {
    db_monitor_queue_t kept = {};
    while (db_monitor_folder_event_t *event = _db_monitor_queue_take(queue)) {
        if (event->monitor == monitor)
            _db_monitor_event_free(event);
        else
            _db_monitor_queue_append(&kept, event);
    }
    *queue = kept;
}

void _db_monitor_raw_append(db_monitor_folder_t *monitor, db_monitor_folder_event_t *event) {
    db_monitor_folders_t *state = monitor->state;
    event->number = ++state->number;
    event->epoch = monitor->epoch;
    _db_monitor_queue_append(&state->raw, event);
    if (!state->is_data_posted) {
        state->is_data_posted = true;
        event_post(_db_monitor_data_start_proc, state);
    }
}

void _db_monitor_drop_events(db_monitor_folder_t *monitor) {
    _db_monitor_queue_drop(&monitor->state->raw, monitor);
    _db_monitor_queue_drop(&monitor->ready, monitor);
    monitor->epoch++;
}

void _db_monitor_ask_rescan(db_monitor_folder_t *monitor) {
    monitor->needs_rescan = true;
    event_post(_db_monitor_rescan_proc, monitor->state);
}

// --- Doubts ------------------------------------------------------------------------------------------------

static constexpr u32 DOUBT_MAX = 256;

static void _db_monitor_doubt_free(db_monitor_folder_t *monitor, db_monitor_doubt_t *doubt) {
    if (doubt->until == DB_MONITOR_OPEN)
        monitor->state->open_doubts--;
    mem_free(doubt->path);
    mem_free(doubt);
}

void _db_monitor_doubt_add(db_monitor_folder_t *monitor, const char *path, u32 length) {
    u32 count = 0;
    for (const db_monitor_doubt_t *doubt = monitor->doubts; doubt; doubt = doubt->next)
        count++;
    // Too many to look at for each rename: one at the root stands for all.
    if (count >= DOUBT_MAX) {
        while (db_monitor_doubt_t *doubt = monitor->doubts) {
            monitor->doubts = doubt->next;
            _db_monitor_doubt_free(monitor, doubt);
        }
        path = monitor->path;
        length = monitor->length;
    }
    auto *doubt = static_cast<db_monitor_doubt_t *>(mem_alloc(sizeof(db_monitor_doubt_t)));
    *doubt = {monitor->doubts, DB_MONITOR_OPEN, length, utf8_alloc_copy_length(path, length)};
    monitor->doubts = doubt;
    // The monitor thread may wait for good: it is to find out when all of this time has been told.
    if (monitor->state->open_doubts++ == 0)
        os_watch_wake(monitor->state->watch);
}

void _db_monitor_doubts_close(db_monitor_folders_t *state) {
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next)
        for (db_monitor_doubt_t *doubt = monitor->doubts; doubt; doubt = doubt->next)
            if (doubt->until == DB_MONITOR_OPEN)
                doubt->until = state->number;
    state->open_doubts = 0;
}

void _db_monitor_doubts_forget(db_monitor_folder_t *monitor, u64 number) {
    for (db_monitor_doubt_t **place = &monitor->doubts; *place;) {
        db_monitor_doubt_t *doubt = *place;
        if (doubt->until <= number) {
            *place = doubt->next;
            _db_monitor_doubt_free(monitor, doubt);
        } else {
            place = &doubt->next;
        }
    }
}

bool _db_monitor_is_doubtful(const db_monitor_folder_t *monitor, const db_monitor_folder_event_t *event) {
    for (const db_monitor_doubt_t *doubt = monitor->doubts; doubt; doubt = doubt->next) {
        bool meets =
            (doubt->length == event->length && std::memcmp(doubt->path, event->path, event->length) == 0) ||
            _db_monitor_path_is_below(doubt->path, doubt->length, event->path, event->length) ||
            _db_monitor_path_is_below(event->path, event->length, doubt->path, doubt->length);
        if (meets && event->number <= doubt->until)
            return true;
    }
    return false;
}

} // namespace findwright
