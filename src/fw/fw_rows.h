// Results as rows with their columns. What the index does not hold of them is read from the file system, for
// the rows that are asked for, on several threads.
//
// Owner: whoever prints. Main thread.
#pragma once

#include "base/utf8_buf.h"
#include "db/db_file_info.h"
#include "fw/fw_column.h"
#include "query/db_query.h"

namespace findwright {

struct fw_row_t {
    const db_item_t *item;
    bool is_folder;
    db_file_info_t info;   // of the columns that are printed; the others are not known
    const char *type_name; // 0: it is not printed
};

struct fw_rows_t {
    db_query_t *query;
    u32 index_flags; // DB_FLAG_... of the columns that are printed
    bool has_type;
    i32 first; // the result that the first row is
    std::vector<fw_row_t> rows;
};

void fw_rows_init(fw_rows_t *rows, db_query_t *query, const std::vector<fw_column_t> &columns);
// Whether a column asks the system: for what is not in the index, or for names of types.
bool fw_rows_is_slow(const fw_rows_t *rows);
// Takes up the results from `first` up to but not including `end`, in place of those before.
void fw_rows_read(fw_rows_t *rows, i32 first, i32 end);

// A text of a row, as users of this system write it. False, and an empty text, where there is none.
bool fw_row_get_text(const fw_row_t *row, fw_column_t column, utf8_buf_t *out);
// Whether that text is another one inside, as paths of a system with `/` are. `text` is the inside one, of a
// FW_KIND_PLACE column.
bool fw_row_is_for_user(const fw_row_t *row, fw_column_t column, const utf8_buf_t *text);
// A number or a date; VALUE_UNKNOWN where there is none.
u64 fw_row_get_number(const fw_row_t *row, const db_t *db, fw_column_t column);

} // namespace findwright
