// Reading results: the row at an index, its texts, and where an item or a name stands.
#include "base/utf8.h"
#include "base/utf8_match.h"
#include "db/db_item_set.h"
#include "query/db_live_result.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

namespace findwright {

bool _db_query_begin_read(db_query_t *query, const char *name) {
    if (!query->db->loaded)
        return false;
    db_wait(query->db, name);
    _db_result_settle(query);
    return true;
}

u32 _db_query_count_results(const db_query_t *query) {
    return query->history_results.count + query->folder_results.count + query->file_results.count;
}

void _db_query_get_result_arrays(db_query_t *query, array_t *out[3]) {
    out[0] = query->folders_first ? &query->history_results : &query->file_results;
    out[1] = &query->folder_results;
    out[2] = query->folders_first ? &query->file_results : &query->history_results;
}

db_result_t _db_query_get_value_result(const db_query_t *query, const array_t *array, u32 value) {
    if (array != &query->history_results)
        return {db_item(value), array == &query->folder_results};
    if (query->history_kind == DB_HISTORY_RECENT_CHANGES) {
        const auto *change = mem_ptr<const db_recent_change_t>(value);
        return {db_item(change->item), change->is_folder != 0};
    }
    const auto *link = mem_ptr<const db_run_history_ptr_t>(value);
    return {db_item(link->item), link->is_folder != 0};
}

// --- Counts and rows ---------------------------------------------------------------------------------------

u32 db_get_result_count(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_result_count") ? _db_query_count_results(query) : 0;
}

u32 db_get_folder_result_count(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_folder_result_count") ? query->folder_results.count : 0;
}

u32 db_get_file_result_count(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_file_result_count") ? query->file_results.count : 0;
}

i64 db_query_get_total_result_size(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_query_get_total_result_size") || query->total_result_count == 0)
        return -1;
    return static_cast<i64>(query->total_result_size);
}

// The array that holds a result, and the result's place in it; 0 for a bad index.
static const array_t *_db_query_locate(db_query_t *query, i32 index, u32 *place) {
    if (index < 0)
        return nullptr;
    *place = static_cast<u32>(index);
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    for (const array_t *array : arrays) {
        if (*place < array->count)
            return array;
        *place -= array->count;
    }
    return nullptr;
}

bool db_get_result(db_query_t *query, i32 index, db_result_t *out) {
    *out = {};
    u32 place;
    if (!_db_query_begin_read(query, "db_get_result"))
        return false;
    const array_t *array = _db_query_locate(query, index, &place);
    if (!array)
        return false;
    auto &cursor = query->result_cursor;
    if (cursor.array == array && cursor.index + 1 == place) { // rows are mostly read in order
        cursor.value = array_next(array, &cursor.page, &cursor.position);
        cursor.index = place;
    } else if (cursor.array != array || cursor.index != place) {
        cursor.value = array_get(array, place, &cursor.page, &cursor.position);
        cursor.index = place;
        cursor.array = array;
    }
    *out = _db_query_get_value_result(query, array, cursor.value);
    return true;
}

const db_item_t *db_get_result_item(db_query_t *query, i32 index) {
    db_result_t result;
    db_get_result(query, index, &result);
    return result.item;
}

void db_get_result_full_path_name(db_query_t *query, i32 index, utf8_buf_t *out) {
    const db_item_t *item = db_get_result_item(query, index);
    if (item)
        db_item_get_full_path_name(out, item);
    else
        utf8_buf_empty(out);
}

void db_get_result_path(db_query_t *query, i32 index, utf8_buf_t *out) {
    const db_item_t *item = db_get_result_item(query, index);
    if (item)
        db_item_get_path(out, item);
    else
        utf8_buf_empty(out);
}

void db_get_result_name(db_query_t *query, i32 index, utf8_buf_t *out) {
    const db_item_t *item = db_get_result_item(query, index);
    u32 length = 0;
    const char *name = item ? db_item_get_name(item, &length) : "";
    utf8_buf_copy_utf8(out, name, length);
}

bool db_is_folder_result(db_query_t *query, i32 index) {
    db_result_t result;
    return !db_get_result(query, index, &result) || result.is_folder;
}

bool db_is_root_result(db_query_t *query, i32 index) {
    const db_item_t *item = db_get_result_item(query, index);
    return item && db_is_root(item);
}

// --- Where an item stands ----------------------------------------------------------------------------------

// The place of a value in a page, or -1. No branch inside, so that the compiler makes vectors of it.
static i32 _db_find_in_page(const array_page_t *page, u32 wanted) {
    const u32 *values = array_page_values(page);
    u32 count = page->item_count, hits = 0;
    for (u32 i = 0; i < count; i++)
        hits += values[i] == wanted;
    if (hits == 0)
        return -1;
    u32 place = 0;
    while (values[place] != wanted)
        place++;
    return static_cast<i32>(place);
}

static i32 _db_find_in_array(const db_query_t *query, const array_t *array, mem_ref_t item) {
    for (u32 page = 0; page < array->page_count; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        i32 place = -1;
        if (array != &query->history_results) {
            place = _db_find_in_page(array->pages[page], item);
        } else {
            for (u32 i = 0; i < array->pages[page]->item_count && place < 0; i++) {
                if (mem_ref(_db_query_get_value_result(query, array, values[i]).item) == item)
                    place = static_cast<i32>(i);
            }
        }
        if (place >= 0)
            return static_cast<i32>(array->first_index[page]) + place;
    }
    return -1;
}

// All values are looked at: 8 million take some milliseconds.
i32 _db_query_find_item_by_pass(db_query_t *query, mem_ref_t item) {
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    i32 base = 0;
    for (const array_t *array : arrays) {
        i32 place = _db_find_in_array(query, array, item);
        if (place >= 0)
            return base + place;
        base += static_cast<i32>(array->count);
    }
    return -1;
}

// An order by what was read of the file system cannot be searched by comparisons, since what is known of an
// item may have changed after the sort; neither can that of results which wait for a new search.
i32 _db_query_find_item(db_query_t *query, const db_result_t &result) {
    db_result_place_t place;
    if (!query->live_result->is_stale && _db_result_has_order(query) &&
        _db_result_find(query, result.item, result.is_folder, &place))
        return static_cast<i32>(place.index);
    return _db_query_find_item_by_pass(query, mem_ref(result.item));
}

// --- Type-ahead --------------------------------------------------------------------------------------------

struct _db_prefix_t {
    const char *text; // folded
    u32 length;
};

static bool _db_has_prefix(const db_item_t *item, const _db_prefix_t *prefix) {
    u32 length;
    const char *name = db_item_get_name(item, &length), *end;
    return utf8_match_here<UTF8_MODE_FOLD>(name, name + length, prefix->text, prefix->text + prefix->length,
                                           &end);
}

// Of an array in name order: the first place from `start` on whose name begins with the text; the count when
// there is none. Such names stand together, from the first name that is not before the text on.
static u32 _db_find_prefix_sorted(const array_t *array, const _db_prefix_t *prefix, u32 start) {
    u32 low = 0, high = array->count, page;
    i32 position;
    while (low < high) {
        u32 middle = low + (high - low) / 2, length;
        const char *name = db_item_get_name(db_item(array_get(array, middle, &page, &position)), &length);
        if (utf8_compare_fold(name, length, prefix->text, prefix->length) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    u32 place = start > low ? start : low;
    bool found =
        place < array->count && _db_has_prefix(db_item(array_get(array, place, &page, &position)), prefix);
    return found ? place : array->count;
}

static u32 _db_find_prefix(const db_query_t *query, const array_t *array, const _db_prefix_t *prefix,
                           u32 start) {
    if (query->sorted && query->sort == DB_SORT_NAME_ASCENDING)
        return _db_find_prefix_sorted(array, prefix, start);
    if (start >= array->count)
        return array->count;
    u32 page, value;
    i32 position;
    for (bool more = array_get_to(array, start, &page, &position, &value); more; start++) {
        if (_db_has_prefix(_db_query_get_value_result(query, array, value).item, prefix))
            return start;
        more = array_next_to(array, &page, &position, &value);
    }
    return array->count;
}

static i32 _db_find_prefix_result(db_query_t *query, const _db_prefix_t *prefix, u32 start) {
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    u32 base = 0;
    for (const array_t *array : arrays) {
        u32 place = _db_find_prefix(query, array, prefix, start > base ? start - base : 0);
        if (place < array->count)
            return static_cast<i32>(base + place);
        base += array->count;
    }
    return -1;
}

i32 db_find_nearest_string_match_result(db_query_t *query, const char *text, u32 length, i32 start) {
    if (!_db_query_begin_read(query, "db_find_nearest_string_match_result"))
        return -1;
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(UTF8_MODE_FOLD, &folded, text, length);
    _db_prefix_t prefix = {folded.data, static_cast<u32>(folded.length)};
    i32 found = _db_find_prefix_result(query, &prefix, start > 0 ? static_cast<u32>(start) : 0);
    if (found < 0 && start > 0)
        found = _db_find_prefix_result(query, &prefix, 0);
    utf8_buf_kill(&folded);
    return found;
}

// --- What was opened ---------------------------------------------------------------------------------------

static db_item_set_t *_db_get_run_items(const array_t *links) {
    mem_ref_t first = ~static_cast<mem_ref_t>(0), last = 0;
    u32 page = 0, value;
    i32 position = -1;
    while (array_next_to(links, &page, &position, &value)) {
        mem_ref_t item = mem_ptr<const db_run_history_ptr_t>(value)->item;
        first = item < first ? item : first;
        last = item > last ? item : last;
    }
    db_item_set_t *set = db_item_set_create_range(first, last);
    page = 0;
    position = -1;
    while (array_next_to(links, &page, &position, &value))
        db_item_set_add(set, mem_ptr<const db_run_history_ptr_t>(value)->item);
    return set;
}

static bool _db_is_better_run(const db_run_t &run, const db_run_t &best, bool by_count) {
    if (by_count && run.count != best.count)
        return run.count > best.count;
    return run.date > best.date;
}

// One pass over the results, however many items the history knows that are none.
static i32 _db_find_best_run(db_query_t *query, bool by_count) {
    db_item_set_t *known = _db_get_run_items(&query->db->run_history_by_item);
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    i32 index = 0, best_index = -1;
    db_run_t best = {};
    for (const array_t *array : arrays) {
        u32 page = 0, value;
        for (i32 position = -1; array_next_to(array, &page, &position, &value); index++) {
            const db_item_t *item = _db_query_get_value_result(query, array, value).item;
            if (!db_item_set_has(known, mem_ref(item)))
                continue;
            db_run_t run = db_run_history_get(query->db, item);
            if (best_index >= 0 && !_db_is_better_run(run, best, by_count))
                continue;
            best = run;
            best_index = index;
        }
    }
    db_item_set_free(known);
    return best_index;
}

i32 db_get_top_run_result_index(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_top_run_result_index") ? _db_find_best_run(query, true) : -1;
}

i32 db_get_last_run_result_index(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_last_run_result_index") ? _db_find_best_run(query, false) : -1;
}

} // namespace findwright
