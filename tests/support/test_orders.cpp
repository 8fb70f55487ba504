#include "support/test_orders.h"

#include "support/db_compare.h"

#include <gtest/gtest.h>

namespace findwright {

void test_check_orders(db_t *db) {
    EXPECT_EQ(db_check_whole(db), "");
}

} // namespace findwright
