// One open index: its sources, its records, its sorted arrays, and the discipline that keeps them whole.
//
// There is no lock on the index. At most one worker thread owns it at a time (a rebuild, a search, a sort);
// all other code runs on the main thread and calls db_wait first, which waits for that worker. A worker tells
// the main thread of its end only through a posted procedure. While a worker runs it may borrow `parent`
// words of records as marks, and restores them.
//
// Files and folders are separate kinds, with separate arrays throughout. The master arrays, in name order,
// hold every item: their counts are the item counts. The other arrays hold the same references in other
// orders, each where the layout's flag says that it exists.
#pragma once

#include "base/array.h"
#include "base/types.h"
#include "db/db_exclude.h"
#include "db/db_index.h"
#include "db/db_item.h"
#include "db/db_layout.h"
#include "db/db_mem.h"
#include "os/os.h"

#include <atomic>
#include <mutex>

namespace findwright {

struct db_query_link_t;

enum db_worker_kind_t : u32 { DB_WORKER_SEARCH, DB_WORKER_SORT, DB_WORKER_OTHER };

// What the database asks of a query that is open on it; the query engine fills one table.
struct db_query_hooks_t {
    // What the busy dialog is to ask about this query's worker, and where on the screen; 0 for no dialog.
    const char *(*get_busy_text)(db_query_link_t *query, db_worker_kind_t kind, i32 *x, i32 *y);
    void (*cancel)(void *query); // asks the worker to end early; any thread
    void (*cancelled)(db_query_link_t *query, db_worker_kind_t kind); // it has ended so
    void (*wait_ended)(db_query_link_t *query);                       // a wait for the worker has ended
    void (*ready)(db_query_link_t *query);                            // the database is idle again
    void (*status_changed)(db_query_link_t *query);
    void (*rebuild_started)(db_query_link_t *query); // all results are gone
    void (*load_complete)(db_query_link_t *query);   // content is in place
};

struct db_item_set_t;

// What of an item changes: those of the DB_FLAG_ columns that do (a folder's size is DB_FLAG_SIZE too), and
inline constexpr u32 DB_CHANGE_PLACE = 0x10000;          // its name, or the path in front of it
inline constexpr u32 DB_CHANGE_RECENT_CHANGES = 0x20000; // its record among the recent changes
inline constexpr u32 DB_CHANGE_RUNS = 0x40000;           // its run history

// What a query is told of live updates (track/db_live.h), on the main thread, with no worker at work. Each
// item that changes leaves with its old data and enters with the new; between the two other items may leave.
// Sort keys change only between the two calls, so that a query can find its place by comparisons in both.
//
//     an item comes      item_enters(0, item)
//     changes            item_leaves(item), item_enters(item, item)
//     has a new record   item_leaves(old), item_enters(old, item), and the old record goes
//     goes               item_leaves(item), item_gone(item)
//     many go at once    items_gone(folders, files)
//     many move at once  tree_moves(), then the tree's folder like one that has a new record
struct db_live_hooks_t {
    // `item` is in all arrays and whole, with what is to be changed as it was.
    void (*item_leaves)(db_query_link_t *query, const db_item_t *item, bool is_folder, u32 changes);
    // `item` is in all arrays, with its new data. `old`: the record that it had when it left; 0: it is new.
    void (*item_enters)(db_query_link_t *query, const db_item_t *old, const db_item_t *item, bool is_folder,
                        u32 changes);
    // The record goes: nothing may refer to it any more. It can still be read.
    void (*item_gone)(db_query_link_t *query, const db_item_t *item, bool is_folder);
    // All members of two sets go, in place of item_leaves and item_gone for each. Still in all arrays.
    void (*items_gone)(db_query_link_t *query, const db_item_set_t *folders, const db_item_set_t *files);
    // The items below a folder are about to get other paths, so many that the order of the results has to be
    // made anew. Their records stay; but records of histories are made anew: results must not hold any.
    void (*tree_moves)(db_query_link_t *query);
    // Items that were entered in db_t's updated_items are to be painted again.
    void (*items_updated)(db_query_link_t *query);
};

// What a database knows of a query.
struct db_query_link_t {
    db_query_link_t *next;
    db_query_link_t *prev;
    const db_query_hooks_t *hooks;
    const db_live_hooks_t *live; // 0: it holds no items
};

// The busy dialog, which is shown while the main thread waits long for the worker of a window's query. The
// desktop fills the table; 0 without one.
struct db_wait_dialog_t {
    u32 delay; // milliseconds of waiting before it is shown: DB_WAIT_DIALOG_DELAY, in tests less
    // Shows it, on a thread of its own, with a text and a Cancel button, which calls cancel(param) on that
    // thread.
    void *(*show)(i32 x, i32 y, const char *text, void (*cancel)(void *param), void *param);
    // Takes it down, and returns whether Cancel was pressed.
    bool (*close)(void *dialog);
};
extern const db_wait_dialog_t *db_wait_dialog;
inline constexpr u32 DB_WAIT_DIALOG_DELAY = 1000;

// What the database asks of the code that keeps it true to its sources and settings (index/db_lifecycle.h).
// Main thread, with no worker at work.
struct db_keeper_t {
    void (*loaded)(db_t *db); // content is in place
    bool (*check)(db_t *db);  // whether a rebuild was started, because the content does not fit the settings
    void (*idle)(db_t *db);   // no operation is in flight any more
    void (*corrupt)(db_t *db);
    void (*stop)(db_t *db); // the database goes
};

// Process-wide modes, of the command line.
extern bool db_read_only; // no save, no rebuild, no watching, no comparison with the settings
extern bool db_no_db;     // no load and no save: each start rebuilds

struct db_t {
    os_thread_t *thread; // the worker that owns the index, or 0
    db_query_link_t *worker_query;
    db_worker_kind_t worker_kind;
    i32 busy_count;                  // operations in flight
    std::atomic<u32> cancel_rebuild; // asks a rebuild that runs to end early

    db_index_t *index_first, *index_last;
    u32 index_count;

    char *status_text, *status_detail_text; // heap strings or 0, under status_cs
    std::mutex *status_cs;

    array_t folder_name_array, file_name_array;
    array_t folder_path_array, file_path_array;
    array_t folder_size_array, file_size_array;
    array_t folder_date_created_array, file_date_created_array;
    array_t folder_date_modified_array, file_date_modified_array;
    array_t folder_date_accessed_array, file_date_accessed_array;
    array_t folder_attributes_array, file_attributes_array;
    array_t file_extension_array;
    array_t folder_frn_array;    // folders of NTFS indexes, by their number
    array_t folder_frn128_array; // folders of ReFS indexes
    // Side tables about items (track/db_recent_change.h, track/db_run_history.h); not in the database file.
    array_t recent_changes_by_item, recent_changes_by_date;
    u32 recent_changes;                                                                 // they are noted
    array_t run_history_by_name, run_history_by_count;                                  // entries, by path
    array_t run_history_by_item, run_history_links_by_count, run_history_links_by_date; // links to items
    u32 run_history_loaded;
    u32 run_history_dirty;                 // it differs from its file
    void (*run_history_save)(void *param); // what writes it, once that was posted for later; or 0
    u32 run_history_save_posted;

    // Items whose data has changed since the owners of the queries were told, by reference.
    array_t updated_items;
    u32 updated_items_pending; // the flush is posted
    // Of the folder sources: the scan (track/db_folder_update.h) and the monitors
    // (track/db_monitor_folder.h). 0 until there is one.
    struct db_folder_update_t *folder_update;
    struct db_monitor_folders_t *folder_monitors;

    db_mem_t mem;             // the records
    db_exclude_set_t exclude; // what the content was built without

    db_query_link_t *query_first, *query_last;
    u32 loaded;                        // content is in place
    u32 local;                         // the content is worth saving
    std::atomic<u32> corrupt_reported; // and the keeper not yet told
    u64 corrupt_date;                  // file time at which it was told last

    const db_keeper_t *keeper; // 0: nothing keeps it
    void *keeper_state;        // the keeper's own
    // Requests that came while the database was busy; the last operation to end runs them.
    u32 check_file_lists_deferred, save_deferred;
    char *file_list_filename; // the database is a view of this list; 0: it is not
    u32 file_list_status;     // file_list_status_t of the list that was read last

    db_layout_t layout;
};

// `file_list_filename`: a view of that list, or 0.
db_t *db_create(const char *file_list_filename = nullptr);
void db_destroy(db_t *db);

// Waits for the worker, under the caller's name for the log. Every public operation that touches content
// calls it.
void db_wait(db_t *db, const char *name);
bool db_is_ready(const db_t *db);
// Gives the database to a new worker: raises the busy count and starts the thread. The worker posts
// _db_ready_proc as its last act.
void db_start_worker(db_t *db, db_query_link_t *query, db_worker_kind_t kind, os_thread_proc_t *proc,
                     void *param);
// Posted when an operation in flight has ended; param is the db_t.
void _db_ready_proc(void *param);
void _db_load_complete_proc(void *param);

// A query that is told of what happens to the database from now on; the owner takes it out before it goes.
void db_add_query(db_t *db, db_query_link_t *query);
void db_remove_query(db_t *db, db_query_link_t *query);

// Before the content is replaced: the queries drop what they hold, and nothing that was posted for the old
// content runs any more. After db_wait.
void db_forget_work(db_t *db);
// What sorted arrays there are beside the two in name order is freed; for a rebuild, which reads those two
// only.
void db_clear_sorted(db_t *db);
// A sorted array has turned out not to fit the data: has the keeper put things right, from the main thread.
// However many are found until then, it is told once; a rebuild that starts before makes it moot. Any thread.
void db_report_corrupt(db_t *db);

// The status text, shown while the database is busy. Any thread. An empty text clears it.
void db_set_status(db_t *db, const char *format, ...);
void db_set_status_detail(db_t *db, const char *text);
// Both texts, in copies.
void db_get_status(db_t *db, utf8_buf_t *out, utf8_buf_t *detail);

// Frees all records, arrays and indexes. The worker that owns the database, or the main thread after db_wait.
void db_clear_content(db_t *db);
// Bytes that the content takes: records, arrays.
u64 db_memory_size(const db_t *db);

// Notes an item whose data has changed; the owners of the queries are told once, from the main loop, and the
// item is forgotten then. Main thread.
void db_mark_updated(db_t *db, const db_item_t *item);
bool db_is_updated(const db_t *db, const db_item_t *item);
// The record goes. True when it was noted.
bool db_forget_updated(db_t *db, const db_item_t *item);
// The same for all members of two sets.
void db_forget_updated_many(db_t *db, const db_item_set_t *folders, const db_item_set_t *files);
// Posted: tells the owners; of a busy database once that is idle.
void db_flush_updated_items(void *db);

// The pair of arrays that hold an order, for files and folders; 0 where the layout does not have them. The
// column is told by its fast sort flag; 0 is the name order.
struct db_array_pair_t {
    array_t *folders;
    array_t *files;
};
db_array_pair_t db_get_sorted_arrays(db_t *db, u32 fast_flag);

} // namespace findwright
