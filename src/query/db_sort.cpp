// Brings results to an order: by reversal; by walking an array of the database that is in that order and
// picking the results out of it, which compares nothing; or, where the results are few and an order by
// numbers is wanted, by sorting them.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_parallel.h"
#include "query/db_result_internal.h"

#include <algorithm>

namespace findwright {

// What stands in `parent` of a result while the walk picks it out.
static constexpr mem_ref_t SORT_MARK = 2;
static constexpr u32 WALK_AHEAD = 16; // records that are asked of the memory before they are needed

u32 db_sort_get_fast_flag(u32 sort) {
    switch (sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_NAME_ASCENDING: return 0;
    case DB_SORT_PATH_ASCENDING: return DB_FLAG_FAST_PATH;
    case DB_SORT_SIZE_ASCENDING: return DB_FLAG_FAST_SIZE;
    case DB_SORT_EXTENSION_ASCENDING: return DB_FLAG_FAST_EXTENSION;
    case DB_SORT_DATE_CREATED_ASCENDING: return DB_FLAG_FAST_DATE_CREATED;
    case DB_SORT_DATE_MODIFIED_ASCENDING: return DB_FLAG_FAST_DATE_MODIFIED;
    case DB_SORT_ATTRIBUTES_ASCENDING: return DB_FLAG_FAST_ATTRIBUTES;
    case DB_SORT_DATE_ACCESSED_ASCENDING: return DB_FLAG_FAST_DATE_ACCESSED;
    default: return ~0u;
    }
}

// --- The walk ----------------------------------------------------------------------------------------------

// Puts a mark into the `parent` of every item of an array; what stood there goes to `saved`. Returns its end.
static mem_ref_t *_db_mark_results(const array_t *results, mem_ref_t *saved) {
    for (u32 page = 0; page < results->page_count; page++) {
        const u32 *values = array_page_values(results->pages[page]);
        for (u32 i = 0, count = results->pages[page]->item_count; i < count; i++) {
            if (i + WALK_AHEAD < count)
                __builtin_prefetch(db_item(values[i + WALK_AHEAD]), 1);
            db_item_t *item = mem_ptr<db_item_t>(values[i]);
            *saved++ = item->parent;
            item->parent = SORT_MARK;
        }
    }
    return saved;
}

static const mem_ref_t *_db_unmark_results(const array_t *results, const mem_ref_t *saved) {
    for (u32 page = 0; page < results->page_count; page++) {
        const u32 *values = array_page_values(results->pages[page]);
        for (u32 i = 0, count = results->pages[page]->item_count; i < count; i++) {
            if (i + WALK_AHEAD < count)
                __builtin_prefetch(db_item(values[i + WALK_AHEAD]), 1);
            mem_ptr<db_item_t>(values[i])->parent = *saved++;
        }
    }
    return saved;
}

struct _db_walk_t {
    const array_t *source;
    bool reversed;
    array_t *picked; // one per part
};

static void _db_walk_proc(void *param, u32 part, u32 parts) {
    const _db_walk_t *walk = static_cast<const _db_walk_t *>(param);
    u64 pages = walk->source->page_count;
    u32 *cursor = nullptr, *end = nullptr;
    array_t *picked = &walk->picked[part];
    array_init(picked);
    for (u64 step = pages * part / parts; step < pages * (part + 1) / parts; step++) {
        const array_page_t *page = walk->source->pages[walk->reversed ? pages - 1 - step : step];
        const u32 *values = array_page_values(page);
        u32 count = page->item_count;
        for (u32 i = 0; i < count; i++) {
            u32 place = walk->reversed ? count - 1 - i : i;
            if (i + WALK_AHEAD < count)
                __builtin_prefetch(db_item(values[walk->reversed ? place - WALK_AHEAD : place + WALK_AHEAD]));
            if (db_item(values[place])->parent != SORT_MARK)
                continue;
            if (cursor == end)
                cursor = array_builder_new_page(picked, &end);
            *cursor++ = values[place];
        }
    }
    array_builder_finish(picked, cursor, end);
}

// Replaces `results` by their members in the order of `source`.
static void _db_walk(const array_t *source, bool reversed, array_t *results) {
    u32 parts = os_get_thread_count(source->count, 65536);
    _db_walk_t walk = {source, reversed, static_cast<array_t *>(mem_alloc(parts * sizeof(array_t)))};
    os_parallel(parts, _db_walk_proc, &walk);
    array_clear(results);
    for (u32 i = 0; i < parts; i++) {
        array_take_pages(results, &walk.picked[i]);
        array_kill(&walk.picked[i]);
    }
    mem_free(walk.picked);
}

static void _db_copy_all(array_t *results, const array_t *source, bool reversed) {
    array_clear(results);
    if (reversed)
        array_set_reversed(results, source);
    else
        array_copy(results, source);
}

static bool _db_sort_by_walk(db_query_t *query, u32 sort) {
    db_array_pair_t arrays = db_get_sorted_arrays(query->db, db_sort_get_fast_flag(sort));
    if (!arrays.files)
        return false;
    bool reversed = sort & DB_SORT_DESCENDING;
    u32 count = query->folder_results.count + query->file_results.count;
    if (count == query->db->folder_name_array.count + query->db->file_name_array.count) {
        debug_printf("sort all results\n");
        _db_copy_all(&query->folder_results, arrays.folders, reversed);
        _db_copy_all(&query->file_results, arrays.files, reversed);
    } else if (count != 0) {
        mem_ref_t *saved = static_cast<mem_ref_t *>(mem_alloc(static_cast<size_t>(count) * sizeof *saved));
        _db_mark_results(&query->file_results, _db_mark_results(&query->folder_results, saved));
        array_t folders = query->folder_results, files = query->file_results; // the old order, to unmark by
        array_init(&query->folder_results);
        array_init(&query->file_results);
        _db_walk(arrays.folders, reversed, &query->folder_results);
        _db_walk(arrays.files, reversed, &query->file_results);
        _db_unmark_results(&files, _db_unmark_results(&folders, saved));
        array_kill(&folders);
        array_kill(&files);
        mem_free(saved);
    }
    debug_printf("SET SORT 2 %d\n", sort);
    query->sort = sort;
    query->folders_first = !reversed;
    return true;
}

// --- Gathering ---------------------------------------------------------------------------------------------

// Few results are sorted by themselves; the walk takes as long as the index is large.
static constexpr u32 GATHER_PART = 16;

struct _db_gathered_t {
    u64 key;
    u32 value;
};

// The column that an order sorts by; its values stand in the order's own order.
static u64 _db_get_sort_key(const db_t *db, const db_item_t *item, bool is_folder, u32 sort) {
    switch (sort) {
    case DB_SORT_SIZE_ASCENDING: return is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
    case DB_SORT_DATE_CREATED_ASCENDING:
        return is_folder ? db_folder_get_date_created(db, item) : db_file_get_date_created(db, item);
    case DB_SORT_DATE_MODIFIED_ASCENDING:
        return is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
    default: return is_folder ? db_folder_get_date_accessed(db, item) : db_file_get_date_accessed(db, item);
    }
}

// Sorts results in name order by a column: equal values keep their order. Unknown values stand first.
static void _db_gather(const db_t *db, array_t *results, bool is_folder, u32 sort) {
    u32 count = results->count;
    _db_gathered_t *gathered = static_cast<_db_gathered_t *>(mem_alloc((count + 1) * sizeof *gathered));
    u32 page = 0, value, n = 0;
    i32 position = -1;
    while (array_next_to(results, &page, &position, &value))
        gathered[n++] = {_db_get_sort_key(db, db_item(value), is_folder, sort) + 1, value};
    std::stable_sort(gathered, gathered + n,
                     [](const _db_gathered_t &a, const _db_gathered_t &b) { return a.key < b.key; });
    u32 *values = static_cast<u32 *>(mem_alloc((count + 1) * sizeof *values));
    for (u32 i = 0; i < n; i++)
        values[i] = gathered[i].value;
    array_set_from_memory(results, values, n);
    mem_free(values);
    mem_free(gathered);
}

static bool _db_sort_by_gathering(db_query_t *query, u32 sort) {
    const db_t *db = query->db;
    u32 ascending = sort & ~DB_SORT_DESCENDING;
    bool is_number = ascending == DB_SORT_SIZE_ASCENDING || ascending == DB_SORT_DATE_CREATED_ASCENDING ||
                     ascending == DB_SORT_DATE_MODIFIED_ASCENDING ||
                     ascending == DB_SORT_DATE_ACCESSED_ASCENDING;
    u64 count = static_cast<u64>(query->folder_results.count) + query->file_results.count;
    u64 all = static_cast<u64>(db->folder_name_array.count) + db->file_name_array.count;
    if (!is_number || !query->sorted || query->sort != DB_SORT_NAME_ASCENDING || count > all / GATHER_PART ||
        !db_get_sorted_arrays(query->db, db_sort_get_fast_flag(sort)).files)
        return false;
    // Folders without sizes of their own stand in name order under an order by size.
    if (ascending != DB_SORT_SIZE_ASCENDING || db->layout.flags & DB_FLAG_FOLDER_SIZE)
        _db_gather(db, &query->folder_results, true, ascending);
    _db_gather(db, &query->file_results, false, ascending);
    query->sort = ascending;
    query->folders_first = 1;
    if (sort & DB_SORT_DESCENDING) {
        array_reverse(&query->folder_results);
        array_reverse(&query->file_results);
        query->sort = sort;
        query->folders_first = 0;
    }
    debug_printf("SET SORT 2 %d\n", sort);
    return true;
}

// --- The sort ----------------------------------------------------------------------------------------------

void db_sort_results(db_query_t *query, u32 sort) {
    u32 start = os_get_tick_count();
    debug_printf("set sort %d %d\n", query->sort, sort);
    if (query->sorted && query->sort == sort) {
        debug_printf("already sorted\n");
    } else if (query->sorted && query->sort == (sort ^ DB_SORT_DESCENDING)) {
        array_reverse(&query->folder_results);
        array_reverse(&query->file_results);
        query->folders_first = !query->folders_first;
        query->sort = sort;
        debug_printf("SET SORT 3 %d\n", sort);
        _db_query_post_results_changed(query);
    } else if (_db_sort_by_gathering(query, sort) || _db_sort_by_walk(query, sort)) {
        _db_query_post_results_changed(query);
    }
    debug_printf("finished sort, time taken %f seconds\n", os_get_tick_count() - start);
}

} // namespace findwright
