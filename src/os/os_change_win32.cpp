#include "os/os_change.h"

#include "base/mem.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_win32.h"

namespace findwright {

struct os_change_set_t {
    os_event_t *stop;
    u32 count;
    HANDLE folders[OS_CHANGE_LIMIT]; // 0 when lost
    char *names[OS_CHANGE_LIMIT];
};

static_assert(OS_CHANGE_LIMIT + 1 == MAXIMUM_WAIT_OBJECTS);

os_change_set_t *os_change_set_create() {
    auto *set = static_cast<os_change_set_t *>(mem_alloc(sizeof(os_change_set_t)));
    set->count = 0;
    set->stop = os_event_create();
    return set;
}

void os_change_set_destroy(os_change_set_t *set) {
    for (u32 i = 0; i < set->count; i++) {
        if (set->folders[i])
            FindCloseChangeNotification(set->folders[i]);
        mem_free(set->names[i]);
    }
    os_event_destroy(set->stop);
    mem_free(set);
}

static HANDLE _os_change_open(const char *folder) {
    HANDLE handle = FindFirstChangeNotificationW(
        os_wide_t(folder).text(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE);
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

u32 os_change_set_add(os_change_set_t *set, const char *folder) {
    if (set->count == OS_CHANGE_LIMIT)
        return OS_CHANGE_NONE;
    HANDLE handle = _os_change_open(folder);
    if (!handle)
        return OS_CHANGE_NONE;
    set->folders[set->count] = handle;
    size_t size = std::strlen(folder) + 1;
    set->names[set->count] = static_cast<char *>(mem_alloc(size));
    std::memcpy(set->names[set->count], folder, size);
    return set->count++;
}

bool os_change_set_is_lost(const os_change_set_t *set, u32 handle) {
    return !set->folders[handle];
}

// A new handle, opened by name, in place of the one that fired. A handle that is kept goes with a folder that
// is moved, and holds on to one that is deleted: its name is taken until the last handle is closed. What
// changes while there is no handle is seen all the same, for this wait is about to tell of a change.
static void _os_change_rearm(os_change_set_t *set, u32 handle) {
    FindCloseChangeNotification(set->folders[handle]);
    set->folders[handle] = _os_change_open(set->names[handle]);
}

// All that fired, so that a busy folder does not keep the others waiting.
static void _os_change_drain(os_change_set_t *set) {
    for (u32 i = 0; i < set->count; i++)
        if (set->folders[i] && WaitForSingleObject(set->folders[i], 0) == WAIT_OBJECT_0)
            _os_change_rearm(set, i);
}

os_change_wait_t os_change_set_wait(os_change_set_t *set, u32 timeout) {
    HANDLE handles[OS_CHANGE_LIMIT + 1];
    DWORD count = 0;
    handles[count++] = set->stop;
    for (u32 i = 0; i < set->count; i++)
        if (set->folders[i])
            handles[count++] = set->folders[i];
    DWORD result = WaitForMultipleObjects(count, handles, FALSE, timeout);
    if (result == WAIT_OBJECT_0)
        return OS_CHANGE_STOPPED;
    if (result == WAIT_TIMEOUT)
        return OS_CHANGE_TIMEOUT;
    if (result == WAIT_FAILED)
        debug_fatal("failed to wait for changes %d", GetLastError());
    _os_change_drain(set);
    return OS_CHANGE_FIRED;
}

void os_change_set_stop(os_change_set_t *set) {
    os_event_set(set->stop);
}

} // namespace findwright
