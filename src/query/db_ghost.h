// Ghosts: items that a query goes on showing when they have stopped being results, so that a selection that
// somebody works on does not vanish. They were selected when db_ghost_selection was called, and are among the
// results of every search from then on, until db_clear_ghosts.
//
// Main thread; all calls wait for the worker, and do nothing while the database is not loaded.
#pragma once

#include "query/db_query.h"

namespace findwright {

// The items that are selected now become the ghosts, in place of earlier ones.
void db_ghost_selection(db_query_t *query);
bool db_is_ghost_result(db_query_t *query, i32 index);
// They stay in the results until the next search.
void db_clear_ghosts(db_query_t *query);
// An item goes, or all members of two sets; or its record is replaced by another one.
void db_ghost_remove(db_query_t *query, const db_item_t *item);
void db_ghost_remove_many(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files);
void db_ghost_move(db_query_t *query, const db_item_t *item, const db_item_t *to);

} // namespace findwright
