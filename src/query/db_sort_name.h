// The names of the orders of results, as users write them: "name", "date-modified". A name says nothing of
// the direction.
//
// Constants: any thread may call.
#pragma once

#include "base/types.h"

namespace findwright {

// The name of a sort code's order; empty for no sort code. Also of orders that no database can give yet.
const char *db_sort_get_name(u32 sort);
// The ascending code of a name, in capitals or not. False, and 0, for no name of an order.
bool db_sort_find_name(const char *name, u32 *sort);

} // namespace findwright
