// Results that stay true while the index changes: what a query does when it is told of live updates
// (db_live_hooks_t of db/db.h).
//
// A query whose terms look only at an item's own record and path, in an order whose keys are in the records,
// is updated in place: an item that changes is taken out of the results while its old keys hold, and put in
// where it belongs when its new ones do, if the terms still match. Only changes of what the terms, the order
// or the sums look at count.
//
// Any other query becomes stale by a change that may concern it: what goes leaves its results at once, all
// else waits until the search is run again with the same text, some time later. A stale query's results are
// never looked up by comparisons, and nothing is evaluated for them.
//
//     is_local        in place; else a change of what the terms look at makes it stale
//     has_anchors     the terms hold folders of the index: stale also when one of these may come or go
//     an order by what is read, or none at all: stale by everything that may concern it
//     tree_moves      stale: the order of the results cannot be trusted any more
//
// What goes from a stale query is only noted at first; all of it is taken out in one pass before anybody
// looks at the results (_db_result_settle). Results that are records of a history leave and enter at once in
// any case, because their records may be freed at any time.
//
// Main thread, with no worker at work; only `search_time` is written by the worker of the search.
#pragma once

#include "base/ref_map.h"
#include "query/db_result_internal.h"
#include "query/db_search.h"

namespace findwright {

// A stale query is searched again after so many microseconds at the earliest, and after so many times what
// its last search took. A search that took longer than the limit is not repeated by itself: everybody would
// wait for it, again and again.
extern u32 db_result_search_interval;
inline constexpr u32 DB_RESULT_SEARCH_INTERVAL = 1'000'000;
inline constexpr u32 DB_RESULT_SEARCH_SHARE = 10;
inline constexpr u32 DB_RESULT_SEARCH_LIMIT = 10'000'000;

// What the terms of a search look at.
struct db_result_terms_t {
    bool finds_all;
    bool is_local;    // only at the record and the path of the item that they decide on
    bool has_anchors; // also at references to folders, which they hold
    bool reads_files; // also at what the index does not hold
    u32 changes[2];   // what of files, and of folders, beyond their place: columns, DB_CHANGE_...
    bool needs_regex;
};

// An item that a stale query's results hold, and what has become of it.
struct db_result_moved_t {
    mem_ref_t item; // its record now; 0: it is gone
    u64 size;       // of a file that is gone
};

// What becomes of an item between item_leaves and item_enters: it was taken out of the results.
enum db_result_left_t : u8 { DB_RESULT_LEFT = 1, DB_RESULT_LEFT_SELECTED = 3 };

struct db_live_result_t {
    // The search that the results are of, to be run again; `search` is 0 for none.
    db_query_params_t params;
    char *search, *filter_search; // owned
    u32 search_time;              // what it took, in microseconds
    u32 search_start, search_end; // of os_get_tick_count
    db_result_terms_t terms;
    db_scan_t scan; // for one item at a time
    bool has_scan;
    ref_map_t<u8> left; // db_result_left_t by item
    bool has_strays;    // results that were ghosts, and may be no more than that
    bool is_stale;
    bool is_waiting; // the new search waits until the database is ready
    // What is to be done to the results of a stale query: by the reference that they hold, and from a record
    // of today to that reference.
    ref_map_t<db_result_moved_t> moved;
    ref_map_t<mem_ref_t> moved_from;
};

extern const db_live_hooks_t db_live_result_hooks;

db_live_result_t *db_live_result_create();
void db_live_result_free(db_query_t *query);

// --- For the life of a query -------------------------------------------------------------------------------

// A new search begins; after the terms were compiled. Takes copies of the parameters.
void _db_result_begin_search(db_query_t *query, const db_query_params_t *params);
// On the worker, when it has come to its end.
void _db_result_end_search(db_query_t *query);
// The results are those of no search any more.
void _db_result_forget_search(db_query_t *query);
// Takes out of the results of a stale query what has gone. Before anything looks at them.
void _db_result_settle_now(db_query_t *query);
inline void _db_result_settle(db_query_t *query) {
    if (query->live_result->moved.count != 0) [[unlikely]]
        _db_result_settle_now(query);
}
// The database is ready again.
void _db_result_ready(db_query_t *query);
// Posted: runs a stale query's search again. The parameter is the query's link.
void _db_result_search_proc(void *param);

// --- Stale queries (db_live_result_search.cpp) -------------------------------------------------------------

// From now on it is, until it is searched again.
void _db_result_become_stale(db_query_t *query);
// A stale query's results may hold an item that goes, or gets another record.
void _db_result_note_gone(db_query_t *query, const db_item_t *item, bool is_folder);
void _db_result_note_moved(db_query_t *query, const db_item_t *old, const db_item_t *item);
// Results that are records of a history become the items that these tell of, behind the others.
void _db_result_drop_history(db_query_t *query);
// Takes the members of two sets out of any query's results.
void _db_result_remove_many(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files);

// --- Terms (db_live_result_terms.cpp) ----------------------------------------------------------------------

void _db_result_read_terms(db_query_t *query);
void _db_result_free_scan(db_query_t *query);
// Whether the terms find an item, as it is now.
bool _db_result_matches(db_query_t *query, const db_item_t *item, bool is_folder);
// Whether a folder or a file at the top, which comes or goes, may be one that the terms hold.
bool _db_result_touches_anchors(const db_query_t *query, const db_item_t *item, bool is_folder);
// Takes references out of what the terms hold: one, or the members of a set.
void _db_result_drop_anchor(db_query_t *query, mem_ref_t item);
bool _db_result_drop_anchors(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files);

// --- Places (db_live_result_place.cpp) ---------------------------------------------------------------------

struct db_result_place_t {
    array_t *array;
    u32 page;
    i32 position;
    u32 index; // of the result
};

// Whether items can be found in the results by comparisons.
bool _db_result_has_order(const db_query_t *query);
// What of an item the order of the results goes by, beyond its place.
u32 _db_result_get_order_changes(const db_query_t *query, bool is_folder);
// The order goes by what the index does not hold of an item.
bool _db_result_reads_order(const db_query_t *query);
// Where an item stands, by comparisons; only of a query that has an order.
bool _db_result_find(const db_query_t *query, const db_item_t *item, bool is_folder,
                     db_result_place_t *place);
// The same of an item that the history has, in any query that shows that history.
bool _db_result_find_in_history(const db_query_t *query, const db_item_t *item, db_result_place_t *place);
// By looking at all results.
bool _db_result_find_by_pass(db_query_t *query, const db_item_t *item, db_result_place_t *place);
// Takes a result out; true when it was selected.
bool _db_result_take_out(db_query_t *query, const db_item_t *item, bool is_folder,
                         const db_result_place_t *place);
// Puts a result in where it belongs; of a stale query behind the others of its kind, but where it belongs
// when the history has it.
void _db_result_put_in(db_query_t *query, const db_item_t *item, bool is_folder, bool is_selected);

} // namespace findwright
