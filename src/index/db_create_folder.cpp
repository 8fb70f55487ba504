// The rebuild's folder source: the scan of a folder and of all that lies below it.
//
//     queue: folders to be listed ---one at a time---> thread: path --os_folder_list--> records in its own
//     store
//            ^                                                                                |
//            '------------------------- the folders among them, in batches -------------------'
//
// A folder in the queue is its temporary record: the path is made from the chain of parents, so that a folder
// that waits takes 4 bytes. The last one in is the first one out, which keeps the queue as long as the tree
// is deep and not as long as it is wide. The scan ends when the queue is empty and no thread lists anything.
//
// A record is written before its reference is queued, under the queue's lock, and never afterwards: so every
// thread may read the records of all others.
#include "base/mem.h"
#include "index/db_create_internal.h"
#include "os/debug.h"
#include "os/os_folder.h"
#include "os/os_parallel.h"
#include "track/db_folder_rules.h"

#include <condition_variable>
#include <cstring>
#include <mutex>

namespace findwright {

static constexpr u32 SCAN_THREADS_MAX = 8;            // more do not make one disk faster
static constexpr u32 SCAN_BATCH_FOLDERS = 256;        // handed to the queue at once
static constexpr u32 SCAN_BATCH_ITEMS = 4096;         // counted at once
static constexpr u32 SCAN_PROGRESS_INTERVAL = 100000; // microseconds between two status texts
static constexpr u32 SCAN_ERROR_TEXT = 512;

// What all threads of a scan share.
struct _db_create_scan_t {
    db_rebuild_t *rebuild;
    db_create_source_t *source;
    db_folder_rules_t rules;
    mem_ref_t root;
    db_create_store_t *stores[SCAN_THREADS_MAX];

    std::mutex lock;
    std::condition_variable changed; // there are folders again, or the end has come
    mem_ref_t *queue;
    u32 queued, capacity;
    u32 working; // threads that list a folder, and may find more
    u32 item_count;
    u32 last_progress;
};

// One thread at its work.
struct _db_create_scanner_t {
    _db_create_scan_t *scan;
    db_create_store_t *store;
    mem_ref_t folder; // the one that is listed
    u32 item_count;   // not yet counted for the scan
    u32 batched;
    mem_ref_t batch[SCAN_BATCH_FOLDERS];
};

// --- The queue ---------------------------------------------------------------------------------------------

static void _db_create_scan_grow(_db_create_scan_t *scan, u32 wanted) {
    u32 capacity = scan->capacity * 2 < wanted ? wanted : scan->capacity * 2;
    mem_ref_t *queue = static_cast<mem_ref_t *>(mem_alloc(capacity * sizeof *queue));
    if (scan->queue) {
        std::memcpy(queue, scan->queue, scan->queued * sizeof *queue);
        mem_free(scan->queue);
    }
    scan->queue = queue;
    scan->capacity = capacity;
}

// Counts the items, under the lock. True when it is time to tell the user.
static bool _db_create_scan_count(_db_create_scan_t *scan, u32 found) {
    scan->item_count += found;
    u32 now = os_get_tick_count();
    if (now - scan->last_progress < SCAN_PROGRESS_INTERVAL)
        return false;
    scan->last_progress = now;
    return true;
}

static void _db_create_scan_tell(const _db_create_scan_t *scan, u32 item_count) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    utf8_buf_printf(&text, "%u items", item_count);
    db_set_status_detail(scan->rebuild->db, text.data);
    utf8_buf_kill(&text);
}

// Gives what the thread has found to the others.
static void _db_create_scan_flush(_db_create_scanner_t *scanner) {
    _db_create_scan_t *scan = scanner->scan;
    std::unique_lock guard(scan->lock);
    if (scanner->batched) {
        u32 wanted = scan->queued + scanner->batched;
        if (wanted > scan->capacity)
            _db_create_scan_grow(scan, wanted);
        std::memcpy(scan->queue + scan->queued, scanner->batch, scanner->batched * sizeof(mem_ref_t));
        scan->queued = wanted;
        scan->changed.notify_all();
    }
    bool tell = _db_create_scan_count(scan, scanner->item_count);
    u32 item_count = scan->item_count;
    guard.unlock();
    scanner->batched = scanner->item_count = 0;
    if (tell)
        _db_create_scan_tell(scan, item_count);
}

// The next folder for the thread, which then counts as working; 0 at the end.
static mem_ref_t _db_create_scan_take(_db_create_scan_t *scan) {
    std::unique_lock guard(scan->lock);
    for (;;) {
        if (_db_create_is_cancelled(scan->rebuild))
            scan->queued = 0;
        if (scan->queued) {
            scan->working++;
            return scan->queue[--scan->queued];
        }
        if (!scan->working)
            return 0;
        scan->changed.wait(guard);
    }
}

static void _db_create_scan_leave(_db_create_scan_t *scan) {
    std::lock_guard guard(scan->lock);
    if (--scan->working == 0)
        scan->changed.notify_all();
}

// --- Items -------------------------------------------------------------------------------------------------

// Whether the folder is gone into. What lies below one that is left out would be dropped later all the same.
static bool _db_create_scan_is_entered(const _db_create_scan_t *scan, mem_ref_t parent,
                                       const os_folder_entry_t *entry) {
    const db_exclude_set_t *exclude = &scan->rebuild->exclude;
    return db_folder_rules_is_entered(&scan->rules, entry) &&
           (!exclude->exclude_folders.first ||
            db_folder_is_included(exclude, parent, entry->name, entry->length));
}

static bool _db_create_scan_entry_proc(void *param, const os_folder_entry_t *entry) {
    _db_create_scanner_t *scanner = static_cast<_db_create_scanner_t *>(param);
    const _db_create_scan_t *scan = scanner->scan;
    if (db_folder_rules_is_skipped(&scan->rules, entry))
        return true;
    db_file_info_t info = db_folder_rules_get_info(entry);
    db_create_item_t item = {scanner->folder, entry->name, entry->length, &info, 0};
    if (!entry->is_folder) {
        _db_create_add_file(scan->rebuild, scan->source, scanner->store, &item);
    } else {
        db_item_t *folder = _db_create_add_folder(scan->rebuild, scan->source, scanner->store, &item);
        if (_db_create_scan_is_entered(scan, scanner->folder, entry))
            scanner->batch[scanner->batched++] = mem_ref(folder);
    }
    if (++scanner->item_count == SCAN_BATCH_ITEMS || scanner->batched == SCAN_BATCH_FOLDERS)
        _db_create_scan_flush(scanner);
    return true;
}

// --- Folders -----------------------------------------------------------------------------------------------

// A folder that has gone since it was found is an empty one.
static void _db_create_scan_log_failure(const char *path) {
    u32 error = os_get_last_error();
    if (os_error_is_not_found(error))
        return;
    char text[SCAN_ERROR_TEXT];
    os_error_text(error, text, sizeof text);
    debug_printf("cannot list %s: %s\n", path, text);
}

static void _db_create_scan_folder(_db_create_scanner_t *scanner, utf8_buf_t *path) {
    const _db_create_scan_t *scan = scanner->scan;
    bool is_root = scanner->folder == scan->root;
    if (!is_root)
        db_item_get_full_path_name(path, db_item(scanner->folder));
    const char *name = is_root ? scan->rules.root_path : path->data;
    if (!os_folder_list(name, db_folder_rules_root_length(&scan->rules, is_root), _db_create_scan_entry_proc,
                        scanner))
        _db_create_scan_log_failure(name);
}

static void _db_create_scan_part_proc(void *param, u32 part, u32) {
    _db_create_scan_t *scan = static_cast<_db_create_scan_t *>(param);
    _db_create_scanner_t scanner;
    scanner.scan = scan;
    scanner.store = scan->stores[part];
    scanner.item_count = scanner.batched = 0;
    utf8_buf_t path;
    utf8_buf_init(&path);
    while ((scanner.folder = _db_create_scan_take(scan)) != 0) {
        _db_create_scan_folder(&scanner, &path);
        _db_create_scan_flush(&scanner);
        _db_create_scan_leave(scan);
    }
    utf8_buf_kill(&path);
}

// --- A source ----------------------------------------------------------------------------------------------

static void _db_create_scan_add_root(_db_create_scan_t *scan, const os_folder_entry_t *entry) {
    db_file_info_t info = db_folder_rules_get_info(entry);
    db_create_item_t item = {DB_CREATE_ROOT, scan->rules.root_path, scan->rules.root_length, &info, 0};
    scan->root = mem_ref(_db_create_add_folder(scan->rebuild, scan->source, scan->stores[0], &item));
}

static void _db_create_scan_run(_db_create_scan_t *scan, u32 threads) {
    _db_create_scan_grow(scan, SCAN_BATCH_FOLDERS);
    scan->queue[scan->queued++] = scan->root;
    os_parallel(threads, _db_create_scan_part_proc, scan);
    mem_free(scan->queue);
}

static void _db_create_scan_all(_db_create_scan_t *scan, const os_folder_entry_t *entry) {
    u32 threads = os_get_thread_count(SCAN_THREADS_MAX, 1);
    for (u32 i = 0; i < threads; i++) {
        scan->stores[i] = static_cast<db_create_store_t *>(mem_alloc(sizeof(db_create_store_t)));
        _db_create_store_init(scan->stores[i]);
    }
    _db_create_scan_add_root(scan, entry);
    if (db_folder_rules_is_root_listed(&scan->rules))
        _db_create_scan_run(scan, threads);
    for (u32 i = 0; i < threads; i++)
        _db_create_take_store(scan->rebuild, scan->stores[i]);
}

bool _db_create_read_folder(db_rebuild_t *rebuild, db_create_source_t *source) {
    const char *path = static_cast<const db_index_folder_t *>(source->index)->path;
    u32 start = os_get_tick_count();
    debug_printf("scanning %s...\n", path);
    _db_create_show(rebuild, db_create_texts.scanning_folder, path, "");
    _db_create_scan_t scan = {};
    os_folder_entry_t entry;
    bool is_found = db_folder_rules_open(&scan.rules, &rebuild->exclude, path, &entry);
    if (is_found) {
        scan.rebuild = rebuild;
        scan.source = source;
        scan.last_progress = start;
        _db_create_scan_all(&scan, &entry);
    }
    debug_printf("scan completed in %f seconds\n", os_get_tick_count() - start);
    return is_found;
}

} // namespace findwright
