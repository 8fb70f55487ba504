// The columns that results are printed with.
//
// Constants: any thread may call.
#pragma once

#include "base/types.h"

#include <string>
#include <vector>

namespace findwright {

enum fw_column_t : u32 {
    FW_COLUMN_NAME,
    FW_COLUMN_PATH,
    FW_COLUMN_FULL,
    FW_COLUMN_SIZE,
    FW_COLUMN_EXTENSION,
    FW_COLUMN_TYPE,
    FW_COLUMN_DATE_MODIFIED,
    FW_COLUMN_DATE_CREATED,
    FW_COLUMN_DATE_ACCESSED,
    FW_COLUMN_ATTRIBUTES,
    FW_COLUMN_FILE_LIST,
    FW_COLUMN_RUN_COUNT,
    FW_COLUMN_DATE_RUN,
    FW_COLUMN_DATE_RECENTLY_CHANGED,
    FW_COLUMN_COUNT,
};

enum fw_column_kind_t : u32 {
    FW_KIND_PLACE, // a text in which a search marks what matched: a name or a path
    FW_KIND_TEXT,
    FW_KIND_NUMBER,
    FW_KIND_DATE,
    FW_KIND_ATTRIBUTES,
};

struct fw_column_info_t {
    const char *name;  // of the option
    const char *order; // the order by the column, which names it as well; 0: there is none of another name
    const char *key;   // of JSON, and the header of CSV; the option takes it, too
    fw_column_kind_t kind;
    u32 index_flag; // DB_FLAG_... of the index's own column; 0: it has none
};
extern const fw_column_info_t fw_columns[FW_COLUMN_COUNT];

// All names, with `separator` between and `last` before the last one.
std::string fw_column_list_names(const char *separator, const char *last);
// Appends the columns of a list with commas. The text of an error, or empty.
std::string fw_column_parse_list(const std::string &text, std::vector<fw_column_t> *columns);

} // namespace findwright
