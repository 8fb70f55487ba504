// Which results of a query are selected.
//
// The selection is one bit for each result index, so that it stands in the order of the results by itself. It
// goes along with a reversal; before results are made anew, by a search or another order, the selected items
// are put aside, and what is found of them afterwards is selected again.
//
// All operations are called on the main thread, wait for the worker, and treat a bad index, or a database
// that is not loaded, as nothing: they select nothing and read as empty.
#pragma once

#include "query/db_query.h"

namespace findwright {

u32 db_get_selection_count(db_query_t *query);
// The result index of the n-th selected result, in the order of the results; -1 for a bad one.
i32 db_get_selection_result_index(db_query_t *query, i32 n);
void db_get_selection_full_path_name(db_query_t *query, i32 n, utf8_buf_t *out); // empty for a bad one
bool db_is_folder_selection(db_query_t *query, i32 n);                           // true also for a bad one
bool db_is_root_selection(db_query_t *query, i32 n);                             // false for a bad one

bool db_is_result_selected(db_query_t *query, i32 index);
void db_select_result(db_query_t *query, i32 index);
void db_deselect_result(db_query_t *query, i32 index);
void db_invert_result_selection(db_query_t *query, i32 index);
// Selects from `first` up to but not including `end`, as far as there are results; what else is selected
// stays.
void db_select_result_range(db_query_t *query, i32 first, i32 end);
void db_select_all(db_query_t *query);
void db_deselect_all(db_query_t *query);
void db_invert_all_selection(db_query_t *query);

// The bytes of all selected files; unknown sizes add nothing. -1 where no file was counted: none is selected,
// or the search was not to.
i64 db_query_get_total_selection_size(db_query_t *query);

} // namespace findwright
