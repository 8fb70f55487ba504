// The get-data thread: asks the file system what is at the paths that were told, one event after the other.
#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "track/db_folder_rules.h"
#include "track/db_monitor_folder_internal.h"

#include <cstring>

namespace findwright {

// What was not found is remembered for so long, in microseconds: the rename that explains it had happened
// when it was looked for. More of them than that, and a scan is cheaper.
static constexpr u32 MISSED_AGE = 60000000;
static constexpr u32 MISSED_MAX = 10000;
// Renames are remembered for so long, in microseconds: when another folder has the old name, the look-ups of
// what happened in the first one are behind. Of so many, the last ones.
static constexpr u32 RENAMED_AGE = 60000000;
static constexpr u32 RENAMED_MAX = 1000;

struct db_monitor_reader_t {
    db_monitor_folders_t *state;
    db_monitor_folder_t *monitor; // of the rules
    db_folder_rules_t rules;
    bool is_open; // there is a root
};

// --- Data --------------------------------------------------------------------------------------------------

static void _db_monitor_open(db_monitor_reader_t *reader, db_monitor_folder_t *monitor) {
    if (reader->monitor == monitor)
        return;
    os_folder_entry_t root;
    reader->monitor = monitor;
    reader->is_open =
        db_folder_rules_open(&reader->rules, &reader->state->db->exclude, monitor->index->path, &root);
}

static void _db_monitor_get_data(const db_monitor_reader_t *reader, const char *path, u32 length,
                                 db_monitor_data_t *data) {
    const db_monitor_folder_t *monitor = reader->monitor;
    bool is_root = length == monitor->length;
    os_folder_entry_t entry;
    *data = {};
    data->is_known = reader->is_open && (is_root ? os_folder_get_entry(monitor->index->path, &entry)
                                                 : os_folder_get_link_entry(path, &entry));
    if (!data->is_known)
        return;
    data->is_folder = entry.is_folder;
    data->is_entered = entry.is_folder && db_folder_rules_is_entered(&reader->rules, &entry);
    entry.length = length; // it has a name
    data->is_hidden = !is_root && db_folder_rules_is_skipped(&reader->rules, &entry);
    data->fd = db_folder_rules_get_info(&entry);
}

static u32 _db_monitor_get_parent_length(const char *path, u32 length) {
    while (length && path[length - 1] != '\\')
        length--;
    return length ? length - 1 : 0;
}

// Whether the next event is about the same folder, which then will be looked up for that one.
static bool _db_monitor_has_same_parent(const db_monitor_folder_event_t *event,
                                        const db_monitor_folder_event_t *next) {
    if (!next || next->monitor != event->monitor)
        return false;
    u32 length = _db_monitor_get_parent_length(event->path, event->length);
    return length == _db_monitor_get_parent_length(next->path, next->length) &&
           std::memcmp(event->path, next->path, length) == 0;
}

// --- What was not found ------------------------------------------------------------------------------------

// The same path, or one below it.
static bool _db_monitor_path_is_at(const char *path, u32 length, const char *folder, u32 folder_length) {
    return (length == folder_length && std::memcmp(path, folder, length) == 0) ||
           _db_monitor_path_is_below(path, length, folder, folder_length);
}

static void _db_monitor_missed_remove(db_monitor_folder_t *monitor, db_monitor_missed_t **place) {
    db_monitor_missed_t *missed = *place;
    *place = missed->next;
    mem_free(missed->path);
    mem_free(missed);
    monitor->missed_count--;
}

void _db_monitor_missed_clear(db_monitor_folder_t *monitor) {
    while (monitor->missed)
        _db_monitor_missed_remove(monitor, &monitor->missed);
}

static void _db_monitor_missed_add(db_monitor_folder_t *monitor, const char *path, u32 length) {
    if (monitor->missed_count >= MISSED_MAX) {
        _db_monitor_missed_clear(monitor);
        std::lock_guard lock(monitor->state->lock);
        _db_monitor_ask_rescan(monitor);
    }
    auto *missed = static_cast<db_monitor_missed_t *>(mem_alloc(sizeof(db_monitor_missed_t)));
    *missed = {monitor->missed, os_get_tick_count(), length, utf8_alloc_copy_length(path, length)};
    monitor->missed = missed;
    monitor->missed_count++;
}

static void _db_monitor_missed_forget(db_monitor_folder_t *monitor) {
    u32 now = os_get_tick_count();
    for (db_monitor_missed_t **place = &monitor->missed; *place;) {
        if (now - (*place)->ticks > MISSED_AGE)
            _db_monitor_missed_remove(monitor, place);
        else
            place = &(*place)->next;
    }
}

// The folder that holds an item. One that is not found may have another name by now, too: what happened in it
// has changed its date.
static void _db_monitor_get_parent(const db_monitor_reader_t *reader, const char *path, u32 length,
                                   db_monitor_data_t *data) {
    u32 parent_length = _db_monitor_get_parent_length(path, length);
    if (length <= reader->monitor->length)
        return;
    char *parent = utf8_alloc_copy_length(path, parent_length);
    _db_monitor_get_data(reader, parent, parent_length, data);
    if (!data->is_known && parent_length > reader->monitor->length)
        _db_monitor_missed_add(reader->monitor, parent, parent_length);
    mem_free(parent);
}

// A folder has gone: what was missed of it and below it is explained.
static void _db_monitor_missed_drop(db_monitor_folder_t *monitor, const char *path, u32 length) {
    for (db_monitor_missed_t **place = &monitor->missed; *place;) {
        if (_db_monitor_path_is_at((*place)->path, (*place)->length, path, length))
            _db_monitor_missed_remove(monitor, place);
        else
            place = &(*place)->next;
    }
}

// A folder has another name: what was missed below it is looked up under that, behind the rename.
static void _db_monitor_missed_move(const db_monitor_folder_event_t *rename, db_monitor_queue_t *again) {
    db_monitor_folder_t *monitor = rename->monitor;
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (db_monitor_missed_t **place = &monitor->missed; *place;) {
        const db_monitor_missed_t *missed = *place;
        if (!_db_monitor_path_is_at(missed->path, missed->length, rename->path, rename->length)) {
            place = &(*place)->next;
            continue;
        }
        utf8_buf_copy_utf8(&path, rename->new_path, rename->new_length);
        utf8_buf_cat_utf8(&path, missed->path + rename->length, missed->length - rename->length);
        db_monitor_folder_event_t *event = _db_monitor_event_create(
            monitor, OS_WATCH_ADDED, path.data, static_cast<u32>(path.length), nullptr, 0);
        event->number = rename->number;
        event->epoch = rename->epoch;
        _db_monitor_queue_append(again, event);
        _db_monitor_missed_remove(monitor, place);
    }
    utf8_buf_kill(&path);
}

// --- Old names that are taken again ------------------------------------------------------------------------
//
//     a\f is written, a becomes b, c becomes a: the look-up of a\f finds the file of the folder that was c
//
// All that was told before a name is taken again has been looked up when that is told, and later events have
// the new name. So then one look at the folder that had the name puts right what was mistaken.

static void _db_monitor_renamed_remove(db_monitor_folder_t *monitor, db_monitor_renamed_t **place) {
    db_monitor_renamed_t *renamed = *place;
    *place = renamed->next;
    mem_free(renamed->from);
    mem_free(renamed->to);
    mem_free(renamed);
    monitor->renamed_count--;
}

void _db_monitor_renamed_clear(db_monitor_folder_t *monitor) {
    while (monitor->renamed)
        _db_monitor_renamed_remove(monitor, &monitor->renamed);
}

// A folder goes, and what is below it.
static void _db_monitor_renamed_drop(db_monitor_folder_t *monitor, const char *path, u32 length) {
    for (db_monitor_renamed_t **place = &monitor->renamed; *place;) {
        const char *to = (*place)->to;
        if (_db_monitor_path_is_at(to, utf8_length(to), path, length))
            _db_monitor_renamed_remove(monitor, place);
        else
            place = &(*place)->next;
    }
}

// What had been renamed to something at or below the old name is at or below the new one now.
static void _db_monitor_renamed_move(db_monitor_folder_t *monitor, const db_monitor_folder_event_t *rename) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (db_monitor_renamed_t *renamed = monitor->renamed; renamed; renamed = renamed->next) {
        u32 length = utf8_length(renamed->to);
        if (!_db_monitor_path_is_at(renamed->to, length, rename->path, rename->length))
            continue;
        utf8_buf_copy_utf8(&path, rename->new_path, rename->new_length);
        utf8_buf_cat_utf8(&path, renamed->to + rename->length, length - rename->length);
        renamed->to = utf8_replace_string(renamed->to, path.data);
    }
    utf8_buf_kill(&path);
}

static void _db_monitor_renamed_forget(db_monitor_folder_t *monitor) {
    u32 now = os_get_tick_count(), kept = 0;
    for (db_monitor_renamed_t **place = &monitor->renamed; *place;) {
        if (now - (*place)->ticks > RENAMED_AGE || kept == RENAMED_MAX) {
            _db_monitor_renamed_remove(monitor, place);
        } else {
            place = &(*place)->next;
            kept++;
        }
    }
}

static void _db_monitor_renamed_add(db_monitor_folder_t *monitor, const db_monitor_folder_event_t *rename) {
    _db_monitor_renamed_drop(monitor, rename->new_path, rename->new_length); // it stands in their place
    _db_monitor_renamed_move(monitor, rename);
    if (monitor->renamed_count >= 2 * RENAMED_MAX)
        _db_monitor_renamed_forget(monitor);
    auto *renamed = static_cast<db_monitor_renamed_t *>(mem_alloc(sizeof(db_monitor_renamed_t)));
    *renamed = {monitor->renamed, os_get_tick_count(), utf8_alloc_copy_length(rename->path, rename->length),
                utf8_alloc_copy_length(rename->new_path, rename->new_length)};
    monitor->renamed = renamed;
    monitor->renamed_count++;
}

// A name is taken: folders that had it are looked at, behind the event.
static void _db_monitor_renamed_look(const db_monitor_folder_event_t *event, const char *path, u32 length,
                                     db_monitor_queue_t *again) {
    db_monitor_folder_t *monitor = event->monitor;
    for (db_monitor_renamed_t **place = &monitor->renamed; *place;) {
        const db_monitor_renamed_t *renamed = *place;
        if (utf8_length(renamed->from) != length || std::memcmp(renamed->from, path, length) != 0) {
            place = &(*place)->next;
            continue;
        }
        db_monitor_folder_event_t *look = _db_monitor_event_create(monitor, OS_WATCH_ADDED, renamed->to,
                                                                   utf8_length(renamed->to), nullptr, 0);
        look->number = event->number;
        look->epoch = event->epoch;
        _db_monitor_queue_append(again, look);
        _db_monitor_renamed_remove(monitor, place);
    }
}

// --- Events ------------------------------------------------------------------------------------------------

static bool _db_monitor_is_covered(const db_monitor_folder_t *monitor,
                                   const db_monitor_folder_event_t *event) {
    for (const db_monitor_cover_t &cover : monitor->covers)
        if (event->number <= cover.number &&
            _db_monitor_path_is_below(event->path, event->length, cover.path, cover.length))
            return true;
    return false;
}

static void _db_monitor_cover_set(db_monitor_cover_t *cover, u64 number, const char *path, u32 length) {
    if (cover->path)
        mem_free(cover->path);
    *cover = {number, length, path ? utf8_alloc_copy_length(path, length) : nullptr};
}

void _db_monitor_covers_clear(db_monitor_folder_t *monitor) {
    for (db_monitor_cover_t &cover : monitor->covers)
        _db_monitor_cover_set(&cover, 0, nullptr, 0);
}

static void _db_monitor_scan(db_monitor_reader_t *reader, db_monitor_folder_event_t *event) {
    db_monitor_folder_t *monitor = event->monitor;
    db_monitor_folders_t *state = reader->state;
    u64 number;
    {
        std::lock_guard lock(state->lock);
        number = state->number;
    }
    event->scan = db_folder_scan_run(state->db, monitor->index, event->path, &state->cancel);
    if (event->scan)
        _db_monitor_cover_set(&monitor->covers[monitor->cover_next++ % DB_MONITOR_COVER_COUNT], number,
                              event->path, event->length);
    std::lock_guard lock(state->lock);
    _db_monitor_doubt_add(monitor, event->path, event->length);
}

static void _db_monitor_look_up(db_monitor_reader_t *reader, db_monitor_folder_event_t *event,
                                bool has_same_parent, db_monitor_queue_t *again) {
    if (debug_verbose)
        debug_verbose_printf("READ DIRECTORY CHANGE GET FD %d %s\n", event->action, event->path);
    db_monitor_folder_t *monitor = event->monitor;
    _db_monitor_open(reader, monitor);
    if (event->action == OS_WATCH_RENAMED) {
        _db_monitor_get_data(reader, event->new_path, event->new_length, &event->data);
        _db_monitor_get_parent(reader, event->new_path, event->new_length, &event->new_parent);
        _db_monitor_missed_move(event, again);
        if (!event->data.is_known || event->data.is_folder) {
            _db_monitor_renamed_add(monitor, event);
            _db_monitor_renamed_look(event, event->new_path, event->new_length, again);
        }
    } else if (event->action == OS_WATCH_REMOVED) {
        _db_monitor_missed_drop(monitor, event->path, event->length);
        _db_monitor_renamed_drop(monitor, event->path, event->length);
    } else {
        _db_monitor_get_data(reader, event->path, event->length, &event->data);
        if (event->action == OS_WATCH_ADDED && (!event->data.is_known || event->data.is_folder))
            _db_monitor_renamed_look(event, event->path, event->length, again);
        if (!event->data.is_known) {
            _db_monitor_missed_add(monitor, event->path, event->length);
            std::lock_guard lock(reader->state->lock);
            if (event->is_look)
                _db_monitor_doubt_add(monitor, event->path, event->length);
        } else if (event->action == OS_WATCH_ADDED && event->data.is_entered && !event->data.is_hidden) {
            event->data.is_covered = _db_monitor_is_covered(monitor, event);
            if (!event->data.is_covered)
                _db_monitor_scan(reader, event);
        }
    }
    if (!has_same_parent)
        _db_monitor_get_parent(reader, event->path, event->length, &event->parent);
}

// Whether `next` says no more than that an item has changed which is about to be looked up for `event`.
static bool _db_monitor_is_needless(const db_monitor_folder_event_t *event,
                                    const db_monitor_folder_event_t *next) {
    bool is_renamed = event->action == OS_WATCH_RENAMED;
    const char *path = is_renamed ? event->new_path : event->path;
    u32 length = is_renamed ? event->new_length : event->length;
    return next && next->action == OS_WATCH_MODIFIED && event->action != OS_WATCH_REMOVED &&
           next->monitor == event->monitor && next->length == length &&
           std::memcmp(next->path, path, length) == 0;
}

// The next raw event, without those behind it that its look-up answers; 0 for none.
static db_monitor_folder_event_t *_db_monitor_take_raw(db_monitor_folders_t *state, bool *has_same_parent) {
    std::lock_guard lock(state->lock);
    db_monitor_folder_event_t *event = state->cancel ? nullptr : _db_monitor_queue_take(&state->raw);
    if (!event)
        return nullptr;
    while (_db_monitor_is_needless(event, state->raw.first))
        _db_monitor_event_free(_db_monitor_queue_take(&state->raw));
    *has_same_parent = _db_monitor_has_same_parent(event, state->raw.first);
    return event;
}

static void _db_monitor_give(db_monitor_folders_t *state, db_monitor_folder_event_t *event) {
    std::lock_guard lock(state->lock);
    if (event->epoch != event->monitor->epoch) { // what was looked up is older than the scan that is to come
        _db_monitor_event_free(event);
        return;
    }
    _db_monitor_queue_append(&event->monitor->ready, event);
    if (!state->is_apply_posted) {
        state->is_apply_posted = true;
        event_post(_db_monitor_apply_proc, state);
    }
}

void _db_monitor_folder_get_fd_thread_proc(void *param) {
    auto *state = static_cast<db_monitor_folders_t *>(param);
    db_monitor_reader_t reader = {};
    reader.state = state;
    for (db_monitor_folder_t *monitor = state->first; monitor; monitor = monitor->next) {
        _db_monitor_missed_forget(monitor);
        _db_monitor_renamed_forget(monitor);
    }
    bool has_same_parent;
    while (db_monitor_folder_event_t *event = _db_monitor_take_raw(state, &has_same_parent)) {
        db_monitor_queue_t again = {};
        _db_monitor_look_up(&reader, event, has_same_parent, &again);
        _db_monitor_give(state, event);
        while (db_monitor_folder_event_t *other = _db_monitor_queue_take(&again)) {
            _db_monitor_look_up(&reader, other, false, &again);
            _db_monitor_give(state, other);
        }
    }
    event_post(_db_monitor_data_ended_proc, state);
}

} // namespace findwright
