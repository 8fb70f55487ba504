// The program's own lists of searches (filters, bookmarks, the search history) as files: a table with a line
// of column names in front, its columns in any order.
//
// Reading never fails beyond a file that cannot be opened: a column that is not known is passed over, one
// that is missing is empty, and so is the rest of a short row. No text that is read has a NUL or a line end
// in it: a NUL is dropped, a lone CR is a blank.
//
// Owner: who opened the table, until it is closed. Main thread.
#pragma once

#include "base/csv.h"
#include "base/file.h"

namespace findwright {

inline constexpr u32 CSV_TABLE_COLUMNS_MAX = 20;

struct csv_table_field_t {
    const char *text; // terminated
    u32 length;
    bool is_there; // not only an empty place: `""` is there, too
};

struct csv_table_t {
    csv_t *csv;
    const char *const *names;
    u32 count;
    u32 places[CSV_TABLE_COLUMNS_MAX]; // of each column among the fields of a line; ~0: it has none
    csv_table_field_t fields[CSV_TABLE_COLUMNS_MAX];
};

// Opens a file and reads its first line. The names, compared without regard to case, must outlive the table;
// of two columns of one name the last counts. False when there is no such file.
bool csv_table_open(csv_table_t *table, const char *filename, const char *const *names, u32 count);
void csv_table_close(csv_table_t *table);
// Reads a row into `fields`, good until the next one. False at the end.
bool csv_table_next(csv_table_t *table);

// A field's number, as far as it is one, and the greatest where it is greater.
u32 csv_table_get_number(const csv_table_field_t *field);
inline bool csv_table_is_one(const csv_table_field_t *field) {
    return field->length == 1 && *field->text == '1';
}
// A key is modifiers * 256 + code; both 0 without a code, or when it is none.
void csv_table_get_key(const csv_table_field_t *field, u8 *modifiers, u8 *code);

// The names as the first line of a file.
void csv_table_put_header(file_writer_t *writer, const char *const *names, u32 count);
// A text in quotes, with blanks for its line ends.
void csv_table_put_text(file_writer_t *writer, const char *text);
void csv_table_put_key(file_writer_t *writer, u8 modifiers, u8 code); // nothing without a code

// Writes a file, which no other user may read, beside its target and puts it in its place. False on failure,
// which is logged and leaves the target as it was; the reason is os_get_last_error.
using csv_table_write_t = void(file_writer_t *writer);
bool csv_table_save(const char *filename, csv_table_write_t *write);

// Whether two names mean the same when nothing has just that name: case does not matter.
bool csv_table_is_same_name(const char *a, const char *b);

} // namespace findwright
