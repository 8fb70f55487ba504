// The file of the run history: what is read and written, and what several programs count at once.
#include "db/db_item_set.h"
#include "os/event.h"
#include "os/os_lock.h"
#include "os/os_test_support.h"
#include "support/test_db.h"
#include "track/db_run_history_rows.h"

#include <thread>

using namespace findwright;

namespace {

constexpr u64 DAY = 864'000'000'000;
const std::string HEADER = "Filename,Run Count,Last Run Date\r\n";

struct file_t {
    temp_folder_t folder;
    std::string name = folder / "new\\Run History.csv";
    std::vector<db_t *> dbs;

    file_t() {
        db_run_history_set_file(name.c_str());
        os_make_folders_for(name.c_str());
    }
    ~file_t() {
        for (db_t *db : dbs)
            db_destroy(db);
        db_run_history_set_file(nullptr);
        run_history_enabled = run_history_keep_forever = 1;
        run_history_days_to_keep = 90;
    }
    // A database that has read the file.
    db_t *open() {
        test_volume_t posix = test_volume_from_paths({"a", "b\\", "b\\c", "b\\C"}), windows = posix;
        posix.path = "\\home\\u";
        db_t *db = test_db_create({posix, windows}, 0);
        dbs.push_back(db);
        return db;
    }
    std::string text() { return read_file(name); }
};

void set(db_t *db, const std::string &path, u32 count, u64 date) {
    db_run_history_set_path(db, path.data(), static_cast<u32>(path.size()), count, date);
}
u32 get(db_t *db, const std::string &path) {
    const db_run_history_data_t *data = db_run_history_find(db, path.data(), static_cast<u32>(path.size()));
    return data ? data->count : 0;
}
std::string known(db_t *db) {
    std::string text;
    utf8_buf_t path;
    utf8_buf_init(&path);
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&db->run_history_links_by_count, &page, &position, &value);) {
        const auto *link = mem_ptr<const db_run_history_ptr_t>(value);
        db_item_get_full_path_name(&path, db_item(link->item));
        text +=
            std::string(path.data) + " " + std::to_string(db_run_history_link_get_data(link)->count) + "; ";
    }
    utf8_buf_kill(&path);
    return text;
}

TEST(DbRunHistoryFile, IsReadAndWritten) {
    file_t test;
    write_file(test.name, "\xEF\xBB\xBFLast Run Date,Filename,Other,run count\r\n"
                          "5,\"\\home\\u\\b\\c\",x,7\r\n"
                          "2016-10-28T10:45:16Z,C:\\B,,8\n"
                          "6,,x,7\r\n"
                          "6,C:\\a,x,none\r\n"
                          "6,C:\\a,x\r\n"
                          "6,\"C:\\not, \"\"there\"\"\",,99999999999\r\n"
                          "7,C:\\A,,2\r\n"
                          "8,c:\\a,,3\r\n"); // the later line of a path counts
    log_capture_t log;
    db_t *db = test.open();
    std::string lines = log.take();
    EXPECT_NE(lines.find("run history data count: 4, "), std::string::npos) << lines;
    EXPECT_NE(lines.find("run history ptr count: 3\n"), std::string::npos) << lines;
    EXPECT_EQ(known(db), "C:\\b 8; \\home\\u\\b\\c 7; C:\\a 3; ");
    EXPECT_FALSE(db->run_history_dirty);
    EXPECT_TRUE(db_run_history_save(db)); // nothing to write
    EXPECT_EQ(test.text().substr(0, 3), "\xEF\xBB\xBF");
    set(db, "C:\\b", 0, 0);
    set(db, "C:\\b\\c", 1, 9);
    EXPECT_TRUE(db_run_history_save(db));
    bool is_posix = os_path_separator == '/';
    EXPECT_EQ(test.text(), HEADER + (is_posix ? "\"/home/u/b/c\"" : "\"\\home\\u\\b\\c\"") +
                               ",7,5\r\n\"c:\\a\",3,8\r\n\"C:\\b\\c\",1,9\r\n"
                               "\"C:\\not, \"\"there\"\"\",4294967295,6\r\n");
    EXPECT_EQ(known(test.open()), known(db));
    EXPECT_EQ(read_file(test.name + ".tmp"), "(none)");
}

// Names of every kind come back from the file as they went.
TEST(DbRunHistoryFile, NamesSurvive) {
    utf8_buf_t text, path;
    utf8_buf_init(&text);
    utf8_buf_init(&path);
    bool is_posix = os_path_separator == '/';
    for (std::string name : {"\\home\\\xFF\xC3", "\\home\\line\nend\r",
                             "\\home\\a\xEF\x81\x9C"
                             "b",
                             "\\", "\\a", "C:\\x", "\\\\server\\share\\x", "\\home\\\xEF\x80", "relative"}) {
        if (!is_posix && name.find('\n') != std::string::npos)
            continue; // no name there
        db_run_history_path_to_text(name.data(), static_cast<u32>(name.size()), &text);
        std::string line(text.data, static_cast<size_t>(text.length));
        EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos);
        db_run_history_path_from_text(text.data, static_cast<u32>(text.length), &path);
        EXPECT_EQ(std::string(path.data, static_cast<size_t>(path.length)),
                  is_posix && name == "\\" ? "" : name)
            << line;
    }
    utf8_buf_kill(&text);
    utf8_buf_kill(&path);
}

TEST(DbRunHistoryFile, OldLinesAreDropped) {
    file_t test;
    u64 now = os_get_file_time();
    auto line = [](const char *name, u64 date) {
        return std::string(name) + ",1," + std::to_string(date) + "\r\n";
    };
    write_file(test.name, HEADER + line("C:\\a", now - 11 * DAY) + line("C:\\b", now - 9 * DAY) +
                              line("C:\\undated", 0));
    EXPECT_EQ(test.open()->run_history_by_name.count, 3u);
    run_history_days_to_keep = 10;
    EXPECT_EQ(test.open()->run_history_by_name.count, 3u);
    run_history_keep_forever = 0;
    db_t *db = test.open();
    EXPECT_EQ(known(db), "C:\\b 1; ");
    set(db, "C:\\a", 2, now);
    EXPECT_TRUE(db_run_history_save(db));
    // What the file said of it is added, as to any count from here; the rest is gone.
    EXPECT_EQ(known(db), "C:\\a 3; C:\\b 1; ");
    EXPECT_EQ(test.text().find("undated"), std::string::npos);
    run_history_days_to_keep = 0;
    EXPECT_EQ(test.open()->run_history_by_name.count, 2u);
}

struct merge_t {
    u32 first, here, there, merged; // 0: there is no such line
};

// What this program and another make of a count, and what comes of it in the file and in both.
TEST(DbRunHistoryFile, CountsOfSeveralProgramsAreAddedUp) {
    const merge_t merges[] = {
        {5, 5, 5, 5}, {5, 6, 5, 6}, {5, 5, 7, 7}, {5, 6, 7, 8}, {5, 0, 7, 0}, {5, 0, 5, 0},     {5, 5, 0, 0},
        {5, 6, 0, 1}, {5, 2, 7, 2}, {0, 2, 3, 5}, {0, 0, 3, 3}, {0, 1, 0, 1}, {0, ~0u, 3, ~0u},
    };
    for (const merge_t &merge : merges) {
        file_t test;
        db_t *first = test.open();
        set(first, "C:\\other", 1, 1); // the file is there
        set(first, "C:\\a", merge.first, 1);
        EXPECT_TRUE(db_run_history_save(first));
        db_t *here = test.open(), *there = test.open();
        set(here, "C:\\a", merge.here, 2);
        set(here, "C:\\here", 1, 1);
        set(there, "C:\\a", merge.there, merge.there == merge.first ? 1 : 3);
        set(there, "C:\\b", 1, 1);
        EXPECT_TRUE(db_run_history_save(there));
        EXPECT_TRUE(db_run_history_save(here));
        EXPECT_EQ(get(here, "C:\\a"), merge.merged) << merge.first << merge.here << merge.there;
        EXPECT_EQ(known(test.open()), known(here));
        EXPECT_EQ(get(here, "C:\\b"), 1u); // with its link
        EXPECT_EQ(here->run_history_by_item.count, merge.merged ? 2u : 1u);
        EXPECT_EQ(here->run_history_by_name.count, merge.merged ? 4u : 3u);
        EXPECT_FALSE(here->run_history_dirty);
        set(there, "C:\\there", 1, 1); // the other one takes over what it had not seen
        EXPECT_TRUE(db_run_history_save(there));
        EXPECT_EQ(known(there), known(here));
    }
}

// Nothing that is known here goes with a file that somebody deleted or emptied.
TEST(DbRunHistoryFile, ALostFileIsWrittenAnew) {
    for (bool is_there : {false, true}) {
        file_t test;
        db_t *db = test.open();
        set(db, "C:\\a", 1, 1);
        EXPECT_TRUE(db_run_history_save(db));
        std::string text = test.text();
        is_there ? write_file(test.name, "") : static_cast<void>(os_delete_file(test.name.c_str()));
        set(db, "C:\\b", 1, 1);
        EXPECT_TRUE(db_run_history_save(db));
        EXPECT_EQ(test.text().substr(0, text.size()), text);
        EXPECT_EQ(get(db, "C:\\b"), 1u);
    }
}

TEST(DbRunHistoryFile, IsWrittenByItselfAndBeforeARebuild) {
    file_t test;
    db_t *db = test.open();
    set(db, "C:\\a", 1, 1);
    EXPECT_TRUE(db->run_history_save_posted);
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_rebuild_start(db, &wanted, nullptr);
    EXPECT_NE(test.text().find("C:\\a"), std::string::npos);
    test_db_wait(db);
    EXPECT_EQ(db->run_history_by_name.count, 1u); // no item has the path
    EXPECT_EQ(known(db), "");
    set(db, "C:\\b", 1, 1);
    db->run_history_save(db); // as if the time had passed
    EXPECT_NE(test.text().find("C:\\b"), std::string::npos);
    EXPECT_FALSE(db->run_history_save_posted);
    db_wanted_kill(&wanted);
}

TEST(DbRunHistoryFile, FollowsTheSettingAndIsDeleted) {
    file_t test;
    db_t *db = test.open();
    set(db, "C:\\a", 1, 1);
    run_history_enabled = 0;
    EXPECT_TRUE(db_run_history_changed(db));
    EXPECT_FALSE(db_run_history_changed(db));
    EXPECT_EQ(known(db), "");
    EXPECT_FALSE(db->run_history_loaded);
    EXPECT_FALSE(test.open()->run_history_loaded);
    run_history_enabled = 1;
    EXPECT_TRUE(db_run_history_changed(db));
    EXPECT_EQ(known(db), "C:\\a 1; ");
    EXPECT_TRUE(db_run_history_delete(db));
    EXPECT_EQ(known(db), "");
    EXPECT_EQ(test.text(), "(none)");
    EXPECT_TRUE(db_run_history_save(db));
    EXPECT_EQ(test.text(), "(none)");
    set(db, "C:\\a", 1, 1); // it goes on
    EXPECT_TRUE(db_run_history_save(db));
    EXPECT_NE(test.text(), "(none)");
}

TEST(DbRunHistoryFile, WaitsForWhoHasTheLock) {
    file_t test;
    db_t *db = test.open();
    set(db, "C:\\a", 1, 1);
    platform_file_t lock = os_lock_file(test.name.c_str(), 0);
    ASSERT_NE(lock, PLATFORM_FILE_NONE);
    EXPECT_EQ(os_lock_file(test.name.c_str(), 10), PLATFORM_FILE_NONE);
    std::thread other([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        write_file(test.name, HEADER + "\"C:\\a\",4,1\r\n");
        os_close(lock);
    });
    EXPECT_TRUE(db_run_history_save(db));
    other.join();
    EXPECT_EQ(get(db, "C:\\a"), 5u);
    EXPECT_EQ(os_lock_file((test.folder / "none\\x").c_str(), 0), PLATFORM_FILE_NONE);
}

} // namespace
