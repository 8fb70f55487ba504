// Single promises of open results: who is told of what, when a search is run again, and what is known of a
// file that changes. What the results hold is the model's (db_live_result_model_test.cpp).
#include "db/db_exclude.h"
#include "os/event.h"
#include "query/db_ghost.h"
#include "query/db_live_result.h"
#include "query/db_query_internal.h"
#include "query/db_result_info.h"
#include "query/db_selection.h"
#include "support/live_world.h"
#include "support/test_db.h"
#include "track/db_run_history.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

constexpr u32 HOUR = 3'600'000'000;
constexpr u32 SOME_COLUMNS = DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED;

struct live_list_t {
    live_world_t world;
    db_folder_t *root;
    db_query_t *query;
    u32 results_changed = 0, info_changed = 0;

    explicit live_list_t(u32 flags = SOME_COLUMNS) {
        live_world_create(&world, flags, DB_INDEX_TYPE_FOLDER, false, 1);
        root = static_cast<db_folder_t *>(live_world_find(&world, world.root));
        query = db_query_create(world.db, false, notified, this);
    }
    ~live_list_t() {
        db_destroy_query(query);
        live_world_destroy(&world);
        db_result_search_interval = DB_RESULT_SEARCH_INTERVAL;
        extended_information_cache_monitor = 1;
    }
    static void notified(void *param, u32 code) {
        live_list_t *list = static_cast<live_list_t *>(param);
        list->results_changed += code == DB_QUERY_RESULTS_CHANGED;
        list->info_changed += code == DB_QUERY_INFO_CHANGED;
    }

    db_file_t *add(const std::string &name, u64 size = 1, db_folder_t *folder = nullptr) {
        db_file_info_t info = {size, 1, 1, 1, 0x20};
        return db_file_add(world.db, world.index, folder ? folder : root, name.data(),
                           static_cast<u32>(name.size()), &info, 1);
    }
    db_folder_t *add_folder(const std::string &name) {
        db_file_info_t info = {0, 1, 1, 1, 0x10};
        return db_folder_add(world.db, world.index, root, name.data(), static_cast<u32>(name.size()), &info,
                             1);
    }
    void update(db_file_t *file, u64 size, u64 modified) {
        db_file_info_t info = {size, modified, 1, 1, 0x20};
        db_file_update_info(world.db, file, &info, 1);
    }
    void search(const char *text, u32 sort = DB_SORT_NAME_ASCENDING) {
        db_query_params_t params = {};
        params.search = text;
        params.filter_search = "";
        params.sort = sort;
        db_query_search(query, &params);
        test_db_wait(world.db);
        results_changed = info_changed = 0;
    }
    bool is_stale() const { return query->live_result->is_stale; }
    void run_posted_search() { event_post(_db_result_search_proc, static_cast<db_query_link_t *>(query)); }
};

TEST(DbLiveResult, TheOwnerIsToldOnceAndOnlyOfWhatItShows) {
    live_list_t list;
    db_file_t *file = list.add("a.txt");
    list.search("a");
    list.update(file, 5, 5); // neither the order nor the terms look at that
    event_dispatch();
    EXPECT_EQ(0u, list.results_changed);
    EXPECT_EQ(1u, list.info_changed);
    list.add("bb");
    event_dispatch();
    EXPECT_EQ(0u, list.results_changed);
    list.add("ab");
    list.add("aa");
    event_dispatch();
    EXPECT_EQ(1u, list.results_changed);
    EXPECT_EQ(3u, db_get_result_count(list.query));

    db_query_params_t params = {};
    params.search = "zz";
    params.filter_search = "";
    db_query_search(list.query, &params); // a change of nothing that is found
    test_db_wait(list.world.db);
    list.results_changed = 0;
    db_file_remove_item(list.world.db, file);
    event_dispatch();
    EXPECT_EQ(0u, list.results_changed);
}

TEST(DbLiveResult, WhatGoesLeavesAtOnceAndTheRestWaitsForTheNewSearch) {
    live_list_t list;
    db_file_t *first = list.add("one");
    db_folder_t *folder = list.add_folder("f");
    list.add("one", 1, folder);
    db_file_t *other = list.add("two");
    db_result_search_interval = HOUR;
    list.search("file:dupe:");
    ASSERT_EQ(2u, db_get_result_count(list.query));
    list.add("two", 1, folder);
    EXPECT_TRUE(list.is_stale());
    event_dispatch();
    EXPECT_EQ(2u, db_get_result_count(list.query)); // as before
    db_file_remove_item(list.world.db, first);
    db_file_t *moved = db_file_rename(list.world.db, other, folder, "three", 5, 1);
    EXPECT_EQ(1u, db_get_result_count(list.query));
    event_dispatch();
    EXPECT_EQ(1u, list.results_changed);
    EXPECT_TRUE(list.is_stale());
    db_file_rename(list.world.db, moved, list.root, "two", 3, 1);

    // A search that comes due while another one runs is put off until that has ended.
    db_query_t *another = db_query_create(list.world.db, false, nullptr, nullptr);
    db_query_params_t params = {};
    params.search = "";
    db_query_search(another, &params);
    _db_result_search_proc(static_cast<db_query_link_t *>(list.query));
    EXPECT_TRUE(list.is_stale());
    while (list.is_stale())
        event_wait_and_dispatch(OS_INFINITE);
    test_db_wait(list.world.db);
    EXPECT_EQ(2u, db_get_result_count(list.query));
    db_destroy_query(another);
}

// Records come where others went while a query waits for its search.
TEST(DbLiveResult, RecordsThatTakeThePlaceOfOthersAreToldApart) {
    live_list_t list;
    list.world.db->run_history_loaded = 1;
    db_folder_t *folder = list.add_folder("f");
    db_file_t *first = list.add("one"), *second = list.add("one", 1, folder);
    db_run_history_set_item(list.world.db, second, false, 3, 3);
    db_result_search_interval = HOUR;
    list.search("file:dupe:", DB_SORT_RUN_COUNT_ASCENDING);
    ASSERT_EQ(1u, list.query->history_results.count);
    db_file_t *moved = db_file_rename(list.world.db, first, list.root, "two", 3, 1);
    EXPECT_TRUE(list.is_stale());
    db_file_t *next = list.add("new");
    ASSERT_EQ(first, next);
    db_file_remove_item(list.world.db, next);
    EXPECT_EQ((std::vector<std::string>{"C:\\two", "C:\\f\\one"}), test_result_paths(list.query));

    db_file_remove_item(list.world.db, moved);
    second = db_file_rename(list.world.db, second, folder, "abc", 3, 1);
    ASSERT_EQ(moved, second);
    db_run_history_set_item(list.world.db, second, false, 0, 0); // from the history to the rest
    EXPECT_EQ(std::vector<std::string>{"C:\\f\\abc"}, test_result_paths(list.query));
}

// What was a ghost is a result that the terms do not tell of, in orders that cannot be searched, too.
TEST(DbLiveResult, AGhostOfBeforeLeavesWhenItGoes) {
    for (u32 sort : {DB_SORT_NAME_ASCENDING, DB_SORT_TYPE_ASCENDING}) {
        live_list_t list;
        db_file_t *file = list.add("one");
        db_result_search_interval = HOUR;
        list.search("one", sort);
        db_select_result(list.query, 0);
        db_ghost_selection(list.query);
        file = db_file_rename(list.world.db, file, list.root, "two", 3, 1);
        list.run_posted_search();
        event_dispatch();
        test_db_wait(list.world.db);
        EXPECT_EQ(std::vector<std::string>{"C:\\two"}, test_result_paths(list.query));
        db_clear_ghosts(list.query);
        db_file_remove_item(list.world.db, file);
        EXPECT_EQ(0u, db_get_result_count(list.query));
    }
}

TEST(DbLiveResult, ASearchIsNotRepeatedBeforeItsTime) {
    live_list_t list;
    list.add_folder("f");
    db_result_search_interval = 20'000;
    list.search("empty:");
    u32 end = list.query->live_result->search_end;
    list.add_folder("g");
    while (list.is_stale())
        event_wait_and_dispatch(OS_INFINITE);
    EXPECT_GE(list.query->live_result->search_start - end, 20'000u);
    EXPECT_EQ(2u, db_get_result_count(list.query));
    test_db_wait(list.world.db);

    list.query->live_result->search_time = DB_RESULT_SEARCH_LIMIT + 1; // one that everybody waits long for
    list.add_folder("h");
    EXPECT_FALSE(event_wait_and_dispatch(100) && !list.is_stale());
    EXPECT_TRUE(list.is_stale());
    list.search("empty:");
    EXPECT_EQ(3u, db_get_result_count(list.query));
}

TEST(DbLiveResult, TermsLetGoOfAFolderThatGoes) {
    for (const char *text : {"C:\\f\\", "parent:C:\\f", "!C:\\f\\ 1"}) {
        SCOPED_TRACE(text);
        live_list_t list;
        db_folder_t *folder = list.add_folder("f");
        list.add("1", 1, folder);
        db_result_search_interval = HOUR;
        list.search(text);
        auto count_held = [&] {
            u32 held = 0;
            for (const db_exec_term_t *terms : {list.query->folder_terms, list.query->file_terms}) {
                const auto *anchors = terms ? static_cast<const db_anchors_t *>(terms->data) : nullptr;
                held += anchors ? anchors->inner_count : 0;
            }
            return held;
        };
        EXPECT_NE(0u, count_held());
        list.add_folder("elsewhere");
        EXPECT_FALSE(list.is_stale());
        db_folder_remove(list.world.db, folder);
        EXPECT_EQ(0u, count_held());
        EXPECT_TRUE(list.is_stale());
        list.add("1", 1, list.add_folder("f"));
        list.run_posted_search();
        event_dispatch();
        test_db_wait(list.world.db);
        EXPECT_FALSE(list.is_stale());
        EXPECT_EQ(text[0] == '!' ? 0u : 1u, db_get_result_count(list.query));
    }
}

TEST(DbLiveResult, WhatIsKnownOfAFileGoesWithItAndIsForgottenWhenItChanges) {
    live_list_t list(DB_FLAG_SIZE);
    db_file_t *file = list.add("a");
    list.search("");
    db_extended_info_t *known = list.query->extended_info;
    db_file_info_t info;
    auto read = [&] { return db_get_file_fileinfo(known, file, &info); };
    auto is_known = [&] { return db_extended_info_find(known, file, &info); };
    ASSERT_TRUE(read() && is_known());
    file = db_file_rename(list.world.db, file, list.root, "b", 1, 1);
    EXPECT_TRUE(is_known());
    EXPECT_EQ(0u, db_get_result_file_info_change(list.query, 1));
    list.update(file, 2, 2);
    EXPECT_FALSE(is_known());
    EXPECT_EQ(DB_INFO_FILE, db_get_result_file_info_change(list.query, 1));
    read();
    event_dispatch(); // the items that changed are told to the owner
    EXPECT_FALSE(is_known());
    EXPECT_EQ(1u, list.info_changed);
    EXPECT_EQ(0u, db_get_result_file_info_change(list.query, 1));
    extended_information_cache_monitor = 0;
    read();
    list.update(file, 3, 3);
    event_dispatch();
    EXPECT_TRUE(is_known());
    db_file_remove_item(list.world.db, file);
    db_file_t *next = list.add("c"); // may have the same place
    file = next;
    EXPECT_FALSE(is_known());
}

} // namespace
} // namespace findwright
