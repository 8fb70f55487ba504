// Terms that lead through folders: anchors, components, and the narrowed scan, beside the plain reading.
#include "query/db_search.h"

#include "base/utf8.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace findwright {
namespace {

using paths_t = std::vector<std::string>;

struct path_search_t {
    db_t *db;
    db_query_t *query;

    path_search_t(const std::vector<test_volume_t> &volumes, u32 flags)
        : db(test_db_create(volumes, flags)), query(db_query_create(db, false, nullptr, nullptr)) {}
    ~path_search_t() {
        db_destroy_query(query);
        db_destroy(db);
    }
    paths_t run(const std::string &text, u32 sort = 0) {
        db_query_params_t params = {};
        params.search = text.c_str();
        params.filter_search = "";
        params.sort = sort;
        db_query_search(query, &params);
        db_get_result_count(query);
        return test_result_paths(query);
    }
    paths_t sorted(const std::string &text) {
        paths_t found = run(text);
        std::sort(found.begin(), found.end());
        return found;
    }
};

paths_t sort(paths_t paths) {
    std::sort(paths.begin(), paths.end());
    return paths;
}

test_volume_t volume(const char *root, const paths_t &paths) {
    test_volume_t made = test_volume_from_paths(paths);
    made.path = root;
    return made;
}

TEST(DbSearchPath, AnchorsAndComponents) {
    path_search_t search(
        {volume("C:", {"Win\\a.txt", "Win\\sub\\b.txt", "win2\\c.txt", "x\\Win\\d.txt", "winner"}),
         volume("\\\\server\\share", {"pub\\e.txt"}),
         volume("\\home\\u", {"docs\\f.txt", "docs\\deep\\g.txt"})},
        0);
    const size_t all = search.run("").size();
    const struct {
        const char *text;
        paths_t expected;
    } cases[] = {
        // Below a folder, which is not itself there.
        {"c:\\win\\", {"C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt"}},
        {"c:\\win\\*", {"C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt"}},
        {"case:c:\\win\\", {}},
        {"case:C:\\Win\\", {"C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt"}},
        {"c:\\win\\sub\\", {"C:\\Win\\sub\\b.txt"}},
        {"c:\\nothing\\", {}},
        // A text that a path begins with.
        {"c:\\win",
         {"C:\\Win", "C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt", "C:\\win2", "C:\\win2\\c.txt",
          "C:\\winner"}},
        // Roots.
        {"\\\\server", {"\\\\server\\share", "\\\\server\\share\\pub", "\\\\server\\share\\pub\\e.txt"}},
        {"\\\\server\\", {"\\\\server\\share", "\\\\server\\share\\pub", "\\\\server\\share\\pub\\e.txt"}},
        {"\\\\server\\share\\", {"\\\\server\\share\\pub", "\\\\server\\share\\pub\\e.txt"}},
        {"\\home\\u\\",
         {"\\home\\u\\docs", "\\home\\u\\docs\\deep", "\\home\\u\\docs\\deep\\g.txt",
          "\\home\\u\\docs\\f.txt"}},
        {"\\home\\u\\docs\\",
         {"\\home\\u\\docs\\deep", "\\home\\u\\docs\\deep\\g.txt", "\\home\\u\\docs\\f.txt"}},
        {"\\home\\u\\docs\\f", {"\\home\\u\\docs\\f.txt"}},
        // No such root: a text like any other.
        {"\\win\\d", {"C:\\x\\Win\\d.txt"}},
        {"\\x\\win\\", {"C:\\x\\Win\\d.txt"}},
        // Components, the item's own name and the root's among them.
        {"\\win",
         {"C:\\Win", "C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt", "C:\\win2", "C:\\win2\\c.txt",
          "C:\\winner", "C:\\x\\Win", "C:\\x\\Win\\d.txt"}},
        {"\\win\\",
         {"C:\\Win", "C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt", "C:\\x\\Win",
          "C:\\x\\Win\\d.txt"}},
        {"2\\", {"C:\\win2", "C:\\win2\\c.txt"}},
        {"*\\sub\\*", {"C:\\Win\\sub", "C:\\Win\\sub\\b.txt"}},
        {"\\share\\", {"\\\\server\\share", "\\\\server\\share\\pub", "\\\\server\\share\\pub\\e.txt"}},
        {"\\hom",
         {"\\home\\u", "\\home\\u\\docs", "\\home\\u\\docs\\deep", "\\home\\u\\docs\\deep\\g.txt",
          "\\home\\u\\docs\\f.txt"}},
        // Texts in any component.
        {"path:sub", {"C:\\Win\\sub", "C:\\Win\\sub\\b.txt"}},
        {"path:ww:win",
         {"C:\\Win", "C:\\Win\\a.txt", "C:\\Win\\sub", "C:\\Win\\sub\\b.txt", "C:\\x\\Win",
          "C:\\x\\Win\\d.txt"}},
        // Texts with a separator: in the folder's path, over the border to the name, in the root's own name.
        {"n\\sub", {"C:\\Win\\sub", "C:\\Win\\sub\\b.txt"}},
        {"n\\SUB\\", {"C:\\Win\\sub\\b.txt"}},
        {"2\\C.T", {"C:\\win2\\c.txt"}},
        {"n\\ub", {}},
        {"ver\\share\\p", {"\\\\server\\share\\pub", "\\\\server\\share\\pub\\e.txt"}},
        {"ver\\sh", {"\\\\server\\share", "\\\\server\\share\\pub", "\\\\server\\share\\pub\\e.txt"}},
        {"ww:x\\win", {"C:\\x\\Win", "C:\\x\\Win\\d.txt"}},
        {"ww:x\\wi", {}},
        {"path:sub path:b.t", {"C:\\Win\\sub\\b.txt"}},
        {"c:\\win\\ !path:sub", {"C:\\Win\\a.txt"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(sort(c.expected), search.sorted(c.text)) << c.text;
        // The negation is the rest, alone and in a chain; but for a path that no folder has.
        if (!c.expected.empty() && !std::strchr(c.text, ' ')) {
            EXPECT_EQ(all - c.expected.size(), search.run(std::string("!") + c.text).size()) << c.text;
            EXPECT_EQ(all - c.expected.size(), search.run(std::string("!") + c.text + " !zzz").size())
                << c.text;
        }
    }
    // That one keeps folders and drops files.
    for (const std::string &path : search.run("!c:\\nothing\\"))
        EXPECT_EQ(std::string::npos, path.find(".txt")) << path;
    EXPECT_EQ(11u, search.run("!c:\\nothing\\").size());
    EXPECT_EQ(all, search.run("!c:\\nothing").size());
}

// What a search finds does not depend on the path arrays, which it narrows by where they exist, nor on the
// threads; and every order is kept.
TEST(DbSearchPath, NarrowedScansFindTheSame) {
    std::mt19937 random(3);
    const char *const names[] = {"a", "A", "b", "a b", "a.b", "\xC3\xA9", "e", "ab", "abc", "z"};
    std::set<std::string> made;
    while (made.size() < 4000) {
        std::string path;
        for (auto depth = 1 + random() % 5; depth != 0; depth--)
            path += (path.empty() ? "" : "\\") + std::string(names[random() % std::size(names)]);
        if (random() % 2)
            path += "." + std::to_string(random() % 3000);
        made.insert(path);
    }
    std::vector<test_volume_t> volumes = {volume("C:", {made.begin(), made.end()}),
                                          volume("D:", {"a\\b\\x", "ab\\x"})};
    path_search_t narrow(volumes, TEST_FLAGS_ALL), plain(volumes, DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED);
    u32 found = 0;
    std::map<u32, paths_t> wholes; // by order
    for (u32 round = 0; round < 300; round++) {
        std::string text = random() % 8 ? "c:" : "d:";
        for (auto depth = 1 + random() % 4; depth != 0; depth--)
            text += "\\" + std::string(names[random() % std::size(names)]);
        if (random() % 2)
            text += "\\";
        text = (random() % 4 ? "" : random() % 2 ? "case:" : "diacritics:") + ("\"" + text + "\"");
        if (random() % 3 == 0)
            text += " 1";
        paths_t expected = plain.run(text);
        found += static_cast<u32>(expected.size());
        ASSERT_EQ(expected, narrow.run(text)) << text;
        // The other orders hold the same, in the order of the database's own array.
        u32 order = (random() % 2 ? DB_SORT_SIZE_ASCENDING : DB_SORT_DATE_MODIFIED_ASCENDING) +
                    (random() % 2 ? 1u : 0u);
        if (wholes[order].empty())
            wholes[order] = narrow.run("", order);
        paths_t by_order = narrow.run(text, order), all = wholes[order];
        std::set<std::string> wanted(expected.begin(), expected.end());
        std::erase_if(all, [&](const std::string &path) { return wanted.count(path) == 0; });
        ASSERT_EQ(all, by_order) << text << " order " << order;
    }
    EXPECT_GT(found, 3000u);
}

} // namespace
} // namespace findwright
