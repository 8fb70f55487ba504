// Searches that nobody types but anybody can paste: very long words, and nesting without end.
#include "query/db_query.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

std::string times(u32 count, const std::string &text) {
    std::string out;
    out.reserve(count * text.size());
    while (count--)
        out += text;
    return out;
}

TEST(DbSearchLong, LongAndDeepSearchesAreSearchesLikeOthers) {
    constexpr u32 MEGABYTE = 1 << 20;
    const std::string name(250, 'a');
    db_t *db = test_db_create({test_volume_from_paths({"a", "b.txt", name})}, 0);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    const struct {
        const char *what;
        std::string text;
        u32 found; // of the three files and the root
    } cases[] = {
        {"groups", times(100000, "<") + "a", 2},
        {"groups that are closed", times(100000, "<") + "a" + times(100000, ">"), 2},
        {"empty groups", "a " + times(20000, "<>"), 2},
        {"negations", times(100000, "!") + "a", 2},
        {"one negation more", times(100001, "!") + "a", 2},
        {"negated groups", times(50001, "!<") + "a", 2},
        {"modifiers", times(100000, "case:") + "A", 0},
        {"modifiers, the first one counts", "nocase:" + times(100000, "case:") + "A", 2},
        {"terms", times(300000, "a "), 2},
        {"alternatives", times(20000, "x|") + "b", 1},
        {"a word", std::string(MEGABYTE, 'a'), 0},
        {"a word that must not be there", "!" + std::string(MEGABYTE, 'a'), 4},
        {"a whole name", "wfn:" + std::string(MEGABYTE, 'a'), 0},
        {"a word in another script", times(MEGABYTE / 2, "\u0436"), 0},
        {"a word in the path", "path:" + std::string(MEGABYTE, 'a'), 0},
        {"a start", std::string(MEGABYTE, 'a') + "*", 0},
        {"an end", "*" + times(MEGABYTE / 2, "\u00E1"), 0},
        {"stars", times(MEGABYTE, "*") + "a", 2},
        {"stars between letters", times(MEGABYTE / 2, "a*"), 0},
        {"question marks", times(MEGABYTE, "?"), 0},
        {"a quote", "\"" + std::string(MEGABYTE, ' ') + "\"", 0},
        {"characters by number", times(100000, "#97:"), 0},
        {"an expression without signs", "regex:" + std::string(MEGABYTE, 'a'), 0},
        {"an expression", "regex:" + times(MEGABYTE / 2, "a."), 0},
    };
    for (const auto &c : cases) {
        db_query_params_t params = {};
        params.search = c.text.c_str();
        params.filter_search = "";
        db_query_search(query, &params);
        EXPECT_EQ(c.found, db_get_result_count(query)) << c.what;
    }
    db_destroy_query(query);
    db_destroy(db);
}

} // namespace
} // namespace findwright
