#include "base/mem.h"
#include "os/os_folder.h"
#include "os/os_posix.h"
#include "os/os_watch_posix.h"

#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

namespace findwright {

static constexpr size_t READ_SIZE = 64 * 1024;
static constexpr size_t INPUT_MAX = 64 * 1024 * 1024; // above that a scan is cheaper
static constexpr size_t INPUT_KEEP = 1024 * 1024;

// --- Reading ----------------------------------------------------------------------------------------------

static void _os_watch_input_grow(os_watch_t *watch) {
    size_t size = watch->input_size ? watch->input_size * 2 : READ_SIZE * 2;
    auto *input = static_cast<char *>(mem_alloc(size));
    if (watch->input) {
        std::memcpy(input, watch->input, watch->input_length);
        mem_free(watch->input);
    }
    watch->input = input;
    watch->input_size = size;
}

void os_watch_drain(os_watch_t *watch) {
    while (!watch->overflow && watch->inotify != -1) {
        if (watch->input_size - watch->input_length < READ_SIZE)
            _os_watch_input_grow(watch);
        ssize_t taken = read(watch->inotify, watch->input + watch->input_length, READ_SIZE);
        if (taken == -1 && errno == EINTR)
            continue;
        if (taken <= 0)
            return;
        watch->input_length += static_cast<size_t>(taken);
        watch->overflow = watch->input_length > INPUT_MAX;
    }
}

static void _os_watch_input_clear(os_watch_t *watch) {
    watch->input_length = watch->input_at = 0;
    std::memset(watch->modified, 0, sizeof watch->modified);
    if (watch->input_size > INPUT_KEEP) {
        mem_free(watch->input);
        watch->input = nullptr;
        watch->input_size = 0;
    }
}

// --- What left its place ----------------------------------------------------------------------------------

static void _os_watch_cat_child(const os_watch_node_t *parent, const char *name, u32 length,
                                utf8_buf_t *path) {
    os_watch_get_path(parent, path);
    os_watch_cat_name(path, name, length);
}

static void _os_watch_from_unlink(os_watch_t *watch, os_watch_from_t *from) {
    os_watch_from_t *previous = nullptr, **place = &watch->from_first;
    for (; *place != from; place = &(*place)->next)
        previous = *place;
    *place = from->next;
    if (watch->from_last == from)
        watch->from_last = previous;
}

// It came to no place: it is removed.
static void _os_watch_flush(os_watch_t *watch, os_watch_from_t *from) {
    _os_watch_from_unlink(watch, from);
    utf8_buf_t path;
    utf8_buf_init(&path);
    _os_watch_cat_child(from->parent, from->name, from->length, &path);
    os_watch_tell(watch, OS_WATCH_REMOVED, from->parent->root, &path);
    utf8_buf_kill(&path);
    if (os_watch_node_t *node = os_watch_find(watch, from->parent, from->name, from->length))
        os_watch_drop(watch, node);
    mem_free(from);
}

// The first that a test holds for is flushed until there is none: each may take others along.
template<class Test>
static void _os_watch_flush_those(os_watch_t *watch, Test test) {
    for (os_watch_from_t *from = watch->from_first; from;) {
        bool is_one = test(from);
        if (is_one)
            _os_watch_flush(watch, from);
        from = is_one ? watch->from_first : from->next;
    }
}

void os_watch_flush_old(os_watch_t *watch) {
    _os_watch_flush_those(watch, [=](os_watch_from_t *from) { return from->round != watch->round; });
}

void os_watch_flush_below(os_watch_t *watch, const os_watch_node_t *folder) {
    _os_watch_flush_those(
        watch, [=](os_watch_from_t *from) { return os_watch_node_is_below(from->parent, folder); });
}

static void _os_watch_flush_name(os_watch_t *watch, const os_watch_node_t *parent, const utf8_buf_t *name) {
    _os_watch_flush_those(watch, [=](os_watch_from_t *from) {
        return from->parent == parent && from->length == static_cast<u32>(name->length) &&
               std::memcmp(from->name, name->data, from->length) == 0;
    });
}

static void _os_watch_from_add(os_watch_t *watch, os_watch_node_t *parent, const utf8_buf_t *name, u32 cookie,
                               bool is_folder) {
    auto length = static_cast<u32>(name->length);
    auto *from = static_cast<os_watch_from_t *>(mem_alloc(sizeof(os_watch_from_t) + length + 1));
    from->next = nullptr;
    from->parent = parent;
    from->cookie = cookie;
    from->is_folder = is_folder;
    from->round = watch->round;
    from->length = length;
    std::memcpy(from->name, name->data, length + 1);
    (watch->from_last ? watch->from_last->next : watch->from_first) = from;
    watch->from_last = from;
}

static os_watch_from_t *_os_watch_from_find(const os_watch_t *watch, const os_watch_root_t *root,
                                            u32 cookie) {
    os_watch_from_t *from = watch->from_first;
    while (from && (from->cookie != cookie || from->parent->root != root))
        from = from->next;
    return from;
}

// --- Events -----------------------------------------------------------------------------------------------

// One event, at one of the nodes of its watch.
struct take_t {
    os_watch_t *watch;
    os_watch_node_t *node;
    os_watch_root_t *root;
    u32 mask, cookie;
    bool is_folder;
    utf8_buf_t name;
    utf8_buf_t path; // full
};

static void _os_watch_tell_found(os_watch_t *watch, os_watch_root_t *root, os_watch_found_t *found,
                                 bool is_whole) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (u32 i = 0; i < found->count; i++) {
        os_watch_get_path(found->nodes[i], &path);
        os_watch_tell(watch, OS_WATCH_ADDED, root, &path);
    }
    utf8_buf_kill(&path);
    if (found->nodes)
        mem_free(found->nodes);
    if (!is_whole)
        os_watch_limit_root(watch, root);
}

static void _os_watch_enter_and_tell(os_watch_t *watch, os_watch_node_t *parent, const utf8_buf_t *name) {
    os_watch_found_t found = {};
    os_watch_root_t *root = parent->root;
    bool is_whole = os_watch_enter(watch, parent, name->data, static_cast<u32>(name->length), &found);
    _os_watch_tell_found(watch, root, &found, is_whole);
}

static os_watch_node_t *_os_watch_find_name(const os_watch_t *watch, const os_watch_node_t *parent,
                                            const utf8_buf_t *name) {
    return os_watch_find(watch, parent, name->data, static_cast<u32>(name->length));
}

// What has a name now was not there, or was another.
static void _os_watch_take_added(take_t *take) {
    if (take->is_folder) {
        if (!os_watch_passes(take->watch, &take->path)) // the folder that holds it has changed
            os_watch_tell(take->watch, OS_WATCH_ADDED, take->root, &take->path);
        // One that is there already, and the same, came in with a walk whose top was told since.
        _os_watch_enter_and_tell(take->watch, take->node, &take->name);
        return;
    }
    if (os_watch_node_t *stale = _os_watch_find_name(take->watch, take->node, &take->name))
        os_watch_drop(take->watch, stale);
    os_watch_tell(take->watch, OS_WATCH_ADDED, take->root, &take->path);
}

static void _os_watch_take_removed(take_t *take) {
    if (os_watch_node_t *node = _os_watch_find_name(take->watch, take->node, &take->name))
        os_watch_drop(take->watch, node);
    os_watch_tell(take->watch, OS_WATCH_REMOVED, take->root, &take->path);
}

// Says what is at a name now, and takes it in anew.
static void _os_watch_look(os_watch_t *watch, os_watch_node_t *parent, const utf8_buf_t *name) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    _os_watch_cat_child(parent, name->data, static_cast<u32>(name->length), &path);
    os_folder_entry_t entry;
    bool is_there = os_folder_get_link_entry(path.data, &entry);
    if (os_watch_node_t *known = _os_watch_find_name(watch, parent, name))
        os_watch_drop(watch, known);
    if (is_there && entry.is_folder) {
        os_watch_tell(watch, OS_WATCH_REMOVED, parent->root, &path);
        _os_watch_enter_and_tell(watch, parent, name);
    } else if (is_there) {
        os_watch_tell(watch, OS_WATCH_ADDED, parent->root, &path);
    }
    utf8_buf_kill(&path);
}

static bool _os_watch_is_reverse(const take_t *take, const os_watch_from_t *from) {
    const auto *last = &take->root->last;
    return last->to && last->from == take->node && last->to == from->parent &&
           std::strcmp(last->from_name.data, take->name.data) == 0 &&
           std::strcmp(last->to_name.data, from->name) == 0;
}

static void _os_watch_rename_folder(take_t *take, const os_watch_from_t *from, const utf8_buf_t *old_path) {
    os_watch_t *watch = take->watch;
    os_watch_node_t *moved = os_watch_find(watch, from->parent, from->name, from->length);
    std::memset(watch->modified, 0, sizeof watch->modified); // the same names have other paths now
    if (!os_watch_passes(watch, &take->path)) {
        take->root->has_excluded = true;
        if (moved)
            os_watch_drop(watch, moved);
        os_watch_tell(watch, OS_WATCH_REMOVED, take->root, old_path);
        os_watch_tell(watch, OS_WATCH_ADDED, take->root, &take->path); // for the folder that holds it
        return;
    }
    if (moved)
        os_watch_node_move(watch, moved, take->node, take->name.data, static_cast<u32>(take->name.length));
    if (moved || os_watch_passes(watch, old_path))
        os_watch_tell(watch, OS_WATCH_RENAMED, take->root, old_path, &take->path);
    else // it was left out, but the folder that held it has changed
        os_watch_tell(watch, OS_WATCH_REMOVED, take->root, old_path);
    if (!moved) {
        _os_watch_enter_and_tell(watch, take->node, &take->name);
    } else if (take->root->partial_count || take->root->has_excluded) {
        os_watch_found_t found = {};
        bool is_whole = os_watch_walk(watch, moved, &found);
        _os_watch_tell_found(watch, take->root, &found, is_whole);
    }
}

// A walk may have seen what is told behind this event: then the tree has the one folder in the other by now,
// where the event tells of a rename. What was taken in early comes in again with the event that tells of it.
static bool _os_watch_is_early(const take_t *take, const os_watch_from_t *from) {
    const os_watch_node_t *moved = os_watch_find(take->watch, from->parent, from->name, from->length);
    const os_watch_node_t *replaced = _os_watch_find_name(take->watch, take->node, &take->name);
    return (moved && os_watch_node_is_below(take->node, moved)) ||
           (replaced && os_watch_node_is_below(from->parent, replaced));
}

static void _os_watch_rename_early(take_t *take, os_watch_from_t *from) {
    os_watch_t *watch = take->watch;
    utf8_buf_t path;
    utf8_buf_init(&path);
    _os_watch_cat_child(from->parent, from->name, from->length, &path);
    os_watch_tell(watch, OS_WATCH_REMOVED, take->root, &path);
    os_watch_tell(watch, OS_WATCH_ADDED, take->root, &take->path);
    utf8_buf_kill(&path);
    os_watch_node_t *moved = os_watch_find(watch, from->parent, from->name, from->length);
    bool goes_along = moved && os_watch_node_is_below(take->node, moved);
    if (moved)
        os_watch_drop(watch, moved);
    if (goes_along)
        return;
    if (os_watch_node_t *replaced = _os_watch_find_name(watch, take->node, &take->name))
        os_watch_drop(watch, replaced);
    if (take->is_folder)
        _os_watch_enter_and_tell(watch, take->node, &take->name);
}

static void _os_watch_rename(take_t *take, os_watch_from_t *from) {
    os_watch_t *watch = take->watch;
    if (_os_watch_is_early(take, from)) {
        _os_watch_rename_early(take, from);
        return;
    }
    if (os_watch_node_t *replaced = _os_watch_find_name(watch, take->node, &take->name))
        os_watch_drop(watch, replaced);
    utf8_buf_t old_path;
    utf8_buf_init(&old_path);
    _os_watch_cat_child(from->parent, from->name, from->length, &old_path);
    if (take->is_folder) {
        _os_watch_rename_folder(take, from, &old_path);
    } else {
        if (os_watch_node_t *stale = os_watch_find(watch, from->parent, from->name, from->length))
            os_watch_drop(watch, stale);
        os_watch_tell(watch, OS_WATCH_RENAMED, take->root, &old_path, &take->path);
    }
    utf8_buf_kill(&old_path);
}

// The root may end in any of these steps, and with it the nodes.
static void _os_watch_take_moved_to(take_t *take) {
    os_watch_t *watch = take->watch;
    os_watch_from_t *from = _os_watch_from_find(watch, take->root, take->cookie);
    if (!from) {
        _os_watch_take_added(take);
        return;
    }
    _os_watch_from_unlink(watch, from);
    bool is_exchange = _os_watch_is_reverse(take, from);
    auto *last = &take->root->last;
    last->from = from->parent; // until one of them is dropped
    last->to = take->node;
    utf8_buf_copy_utf8(&last->from_name, from->name, from->length);
    utf8_buf_copy_utf8(&last->to_name, take->name.data, static_cast<u32>(take->name.length));
    u32 handle = take->root->handle;
    _os_watch_rename(take, from);
    if (is_exchange && watch->roots[handle] && last->to) {
        os_watch_node_t *other = last->from;
        utf8_buf_t other_name;
        utf8_buf_init(&other_name);
        utf8_buf_copy_utf8(&other_name, last->from_name.data, static_cast<u32>(last->from_name.length));
        last->from = last->to = nullptr;
        _os_watch_look(watch, take->node, &take->name);
        if (watch->roots[handle])
            _os_watch_look(watch, other, &other_name);
        utf8_buf_kill(&other_name);
    }
    mem_free(from);
}

static void _os_watch_take_modified(take_t *take) {
    os_watch_tell(take->watch, OS_WATCH_MODIFIED, take->root, &take->path);
    // A folder that could not be read before may be one that can be now.
    if (take->is_folder && take->mask & IN_ATTRIB && take->name.length &&
        !_os_watch_find_name(take->watch, take->node, &take->name))
        _os_watch_enter_and_tell(take->watch, take->node, &take->name);
}

// What a folder tells of itself; the folder above tells the same, but for a root's.
static void _os_watch_take_self(take_t *take) {
    if (take->node->parent)
        return;
    if (take->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT))
        os_watch_end_root(take->watch, take->root, OS_WATCH_LOST);
    else if (take->mask & IN_ATTRIB && !take->root->by_fanotify)
        _os_watch_take_modified(take);
}

static void _os_watch_take_at(take_t *take) {
    os_watch_get_path(take->node, &take->path);
    if (take->name.length == 0) {
        _os_watch_take_self(take);
        return;
    }
    if (take->root->by_fanotify)
        return;
    os_watch_cat_name(&take->path, take->name.data, static_cast<u32>(take->name.length));
    auto *last = &take->root->last;
    bool may_reverse = take->mask & IN_MOVED_FROM && last->to == take->node &&
                       std::strcmp(last->to_name.data, take->name.data) == 0;
    if (!may_reverse && !(take->mask & IN_MOVED_TO))
        last->from = last->to = nullptr;
    _os_watch_flush_name(take->watch, take->node, &take->name);
    if (take->mask & IN_MOVED_FROM)
        _os_watch_from_add(take->watch, take->node, &take->name, take->cookie, take->is_folder);
    else if (take->mask & IN_MOVED_TO)
        _os_watch_take_moved_to(take);
    else if (take->mask & IN_CREATE)
        _os_watch_take_added(take);
    else if (take->mask & IN_DELETE)
        _os_watch_take_removed(take);
    else
        _os_watch_take_modified(take);
}

// The system has ended a watch.
static void _os_watch_take_ignored(os_watch_t *watch, int number) {
    while (os_watch_node_t *node = os_watch_find_watch(watch, number)) {
        if (node->parent)
            os_watch_drop(watch, node);
        else
            os_watch_end_root(watch, node->root, OS_WATCH_LOST);
    }
}

// At each node of the watch that is still there when its turn comes.
static void _os_watch_take_all(take_t *take, int number) {
    static constexpr u32 TWIN_MAX = 64;
    os_watch_node_t *nodes[TWIN_MAX];
    u32 count = 0;
    for (os_watch_node_t *node = os_watch_find_watch(take->watch, number); node && count < TWIN_MAX;
         node = node->twin)
        nodes[count++] = node;
    for (u32 i = 0; i < count; i++) {
        os_watch_node_t *node = os_watch_find_watch(take->watch, number);
        while (node && node != nodes[i])
            node = node->twin;
        if (!node)
            continue;
        take->node = node;
        take->root = node->root;
        _os_watch_take_at(take);
    }
}

// --- Many changes of one item -----------------------------------------------------------------------------

static constexpr u32 MODIFIED_MASK = IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB;

static u32 _os_watch_modified_slot(const inotify_event *event) {
    static constexpr u32 PRIME = 0x1000193;
    auto hash = static_cast<u32>(event->wd) * PRIME;
    for (const char *at = event->name; *at; at++)
        hash = (hash ^ static_cast<u8>(*at)) * PRIME;
    return (hash ^ hash >> 16) % OS_WATCH_MODIFIED_COUNT;
}

// Whether a change of data that had happened by then was told already: who looked looked later. Notes it.
static bool _os_watch_is_covered(os_watch_t *watch, const inotify_event *event, size_t at) {
    if (event->len == 0)
        return false;
    os_watch_modified_t *slot = &watch->modified[_os_watch_modified_slot(event)];
    auto *other = reinterpret_cast<const inotify_event *>(watch->input + slot->at);
    bool is_covered = slot->at && at < slot->covered && other->wd == event->wd &&
                      std::strcmp(other->name, event->name) == 0;
    if (!is_covered)
        *slot = {at, watch->input_length};
    return is_covered;
}

static void _os_watch_take_next(take_t *take) {
    os_watch_t *watch = take->watch;
    size_t at = watch->input_at;
    // At a multiple of its alignment: the system fills up names so that it is.
    auto *event = reinterpret_cast<const inotify_event *>(watch->input + at);
    watch->input_at += sizeof(inotify_event) + event->len;
    int number = event->wd;
    take->mask = event->mask;
    take->cookie = event->cookie;
    take->is_folder = event->mask & IN_ISDIR;
    if (event->mask & IN_Q_OVERFLOW) {
        watch->overflow = true;
        return;
    }
    if (event->mask & MODIFIED_MASK && _os_watch_is_covered(watch, event, at))
        return;
    // The bytes may move while more are read.
    utf8_buf_empty(&take->name);
    if (event->len)
        os_path_from_system(event->name, static_cast<u32>(std::strlen(event->name)), &take->name);
    if (take->mask & IN_IGNORED)
        _os_watch_take_ignored(watch, number);
    else
        _os_watch_take_all(take, number);
}

void os_watch_take(os_watch_t *watch) {
    take_t take = {};
    take.watch = watch;
    utf8_buf_init(&take.name);
    utf8_buf_init(&take.path);
    watch->round++;
    while (!watch->is_stopped) {
        while (!watch->overflow && !watch->is_stopped && watch->input_at < watch->input_length)
            _os_watch_take_next(&take);
        if (!watch->overflow)
            break;
        os_watch_restart(watch);
    }
    os_watch_flush_old(watch);
    _os_watch_input_clear(watch);
    utf8_buf_kill(&take.path);
    utf8_buf_kill(&take.name);
}

// --- Overflow ---------------------------------------------------------------------------------------------

// With a queue of its own: taking back the watches would fill the old one again.
void os_watch_restart(os_watch_t *watch) {
    if (watch->inotify != -1)
        close(watch->inotify);
    watch->inotify = -1;
    while (os_watch_from_t *from = watch->from_first) {
        _os_watch_from_unlink(watch, from);
        mem_free(from);
    }
    for (u32 i = 0; i < watch->root_capacity; i++) {
        if (watch->roots[i] && watch->roots[i]->node) {
            os_watch_drop(watch, watch->roots[i]->node);
            watch->roots[i]->node = nullptr;
        }
    }
    _os_watch_input_clear(watch);
    watch->overflow = false;
    watch->inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    for (u32 i = 0; i < watch->root_capacity && !watch->is_stopped; i++) {
        os_watch_root_t *root = watch->roots[i];
        if (!root)
            continue;
        if (os_watch_root_enter(watch, root))
            os_watch_tell(watch, OS_WATCH_OVERFLOW, root, nullptr);
        else if (root->node || watch->inotify == -1 || os_watch_error_is_limit(os_get_last_error()))
            os_watch_limit_root(watch, root);
        else
            os_watch_end_root(watch, root, OS_WATCH_LOST);
    }
}

} // namespace findwright
