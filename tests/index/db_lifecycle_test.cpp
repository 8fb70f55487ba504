// The life of a database: loaded, compared with what is wanted, rebuilt, saved, watched.
#include "db/db_folder.h"
#include "db/db_image.h"
#include "index/db_lifecycle.h"
#include "os/event.h"
#include "os/os_test_support.h"
#include "support/test_db.h"
#include "support/test_orders.h"
#include "track/db_folder_update.h"
#include "track/db_live.h"
#include "track/db_monitor_folder.h"
#include "track/db_schedule.h"

#include <gtest/gtest.h>

#include <functional>

namespace findwright {
namespace {

// The settings of these tests: two lists and a folder, and a database file, in a folder of their own.
struct settings_t {
    temp_folder_t folder;
    std::vector<std::string> lists, folders;
    u32 flags = DB_FLAG_SIZE | DB_FLAG_FAST_SIZE | DB_FLAG_FAST_PATH;
    std::string exclude_files, exclude_folders, include_only_files;
    bool exclude_hidden = false;
    bool compressed = false, has_filename = true;
    bool monitor = false;
    bool follow = false;                                   // the folder
    db_schedule_t schedule = {DB_INDEX_FOLDER_UPDATE_TYPE, // of its scans
                              DB_INDEX_FOLDER_UPDATE_VALUE};
    std::string errors;
};
settings_t *settings;

void get_wanted(db_wanted_t *out, bool) {
    out->index_flags = settings->flags;
    db_exclude_parse(&out->exclude.exclude_files, settings->exclude_files.c_str());
    db_exclude_parse(&out->exclude.exclude_folders, settings->exclude_folders.c_str());
    db_exclude_parse(&out->exclude.include_only_files, settings->include_only_files.c_str());
    out->exclude.exclude_hidden = settings->exclude_hidden;
    db_exclude_update_needs(&out->exclude);
    for (const std::string &list : settings->lists)
        db_wanted_add_file_list(out, list.c_str(), settings->monitor);
    for (const std::string &path : settings->folders) {
        auto *index = static_cast<db_index_folder_t *>(db_wanted_add_folder(out, path.c_str())->index);
        index->monitor = settings->follow;
        index->update_type = settings->schedule.type;
        index->update_value = settings->schedule.value;
    }
}

bool get_filename(utf8_buf_t *out) {
    utf8_buf_copy_string(out, (settings->folder / "Findwright.db").c_str());
    return settings->has_filename;
}

bool get_corrupt_filename(utf8_buf_t *out) {
    utf8_buf_copy_string(out, (settings->folder / "corrupt.txt").c_str());
    return true;
}

const db_lifecycle_t lifecycle = {get_wanted,
                                  get_filename,
                                  [] { return settings->compressed; },
                                  get_corrupt_filename,
                                  [](const char *text) { settings->errors += text; },
                                  "saving",
                                  "loading",
                                  "starting"};

class DbLifecycle : public testing::Test {
  protected:
    void SetUp() override {
        settings = &own;
        db_lifecycle_set(&lifecycle);
        own.lists = {own.folder / "one.fwl", own.folder / "two.fwl"};
        own.folders = {own.folder / "files"};
        write_list(0, "C:\\a\\b.txt,5,0\nC:\\a\\hidden.txt,5,2\n");
        write_list(1, "D:\\x\\y.txt,6,0\nD:\\x\\y.tmp,7,0\n");
        os_create_folder(own.folders[0].c_str());
        write_file(own.folders[0] + "\\file", "123");
        os_create_folder((own.folder / "more").c_str());
        write_file(own.folder / "more\\again", "1");
    }
    void TearDown() override {
        db_read_only = db_no_db = false;
        db_lifecycle_set(nullptr);
    }

    void write_list(u32 number, const std::string &rows) {
        write_file(own.lists[number], "Filename,Size,Attributes\n" + rows);
    }

    // A database that has been loaded, or built; `log` has what it said.
    db_t *open() {
        log_capture_t capture;
        db_t *db = db_lifecycle_create(nullptr);
        db_load(db);
        wait(db);
        log = capture.take();
        return db;
    }
    static void wait(db_t *db) {
        test_db_wait(db);
        event_dispatch();
        test_db_wait(db);
    }
    static void close(db_t *db) {
        EXPECT_TRUE(db_save(db, false, nullptr));
        db_destroy(db);
    }
    u32 count_reused() const {
        u32 count = 0;
        for (size_t at = 0; (at = log.find("using existing", at)) != std::string::npos; at++)
            count++;
        return count;
    }
    bool has(const char *line) const { return log.find(line) != std::string::npos; }

    settings_t own;
    std::string log;
};

std::vector<std::string> names(db_t *db) {
    std::vector<std::string> result;
    for (const std::string &path : test_array_paths(&db->file_name_array))
        result.push_back(path.substr(path.rfind('\\') + 1));
    return result;
}

using names_t = std::vector<std::string>;

TEST_F(DbLifecycle, ASecondStartReadsNothing) {
    db_t *db = open();
    EXPECT_TRUE(has("rebuild: flags changed"));
    EXPECT_EQ(names(db), (names_t{"b.txt", "file", "hidden.txt", "y.tmp", "y.txt"}));
    close(db);
    db = open();
    EXPECT_FALSE(has("rebuild") || has("create db")) << log;
    EXPECT_EQ(5u, db->file_name_array.count);
    test_check_orders(db);
    close(db);
}

// Every change of what is wanted has its reason in the log, reads what it must, and gives what a fresh build
// gives.
TEST_F(DbLifecycle, EachChangeHasItsReasonAndReadsWhatItMust) {
    const struct {
        const char *what, *reason;
        u32 reused; // of the sources that are wanted then
        std::function<void(settings_t *)> change;
    } cases[] = {
        {"sort off", "rebuild: flags changed", 3, [](settings_t *s) { s->flags &= ~DB_FLAG_FAST_SIZE; }},
        {"column off", "rebuild: flags changed", 3,
         [](settings_t *s) { s->flags &= ~(DB_FLAG_SIZE | DB_FLAG_FAST_SIZE); }},
        {"column on", "rebuild: flags changed", 0, [](settings_t *s) { s->flags |= DB_FLAG_ATTRIBUTES; }},
        {"more left out", "rebuild: excludes changed", 3, [](settings_t *s) { s->exclude_files = "*.tmp"; }},
        {"include only", "rebuild: excludes changed", 3,
         [](settings_t *s) { s->include_only_files = "*.txt"; }},
        {"folder left out", "rebuild: excludes changed", 3,
         [](settings_t *s) { s->exclude_folders = "C:\\a"; }},
        {"hidden left out", "rebuild: excludes changed", 0, [](settings_t *s) { s->exclude_hidden = true; }},
        {"list removed", "rebuild: filelist filename changed", 2,
         [](settings_t *s) { s->lists.erase(s->lists.begin()); }},
        {"folder removed", "rebuild: index removed", 2, [](settings_t *s) { s->folders.clear(); }},
        {"all lists removed", "rebuild: index type changed", 1, [](settings_t *s) { s->lists.clear(); }},
        {"folder added", "rebuild: new ntfs volume", 3,
         [](settings_t *s) { s->folders.push_back(s->folder / "more"); }},
        {"folder changed", "rebuild: folder filename changed", 2,
         [](settings_t *s) { s->folders = {s->folder / "more"}; }},
        {"order changed", "rebuild: filelist filename changed", 3,
         [](settings_t *s) { std::swap(s->lists[0], s->lists[1]); }},
    };
    for (const auto &test : cases) {
        const std::string database = own.folder / "Findwright.db";
        os_delete_file(database.c_str());
        auto lists = own.lists, folders = own.folders;
        u32 flags = own.flags;
        close(open());
        test.change(&own);
        db_t *db = open();
        EXPECT_TRUE(has(test.reason)) << test.what << log;
        EXPECT_EQ(test.reused, count_reused()) << test.what;
        std::vector<std::string> changed = test_array_paths(&db->file_name_array);
        test_check_orders(db);
        db_destroy(db); // not saved
        os_delete_file(database.c_str());
        db = open();
        EXPECT_EQ(test_array_paths(&db->file_name_array), changed) << test.what;
        close(db);
        // And back: what was left out comes in again.
        own.lists = lists;
        own.folders = folders;
        own.flags = flags;
        own.exclude_files = own.exclude_folders = own.include_only_files = "";
        own.exclude_hidden = false;
        db = open();
        EXPECT_GE(db->file_name_array.count, 5u) << test.what;
        close(db);
    }
}

TEST_F(DbLifecycle, SettingsThatChangeWhileItRunsAreApplied) {
    db_t *db = open();
    {
        log_capture_t capture;
        db_apply_settings(db);
        EXPECT_TRUE(db_is_ready(db)); // nothing to do
        own.flags &= ~DB_FLAG_FAST_PATH;
        db_apply_settings(db);
        EXPECT_FALSE(db_is_ready(db));
        wait(db);
        log = capture.take();
    }
    EXPECT_EQ(3u, count_reused());
    EXPECT_EQ(0u, db->file_path_array.count);
    close(db);
}

TEST_F(DbLifecycle, WhatWasNotThereIsReadWhenItIsBack) {
    const std::string list = own.lists[0];
    os_delete_file(list.c_str());
    db_t *db = open();
    EXPECT_EQ(names(db), (names_t{"file", "y.tmp", "y.txt"}));
    write_list(0, "C:\\new,1,0\n");
    EXPECT_TRUE(_db_filelists_is_change(db));
    close(db);
    db = open(); // its date is not the one that was read
    db_check_file_lists(db);
    wait(db);
    EXPECT_EQ(names(db), (names_t{"file", "new", "y.tmp", "y.txt"}));
    // Gone again: its items stay, until it is back.
    os_delete_file(list.c_str());
    db_rebuild(db, true);
    wait(db);
    EXPECT_EQ(names(db), (names_t{"file", "new", "y.tmp", "y.txt"}));
    EXPECT_EQ(1u, db->index_first->out_of_date);
    close(db);
    write_list(0, "C:\\newer,1,0\n");
    db = open();
    EXPECT_EQ(2u, count_reused());
    EXPECT_EQ(names(db), (names_t{"file", "newer", "y.tmp", "y.txt"}));
    close(db);
}

TEST_F(DbLifecycle, AWatchedListIsReadWhenItChanges) {
    own.monitor = true;
    db_t *db = open();
    os_file_info_t before, after;
    os_get_file_info(own.lists[1].c_str(), &before);
    do { // the date alone tells
        write_list(1, "D:\\changed,6,0\n");
        os_get_file_info(own.lists[1].c_str(), &after);
    } while (after.date_modified == before.date_modified);
    const u32 start = os_get_tick_count();
    while (!(db_is_ready(db) && names(db)[1] == "changed") && os_get_tick_count() - start < 20000000)
        event_wait_and_dispatch(100);
    wait(db);
    EXPECT_EQ(names(db), (names_t{"b.txt", "changed", "file", "hidden.txt"}));
    close(db);
}

TEST_F(DbLifecycle, ADamagedOrForeignFileIsRebuilt) {
    close(open());
    const std::string database = own.folder / "Findwright.db";
    std::string bytes = read_file(database);
    std::string cut = bytes.substr(0, bytes.size() / 2), changed = bytes;
    changed[4] ^= 1; // the version
    for (const std::string &damaged : {cut, changed, std::string("x"), std::string()}) {
        write_file(database, damaged);
        db_t *db = open();
        EXPECT_TRUE(has("rebuild: flags changed"));
        EXPECT_EQ(5u, db->file_name_array.count);
        close(db);
        EXPECT_EQ(bytes.size(), read_file(database).size());
    }
    own.compressed = true;
    db_t *db = open();
    EXPECT_TRUE(has("rebuild: flags changed"));
    close(db);
    db = open();
    EXPECT_FALSE(has("rebuild"));
    close(db);
}

TEST_F(DbLifecycle, ModesOfTheCommandLine) {
    const std::string database = own.folder / "Findwright.db";
    db_no_db = true;
    close(open());
    EXPECT_TRUE(has("no db file"));
    EXPECT_EQ("(none)", read_file(database));
    db_no_db = false;
    close(open());
    const std::string bytes = read_file(database);
    db_read_only = true;
    own.flags |= DB_FLAG_ATTRIBUTES;
    write_list(0, "C:\\other,1,0\n");
    db_t *db = open();
    EXPECT_FALSE(has("rebuild") || has("create db"));
    db_rebuild(db, true);
    db_check_file_lists(db);
    db_report_corrupt(db);
    wait(db);
    EXPECT_EQ(5u, db->file_name_array.count);
    close(db);
    EXPECT_EQ(bytes, read_file(database));
}

TEST_F(DbLifecycle, ASaveWaitsForTheRebuildThatItNeeds) {
    const std::string database = own.folder / "Findwright.db";
    db_t *db = db_lifecycle_create(nullptr);
    utf8_buf_t error;
    utf8_buf_init(&error);
    EXPECT_TRUE(db_save(db, false, &error)); // nothing is worth saving
    EXPECT_EQ("(none)", read_file(database));
    EXPECT_TRUE(db_save(db, true, &error));
    wait(db);
    EXPECT_NE("(none)", read_file(database));
    // What cannot be written is told with the file's name, now or when the rebuild is done.
    os_delete_file(database.c_str());
    os_create_folder(database.c_str());
    EXPECT_FALSE(db_save(db, true, &error));
    EXPECT_NE(nullptr, std::strstr(error.data, "Findwright.db"));
    db->local = 0;
    EXPECT_TRUE(db_save(db, true, &error));
    wait(db);
    EXPECT_NE(std::string::npos, own.errors.find("Findwright.db"));
    own.has_filename = false;
    EXPECT_FALSE(db_save(db, true, &error));
    EXPECT_NE(0, error.length);
    utf8_buf_kill(&error);
    db_destroy(db);
}

TEST_F(DbLifecycle, ACorruptDatabaseIsToldOfAndReadAnew) {
    db_t *db = open();
    u32 *values = array_page_values(db->file_name_array.pages[0]);
    std::swap(values[0], values[1]);
    EXPECT_EQ("file", names(db)[0]);
    {
        log_capture_t capture;
        db_report_corrupt(db);
        event_dispatch();
        wait(db);
        log = capture.take();
    }
    EXPECT_TRUE(has("CORRUPT\n"));
    EXPECT_EQ(0u, count_reused());
    std::string told = read_file(own.folder / "corrupt.txt");
    EXPECT_EQ(0u, told.find("FILE NAME ")) << told;
    EXPECT_NE(std::string::npos, told.find("C:\\a\\b.txt\r\n")) << told;
    EXPECT_EQ("b.txt", names(db)[0]);
    test_check_orders(db);
    close(db);
}

u32 count_in(const std::string &text, const std::string &part) {
    u32 result = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++)
        result++;
    return result;
}

// Many faults that are found before the main loop runs lead to one rebuild; what a rebuild does not cure
// leads to no other, but is said once, and the file keeps what was saved before.
TEST_F(DbLifecycle, WhatARebuildDoesNotCureIsLeftAsItIs) {
    close(open());
    const std::string saved = read_file(own.folder / "Findwright.db");
    db_t *db = open();
    auto report = [&](u32 times) {
        log_capture_t capture;
        for (u32 i = 0; i < times; i++)
            db_report_corrupt(db);
        event_dispatch();
        wait(db);
        return capture.take();
    };
    EXPECT_EQ(1u, count_in(report(1000), "create db..."));
    EXPECT_EQ("", own.errors);
    for (u32 i = 0; i < 3; i++)
        EXPECT_EQ(0u, count_in(report(10), "create db..."));
    EXPECT_EQ(1u, count_in(own.errors, "damaged again")) << own.errors;
    write_file(own.folders[0] + "\\another", "");
    EXPECT_TRUE(db_save(db, false, nullptr));
    EXPECT_EQ(saved, read_file(own.folder / "Findwright.db"));

    db_rebuild(db, true); // as the user asks for it
    wait(db);
    EXPECT_EQ(1u, count_in(report(1), "create db..."));
    db_report_corrupt(db); // before a rebuild that comes for another reason
    {
        log_capture_t capture;
        db_rebuild(db, false);
        wait(db);
        EXPECT_EQ(1u, count_in(capture.take(), "create db..."));
    }
    close(db);
    EXPECT_NE(saved, read_file(own.folder / "Findwright.db"));
}

// A folder that is followed is scanned when nobody has followed it for a while; one that is not, by its
// schedule.
TEST_F(DbLifecycle, AFolderIsScannedWhenNobodyHasFollowedIt) {
    db_t *db = nullptr;
    // A file comes before the action. The system may take its time to tell of it.
    auto expect_after = [&](u32 expected, const char *name, const std::function<void()> &action) {
        write_file(own.folders[0] + "\\" + name, "");
        action();
        auto is_busy = [&] {
            return db_folder_update_is_busy(db) || db_monitor_folder_is_busy(db) || !db_is_ready(db);
        };
        const u32 start = os_get_tick_count(), patience = 10000000;
        while (is_busy() || (db->file_name_array.count != expected && os_get_tick_count() - start < patience))
            event_wait_and_dispatch(10);
        EXPECT_EQ(expected, db->file_name_array.count) << name;
    };
    auto apply = [&] { db_apply_settings(db); };
    auto restart = [&] {
        close(db);
        db = open();
        EXPECT_EQ(0u, count_reused());
    };
    db = open();
    expect_after(5, "1", apply);
    expect_after(5, "2", restart);
    own.follow = true;
    expect_after(8, "3", apply);
    expect_after(9, "4", restart);
    expect_after(10, "5", apply);
    own.exclude_files = "*.tmp"; // a rebuild that reuses it, and leaves one out
    expect_after(10, "6", apply);
    own.follow = false;
    own.schedule = {DB_SCHEDULE_INTERVAL, 1};
    db_apply_settings(db);
    expect_after(10, "7", apply);
    static_cast<db_index_folder_t *>(db_index_get(db, 2))->next_update = 1;
    expect_after(12, "8", apply);
    test_check_orders(db);
    close(db);
}

// Arrays that are damaged in memory, under live updates: these do what can be done, and one rebuild puts all
// right.
TEST_F(DbLifecycle, LiveUpdatesOfADamagedIndexLeadToOneRebuild) {
    const std::string &files = own.folders[0];
    for (u32 i = 10; i < 40; i++)
        write_file(files + "\\f" + std::to_string(i), std::string(i, 'x'));
    db_corrupt_interval = 0;
    db_t *db = open();
    u32 number = 100;
    for (array_t db_t::*array : {&db_t::file_size_array, &db_t::file_path_array, &db_t::file_name_array}) {
        u32 *values = array_page_values((db->*array).pages[0]);
        std::swap(values[0], values[(db->*array).count - 1]);
        log_capture_t capture;
        db_index_t *index = db_index_get(db, 2);
        const u32 count = db->file_name_array.count;
        auto add = [&] {
            const std::string path = files + "\\g" + std::to_string(number++);
            write_file(path, "1");
            db_file_info_t info = {1, 2, 3, 4, 5};
            EXPECT_NE(nullptr,
                      db_file_add_path(db, index, path.c_str(), static_cast<u32>(path.size()), &info, 1));
        };
        add();
        // The items that are out of their places: their own removal meets the damage.
        const u32 removed[] = {values[0], array_page_values((db->*array).pages[0])[(db->*array).count - 1]};
        for (u32 value : removed)
            db_file_remove_item(db, mem_ptr<db_file_t>(value));
        add();
        if (array != &db_t::file_name_array) {
            EXPECT_EQ(count, db->file_name_array.count);
        }
        wait(db);
        log = capture.take();
        EXPECT_EQ(1u, count_in(log, "CORRUPT\n")) << log;
        EXPECT_EQ(1u, count_in(log, "create db..."));
        EXPECT_NE("(none)", read_file(own.folder / "corrupt.txt"));
        EXPECT_EQ(count + 2, db->file_name_array.count); // what is on the disk
        test_check_orders(db);
    }
    db_corrupt_interval = 3600;
    close(db);
}

TEST_F(DbLifecycle, AFileListCanBeADatabaseOfItsOwn) {
    own.flags = 0;
    own.exclude_files = "*.tmp";
    own.exclude_hidden = true;
    const struct {
        std::string list;
        u32 status, count;
    } cases[] = {{own.lists[0], 0, 2},
                 {own.lists[1], 0, 2},
                 {own.folder / "absent.fwl", 2, 0},
                 {own.folders[0] + "\\file", 1, 0}};
    for (const auto &test : cases) {
        db_t *db = db_lifecycle_create(test.list.c_str());
        db_load(db);
        wait(db);
        EXPECT_EQ(test.status, db->file_list_status) << test.list;
        EXPECT_EQ(test.count, db->file_name_array.count) << test.list; // nothing is left out
        EXPECT_EQ(DB_FLAG_COLUMNS & ~DB_FLAG_FOLDER_SIZE, db->layout.flags) << test.list;
        EXPECT_TRUE(db_save(db, true, nullptr));
        db_destroy(db);
    }
    EXPECT_EQ("(none)", read_file(own.folder / "Findwright.db"));
}

} // namespace
} // namespace findwright
