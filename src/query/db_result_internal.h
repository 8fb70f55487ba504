// What the files that make, order and read a query's results share.
#pragma once

#include "query/db_query.h"

namespace findwright {

// --- On the worker -----------------------------------------------------------------------------------------

// Runs one pass over an array of the database.
void db_search_folders(db_query_t *query, const array_t *scan_array);
void db_search_files(db_query_t *query, const array_t *scan_array);
// Brings the results to an order, and the selection with them. What cancel_sort stops leaves them as they
// were, with `sorted` cleared. Also on the main thread, after db_wait.
void db_sort_results(db_query_t *query, u32 sort);
// Queues notification 0, unless it is queued already. Any thread.
void _db_query_post_results_changed(db_query_t *query);
// A text for the owner while the worker runs; 0 clears it. Any thread.
void _db_query_set_status(db_query_t *query, const char *text);

// --- Reading, on the main thread ---------------------------------------------------------------------------

// Waits for the worker, under the name for the log. False when the database is not loaded: there is nothing.
bool _db_query_begin_read(db_query_t *query, const char *name);
u32 _db_query_count_results(const db_query_t *query);
// The three arrays in the order of the result indexes.
void _db_query_get_result_arrays(db_query_t *query, array_t *out[3]);
// What a value of one of the result arrays stands for.
db_result_t _db_query_get_value_result(const db_query_t *query, const array_t *array, u32 value);

// Calls visit(array, value) for the selected results, in their order.
template<class Visit>
inline void _db_query_visit_selected(db_query_t *query, Visit visit) {
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    u32 base = 0, index = bit_array_next(&query->selection, 0); // base: that of the page's first value
    for (const array_t *array : arrays) {
        for (u32 page = 0; page < array->page_count; page++) {
            const u32 *values = array_page_values(array->pages[page]);
            u32 end = base + array->pages[page]->item_count;
            for (; index < end && index < query->selection.size;
                 index = bit_array_next(&query->selection, index + 1))
                visit(array, values[index - base]);
            base = end;
        }
    }
}
// The result index of an item, or -1. By comparisons where the order allows, else by a look at all results.
i32 _db_query_find_item(db_query_t *query, const db_result_t &result);
i32 _db_query_find_item_by_pass(db_query_t *query, mem_ref_t item);

// --- The selection (db_selection.cpp) ----------------------------------------------------------------------

void _db_selection_clear(db_query_t *query); // and what is kept
// Before results are made anew: puts aside what is selected. What an unfinished search left there stays.
void _db_selection_keep(db_query_t *query);
// Forgets of what was put aside those for which is_gone(reference) holds.
template<class IsGone>
inline void _db_selection_forget_kept(db_query_t *query, IsGone is_gone) {
    u32 kept = 0;
    for (u32 i = 0; i < query->kept_selection_count; i++) {
        if (!is_gone(query->kept_selection[i]))
            query->kept_selection[kept++] = query->kept_selection[i];
    }
    query->kept_selection_count = kept;
}
// A result is added or goes: the sums of the results, and those of the selection where it is selected.
void _db_query_count_result(db_query_t *query, const db_result_t &result, bool is_selected, bool is_added);
// Afterwards: selects what was put aside, as far as it is among the results. Nothing without such.
void _db_selection_restore(db_query_t *query);

// --- Ghosts (db_ghost.cpp) ---------------------------------------------------------------------------------

// Adds the ghosts that a search did not find. True when the results are in no order now.
bool _db_ghost_merge(db_query_t *query);
bool _db_ghost_has_item(const db_query_t *query, const db_item_t *item);

} // namespace findwright
