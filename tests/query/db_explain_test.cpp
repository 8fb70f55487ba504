// The terms of a search as they are told to users.
#include "query/db_explain.h"

#include "os/os.h"
#include "query/db_query_value.h"
#include "query/db_search.h"
#include "support/test_search.h"

#include <gtest/gtest.h>

#include <functional>

namespace findwright {
namespace {

std::string explain(db_query_t *query) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    db_query_explain(query, &text);
    std::string result(text.data, static_cast<size_t>(text.length));
    utf8_buf_kill(&text);
    return result;
}

TEST(DbExplain, LinesOfASearch) {
    test_search_t search({"a"});
    EXPECT_EQ("", explain(search.query));
    const struct {
        const char *text, *filter, *expected;
        u32 options;
    } cases[] = {
        {"", "", "   1  true  op 0    match -> result  else -> no\n", 0},
        {"report|invoice !file:path:case:c+d", "",
         "   1  find \"report\"               op 2    match -> 3       else -> 2\n"
         "   2  find \"invoice\"              op 2    match -> 3       else -> no\n"
         "   3  not find \"c+d\", path, case  op 28   match -> result  else -> no   (folders: true)\n",
         0},
        {"folder:A?B", "ww:diacritics:\xC3\x89",
         "   1  wildcard \"a?b\"              op 102  match -> 2       else -> no   (files: false)\n"
         "   2  find \"\xC3\xA9\", word, diacritics  op 7    match -> result  else -> no   (filter)\n",
         0},
        {"^a\\.b$", "", "   1  regex \"^a\\.b$\", path  op 227  match -> result  else -> no\n",
         DB_MATCH_REGEX | DB_MATCH_PATH},
        {"a#1:#34:\xFF\xC2\x85\\b#133:", "",
         "   1  find \"a\\x01\"\"\\xff\\xc2\\x85\\b\\xc2\\x85\", path  op 10   match -> result  else -> no\n",
         0},
    };
    for (auto c : cases) {
        search.run(c.text, c.options, c.filter);
        EXPECT_EQ(c.expected, explain(search.query)) << c.text;
    }
}

// What stands between a line's number and its op code, for terms of functions as their compiler leaves them.
TEST(DbExplain, ValuesByFamily) {
    constexpr u64 MARCH = 132590304000000000; // 2021-03-01 00:00:00
    constexpr u64 SECOND = 10000000;
    test_search_t search({"dir\\file", "dir\\other"});
    search.run("*");
    const db_item_t *dir = search.find("C:\\dir"), *file = search.find("C:\\dir\\file");
    auto ranged = [](u64 low, u64 high) {
        return [low, high](db_exec_term_t *term) { term->range = {low, high}; };
    };
    auto local = [&](u64 low, u64 high) {
        return ranged(low == 0 ? 0 : os_local_time_to_file_time(low),
                      high == DB_RANGE_MAX ? high : os_local_time_to_file_time(high));
    };
    auto counted = [](i32 low, i32 high) {
        return [low, high](db_exec_term_t *term) { term->count = {low, high}; };
    };
    auto with = [](db_term_data_t *data) { return [data](db_exec_term_t *term) { term->data = data; }; };
    const struct {
        u32 op;
        std::function<void(db_exec_term_t *)> fill;
        const char *expected;
    } cases[] = {
        {DB_OP_SIZE, ranged(1048577, DB_RANGE_MAX), "size 1048577.."},
        {DB_OP_SIZE_READ + 1, ranged(0, 5), "not size-read ..5"},
        {DB_OP_SIZE, ranged(0, 0), "size 0"},
        {DB_OP_SIZE, ranged(0, DB_RANGE_MAX), "size 0.."},
        {DB_OP_SIZE, ranged(VALUE_UNKNOWN, VALUE_UNKNOWN), "size unknown"},
        {DB_OP_SIZE, ranged(1, 0), "size nothing"},
        {DB_OP_DATE_MODIFIED, local(MARCH, MARCH + SECOND - 1),
         "date-modified 2021-03-01 00:00:00..2021-03-01 00:00:00"},
        {DB_OP_DATE_RUN, local(MARCH, DB_RANGE_MAX), "daterun 2021-03-01 00:00:00.."},
        {DB_OP_DATE_CREATED, local(0, MARCH), "date-created ..2021-03-01 00:00:00"},
        {DB_OP_LENGTH + 1, counted(3, 0x7FFFFFFF), "len 3.., path"},
        {DB_OP_CHILD_COUNT, counted(-1, 7), "childcount -1..7"},
        {DB_OP_RUN_COUNT, counted(4, 4), "runcount 4"},
        {DB_OP_ATTRIBUTES, [](db_exec_term_t *term) { term->mask = 6; }, "attributes HS"},
        {DB_OP_ATTRIBUTES, [](db_exec_term_t *term) { term->mask = 0; }, "attributes any"},
        {DB_OP_EXTENSION_ASCII, with(test_extensions({"c", "h"})), "extension \"c\"; \"h\", diacritics"},
        {DB_OP_EXTENSION, with(test_extensions({"1", "2", "3", "4", "5", "6", "7", "8", "9"})),
         "extension \"1\"; \"2\"; \"3\"; \"4\"; \"5\"; \"6\"; \"7\"; \"8\"; ... 9 in all"},
        {DB_OP_FILE_LIST + 1, with(test_file_list_names({"a", "\\b"})), "filelist \"a\"; \"\\b\", path"},
        {DB_OP_ANCHOR_INNER, with(test_anchors(dir, nullptr, nullptr)), "below-one \"C:\\dir\""},
        {DB_OP_ANCHORS, with(test_anchors(dir, nullptr, file)),
         "below-or-at below \"C:\\dir\"; at \"C:\\dir\\file\""},
        {DB_OP_PARENT + 1, with(test_anchors(dir, nullptr, nullptr)), "not parent \"C:\\dir\""},
        {DB_OP_CHILD, [](db_exec_term_t *term) { term->matcher_op = DB_OP_WILDCARD + 1; },
         "child wildcard, case"},
        {DB_OP_EMPTY, [](db_exec_term_t *) {}, "empty"},
        {DB_OP_COUNT, [](db_exec_term_t *) {}, "false"},
    };
    for (const auto &c : cases) {
        search.run("file:*");
        db_exec_term_t *term = search.query->file_terms;
        term->op = c.op;
        term->test = [](db_scan_t *, const db_exec_term_t *, const db_item_t *) { return true; };
        c.fill(term);
        std::string line = explain(search.query);
        EXPECT_EQ(c.expected, line.substr(6, line.find("  op ") - 6)) << line;
    }
}

// A family that one of the passes does not look at is the constant there, whatever its op.
TEST(DbExplain, ConstantsOfAPass) {
    test_search_t search({"a"});
    const struct {
        u32 op;
        const char *notes;
    } cases[] = {
        {DB_OP_NO_ANCHOR + 4, "   (folders: true)   (files: false)\n"},
        {DB_OP_TYPE, "   (folders: false)\n"},
        {DB_OP_CHILD, "   (files: false)\n"},
    };
    for (auto c : cases) {
        search.run("a");
        for (db_exec_term_t *term : {search.query->folder_terms, search.query->file_terms}) {
            bool is_folder = term == search.query->folder_terms;
            bool is_constant = c.op == DB_OP_NO_ANCHOR + 4 || is_folder == (c.op == DB_OP_TYPE);
            term->op = c.op;
            if (is_constant)
                term->test =
                    db_op_get_functions(is_folder && c.op == DB_OP_NO_ANCHOR + 4 ? DB_OP_TRUE : DB_OP_FALSE,
                                        {is_folder, true})
                        .test;
        }
        std::string line = explain(search.query);
        EXPECT_EQ(c.notes, line.substr(line.find("else -> no") + 10)) << line;
    }
}

} // namespace
} // namespace findwright
