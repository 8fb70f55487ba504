// What is opened while results are shown: open queries in the orders of the run history, and with terms that
// ask for it, hold what a fresh search gives.
#include "os/event.h"
#include "os/os_test_support.h"
#include "query/db_query_ops.h"
#include "support/test_search.h"
#include "track/db_run_history.h"

#include <random>

using namespace findwright;

namespace {

struct view_t {
    const char *search;
    u32 sort;
    db_query_t *query;
};

void search(view_t *view) {
    db_query_params_t params = {};
    params.search = view->search;
    params.filter_search = "";
    params.sort = view->sort;
    db_query_search(view->query, &params);
    db_get_result_count(view->query); // waits
}

// Two sources of the same paths, so that one path is several items.
db_t *make_db() {
    std::vector<std::string> paths;
    for (char name = 'a'; name <= 'p'; name++)
        paths.push_back(std::string("dir") + static_cast<char>(name % 4 + '0') + "\\" + name);
    test_volume_t one = test_volume_from_paths(paths), two = one;
    return test_db_create({one, two}, 0);
}

TEST(DbRunCount, OpenResultsFollow) {
    temp_folder_t folder;
    std::string file = folder / "Run History.csv";
    db_run_history_set_file(file.c_str());
    db_t *db = make_db();
    std::vector<view_t> views = {
        {"", DB_SORT_RUN_COUNT_ASCENDING, nullptr},
        {"", DB_SORT_RUN_COUNT_ASCENDING | DB_SORT_DESCENDING, nullptr},
        {"", DB_SORT_DATE_RUN_ASCENDING | DB_SORT_DESCENDING, nullptr},
        {"runcount:>1", DB_SORT_NAME_ASCENDING, nullptr},
        {"runcount:0", DB_SORT_DATE_RUN_ASCENDING, nullptr},
    };
    for (view_t &view : views) {
        view.query = db_query_create(db, false, nullptr, nullptr);
        search(&view);
    }
    std::mt19937 engine(3);
    for (int step = 0; step < 300; step++) {
        db_query_t *query = views[1].query; // shows all
        db_deselect_all(query);
        for (u32 i = 0; i < 1 + engine() % 3; i++)
            db_select_result(query, static_cast<i32>(engine() % db_get_result_count(query)));
        bool add = engine() % 2;
        if (step % 50 == 49) {
            run_history_enabled = 0;
            EXPECT_TRUE(db_run_history_changed(db));
        } else if (step % 50 == 25) {
            EXPECT_TRUE(db_run_history_delete(db));
        } else {
            db_set_selection_run_count(query, add, static_cast<u32>(engine() % 4));
        }
        for (int round = 0; round < 2; round++) {
            event_dispatch();
            for (view_t &view : views) {
                view_t fresh = view;
                fresh.query = db_query_create(db, false, nullptr, nullptr);
                search(&fresh);
                EXPECT_EQ(test_result_paths(view.query), test_result_paths(fresh.query))
                    << "step " << step << " search '" << view.search << "' sort " << view.sort;
                db_destroy_query(fresh.query);
            }
            if (run_history_enabled)
                break;
            run_history_enabled = 1; // and back, with what was saved
            EXPECT_TRUE(db_run_history_changed(db));
        }
        if (testing::Test::HasFailure())
            break;
    }
    for (view_t &view : views)
        db_destroy_query(view.query);
    db_destroy(db);
    db_run_history_set_file(nullptr);
}

} // namespace
