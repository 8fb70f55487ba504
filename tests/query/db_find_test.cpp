#include "query/db_find.h"

#include "db/db_file.h"
#include "db/db_folder.h"
#include "support/live_world.h"
#include "support/test_db.h"
#include "track/db_live_internal.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace findwright {
namespace {

constexpr u32 COLUMNS = DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED;

std::string path_of(const db_item_t *item) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    std::string text(path.data, static_cast<size_t>(path.length));
    utf8_buf_kill(&path);
    return text;
}

db_find_t *open_find(db_t *db, const std::string &path) {
    return db_find_first_file(db, path.data(), static_cast<u32>(path.size()), COLUMNS);
}

// Full paths, folders with a separator behind them.
std::vector<std::string> read_entries(const db_find_t *find) {
    std::vector<std::string> paths;
    db_find_entry_t entry;
    for (u32 i = 0; i < db_find_get_count(find); i++) {
        EXPECT_TRUE(db_find_get_entry(find, i, &entry));
        paths.push_back(path_of(entry.item) + (entry.is_folder ? "\\" : ""));
    }
    EXPECT_FALSE(db_find_get_entry(find, db_find_get_count(find), &entry));
    return paths;
}

std::vector<std::string> list(db_t *db, const std::string &path) {
    db_find_t *find = open_find(db, path);
    if (!find)
        return {"no folder"};
    std::vector<std::string> entries = read_entries(find);
    db_find_close(find);
    return entries;
}

// The children of every folder by the texts of all paths, in name order, folders first.
std::map<std::string, std::vector<std::string>> get_plain_children(const db_t *db) {
    std::map<std::string, std::vector<std::string>> children;
    for (bool is_folder : {true, false}) {
        for (const std::string &path :
             test_array_paths(is_folder ? &db->folder_name_array : &db->file_name_array)) {
            size_t at = path.rfind('\\');
            if (is_folder)
                children[path];
            children[at != std::string::npos ? path.substr(0, at) : ""].push_back(path +
                                                                                  (is_folder ? "\\" : ""));
        }
    }
    return children;
}

TEST(DbFind, LooksPathsUp) {
    std::vector<test_volume_t> volumes;
    auto add = [&volumes](const char *root, const std::vector<std::string> &paths) {
        volumes.push_back(test_volume_from_paths(paths));
        volumes.back().path = root;
    };
    add("C:", {"Users\\Ann\\notes.txt", "Users\\ann\\todo.txt", "both", "BOTH\\x", "only"});
    add("\\home\\u", {"a.txt", "sub\\b.txt"});
    add("\\home\\u\\sub", {"c.txt"});
    add("\\\\server\\share", {"d\\e.txt"});
    add("", {"etc\\fstab"});
    for (u32 flags : {0u, DB_FLAG_FAST_PATH}) {
        db_t *db = test_db_create(volumes, flags);
        static const struct {
            const char *path, *file, *folder; // what is found; 0: nothing
        } rows[] = {
            {"", nullptr, nullptr},
            {"\\", nullptr, ""},
            {"C:", nullptr, "C:"},
            {"c:\\", nullptr, "C:"},
            {"C:\\Users\\Ann", nullptr, "C:\\Users\\Ann"},
            {"C:\\Users\\ann\\todo.txt", "C:\\Users\\ann\\todo.txt", nullptr},
            {"C:\\users\\ANN\\TODO.TXT", "C:\\Users\\ann\\todo.txt", nullptr},
            {"c:\\users\\ann\\Notes.txt", "C:\\Users\\Ann\\notes.txt", nullptr},
            {"C:\\both", "C:\\both", nullptr}, // a folder is called so but for case
            {"C:\\BOTH", nullptr, "C:\\BOTH"},
            {"C:\\only\\x", nullptr, nullptr}, // below a file
            {"C:\\Users\\", nullptr, "C:\\Users"},
            {"C:\\Users\\\\Ann", nullptr, nullptr},
            {"C:\\User", nullptr, nullptr},
            {"Users", nullptr, nullptr},
            {"\\home", nullptr, nullptr},
            {"\\home\\u", nullptr, "\\home\\u"},
            {"\\HOME\\u\\A.txt", "\\home\\u\\a.txt", nullptr},
            {"\\home\\u\\sub\\b.txt", "\\home\\u\\sub\\b.txt", nullptr},
            {"\\home\\u\\sub\\c.txt", "\\home\\u\\sub\\c.txt", nullptr}, // of the other index
            {"\\\\server\\share\\d\\e.txt", "\\\\server\\share\\d\\e.txt", nullptr},
            {"\\\\server", nullptr, nullptr},
            {"\\etc\\fstab", "\\etc\\fstab", nullptr},
        };
        for (const auto &row : rows) {
            SCOPED_TRACE(row.path);
            u32 length = static_cast<u32>(std::strlen(row.path));
            EXPECT_EQ(row.file != nullptr, db_file_exists(db, row.path, length));
            EXPECT_EQ(row.folder || length == 0, db_folder_exists(db, row.path, length));
            db_result_t item;
            ASSERT_EQ(row.file || row.folder, db_find_item(db, row.path, length, &item));
            if (item.item) {
                EXPECT_EQ(row.folder != nullptr, item.is_folder);
                EXPECT_EQ(row.folder ? row.folder : row.file, path_of(item.item));
            }
        }
        using names_t = std::vector<std::string>;
        EXPECT_EQ((names_t{"\\\\server\\share\\", "\\home\\u\\", "\\home\\u\\sub\\", "C:\\", "\\etc\\"}),
                  list(db, "")); // by names, and what the nameless top holds in its place
        EXPECT_EQ((names_t{"\\etc\\"}), list(db, "\\"));
        EXPECT_EQ((names_t{"\\etc\\fstab"}), list(db, "\\etc"));
        EXPECT_EQ((names_t{"\\home\\u\\sub\\b.txt", "\\home\\u\\sub\\c.txt"}), list(db, "\\home\\u\\sub"));
        EXPECT_EQ((names_t{"C:\\Users\\Ann\\notes.txt"}), list(db, "c:\\users\\Ann\\"));
        EXPECT_EQ((names_t{"no folder"}), list(db, "C:\\only"));
        db_destroy(db);
    }
}

// Folders whose paths differ in case only, with names around the separator and long subtrees, so that what is
// below them is mixed in every order.
TEST(DbFind, ListsWhatStandsInEveryFolder) {
    std::vector<std::string> paths;
    for (const char *top : {"a", "A", "\xC3\xA1", "a b", "a!"}) {
        for (u32 i = 0; i < 12; i++) {
            for (const char *tail : {"", " b", "!", "]"}) {
                std::string child = std::string(top) + (i % 2 ? "\\x" : "\\X") + std::to_string(i) + tail;
                for (u32 j = 0; j < i * 3; j++)
                    paths.push_back(child + "\\deep" + std::to_string(j) + (j % 2 ? "\\" : "\\f.txt"));
                paths.push_back(child + ".txt");
            }
        }
    }
    // A child between another folder's child and what is below that one.
    for (u32 i = 10; i < 26; i++) {
        std::string name = std::to_string(i);
        for (u32 j = 10; j < 40; j++)
            paths.push_back("P" + name + "\\y" + std::to_string(j) + (j == i + 10 ? "\\z\\" : "\\"));
        paths.push_back("p" + name + "\\y" + std::to_string(i + 10) + " b\\");
    }
    for (u32 flags : {0u, DB_FLAG_FAST_PATH}) {
        db_t *db = test_db_create({test_volume_from_paths(paths)}, flags);
        auto plain = get_plain_children(db);
        EXPECT_LT(1000u, plain.size());
        for (const auto &[folder, children] : plain) {
            if (list(db, folder) != children) {
                EXPECT_EQ(children, list(db, folder)) << folder;
                break;
            }
        }
        db_destroy(db);
    }
}

TEST(DbFind, SortsBySizeAndDateAndName) {
    test_volume_t volume = test_volume_from_paths({"d\\c.txt", "d\\A.txt", "d\\b.txt", "d\\z\\", "d\\y\\"});
    for (test_record_t &record : volume.records) {
        if (record.name == u"A.txt")
            record.size = 30, record.date = 1;
        if (record.name == u"b.txt")
            record.size = 10, record.date = 3;
        if (record.name == u"c.txt")
            record.size = 20, record.date = 2;
    }
    db_t *db = test_db_create({volume}, DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED);
    db_find_t *find = open_find(db, "C:\\d");
    ASSERT_TRUE(find);
    static const struct {
        u32 sort;
        const char *names; // the last letters of folders in capitals, the first of files; ?: any
    } rows[] = {
        {DB_SORT_NAME_ASCENDING, "YZabc"},
        {DB_SORT_NAME_DESCENDING, "ZYcba"},
        {DB_SORT_PATH_ASCENDING, "YZabc"},
        {DB_SORT_SIZE_ASCENDING, "YZbca"},
        {DB_SORT_SIZE_ASCENDING + DB_SORT_DESCENDING, "ZYacb"},
        {DB_SORT_DATE_MODIFIED_ASCENDING + DB_SORT_DESCENDING, "?\?bca"},
    };
    for (const auto &row : rows) {
        ASSERT_TRUE(db_find_sort(find, row.sort));
        std::string names;
        db_find_entry_t entry;
        while (db_find_next_file(find, &entry)) {
            char letter = path_of(entry.item)[5];
            names += static_cast<char>(entry.is_folder ? std::toupper(letter) : std::tolower(letter));
            if (letter == 'b') {
                EXPECT_EQ(10u, entry.size);
                EXPECT_EQ(3u, entry.date_modified);
            }
        }
        for (size_t i = 0; row.names[i]; i++)
            EXPECT_TRUE(row.names[i] == '?' || row.names[i] == names[i]) << names << " for " << row.names;
        EXPECT_EQ(5u, names.size());
    }
    EXPECT_FALSE(db_find_sort(find, DB_SORT_EXTENSION_ASCENDING));
    db_find_close(find);
    db_destroy(db);
}

// --- While the index changes -------------------------------------------------------------------------------

struct held_t {
    std::string path;
    db_find_t *find;
    std::map<mem_ref_t, std::string> entries; // when it was collected, and the folder itself
};

void hold(held_t *held, db_t *db) {
    held->entries.clear();
    db_find_entry_t entry;
    for (u32 i = 0; db_find_get_entry(held->find, i, &entry); i++)
        held->entries[mem_ref(entry.item)] = path_of(entry.item);
    db_result_t folder;
    if (db_find_item(db, held->path.data(), static_cast<u32>(held->path.size()), &folder))
        held->entries[mem_ref(folder.item)] = held->path;
    std::vector<std::string> plain = get_plain_children(db)[held->path], found = read_entries(held->find);
    std::sort(plain.begin(), plain.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(plain, found) << held->path;
}

// All that it holds is there as it was, or it is stale.
void check_held(held_t *held, live_world_t *world, const std::map<mem_ref_t, std::string> &items,
                u32 *stale_count) {
    bool is_whole = true;
    for (const auto &[ref, path] : held->entries) {
        auto found = items.find(ref);
        is_whole = is_whole && found != items.end() && found->second == path;
    }
    if (!db_find_is_stale(held->find)) {
        EXPECT_TRUE(is_whole) << held->path << " holds what is gone";
        EXPECT_EQ(held->entries.size(), db_find_get_count(held->find) + (held->path.empty() ? 0 : 1));
        return;
    }
    (*stale_count)++;
    db_find_entry_t entry;
    EXPECT_EQ(0u, db_find_get_count(held->find));
    EXPECT_FALSE(db_find_get_entry(held->find, 0, &entry));
    u32 length = static_cast<u32>(held->path.size());
    bool is_there = length == 0 || db_folder_exists(world->db, held->path.data(), length);
    ASSERT_EQ(is_there, db_find_restart(held->find));
    if (!is_there) { // then another one
        db_find_close(held->find);
        held->path = live_world_path(world, live_world_any(world, true));
        held->find = open_find(world->db, held->path);
        ASSERT_TRUE(held->find) << held->path;
    } else if (length != 0) { // maybe by other letters now
        db_result_t folder;
        ASSERT_TRUE(db_find_item(world->db, held->path.data(), length, &folder));
        held->path = path_of(folder.item);
    }
    hold(held, world->db);
}

std::map<mem_ref_t, std::string> get_all_items(const db_t *db) {
    std::map<mem_ref_t, std::string> items;
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        u32 page = 0, value;
        for (i32 position = -1; array_next_to(array, &page, &position, &value);)
            items[value] = path_of(db_item(value));
    }
    return items;
}

TEST(DbFind, IsStaleOnceWhatItHoldsGoesOrMoves) {
    u32 few = db_live_few;
    for (u32 limit : {few, 0u}) {
        for (u32 flags : {0u, TEST_FLAGS_ALL}) {
            db_live_few = limit;
            live_world_t world;
            live_world_create(&world, flags, DB_INDEX_TYPE_NTFS, false, 7 + limit);
            live_world_fill(&world, 300);
            std::vector<held_t> held(4);
            for (held_t &one : held) {
                one.path = &one == &held[0] ? "" : live_world_path(&world, live_world_any(&world, true));
                one.find = open_find(world.db, one.path);
                ASSERT_TRUE(one.find);
                hold(&one, world.db);
            }
            u32 stale_count = 0, checks = 0;
            std::string problem;
            for (u32 i = 0; i < 150 && !HasFailure(); i++) {
                live_world_step(&world, &problem);
                auto items = get_all_items(world.db);
                for (held_t &one : held)
                    check_held(&one, &world, items, &stale_count);
                checks += static_cast<u32>(held.size());
            }
            EXPECT_EQ("", problem);
            EXPECT_LT(10u, stale_count);
            EXPECT_LT(stale_count, checks / 2); // what does not concern it leaves it alone
            for (held_t &one : held)
                db_find_close(one.find);
            live_world_destroy(&world);
        }
    }
    db_live_few = few;
}

TEST(DbFind, IsStaleWhenAllGoesFromItsFolder) {
    u32 few = db_live_few;
    for (u32 limit : {few, 0u}) {
        db_live_few = limit;
        live_world_t world;
        live_world_create(&world, TEST_FLAGS_ALL, DB_INDEX_TYPE_FOLDER, false, 3);
        live_world_fill(&world, 50);
        db_find_t *find = open_find(world.db, "C:");
        ASSERT_TRUE(find);
        EXPECT_LT(0u, db_find_get_count(find));
        std::vector<db_find_t *> others; // of all folders below, most of them empty
        for (const auto &[number, node] : world.nodes) {
            if (node.is_folder && number != world.root)
                others.push_back(open_find(world.db, live_world_path(&world, number)));
        }
        db_folder_remove_tree(world.db, static_cast<db_folder_t *>(live_world_find(&world, world.root)));
        for (db_find_t *other : others) {
            EXPECT_TRUE(db_find_is_stale(other));
            EXPECT_FALSE(db_find_restart(other));
            db_find_close(other);
        }
        EXPECT_TRUE(db_find_is_stale(find));
        EXPECT_TRUE(db_find_restart(find));
        EXPECT_EQ(0u, db_find_get_count(find));
        db_find_close(find);
        live_world_destroy(&world);
    }
    db_live_few = few;
}

TEST(DbFind, ARebuildMakesItStale) {
    std::vector<test_volume_t> volumes = {test_volume_from_paths({"d\\a.txt"})};
    db_t *db = test_db_create(volumes, 0);
    db_find_t *find = open_find(db, "C:\\d");
    ASSERT_TRUE(find);
    db_forget_work(db);
    EXPECT_TRUE(db_find_is_stale(find));
    EXPECT_EQ(0u, db_find_get_count(find));
    db->loaded = 1;
    EXPECT_TRUE(db_find_restart(find));
    EXPECT_EQ(1u, db_find_get_count(find));
    db_find_close(find);
    db_destroy(db);
}

} // namespace
} // namespace findwright
