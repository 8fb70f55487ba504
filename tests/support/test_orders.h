// A database's arrays, checked by a test that goes on to something else.
#pragma once

#include "db/db.h"

namespace findwright {

// db_check_whole (support/db_compare.h); a fault is the running test's failure.
void test_check_orders(db_t *db);

} // namespace findwright
