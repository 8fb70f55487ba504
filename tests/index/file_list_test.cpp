// File lists: what rows mean, what damage does to them, and that what is written comes back.
#include "index/file_list.h"

#include "base/utf8.h"
#include "os/os_test_support.h"
#include "support/memory_file.h"

#include <vector>

namespace findwright {
namespace {

using namespace std::string_literals;

const bool is_slash_system = os_path_separator == '/';

std::string number_text(u64 value) {
    return value == VALUE_UNKNOWN ? "-" : std::to_string(value);
}

std::string row_text(const file_list_row_t *row) {
    EXPECT_EQ(row->name[row->length], 0);
    return (row->is_folder ? "D " : "F ") + std::string(row->name, row->length) + " " +
           number_text(row->info.size) + " " + number_text(row->info.date_modified) + " " +
           number_text(row->info.date_created) + " " + number_text(row->info.date_accessed) + " " +
           std::to_string(row->info.attributes);
}

struct rows_t {
    std::vector<std::string> rows;
    u64 limit = ~u64{0};
};

bool add_row(void *param, const file_list_row_t *row) {
    auto *rows = static_cast<rows_t *>(param);
    EXPECT_EQ(row->ordinal, rows->rows.size());
    rows->rows.push_back(row_text(row));
    return rows->rows.size() < rows->limit;
}

std::vector<std::string> read_rows(const std::string &name, file_list_status_t expected = FILE_LIST_READ,
                                   file_list_read_t options = {}) {
    rows_t rows;
    EXPECT_EQ(file_list_read(name.c_str(), &options, add_row, &rows), expected);
    return rows.rows;
}

TEST(FileList, RowsAreReadByTheirColumns) {
    const struct {
        std::string text;
        std::vector<std::string> rows;
        file_list_status_t status = FILE_LIST_READ;
    } lists[] = {
        {"Filename", {}},
        {"Filename\n\n\n", {}},
        {"", {}, FILE_LIST_INVALID},
        {"\nFilename\na", {}, FILE_LIST_INVALID},
        {"Name,Size\nC:\\a,1\n", {}, FILE_LIST_INVALID},
        {"\"Filename\"x\nC:\\a\n", {}, FILE_LIST_INVALID},
        {"\xEF\xBB\xBF"
         "FILENAME,Size\r\nC:\\a,12\r\nC:\\b",
         {"F C:\\a 12 - - - 0", "F C:\\b - - - - 0"}},
        // Any order of columns, unknown ones, more and fewer fields.
        {"Size,x,Attributes,Filename\n7,,32,C:\\a,,more,\n8\n9,,,C:\\b\n,,1x,C:\\c\n",
         {"F C:\\a 7 - - - 32", "F C:\\b 9 - - - 0", "F C:\\c - - - - 1"}},
        {"Filename,Size,Filename,Size\nC:\\a,1,C:\\b,2\n", {"F C:\\b 2 - - - 0"}},
        {"Size,Date Accessed,Date Created,Date Modified,Filename\n1,2,3,4,C:\\a\n", {"F C:\\a 1 4 3 2 0"}},
        // Quotes, and stray ones.
        {"Filename,Size\n\"C:\\a,\"\"b\"\".txt\",12\n\"C:\\x\" y,1\nC:\\a\"b,2\n\"C:\\open,3\nC:\\c,4\n",
         {"F C:\\a,\"b\".txt 12 - - - 0", "F C:\\x y 1 - - - 0", "F C:\\a\"b 2 - - - 0",
          "F C:\\open,3 - - - - 0", "F C:\\c 4 - - - 0"}},
        // Numbers end where their digits do.
        {"Filename,Size,Attributes\nC:\\a,12abc,32 \nC:\\b,0x10,-1\nC:\\c,18446744073709551615,4294967295\n",
         {"F C:\\a 12 - - - 32", "F C:\\b 0 - - - 0", "D C:\\c 0 - - - 4294967295"}},
        {"Filename,Size,Attributes\nC:\\d,100,16\nC:\\d,5,17\nC:\\d,5,32\nC:\\d,6,32\n",
         {"D C:\\d 0 - - - 16", "D C:\\d 0 - - - 17", "F C:\\d 5 - - - 32", "F C:\\d 6 - - - 32"}},
        {"Filename\nC:\\\r\r\nC:\\a\0b\n\xFF:\xFE\n"s,
         {"F C:\\\r - - - - 0", "F C:\\a\0b - - - - 0"s, "F \xFF:\xFE - - - - 0"}},
    };
    memory_file_scope_t scope;
    for (const auto &list : lists) {
        for (u32 piece : {1u, 3u, 65536u}) {
            memory_file.bytes = list.text;
            memory_file.piece = piece;
            EXPECT_EQ(read_rows("C:\\list.fwl", list.status), list.rows) << list.text;
        }
    }
    memory_file.bytes = "Filename,Attributes\nC:\\a,2\nC:\\b,20\nC:\\c,6\nC:\\d,1\n";
    EXPECT_EQ(read_rows("l", FILE_LIST_READ, {true, false}).size(), 2u);
    EXPECT_EQ(read_rows("l", FILE_LIST_READ, {true, true}), std::vector{"F C:\\d - - - - 1"s});
    rows_t two = {{}, 2};
    const file_list_read_t all = {};
    EXPECT_EQ(file_list_read("l", &all, add_row, &two), FILE_LIST_READ);
    EXPECT_EQ(two.rows.size(), 2u);
    EXPECT_EQ(memory_file.open_count, 0u);
    memory_file.exists = false;
    EXPECT_TRUE(read_rows("l", FILE_LIST_NOT_OPENED).empty());
}

TEST(FileList, LongLinesAndManyRowsKeepTheirOrder) {
    memory_file_scope_t scope;
    const std::string million(1000000, 'n');
    memory_file.bytes = "Filename,Size\n\"C:\\" + million + "\",1\n" + million + ",2\nC:\\" + million +
                        "\nx," + million + "\n" + std::string(1000000, ',') + "\n" +
                        std::string(1000000, '"');
    const auto rows = read_rows("C:\\l");
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[1], "F C:\\" + million + " 2 - - - 0");
    EXPECT_EQ(rows[3], "F C:\\x 0 - - - 0");
    EXPECT_EQ(rows[4].size(), "F C:\\ - - - - 0"s.size() + 499999);

    memory_file.bytes = "Filename,Size\n";
    for (u32 i = 0; i < 1000000; i++)
        memory_file.bytes += "C:\\a," + std::to_string(i) + "\n";
    u64 next = 0;
    const file_list_read_t all = {};
    const auto in_order = [](void *param, const file_list_row_t *row) {
        return row->length == 4 && row->info.size == row->ordinal && ++*static_cast<u64 *>(param);
    };
    EXPECT_EQ(file_list_read("l", &all, in_order, &next), FILE_LIST_READ);
    EXPECT_EQ(next, 1000000u);
}

TEST(FileList, NamesAreResolved) {
    const std::string climb = std::string(100000, '.') + "\\x";
    const struct {
        const char *list;
        std::string name, full;
    } rows[] = {
        {"C:\\a\\b\\list.fwl", "x.txt", "C:\\a\\b\\x.txt"},
        {"C:\\a\\b\\list.fwl", "..\\x.txt", "C:\\a\\x.txt"},
        {"C:\\a\\b\\list.fwl", "...\\x.txt", "C:\\x.txt"},
        {"C:\\a\\b\\list.fwl", "s\\.\\t\\..\\u/v", "C:\\a\\b\\s\\u\\v"},
        {"C:\\a\\b\\list.fwl", "..", "C:\\a"},
        {"C:\\a\\b\\list.fwl", "...", "C:"},
        {"C:\\a\\b\\list.fwl", climb, "C:\\x"},
        {"C:\\a\\b\\list.fwl", ".x\\..y\\z.", "C:\\a\\b\\.x\\..y\\z."},
        {"C:\\a\\b\\list.fwl", "s\\\\t\\", "C:\\a\\b\\s\\\\t\\"},
        {"C:\\a\\b\\list.fwl", "s\\\\..\\t", "C:\\a\\b\\s\\t"},
        {"C:\\a\\b\\list.fwl", "\\x.txt", "C:\\x.txt"},
        {"C:\\a\\b\\list.fwl", "\\..\\s\\..\\x", "C:\\x"},
        {"C:\\a\\.\\b\\..\\list.fwl", "x", "C:\\a\\x"},
        {"C:\\list.fwl", "x", "C:\\x"},
        {"C:\\list.fwl", "\\", "C:\\"},
        // These stand as they are.
        {"C:\\a\\b\\list.fwl", "C:\\a\\..\\x/y", "C:\\a\\..\\x/y"},
        {"C:\\a\\b\\list.fwl", "\\\\server\\share\\.\\x", "\\\\server\\share\\.\\x"},
        {"C:\\a\\b\\list.fwl", "proto://server/a/b.txt", "proto://server/a/b.txt"},
        {"C:\\a\\b\\list.fwl", "s\\a:b", "C:\\a\\b\\s\\a:b"},
        // Other roots, and none.
        {"\\\\server\\share\\a\\list.fwl", "...\\x", "\\\\server\\share\\x"},
        {"\\\\server\\share\\a\\list.fwl", "\\x", "\\\\server\\share\\x"},
        {"\\\\.\\C:\\a\\list.fwl", "...\\x", "\\\\.\\C:\\x"},
        {"http://host/a/list.fwl", "..\\x/y", "http://host/x/y"},
        {"http://host/a/list.fwl", "\\x", "http://host/x"},
        {"list.fwl", "s/x", "s\\x"},
        {"list.fwl", "..\\..\\x", "x"},
        {"\\list.fwl", "x", "\\x"},
        {"\\home\\u\\list.fwl", "../x", "\\home\\x"},
        {"/home/u/list.fwl", "....\\x", "\\x"},
        {"\\home\\u\\list.fwl", "..\\..", "\\"},
        {"\\home\\u\\list.fwl", "\\x\\..\\y", "\\x\\..\\y"},
        // A path of the system that has `/`; elsewhere it starts at the list's root.
        {"C:\\a\\list.fwl", "/usr/bin/a", is_slash_system ? "\\usr\\bin\\a" : "C:\\usr\\bin\\a"},
        {"\\a\\list.fwl", "/a/../b", "\\a\\..\\b"},
        {"\\a\\list.fwl", "/a\\b",
         is_slash_system ? "\\a\xEF\x81\x9C"
                           "b"
                         : "\\a\\b"},
        {"\\a\\list.fwl", "///a", is_slash_system ? "\\a" : "\\\\\\a"},
    };
    utf8_buf_t full;
    utf8_buf_init(&full);
    for (const auto &row : rows) {
        file_list_base_t base;
        file_list_base_init_for(&base, row.list);
        file_list_resolve(&base, row.name.data(), static_cast<u32>(row.name.size()), &full);
        EXPECT_EQ(std::string(full.data, static_cast<size_t>(full.length)), row.full)
            << row.list << " " << row.name.substr(0, 80);
        file_list_base_kill(&base);
    }
    // Dots and separators at every distance from the start.
    file_list_base_t base;
    file_list_base_init_for(&base, "C:\\l");
    for (size_t count = 1; count < 20; count++) {
        const std::string a(count, 'a');
        for (const auto &[name, expected] : {std::pair{a + "/..\\b.c", "C:\\b.c"s},
                                             {a + "\\./b", "C:\\" + a + "\\b"},
                                             {a + "//.b/\xAF\xDC.", "C:\\" + a + "\\\\.b\\\xAF\xDC."}}) {
            file_list_resolve(&base, name.data(), static_cast<u32>(name.size()), &full);
            EXPECT_EQ(std::string(full.data, static_cast<size_t>(full.length)), expected) << name;
        }
    }
    file_list_base_kill(&base);
    utf8_buf_kill(&full);
}

TEST(FileList, NamesAreWalkedByComponent) {
    const struct {
        const char *name;
        std::vector<std::string> pieces;
    } rows[] = {
        {"C:\\a\\b c", {"C:", "a", "b c"}}, {"\\\\server\\share\\a", {"\\\\server", "share", "a"}},
        {"\\usr\\bin", {"\\usr", "bin"}},   {"\\", {"\\"}},
        {"\\\\\\a", {"\\\\", "a"}},         {"proto://host/a", {"proto://host/a"}},
        {"a\\\\b\\", {"a", "", "b", ""}},
    };
    for (const auto &row : rows) {
        std::vector<std::string> pieces;
        const char *piece;
        u32 length, position = 0;
        while (file_list_next_piece(row.name, utf8_length(row.name), &position, &piece, &length))
            pieces.emplace_back(piece, length);
        EXPECT_EQ(pieces, row.pieces) << row.name;
    }
}

TEST(FileList, DatesOfAllForms) {
    constexpr u64 second = 10000000, minute = 60 * second, day = 1440 * minute;
    constexpr u64 midnight = 131220864000000000; // 2016-10-28
    constexpr u64 utc = 131221251160000000;      // 10:45:16 on that day
    const struct {
        const char *text;
        u64 ticks;
        bool is_local = false;
    } rows[] = {
        {"", VALUE_UNKNOWN},
        {"131221251160000000", utc},
        {"131221251160000000 ", utc},
        {"18446744073709551615", VALUE_UNKNOWN},
        {"0", 0},
        {"x", 0},
        {"-", 0},
        {"T", 0},
        {"2016-10-28T10:45:16Z", utc},
        {"20161028t104516z", utc},
        {"2016-1028T10:4516Z", utc},
        {"2016-10-28T10:45:16.5Z", utc + second / 2},
        {"2016-10-28T10:45:16.00000019Z", utc + 1},
        {"2016-10-28T10:45:16.Z", utc},
        {"2016-10-28T10:45:16+02:30", utc - 150 * minute},
        {"2016-10-28T10:45:16-0230", utc + 150 * minute},
        {"2016-10-28T10:45:16.25+01", utc + second / 4 - 60 * minute},
        {"2016-10-28T10:45:16", utc, true},
        {"2016-10-28T10:45:16+x", utc, true},
        {"2016-10-28T10:45", utc - 16 * second, true},
        {"2016-10-28T10:45Z", utc - 16 * second, true},
        {"2016-10-28T10:4", utc - 45 * minute - 16 * second, true},
        {"2016-10-28", midnight, true},
        {"2016-10-28 10:45:16", midnight, true},
        {"2016-10", 0},
        {"2016-13-01T00:00:00Z", 0},
        {"2016-00-01T00:00:00Z", 0},
        {"2016-10-32T00:00:00Z", 0},
        {"2016-10-28T24:00:00Z", 0},
        {"2016-02-29T00:00:00Z", midnight - 242 * day},
        {"2015-02-29T00:00:00Z", 0},
        {"1900-02-29T00:00:00Z", 0},
        {"2000-03-01T00:00:00Z", 125963424000000000},
        {"1600-12-31T23:59:59Z", 0},
        {"1601-01-01T00:00:01Z", second},
        {"1601-01-01T00:00:01+01:00", 0},
        {"9999-12-31T23:59:59Z", 2650467743990000000},
    };
    for (const auto &row : rows)
        EXPECT_EQ(file_list_parse_date(row.text, utf8_length(row.text)),
                  row.is_local ? os_local_time_to_file_time(row.ticks) : row.ticks)
            << row.text;
}

TEST(FileList, NamesForASearch) {
    memory_file_scope_t scope;
    const struct {
        const char *file, *text, *names;
    } rows[] = {
        {"C:\\l\\a.FWL", "Size,Filename\n1,x|y\n,\n2,C:\\|\n", "C:\\l\\x\"#124:\"y|C:\\\"#124:\""},
        {"C:\\l\\a.csv", "Name\nx\n", ""},
        {"C:\\l\\a.txt", "\xEF\xBB\xBFx|y\r\nb\rc\n\nd,e", "x\"#124:\"y|b|c|d,e"},
        {"C:\\l\\fwl", "\r\na\n", ""},
        {"C:\\l.fwl\\a", "a", "a"},
    };
    utf8_buf_t out;
    utf8_buf_init(&out);
    for (const auto &row : rows) {
        memory_file.bytes = row.text;
        EXPECT_TRUE(filelist_read_search_names(&out, row.file));
        EXPECT_STREQ(out.data, row.names) << row.text;
    }
    memory_file.exists = false;
    EXPECT_FALSE(filelist_read_search_names(&out, "a.fwl") || filelist_read_search_names(&out, "a.txt"));
    EXPECT_EQ(out.length, 0);
    utf8_buf_kill(&out);
}

struct item_t {
    std::string name;
    db_file_info_t info;
};

void put_items(void *param, file_list_writer_t *writer) {
    for (const item_t &item : *static_cast<std::vector<item_t> *>(param))
        file_list_put(writer, item.name.data(), static_cast<u32>(item.name.size()), &item.info);
}

const std::string header = "Filename,Size,Date Modified,Date Created,Attributes\r\n";

TEST(FileList, WrittenRowsComeBack) {
    temp_folder_t folder;
    const std::string list = folder / "l.fwl";
    std::vector<item_t> items = {
        {"C:\\a\"b\", c", {1, 2, 3, 4, 32}},
        {"C:\\d", {VALUE_UNKNOWN, VALUE_UNKNOWN, 0, 0, 16}},
        {"C:\\two\nrows", {1, 2, 3, 4, 32}},
        {"", {1, 2, 3, 4, 32}},
        {"\\\\server\\s\\x\r", {VALUE_UNKNOWN - 1, 0, 0, 0, 0}},
    };
    file_list_written_t written;
    const file_list_write_t zero = {FILE_LIST_ZERO_IS_EMPTY, false};
    ASSERT_TRUE(file_list_write(list.c_str(), &zero, put_items, &items, &written, nullptr));
    EXPECT_EQ(read_file(list), header +
                                   "\"C:\\a\"\"b\"\", c\",1,2,3,32\r\n\"C:\\d\",,18446744073709551615,,16\r\n"
                                   "\"\\\\server\\s\\x\r\",18446744073709551614,,,0\r\n");
    EXPECT_EQ(written.rows, 3u);
    EXPECT_EQ(written.left_out, 2u);
    EXPECT_EQ(read_rows(list)[0], "F C:\\a\"b\", c 1 2 3 - 32");
    EXPECT_EQ(read_rows(list)[1], "D C:\\d 0 - - - 16");

    // In its place, by the other rule for dates. Nothing is left beside it.
    const file_list_write_t unknown = {FILE_LIST_UNKNOWN_IS_EMPTY, false};
    items.resize(2);
    ASSERT_TRUE(file_list_write(list.c_str(), &unknown, put_items, &items, nullptr, nullptr));
    EXPECT_EQ(read_file(list), header + "\"C:\\a\"\"b\"\", c\",1,2,3,32\r\n\"C:\\d\",,,0,16\r\n");
    EXPECT_FALSE(os_file_exists((list + ".tmp").c_str()));
}

TEST(FileList, NamesAreRelativeOnlyWhenAllCanBe) {
    temp_folder_t folder;
    const std::string list = folder / "l.fwl";
    const db_file_info_t info = {1, 2, 3, 4, 0};
    const file_list_write_t relative = {FILE_LIST_ZERO_IS_EMPTY, true};
    const auto write = [&](const std::vector<std::string> &names) {
        std::vector<item_t> items;
        for (const std::string &name : names)
            items.push_back({name, info});
        file_list_written_t written;
        EXPECT_TRUE(file_list_write(list.c_str(), &relative, put_items, &items, &written, nullptr));
        const auto rows = read_rows(list);
        EXPECT_EQ(rows.size(), names.size());
        for (size_t i = 0; i < rows.size(); i++)
            EXPECT_EQ(rows[i], "F " + names[i] + " 1 2 3 - 0");
        return written.relative;
    };
    EXPECT_TRUE(write({folder / "a", folder / "b\\c.d", folder / ".e"}));
    EXPECT_NE(read_file(list).find(is_slash_system ? "\r\n\"b/c.d\"," : "\r\n\"b\\c.d\","),
              std::string::npos);
    EXPECT_FALSE(write({folder / "a", "C:\\b"}));
    EXPECT_FALSE(write({folder.name + "x\\a"}));
    EXPECT_FALSE(write({folder.name}));
    // As relative names these would be others.
    for (const char *name : {"a:b", "...", "a\\.\\b", "\\a"})
        EXPECT_FALSE(write({folder / "a", folder / name})) << name;
}

// The full disk of a test: so many bytes can be written.
size_t disk_left;
bool (*write_really)(platform_file_t, const void *, u32);

bool write_to_full_disk(platform_file_t file, const void *bytes, u32 size) {
    if (size > disk_left) {
        os_set_last_error(is_slash_system ? 28 : 112); // the systems' numbers for it
        return false;
    }
    disk_left -= size;
    return write_really(file, bytes, size);
}

TEST(FileList, AFailureNamesFileAndReasonAndKeepsTheOldFile) {
    temp_folder_t folder;
    const std::string list = folder / "l.fwl";
    write_file(list, "old");
    std::vector<item_t> items(5000, {"C:\\some name of a file", {1, 2, 3, 4, 32}});
    const file_list_write_t options = {FILE_LIST_ZERO_IS_EMPTY, false};
    utf8_buf_t error, shown;
    utf8_buf_init(&error);
    utf8_buf_init(&shown);
    const auto expect_failure = [&](const std::string &name, u32 number) {
        EXPECT_FALSE(file_list_write(name.c_str(), &options, put_items, &items, nullptr, &error));
        os_path_to_system(name.data(), static_cast<u32>(name.size()), &shown);
        char reason[512] = "";
        if (number)
            os_error_text(number, reason, sizeof reason);
        EXPECT_EQ(std::string(error.data).rfind(shown.data + ": "s + reason, 0), 0u) << error.data;
        EXPECT_GT(static_cast<u32>(error.length), static_cast<u32>(shown.length) + 7);
        EXPECT_FALSE(os_file_exists((name + ".tmp").c_str()));
    };
    {
        memory_file_scope_t scope; // for its restoring of the table
        platform = scope.before;
        write_really = platform.file_write;
        platform.file_write = write_to_full_disk;
        for (size_t room : {0u, 70000u, 140000u}) { // at once, in the middle, at the end
            disk_left = room;
            expect_failure(list, is_slash_system ? 28 : 112);
            EXPECT_EQ(read_file(list), "old");
        }
    }
    expect_failure(folder / "absent\\l.fwl", is_slash_system ? 2 : 3);
    ASSERT_TRUE(os_create_folder((folder / "taken").c_str()));
    expect_failure(folder / "taken", 0);
    EXPECT_TRUE(os_folder_exists((folder / "taken").c_str()));
    utf8_buf_kill(&shown);
    utf8_buf_kill(&error);
}

} // namespace
} // namespace findwright
