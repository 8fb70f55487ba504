// One overlapped read per root, all of them on one completion port: so there can be any number of roots, and
// the stop is one more message to it. What happens between two reads of a root is kept by the system.
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_folder.h"
#include "os/os_watch_internal.h"
#include "os/os_win32.h"

#include <algorithm>
#include <atomic>

namespace findwright {

static constexpr DWORD CHANGE_FILTER = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                       FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                                       FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;

// What network redirectors take, which refuse a buffer that is too big for them.
static constexpr u32 BUFFER_DEFAULT = 65536, BUFFER_LARGE = 65536, BUFFER_SMALL = 4096;

struct os_watch_root_t {
    OVERLAPPED overlapped; // first: the port gives it back
    u32 handle;
    HANDLE folder;
    char *path;
    u32 length;
    u32 buffer_size;
    char *buffer; // the system writes into it while a read is out
    char *taken;  // what is told of meanwhile
    bool is_pending;
    bool is_over;        // to be freed when its read has ended
    utf8_buf_t old_name; // full path of a rename whose other half is to come; empty: none
};

struct os_watch_t {
    os_watch_filter_t *filter;
    void *filter_param;
    HANDLE port;
    std::atomic<bool> is_stopped;
    os_watch_root_t **roots; // by handle; 0 for one that is free
    u32 root_capacity;
    os_watch_proc_t *proc;
    void *proc_param;
    bool told;
};

// --- Telling ----------------------------------------------------------------------------------------------

static void _os_watch_tell(os_watch_t *watch, const os_watch_root_t *root, os_watch_action_t action,
                           const utf8_buf_t *path = nullptr, const utf8_buf_t *new_path = nullptr) {
    os_watch_event_t event = {action, root->handle, "", 0, "", 0};
    if (path) {
        event.path = path->data;
        event.length = static_cast<u32>(path->length);
    }
    if (new_path) {
        event.new_path = new_path->data;
        event.new_length = static_cast<u32>(new_path->length);
    }
    watch->told = true;
    watch->proc(watch->proc_param, &event);
}

// Whether the folders above it are followed.
static bool _os_watch_passes(const os_watch_t *watch, const os_watch_root_t *root, const utf8_buf_t *path) {
    return os_watch_passes_below(watch->filter, watch->filter_param, path->data,
                                 static_cast<u32>(path->length), root->length, false);
}

// A folder that is left out itself.
static bool _os_watch_is_out(const os_watch_t *watch, const utf8_buf_t *path) {
    if (!watch->filter || watch->filter(watch->filter_param, path->data, static_cast<u32>(path->length)))
        return false;
    os_folder_entry_t entry;
    return os_folder_get_link_entry(path->data, &entry) && entry.is_folder;
}

static bool _os_watch_is_wanted(const os_watch_t *watch, const os_watch_root_t *root,
                                const utf8_buf_t *path) {
    return _os_watch_passes(watch, root, path) && !_os_watch_is_out(watch, path);
}

static void _os_watch_take_rename(os_watch_t *watch, os_watch_root_t *root, const utf8_buf_t *path) {
    bool is_known = root->old_name.length && _os_watch_passes(watch, root, &root->old_name);
    bool is_wanted = _os_watch_is_wanted(watch, root, path);
    if (is_known && is_wanted)
        _os_watch_tell(watch, root, OS_WATCH_RENAMED, &root->old_name, path);
    else if (is_known)
        _os_watch_tell(watch, root, OS_WATCH_REMOVED, &root->old_name);
    else if (is_wanted)
        _os_watch_tell(watch, root, OS_WATCH_ADDED, path);
    utf8_buf_empty(&root->old_name);
}

static void _os_watch_take_one(os_watch_t *watch, os_watch_root_t *root, DWORD action,
                               const utf8_buf_t *path) {
    switch (action) {
    case FILE_ACTION_ADDED:
        if (_os_watch_is_wanted(watch, root, path))
            _os_watch_tell(watch, root, OS_WATCH_ADDED, path);
        break;
    case FILE_ACTION_REMOVED:
        if (_os_watch_passes(watch, root, path))
            _os_watch_tell(watch, root, OS_WATCH_REMOVED, path);
        break;
    case FILE_ACTION_MODIFIED:
        if (_os_watch_passes(watch, root, path))
            _os_watch_tell(watch, root, OS_WATCH_MODIFIED, path);
        break;
    case FILE_ACTION_RENAMED_OLD_NAME:
        utf8_buf_copy_utf8(&root->old_name, path->data, static_cast<u32>(path->length));
        break;
    case FILE_ACTION_RENAMED_NEW_NAME: _os_watch_take_rename(watch, root, path); break;
    }
}

// Who opens a file by its short name has changes of it told under that.
static void _os_watch_make_long_name(utf8_buf_t *path) {
    if (!std::strchr(path->data, '~') || !os_optional.GetLongPathNameW)
        return;
    wchar_buf_t name;
    wchar_buf_init(&name);
    os_make_long_path(&name, path->data, "");
    static constexpr DWORD UNITS = 32768;
    auto *text = static_cast<wchar_t *>(mem_alloc(UNITS * sizeof(wchar_t)));
    DWORD length = os_optional.GetLongPathNameW(reinterpret_cast<const wchar_t *>(name.data), text, UNITS);
    static constexpr DWORD PREFIX = 4; // `\\?\`
    if (length > PREFIX && length < UNITS && wcsncmp(text, L"\\\\?\\", PREFIX) == 0 &&
        text[PREFIX + 1] == L':')
        utf8_buf_copy_wchar(path, reinterpret_cast<const char16_t *>(text + PREFIX), length - PREFIX);
    mem_free(text);
    wchar_buf_kill(&name);
}

static void _os_watch_take(os_watch_t *watch, os_watch_root_t *root, u32 size) {
    utf8_buf_t path, name;
    utf8_buf_init(&path);
    utf8_buf_init(&name);
    constexpr u32 HEAD = offsetof(FILE_NOTIFY_INFORMATION, FileName);
    for (u32 at = 0; at + HEAD <= size && !watch->is_stopped && !root->is_over;) {
        auto *info = reinterpret_cast<const FILE_NOTIFY_INFORMATION *>(root->taken + at);
        if (info->FileNameLength > size - at - HEAD)
            break;
        utf8_buf_copy_wchar(&name, reinterpret_cast<const char16_t *>(info->FileName),
                            info->FileNameLength / sizeof(wchar_t));
        utf8_buf_path_cat_filename(&path, root->path, root->length, name.data, static_cast<u32>(name.length));
        if (info->Action != FILE_ACTION_RENAMED_OLD_NAME && info->Action != FILE_ACTION_REMOVED)
            _os_watch_make_long_name(&path);
        _os_watch_take_one(watch, root, info->Action, &path);
        if (!info->NextEntryOffset)
            break;
        at += info->NextEntryOffset;
    }
    utf8_buf_kill(&name);
    utf8_buf_kill(&path);
}

// --- Roots ------------------------------------------------------------------------------------------------

static bool _os_watch_shrink(os_watch_root_t *root) {
    if (root->buffer_size > BUFFER_LARGE)
        root->buffer_size = BUFFER_LARGE;
    else if (root->buffer_size > BUFFER_SMALL)
        root->buffer_size = BUFFER_SMALL;
    else
        return false;
    return true;
}

static bool _os_watch_read(os_watch_root_t *root) {
    do {
        root->overlapped = {};
        root->is_pending =
            os_optional.ReadDirectoryChangesW &&
            os_optional.ReadDirectoryChangesW(root->folder, root->buffer, root->buffer_size, TRUE,
                                              CHANGE_FILTER, nullptr, &root->overlapped, nullptr);
    } while (!root->is_pending && GetLastError() == ERROR_INVALID_PARAMETER && _os_watch_shrink(root));
    return root->is_pending;
}

static void _os_watch_root_free(os_watch_t *watch, os_watch_root_t *root) {
    watch->roots[root->handle] = nullptr;
    if (root->folder != INVALID_HANDLE_VALUE)
        CloseHandle(root->folder);
    utf8_buf_kill(&root->old_name);
    mem_free(root->buffer);
    mem_free(root->taken);
    mem_free(root->path);
    mem_free(root);
}

// The system may write until the read has ended, which the port tells.
static void _os_watch_root_end(os_watch_t *watch, os_watch_root_t *root) {
    root->is_over = true;
    if (!root->is_pending) {
        _os_watch_root_free(watch, root);
        return;
    }
    CloseHandle(root->folder); // ends the read, whichever thread began it
    root->folder = INVALID_HANDLE_VALUE;
}

static os_watch_root_t *_os_watch_root_create(os_watch_t *watch, const char *path, u32 buffer_size) {
    u32 handle = 0;
    while (handle < watch->root_capacity && watch->roots[handle])
        handle++;
    if (handle == watch->root_capacity) {
        u32 capacity = watch->root_capacity ? watch->root_capacity * 2 : 8;
        auto **roots = static_cast<os_watch_root_t **>(mem_alloc(capacity * sizeof(os_watch_root_t *)));
        std::fill_n(std::copy_n(watch->roots, watch->root_capacity, roots), capacity - watch->root_capacity,
                    nullptr);
        if (watch->roots)
            mem_free(watch->roots);
        watch->roots = roots;
        watch->root_capacity = capacity;
    }
    auto *root = new (mem_alloc(sizeof(os_watch_root_t))) os_watch_root_t();
    root->handle = handle;
    root->length = utf8_length(path);
    while (root->length > 3 && path[root->length - 1] == '\\') // a drive's root keeps its own
        root->length--;
    root->path = utf8_alloc_copy_length(path, root->length);
    root->buffer_size = buffer_size ? (buffer_size + 3) & ~3u : BUFFER_DEFAULT;
    root->buffer = static_cast<char *>(mem_alloc(root->buffer_size));
    root->taken = static_cast<char *>(mem_alloc(root->buffer_size));
    utf8_buf_init(&root->old_name);
    watch->roots[handle] = root;
    return root;
}

u32 os_watch_add(os_watch_t *watch, const char *path, u32 buffer_size) {
    os_watch_root_t *root = _os_watch_root_create(watch, path, buffer_size);
    wchar_buf_t name;
    wchar_buf_init(&name);
    os_make_long_path(&name, root->path, "");
    root->folder = CreateFileW(reinterpret_cast<const wchar_t *>(name.data), FILE_LIST_DIRECTORY,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                               FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
    bool is_added = root->folder != INVALID_HANDLE_VALUE &&
                    CreateIoCompletionPort(root->folder, watch->port, 1, 0) && _os_watch_read(root);
    DWORD error = GetLastError();
    wchar_buf_kill(&name);
    u32 handle = root->handle;
    if (!is_added) {
        _os_watch_root_free(watch, root);
        handle = OS_WATCH_NONE;
    }
    SetLastError(error);
    return handle;
}

bool os_watch_error_is_limit(u32) {
    return false;
}

void os_watch_remove(os_watch_t *watch, u32 root) {
    _os_watch_root_end(watch, watch->roots[root]);
}

u32 os_watch_get_watch_count(const os_watch_t *, u32) {
    return 0;
}

void os_watch_set_limit(os_watch_t *, u32) {}

// --- Watch ------------------------------------------------------------------------------------------------

os_watch_t *os_watch_create(os_watch_filter_t *filter, void *param) {
    auto *watch = new (mem_alloc(sizeof(os_watch_t))) os_watch_t();
    watch->filter = filter;
    watch->filter_param = param;
    watch->port = CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1);
    if (!watch->port)
        debug_fatal("failed to create event %d", GetLastError());
    return watch;
}

// One message of the port; without a root it is a stop or a wake. False when none came. `error`: of the
// root's read.
static bool _os_watch_get(os_watch_t *watch, DWORD timeout, os_watch_root_t **root, DWORD *size,
                          DWORD *error) {
    ULONG_PTR key = 0;
    OVERLAPPED *overlapped = nullptr;
    *size = 0;
    BOOL is_done = GetQueuedCompletionStatus(watch->port, size, &key, &overlapped, timeout);
    *error = is_done ? 0 : GetLastError();
    *root = reinterpret_cast<os_watch_root_t *>(overlapped);
    if (*root)
        (*root)->is_pending = false;
    return is_done || overlapped;
}

void os_watch_destroy(os_watch_t *watch) {
    u32 count = 0;
    for (u32 i = 0; i < watch->root_capacity; i++) {
        os_watch_root_t *root = watch->roots[i];
        if (root && !root->is_over)
            _os_watch_root_end(watch, root);
        count += watch->roots[i] != nullptr;
    }
    static constexpr DWORD END_TIMEOUT = 5000; // a server that does not answer keeps its buffers
    os_watch_root_t *root;
    DWORD size, error;
    while (count && _os_watch_get(watch, END_TIMEOUT, &root, &size, &error)) {
        if (root) {
            _os_watch_root_free(watch, root);
            count--;
        }
    }
    CloseHandle(watch->port);
    if (watch->roots)
        mem_free(watch->roots);
    mem_free(watch);
}

void os_watch_stop(os_watch_t *watch) {
    watch->is_stopped = true;
    PostQueuedCompletionStatus(watch->port, 0, 0, nullptr);
}

void os_watch_wake(os_watch_t *watch) {
    PostQueuedCompletionStatus(watch->port, 0, 0, nullptr);
}

// A read has ended: the next one begins before the events of this one are told.
static void _os_watch_take_read(os_watch_t *watch, os_watch_root_t *root, DWORD size, DWORD error) {
    if (root->is_over) {
        _os_watch_root_free(watch, root);
        return;
    }
    bool is_full = (error == 0 && size == 0) || error == ERROR_NOTIFY_ENUM_DIR;
    bool is_refused = error == ERROR_INVALID_PARAMETER && _os_watch_shrink(root);
    if (error == 0)
        std::swap(root->buffer, root->taken);
    if ((error == 0 || is_full || is_refused) && _os_watch_read(root)) {
        if (is_full) {
            utf8_buf_empty(&root->old_name);
            _os_watch_tell(watch, root, OS_WATCH_OVERFLOW);
        } else if (error == 0) {
            _os_watch_take(watch, root, size);
        }
        return;
    }
    if (error == 0 && !is_full)
        _os_watch_take(watch, root, size);
    _os_watch_tell(watch, root, OS_WATCH_LOST);
    _os_watch_root_end(watch, root);
}

os_watch_wait_t os_watch_wait(os_watch_t *watch, u32 timeout, os_watch_proc_t *proc, void *param) {
    watch->proc = proc;
    watch->proc_param = param;
    watch->told = false;
    u32 start = GetTickCount();
    DWORD left = timeout;
    while (!watch->told && !watch->is_stopped) {
        os_watch_root_t *root;
        DWORD size, error;
        if (!_os_watch_get(watch, left, &root, &size, &error))
            return OS_WATCH_TIMEOUT;
        if (root)
            _os_watch_take_read(watch, root, size, error);
        else if (!watch->is_stopped)
            return OS_WATCH_WOKEN;
        u32 passed = GetTickCount() - start;
        if (timeout != OS_INFINITE)
            left = passed < timeout ? timeout - passed : 0;
    }
    return watch->told ? OS_WATCH_FIRED : OS_WATCH_STOPPED;
}

} // namespace findwright
