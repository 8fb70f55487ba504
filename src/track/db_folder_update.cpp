#include "track/db_folder_update.h"

#include "base/mem.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "track/db_folder_update_internal.h"
#include "track/db_schedule.h"

#include <cstring>
#include <new>

namespace findwright {

// A schedule is looked at so often, in milliseconds, however far off the next time is: clocks are set, and a
// machine sleeps.
static constexpr u32 UPDATE_ALARM_MAX = 60000;
static constexpr u32 UPDATE_SLICE_PAUSE = 1; // between two slices, in milliseconds
static constexpr u32 UPDATE_ALARM_MIN = 1000;
static constexpr u64 TICKS_PER_MILLISECOND = 10000;
static constexpr i32 UPDATE_BACKGROUND_PRIORITY = -15;

static void _db_folder_update_thread_proc(void *param);
static void _db_folder_update_complete_proc(void *param);
static void _db_folder_update_slice_proc(void *param);
static void _db_folder_update_alarm_proc(void *param);

static db_index_folder_t *_db_folder_update_as_folder(db_index_t *index) {
    return index->type == DB_INDEX_TYPE_FOLDER ? static_cast<db_index_folder_t *>(index) : nullptr;
}

// --- The link to the database ------------------------------------------------------------------------------

static void _db_folder_update_drop(db_folder_update_t *update);

// An alarm and not an event: what is posted while events run runs with them, before the main loop looks at
// anything else.
static void _db_folder_update_post_slice(db_folder_update_t *update) {
    if (update->is_slice_posted)
        return;
    update->is_slice_posted = true;
    event_post_after(UPDATE_SLICE_PAUSE, _db_folder_update_slice_proc, update->db);
}

static void _db_folder_update_nothing(db_query_link_t *) {}

// No worker is at work any more: what had to wait goes on.
static void _db_folder_update_ready(db_query_link_t *link) {
    auto *update = static_cast<db_folder_update_t *>(link);
    if (update->first)
        _db_folder_update_post_slice(update);
    else
        db_folders_check_for_updates(update->db);
}

static void _db_folder_update_rebuild_started(db_query_link_t *link) {
    _db_folder_update_drop(static_cast<db_folder_update_t *>(link));
}

static const db_query_hooks_t _db_folder_update_hooks = {
    .get_busy_text = nullptr,
    .cancel = nullptr,
    .cancelled = nullptr,
    .wait_ended = _db_folder_update_nothing,
    .ready = _db_folder_update_ready,
    .status_changed = _db_folder_update_nothing,
    .rebuild_started = _db_folder_update_rebuild_started,
    .load_complete = _db_folder_update_nothing,
};

static void _db_folder_update_content_changed(db_query_link_t *link) {
    if (db_folder_apply_t *apply = static_cast<db_folder_update_t *>(link)->apply)
        _db_folder_apply_content_changed(apply);
}

static const db_live_hooks_t _db_folder_update_live = {
    .item_leaves = [](db_query_link_t *link, const db_item_t *, bool,
                      u32) { _db_folder_update_content_changed(link); },
    .item_enters = [](db_query_link_t *link, const db_item_t *, const db_item_t *, bool,
                      u32) { _db_folder_update_content_changed(link); },
    .item_gone = [](db_query_link_t *, const db_item_t *, bool) {},
    .items_gone = [](db_query_link_t *link, const db_item_set_t *,
                     const db_item_set_t *) { _db_folder_update_content_changed(link); },
    .tree_moves = _db_folder_update_content_changed,
    .items_updated = _db_folder_update_nothing,
};

// The state, which is made when it is needed first.
static db_folder_update_t *_db_folder_update_get(db_t *db) {
    if (db->folder_update)
        return db->folder_update;
    auto *update = new (mem_alloc(sizeof(db_folder_update_t))) db_folder_update_t();
    update->hooks = &_db_folder_update_hooks;
    update->live = &_db_folder_update_live;
    update->db = db;
    db_add_query(db, update);
    db->folder_update = update;
    return update;
}

// --- The queue of applies ----------------------------------------------------------------------------------

// The source of a scan; 0: the database does not have it any more.
static db_index_folder_t *_db_folder_update_get_index(const db_t *db, const db_folder_scan_t *scan) {
    for (db_index_t *index = db->index_first; index; index = index->next) {
        if (index == scan->index)
            return _db_folder_update_as_folder(index);
    }
    return nullptr;
}

static void _db_folder_update_free_first(db_folder_update_t *update) {
    if (update->apply) {
        _db_folder_apply_free(update->apply);
        update->apply = nullptr;
    }
    db_folder_scan_t *scan = update->first;
    update->first = scan->next;
    if (!update->first)
        update->last = nullptr;
    db_folder_scan_free(scan);
}

// Nothing holds back the source's events any more, unless another of its scans waits.
static void _db_folder_update_tell(db_t *db, db_index_folder_t *index) {
    debug_printf("leave folder update\n");
    if (db_folder_update_done && !db_folder_update_is_running(db, index))
        db_folder_update_done(db, index);
}

static void _db_folder_update_slice_proc(void *param) {
    db_t *db = static_cast<db_t *>(param);
    db_folder_update_t *update = db->folder_update;
    update->is_slice_posted = false;
    if (!db_is_ready(db)) // goes on when it is
        return;
    db_wait(db, "_db_folder_update_complete_proc");
    db_folder_scan_t *scan = update->first;
    db_index_folder_t *index = _db_folder_update_get_index(db, scan);
    if (index && !update->apply)
        update->apply = _db_folder_apply_create(db, index, scan);
    if (index && !_db_folder_apply_run(update->apply)) {
        _db_folder_update_post_slice(update);
        return;
    }
    _db_folder_update_free_first(update);
    if (update->first)
        _db_folder_update_post_slice(update);
    if (index)
        _db_folder_update_tell(db, index);
    db_folders_check_for_updates(db);
}

void db_folder_update_apply(db_t *db, db_folder_scan_t *scan) {
    db_folder_update_t *update = _db_folder_update_get(db);
    scan->next = nullptr;
    (update->last ? update->last->next : update->first) = scan;
    update->last = scan;
    _db_folder_update_post_slice(update);
}

bool db_folder_update_is_running(const db_t *db, const db_index_folder_t *index) {
    const db_folder_update_t *update = db->folder_update;
    if (!update)
        return false;
    if (update->thread && update->index == index)
        return true;
    for (const db_folder_scan_t *scan = update->first; scan; scan = scan->next) {
        if (scan->index == index)
            return true;
    }
    return false;
}

bool db_folder_update_is_busy(const db_t *db) {
    const db_folder_update_t *update = db->folder_update;
    return update && (update->thread || update->first);
}

// --- The scan's thread -------------------------------------------------------------------------------------

static void _db_folder_update_thread_proc(void *param) {
    auto *update = static_cast<db_folder_update_t *>(param);
    update->scan = db_folder_scan_run(update->db, update->index, update->index->path, &update->cancel);
    event_post(_db_folder_update_complete_proc, update->db);
}

static void _db_folder_update_complete_proc(void *param) {
    db_t *db = static_cast<db_t *>(param);
    db_folder_update_t *update = db->folder_update;
    os_thread_release(update->thread, OS_INFINITE);
    update->thread = nullptr;
    db_set_status(db, "");
    db_folder_scan_t *scan = update->scan;
    update->scan = nullptr;
    if (scan) {
        db_folder_update_apply(db, scan);
        return;
    }
    _db_folder_update_tell(db, update->index);
    db_folders_check_for_updates(db);
}

static void _db_folder_update_show(db_t *db, const char *path) {
    utf8_buf_t name;
    utf8_buf_init(&name);
    os_path_to_user(path, static_cast<u32>(std::strlen(path)), &name);
    db_set_status(db, "%s", name.data);
    utf8_buf_kill(&name);
}

static void _db_folder_update_start_scan(db_folder_update_t *update, db_index_folder_t *index) {
    index->update_now = 0;
    if (index->update_type != DB_SCHEDULE_NEVER) { // now, so that a long scan does not put off the next one
        db_schedule_t schedule = {index->update_type, index->update_value};
        index->next_update = db_schedule_next(&schedule);
    }
    update->index = index;
    update->scan = nullptr;
    update->cancel = 0;
    _db_folder_update_show(update->db, index->path);
    update->thread = os_thread_create(_db_folder_update_thread_proc, update);
    if (folder_update_thread_mode_background)
        os_thread_set_priority(update->thread, UPDATE_BACKGROUND_PRIORITY);
}

// --- The choice --------------------------------------------------------------------------------------------

// The source that was asked for, or else the one whose time comes first; 0 for none.
static db_index_folder_t *_db_folder_update_choose(const db_folder_update_t *update) {
    db_index_folder_t *first = nullptr;
    for (db_index_t *index = update->db->index_first; index; index = index->next) {
        db_index_folder_t *folder = _db_folder_update_as_folder(index);
        if (!folder)
            continue;
        if (folder->update_now)
            return folder;
        if (update->is_started && folder->update_type != DB_SCHEDULE_NEVER &&
            (!first || folder->next_update < first->next_update))
            first = folder;
    }
    return first;
}

// The alarm of the next time; there is none while a scan or an apply leads here again by itself.
static void _db_folder_update_set_alarm(db_t *db, u64 wait) {
    u64 milliseconds = wait / TICKS_PER_MILLISECOND + UPDATE_ALARM_MIN;
    event_remove(_db_folder_update_alarm_proc, db);
    event_post_after(milliseconds < UPDATE_ALARM_MAX ? static_cast<u32>(milliseconds) : UPDATE_ALARM_MAX,
                     _db_folder_update_alarm_proc, db);
}

static void _db_folder_update_alarm_proc(void *param) {
    db_folders_check_for_updates(static_cast<db_t *>(param));
}

void db_folders_check_for_updates(db_t *db) {
    db_folder_update_t *update = db->folder_update;
    if (!update || db_read_only || !db_is_ready(db) || update->thread || update->first)
        return;
    db_index_folder_t *index = _db_folder_update_choose(update);
    if (!index)
        return;
    u64 now = os_get_file_time();
    if (index->update_now || now >= index->next_update)
        _db_folder_update_start_scan(update, index);
    else
        _db_folder_update_set_alarm(db, index->next_update - now);
}

void db_folders_update_index_now(db_t *db, db_index_folder_t *index) {
    _db_folder_update_get(db);
    index->update_now = 1;
    db_folders_check_for_updates(db);
}

static void _db_folder_update_ask(db_t *db, const char *path) {
    for (db_index_t *index = db->index_first; index; index = index->next) {
        db_index_folder_t *folder = _db_folder_update_as_folder(index);
        if (folder && (!path || std::strcmp(folder->path, path) == 0)) {
            _db_folder_update_get(db);
            folder->update_now = 1;
        }
    }
    db_folders_check_for_updates(db);
}

void db_folders_update_now(db_t *db, const char *path) {
    _db_folder_update_ask(db, path);
}

void db_folders_update_all_now(db_t *db) {
    _db_folder_update_ask(db, nullptr);
}

// --- Start and stop ----------------------------------------------------------------------------------------

void db_folder_update_start(db_t *db) {
    bool have_folders = false;
    for (db_index_t *index = db->index_first; index; index = index->next)
        have_folders |= index->type == DB_INDEX_TYPE_FOLDER;
    if (!have_folders)
        return;
    _db_folder_update_get(db)->is_started = true;
    db_folders_check_for_updates(db);
}

// Of what runs and waits nothing is left. Who asked for it has asked anew.
static void _db_folder_update_drop(db_folder_update_t *update) {
    db_t *db = update->db;
    if (update->thread) {
        update->cancel = 1;
        os_thread_release(update->thread, OS_INFINITE);
        update->thread = nullptr;
        update->index->update_now = 1;
        db_set_status(db, "");
    }
    if (update->scan)
        db_folder_scan_free(update->scan);
    update->scan = nullptr;
    while (update->first) {
        if (db_index_folder_t *index = _db_folder_update_get_index(db, update->first))
            index->update_now = 1;
        _db_folder_update_free_first(update);
    }
    event_remove(_db_folder_update_complete_proc, db);
    event_remove(_db_folder_update_slice_proc, db);
    event_remove(_db_folder_update_alarm_proc, db);
    update->is_slice_posted = false;
    update->is_started = false;
}

void db_folder_update_stop(db_t *db) {
    db_folder_update_t *update = db->folder_update;
    if (!update)
        return;
    _db_folder_update_drop(update);
    db_remove_query(db, update);
    update->~db_folder_update_t();
    mem_free(update);
    db->folder_update = nullptr;
}

} // namespace findwright
