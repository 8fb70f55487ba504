#include "query/db_selection.h"

#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_item_set.h"
#include "os/debug.h"
#include "os/os.h"
#include "query/db_result_internal.h"

namespace findwright {

// --- Rows --------------------------------------------------------------------------------------------------

// Calls visit(index, array, value) for the results of a range, page by page.
template<class Visit>
static void _db_visit_rows(db_query_t *query, u32 first, u32 end, Visit visit) {
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    u32 base = 0; // the result index of the page's first value
    for (const array_t *array : arrays) {
        for (u32 page = 0; page < array->page_count && base < end; page++) {
            const u32 *values = array_page_values(array->pages[page]);
            u32 count = array->pages[page]->item_count;
            u32 from = first > base ? first - base : 0, to = end - base < count ? end - base : count;
            for (u32 i = from; i < to; i++)
                visit(base + i, array, values[i]);
            base += count;
        }
    }
}

// --- Totals ------------------------------------------------------------------------------------------------

static void _db_selection_clear_totals(db_query_t *query) {
    query->total_selection_size = 0;
    query->total_selection_count = 0;
}

// What a row that is now selected adds, or one that is not any more takes away. Folders are not counted.
static void _db_selection_count_row(db_query_t *query, const db_result_t &result, bool is_selected) {
    if (!query->calculate_total_size || result.is_folder)
        return;
    u64 size = db_file_get_size(query->db, result.item);
    size = size == VALUE_UNKNOWN ? 0 : size;
    query->total_selection_size += is_selected ? size : 0 - size;
    query->total_selection_count += is_selected ? 1u : 0u - 1u;
}

void _db_query_count_result(db_query_t *query, const db_result_t &result, bool is_selected, bool is_added) {
    if (!query->calculate_total_size || result.is_folder)
        return;
    u64 size = db_file_get_size(query->db, result.item);
    size = size == VALUE_UNKNOWN ? 0 : size;
    query->total_result_size += is_added ? size : 0 - size;
    query->total_result_count += is_added ? 1u : 0u - 1u;
    if (is_selected)
        _db_selection_count_row(query, result, is_added);
}

i64 db_query_get_total_selection_size(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_query_get_total_selection_size") ||
        query->total_selection_count == 0)
        return -1;
    return static_cast<i64>(query->total_selection_size);
}

// --- Across new results ------------------------------------------------------------------------------------

static void _db_selection_free_kept(db_query_t *query) {
    if (query->kept_selection)
        mem_free(query->kept_selection);
    query->kept_selection = nullptr;
    query->kept_selection_count = 0;
}

void _db_selection_clear(db_query_t *query) {
    bit_array_reset(&query->selection, _db_query_count_results(query));
    _db_selection_clear_totals(query);
    _db_selection_free_kept(query);
}

void _db_selection_keep(db_query_t *query) {
    u32 count = query->selection.count;
    if (count != 0) {
        _db_selection_free_kept(query);
        mem_ref_t *kept = static_cast<mem_ref_t *>(mem_alloc(count * sizeof *kept));
        query->kept_selection = kept;
        query->kept_selection_count = count;
        _db_query_visit_selected(query, [query, &kept](const array_t *array, u32 value) {
            *kept++ = mem_ref(_db_query_get_value_result(query, array, value).item);
        });
    }
    bit_array_reset(&query->selection, 0);
    _db_selection_clear_totals(query);
}

static db_item_set_t *_db_selection_get_kept_set(const db_query_t *query) {
    mem_ref_t first = ~static_cast<mem_ref_t>(0), last = 0;
    for (u32 i = 0; i < query->kept_selection_count; i++) {
        mem_ref_t item = query->kept_selection[i];
        first = item < first ? item : first;
        last = item > last ? item : last;
    }
    db_item_set_t *set = db_item_set_create_range(first, last);
    for (u32 i = 0; i < query->kept_selection_count; i++)
        db_item_set_add(set, query->kept_selection[i]);
    return set;
}

void _db_selection_restore(db_query_t *query) {
    u32 start = os_get_tick_count(), count = _db_query_count_results(query);
    bit_array_reset(&query->selection, count);
    _db_selection_clear_totals(query);
    if (query->kept_selection_count == 0)
        return;
    db_item_set_t *kept = _db_selection_get_kept_set(query);
    _db_visit_rows(query, 0, count, [query, kept](u32 index, const array_t *array, u32 value) {
        mem_ref_t item = value;
        if (array == &query->history_results)
            item = mem_ref(_db_query_get_value_result(query, array, value).item);
        if (!db_item_set_has(kept, item))
            return;
        bit_array_set(&query->selection, index, true);
        _db_selection_count_row(query, _db_query_get_value_result(query, array, value), true);
    });
    db_item_set_free(kept);
    _db_selection_free_kept(query);
    debug_printf("update selection %f seconds\n", os_get_tick_count() - start);
}

// --- One row -----------------------------------------------------------------------------------------------

bool db_is_result_selected(db_query_t *query, i32 index) {
    return _db_query_begin_read(query, "db_is_result_selected") && index >= 0 &&
           static_cast<u32>(index) < query->selection.size &&
           bit_array_get(&query->selection, static_cast<u32>(index));
}

static void _db_selection_set(db_query_t *query, i32 index, bool is_selected) {
    db_result_t result;
    if (db_get_result(query, index, &result) &&
        bit_array_set(&query->selection, static_cast<u32>(index), is_selected))
        _db_selection_count_row(query, result, is_selected);
}

void db_select_result(db_query_t *query, i32 index) {
    _db_selection_set(query, index, true);
}

void db_deselect_result(db_query_t *query, i32 index) {
    _db_selection_set(query, index, false);
}

void db_invert_result_selection(db_query_t *query, i32 index) {
    _db_selection_set(query, index, !db_is_result_selected(query, index));
}

// --- Many rows ---------------------------------------------------------------------------------------------

void db_select_result_range(db_query_t *query, i32 first, i32 end) {
    if (!_db_query_begin_read(query, "db_select_result_range") || end <= 0)
        return;
    u32 from = first > 0 ? static_cast<u32>(first) : 0, to = static_cast<u32>(end);
    to = to < query->selection.size ? to : query->selection.size;
    if (query->calculate_total_size) {
        _db_visit_rows(query, from, to, [query](u32 index, const array_t *array, u32 value) {
            if (array != &query->folder_results && !bit_array_get(&query->selection, index))
                _db_selection_count_row(query, _db_query_get_value_result(query, array, value), true);
        });
    }
    bit_array_set_range(&query->selection, from, to);
}

// The totals of the results are known, so no record is read.
void db_select_all(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_select_all"))
        return;
    bit_array_set_range(&query->selection, 0, query->selection.size);
    query->total_selection_size = query->total_result_size;
    query->total_selection_count = query->total_result_count;
}

void db_deselect_all(db_query_t *query) {
    if (_db_query_begin_read(query, "db_deselect_all"))
        _db_selection_clear(query);
}

void db_invert_all_selection(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_invert_all_selection"))
        return;
    bit_array_invert(&query->selection);
    query->total_selection_size = query->total_result_size - query->total_selection_size;
    query->total_selection_count = query->total_result_count - query->total_selection_count;
}

// --- The selected rows -------------------------------------------------------------------------------------

u32 db_get_selection_count(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_selection_count") ? query->selection.count : 0;
}

i32 db_get_selection_result_index(db_query_t *query, i32 n) {
    if (!_db_query_begin_read(query, "db_get_selection_result_index") || n < 0 ||
        static_cast<u32>(n) >= query->selection.count)
        return -1;
    return static_cast<i32>(bit_array_find(&query->selection, static_cast<u32>(n)));
}

void db_get_selection_full_path_name(db_query_t *query, i32 n, utf8_buf_t *out) {
    db_get_result_full_path_name(query, db_get_selection_result_index(query, n), out);
}

bool db_is_folder_selection(db_query_t *query, i32 n) {
    return db_is_folder_result(query, db_get_selection_result_index(query, n));
}

bool db_is_root_selection(db_query_t *query, i32 n) {
    return db_is_root_result(query, db_get_selection_result_index(query, n));
}

} // namespace findwright
