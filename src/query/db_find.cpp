#include "query/db_find.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "db/db_item_set.h"
#include "query/db_query_internal.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- By path -----------------------------------------------------------------------------------------------

struct _db_find_name_t {
    mem_ref_t parent; // 0: a top
    const char *text;
    u32 length;
};

// By the loosest comparison of a name and of the folder that holds it, the first two keys of the name order.
static int _db_find_compare(u32 value, const _db_find_name_t *name) {
    const db_item_t *item = db_item(value);
    u32 length;
    const char *text = db_item_get_name(item, &length);
    if (int result = utf8_compare_fold(text, length, name->text, name->length))
        return result;
    return db_parent_compare_path(DB_LEVEL_FOLD, item->parent, name->parent);
}

static int _db_find_compare_first(u32 value, const void *name) {
    return _db_find_compare(value, static_cast<const _db_find_name_t *>(name)) < 0 ? -1 : 1;
}

// Adds the items of a name array that stand in one folder, or at the top of any index, under a name.
static void _db_find_named(const array_t *array, const _db_find_name_t *name, db_level_t level,
                           db_ref_list_t *out) {
    u32 page, value;
    i32 position;
    bool found;
    array_find_position(array, _db_find_compare_first, name, &page, &position, &found);
    while (array_next_to(array, &page, &position, &value) && _db_find_compare(value, name) == 0) {
        u32 length;
        const char *text = db_item_get_name(db_item(value), &length);
        if (db_item(value)->parent == name->parent &&
            db_name_compare_level(level, text, length, name->text, name->length) == 0)
            db_ref_list_add(out, value);
    }
}

static u32 _db_find_trim(const char *path, u32 length) {
    while (length != 0 && path[length - 1] == '\\')
        length--;
    return length;
}

static u32 _db_find_component_end(const char *path, u32 length, u32 start) {
    const void *end = start < length ? std::memchr(path + start, '\\', length - start) : nullptr;
    return end ? static_cast<u32>(static_cast<const char *>(end) - path) : length;
}

// Adds the items of one kind that a path below a top leads to. `start` is the place in the path behind the
// top's separator.
static void _db_find_below(db_t *db, mem_ref_t top, const char *path, u32 length, u32 start, bool is_folder,
                           db_level_t level, db_ref_list_t *out) {
    db_ref_list_t folders = {};
    db_ref_list_add(&folders, top);
    while (folders.count != 0) {
        u32 end = _db_find_component_end(path, length, start);
        bool is_last = end == length;
        db_ref_list_t next = {};
        for (u32 i = 0; i < folders.count; i++) {
            _db_find_name_t name = {folders.refs[i], path + start, end - start};
            _db_find_named(is_last && !is_folder ? &db->file_name_array : &db->folder_name_array, &name,
                           level, is_last ? out : &next);
        }
        db_ref_list_free(&folders);
        folders = next;
        start = end + 1;
    }
    db_ref_list_free(&folders);
}

// The components of the longest path that a system takes: none of the tops has more of them in its name, and
// a path that somebody made up of thousands is not looked for in vain as often.
static constexpr u32 FIND_TOP_COMPONENTS = 2048;

// Adds all items of one kind that have a path, which does not end with a separator. Every beginning of it may
// be the name of a top.
static void _db_find_path(db_t *db, const char *path, u32 length, bool is_folder, db_level_t level,
                          db_ref_list_t *out) {
    for (u32 start = 0, components = 0; start <= length && components < FIND_TOP_COMPONENTS; components++) {
        u32 end = _db_find_component_end(path, length, start);
        _db_find_name_t name = {0, path, end};
        start = end + 1;
        if (end == length) {
            _db_find_named(is_folder ? &db->folder_name_array : &db->file_name_array, &name, level, out);
            break;
        }
        db_ref_list_t tops = {};
        _db_find_named(&db->folder_name_array, &name, level, &tops);
        for (u32 i = 0; i < tops.count; i++)
            _db_find_below(db, tops.refs[i], path, length, start, is_folder, level, out);
        db_ref_list_free(&tops);
    }
}

struct _db_find_found_t {
    mem_ref_t folder, file; // 0: there is none
};

// What a path leads to, by its bytes; or else with any case.
static _db_find_found_t _db_find_any(db_t *db, const char *path, u32 length) {
    _db_find_found_t found = {};
    if (length == 0)
        return found;
    length = _db_find_trim(path, length); // of separators alone an empty name is left: the nameless top's
    for (db_level_t level : {DB_LEVEL_BYTES, DB_LEVEL_LOWER}) {
        for (bool is_folder : {false, true}) {
            db_ref_list_t refs = {};
            _db_find_path(db, path, length, is_folder, level, &refs);
            if (refs.count != 0)
                (is_folder ? found.folder : found.file) = refs.refs[0];
            db_ref_list_free(&refs);
        }
        if (found.folder || found.file)
            break;
    }
    return found;
}

bool db_find_item(db_t *db, const char *path, u32 length, db_result_t *out) {
    _db_find_found_t found = _db_find_any(db, path, length);
    mem_ref_t ref = found.file ? found.file : found.folder;
    *out = {ref ? db_item(ref) : nullptr, !found.file && found.folder};
    return ref != 0;
}

bool db_file_exists(db_t *db, const char *path, u32 length) {
    return _db_find_any(db, path, length).file != 0;
}

bool db_folder_exists(db_t *db, const char *path, u32 length) {
    return length == 0 || _db_find_any(db, path, length).folder != 0;
}

// --- What a folder holds -----------------------------------------------------------------------------------

struct db_find_t : db_query_link_t {
    db_t *db;
    char *path; // owned
    u32 path_length;
    u32 flags;
    u32 sort;
    u32 next_index;
    bool is_stale;
    bool has_tops;         // it is that of the empty path
    db_ref_list_t parents; // the folders whose contents these are
    db_ref_list_t entries; // folders, then files
    u32 folder_count;
};

static void _db_find_clear(db_find_t *find) {
    find->parents.count = find->entries.count = find->folder_count = 0;
    find->next_index = 0;
}

// So many folders in a row are looked at before the rest of what is below one is jumped over.
static constexpr u32 FIND_LOOKS = 16;

// Adds what stands in a folder, where no path order is kept.
static void _db_find_collect_by_pass(const array_t *names, mem_ref_t parent, db_ref_list_t *out) {
    for (u32 i = 0; i < names->page_count; i++) {
        const u32 *values = array_page_values(names->pages[i]);
        for (u32 j = 0; j < names->pages[i]->item_count; j++) {
            if (db_item(values[j])->parent == parent)
                db_ref_list_add(out, values[j]);
        }
    }
}

// The files of one folder stand together but for those of folders whose paths differ in case only.
static void _db_find_collect_files(db_t *db, mem_ref_t parent, db_ref_list_t *out) {
    if (!(db->layout.flags & DB_FLAG_FAST_PATH)) {
        _db_find_collect_by_pass(&db->file_name_array, parent, out);
        return;
    }
    auto compare = [](u32 value, const void *key) {
        mem_ref_t folder = *static_cast<const mem_ref_t *>(key);
        return db_parent_compare_path(DB_LEVEL_FOLD, db_item(value)->parent, folder) < 0 ? -1 : 1;
    };
    u32 page, value;
    i32 position;
    bool found;
    array_find_position(&db->file_path_array, compare, &parent, &page, &position, &found);
    while (array_next_to(&db->file_path_array, &page, &position, &value)) {
        if (db_item(value)->parent == parent)
            db_ref_list_add(out, value);
        else if (db_parent_compare_path(DB_LEVEL_FOLD, db_item(value)->parent, parent) != 0)
            break;
    }
}

// The last of the folders that stand below one in the order of the paths, or in front of it.
static void _db_find_jump(const array_t *array, const db_item_t *over, u32 *page, i32 *position) {
    bool found;
    auto compare = [](u32 value, const void *folder) {
        return db_folder_compare_below(db_item(value), static_cast<const db_item_t *>(folder)) <= 0 ? -1 : 1;
    };
    array_find_position(array, compare, over, page, position, &found);
}

// All that is below a folder stands together; behind each child comes, somewhere, what is below it.
static void _db_find_collect_folders(db_t *db, const db_item_t *parent, db_ref_list_t *out) {
    if (!(db->layout.flags & DB_FLAG_FAST_PATH)) {
        _db_find_collect_by_pass(&db->folder_name_array, mem_ref(parent), out);
        return;
    }
    const array_t *array = &db->folder_path_array;
    auto compare = [](u32 value, const void *folder) {
        return db_folder_compare_below(db_item(value), static_cast<const db_item_t *>(folder)) < 0 ? -1 : 1;
    };
    u32 page, value, looks = 0;
    i32 position;
    bool found;
    array_find_position(array, compare, parent, &page, &position, &found);
    while (array_next_to(array, &page, &position, &value)) {
        const db_item_t *item = db_item(value);
        if (item->parent == mem_ref(parent)) {
            db_ref_list_add(out, value);
            looks = 0;
            continue;
        }
        if (db_folder_compare_below(item, parent) != 0)
            break;
        if (++looks < FIND_LOOKS)
            continue;
        // The highest folder above it that is below, too: what is below that one stands together. It is the
        // child that came last, or a child of a folder whose path differs in case only.
        const db_item_t *highest = item;
        while (!db_item_is_top(highest) && db_folder_compare_below(db_item(highest->parent), parent) == 0)
            highest = db_item(highest->parent);
        if (highest == item)
            continue;
        _db_find_jump(array, highest, &page, &position);
        looks = 0;
    }
}

// The tops of all indexes, which may stand anywhere, and the contents of those that have no name.
static void _db_find_collect_tops(db_find_t *find, db_ref_list_t *folders, db_ref_list_t *files) {
    db_ref_list_t tops = {};
    _db_find_collect_by_pass(&find->db->folder_name_array, 0, &tops);
    for (u32 i = 0; i < tops.count; i++)
        db_ref_list_add(db_item_get_name_length(db_item(tops.refs[i])) != 0 ? folders : &find->parents,
                        tops.refs[i]);
    db_ref_list_free(&tops);
    _db_find_collect_files(find->db, 0, files);
}

static bool _db_find_collect(db_find_t *find) {
    db_ref_list_t folders = {}, files = {};
    if (find->has_tops) {
        _db_find_collect_tops(find, &folders, &files);
    } else {
        _db_find_found_t found = _db_find_any(find->db, find->path, find->path_length);
        if (!found.folder)
            return false;
        utf8_buf_t path;
        utf8_buf_init(&path);
        db_item_get_full_path_name(&path, db_item(found.folder));
        _db_find_path(find->db, path.data, static_cast<u32>(path.length), true, DB_LEVEL_BYTES,
                      &find->parents);
        utf8_buf_kill(&path);
    }
    for (u32 i = 0; i < find->parents.count; i++) {
        _db_find_collect_folders(find->db, db_item(find->parents.refs[i]), &folders);
        _db_find_collect_files(find->db, find->parents.refs[i], &files);
    }
    find->folder_count = folders.count;
    for (const db_ref_list_t *list : {&folders, &files}) {
        for (u32 i = 0; i < list->count; i++)
            db_ref_list_add(&find->entries, list->refs[i]);
    }
    db_ref_list_free(&folders);
    db_ref_list_free(&files);
    return true;
}

// --- Order -------------------------------------------------------------------------------------------------

using _db_find_compare_t = int(u32 a, u32 b, void *db);

static int _db_find_compare_name(u32 a, u32 b, void *) {
    return db_item_compare_name(db_item(a), db_item(b));
}

static const struct {
    u32 sort;
    _db_find_compare_t *folders, *files;
} _db_find_orders[] = {
    {DB_SORT_NAME_ASCENDING, _db_find_compare_name, _db_find_compare_name},
    {DB_SORT_PATH_ASCENDING,
     [](u32 a, u32 b, void *) { return db_folder_compare_path(db_item(a), db_item(b)); },
     [](u32 a, u32 b, void *) { return db_file_compare_path(db_item(a), db_item(b)); }},
    {DB_SORT_SIZE_ASCENDING,
     [](u32 a, u32 b, void *db) {
         return db_folder_compare_size(static_cast<db_t *>(db), db_item(a), db_item(b));
     },
     [](u32 a, u32 b, void *db) {
         return db_file_compare_size(static_cast<db_t *>(db), db_item(a), db_item(b));
     }},
    {DB_SORT_DATE_MODIFIED_ASCENDING,
     [](u32 a, u32 b, void *db) {
         return db_folder_compare_date_modified(static_cast<db_t *>(db), db_item(a), db_item(b));
     },
     [](u32 a, u32 b, void *db) {
         return db_file_compare_date_modified(static_cast<db_t *>(db), db_item(a), db_item(b));
     }},
};

bool db_find_sort(db_find_t *find, u32 sort) {
    for (const auto &order : _db_find_orders) {
        if (order.sort != (sort & ~DB_SORT_DESCENDING))
            continue;
        find->sort = sort;
        find->next_index = 0;
        u32 *folders = find->entries.refs, *files = folders + find->folder_count;
        u32 file_count = find->entries.count - find->folder_count;
        if (find->entries.count == 0)
            return true;
        os_qsort_with_param(folders, find->folder_count, order.folders, find->db);
        os_qsort_with_param(files, file_count, order.files, find->db);
        if (sort & DB_SORT_DESCENDING) {
            std::reverse(folders, files);
            std::reverse(files, files + file_count);
        }
        return true;
    }
    return false;
}

// --- Live updates ------------------------------------------------------------------------------------------

static void _db_find_become_stale(db_query_link_t *link) {
    db_find_t *find = static_cast<db_find_t *>(link);
    find->is_stale = true;
    _db_find_clear(find);
}

static bool _db_find_has_parent(const db_find_t *find, mem_ref_t ref) {
    return std::find(find->parents.refs, find->parents.refs + find->parents.count, ref) !=
           find->parents.refs + find->parents.count;
}

// An item's record or its place goes.
static void _db_find_lose(db_query_link_t *link, const db_item_t *item) {
    db_find_t *find = static_cast<db_find_t *>(link);
    if ((find->has_tops && db_item_is_top(item)) || _db_find_has_parent(find, item->parent) ||
        _db_find_has_parent(find, mem_ref(item)))
        _db_find_become_stale(link);
}

static void _db_find_lose_many(db_query_link_t *link, const db_item_set_t *folders,
                               const db_item_set_t *files) {
    db_find_t *find = static_cast<db_find_t *>(link);
    bool loses = false;
    for (u32 i = 0; i < find->parents.count && !loses; i++)
        loses = db_item_set_has(folders, find->parents.refs[i]);
    for (u32 i = 0; i < find->entries.count && !loses; i++)
        loses = db_item_set_has(i < find->folder_count ? folders : files, find->entries.refs[i]);
    if (loses)
        _db_find_become_stale(link);
}

static void _db_find_nothing(db_query_link_t *) {}

static const db_query_hooks_t _db_find_hooks = {
    .get_busy_text = nullptr, // it has no worker
    .cancel = nullptr,
    .cancelled = nullptr,
    .wait_ended = _db_find_nothing,
    .ready = _db_find_nothing,
    .status_changed = _db_find_nothing,
    .rebuild_started = _db_find_become_stale,
    .load_complete = _db_find_nothing,
};

static const db_live_hooks_t _db_find_live = {
    .item_leaves =
        [](db_query_link_t *link, const db_item_t *item, bool, u32 changes) {
            if (changes & DB_CHANGE_PLACE)
                _db_find_lose(link, item);
        },
    .item_enters =
        [](db_query_link_t *link, const db_item_t *old, const db_item_t *item, bool, u32) {
            if (old && old != item)
                _db_find_lose(link, old);
        },
    .item_gone = [](db_query_link_t *link, const db_item_t *item, bool) { _db_find_lose(link, item); },
    .items_gone = _db_find_lose_many,
    .tree_moves = _db_find_become_stale,
    .items_updated = _db_find_nothing,
};

// --- Life --------------------------------------------------------------------------------------------------

static bool _db_find_start(db_find_t *find) {
    _db_find_clear(find);
    if (!_db_find_collect(find))
        return false;
    find->is_stale = false;
    // One folder's entries come in name order.
    if (find->sort != DB_SORT_NAME_ASCENDING || find->has_tops || find->parents.count > 1)
        db_find_sort(find, find->sort);
    return true;
}

db_find_t *db_find_first_file(db_t *db, const char *path, u32 length, u32 flags) {
    db_find_t *find = new (mem_alloc(sizeof(db_find_t))) db_find_t();
    find->hooks = &_db_find_hooks;
    find->live = &_db_find_live;
    find->db = db;
    find->has_tops = length == 0;
    find->path_length = length;
    find->path = utf8_alloc_copy_length(path, length);
    find->flags = flags;
    find->sort = DB_SORT_NAME_ASCENDING;
    find->is_stale = true;
    db_add_query(db, find);
    if (!_db_find_start(find)) {
        db_find_close(find);
        return nullptr;
    }
    return find;
}

void db_find_close(db_find_t *find) {
    db_remove_query(find->db, find);
    db_ref_list_free(&find->parents);
    db_ref_list_free(&find->entries);
    mem_free(find->path);
    mem_free(find);
}

bool db_find_is_stale(const db_find_t *find) {
    return find->is_stale;
}

bool db_find_restart(db_find_t *find) {
    return _db_find_start(find);
}

u32 db_find_get_count(const db_find_t *find) {
    return find->entries.count;
}

bool db_find_get_entry(const db_find_t *find, u32 index, db_find_entry_t *out) {
    *out = {{nullptr, false}, VALUE_UNKNOWN, VALUE_UNKNOWN};
    if (index >= find->entries.count)
        return false;
    const db_item_t *item = out->item = db_item(find->entries.refs[index]);
    out->is_folder = index < find->folder_count;
    if (find->flags & DB_FLAG_SIZE)
        out->size = out->is_folder ? db_folder_get_size(find->db, item) : db_file_get_size(find->db, item);
    if (find->flags & DB_FLAG_DATE_MODIFIED)
        out->date_modified = out->is_folder ? db_folder_get_date_modified(find->db, item)
                                            : db_file_get_date_modified(find->db, item);
    return true;
}

bool db_find_next_file(db_find_t *find, db_find_entry_t *out) {
    if (!db_find_get_entry(find, find->next_index, out))
        return false;
    find->next_index++;
    return true;
}

} // namespace findwright
