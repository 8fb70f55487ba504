// The watch over the files of file lists: one thread per database, which knows only the folders that they lie
// in. What has changed is looked up on the main thread.
#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_lifecycle_internal.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os_change.h"

#include <cstring>

namespace findwright {

static constexpr u32 POLL_INTERVAL = 60000; // milliseconds, where the system cannot watch a folder
static constexpr u32 QUIET_INTERVAL = 250;  // a list that is being written is not read for so long
static constexpr u32 QUIET_MAX = 2000;

struct _db_watch_folder_t {
    char *path;
    u32 handle; // OS_CHANGE_NONE: not watched
};

struct _db_watch_t {
    db_t *db;
    os_thread_t *thread;
    os_change_set_t *set;
    _db_watch_folder_t *folders;
    u32 folder_count;
};

static void _db_check_file_lists_proc(void *param) {
    db_check_file_lists(static_cast<db_t *>(param));
}

// Takes up the folders that are not watched. What changed in them until now is looked up. True when the
// system refuses one: then time must do.
static bool _db_watch_add_folders(_db_watch_t *watch) {
    bool poll = false, is_new = false;
    for (u32 i = 0; i < watch->folder_count; i++) {
        _db_watch_folder_t *folder = &watch->folders[i];
        if (folder->handle != OS_CHANGE_NONE && os_change_set_is_lost(watch->set, folder->handle))
            folder->handle = OS_CHANGE_NONE;
        if (folder->handle == OS_CHANGE_NONE) {
            folder->handle = os_change_set_add(watch->set, folder->path);
            is_new |= folder->handle != OS_CHANGE_NONE;
        }
        poll |= folder->handle == OS_CHANGE_NONE;
    }
    if (is_new)
        event_post(_db_check_file_lists_proc, watch->db);
    return poll;
}

// Waits for a change, and then until the writing has come to rest.
static os_change_wait_t _db_watch_wait(os_change_set_t *set, u32 timeout) {
    os_change_wait_t result = os_change_set_wait(set, timeout);
    if (result != OS_CHANGE_FIRED)
        return result;
    for (u32 waited = 0; waited < QUIET_MAX; waited += QUIET_INTERVAL) {
        os_change_wait_t next = os_change_set_wait(set, QUIET_INTERVAL);
        if (next == OS_CHANGE_STOPPED)
            return next;
        if (next == OS_CHANGE_TIMEOUT)
            break;
    }
    return result;
}

static void _db_filelist_monitor_thread_proc(void *param) {
    _db_watch_t *watch = static_cast<_db_watch_t *>(param);
    for (;;) {
        bool poll = _db_watch_add_folders(watch);
        debug_printf("wait for change notification %d\n", poll);
        if (_db_watch_wait(watch->set, poll ? POLL_INTERVAL : OS_INFINITE) == OS_CHANGE_STOPPED)
            return;
        event_post(_db_check_file_lists_proc, watch->db);
    }
}

static void _db_watch_add_folder(_db_watch_t *watch, const char *filename) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    const char *name = std::strrchr(filename, '\\');
    utf8_buf_copy_utf8(&path, filename, name ? static_cast<u32>(name - filename) : 0);
    if (path.length == 0 || path.data[path.length - 1] == ':')
        utf8_buf_cat_byte(&path, '\\');
    for (u32 i = 0; i < watch->folder_count; i++) {
        if (std::strcmp(watch->folders[i].path, path.data) == 0) {
            utf8_buf_kill(&path);
            return;
        }
    }
    watch->folders[watch->folder_count++] = {utf8_alloc_copy(path.data), OS_CHANGE_NONE};
    utf8_buf_kill(&path);
}

void _db_watch_start(db_t *db) {
    u32 count = 0;
    auto is_watched = [](const db_index_t *index) {
        return index->type == DB_INDEX_TYPE_FILE_LIST &&
               static_cast<const db_index_file_list_t *>(index)->monitor;
    };
    for (const db_index_t *index = db->index_first; index; index = index->next)
        count += is_watched(index);
    if (count == 0 || db->keeper_state)
        return;
    _db_watch_t *watch = static_cast<_db_watch_t *>(mem_alloc(sizeof *watch));
    watch->db = db;
    watch->set = os_change_set_create();
    watch->folders = static_cast<_db_watch_folder_t *>(mem_alloc(count * sizeof *watch->folders));
    watch->folder_count = 0;
    for (const db_index_t *index = db->index_first; index; index = index->next) {
        if (is_watched(index))
            _db_watch_add_folder(watch, static_cast<const db_index_file_list_t *>(index)->filename);
    }
    db->keeper_state = watch;
    watch->thread = os_thread_create(_db_filelist_monitor_thread_proc, watch);
}

void _db_watch_stop(db_t *db) {
    _db_watch_t *watch = static_cast<_db_watch_t *>(db->keeper_state);
    if (watch) {
        os_change_set_stop(watch->set);
        os_thread_release(watch->thread, OS_INFINITE);
        os_change_set_destroy(watch->set);
        for (u32 i = 0; i < watch->folder_count; i++)
            mem_free(watch->folders[i].path);
        mem_free(watch->folders);
        mem_free(watch);
        db->keeper_state = nullptr;
    }
    event_remove(_db_check_file_lists_proc, db);
    _db_check_forget(db);
}

} // namespace findwright
