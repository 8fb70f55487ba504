#include "track/db_monitor_folder.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "track/db_monitor_folder_internal.h"
#include "track/db_schedule.h"

#include <cstring>
#include <new>

namespace findwright {

static constexpr i32 BACKGROUND_PRIORITY = -15;

// --- The link to the database ------------------------------------------------------------------------------

static void _db_monitor_nothing(db_query_link_t *) {}

static void _db_monitor_ready(db_query_link_t *link) {
    db_monitor_folder_idle(static_cast<db_monitor_folders_t *>(link)->db);
}

static const db_query_hooks_t _db_monitor_hooks = {
    .get_busy_text = nullptr,
    .cancel = nullptr,
    .cancelled = nullptr,
    .wait_ended = _db_monitor_nothing,
    .ready = _db_monitor_ready,
    .status_changed = _db_monitor_nothing,
    .rebuild_started = _db_monitor_nothing,
    .load_complete = _db_monitor_nothing,
};

// --- The get-data thread -----------------------------------------------------------------------------------

static void _db_monitor_start_data(db_monitor_folders_t *state) {
    static constexpr u32 MICROSECONDS = 1000;
    u32 passed = (os_get_tick_count() - state->data_ticks) / MICROSECONDS;
    if (state->was_looked_up && passed < db_monitor_folder_data_interval) {
        event_post_after(db_monitor_folder_data_interval - passed, _db_monitor_data_start_proc, state);
        return;
    }
    state->data_thread = os_thread_create(_db_monitor_folder_get_fd_thread_proc, state);
    if (folder_update_thread_mode_background)
        os_thread_set_priority(state->data_thread, BACKGROUND_PRIORITY);
}

void _db_monitor_data_start_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    if (!state->data_thread)
        _db_monitor_start_data(state);
}

void _db_monitor_data_ended_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    os_thread_release(state->data_thread, OS_INFINITE);
    state->data_thread = nullptr;
    state->data_ticks = os_get_tick_count();
    state->was_looked_up = true;
    bool has_more;
    {
        std::lock_guard lock(state->lock);
        has_more = state->raw.count != 0;
        state->is_data_posted = has_more;
    }
    if (has_more)
        _db_monitor_start_data(state);
}

// --- Scans -------------------------------------------------------------------------------------------------

void _db_monitor_rescan_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next) {
        bool needs_rescan;
        {
            std::lock_guard lock(state->lock);
            needs_rescan = monitor->needs_rescan;
            monitor->needs_rescan = false;
        }
        if (needs_rescan)
            db_folders_update_index_now(state->db, monitor->index);
    }
}

// --- Threads -----------------------------------------------------------------------------------------------

static void _db_monitor_start_thread(db_monitor_folders_t *state) {
    state->cancel = 0;
    state->is_waiting = false;
    os_event_reset(state->stop);
    state->watch = os_watch_create(_db_monitor_filter, state);
    os_watch_set_limit(state->watch, db_monitor_folder_watch_limit);
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next)
        monitor->root = OS_WATCH_NONE;
    state->thread = os_thread_create(_db_monitor_folder_thread_proc, state);
}

static void _db_monitor_stop_threads(db_monitor_folders_t *state) {
    state->cancel = 1;
    os_event_set(state->stop);
    os_watch_stop(state->watch);
    os_thread_release(state->thread, OS_INFINITE);
    if (state->data_thread)
        os_thread_release(state->data_thread, OS_INFINITE);
    os_watch_destroy(state->watch);
    state->thread = state->data_thread = nullptr;
    for (event_proc_t *proc : {_db_monitor_data_start_proc, _db_monitor_data_ended_proc,
                               _db_monitor_rescan_proc, _db_monitor_apply_proc, _db_monitor_throttle_proc})
        event_remove(proc, state);
    state->is_data_posted = state->is_apply_posted = state->is_throttled = false;
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next) {
        _db_monitor_drop_events(monitor);
        _db_monitor_missed_clear(monitor);
        _db_monitor_renamed_clear(monitor);
        _db_monitor_covers_clear(monitor);
        monitor->is_own_scan = monitor->needs_rescan = false;
    }
    _db_monitor_doubts_close(state);
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next)
        _db_monitor_doubts_forget(monitor, DB_MONITOR_OPEN);
}

// --- Start and stop ----------------------------------------------------------------------------------------

static void _db_monitor_add(db_monitor_folders_t *state, db_index_folder_t *index) {
    auto *monitor = static_cast<db_monitor_folder_t *>(mem_alloc(sizeof(db_monitor_folder_t)));
    *monitor = {};
    monitor->state = state;
    monitor->index = index;
    monitor->length = utf8_length(index->path);
    while (monitor->length && index->path[monitor->length - 1] == '\\')
        monitor->length--;
    monitor->buffer_size = index->buffer_size;
    monitor->rescan_if_full = index->rescan_if_full;
    monitor->has_schedule = index->update_type != DB_SCHEDULE_NEVER;
    monitor->path = utf8_alloc_copy_length(index->path, monitor->length);
    db_monitor_folder_t **place = &state->first;
    while (*place)
        place = &(*place)->next;
    *place = monitor;
}

static bool _db_monitor_is_wanted(const db_index_t *index) {
    return index->type == DB_INDEX_TYPE_FOLDER && static_cast<const db_index_folder_t *>(index)->monitor;
}

void db_monitor_folders_start(db_t *db) {
    bool has_any = false;
    for (const db_index_t *index = db->index_first; index; index = index->next)
        has_any |= _db_monitor_is_wanted(index);
    if (!has_any || db_read_only || db->folder_monitors)
        return;
    auto *state = new (mem_alloc(sizeof(db_monitor_folders_t))) db_monitor_folders_t();
    state->hooks = &_db_monitor_hooks;
    state->db = db;
    state->stop = os_event_create();
    for (db_index_t *index = db->index_first; index; index = index->next)
        if (_db_monitor_is_wanted(index))
            _db_monitor_add(state, static_cast<db_index_folder_t *>(index));
    db->folder_monitors = state;
    db_folder_update_done = db_monitor_folder_scan_applied;
    db_add_query(db, state);
    _db_monitor_start_thread(state);
}

void db_monitor_folders_stop(db_t *db) {
    db_monitor_folders_t *state = db->folder_monitors;
    if (!state)
        return;
    _db_monitor_stop_threads(state);
    db_remove_query(db, state);
    while (db_monitor_folder_t *monitor = state->first) {
        state->first = monitor->next;
        mem_free(monitor->path);
        mem_free(monitor);
    }
    os_event_destroy(state->stop);
    state->~db_monitor_folders_t();
    mem_free(state);
    db->folder_monitors = nullptr;
}

// The whole thread is stopped, and begins anew: sources that stay are scanned again, as after every start.
static void _db_monitor_set_volume(db_t *db, const char *volume, u32 delay, const char *format) {
    db_monitor_folders_t *state = db->folder_monitors;
    u32 length = utf8_length(volume);
    bool has_any = false;
    for (db_monitor_folder_t *monitor = state ? state->first : nullptr; monitor; monitor = monitor->next)
        has_any |= std::strncmp(monitor->path, volume, length) == 0;
    if (!has_any)
        return;
    _db_monitor_stop_threads(state);
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next) {
        if (std::strncmp(monitor->path, volume, length) != 0)
            continue;
        debug_printf(format, monitor->path, static_cast<void *>(monitor));
        monitor->retry_delay_ms = delay;
        monitor->retry_ticks = os_get_tick_count();
    }
    _db_monitor_start_thread(state);
}

void db_monitor_stop_by_volume(db_t *db, const char *volume) {
    u32 delay = monitor_retry_milliseconds > 0 ? static_cast<u32>(monitor_retry_milliseconds) : 1;
    _db_monitor_set_volume(db, volume, delay, "stop folder monitor %s %p\n");
}

void db_monitor_restart_by_volume(db_t *db, const char *volume) {
    _db_monitor_set_volume(db, volume, 0, "restart folder read directory changes monitor %s %p\n");
}

bool db_monitor_folder_is_busy(const db_t *db) {
    db_monitor_folders_t *state = db->folder_monitors;
    if (!state)
        return false;
    if (!state->is_waiting || state->data_thread)
        return true;
    std::lock_guard lock(state->lock);
    bool is_busy = state->raw.count != 0;
    for (const db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next)
        is_busy |= monitor->ready.count != 0 || monitor->needs_rescan || monitor->is_own_scan;
    return is_busy;
}

} // namespace findwright
