#include "query/db_result_info.h"

#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os_folder.h"
#include "query/db_result_internal.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

namespace findwright {

// A column and the flag of a record that has it are the same bit.
static_assert(DB_INFO_SIZE == DB_FLAG_SIZE && DB_INFO_DATE_CREATED == DB_FLAG_DATE_CREATED &&
              DB_INFO_DATE_MODIFIED == DB_FLAG_DATE_MODIFIED &&
              DB_INFO_DATE_ACCESSED == DB_FLAG_DATE_ACCESSED && DB_INFO_ATTRIBUTES == DB_FLAG_ATTRIBUTES);

// What must be read beyond the record for columns. A folder's size is in the record or nowhere.
static u32 _db_get_kinds(const db_t *db, bool is_folder, u32 flags) {
    u32 columns = flags & DB_INFO_FILE & ~db->layout.flags;
    if (is_folder)
        columns &= ~DB_INFO_SIZE;
    return (columns ? db_info_bit(DB_INFO_KIND_FILE) : 0u) |
           (flags & DB_INFO_ICON ? db_info_bit(DB_INFO_KIND_ICON) : 0u) |
           (flags & DB_INFO_TYPE_NAME ? db_info_bit(DB_INFO_KIND_TYPE_NAME) : 0u) |
           (flags & DB_INFO_THUMBNAIL ? db_info_bit(DB_INFO_KIND_THUMBNAIL) : 0u);
}

// --- For a painter -----------------------------------------------------------------------------------------

void db_request_fileinfo(db_query_t *query, i32 first, i32 count, u32 flags) {
    if (count < 1 || !_db_query_begin_read(query, "db_request_fileinfo"))
        return;
    db_extended_info_request_begin(query->extended_info);
    i64 end = static_cast<i64>(first) + count;
    db_result_t result;
    for (i64 i = first > 0 ? first : 0; i < end && db_get_result(query, static_cast<i32>(i), &result); i++)
        db_extended_info_request(query->extended_info, result.item, result.is_folder,
                                 _db_get_kinds(query->db, result.is_folder, flags));
    db_extended_info_request_end(query->extended_info);
}

static void _db_get_record_info(const db_t *db, const db_result_t *result, db_file_info_t *out) {
    const db_item_t *item = result->item;
    if (result->is_folder)
        *out = {db_folder_get_size(db, item), db_folder_get_date_modified(db, item),
                db_folder_get_date_created(db, item), db_folder_get_date_accessed(db, item),
                db_folder_get_attributes(db, item) | OS_ATTRIBUTE_FOLDER};
    else
        *out = {db_file_get_size(db, item), db_file_get_date_modified(db, item),
                db_file_get_date_created(db, item), db_file_get_date_accessed(db, item),
                db_file_get_attributes(db, item)};
}

bool db_get_result_file_info(db_query_t *query, i32 index, u32 flags, db_fileinfo_t *out) {
    *out = {VALUE_UNKNOWN,         VALUE_UNKNOWN, VALUE_UNKNOWN, VALUE_UNKNOWN, 0,
            db_default_icon_index, nullptr,       nullptr};
    db_result_t result;
    if (!db_get_result(query, index, &result))
        return false;
    const db_t *db = query->db;
    db_file_info_t record;
    db_known_info_t known;
    _db_get_record_info(db, &result, &record);
    db_extended_info_get_known(query->extended_info, result.item, result.is_folder,
                               _db_get_kinds(db, result.is_folder, flags), &known);
    auto get = [&](u32 column, u64 recorded, u64 read) {
        return !(flags & column) ? VALUE_UNKNOWN : db->layout.flags & column ? recorded : read;
    };
    out->size = result.is_folder ? (flags & DB_INFO_SIZE ? record.size : VALUE_UNKNOWN)
                                 : get(DB_INFO_SIZE, record.size, known.file.size);
    out->date_modified = get(DB_INFO_DATE_MODIFIED, record.date_modified, known.file.date_modified);
    out->date_created = get(DB_INFO_DATE_CREATED, record.date_created, known.file.date_created);
    out->date_accessed = get(DB_INFO_DATE_ACCESSED, record.date_accessed, known.file.date_accessed);
    if (flags & DB_INFO_ATTRIBUTES)
        out->attributes = db->layout.flags & DB_FLAG_ATTRIBUTES ? record.attributes : known.file.attributes;
    if (result.is_folder)
        out->attributes |= OS_ATTRIBUTE_FOLDER;
    out->icon_index = known.icon_index;
    out->type_name = known.type_name;
    out->thumbnail = known.thumbnail;
    return true;
}

u32 db_get_result_file_info_change(db_query_t *query, i32 index) {
    static constexpr u32 FLAGS[DB_INFO_KINDS] = {DB_INFO_FILE, DB_INFO_ICON, DB_INFO_TYPE_NAME,
                                                 DB_INFO_THUMBNAIL};
    db_result_t result;
    if (!db_get_result(query, index, &result))
        return 0;
    db_known_info_t known;
    db_extended_info_get_known(query->extended_info, result.item, result.is_folder, ~0u, &known);
    u32 change = db_is_updated(query->db, result.item) ? DB_INFO_FILE : 0;
    for (u32 kind = 0; kind < DB_INFO_KINDS; kind++) {
        if (known.changed & 1u << kind)
            change |= FLAGS[kind];
    }
    return change;
}

// --- The selection -----------------------------------------------------------------------------------------

struct _db_selection_read_t {
    db_query_t *query;
    u32 flags;
    db_info_item_t *items; // that have a file
    u32 count;
};

static void _db_get_selected(_db_selection_read_t *read) {
    const db_query_t *query = read->query;
    _db_query_visit_selected(read->query, [read, query](const array_t *array, u32 value) {
        db_result_t result = _db_query_get_value_result(query, array, value);
        if (db_get_index(result.item)->type != DB_INDEX_TYPE_FILE_LIST)
            read->items[read->count++] = {result.item, result.is_folder};
    });
}

// Keeps of the items those that a kind must be read for beyond the record.
static void _db_keep_items_of_kind(_db_selection_read_t *read, u32 kind) {
    u32 kept = 0;
    for (u32 i = 0; i < read->count; i++) {
        if (_db_get_kinds(read->query->db, read->items[i].is_folder, read->flags) & kind)
            read->items[kept++] = read->items[i];
    }
    read->count = kept;
}

static void _db_read_type_names(const _db_selection_read_t *read) {
    db_extended_info_t *info = read->query->extended_info;
    for (u32 i = 0; i < read->count && !read->query->cancel_fileinfo; i++) {
        const db_info_item_t *item = &read->items[i];
        u32 length, extension_length;
        const char *name = db_item_get_name(item->item, &length);
        const char *extension = db_name_get_extension(name, length, &extension_length);
        if (item->is_folder)
            db_extended_info_get_folder_type_name(info);
        else
            db_extended_info_get_type_name(info, extension, extension_length);
    }
}

static void _db_read_selection_thread_proc(void *param) {
    auto *read = static_cast<_db_selection_read_t *>(param);
    db_query_t *query = read->query;
    u32 start = os_get_tick_count();
    _db_query_set_status(query, db_read_extended_info_text);
    size_t size = (query->selection.count + size_t{1}) * sizeof(db_info_item_t);
    read->items = static_cast<db_info_item_t *>(mem_alloc(size));
    _db_get_selected(read);
    if (read->flags & DB_INFO_TYPE_NAME)
        _db_read_type_names(read);
    _db_keep_items_of_kind(read, db_info_bit(DB_INFO_KIND_FILE));
    db_extended_info_read_files(query->extended_info, read->items, read->count, &query->cancel_fileinfo);
    debug_printf("db_read_extended_info_on_selection(): %f seconds\n", os_get_tick_count() - start);
    _db_query_set_status(query, nullptr);
    mem_free(read->items);
    mem_free(read);
    event_post(_db_ready_proc, query->db);
}

void db_read_extended_info_on_selection(db_query_t *query, u32 flags, i32 dialog_x, i32 dialog_y) {
    if (!_db_query_begin_read(query, "db_read_extended_info_on_selection"))
        return;
    query->cancel_fileinfo = 0;
    query->dialog_x = dialog_x;
    query->dialog_y = dialog_y;
    auto *read = static_cast<_db_selection_read_t *>(mem_alloc(sizeof(_db_selection_read_t)));
    *read = {query, flags, nullptr, 0};
    db_start_worker(query->db, query, DB_WORKER_OTHER, _db_read_selection_thread_proc, read);
}

// --- Columns that cost nothing -----------------------------------------------------------------------------

void db_get_result_extension(db_query_t *query, i32 index, utf8_buf_t *out) {
    db_result_t result;
    utf8_buf_empty(out);
    if (!db_get_result(query, index, &result) || result.is_folder)
        return;
    u32 length, extension_length;
    const char *name = db_item_get_name(result.item, &length);
    const char *extension = db_name_get_extension(name, length, &extension_length);
    utf8_buf_copy_utf8(out, extension, extension_length);
}

void db_get_result_file_list_filename(db_query_t *query, i32 index, utf8_buf_t *out) {
    utf8_buf_empty(out);
    const db_item_t *item = db_get_result_item(query, index);
    if (item)
        utf8_buf_copy_string(out, db_index_get_file_list_filename(db_get_index(item)));
}

u32 db_get_result_run_count(db_query_t *query, i32 index) {
    const db_item_t *item = db_get_result_item(query, index);
    return item ? db_run_history_get(query->db, item).count : 0;
}

u64 db_get_result_date_run(db_query_t *query, i32 index) {
    const db_item_t *item = db_get_result_item(query, index);
    u64 date = item ? db_run_history_get(query->db, item).date : 0;
    return date ? date : VALUE_UNKNOWN; // 0 is that of an item that was never opened
}

u64 db_get_result_date_recently_changed(db_query_t *query, i32 index) {
    const db_item_t *item = db_get_result_item(query, index);
    const db_recent_change_t *change = item ? db_recent_change_find(query->db, item) : nullptr;
    return change ? change->date : VALUE_UNKNOWN;
}

// --- The run history ---------------------------------------------------------------------------------------

// A change moves results, so the selection is taken down first: folders, and files behind them.
static void _db_set_run_counts(db_query_t *query, bool add, u32 count) {
    u32 all = query->selection.count, folder_count = 0, file_count = 0;
    mem_ref_t *items = static_cast<mem_ref_t *>(mem_alloc((static_cast<size_t>(all) + 1) * sizeof *items));
    _db_query_visit_selected(query, [&](const array_t *array, u32 value) {
        db_result_t result = _db_query_get_value_result(query, array, value);
        items[result.is_folder ? folder_count++ : all - ++file_count] = mem_ref(result.item);
    });
    u64 date = os_get_file_time();
    for (u32 i = 0; i < folder_count; i++)
        (add ? db_run_history_add_item : db_run_history_set_item)(query->db, db_item(items[i]), true, count,
                                                                  date);
    for (u32 i = all - file_count; i < all; i++)
        (add ? db_run_history_add_item : db_run_history_set_item)(query->db, db_item(items[i]), false, count,
                                                                  date);
    mem_free(items);
}

void db_set_selection_run_count(db_query_t *query, bool add, u32 count) {
    if (!_db_query_begin_read(query, "db_set_selection_run_count") || !query->db->run_history_loaded)
        return;
    u32 start = os_get_tick_count(), selected = query->selection.count;
    _db_set_run_counts(query, add, count);
    debug_printf("set %d run history in %f seconds\n", selected, os_get_tick_count() - start);
}

bool db_query_save_run_history(db_query_t *query) {
    return db_run_history_save(query->db);
}

} // namespace findwright
