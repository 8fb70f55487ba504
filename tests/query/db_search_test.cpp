// The scan: every op against a plain reading of what it means, and the vector paths against the general one.
#include "query/db_search.h"

#include "base/utf8_match.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace findwright {
namespace {

// A database with a query on it, whose searches are waited for.
struct search_t {
    db_t *db;
    db_query_t *query;

    explicit search_t(const std::vector<std::string> &paths)
        : db(test_db_create({test_volume_from_paths(paths)}, 0)),
          query(db_query_create(db, false, nullptr, nullptr)) {}
    ~search_t() {
        db_destroy_query(query);
        db_destroy(db);
    }

    void run(const std::string &text, u32 options = 0, u32 sort = 0, const char *filter = "") {
        db_query_params_t params = {};
        params.match_case = options & DB_MATCH_CASE;
        params.match_whole_word = options & DB_MATCH_WHOLE_WORD;
        params.match_path = options & DB_MATCH_PATH;
        params.match_diacritics = options & DB_MATCH_DIACRITICS;
        params.match_regex = options & DB_MATCH_REGEX;
        params.search = text.c_str();
        params.filter_search = filter;
        params.sort = sort;
        db_query_search(query, &params);
        db_get_result_count(query);
    }
    std::vector<std::string> names(const std::string &text, u32 options = 0) {
        run(text, options);
        std::vector<std::string> names;
        for (std::string path : test_result_paths(query)) {
            if (!db_is_folder_result(query, static_cast<i32>(names.size())))
                path = path.substr(path.rfind('\\') + 1);
            names.push_back(path);
        }
        return names;
    }
};

using names_t = std::vector<std::string>;

TEST(DbSearch, WhatTermsMean) {
    search_t search({"abc.txt", "ABC_d", "x abc y", "abcabc", "r\xC3\xA9sum\xC3\xA9", "Resume.doc", "c++x",
                     "a.b.c", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82",
                     "stra\xC3\x9F"
                     "e",
                     "km", "\xE2\x84\xAAm", "dir\\inner.txt"});
    const names_t all = search.names("*");
    EXPECT_EQ(15u, all.size());
    constexpr u32 CASE = DB_MATCH_CASE, WORD = DB_MATCH_WHOLE_WORD, PATH = DB_MATCH_PATH,
                  DIA = DB_MATCH_DIACRITICS, REGEX = DB_MATCH_REGEX;
    const struct {
        const char *text;
        u32 options;
        names_t expected;
    } cases[] = {
        {"abc", 0, {"abc.txt", "ABC_d", "abcabc", "x abc y"}},
        {"ABC", CASE, {"ABC_d"}},
        {"abc", WORD, {"abc.txt", "x abc y"}},
        {".txt", WORD, {"abc.txt", "inner.txt"}},
        {"c++", WORD, {"c++x"}},
        {"RESUM\xC3\x89", 0, {"r\xC3\xA9sum\xC3\xA9", "Resume.doc"}},
        {"resume", 0, {"r\xC3\xA9sum\xC3\xA9", "Resume.doc"}},
        {"R\xC3\x89SUM", DIA, {"r\xC3\xA9sum\xC3\xA9"}},
        {"resume", DIA, {"Resume.doc"}},
        // The Kelvin sign is a small k, but is none to those who look at single bytes.
        {"\xE2\x84\xAAM", DIA, {"km", "\xE2\x84\xAAm"}},
        {"startwith:\xE2\x84\xAA", DIA, {"km", "\xE2\x84\xAAm"}},
        {"endwith:\xE2\x84\xAAM", DIA, {"km", "\xE2\x84\xAAm"}},
        {"km", DIA, {"km"}},
        {"Resume", CASE, {"Resume.doc"}},
        {"resume", CASE, {"r\xC3\xA9sum\xC3\xA9"}},
        {"r\xC3\xA9", CASE | DIA, {"r\xC3\xA9sum\xC3\xA9"}},
        {"\xD0\x9F\xD0\xA0\xD0\x98", 0, {"\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"}},
        {"stra\xC3\x9F",
         0,
         {"stra\xC3\x9F"
          "e"}},
        {"*.txt", 0, {"abc.txt", "inner.txt"}},
        {"abc*", 0, {"abc.txt", "ABC_d", "abcabc"}},
        {"a*c", 0, {"a.b.c", "abcabc"}},
        {"?bc*", 0, {"abc.txt", "ABC_d", "abcabc"}},
        {"r?sum?", 0, {"r\xC3\xA9sum\xC3\xA9"}},
        {"*abc*", 0, {"abc.txt", "ABC_d", "abcabc", "x abc y"}},
        {"wfn:*abc*", 0, {"abc.txt", "ABC_d", "abcabc", "x abc y"}},
        {"wfn:abcabc", 0, {"abcabc"}},
        {"wfn:", 0, {}},
        {"nowfn:b?a", 0, {"abcabc"}},
        {"dir\\", 0, {"C:\\dir", "inner.txt"}},
        {"c:\\dir", 0, {"C:\\dir", "inner.txt"}},
        {"path:r\\inn", 0, {"inner.txt"}},
        {"inner", PATH, {"inner.txt"}},
        {"file:dir", 0, {}},
        {"folder:dir", 0, {"C:\\dir"}},
        {"!file:abc !<abc|r|\xD0\x9F|a.b|c++|stra>", 0, {"C:", "km", "\xE2\x84\xAAm"}},
        {"^.b", REGEX, {"abc.txt", "ABC_d", "abcabc"}},
        {"^A", REGEX | CASE, {"ABC_d"}},
        {"^.{5}$", REGEX, {"ABC_d", "a.b.c"}},
        {"(", REGEX, {}},
        {"bcab", REGEX, {"abcabc"}},
        {"resume", REGEX, {"Resume.doc"}},
        {"C:\\\\dir", REGEX, {"C:\\dir", "inner.txt"}},
        {"abc txt", 0, {"abc.txt"}},
        {"abc !txt", 0, {"ABC_d", "abcabc", "x abc y"}},
        {"nothing|inner|++", 0, {"c++x", "inner.txt"}},
    };
    for (auto c : cases) {
        names_t expected = c.expected, found = search.names(c.text, c.options);
        std::sort(expected.begin(), expected.end());
        std::sort(found.begin(), found.end());
        EXPECT_EQ(expected, found) << c.text << " options " << c.options;
    }
    EXPECT_EQ(15u, search.names("!regex:(").size());
    EXPECT_EQ(15u, search.names("**").size());
}

// Which op a term becomes: a slower one would find the same and be seen in no result.
TEST(DbSearch, TermsTakeTheFastestOpThatServes) {
    search_t search({"abc.txt"});
    const struct {
        const char *text;
        u32 op;
    } cases[] = {
        {"abc", DB_OP_FIND},
        {"*abc*", DB_OP_FIND},
        {"wfn:*abc*", DB_OP_FIND},
        {"ww:*abc*", DB_OP_FIND},
        {"ww:abc", DB_OP_FIND + 1},
        {"case:abc", DB_OP_FIND + 2},
        {"path:abc", DB_OP_FIND + 8},
        {"!abc", DB_OP_FIND + 16},
        {"diacritics:abc", DB_OP_FIND_ASCII},
        {"diacritics:\xC3\xA9", DB_OP_FIND + 4},
        {"diacritics:\xE2\x84\xAA", DB_OP_FIND + 4},
        {"diacritics:startwith:k", DB_OP_STARTS_WITH_ASCII},
        {"diacritics:startwith:\xE2\x84\xAA", DB_OP_STARTS_WITH + 2},
        {"*.txt", DB_OP_ENDS_WITH},
        {"**.txt", DB_OP_ENDS_WITH},
        {"abc*", DB_OP_STARTS_WITH},
        {"c:\\abc", DB_OP_STARTS_WITH + 4},
        {"a*c", DB_OP_WILDCARD},
        {"nowfn:a*c", DB_OP_WILDCARD_FIND},
        {"nowfn:*abc", DB_OP_FIND},
        {"nowfn:abc*", DB_OP_FIND},
        {"nowildcards:a*c", DB_OP_FIND},
        {"wfn:abc", DB_OP_EQUAL},
        {"**", DB_OP_TRUE},
        {"!*", DB_OP_FALSE},
        {"folder:abc", DB_OP_FALSE},
        {"regex:abc", DB_OP_FIND + 4},
        {"regex:a.c", DB_OP_REGEX},
        {"!regex:<(>", DB_OP_TRUE},
    };
    for (auto c : cases) {
        search.run(c.text);
        EXPECT_EQ(c.op, search.query->file_terms->op) << c.text;
    }
}

TEST(DbSearch, AFilterIsAnAndOverTheWholeSearch) {
    search_t search({"a.txt", "b.txt", "a.doc", "b.doc"});
    search.run("a|b", 0, 0, ".txt");
    EXPECT_EQ((names_t{"C:\\a.txt", "C:\\b.txt"}), test_result_paths(search.query));
    search.run("!a", 0, 0, "file:");
    EXPECT_EQ((names_t{"C:\\b.doc", "C:\\b.txt"}), test_result_paths(search.query));
}

std::string random_name(std::mt19937 &random) {
    static const char *const pieces[] = {"a",
                                         "b",
                                         "A",
                                         "B",
                                         "_",
                                         ".",
                                         "ab",
                                         "ba",
                                         "\xC3\xA1",
                                         "\xC3\x81",
                                         "\xE2\x84\xAA",
                                         "k",
                                         "\xD0\xB6",
                                         "\xFF",
                                         "\xC3",
                                         "\xA9",
                                         "\xF0\x9F\x98\x80",
                                         " ",
                                         "z"};
    std::string name;
    for (u64 i = 0, n = 1 + random() % (random() % 8 == 0 ? 80 : 12); i < n; i++)
        name += pieces[random() % std::size(pieces)];
    return name;
}

// Files in a database that a test fills by hand, with names that no volume could hold.
struct hand_made_t {
    db_t *db = db_create();
    db_index_t *index = db_index_alloc(DB_INDEX_TYPE_NTFS);
    std::vector<u32> refs;

    hand_made_t() { _db_index_add(db, index, 0); }
    ~hand_made_t() { db_destroy(db); }
    void add(const std::string &name) {
        db_item_t *file = mem_ptr<db_item_t>(
            mem_ref(db_mem_alloc(&db->mem, 16 + name.size()))); // room for the prefixes of any name
        refs.push_back(mem_ref(db_item_write_head(reinterpret_cast<char *>(file), 0, true, mem_ref(index),
                                                  name.data(), static_cast<u32>(name.size()))));
    }
};

template<utf8_mode_t mode, bool whole_word>
void compare_scans(hand_made_t &names, const std::string &pattern) {
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(mode, &folded, pattern.data(), static_cast<u32>(pattern.size()));
    u32 length = static_cast<u32>(folded.length);
    std::vector<u32> expected;
    for (u32 ref : names.refs) {
        u32 name_length;
        const char *name = db_item_get_name(db_item(ref), &name_length);
        if (whole_word ? utf8_find_word<mode>(name, name_length, folded.data, length)
                       : utf8_find<mode>(name, name_length, folded.data, length))
            expected.push_back(ref);
    }
    std::vector<char> block(sizeof(db_exec_term_t) + length);
    db_exec_term_t *term = reinterpret_cast<db_exec_term_t *>(block.data());
    term->needle = db_make_needle(mode, folded.data, length);
    term->text_length = length;
    std::copy(folded.data, folded.data + length, term->text);
    std::vector<u32> values = names.refs;
    values.resize(values.size() + DB_SCAN_AHEAD, names.refs[0]);
    for (const db_find_scans_t *scans : {&db_find_scans_sse2, db_find_scans_get()}) {
        std::vector<u32> found(names.refs.size() + 1);
        found.resize(scans->scans[mode][whole_word](nullptr, term, values.data(),
                                                    static_cast<u32>(names.refs.size()), found.data()));
        EXPECT_EQ(expected, found) << "mode " << mode << " word " << whole_word << " pattern '" << pattern
                                   << "'";
    }
    utf8_buf_kill(&folded);
}

TEST(DbSearch, TheVectorScanAnswersAsTheGeneralOneDoes) {
    std::mt19937 random(5);
    for (u32 round = 0; round < 200; round++) {
        hand_made_t names;
        for (u32 i = 0; i < 300; i++)
            names.add(random_name(random));
        names.add(std::string(255, 'a') + "b");
        std::string any = random_name(random);
        std::string pattern = any.substr(0, 1 + random() % 6);
        std::string ascii;
        for (char c : any) {
            if (static_cast<u8>(c) < 0x80)
                ascii += c;
        }
        for (const std::string &text : {pattern, ascii.substr(0, 1 + random() % 40)}) {
            if (text.empty())
                continue;
            compare_scans<UTF8_MODE_FOLD, false>(names, text);
            compare_scans<UTF8_MODE_FOLD, true>(names, text);
            compare_scans<UTF8_MODE_KEEP_CASE, false>(names, text);
            compare_scans<UTF8_MODE_KEEP_CASE, true>(names, text);
            compare_scans<UTF8_MODE_LOWER, false>(names, text);
            compare_scans<UTF8_MODE_LOWER, true>(names, text);
            compare_scans<UTF8_MODE_EXACT, false>(names, text);
            compare_scans<UTF8_MODE_EXACT, true>(names, text);
            if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<u8>(c) < 0x80; })) {
                compare_scans<UTF8_MODE_ASCII, false>(names, text);
                compare_scans<UTF8_MODE_ASCII, true>(names, text);
            }
        }
        if (testing::Test::HasFailure())
            return;
    }
}

TEST(DbSearch, SeveralThreadsKeepTheScanOrder) {
    std::vector<std::string> paths;
    for (u32 i = 0; i < 70000; i++)
        paths.push_back("name" + std::to_string(static_cast<u64>(i) * 7919 % 70000));
    search_t search(paths);
    for (const char *text : {"7", "name1*9", "!7", "name 1|2 !33", "regex:[13]{3}", "path:e5"}) {
        max_threads = 1;
        search.run(text);
        names_t one = test_result_paths(search.query);
        max_threads = 0;
        search.run(text);
        EXPECT_EQ(one, test_result_paths(search.query)) << text;
        EXPECT_FALSE(one.empty()) << text;
    }
}

TEST(DbSearch, AThousandStarsTakeNoTime) {
    search_t search({std::string(255, 'a')});
    std::string stars;
    for (u32 i = 0; i < 1000; i++)
        stars += "*a";
    EXPECT_TRUE(search.names(stars + "b").empty());
    EXPECT_TRUE(search.names("nowfn:" + stars + "?b").empty());
    EXPECT_EQ(1u, search.names(stars.substr(0, 500) + "*").size());
    search.run("(a*)*(a*)*b", DB_MATCH_REGEX); // the match limit ends it
    EXPECT_EQ(0u, db_get_result_count(search.query));
}

} // namespace
} // namespace findwright
