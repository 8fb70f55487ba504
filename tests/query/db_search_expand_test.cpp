#include "query/db_search_expand.h"

#include "base/utf8.h"
#include "os/os_test_support.h"
#include "query/bookmark.h"
#include "query/db_term.h"
#include "query/filter.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

namespace findwright {
namespace {

struct macros_t {
    ~macros_t() {
        bookmark_list_free();
        filter_list_free();
        allow_round_bracket_parenthesis = expand_environment_variables = 0;
    }
    static void filter(const char *macro, const char *search, u32 flags = 0, const char *name = "f") {
        filter_add(&filter_head, &filter_tail, name, flags, search, macro, 0, 0);
    }
    static void bookmark(const char *macro, const char *search, u32 flags = 0, const char *filter = nullptr) {
        bookmark_t *bookmark = bookmark_add("b");
        bookmark->macro = utf8_replace_string(bookmark->macro, macro);
        bookmark->search = utf8_replace_string(bookmark->search, search);
        bookmark->filter = utf8_replace_string(bookmark->filter, filter ? filter : "");
        bookmark->flags = flags | BOOKMARK_HAS_SEARCH | (filter ? u32{BOOKMARK_HAS_FILTER} : 0);
    }
};

std::string expand(const std::string &text) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    db_search_expand(&out, text.c_str());
    std::string expanded = out.data;
    utf8_buf_kill(&out);
    return expanded;
}

const std::string NO_OPTIONS = "nocase:nopath:nowholeword:nodiacritics:noregex:";

TEST(DbSearchExpand, WhereAMacroStands) {
    macros_t macros;
    macros_t::filter("", "empty name");
    macros_t::filter("p", "X");
    std::string p = NO_OPTIONS + "<X >";
    const struct {
        std::string text, expanded;
        u32 brackets = 0;
    } cases[] = {
        {"", ""},
        {"p:", p},
        {"p:cat", p + "cat"},
        {"p:p:", p + p},
        {" \tp:", " \t" + p},
        {"a p: b", "a " + p + " b"},
        {"a|p:", "a|" + p},
        {"<p:>p:", "<" + p + ">" + p},
        {">p:", ">p:"}, // closes nothing: a character of a term
        {"a>p:", "a>p:"},
        {"<a>>p:", "<a>>p:"},
        {"!p:", "!" + p},
        {"!!p:", "!!" + p},
        {"a!p:", "a!p:"},
        {"ap:", "ap:"},
        {"p", "p"},
        {"P:", "P:"},
        {":", ":"},
        {"case:p:", "case:" + p},
        {"\"p:", "\"p:"},
        {"\"p: p:\"p: p:", "\"p: p:\"p: " + p},
        {"\"a\"p:", "\"a\"p:"},
        {"p:\"p:\"", p + "\"p:\""},
        {"(p:)", "(p:)"},
        {"(p:)p:", "(" + p + ")" + p, 1},
    };
    for (const auto &c : cases) {
        allow_round_bracket_parenthesis = c.brackets;
        EXPECT_EQ(c.expanded, expand(c.text)) << c.text;
    }
}

TEST(DbSearchExpand, WhatAMacroStandsFor) {
    macros_t macros;
    macros_t::filter("f", "x y", DB_MATCH_CASE | DB_MATCH_REGEX, "Files");
    macros_t::filter("both", "filter");
    macros_t::filter("open", "\"a b");
    macros_t::bookmark("both", "bookmark");
    macros_t::bookmark("some", "s",
                       u32{BOOKMARK_HAS_PATH} | DB_MATCH_PATH | BOOKMARK_HAS_DIACRITICS | DB_MATCH_CASE);
    macros_t::bookmark("all", "s", 0x1F00 | DB_MATCH_WHOLE_WORD | DB_MATCH_DIACRITICS);
    macros_t::bookmark("filtered", "f: s", BOOKMARK_HAS_CASE, "files");
    macros_t::bookmark("lost", "s", 0, "no such filter");
    macros_t::bookmark("unsaid", "not stored");
    bookmark_tail->flags = 0;
    macros_t::bookmark("", "never");
    std::string f = "case:nopath:nowholeword:nodiacritics:regex:<x y >";
    const struct {
        std::string text, expanded;
    } cases[] = {
        {"f:", f},
        {"both:", "<bookmark >"},
        {"some:", "path:nodiacritics:<s >"},
        {"all:", "nocase:nopath:wholeword:diacritics:noregex:<s >"},
        {"filtered:", "<nocase:<" + f + " s > " + f + ">"},
        {"lost:", "<s >"},
        {"unsaid:", "< >"},
        {"open:c", NO_OPTIONS + "<\"a b\" >c"}, // what follows is no part of its quotes
        {":", ":"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.expanded, expand(c.text)) << c.text;
}

TEST(DbSearchExpand, MacrosOfMacrosEnd) {
    macros_t macros;
    macros_t::bookmark("self", "a self:");
    std::string expected = "< >";
    for (u32 i = 0; i < DB_SEARCH_EXPAND_DEPTH; i++)
        expected = "<a " + expected + " >";
    EXPECT_EQ(expected, expand("self:"));
    // Two that name each other, twice each, would double with each step; a filter of theirs, too.
    macros_t::bookmark("one", "two: two:", 0x1F00, "three");
    macros_t::bookmark("two", "one: one:");
    macros_t::filter("three", "one: one: three:", 0, "three");
    macros_t::bookmark("long", std::string(DB_SEARCH_EXPAND_MAX / 3, 'x').c_str());
    for (const char *text : {"one:", "three: two:", "long: long: long: long: end", "self:self:self:"}) {
        std::string expanded = expand(text);
        EXPECT_LE(expanded.size(), DB_SEARCH_EXPAND_MAX + std::string(text).size()) << text;
        EXPECT_EQ(std::count(expanded.begin(), expanded.end(), '<'),
                  std::count(expanded.begin(), expanded.end(), '>'))
            << text;
    }
    EXPECT_EQ("< > end", expand("long: long: long: end").substr(2 * (DB_SEARCH_EXPAND_MAX / 3) + 2 * 4));
    // A text that is longer by itself stays whole.
    std::string typed(2 * DB_SEARCH_EXPAND_MAX, 'y');
    EXPECT_EQ(typed, expand(typed));
    std::string calls;
    for (u32 i = 0; i < DB_SEARCH_EXPAND_MAX / 4; i++)
        calls += "one:";
    EXPECT_LE(expand(calls).size(), DB_SEARCH_EXPAND_MAX + calls.size());
}

TEST(DbSearchExpand, EnvironmentVariables) {
    macros_t macros;
    auto call = [](const std::string &name) {
        return os_path_separator == '/' ? "$" + name : "%" + name + "%";
    };
    std::string a = call("FW_TEST_A"), unknown = call("FW_TEST_UNKNOWN");
    macros_t::filter("v", a.c_str());
    putenv(const_cast<char *>("FW_TEST_A=value x"));
    EXPECT_EQ(a, expand(a));
    expand_environment_variables = 1;
    const std::string value = "value x";
    EXPECT_EQ(value + "$ " + value + "|" + unknown, expand(a + "$ " + a + "|" + unknown));
    EXPECT_EQ(NO_OPTIONS + "<" + value + " >", expand("v:"));
    // Of values beyond the limit all, or the rest, stays as it is called.
    putenv(const_cast<char *>("FW_TEST_A=0123456789abcdefghijklmnopqrstuvwxyz"));
    std::string calls;
    while (calls.size() < DB_SEARCH_EXPAND_MAX)
        calls += a;
    std::string expanded = expand(calls);
    EXPECT_LE(expanded.size(), calls.size() + DB_SEARCH_EXPAND_MAX);
    EXPECT_EQ(a, expanded.substr(expanded.size() - a.size()));
}

TEST(DbSearchExpand, Operands) {
    const struct {
        const char *text;
        bool is_regex;
        const char *operand;
    } cases[] = {
        {"a|b", false, "<a|b >"},
        {"\"a b", false, "<\"a b\" >"},
        {"\"a\"", false, "<\"a\" >"},
        {"  ^a b|c<\"d$", true, "regex:\"^a b|c<\"quot:\"d$\""},
    };
    for (auto c : cases) {
        utf8_buf_t out;
        utf8_buf_init(&out);
        db_search_cat_operand(&out, c.text, c.is_regex);
        EXPECT_STREQ(c.operand, out.data);
        if (c.is_regex) { // to the parser it is the one term that the whole text was
            db_term_t *whole = _db_query_term_parse_all(db_term_default_flags(DB_MATCH_REGEX), c.text, true);
            db_term_t *terms = _db_query_term_parse_all(db_term_default_flags(0), out.data, true);
            EXPECT_STREQ(whole->text, terms->text);
            EXPECT_EQ(whole->flags, terms->flags);
            EXPECT_EQ(nullptr, terms->link);
            db_term_free_all(whole);
            db_term_free_all(terms);
        }
        utf8_buf_kill(&out);
    }
}

} // namespace
} // namespace findwright
