// Duplicates: items whose key another item of their kind has, too.
//
// In an array that is sorted by the key equal ones are neighbours, so that one walk finds them all. Names
// without their extension are sorted by no array: `a.txt`, `a.b.txt` and `a.doc` have another one between
// two equal ones. They are dealt by a hash into buckets that fit the processor's cache, and texts are
// compared within equal hashes only.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_parallel.h"
#include "query/db_search_function.h"
#include "query/db_text_table.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- Neighbours --------------------------------------------------------------------------------------------

struct _db_dupe_t {
    const db_t *db;
    db_item_set_t *set;
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
    return db_name_compare_level(DB_LEVEL_FOLD, a_name, a_length, b_name, b_length) == 0;
}

// Whether two neighbours are equal by the order of their array.
template<u32 family, bool is_folder>
static bool _db_is_same(const db_t *db, const db_item_t *a, const db_item_t *b) {
    if constexpr (family == DB_OP_DUPE_NAME) {
        return _db_has_same_name(a, b);
    } else {
        u64 a_value = _db_get_column<family, is_folder>(db, a);
        u64 b_value = _db_get_column<family, is_folder>(db, b);
        if constexpr (family == DB_OP_DUPE_ATTRIBUTES) // bits without a letter have no order
            return a_value == b_value ||
                   db_attributes_compare(static_cast<u32>(a_value), static_cast<u32>(b_value)) == 0;
        return a_value == b_value;
    }
}

template<u32 family, bool is_folder>
static void _db_neighbours_proc(void *param, const db_walk_page_t *page) {
    const _db_dupe_t *dupe = static_cast<const _db_dupe_t *>(param);
    mem_ref_t last = page->before;
    bool is_last_added = false; // by this page
    for (u32 i = 0; i < page->count; i++) {
        const char *ahead = reinterpret_cast<const char *>(db_item(db_walk_ahead(page, i)));
        __builtin_prefetch(ahead);
        __builtin_prefetch(ahead + 64); // the columns
        mem_ref_t value = page->values[i];
        bool is_same = last != 0 && _db_is_same<family, is_folder>(dupe->db, db_item(last), db_item(value));
        if (is_same && !is_last_added)
            db_item_set_add_shared(dupe->set, last); // the first of its neighbours
        if (is_same)
            db_item_set_add_shared(dupe->set, value);
        is_last_added = is_same;
        last = value;
    }
}

template<bool is_folder>
static db_walk_proc_t *_db_get_neighbours_proc(u32 family) {
    switch (family) {
    case DB_OP_DUPE_SIZE: return _db_neighbours_proc<DB_OP_DUPE_SIZE, is_folder>;
    case DB_OP_DUPE_DATE_CREATED: return _db_neighbours_proc<DB_OP_DUPE_DATE_CREATED, is_folder>;
    case DB_OP_DUPE_DATE_MODIFIED: return _db_neighbours_proc<DB_OP_DUPE_DATE_MODIFIED, is_folder>;
    case DB_OP_DUPE_DATE_ACCESSED: return _db_neighbours_proc<DB_OP_DUPE_DATE_ACCESSED, is_folder>;
    case DB_OP_DUPE_ATTRIBUTES: return _db_neighbours_proc<DB_OP_DUPE_ATTRIBUTES, is_folder>;
    default: return _db_neighbours_proc<DB_OP_DUPE_NAME, is_folder>;
    }
}

// --- Names without their extension -------------------------------------------------------------------------

static constexpr u32 BUCKET_BITS = 12; // of the hash
static constexpr u32 BUCKETS = 1u << BUCKET_BITS;

static const char *_db_get_name_part(const db_item_t *item, u32 *length) {
    const char *name = db_item_get_name(item, length);
    for (u32 i = *length; i != 0; i--) {
        if (name[i - 1] == '.') {
            *length = i - 1;
            break;
        }
    }
    return name;
}

struct _db_part_entry_t {
    u32 hash;
    mem_ref_t item;
};

struct _db_name_parts_t {
    _db_part_entry_t *entries; // in the order of the array, then by buckets
    u32 *bucket_ends;
    const std::atomic<u32> *cancel;
    db_item_set_t *set;
};

static void _db_hash_proc(void *param, const db_walk_page_t *page) {
    _db_part_entry_t *entries = static_cast<_db_name_parts_t *>(param)->entries + page->first_index;
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)));
        u32 length;
        const char *part = _db_get_name_part(db_item(page->values[i]), &length);
        entries[i] = {db_text_hash<UTF8_MODE_FOLD>(part, length), page->values[i]};
    }
}

// Deals the entries into their buckets; within a bucket they stay in their order.
static void _db_deal(_db_name_parts_t *parts, u32 count) {
    u32 *ends = parts->bucket_ends;
    std::memset(ends, 0, BUCKETS * sizeof *ends);
    for (u32 i = 0; i < count; i++)
        ends[parts->entries[i].hash >> (32 - BUCKET_BITS)]++;
    for (u32 bucket = 0, start = 0; bucket < BUCKETS; bucket++) {
        u32 size = ends[bucket];
        ends[bucket] = start; // its end, when all are dealt
        start += size;
    }
    _db_part_entry_t *dealt =
        static_cast<_db_part_entry_t *>(mem_alloc(static_cast<size_t>(count) * sizeof *dealt));
    for (u32 i = 0; i < count; i++)
        dealt[ends[parts->entries[i].hash >> (32 - BUCKET_BITS)]++] = parts->entries[i];
    mem_free(parts->entries);
    parts->entries = dealt;
}

static bool _db_is_entry_less(const _db_part_entry_t &a, const _db_part_entry_t &b) {
    return a.hash != b.hash ? a.hash < b.hash : a.item < b.item;
}

static bool _db_has_same_part(mem_ref_t a, mem_ref_t b) {
    u32 a_length, b_length;
    const char *a_part = _db_get_name_part(db_item(a), &a_length);
    const char *b_part = _db_get_name_part(db_item(b), &b_length);
    return db_name_compare_level(DB_LEVEL_FOLD, a_part, a_length, b_part, b_length) == 0;
}

// A run of entries of the same hash: takes out group by group of those with the same text, which is nearly
// always the whole run.
static void _db_find_groups(const _db_name_parts_t *parts, _db_part_entry_t *first, _db_part_entry_t *end) {
    while (end - first > 1) {
        mem_ref_t leader = first->item;
        _db_part_entry_t *rest = first; // those of another text are gathered from here on
        for (_db_part_entry_t *entry = first + 1; entry != end; entry++) {
            if (_db_has_same_part(leader, entry->item))
                db_item_set_add_shared(parts->set, entry->item);
            else
                *rest++ = *entry;
        }
        if (rest - first < end - first - 1)
            db_item_set_add_shared(parts->set, leader);
        end = rest;
    }
}

static void _db_find_in_bucket(const _db_name_parts_t *parts, _db_part_entry_t *first,
                               _db_part_entry_t *end) {
    std::sort(first, end, _db_is_entry_less);
    for (_db_part_entry_t *entry = first; entry + 1 < end; entry++) {
        if (entry->hash == entry[1].hash) {
            __builtin_prefetch(db_item(entry->item));
            __builtin_prefetch(db_item(entry[1].item));
        }
    }
    for (_db_part_entry_t *entry = first; entry != end;) {
        _db_part_entry_t *next = entry + 1;
        while (next != end && next->hash == entry->hash)
            next++;
        _db_find_groups(parts, entry, next);
        entry = next;
    }
}

static void _db_buckets_proc(void *param, u32 part, u32 part_count) {
    const _db_name_parts_t *parts = static_cast<const _db_name_parts_t *>(param);
    u32 end = BUCKETS * (part + 1) / part_count;
    for (u32 bucket = BUCKETS * part / part_count; bucket < end; bucket++) {
        if (parts->cancel->load(std::memory_order_relaxed))
            break;
        u32 start = bucket != 0 ? parts->bucket_ends[bucket - 1] : 0;
        _db_find_in_bucket(parts, parts->entries + start, parts->entries + parts->bucket_ends[bucket]);
    }
}

static void _db_find_name_parts(db_query_t *query, const array_t *files, db_item_set_t *set) {
    u32 bucket_ends[BUCKETS];
    _db_name_parts_t parts = {static_cast<_db_part_entry_t *>(
                                  mem_alloc(static_cast<size_t>(files->count) * sizeof(_db_part_entry_t))),
                              bucket_ends, &query->cancel_search, set};
    db_walk_t walk = {files, _db_hash_proc, &parts, &query->cancel_search, false};
    db_walk(&walk);
    if (!query->cancel_search) { // all entries are there
        _db_deal(&parts, files->count);
        os_parallel(os_get_thread_count(files->count, 65536), _db_buckets_proc, &parts);
    }
    mem_free(parts.entries);
}

// --- The set -----------------------------------------------------------------------------------------------

db_item_set_t *db_search_find_dupes(db_query_t *query, u32 family, bool is_folder) {
    db_array_pair_t arrays = db_get_sorted_arrays(query->db, _db_get_dupe_flag(family));
    const array_t *items = is_folder ? arrays.folders : arrays.files;
    db_item_set_t *set = db_item_set_create(items);
    if (family == DB_OP_DUPE_NAME_PART && !is_folder) {
        _db_find_name_parts(query, items, set);
        return set;
    }
    _db_dupe_t dupe = {query->db, set};
    db_walk_proc_t *proc =
        is_folder ? _db_get_neighbours_proc<true>(family) : _db_get_neighbours_proc<false>(family);
    db_walk_t walk = {items, proc, &dupe, &query->cancel_search, false};
    db_walk(&walk);
    return set;
}

} // namespace findwright
