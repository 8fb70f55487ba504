// All that an owner does with a query, as one table of functions, so that a query over a remote server can
// stand in for one over the own index. An owner that may have either calls through the table; the pointer
// that it passes is what its table's own create function gave.
//
// What each function does is told where it is declared: db_query.h, db_selection.h, db_itemref.h, db_ghost.h,
// db_result_info.h, db_highlight.h.
#pragma once

#include "query/db_ghost.h"
#include "query/db_highlight.h"
#include "query/db_itemref.h"
#include "query/db_query.h"
#include "query/db_result_info.h"
#include "query/db_selection.h"

namespace findwright {

struct db_query_ops_t {
    decltype(db_query_search) *search;
    decltype(db_get_result_count) *get_result_count;
    decltype(db_get_selection_count) *get_selection_count;
    decltype(db_select_result_range) *select_result_range;
    decltype(db_select_all) *select_all;
    decltype(db_invert_all_selection) *invert_all_selection;
    decltype(db_select_result) *select_result;
    decltype(db_deselect_result) *deselect_result;
    decltype(db_invert_result_selection) *invert_result_selection;
    decltype(db_is_result_selected) *is_result_selected;
    decltype(db_deselect_all) *deselect_all;
    decltype(db_is_folder_selection) *is_folder_selection;
    decltype(db_is_root_selection) *is_root_selection;
    decltype(db_is_folder_result) *is_folder_result;
    decltype(db_is_root_result) *is_root_result;
    decltype(db_get_result_full_path_name) *get_result_full_path_name;
    decltype(db_get_result_name) *get_result_name;
    decltype(db_get_result_path) *get_result_path;
    decltype(_db_get_highlighted_result) *get_highlighted_result; // in each of its forms
    decltype(db_get_selection_full_path_name) *get_selection_full_path_name;
    decltype(db_itemref_create) *itemref_create;
    decltype(db_itemref_destroy) *itemref_destroy;
    decltype(db_itemref_get) *itemref_get;
    decltype(db_itemref_set) *itemref_set;
    decltype(db_get_selection_result_index) *get_selection_result_index;
    decltype(db_query_is_busy) *is_busy;
    decltype(db_request_fileinfo) *request_fileinfo;
    decltype(db_get_result_file_info_change) *get_result_file_info_change;
    decltype(db_get_result_file_info) *get_result_file_info;
    decltype(db_read_extended_info_on_selection) *read_extended_info_on_selection;
    decltype(db_ghost_selection) *ghost_selection;
    decltype(db_is_ghost_result) *is_ghost_result;
    decltype(db_clear_ghosts) *clear_ghosts;
    decltype(db_get_result_extension) *get_result_extension;
    decltype(db_get_result_file_list_filename) *get_result_file_list_filename;
    decltype(db_get_result_run_count) *get_result_run_count;
    decltype(db_get_result_date_run) *get_result_date_run;
    decltype(db_get_result_date_recently_changed) *get_result_date_recently_changed;
    decltype(db_refresh) *refresh;
    decltype(db_get_sort) *get_sort;
    decltype(db_sort) *sort;
    decltype(db_find_nearest_string_match_result) *find_nearest_string_match_result;
    decltype(db_destroy_query) *destroy_query;
    decltype(db_cancel_query) *cancel_query;
    decltype(db_query_get_status_text) *get_status_text;
    decltype(db_set_selection_run_count) *set_selection_run_count;
    decltype(db_get_top_run_result_index) *get_top_run_result_index;
    decltype(db_get_last_run_result_index) *get_last_run_result_index;
    decltype(db_query_is_loaded) *is_loaded;
    decltype(db_is_fast_sort) *is_fast_sort;
    decltype(db_query_save_run_history) *save_run_history;
    decltype(db_query_get_total_result_size) *get_total_result_size;
    decltype(db_query_get_total_selection_size) *get_total_selection_size;
};

// A query over an index of this process.
extern const db_query_ops_t db_query_local_ops;

} // namespace findwright
