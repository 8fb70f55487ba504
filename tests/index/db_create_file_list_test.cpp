// The rebuild's file lists: what tree the rows make, in whatever order they come.
#include "db/db_file.h"
#include "db/db_folder.h"
#include "index/file_list.h"
#include "os/os_test_support.h"
#include "support/memory_file.h"
#include "support/test_db.h"

#include <algorithm>
#include <map>
#include <random>

namespace findwright {
namespace {

using namespace std::string_literals;

const std::string header = "Filename,Size,Date Modified,Attributes\n";

void start(db_t *db, const std::vector<std::string> &lists, bool exclude_hidden = false,
           u32 flags = TEST_FLAGS_ALL) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    wanted.index_flags = flags;
    wanted.exclude.exclude_hidden = exclude_hidden;
    for (const std::string &list : lists)
        db_wanted_add_file_list(&wanted, list.c_str(), true);
    db_rebuild_start(db, &wanted, nullptr);
}

// A database of lists with these texts.
db_t *create(const std::vector<std::string> &texts, bool exclude_hidden = false) {
    temp_folder_t folder;
    std::vector<std::string> lists;
    for (const std::string &text : texts) {
        lists.push_back(folder / (std::to_string(lists.size()) + ".fwl"));
        write_file(lists.back(), text);
    }
    db_t *db = db_create();
    start(db, lists, exclude_hidden);
    test_db_wait(db);
    return db;
}

std::string number(u64 value) {
    return value == VALUE_UNKNOWN ? "-" : std::to_string(value);
}

// "D PATH SIZE DATE ATTRIBUTES" and "F ...", each with the date of its parent, which tells one twin from the
// other. Folders first, each kind in path order.
std::vector<std::string> describe(db_t *db) {
    std::vector<std::string> lines;
    for (bool folders : {true, false}) {
        const array_t *array = folders ? &db->folder_path_array : &db->file_path_array;
        const std::vector<std::string> paths = test_array_paths(array);
        u32 page;
        i32 position;
        for (u32 i = 0; i < array->count; i++) {
            const db_item_t *item = db_item(array_get(array, i, &page, &position));
            std::string line = (folders ? "D " : "F ") + paths[i] + " ";
            line += number(folders ? db_folder_get_size(db, item) : db_file_get_size(db, item)) + " ";
            line +=
                number(folders ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item));
            line += " " + std::to_string(folders ? db_folder_get_attributes(db, item)
                                                 : db_file_get_attributes(db, item));
            const bool is_top = db_item_is_top(item);
            lines.push_back(
                line + " in " +
                (is_top ? "list" : number(db_folder_get_date_modified(db, db_item(item->parent)))));
        }
    }
    return lines;
}

std::vector<std::string> describe_lists(const std::vector<std::string> &texts, bool exclude_hidden = false) {
    db_t *db = create(texts, exclude_hidden);
    std::vector<std::string> lines = describe(db);
    db_destroy(db);
    return lines;
}

TEST(DbCreateFileList, RowsMakeATree) {
    const struct {
        std::string rows;
        std::vector<std::string> items;
    } lists[] = {
        {"", {}},
        {"C:\\a\\b.txt,3,7,32\n",
         {"D C: 3 - 16 in list", "D C:\\a 3 - 16 in -", "F C:\\a\\b.txt 3 7 32 in -"}},
        // A folder's row behind those below it, and its own size counts for nothing.
        {"C:\\a\\b,3,7,32\nC:\\a,100,5,17\nC:,,4,22\n",
         {"D C: 3 4 22 in list", "D C:\\a 3 5 17 in 4", "F C:\\a\\b 3 7 32 in 5"}},
        // Twins: what is below is below the last one, made-up folders too. Files repeat in the list's order.
        {"C:\\a,,1,16\nC:\\a\\x,1,9\nC:\\a\\b\\y,2\nC:\\a,,2,16\nC:\\a\\z,4\nC:\\a\\b,,3,16\nC:\\a\\b\\y,1\n"
         "C:\\a,,0,16\n",
         {"D C: 8 - 16 in list", "D C:\\a 0 1 16 in -", "D C:\\a 0 2 16 in -", "D C:\\a 8 0 16 in -",
          "D C:\\a\\b 3 3 16 in 0", "F C:\\a\\x 1 9 0 in 0", "F C:\\a\\z 4 - 0 in 0",
          "F C:\\a\\b\\y 2 - 0 in 3", "F C:\\a\\b\\y 1 - 0 in 3"}},
        {"C:\\a,1\nC:\\a,,5,16\nC:\\a\\b,2\n",
         {"D C: 3 - 16 in list", "D C:\\a 2 5 16 in -", "F C:\\a 1 - 0 in -", "F C:\\a\\b 2 - 0 in 5"}},
        // Case, and names that begin one another.
        {"C:\\a\\1\nc:\\a\\2\nC:\\A\\3\nC:\\a b\\4\nC:\\ab\\5\nC:\\a\\6\n",
         {"D C: 0 - 16 in list", "D c: 0 - 16 in list", "D C:\\A 0 - 16 in -", "D C:\\a 0 - 16 in -",
          "D c:\\a 0 - 16 in -", "D C:\\a b 0 - 16 in -", "D C:\\ab 0 - 16 in -", "F C:\\a\\1 - - 0 in -",
          "F c:\\a\\2 - - 0 in -", "F C:\\A\\3 - - 0 in -", "F C:\\a\\6 - - 0 in -",
          "F C:\\a b\\4 - - 0 in -", "F C:\\ab\\5 - - 0 in -"}},
        // Separators at the end count for nothing, and alone are no item. Empty components in the middle are.
        {"C:\\a\\\\,,5,16\nC:\\a\\\\b\\,1,6\nC:\\,,7,16\n\\\\,,8,16\n\\\\,9\n",
         {"D C: 1 7 16 in list", "D C:\\a 1 5 16 in 7", "D C:\\a\\ 1 - 16 in 5", "F C:\\a\\\\b 1 6 0 in -"}},
        // Tops of other kinds.
        {"\\\\server\\share\\a,1\n\\\\\\b,2\nproto://server/a/b.txt,3\nproto://server/c,,5,16\n"
         "C:\\a\\..\\x.txt,4\n\\\\server,,6,16\n",
         {"D \\\\ 2 - 16 in list", "D \\\\server 1 6 16 in list", "D \\\\server\\share 1 - 16 in 6",
          "D C: 4 - 16 in list", "D C:\\a 4 - 16 in -", "D C:\\a\\.. 4 - 16 in -",
          "D proto://server/c 0 5 16 in list", "F proto://server/a/b.txt 3 - 0 in list",
          "F \\\\\\b 2 - 0 in -", "F \\\\server\\share\\a 1 - 0 in -", "F C:\\a\\..\\x.txt 4 - 0 in -"}},
    };
    for (const auto &list : lists)
        EXPECT_EQ(describe_lists({header + list.rows}), list.items) << list.rows;
}

struct row_t {
    std::vector<std::string> components;
    bool is_folder;
    u64 value; // size of a file, date
};

std::string join(const std::vector<std::string> &components, size_t count) {
    std::string path = components[0];
    for (size_t i = 1; i < count; i++)
        path += "\\" + components[i];
    return path;
}

std::string list_text(const std::vector<row_t> &rows) {
    std::string text = header;
    for (const row_t &row : rows) {
        const std::string value = std::to_string(row.value);
        text += "\"" + join(row.components, row.components.size()) + "\"," + value + "," + value + "," +
                (row.is_folder ? "16" : "0") + "\n";
    }
    return text;
}

// What a list makes, by the rule and not by a tree: each folder has as many items as rows, or one.
std::vector<std::string> expect_lines(const std::vector<row_t> &rows) {
    std::map<std::string, std::vector<std::string>> folders; // their dates
    std::map<std::string, std::string> parents;
    for (const row_t &row : rows) {
        for (size_t count = 1; count <= row.components.size(); count++) {
            const bool is_own = count == row.components.size();
            if (is_own && !row.is_folder)
                break;
            const std::string path = join(row.components, count);
            parents[path] = count > 1 ? join(row.components, count - 1) : "";
            auto &dates = folders[path];
            if (is_own)
                dates.push_back(std::to_string(row.value));
        }
    }
    const auto below = [&](const std::string &parent) {
        const std::string date = parent.empty() || folders[parent].empty() ? "-" : folders[parent].back();
        return " in " + (parent.empty() ? "list" : date);
    };
    std::vector<std::string> lines;
    for (const auto &[path, dates] : folders) {
        for (const std::string &date : dates.empty() ? std::vector{"-"s} : dates)
            lines.push_back("D " + path + " " + date + " 16" + below(parents[path]));
    }
    for (const row_t &row : rows) {
        const size_t count = row.components.size();
        const std::string value = std::to_string(row.value);
        if (!row.is_folder)
            lines.push_back("F " + join(row.components, count) + " " + value + " 0" +
                            below(count > 1 ? join(row.components, count - 1) : ""));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// The same without sizes, which are sums for folders, and in no order.
std::vector<std::string> made_lines(const std::vector<std::string> &texts) {
    std::vector<std::string> lines = describe_lists(texts);
    for (std::string &line : lines) {
        size_t end = line.size();
        for (int word = 0; word < 4; word++) // the date, the attributes, "in" and the parent's date stay
            end = line.rfind(' ', end - 1);
        const size_t size = line.rfind(' ', end - 1);
        line.erase(size, end - size);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

TEST(DbCreateFileList, AnyOrderOfTheRowsMakesTheSameTree) {
    static const char *const tops[] = {"C:", "c:", "\\\\s", "D:"};
    static const char *const names[] = {"a", "A", "a b", "ab", "b", "abcdefghi", "abcdefghj", ".."};
    for (u32 seed = 1; seed <= 60; seed++) {
        std::mt19937 random(seed);
        std::vector<row_t> rows;
        for (size_t i = 0, n = 1 + random() % 300; i < n; i++) {
            row_t row = {{tops[random() % std::size(tops)]}, random() % 4 == 0, i};
            for (size_t depth = random() % 6; depth != 0; depth--)
                row.components.push_back(names[random() % std::size(names)]);
            rows.push_back(row);
        }
        EXPECT_EQ(made_lines({list_text(rows)}), expect_lines(rows)) << seed;
        std::sort(rows.begin(), rows.end(),
                  [](const row_t &a, const row_t &b) { return a.components < b.components; });
        EXPECT_EQ(made_lines({list_text(rows)}), expect_lines(rows)) << seed;
        // Two lists of one content are two trees.
        const std::vector<std::string> once = expect_lines(rows);
        std::vector<std::string> twice = once;
        twice.insert(twice.end(), once.begin(), once.end());
        std::sort(twice.begin(), twice.end());
        EXPECT_EQ(made_lines({list_text(rows), list_text(rows)}), twice) << seed;
    }
}

TEST(DbCreateFileList, HiddenRowsAreLeftOut) {
    const std::string text = header + "C:\\h,,1,18\nC:\\h\\x,1\nC:\\y,1,,2\n";
    EXPECT_EQ(describe_lists({text}, true), // what the row of a folder says is gone with the row
              (std::vector{"D C: 1 - 16 in list"s, "D C:\\h 1 - 16 in -"s, "F C:\\h\\x 1 - 0 in -"s}));
    EXPECT_EQ(describe_lists({text}).size(), 4u);
}

TEST(DbCreateFileList, NamesOfTheSystemAndOfOthersSideBySide) {
    if (os_path_separator != '/') { // the name starts at the drive of the list
        EXPECT_EQ(describe_lists({header + "/usr,1\n"}).size(), 2u);
        return;
    }
    EXPECT_EQ(describe_lists({header + "/usr/bin/a,1\nC:\\a,2\n/,,5,16\n/usr/,,6,16\n\\usr\\b,3\n"}),
              (std::vector{"D \\usr 4 6 16 in list"s, "D \\usr\\bin 1 - 16 in 6"s, "D C: 2 - 16 in list"s,
                           "F \\usr\\b 3 - 0 in 6"s, "F \\usr\\bin\\a 1 - 0 in -"s, "F C:\\a 2 - 0 in -"s}));
}

TEST(DbCreateFileList, AMillionRowsOfOneNameTakeNoLonger) {
    constexpr u32 count = 1000000;
    std::string text = header + "C:\\a\\x,1\n";
    for (u32 i = 0; i < count / 2; i++)
        text += "C:\\a,," + std::to_string(i) + ",16\nC:\\a\\b,,,0\n";
    temp_folder_t folder;
    write_file(folder / "l.fwl", text);
    db_t *db = db_create();
    start(db, {folder / "l.fwl"}, false, DB_FLAG_DATE_MODIFIED);
    test_db_wait(db);
    ASSERT_EQ(db->folder_name_array.count, count / 2 + 1);
    ASSERT_EQ(db->file_name_array.count, count / 2 + 1);
    u32 page, wrong = 0;
    i32 position;
    for (u32 i = 0; i < count / 2; i++) {
        const db_item_t *twin = db_item(array_get(&db->folder_name_array, i, &page, &position));
        const db_item_t *file = db_item(array_get(&db->file_name_array, i, &page, &position));
        wrong += db_folder_get_date_modified(db, twin) != i; // the list's order
        wrong += db_folder_get_date_modified(db, db_item(file->parent)) != count / 2 - 1;
    }
    EXPECT_EQ(wrong, 0u);
    db_destroy(db);
}

TEST(DbCreateFileList, DeepAndLongNamesStayBounded) {
    constexpr u32 depth = 100000;
    std::string deep = "C:";
    for (u32 i = 1; i < depth; i++)
        deep += "\\d";
    const std::string name(1000000, 'n');
    temp_folder_t folder;
    const std::string text =
        "Filename\n" + deep + "\\x\nD:\\" + name + "\\a\n" + deep + "\\y\nD:\\" + name + "\n";
    write_file(folder / "l.fwl", text);
    db_t *db = db_create();
    start(db, {folder / "l.fwl"}, false, 0);
    test_db_wait(db);
    EXPECT_EQ(db->folder_name_array.count, depth + 2);
    EXPECT_EQ(test_array_paths(&db->file_name_array),
              (std::vector{"D:\\" + name + "\\a", "D:\\" + name, deep + "\\x", deep + "\\y"}));
    db_destroy(db);
}

TEST(DbCreateFileList, StatusDateAndAVanishedList) {
    temp_folder_t folder;
    const std::string list = folder / "l.fwl";
    const struct {
        std::string text;
        u32 status;
    } lists[] = {
        {"Filename\n", FILE_LIST_READ}, {"Name\nC:\\a\n", FILE_LIST_INVALID}, {"", FILE_LIST_INVALID}};
    db_t *db = db_create();
    const auto index = [&] { return static_cast<db_index_file_list_t *>(db->index_first); };
    start(db, {list});
    test_db_wait(db);
    EXPECT_EQ(db->file_list_status, u32{FILE_LIST_NOT_OPENED});
    EXPECT_EQ(index()->date_modified, VALUE_UNKNOWN);
    for (const auto &[text, status] : lists) {
        index()->out_of_date = 1;
        write_file(list, text);
        start(db, {list});
        test_db_wait(db);
        EXPECT_EQ(db->file_list_status, status) << text;
        EXPECT_TRUE(describe(db).empty());
    }
    index()->out_of_date = 1;
    write_file(list, header + "C:\\a,5,6,7\n");
    start(db, {list});
    test_db_wait(db);
    os_file_info_t info;
    ASSERT_TRUE(os_get_file_info(list.c_str(), &info));
    EXPECT_EQ(index()->date_modified, info.date_modified);
    const std::vector items = {"D C: 5 - 16 in list"s, "F C:\\a 5 6 7 in -"s};
    EXPECT_EQ(describe(db), items);
    // It keeps its items when it is gone.
    ASSERT_TRUE(os_delete_file(list.c_str()));
    index()->out_of_date = 1;
    start(db, {list});
    test_db_wait(db);
    EXPECT_EQ(describe(db), items);
    db_destroy(db);
}

db_t *cancelled_db;
u32 reads;

TEST(DbCreateFileList, ACancelledReadEndsSoon) {
    constexpr u32 rows = 1000000; // more than a hundred reads
    memory_file_scope_t scope;
    memory_file.bytes = "Filename\n";
    for (u32 i = 0; i < rows; i++)
        memory_file.bytes += "C:\\" + std::to_string(1000000 + i) + "\n";
    static decltype(platform.file_read) read;
    read = platform.file_read;
    platform.file_read = [](platform_file_t file, void *out, u32 size) {
        if (++reads == 3)
            db_rebuild_cancel(cancelled_db);
        return read(file, out, std::min(size, 65536u));
    };
    reads = 0;
    cancelled_db = db_create();
    start(cancelled_db, {"C:\\l.fwl"}, false, 0);
    test_db_wait(cancelled_db);
    EXPECT_GE(reads, 3u);
    EXPECT_LE(reads, 5u);
    EXPECT_EQ(cancelled_db->file_name_array.count, 0u);
    EXPECT_FALSE(cancelled_db->local);
    db_destroy(cancelled_db);
}

} // namespace
} // namespace findwright
