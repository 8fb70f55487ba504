// One running search over one database: its compiled terms, its sorted results, what is selected of them, and
// the hand-off between the worker and the owner that shows them.
//
// Owner: whoever created it; all operations are called on the main thread. A search, a sort or a read of
// information runs on the database's worker; each operation that reads results first waits for it (db_wait),
// and the owner learns of new results by its callback. A new search never narrows the previous results: it
// scans the database's sorted arrays again.
//
// Results are addressed by one index over three arrays: history, folders, files; or files, folders, history
// where the order is a reversed one (folders_first is 0). An item is in one of the three. The history array
// is empty but for the orders by run count, date run and date recently changed: then it holds the results
// that the history knows, as records of it.
//
//   db_selection.h     which results are selected          db_result_info.h  columns, icons, type names
//   db_itemref.h       references that stay with an item   db_ghost.h        rows that are about to go
//   db_query_ops.h     all of it as one table of functions
#pragma once

#include "base/bit_array.h"
#include "db/db.h"
#include "db/db_extended_info.h"
#include "query/db_term.h"

#include <atomic>

namespace findwright {

// The even code is ascending, the odd one behind it descending; but the history is kept largest and newest
// first, so that those even codes are the reversed reading, with what the history does not know in front.
enum db_sort_t : u32 {
    DB_SORT_NAME_ASCENDING = 0,
    DB_SORT_NAME_DESCENDING = 1,
    DB_SORT_PATH_ASCENDING = 2,
    DB_SORT_SIZE_ASCENDING = 4,
    DB_SORT_EXTENSION_ASCENDING = 6,
    DB_SORT_TYPE_ASCENDING = 8,
    DB_SORT_DATE_CREATED_ASCENDING = 10,
    DB_SORT_DATE_MODIFIED_ASCENDING = 12,
    DB_SORT_ATTRIBUTES_ASCENDING = 14,
    DB_SORT_FILE_LIST_FILENAME_ASCENDING = 16,
    DB_SORT_RUN_COUNT_ASCENDING = 18,
    DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING = 20,
    DB_SORT_DATE_ACCESSED_ASCENDING = 22,
    DB_SORT_DATE_RUN_ASCENDING = 24,
    DB_SORT_DESCENDING = 1, // added to an ascending code
    DB_SORT_COUNT = 26,
};

// What a history array holds.
enum db_history_kind_t : u32 {
    DB_HISTORY_NONE = 0,
    DB_HISTORY_RECENT_CHANGES = 1, // db_recent_change_t
    DB_HISTORY_RUNS = 2,           // db_run_history_ptr_t
};

// Codes of the owner's callback.
enum db_query_notification_t : u32 {
    DB_QUERY_RESULTS_CHANGED = 0, // results or their order changed: read them
    DB_QUERY_REBUILT = 1,         // the index is being rebuilt: search again
    DB_QUERY_STATUS_CHANGED = 2,
    DB_QUERY_INFO_CHANGED = 5, // information on rows has arrived: paint them again
    DB_QUERY_READY = 6,        // the database is idle again
    DB_QUERY_UNBLOCKED = 8,    // a wait for the worker has ended
};

using db_query_callback_t = void(void *user_data, u32 code);

struct db_query_params_t {
    bool match_case, match_whole_word, match_path, match_diacritics, match_regex;
    bool hide_empty_search_results; // an empty search finds nothing
    bool clear_selection;           // else what is selected stays so, as far as it is found again
    bool calculate_total_size;      // keep the sums of sizes; counts only where the index holds sizes
    const char *search;             // UTF-8
    u32 filter_flags;               // DB_MATCH_...
    const char *filter_search;      // UTF-8; empty for no filter
    u32 sort;
    i32 dialog_x, dialog_y; // the middle of the owner's window, for the busy dialog
};

struct db_itemref_t;
struct db_live_result_t;

struct db_query_t : db_query_link_t {
    db_t *db;
    array_t history_results; // of what history_kind tells
    array_t folder_results;
    array_t file_results;
    // What is selected, by result index. While a search or a sort makes new results, the items that were
    // selected wait in `kept_selection` (db_selection.h).
    bit_array_t selection;
    mem_ref_t *kept_selection;
    u32 kept_selection_count;
    array_t ghost_folders, ghost_files; // db_ghost.h; in the order of the references
    db_exec_term_t *folder_terms, *folder_terms_tail;
    db_exec_term_t *file_terms, *file_terms_tail;
    // What the terms need beyond the records.
    bool needs_extended_information, needs_disk_information, has_type_term, has_content_term;
    db_extended_info_t *extended_info; // made with the query
    // The last result read: an array (0 for none), the index in it, the value and the iterator there.
    struct {
        const array_t *array;
        u32 index;
        u32 value;
        u32 page;
        i32 position;
    } result_cursor;
    char *status_text; // heap text or 0, under the database's status_cs
    db_query_callback_t *callback;
    void *user_data;
    db_itemref_t *itemrefs, *itemrefs_tail; // those that name an item
    u32 sort;                               // the order that the results are in now
    u32 requested_sort;                     // the one asked for
    db_history_kind_t history_kind;         // what history_results holds
    u32 folders_first;
    u32 sorted; // the results are in that order, which may be changed cheaply
    u32 notify_pending;
    u32 notify_again; // a notification came while the database was busy
    u32 is_abandoned; // nobody wants what the worker will leave
    u32 is_ui;        // the owner is a window that may show the busy dialog
    i32 dialog_x, dialog_y;
    u32 calculate_total_size;
    std::atomic<u32> cancel_search;
    std::atomic<u32> cancel_sort;
    std::atomic<u32> cancel_fileinfo;
    u64 total_result_size; // of files; unknown sizes add nothing
    u32 total_result_count;
    u64 total_selection_size;
    u32 total_selection_count;
    // A search that waits for the database to load; texts are owned copies, deferred_search is 0 for none.
    db_query_params_t deferred;
    char *deferred_search, *deferred_filter_search;
    db_live_result_t *live_result; // how it follows the index (db_live_result.h); made with the query
};

db_query_t *db_query_create(db_t *db, bool is_ui, db_query_callback_t *callback, void *user_data);
void db_destroy_query(db_query_t *query);

// Starts a new search, which ends one in progress. Results arrive by notification 0. Before the database is
// loaded the search is kept, and runs as soon as it is.
void db_query_search(db_query_t *query, const db_query_params_t *params);
// Changes the order. Notification 0 when it is done. The selection stays.
void db_sort(db_query_t *query, u32 sort, i32 dialog_x = 0, i32 dialog_y = 0);
u32 db_get_sort(const db_query_t *query);
// Whether an order is at hand at any time, by the settings.
bool db_is_fast_sort(const db_query_t *query, u32 sort);
// Reads again what the current order needs of the file system, and forgets all else that was read of it.
void db_refresh(db_query_t *query);
// Stops this query's worker. True when one was running. A stopped search has no results, a stopped sort
// leaves them in name order, with the selection whole.
bool db_cancel_query(db_query_t *query);
// Gives up what the query has found or looks for. A worker of it is asked to end and not waited for, since it
// may be reading a file that does not answer; what it leaves is gone by the next DB_QUERY_RESULTS_CHANGED.
void db_abandon_query(db_query_t *query);
// Whether the database is at work, for whatever query; whether its content is in place.
bool db_query_is_busy(const db_query_t *query);
bool db_query_is_loaded(const db_query_t *query);
// What the query's worker is at, or else what the database is at; empty for nothing.
void db_query_get_status_text(db_query_t *query, utf8_buf_t *out);

u32 db_get_result_count(db_query_t *query);
u32 db_get_folder_result_count(db_query_t *query);
u32 db_get_file_result_count(db_query_t *query);
// The item at an index, or 0 for a bad one. Valid until the next operation that changes the database.
struct db_result_t {
    const db_item_t *item;
    bool is_folder;
};
bool db_get_result(db_query_t *query, i32 index, db_result_t *out); // false, and no item, for a bad index
const db_item_t *db_get_result_item(db_query_t *query, i32 index);
// Texts of a result; empty for a bad index.
void db_get_result_full_path_name(db_query_t *query, i32 index, utf8_buf_t *out);
void db_get_result_path(db_query_t *query, i32 index, utf8_buf_t *out);
void db_get_result_name(db_query_t *query, i32 index, utf8_buf_t *out);
bool db_is_folder_result(db_query_t *query, i32 index); // true also for a bad index
bool db_is_root_result(db_query_t *query, i32 index);   // false for a bad index

// The bytes of all files found, and -1 where no file was counted: none was found, or the search was not to.
i64 db_query_get_total_result_size(db_query_t *query);

// The first result at or behind `start`, or else from the front, whose name begins with a text (UTF-8, case
// and accents ignored): for typing in the list. -1 for none.
i32 db_find_nearest_string_match_result(db_query_t *query, const char *text, u32 length, i32 start);

// The result that was opened most often, or last; -1 when none ever was.
i32 db_get_top_run_result_index(db_query_t *query);
i32 db_get_last_run_result_index(db_query_t *query);

// The fast sort flag that a sort code needs (0 for the name order), or ~0 for a code that has no array.
u32 db_sort_get_fast_flag(u32 sort);
db_history_kind_t db_sort_get_history_kind(u32 sort);
// Whether an order reads its arrays from their ends, files first.
bool db_sort_is_reversed(u32 sort);

} // namespace findwright
