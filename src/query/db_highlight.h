// Which characters of a result's name and path a search matched.
//
// The answer is a text and the runs of it that are marked, so that each owner sets them off in its own way:
// escape codes on a terminal, another font in a list, tags in a page. The search's compiled terms are run
// once more on the one item. What decided that it is a result is marked: of alternatives the one that
// matched, and nothing of terms that are negated, that test columns, or that belong to the filter, which
// nobody typed.
//
// Main thread; the operations wait for the database's worker as all that read results do. The query is not
// changed. Terms live until the query's next search, and so does what can be asked here. The contents of
// files are not read again: a term on them is taken to match.
#pragma once

#include "base/utf8_buf.h"
#include "query/db_query.h"

namespace findwright {

struct db_highlight_run_t {
    u32 start, length; // bytes; never 0
};

// Runs stand in the order of the text, do not touch, and begin and end at characters.
// Owner: whoever called db_highlight_init, until db_highlight_kill; to be used for any number of results.
struct db_highlight_t {
    utf8_buf_t text;
    db_highlight_run_t *runs;
    u32 run_count, run_capacity;
};
void db_highlight_init(db_highlight_t *highlight);
void db_highlight_kill(db_highlight_t *highlight);

enum db_highlight_form_t : u32 {
    DB_HIGHLIGHT_NAME = 0,
    DB_HIGHLIGHT_PATH = 1, // the folder's path, without the name
    DB_HIGHLIGHT_PATH_AND_NAME = 2,
};

// Fills the texts that the form asks for; the other one may be 0, and is not touched. A bad index gives empty
// texts.
void _db_get_highlighted_result(db_query_t *query, i32 index, db_highlight_t *out_name,
                                db_highlight_t *out_path, u32 form);
// Both in one text. A run may go over the separator between them.
void db_get_highlighted_full_path_name(db_query_t *query, i32 index, db_highlight_t *out);

} // namespace findwright
