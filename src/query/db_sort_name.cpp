#include "query/db_sort_name.h"

#include "base/utf8.h"
#include "query/db_query.h"

#include <iterator>

namespace findwright {

// By half the code: each order has an ascending and a descending one.
static constexpr const char *_sort_names[] = {
    "name",
    "path",
    "size",
    "extension",
    "type",
    "date-created",
    "date-modified",
    "attributes",
    "file-list-filename",
    "run-count",
    "date-recently-changed",
    "date-accessed",
    "date-run",
};
static_assert(std::size(_sort_names) * 2 == DB_SORT_COUNT);

const char *db_sort_get_name(u32 sort) {
    return sort < DB_SORT_COUNT ? _sort_names[sort / 2] : "";
}

bool db_sort_find_name(const char *name, u32 *sort) {
    for (u32 i = 0; i < std::size(_sort_names); i++) {
        if (utf8_compare_lower(name, utf8_length(name), _sort_names[i], utf8_length(_sort_names[i])) == 0) {
            *sort = i * 2;
            return true;
        }
    }
    *sort = DB_SORT_NAME_ASCENDING;
    return false;
}

} // namespace findwright
