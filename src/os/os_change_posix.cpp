#include "os/os_change.h"

#include "base/mem.h"
#include "os/debug.h"
#include "os/os_posix.h"

#include <cerrno>
#include <iterator>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace findwright {

static constexpr int WATCH_NONE = -1;

struct os_change_set_t {
    int inotify; // -1 where the user has no more of them: then every folder is refused
    int stop;    // eventfd; never read, so that a stopped set stays so
    u32 count;
    int watches[OS_CHANGE_LIMIT]; // WATCH_NONE when lost; two handles of one folder share one
};

static constexpr u32 EVENTS_CHANGED =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB;
static constexpr u32 EVENTS_LOST = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

os_change_set_t *os_change_set_create() {
    auto *set = static_cast<os_change_set_t *>(mem_alloc(sizeof(os_change_set_t)));
    set->count = 0;
    set->stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (set->stop == -1)
        debug_fatal("failed to create event %d", errno);
    set->inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    return set;
}

void os_change_set_destroy(os_change_set_t *set) {
    if (set->inotify != -1)
        close(set->inotify);
    close(set->stop);
    mem_free(set);
}

u32 os_change_set_add(os_change_set_t *set, const char *folder) {
    if (set->inotify == -1 || set->count == OS_CHANGE_LIMIT)
        return OS_CHANGE_NONE;
    constexpr u32 MASK = EVENTS_CHANGED | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    int watch = inotify_add_watch(set->inotify, os_system_path_t(folder).text(), MASK);
    if (watch == -1)
        return OS_CHANGE_NONE;
    set->watches[set->count] = watch;
    return set->count++;
}

bool os_change_set_is_lost(const os_change_set_t *set, u32 handle) {
    return set->watches[handle] == WATCH_NONE;
}

static void _os_change_lose(os_change_set_t *set, int watch) {
    for (u32 i = 0; i < set->count; i++)
        if (set->watches[i] == watch)
            set->watches[i] = WATCH_NONE;
}

static void _os_change_take(os_change_set_t *set, const inotify_event *event) {
    if (!(event->mask & EVENTS_LOST))
        return;
    // A folder that was moved would still be watched, under a name that nobody gave.
    if (event->mask & IN_MOVE_SELF)
        inotify_rm_watch(set->inotify, event->wd);
    _os_change_lose(set, event->wd);
}

// Reads all that is queued, so that one wait tells of a burst. False when there was nothing but word of
// watches that were lost before.
static bool _os_change_drain(os_change_set_t *set) {
    alignas(inotify_event) char buffer[16 * 1024];
    bool changed = false;
    for (;;) {
        ssize_t taken = read(set->inotify, buffer, sizeof(buffer));
        if (taken == -1 && errno == EINTR)
            continue;
        if (taken <= 0)
            return changed;
        for (ssize_t at = 0; at < taken;) {
            auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            // IN_IGNORED comes behind what made the watch be removed, perhaps in the next read.
            changed |= event->mask != IN_IGNORED;
            _os_change_take(set, event);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

os_change_wait_t os_change_set_wait(os_change_set_t *set, u32 timeout) {
    u64 deadline = os_deadline(timeout);
    for (;;) {
        // poll passes over a descriptor that is negative.
        pollfd descriptors[] = {{set->stop, POLLIN, 0}, {set->inotify, POLLIN, 0}};
        int ready = poll(descriptors, std::size(descriptors), os_deadline_left(deadline));
        if (ready == -1 && errno != EINTR && errno != EAGAIN)
            debug_fatal("failed to wait for changes %d", errno);
        if (ready == 0)
            return OS_CHANGE_TIMEOUT;
        if (ready > 0 && descriptors[0].revents)
            return OS_CHANGE_STOPPED;
        if (ready > 0 && _os_change_drain(set))
            return OS_CHANGE_FIRED;
    }
}

void os_change_set_stop(os_change_set_t *set) {
    eventfd_write(set->stop, 1);
}

} // namespace findwright
