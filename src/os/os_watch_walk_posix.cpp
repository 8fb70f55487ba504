#include "base/mem.h"
#include "base/utf8.h"
#include "os/os_posix.h"
#include "os/os_watch_posix.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace findwright {

static constexpr u32 MASK = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY |
                            IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
static constexpr u32 END_MASK = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_ADD;

// Each watch that is taken back leaves an event, and each folder that is walked takes time in which others
// queue up.
static constexpr u32 DRAIN_INTERVAL = 256;

// --- Watches ----------------------------------------------------------------------------------------------

// The number of the folder's watch; -1 with errno. A folder that is watched already keeps its number.
static int _os_watch_set(os_watch_t *watch, const char *path, bool is_root) {
    u32 flags = MASK | (is_root ? 0 : static_cast<u32>(IN_DONT_FOLLOW));
    int number = inotify_add_watch(watch->inotify, os_system_path_t(path).text(), flags);
    if (number == -1 || !watch->limit || watch->count < watch->limit || os_watch_find_watch(watch, number))
        return number;
    inotify_rm_watch(watch->inotify, number);
    errno = ENOSPC;
    return -1;
}

static bool _os_watch_is_limit(int error) {
    return error == ENOSPC || error == ENOMEM;
}

// A watch that was set but gets no node.
static void _os_watch_unset(os_watch_t *watch, int number) {
    if (!os_watch_find_watch(watch, number))
        inotify_rm_watch(watch->inotify, number);
}

// Whether the path of a node still leads to its folder.
static bool _os_watch_is_true(os_watch_t *watch, const os_watch_node_t *node, const char *path) {
    int number = _os_watch_set(watch, path, !node->parent);
    if (number == node->watch)
        return true;
    if (number != -1)
        _os_watch_unset(watch, number);
    return false;
}

void os_watch_drop(os_watch_t *watch, os_watch_node_t *node) {
    os_watch_flush_below(watch, node);
    os_watch_node_t *above = node->parent;
    u32 count = 0;
    while (node != above) {
        if (node->first_child) {
            node = node->first_child;
            continue;
        }
        os_watch_node_t *next = node->parent;
        int number = node->watch;
        if (node->root->last.from == node || node->root->last.to == node)
            node->root->last.from = node->root->last.to = nullptr;
        if (os_watch_node_remove(watch, node)) {
            inotify_rm_watch(watch->inotify, number); // fails where the folder is gone
            if (++count % DRAIN_INTERVAL == 0)
                os_watch_drain(watch);
        }
        node = next;
    }
}

// --- Listing ----------------------------------------------------------------------------------------------

static bool _os_watch_is_folder(int folder, const dirent *entry, u64 device) {
    if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN)
        return false;
    const char *name = entry->d_name;
    if (name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2])))
        return false;
    struct stat info;
    return fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0 &&
           S_ISDIR(info.st_mode) && info.st_dev == device;
}

// The names of the folders in a folder that are of the same file system, in inside form, each terminated.
// False when the path leads to none any more.
static bool _os_watch_list(const os_watch_node_t *node, const char *path, utf8_buf_t *names) {
    int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (node->parent ? O_NOFOLLOW : 0);
    int folder = open(os_system_path_t(path).text(), flags);
    if (folder == -1)
        return errno != ENOENT && errno != ENOTDIR && errno != ELOOP;
    DIR *listing = fdopendir(folder);
    if (!listing) {
        close(folder);
        return true;
    }
    utf8_buf_t name;
    utf8_buf_init(&name);
    while (const dirent *entry = readdir(listing)) {
        if (!_os_watch_is_folder(folder, entry, node->root->device))
            continue;
        os_path_from_system(entry->d_name, static_cast<u32>(std::strlen(entry->d_name)), &name);
        utf8_buf_cat_utf8(names, name.data, static_cast<u32>(name.length) + 1);
    }
    utf8_buf_kill(&name);
    closedir(listing);
    return true;
}

// --- Walk -------------------------------------------------------------------------------------------------

static void _os_watch_push(os_watch_found_t *list, os_watch_node_t *node) {
    if (list->count == list->capacity) {
        u32 capacity = list->capacity ? list->capacity * 2 : 64;
        auto **nodes = static_cast<os_watch_node_t **>(mem_alloc(capacity * sizeof(os_watch_node_t *)));
        if (list->count)
            std::memcpy(nodes, list->nodes, list->count * sizeof(os_watch_node_t *));
        if (list->nodes)
            mem_free(list->nodes);
        list->nodes = nodes;
        list->capacity = capacity;
    }
    list->nodes[list->count++] = node;
}

// Takes in one folder, by its name. 0: not taken in; false when there are no more watches.
static bool _os_watch_enter_one(os_watch_t *watch, os_watch_node_t *parent, const char *name, u32 length,
                                const utf8_buf_t *path, os_watch_node_t **entered) {
    *entered = nullptr;
    os_watch_node_t *known = os_watch_find(watch, parent, name, length);
    if (!os_watch_passes(watch, path)) {
        parent->root->has_excluded = true;
        if (known)
            os_watch_drop(watch, known);
        return true;
    }
    int number = _os_watch_set(watch, path->data, false);
    int error = number == -1 ? errno : 0;
    if (known && known->watch == number) {
        *entered = known;
        return true;
    }
    if (known) // a folder that had the name before
        os_watch_drop(watch, known);
    if (number != -1) {
        *entered = os_watch_node_add(watch, parent->root, parent, name, length, number);
        (*entered)->is_new = true;
    }
    return !_os_watch_is_limit(error);
}

// What a walk does at one folder: its folders are taken in and appended to `open`; those that are new to the
// tree, below one that is not, to `found`.
struct walk_t {
    os_watch_t *watch;
    os_watch_found_t open;
    os_watch_found_t *found;
    os_watch_found_t fresh; // taken in below the present folder
    utf8_buf_t names;
    utf8_buf_t path;
};

static bool _os_watch_enter_names(walk_t *walk, os_watch_node_t *node) {
    auto length = static_cast<u32>(walk->path.length);
    bool is_whole = true;
    for (i32 at = 0; is_whole && at < walk->names.length;) {
        const char *name = walk->names.data + at;
        u32 name_length = utf8_length(name);
        at += static_cast<i32>(name_length) + 1;
        os_watch_cat_name(&walk->path, name, name_length);
        os_watch_node_t *child;
        is_whole = _os_watch_enter_one(walk->watch, node, name, name_length, &walk->path, &child);
        utf8_buf_set_length(&walk->path, length);
        if (child)
            _os_watch_push(&walk->open, child);
        if (child && child->is_new)
            _os_watch_push(&walk->fresh, child);
    }
    return is_whole;
}

static bool _os_watch_walk_one(walk_t *walk, os_watch_node_t *node) {
    bool is_new = node->is_new;
    node->is_new = false;
    os_watch_get_path(node, &walk->path);
    u32 open_count = walk->open.count;
    walk->fresh.count = 0;
    utf8_buf_empty(&walk->names);
    bool is_there = _os_watch_list(node, walk->path.data, &walk->names);
    if (is_there && !_os_watch_enter_names(walk, node))
        return false;
    is_there = is_there && _os_watch_is_true(walk->watch, node, walk->path.data);
    os_watch_node_set_partial(node, !is_there);
    if (!is_there) { // what was listed is in another folder
        walk->open.count = open_count;
        for (u32 i = 0; i < walk->fresh.count; i++)
            os_watch_drop(walk->watch, walk->fresh.nodes[i]);
    } else if (!is_new && walk->found) {
        for (u32 i = 0; i < walk->fresh.count; i++)
            _os_watch_push(walk->found, walk->fresh.nodes[i]);
    }
    return true;
}

bool os_watch_walk(os_watch_t *watch, os_watch_node_t *top, os_watch_found_t *found) {
    walk_t walk = {};
    walk.watch = watch;
    walk.found = found;
    utf8_buf_init(&walk.names);
    utf8_buf_init(&walk.path);
    _os_watch_push(&walk.open, top);
    bool is_whole = true;
    for (u32 count = 1; is_whole && walk.open.count && !watch->is_stopped; count++) {
        is_whole = _os_watch_walk_one(&walk, walk.open.nodes[--walk.open.count]);
        if (count % DRAIN_INTERVAL == 0)
            os_watch_drain(watch);
    }
    utf8_buf_kill(&walk.path);
    utf8_buf_kill(&walk.names);
    mem_free(walk.open.nodes);
    if (walk.fresh.nodes)
        mem_free(walk.fresh.nodes);
    return is_whole;
}

bool os_watch_enter(os_watch_t *watch, os_watch_node_t *parent, const char *name, u32 length,
                    os_watch_found_t *found) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    os_watch_get_path(parent, &path);
    auto parent_length = static_cast<u32>(path.length);
    os_watch_cat_name(&path, name, length);
    os_watch_node_t *node;
    bool is_whole = _os_watch_enter_one(watch, parent, name, length, &path, &node);
    utf8_buf_set_length(&path, parent_length);
    // Behind the folder's watch: then the path led to this very folder when that was set.
    if (!_os_watch_is_true(watch, parent, path.data)) {
        os_watch_node_set_partial(parent, true);
        if (node)
            os_watch_drop(watch, node);
        node = nullptr;
    }
    utf8_buf_kill(&path);
    if (node && node->is_new)
        _os_watch_push(found, node);
    return is_whole && (!node || !node->is_new || os_watch_walk(watch, node, found));
}

bool os_watch_enter_root(os_watch_t *watch, os_watch_root_t *root) {
    root->has_excluded = false;
    int number = _os_watch_set(watch, root->path, true);
    if (number == -1)
        return false;
    root->node = os_watch_node_add(watch, root, nullptr, root->path, utf8_length(root->path), number);
    if (os_watch_walk(watch, root->node, nullptr))
        return true;
    errno = ENOSPC;
    return false;
}

bool os_watch_enter_end(os_watch_t *watch, os_watch_root_t *root) {
    int number = inotify_add_watch(watch->inotify, os_system_path_t(root->path).text(), END_MASK);
    if (number != -1)
        root->node = os_watch_node_add(watch, root, nullptr, root->path, utf8_length(root->path), number);
    return number != -1;
}

} // namespace findwright
