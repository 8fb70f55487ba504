// The monitor thread: turns what the watch tells into raw events, and keeps the watch over each source that
// can be followed.
#include "os/debug.h"
#include "os/os.h"
#include "os/os_folder.h"
#include "track/db_monitor_folder_internal.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// Milliseconds after which a watch that tells nothing is taken to have nothing to tell.
static constexpr u32 QUIET_TIMEOUT = 100;
// A pause when a wait gave few events: what is written piece by piece is told in fewer of them.
static constexpr u32 FEW_EVENTS = 16, FEW_PAUSE = 10;

struct db_monitor_told_t {
    db_monitor_folders_t *state;
    u32 count;
};

bool _db_monitor_filter(void *param, const char *path, u32 length) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    bool is_included = db_folder_path_is_included(&state->db->exclude, path, length);
    if (!is_included && debug_verbose)
        debug_verbose_printf("exclude %s\n", path);
    return is_included;
}

// --- What cannot be followed -------------------------------------------------------------------------------

static void _db_monitor_set_retry(db_monitor_folder_t *monitor, u32 milliseconds) {
    monitor->root = OS_WATCH_NONE;
    monitor->retry_delay_ms = milliseconds ? milliseconds : 1;
    monitor->retry_ticks = os_get_tick_count();
}

static u32 _db_monitor_get_retry() {
    return monitor_retry_milliseconds > 0 ? static_cast<u32>(monitor_retry_milliseconds) : 0;
}

// The source falls back on its schedule; without one it is scanned as often as it is tried.
static void _db_monitor_set_limited(db_monitor_folder_t *monitor) {
    db_monitor_folders_t *state = monitor->state;
    _db_monitor_set_retry(monitor, std::max(db_monitor_folder_limit_retry, _db_monitor_get_retry()));
    if (!monitor->is_limit_said) {
        utf8_buf_t name;
        utf8_buf_init(&name);
        os_path_to_user(monitor->path, monitor->length, &name);
        debug_printf("no more watches, changes are not followed: %s\n", name.data);
        db_set_status(state->db, "Too many folders to follow changes in %s", name.data);
        utf8_buf_kill(&name);
    }
    if (monitor->is_limit_said && !monitor->has_schedule) {
        std::lock_guard lock(state->lock);
        _db_monitor_ask_rescan(monitor);
    }
    monitor->is_limit_said = true;
}

// --- What the watch tells ----------------------------------------------------------------------------------

static db_monitor_folder_t *_db_monitor_find_root(const db_monitor_folders_t *state, u32 root) {
    db_monitor_folder_t *monitor = state->first;
    while (monitor && monitor->root != root)
        monitor = monitor->next;
    return monitor;
}

static void _db_monitor_take_overflow(db_monitor_folder_t *monitor) {
    debug_printf("need to rescan %d %s\n", monitor->rescan_if_full, monitor->path);
    std::lock_guard lock(monitor->state->lock);
    _db_monitor_drop_events(monitor);
    _db_monitor_ask_rescan(monitor);
}

static void _db_monitor_take_change(db_monitor_folder_t *monitor, const os_watch_event_t *event) {
    if (debug_verbose)
        debug_verbose_printf("Action %08x, FileNameLength %08x, FileName %s\n", event->action, event->length,
                             event->path);
    db_monitor_folders_t *state = monitor->state;
    db_monitor_folder_event_t *raw = _db_monitor_event_create(
        monitor, event->action, event->path, event->length, event->new_path, event->new_length);
    std::lock_guard lock(state->lock);
    _db_monitor_raw_append(monitor, raw);
    if (state->raw.count + monitor->ready.count > DB_MONITOR_EVENT_MAX) {
        _db_monitor_drop_events(monitor);
        _db_monitor_ask_rescan(monitor);
    }
}

static void _db_monitor_take(void *param, const os_watch_event_t *event) {
    auto *told = static_cast<db_monitor_told_t *>(param);
    told->count++;
    db_monitor_folder_t *monitor = _db_monitor_find_root(told->state, event->root);
    if (!monitor)
        return;
    switch (event->action) {
    case OS_WATCH_OVERFLOW: _db_monitor_take_overflow(monitor); break;
    case OS_WATCH_LIMIT: _db_monitor_set_limited(monitor); break;
    case OS_WATCH_LOST:
        debug_printf("folder monitor lost %s\n", monitor->path);
        _db_monitor_set_retry(monitor, _db_monitor_get_retry());
        break;
    default: _db_monitor_take_change(monitor, event);
    }
}

// --- The thread --------------------------------------------------------------------------------------------

static void _db_monitor_follow(db_monitor_folder_t *monitor) {
    db_monitor_folders_t *state = monitor->state;
    const char *path = monitor->index->path;
    monitor->root = OS_WATCH_NONE;
    if (os_folder_is_virtual(path)) {
        _db_monitor_set_retry(monitor, OS_INFINITE / 2);
        return;
    }
    monitor->root = os_watch_add(state->watch, path, monitor->buffer_size);
    u32 error = os_get_last_error();
    if (monitor->root != OS_WATCH_NONE) {
        monitor->retry_delay_ms = 0;
        monitor->is_limit_said = false;
        std::lock_guard lock(state->lock);
        _db_monitor_ask_rescan(monitor); // nobody told what happened until now
    } else if (os_watch_error_is_limit(error)) {
        _db_monitor_set_limited(monitor);
    } else {
        debug_printf("os_create_file %s %d\n", path, error);
        _db_monitor_set_retry(monitor, _db_monitor_get_retry());
    }
}

// Tries the sources that are not followed and whose time has come. Milliseconds until the next one's.
static u32 _db_monitor_follow_all(db_monitor_folders_t *state) {
    static constexpr u32 MICROSECONDS = 1000;
    static constexpr u32 CLOCK_MAX = 1800000; // the clock wraps after an hour
    u32 wait = OS_INFINITE;
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next) {
        if (state->cancel)
            break;
        if (monitor->root != OS_WATCH_NONE)
            continue;
        u32 passed = (os_get_tick_count() - monitor->retry_ticks) / MICROSECONDS;
        if (monitor->retry_delay_ms <= passed)
            _db_monitor_follow(monitor);
        else if (passed >= CLOCK_MAX) { // in pieces that the clock can tell
            monitor->retry_delay_ms -= passed;
            monitor->retry_ticks = os_get_tick_count();
        }
        if (monitor->root == OS_WATCH_NONE) {
            passed = (os_get_tick_count() - monitor->retry_ticks) / MICROSECONDS;
            u32 left = monitor->retry_delay_ms > passed ? monitor->retry_delay_ms - passed : 1;
            wait = std::min({wait, left, CLOCK_MAX});
        }
    }
    return wait;
}

void _db_monitor_folder_thread_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    while (!state->cancel) {
        u32 timeout = _db_monitor_follow_all(state);
        bool has_doubts;
        {
            std::lock_guard lock(state->lock);
            has_doubts = state->open_doubts != 0;
        }
        state->is_waiting = true;
        if (debug_verbose)
            debug_verbose_printf("rdc wait %d\n", has_doubts);
        db_monitor_told_t told = {state, 0};
        os_watch_wait_t result = os_watch_wait(
            state->watch, has_doubts ? std::min(timeout, QUIET_TIMEOUT) : timeout, _db_monitor_take, &told);
        if (result == OS_WATCH_STOPPED)
            return;
        if (result == OS_WATCH_TIMEOUT && has_doubts) {
            std::lock_guard lock(state->lock);
            _db_monitor_doubts_close(state);
        }
        if (result == OS_WATCH_FIRED && told.count <= FEW_EVENTS)
            os_event_wait(state->stop, FEW_PAUSE);
    }
}

} // namespace findwright
