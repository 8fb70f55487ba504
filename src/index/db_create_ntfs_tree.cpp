// The rebuild's NTFS source: a volume of which only one folder, or only some folders, are wanted.
//
//     root `Users`:                         include only `C:\Users\a; C:\b`:
//
//       C:                                    C:
//       |-- Users    => C:                    |-- Users
//       |   |-- a       |-- a                 |   |-- a    => C:\Users\a
//       |   `-- ...     `-- ...               |   `-- ...
//       `-- b                                 `-- b        => C:\b
//
// A wanted folder gets a new record as the root of its items, with the columns and the number of the old one.
// The old record and all that hangs neither on a new one nor below it no longer reach a root, and go with the
// orphans.
//
// Folders are named by full paths that are compared with folding. A path is only written out for a folder
// whose own name fits, and only up to the length that can be equal: so the time grows with the number of
// folders, whatever their depth, and a chain that runs in a circle, as on a damaged volume, ends the same
// way.
#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_create_internal.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- Paths -------------------------------------------------------------------------------------------------

struct _db_create_text_t {
    const char *text;
    u32 length;
};

static bool _db_create_stands_before(_db_create_text_t a, _db_create_text_t b) {
    return utf8_compare_fold(a.text, a.length, b.text, b.length) < 0;
}

static _db_create_text_t _db_create_get_last_component(const char *text, u32 length) {
    const char *path;
    u32 path_length;
    _db_create_text_t last;
    utf8_get_path_part(text, length, &path, &path_length, &last.text, &last.length);
    return last;
}

// The last component of a folder's path: the name of a volume's root may be a path by itself.
static _db_create_text_t _db_create_get_own_component(const db_item_t *folder) {
    u32 length;
    const char *name = db_item_get_name(folder, &length);
    return _db_create_get_last_component(name, length);
}

static u32 _db_create_trim_separators(const char *text, u32 length) {
    while (length != 0 && utf8_is_separator(text[length - 1]))
        length--;
    return length;
}

// Folding maps each character to one, and one takes up to four bytes: no longer path is equal to a text of
// that length.
static u64 _db_create_get_path_limit(u32 text_length) {
    return static_cast<u64>(text_length) * UTF8_CHAR_MAX;
}

// Writes the full path of a folder that reaches the root in no more than `limit` bytes. False for others.
static bool _db_create_get_tree_path(utf8_buf_t *out, const db_item_t *folder, u64 limit) {
    u64 total = db_item_get_name_length(folder);
    const db_item_t *top = folder;
    while (total <= limit && top->parent >= MEM_REF_FIRST) {
        top = db_item(top->parent);
        total += 1 + static_cast<u64>(db_item_get_name_length(top));
    }
    if (total > limit || top->parent != DB_CREATE_ROOT)
        return false;
    db_item_get_full_path_name(out, folder);
    return true;
}

// A new record in a folder's place, at the top under a name of its own.
static mem_ref_t _db_create_copy_to_top(db_rebuild_t *rebuild, db_create_source_t *source,
                                        const db_item_t *folder, mem_ref_t marker, const char *name,
                                        u32 length) {
    u32 size = rebuild->layout.folder_data_size + DB_CREATE_NTFS_FOLDER_TAIL;
    db_item_t *top = _db_create_add_record(&rebuild->store.records, &rebuild->store.folders, marker,
                                           source->index, name, length, size);
    std::memcpy(db_item_columns(top), db_item_columns(folder), size);
    source->folder_count++;
    return mem_ref(top);
}

// --- One folder as the root --------------------------------------------------------------------------------

// The full path of the wanted folder. Returns the bytes behind the volume's path and its separator; 0 when
// the setting names none.
static u32 _db_create_get_root_path(utf8_buf_t *out, const db_index_volume_t *index) {
    const char *root = index->root;
    while (utf8_is_separator(*root))
        root++;
    u32 length = _db_create_trim_separators(root, utf8_length(root));
    utf8_buf_copy_string(out, index->path);
    utf8_buf_cat_byte(out, '\\');
    for (u32 i = 0; i != length; i++)
        utf8_buf_cat_byte(out, root[i] == '/' ? '\\' : root[i]);
    return length;
}

// The place in the table of the first folder with that path; the number of folders when there is none.
static u32 _db_create_find_path(const db_create_numbers_t *numbers, const utf8_buf_t *wanted) {
    u32 length = static_cast<u32>(wanted->length);
    _db_create_text_t last = _db_create_get_last_component(wanted->data, length);
    utf8_buf_t path;
    utf8_buf_init(&path);
    u32 place = 0;
    for (; place != numbers->count; place++) {
        const db_item_t *folder = db_item(numbers->folders[place]);
        _db_create_text_t own = _db_create_get_own_component(folder);
        if (utf8_compare_fold(own.text, own.length, last.text, last.length) == 0 &&
            _db_create_get_tree_path(&path, folder, _db_create_get_path_limit(length)) &&
            utf8_compare_fold(path.data, static_cast<u32>(path.length), wanted->data, length) == 0)
            break;
    }
    utf8_buf_kill(&path);
    return place;
}

static void _db_create_make_root(db_rebuild_t *rebuild, db_create_source_t *source,
                                 db_create_numbers_t *numbers, u32 place) {
    const char *path = static_cast<const db_index_volume_t *>(source->index)->path;
    mem_ref_t old = numbers->folders[place];
    mem_ref_t root =
        _db_create_copy_to_top(rebuild, source, db_item(old), DB_CREATE_ROOT, path, utf8_length(path));
    db_item_t *top = mem_ptr<db_item_t>(old);
    while (top->parent != DB_CREATE_ROOT)
        top = mem_ptr<db_item_t>(top->parent);
    top->parent = DB_CREATE_ORPHAN; // and with it all the rest of the volume
    numbers->folders[place] = root;
    for (u32 i = 0; i != numbers->count; i++) {
        db_item_t *folder = mem_ptr<db_item_t>(numbers->folders[i]);
        if (folder->parent == old)
            folder->parent = root;
    }
}

void _db_create_find_root(db_rebuild_t *rebuild, db_create_source_t *source, db_create_numbers_t *numbers) {
    u32 start = os_get_tick_count();
    utf8_buf_t wanted;
    utf8_buf_init(&wanted);
    u32 length = _db_create_get_root_path(&wanted, static_cast<const db_index_volume_t *>(source->index));
    if (length != 0) {
        u32 place = _db_create_find_path(numbers, &wanted);
        if (place != numbers->count) {
            debug_printf("found root %t\n", wanted.data + wanted.length - length, length);
            _db_create_make_root(rebuild, source, numbers, place);
        }
        debug_printf("find root: %f seconds\n", os_get_tick_count() - start);
    }
    utf8_buf_kill(&wanted);
}

// --- Some folders as roots ---------------------------------------------------------------------------------

struct _db_create_include_t {
    _db_create_text_t path; // as the list has it, without separators at its end
    mem_ref_t old;          // the folder of that path
    mem_ref_t root;         // what stands in its place; 0: not found
};

// The list, in the order of the folded paths, and apart their last components in theirs.
struct _db_create_includes_t {
    char *texts;
    _db_create_include_t *items;
    _db_create_text_t *names;
    u32 count;
    u32 longest; // path, in bytes
};

// Texts and elements are never more than the list's bytes and separators tell.
static void _db_create_alloc_includes(_db_create_includes_t *list, const char *include_only) {
    u32 most = 1;
    for (const char *c = include_only; *c; c++)
        most += *c == ';' || *c == ',';
    *list = {};
    list->texts = static_cast<char *>(mem_alloc(utf8_length(include_only) + 1));
    list->items = static_cast<_db_create_include_t *>(mem_alloc(most * sizeof *list->items));
    list->names = static_cast<_db_create_text_t *>(mem_alloc(most * sizeof *list->names));
}

static void _db_create_free_includes(_db_create_includes_t *list) {
    mem_free(list->texts);
    mem_free(list->items);
    mem_free(list->names);
}

static void _db_create_split_includes(_db_create_includes_t *list, const char *include_only) {
    _db_create_alloc_includes(list, include_only);
    char *text = list->texts;
    utf8_buf_t element;
    utf8_buf_init(&element);
    for (const char *cursor = include_only; (cursor = utf8_buf_next_list_item(&element, cursor));) {
        if (element.length == 0)
            continue;
        utf8_buf_fix_path(&element);
        u32 length = _db_create_trim_separators(element.data, static_cast<u32>(element.length));
        std::memcpy(text, element.data, length);
        list->names[list->count] = _db_create_get_last_component(text, length);
        list->items[list->count++] = {{text, length}, 0, 0};
        list->longest = std::max(list->longest, length);
        text += length;
    }
    utf8_buf_kill(&element);
}

static void _db_create_sort_includes(_db_create_includes_t *list) {
    // By fold like the search; a list of one content has one order.
    std::sort(list->items, list->items + list->count, [](const auto &a, const auto &b) {
        int order = utf8_compare_fold(a.path.text, a.path.length, b.path.text, b.path.length);
        return (order ? order : utf8_compare(a.path.text, a.path.length, b.path.text, b.path.length)) < 0;
    });
    std::sort(list->names, list->names + list->count, _db_create_stands_before);
    for (u32 i = 0; debug_verbose && i != list->count; i++)
        debug_verbose_printf("find %d %t\n", i, list->items[i].path.text, list->items[i].path.length);
}

// The first element with that path; 0: none.
static _db_create_include_t *_db_create_find_include(const _db_create_includes_t *list,
                                                     _db_create_text_t path) {
    _db_create_include_t *end = list->items + list->count;
    _db_create_include_t *item =
        std::lower_bound(list->items, end, path, [](const _db_create_include_t &a, _db_create_text_t b) {
            return _db_create_stands_before(a.path, b);
        });
    return item != end && !_db_create_stands_before(path, item->path) ? item : nullptr;
}

// Each element takes the first folder that fits. Chains stay as they are until all are found, so that one
// wanted folder may lie below another.
static void _db_create_find_includes(db_rebuild_t *rebuild, db_create_source_t *source,
                                     db_create_numbers_t *numbers, _db_create_includes_t *list) {
    u64 limit = _db_create_get_path_limit(list->longest);
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    for (u32 i = 0; i != numbers->count; i++) {
        const db_item_t *folder = db_item(numbers->folders[i]);
        if (!std::binary_search(list->names, list->names + list->count, _db_create_get_own_component(folder),
                                _db_create_stands_before) ||
            !_db_create_get_tree_path(&buf, folder, limit))
            continue;
        _db_create_text_t path = {buf.data, static_cast<u32>(buf.length)};
        _db_create_include_t *item = _db_create_find_include(list, path);
        if (!item || item->root != 0)
            continue;
        debug_printf("include only %t\n", path.text, path.length);
        item->old = numbers->folders[i];
        item->root =
            _db_create_copy_to_top(rebuild, source, folder, DB_CREATE_INCLUDE_ROOT, path.text, path.length);
        numbers->folders[i] = item->root;
    }
    utf8_buf_kill(&buf);
}

// Keeps the elements that have a folder, and cuts these off the tree.
static void _db_create_keep_found(_db_create_includes_t *list) {
    u32 kept = 0;
    for (u32 i = 0; i != list->count; i++) {
        const _db_create_include_t *item = &list->items[i];
        if (item->root != 0) {
            mem_ptr<db_item_t>(item->old)->parent = DB_CREATE_ORPHAN;
            list->items[kept++] = *item;
        } else {
            debug_printf("could not find root %d %t\n", i, item->path.text, item->path.length);
        }
    }
    list->count = kept;
    debug_printf("new root count %d\n", kept);
}

// The new parent of a folder: `list` is in the order of the old folders.
static mem_ref_t _db_create_get_new_parent(const _db_create_includes_t *list, mem_ref_t parent) {
    if (parent == DB_CREATE_ROOT)
        return DB_CREATE_ORPHAN; // the volume's own root
    if (parent == DB_CREATE_INCLUDE_ROOT)
        return DB_CREATE_ROOT;
    const _db_create_include_t *items = list->items, *end = items + list->count;
    const _db_create_include_t *item = std::lower_bound(
        items, end, parent, [](const _db_create_include_t &a, mem_ref_t b) { return a.old < b; });
    return item != end && item->old == parent ? item->root : parent;
}

// Logs what a step took, and starts the next one.
static void _db_create_log_step(const char *format, u32 *start) {
    u32 now = os_get_tick_count();
    debug_printf(format, now - *start);
    *start = now;
}

void _db_create_include_only(db_rebuild_t *rebuild, db_create_source_t *source,
                             db_create_numbers_t *numbers) {
    u32 start = os_get_tick_count();
    _db_create_includes_t list;
    _db_create_split_includes(&list, static_cast<const db_index_volume_t *>(source->index)->include_only);
    if (list.count != 0) { // a list that names nothing restricts nothing
        _db_create_log_step("create ntfs root list: %f seconds\n", &start);
        _db_create_sort_includes(&list);
        _db_create_log_step("allocate and sort root list: %f seconds\n", &start);
        _db_create_find_includes(rebuild, source, numbers, &list);
        _db_create_log_step("find include onlys: %f seconds\n", &start);
        _db_create_keep_found(&list);
        _db_create_log_step("rebuild root list with existing roots: %f seconds\n", &start);
        std::sort(list.items, list.items + list.count,
                  [](const auto &a, const auto &b) { return a.old < b.old; });
        _db_create_log_step("resort root list: %f seconds\n", &start);
        for (u32 i = 0; i != numbers->count; i++) {
            db_item_t *folder = mem_ptr<db_item_t>(numbers->folders[i]);
            folder->parent = _db_create_get_new_parent(&list, folder->parent);
        }
    }
    _db_create_free_includes(&list);
}

} // namespace findwright
