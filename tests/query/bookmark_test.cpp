#include "query/bookmark.h"

#include "base/utf8.h"
#include "query/db_query.h"
#include "query/db_sort_name.h"
#include "query/search_list_test_support.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

constexpr char HEADER[] =
    "Name,Case,Whole Word,Path,Diacritic,Regex,Sort,Descending,Filter,Search,Index,File "
    "List,Host,Link Type,Macro,Key,View\r\n";

struct bookmark_test : testing::Test {
    list_file_t file;

    void TearDown() override { bookmark_list_free(); }
    void load(const std::string &text) {
        file.write(text);
        bookmark_list_load(file.c_str());
    }
};

void set(char **text, const char *value) {
    *text = utf8_replace_string(*text, value);
}

TEST_F(bookmark_test, OnlyWhatIsStoredIsWritten) {
    bookmark_add("nothing");
    bookmark_t *all = bookmark_add("all, \"quoted\"");
    set(&all->search, "a\"b");
    set(&all->filter, "AUDIO");
    set(&all->macro, "m");
    set(&all->file_list, "C:\\l.fwl");
    set(&all->host, "h");
    all->flags = 0x3FF00 | DB_MATCH_CASE | DB_MATCH_PATH | DB_MATCH_REGEX | BOOKMARK_DESCENDING;
    all->sort = 12;
    all->view = 3;
    all->key_modifiers = 1;
    all->key_code = 2;
    all->index = 200;
    all->link_type = 0;
    bookmark_t *values = bookmark_add("values");
    set(&values->search, "not stored");
    values->flags = 0x3F;
    values->sort = 4;
    bookmark_t *empty = bookmark_add("empty search");
    empty->flags = BOOKMARK_HAS_SEARCH | BOOKMARK_HAS_SORT | BOOKMARK_HAS_CASE;
    ASSERT_TRUE(bookmark_list_save(file.c_str()));
    std::string text = file.read();
    EXPECT_EQ(HEADER +
                  std::string("\"nothing\",,,,,,,,,,,\"\",\"\",1,,,\r\n"
                              "\"all, \"\"quoted\"\"\",1,0,1,0,1,date-modified,1,\"AUDIO\",\"a\"\"b\",200,"
                              "\"C:\\l.fwl\",\"h\",0,\"m\",258,3\r\n"
                              "\"values\",,,,,,,,,,,\"\",\"\",1,,,\r\n"
                              "\"empty search\",0,,,,,name,0,,\"\",,\"\",\"\",1,,,\r\n"),
              text);
    bookmark_list_load(file.c_str());
    const bookmark_t *read = bookmark_find_by_name("all, \"quoted\"");
    ASSERT_TRUE(read);
    EXPECT_EQ(0x3FF00u | DB_MATCH_CASE | DB_MATCH_PATH | DB_MATCH_REGEX | BOOKMARK_DESCENDING, read->flags);
    EXPECT_EQ(12u, read->sort);
    EXPECT_EQ(3u, read->view);
    EXPECT_EQ(1, read->key_modifiers);
    EXPECT_EQ(2, read->key_code);
    EXPECT_EQ(200, read->index);
    EXPECT_EQ(0u, read->link_type);
    EXPECT_STREQ("C:\\l.fwl", read->file_list);
    EXPECT_STREQ("h", read->host);
    EXPECT_EQ(0u, bookmark_find_by_name("nothing")->flags);
    ASSERT_TRUE(bookmark_list_save(file.c_str()));
    EXPECT_EQ(text, file.read());
}

TEST_F(bookmark_test, WhatARowStores) {
    const struct {
        const char *text;
        u32 flags;
        const char *search, *filter;
        u32 sort, link_type;
    } cases[] = {
        {"Filter,Name\nAUDIO,x\n", BOOKMARK_HAS_FILTER, "", "AUDIO", 0, 1},
        {"Search,Name\n\"\",x\n", BOOKMARK_HAS_SEARCH, "", "", 0, 1},
        {"Search,Name\n,x\n", 0, "", "", 0, 1},
        {"Name,Search\nx,\"\"\n", BOOKMARK_HAS_SEARCH, "", "", 0, 1},
        {"Name,Search\nx,\n", 0, "", "", 0, 1},
        {"Name,Search\nx,a b\n", BOOKMARK_HAS_SEARCH, "a b", "", 0, 1},
        {"NAME,case,whole word\nx,1,0\n", BOOKMARK_HAS_CASE | BOOKMARK_HAS_WHOLE_WORD | DB_MATCH_CASE, "", "",
         0, 1},
        {"Name,Sort,Descending\nx,Date-Accessed,1\n", BOOKMARK_HAS_SORT | BOOKMARK_DESCENDING, "", "", 22, 1},
        {"Name,Sort,Descending\nx,run-count,\n", BOOKMARK_HAS_SORT, "", "", 18, 1},
        {"Name,Sort\nx,colour\n", BOOKMARK_HAS_SORT, "", "", 0, 1},
        {"Name,Link Type,Index,View\nx,2,300,7\n", BOOKMARK_HAS_INDEX | BOOKMARK_HAS_VIEW, "", "", 0, 2},
        {"Name,Search,Filter\n,lost,lost\nx\n", 0, "", "", 0, 1},
    };
    for (auto c : cases) {
        load(c.text);
        const bookmark_t *bookmark = bookmark_find_by_name("x");
        ASSERT_TRUE(bookmark) << c.text;
        EXPECT_TRUE(bookmark == bookmark_head && bookmark == bookmark_tail) << c.text;
        EXPECT_EQ(c.flags, bookmark->flags) << c.text;
        EXPECT_STREQ(c.search, bookmark->search) << c.text;
        EXPECT_STREQ(c.filter, bookmark->filter) << c.text;
        EXPECT_EQ(c.sort, bookmark->sort) << c.text;
        EXPECT_EQ(c.link_type, bookmark->link_type) << c.text;
    }
}

TEST_F(bookmark_test, NamesAreFoundExactlyThenWithoutCase) {
    load("Name,Search\nWork,1\nwork,2\n");
    EXPECT_STREQ("1", bookmark_find_by_name("Work")->search);
    EXPECT_STREQ("2", bookmark_find_by_name("work")->search);
    EXPECT_STREQ("1", bookmark_find_by_name("WORK")->search);
    bookmark_remove(bookmark_head);
    EXPECT_STREQ("2", bookmark_find_by_name("Work")->search);
    EXPECT_EQ(nullptr, bookmark_find_by_name("home"));
    EXPECT_EQ(bookmark_head, bookmark_tail);
    // A file that is gone is an empty list.
    os_delete_file(file.c_str());
    bookmark_list_load(file.c_str());
    EXPECT_EQ(nullptr, bookmark_head);
    EXPECT_EQ(nullptr, bookmark_tail);
}

TEST(db_sort_name, EachOrderHasAName) {
    std::string names;
    for (u32 sort = 0; sort < DB_SORT_COUNT; sort++) {
        u32 found = 99;
        EXPECT_TRUE(db_sort_find_name(db_sort_get_name(sort), &found)) << sort;
        EXPECT_EQ(sort & ~1u, found);
    }
    const struct {
        const char *name;
        u32 code;
    } cases[] = {{"name", 0},
                 {"path", 2},
                 {"size", 4},
                 {"extension", 6},
                 {"type", 8},
                 {"date-created", 10},
                 {"Date-Modified", 12},
                 {"attributes", 14},
                 {"file-list-filename", 16},
                 {"run-count", 18},
                 {"date-recently-changed", 20},
                 {"date-accessed", 22},
                 {"date-run", 24}};
    for (auto c : cases) {
        u32 sort = 99;
        EXPECT_TRUE(db_sort_find_name(c.name, &sort)) << c.name;
        EXPECT_EQ(c.code, sort);
    }
    u32 sort = 99;
    EXPECT_FALSE(db_sort_find_name("", &sort));
    EXPECT_FALSE(db_sort_find_name("size-descending", &sort));
    EXPECT_EQ(0u, sort);
    EXPECT_STREQ("", db_sort_get_name(DB_SORT_COUNT));
}

} // namespace
} // namespace findwright
