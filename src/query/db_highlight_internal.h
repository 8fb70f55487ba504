// Between the two files of the highlighting: db_highlight.cpp finds the terms that decided, and
// db_highlight_mark.cpp marks what they matched.
#pragma once

#include "query/db_query_internal.h"
#include "query/db_search.h"

namespace findwright {

// One item on the way.
struct db_marks_t {
    db_scan_t scan; // what the terms' tests work with
    const db_item_t *item;
    utf8_buf_t path; // the full path
    u32 name_start;  // the bytes in front of the name in it
    utf8_buf_t map;  // as many bytes, 1 where the path is marked
};

// Marks what a term that matched the item did match.
void db_mark_term(db_marks_t *marks, const db_exec_term_t *term);

} // namespace findwright
