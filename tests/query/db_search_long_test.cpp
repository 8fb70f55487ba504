// Searches that nobody types but anybody can paste: very long words, and nesting without end.
#include "query/db_query.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

#include <map>

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
    constexpr u32 LONG = 1 << 20; // bytes of a word
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
        {"empty groups", "a " + times(10000, "<>"), 2},
        {"negations", times(100000, "!") + "a", 2},
        {"one negation more", times(100001, "!") + "a", 2},
        {"negated groups", times(100001, "!<") + "a", 2},
        {"modifiers", times(100000, "case:") + "A", 0},
        {"modifiers, the first one counts", "nocase:" + times(100000, "case:") + "A", 2},
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

// The lengths of paths, from a chain of folders that is longer than what is kept of one.
TEST(DbSearchLong, PathLengthsOfADeepChain) {
    std::vector<std::string> paths;
    std::string folder;
    std::map<size_t, u32> lengths; // in units, behind the root's name
    lengths[0]++;
    size_t units = 0;
    for (u32 depth = 0; depth < 60; depth++) {
        // The deepest folder is the first one by name, and is asked for when none is known.
        const bool has_accent = depth % 7 == 0;
        const u32 place = 59 - depth;
        folder += std::string(depth == 0 ? "" : "\\") + static_cast<char>('a' + place / 26) +
                  static_cast<char>('a' + place % 26) + (has_accent ? "\u00E9" : "");
        units += 3u + has_accent;
        paths.push_back(folder + "\\f");
        lengths[units]++;
        lengths[units + 2]++;
    }
    db_t *db = test_db_create({test_volume_from_paths(paths)}, 0);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    db_query_params_t params = {};
    params.search = "root:";
    params.filter_search = "";
    db_query_search(query, &params);
    ASSERT_EQ(1u, db_get_result_count(query));
    const size_t root = db_item_get_name_length(db_get_result_item(query, 0));
    for (const auto &[length, count] : lengths) {
        const std::string text = "path:len:" + std::to_string(root + length);
        params.search = text.c_str();
        db_query_search(query, &params);
        EXPECT_EQ(count, db_get_result_count(query)) << text;
    }
    db_destroy_query(query);
    db_destroy(db);
}

} // namespace
} // namespace findwright
