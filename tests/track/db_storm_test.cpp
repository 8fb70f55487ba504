// A storm on a real folder tree, while searches and sorts run on its index: at each pause the index and every
// open result must be what a fresh build, and a fresh search, give.
//
// By hand, for longer:
//     FINDWRIGHT_STORM_SECONDS=3600 FINDWRIGHT_STORM_SEED=7 track_tests --gtest_filter=DbStorm.*
// FINDWRIGHT_STORM_LOG names a file for the debug log, with every change and every event.
// The seed of each burst is in its failure; FINDWRIGHT_STORM_BURST is the number of changes of the largest.
#include "db/db_file.h"
#include "os/event.h"
#include "os/os_test_support.h"
#include "os/os_watch_test_support.h"
#include "query/db_live_result.h"
#include "query/db_query.h"
#include "support/db_compare.h"
#include "support/folder_world.h"
#include "support/test_db.h"
#include "track/db_folder_update.h"
#include "track/db_monitor_folder.h"

#include <cstdio>
#include <cstdlib>
#include <thread>

namespace findwright {
namespace {

using clock_t = std::chrono::steady_clock;

constexpr u32 FLAGS = TEST_FLAGS_ALL & ~(DB_FLAG_DATE_ACCESSED | DB_FLAG_FAST_DATE_ACCESSED);
constexpr u32 SECONDS = 8; // of each test of the suite
constexpr u32 BURST = 400;
constexpr u32 PATIENCE = 60; // seconds for a result to become what it must

u32 get_number(const char *name, u32 standard) {
    const char *text = std::getenv(name);
    return text ? static_cast<u32>(std::strtoul(text, nullptr, 10)) : standard;
}

// Searches that are held open; orders that have arrays and orders that have none.
const struct {
    const char *search;
    u32 sort, filter_flags;
} searches[] = {
    {"", DB_SORT_NAME_ASCENDING, 0},
    {"n1", DB_SORT_SIZE_ASCENDING + DB_SORT_DESCENDING, 0},
    {"case", DB_SORT_PATH_ASCENDING, 0},
    {"ext:txt", DB_SORT_DATE_MODIFIED_ASCENDING + DB_SORT_DESCENDING, 0},
    {"size:>2000", DB_SORT_SIZE_ASCENDING, 0},
    {"folder:", DB_SORT_DATE_CREATED_ASCENDING, 0},
    {"\\a\\", DB_SORT_EXTENSION_ASCENDING, 0},
    {"!n", DB_SORT_ATTRIBUTES_ASCENDING, 0},
    {"empty:", DB_SORT_NAME_ASCENDING, 0},
    {"dupe:", DB_SORT_NAME_ASCENDING + DB_SORT_DESCENDING, 0},
    {"rc:today", DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING, 0},
};
constexpr u32 SEARCHES = static_cast<u32>(std::size(searches));

struct storm_t {
    temp_folder_t folder;
    tree_storm_t hand;
    folder_settings_t settings;
    db_t *db;
    db_query_t *queries[SEARCHES];
    u32 sorts[SEARCHES];
    std::mt19937 random;
};

void search(db_query_t *query, const char *text, u32 sort) {
    db_query_params_t params = {};
    params.search = text;
    params.filter_search = "";
    params.sort = sort;
    params.calculate_total_size = true;
    db_query_search(query, &params);
}

void start(storm_t *storm, u32 seed, bool is_followed) {
    db_result_search_interval = 100000;
    storm->random.seed(seed);
    os_create_folder((storm->folder / "root").c_str());
    storm->settings.paths = {storm->folder / "root"};
    storm->settings.flags = FLAGS;
    storm->settings.exclude_folders = {"skip", "*\\b\\a"};
    storm->settings.exclude_files = {"*.tmp"};
    tree_storm_create(&storm->hand, storm->folder.path / "root", seed);
    tree_storm_burst(&storm->hand, 500);
    storm->db = folder_db_create(&storm->settings);
    folder_db_get_index(storm->db)->monitor = is_followed;
    storm->hand.writes_links = !is_followed;
    db_monitor_folder_interval = db_monitor_folder_data_interval = 50;
    db_monitor_folders_start(storm->db);
    for (u32 i = 0; i < SEARCHES; i++) {
        storm->sorts[i] = searches[i].sort;
        storm->queries[i] = db_query_create(storm->db, false, nullptr, nullptr);
        search(storm->queries[i], searches[i].search, searches[i].sort);
    }
}

void stop(storm_t *storm) {
    for (db_query_t *query : storm->queries)
        db_destroy_query(query);
    db_monitor_folders_stop(storm->db);
    folder_db_destroy(storm->db);
    db_monitor_folder_interval = 1000;
    db_monitor_folder_data_interval = 250;
    db_result_search_interval = DB_RESULT_SEARCH_INTERVAL;
}

// What a user does meanwhile.
void use(storm_t *storm) {
    const u32 place = static_cast<u32>(storm->random() % SEARCHES);
    db_query_t *query = storm->queries[place];
    switch (storm->random() % 4) {
    case 0: search(query, searches[place].search, storm->sorts[place]); break;
    case 1:
        storm->sorts[place] = static_cast<u32>(storm->random() % DB_SORT_FILE_LIST_FILENAME_ASCENDING);
        db_sort(query, storm->sorts[place]);
        break;
    case 2: // reads some rows
        for (u32 i = 0, count = db_get_result_count(query); i < count; i += 7) {
            utf8_buf_t path;
            utf8_buf_init(&path);
            db_get_result_full_path_name(query, static_cast<i32>(i), &path);
            utf8_buf_kill(&path);
        }
        break;
    default: break;
    }
}

// Changes on disk by one thread, while the main loop runs.
void blow(storm_t *storm, u32 count) {
    std::atomic<bool> is_over = false;
    std::thread thread([&] {
        tree_storm_burst(&storm->hand, count);
        is_over = true;
    });
    while (!is_over) {
        event_wait_and_dispatch(2);
        if (db_is_ready(storm->db) && storm->random() % 4 == 0)
            use(storm);
    }
    thread.join();
}

// Empty when the results are those of a search that runs now.
std::string compare_results(storm_t *storm, u32 place) {
    db_query_t *query = storm->queries[place];
    db_query_t *fresh = db_query_create(storm->db, false, nullptr, nullptr);
    search(fresh, searches[place].search, storm->sorts[place]);
    const std::vector<std::string> expected = test_result_paths(fresh), paths = test_result_paths(query);
    std::string problem;
    for (size_t i = 0; i < expected.size() && problem.empty(); i++) {
        if (i >= paths.size() || paths[i] != expected[i])
            problem =
                std::to_string(i) + ": " + expected[i] + ", not " + (i < paths.size() ? paths[i] : "the end");
    }
    if (problem.empty() && paths.size() != expected.size())
        problem = "too much: " + paths[expected.size()];
    if (problem.empty() && db_query_get_total_result_size(query) != db_query_get_total_result_size(fresh))
        problem = "total size " + std::to_string(db_query_get_total_result_size(query)) + ", not " +
                  std::to_string(db_query_get_total_result_size(fresh));
    db_destroy_query(fresh);
    if (!problem.empty())
        problem = std::string("'") + searches[place].search + "' in order " +
                  std::to_string(storm->sorts[place]) + ": " + problem;
    return problem;
}

// Searches that have to be run again are given their time.
std::string check_results(storm_t *storm) {
    const auto end = clock_t::now() + std::chrono::seconds(PATIENCE);
    for (u32 i = 0; i < SEARCHES; i++) {
        std::string problem;
        while (!(problem = compare_results(storm, i)).empty()) {
            if (clock_t::now() > end)
                return problem;
            event_wait_and_dispatch(20);
        }
    }
    return "";
}

class DbStorm : public testing::Test {
  protected:
    // Bursts until the time is over. `settle` waits until the index is true, and tells what is not.
    template<class settle_t>
    void run(bool is_followed, settle_t settle) {
        const u32 seed = get_number("FINDWRIGHT_STORM_SEED", 1);
        const auto end =
            clock_t::now() + std::chrono::seconds(get_number("FINDWRIGHT_STORM_SECONDS", SECONDS));
        const u32 burst = get_number("FINDWRIGHT_STORM_BURST", BURST);
        u32 pauses = 0, last = seed;
        const auto is_over = [&] { return clock_t::now() >= end && pauses >= 2; }; // on a slow machine, too
        if (const char *log = std::getenv("FINDWRIGHT_STORM_LOG")) {
            debug_log_open(log);
            debug_verbose = true;
        }
        for (u32 world = seed; !is_over(); world++) { // a tree gets ever stranger: not for too long
            storm_t storm;
            start(&storm, last = world, is_followed);
            for (u32 turn = 0; turn < 60 && !is_over(); turn++, pauses++) {
                blow(&storm, turn % 4 == 3 ? 1 : 1 + static_cast<u32>(storm.random() % burst));
                ASSERT_EQ(settle(&storm), "") << "seed " << world << " turn " << turn;
                ASSERT_EQ(check_results(&storm), "") << "seed " << world << " turn " << turn;
            }
            stop(&storm);
        }
        if (std::getenv("FINDWRIGHT_STORM_SECONDS"))
            std::printf("%u pauses, the last seed was %u\n", pauses, last);
    }
};

TEST_F(DbStorm, ScansMakeTheIndexTrue) {
    run(false, [](storm_t *storm) {
        folder_db_rescan(storm->db);
        return folder_db_check(storm->db, &storm->settings);
    });
}

// The system may tell of a change a while after it, so that the index is given its time; but it must get
// there by itself.
TEST_F(DbStorm, MonitorsKeepTheIndexTrue) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    run(true, [](storm_t *storm) {
        const auto end = clock_t::now() + std::chrono::seconds(PATIENCE);
        for (;;) {
            do
                event_wait_and_dispatch(20);
            while (db_monitor_folder_is_busy(storm->db) || db_folder_update_is_busy(storm->db) ||
                   !db_is_ready(storm->db));
            std::string problem = folder_db_check(storm->db, &storm->settings);
            if (problem.empty() || clock_t::now() > end)
                return problem;
        }
    });
}

} // namespace
} // namespace findwright
