// File lists: text files that name files and folders which need not exist on this machine. docs/file-list.md
// is the format for those who write such files.
//
// A list is read in one pass, row by row, with no memory per row: the reader makes the full name, the numbers
// and the dates of each and hands it to a callback, in the order of the list. Rows are never merged: two rows
// of one name are two items. There is no bad row, only empty values.
//
//     file --csv.h--> fields --by the header's columns--> name, size, dates, attributes --> callback
//
// Names are the program's own, with `\` between components. On a system whose paths have `/`, a name that
// begins with `/` is such a path: it is converted when read, and back when written; the names of other
// systems beside it (`C:\a`, `\\server\share`) stay as they are.
//
// Any thread may call, with its own arguments. Texts given to a callback are good until it returns.
#pragma once

#include "base/types.h"
#include "base/utf8_buf.h"
#include "db/db_file_info.h"

namespace findwright {

inline constexpr u32 FILE_LIST_HIDDEN = 0x02; // bits of the attributes that a list's reader looks at
inline constexpr u32 FILE_LIST_SYSTEM = 0x04;
inline constexpr u32 FILE_LIST_FOLDER = 0x10;

// --- Names -------------------------------------------------------------------------------------------------

// What the relative names of a list are relative to.
struct file_list_base_t {
    utf8_buf_t path;  // cleaned, no separator at its end
    u32 root_length;  // bytes of `path`: a drive, a share, a scheme and host; `..` does not go above
    u32 segments;     // components behind the root
    bool is_absolute; // has a root, or began with a separator, which then is the root
    char separator;   // `/` under a scheme
};

void file_list_base_init(file_list_base_t *base, const char *folder, u32 length);
// The folder of a list with that name; empty when it has none.
void file_list_base_init_for(file_list_base_t *base, const char *filename);
void file_list_base_kill(file_list_base_t *base);

// The full name that a list means: one with a drive, a server or a scheme stays as it stands, one that begins
// with a separator starts at the base's root, any other at the base, and these are cleaned: one dot goes, n
// dots go up n-1 levels, empty components stay. Replaces the content of `out`.
void file_list_resolve(const file_list_base_t *base, const char *name, u32 length, utf8_buf_t *out);

// Walks the components of a full name, from `*position` 0 on; the separators at its start belong to the
// first, up to two. False behind the last one.
bool file_list_next_piece(const char *name, u32 length, u32 *position, const char **piece, u32 *piece_length);

// --- Reading -----------------------------------------------------------------------------------------------

struct file_list_row_t {
    const char *name; // full
    u32 length;
    bool is_folder;
    db_file_info_t info; // a folder's size is 0
    u64 ordinal;         // of the rows given, from 0
};

// False ends the reading.
using file_list_row_proc_t = bool(void *param, const file_list_row_t *row);

// The numbers are those that a database made of one list keeps as its status.
enum file_list_status_t : u32 {
    FILE_LIST_READ = 0,    // perhaps without a row
    FILE_LIST_INVALID = 1, // no column `Filename`
    FILE_LIST_NOT_OPENED = 2,
};

struct file_list_read_t {
    bool exclude_hidden; // rows with that attribute are not given
    bool exclude_system;
};

// Reads a list. A failed read in its middle is its end.
file_list_status_t file_list_read(const char *filename, const file_list_read_t *options,
                                  file_list_row_proc_t *proc, void *param);

// Dates in the forms that a list may have: ticks, or 2016-10-28T10:45:16.5+02:00. VALUE_UNKNOWN when empty, 0
// for what is no date. The text is terminated.
u64 file_list_parse_date(const char *text, u32 length);

// The names in a file as the argument of a search for them: with `|` between, and a `|` of a name written as
// its number. A file that ends in .fwl or .csv is read as a list, any other as one name a line, up to an
// empty first line. False, and an empty text, when it cannot be opened.
bool filelist_read_search_names(utf8_buf_t *out, const char *filename);

// --- Writing (file_list_write.cpp) -------------------------------------------------------------------------

struct file_list_writer_t;

// Gives all rows to the writer with file_list_put. Called twice when relative names are asked for.
using file_list_source_t = void(void *param, file_list_writer_t *writer);

// Which date is written as an empty field.
enum file_list_empty_date_t : u32 {
    FILE_LIST_ZERO_IS_EMPTY,    // lists of what is on a disk, or in the editor
    FILE_LIST_UNKNOWN_IS_EMPTY, // lists of results
};

struct file_list_write_t {
    file_list_empty_date_t empty_date;
    // Names below the list's folder are written relative to it, but only when all rows are such.
    bool relative;
};

struct file_list_written_t {
    u64 rows;
    u64 left_out; // rows whose name no list can hold: it has a line end in it, or is empty
    bool relative;
};

void file_list_put(file_list_writer_t *writer, const char *name, u32 length, const db_file_info_t *info);

// Writes a list beside its place and puts it there when it is whole. False on any failure: then the old file
// is as it was, and `error` says which file and why. `written` and `error` may be 0.
bool file_list_write(const char *filename, const file_list_write_t *options, file_list_source_t *source,
                     void *param, file_list_written_t *written, utf8_buf_t *error);

} // namespace findwright
