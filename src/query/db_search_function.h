// What the files of the functions' ops share: the walk over a whole array that the pre-passes take.
#pragma once

#include "db/db_item_set.h"
#include "query/db_search.h"
#include "query/db_search_word.h"

namespace findwright {

// Records that are asked of the memory before they are needed.
inline constexpr u32 DB_WALK_AHEAD = 40;
// Threads of a walk at the most: some keep sets of their own.
inline constexpr u32 DB_WALK_THREADS_MAX = 8;

// One page of an array that is walked.
struct db_walk_page_t {
    const u32 *values;
    u32 count;
    u32 first_index;   // the place of the first value in the array; with a filter not known
    u32 part;          // of the walk: less than db_walk_get_thread_count
    mem_ref_t before;  // the last value of the page in front; 0 for none, and with a filter
    void *regex_match; // of the thread; 0 unless it was asked for
};
using db_walk_proc_t = void(void *param, const db_walk_page_t *page);

struct db_walk_t {
    const array_t *items;
    db_walk_proc_t *proc;
    void *param;
    const std::atomic<u32> *cancel; // looked at before each page; 0: the walk is not to be broken off
    bool needs_regex;
    const db_word_filter_t *filter; // 0 for none: of arrays with words, only the values that it lets through
    u32 threads;                    // 0: as many as pay
};
u32 db_walk_get_thread_count(const array_t *items);
// Gives every page to `proc`, on several threads where it pays: parts of the array, each from its front on.
void db_walk(const db_walk_t *walk);

// The value that stands DB_WALK_AHEAD places behind, or the last one of the page.
inline mem_ref_t db_walk_ahead(const db_walk_page_t *page, u32 i) {
    return page->values[i + DB_WALK_AHEAD < page->count ? i + DB_WALK_AHEAD : page->count - 1];
}

// One set for each thread of a walk, so that adding takes no locked instruction; the first is the result.
struct db_item_sets_t {
    u32 count;
    db_item_set_t *sets[DB_WALK_THREADS_MAX];
};
// For items that are walked.
void db_item_sets_init(db_item_sets_t *sets, const array_t *items);
// Puts all into one set, which is the caller's then.
db_item_set_t *db_item_sets_finish(db_item_sets_t *sets);

// Files whose name without its extension another one has, too (db_search_name_part.cpp).
void db_search_find_name_parts(db_query_t *query, const array_t *files, db_item_sets_t *sets);
// The set for a term of one of the duplicate ops, filled; in part only when the search was cancelled.
db_item_set_t *db_search_find_dupes(db_query_t *query, u32 family, bool is_folder);

} // namespace findwright
