// What references and ghosts do when an item goes, or gets another record.
#include "query/db_itemref.h"

#include "query/db_ghost.h"
#include "query/db_selection.h"
#include "support/test_search.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

TEST(DbItemref, FollowsItsItem) {
    test_search_t search({"a", "b", "c"});
    db_query_t *query = search.query;
    ASSERT_EQ(4u, search.run(""));
    db_itemref_t *first = db_itemref_create(query), *second = db_itemref_create(query);
    db_itemref_set(query, first, 1);
    db_itemref_set(query, second, 2);
    const db_item_t *b = db_get_result_item(query, 2), *c = db_get_result_item(query, 3);
    db_itemref_item_moved(query, b, c);
    EXPECT_EQ(1, db_itemref_get(query, first));
    EXPECT_EQ(3, db_itemref_get(query, second));
    db_itemref_item_removed(query, c);
    EXPECT_EQ(1, db_itemref_get(query, first));
    EXPECT_EQ(-1, db_itemref_get(query, second));
    db_itemref_destroy(query, second);
    db_itemref_destroy(query, first);
}

TEST(DbGhost, OfAnItemThatGoesIsNone) {
    test_search_t search({"a", "b\\"});
    db_query_t *query = search.query;
    ASSERT_EQ(3u, search.run("")); // the root, b, a
    db_select_all(query);
    db_ghost_selection(query);
    EXPECT_EQ(3u, search.run("nowhere")); // they stay
    const db_item_t *b = db_get_result_item(query, 1), *a = db_get_result_item(query, 2);
    db_ghost_remove(query, b);
    EXPECT_FALSE(db_is_ghost_result(query, 1));
    EXPECT_TRUE(db_is_ghost_result(query, 2));
    EXPECT_EQ(2u, search.run("nowhere"));
    db_ghost_remove(query, a);
    EXPECT_EQ(1u, search.run("nowhere"));
    db_clear_ghosts(query);
    EXPECT_EQ(0u, search.run("nowhere"));
}

} // namespace
} // namespace findwright
