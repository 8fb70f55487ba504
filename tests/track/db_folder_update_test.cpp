// Scans of folder sources and how they enter the index: judged by a fresh build of the same folder.
#include "track/db_folder_update.h"

#include "db/db_folder.h"
#include "os/event.h"
#include "os/os_test_support.h"
#include "support/db_compare.h"
#include "support/folder_world.h"
#include "support/test_db.h"
#include "track/db_live.h"
#include "track/db_schedule.h"

namespace findwright {
namespace {

// Listing a folder changes the date of its last access.
constexpr u32 FLAGS = TEST_FLAGS_ALL & ~(DB_FLAG_DATE_ACCESSED | DB_FLAG_FAST_DATE_ACCESSED);

class DbFolderUpdate : public testing::Test {
  protected:
    void SetUp() override {
        root = folder / "root";
        ASSERT_TRUE(os_create_folder(root.c_str()));
        settings.paths = {root};
        settings.flags = FLAGS;
    }
    void TearDown() override {
        if (db)
            folder_db_destroy(db);
        db_folder_update_slice = 20;
        db_folder_update_done = nullptr;
        db_read_only = false;
    }

    std::string path(const std::string &name) const { return root + "\\" + name; }
    void make_folder(const std::string &name) const { ASSERT_TRUE(os_create_folder(path(name).c_str())); }
    void make_file(const std::string &name, const std::string &text = "text") const {
        write_file(path(name), text);
    }
    std::filesystem::path disk(const char *name) const { return folder.path / "root" / name; }
    std::string check() { return folder_db_check(db, &settings); }
    std::vector<std::string> get_paths() const {
        std::vector<std::string> paths;
        for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
            for (const std::string &full : test_array_paths(array))
                paths.push_back(full.substr(root.size()));
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }
    // Hands in the scan of a part. False: there was none.
    bool apply_part(const std::string &name) {
        db_folder_scan_t *scan = db_folder_scan_run(db, folder_db_get_index(db), path(name).c_str(), nullptr);
        if (scan)
            db_folder_update_apply(db, scan);
        folder_db_wait(db);
        return scan != nullptr;
    }

    temp_folder_t folder;
    std::string root;
    folder_settings_t settings;
    db_t *db = nullptr;
};

using paths_t = std::vector<std::string>;

TEST_F(DbFolderUpdate, AScanOfAnUnchangedTreeChangesNothing) {
    tree_storm_t storm;
    tree_storm_create(&storm, folder.path / "root", 1);
    tree_storm_burst(&storm, 400);
    settings.exclude_folders = {"skip*", "n1"};
    settings.exclude_files = {"*.tmp"};
    db = folder_db_create(&settings);
    log_capture_t log;
    folder_db_rescan(db);
    const std::string text = log.take();
    EXPECT_NE(text.find("added 0, removed 0, updated 0 of "), std::string::npos) << text;
    EXPECT_NE(text.find("rescan update db\n"), std::string::npos);
    EXPECT_NE(text.find("leave folder update\n"), std::string::npos);
    EXPECT_EQ(check(), "");
    EXPECT_EQ(db->recent_changes_by_item.count, 0u);
}

// Whatever happens on disk, a scan makes the index what a fresh build is; in slices of nearly nothing, too.
TEST_F(DbFolderUpdate, AScanMakesTheIndexWhatAFreshBuildIs) {
    const struct {
        u32 slice, threads;
        std::vector<std::string> exclude_folders, exclude_files;
        bool exclude_hidden;
    } rows[] = {{20, 0, {}, {}, false},
                {0, 1, {}, {}, false},
                {0, 0, {"skip", "case1", "a"}, {"*.tmp", "*.txt"}, true},
                {20, 0, {root + "\\n2*", root + "\\b\\"}, {root + "\\a\\*"}, false}};
    const u32 old_threads = max_threads;
    for (u32 seed = 0; seed < std::size(rows); seed++) {
        settings.exclude_folders = rows[seed].exclude_folders;
        settings.exclude_files = rows[seed].exclude_files;
        settings.exclude_hidden = rows[seed].exclude_hidden;
        db_folder_update_slice = rows[seed].slice;
        max_threads = rows[seed].threads;
        tree_storm_t storm;
        tree_storm_create(&storm, folder.path / "root", seed);
        db = folder_db_create(&settings);
        for (u32 turn = 0; turn < 8; turn++) {
            tree_storm_burst(&storm, turn % 2 ? 5 : 150);
            folder_db_rescan(db);
            ASSERT_EQ(check(), "") << "seed " << seed << " turn " << turn;
        }
        folder_db_destroy(db);
        db = nullptr;
    }
    max_threads = old_threads;
}

TEST_F(DbFolderUpdate, AFolderThatIsGoneLeavesTheIndexAsItWas) {
    make_file("one");
    db = folder_db_create(&settings);
    const paths_t before = get_paths();
    ASSERT_TRUE(os_move_replace(root.c_str(), (folder / "away").c_str(), false, true));
    folder_db_rescan(db);
    EXPECT_EQ(get_paths(), before);
    write_file(root, "a file now");
    folder_db_rescan(db);
    EXPECT_EQ(get_paths(), before);
    ASSERT_TRUE(os_delete_file(root.c_str()));
    ASSERT_TRUE(os_move_replace((folder / "away").c_str(), root.c_str(), false, true));
    make_file("two");
    folder_db_rescan(db);
    EXPECT_EQ(get_paths(), (paths_t{"", "\\one", "\\two"}));
    EXPECT_EQ(check(), "");
}

TEST_F(DbFolderUpdate, APartIsAppliedInItsPlace) {
    make_folder("a");
    make_folder("a\\b");
    make_file("a\\b\\old");
    make_file("a\\was file");
    make_file("beside");
    db = folder_db_create(&settings);

    // What lies beside that folder is not looked at.
    ASSERT_TRUE(os_delete_file(path("a\\b\\old").c_str()));
    make_file("a\\b\\new");
    make_file("not seen");
    EXPECT_TRUE(apply_part("a\\b"));
    EXPECT_EQ(get_paths(), (paths_t{"", "\\a", "\\a\\b", "\\a\\b\\new", "\\a\\was file", "\\beside"}));

    // A part that is new, in the place of a file.
    ASSERT_TRUE(os_delete_file(path("a\\was file").c_str()));
    make_folder("a\\was file");
    make_folder("a\\was file\\deep");
    make_file("a\\was file\\deep\\x", "12345");
    EXPECT_TRUE(apply_part("a\\was file"));
    EXPECT_EQ(get_paths(), (paths_t{"", "\\a", "\\a\\b", "\\a\\b\\new", "\\a\\was file",
                                    "\\a\\was file\\deep", "\\a\\was file\\deep\\x", "\\beside"}));
    EXPECT_EQ(db_check_whole(db), "");

    // One whose folder the index does not know cannot be placed; one that is gone is none.
    make_folder("unknown");
    make_folder("unknown\\part");
    EXPECT_TRUE(apply_part("unknown\\part"));
    EXPECT_FALSE(apply_part("nothing"));
    EXPECT_FALSE(apply_part("beside"));
    EXPECT_EQ(get_paths().size(), 8u);
    folder_db_rescan(db);
    EXPECT_EQ(check(), "");
}

// Between two slices another source changes, so that places in the arrays move under the walk. Every item of
// the tree is another one at each turn: one that is overlooked is seen.
TEST_F(DbFolderUpdate, OtherSourcesChangeWhileAScanIsApplied) {
    constexpr u32 FILES = 600;
    const std::string other = folder / "other";
    ASSERT_TRUE(os_create_folder(other.c_str()));
    settings.paths = {root, other};
    db = folder_db_create(&settings);
    db_index_folder_t *index = folder_db_get_index(db, 1);
    std::mt19937 random(7);
    auto change_other = [&] {
        const std::string name = other + "\\" + (random() % 8 ? "0" : "zz") + std::to_string(random() % 300);
        const u32 length = static_cast<u32>(name.size());
        db_file_info_t info;
        db_file_info_clear(&info);
        if (!db_file_remove_path(db, index, name.c_str(), length))
            db_file_add_path(db, index, name.c_str(), length, &info, 1);
    };
    for (u32 turn = 0; turn < 4; turn++) {
        for (u32 i = 0; i < FILES; i++) {
            const std::string name = "f" + std::to_string(i);
            if ((i + turn) % 3 == 0)
                os_delete_file(path(name).c_str());
            else
                make_file(name, std::string(turn + 1, 'x'));
        }
        db_folder_update_slice = 0;
        db_folders_update_now(db, root.c_str());
        while (db_folder_update_is_busy(db)) {
            event_wait_and_dispatch(OS_INFINITE);
            for (u32 i = 0; i < 5 && db_is_ready(db); i++)
                change_other();
        }
        db_folder_update_slice = 20;
        db_folders_update_now(db, other.c_str()); // what was made up of it goes
        folder_db_wait(db);
        ASSERT_EQ(check(), "") << turn;
    }
}

// A rebuild drops what runs and waits, wherever it is.
TEST_F(DbFolderUpdate, ARebuildDropsScanAndApply) {
    tree_storm_t storm;
    tree_storm_create(&storm, folder.path / "root", 8);
    tree_storm_burst(&storm, 500);
    db = folder_db_create(&settings);
    db_folder_update_slice = 0;
    for (u32 turn = 0; turn < 30; turn++) {
        tree_storm_burst(&storm, 60);
        db_folders_update_all_now(db);
        for (u32 events = 0; events < turn % 10; events++)
            event_wait_and_dispatch(1);
        db_wanted_t wanted;
        db_wanted_init(&wanted);
        folder_settings_get_wanted(&settings, &wanted);
        db->index_first->out_of_date = 1;
        db_rebuild_start(db, &wanted, nullptr);
        EXPECT_FALSE(db_folder_update_is_busy(db));
        test_db_wait(db);
        folder_db_wait(db);
    }
    EXPECT_EQ(check(), "");
    db_folders_update_all_now(db);
    folder_db_destroy(db); // with a scan at work
    db = nullptr;
}

// --- The choice --------------------------------------------------------------------------------------------

std::vector<std::string> done;

TEST_F(DbFolderUpdate, WhatWasAskedForComesFirstThenWhatIsDueLongest) {
    settings.paths.clear();
    for (const char *name : {"one", "two", "three", "four"}) {
        settings.paths.push_back(path(name));
        make_folder(name);
    }
    db = folder_db_create(&settings);
    db_folder_update_done = [](db_t *, db_index_folder_t *index) {
        EXPECT_FALSE(db_folder_update_is_running(index->db, index));
        done.push_back(index->path);
    };
    const u64 now = os_get_file_time();
    constexpr u64 HOUR = 36000000000;
    const u64 times[] = {now - HOUR, now - 2 * HOUR, now + HOUR, now + 2 * HOUR};
    for (u32 i = 0; i < 4; i++) {
        db_index_folder_t *index = folder_db_get_index(db, i);
        index->update_type = DB_SCHEDULE_INTERVAL;
        index->update_value = 90;
        index->next_update = times[i];
    }
    auto run = [&] {
        done.clear();
        folder_db_wait(db);
        return done;
    };
    folder_db_get_index(db, 3)->update_now = 1;
    db_read_only = true;
    db_folder_update_start(db);
    EXPECT_EQ(run(), paths_t());
    db_read_only = false;
    db_folder_update_start(db);
    EXPECT_TRUE(db_folder_update_is_running(db, folder_db_get_index(db, 3)));
    EXPECT_FALSE(db_folder_update_is_running(db, folder_db_get_index(db, 0)));
    EXPECT_EQ(run(), (paths_t{settings.paths[3], settings.paths[1], settings.paths[0]}));
    EXPECT_EQ(folder_db_get_index(db, 2)->next_update, times[2]);
    for (u32 i : {0u, 1u, 3u}) {
        EXPECT_GE(folder_db_get_index(db, i)->next_update, now + HOUR * 3 / 2) << i;
        EXPECT_LT(folder_db_get_index(db, i)->next_update, now + 2 * HOUR) << i;
    }
    db_folders_update_now(db, settings.paths[2].c_str());
    EXPECT_EQ(run(), paths_t{settings.paths[2]});
    db_folders_update_index_now(db, folder_db_get_index(db, 1));
    EXPECT_EQ(run(), paths_t{settings.paths[1]});
    // A failed scan is told of, too, and not tried again before its time.
    ASSERT_TRUE(os_delete_folder(settings.paths[0].c_str()));
    db_folders_update_all_now(db);
    EXPECT_EQ(run(), settings.paths);
    db_folders_check_for_updates(db);
    EXPECT_EQ(run(), paths_t());
    // The alarm: the next time is but a moment away.
    folder_db_get_index(db, 2)->next_update = os_get_file_time() + 100000;
    db_folders_check_for_updates(db);
    EXPECT_FALSE(db_folder_update_is_busy(db));
    done.clear();
    while (done.empty())
        event_wait_and_dispatch(OS_INFINITE);
    EXPECT_EQ(done, paths_t{settings.paths[2]});
}

} // namespace
} // namespace findwright
