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
    constexpr u32 LONG = 1 << 17; // bytes of a word
    const std::string name(250, 'a');
    db_t *db = test_db_create({test_volume_from_paths({"a", "b.txt", name})}, 0);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    const struct {
        const char *what;
        std::string text;
        u32 found; // of the three files and the root
    } cases[] = {
        {"groups", times(20000, "<") + "a", 2},
        {"groups that are closed", times(20000, "<") + "a" + times(20000, ">"), 2},
        {"empty groups", "a " + times(10000, "<>"), 2},
        {"negations", times(20000, "!") + "a", 2},
        {"one negation more", times(20001, "!") + "a", 2},
        {"negated groups", times(10001, "!<") + "a", 2},
        {"modifiers", times(20000, "case:") + "A", 0},
        {"modifiers, the first one counts", "nocase:" + times(20000, "case:") + "A", 2},
        {"terms", times(60000, "a "), 2},
        {"alternatives", times(10000, "x|") + "b", 1},
        {"a word", std::string(LONG, 'a'), 0},
        {"a word that must not be there", "!" + std::string(LONG, 'a'), 4},
        {"a whole name", "wfn:" + std::string(LONG, 'a'), 0},
        {"a word in another script", times(LONG / 2, "\u0436"), 0},
        {"a word in the path", "path:" + std::string(LONG, 'a'), 0},
        {"a start", std::string(LONG, 'a') + "*", 0},
        {"an end", "*" + times(LONG / 2, "\u00E1"), 0},
        {"stars", times(LONG, "*") + "a", 2},
        {"stars between letters", times(LONG / 2, "a*"), 0},
        {"question marks", times(LONG, "?"), 0},
        {"a quote", "\"" + std::string(LONG, ' ') + "\"", 0},
        {"characters by number", times(20000, "#97:"), 0},
        {"an expression without signs", "regex:" + std::string(LONG, 'a'), 0},
        {"an expression", "regex:" + times(LONG / 2, "a."), 0},
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
