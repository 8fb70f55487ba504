// The scan: runs a query's executable terms over an array of the database, page by page, on one thread or
// several.
//
// Threads: each worker owns its db_scan_t (path buffer, regular expression state, result array); the terms,
// the records and the scan array are read only. Nothing in a scan locks or logs, and nothing allocates but a
// new result page, a longer path, and once what a thread remembers (query/db_search_memo.h).
#pragma once

#include "base/utf8_buf.h"
#include "base/utf8_match.h"
#include "query/db_query.h"
#include "query/db_search_memo.h"
#include "query/db_search_word.h"

namespace findwright {

// The bytes that the vector scan looks for, of a folded text.
db_needle_t db_make_needle(utf8_mode_t mode, const char *text, u32 length);

// What one thread of a pass works with.
struct db_scan_t {
    db_query_t *query;
    const db_t *db;
    const array_t *scan_array;
    const db_exec_term_t *first_term;
    const db_word_filter_t *filter; // on the words of the scan array; 0: it has none, or all pass
    u64 exact_word;                 // not 0: a word that has this bit is the answer, unless it has all bits
    u32 first_page, end_page;
    array_t results; // of this worker's pages
    utf8_buf_t path;
    void *regex_match;    // made when the pass has a regular expression
    db_scan_memo_t *memo; // 0 until a test asks for it (db_scan_get_memo)
    bool is_single;       // for one item now and then: nothing about places is remembered
};
// A scan without a pass: for single items, by their records as they are when they are tested.
void db_scan_init(db_scan_t *scan, db_query_t *query, bool needs_regex);
void db_scan_kill(db_scan_t *scan);
// Whether the terms, from the first one on, find an item.
bool db_scan_test_item(db_scan_t *scan, const db_exec_term_t *first_term, const db_item_t *item);
inline db_scan_memo_t *db_scan_get_memo(db_scan_t *scan) {
    if (!scan->memo) [[unlikely]]
        scan->memo = db_scan_memo_create();
    return scan->memo;
}

// The functions of an op for one of the two passes. Some ops answer otherwise in a chain than alone; those
// that a pass does not know are the constant that the pass has for them.
struct db_op_functions_t {
    db_item_test_t *test;
    db_page_scan_t *scan;
};
struct db_op_pass_t {
    bool is_folder; // the folder pass
    bool is_single; // the pass has one term
};
db_op_functions_t db_op_get_functions(u32 op, db_op_pass_t pass);
// Those of the families that lead through folders of the index: anchors, components, and texts that are
// looked for in paths (db_search_path.cpp); 0 in both for others.
db_op_functions_t db_op_get_path_functions(const db_exec_term_t *term, db_op_pass_t pass);
// Those of the families that test no text of names and paths (db_search_function.cpp); 0 in both for others.
db_op_functions_t db_op_get_function_functions(u32 op, db_op_pass_t pass);
// A scan for any test.
u32 db_scan_by_test(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out);
// How a family that tests texts does so; 0 for others.
db_text_test_t *db_op_get_text_test(u32 op);

// Before the threads of a pass start: fills what terms of the pass need to know of all items.
// `is_narrowed`: it scans few items only.
void db_search_prepare(db_query_t *query, db_exec_term_t *terms, bool is_folder, bool is_narrowed);
// The parts of it for texts in components, and for functions (db_search_function_prepare.cpp).
void db_search_prepare_path(db_query_t *query, db_exec_term_t *term, bool is_folder);
void db_search_prepare_function(db_query_t *query, db_exec_term_t *term, bool is_folder);
// After the passes: frees the sets of folders that were filled for paths. They tell of the moment of the
// search; without them the chain of an item's parents is climbed.
void db_search_free_folders(db_query_t *query);

// Where a term that must match leaves only few items, those, in name order, in place of the whole array: true
// when `narrowed`, which is then the caller's, is to be scanned instead (db_search_narrow.cpp).
bool db_search_narrow(const db_query_t *query, const db_exec_term_t *first_term, bool is_folder,
                      array_t *narrowed);

// The scans of a plain substring over the names of one page, by mode and instruction set: the reason why a
// search takes milliseconds. A scan's `term->needle` is set. Results as of db_page_scan_t, not negated. They
// read beyond a name's end, 64 bytes and the term's length: that stays inside the arena and the slack behind
// its blocks.
inline constexpr u32 DB_FIND_MAX = 256; // bytes of a term that is searched by vectors
static_assert(64 + DB_FIND_MAX <= MEM_ARENA_SLACK);
// References that stand behind the `count` values of a page when it is scanned: the first ones of the next
// page, so that the memory can be asked for their records early.
inline constexpr u32 DB_SCAN_AHEAD = 40;
struct db_find_scans_t {
    db_page_scan_t *scans[5][2]; // by utf8_mode_t, whole word
};
extern const db_find_scans_t db_find_scans_sse2;
extern const db_find_scans_t db_find_scans_avx2;
// Those of this processor, chosen once.
const db_find_scans_t *db_find_scans_get();
// Tests only: takes one of the tables in place of the processor's own; 0 goes back.
void db_find_scans_set(const db_find_scans_t *scans);

} // namespace findwright
