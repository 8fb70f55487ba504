// The compiled terms of a search as text, for a person who wonders why something does or does not match.
//
// One line per term: its number, what it tests, its op code, and where a match and a failure lead. The form
// for files and that for folders are compiled apart; the folders' is told where it differs.
//
//        1  find "report"     op 2    match -> 3       else -> 2
//        2  find "invoice"    op 2    match -> 3       else -> no
//        3  size 1048577..    op 200  match -> result  else -> no   (folders: false)
//
// Main thread; waits for the database's worker. The query is not changed.
#pragma once

#include "base/utf8_buf.h"
#include "query/db_query.h"

namespace findwright {

// Replaces the content of `out` by the lines of the query's last search, each with its end; none before the
// first search. Texts are as they are compared: folded, paths with `\`, a quote doubled, control characters
// and what is no UTF-8 as \xNN. Dates are local.
void db_query_explain(db_query_t *query, utf8_buf_t *out);

} // namespace findwright
