// The orders of a database's arrays, checked against the comparisons that define them.
#pragma once

#include "db/db.h"

namespace findwright {

// Every array that the layout has holds every item once, and each two neighbours in strict order. A failure
// is the running test's.
void test_check_orders(db_t *db);

} // namespace findwright
