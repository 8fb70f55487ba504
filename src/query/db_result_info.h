// The columns of results: from the records where the index holds them, else what was read of the file system
// so far (db/db_extended_info.h), with the requests for rows that are shown.
//
// The way of a painter: db_request_fileinfo for the rows in sight, then db_get_result_file_info for each,
// which never reads a file; on notification 5 the rows for which db_get_result_file_info_change tells bits
// are painted again. A new request takes the place of the one before: what is not in sight any more is not
// read.
//
// Main thread; all calls wait for the worker. A bad index, or a database that is not loaded, gives the
// unknown values.
#pragma once

#include "query/db_query.h"

namespace findwright {

// Columns of a request.
inline constexpr u32 DB_INFO_SIZE = 1;
inline constexpr u32 DB_INFO_DATE_CREATED = 2;
inline constexpr u32 DB_INFO_DATE_MODIFIED = 4;
inline constexpr u32 DB_INFO_DATE_ACCESSED = 8;
inline constexpr u32 DB_INFO_ATTRIBUTES = 16;
inline constexpr u32 DB_INFO_ICON = 32;
inline constexpr u32 DB_INFO_TYPE_NAME = 64;
inline constexpr u32 DB_INFO_THUMBNAIL = 128;
inline constexpr u32 DB_INFO_FILE = 31; // those that are read from the file's entry

// The owner's status text while the selection is read.
inline const char *db_read_extended_info_text = "Reading extended information...";

struct db_fileinfo_t {
    u64 size;                                       // bytes; VALUE_UNKNOWN when not known
    u64 date_modified, date_created, date_accessed; // file times, UTC; VALUE_UNKNOWN when not known
    u32 attributes;                                 // a folder has its bit whatever is known
    u32 icon_index;                                 // db_default_icon_index until it is known
    const char *type_name;                          // UTF-8; lives as long as the query; 0 until it is known
    const void *thumbnail; // lives until the query's information is forgotten; 0 until it is known
};

// Asks for columns of the rows from `first` up to but not including `first + count`.
void db_request_fileinfo(db_query_t *query, i32 first, i32 count, u32 flags);
// What is known now.
bool db_get_result_file_info(db_query_t *query, i32 index, u32 flags, db_fileinfo_t *out);
// What of a row came with the last notification 5, or has changed in the index: DB_INFO_FILE for all of its
// columns together, DB_INFO_ICON, DB_INFO_TYPE_NAME, DB_INFO_THUMBNAIL.
u32 db_get_result_file_info_change(db_query_t *query, i32 index);
// Reads columns of all selected results, on the worker; they are there when the database is ready again.
void db_read_extended_info_on_selection(db_query_t *query, u32 flags, i32 dialog_x, i32 dialog_y);

// Columns that cost nothing to read. The extension of a folder is empty; so is the name of the file list of a
// row that comes from none. Dates are file times, VALUE_UNKNOWN where there is none; a count may be 0.
void db_get_result_extension(db_query_t *query, i32 index, utf8_buf_t *out);
void db_get_result_file_list_filename(db_query_t *query, i32 index, utf8_buf_t *out);
u32 db_get_result_run_count(db_query_t *query, i32 index);
u64 db_get_result_date_run(db_query_t *query, i32 index);
u64 db_get_result_date_recently_changed(db_query_t *query, i32 index);

// Sets how often the selected results were opened, now for the last time; with `add`, by so much more than it
// is known. A count of 0 forgets them. Nothing without a run history.
void db_set_selection_run_count(db_query_t *query, bool add, u32 count);
// Writes the run history, where it has changed. False on failure, with os_get_last_error.
bool db_query_save_run_history(db_query_t *query);

} // namespace findwright
