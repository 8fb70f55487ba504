// Operations on all that is below a folder.
//
// Records have no lists of children, so what is below a folder has to be found: where there are orders by
// path, as one piece of them (files: two); else by their parents, in one pass over all folders and one over
// all files, on several threads.
#include "base/mem.h"
#include "base/pointer_pool.h"
#include "db/db_file.h"
#include "os/os_parallel.h"
#include "track/db_live_internal.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

namespace findwright {

static constexpr u32 DB_LIVE_MANY_SHARE = 1024;
static constexpr u32 PASS_VALUES = 65536; // a thread is worth its start for so many values

u32 db_live_few = 64;

// --- Found by path -----------------------------------------------------------------------------------------

// Relations of a value to a piece of an order by path: -1 before it, 0 in it, 1 behind.
static int _db_relate_folder(u32 value, const db_folder_t *top) {
    return db_folder_compare_below(db_item(value), top);
}
static int _db_relate_file(u32 value, const db_folder_t *top) {
    mem_ref_t parent = db_item(value)->parent;
    return parent < MEM_REF_FIRST ? -1 : db_folder_compare_below(db_item(parent), top);
}
static int _db_relate_child(u32 value, const db_folder_t *top) {
    mem_ref_t parent = db_item(value)->parent;
    return parent < MEM_REF_FIRST ? -1 : db_folder_compare_path_fold(db_item(parent), top);
}

template<int (*relate)(u32 value, const db_folder_t *top)>
static int _db_compare_begin(u32 value, const void *top) {
    return relate(value, static_cast<const db_folder_t *>(top)) < 0 ? -1 : 1;
}

// Appends those values of a piece whose chain leads to the folder itself: others may have the same path but
// for case and accents.
template<int (*relate)(u32 value, const db_folder_t *top)>
static void _db_tree_add_piece(const array_t *array, const db_folder_t *top, pointer_pool_t *out) {
    u32 page, value;
    i32 position;
    bool found;
    array_find_position(array, _db_compare_begin<relate>, top, &page, &position, &found);
    mem_ref_t top_ref = mem_ref(top), last_parent = 0;
    bool is_last_below = false;
    while (array_next_to(array, &page, &position, &value) && relate(value, top) == 0) {
        mem_ref_t parent = db_item(value)->parent;
        if (parent != last_parent) { // neighbours mostly have the same
            last_parent = parent;
            is_last_below = db_item_is_below(db_item(value), &top_ref, 1);
        }
        if (is_last_below)
            pointer_pool_push(out, value);
    }
}

// --- Found by a pass over all ------------------------------------------------------------------------------

struct _db_tree_pass_t {
    const array_t *array;
    mem_ref_t top;
    db_item_set_t *inside;  // folders that are known to be below the top, and the top
    db_item_set_t *outside; // that are known not to be
    pointer_pool_t *found;  // one per part
};

// Climbs to a folder that is known, and notes the answer for all on the way.
static bool _db_tree_is_inside(_db_tree_pass_t *pass, mem_ref_t folder) {
    mem_ref_t up = folder;
    bool inside;
    for (;;) {
        if ((inside = db_item_set_has_shared(pass->inside, up)) ||
            db_item_set_has_shared(pass->outside, up) || db_item_is_top(db_item(up)))
            break;
        up = db_item(up)->parent;
    }
    db_item_set_t *known = inside ? pass->inside : pass->outside;
    for (mem_ref_t ref = folder;; ref = db_item(ref)->parent) {
        db_item_set_add_shared(known, ref);
        if (ref == up)
            return inside;
    }
}

static void _db_tree_folders_proc(void *param, u32 part, u32 parts) {
    _db_tree_pass_t *pass = static_cast<_db_tree_pass_t *>(param);
    u64 pages = pass->array->page_count;
    for (u64 page = pages * part / parts; page < pages * (part + 1) / parts; page++) {
        const u32 *values = array_page_values(pass->array->pages[page]);
        for (u32 i = 0; i < pass->array->pages[page]->item_count; i++) {
            if (values[i] != pass->top && _db_tree_is_inside(pass, values[i]))
                pointer_pool_push(&pass->found[part], values[i]);
        }
    }
}

// All folders are known by now.
static void _db_tree_files_proc(void *param, u32 part, u32 parts) {
    _db_tree_pass_t *pass = static_cast<_db_tree_pass_t *>(param);
    u64 pages = pass->array->page_count;
    for (u64 page = pages * part / parts; page < pages * (part + 1) / parts; page++) {
        const u32 *values = array_page_values(pass->array->pages[page]);
        for (u32 i = 0; i < pass->array->pages[page]->item_count; i++) {
            if (db_item_set_has(pass->inside, db_item(values[i])->parent))
                pointer_pool_push(&pass->found[part], values[i]);
        }
    }
}

static void _db_tree_run_pass(_db_tree_pass_t *pass, const array_t *array, os_parallel_proc_t *proc,
                              pointer_pool_t *out) {
    u32 parts = os_get_thread_count(array->count, PASS_VALUES);
    pass->array = array;
    pass->found = static_cast<pointer_pool_t *>(mem_alloc(parts * sizeof *pass->found));
    for (u32 i = 0; i < parts; i++)
        pointer_pool_init(&pass->found[i]);
    os_parallel(parts, proc, pass);
    for (u32 i = 0; i < parts; i++) {
        for (u32 k = 0, count = pointer_pool_count(&pass->found[i]); k < count; k++)
            pointer_pool_push(out, pointer_pool_get(&pass->found[i], k));
        pointer_pool_kill(&pass->found[i]);
    }
    mem_free(pass->found);
}

static void _db_tree_find_by_passes(db_t *db, const db_folder_t *folder, pointer_pool_t *folders,
                                    pointer_pool_t *files) {
    db_item_set_t *inside = db_item_set_create(&db->folder_name_array);
    _db_tree_pass_t pass = {nullptr, mem_ref(folder), inside, db_item_set_create_like(inside), nullptr};
    db_item_set_add(inside, pass.top);
    _db_tree_run_pass(&pass, &db->folder_name_array, _db_tree_folders_proc, folders);
    _db_tree_run_pass(&pass, &db->file_name_array, _db_tree_files_proc, files);
    db_item_set_free(pass.outside);
    db_item_set_free(inside);
}

// --- A tree ------------------------------------------------------------------------------------------------

static mem_ref_t *_db_tree_take(pointer_pool_t *pool, u32 *count) {
    *count = pointer_pool_count(pool);
    mem_ref_t *items = static_cast<mem_ref_t *>(mem_alloc((*count + 1) * sizeof *items));
    pointer_pool_copy(pool, items);
    pointer_pool_kill(pool);
    return items;
}

void _db_live_tree_find(db_t *db, const db_folder_t *folder, db_live_tree_t *tree) {
    pointer_pool_t folders, files;
    pointer_pool_init(&folders);
    pointer_pool_init(&files);
    if (db->layout.flags & DB_FLAG_FAST_PATH) {
        _db_tree_add_piece<_db_relate_folder>(&db->folder_path_array, folder, &folders);
        _db_tree_add_piece<_db_relate_child>(&db->file_path_array, folder, &files);
        _db_tree_add_piece<_db_relate_file>(&db->file_path_array, folder, &files);
    } else {
        _db_tree_find_by_passes(db, folder, &folders, &files);
    }
    tree->folders = _db_tree_take(&folders, &tree->folder_count);
    tree->files = _db_tree_take(&files, &tree->file_count);
}

void _db_live_tree_kill(db_live_tree_t *tree) {
    mem_free(tree->folders);
    mem_free(tree->files);
}

bool _db_live_tree_is_large(const db_t *db, const db_live_tree_t *tree) {
    u32 count = tree->folder_count + tree->file_count;
    u32 all = db->folder_name_array.count + db->file_name_array.count;
    return count > db_live_few && count > all / DB_LIVE_MANY_SHARE;
}

static db_item_set_t *_db_tree_get_set(const db_t *db, const mem_ref_t *items, u32 count) {
    mem_ref_t first = ~static_cast<mem_ref_t>(0), last = 0;
    for (u32 i = 0; i < count; i++) {
        first = items[i] < first ? items[i] : first;
        last = items[i] > last ? items[i] : last;
    }
    db_item_set_t *set = db_item_set_create_range(first, last, db_item_set_get_shift(&db->layout));
    for (u32 i = 0; i < count; i++)
        db_item_set_add(set, items[i]);
    return set;
}

db_live_sets_t _db_live_tree_get_sets(const db_t *db, const db_live_tree_t *tree) {
    return {_db_tree_get_set(db, tree->folders, tree->folder_count),
            _db_tree_get_set(db, tree->files, tree->file_count)};
}

static void _db_live_sets_kill(db_live_sets_t *sets) {
    db_item_set_free(sets->folders);
    db_item_set_free(sets->files);
}

// --- Removal -----------------------------------------------------------------------------------------------

static void _db_tree_forget_many(db_t *db, const db_live_sets_t *sets) {
    for (db_query_link_t *query = db->query_first; query; query = query->next) {
        if (query->live)
            query->live->items_gone(query, sets->folders, sets->files);
    }
    db_recent_change_remove_many(db, sets->folders, sets->files);
    db_run_history_items_removed(db, sets->folders, sets->files);
    db_forget_updated_many(db, sets->folders, sets->files);
}

// Their chains hold until the last of them is out of all arrays.
static void _db_tree_remove_few(db_t *db, const db_live_tree_t *tree) {
    for (u32 i = 0; i < tree->file_count + tree->folder_count; i++) {
        bool is_folder = i >= tree->file_count;
        const db_item_t *item = db_item(is_folder ? tree->folders[i - tree->file_count] : tree->files[i]);
        _db_live_leave(db, item, is_folder, DB_CHANGE_PLACE);
        _db_live_take_out(db, item, is_folder);
        _db_live_forget(db, item, is_folder);
    }
}

// A record's size depends on its index, which a chain that is being freed does not tell any more.
static void _db_tree_free(db_t *db, db_live_tree_t *tree, db_index_type_t type) {
    for (u32 i = 0; i < tree->file_count; i++)
        db_file_free(db, mem_ptr<db_file_t>(tree->files[i]));
    for (u32 i = 0; i < tree->folder_count; i++)
        db_folder_free_typed(db, mem_ptr<db_folder_t>(tree->folders[i]), type);
    tree->file_count = tree->folder_count = 0;
}

void _db_live_tree_remove(db_t *db, db_live_tree_t *tree) {
    if (tree->folder_count + tree->file_count == 0)
        return;
    const db_item_t *any = db_item(tree->file_count != 0 ? tree->files[0] : tree->folders[0]);
    db_index_type_t type = db_get_index(any)->type;
    if (_db_live_tree_is_large(db, tree)) {
        db_live_sets_t sets = _db_live_tree_get_sets(db, tree);
        _db_tree_forget_many(db, &sets);
        _db_live_remove_many(db, tree, &sets);
        _db_live_sets_kill(&sets);
    } else {
        _db_tree_remove_few(db, tree);
    }
    _db_tree_free(db, tree, type);
}

// --- Moves -------------------------------------------------------------------------------------------------

static void _db_tree_set_parents(const mem_ref_t *items, u32 count, mem_ref_t from, mem_ref_t to) {
    for (u32 i = 0; i < count; i++) {
        db_item_t *item = mem_ptr<db_item_t>(items[i]);
        if (item->parent == from)
            item->parent = to;
    }
}

static void _db_tree_set_all_parents(const db_live_tree_t *tree, const db_folder_t *from,
                                     const db_folder_t *to) {
    _db_tree_set_parents(tree->folders, tree->folder_count, mem_ref(from), mem_ref(to));
    _db_tree_set_parents(tree->files, tree->file_count, mem_ref(from), mem_ref(to));
}

// The items that were opened before keep their counts under their new paths.
struct _db_tree_runs_t {
    mem_ref_t item;
    bool is_folder;
    db_run_history_move_t *move;
};
struct _db_tree_run_list_t {
    _db_tree_runs_t *runs;
    u32 count;
};

static _db_tree_run_list_t _db_tree_take_runs(db_t *db, const db_live_tree_t *tree) {
    _db_tree_run_list_t list = {};
    u32 all = tree->file_count + tree->folder_count;
    if (db->run_history_by_item.count == 0)
        return list;
    u32 capacity = all < db->run_history_by_item.count ? all : db->run_history_by_item.count;
    list.runs = static_cast<_db_tree_runs_t *>(mem_alloc((capacity + 1) * sizeof *list.runs));
    for (u32 i = 0; i < all; i++) {
        bool is_folder = i >= tree->file_count;
        mem_ref_t item = is_folder ? tree->folders[i - tree->file_count] : tree->files[i];
        if (db_run_history_move_t *move = db_run_history_take(db, db_item(item)))
            list.runs[list.count++] = {item, is_folder, move};
    }
    return list;
}

static void _db_tree_give_runs(db_t *db, _db_tree_run_list_t *list) {
    for (u32 i = 0; i < list->count; i++)
        db_run_history_give(db, list->runs[i].move, db_item(list->runs[i].item), list->runs[i].is_folder);
    if (list->runs)
        mem_free(list->runs);
}

static constexpr u32 TREE_CHANGES = DB_CHANGE_PLACE | DB_CHANGE_RUNS;

static void _db_tree_move_few(db_t *db, const db_live_tree_t *tree, const db_folder_t *from,
                              const db_folder_t *to) {
    u32 all = tree->file_count + tree->folder_count;
    auto get = [tree](u32 i, bool *is_folder) {
        *is_folder = i >= tree->file_count;
        return db_item(*is_folder ? tree->folders[i - tree->file_count] : tree->files[i]);
    };
    bool is_folder;
    for (u32 i = 0; i < all; i++) {
        const db_item_t *item = get(i, &is_folder);
        _db_live_leave(db, item, is_folder, TREE_CHANGES);
    }
    for (u32 i = 0; i < all; i++) {
        const db_item_t *item = get(i, &is_folder);
        _db_live_take_out(db, item, is_folder);
    }
    _db_tree_run_list_t runs = _db_tree_take_runs(db, tree);
    _db_tree_set_all_parents(tree, from, to);
    for (u32 i = 0; i < all; i++) {
        const db_item_t *item = get(i, &is_folder);
        _db_live_put_in(db, item, is_folder, nullptr);
    }
    _db_tree_give_runs(db, &runs);
    for (u32 i = 0; i < all; i++) {
        const db_item_t *item = get(i, &is_folder);
        _db_live_enter(db, item, item, is_folder, TREE_CHANGES);
    }
}

static void _db_tree_move_many(db_t *db, const db_live_tree_t *tree, const db_folder_t *from,
                               const db_folder_t *to) {
    for (db_query_link_t *query = db->query_first; query; query = query->next) {
        if (query->live)
            query->live->tree_moves(query);
    }
    _db_tree_run_list_t runs = _db_tree_take_runs(db, tree);
    _db_tree_set_all_parents(tree, from, to);
    db_live_sets_t sets = _db_live_tree_get_sets(db, tree);
    _db_live_move_many(db, tree, &sets);
    _db_live_sets_kill(&sets);
    _db_tree_give_runs(db, &runs);
}

void _db_live_tree_move(db_t *db, db_live_tree_t *tree, const db_folder_t *folder, db_folder_t *to) {
    if (_db_live_tree_is_large(db, tree))
        _db_tree_move_many(db, tree, folder, to);
    else
        _db_tree_move_few(db, tree, folder, to);
}

} // namespace findwright
