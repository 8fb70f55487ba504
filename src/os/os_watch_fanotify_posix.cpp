// fanotify tells of a whole file system: by the handle of a folder, and a name in it. Folders are looked up
// by their handles, once for the events that are read together. What is found is the path as it is now:
// perhaps that of a rename which is told behind. So a folder that is renamed is told as added, too, when
// something was told of it under the new path: its receiver knew nothing there yet.
//
// The system puts events of one name together while they wait, and then their order is lost: one about a name
// may stand in front of a rename of that name though it happened behind. So names that are in a rename and in
// another event are looked at in the end.
#include "base/mem.h"
#include "base/utf8.h"
#include "os/os_folder.h"
#include "os/os_posix.h"
#include "os/os_watch_posix.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <limits.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace findwright {

static constexpr u32 INIT_FLAGS =
    FAN_CLASS_NOTIF | FAN_REPORT_DFID_NAME | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_QUEUE;
static constexpr u64 MASK =
    FAN_CREATE | FAN_DELETE | FAN_RENAME | FAN_MODIFY | FAN_CLOSE_WRITE | FAN_ATTRIB | FAN_ONDIR;
static constexpr size_t READ_SIZE = 256 * 1024;
static constexpr u32 FOLDER_SLOTS = 1024, NAME_SLOTS = 16384;

// A folder of an event, as it was looked up.
struct fan_folder_t {
    fan_folder_t *next;
    u32 root;
    u32 length;  // of the path
    char *path;  // inside form; 0: it is gone, outside the root or left out
    u32 size;    // of the handle
    u8 handle[]; // type and bytes
};

struct fan_folders_t {
    fan_folder_t *slots[FOLDER_SLOTS];
};

// A name that a rename told of.
struct fan_name_t {
    fan_name_t *next;
    u32 root;
    u32 slot;
    char *path;
};

struct os_watch_fan_t {
    fan_folders_t folders, old_folders; // of this reading and of the one before
    u16 names[NAME_SLOTS];              // events of this reading by the hash of their names
    fan_name_t *renamed;
    int *roots;        // descriptors of the roots while reading; -1
    char **real_paths; // what they are called then, without links
    alignas(fanotify_event_metadata) char buffer[READ_SIZE];
};

// --- Roots ------------------------------------------------------------------------------------------------

bool os_watch_fanotify_is_whole(const char *path) {
    struct statx info;
    return statx(AT_FDCWD, os_system_path_t(path).text(), AT_NO_AUTOMOUNT, STATX_BASIC_STATS, &info) == 0 &&
           info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT && info.stx_attributes & STATX_ATTR_MOUNT_ROOT;
}

static bool _os_watch_fan_get_system(int folder, u64 *number) {
    struct statfs info;
    if (fstatfs(folder, &info) != 0)
        return false;
    static_assert(sizeof(info.f_fsid) == sizeof(*number));
    std::memcpy(number, &info.f_fsid, sizeof(*number));
    return *number != 0;
}

union fan_handle_t {
    file_handle header;
    char bytes[sizeof(file_handle) + MAX_HANDLE_SZ];
};

// Whether folders can be looked up by handles.
static bool _os_watch_fan_can_open(int folder) {
    fan_handle_t handle;
    handle.header.handle_bytes = MAX_HANDLE_SZ;
    int mount;
    if (name_to_handle_at(folder, "", &handle.header, &mount, AT_EMPTY_PATH) != 0)
        return false;
    int again = open_by_handle_at(folder, &handle.header, O_PATH | O_CLOEXEC);
    if (again != -1)
        close(again);
    return again != -1;
}

static int _os_watch_fan_open_root(const os_watch_root_t *root) {
    // Only for a moment: a file system with an open folder cannot be taken out.
    return open(os_system_path_t(root->path).text(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool os_watch_fanotify_add(os_watch_t *watch, os_watch_root_t *root) {
    if (os_watch_is_per_folder)
        return false;
    if (watch->fanotify == -1)
        watch->fanotify = fanotify_init(INIT_FLAGS, O_RDONLY | O_CLOEXEC | O_LARGEFILE);
    int folder = watch->fanotify == -1 ? -1 : _os_watch_fan_open_root(root);
    if (folder == -1)
        return false;
    bool can = _os_watch_fan_get_system(folder, &root->file_system) && _os_watch_fan_can_open(folder) &&
               fanotify_mark(watch->fanotify, FAN_MARK_ADD | FAN_MARK_FILESYSTEM, MASK, folder, nullptr) == 0;
    close(folder);
    if (can && !watch->fan)
        watch->fan = new (mem_alloc(sizeof(os_watch_fan_t))) os_watch_fan_t();
    return can;
}

void os_watch_fanotify_remove(os_watch_t *watch, const os_watch_root_t *root) {
    for (u32 i = 0; i < watch->root_capacity; i++) {
        const os_watch_root_t *other = watch->roots[i];
        if (other && other != root && other->by_fanotify && other->file_system == root->file_system)
            return;
    }
    // A file system that is gone has taken its mark along.
    int folder = watch->fanotify == -1 ? -1 : _os_watch_fan_open_root(root);
    u64 number;
    if (folder != -1 && _os_watch_fan_get_system(folder, &number) && number == root->file_system)
        fanotify_mark(watch->fanotify, FAN_MARK_REMOVE | FAN_MARK_FILESYSTEM, MASK, folder, nullptr);
    if (folder != -1)
        close(folder);
}

static void _os_watch_fan_clear(fan_folders_t *folders) {
    for (fan_folder_t *&slot : folders->slots) {
        while (fan_folder_t *folder = slot) {
            slot = folder->next;
            if (folder->path)
                mem_free(folder->path);
            mem_free(folder);
        }
    }
}

void os_watch_fanotify_kill(os_watch_t *watch) {
    if (!watch->fan)
        return;
    _os_watch_fan_clear(&watch->fan->folders);
    _os_watch_fan_clear(&watch->fan->old_folders);
    mem_free(watch->fan);
    watch->fan = nullptr;
}

// --- Folders by handles -----------------------------------------------------------------------------------

static bool _os_watch_fan_read_link(int descriptor, char *out, size_t capacity) {
    char name[64];
    std::snprintf(name, sizeof name, "/proc/self/fd/%d", descriptor);
    ssize_t length = readlink(name, out, capacity - 1);
    out[length > 0 ? length : 0] = 0;
    return length > 0;
}

// The path of a folder below a root, in inside form. False when it is gone or elsewhere.
static bool _os_watch_fan_get_path(const os_watch_t *watch, u32 root, file_handle *handle, utf8_buf_t *out) {
    const os_watch_fan_t *fan = watch->fan;
    int folder =
        fan->roots[root] == -1 ? -1 : open_by_handle_at(fan->roots[root], handle, O_PATH | O_CLOEXEC);
    if (folder == -1)
        return false;
    char path[PATH_MAX];
    struct stat info, there;
    // What the system shows of one that was removed leads to no folder, or to another.
    bool is_there = fstat(folder, &info) == 0 && _os_watch_fan_read_link(folder, path, sizeof path) &&
                    lstat(path, &there) == 0 && there.st_dev == info.st_dev && there.st_ino == info.st_ino;
    close(folder);
    const char *real = fan->real_paths[root];
    size_t length = std::strlen(real);
    size_t skip = length == 1 ? 0 : length; // of `/` nothing
    if (!is_there || std::strncmp(path, real, skip) != 0 || (path[skip] != 0 && path[skip] != '/'))
        return false;
    os_path_from_system(path + skip, static_cast<u32>(std::strlen(path + skip)), out);
    if (out->length == 1) // the root `\` itself
        utf8_buf_empty(out);
    utf8_buf_t rest;
    utf8_buf_init(&rest);
    utf8_buf_copy_utf8(&rest, out->data, static_cast<u32>(out->length));
    utf8_buf_copy_string(out, watch->roots[root]->path);
    if (rest.length)
        os_watch_cat_name(out, rest.data + 1, static_cast<u32>(rest.length) - 1);
    utf8_buf_kill(&rest);
    return true;
}

static u32 _os_watch_fan_hash(const void *bytes, size_t size, u32 hash) {
    static constexpr u32 PRIME = 0x1000193;
    for (size_t i = 0; i < size; i++)
        hash = (hash ^ static_cast<const u8 *>(bytes)[i]) * PRIME;
    return hash ^ hash >> 15;
}

static fan_folder_t *_os_watch_fan_find(os_watch_t *watch, u32 root, file_handle *handle) {
    u32 size = handle->handle_bytes;
    u32 slot = _os_watch_fan_hash(handle->f_handle, size, root) % FOLDER_SLOTS;
    fan_folder_t **first = &watch->fan->folders.slots[slot];
    for (fan_folder_t *folder = *first; folder; folder = folder->next)
        if (folder->root == root && folder->size == size &&
            std::memcmp(folder->handle, handle->f_handle, size) == 0)
            return folder;
    utf8_buf_t path;
    utf8_buf_init(&path);
    const os_watch_root_t *owner = watch->roots[root];
    bool is_known = _os_watch_fan_get_path(watch, root, handle, &path) &&
                    os_watch_passes_below(watch->filter, watch->filter_param, path.data,
                                          static_cast<u32>(path.length), utf8_length(owner->path), true);
    auto *folder = static_cast<fan_folder_t *>(mem_alloc(sizeof(fan_folder_t) + size));
    folder->next = *first;
    folder->root = root;
    folder->length = static_cast<u32>(path.length);
    folder->path = is_known ? utf8_alloc_copy(path.data) : nullptr;
    folder->size = size;
    std::memcpy(folder->handle, handle->f_handle, size);
    *first = folder;
    utf8_buf_kill(&path);
    return folder;
}

// --- Events -----------------------------------------------------------------------------------------------

// A folder and a name in it, as an event has them.
struct fan_place_t {
    file_handle *handle; // 0: the event has none
    const char *name;
    u32 slot; // of the names' hash
};

struct fan_event_t {
    u64 mask;
    u64 file_system;
    fan_place_t place, new_place;
};

// Reads the records of an event; what they refer to is in the buffer.
static void _os_watch_fan_parse(char *bytes, fan_event_t *event) {
    fanotify_event_metadata head;
    std::memcpy(&head, bytes, sizeof head);
    *event = {};
    event->mask = head.mask;
    for (u32 at = head.metadata_len; at + sizeof(fanotify_event_info_fid) <= head.event_len;) {
        auto *info = reinterpret_cast<fanotify_event_info_fid *>(bytes + at);
        u32 type = info->hdr.info_type;
        bool is_new = type == FAN_EVENT_INFO_TYPE_NEW_DFID_NAME;
        if (is_new || type == FAN_EVENT_INFO_TYPE_OLD_DFID_NAME || type == FAN_EVENT_INFO_TYPE_DFID_NAME) {
            auto *handle = reinterpret_cast<file_handle *>(info->handle);
            const char *name = reinterpret_cast<const char *>(handle->f_handle) + handle->handle_bytes;
            std::memcpy(&event->file_system, &info->fsid, sizeof event->file_system);
            u32 hash = _os_watch_fan_hash(handle->f_handle, handle->handle_bytes, 0);
            fan_place_t *place = is_new ? &event->new_place : &event->place;
            place->handle = handle;
            place->name = name;
            place->slot = _os_watch_fan_hash(name, std::strlen(name), hash) % NAME_SLOTS;
        }
        if (info->hdr.len == 0)
            break;
        at += info->hdr.len;
    }
}

// The path of a place in a root; false where it has none.
static bool _os_watch_fan_get_place(os_watch_t *watch, u32 root, const fan_place_t *place, utf8_buf_t *path) {
    utf8_buf_empty(path);
    const fan_folder_t *folder = place->handle ? _os_watch_fan_find(watch, root, place->handle) : nullptr;
    if (!folder || !folder->path)
        return false;
    utf8_buf_copy_utf8(path, folder->path, folder->length);
    if (place->name[0] == '.' && !place->name[1]) // the folder itself
        return true;
    utf8_buf_t name;
    utf8_buf_init(&name);
    os_path_from_system(place->name, static_cast<u32>(std::strlen(place->name)), &name);
    os_watch_cat_name(path, name.data, static_cast<u32>(name.length));
    utf8_buf_kill(&name);
    return true;
}

static bool _os_watch_fan_has_below(const fan_folders_t *folders, u32 root, const utf8_buf_t *path) {
    auto length = static_cast<u32>(path->length);
    for (const fan_folder_t *folder : folders->slots)
        for (; folder; folder = folder->next)
            if (folder->root == root && folder->path && folder->length >= length &&
                std::memcmp(folder->path, path->data, length) == 0 &&
                (folder->path[length] == 0 || folder->path[length] == '\\'))
                return true;
    return false;
}

static void _os_watch_fan_note(os_watch_t *watch, u32 root, const fan_place_t *place,
                               const utf8_buf_t *path) {
    auto *name = static_cast<fan_name_t *>(mem_alloc(sizeof(fan_name_t)));
    *name = {watch->fan->renamed, root, place->slot, utf8_alloc_copy(path->data)};
    watch->fan->renamed = name;
}

static void _os_watch_fan_rename(os_watch_t *watch, os_watch_root_t *root, const fan_event_t *event) {
    bool is_folder = event->mask & FAN_ONDIR;
    utf8_buf_t path, new_path;
    utf8_buf_init(&path);
    utf8_buf_init(&new_path);
    bool has_old = _os_watch_fan_get_place(watch, root->handle, &event->place, &path);
    bool has_new = _os_watch_fan_get_place(watch, root->handle, &event->new_place, &new_path);
    bool is_known = has_old && (!is_folder || os_watch_passes(watch, &path));
    bool is_wanted = has_new && (!is_folder || os_watch_passes(watch, &new_path));
    bool is_early = is_known && is_folder && is_wanted &&
                    (_os_watch_fan_has_below(&watch->fan->folders, root->handle, &new_path) ||
                     _os_watch_fan_has_below(&watch->fan->old_folders, root->handle, &new_path));
    if (is_known && is_wanted && !is_early) {
        os_watch_tell(watch, OS_WATCH_RENAMED, root, &path, &new_path);
    } else { // what is left out is told, too: the folders that hold it have changed
        if (has_old)
            os_watch_tell(watch, OS_WATCH_REMOVED, root, &path);
        if (is_early) // what was told too early there was for nothing
            os_watch_tell(watch, OS_WATCH_REMOVED, root, &new_path);
        if (has_new)
            os_watch_tell(watch, OS_WATCH_ADDED, root, &new_path);
    }
    if (is_known)
        _os_watch_fan_note(watch, root->handle, &event->place, &path);
    if (is_wanted)
        _os_watch_fan_note(watch, root->handle, &event->new_place, &new_path);
    utf8_buf_kill(&new_path);
    utf8_buf_kill(&path);
}

static void _os_watch_fan_take_at(os_watch_t *watch, os_watch_root_t *root, const fan_event_t *event) {
    if (event->mask & FAN_RENAME) {
        _os_watch_fan_rename(watch, root, event);
        return;
    }
    utf8_buf_t path;
    utf8_buf_init(&path);
    if (_os_watch_fan_get_place(watch, root->handle, &event->place, &path)) {
        bool is_told = !(event->mask & FAN_ONDIR) || os_watch_passes(watch, &path);
        // What came and went, or went and came: whoever looks sees which.
        if (event->mask & FAN_DELETE)
            os_watch_tell(watch, OS_WATCH_REMOVED, root, &path);
        if (event->mask & FAN_CREATE)
            os_watch_tell(watch, OS_WATCH_ADDED, root, &path);
        if (!(event->mask & (FAN_DELETE | FAN_CREATE)) && is_told)
            os_watch_tell(watch, OS_WATCH_MODIFIED, root, &path);
    }
    utf8_buf_kill(&path);
}

static void _os_watch_fan_take(os_watch_t *watch, const fan_event_t *event) {
    for (u32 i = 0; i < watch->root_capacity; i++) {
        os_watch_root_t *root = watch->roots[i];
        if (!root || !root->by_fanotify)
            continue;
        if (event->mask & FAN_Q_OVERFLOW)
            os_watch_tell(watch, OS_WATCH_OVERFLOW, root, nullptr);
        else if (event->file_system == root->file_system)
            _os_watch_fan_take_at(watch, root, event);
    }
}

// --- Reading ----------------------------------------------------------------------------------------------

template<class Each>
static void _os_watch_fan_each(char *bytes, size_t size, Each each) {
    for (size_t at = 0; at + sizeof(fanotify_event_metadata) <= size;) {
        fanotify_event_metadata head;
        std::memcpy(&head, bytes + at, sizeof head);
        if (head.event_len < sizeof head || head.event_len > size - at ||
            head.vers != FANOTIFY_METADATA_VERSION)
            return;
        fan_event_t event;
        _os_watch_fan_parse(bytes + at, &event);
        each(&event);
        at += head.event_len;
    }
}

// Names that the order of the events says nothing sure about.
static void _os_watch_fan_look(os_watch_t *watch) {
    os_watch_fan_t *fan = watch->fan;
    utf8_buf_t path;
    utf8_buf_init(&path);
    while (fan_name_t *name = fan->renamed) {
        fan->renamed = name->next;
        if (fan->names[name->slot] > 1) {
            os_folder_entry_t entry;
            bool is_there = os_folder_get_link_entry(name->path, &entry);
            utf8_buf_copy_string(&path, name->path);
            bool is_gone = !is_there && os_error_is_not_found(os_get_last_error());
            if (is_gone || (is_there && entry.is_folder))
                os_watch_tell(watch, OS_WATCH_REMOVED, watch->roots[name->root], &path);
            if (is_there)
                os_watch_tell(watch, OS_WATCH_ADDED, watch->roots[name->root], &path);
        }
        mem_free(name->path);
        mem_free(name);
    }
    utf8_buf_kill(&path);
}

static void _os_watch_fan_open_roots(os_watch_t *watch) {
    os_watch_fan_t *fan = watch->fan;
    fan->roots = static_cast<int *>(mem_alloc(watch->root_capacity * sizeof(int)));
    fan->real_paths = static_cast<char **>(mem_alloc(watch->root_capacity * sizeof(char *)));
    for (u32 i = 0; i < watch->root_capacity; i++) {
        const os_watch_root_t *root = watch->roots[i];
        char path[PATH_MAX] = "";
        u64 number;
        fan->roots[i] = root && root->by_fanotify ? _os_watch_fan_open_root(root) : -1;
        if (fan->roots[i] != -1 &&
            (!_os_watch_fan_get_system(fan->roots[i], &number) || number != root->file_system ||
             !_os_watch_fan_read_link(fan->roots[i], path, sizeof path))) {
            close(fan->roots[i]);
            fan->roots[i] = -1;
        }
        fan->real_paths[i] = utf8_alloc_copy(path);
    }
}

static void _os_watch_fan_close_roots(os_watch_t *watch) {
    os_watch_fan_t *fan = watch->fan;
    for (u32 i = 0; i < watch->root_capacity; i++) {
        if (fan->roots[i] != -1)
            close(fan->roots[i]);
        mem_free(fan->real_paths[i]);
    }
    mem_free(fan->roots);
    mem_free(fan->real_paths);
}

void os_watch_fanotify_take(os_watch_t *watch) {
    os_watch_fan_t *fan = watch->fan;
    ssize_t size = fan ? read(watch->fanotify, fan->buffer, READ_SIZE) : -1;
    if (size <= 0)
        return;
    _os_watch_fan_open_roots(watch);
    std::swap(fan->folders, fan->old_folders);
    _os_watch_fan_clear(&fan->folders);
    std::memset(fan->names, 0, sizeof fan->names);
    auto count = [=](const fan_place_t *place) {
        if (place->handle && fan->names[place->slot] < UINT16_MAX)
            fan->names[place->slot]++;
    };
    _os_watch_fan_each(fan->buffer, static_cast<size_t>(size), [=](const fan_event_t *event) {
        count(&event->place);
        count(&event->new_place);
    });
    _os_watch_fan_each(fan->buffer, static_cast<size_t>(size), [=](const fan_event_t *event) {
        if (!watch->is_stopped)
            _os_watch_fan_take(watch, event);
    });
    _os_watch_fan_look(watch);
    _os_watch_fan_close_roots(watch);
}

} // namespace findwright
