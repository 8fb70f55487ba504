// Where an item stands in results, by the comparisons that all ways to an order come down to: copies of the
// index's arrays, walks over them, and gathering from name order. A descending order is the whole turned
// round.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "query/db_live_result.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

namespace findwright {

// --- Orders ------------------------------------------------------------------------------------------------

using _db_compare_t = int(const db_t *db, const db_item_t *a, const db_item_t *b);

static int _db_compare_name(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_item_compare_name(a, b);
}
static int _db_compare_folder_path(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_folder_compare_path(a, b);
}
static int _db_compare_file_path(const db_t *, const db_item_t *a, const db_item_t *b) {
    return db_file_compare_path(a, b);
}

struct _db_result_order_t {
    _db_compare_t *folders, *files; // 0: not by what the records hold
    u32 folder_changes, file_changes;
};

static _db_result_order_t _db_result_get_column_order(const db_t *db, u32 flag, _db_compare_t *folders,
                                                      _db_compare_t *files) {
    return db->layout.flags & flag ? _db_result_order_t{folders, files, flag, flag} : _db_result_order_t{};
}

static _db_result_order_t _db_result_get_order(const db_query_t *query) {
    const db_t *db = query->db;
    switch (query->sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_NAME_ASCENDING: return {_db_compare_name, _db_compare_name, 0, 0};
    case DB_SORT_PATH_ASCENDING: return {_db_compare_folder_path, _db_compare_file_path, 0, 0};
    case DB_SORT_EXTENSION_ASCENDING: return {_db_compare_name, db_file_compare_extension, 0, 0};
    case DB_SORT_SIZE_ASCENDING:
        if (db->layout.flags & DB_FLAG_FOLDER_SIZE)
            return {db_folder_compare_size, db_file_compare_size, DB_FLAG_SIZE, DB_FLAG_SIZE};
        if (db->layout.flags & DB_FLAG_SIZE)
            return {_db_compare_name, db_file_compare_size, 0, DB_FLAG_SIZE};
        return {};
    case DB_SORT_DATE_CREATED_ASCENDING:
        return _db_result_get_column_order(db, DB_FLAG_DATE_CREATED, db_folder_compare_date_created,
                                           db_file_compare_date_created);
    case DB_SORT_DATE_MODIFIED_ASCENDING:
        return _db_result_get_column_order(db, DB_FLAG_DATE_MODIFIED, db_folder_compare_date_modified,
                                           db_file_compare_date_modified);
    case DB_SORT_DATE_ACCESSED_ASCENDING:
        return _db_result_get_column_order(db, DB_FLAG_DATE_ACCESSED, db_folder_compare_date_accessed,
                                           db_file_compare_date_accessed);
    case DB_SORT_ATTRIBUTES_ASCENDING:
        return _db_result_get_column_order(db, DB_FLAG_ATTRIBUTES, db_folder_compare_attributes,
                                           db_file_compare_attributes);
    case DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING:
        return {_db_compare_name, _db_compare_name, DB_CHANGE_RECENT_CHANGES, DB_CHANGE_RECENT_CHANGES};
    case DB_SORT_RUN_COUNT_ASCENDING:
    case DB_SORT_DATE_RUN_ASCENDING:
        return {_db_compare_name, _db_compare_name, DB_CHANGE_RUNS, DB_CHANGE_RUNS};
    default: return {};
    }
}

bool _db_result_has_order(const db_query_t *query) {
    return query->sorted && _db_result_get_order(query).files;
}

u32 _db_result_get_order_changes(const db_query_t *query, bool is_folder) {
    _db_result_order_t order = _db_result_get_order(query);
    return is_folder ? order.folder_changes : order.file_changes;
}

bool _db_result_reads_order(const db_query_t *query) {
    u32 ascending = query->sort & ~DB_SORT_DESCENDING;
    return !_db_result_get_order(query).files && ascending != DB_SORT_TYPE_ASCENDING &&
           ascending != DB_SORT_FILE_LIST_FILENAME_ASCENDING;
}

struct _db_result_key_t {
    const db_t *db;
    const db_item_t *item;
    _db_compare_t *compare;
    bool is_reversed;
};

static int _db_result_compare(u32 value, const void *param) {
    const auto *key = static_cast<const _db_result_key_t *>(param);
    int order = key->compare(key->db, db_item(value), key->item);
    return key->is_reversed ? -order : order;
}

// --- The history -------------------------------------------------------------------------------------------

static int _db_ref_compare(mem_ref_t a, mem_ref_t b) {
    return a < b ? -1 : a > b;
}

// The largest, or the newest, first.
template<class value_t>
static int _db_compare_down(value_t a, value_t b) {
    return a > b ? -1 : a < b;
}

struct _db_history_key_t {
    mem_ref_t record;
    u32 sort; // the ascending code
    bool is_reversed;
};

static int _db_history_compare_records(u32 sort, mem_ref_t a, mem_ref_t b) {
    if (sort == DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING) {
        const auto *p = mem_ptr<const db_recent_change_t>(a), *q = mem_ptr<const db_recent_change_t>(b);
        int order = _db_compare_down<u64>(p->date, q->date);
        return order ? order : _db_ref_compare(p->item, q->item);
    }
    const auto *p = mem_ptr<const db_run_history_ptr_t>(a), *q = mem_ptr<const db_run_history_ptr_t>(b);
    const db_run_history_data_t *run = db_run_history_link_get_data(p);
    const db_run_history_data_t *other = db_run_history_link_get_data(q);
    int order = sort == DB_SORT_RUN_COUNT_ASCENDING ? _db_compare_down<u32>(run->count, other->count) : 0;
    order = order ? order : _db_compare_down<u64>(run->date, other->date);
    return order ? order : _db_ref_compare(p->item, q->item);
}

static int _db_history_compare(u32 value, const void *param) {
    const auto *key = static_cast<const _db_history_key_t *>(param);
    int order = _db_history_compare_records(key->sort, value, key->record);
    return key->is_reversed ? -order : order;
}

static int _db_run_link_compare_item(u32 value, const void *key) {
    return _db_ref_compare(mem_ptr<const db_run_history_ptr_t>(value)->item,
                           *static_cast<const mem_ref_t *>(key));
}

// The record that the history which the query shows has of an item; 0 for none.
static mem_ref_t _db_history_get_record(const db_query_t *query, const db_item_t *item) {
    mem_ref_t ref = mem_ref(item);
    if (query->history_kind == DB_HISTORY_RUNS)
        return array_find(&query->db->run_history_by_item, _db_run_link_compare_item, &ref);
    if (query->history_kind == DB_HISTORY_RECENT_CHANGES) {
        const db_recent_change_t *change = db_recent_change_find(query->db, item);
        return change ? mem_ref(change) : 0;
    }
    return 0;
}

static _db_history_key_t _db_history_get_key(const db_query_t *query, mem_ref_t record) {
    return {record, query->sort & ~DB_SORT_DESCENDING, db_sort_is_reversed(query->sort)};
}

// --- Looking up --------------------------------------------------------------------------------------------

// The result index of the first one of an array.
static u32 _db_result_get_base(const db_query_t *query, const array_t *array) {
    array_t *arrays[3];
    _db_query_get_result_arrays(const_cast<db_query_t *>(query), arrays);
    u32 base = 0;
    for (u32 i = 0; arrays[i] != array; i++)
        base += arrays[i]->count;
    return base;
}

static bool _db_result_find_in(const db_query_t *query, const array_t *array, array_compare_t *compare,
                               const void *key, db_result_place_t *place) {
    bool found;
    place->array = const_cast<array_t *>(array);
    array_find_position(array, compare, key, &place->page, &place->position, &found);
    if (found)
        place->index = _db_result_get_base(query, array) + array->first_index[place->page] +
                       static_cast<u32>(place->position);
    return found;
}

bool _db_result_find_in_history(const db_query_t *query, const db_item_t *item, db_result_place_t *place) {
    mem_ref_t record = _db_history_get_record(query, item);
    if (!record)
        return false;
    _db_history_key_t key = _db_history_get_key(query, record);
    return _db_result_find_in(query, &query->history_results, _db_history_compare, &key, place);
}

bool _db_result_find(const db_query_t *query, const db_item_t *item, bool is_folder,
                     db_result_place_t *place) {
    if (_db_result_find_in_history(query, item, place))
        return true;
    _db_result_order_t order = _db_result_get_order(query);
    _db_result_key_t key = {query->db, item, is_folder ? order.folders : order.files,
                            db_sort_is_reversed(query->sort)};
    const array_t *array = is_folder ? &query->folder_results : &query->file_results;
    return _db_result_find_in(query, array, _db_result_compare, &key, place);
}

bool _db_result_find_by_pass(db_query_t *query, const db_item_t *item, db_result_place_t *place) {
    i32 index = _db_query_find_item_by_pass(query, mem_ref(item));
    if (index < 0)
        return false;
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    u32 rest = static_cast<u32>(index), which = 0;
    for (; rest >= arrays[which]->count; which++)
        rest -= arrays[which]->count;
    place->array = arrays[which];
    place->index = static_cast<u32>(index);
    array_get(place->array, rest, &place->page, &place->position);
    return true;
}

// --- Taking out and putting in -----------------------------------------------------------------------------

bool _db_result_take_out(db_query_t *query, const db_item_t *item, bool is_folder,
                         const db_result_place_t *place) {
    bool is_selected = bit_array_remove(&query->selection, place->index);
    array_remove_at(place->array, place->page, place->position);
    _db_query_count_result(query, {item, is_folder}, is_selected, false);
    query->result_cursor = {};
    return is_selected;
}

// Where a result is to be put in; `index` is that which it will have.
static void _db_result_find_new_place(const db_query_t *query, const db_item_t *item, bool is_folder,
                                      mem_ref_t record, db_result_place_t *place) {
    bool found = false;
    if (record) {
        _db_history_key_t key = _db_history_get_key(query, record);
        place->array = const_cast<array_t *>(&query->history_results);
        array_find_position(place->array, _db_history_compare, &key, &place->page, &place->position, &found);
    } else {
        place->array = const_cast<array_t *>(is_folder ? &query->folder_results : &query->file_results);
        if (query->live_result->is_stale) {
            place->page = place->array->page_count != 0 ? place->array->page_count - 1 : 0;
            place->position = place->array->page_count != 0
                                  ? static_cast<i32>(place->array->pages[place->page]->item_count) - 1
                                  : 0;
        } else {
            _db_result_order_t order = _db_result_get_order(query);
            _db_result_key_t key = {query->db, item, is_folder ? order.folders : order.files,
                                    db_sort_is_reversed(query->sort)};
            array_find_position(place->array, _db_result_compare, &key, &place->page, &place->position,
                                &found);
        }
    }
    place->index = _db_result_get_base(query, place->array);
    if (place->array->page_count != 0)
        place->index += place->array->first_index[place->page] + static_cast<u32>(place->position + 1);
}

void _db_result_put_in(db_query_t *query, const db_item_t *item, bool is_folder, bool is_selected) {
    mem_ref_t record = _db_history_get_record(query, item);
    db_result_place_t place;
    if (ref_map_find(&query->live_result->moved, mem_ref(item)))
        _db_result_settle(query); // the results still hold what was there before
    _db_result_find_new_place(query, item, is_folder, record, &place);
    bit_array_insert(&query->selection, place.index, is_selected);
    array_insert_at(place.array, place.page, place.position, record ? record : mem_ref(item));
    _db_query_count_result(query, {item, is_folder}, is_selected, true);
    query->result_cursor = {};
}

} // namespace findwright
