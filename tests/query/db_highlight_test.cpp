// What is marked of results: where each family of terms matched, and which terms decided.
#include "query/db_highlight.h"

#include "os/os_test_support.h"
#include "support/test_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>

namespace findwright {
namespace {

struct highlight_t : db_highlight_t {
    highlight_t() { db_highlight_init(this); }
    ~highlight_t() { db_highlight_kill(this); }

    std::string plain() const { return {text.data, static_cast<size_t>(text.length)}; }
    std::string run(u32 i) const { return plain().substr(runs[i].start, runs[i].length); }
    // What lies in front of a run, and behind the last one.
    std::string outside(u32 i) const {
        size_t start = i == 0 ? 0 : runs[i - 1].start + runs[i - 1].length;
        return plain().substr(start, i == run_count ? std::string::npos : runs[i].start - start);
    }
    std::string marked() const {
        std::string result = outside(0);
        for (u32 i = 0; i < run_count; i++)
            result += "[" + run(i) + "]" + outside(i + 1);
        return result;
    }
    // One character per byte.
    std::string map() const {
        std::string bytes(static_cast<size_t>(text.length), '.');
        for (u32 i = 0; i < run_count; i++) {
            EXPECT_NE(0u, runs[i].length);
            EXPECT_TRUE(i == 0 || runs[i].start > runs[i - 1].start + runs[i - 1].length);
            EXPECT_LE(runs[i].start + runs[i].length, bytes.size());
            bytes.replace(runs[i].start, runs[i].length, runs[i].length, 'x');
        }
        return bytes;
    }
};

// The full paths of all results as they are marked, sorted. Name and path alone must agree with that.
std::vector<std::string> marked_results(db_query_t *query) {
    std::vector<std::string> results;
    highlight_t full, name, path, alone;
    i32 count = static_cast<i32>(db_get_result_count(query));
    for (i32 i = 0; i < count; i++) {
        db_get_highlighted_full_path_name(query, i, &full);
        _db_get_highlighted_result(query, i, &name, &path, DB_HIGHLIGHT_PATH_AND_NAME);
        std::string map = full.map();
        if (path.text.length != 0)
            map.erase(static_cast<size_t>(path.text.length), 1);
        EXPECT_EQ(map, path.map() + name.map()) << full.marked();
        _db_get_highlighted_result(query, i, &alone, nullptr, DB_HIGHLIGHT_NAME);
        EXPECT_EQ(name.marked(), alone.marked());
        _db_get_highlighted_result(query, i, nullptr, &alone, DB_HIGHLIGHT_PATH);
        EXPECT_EQ(path.marked(), alone.marked());
        results.push_back(full.marked());
    }
    std::sort(results.begin(), results.end());
    return results;
}

using paths_t = std::vector<std::string>;
constexpr u32 CASE = DB_MATCH_CASE, WORD = DB_MATCH_WHOLE_WORD, PATH = DB_MATCH_PATH,
              DIA = DB_MATCH_DIACRITICS, REGEX = DB_MATCH_REGEX;

TEST(DbHighlight, WhereTextsMatch) {
    test_search_t search({"report.txt", "Reports\\my report report_2.doc", "caf\xC3\xA9 CAFE.md", "aaaaa",
                          "dir\\sub\\\xC4\xB0\xE2\x84\xAAx.gz"});
    const struct {
        const char *text;
        u32 options;
        paths_t expected;
    } cases[] = {
        {"ep", 0, {"C:\\R[ep]orts", "C:\\Reports\\my r[ep]ort r[ep]ort_2.doc", "C:\\r[ep]ort.txt"}},
        {"REPORT", WORD, {"C:\\Reports\\my [report] report_2.doc", "C:\\[report].txt"}},
        {"Rep", CASE, {"C:\\[Rep]orts"}},
        {"cafe", 0, {"C:\\[caf\xC3\xA9] [CAFE].md"}},
        {"cafe", DIA, {"C:\\caf\xC3\xA9 [CAFE].md"}},
        {"\xC3\x89", DIA, {"C:\\caf[\xC3\xA9] CAFE.md"}},
        {"afe", CASE, {"C:\\c[af\xC3\xA9] CAFE.md"}},
        {"FE", CASE | DIA, {"C:\\caf\xC3\xA9 CA[FE].md"}},
        {"ik", 0, {"C:\\dir\\sub\\[\xC4\xB0\xE2\x84\xAA]x.gz"}}, // 5 bytes for 2
        {"aa", 0, {"C:\\[aaaaa]"}},                              // hits overlap
        {"rep*.t?t", 0, {"C:\\[rep]ort[.t]x[t]"}},
        {"*y*r*_?.*", 0, {"C:\\Reports\\m[y] [r]eport report[_]2[.]doc"}},
        {"nowfn:r*t?2", 0, {"C:\\Reports\\my [r]eport repor[t]_[2].doc"}},
        {"nowfn:ww:r*rt", 0, {"C:\\Reports\\my [r]epo[rt] report_2.doc", "C:\\[r]epo[rt].txt"}},
        {"a???a", 0, {"C:\\[a]aaa[a]"}},
        {"a*a", 0, {"C:\\[a]aaa[a]"}},
        {"?????", 0, {"C:\\aaaaa"}},
        {"wfn:report.txt", 0, {"C:\\[report.txt]"}},
        {"r*", 0, {"C:\\[R]eports", "C:\\[r]eport.txt"}},
        {"*.DOC", 0, {"C:\\Reports\\my report report_2[.doc]"}},
        {"reports\\my", 0, {"C:\\[Reports\\my] report report_2.doc"}},
        {"c:\\di", 0, {"[C:\\di]r", "[C:\\di]r\\sub", "[C:\\di]r\\sub\\\xC4\xB0\xE2\x84\xAAx.gz"}},
        {"repo", PATH, {"C:\\[Repo]rts", "C:\\[Repo]rts\\my [repo]rt [repo]rt_2.doc", "C:\\[repo]rt.txt"}},
        {"[op]+r", REGEX, {"C:\\Re[por]ts", "C:\\Reports\\my re[por]t re[por]t_2.doc", "C:\\re[por]t.txt"}},
        {"^|x*$",
         REGEX | CASE, // finds everything, by matches of no character
         {"C:", "C:\\Reports", "C:\\Reports\\my report report_2.doc", "C:\\aaaaa", "C:\\caf\xC3\xA9 CAFE.md",
          "C:\\dir", "C:\\dir\\sub", "C:\\dir\\sub\\\xC4\xB0\xE2\x84\xAAx.gz", "C:\\report.txt"}},
        {"(?=rts)|\\bm.",
         REGEX,
         {"C:\\Reports", "C:\\Reports\\[my] report report_2.doc", "C:\\caf\xC3\xA9 CAFE.[md]"}},
        {"(?<=s\\\\)my", REGEX | PATH, {"C:\\Reports\\[my] report report_2.doc"}},
        {"!report aa", 0, {"C:\\[aaaaa]"}},
        {"!report !dir !c\xC3\xA9 !sub",
         0,
         {"C:", "C:\\aaaaa", "C:\\caf\xC3\xA9 CAFE.md", "C:\\dir\\sub\\\xC4\xB0\xE2\x84\xAAx.gz"}},
    };
    for (auto c : cases) {
        search.run(c.text, c.options);
        paths_t expected = c.expected;
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(expected, marked_results(search.query)) << c.text << " options " << c.options;
    }
}

// The families of functions, as their compiler leaves them: the search's own term is turned into one.
TEST(DbHighlight, WhereFunctionsMatch) {
    test_search_t search({"dir\\sub\\subs.tar.SUB"});
    search.run("*");
    const db_item_t *dir = search.find("C:\\dir"), *sub = search.find("C:\\dir\\sub"),
                    *file = search.find("C:\\dir\\sub\\subs.tar.SUB");
    const struct {
        u32 op;
        db_term_data_t *data;
        const char *expected;
    } cases[] = {
        {DB_OP_EXTENSION, test_extensions({"sub", "tar.sub"}), "C:\\dir\\sub\\subs.[tar.SUB]"},
        {DB_OP_EXTENSION, test_extensions({"ub", "s.tar.sub", "tar"}), "C:\\dir\\sub\\subs.tar.SUB"},
        {DB_OP_EXTENSION_OR_NONE, test_extensions({"sub"}), "C:\\dir\\sub\\subs.tar.[SUB]"},
        {DB_OP_FILE_LIST, test_file_list_names({"sub", "subs.tar.sub"}), "C:\\dir\\sub\\[subs.tar.SUB]"},
        {DB_OP_FILE_LIST, test_file_list_names({"c:\\dir\\sub\\subs.tar.sub"}),
         "[C:\\dir\\sub\\subs.tar.SUB]"},
        {DB_OP_COMPONENT_STARTS_WITH, nullptr, "C:\\dir\\[sub]\\[sub]s.tar.SUB"},
        {DB_OP_COMPONENT_ENDS_WITH, nullptr, "C:\\dir\\[sub]\\subs.tar.[SUB]"},
        {DB_OP_COMPONENT_EQUAL, nullptr, "C:\\dir\\[sub]\\subs.tar.SUB"},
        {DB_OP_ANCHOR_INNER, test_anchors(dir, nullptr, nullptr), "[C:\\dir]\\sub\\subs.tar.SUB"},
        {DB_OP_ANCHORS_OUTER, test_anchors(nullptr, sub, nullptr), "[C:\\dir\\sub]\\subs.tar.SUB"},
        {DB_OP_ANCHORS, test_anchors(sub, dir, nullptr), "[C:\\dir\\sub]\\subs.tar.SUB"},
        {DB_OP_ANCHORS, test_anchors(nullptr, nullptr, file), "[C:\\dir\\sub\\subs.tar.SUB]"},
        {DB_OP_PARENT, test_anchors(sub, nullptr, nullptr), "[C:\\dir\\sub]\\subs.tar.SUB"},
        {DB_OP_ANCHOR_INNER + 4, test_anchors(dir, nullptr, nullptr), "C:\\dir\\sub\\subs.tar.SUB"},
        {DB_OP_COMPONENT_EQUAL + 4, nullptr, "C:\\dir\\sub\\subs.tar.SUB"},
        {DB_OP_SIZE, nullptr, "C:\\dir\\sub\\subs.tar.SUB"},
        {DB_OP_TYPE, nullptr, "C:\\dir\\sub\\subs.tar.SUB"},
    };
    for (auto c : cases) {
        search.run("file:sub");
        search.query->file_terms->op = c.op;
        search.query->file_terms->data = c.data;
        EXPECT_EQ(paths_t{c.expected}, marked_results(search.query)) << c.op;
    }
}

TEST(DbHighlight, OnlyWhatDecidedIsMarked) {
    test_search_t search({"alpha beta gamma", "beta", "delta"});
    const struct {
        const char *text, *filter, *expected;
    } cases[] = {
        {"<beta|alpha> gamma", "", "alpha [beta] [gamma]"},
        {"<alpha delta>|gamma", "", "alpha beta [gamma]"},
        {"<alpha <beta|gamma> delta>|\"ta g\"", "", "alpha be[ta g]amma"},
        {"alpha <delta|gamma>", "", "[alpha] beta [gamma]"},
        {"gamma !<!alpha|!beta>", "", "[alpha] [beta] [gamma]"},
        {"alpha", "beta", "[alpha] beta gamma"},
    };
    for (auto c : cases) {
        ASSERT_EQ(1u, search.run(c.text, 0, c.filter)) << c.text;
        EXPECT_EQ(paths_t{std::string("C:\\") + c.expected}, marked_results(search.query)) << c.text;
    }
    // A term on contents is not asked again, and leaves an alternative that does not match otherwise.
    search.run("<alpha nothing>|gamma");
    search.query->file_terms->op = DB_OP_CONTENT;
    search.query->file_terms->test = [](db_scan_t *, const db_exec_term_t *, const db_item_t *) {
        ADD_FAILURE() << "a file is read";
        return false;
    };
    EXPECT_EQ(paths_t{"C:\\alpha beta [gamma]"}, marked_results(search.query));
    highlight_t name;
    for (i32 index : {-1, 1}) {
        _db_get_highlighted_result(search.query, index, &name, nullptr, DB_HIGHLIGHT_NAME);
        EXPECT_EQ("", name.marked());
    }
}

struct random_t {
    std::mt19937 engine;
    u32 operator()() { return static_cast<u32>(engine()); }
};

// A random expression over the letters a to h: its text, and what it marks of a name that consists of some.
struct expression_t {
    char kind; // '|', ' ', '!', or a letter
    std::vector<expression_t> parts;

    static expression_t make(random_t &random, u32 depth) {
        u32 choice = depth == 0 ? 9 : random() % 10;
        if (choice >= 7)
            return {static_cast<char>('a' + random() % 8), {}};
        if (choice == 6)
            return {'!', {make(random, depth - 1)}};
        return {choice < 3 ? '|' : ' ', {make(random, depth - 1), make(random, depth - 1)}};
    }
    std::string text() const {
        if (parts.empty())
            return std::string(1, kind);
        if (kind == '!')
            return "!<" + parts[0].text() + ">";
        return "<" + parts[0].text() + ">" + kind + "<" + parts[1].text() + ">";
    }
    // Appends the letters that are marked, when it is true.
    bool is_true(const std::string &name, bool negated, std::string *letters) const {
        if (kind == '!')
            return parts[0].is_true(name, !negated, letters);
        if (parts.empty()) {
            if ((name.find(kind) != name.npos) == negated)
                return false;
            if (!negated)
                *letters += kind;
            return true;
        }
        std::string left = *letters, right = *letters;
        if ((kind == '|') != negated) {
            if (!parts[0].is_true(name, negated, &left)) {
                left = right;
                if (!parts[1].is_true(name, negated, &left))
                    return false;
            }
        } else if (!parts[0].is_true(name, negated, &left) || !parts[1].is_true(name, negated, &left)) {
            return false;
        }
        *letters = left;
        return true;
    }
};

TEST(DbHighlight, RandomExpressionsMarkTheBranchesThatMatched) {
    std::vector<std::string> names;
    for (u32 set = 1; set < 256; set++) {
        names.emplace_back();
        for (u32 i = 0; i < 8; i++)
            names.back() += set >> i & 1 ? std::string(1, static_cast<char>('a' + i)) : "";
    }
    test_search_t search(names);
    random_t random = {std::mt19937(7)};
    highlight_t name;
    u32 results = 0, marked = 0;
    for (u32 round = 0; round < 300; round++) {
        expression_t expression = expression_t::make(random, 4);
        u32 count = search.run("file:<" + expression.text() + ">");
        results += count;
        for (u32 i = 0; i < count; i++) {
            _db_get_highlighted_result(search.query, static_cast<i32>(i), &name, nullptr, DB_HIGHLIGHT_NAME);
            std::string letters, expected;
            ASSERT_TRUE(expression.is_true(name.plain(), false, &letters)) << expression.text();
            for (char c : name.plain())
                expected += letters.find(c) != letters.npos ? 'x' : '.';
            ASSERT_EQ(expected, name.map()) << name.plain() << " " << expression.text();
            marked += name.run_count;
        }
    }
    EXPECT_GT(results, 5000u);
    EXPECT_GT(marked, 5000u);
}

std::string random_text(random_t &random, const std::vector<const char *> &pieces, u32 least, u32 most) {
    std::string text;
    for (u32 count = least + random() % (most - least + 1); count != 0; count--)
        text += pieces[random() % pieces.size()];
    return text;
}

// A database of names that need not be UTF-8, in a folder "D:\a".
db_t *database_of(const std::vector<std::string> &names) {
    temp_folder_t folder;
    {
        std::ofstream list(folder.path / "list.fwl", std::ios::binary);
        list << "Filename\n";
        for (const std::string &name : names)
            list << "\"D:\\a\\" << name << "\"\n";
    }
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_wanted_add_file_list(&wanted, (folder / "list.fwl").c_str(), true);
    db_t *db = db_create();
    db_rebuild_start(db, &wanted, nullptr);
    test_db_wait(db);
    return db;
}

// Each run holds a hit when it stands alone, and what lies outside of all runs holds none.
TEST(DbHighlight, RandomTextsAreMarkedWhereTheyMatchAndNowhereElse) {
    const std::vector<const char *> valid = {"a", "A",        "b",        "_",        "+",
                                             "-", "\xC3\xA9", "\xC3\x89", "e",        "E",
                                             "k", "\xC3\x9F", "s",        "\xC4\xB0", "\xE2\x84\xAA",
                                             "i", "aa",       " a"};
    std::vector<const char *> any = valid;
    any.insert(any.end(), {"\xFF", "\xC3", "\x80", "\xE2\x84", " ", "\xF0\x9F\x98\x80"});
    random_t random = {std::mt19937(11)};
    std::vector<std::string> names(400);
    for (std::string &name : names)
        name = random_text(random, any, 1, 14) + "n";
    names.push_back(std::string(300, 'a') + "\xFF");
    test_search_t search(database_of(names));
    highlight_t text;
    u32 runs = 0, malformed = 0;
    for (u32 round = 0; round < 400; round++) {
        u32 options = random() % 16; // case, word, path, diacritics
        std::string pattern = "\"" + random_text(random, valid, 1, 3) + "\"";
        u32 count = search.run("file:" + pattern, options);
        const db_exec_term_t *term = search.query->file_terms;
        ASSERT_EQ(+DB_OP_FIND, db_op_decode(term->op).family);
        for (u32 i = 0; i < count; i++) {
            if (options & PATH)
                db_get_highlighted_full_path_name(search.query, static_cast<i32>(i), &text);
            else
                _db_get_highlighted_result(search.query, static_cast<i32>(i), &text, nullptr,
                                           DB_HIGHLIGHT_NAME);
            auto has = [&](const std::string &part) {
                return term->text_test(term, nullptr, part.data(), static_cast<u32>(part.size()));
            };
            ASSERT_NE(0u, text.run_count) << text.plain();
            ASSERT_NE("", text.map());
            for (u32 j = 0; j <= text.run_count; j++) {
                ASSERT_FALSE(has(text.outside(j))) << text.marked() << " " << pattern << " " << options;
                ASSERT_TRUE(j == text.run_count || has(text.run(j))) << text.marked() << " " << pattern;
            }
            runs += text.run_count;
            malformed += text.plain().find('\xFF') != std::string::npos;
        }
    }
    EXPECT_GT(runs, 5000u);
    EXPECT_GT(malformed, 500u);
}

// Patterns of all sorts over names of all sorts: the sanitizers watch.
TEST(DbHighlight, NoNameAndNoPatternLeadsAstray) {
    const std::vector<const char *> any = {"a", "A", "\xC3\xA9", "\xFF", "\xC3", "\xE2\x84", " ", "b", "."};
    const std::vector<const char *> wild = {"a", "*", "?", "\xC3\xA9", "\xFF", "b", "*a", "?*", "."};
    random_t random = {std::mt19937(13)};
    std::vector<std::string> names(200);
    for (std::string &name : names)
        name = random_text(random, any, 1, 9) + "n";
    test_search_t search(database_of(names));
    u32 results = 0;
    for (u32 round = 0; round < 300; round++) {
        u32 options = random() % 32;
        std::string prefix = options & REGEX ? "" : round % 2 ? "nowfn:" : "wfn:";
        search.run(prefix + random_text(random, wild, 1, 6), options);
        results += static_cast<u32>(marked_results(search.query).size());
    }
    EXPECT_GT(results, 1000u);
}

} // namespace
} // namespace findwright
