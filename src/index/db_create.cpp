// The rebuild's thread: the order of its phases.
#include "index/db_create.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_create_internal.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"

#include <cstring>

namespace findwright {

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
    u32 folder_total = pointer_pool_count(&rebuild->folder_pool);
    for (u32 i = 0; i < folder_total; i++)
        _db_create_set_slot(rebuild, db_item(pointer_pool_get(&rebuild->folder_pool, i)), CHAIN_UNKNOWN);
    for (u32 i = 0; i < folder_total; i++)
        _db_create_settle_chain(rebuild, pointer_pool_get(&rebuild->folder_pool, i));
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
        db_set_status(rebuild->db, "Finding excluded folders...");
        _db_create_exclude(rebuild, &rebuild->folder_pool, db_folder_is_included, "excluded folder: %t\n");
        _db_create_settle_all(rebuild); // what is below them goes along
    }
    if (exclude->include_only_files.first || exclude->exclude_files.first) {
        db_set_status(rebuild->db, "Finding excluded files...");
        _db_create_exclude(rebuild, &rebuild->file_pool, db_file_is_included, "excluded file: %t\n");
    }
}

void _db_create_drop_orphans(db_rebuild_t *rebuild) {
    u32 folder_total = pointer_pool_count(&rebuild->folder_pool);
    _db_create_settle_all(rebuild);
    _db_create_apply_exclusions(rebuild);

    u32 start = os_get_tick_count();
    rebuild->files = _db_create_collect(&rebuild->file_pool, &rebuild->file_count);
    u32 orphans = pointer_pool_count(&rebuild->file_pool) - rebuild->file_count;
    rebuild->stats->orphan_count = orphans;
    debug_printf("removed %d orphaned files in %f seconds\n", orphans, os_get_tick_count() - start);

    start = os_get_tick_count();
    rebuild->folders = _db_create_collect(&rebuild->folder_pool, &rebuild->folder_count);
    orphans = folder_total - rebuild->folder_count;
    rebuild->stats->orphan_count += orphans;
    debug_printf("removed %d orphaned folders in %f seconds\n", orphans, os_get_tick_count() - start);
}

// --- The thread --------------------------------------------------------------------------------------------

static void _db_create_free(db_rebuild_t *rebuild) {
    for (db_rebuild_source_t *source = rebuild->source_first; source;) {
        db_rebuild_source_t *next = source->next;
        mem_free(source);
        source = next;
    }
    obstack_bytes_kill(&rebuild->records);
    pointer_pool_kill(&rebuild->folder_pool);
    pointer_pool_kill(&rebuild->file_pool);
    mem_free(rebuild->folders);
    db_exclude_kill(&rebuild->exclude);
    mem_free(rebuild);
}

static void _db_rebuild_thread_proc(void *param) {
    db_rebuild_t *rebuild = static_cast<db_rebuild_t *>(param);
    db_t *db = rebuild->db;
    u32 start = os_get_tick_count();
    for (db_rebuild_source_t *source = rebuild->source_first; source; source = source->next) {
        source->folder_start = pointer_pool_count(&rebuild->folder_pool);
        source->file_start = pointer_pool_count(&rebuild->file_pool);
        _db_create_read_ntfs(rebuild, source);
    }
    db_clear_content(db);
    db->exclude = rebuild->exclude; // the database's from now on
    db_exclude_init(&rebuild->exclude);
    _db_create_drop_orphans(rebuild);
    u32 read_end = os_get_tick_count();
    db->layout = rebuild->layout;
    _db_create_lay_out(rebuild);
    rebuild->stats->read_time = read_end - start;
    rebuild->stats->sort_time = os_get_tick_count() - read_end;
    _db_create_free(rebuild);
    mem_arena_trim();
    debug_printf("create db time taken: %f seconds\n", os_get_tick_count() - start);
    event_post(_db_load_complete_proc, db);
    db->local = 1;
    debug_printf("success \n");
    event_post(_db_ready_proc, db);
}

// --- The start ---------------------------------------------------------------------------------------------

static db_rebuild_source_t *_db_create_add_source(db_rebuild_t *rebuild, const db_rebuild_volume_t *volume,
                                                  u32 ordinal) {
    db_rebuild_source_t *source = static_cast<db_rebuild_source_t *>(mem_alloc(sizeof *source));
    std::memset(source, 0, sizeof *source);
    (rebuild->source_last ? rebuild->source_last->next : rebuild->source_first) = source;
    rebuild->source_last = source;
    db_index_volume_t *index = static_cast<db_index_volume_t *>(db_index_alloc(DB_INDEX_TYPE_NTFS));
    index->ordinal = ordinal;
    index->guid = utf8_alloc_copy(volume->guid);
    index->path = utf8_alloc_copy(volume->path);
    index->root = utf8_alloc_copy("");
    index->include_only = utf8_alloc_copy("");
    source->index = index;
    source->volume = volume->volume;
    source->read = volume->read;
    source->read_param = volume->read_param;
    return source;
}

void db_rebuild_start(db_t *db, const db_rebuild_params_t *params) {
    static db_rebuild_stats_t unasked;
    db_wait(db, "db_rebuild");
    debug_printf("create db...\n");
    for (db_query_link_t *query = db->query_first; query; query = query->next)
        query->hooks->rebuild_started(query);
    event_remove(_db_ready_proc, db);
    event_remove(_db_load_complete_proc, db);
    db->busy_count = 0;
    db->loaded = db->local = 0;
    db->cancel_rebuild = 0;

    db_rebuild_t *rebuild = static_cast<db_rebuild_t *>(mem_alloc(sizeof *rebuild));
    std::memset(static_cast<void *>(rebuild), 0, sizeof *rebuild);
    rebuild->db = db;
    db_exclude_init(&rebuild->exclude);
    if (params->exclude)
        db_exclude_copy(&rebuild->exclude, params->exclude);
    rebuild->stats = params->stats ? params->stats : &unasked;
    *rebuild->stats = {};
    db_layout_set_flags(&rebuild->layout, db_layout_normalize_flags(params->index_flags));
    obstack_bytes_init(&rebuild->records);
    pointer_pool_init(&rebuild->folder_pool);
    pointer_pool_init(&rebuild->file_pool);
    for (u32 i = 0; i < params->volume_count; i++)
        _db_create_add_source(rebuild, &params->volumes[i], i);
    db_set_status(db, "Creating database...");
    db_start_worker(db, nullptr, DB_WORKER_OTHER, _db_rebuild_thread_proc, rebuild);
}

void db_rebuild_cancel(db_t *db) {
    if (!db->loaded)
        db->cancel_rebuild = 1;
}

} // namespace findwright
