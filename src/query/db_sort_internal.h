// What the two files of the sort share.
#pragma once

#include "query/db_result_internal.h"

namespace findwright {

// By the index's own array, or that of a history. False when the index has none for that order.
bool _db_sort_by_walk(db_query_t *query, u32 sort);
// Results that are few, and stand in name order, by their keys: faster than the walk, whose time is that of
// the index. False when that does not apply.
bool _db_sort_few(db_query_t *query, u32 sort);
// Any other order, by keys that may have to be read of the file system. What cancel_sort stops leaves the
// results in name order, with `sorted` cleared.
void _db_sort_by_gathering(db_query_t *query, u32 sort);

// Notes the order that the results have been brought to.
void _db_sort_set(db_query_t *query, u32 sort, db_history_kind_t kind);
// Turns the whole list round, the selection with it.
void _db_sort_reverse(db_query_t *query);

} // namespace findwright
