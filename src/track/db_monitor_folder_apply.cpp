// The main thread: what was looked up enters the index.
#include "base/mem.h"
#include "os/debug.h"
#include "os/event.h"
#include "track/db_folder_update_internal.h"
#include "track/db_live_internal.h"
#include "track/db_monitor_folder_internal.h"

#include <cstring>

namespace findwright {

// --- Pieces ------------------------------------------------------------------------------------------------

// Has a path looked up once more, behind all that was told until now.
static void _db_monitor_look_again(db_monitor_folder_t *monitor, const char *path, u32 length) {
    db_monitor_folder_event_t *event =
        _db_monitor_event_create(monitor, OS_WATCH_ADDED, path, length, nullptr, 0);
    event->is_look = true;
    std::lock_guard lock(monitor->state->lock);
    _db_monitor_raw_append(monitor, event);
}

static void _db_monitor_remove(db_t *db, db_index_folder_t *index, const char *path, u32 length) {
    db_file_remove_path(db, index, path, length);
    db_folder_remove_path(db, index, path, length);
}

static void _db_monitor_apply_file(db_t *db, db_index_folder_t *index, const char *path, u32 length,
                                   const db_file_info_t *fd, u64 date) {
    db_file_t *file = db_file_find_path(db, index, path, length);
    if (file && !db_file_update_info(db, file, fd, date))
        db_item_touch(db, file, false, date);
    else if (!file)
        db_file_add_path(db, index, path, length, fd, date);
}

// --- A folder with what is below it ------------------------------------------------------------------------

// Up to so many items change at once; more take turns with all else (db_folder_update_apply).
static constexpr u32 MERGE_MAX = 2000;

struct db_monitor_merge_t {
    db_t *db;
    db_index_folder_t *index;
    db_folder_scan_t *scan;
    db_live_tree_t tree;  // what the index has below the folder
    ref_map_t<u8> unseen; // of that, what the scan has not
    u64 date;
};

static db_folder_t *_db_monitor_merge_get_parent(const db_scan_item_t *item) {
    mem_ref_t parent = db_scan_item(item->parent)->found_item;
    return parent ? mem_ptr<db_folder_t>(parent) : nullptr;
}

static void _db_monitor_merge_set(db_scan_item_t *item, const db_item_t *found) {
    item->found_item = found ? mem_ref(found) : 0;
}

static void _db_monitor_merge_match(db_monitor_merge_t *merge, db_scan_item_t *item) {
    db_folder_t *parent = _db_monitor_merge_get_parent(item);
    const char *name = db_scan_item_get_name(item);
    if (!parent)
        return;
    if (item->is_folder)
        _db_monitor_merge_set(item, db_folder_find(merge->db, merge->index, parent, name, item->name_length));
    else
        _db_monitor_merge_set(item, db_file_find(merge->db, merge->index, parent, name, item->name_length));
    if (item->found_item)
        ref_map_remove(&merge->unseen, item->found_item);
}

// Of the folders only those whose own folder stays: each takes along what is below it.
static void _db_monitor_merge_remove(db_monitor_merge_t *merge) {
    const db_live_tree_t *tree = &merge->tree;
    for (u32 i = 0; i < tree->file_count; i++)
        if (ref_map_find(&merge->unseen, tree->files[i]))
            db_file_remove_item(merge->db, mem_ptr<db_file_t>(tree->files[i]));
    u32 count = 0;
    for (u32 i = 0; i < tree->folder_count; i++) {
        mem_ref_t ref = tree->folders[i];
        if (ref_map_find(&merge->unseen, ref) &&
            !ref_map_find(&merge->unseen, mem_ptr<db_folder_t>(ref)->parent))
            tree->folders[count++] = ref;
    }
    for (u32 i = 0; i < count; i++)
        db_folder_remove(merge->db, mem_ptr<db_folder_t>(tree->folders[i]));
}

static void _db_monitor_merge_put(db_monitor_merge_t *merge, db_scan_item_t *item) {
    db_folder_t *parent = _db_monitor_merge_get_parent(item);
    const db_file_info_t info = item->info; // there at a multiple of 4 only
    const char *name = db_scan_item_get_name(item);
    u32 length = item->name_length;
    if (!parent) // left out
        return;
    if (item->is_folder && item->found_item)
        db_folder_update_info(merge->db, mem_ptr<db_folder_t>(item->found_item), &info, merge->date);
    else if (item->is_folder)
        _db_monitor_merge_set(
            item, db_folder_add(merge->db, merge->index, parent, name, length, &info, merge->date));
    else if (item->found_item)
        db_file_update_info(merge->db, mem_ptr<db_file_t>(item->found_item), &info, merge->date);
    else
        db_file_add(merge->db, merge->index, parent, name, length, &info, merge->date);
}

// Makes what is below a folder what the scan found.
static void _db_monitor_merge(db_monitor_merge_t *merge, db_folder_t *folder) {
    db_folder_scan_t *scan = merge->scan;
    mem_ref_t first = scan->folders.first;
    db_scan_item(first)->found_item = mem_ref(folder);
    for (u32 i = 0; i < merge->tree.file_count; i++)
        *ref_map_make(&merge->unseen, merge->tree.files[i]) = 1;
    for (u32 i = 0; i < merge->tree.folder_count; i++)
        *ref_map_make(&merge->unseen, merge->tree.folders[i]) = 1;
    for (mem_ref_t ref = db_scan_item(first)->next; ref; ref = db_scan_item(ref)->next)
        _db_monitor_merge_match(merge, db_scan_item(ref));
    for (mem_ref_t ref = scan->files.first; ref; ref = db_scan_item(ref)->next)
        _db_monitor_merge_match(merge, db_scan_item(ref));
    _db_monitor_merge_remove(merge);
    for (mem_ref_t ref = db_scan_item(first)->next; ref; ref = db_scan_item(ref)->next)
        _db_monitor_merge_put(merge, db_scan_item(ref));
    for (mem_ref_t ref = scan->files.first; ref; ref = db_scan_item(ref)->next)
        _db_monitor_merge_put(merge, db_scan_item(ref));
}

static bool _db_monitor_has_kept(const db_folder_scan_t *scan) {
    for (mem_ref_t ref = scan->folders.first; ref; ref = db_scan_item(ref)->next)
        if (db_scan_item(ref)->is_kept)
            return true;
    return false;
}

// False: there is too much of it.
static bool _db_monitor_merge_scan(db_monitor_folder_event_t *event, db_folder_t *folder, u64 date) {
    db_monitor_merge_t merge = {};
    merge.db = event->monitor->state->db;
    merge.index = event->monitor->index;
    merge.scan = event->scan;
    merge.date = date;
    if (db_folder_scan_get_count(event->scan) > MERGE_MAX || (folder && _db_monitor_has_kept(event->scan)))
        return false;
    if (folder)
        _db_live_tree_find(merge.db, folder, &merge.tree);
    bool is_small = merge.tree.folder_count + merge.tree.file_count <= MERGE_MAX;
    if (is_small && folder)
        db_folder_update_info(merge.db, folder, &event->data.fd, date);
    else if (is_small)
        folder = db_folder_add_path(merge.db, merge.index, event->path, event->length, &event->data.fd, date);
    if (is_small && folder)
        _db_monitor_merge(&merge, folder);
    ref_map_kill(&merge.unseen);
    if (merge.tree.folders)
        _db_live_tree_kill(&merge.tree);
    return is_small;
}

static void _db_monitor_apply_scan(db_monitor_folder_event_t *event, u64 date) {
    db_monitor_folder_t *monitor = event->monitor;
    db_t *db = monitor->state->db;
    db_folder_t *folder = db_folder_find_path(db, monitor->index, event->path, event->length);
    if (!folder && event->data.is_covered) { // it has gone from the index since
        _db_monitor_look_again(monitor, event->path, event->length);
    } else if (event->scan) {
        if (_db_monitor_merge_scan(event, folder, date))
            return;
        monitor->is_own_scan = true;
        db_folder_scan_t *scan = event->scan;
        event->scan = nullptr;
        db_folder_update_apply(db, scan);
    } else if (folder) { // it cannot be listed, or is not entered, or came with another scan
        db_folder_update_info(db, folder, &event->data.fd, date);
    } else {
        db_folder_add_path(db, monitor->index, event->path, event->length, &event->data.fd, date);
    }
}

// --- One event ---------------------------------------------------------------------------------------------

static void _db_monitor_apply_changed(db_monitor_folder_event_t *event, u64 date) {
    db_monitor_folder_t *monitor = event->monitor;
    db_t *db = monitor->state->db;
    const db_monitor_data_t *data = &event->data;
    if (!data->is_known) // what came behind tells of it
        return;
    if (data->is_hidden) {
        _db_monitor_remove(db, monitor->index, event->path, event->length);
    } else if (!data->is_folder) {
        _db_monitor_apply_file(db, monitor->index, event->path, event->length, &data->fd, date);
    } else if (event->action == OS_WATCH_ADDED) {
        _db_monitor_apply_scan(event, date);
    } else if (db_folder_t *folder = db_folder_find_path(db, monitor->index, event->path, event->length)) {
        if (!db_folder_update_info(db, folder, &data->fd, date))
            db_item_touch(db, folder, true, date);
    } else {
        _db_monitor_look_again(monitor, event->path, event->length);
    }
}

// What has the old name decides what is renamed; what is at the new one now may be another item already.
static void _db_monitor_apply_renamed(db_monitor_folder_event_t *event, u64 date) {
    db_monitor_folder_t *monitor = event->monitor;
    db_index_folder_t *index = monitor->index;
    db_t *db = monitor->state->db;
    const db_monitor_data_t *data = &event->data;
    bool is_doubtful;
    {
        std::lock_guard lock(monitor->state->lock);
        is_doubtful = _db_monitor_is_doubtful(monitor, event);
    }
    bool is_unsure = false;
    const db_file_info_t *file_fd = data->is_known && !data->is_folder ? &data->fd : nullptr;
    const db_file_info_t *folder_fd = data->is_known && data->is_folder ? &data->fd : nullptr;
    if (data->is_known && data->is_hidden) {
        _db_monitor_remove(db, index, event->path, event->length);
        _db_monitor_remove(db, index, event->new_path, event->new_length);
    } else if (db_folder_find_path(db, index, event->path, event->length)) {
        is_unsure = !db_folder_rename_path(db, index, event->path, event->length, event->new_path,
                                           event->new_length, folder_fd, date) ||
                    is_doubtful;
    } else if (db_file_find_path(db, index, event->path, event->length)) {
        is_unsure = !db_file_rename_path(db, index, event->path, event->length, event->new_path,
                                         event->new_length, file_fd, date) ||
                    folder_fd;
    } else if (file_fd) {
        _db_monitor_apply_file(db, index, event->new_path, event->new_length, file_fd, date);
    } else {
        is_unsure = true;
    }
    if (!is_unsure)
        return;
    if (data->is_known)
        _db_monitor_look_again(monitor, event->new_path, event->new_length);
    // The next rename of it has the doubt, too: it may come before the look, which then finds nothing there.
    std::lock_guard lock(monitor->state->lock);
    _db_monitor_doubt_add(monitor, event->new_path, event->new_length);
}

static void _db_monitor_apply_parent(db_monitor_folder_t *monitor, const db_monitor_data_t *data,
                                     const char *path, u32 length) {
    if (!data->is_known || !data->is_folder)
        return;
    while (length && path[length - 1] != '\\')
        length--;
    db_t *db = monitor->state->db;
    if (db_folder_t *folder = db_folder_find_path(db, monitor->index, path, length ? length - 1 : 0))
        db_folder_update_info(db, folder, &data->fd, DB_LIVE_NO_DATE);
}

static void _db_monitor_apply(db_monitor_folder_event_t *event) {
    if (debug_verbose)
        debug_verbose_printf("READ DIRECTORY CHANGE UPDATE %d %s\n", event->action, event->path);
    db_monitor_folder_t *monitor = event->monitor;
    u64 date = os_get_file_time();
    if (event->action == OS_WATCH_REMOVED)
        _db_monitor_remove(monitor->state->db, monitor->index, event->path, event->length);
    else if (event->action == OS_WATCH_RENAMED)
        _db_monitor_apply_renamed(event, date);
    else
        _db_monitor_apply_changed(event, date);
    _db_monitor_apply_parent(monitor, &event->parent, event->path, event->length);
    if (event->action == OS_WATCH_RENAMED)
        _db_monitor_apply_parent(monitor, &event->new_parent, event->new_path, event->new_length);
}

// --- The queues --------------------------------------------------------------------------------------------

// The next event of a source that nothing holds back; 0 for none.
static db_monitor_folder_event_t *_db_monitor_take_ready(db_monitor_folders_t *state) {
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next) {
        if (db_folder_update_is_running(state->db, monitor->index))
            continue;
        std::lock_guard lock(state->lock);
        while (db_monitor_folder_event_t *event = _db_monitor_queue_take(&monitor->ready)) {
            const db_monitor_folder_event_t *next = monitor->ready.first;
            if (next && event->action == OS_WATCH_MODIFIED && next->action == OS_WATCH_MODIFIED &&
                _db_monitor_path_is_equal(event, next) && !event->parent.is_known) {
                _db_monitor_event_free(event);
                continue;
            }
            _db_monitor_doubts_forget(monitor, event->number - 1);
            return event;
        }
    }
    return nullptr;
}

// Applies for a slice. False when there is more to be done.
static bool _db_monitor_apply_slice(db_monitor_folders_t *state) {
    static constexpr u32 MICROSECONDS = 1000;
    u32 start = os_get_tick_count();
    while (db_monitor_folder_event_t *event = _db_monitor_take_ready(state)) {
        _db_monitor_apply(event);
        _db_monitor_event_free(event);
        if (os_get_tick_count() - start >= db_monitor_folder_slice * MICROSECONDS)
            return false;
    }
    return true;
}

static bool _db_monitor_has_own_scan(const db_monitor_folders_t *state) {
    for (const db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next)
        if (monitor->is_own_scan)
            return true;
    return false;
}

void db_monitor_folder_read_directory_changes_update(db_t *db) {
    db_monitor_folders_t *state = db->folder_monitors;
    if (!state || !db_is_ready(db) || state->is_throttled)
        return;
    db_wait(db, "db_monitor_folder_read_directory_changes_update");
    if (!_db_monitor_apply_slice(state)) {
        // Later, so that the main loop sees to its input in between.
        std::lock_guard lock(state->lock);
        if (!state->is_apply_posted)
            event_post_after(1, _db_monitor_apply_proc, state);
        state->is_apply_posted = true;
    } else if (!_db_monitor_has_own_scan(state)) {
        state->is_throttled = true;
        event_post_after(db_monitor_folder_interval, _db_monitor_throttle_proc, state);
    }
}

void _db_monitor_apply_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    {
        std::lock_guard lock(state->lock);
        state->is_apply_posted = false;
    }
    db_monitor_folder_read_directory_changes_update(state->db);
}

void _db_monitor_throttle_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    state->is_throttled = false;
    bool has_ready = false;
    {
        std::lock_guard lock(state->lock);
        for (const db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next)
            has_ready |= monitor->ready.count != 0;
    }
    if (has_ready)
        db_monitor_folder_read_directory_changes_update(state->db);
}

void db_monitor_folder_idle(db_t *db) {
    if (db->folder_monitors && !db->folder_monitors->is_throttled)
        _db_monitor_throttle_proc(db->folder_monitors);
}

void db_monitor_folder_scan_applied(db_t *db, db_index_folder_t *index) {
    db_monitor_folders_t *state = db->folder_monitors;
    for (db_monitor_folder_t *monitor = state ? state->first : nullptr; monitor; monitor = monitor->next) {
        if (monitor->index != index)
            continue;
        if (!monitor->is_own_scan) {
            std::lock_guard lock(state->lock);
            _db_monitor_doubt_add(monitor, monitor->path, monitor->length);
        }
        monitor->is_own_scan = false;
    }
    db_monitor_folder_idle(db);
}

} // namespace findwright
