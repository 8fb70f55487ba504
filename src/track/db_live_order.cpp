// The sorted arrays under live updates: one item by binary search, many in one pass over each array.
#include "base/mem.h"
#include "db/db_file.h"
#include "os/os_parallel.h"
#include "track/db_live_internal.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- The table ---------------------------------------------------------------------------------------------

using _db_item_compare_t = int(const db_t *db, const db_item_t *a, const db_item_t *b);

template<_db_item_compare_t *compare>
static int _db_live_compare(u32 value, const void *key_pointer) {
    const db_live_key_t *key = static_cast<const db_live_key_t *>(key_pointer);
    return compare(key->db, db_item(value), key->item);
}

static int _db_compare_name(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_item_compare_name(a, b);
}
static int _db_compare_file_path(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_file_compare_path(a, b);
}
static int _db_compare_folder_path(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_folder_compare_path(a, b);
}

static const db_live_order_t _db_file_orders[] = {
    {0, 0, &db_t::file_name_array, _db_live_compare<_db_compare_name>, 0, false, "corrupt file name array\n",
     ""},
    {DB_FLAG_FAST_PATH, 0, &db_t::file_path_array, _db_live_compare<_db_compare_file_path>, 0, true,
     "corrupt file path sorted array\n", ""},
    {DB_FLAG_FAST_EXTENSION, 0, &db_t::file_extension_array, _db_live_compare<db_file_compare_extension>, 0,
     false, "corrupt file extension sorted array\n", ""},
    {DB_FLAG_FAST_SIZE, 0, &db_t::file_size_array, _db_live_compare<db_file_compare_size>, DB_FLAG_SIZE,
     false, "corrupt file size sorted array\n", "corrupt file size array\n"},
    {DB_FLAG_FAST_DATE_CREATED, 0, &db_t::file_date_created_array,
     _db_live_compare<db_file_compare_date_created>, DB_FLAG_DATE_CREATED, false,
     "corrupt file date created sorted array\n", "corrupt file date created array\n"},
    {DB_FLAG_FAST_DATE_MODIFIED, 0, &db_t::file_date_modified_array,
     _db_live_compare<db_file_compare_date_modified>, DB_FLAG_DATE_MODIFIED, false,
     "corrupt file date modified sorted array\n", "corrupt file date modified array\n"},
    {DB_FLAG_FAST_DATE_ACCESSED, 0, &db_t::file_date_accessed_array,
     _db_live_compare<db_file_compare_date_accessed>, DB_FLAG_DATE_ACCESSED, false,
     "corrupt file date accessed sorted array\n", "corrupt file date accessed array\n"},
    {DB_FLAG_FAST_ATTRIBUTES, 0, &db_t::file_attributes_array, _db_live_compare<db_file_compare_attributes>,
     DB_FLAG_ATTRIBUTES, false, "corrupt file attributes sorted array\n", "corrupt file attributes array\n"},
};

static const db_live_order_t _db_folder_orders[] = {
    {0, 0, &db_t::folder_name_array, _db_live_compare<_db_compare_name>, 0, false,
     "folder name array corrupt\n", ""},
    {DB_FLAG_FAST_PATH, 0, &db_t::folder_path_array, _db_live_compare<_db_compare_folder_path>, 0, true,
     "corrupt folder path array\n", ""},
    {DB_FLAG_FAST_SIZE, DB_FLAG_FOLDER_SIZE, &db_t::folder_size_array,
     _db_live_compare<db_folder_compare_size>, DB_FLAG_FOLDER_SIZE, false, "corrupt folder size array\n",
     "corrupt folder size array\n"},
    {DB_FLAG_FAST_DATE_CREATED, 0, &db_t::folder_date_created_array,
     _db_live_compare<db_folder_compare_date_created>, DB_FLAG_DATE_CREATED, false,
     "corrupt folder date created array\n", "corrupt folder date created array\n"},
    {DB_FLAG_FAST_DATE_MODIFIED, 0, &db_t::folder_date_modified_array,
     _db_live_compare<db_folder_compare_date_modified>, DB_FLAG_DATE_MODIFIED, false,
     "corrupt folder date modified array\n", "corrupt folder date modified array\n"},
    {DB_FLAG_FAST_DATE_ACCESSED, 0, &db_t::folder_date_accessed_array,
     _db_live_compare<db_folder_compare_date_accessed>, DB_FLAG_DATE_ACCESSED, false,
     "corrupt folder date accessed array\n", "corrupt folder date accessed array\n"},
    {DB_FLAG_FAST_ATTRIBUTES, 0, &db_t::folder_attributes_array,
     _db_live_compare<db_folder_compare_attributes>, DB_FLAG_ATTRIBUTES, false,
     "corrupt folder attributes array\n", "corrupt folder attributes array\n"},
};

db_live_orders_t _db_live_get_orders(bool is_folder) {
    if (is_folder)
        return {_db_folder_orders, std::end(_db_folder_orders)};
    return {_db_file_orders, std::end(_db_file_orders)};
}

// The array of reference numbers that a folder stands in, by the type of its index.
struct _db_live_number_t {
    array_t *array; // 0: none
    array_compare_t *compare;
};
static _db_live_number_t _db_live_get_number(db_t *db, const db_item_t *folder) {
    switch (db_get_index(folder)->type) {
    case DB_INDEX_TYPE_NTFS: return {&db->folder_frn_array, _db_live_compare<db_folder_compare_frn>};
    case DB_INDEX_TYPE_REFS: return {&db->folder_frn128_array, _db_live_compare<db_folder_compare_frn128>};
    default: return {};
    }
}
static constexpr char NUMBER_MESSAGE[] = "folder FRN array corrupt\n";

// --- One item ----------------------------------------------------------------------------------------------

// In a damaged array a value may stand where no search comes by. Its record goes, so that it has to be found
// all the same: who searches on until the index is put right must not come upon it.
static void _db_live_remove_anywhere(array_t *array, mem_ref_t item) {
    u32 page = 0, value;
    i32 position = -1;
    while (array_next_to(array, &page, &position, &value)) {
        if (value == item) {
            array_remove_at(array, page, position);
            return;
        }
    }
}

static void _db_live_remove_key(db_t *db, array_t *array, array_compare_t *compare, const db_item_t *item,
                                const char *message) {
    db_live_key_t key = {db, item};
    if (array_remove_exists(array, compare, &key))
        return;
    _db_live_corrupt(db, message);
    _db_live_remove_anywhere(array, mem_ref(item));
}

static void _db_live_remove_from(db_t *db, const db_live_order_t *order, const db_item_t *item,
                                 const char *message) {
    _db_live_remove_key(db, &(db->*order->array), order->compare, item, message);
}

static void _db_live_insert_into(db_t *db, const db_live_order_t *order, const db_item_t *item,
                                 const char *message) {
    db_live_key_t key = {db, item};
    if (!array_insert(&(db->*order->array), order->compare, &key, mem_ref(item)))
        _db_live_corrupt(db, message);
}

void _db_live_take_out(db_t *db, const db_item_t *item, bool is_folder) {
    db_live_orders_t orders = _db_live_get_orders(is_folder);
    for (const db_live_order_t *order = orders.first; order != orders.end; order++) {
        if (_db_live_has_order(db, order))
            _db_live_remove_from(db, order, item, order->message);
    }
    _db_live_number_t number = is_folder ? _db_live_get_number(db, item) : _db_live_number_t{};
    if (number.array)
        _db_live_remove_key(db, number.array, number.compare, item, NUMBER_MESSAGE);
}

void _db_live_put_in(db_t *db, const db_item_t *item, bool is_folder, const db_live_place_t *name_place) {
    db_live_orders_t orders = _db_live_get_orders(is_folder);
    for (const db_live_order_t *order = orders.first; order != orders.end; order++) {
        if (!_db_live_has_order(db, order))
            continue;
        if (order == orders.first && name_place)
            array_insert_at(&(db->*order->array), name_place->page, name_place->position, mem_ref(item));
        else
            _db_live_insert_into(db, order, item, order->message);
    }
    _db_live_number_t number = is_folder ? _db_live_get_number(db, item) : _db_live_number_t{};
    db_live_key_t key = {db, item};
    if (number.array && !array_insert(number.array, number.compare, &key, mem_ref(item)))
        _db_live_corrupt(db, NUMBER_MESSAGE);
}

static const db_live_order_t *_db_live_get_column_order(const db_t *db, bool is_folder, u32 flag) {
    db_live_orders_t orders = _db_live_get_orders(is_folder);
    for (const db_live_order_t *order = orders.first; order != orders.end; order++) {
        if (order->column == flag && _db_live_has_order(db, order))
            return order;
    }
    return nullptr;
}

void _db_live_take_out_column(db_t *db, const db_item_t *item, bool is_folder, u32 flag) {
    if (const db_live_order_t *order = _db_live_get_column_order(db, is_folder, flag))
        _db_live_remove_from(db, order, item, order->update_message);
}

void _db_live_put_in_column(db_t *db, const db_item_t *item, bool is_folder, u32 flag) {
    if (const db_live_order_t *order = _db_live_get_column_order(db, is_folder, flag))
        _db_live_insert_into(db, order, item, order->update_message);
}

// --- Many items: one job for each array --------------------------------------------------------------------

struct _db_live_job_t {
    const db_live_order_t *order; // 0: an array of numbers
    array_t *array;
    bool is_folder;
    const db_item_set_t *members;
    u32 member_count; // that should be in it
    const char *message;
    bool is_corrupt;
};

static constexpr u32 LIVE_JOBS_MAX = 2 * (std::size(_db_file_orders) + std::size(_db_folder_orders));

struct _db_live_jobs_t {
    db_t *db;
    _db_live_job_t jobs[LIVE_JOBS_MAX];
    u32 count;
    std::atomic<u32> next;
    void (*run)(db_t *db, _db_live_job_t *job);
};

static void _db_live_add_orders(_db_live_jobs_t *jobs, bool is_folder, const db_item_set_t *members,
                                u32 count) {
    db_live_orders_t orders = _db_live_get_orders(is_folder);
    for (const db_live_order_t *order = orders.first; order != orders.end && count != 0; order++) {
        if (_db_live_has_order(jobs->db, order))
            jobs->jobs[jobs->count++] = {
                order, &(jobs->db->*order->array), is_folder, members, count, order->message, false};
    }
}

static void _db_live_add_number_job(_db_live_jobs_t *jobs, const db_live_tree_t *tree,
                                    const db_live_sets_t *sets) {
    array_t *array =
        tree->folder_count != 0 ? _db_live_get_number(jobs->db, db_item(tree->folders[0])).array : nullptr;
    if (array)
        jobs->jobs[jobs->count++] = {nullptr,        array, true, sets->folders, tree->folder_count,
                                     NUMBER_MESSAGE, false};
}

static void _db_live_job_proc(void *param, u32, u32) {
    _db_live_jobs_t *jobs = static_cast<_db_live_jobs_t *>(param);
    for (u32 i; (i = jobs->next.fetch_add(1, std::memory_order_relaxed)) < jobs->count;)
        jobs->run(jobs->db, &jobs->jobs[i]);
}

static void _db_live_run_jobs(_db_live_jobs_t *jobs) {
    os_parallel(os_get_thread_count(jobs->count, 1), _db_live_job_proc, jobs);
    for (u32 i = 0; i < jobs->count; i++) {
        if (jobs->jobs[i].is_corrupt)
            _db_live_corrupt(jobs->db, jobs->jobs[i].message);
    }
}

// --- Removal -----------------------------------------------------------------------------------------------

static void _db_live_remove_job(db_t *, _db_live_job_t *job) {
    const db_item_set_t *members = job->members;
    u32 removed = 0;
    for (u32 i = 0; i < job->array->page_count; i++) {
        removed += array_page_remove_if(job->array, job->array->pages[i],
                                        [members](u32 value) { return db_item_set_has(members, value); });
    }
    array_close(job->array);
    job->is_corrupt = removed != job->member_count;
}

void _db_live_remove_many(db_t *db, const db_live_tree_t *tree, const db_live_sets_t *sets) {
    _db_live_jobs_t jobs = {db, {}, 0, 0, _db_live_remove_job};
    _db_live_add_orders(&jobs, false, sets->files, tree->file_count);
    _db_live_add_orders(&jobs, true, sets->folders, tree->folder_count);
    _db_live_add_number_job(&jobs, tree, sets);
    _db_live_run_jobs(&jobs);
}

// --- Moves -------------------------------------------------------------------------------------------------
//
// All values of an array are copied to a table, put right there, and copied back. No member changes its place
// among the members. In an order by names or by a column, an item whose path alone has changed stays between
// the same neighbours, unless there are others of the same value and the same folded name: those runs are
// merged anew. In an order by paths members move as a few blocks.

struct _db_live_table_t {
    db_t *db;
    const _db_live_job_t *job;
    u32 *values;  // in the array's order
    u32 *scratch; // of the same size
    u32 count;
};

static bool _db_live_is_before(const _db_live_table_t *table, u32 a, u32 b) {
    db_live_key_t key = {table->db, db_item(b)};
    return table->job->order->compare(a, &key) < 0;
}

// Whether the path decides between two items.
static bool _db_live_is_tie(const _db_live_table_t *table, u32 a, u32 b) {
    const db_item_t *x = db_item(a), *y = db_item(b);
    u32 n, m, column = table->job->order->column;
    const char *x_name = db_item_get_name(x, &n), *y_name = db_item_get_name(y, &m);
    if (column != 0) {
        u64 p = _db_live_get_column(table->db, x, table->job->is_folder, column);
        u64 q = _db_live_get_column(table->db, y, table->job->is_folder, column);
        bool is_equal = column == DB_FLAG_ATTRIBUTES
                            ? db_attributes_compare(static_cast<u32>(p), static_cast<u32>(q)) == 0
                            : p == q;
        if (!is_equal)
            return false;
    }
    return db_name_compare_level(DB_LEVEL_FOLD, x_name, n, y_name, m) == 0;
}

// Parts a piece of the table into members and others, each in its order, and merges them anew.
static void _db_live_merge_run(const _db_live_table_t *table, u32 first, u32 end) {
    const db_item_set_t *members = table->job->members;
    u32 *values = table->values, *others = table->scratch;
    u32 other_count = 0;
    for (u32 i = first; i < end; i++)
        other_count += !db_item_set_has(members, values[i]);
    if (other_count == 0)
        return;
    u32 *moved = others + other_count, *other = others, *next = moved;
    for (u32 i = first; i < end; i++)
        *(db_item_set_has(members, values[i]) ? next : other)++ = values[i];
    std::merge(moved, next, others, other, values + first,
               [table](u32 a, u32 b) { return _db_live_is_before(table, a, b); });
}

static void _db_live_merge_ties(const _db_live_table_t *table) {
    const db_item_set_t *members = table->job->members;
    const u32 *values = table->values;
    for (u32 i = 0, done = 0; i < table->count; i = i < done ? done : i + 1) {
        if (!db_item_set_has(members, values[i]))
            continue;
        u32 first = i, end = i + 1;
        while (first > done && _db_live_is_tie(table, values[first - 1], values[i]))
            first--;
        while (end < table->count && _db_live_is_tie(table, values[end], values[i]))
            end++;
        if (end - first > 1)
            _db_live_merge_run(table, first, end);
        done = end;
    }
}

// Members to be merged among others, as tables of values.
struct _db_live_merge_t {
    const _db_live_table_t *table;
    const u32 *others, *moved;
    u32 *out;
};

// Merges members first to end with the others from `from` to `to`, among which all of them belong: by
// halves, so that a block that stays together costs two searches.
static void _db_live_merge_blocks(_db_live_merge_t *merge, u32 first, u32 end, u32 from, u32 to) {
    if (first == end || from == to) {
        merge->out = std::copy(merge->moved + first, merge->moved + end, merge->out);
        merge->out = std::copy(merge->others + from, merge->others + to, merge->out);
        return;
    }
    auto place = [merge, from, to](u32 value) {
        const u32 *found =
            std::lower_bound(merge->others + from, merge->others + to, value,
                             [merge](u32 a, u32 b) { return _db_live_is_before(merge->table, a, b); });
        return static_cast<u32>(found - merge->others);
    };
    u32 low = place(merge->moved[first]), high = end - first > 1 ? place(merge->moved[end - 1]) : low;
    merge->out = std::copy(merge->others + from, merge->others + low, merge->out);
    if (low == high) {
        merge->out = std::copy(merge->moved + first, merge->moved + end, merge->out);
    } else {
        u32 middle = first + (end - first) / 2, cut = place(merge->moved[middle]);
        _db_live_merge_blocks(merge, first, middle, low, cut);
        _db_live_merge_blocks(merge, middle, end, cut, high);
    }
    merge->out = std::copy(merge->others + high, merge->others + to, merge->out);
}

static void _db_live_merge_paths(const _db_live_table_t *table) {
    const db_item_set_t *members = table->job->members;
    u32 *moved = static_cast<u32 *>(mem_alloc((table->count + 1) * sizeof *moved));
    u32 moved_count = 0, other_count = 0;
    for (u32 i = 0; i < table->count; i++) {
        u32 value = table->values[i];
        if (db_item_set_has(members, value))
            moved[moved_count++] = value;
        else
            table->scratch[other_count++] = value;
    }
    _db_live_merge_t merge = {table, table->scratch, moved, table->values};
    _db_live_merge_blocks(&merge, 0, moved_count, 0, other_count);
    mem_free(moved);
}

static void _db_live_move_job(db_t *db, _db_live_job_t *job) {
    u32 count = job->array->count;
    u32 *values = static_cast<u32 *>(mem_alloc((count + 1) * sizeof *values));
    u32 *scratch = static_cast<u32 *>(mem_alloc((count + 1) * sizeof *scratch));
    _db_live_table_t table = {db, job, values, scratch, count};
    array_get_all(job->array, values);
    if (job->order->is_path)
        _db_live_merge_paths(&table);
    else
        _db_live_merge_ties(&table);
    array_set_all(job->array, values);
    mem_free(scratch);
    mem_free(values);
}

void _db_live_move_many(db_t *db, const db_live_tree_t *tree, const db_live_sets_t *sets) {
    _db_live_jobs_t jobs = {db, {}, 0, 0, _db_live_move_job};
    _db_live_add_orders(&jobs, false, sets->files, tree->file_count);
    _db_live_add_orders(&jobs, true, sets->folders, tree->folder_count);
    _db_live_run_jobs(&jobs);
}

} // namespace findwright
