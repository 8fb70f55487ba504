// Orders that the index keeps no array for: the results are brought to name order, a key is taken for each,
// and the keys are sorted with their places. Equal keys keep the name order, which is what ties fall back on.
//
// Keys are numbers: the column's value, or the rank of a text among the few different ones that there are
// (type names, file lists). Only paths are compared in full.
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "index/db_order.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_folder.h"
#include "os/os_parallel.h"
#include "query/db_sort_internal.h"

#include <algorithm>

namespace findwright {

// Results of one kind, in name order, and what they are sorted by.
struct _db_gather_t {
    db_query_t *query;
    u32 sort; // the ascending code
    bool is_folder;
    u32 count;
    mem_ref_t *items;
    u64 *keys;
    u32 *order; // places of the items in the new order
};

static void *_db_gather_alloc(u32 count, size_t size) {
    return mem_alloc((static_cast<size_t>(count) + 1) * size);
}

static void _db_gather_begin(_db_gather_t *gather, db_query_t *query, u32 sort, bool is_folder) {
    const array_t *results = is_folder ? &query->folder_results : &query->file_results;
    *gather = {query, sort, is_folder, results->count, nullptr, nullptr, nullptr};
    gather->items = static_cast<mem_ref_t *>(_db_gather_alloc(gather->count, sizeof(mem_ref_t)));
    gather->keys = static_cast<u64 *>(_db_gather_alloc(gather->count, sizeof(u64)));
    gather->order = static_cast<u32 *>(_db_gather_alloc(gather->count, sizeof(u32)));
    mem_ref_t *item = gather->items;
    for (u32 page = 0; page < results->page_count; page++) {
        std::memcpy(item, array_page_values(results->pages[page]),
                    results->pages[page]->item_count * sizeof *item);
        item += results->pages[page]->item_count;
    }
}

static void _db_gather_end(_db_gather_t *gather) {
    mem_free(gather->items);
    mem_free(gather->keys);
    mem_free(gather->order);
}

// Puts the items into the new order.
static void _db_gather_apply(_db_gather_t *gather) {
    mem_ref_t *items = static_cast<mem_ref_t *>(_db_gather_alloc(gather->count, sizeof *items));
    for (u32 i = 0; i < gather->count; i++)
        items[i] = gather->items[gather->order[i]];
    array_set_from_memory(gather->is_folder ? &gather->query->folder_results : &gather->query->file_results,
                          items, gather->count);
    mem_free(items);
}

// --- Columns of the records --------------------------------------------------------------------------------

static u32 _db_sort_get_column_flag(u32 sort, bool is_folder) {
    switch (sort) {
    case DB_SORT_SIZE_ASCENDING: return is_folder ? DB_FLAG_FOLDER_SIZE : DB_FLAG_SIZE;
    case DB_SORT_DATE_CREATED_ASCENDING: return DB_FLAG_DATE_CREATED;
    case DB_SORT_DATE_MODIFIED_ASCENDING: return DB_FLAG_DATE_MODIFIED;
    case DB_SORT_DATE_ACCESSED_ASCENDING: return DB_FLAG_DATE_ACCESSED;
    case DB_SORT_ATTRIBUTES_ASCENDING: return DB_FLAG_ATTRIBUTES;
    default: return 0;
    }
}

static u64 _db_get_record_value(const db_t *db, const db_item_t *item, bool is_folder, u32 sort) {
    switch (sort) {
    case DB_SORT_SIZE_ASCENDING: return is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
    case DB_SORT_DATE_CREATED_ASCENDING:
        return is_folder ? db_folder_get_date_created(db, item) : db_file_get_date_created(db, item);
    case DB_SORT_DATE_MODIFIED_ASCENDING:
        return is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
    case DB_SORT_DATE_ACCESSED_ASCENDING:
        return is_folder ? db_folder_get_date_accessed(db, item) : db_file_get_date_accessed(db, item);
    default: return is_folder ? db_folder_get_attributes(db, item) : db_file_get_attributes(db, item);
    }
}

static u64 _db_get_info_value(const db_file_info_t *info, u32 sort) {
    switch (sort) {
    case DB_SORT_SIZE_ASCENDING: return info->size;
    case DB_SORT_DATE_CREATED_ASCENDING: return info->date_created;
    case DB_SORT_DATE_MODIFIED_ASCENDING: return info->date_modified;
    case DB_SORT_DATE_ACCESSED_ASCENDING: return info->date_accessed;
    default: return info->attributes;
    }
}

static constexpr u32 RECORDS_PER_THREAD = 65536;
static constexpr u32 RECORDS_AHEAD = 16;

static void _db_gather_records_proc(void *param, u32 part, u32 parts) {
    _db_gather_t *gather = static_cast<_db_gather_t *>(param);
    u64 count = gather->count;
    for (u64 i = count * part / parts, end = count * (part + 1) / parts; i < end; i++) {
        if (i + RECORDS_AHEAD < end)
            __builtin_prefetch(db_item(gather->items[i + RECORDS_AHEAD]));
        gather->keys[i] = _db_get_record_value(gather->query->db, db_item(gather->items[i]),
                                               gather->is_folder, gather->sort);
    }
}

// --- Columns that are read ---------------------------------------------------------------------------------

// Items that nothing is known of yet: (folder << 32 | place) at first, then in the order of their paths.
struct _db_gather_reads_t {
    u64 *reads;
    u32 count;
};

static int _db_gather_compare_folders(u32 a, u32 b) {
    if (a < MEM_REF_FIRST || b < MEM_REF_FIRST)
        return a < b ? -1 : a > b;
    return db_folder_compare_path(db_item(a), db_item(b));
}

// Brings the reads into the order of the folders' paths, items of a folder by name: what is read one after
// the other then lies together on the disk.
static void _db_gather_sort_reads(_db_gather_reads_t *reads) {
    debug_printf("sorting by path...\n");
    u64 *list = reads->reads;
    std::sort(list, list + reads->count);
    mem_ref_t *folders = static_cast<mem_ref_t *>(_db_gather_alloc(reads->count, sizeof *folders));
    u32 *starts = static_cast<u32 *>(_db_gather_alloc(reads->count, sizeof *starts));
    u32 folder_count = 0;
    for (u32 i = 0; i < reads->count; i++) {
        if (i != 0 && list[i] >> 32 == list[i - 1] >> 32)
            continue;
        starts[folder_count] = i;
        folders[folder_count++] = static_cast<mem_ref_t>(list[i] >> 32);
    }
    mem_ref_t *by_path = static_cast<mem_ref_t *>(_db_gather_alloc(folder_count, sizeof *by_path));
    std::memcpy(by_path, folders, folder_count * sizeof *by_path);
    os_qsort(by_path, folder_count, _db_gather_compare_folders);
    u64 *sorted = static_cast<u64 *>(_db_gather_alloc(reads->count, sizeof *sorted)), *out = sorted;
    for (u32 i = 0; i < folder_count; i++) {
        const mem_ref_t *folder = std::lower_bound(folders, folders + folder_count, by_path[i]);
        for (u32 n = starts[folder - folders]; n < reads->count && list[n] >> 32 == *folder; n++)
            *out++ = list[n];
    }
    mem_free(list);
    mem_free(folders);
    mem_free(starts);
    mem_free(by_path);
    reads->reads = sorted;
}

static bool _db_gather_is_canceled(const _db_gather_t *gather) {
    if (!gather->query->cancel_sort)
        return false;
    debug_printf("cache canceled\n");
    return true;
}

// The key of an item that something is known of.
static bool _db_gather_find(_db_gather_t *gather, u32 place) {
    db_file_info_t info;
    bool is_known = db_extended_info_find(gather->query->extended_info, db_item(gather->items[place]), &info);
    gather->keys[place] = _db_get_info_value(&info, gather->sort);
    return is_known;
}

static void _db_gather_read(_db_gather_t *gather, const _db_gather_reads_t *reads) {
    debug_printf("caching...\n");
    auto *items = static_cast<db_info_item_t *>(_db_gather_alloc(reads->count, sizeof(db_info_item_t)));
    for (u32 i = 0; i < reads->count; i++)
        items[i] = {db_item(gather->items[static_cast<u32>(reads->reads[i])]), gather->is_folder};
    db_extended_info_read_files(gather->query->extended_info, items, reads->count,
                                &gather->query->cancel_sort);
    for (u32 i = 0; i < reads->count; i++)
        _db_gather_find(gather, static_cast<u32>(reads->reads[i]));
    mem_free(items);
}

// A folder is one, whatever is known of it.
static void _db_gather_mark_folders(_db_gather_t *gather) {
    for (u32 i = 0; i < gather->count; i++)
        gather->keys[i] |= OS_ATTRIBUTE_FOLDER;
}

// Keys of a column that the records do not have. False when it was cancelled.
static bool _db_gather_files(_db_gather_t *gather) {
    debug_printf("find uncached items...\n");
    _db_gather_reads_t reads = {static_cast<u64 *>(_db_gather_alloc(gather->count, sizeof(u64))), 0};
    for (u32 i = 0; i < gather->count; i++) {
        if (!_db_gather_find(gather, i))
            reads.reads[reads.count++] = static_cast<u64>(db_item(gather->items[i])->parent) << 32 | i;
    }
    if (reads.count != 0) {
        _db_gather_sort_reads(&reads);
        _db_gather_read(gather, &reads);
    }
    mem_free(reads.reads);
    if (gather->is_folder && gather->sort == DB_SORT_ATTRIBUTES_ASCENDING)
        _db_gather_mark_folders(gather);
    return !_db_gather_is_canceled(gather);
}

// --- Texts of which there are few --------------------------------------------------------------------------

struct _db_gather_text_t {
    const char *text;
    u32 number; // by which the keys tell it
};

static int _db_gather_compare_texts(const _db_gather_text_t &a, const _db_gather_text_t &b) {
    return utf8_compare_fold(a.text, utf8_length(a.text), b.text, utf8_length(b.text));
}

// Turns keys, the numbers of texts, into the ranks of those: equal where the texts are.
static void _db_gather_rank(_db_gather_t *gather, _db_gather_text_t *texts, u32 text_count) {
    std::sort(texts, texts + text_count, [](const _db_gather_text_t &a, const _db_gather_text_t &b) {
        return _db_gather_compare_texts(a, b) < 0;
    });
    u32 *ranks = static_cast<u32 *>(_db_gather_alloc(text_count, sizeof *ranks)), rank = 0;
    for (u32 i = 0; i < text_count; i++) {
        rank += i != 0 && _db_gather_compare_texts(texts[i - 1], texts[i]) != 0;
        ranks[texts[i].number] = rank;
    }
    for (u32 i = 0; i < gather->count; i++)
        gather->keys[i] = ranks[gather->keys[i]];
    mem_free(ranks);
}

static const char *_db_gather_get_extension(const _db_gather_t *gather, u32 place, u32 *length) {
    u32 name_length;
    const char *name = db_item_get_name(db_item(gather->items[place]), &name_length);
    return db_name_get_extension(name, name_length, length);
}

// Files by their types. They are taken in the order of their extensions, so that each extension is asked for
// once.
static bool _db_gather_types(_db_gather_t *gather) {
    debug_printf("caching...\n");
    db_order_extensions(gather->items, gather->count, gather->order);
    auto *texts =
        static_cast<_db_gather_text_t *>(_db_gather_alloc(gather->count, sizeof(_db_gather_text_t)));
    const char *last = nullptr;
    u32 last_length = 0, text_count = 0;
    for (u32 i = 0; i < gather->count && !gather->query->cancel_sort; i++) {
        u32 place = gather->order[i], length;
        const char *extension = _db_gather_get_extension(gather, place, &length);
        if (!last || utf8_compare_fold(last, last_length, extension, length) != 0) {
            const char *type =
                db_extended_info_get_type_name(gather->query->extended_info, extension, length);
            texts[text_count] = {type, text_count};
            text_count++;
        }
        last = extension;
        last_length = length;
        gather->keys[place] = text_count - 1;
    }
    bool is_canceled = _db_gather_is_canceled(gather);
    if (!is_canceled)
        _db_gather_rank(gather, texts, text_count);
    mem_free(texts);
    return !is_canceled;
}

static void _db_gather_index_proc(void *param, u32 part, u32 parts) {
    _db_gather_t *gather = static_cast<_db_gather_t *>(param);
    u64 count = gather->count;
    for (u64 i = count * part / parts, end = count * (part + 1) / parts; i < end; i++)
        gather->keys[i] = db_get_index(db_item(gather->items[i]))->ordinal;
}

// Items by the names of the lists that they come from; those of other sources have none.
static void _db_gather_file_lists(_db_gather_t *gather) {
    os_parallel(os_get_thread_count(gather->count, RECORDS_PER_THREAD), _db_gather_index_proc, gather);
    u32 count = gather->query->db->index_count;
    auto *texts = static_cast<_db_gather_text_t *>(_db_gather_alloc(count, sizeof(_db_gather_text_t)));
    u32 i = 0;
    for (const db_index_t *index = gather->query->db->index_first; index; index = index->next, i++)
        texts[i] = {db_index_get_file_list_filename(index), index->ordinal};
    _db_gather_rank(gather, texts, count);
    mem_free(texts);
}

// --- The sort ----------------------------------------------------------------------------------------------

static int _db_gather_compare_paths(u32 a, u32 b, void *param) {
    const _db_gather_t *gather = static_cast<const _db_gather_t *>(param);
    const db_item_t *first = db_item(gather->items[a]), *second = db_item(gather->items[b]);
    return gather->is_folder ? db_folder_compare_path(first, second) : db_file_compare_path(first, second);
}

static void _db_gather_sort_paths(_db_gather_t *gather) {
    for (u32 i = 0; i < gather->count; i++)
        gather->order[i] = i;
    os_qsort_with_param(gather->order, gather->count, _db_gather_compare_paths, gather);
}

static void _db_gather_sort_keys(_db_gather_t *gather) {
    debug_printf("sorting cache...\n");
    if (gather->sort != DB_SORT_ATTRIBUTES_ASCENDING) {
        db_order_values(gather->keys, gather->count, gather->order);
        return;
    }
    u32 *attributes = static_cast<u32 *>(_db_gather_alloc(gather->count, sizeof *attributes));
    for (u32 i = 0; i < gather->count; i++)
        attributes[i] = static_cast<u32>(gather->keys[i]);
    db_order_attributes(attributes, gather->count, gather->order);
    mem_free(attributes);
}

// The new places of all items. False when it was cancelled.
static bool _db_gather_order(_db_gather_t *gather) {
    switch (gather->sort) {
    case DB_SORT_PATH_ASCENDING: _db_gather_sort_paths(gather); return true;
    case DB_SORT_EXTENSION_ASCENDING:
        db_order_extensions(gather->items, gather->count, gather->order);
        return true;
    case DB_SORT_TYPE_ASCENDING:
        if (!_db_gather_types(gather))
            return false;
        break;
    case DB_SORT_FILE_LIST_FILENAME_ASCENDING: _db_gather_file_lists(gather); break;
    default:
        if (gather->query->db->layout.flags & _db_sort_get_column_flag(gather->sort, gather->is_folder))
            os_parallel(os_get_thread_count(gather->count, RECORDS_PER_THREAD), _db_gather_records_proc,
                        gather);
        else if (!_db_gather_files(gather))
            return false;
    }
    _db_gather_sort_keys(gather);
    return true;
}

// Folders that have no value of that column stay in name order: they have no extension and no type of their
// own, and no size that could be read.
static bool _db_gather_leaves_folders(const db_t *db, u32 sort) {
    return sort == DB_SORT_EXTENSION_ASCENDING || sort == DB_SORT_TYPE_ASCENDING ||
           (sort == DB_SORT_SIZE_ASCENDING && !(db->layout.flags & DB_FLAG_FOLDER_SIZE));
}

// From name order. False when it was cancelled: then the results are as they were.
static bool _db_gather_sort(db_query_t *query, u32 sort) {
    u32 ascending = sort & ~DB_SORT_DESCENDING;
    _db_gather_t folders, files;
    _db_gather_begin(&folders, query, ascending, true);
    _db_gather_begin(&files, query, ascending, false);
    bool with_folders = !_db_gather_leaves_folders(query->db, ascending);
    bool is_done = (!with_folders || _db_gather_order(&folders)) && _db_gather_order(&files);
    if (is_done) {
        if (with_folders)
            _db_gather_apply(&folders);
        _db_gather_apply(&files);
        _db_sort_set(query, ascending, DB_HISTORY_NONE);
        if (sort & DB_SORT_DESCENDING)
            _db_sort_reverse(query);
    }
    _db_gather_end(&folders);
    _db_gather_end(&files);
    debug_printf("SET SORT 4 %d\n", query->sort);
    return is_done;
}

static constexpr u32 FEW_PART = 16;    // of the index's items
static constexpr u32 FEW_PATHS = 4096; // which are compared in full
static constexpr u32 FEW_NAMES = 1024; // likewise

static void _db_sort_few_names(array_t *results) {
    u32 count = results->count, page = 0, value;
    mem_ref_t *items = static_cast<mem_ref_t *>(_db_gather_alloc(count, sizeof *items)), *item = items;
    for (i32 position = -1; array_next_to(results, &page, &position, &value);)
        *item++ = value;
    std::sort(items, items + count,
              [](mem_ref_t a, mem_ref_t b) { return db_item_compare_name(db_item(a), db_item(b)) < 0; });
    array_set_from_memory(results, items, count);
    mem_free(items);
}

static bool _db_is_few(db_query_t *query, u32 sort) {
    const db_t *db = query->db;
    u64 count = _db_query_count_results(query);
    u64 all = static_cast<u64>(db->folder_name_array.count) + db->file_name_array.count;
    bool is_by_name = query->sorted && query->sort == DB_SORT_NAME_ASCENDING;
    if (count > all / FEW_PART || (!is_by_name && count > FEW_NAMES) ||
        query->history_kind != DB_HISTORY_NONE || db_sort_get_history_kind(sort) != DB_HISTORY_NONE)
        return false;
    if ((sort & ~DB_SORT_DESCENDING) == DB_SORT_PATH_ASCENDING && count > FEW_PATHS)
        return false;
    return db_get_sorted_arrays(query->db, db_sort_get_fast_flag(sort)).files != nullptr;
}

bool _db_sort_few(db_query_t *query, u32 sort) {
    if (!_db_is_few(query, sort))
        return false;
    if (!query->sorted || query->sort != DB_SORT_NAME_ASCENDING) {
        _db_sort_few_names(&query->folder_results);
        _db_sort_few_names(&query->file_results);
        _db_sort_set(query, DB_SORT_NAME_ASCENDING, DB_HISTORY_NONE);
    }
    if ((sort & ~DB_SORT_DESCENDING) != DB_SORT_NAME_ASCENDING)
        return _db_gather_sort(query, sort);
    if (sort & DB_SORT_DESCENDING)
        _db_sort_reverse(query);
    debug_printf("SET SORT 4 %d\n", sort);
    return true;
}

void _db_sort_by_gathering(db_query_t *query, u32 sort) {
    if (!query->sorted || query->sort != DB_SORT_NAME_ASCENDING)
        _db_sort_by_walk(query, DB_SORT_NAME_ASCENDING);
    if (!_db_gather_sort(query, sort))
        query->sorted = 0;
}

} // namespace findwright
