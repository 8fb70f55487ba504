// The parser: which items an expression lets through, and what it makes of each term.
#include "query/db_term.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace findwright {
namespace {

// The truth table of an expression over the letters a, b, c: bit i is the answer for the item that holds the
// letters whose bits are set in i (a 1, b 2, c 4). Runs the links as the scan does.
u32 truth_table(const char *text) {
    db_term_t *terms = _db_query_term_parse_all(db_term_default_flags(0), text, false);
    u32 table = 0;
    for (u32 item = 0; item < 8; item++) {
        const db_term_t *term = terms;
        for (;;) {
            bool match = true; // the empty term
            for (const char *p = term->text; *p; p++)
                match = match && *p >= 'a' && *p <= 'c' && item & (1u << (*p - 'a'));
            match = match != ((term->flags & TERM_NOT) != 0);
            const db_term_t *next = match ? term->next : term->notnext;
            if (!next) {
                table |= match ? 1u << item : 0;
                break;
            }
            term = next;
        }
    }
    db_term_free_all(terms);
    return table;
}

template<class predicate_t>
u32 expected_table(predicate_t predicate) {
    u32 table = 0;
    for (u32 item = 0; item < 8; item++)
        table |= predicate(item & 1, item & 2, item & 4) ? 1u << item : 0;
    return table;
}

struct settings_t {
    ~settings_t() { operator_precedence = allow_literal_operators = allow_round_bracket_parenthesis = 0; }
};

TEST(DbQueryParse, Expressions) {
    settings_t restore;
    using predicate_t = bool(bool a, bool b, bool c);
    const struct {
        const char *text;
        predicate_t *predicate;
        u32 precedence = 0, literal = 0, brackets = 0;
    } cases[] = {
        {"", [](bool, bool, bool) { return true; }},
        {"  a  ", [](bool a, bool, bool) { return a; }},
        {"a b", [](bool a, bool b, bool) { return a && b; }},
        {"a|b", [](bool a, bool b, bool) { return a || b; }},
        {"a b|c", [](bool a, bool b, bool c) { return a && (b || c); }},
        {"a b|c", [](bool a, bool b, bool c) { return (a && b) || c; }, 1},
        {"a|b c", [](bool a, bool b, bool c) { return (a || b) && c; }},
        {"a|b c", [](bool a, bool b, bool c) { return a || (b && c); }, 1},
        {"a | b", [](bool a, bool b, bool) { return a || b; }},
        {"!a", [](bool a, bool, bool) { return !a; }},
        {"!!a", [](bool a, bool, bool) { return a; }},
        {"!a|b", [](bool a, bool b, bool) { return !a || b; }},
        {"!<a|b>", [](bool a, bool b, bool) { return !(a || b); }},
        {"!<a b>", [](bool a, bool b, bool) { return !(a && b); }},
        {"!<a !<b|c>>", [](bool a, bool b, bool c) { return !(a && !(b || c)); }},
        {"<a|b> c", [](bool a, bool b, bool c) { return (a || b) && c; }},
        {"a <b c>|c", [](bool a, bool b, bool c) { return a && ((b && c) || c); }},
        {"<a b", [](bool a, bool b, bool) { return a && b; }},
        {"<a b ", [](bool a, bool b, bool) { return a && b; }},
        {"<<<a", [](bool a, bool, bool) { return a; }},
        {"a|", [](bool, bool, bool) { return true; }},
        {"|a", [](bool, bool, bool) { return true; }},
        {"<a b>c", [](bool a, bool b, bool c) { return a && b && c; }},
        {"a !b c", [](bool a, bool b, bool c) { return a && !b && c; }},
        {"!a !b|!c", [](bool a, bool b, bool c) { return !a && (!b || !c); }},
        {"case:<a|b> c", [](bool a, bool b, bool c) { return (a || b) && c; }},
        {"a AND b", [](bool a, bool b, bool) { return a && b; }, 0, 1},
        {"a OR b AND c", [](bool a, bool b, bool c) { return (a || b) && c; }, 0, 1},
        {"NOT a OR b", [](bool a, bool b, bool) { return !a || b; }, 0, 1},
        {"AND", [](bool, bool, bool) { return true; }, 0, 1},
        {"NOT <a OR b>", [](bool a, bool b, bool) { return !(a || b); }, 0, 1},
        {"(a|b) c", [](bool a, bool b, bool c) { return (a || b) && c; }, 0, 0, 1},
        {"!(a b)", [](bool a, bool b, bool) { return !(a && b); }, 0, 0, 1},
    };
    for (auto c : cases) {
        operator_precedence = c.precedence;
        allow_literal_operators = c.literal;
        allow_round_bracket_parenthesis = c.brackets;
        EXPECT_EQ(expected_table(c.predicate), truth_table(c.text))
            << c.text << " precedence " << c.precedence;
    }
}

struct parsed_t {
    std::vector<std::string> texts;
    std::vector<u32> flags;
};

parsed_t parse(const char *text, u32 default_flags = TERM_WILDCARDS) {
    parsed_t parsed;
    db_term_t *terms = _db_query_term_parse_all(default_flags, text, false);
    for (db_term_t *term = terms; term; term = term->link) {
        parsed.texts.push_back(term->text);
        parsed.flags.push_back(term->flags & ~static_cast<u32>(TERM_WILDCARDS | TERM_FUNCTION_SYNTAX));
    }
    db_term_free_all(terms);
    return parsed;
}

TEST(DbQueryParse, TextsOfTerms) {
    settings_t restore;
    const struct {
        const char *text;
        std::vector<std::string> expected;
    } cases[] = {
        {"root:abc", {"root:", "abc"}},
        {"\"a b|c<\"", {"a b|c<"}},
        {"a\" \"b", {"a b"}},
        {"\"unclosed a", {"unclosed a"}},
        {"size:\">5\"", {"size:>5"}},
        {"size:>5 x", {"size:>5", "x"}},
        {"size:<=5", {"size:<=5"}},
        {"depth:<3", {"depth:", "3"}},
        {"a>b", {"a>b"}},
        {"<a>b>", {"a", "b>"}},
        {"(a)", {"(a)"}},
        {"#65:#x42:#:c", {"ABc"}},
        {"quot:apos:amp:lt:gt:", {"\"'&<>"}},
        {"\"amp:\"", {"amp:"}},
        {"#65#x", {"#65#x"}},
        {"#65601:", {"A"}}, // 16 bits
        {"#233:", {"\xC3\xA9"}},
        {"a ", {"a", ""}},
        {"NOT a", {"NOT", "a"}},
    };
    for (auto c : cases)
        EXPECT_EQ(c.expected, parse(c.text).texts) << c.text;
    allow_literal_operators = 1;
    EXPECT_EQ((std::vector<std::string>{"NOTE", "ORDER"}), parse("NOTE ORDER").texts);
    EXPECT_EQ((std::vector<std::string>{"NOTE"}), parse("NOT NOTE").texts);
}

TEST(DbQueryParse, ModifiersBindToOnePrimary) {
    const struct {
        const char *text;
        std::vector<u32> flags;
    } cases[] = {
        {"case:a b", {TERM_CASE, 0}},
        {"case:<a b> c", {TERM_CASE, TERM_CASE, 0}},
        {"case:ww:a", {TERM_CASE | TERM_WHOLE_WORD}},
        {"case:nocase:a", {TERM_CASE}}, // the outer one comes last
        {"path:a|b", {TERM_PATH, 0}},
        {"file:folder:a", {TERM_FILE_ONLY | TERM_FOLDER_ONLY}},
        {"wfn:a", {TERM_WHOLE_NAME | TERM_WHOLE_NAME_WILDCARDS}},
        {"regex:a", {TERM_REGEX}},
        {"wildcards:a", {TERM_WILDCARDS_EXPLICIT}},
        {"acase:a", {0}},
        {"!diacritics:a", {TERM_NOT | TERM_DIACRITICS}},
    };
    for (auto c : cases)
        EXPECT_EQ(c.flags, parse(c.text).flags) << c.text;
    EXPECT_EQ((std::vector<u32>{TERM_FAST_ASCII, 0}), parse("a utf8:b", TERM_FAST_ASCII).flags);
}

TEST(DbQueryParse, FunctionSyntaxIsDecidedByTheRawText) {
    const struct {
        const char *text;
        bool function;
    } cases[] = {{"size:5", true}, {"\"size:5\"", false}, {"abc", true},
                 {"Abc:x", false}, {"a.b", false},        {":x", true}};
    for (auto c : cases) {
        db_term_t *terms = _db_query_term_parse_all(0, c.text, false);
        EXPECT_EQ(c.function, (terms->flags & TERM_FUNCTION_SYNTAX) != 0) << c.text;
        db_term_free_all(terms);
    }
}

TEST(DbQueryParse, ARegularExpressionIsOneTerm) {
    EXPECT_EQ((std::vector<std::string>{"a b|<c !\""}), parse("  a b|<c !\"", TERM_REGEX).texts);
}

TEST(DbQueryParse, DeepNestingNeedsNoStack) {
    std::string text(200000, '<');
    EXPECT_EQ(1u, parse((text + "a").c_str()).texts.size());
    EXPECT_EQ(1u, parse((std::string(200000, '!') + "a").c_str()).texts.size());
}

// Each of these takes a time that grows with the text, and not with its square: a minute would be seen.
TEST(DbQueryParse, DeepNestingOfManyTerms) {
    constexpr u32 DEEP = 100000;
    auto times = [](u32 count, const std::string &text) {
        std::string all;
        for (u32 i = 0; i < count; i++)
            all += text;
        return all;
    };
    const struct {
        std::string text;
        u32 terms;
    } cases[] = {
        {times(DEEP, "!<a "), DEEP + 1},
        {times(DEEP, "case:<a|"), DEEP + 1},
        {times(DEEP, "<") + times(DEEP, "a>"), DEEP},
        {times(DEEP, "a|b "), 2 * DEEP + 1},
    };
    for (const auto &c : cases) {
        db_term_t *terms = _db_query_term_parse_all(TERM_WILDCARDS, c.text.c_str(), false);
        u32 count = 0;
        for (const db_term_t *term = terms; term; term = term->link)
            count++;
        EXPECT_EQ(c.terms, count) << c.text.substr(0, 20);
        db_term_free_all(terms);
    }
}

} // namespace
} // namespace findwright
