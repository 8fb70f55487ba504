#include "query/search_history.h"

#include "base/mem.h"
#include "query/search_list_test_support.h"

#include <gtest/gtest.h>
#include <vector>

namespace findwright {
namespace {

using namespace std::string_literals;

using strings_t = std::vector<std::string>;

struct search_history_test : testing::Test {
    list_file_t file;

    void TearDown() override { search_history_free(); }
    // Rows of a search, its count and its date.
    void load(const std::string &rows, u32 days = 0) {
        file.write("Search,Search Count,Last Search Date\n" + rows);
        search_history_load(file.c_str(), days);
    }
    static strings_t suggest(const char *text, search_history_kind_t kind, u32 max = 100) {
        search_history_texts_t texts = search_history_suggest(text, kind, max);
        strings_t out(texts.texts, texts.texts + texts.count);
        search_history_texts_free(&texts);
        return out;
    }
    static strings_t all(search_history_kind_t kind) { return suggest("", kind); }
    static u32 count_of(const char *search) {
        search_history_list_t list;
        search_history_get_items(&list);
        u32 count = 0;
        for (u32 i = 0; i < list.count; i++)
            count = std::string(search) == list.entries[i].search ? list.entries[i].count : count;
        search_history_list_free(&list);
        return count;
    }
};

TEST_F(search_history_test, Orders) {
    load("b,2,30\nA,2,10\nc,5,20\nd,2,10\n");
    EXPECT_EQ((strings_t{"A", "b", "c", "d"}), all(SEARCH_HISTORY_BY_SEARCH));
    EXPECT_EQ((strings_t{"c", "b", "A", "d"}), all(SEARCH_HISTORY_BY_COUNT));
    EXPECT_EQ((strings_t{"b", "c", "A", "d"}), all(SEARCH_HISTORY_BY_DATE));
    EXPECT_EQ((strings_t{"c", "b"}), suggest("", SEARCH_HISTORY_BY_COUNT, 2));
    EXPECT_EQ(0u, search_history->dirty);
    // The new one counts once, however often it comes in a row, and leads by its date.
    for (const char *search : {"d", "d", "e", "", "D", "d"})
        search_history_add(search);
    EXPECT_EQ((strings_t{"A", "b", "c", "d", "e"}), all(SEARCH_HISTORY_BY_SEARCH));
    EXPECT_EQ((strings_t{"d", "c"}), suggest("", SEARCH_HISTORY_BY_COUNT, 2));
    EXPECT_EQ("d", all(SEARCH_HISTORY_BY_DATE)[0]);
    EXPECT_EQ(5u, count_of("d"));
    EXPECT_EQ(1u, count_of("e"));
    EXPECT_EQ(1u, search_history->dirty);
    search_history_remove("C");
    search_history_remove("nothing");
    for (auto kind : {SEARCH_HISTORY_BY_SEARCH, SEARCH_HISTORY_BY_COUNT, SEARCH_HISTORY_BY_DATE}) {
        strings_t left = all(kind);
        EXPECT_EQ(4u, left.size());
        EXPECT_EQ(left.end(), std::find(left.begin(), left.end(), "c"));
    }
}

TEST_F(search_history_test, Suggestions) {
    load("a b c,9,1\nb a x,2,2\nB\xC3\x80 y,5,3\nba,7,4\nab,1,5\n\xE2\x84\xAA,1,6\n");
    const struct {
        const char *text;
        u32 max;
        strings_t found;
    } cases[] = {
        // Those that begin with the text lead, then those with each word of it.
        {"b a", 9, {"b a x", "a b c", "ba", "B\xC3\x80 y", "ab"}},
        {"ba", 9, {"ba", "B\xC3\x80 y"}},
        {"BA Y", 9, {"B\xC3\x80 y"}},
        {"y\tb", 9, {"B\xC3\x80 y"}},
        {"b a", 1, {"b a x"}},
        {"b a", 2, {"b a x", "a b c"}},
        {"b a", 0, {}},
        {"nothing", 9, {}},
        {"  ", 2, {"a b c", "ba"}},
        {"k", 9, {"\xE2\x84\xAA"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.found, suggest(c.text, SEARCH_HISTORY_BY_COUNT, c.max)) << c.text << " " << c.max;
}

TEST_F(search_history_test, OldSearchesGoWhereTheyAreNotKept) {
    constexpr u64 DAY = 864000000000;
    u64 now = os_get_file_time();
    std::string rows = "old,1," + std::to_string(now - 91 * DAY) + "\nnew,1," +
                       std::to_string(now - 89 * DAY) + "\nnever,0,0\nahead,1," + std::to_string(now + DAY) +
                       "\n";
    const struct {
        u32 days;
        strings_t left;
    } cases[] = {
        {0, {"ahead", "never", "new", "old"}},
        {90, {"ahead", "new"}},
        {0xFFFFFFFF, {"ahead", "never", "new", "old"}},
    };
    for (const auto &c : cases) {
        load(rows, c.days);
        EXPECT_EQ(c.left, all(SEARCH_HISTORY_BY_SEARCH)) << c.days;
    }
}

TEST_F(search_history_test, WritesWhatItReads) {
    search_history_load(file.c_str(), 0); // none yet
    EXPECT_EQ(strings_t{}, all(SEARCH_HISTORY_BY_DATE));
    search_history_add("say \"a, b\"\n");
    search_history_add("x");
    ASSERT_TRUE(search_history_save(file.c_str()));
    EXPECT_EQ(0u, search_history->dirty);
    std::string text = file.read();
    std::string start = "Search,Search Count,Last Search Date\r\n\"say \"\"a, b\"\" \",1,13";
    EXPECT_EQ(start, text.substr(0, start.size()));
    search_history_load(file.c_str(), 1);
    EXPECT_EQ((strings_t{"say \"a, b\" ", "x"}), all(SEARCH_HISTORY_BY_SEARCH));
    ASSERT_TRUE(search_history_save(file.c_str()));
    EXPECT_EQ(text, file.read());
}

TEST_F(search_history_test, WhatAFileMayHold) {
    // Of rows with one text the newest stays; what is no number is 0, what is too large the greatest.
    file.write("last search date,Search,x,SEARCH COUNT\r\n5,twice,,1\n7,TWICE,,2\n6,Twice,,3\n"
               "1,\n\n,,\nno,n\0ul,,99999999999\n\""s);
    search_history_load(file.c_str(), 0);
    EXPECT_EQ((strings_t{"nul", "TWICE"}), all(SEARCH_HISTORY_BY_SEARCH));
    EXPECT_EQ(0xFFFFFFFFu, count_of("nul"));
    EXPECT_EQ(2u, count_of("TWICE"));
    // More than a page of each array.
    std::string rows;
    for (u32 i = 0; i < 3000; i++)
        rows += "s" + std::to_string(i * 7919 % 3000) + "," + std::to_string(i % 17) + "," +
                std::to_string(i % 101) + "\n";
    load(rows);
    for (u32 i = 0; i < 3000; i++)
        search_history_remove(("S" + std::to_string(i)).c_str());
    EXPECT_EQ(strings_t{}, all(SEARCH_HISTORY_BY_DATE));
    EXPECT_EQ(0u, search_history->by_search.count + search_history->by_count.count);
}

TEST_F(search_history_test, AWorkingCopyReplacesTheHistory) {
    load("a,1,1\nb,2,2\nc,3,3\n");
    search_history_list_t list;
    search_history_get_items(&list);
    ASSERT_EQ(3u, list.count);
    mem_free(list.entries[0].search);
    list.entries[0] = list.entries[--list.count];
    list.entries[0].count = 1;
    search_history_set_items(&list);
    search_history_list_free(&list);
    EXPECT_EQ((strings_t{"b", "c"}), all(SEARCH_HISTORY_BY_COUNT));
    EXPECT_EQ((strings_t{"c", "b"}), all(SEARCH_HISTORY_BY_DATE));
    EXPECT_EQ(1u, search_history->dirty);
}

// While no history is kept nothing is remembered, and nothing fails.
TEST(search_history, None) {
    search_history_add("a");
    search_history_remove("a");
    search_history_texts_t texts = search_history_suggest("", SEARCH_HISTORY_BY_DATE, 10);
    EXPECT_EQ(0u, texts.count);
    search_history_texts_free(&texts);
    EXPECT_TRUE(search_history_save("no folder\\of this\\name"));
}

} // namespace
} // namespace findwright
