// Folder sources that are followed, on a real folder: judged by a fresh build of it.
#include "track/db_monitor_folder.h"

#include "db/db_folder.h"
#include "os/event.h"
#include "os/os_watch_test_support.h"
#include "support/db_compare.h"
#include "support/folder_world.h"
#include "support/test_db.h"
#include "track/db_folder_update.h"
#include "track/db_live.h"
#include "track/db_schedule.h"

#include <fstream>
#include <functional>

namespace findwright {
namespace {

namespace fs = std::filesystem;

// Listing a folder changes the date of its last access.
constexpr u32 FLAGS = TEST_FLAGS_ALL & ~(DB_FLAG_DATE_ACCESSED | DB_FLAG_FAST_DATE_ACCESSED);
constexpr u32 PATIENCE = 60000; // milliseconds, on a machine with much else to do

class DbMonitorFolder : public testing::Test {
  protected:
    void SetUp() override {
        root = folder / "root";
        disk = folder.path / "root";
        fs::create_directories(disk);
        settings.paths = {root};
        settings.flags = FLAGS;
        folder_update_thread_mode_background = 0;
        db_monitor_folder_interval = 20;
        db_monitor_folder_data_interval = 5;
    }
    void TearDown() override {
        if (db) {
            db_monitor_folders_stop(db);
            folder_db_destroy(db);
        }
        folder_update_thread_mode_background = 1;
        db_monitor_folder_interval = 1000;
        db_monitor_folder_data_interval = 250;
        db_monitor_folder_slice = 20;
        db_monitor_folder_watch_limit = 0;
        db_monitor_folder_limit_retry = 600000;
        monitor_retry_milliseconds = 30000;
        db_folder_update_done = nullptr;
    }

    void start() {
        if (!db)
            db = folder_db_create(&settings);
        folder_db_get_index(db)->monitor = 1;
        folder_db_get_index(db)->update_type = DB_SCHEDULE_NEVER;
        db_monitor_folders_start(db);
        settle();
    }
    bool is_busy() const {
        return db_monitor_folder_is_busy(db) || db_folder_update_is_busy(db) || !db_is_ready(db);
    }
    bool has(const std::string &name) const {
        const std::string full = root + "\\" + name;
        auto length = static_cast<u32>(full.size());
        return db_file_find_path(db, folder_db_get_index(db), full.c_str(), length) ||
               db_folder_find_path(db, folder_db_get_index(db), full.c_str(), length);
    }
    template<class Test>
    void wait_for(Test test) {
        u32 start = os_get_tick_count();
        while (!test()) {
            ASSERT_LT((os_get_tick_count() - start) / 1000, PATIENCE);
            event_wait_and_dispatch(100);
        }
    }
    // Until all that has happened is in the index.
    void settle() {
        wait_for([&] { return !is_busy(); });
        std::ofstream(disk / "the end") << "";
        wait_for([&] { return !is_busy() && has("the end"); });
        fs::remove(disk / "the end");
        wait_for([&] { return !is_busy() && !has("the end"); });
    }
    std::string check() { return folder_db_check(db, &settings); }
    void write(const std::string &name, size_t size = 4) {
        std::ofstream(disk / name) << std::string(size, 'x');
    }

    temp_folder_t folder;
    std::string root;
    fs::path disk;
    folder_settings_t settings;
    db_t *db = nullptr;
};

TEST_F(DbMonitorFolder, WhatHappensInAFolderIsInTheIndex) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    fs::create_directories(disk / "old" / "deep");
    fs::create_directories(folder.path / "away" / "tree" / "deep");
    std::ofstream(folder.path / "away" / "tree" / "deep" / "file") << "text";
    write("old/file");
    start();
    const struct {
        const char *what;
        std::function<void()> act;
    } rows[] = {
        {"nothing", [] {}},
        {"files come", [&] { write("old/new"), write("old/deep/new", 5000); }},
        {"a file grows", [&] { write("old/deep/new", 90000); }},
        {"a rename", [&] { fs::rename(disk / "old/new", disk / "old/deep/named"); }},
        {"a rename onto a file", [&] { fs::rename(disk / "old/deep/named", disk / "old/deep/new"); }},
        {"a tree at once",
         [&] {
             fs::create_directories(disk / "a/b/c/d");
             write("a/1"), write("a/b/2"), write("a/b/c/3"), write("a/b/c/d/4");
         }},
        {"a tree that is moved in", [&] { fs::rename(folder.path / "away/tree", disk / "a/tree"); }},
        {"renames of what was renamed, with changes in between",
         [&] {
             write("a/tree/deep/second");
             fs::rename(disk / "a", disk / "z");
             write("z/tree/deep/file", 70);
             write("z/b/c/new");
             fs::rename(disk / "z/b", disk / "old/b");
             write("old/b/c/new", 80);
             fs::create_directories(disk / "z/b");
             write("z/b/another");
         }},
        {"a temporary folder that is filled and given its name",
         [&] {
             fs::create_directories(disk / "tmp/sub");
             write("tmp/sub/file");
             fs::rename(disk / "tmp", disk / "final");
             write("final/sub/file", 99);
         }},
        {"the other kind in its place",
         [&] {
             fs::remove(disk / "old/deep/new");
             fs::create_directories(disk / "old/deep/new");
             write("old/deep/new/file");
             fs::remove_all(disk / "z/b");
             write("z/b");
         }},
        {"moved out", [&] { fs::rename(disk / "final", folder.path / "away/final"); }},
        {"removed", [&] { fs::remove_all(disk / "old"); }},
        {"attributes and dates",
         [&] {
             fs::permissions(disk / "z/b", fs::perms::owner_read);
             fs::last_write_time(disk / "z", fs::file_time_type::clock::now() - std::chrono::hours(1000));
         }},
        {"all gone",
         [&] {
             for (const auto &item : fs::directory_iterator(disk)) {
                 fs::permissions(disk / "z/b", fs::perms::owner_all);
                 fs::remove_all(item.path());
             }
         }},
    };
    for (const auto &row : rows) {
        row.act();
        settle();
        EXPECT_EQ(check(), "") << row.what;
    }
}

TEST_F(DbMonitorFolder, ARenameKeepsTheRecentChangeAndWhatIsBelow) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    fs::create_directories(disk / "a/b");
    write("a/b/file");
    db = folder_db_create(&settings);
    db->recent_changes = 1;
    start();
    write("a/b/file", 10);
    settle();
    EXPECT_EQ(db->recent_changes_by_item.count, 1u);
    fs::rename(disk / "a", disk / "c");
    settle();
    EXPECT_EQ(check(), "");
    EXPECT_TRUE(has("c\\b\\file"));
    EXPECT_EQ(db->recent_changes_by_item.count, 2u); // the file's and the folder's
}

// What the exclusions leave out, by name, path, attribute, and what a rename brings in and out.
TEST_F(DbMonitorFolder, WhatIsLeftOutStaysOut) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    settings.exclude_folders = {"skip", root + "\\p\\q"};
    settings.exclude_files = {"*.tmp"};
    settings.exclude_hidden = true;
    start();
    fs::create_directories(disk / "skip/deep");
    fs::create_directories(disk / "p/q/r");
    write("skip/deep/file"), write("p/q/r/file"), write("p/x.tmp"), write("p/x"), write(".hidden");
    settle();
    EXPECT_EQ(check(), "");
    fs::rename(disk / "skip", disk / "in");
    fs::rename(disk / "p", disk / "o");
    fs::rename(disk / "o/x.tmp", disk / "o/y");
    fs::rename(disk / "o/x", disk / "o/.x");
    write("in/deep/second"), write("o/q/r/second");
    settle();
    EXPECT_EQ(check(), "");
    fs::rename(disk / "in", disk / "skip");
    fs::rename(disk / "o", disk / "p");
    settle();
    EXPECT_EQ(check(), "");
}

class DbMonitorFolderStorm : public DbMonitorFolder, public testing::WithParamInterface<u32> {};

struct hand_t {
    tree_storm_t storm;
    std::atomic<bool> is_over;
};

void hand_proc(void *param) {
    auto *hand = static_cast<hand_t *>(param);
    for (u32 turn = 0; turn < 12; turn++)
        tree_storm_burst(&hand->storm, turn % 3 ? 60 : 5);
    hand->is_over = true;
}

TEST_P(DbMonitorFolderStorm, AStormIsFollowed) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    hand_t hand = {};
    tree_storm_create(&hand.storm, disk, GetParam());
    hand.storm.writes_links = false;
    tree_storm_burst(&hand.storm, 200);
    if (GetParam() % 2) {
        settings.exclude_folders = {"skip*", "n1"};
        settings.exclude_files = {"*.tmp"};
        db_monitor_folder_slice = 0;
    }
    start();
    for (u32 round = 0; round < 2; round++) {
        hand.is_over = false;
        os_thread_t *thread = os_thread_create(hand_proc, &hand);
        u32 turns = 0;
        while (!hand.is_over) {
            event_wait_and_dispatch(10);
            if (++turns % 40 == 0) // a scan of the whole in the middle of it
                db_folders_update_all_now(db);
        }
        os_thread_release(thread, OS_INFINITE);
        settle();
        ASSERT_EQ(check(), "") << round;
    }
}

INSTANTIATE_TEST_SUITE_P(seeds, DbMonitorFolderStorm, testing::Values(1u, 2u, 3u, 4u));

TEST_F(DbMonitorFolder, ASourceThatWasAwayIsFollowedAndScannedAgain) {
    if (os_path_separator == '\\') // what is watched there keeps its place
        GTEST_SKIP();
    write("before");
    monitor_retry_milliseconds = 10;
    start();
    fs::rename(disk, folder.path / "moved");
    std::ofstream(folder.path / "moved" / "meanwhile") << "text";
    fs::remove(folder.path / "moved" / "before");
    u32 start = os_get_tick_count();
    while (os_get_tick_count() - start < 50000)
        event_wait_and_dispatch(10);
    EXPECT_TRUE(has("before")); // a source that is away keeps what it had
    fs::rename(folder.path / "moved", disk);
    wait_for([&] { return has("meanwhile") && !has("before"); });
    write("after");
    settle();
    EXPECT_EQ(check(), "");
}

TEST_F(DbMonitorFolder, WhatHappenedBeforeTheStartIsScanned) {
    write("one");
    db = folder_db_create(&settings);
    write("two");
    fs::remove(disk / "one");
    start();
    EXPECT_EQ(check(), "");
}

TEST_F(DbMonitorFolder, StopsAtAnyTime) {
    hand_t hand = {};
    tree_storm_create(&hand.storm, disk, 9);
    hand.storm.writes_links = false;
    db = folder_db_create(&settings);
    folder_db_get_index(db)->monitor = 1;
    folder_db_get_index(db)->update_type = DB_SCHEDULE_NEVER;
    os_thread_t *thread = os_thread_create(hand_proc, &hand);
    u32 turns = 0;
    while (!hand.is_over) {
        db_monitor_folders_start(db);
        for (u32 i = 0; i < ++turns % 5; i++)
            event_wait_and_dispatch(5);
        if (turns % 3 == 0)
            db_monitor_stop_by_volume(db, root.substr(0, 2).c_str());
        if (turns % 6 == 0)
            db_monitor_restart_by_volume(db, root.substr(0, 2).c_str());
        db_monitor_folders_stop(db);
    }
    os_thread_release(thread, OS_INFINITE);
    folder_db_wait(db);
    start();
    EXPECT_EQ(check(), "");
}

TEST_F(DbMonitorFolder, WhereNothingHappensNothingIsDone) {
    start();
    while (event_wait_and_dispatch(0))
        ;
    wait_for([&] { return !event_wait_and_dispatch(200); }); // the last application's pause has passed
    EXPECT_FALSE(event_wait_and_dispatch(200));
}

} // namespace
} // namespace findwright
