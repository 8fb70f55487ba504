// The rebuild's second half: orders of the temporary records, then the final records in name order, then
// every sorted array.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "db/db_word.h"
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
    u8 *same_name;     // the folded name equals that of the item before; with the next bit, see below
};
static constexpr u8 DB_CREATE_TWIN = 2; // in same_name: a twin of the item before

// --- Twins -------------------------------------------------------------------------------------------------

// Two items of one source with one name and path: rows that a list repeats, records that a damaged volume has
// twice. The orders tell them apart by their addresses alone, so that the addresses must be made to follow
// what the source's own order was.
static bool _db_create_are_twins(const db_item_t *a, const db_item_t *b) {
    u32 n, m;
    const char *a_name = db_item_get_name(a, &n), *b_name = db_item_get_name(b, &m);
    if (n != m || db_item_is_top(a) != db_item_is_top(b) || std::memcmp(a_name, b_name, n) != 0)
        return false;
    if (a->parent == b->parent && !db_item_is_top(a))
        return true;
    return db_parent_compare_path(DB_LEVEL_BYTES, a->parent, b->parent) == 0 &&
           db_get_index(a)->ordinal == db_get_index(b)->ordinal;
}

// What orders twins: the reference number of a volume's folder, the sequence of all others.
static u64 _db_create_folder_sequence(const db_rebuild_t *rebuild, const db_item_t *folder) {
    const char *tail = _db_create_folder_tail(rebuild, folder);
    return db_get_index(folder)->type == DB_INDEX_TYPE_NTFS ? db_load_u64(tail + 8) : db_load_u32(tail + 8);
}
static u64 _db_create_file_sequence(const db_rebuild_t *rebuild, const db_item_t *file) {
    return db_load_u32(_db_create_file_tail(rebuild, file));
}

// Sorts each run of twins in a table of temporary records, in which twins stand side by side. `may_be` tells
// cheaply whether an item may be a twin of the one before; `found` is told of each that is.
template<class MayBe, class Found>
static void _db_create_order_twins(const db_rebuild_t *rebuild, mem_ref_t *items, u32 count,
                                   u64 (*sequence)(const db_rebuild_t *rebuild, const db_item_t *item),
                                   MayBe may_be, Found found) {
    for (u32 i = 0; i < count;) {
        u32 end = i + 1;
        while (end < count && may_be(end) && _db_create_are_twins(db_item(items[i]), db_item(items[end])))
            found(end++);
        if (end - i > 1) {
            std::sort(items + i, items + end, [&](mem_ref_t a, mem_ref_t b) {
                u64 p = sequence(rebuild, db_item(a)), q = sequence(rebuild, db_item(b));
                return p != q ? p < q : a < b;
            });
        }
        i = end;
    }
}

static void _db_create_order_name_twins(const db_rebuild_t *rebuild, _db_create_kind_t *kind,
                                        u64 (*sequence)(const db_rebuild_t *rebuild, const db_item_t *item)) {
    _db_create_order_twins(
        rebuild, kind->items, kind->count, sequence,
        [&](u32 i) { return kind->same_name[i] && kind->parent_ranks[i] == kind->parent_ranks[i - 1]; },
        [&](u32 i) { kind->same_name[i] |= DB_CREATE_TWIN; });
}

// --- Final records -----------------------------------------------------------------------------------------

// Appends the sources' indexes to the database. Their ordinals stay what the temporary records were sorted
// by.
static void _db_create_add_indexes(db_rebuild_t *rebuild) {
    u32 start = os_get_tick_count();
    for (db_create_source_t *source = rebuild->source_first; source; source = source->next) {
        source->wanted->index = nullptr; // the database's from now on
        _db_index_add(rebuild->db, source->index, source->out_of_date);
    }
    debug_printf("setup file systems: %f seconds\n", os_get_tick_count() - start);
}

static db_index_t **_db_create_list_indexes(const db_t *db) {
    db_index_t **indexes = _db_create_alloc<db_index_t *>(db->index_count);
    for (db_index_t *index = db->index_first; index; index = index->next)
        indexes[index->ordinal] = index;
    return indexes;
}

// The end of the run of twins that begins at a place.
static u32 _db_create_twins_end(const _db_create_kind_t *kind, u32 i) {
    for (i++; i < kind->count && kind->same_name[i] & DB_CREATE_TWIN;)
        i++;
    return i;
}

// Lays out the folders. Each temporary record's `parent` becomes the reference of its final one, and the
// final ones get their parents through it. Twins have records of one size, which are dealt out by address.
static void _db_create_lay_out_folders(db_rebuild_t *rebuild, _db_create_kind_t *folders) {
    db_t *db = rebuild->db;
    mem_ref_t *final_refs = _db_create_alloc<mem_ref_t>(folders->count);
    db_index_t **indexes = _db_create_list_indexes(db);
    for (u32 i = 0; i < folders->count;) {
        u32 end = _db_create_twins_end(folders, i);
        db_index_t *index = indexes[_db_create_get_ordinal(rebuild, db_item(folders->items[i]))];
        for (u32 k = i; k < end; k++) {
            const db_item_t *from = db_item(folders->items[k]);
            u32 length;
            const char *name = db_item_get_name(from, &length);
            bool top = from->parent == DB_CREATE_ROOT;
            // The parent is still the temporary one: a marker would make the record look like one without a
            // parent.
            final_refs[k] = mem_ref(db_folder_alloc(db, index, top ? 0 : from->parent, name, length));
        }
        if (end - i > 1)
            std::sort(final_refs + i, final_refs + end);
        u32 size = db->layout.folder_data_size + db_index_type_frn_size(index->type);
        for (; i < end; i++) {
            const db_item_t *from = db_item(folders->items[i]);
            db_item_t *to = mem_ptr<db_item_t>(final_refs[i]);
            char *columns = db_item_columns(to);
            if (to->parent)
                to->parent = from->parent;
            std::memcpy(columns, db_item_columns(from), db->layout.folder_data_size);
            if (size != db->layout.folder_data_size)
                db_store_u64(columns + db->layout.folder_data_size, _db_create_get_frn(rebuild, from));
        }
    }
    for (u32 i = 0; i < folders->count; i++)
        mem_ptr<db_item_t>(folders->items[i])->parent = final_refs[i];
    for (u32 i = 0; i < folders->count; i++) {
        db_item_t *folder = mem_ptr<db_item_t>(final_refs[i]);
        if (folder->parent)
            folder->parent = db_item(folder->parent)->parent;
    }
    mem_free(indexes);
    mem_free(folders->items);
    folders->items = final_refs;
}

static mem_ref_t _db_create_alloc_file(db_t *db, const db_item_t *from) {
    u32 length;
    const char *name = db_item_get_name(from, &length);
    if (!db_item_is_top(from))
        return mem_ref(db_file_alloc(db, nullptr, db_item(from->parent)->parent, name, length));
    return mem_ref(db_file_alloc(db, db_get_index(from), 0, name, length));
}

static void _db_create_lay_out_files(db_rebuild_t *rebuild, _db_create_kind_t *files) {
    db_t *db = rebuild->db;
    constexpr u32 AHEAD = 8; // records are read in name order, which is not where they lie
    mem_ref_t *final_refs = _db_create_alloc<mem_ref_t>(files->count);
    for (u32 i = 0; i < files->count;) {
        u32 end = _db_create_twins_end(files, i);
        for (u32 k = i; k < end; k++) {
            if (k + AHEAD < files->count)
                __builtin_prefetch(db_item(files->items[k + AHEAD]));
            final_refs[k] = _db_create_alloc_file(db, db_item(files->items[k]));
        }
        if (end - i > 1)
            std::sort(final_refs + i, final_refs + end);
        for (; i < end; i++) {
            const db_item_t *from = db_item(files->items[i]);
            db_item_t *to = mem_ptr<db_item_t>(final_refs[i]);
            if (to->parent)
                to->parent = db_item(from->parent)->parent;
            std::memcpy(db_item_columns(to), db_item_columns(from), db->layout.file_data_size);
        }
    }
    mem_free(files->items);
    files->items = final_refs;
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
        if (db->cancel_rebuild || job >= JOB_COLUMNS + std::size(_db_create_columns))
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
    u32 count = 0;
    for (u32 i = 0; i < folders->count; i++) {
        const db_item_t *folder = db_item(folders->items[i]);
        const db_index_t *index = db->index_count > 1 ? db_get_index(folder) : db->index_first;
        if (index->type == DB_INDEX_TYPE_NTFS)
            numbers[count++] = {db_folder_get_frn(db, folder), index->ordinal, folders->items[i]};
    }
    std::sort(numbers, numbers + count, [](const auto &a, const auto &b) {
        if (a.frn != b.frn)
            return a.frn < b.frn;
        return a.ordinal != b.ordinal ? a.ordinal < b.ordinal : a.folder < b.folder;
    });
    array_bulk_create(&db->folder_frn_array, count);
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
    _db_create_order_twins(
        rebuild, rebuild->folders, folder_count, _db_create_folder_sequence,
        [&](u32 i) {
            return db_order_get_slot(slots, rebuild->folders[i]) ==
                   db_order_get_slot(slots, rebuild->folders[i - 1]);
        },
        [](u32) {});
    _db_create_kind_t folders = _db_create_make_kind(_db_create_alloc<mem_ref_t>(folder_count), folder_count);
    std::memcpy(folders.items, rebuild->folders, folder_count * sizeof(mem_ref_t));
    db_order_names(folders.items, folder_count, slots, folders.same_name);
    _db_create_fill_parent_ranks(rebuild, &folders);
    _db_create_order_name_twins(rebuild, &folders, _db_create_folder_sequence);
    debug_printf("folder name os_qsort: %f seconds\n", os_get_tick_count() - start);

    start = os_get_tick_count();
    _db_create_kind_t files = _db_create_make_kind(rebuild->files, rebuild->file_count);
    rebuild->files = nullptr; // the table is the kind's now
    db_order_names(files.items, files.count, slots, files.same_name);
    _db_create_fill_parent_ranks(rebuild, &files);
    _db_create_order_name_twins(rebuild, &files, _db_create_file_sequence);
    u32 *folder_path_order = _db_create_path_order(rebuild, rebuild->folders, &folders);
    debug_printf("os_qsort file names indexes: %f seconds\n", os_get_tick_count() - start);

    _db_create_add_indexes(rebuild);
    if (_db_create_is_cancelled(rebuild)) {
        mem_free(folder_path_order);
        _db_create_free_kind(&folders);
        _db_create_free_kind(&files);
        return;
    }
    start = os_get_tick_count();
    _db_create_lay_out_folders(rebuild, &folders);
    _db_create_fill_array(&db->folder_name_array, &folders, nullptr);
    debug_printf("setup folders: %f seconds\n", os_get_tick_count() - start);
    start = os_get_tick_count();
    _db_create_lay_out_files(rebuild, &files);
    _db_create_fill_array(&db->file_name_array, &files, nullptr);
    debug_printf("setup files: %f seconds\n", os_get_tick_count() - start);
    db_words_create(db);
    _db_create_free_records(rebuild); // what follows needs room, and the final records only
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
