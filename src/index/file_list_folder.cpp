#include "index/file_list_folder.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_folder.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 REASON_SIZE = 256;

// Folders that are still to be walked, the next one last.
struct _file_list_walk_t {
    file_list_writer_t *writer;
    u64 device;
    u32 root_length;
    utf8_buf_t path; // of the folder being listed, with a separator behind
    utf8_buf_t name;
    struct pending_t {
        char *path;
        db_file_info_t info;
        bool is_entered;
    } * pending;
    u32 count, capacity;
};

static void _file_list_push(_file_list_walk_t *walk, const char *path, const os_folder_entry_t *entry) {
    if (walk->count == walk->capacity) {
        u32 capacity = walk->capacity ? walk->capacity * 2 : 64;
        auto *pending =
            static_cast<_file_list_walk_t::pending_t *>(mem_alloc(capacity * sizeof *walk->pending));
        if (walk->pending) {
            std::memcpy(pending, walk->pending, walk->count * sizeof *pending);
            mem_free(walk->pending);
        }
        walk->pending = pending;
        walk->capacity = capacity;
    }
    walk->pending[walk->count++] = {
        utf8_alloc_copy(path),
        {VALUE_UNKNOWN, entry->date_modified, entry->date_created, entry->date_accessed, entry->attributes},
        entry->is_folder && !entry->is_link && entry->device == walk->device};
}

static bool _file_list_entry_proc(void *param, const os_folder_entry_t *entry) {
    _file_list_walk_t *walk = static_cast<_file_list_walk_t *>(param);
    utf8_buf_copy_utf8(&walk->name, walk->path.data, static_cast<u32>(walk->path.length));
    utf8_buf_cat_utf8(&walk->name, entry->name, entry->length);
    if (entry->is_folder) {
        _file_list_push(walk, walk->name.data, entry);
        return true;
    }
    db_file_info_t info = {entry->size, entry->date_modified, entry->date_created, entry->date_accessed,
                           entry->attributes};
    file_list_put(walk->writer, walk->name.data, static_cast<u32>(walk->name.length), &info);
    return true;
}

static bool _file_list_list(_file_list_walk_t *walk, const char *path) {
    utf8_buf_copy_string(&walk->path, path);
    utf8_buf_add_trailing_separator(&walk->path);
    u32 first = walk->count;
    bool listed = os_folder_list(path, walk->root_length, _file_list_entry_proc, walk);
    std::reverse(walk->pending + first, walk->pending + walk->count); // the first of them is walked first
    return listed;
}

static void _file_list_log(const char *path) {
    if (os_error_is_not_found(os_get_last_error()))
        return; // gone meanwhile
    char reason[REASON_SIZE];
    os_error_text(os_get_last_error(), reason, sizeof reason);
    debug_printf("cannot list %s: %s\n", path, reason);
}

static void _file_list_walk_proc(void *param, file_list_writer_t *writer) {
    const char *folder = static_cast<const char *>(param);
    _file_list_walk_t walk;
    walk.writer = writer;
    walk.pending = nullptr;
    walk.count = walk.capacity = 0;
    walk.root_length = utf8_length(folder);
    os_folder_entry_t root;
    walk.device = os_folder_get_entry(folder, &root) ? root.device : 0;
    utf8_buf_init(&walk.path);
    utf8_buf_init(&walk.name);
    if (!_file_list_list(&walk, folder))
        _file_list_log(folder);
    while (walk.count != 0) {
        _file_list_walk_t::pending_t next = walk.pending[--walk.count];
        file_list_put(writer, next.path, utf8_length(next.path), &next.info);
        if (next.is_entered && !_file_list_list(&walk, next.path))
            _file_list_log(next.path);
        mem_free(next.path);
    }
    if (walk.pending)
        mem_free(walk.pending);
    utf8_buf_kill(&walk.name);
    utf8_buf_kill(&walk.path);
}

bool file_list_write_path(const char *filename, const char *folder, bool relative,
                          file_list_written_t *written, utf8_buf_t *error) {
    // A folder that is not there must not replace a list by an empty one.
    auto stop = [](void *, const os_folder_entry_t *) { return false; };
    if (!os_folder_list(folder, OS_FOLDER_ROOT, stop, nullptr)) {
        char reason[REASON_SIZE];
        os_error_text(os_get_last_error(), reason, sizeof reason);
        os_path_to_system(folder, utf8_length(folder), error);
        utf8_buf_cat_printf(error, ": %s", reason);
        return false;
    }
    file_list_write_t options = {FILE_LIST_ZERO_IS_EMPTY, relative};
    return file_list_write(filename, &options, _file_list_walk_proc, const_cast<char *>(folder), written,
                           error);
}

} // namespace findwright
