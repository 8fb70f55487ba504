// One running search over one database: its compiled terms, its sorted results, and the hand-off between the
// worker and the owner that shows them.
//
// Owner: whoever created it; all operations are called on the main thread. A search or a sort runs on the
// database's worker; each operation that reads results first waits for it (db_wait), and the owner learns of
// new results by its callback. A new search never narrows the previous results: it scans the database's
// sorted arrays again.
//
// Results are addressed by one index over folders and files: folders first, or files first after a reversal.
#pragma once

#include "db/db.h"
#include "db/db_extended_info.h"
#include "query/db_term.h"

#include <atomic>

namespace findwright {

// The even code is ascending, the odd one behind it descending.
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
    DB_SORT_DATE_ACCESSED_ASCENDING = 22,
    DB_SORT_DESCENDING = 1, // added to an ascending code
    DB_SORT_COUNT = 26,
};

// Codes of the owner's callback.
enum db_query_notification_t : u32 {
    DB_QUERY_RESULTS_CHANGED = 0, // results or their order changed: read them
    DB_QUERY_REBUILT = 1,         // the index is being rebuilt: search again
    DB_QUERY_STATUS_CHANGED = 2,
    DB_QUERY_READY = 6,     // the database is idle again
    DB_QUERY_UNBLOCKED = 8, // a wait for the worker has ended
};

using db_query_callback_t = void(void *user_data, u32 code);

struct db_query_params_t {
    bool match_case, match_whole_word, match_path, match_diacritics, match_regex;
    bool hide_empty_search_results; // an empty search finds nothing
    const char *search;             // UTF-8
    u32 filter_flags;               // DB_MATCH_...
    const char *filter_search;      // UTF-8; empty for no filter
    u32 sort;
};

struct db_query_t : db_query_link_t {
    db_t *db;
    array_t folder_results;
    array_t file_results;
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
    db_query_callback_t *callback;
    void *user_data;
    u32 sort;           // the order that the results are in now
    u32 requested_sort; // the one asked for
    u32 folders_first;
    u32 sorted; // the order may be changed cheaply
    u32 notify_pending;
    u32 notify_again; // a notification came while the database was busy
    u32 is_ui;
    std::atomic<u32> cancel_search;
    std::atomic<u32> cancel_sort;
    // A search that waits for the database to load; texts are owned copies, deferred_search is 0 for none.
    db_query_params_t deferred;
    char *deferred_search, *deferred_filter_search;
};

db_query_t *db_query_create(db_t *db, bool is_ui, db_query_callback_t *callback, void *user_data);
void db_destroy_query(db_query_t *query);

// Starts a new search, which ends one in progress. Results arrive by notification 0. Before the database is
// loaded the search is kept, and runs as soon as it is.
void db_query_search(db_query_t *query, const db_query_params_t *params);
// Changes the order. Notification 0 when it is done.
void db_sort(db_query_t *query, u32 sort);
u32 db_get_sort(const db_query_t *query);
// Stops this query's worker. True when one was running. A stopped search has no results, a stopped sort
// leaves them in name order.
bool db_cancel_query(db_query_t *query);

u32 db_get_result_count(db_query_t *query);
u32 db_get_folder_result_count(db_query_t *query);
u32 db_get_file_result_count(db_query_t *query);
// The item at an index, or 0 for a bad one. Valid until the next operation that changes the database.
const db_item_t *db_get_result_item(db_query_t *query, i32 index);
// Texts of a result; empty for a bad index.
void db_get_result_full_path_name(db_query_t *query, i32 index, utf8_buf_t *out);
void db_get_result_path(db_query_t *query, i32 index, utf8_buf_t *out);
void db_get_result_name(db_query_t *query, i32 index, utf8_buf_t *out);
bool db_is_folder_result(db_query_t *query, i32 index); // true also for a bad index
bool db_is_root_result(db_query_t *query, i32 index);   // false for a bad index

// The fast sort flag that a sort code needs (0 for the name order), or ~0 for a code that has no array.
u32 db_sort_get_fast_flag(u32 sort);

// --- Between the files of the query engine -----------------------------------------------------------------

// Runs one pass over an array of the database. On the worker.
void db_search_folders(db_query_t *query, const array_t *scan_array);
void db_search_files(db_query_t *query, const array_t *scan_array);
// Brings the results to an order. On the worker.
void db_sort_results(db_query_t *query, u32 sort);
// Queues notification 0, unless it is queued already. Any thread.
void _db_query_post_results_changed(db_query_t *query);

} // namespace findwright
