// References that stay with an item of a query's results, whatever becomes of their order: the focused row,
// the row that a range began at.
//
// A reference lives from db_itemref_create to db_itemref_destroy; those that name an item are in a list of
// the query. The query's end empties the references that are left, and they can still be destroyed. Main
// thread; all calls wait for the worker.
#pragma once

#include "query/db_query.h"

namespace findwright {

struct db_itemref_t {
    db_itemref_t *next, *prev;
    mem_ref_t item; // 0: an empty reference
    bool is_folder;
    i32 index; // its place in the results; -1: not known, -2: it was looked for and is none of them
};

// An empty reference.
db_itemref_t *db_itemref_create(db_query_t *query);
void db_itemref_destroy(db_query_t *query, db_itemref_t *itemref);
// The item's result index now; -1 for an empty reference and for an item that is not among the results.
i32 db_itemref_get(db_query_t *query, db_itemref_t *itemref);
// Makes it name the item at a result index; a bad index empties it.
void db_itemref_set(db_query_t *query, db_itemref_t *itemref, i32 index);

// --- For the code that changes results ---------------------------------------------------------------------

// Empties all references.
void db_itemref_clear_all(db_query_t *query);
// New results, or another order: no index is known any more.
void db_itemref_forget_indexes(db_query_t *query);
// An item goes, or its record is replaced by another one.
void db_itemref_item_removed(db_query_t *query, const db_item_t *item);
void db_itemref_items_removed(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files);
void db_itemref_item_moved(db_query_t *query, const db_item_t *item, const db_item_t *to);

} // namespace findwright
