// "Run History.csv" as a table in memory.
//
//     Filename,Run Count,Last Run Date
//     "/home/u/a.txt",12,133500000000000000
//
// Paths are written as a user writes them: those of a POSIX system with `/`. A line end in a name, which no
// line of the file can hold, stands there as U+F00A or U+F00D.
//
// Owner: who initialized it; any thread.
#pragma once

#include "track/db_run_history_internal.h"

namespace findwright {

struct db_run_row_t {
    u64 date; // file time; 0: not known
    u32 count;
    u32 offset, length; // of the path, in the table's text
};

struct db_run_rows_t {
    db_run_row_t *rows;
    u32 count, capacity;
    utf8_buf_t text;
};
inline constexpr u32 DB_RUN_TEXT_MAX = 0x40000000; // bytes; what a file has beyond it is not read

void db_run_rows_init(db_run_rows_t *rows);
void db_run_rows_kill(db_run_rows_t *rows);
// Appends a row. Who reads expects them in the order of the paths, each once.
void db_run_rows_add(db_run_rows_t *rows, const char *path, u32 length, u32 count, u64 date);
inline int db_run_rows_compare(const db_run_rows_t *rows, const db_run_row_t *a, const db_run_row_t *b) {
    return _db_run_history_compare_path(rows->text.data + a->offset, a->length, rows->text.data + b->offset,
                                        b->length);
}

// Fills an empty table, in order; rows without a path or a count, or of a date before `cutoff`, are passed
// over, and of several for one path the last counts. False when the file cannot be read or is none of these:
// then nothing is known of what it should hold.
bool db_run_rows_read(db_run_rows_t *rows, const char *filename, u64 cutoff);
// Writes the file beside its place and puts it there. False on failure, which is logged and leaves the old
// file as it was; the reason is os_get_last_error.
bool db_run_rows_write(const db_run_rows_t *rows, const char *filename);

// A path as it stands in the file, and back.
void db_run_history_path_to_text(const char *path, u32 length, utf8_buf_t *out);
void db_run_history_path_from_text(const char *text, u32 length, utf8_buf_t *out);

} // namespace findwright
