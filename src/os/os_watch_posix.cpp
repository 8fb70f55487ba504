#include "os/os_watch_posix.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/os_folder.h"
#include "os/os_posix.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace findwright {

// Milliseconds for the other half of a rename to come: the system queues both in one call.
static constexpr int FROM_TIMEOUT = 20;

// --- What the files of the watch share --------------------------------------------------------------------

void os_watch_tell(os_watch_t *watch, os_watch_action_t action, const os_watch_root_t *root,
                   const utf8_buf_t *path, const utf8_buf_t *new_path) {
    if (!watch->proc)
        return;
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

bool os_watch_passes(const os_watch_t *watch, const utf8_buf_t *path) {
    return !watch->filter || watch->filter(watch->filter_param, path->data, static_cast<u32>(path->length));
}

void os_watch_cat_name(utf8_buf_t *path, const char *name, u32 length) {
    if (path->length == 0 || path->data[path->length - 1] != '\\')
        utf8_buf_cat_byte(path, '\\');
    utf8_buf_cat_utf8(path, name, length);
}

// --- Roots ------------------------------------------------------------------------------------------------

static os_watch_root_t *_os_watch_root_create(os_watch_t *watch, const char *path) {
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
    u32 length = utf8_length(path);
    while (length > 1 && path[length - 1] == '\\')
        length--;
    root->path = utf8_alloc_copy_length(path, length);
    utf8_buf_init(&root->last.from_name);
    utf8_buf_init(&root->last.to_name);
    watch->roots[handle] = root;
    return root;
}

static void _os_watch_root_leave(os_watch_t *watch, os_watch_root_t *root) {
    if (root->node)
        os_watch_drop(watch, root->node);
    root->node = nullptr;
}

static void _os_watch_root_destroy(os_watch_t *watch, os_watch_root_t *root) {
    _os_watch_root_leave(watch, root);
    watch->roots[root->handle] = nullptr;
    if (root->by_fanotify)
        os_watch_fanotify_remove(watch, root);
    utf8_buf_kill(&root->last.from_name);
    utf8_buf_kill(&root->last.to_name);
    mem_free(root->path);
    mem_free(root);
}

void os_watch_end_root(os_watch_t *watch, os_watch_root_t *root, os_watch_action_t why) {
    _os_watch_root_leave(watch, root);
    os_watch_tell(watch, why, root, nullptr);
    _os_watch_root_destroy(watch, root);
}

static bool _os_watch_root_set_device(os_watch_root_t *root) {
    os_folder_entry_t entry;
    if (!os_folder_get_entry(root->path, &entry))
        return false;
    root->device = entry.device;
    errno = ENOTDIR;
    return entry.is_folder;
}

bool os_watch_root_enter(os_watch_t *watch, os_watch_root_t *root) {
    if (!_os_watch_root_set_device(root))
        return false;
    return root->by_fanotify ? os_watch_enter_end(watch, root) : os_watch_enter_root(watch, root);
}

// Gives the root to fanotify.
static bool _os_watch_root_switch(os_watch_t *watch, os_watch_root_t *root) {
    _os_watch_root_leave(watch, root);
    root->by_fanotify = os_watch_fanotify_add(watch, root);
    if (root->by_fanotify && os_watch_enter_end(watch, root))
        return true;
    if (root->by_fanotify)
        os_watch_fanotify_remove(watch, root);
    root->by_fanotify = false;
    return false;
}

void os_watch_limit_root(os_watch_t *watch, os_watch_root_t *root) {
    if (!root->by_fanotify && _os_watch_root_switch(watch, root))
        os_watch_tell(watch, OS_WATCH_OVERFLOW, root, nullptr);
    else
        os_watch_end_root(watch, root, OS_WATCH_LIMIT);
}

static bool _os_watch_root_begin(os_watch_t *watch, os_watch_root_t *root) {
    if (os_watch_fanotify_is_whole(root->path) && _os_watch_root_set_device(root) &&
        _os_watch_root_switch(watch, root))
        return true;
    if (os_watch_root_enter(watch, root))
        return true;
    int error = errno;
    bool is_done = os_watch_error_is_limit(static_cast<u32>(error)) && _os_watch_root_switch(watch, root);
    errno = error;
    return is_done;
}

u32 os_watch_add(os_watch_t *watch, const char *path, u32) {
    if (watch->inotify == -1)
        watch->inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (watch->inotify == -1)
        return OS_WATCH_NONE;
    os_watch_root_t *root = _os_watch_root_create(watch, path);
    if (_os_watch_root_begin(watch, root))
        return root->handle;
    int error = errno;
    _os_watch_root_destroy(watch, root);
    errno = error;
    return OS_WATCH_NONE;
}

bool os_watch_error_is_limit(u32 error) {
    return error == ENOSPC || error == ENOMEM || error == EMFILE;
}

void os_watch_remove(os_watch_t *watch, u32 root) {
    _os_watch_root_destroy(watch, watch->roots[root]);
}

u32 os_watch_get_watch_count(const os_watch_t *watch, u32 root) {
    return watch->roots[root]->by_fanotify ? 0 : watch->roots[root]->count;
}

void os_watch_set_limit(os_watch_t *watch, u32 count) {
    watch->limit = count;
}

// --- Watch ------------------------------------------------------------------------------------------------

os_watch_t *os_watch_create(os_watch_filter_t *filter, void *param) {
    auto *watch = new (mem_alloc(sizeof(os_watch_t))) os_watch_t();
    watch->filter = filter;
    watch->filter_param = param;
    watch->inotify = watch->fanotify = -1;
    watch->stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (watch->stop == -1)
        debug_fatal("failed to create event %d", errno);
    ref_map_init(&watch->by_watch);
    return watch;
}

void os_watch_destroy(os_watch_t *watch) {
    // First, so that nothing is asked of the system for the watches one by one.
    for (int descriptor : {watch->inotify, watch->fanotify, watch->stop})
        if (descriptor != -1)
            close(descriptor);
    watch->inotify = watch->fanotify = -1;
    for (u32 i = 0; i < watch->root_capacity; i++)
        if (watch->roots[i])
            _os_watch_root_destroy(watch, watch->roots[i]);
    os_watch_fanotify_kill(watch);
    ref_map_kill(&watch->by_watch);
    for (void *block : {static_cast<void *>(watch->roots), static_cast<void *>(watch->names),
                        static_cast<void *>(watch->input)})
        if (block)
            mem_free(block);
    mem_free(watch);
}

void os_watch_stop(os_watch_t *watch) {
    watch->is_stopped = true;
    eventfd_write(watch->stop, 1);
}

void os_watch_wake(os_watch_t *watch) {
    eventfd_write(watch->stop, 1);
}

static void _os_watch_take_ready(os_watch_t *watch, bool inotify_ready, bool fanotify_ready) {
    if (inotify_ready) {
        os_watch_drain(watch);
        os_watch_take(watch);
    } else if (watch->from_first) {
        watch->round++;
        os_watch_flush_old(watch);
    }
    if (fanotify_ready)
        os_watch_fanotify_take(watch);
}

os_watch_wait_t os_watch_wait(os_watch_t *watch, u32 timeout, os_watch_proc_t *proc, void *param) {
    u64 deadline = os_deadline(timeout);
    watch->proc = proc;
    watch->proc_param = param;
    watch->told = false;
    bool is_over = false, is_woken = false;
    while (!watch->told && !watch->is_stopped && !is_over) {
        int left = os_deadline_left(deadline);
        if (watch->from_first)
            left = left == -1 ? FROM_TIMEOUT : std::min(left, FROM_TIMEOUT);
        bool has_input = watch->input_length || watch->overflow; // read while a root was added
        // poll passes over a descriptor that is negative.
        pollfd descriptors[] = {
            {watch->stop, POLLIN, 0}, {watch->inotify, POLLIN, 0}, {watch->fanotify, POLLIN, 0}};
        int ready = poll(descriptors, std::size(descriptors), has_input ? 0 : left);
        if (ready == -1 && errno != EINTR && errno != EAGAIN)
            debug_fatal("failed to wait for changes %d", errno);
        if (ready == -1)
            continue;
        is_over = ready == 0 && os_deadline_left(deadline) == 0;
        eventfd_t count;
        if (descriptors[0].revents && !watch->is_stopped)
            is_over = is_woken = eventfd_read(watch->stop, &count) == 0;
        else if (!descriptors[0].revents)
            _os_watch_take_ready(watch, has_input || descriptors[1].revents, descriptors[2].revents);
    }
    watch->proc = nullptr;
    if (watch->told)
        return OS_WATCH_FIRED;
    if (watch->is_stopped)
        return OS_WATCH_STOPPED;
    return is_woken ? OS_WATCH_WOKEN : OS_WATCH_TIMEOUT;
}

} // namespace findwright
