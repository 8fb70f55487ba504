// From a path to the items that have it.
#include "base/utf8.h"
#include "track/db_run_history_internal.h"

namespace findwright {

// What a path can be of an item that has it: the whole name of one at the top, or the path of a folder and
// the name of what is in it.
struct _db_path_key_t {
    const char *name;
    u32 name_length;
    bool has_parent;
    const char *parent;
    u32 parent_length;
    utf8_buf_t *buf;
};

// An item's place by its folded name and then its folded parent path, the first two steps of the name order.
static int _db_path_compare(const db_item_t *item, const _db_path_key_t *key) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (int result = utf8_compare_fold(name, length, key->name, key->name_length))
        return result;
    bool is_top = db_item_is_top(item);
    if (is_top || !key->has_parent)
        return static_cast<int>(key->has_parent) * -1 + static_cast<int>(!is_top);
    db_item_get_path(key->buf, item);
    return utf8_compare_fold(key->buf->data, static_cast<u32>(key->buf->length), key->parent,
                             key->parent_length);
}

// Never equal: the place that is found is in front of the first item that has the path, but for case.
static int _db_path_compare_front(u32 value, const void *key) {
    return _db_path_compare(db_item(value), static_cast<const _db_path_key_t *>(key)) < 0 ? -1 : 1;
}

static void _db_path_collect(const array_t *names, const _db_path_key_t *key,
                             const _db_run_history_path_t *path, pointer_pool_t *out) {
    u32 page;
    i32 position;
    bool found;
    array_find_position(names, _db_path_compare_front, key, &page, &position, &found);
    // The place in an empty array and that of the first value, which is in front of no other, look alike.
    if (names->count == 0)
        return;
    u32 value;
    while (array_next_to(names, &page, &position, &value)) {
        if (_db_path_compare(db_item(value), key) != 0)
            break;
        db_item_get_full_path_name(key->buf, db_item(value));
        if (_db_run_history_compare_path(key->buf->data, static_cast<u32>(key->buf->length), path->text,
                                         path->length) == 0)
            pointer_pool_push(out, value);
    }
}

void _db_run_history_find_items(const array_t *names, const char *path, u32 length, pointer_pool_t *out) {
    u32 start = length;
    while (start != 0 && path[start - 1] != '\\')
        start--;
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    _db_run_history_path_t whole = {path, length};
    _db_path_key_t top = {path, length, false, "", 0, &buf};
    _db_path_collect(names, &top, &whole, out);
    if (start != 0) {
        _db_path_key_t below = {path + start, length - start, true, path, start - 1, &buf};
        _db_path_collect(names, &below, &whole, out);
    }
    utf8_buf_kill(&buf);
}

} // namespace findwright
