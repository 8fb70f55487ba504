// The rebuild's scan of a folder: what holds on every system.
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/event.h"
#include "os/os_test_support.h"
#include "support/test_db.h"

#include <map>
#include <random>

namespace findwright {
namespace {

using namespace std::string_literals;

void start(db_t *db, const std::string &path, const std::vector<const char *> &excluded = {}) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    wanted.index_flags = TEST_FLAGS_ALL;
    for (const char *pattern : excluded)
        db_exclude_add(&wanted.exclude.exclude_folders, pattern);
    db_exclude_update_needs(&wanted.exclude);
    db_wanted_add_folder(&wanted, path.c_str());
    db_rebuild_start(db, &wanted, nullptr);
}

// What an item is known by, without its path; a folder has no date, since a system may give it another one
// with every item that is put into it.
std::string describe(bool is_folder, u64 size, u64 date) {
    return (is_folder ? "D " : "F ") + std::to_string(size) + (is_folder ? "" : " " + std::to_string(date));
}

using items_t = std::map<std::string, std::string>; // by path

items_t describe_db(db_t *db) {
    items_t items;
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        const bool is_folder = array == &db->folder_name_array;
        const std::vector<std::string> paths = test_array_paths(array);
        u32 page;
        i32 position;
        for (u32 i = 0; i < array->count; i++) {
            const db_item_t *item = db_item(array_get(array, i, &page, &position));
            auto [place, is_new] = items.try_emplace(
                paths[i],
                describe(is_folder, is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item),
                         is_folder ? 0 : db_file_get_date_modified(db, item)));
            EXPECT_TRUE(is_new) << paths[i];
            const u32 attributes =
                is_folder ? db_folder_get_attributes(db, item) : db_file_get_attributes(db, item);
            EXPECT_EQ((attributes & 0x10) != 0, is_folder) << paths[i];
            EXPECT_NE(attributes, 0u) << paths[i];
        }
    }
    return items;
}

items_t scan(const std::string &path, const std::vector<const char *> &excluded = {}) {
    db_t *db = db_create();
    start(db, path, excluded);
    test_db_wait(db);
    items_t items = describe_db(db);
    db_destroy(db);
    return items;
}

// The same by a plain walk. Returns the size of all files.
u64 walk(const std::filesystem::path &folder, const std::string &name, items_t *items) {
    u64 total = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string path = name + "\\" + entry.path().filename().string();
        if (entry.is_directory()) {
            total += walk(entry.path(), path, items);
            continue;
        }
        os_file_info_t info;
        EXPECT_TRUE(os_get_file_info(path.c_str(), &info));
        items->emplace(path, describe(false, info.size, info.date_modified));
        total += info.size;
    }
    items->emplace(name, describe(true, total, 0));
    return total;
}

// Folders in folders, some with very many folders, some empty; sizes differ.
void make_tree(const temp_folder_t &folder, u32 count, u32 seed) {
    std::mt19937 random(seed);
    std::vector<std::string> folders = {folder.name};
    for (u32 i = 0; i < count; i++) {
        const std::string &parent = folders[i % 3 ? random() % folders.size() : folders.size() / 2];
        const std::string name = parent + "\\" + "n" + std::to_string(i);
        if (i % 2) {
            ASSERT_TRUE(os_create_folder(name.c_str()));
            folders.push_back(name);
        } else {
            write_file(name + ".txt", std::string(random() % 300, 'x'));
        }
    }
}

struct max_threads_scope_t {
    explicit max_threads_scope_t(u32 count) { max_threads = count; }
    ~max_threads_scope_t() { max_threads = old; }
    u32 old = max_threads;
};

TEST(DbCreateFolder, TheTreeIsThatOfAPlainWalk) {
    temp_folder_t folder;
    make_tree(folder, 1200, 1);
    for (u32 i = 0; i < 700; i++) // more than are handed on at once
        ASSERT_TRUE(os_create_folder((folder / ("wide" + std::to_string(i))).c_str()));
    items_t expected;
    walk(folder.path, folder.name, &expected);
    ASSERT_EQ(expected.size(), 1901u);
    EXPECT_EQ(scan(folder.name), expected);
    EXPECT_EQ(scan(folder.name + "\\"), expected); // the root's name is without it
    max_threads_scope_t one(1);
    EXPECT_EQ(scan(folder.name), expected);
}

TEST(DbCreateFolder, AnEmptyFolderIsItsRootAlone) {
    temp_folder_t folder;
    log_capture_t log;
    db_t *db = db_create();
    start(db, folder.name);
    test_db_wait(db);
    EXPECT_EQ(describe_db(db), (items_t{{folder.name, "D 0"}}));
    ASSERT_EQ(db->index_count, 1u);
    EXPECT_EQ(db->index_first->type, DB_INDEX_TYPE_FOLDER);
    u32 page;
    i32 position;
    const db_item_t *root = db_item(array_get(&db->folder_name_array, 0, &page, &position));
    EXPECT_EQ(db_get_index(root), db->index_first);
    EXPECT_NE(db_folder_get_date_modified(db, root), VALUE_UNKNOWN);
    db_destroy(db);
    const std::string text = log.take();
    EXPECT_NE(text.find("scanning " + folder.name + "...\n"), std::string::npos) << text;
    EXPECT_NE(text.find("scan completed in "), std::string::npos) << text;
}

TEST(DbCreateFolder, WhatIsNoFolderAddsNothing) {
    temp_folder_t folder;
    write_file(folder / "file", "text");
    for (const std::string &path : {folder / "gone", folder / "file", folder / "gone\\below", ""s}) {
        log_capture_t log;
        EXPECT_EQ(scan(path), items_t{}) << path;
        EXPECT_NE(log.take().find("scan completed in "), std::string::npos);
    }
}

TEST(DbCreateFolder, AFolderThatIsOfflineKeepsItsItems) {
    temp_folder_t folder;
    const std::string root = folder / "share";
    ASSERT_TRUE(os_create_folder(root.c_str()));
    write_file(root + "\\a", "1");
    db_t *db = db_create();
    start(db, root);
    test_db_wait(db);
    const items_t before = describe_db(db);
    EXPECT_EQ(before.size(), 2u);

    ASSERT_TRUE(os_move_replace(root.c_str(), (folder / "away").c_str(), false, true));
    db->index_first->out_of_date = 1;
    start(db, root);
    test_db_wait(db);
    EXPECT_EQ(describe_db(db), before);

    ASSERT_TRUE(os_move_replace((folder / "away").c_str(), root.c_str(), false, true));
    write_file(root + "\\b", "22");
    db->index_first->out_of_date = 1;
    start(db, root);
    test_db_wait(db);
    EXPECT_EQ(describe_db(db).size(), 3u);
    db_destroy(db);
}

TEST(DbCreateFolder, ExcludedFoldersAreLeftOutWithAllBelow) {
    temp_folder_t folder;
    for (const char *name : {"keep", "keep\\Cache", "keep\\Cache\\deep", "out", "out\\keep"}) {
        ASSERT_TRUE(os_create_folder((folder / name).c_str()));
        write_file(folder / (name + "\\f"s), "12345");
    }
    const std::string &root = folder.name;
    const std::string out = root + "\\OUT\\", below = root + "\\keep\\c*";
    const size_t slash = root.find_last_of('\\') + 1;
    const std::string own_name = root.substr(slash);
    const struct {
        std::vector<const char *> patterns;
        size_t count;
    } rows[] = {
        {{}, 11},
        {{"cache"}, 7},
        {{"*ach*", "d*"}, 7},
        {{out.c_str()}, 7},
        {{out.c_str(), "cache"}, 3},
        {{below.c_str()}, 7},
        {{"keep"}, 3},
        {{own_name.c_str()}, 11}, // the root's name is its whole path
        {{root.c_str()}, 0},
        {{"*"}, 0},
    };
    for (const auto &row : rows) {
        const items_t items = scan(root, row.patterns);
        EXPECT_EQ(items.size(), row.count) << (row.patterns.empty() ? "" : row.patterns[0]);
        // The sizes of folders count what is in the index.
        if (row.count) {
            EXPECT_EQ(items.at(root), "D " + std::to_string((row.count - 1) / 2 * 5));
        }
    }
}

TEST(DbCreateFolder, ARebuildThatIsCancelledEnds) {
    temp_folder_t folder;
    make_tree(folder, 400, 2);
    items_t all;
    walk(folder.path, folder.name, &all);
    for (u32 turn = 0; turn < 20; turn++) {
        db_t *db = db_create();
        start(db, folder.name);
        event_wait_and_dispatch(turn % 4); // at different places
        db_rebuild_cancel(db);
        test_db_wait(db);
        for (const auto &[path, text] : describe_db(db))
            EXPECT_TRUE(all.count(path)) << path;
        db_destroy(db);
    }
}

} // namespace
} // namespace findwright
