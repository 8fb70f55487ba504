#include "base/mem.h"
#include "base/utf8.h"
#include "os/os_watch_posix.h"

#include <cstring>

namespace findwright {

static constexpr u32 NAME_MIN_BITS = 6;

// --- Paths ------------------------------------------------------------------------------------------------

static bool _os_watch_ends_with_separator(const char *path, u32 length) {
    return length && path[length - 1] == '\\';
}

void os_watch_get_path(const os_watch_node_t *node, utf8_buf_t *out) {
    u32 length = 0;
    const os_watch_node_t *at = node;
    for (; at->parent; at = at->parent)
        length += at->length + 1;
    bool is_open = _os_watch_ends_with_separator(at->name, at->length); // `\` itself
    length += at->length - (is_open && node != at);
    utf8_buf_grow_empty(out, length + 1);
    u32 end = length;
    for (at = node; at->parent; at = at->parent) {
        end -= at->length;
        std::memcpy(out->data + end, at->name, at->length);
        out->data[--end] = '\\';
    }
    std::memcpy(out->data, at->name, end);
    utf8_buf_set_length(out, length);
}

// --- Names ------------------------------------------------------------------------------------------------

static u32 _os_watch_name_slot(const os_watch_t *watch, const os_watch_node_t *parent, const char *name,
                               u32 length) {
    static constexpr u64 PRIME = 0x100000001B3, GOLDEN = 0x9E3779B97F4A7C15;
    u64 hash = reinterpret_cast<uintptr_t>(parent);
    for (u32 i = 0; i < length; i++)
        hash = (hash ^ static_cast<u8>(name[i])) * PRIME;
    return static_cast<u32>(hash * GOLDEN >> (64 - watch->name_bits));
}

os_watch_node_t *os_watch_find(const os_watch_t *watch, const os_watch_node_t *parent, const char *name,
                               u32 length) {
    if (!watch->names)
        return nullptr;
    os_watch_node_t *node = watch->names[_os_watch_name_slot(watch, parent, name, length)];
    while (node &&
           (node->parent != parent || node->length != length || std::memcmp(node->name, name, length) != 0))
        node = node->hash_next;
    return node;
}

static void _os_watch_name_link(os_watch_t *watch, os_watch_node_t *node) {
    os_watch_node_t **slot =
        &watch->names[_os_watch_name_slot(watch, node->parent, node->name, node->length)];
    node->hash_next = *slot;
    *slot = node;
}

static void _os_watch_name_grow(os_watch_t *watch) {
    os_watch_node_t **old = watch->names;
    u32 old_count = old ? 1u << watch->name_bits : 0;
    watch->name_bits = old ? watch->name_bits + 1 : NAME_MIN_BITS;
    size_t size = sizeof(os_watch_node_t *) << watch->name_bits;
    watch->names = static_cast<os_watch_node_t **>(mem_alloc(size));
    std::memset(watch->names, 0, size);
    for (u32 i = 0; i < old_count; i++) {
        for (os_watch_node_t *node = old[i]; node;) {
            os_watch_node_t *next = node->hash_next;
            _os_watch_name_link(watch, node);
            node = next;
        }
    }
    if (old)
        mem_free(old);
}

static void _os_watch_link(os_watch_t *watch, os_watch_node_t *node) {
    if (!node->parent)
        return;
    if (!watch->names || watch->name_count == 1u << watch->name_bits)
        _os_watch_name_grow(watch);
    watch->name_count++;
    _os_watch_name_link(watch, node);
    node->prev = nullptr;
    node->next = node->parent->first_child;
    if (node->next)
        node->next->prev = node;
    node->parent->first_child = node;
}

static void _os_watch_unlink(os_watch_t *watch, os_watch_node_t *node) {
    if (!node->parent)
        return;
    os_watch_node_t **place =
        &watch->names[_os_watch_name_slot(watch, node->parent, node->name, node->length)];
    while (*place != node)
        place = &(*place)->hash_next;
    *place = node->hash_next;
    watch->name_count--;
    (node->prev ? node->prev->next : node->parent->first_child) = node->next;
    if (node->next)
        node->next->prev = node->prev;
}

// --- Nodes ------------------------------------------------------------------------------------------------

os_watch_node_t *os_watch_find_watch(const os_watch_t *watch, int number) {
    os_watch_node_t **first = number > 0 ? ref_map_find(&watch->by_watch, static_cast<u32>(number)) : nullptr;
    return first ? *first : nullptr;
}

os_watch_node_t *os_watch_node_add(os_watch_t *watch, os_watch_root_t *root, os_watch_node_t *parent,
                                   const char *name, u32 length, int number) {
    auto *node = static_cast<os_watch_node_t *>(mem_alloc(sizeof(os_watch_node_t)));
    *node = {};
    node->name = utf8_alloc_copy_length(name, length);
    node->length = length;
    node->parent = parent;
    node->root = root;
    node->watch = number;
    _os_watch_link(watch, node);
    os_watch_node_t **first = ref_map_make(&watch->by_watch, static_cast<u32>(number));
    watch->count += !*first;
    node->twin = *first;
    *first = node;
    root->count++;
    return node;
}

void os_watch_node_set_partial(os_watch_node_t *node, bool is_partial) {
    if (node->is_partial == is_partial)
        return;
    node->is_partial = is_partial;
    node->root->partial_count += is_partial ? 1 : static_cast<u32>(-1);
}

static os_watch_node_t **_os_watch_twin_place(os_watch_t *watch, const os_watch_node_t *node) {
    os_watch_node_t **place = ref_map_find(&watch->by_watch, static_cast<u32>(node->watch));
    while (*place != node)
        place = &(*place)->twin;
    return place;
}

bool os_watch_node_remove(os_watch_t *watch, os_watch_node_t *node) {
    os_watch_node_set_partial(node, false);
    _os_watch_unlink(watch, node);
    *_os_watch_twin_place(watch, node) = node->twin;
    bool is_last = !os_watch_find_watch(watch, node->watch);
    if (is_last) {
        ref_map_remove(&watch->by_watch, static_cast<u32>(node->watch));
        watch->count--;
    }
    node->root->count--;
    mem_free(node->name);
    mem_free(node);
    return is_last;
}

void os_watch_node_move(os_watch_t *watch, os_watch_node_t *node, os_watch_node_t *parent, const char *name,
                        u32 length) {
    char *copy = utf8_alloc_copy_length(name, length);
    _os_watch_unlink(watch, node);
    mem_free(node->name);
    node->name = copy;
    node->length = length;
    node->parent = parent;
    _os_watch_link(watch, node);
}

bool os_watch_node_is_below(const os_watch_node_t *node, const os_watch_node_t *folder) {
    for (; node; node = node->parent)
        if (node == folder)
            return true;
    return false;
}

} // namespace findwright
