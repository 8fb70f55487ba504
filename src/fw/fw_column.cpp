#include "fw/fw_column.h"

#include "db/db_layout.h"

#include <algorithm>

namespace findwright {

// The key "type" tells files from folders, so the type's name has another.
const fw_column_info_t fw_columns[FW_COLUMN_COUNT] = {
    {"name", nullptr, "name", FW_KIND_PLACE, 0},
    {"path", nullptr, "path", FW_KIND_PLACE, 0},
    {"full", nullptr, "full", FW_KIND_PLACE, 0},
    {"size", nullptr, "size", FW_KIND_NUMBER, DB_FLAG_SIZE},
    {"extension", nullptr, "extension", FW_KIND_TEXT, 0},
    {"type", nullptr, "type-name", FW_KIND_TEXT, 0},
    {"dm", "date-modified", "dm", FW_KIND_DATE, DB_FLAG_DATE_MODIFIED},
    {"dc", "date-created", "dc", FW_KIND_DATE, DB_FLAG_DATE_CREATED},
    {"da", "date-accessed", "da", FW_KIND_DATE, DB_FLAG_DATE_ACCESSED},
    {"attributes", nullptr, "attributes", FW_KIND_ATTRIBUTES, DB_FLAG_ATTRIBUTES},
    {"file-list", "file-list-filename", "file-list", FW_KIND_TEXT, 0},
    {"run-count", nullptr, "run-count", FW_KIND_NUMBER, 0},
    {"dr", "date-run", "dr", FW_KIND_DATE, 0},
    {"drc", "date-recently-changed", "drc", FW_KIND_DATE, 0},
};

std::string fw_column_list_names(const char *separator, const char *last) {
    std::string names;
    for (u32 i = 0; i < FW_COLUMN_COUNT; i++)
        names += std::string(i == 0 ? "" : i + 1 < FW_COLUMN_COUNT ? separator : last) + fw_columns[i].name;
    return names;
}

static bool _fw_column_has_name(const fw_column_info_t &column, const std::string &name) {
    return name == column.name || name == column.key || (column.order && name == column.order);
}

std::string fw_column_parse_list(const std::string &text, std::vector<fw_column_t> *columns) {
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find(',', start), text.size());
        std::string name = text.substr(start, end - start);
        u32 column = 0;
        while (column < FW_COLUMN_COUNT && !_fw_column_has_name(fw_columns[column], name))
            column++;
        if (column == FW_COLUMN_COUNT)
            return "there is no column '" + name + "'; the columns are " +
                   fw_column_list_names(", ", " and ");
        columns->push_back(static_cast<fw_column_t>(column));
        start = end + 1;
    }
    return "";
}

} // namespace findwright
