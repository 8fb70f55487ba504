// The rebuild's second half: orders of the temporary records, then the final records in name order, then
// every sorted array.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "index/db_create_internal.h"
#include "index/db_order.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_parallel.h"

#include <algorithm>
#include <cstring>

namespace findwright {

template<class T>
static T *_db_create_alloc(size_t count) {
    return static_cast<T *>(mem_alloc((count + 1) * sizeof(T)));
}

// The tables of one kind of item, all in name order. They become final references by `items`.
struct _db_create_kind_t {
    mem_ref_t *items; // temporary records, then final ones
    u32 count;
    u32 *parent_ranks; // of the parents' folded paths
    u8 *same_name;     // the folded name equals that of the item before
};

// --- Final records -----------------------------------------------------------------------------------------

// Appends the sources' indexes to the database. Their ordinals stay what the temporary records were sorted
// by.
static void _db_create_add_indexes(db_rebuild_t *rebuild) {
    u32 start = os_get_tick_count();
    for (db_rebuild_source_t *source = rebuild->source_first; source; source = source->next)
        _db_index_add(rebuild->db, source->index, source->out_of_date);
    debug_printf("setup file systems: %f seconds\n", os_get_tick_count() - start);
}

// Lays out the folders. Each temporary record's `parent` becomes the reference of its final one, and the
// final ones get their parents through it.
static void _db_create_lay_out_folders(db_rebuild_t *rebuild, _db_create_kind_t *folders) {
    db_t *db = rebuild->db;
    mem_ref_t *final_refs = _db_create_alloc<mem_ref_t>(folders->count);
    db_index_t *index = db->index_first;
    for (u32 i = 0; i < folders->count; i++) {
        const db_item_t *from = db_item(folders->items[i]);
        u32 length;
        const char *name = db_item_get_name(from, &length);
        bool top = from->parent == DB_CREATE_ROOT;
        if (index->ordinal != _db_create_get_ordinal(rebuild, from))
            index = db_index_get(db, _db_create_get_ordinal(rebuild, from));
        // The parent is still the temporary one: a marker would make the record look like one without a
        // parent.
        db_folder_t *to = db_folder_alloc_ntfs(db, index, _db_create_get_frn(rebuild, from),
                                               top ? 0 : from->parent, name, length);
        std::memcpy(db_item_columns(to), db_item_columns(from), db->layout.folder_data_size);
        final_refs[i] = mem_ref(to);
    }
    for (u32 i = 0; i < folders->count; i++)
        mem_ptr<db_item_t>(folders->items[i])->parent = final_refs[i];
    for (u32 i = 0; i < folders->count; i++) {
        db_item_t *folder = mem_ptr<db_item_t>(final_refs[i]);
        if (folder->parent)
            folder->parent = db_item(folder->parent)->parent;
    }
    mem_free(folders->items);
    folders->items = final_refs;
}

static void _db_create_lay_out_files(db_rebuild_t *rebuild, _db_create_kind_t *files) {
    db_t *db = rebuild->db;
    constexpr u32 AHEAD = 8; // records are read in name order, which is not where they lie
    for (u32 i = 0; i < files->count; i++) {
        if (i + AHEAD < files->count)
            __builtin_prefetch(db_item(files->items[i + AHEAD]));
        const db_item_t *from = db_item(files->items[i]);
        u32 length;
        const char *name = db_item_get_name(from, &length);
        db_file_t *to = db_file_alloc(db, nullptr, db_item(from->parent)->parent, name, length);
        std::memcpy(db_item_columns(to), db_item_columns(from), db->layout.file_data_size);
        files->items[i] = mem_ref(to);
    }
}

// Items that differ in nothing but their address stand in the order of their final addresses.
static void _db_create_order_addresses(_db_create_kind_t *kind) {
    for (u32 i = 0; i < kind->count;) {
        u32 end = i + 1;
        while (end < kind->count && kind->same_name[end] && kind->parent_ranks[end] == kind->parent_ranks[i])
            end++;
        if (end - i > 1) {
            std::sort(kind->items + i, kind->items + end, [](mem_ref_t a, mem_ref_t b) {
                return db_item_compare_name(db_item(a), db_item(b)) < 0;
            });
        }
        i = end;
    }
}

static void _db_create_fill_parent_ranks(const db_rebuild_t *rebuild, _db_create_kind_t *kind) {
    db_order_slots_t slots = {rebuild->layout.folder_data_size};
    for (u32 i = 0; i < kind->count; i++) {
        mem_ref_t parent = db_item(kind->items[i])->parent;
        kind->parent_ranks[i] = parent < MEM_REF_FIRST ? 0 : db_order_get_slot(slots, parent);
    }
}

// --- Arrays ------------------------------------------------------------------------------------------------

// Fills an array of the database with the items at the places of `order`, or with all in name order.
static void _db_create_fill_array(array_t *array, const _db_create_kind_t *kind, const u32 *order) {
    array_bulk_create(array, kind->count);
    u32 next = 0;
    for (u32 page = 0; page < array->page_count; page++) {
        u32 *values = array_page_values(array->pages[page]);
        for (u32 i = 0; i < array->pages[page]->item_count; i++, next++)
            values[i] = kind->items[order ? order[next] : next];
    }
}

// One array to be sorted by a column.
struct _db_create_column_t {
    u32 flag;
    array_t db_t::*folders;
    array_t db_t::*files;
    u64 (*folder_value)(const db_t *db, const db_item_t *folder);
    u64 (*file_value)(const db_t *db, const db_item_t *file);
};

static const _db_create_column_t _db_create_columns[] = {
    {DB_FLAG_FAST_SIZE, &db_t::folder_size_array, &db_t::file_size_array, db_folder_get_size,
     db_file_get_size},
    {DB_FLAG_FAST_DATE_CREATED, &db_t::folder_date_created_array, &db_t::file_date_created_array,
     db_folder_get_date_created, db_file_get_date_created},
    {DB_FLAG_FAST_DATE_MODIFIED, &db_t::folder_date_modified_array, &db_t::file_date_modified_array,
     db_folder_get_date_modified, db_file_get_date_modified},
    {DB_FLAG_FAST_DATE_ACCESSED, &db_t::folder_date_accessed_array, &db_t::file_date_accessed_array,
     db_folder_get_date_accessed, db_file_get_date_accessed},
};

static void _db_create_sort_column(db_t *db, array_t *array, const _db_create_kind_t *kind,
                                   u64 (*get)(const db_t *db, const db_item_t *item)) {
    u64 *values = _db_create_alloc<u64>(kind->count);
    for (u32 i = 0; i < kind->count; i++)
        values[i] = get(db, db_item(kind->items[i]));
    u32 *order = _db_create_alloc<u32>(kind->count);
    db_order_values(values, kind->count, order);
    _db_create_fill_array(array, kind, order);
    mem_free(order);
    mem_free(values);
}

static void _db_create_sort_attributes(db_t *db, array_t *array, const _db_create_kind_t *kind,
                                       u32 (*get)(const db_t *db, const db_item_t *item)) {
    u32 *attributes = _db_create_alloc<u32>(kind->count);
    for (u32 i = 0; i < kind->count; i++)
        attributes[i] = get(db, db_item(kind->items[i]));
    u32 *order = _db_create_alloc<u32>(kind->count);
    db_order_attributes(attributes, kind->count, order);
    _db_create_fill_array(array, kind, order);
    mem_free(order);
    mem_free(attributes);
}

// The arrays beside the master ones, each a job of its own: several threads take them in turn.
struct _db_create_jobs_t {
    db_t *db;
    const _db_create_kind_t *folders;
    const _db_create_kind_t *files;
    const u32 *folder_path_order;
    u32 highest_rank;
    std::atomic<u32> next;
};

enum _db_create_job_t : u32 { JOB_FILE_PATH, JOB_EXTENSION, JOB_ATTRIBUTES, JOB_FOLDERS, JOB_COLUMNS };

static void _db_create_sort_file_paths(const _db_create_jobs_t *jobs) {
    const _db_create_kind_t *files = jobs->files;
    u32 *order = _db_create_alloc<u32>(files->count);
    db_order_file_paths(files->items, files->count, files->parent_ranks, jobs->highest_rank, files->same_name,
                        order);
    _db_create_fill_array(&jobs->db->file_path_array, files, order);
    mem_free(order);
}

static void _db_create_sort_extensions(const _db_create_jobs_t *jobs) {
    u32 *order = _db_create_alloc<u32>(jobs->files->count);
    db_order_extensions(jobs->files->items, jobs->files->count, order);
    _db_create_fill_array(&jobs->db->file_extension_array, jobs->files, order);
    mem_free(order);
}

static void _db_create_sort_folders(const _db_create_jobs_t *jobs) {
    u32 start = os_get_tick_count();
    db_t *db = jobs->db;
    u32 flags = db->layout.flags;
    if (flags & DB_FLAG_FAST_PATH)
        _db_create_fill_array(&db->folder_path_array, jobs->folders, jobs->folder_path_order);
    for (const _db_create_column_t &column : _db_create_columns) {
        bool has = flags & column.flag && (column.flag != DB_FLAG_FAST_SIZE || flags & DB_FLAG_FOLDER_SIZE);
        if (has)
            _db_create_sort_column(db, &(db->*column.folders), jobs->folders, column.folder_value);
    }
    if (flags & DB_FLAG_FAST_ATTRIBUTES)
        _db_create_sort_attributes(db, &db->folder_attributes_array, jobs->folders, db_folder_get_attributes);
    debug_printf("other folder sorts: %f seconds\n", os_get_tick_count() - start);
}

static void _db_create_job_proc(void *param, u32, u32) {
    _db_create_jobs_t *jobs = static_cast<_db_create_jobs_t *>(param);
    db_t *db = jobs->db;
    u32 flags = db->layout.flags;
    for (;;) {
        u32 job = jobs->next.fetch_add(1);
        if (job >= JOB_COLUMNS + std::size(_db_create_columns))
            return;
        if (job == JOB_FILE_PATH && flags & DB_FLAG_FAST_PATH)
            _db_create_sort_file_paths(jobs);
        else if (job == JOB_EXTENSION && flags & DB_FLAG_FAST_EXTENSION)
            _db_create_sort_extensions(jobs);
        else if (job == JOB_ATTRIBUTES && flags & DB_FLAG_FAST_ATTRIBUTES)
            _db_create_sort_attributes(db, &db->file_attributes_array, jobs->files, db_file_get_attributes);
        else if (job == JOB_FOLDERS)
            _db_create_sort_folders(jobs);
        else if (job >= JOB_COLUMNS && flags & _db_create_columns[job - JOB_COLUMNS].flag) {
            const _db_create_column_t &column = _db_create_columns[job - JOB_COLUMNS];
            _db_create_sort_column(db, &(db->*column.files), jobs->files, column.file_value);
        }
    }
}

struct _db_create_number_t {
    u64 frn;
    u32 ordinal;
    mem_ref_t folder;
};

static void _db_create_sort_numbers(db_t *db, const _db_create_kind_t *folders) {
    _db_create_number_t *numbers = _db_create_alloc<_db_create_number_t>(folders->count);
    for (u32 i = 0; i < folders->count; i++) {
        const db_item_t *folder = db_item(folders->items[i]);
        numbers[i] = {db_folder_get_frn(db, folder), db->index_count > 1 ? db_get_index(folder)->ordinal : 0,
                      folders->items[i]};
    }
    std::sort(numbers, numbers + folders->count, [](const auto &a, const auto &b) {
        if (a.frn != b.frn)
            return a.frn < b.frn;
        return a.ordinal != b.ordinal ? a.ordinal < b.ordinal : a.folder < b.folder;
    });
    array_bulk_create(&db->folder_frn_array, folders->count);
    u32 next = 0;
    for (u32 page = 0; page < db->folder_frn_array.page_count; page++) {
        u32 *values = array_page_values(db->folder_frn_array.pages[page]);
        for (u32 i = 0; i < db->folder_frn_array.pages[page]->item_count; i++)
            values[i] = numbers[next++].folder;
    }
    mem_free(numbers);
}

// --- Folder sizes ------------------------------------------------------------------------------------------

// The sum of all files below each folder. Unknown sizes count as nothing.
static void _db_create_sum_folder_sizes(db_t *db, const _db_create_kind_t *folders,
                                        const _db_create_kind_t *files, const u32 *path_order) {
    u32 start = os_get_tick_count();
    auto add = [](mem_ref_t folder, u64 size) {
        char *column = db_item_columns(db_item(folder));
        db_store_u64(column, db_load_u64(column) + size);
    };
    for (u32 i = 0; i < files->count; i++) {
        const db_item_t *file = db_item(files->items[i]);
        u64 size = db_file_get_size(db, file);
        if (file->parent && size != VALUE_UNKNOWN)
            add(file->parent, size);
    }
    // From the end of the path order, every folder stands behind all that is below it.
    for (u32 i = folders->count; i-- != 0;) {
        const db_item_t *folder = db_item(folders->items[path_order[i]]);
        if (folder->parent)
            add(folder->parent, db_folder_get_size(db, folder));
    }
    debug_printf("calculate folder sizes: %f seconds\n", os_get_tick_count() - start);
}

// --- All of it ---------------------------------------------------------------------------------------------

static _db_create_kind_t _db_create_make_kind(mem_ref_t *items, u32 count) {
    return {items, count, _db_create_alloc<u32>(count), _db_create_alloc<u8>(count)};
}

static void _db_create_free_kind(_db_create_kind_t *kind) {
    mem_free(kind->items);
    mem_free(kind->parent_ranks);
    mem_free(kind->same_name);
}

// The places of folders by name, in the path order: through the temporary records' slots, which are free by
// then.
static u32 *_db_create_path_order(db_rebuild_t *rebuild, const mem_ref_t *by_path,
                                  const _db_create_kind_t *by_name) {
    for (u32 i = 0; i < by_name->count; i++)
        _db_create_set_slot(rebuild, db_item(by_name->items[i]), i);
    u32 *order = _db_create_alloc<u32>(by_name->count);
    for (u32 i = 0; i < by_name->count; i++)
        order[i] = _db_create_get_slot(rebuild, db_item(by_path[i]));
    return order;
}

void _db_create_lay_out(db_rebuild_t *rebuild) {
    db_t *db = rebuild->db;
    db_order_slots_t slots = {rebuild->layout.folder_data_size};

    u32 start = os_get_tick_count();
    u32 folder_count = rebuild->folder_count;
    u32 highest_rank = db_order_folder_paths(rebuild->folders, folder_count, slots);
    _db_create_kind_t folders = _db_create_make_kind(_db_create_alloc<mem_ref_t>(folder_count), folder_count);
    std::memcpy(folders.items, rebuild->folders, folder_count * sizeof(mem_ref_t));
    db_order_names(folders.items, folder_count, slots, folders.same_name);
    _db_create_fill_parent_ranks(rebuild, &folders);
    debug_printf("folder name os_qsort: %f seconds\n", os_get_tick_count() - start);

    start = os_get_tick_count();
    _db_create_kind_t files = _db_create_make_kind(rebuild->files, rebuild->file_count);
    rebuild->files = nullptr; // the table is the kind's now
    db_order_names(files.items, files.count, slots, files.same_name);
    _db_create_fill_parent_ranks(rebuild, &files);
    u32 *folder_path_order = _db_create_path_order(rebuild, rebuild->folders, &folders);
    debug_printf("os_qsort file names indexes: %f seconds\n", os_get_tick_count() - start);

    _db_create_add_indexes(rebuild);
    start = os_get_tick_count();
    _db_create_lay_out_folders(rebuild, &folders);
    _db_create_order_addresses(&folders);
    _db_create_fill_array(&db->folder_name_array, &folders, nullptr);
    debug_printf("setup folders: %f seconds\n", os_get_tick_count() - start);
    start = os_get_tick_count();
    _db_create_lay_out_files(rebuild, &files);
    _db_create_order_addresses(&files);
    _db_create_fill_array(&db->file_name_array, &files, nullptr);
    debug_printf("setup files: %f seconds\n", os_get_tick_count() - start);
    _db_create_sort_numbers(db, &folders);
    if (db->layout.flags & DB_FLAG_FOLDER_SIZE)
        _db_create_sum_folder_sizes(db, &folders, &files, folder_path_order);

    start = os_get_tick_count();
    _db_create_jobs_t jobs = {db, &folders, &files, folder_path_order, highest_rank, {0}};
    os_parallel(os_get_thread_count(files.count, 16384), _db_create_job_proc, &jobs);
    debug_printf("Other file sorts: %f seconds\n", os_get_tick_count() - start);
    mem_free(folder_path_order);
    _db_create_free_kind(&folders);
    _db_create_free_kind(&files);
}

} // namespace findwright
