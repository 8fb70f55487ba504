#include "fw/fw_rows.h"

#include "base/utf8.h"
#include "db/db_extended_info.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "fw/fw_path.h"
#include "os/os_parallel.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <atomic>

namespace findwright {

// One thread is started for so many rows that have to be asked for, and takes so many at once: how long one
// takes differs, as with folders that lie on another disk.
static constexpr u32 ROWS_PER_THREAD = 64;
static constexpr u32 ROWS_AT_ONCE = 16;

// --- Reading -----------------------------------------------------------------------------------------------

void fw_rows_init(fw_rows_t *rows, db_query_t *query, const std::vector<fw_column_t> &columns) {
    *rows = {query, 0, false, 0, {}};
    for (fw_column_t column : columns) {
        rows->index_flags |= fw_columns[column].index_flag;
        rows->has_type |= column == FW_COLUMN_TYPE;
    }
}

static u32 _fw_get_missing(const fw_rows_t *rows) {
    return rows->index_flags & ~rows->query->db->layout.flags;
}

bool fw_rows_is_slow(const fw_rows_t *rows) {
    return _fw_get_missing(rows) != 0 || rows->has_type;
}

static void _fw_row_take_record(fw_row_t *row, const db_t *db) {
    const db_item_t *item = row->item;
    if (row->is_folder)
        row->info = {db_folder_get_size(db, item), db_folder_get_date_modified(db, item),
                     db_folder_get_date_created(db, item), db_folder_get_date_accessed(db, item),
                     db_folder_get_attributes(db, item)};
    else
        row->info = {db_file_get_size(db, item), db_file_get_date_modified(db, item),
                     db_file_get_date_created(db, item), db_file_get_date_accessed(db, item),
                     db_file_get_attributes(db, item)};
}

// What the index holds stays, also where it has changed since.
static void _fw_row_ask(fw_row_t *row, u32 missing, db_extended_info_t *source) {
    db_file_info_t info;
    if (row->is_folder)
        missing &= ~DB_FLAG_SIZE; // the file system knows none
    if (missing == 0 || !(row->is_folder ? db_get_folder_fileinfo(source, row->item, &info)
                                         : db_get_file_fileinfo(source, row->item, &info)))
        return;
    row->info.size = missing & DB_FLAG_SIZE ? info.size : row->info.size;
    row->info.date_modified = missing & DB_FLAG_DATE_MODIFIED ? info.date_modified : row->info.date_modified;
    row->info.date_created = missing & DB_FLAG_DATE_CREATED ? info.date_created : row->info.date_created;
    row->info.date_accessed = missing & DB_FLAG_DATE_ACCESSED ? info.date_accessed : row->info.date_accessed;
    row->info.attributes = missing & DB_FLAG_ATTRIBUTES ? info.attributes : row->info.attributes;
}

static const char *_fw_row_find_type(const fw_row_t *row, db_extended_info_t *source) {
    if (row->is_folder)
        return db_extended_info_get_folder_type_name(source);
    u32 length, extension_length;
    const char *name = db_item_get_name(row->item, &length);
    const char *extension = db_name_get_extension(name, length, &extension_length);
    return db_extended_info_get_type_name(source, extension, extension_length);
}

struct _fw_ask_t {
    fw_rows_t *rows;
    u32 missing;
    std::atomic<u32> next;
};

static void _fw_ask_proc(void *param, u32, u32) {
    _fw_ask_t *ask = static_cast<_fw_ask_t *>(param);
    fw_rows_t *rows = ask->rows;
    u32 count = static_cast<u32>(rows->rows.size());
    for (u32 start; (start = ask->next.fetch_add(ROWS_AT_ONCE)) < count;) {
        for (u32 i = start; i < std::min(start + ROWS_AT_ONCE, count); i++) {
            fw_row_t *row = &rows->rows[i];
            _fw_row_ask(row, ask->missing, rows->query->extended_info);
            if (rows->has_type)
                row->type_name = _fw_row_find_type(row, rows->query->extended_info);
        }
    }
}

void fw_rows_read(fw_rows_t *rows, i32 first, i32 end) {
    rows->first = first;
    rows->rows.clear();
    for (i32 i = first; i < end; i++) {
        db_result_t result;
        db_get_result(rows->query, i, &result);
        fw_row_t row = {result.item, result.is_folder, {}, nullptr};
        _fw_row_take_record(&row, rows->query->db);
        rows->rows.push_back(row);
    }
    _fw_ask_t ask = {rows, _fw_get_missing(rows), 0};
    if (fw_rows_is_slow(rows))
        os_parallel(os_get_thread_count(rows->rows.size(), ROWS_PER_THREAD), _fw_ask_proc, &ask);
}

// --- Texts -------------------------------------------------------------------------------------------------

static bool _fw_is_of_system(const db_item_t *item) {
    u32 length;
    const char *root = db_item_get_name(db_get_root(item), &length);
    return fw_path_is_system_root(root, length);
}

// What belongs to a system with `/` is told by its root item: the name alone of an item below does not show
// it.
bool fw_row_is_for_user(const fw_row_t *row, fw_column_t column, const utf8_buf_t *text) {
    if (column == FW_COLUMN_NAME && !db_item_is_top(row->item))
        return _fw_is_of_system(row->item);
    return fw_path_is_system_root(text->data, static_cast<u32>(text->length));
}

static void _fw_get_place(const fw_row_t *row, fw_column_t column, utf8_buf_t *out) {
    const db_item_t *item = row->item;
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (column == FW_COLUMN_NAME)
        utf8_buf_copy_utf8(out, name, length);
    else if (column == FW_COLUMN_PATH)
        db_item_get_path(out, item);
    else
        db_item_get_full_path_name(out, item);
    if (db_item_is_top(item) && column == FW_COLUMN_PATH)
        return; // nothing holds it
    if (!fw_row_is_for_user(row, column, out))
        return;
    if (out->length == 0)
        fw_path_to_user(out);
    else
        fw_name_to_user(out);
}

static void _fw_get_extension(const fw_row_t *row, utf8_buf_t *out) {
    u32 length, extension_length;
    const char *name = db_item_get_name(row->item, &length);
    const char *extension = db_name_get_extension(name, length, &extension_length);
    utf8_buf_copy_utf8(out, extension, row->is_folder ? 0 : extension_length);
    if (_fw_is_of_system(row->item))
        fw_name_to_user(out);
}

static bool _fw_get_file_list(const fw_row_t *row, utf8_buf_t *out) {
    utf8_buf_copy_string(out, db_index_get_file_list_filename(db_get_index(row->item)));
    if (out->length == 0)
        return false;
    fw_path_to_user(out);
    return true;
}

bool fw_row_get_text(const fw_row_t *row, fw_column_t column, utf8_buf_t *out) {
    switch (column) {
    case FW_COLUMN_EXTENSION: _fw_get_extension(row, out); return true;
    case FW_COLUMN_TYPE: utf8_buf_copy_string(out, row->type_name); return true;
    case FW_COLUMN_FILE_LIST: return _fw_get_file_list(row, out);
    default: _fw_get_place(row, column, out); return true;
    }
}

// --- Numbers -----------------------------------------------------------------------------------------------

u64 fw_row_get_number(const fw_row_t *row, const db_t *db, fw_column_t column) {
    switch (column) {
    case FW_COLUMN_SIZE: return row->info.size;
    case FW_COLUMN_DATE_MODIFIED: return row->info.date_modified;
    case FW_COLUMN_DATE_CREATED: return row->info.date_created;
    case FW_COLUMN_DATE_ACCESSED: return row->info.date_accessed;
    case FW_COLUMN_RUN_COUNT: return db_run_history_get(db, row->item).count;
    case FW_COLUMN_DATE_RUN: {
        db_run_t run = db_run_history_get(db, row->item);
        return run.count != 0 && run.date != 0 ? run.date : VALUE_UNKNOWN;
    }
    case FW_COLUMN_DATE_RECENTLY_CHANGED: {
        const db_recent_change_t *change = db_recent_change_find(db, row->item);
        return change ? change->date : VALUE_UNKNOWN;
    }
    default: return VALUE_UNKNOWN;
    }
}

} // namespace findwright
