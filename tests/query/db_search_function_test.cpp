// Functions: what each finds, alone and in a chain, negated and not, among folders and files; the sets that
// are made ahead of a pass against a plain count; what is read from the file system.
#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_test_support.h"
#include "query/db_query_internal.h"
#include "query/db_search.h"
#include "support/test_db.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <thread>

namespace findwright {
namespace {

using namespace std::string_literals;
using paths_t = std::vector<std::string>;

// A database with a query on it, whose searches are waited for.
struct search_t {
    db_t *db = db_create();
    db_query_t *query = nullptr;

    explicit search_t(db_wanted_t *wanted) {
        db_rebuild_start(db, wanted, nullptr);
        test_db_wait(db);
        query = db_query_create(db, false, nullptr, nullptr);
    }
    ~search_t() {
        db_destroy_query(query);
        db_destroy(db);
    }
    void run(const std::string &text) {
        db_query_params_t params = {};
        params.search = text.c_str();
        params.filter_search = "";
        db_query_search(query, &params);
        db_get_result_count(query);
    }
    // Full paths with `/`, in their order as bytes. Those of other sources than the first begin with `+`.
    paths_t paths(const std::string &text) {
        run(text);
        paths_t paths = test_result_paths(query);
        for (std::string &path : paths) {
            std::replace(path.begin(), path.end(), '\\', '/');
            if (db_get_index(db_get_result_item(query, static_cast<i32>(&path - paths.data())))->ordinal != 0)
                path.insert(0, "+");
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }
};

struct wanted_t : db_wanted_t {
    wanted_t() { db_wanted_init(this); }
    ~wanted_t() { db_wanted_kill(this); }
};

paths_t split(const std::string &text) {
    paths_t words;
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find(' ', start), text.size());
        words.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    std::sort(words.begin(), words.end());
    return words;
}

paths_t without(const paths_t &all, const paths_t &some) {
    paths_t rest;
    std::set_difference(all.begin(), all.end(), some.begin(), some.end(), std::back_inserter(rest));
    return rest;
}

// 1 January, noon UTC, of years from 2001 on, as file times: far enough from the year's border for any zone.
std::string noon(u32 year, u32 day = 9) {
    u64 days = 365ull * (year - 1970) + (year - 1969) / 4 + day;
    return std::to_string((days * 86400 + 43200 + 11644473600ull) * 10000000);
}

// Two lists of files, which hold whatever a row says.
struct lists_t {
    temp_folder_t folder;
    std::string music = folder / "music.fwl", video = folder / "video.csv";

    lists_t() {
        // Name, size, modified, created, accessed, attributes.
        write_file(music,
                   "Filename,Size,Date Modified,Date Created,Date Accessed,Attributes\n" +
                       row("C:\\d", "", noon(2005), noon(2004), 16) +
                       row("C:\\d\\abc.txt", "100", noon(2010), noon(2010), 32) +
                       row("C:\\d\\ABC.doc", "200", noon(2011), noon(2010), 33) +
                       row("C:\\d\\abc.x.y", "100", noon(2009), noon(2010), 34) +
                       row("C:\\d\\noext", "7", noon(2012), noon(2012), 0) +
                       row("C:\\d\\s", "", noon(2006), noon(2007), 18) +
                       row("C:\\d\\s\\r\xC3\xA9sum\xC3\xA9.tar.gz", "300", noon(2010), noon(2013), 32) +
                       row("C:\\d\\s\\abc.txt", "", "", "", 32) + row("C:\\d\\s\\a|b", "0", "", "", 32) +
                       row("C:\\e", "", noon(2005), noon(2005), 16));
        write_file(video, "Filename,Size,Attributes\nC:\\d\\noext,7,32\nX:\\f.ZQX,9,32\nX:\\.rc,1,32\n"
                          "Z:,5,32\n");
    }
    static std::string row(const std::string &name, const std::string &size, const std::string &modified,
                           const std::string &created, u32 attributes) {
        return name + "," + size + "," + modified + "," + created + ",," + std::to_string(attributes) + "\n";
    }
    void add_to(db_wanted_t *wanted) {
        wanted->index_flags = TEST_FLAGS_ALL;
        db_wanted_add_file_list(wanted, music.c_str(), false);
        db_wanted_add_file_list(wanted, video.c_str(), false);
    }
};

TEST(DbSearchFunction, WhatEachFinds) {
    lists_t lists;
    wanted_t wanted;
    lists.add_to(&wanted);
    search_t search(&wanted);
    const paths_t all = search.paths("*");
    ASSERT_EQ(all.size(), 18u);
    const struct {
        const char *text;
        const char *expected; // paths with blanks between, in any order; `*` for all
    } cases[] = {
        {"ext:txt", "C:/d/abc.txt C:/d/s/abc.txt"},
        {"ext:TXT;doc", "C:/d/ABC.doc C:/d/abc.txt C:/d/s/abc.txt"},
        {"case:ext:ZQX;TXT", "+X:/f.ZQX"},
        {"diacritics:ext:gz;y", "C:/d/abc.x.y C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"ext:tar.gz;b", "C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"ext:", "+C:/d/noext +Z: C:/d/noext C:/d/s/a|b"},
        {"ext:;", "+C:/d/noext +Z: C:/d/noext C:/d/s/a|b"},
        {"ext:doc;;gz",
         "+C:/d/noext +Z: C:/d/ABC.doc C:/d/noext C:/d/s/a|b C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"ext:rc", "+X:/.rc"},
        {"filelist:\"ABC.TXT|noext\"", "+C:/d/noext C:/d/abc.txt C:/d/noext C:/d/s/abc.txt"},
        {"filelist:\"c:\\d\\ABC.TXT|f.zqx|resume.tar.gz\"",
         "+X:/f.ZQX C:/d/abc.txt C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"filelist:\"d\\abc.txt|c:\\e|x:\"", "+X: C:/e"},
        {"filelist:a#124:b", "C:/d/s/a|b"},
        {"filelist:\"q|\"a#124:b\"|x\"", "C:/d/s/a|b"},
        {"case:filelist:abc.doc", ""},
        {"fsi:>0", "+C: +C:/d +C:/d/noext +X: +X:/.rc +X:/f.ZQX +Z:"},
        {"len:5", "+C:/d/noext +X:/f.ZQX C:/d/noext"},
        {"len:13", "C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"path:len:<5", "+C: +C:/d +X: +Z: C: C:/d C:/e"},
        {"path:len:20", "C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"parents:0", "+C: +X: +Z: C:"},
        {"depth:2..3", "+C:/d/noext C:/d/ABC.doc C:/d/abc.txt C:/d/abc.x.y C:/d/noext C:/d/s C:/d/s/abc.txt "
                       "C:/d/s/a|b C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"root:", "+C: +X: +Z: C:"},
        {"file:root:", "+Z:"},
        {"size:100", "C:/d/abc.txt C:/d/abc.x.y"},
        {"size:>100", "C: C:/d C:/d/ABC.doc C:/d/s C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"size:unknown", "C:/d/s/abc.txt"},
        {"folder:size:unknown", ""},
        {"type:zqx", "+X:/f.ZQX"},
        {"child:abc", "C:/d C:/d/s"},
        {"child:regex:^r", ""},
        {"regex:child:^r", "C:/d/s"},
        {"wfn:child:noext", "+C:/d C:/d"},
        {"child:s", "C:/d C:/d/s"},
        {"childcount:1", "+C: +C:/d"},
        {"childcount:>=2", "+X: C: C:/d C:/d/s"},
        {"childcount:0", "C:/e"},
        {"childcount:", "+C: +C:/d +X: C: C:/d C:/d/s"},
        {"childfilecount:>3", "C:/d"},
        {"childfoldercount:1..2", "+C: C: C:/d"},
        {"empty:", "C:/e"},
        {"dm:2010", "C:/d/abc.txt C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"datemodified:>2010", "C:/d/ABC.doc C:/d/noext"},
        {"dc:2010", "C:/d/ABC.doc C:/d/abc.txt C:/d/abc.x.y"},
        {"dm:unknown", "+C: +C:/d +C:/d/noext +X: +X:/.rc +X:/f.ZQX +Z: C: C:/d/s/abc.txt C:/d/s/a|b"},
        {"da:unknown", "*"},
        {"attrib:R", "C:/d/ABC.doc"},
        {"attributes:ah", "C:/d/abc.x.y"},
        {"attrib:?", "*"},
        {"startwith:abc.", "C:/d/ABC.doc C:/d/abc.txt C:/d/abc.x.y C:/d/s/abc.txt"},
        {"path:startwith:c:\\d\\s", "C:/d/s C:/d/s/abc.txt C:/d/s/a|b C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"case:startwith:ABC", "C:/d/ABC.doc"},
        {"endwith:EXT", "+C:/d/noext C:/d/noext"},
        {"diacritics:endwith:sum\xC3\xA9.tar.gz", "C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz"},
        {"startwith:a*", ""},
        {"parent:c:\\d", "+C:/d/noext C:/d/ABC.doc C:/d/abc.txt C:/d/abc.x.y C:/d/noext C:/d/s"},
        {"infolder:C:\\D\\", "+C:/d/noext C:/d/ABC.doc C:/d/abc.txt C:/d/abc.x.y C:/d/noext C:/d/s"},
        {"parent:", "+C: +X: +Z: C:"},
        {"filelistfilename:*.csv", "+C: +C:/d +C:/d/noext +X: +X:/.rc +X:/f.ZQX +Z:"},
        {"dupe:", "+C: +C:/d +C:/d/noext C: C:/d C:/d/abc.txt C:/d/noext C:/d/s/abc.txt"},
        {"namepartdupe:",
         "+C: +C:/d +C:/d/noext C: C:/d C:/d/ABC.doc C:/d/abc.txt C:/d/noext C:/d/s/abc.txt"},
        {"sizedupe:", "+C: +C:/d +C:/d/noext C: C:/d C:/d/abc.txt C:/d/abc.x.y C:/d/noext"},
        {"dmdupe:", "+C: +C:/d +C:/d/noext +X: +X:/.rc +X:/f.ZQX +Z: C: C:/d C:/d/abc.txt C:/d/s/abc.txt "
                    "C:/d/s/a|b C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz C:/e"},
        {"dupedc:", "+C: +C:/d +C:/d/noext +X: +X:/.rc +X:/f.ZQX +Z: C: C:/d/ABC.doc C:/d/abc.txt "
                    "C:/d/abc.x.y C:/d/s/abc.txt C:/d/s/a|b"},
        {"dadupe:", "*"},
        {"attribdupe:", "+C: +C:/d +C:/d/noext +X: +X:/.rc +X:/f.ZQX +Z: C: C:/d C:/d/abc.txt C:/d/s/abc.txt "
                        "C:/d/s/a|b C:/d/s/r\xC3\xA9sum\xC3\xA9.tar.gz C:/e"},
    };
    for (auto c : cases) {
        const std::string text = c.text;
        const paths_t expected = *c.expected == '*' ? all : split(c.expected);
        const paths_t others = without(all, expected);
        EXPECT_EQ(expected, search.paths(text)) << text;
        EXPECT_EQ(expected, search.paths("* " + text)) << text; // in a chain
        EXPECT_EQ(others, search.paths("!" + text)) << text;
        EXPECT_EQ(others, search.paths("* !" + text)) << text;
    }
}

// Items of the lists that a plain test of the two dates lets through.
paths_t compare_dates(search_t *search, std::function<bool(bool is_folder, u64 modified, u64 created)> test) {
    search->run("");
    paths_t paths = test_result_paths(search->query);
    paths_t kept;
    for (size_t i = 0; i < paths.size(); i++) {
        const db_item_t *item = db_get_result_item(search->query, static_cast<i32>(i));
        bool is_folder = db_is_folder_result(search->query, static_cast<i32>(i));
        if (test(is_folder,
                 is_folder ? db_folder_get_date_modified(search->db, item)
                           : db_file_get_date_modified(search->db, item),
                 is_folder ? db_folder_get_date_created(search->db, item)
                           : db_file_get_date_created(search->db, item)))
            kept.push_back(paths[i]);
    }
    return kept;
}

// The passes do not test all six of these ops, and not the same ones alone and in a chain.
TEST(DbSearchFunction, TheTwoDatesOfAnItem) {
    lists_t lists;
    wanted_t wanted;
    lists.add_to(&wanted);
    search_t search(&wanted);
    const struct {
        const char *text;
        u32 op;
    } cases[] = {
        {"dm:dc:", 214},   {"dc:=dm:", 214},          {"dm:==datecreated:", 214},
        {"dm:>=dc:", 216}, {"dm:>datecreated:", 218}, {"dm:<=dc:", 219},
        {"dm:<dc:", 217},  {"dc:>=dm:", 217},         {"dc:>datemodified:", 219},
        {"dc:<=dm:", 218}, {"datecreated:<dm:", 216},
    };
    for (auto c : cases) {
        for (bool is_negated : {false, true}) {
            for (bool is_chain : {false, true}) {
                u32 op = c.op ^ (is_negated ? 1 : 0);
                auto holds = [op](u64 modified, u64 created) {
                    u32 test = op & ~1u;
                    bool answer = test == 214   ? modified == created
                                  : test == 216 ? modified >= created
                                                : modified > created;
                    return answer != (op & 1);
                };
                paths_t expected = compare_dates(&search, [&](bool is_folder, u64 modified, u64 created) {
                    if (!is_folder)
                        return is_chain && holds(modified, created);
                    if (is_chain && op & 1)
                        return op == 219;
                    return holds(modified, created);
                });
                search.run(std::string(is_chain ? "* " : "") + (is_negated ? "!" : "") + c.text);
                EXPECT_EQ(expected, test_result_paths(search.query))
                    << c.text << " negated " << is_negated << " chain " << is_chain;
            }
        }
    }
}

TEST(DbSearchFunction, AFolderThatIsNotThereIsTheParentOfNoFile) {
    lists_t lists;
    wanted_t wanted;
    lists.add_to(&wanted);
    search_t search(&wanted);
    for (const char *text : {"parent:c:\\nowhere", "infolder:d", "case:parent:c:\\d"}) {
        EXPECT_EQ(paths_t{}, search.paths(text));
        EXPECT_EQ(search.paths("folder:"),
                  search.paths("!"s + text)); // nor is any file let through by its negation
        EXPECT_EQ(search.paths("folder:"), search.paths("* !"s + text));
    }
    EXPECT_EQ(paths_t{}, search.paths("shell:no-such-place"));
    EXPECT_EQ(search.paths("*"), search.paths("!shell:no-such-place"));
}

TEST(DbSearchFunction, RunsAndRecentChanges) {
    lists_t lists;
    wanted_t wanted;
    lists.add_to(&wanted);
    search_t search(&wanted);
    auto find = [&](const char *text) {
        search.run(text);
        EXPECT_EQ(db_get_result_count(search.query), 1u);
        return db_get_result_item(search.query, 0);
    };
    const db_item_t *file = find("abc.x.y"), *folder = find("wfn:e folder:");
    db_run_history_set_item(search.db, file, false, 3, std::stoull(noon(2010)));
    db_run_history_set_item(search.db, folder, true, 7, std::stoull(noon(2012)));
    db_recent_change_set(search.db, true, folder, std::stoull(noon(2011)));
    const struct {
        const char *text;
        const char *expected;
    } cases[] = {
        {"runcount:3", "C:/d/abc.x.y"},
        {"runcount:>0", "C:/d/abc.x.y C:/e"},
        {"runcount:", "C:/d/abc.x.y C:/e"},
        {"!runcount:<7", "C:/e"},
        {"daterun:2010", "C:/d/abc.x.y"},
        {"dr:>2010", "C:/e"},
        {"rc:2011", "C:/e"},
        {"recentchange:<2011", ""},
        {"!drc:unknown", "C:/e"},
    };
    for (auto c : cases) {
        EXPECT_EQ(split(c.expected), search.paths(c.text)) << c.text;
        EXPECT_EQ(split(c.expected), search.paths("* "s + c.text)) << c.text;
    }
    EXPECT_EQ(search.paths("*").size() - 2, search.paths("runcount:0").size());
    db_run_history_clear(search.db);
    db_recent_change_clear(search.db);
}

// --- Sets of items -----------------------------------------------------------------------------------------

std::string fold(const std::string &text) {
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(UTF8_MODE_FOLD, &folded, text.data(), static_cast<u32>(text.size()));
    std::string result(folded.data, static_cast<size_t>(folded.length));
    utf8_buf_kill(&folded);
    return result;
}

using items_t = std::vector<const db_item_t *>;

items_t get_results(db_query_t *query) {
    items_t items;
    for (i32 i = 0, count = static_cast<i32>(db_get_result_count(query)); i < count; i++)
        items.push_back(db_get_result_item(query, i));
    return items;
}

// What is known of a database by a plain look at all paths.
struct plain_t {
    struct item_t {
        const db_item_t *item;
        std::string path, name;
        bool is_folder;
        u32 folders = 0, files = 0; // in it
    };
    std::vector<item_t> items;
    std::map<std::string, u32> names[2], parts[2]; // how often; of files, of folders

    explicit plain_t(search_t *search) {
        search->run("*");
        std::map<std::string, size_t> places;
        for (const std::string &path : test_result_paths(search->query)) {
            bool is_folder = db_is_folder_result(search->query, static_cast<i32>(items.size()));
            const db_item_t *result = db_get_result_item(search->query, static_cast<i32>(items.size()));
            item_t item = {result, path, fold(path.substr(path.rfind('\\') + 1)), is_folder};
            names[is_folder][item.name]++;
            parts[is_folder][part(item)]++;
            if (is_folder)
                places[path] = items.size();
            items.push_back(item);
        }
        for (size_t i = 0; i < items.size(); i++) {
            auto parent = places.find(items[i].path.substr(0, items[i].path.rfind('\\')));
            if (items[i].path.find('\\') != std::string::npos)
                (items[i].is_folder ? items[parent->second].folders : items[parent->second].files)++;
        }
    }
    static std::string part(const item_t &item) {
        return item.is_folder ? item.name : item.name.substr(0, item.name.rfind('.'));
    }
    // The results are all the items for which the predicate says so, in their order. Paths are not made for
    // them: there are many.
    template<class predicate_t>
    void expect(search_t *search, const std::string &text, predicate_t predicate) const {
        search->run(text);
        const items_t found = get_results(search->query);
        size_t count = 0;
        for (const item_t &item : items) {
            const bool is_found = count < found.size() && found[count] == item.item;
            ASSERT_EQ(predicate(item), is_found) << text << " " << item.path;
            count += is_found;
        }
        EXPECT_EQ(count, found.size()) << text;
        EXPECT_NE(0u, count) << text;
    }
};

void add_volumes(db_wanted_t *wanted, const std::vector<test_volume_t> &volumes) {
    wanted->index_flags = TEST_FLAGS_ALL;
    test_add_volumes(wanted, volumes);
}

void compare_sets(search_t *search, bool negated) {
    const plain_t plain(search);
    using item_t = plain_t::item_t;
    const struct {
        const char *text;
        std::function<bool(const item_t &item)> test;
    } cases[] = {
        {"dupe:", [&](const item_t &i) { return plain.names[i.is_folder].at(i.name) > 1; }},
        {"namepartdupe:", [&](const item_t &i) { return plain.parts[i.is_folder].at(plain.part(i)) > 1; }},
        {"empty:", [](const item_t &i) { return i.is_folder && i.folders + i.files == 0; }},
        {"childcount:2..3", [](const item_t &i) { return i.is_folder && (i.folders + i.files) / 2 == 1; }},
        {"childfilecount:0", [](const item_t &i) { return i.is_folder && i.files == 0; }},
        {"childfoldercount:", [](const item_t &i) { return i.is_folder && i.folders != 0; }},
    };
    for (const auto &c : cases) {
        plain.expect(search, c.text, c.test);
        if (negated)
            plain.expect(search, "!"s + c.text, [&](const item_t &item) { return !c.test(item); });
    }
}

TEST(DbSearchFunction, SetsAgreeWithAPlainCount) {
    static const char *const pieces[] = {"a", "b", "A", ".", "-", "\xC3\xA9", "E"};
    std::mt19937 random(11);
    for (u32 round = 0; round < 30; round++) {
        std::vector<std::string> paths;
        for (u32 i = 0; i < 300; i++) {
            std::string path;
            for (u64 depth = random() % 4;; depth--) {
                for (u64 n = 1 + random() % 3; n != 0; n--)
                    path += pieces[random() % std::size(pieces)];
                path += depth ? "d\\" : random() % 4 ? "f" : "d\\";
                if (depth == 0)
                    break;
            }
            if (std::find(paths.begin(), paths.end(), path) == paths.end())
                paths.push_back(path);
        }
        std::vector<test_volume_t> volumes = {test_volume_from_paths(paths)};
        wanted_t wanted;
        add_volumes(&wanted, volumes);
        search_t search(&wanted);
        compare_sets(&search, true);
        if (testing::Test::HasFailure())
            return;
    }
}

u64 sum_parents(const db_t *db) {
    u64 sum = 0;
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        u32 page = 0, value;
        for (i32 position = -1; array_next_to(array, &page, &position, &value);)
            sum = sum * 31 + db_item(value)->parent;
    }
    return sum;
}

// Borrowed words are given back wherever a search is broken off.
void cancel_searches(search_t *search) {
    const u64 expected = sum_parents(search->db);
    const char *const texts[] = {
        "childcount:1", "childfilecount:>1", "childfoldercount:0", "empty:", "child:7",
        "dupe:",        "namepartdupe:"};
    std::mt19937 random(3);
    for (u32 round = 0; round < 14; round++) {
        const char *text = texts[round % std::size(texts)];
        db_query_params_t params = {};
        params.search = text;
        params.filter_search = "";
        db_query_search(search->query, &params);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
        db_cancel_query(search->query);
        db_wait(search->db, "test");
        ASSERT_EQ(expected, sum_parents(search->db)) << text;
    }
}

// So many folders and files that several threads walk them.
TEST(DbSearchFunction, SeveralThreadsMakeTheSameSets) {
    std::vector<std::string> paths;
    for (u32 i = 0; i < 66000; i++) {
        const std::string folder = "d" + std::to_string(i * 7919 % 66000) + "\\";
        paths.push_back(folder + (i % 5 ? std::to_string(i * 31 % 40000) + (i % 2 ? ".a" : ".b") : ""));
        if (i % 4 == 0)
            paths.push_back(folder + "second" + std::to_string(i) + ".c");
    }
    std::vector<test_volume_t> volumes = {test_volume_from_paths(paths)};
    wanted_t wanted;
    add_volumes(&wanted, volumes);
    search_t search(&wanted);
    compare_sets(&search, false);
    cancel_searches(&search);
}

// --- What the index does not hold --------------------------------------------------------------------------

TEST(DbSearchFunction, ColumnsThatAreNotIndexedAreRead) {
    temp_folder_t folder;
    ASSERT_TRUE(os_create_folder((folder / "sub").c_str()));
    write_file(folder / "big.bin", std::string(5000, 'x') + "Needle" + std::string(5000, 'y'));
    write_file(folder / "sub\\small.txt", "a*c n\xC3\xA9"
                                          "edle");
    write_file(folder / "none", "");
    wanted_t wanted;
    db_wanted_add_folder(&wanted, folder.name.c_str());
    search_t search(&wanted);
    ASSERT_EQ(0u, search.db->layout.flags & DB_FLAG_COLUMNS);
    auto names = [&](const std::string &text) {
        std::string joined;
        for (const std::string &path : search.paths(text))
            joined += (joined.empty() ? "" : " ") + path.substr(path.rfind('/') + 1);
        return joined;
    };
    const std::string root = folder.name.substr(folder.name.rfind('\\') + 1);
    const std::string all = root + " big.bin none sub small.txt";
    ASSERT_EQ(all, names("*"));
    const struct {
        std::string text, expected;
        bool reads;
    } cases[] = {
        {"size:0", "none", true},
        {"size:>5000", "big.bin", true},
        {"size:", "big.bin none small.txt", true},
        {"!size:<5000", root + " big.bin sub", true},
        {"folder:size:", "", true},
        {"dm:>2000", all, true},
        {"!dm:>2000", "", true},
        {"da:<2000", "", true},
        {"dm:unknown", "", true},
        {"attrib:d", root + " sub", true},
        {"!attrib:d", "big.bin none small.txt", true},
        {"* dm:<dc:", "", true}, // no file is older than itself, and the folder pass does not test this one
        {"sizedupe:", "", false},
        {"!dmdupe:", all, false},
        {"content:needle", "big.bin small.txt", false},
        {"case:content:needle", "small.txt", false},
        {"!diacritics:content:needle", root + " none sub small.txt", false},
        {"ww:content:needle", "small.txt", false},
        {"content:a*c", "small.txt", false},
        {"content:x*y", "", false},
        {"wildcards:content:x*N*y", "big.bin", false},
        {"regex:content:^a.c", "small.txt", false},
        {"content:", "big.bin none small.txt", false},
        {"content:needle sub|small", "small.txt", false},
        {"utf8content:needle", "big.bin small.txt", false},
        {"utf16content:needle", "", false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.expected, names(c.text)) << c.text;
        EXPECT_EQ(c.reads, search.query->needs_disk_information) << c.text;
        EXPECT_EQ(c.reads, search.query->needs_extended_information) << c.text;
        EXPECT_EQ(c.text.find("content:") != std::string::npos, search.query->has_content_term) << c.text;
    }
    const std::string type = db_extended_info_get_folder_type_name(search.query->extended_info);
    EXPECT_EQ(root + " sub", names("folder:type:\"" + type + "\""));
    EXPECT_TRUE(search.query->has_type_term);
    EXPECT_EQ("", names("folder: !type:\"" + type + "\""));
}

} // namespace
} // namespace findwright
