// A database with all that is known of its items in a plain table, and from that table what searches find and
// where each order puts it: what the list of results is compared with.
#pragma once

#include "query/db_query.h"
#include "support/test_db.h"

#include <array>
#include <string>
#include <unordered_map>
#include <vector>

namespace findwright {

using list_numbers_t = std::vector<u32>; // items, by their place in the table

struct list_item_t {
    const db_item_t *item;
    u32 source; // its ordinal
    std::string path, parent, name;
    bool is_folder, is_root;
    std::string list;                      // the file list that it came from; empty for none
    u64 size, created, modified, accessed; // as the sources tell them, whatever the index holds of it
    u32 attributes;
    u32 place; // in the database's array of names of its kind
    u32 run_count;
    u64 run_date, change_date; // 0: never
};

// Letters are compared without case and accents, and the names here have no others than ASCII, é and É.
std::string list_fold(const std::string &text);

struct list_search_t {
    const char *text;
    const char *filter;
    bool match_case, match_path, hide_empty;
    bool (*finds)(const list_item_t &item);
};
extern const std::vector<list_search_t> list_searches;

struct list_world_t {
    db_t *db;
    u32 flags;
    std::vector<list_item_t> items;
    std::array<list_numbers_t, DB_SORT_COUNT> orders; // all items; none for the orders by type
    std::vector<std::vector<bool>> found;             // of each search, by item
    std::unordered_map<const db_item_t *, u32> numbers;

    u32 number_of(const db_item_t *item) const; // ~0 for none
    bool has_sizes() const { return flags & DB_FLAG_SIZE; }
};

// Two volumes without any file behind them, two file lists, a history of some of their items; about `size`
// items.
void list_world_create(list_world_t *world, u32 flags, u32 size, u32 seed);
void list_world_destroy(list_world_t *world);

inline bool list_is_type_order(u32 sort) {
    return (sort & ~DB_SORT_DESCENDING) == DB_SORT_TYPE_ASCENDING;
}
inline bool list_is_history_order(u32 sort) {
    u32 ascending = sort & ~DB_SORT_DESCENDING;
    return ascending == DB_SORT_RUN_COUNT_ASCENDING || ascending == DB_SORT_DATE_RUN_ASCENDING ||
           ascending == DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING;
}

} // namespace findwright
