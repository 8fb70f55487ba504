// The rebuild's thread: the order of its phases.
#include "index/db_create.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_create_internal.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"
#include "track/db_schedule.h"

#include <cstring>

namespace findwright {

// English until a language pack is loaded.
db_create_texts_t db_create_texts = {
    "Creating database...",
    "Indexing %s...",
    "Scanning %s (%s)",
    "Loading %s...",
    "Scanning %s...",
    "Finding excluded folders...",
    "Finding excluded files...",
};

// --- Orphans -----------------------------------------------------------------------------------------------

// What is known of a folder's chain, in its slot.
enum _db_create_chain_t : u32 { CHAIN_UNKNOWN, CHAIN_ON_THE_WAY, CHAIN_IN_TREE, CHAIN_ORPHAN };

// Follows a folder's chain to the first folder of which the answer is known, and notes it for all on the way.
// A chain that meets itself never reaches a root.
static void _db_create_settle_chain(db_rebuild_t *rebuild, mem_ref_t start) {
    u32 answer = CHAIN_ORPHAN;
    mem_ref_t ref = start;
    for (;; ref = db_item(ref)->parent) {
        if (ref < MEM_REF_FIRST) {
            answer = ref == DB_CREATE_ROOT ? CHAIN_IN_TREE : CHAIN_ORPHAN;
            break;
        }
        u32 state = _db_create_get_slot(rebuild, db_item(ref));
        if (state != CHAIN_UNKNOWN) {
            answer = state == CHAIN_IN_TREE ? CHAIN_IN_TREE : CHAIN_ORPHAN;
            break;
        }
        _db_create_set_slot(rebuild, db_item(ref), CHAIN_ON_THE_WAY);
    }
    for (ref = start; ref >= MEM_REF_FIRST;) {
        db_item_t *folder = mem_ptr<db_item_t>(ref);
        if (_db_create_get_slot(rebuild, folder) != CHAIN_ON_THE_WAY)
            break;
        _db_create_set_slot(rebuild, folder, answer);
        ref = folder->parent;
        if (answer == CHAIN_ORPHAN)
            folder->parent = DB_CREATE_ORPHAN;
    }
}

static bool _db_create_is_in_tree(const db_item_t *item) {
    if (item->parent < MEM_REF_FIRST)
        return item->parent == DB_CREATE_ROOT;
    return db_item(item->parent)->parent != DB_CREATE_ORPHAN;
}

static mem_ref_t *_db_create_collect(const pointer_pool_t *pool, u32 *count) {
    u32 total = pointer_pool_count(pool);
    mem_ref_t *items = static_cast<mem_ref_t *>(mem_alloc((static_cast<size_t>(total) + 1) * sizeof *items));
    u32 kept = 0;
    for (u32 i = 0; i < total; i++) {
        mem_ref_t ref = pointer_pool_get(pool, i);
        if (_db_create_is_in_tree(db_item(ref)))
            items[kept++] = ref;
    }
    *count = kept;
    return items;
}

static void _db_create_settle_all(db_rebuild_t *rebuild) {
    u32 folder_total = pointer_pool_count(&rebuild->store.folders);
    for (u32 i = 0; i < folder_total; i++)
        _db_create_set_slot(rebuild, db_item(pointer_pool_get(&rebuild->store.folders, i)), CHAIN_UNKNOWN);
    for (u32 i = 0; i < folder_total; i++)
        _db_create_settle_chain(rebuild, pointer_pool_get(&rebuild->store.folders, i));
}

// --- Exclusions --------------------------------------------------------------------------------------------

using _db_create_included_t = bool(const db_exclude_set_t *set, mem_ref_t parent, const char *name,
                                   u32 length);

// Makes orphans of the items of a pool that are left out. Chains must be settled: a path is built by walking
// one.
static void _db_create_exclude(const db_rebuild_t *rebuild, const pointer_pool_t *pool,
                               _db_create_included_t *included, const char *log_format) {
    u32 total = pointer_pool_count(pool);
    for (u32 i = 0; i < total; i++) {
        db_item_t *item = mem_ptr<db_item_t>(pointer_pool_get(pool, i));
        if (!_db_create_is_in_tree(item))
            continue;
        u32 length;
        const char *name = db_item_get_name(item, &length);
        if (included(&rebuild->db->exclude, item->parent, name, length))
            continue;
        if (debug_verbose)
            debug_verbose_printf(log_format, name, length);
        item->parent = DB_CREATE_ORPHAN;
    }
}

static void _db_create_apply_exclusions(db_rebuild_t *rebuild) {
    const db_exclude_set_t *exclude = &rebuild->db->exclude;
    if (exclude->exclude_folders.first) {
        db_set_status(rebuild->db, "%s", db_create_texts.excluding_folders);
        _db_create_exclude(rebuild, &rebuild->store.folders, db_folder_is_included, "excluded folder: %t\n");
        _db_create_settle_all(rebuild); // what is below them goes along
    }
    if (exclude->include_only_files.first || exclude->exclude_files.first) {
        db_set_status(rebuild->db, "%s", db_create_texts.excluding_files);
        _db_create_exclude(rebuild, &rebuild->store.files, db_file_is_included, "excluded file: %t\n");
    }
}

void _db_create_drop_orphans(db_rebuild_t *rebuild) {
    u32 folder_total = pointer_pool_count(&rebuild->store.folders);
    _db_create_settle_all(rebuild);
    _db_create_apply_exclusions(rebuild);

    u32 start = os_get_tick_count();
    rebuild->files = _db_create_collect(&rebuild->store.files, &rebuild->file_count);
    u32 orphans = pointer_pool_count(&rebuild->store.files) - rebuild->file_count;
    rebuild->stats->orphan_count = orphans;
    debug_printf("removed %d orphaned files in %f seconds\n", orphans, os_get_tick_count() - start);

    start = os_get_tick_count();
    rebuild->folders = _db_create_collect(&rebuild->store.folders, &rebuild->folder_count);
    orphans = folder_total - rebuild->folder_count;
    rebuild->stats->orphan_count += orphans;
    debug_printf("removed %d orphaned folders in %f seconds\n", orphans, os_get_tick_count() - start);
}

void _db_create_show(const db_rebuild_t *rebuild, const char *format, const char *name, const char *second) {
    utf8_buf_t names[2];
    utf8_buf_init(&names[0]);
    utf8_buf_init(&names[1]);
    os_path_to_user(name, utf8_length(name), &names[0]);
    os_path_to_user(second, utf8_length(second), &names[1]);
    db_set_status(rebuild->db, format, names[0].data, names[1].data);
    utf8_buf_kill(&names[1]);
    utf8_buf_kill(&names[0]);
}

// --- Phase 1: the sources ----------------------------------------------------------------------------------

// The index of the same source in the content that is there.
static db_index_t *_db_create_find_existing(const db_t *db, const db_index_t *wanted) {
    switch (wanted->type) {
    case DB_INDEX_TYPE_FILE_LIST: {
        const db_index_file_list_t *list = static_cast<const db_index_file_list_t *>(wanted);
        return db_index_find_file_list(db, list->filename, list->monitor != 0);
    }
    case DB_INDEX_TYPE_FOLDER:
        return db_index_find_folder(db, static_cast<const db_index_folder_t *>(wanted));
    case DB_INDEX_TYPE_REFS:
    default: {
        const db_index_volume_t *volume = static_cast<const db_index_volume_t *>(wanted);
        return wanted->type == DB_INDEX_TYPE_NTFS
                   ? db_index_find_ntfs(db, volume->guid, volume->path, volume->root, volume->include_only)
                   : db_index_find_refs(db, volume->guid, volume->path, volume->root, volume->include_only);
    }
    }
}

// What a user knows the source by.
static const char *_db_create_source_name(const db_index_t *index) {
    switch (index->type) {
    case DB_INDEX_TYPE_FILE_LIST: return static_cast<const db_index_file_list_t *>(index)->filename;
    case DB_INDEX_TYPE_FOLDER: return static_cast<const db_index_folder_t *>(index)->path;
    default: return static_cast<const db_index_volume_t *>(index)->path;
    }
}

// Marks the source to be copied with the others; what its index knows of the source's state stays true.
static void _db_create_mark_reused(db_rebuild_t *rebuild, db_create_source_t *source) {
    static const char *const kinds[] = {"NTFS", "filelist", "folder", "REFS"};
    const db_index_t *from = source->existing;
    const char *name = _db_create_source_name(from);
    debug_printf("using existing %s index %s\n", kinds[from->type], name);
    _db_create_show(rebuild, db_create_texts.indexing, name, "");
    source->is_reused = true;
    source->out_of_date = from->out_of_date;
    switch (from->type) {
    case DB_INDEX_TYPE_FILE_LIST:
        static_cast<db_index_file_list_t *>(source->index)->date_modified =
            static_cast<const db_index_file_list_t *>(from)->date_modified;
        break;
    case DB_INDEX_TYPE_FOLDER: {
        auto *to = static_cast<db_index_folder_t *>(source->index);
        const auto *folder = static_cast<const db_index_folder_t *>(from);
        to->next_update = folder->next_update;
        to->update_now = folder->update_now;
        break;
    }
    default: {
        db_index_volume_t *to = static_cast<db_index_volume_t *>(source->index);
        to->journal_id = static_cast<const db_index_volume_t *>(from)->journal_id;
        to->next_usn = static_cast<const db_index_volume_t *>(from)->next_usn;
    }
    }
}

static bool _db_create_read_source(db_rebuild_t *rebuild, db_create_source_t *source) {
    switch (source->index->type) {
    case DB_INDEX_TYPE_NTFS: return _db_create_read_ntfs(rebuild, source);
    case DB_INDEX_TYPE_FILE_LIST: return _db_create_read_file_list(rebuild, source);
    case DB_INDEX_TYPE_FOLDER: return _db_create_read_folder(rebuild, source);
    default: debug_printf("invalid index type %d\n", static_cast<u32>(source->index->type)); return false;
    }
}

static void _db_create_take_source(db_rebuild_t *rebuild, db_create_source_t *source) {
    source->existing = _db_create_find_existing(rebuild->db, source->index);
    if (source->index->type == DB_INDEX_TYPE_NTFS) {
        const db_index_volume_t *volume = static_cast<const db_index_volume_t *>(source->index);
        debug_printf("Indexing %s, %s, %s\n", volume->guid, volume->path, volume->root);
    }
    if (source->existing && !source->existing->out_of_date) {
        _db_create_mark_reused(rebuild, source);
        return;
    }
    source->folder_start = pointer_pool_count(&rebuild->store.folders);
    source->file_start = pointer_pool_count(&rebuild->store.files);
    if (_db_create_read_source(rebuild, source)) {
        rebuild->stats->sources_read++;
        if (source->index->type == DB_INDEX_TYPE_FOLDER) {
            db_index_folder_t *folder = static_cast<db_index_folder_t *>(source->index);
            db_schedule_t schedule = {folder->update_type, folder->update_value};
            folder->next_update = db_schedule_next(&schedule);
        }
        return;
    }
    if (source->existing)
        _db_create_mark_reused(rebuild, source);
    else if (source->index->type == DB_INDEX_TYPE_NTFS) // looked for again when the content is checked
        source->out_of_date = static_cast<const db_index_volume_t *>(source->index)->monitor;
}

// --- The thread --------------------------------------------------------------------------------------------

static void _db_create_free(db_rebuild_t *rebuild) {
    for (db_create_source_t *source = rebuild->source_first; source;) {
        db_create_source_t *next = source->next;
        db_source_destroy(source->wanted);
        mem_free(source);
        source = next;
    }
    _db_create_free_records(rebuild);
    mem_free(rebuild->folders);
    db_exclude_kill(&rebuild->exclude);
    mem_free(rebuild);
}

static void _db_rebuild_thread_proc(void *param) {
    db_rebuild_t *rebuild = static_cast<db_rebuild_t *>(param);
    db_t *db = rebuild->db;
    u32 start = os_get_tick_count();
    for (db_create_source_t *source = rebuild->source_first; source; source = source->next)
        _db_create_take_source(rebuild, source);
    if (!_db_create_is_cancelled(rebuild))
        _db_create_reuse(rebuild);
    db_clear_content(db);
    db->exclude = rebuild->exclude; // the database's from now on
    db_exclude_init(&rebuild->exclude);
    if (_db_create_is_cancelled(rebuild))
        _db_create_free_records(rebuild);
    _db_create_drop_orphans(rebuild);
    u32 read_end = os_get_tick_count();
    db->layout = rebuild->layout;
    _db_create_lay_out(rebuild);
    rebuild->stats->read_time = read_end - start;
    rebuild->stats->sort_time = os_get_tick_count() - read_end;
    bool cancelled = _db_create_is_cancelled(rebuild);
    if (cancelled) {
        db_clear_content(db);
    } else {
        db_recent_change_start(db);
        db_run_history_load(db);
    }
    _db_create_free(rebuild);
    mem_arena_trim();
    debug_printf("create db time taken: %f seconds\n", os_get_tick_count() - start);
    event_post(_db_load_complete_proc, db);
    db->local = !cancelled;
    debug_printf("success \n");
    event_post(_db_ready_proc, db);
}

// --- The start ---------------------------------------------------------------------------------------------

static void _db_create_add_source(db_rebuild_t *rebuild, db_source_t *wanted) {
    db_create_source_t *source = static_cast<db_create_source_t *>(mem_alloc(sizeof *source));
    std::memset(source, 0, sizeof *source);
    (rebuild->source_last ? rebuild->source_last->next : rebuild->source_first) = source;
    rebuild->source_last = source;
    source->wanted = wanted;
    source->index = wanted->index;
}

// Everything that the rebuild needs of `wanted`, which is empty afterwards.
static db_rebuild_t *_db_create_make(db_t *db, db_wanted_t *wanted, db_rebuild_stats_t *stats) {
    static db_rebuild_stats_t unasked;
    db_rebuild_t *rebuild = static_cast<db_rebuild_t *>(mem_alloc(sizeof *rebuild));
    std::memset(static_cast<void *>(rebuild), 0, sizeof *rebuild);
    rebuild->db = db;
    rebuild->exclude = wanted->exclude;
    db_exclude_init(&wanted->exclude);
    rebuild->stats = stats ? stats : &unasked;
    *rebuild->stats = {};
    db_layout_set_flags(&rebuild->layout, db_layout_normalize_flags(wanted->index_flags));
    _db_create_store_init(&rebuild->store);
    for (db_source_t *source = wanted->first; source;) {
        db_source_t *next = source->next;
        _db_create_add_source(rebuild, source);
        source = next;
    }
    wanted->first = wanted->last = nullptr;
    return rebuild;
}

void db_rebuild_start(db_t *db, db_wanted_t *wanted, db_rebuild_stats_t *stats) {
    db_wait(db, "db_rebuild");
    debug_printf("create db...\n");
    db_run_history_save(db); // what is counted goes with the content, and is read again behind it
    db_forget_work(db);
    db_clear_sorted(db);
    db->cancel_rebuild = 0;
    db_rebuild_t *rebuild = _db_create_make(db, wanted, stats);
    db_set_status(db, "%s", db_create_texts.creating);
    db_start_worker(db, nullptr, DB_WORKER_OTHER, _db_rebuild_thread_proc, rebuild);
}

void db_rebuild_cancel(db_t *db) {
    if (!db->loaded)
        db->cancel_rebuild = 1;
}

} // namespace findwright
