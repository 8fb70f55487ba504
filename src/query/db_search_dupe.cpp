// Duplicates: items whose key another item of their kind has, too.
//
// In an array that is sorted by the key equal ones are neighbours, so that one walk finds them all. Names
// without their extension are sorted by no array (db_search_name_part.cpp).
#include "db/db_file.h"
#include "db/db_folder.h"
#include "query/db_search_function.h"

#include <cstring>

namespace findwright {

// --- Neighbours --------------------------------------------------------------------------------------------

static constexpr u32 SET_AHEAD = 16; // bits of a set that are asked of the memory early

struct _db_dupe_t {
    const db_t *db;
    db_item_sets_t sets;
};

// The sorted array that has equal items side by side, by its fast sort flag.
static u32 _db_get_dupe_flag(u32 family) {
    switch (family) {
    case DB_OP_DUPE_SIZE: return DB_FLAG_FAST_SIZE;
    case DB_OP_DUPE_DATE_CREATED: return DB_FLAG_FAST_DATE_CREATED;
    case DB_OP_DUPE_DATE_MODIFIED: return DB_FLAG_FAST_DATE_MODIFIED;
    case DB_OP_DUPE_DATE_ACCESSED: return DB_FLAG_FAST_DATE_ACCESSED;
    case DB_OP_DUPE_ATTRIBUTES: return DB_FLAG_FAST_ATTRIBUTES;
    default: return 0;
    }
}

template<u32 family, bool is_folder>
static u64 _db_get_column(const db_t *db, const db_item_t *item) {
    if constexpr (family == DB_OP_DUPE_SIZE)
        return is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
    else if constexpr (family == DB_OP_DUPE_DATE_CREATED)
        return is_folder ? db_folder_get_date_created(db, item) : db_file_get_date_created(db, item);
    else if constexpr (family == DB_OP_DUPE_DATE_MODIFIED)
        return is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
    else if constexpr (family == DB_OP_DUPE_DATE_ACCESSED)
        return is_folder ? db_folder_get_date_accessed(db, item) : db_file_get_date_accessed(db, item);
    else
        return is_folder ? db_folder_get_attributes(db, item) : db_file_get_attributes(db, item);
}

static bool _db_has_same_name(const db_item_t *a, const db_item_t *b) {
    u32 a_length, b_length;
    const char *a_name = db_item_get_name(a, &a_length);
    const char *b_name = db_item_get_name(b, &b_length);
    return (a_length == b_length && std::memcmp(a_name, b_name, a_length) == 0) ||
           db_name_compare_level(DB_LEVEL_FOLD, a_name, a_length, b_name, b_length) == 0;
}

// Whether two neighbours' values are equal by the order of their array.
template<u32 family>
static bool _db_is_same(u64 a, u64 b) {
    if constexpr (family == DB_OP_DUPE_ATTRIBUTES) // bits without a letter have no order
        return a == b || db_attributes_compare(static_cast<u32>(a), static_cast<u32>(b)) == 0;
    return a == b;
}

// Adds the values of a page that are equal to their neighbours, by what `is_same` says of a place and the one
// in front of it.
template<class is_same_t>
static void _db_add_neighbours(db_item_set_t *set, const db_walk_page_t *page, is_same_t is_same) {
    mem_ref_t equal[ARRAY_PAGE_VALUES + 1];
    u32 count = 0;
    mem_ref_t last = page->before;
    bool is_last_added = false; // by this page
    for (u32 i = 0; i < page->count; i++) {
        bool is_equal = last != 0 && is_same(i);
        equal[count] = last; // the first of its neighbours
        count += is_equal && !is_last_added;
        equal[count] = last = page->values[i];
        count += is_equal;
        is_last_added = is_equal;
    }
    for (u32 i = 0; i < count; i++) {
        db_item_set_prefetch(set, equal[i + SET_AHEAD < count ? i + SET_AHEAD : i]);
        db_item_set_add(set, equal[i]);
    }
}

// The columns are taken out first: a loop of loads that do not wait for one another.
template<u32 family, bool is_folder>
static void _db_columns_proc(void *param, const db_walk_page_t *page) {
    const _db_dupe_t *dupe = static_cast<const _db_dupe_t *>(param);
    u64 columns[ARRAY_PAGE_VALUES + 1];
    columns[0] = page->before ? _db_get_column<family, is_folder>(dupe->db, db_item(page->before)) : 0;
    for (u32 i = 0; i < page->count; i++) {
        const char *ahead = reinterpret_cast<const char *>(db_item(db_walk_ahead(page, i)));
        __builtin_prefetch(ahead);
        __builtin_prefetch(ahead + 40); // the columns of most names
        columns[i + 1] = _db_get_column<family, is_folder>(dupe->db, db_item(page->values[i]));
    }
    _db_add_neighbours(dupe->sets.sets[page->part], page,
                       [&](u32 i) { return _db_is_same<family>(columns[i], columns[i + 1]); });
}

static void _db_names_proc(void *param, const db_walk_page_t *page) {
    const _db_dupe_t *dupe = static_cast<const _db_dupe_t *>(param);
    _db_add_neighbours(dupe->sets.sets[page->part], page, [&](u32 i) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)));
        mem_ref_t last = i != 0 ? page->values[i - 1] : page->before;
        return _db_has_same_name(db_item(last), db_item(page->values[i]));
    });
}

template<bool is_folder>
static db_walk_proc_t *_db_get_neighbours_proc(u32 family) {
    switch (family) {
    case DB_OP_DUPE_SIZE: return _db_columns_proc<DB_OP_DUPE_SIZE, is_folder>;
    case DB_OP_DUPE_DATE_CREATED: return _db_columns_proc<DB_OP_DUPE_DATE_CREATED, is_folder>;
    case DB_OP_DUPE_DATE_MODIFIED: return _db_columns_proc<DB_OP_DUPE_DATE_MODIFIED, is_folder>;
    case DB_OP_DUPE_DATE_ACCESSED: return _db_columns_proc<DB_OP_DUPE_DATE_ACCESSED, is_folder>;
    case DB_OP_DUPE_ATTRIBUTES: return _db_columns_proc<DB_OP_DUPE_ATTRIBUTES, is_folder>;
    default: return _db_names_proc;
    }
}

// --- The set -----------------------------------------------------------------------------------------------

db_item_set_t *db_search_find_dupes(db_query_t *query, u32 family, bool is_folder) {
    db_array_pair_t arrays = db_get_sorted_arrays(query->db, _db_get_dupe_flag(family));
    const array_t *items = is_folder ? arrays.folders : arrays.files;
    _db_dupe_t dupe;
    dupe.db = query->db;
    db_item_sets_init(&dupe.sets, items);
    if (family == DB_OP_DUPE_NAME_PART && !is_folder) {
        db_search_find_name_parts(query, items, &dupe.sets);
    } else {
        db_walk_proc_t *proc =
            is_folder ? _db_get_neighbours_proc<true>(family) : _db_get_neighbours_proc<false>(family);
        db_walk_t walk = {items, proc, &dupe, &query->cancel_search, false, nullptr, dupe.sets.count};
        db_walk(&walk);
    }
    return db_item_sets_finish(&dupe.sets);
}

} // namespace findwright
