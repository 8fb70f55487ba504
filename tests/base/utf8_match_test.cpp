#include "base/utf8_buf.h"
#include "base/utf8_match.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using namespace findwright;
using std::string;
using std::string_view;

// One mode's copies of the primitives, on a pattern that is not yet folded.
struct matcher_t {
    utf8_mode_t mode;
    bool (*find)(const char *, u32, const char *, u32);
    bool (*find_word)(const char *, u32, const char *, u32);
    i32 (*starts_with)(const char *, u32, const char *, u32);
    i32 (*ends_with)(const char *, u32, const char *, u32);
    bool (*equal)(const char *, u32, const char *, u32);
    bool (*wildcard)(const char *, u32, const char *, u32);
    bool (*wildcard_find)(const char *, u32, const char *, u32);
    bool (*wildcard_find_word)(const char *, u32, const char *, u32);
};

template<utf8_mode_t mode>
static constexpr matcher_t MATCHER = {mode,
                                      utf8_find<mode>,
                                      utf8_find_word<mode>,
                                      utf8_starts_with<mode>,
                                      utf8_ends_with<mode>,
                                      utf8_equal<mode>,
                                      utf8_wildcard<mode>,
                                      utf8_wildcard_find<mode>,
                                      utf8_wildcard_find_word<mode>};
static constexpr matcher_t MATCHERS[] = {MATCHER<UTF8_MODE_FOLD>, MATCHER<UTF8_MODE_KEEP_CASE>,
                                         MATCHER<UTF8_MODE_LOWER>, MATCHER<UTF8_MODE_EXACT>,
                                         MATCHER<UTF8_MODE_ASCII>};

static string _fold(utf8_mode_t mode, string_view pattern) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    utf8_fold_pattern(mode, &buf, pattern.data(), static_cast<u32>(pattern.size()));
    string folded(buf.data, static_cast<size_t>(buf.length));
    utf8_buf_kill(&buf);
    return folded;
}

template<class result_t>
static result_t _run(result_t (*match)(const char *, u32, const char *, u32), utf8_mode_t mode,
                     string_view text, string_view pattern) {
    // Blocks of exactly that size, so that reading past an end is seen.
    const string folded = _fold(mode, pattern);
    const std::vector<char> t(text.begin(), text.end());
    const std::vector<char> p(folded.begin(), folded.end());
    return match(t.data(), static_cast<u32>(t.size()), p.data(), static_cast<u32>(p.size()));
}

// --- The slow, obvious answers, on arrays of characters ----------------------------------------------------

struct character_t {
    u32 value;    // after folding
    string bytes; // as in the text
};

static std::vector<character_t> _characters(utf8_mode_t mode, string_view text) {
    std::vector<character_t> result;
    const char *end = text.data() + text.size();
    for (const char *p = text.data(); p < end;) {
        u32 value;
        const u32 length = utf8_decode(p, end, &value);
        value = mode == UTF8_MODE_FOLD        ? utf8_to_fold(value)
                : mode == UTF8_MODE_KEEP_CASE ? utf8_to_fold_keep_case(value)
                : mode == UTF8_MODE_LOWER || (mode == UTF8_MODE_ASCII && value < 0x80) ? utf8_to_lower(value)
                                                                                       : value;
        result.push_back({value, string(p, length)});
        p += length;
    }
    return result;
}

static bool _same(utf8_mode_t mode, const character_t &text, const character_t &pattern) {
    if (mode == UTF8_MODE_EXACT) {
        return text.bytes == pattern.bytes;
    }
    if (mode == UTF8_MODE_ASCII && text.bytes.size() > 1) {
        return false;
    }
    return text.value == pattern.value;
}

// A character of a pattern that has been read as text may be a wildcard.
static bool _is(const character_t &c, const char *wildcard) {
    return c.bytes == wildcard;
}

// The ends, as indexes of characters, of all matches of a pattern that begin at `start`.
static std::vector<bool> _match_ends(utf8_mode_t mode, const std::vector<character_t> &text, size_t start,
                                     const std::vector<character_t> &pattern) {
    std::vector<bool> at(text.size() + 1);
    at[start] = true;
    for (const auto &p : pattern) {
        std::vector<bool> next(text.size() + 1);
        for (size_t i = start; i <= text.size(); i++) {
            if (!at[i]) {
                continue;
            }
            if (_is(p, "*")) {
                for (size_t j = i; j <= text.size(); j++) {
                    next[j] = true;
                }
            } else if (i < text.size() && (_is(p, "?") || _same(mode, text[i], p))) {
                next[i + 1] = true;
            }
        }
        at = next;
    }
    return at;
}

static bool _word(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           c >= 0x80;
}

static bool _borders(string_view text, size_t start, size_t end, string_view pattern) {
    if (pattern.empty()) {
        return true;
    }
    return (!_word(pattern.front()) || start == 0 || !_word(text[start - 1])) &&
           (!_word(pattern.back()) || end == text.size() || !_word(text[end]));
}

struct expected_t {
    bool find, find_word, starts_with, equal, wildcard, wildcard_find, wildcard_find_word;
};

static expected_t _expect(utf8_mode_t mode, string_view text, string_view pattern) {
    expected_t result = {};
    auto pattern_characters = _characters(mode, pattern);
    const string folded = _fold(mode, pattern);
    // Plain text, at each byte.
    for (size_t i = 0; i <= text.size(); i++) {
        const auto rest = _characters(mode, text.substr(i));
        size_t end = i;
        bool same = rest.size() >= pattern_characters.size();
        for (size_t j = 0; same && j < pattern_characters.size(); j++) {
            same = _same(mode, rest[j], pattern_characters[j]);
            end += rest[j].bytes.size();
        }
        result.find |= same;
        result.find_word |= same && _borders(text, i, end, folded);
        result.starts_with |= same && i == 0;
        result.equal |= same && i == 0 && end == text.size();
    }
    // Wildcards, at each character.
    const auto characters = _characters(mode, text);
    std::vector<size_t> offsets = {0};
    for (const auto &c : characters) {
        offsets.push_back(offsets.back() + c.bytes.size());
    }
    for (size_t i = 0; i <= characters.size(); i++) {
        const auto ends = _match_ends(mode, characters, i, pattern_characters);
        for (size_t j = 0; j <= characters.size(); j++) {
            result.wildcard |= ends[j] && i == 0 && j == characters.size();
            result.wildcard_find |= ends[j];
            result.wildcard_find_word |= ends[j] && _borders(text, offsets[i], offsets[j], folded);
        }
    }
    return result;
}

static void _compare(const matcher_t &m, string_view text, string_view pattern, u32 *hits) {
    const expected_t expected = _expect(m.mode, text, pattern);
    const string where = testing::PrintToString(string(text)) + " " +
                         testing::PrintToString(string(pattern)) + " mode " + std::to_string(m.mode);
    ASSERT_EQ(_run(m.find, m.mode, text, pattern), expected.find) << where;
    ASSERT_EQ(_run(m.find_word, m.mode, text, pattern), expected.find_word) << where;
    ASSERT_EQ(_run(m.starts_with, m.mode, text, pattern) != UTF8_NO_MATCH, expected.starts_with) << where;
    ASSERT_EQ(_run(m.equal, m.mode, text, pattern), expected.equal) << where;
    ASSERT_EQ(_run(m.wildcard, m.mode, text, pattern), expected.wildcard) << where;
    ASSERT_EQ(_run(m.wildcard_find, m.mode, text, pattern), expected.wildcard_find) << where;
    ASSERT_EQ(_run(m.wildcard_find_word, m.mode, text, pattern), expected.wildcard_find_word) << where;
    const bool answers[] = {expected.find,     expected.find_word,     expected.equal,
                            expected.wildcard, expected.wildcard_find, expected.wildcard_find_word};
    for (size_t i = 0; i < std::size(answers); i++) {
        hits[i] += answers[i];
    }
}

using random_t = std::mt19937;

static string _random_text(random_t &random, const std::vector<string> &pieces, u32 most) {
    string text;
    for (size_t count = random() % (most + 1); count; count--) {
        text += pieces[random() % pieces.size()];
    }
    return text;
}

TEST(Utf8Match, AgreesWithTheObviousAnswers) {
    const std::vector<string> valid = {"a",
                                       "A",
                                       "b",
                                       "e",
                                       "E",
                                       "k",
                                       "_",
                                       " ",
                                       ".",
                                       "\xC3\xA9",
                                       "\xC3\x89",
                                       "\xC8\xBA",
                                       "\xC3\xB8",
                                       "o",
                                       "\xE2\x84\xAA",
                                       "\xE2\xB1\xA5",
                                       "\xE3\x81\x82",
                                       "\xF0\x9F\x98\x80"};
    std::vector<string> damaged = valid;
    damaged.insert(damaged.end(), {"\x80", "\xFF", "\xC3", "\xE3\x81", "\xF0", "\xA9"});
    std::vector<string> ascii(valid.begin(), valid.begin() + 9);
    const auto with_wildcards = [](std::vector<string> pieces) {
        for (u32 i = 0; i < 3; i++) {
            pieces.insert(pieces.end(), {"*", "?"});
        }
        return pieces;
    };
    random_t random(1);
    for (const auto &m : MATCHERS) {
        // A pattern of damaged bytes has no characters of its own where bytes are compared.
        const auto &letters = m.mode == UTF8_MODE_ASCII ? ascii : m.mode == UTF8_MODE_EXACT ? valid : damaged;
        u32 hits[6] = {};
        constexpr u32 ROUNDS = 5000;
        for (u32 round = 0; round < ROUNDS; round++) {
            const auto &texts = round % 3 == 0 ? damaged : round % 3 == 1 ? valid : ascii;
            const auto &patterns = round % 4 ? with_wildcards(round % 3 == 2 ? ascii : letters) : letters;
            _compare(m, _random_text(random, texts, 10), _random_text(random, patterns, 5), hits);
            ASSERT_FALSE(HasFatalFailure());
        }
        for (u32 count : hits) { // neither answer is rare
            EXPECT_GT(count, ROUNDS / 100);
            EXPECT_LT(count, ROUNDS / 10 * 9);
        }
    }
}

TEST(Utf8Match, EndsWithAgreesWithASearchOfEverySuffix) {
    const std::vector<string> pieces = {"a",
                                        "A",
                                        "e",
                                        "\xC3\xA9",
                                        "\xC3\x89",
                                        "\xC8\xBA",
                                        "\xC3\xB8",
                                        "o",
                                        "\xE2\x84\xAA",
                                        "k",
                                        "\xE2\xB1\xA5",
                                        "\xF0\x9F\x98\x80"};
    random_t random(2);
    for (const auto &m : MATCHERS) {
        u32 hits = 0;
        for (u32 round = 0; round < 20000; round++) {
            const string text = _random_text(random, pieces, 6);
            const string pattern = m.mode == UTF8_MODE_ASCII ? _random_text(random, {"a", "e", "o", "k"}, 2)
                                                             : _random_text(random, pieces, 2);
            const auto t = _characters(m.mode, text);
            const auto p = _characters(m.mode, pattern);
            i32 expected = UTF8_NO_MATCH;
            if (t.size() >= p.size()) {
                expected = 0;
                for (size_t i = 1; i <= p.size() && expected != UTF8_NO_MATCH; i++) {
                    const auto &c = t[t.size() - i];
                    expected = _same(m.mode, c, p[p.size() - i]) ? expected + static_cast<i32>(c.bytes.size())
                                                                 : UTF8_NO_MATCH;
                }
            }
            ASSERT_EQ(_run(m.ends_with, m.mode, text, pattern), expected) << text << " " << pattern << m.mode;
            hits += expected > 0;
        }
        EXPECT_GT(hits, 200u);
    }
}

TEST(Utf8Match, GivesTheBytesOfTheTextThatMatched) {
    struct {
        const char *text, *pattern;
        i32 starts, ends;
    } cases[] = {
        {"\xC3\x89t\xC3\xA9", "ete", 5, 5},
        {"\xC3\x89t\xC3\xA9", "\xC3\xA8", 2, 2},
        {"K", "\xE2\x84\xAA", 1, 1},
        {"abc", "", 0, 0},
        {"", "", 0, 0},
        {"", "a", UTF8_NO_MATCH, UTF8_NO_MATCH},
        {"ab", "abc", UTF8_NO_MATCH, UTF8_NO_MATCH},
        {"a\xC3", "a", 1, UTF8_NO_MATCH},
        {"\xE3\x81", "\xFF", 1, 1}, // malformed bytes are alike
        {"\x80\x80\x80\x80\x80", "\x80\x80\x80\x80\x80", 5, 5},
        // Read from its front this is an A with a tilde and a byte; read from its end, a byte and an e.
        {"\xC3\xC3\xA9", "\xC3\xC3\xA9", 3, 3},
        {"b\xC3\xC3\xA9", "\xC3\xC3\xA9", UTF8_NO_MATCH, 3},
        {"b\xC3\xC3\xA9", "a\xFF", UTF8_NO_MATCH, 3},
        {"b\xC3\xC3\xA9", "be", UTF8_NO_MATCH, UTF8_NO_MATCH},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(_run(utf8_starts_with<UTF8_MODE_FOLD>, UTF8_MODE_FOLD, c.text, c.pattern), c.starts)
            << c.text;
        EXPECT_EQ(_run(utf8_ends_with<UTF8_MODE_FOLD>, UTF8_MODE_FOLD, c.text, c.pattern), c.ends) << c.text;
    }
    utf8_hit_t hit;
    const char *text = "x R\xC3\xA9sum\xC3\xA9.doc";
    const char *text_end = text + std::strlen(text);
    ASSERT_TRUE((utf8_find_from<UTF8_MODE_FOLD, true>(text, text_end, text, "resume", 6, &hit)));
    EXPECT_EQ(string(hit.text, hit.length), "R\xC3\xA9sum\xC3\xA9");
    EXPECT_FALSE((utf8_find_from<UTF8_MODE_FOLD, true>(text, text_end, hit.text + 1, "resume", 6, &hit)));
    ASSERT_TRUE((
        utf8_wildcard_match<UTF8_MODE_FOLD, UTF8_WILDCARD_FIND>(text, utf8_length(text), "s?m*.d", 6, &hit)));
    EXPECT_EQ(string(hit.text, hit.length), "sum\xC3\xA9.d");
}

TEST(Utf8Match, WordsAndWildcards) {
    struct {
        bool (*match)(const char *, u32, const char *, u32);
        const char *text, *pattern;
        bool hit;
    } cases[] = {
        {utf8_find_word<UTF8_MODE_FOLD>, "abc_d", "abc", false},
        {utf8_find_word<UTF8_MODE_FOLD>, "abc.d", "abc", true},
        {utf8_find_word<UTF8_MODE_FOLD>, "xabc abc", "abc", true}, // not the first hit
        {utf8_find_word<UTF8_MODE_FOLD>, "c++x", "c++", true},
        {utf8_find_word<UTF8_MODE_FOLD>, "xc++", "c++", false},
        {utf8_find_word<UTF8_MODE_FOLD>, "a.txt", ".txt", true},
        {utf8_find_word<UTF8_MODE_FOLD>, "abc\xC3\xA9", "abc", false},
        {utf8_find_word<UTF8_MODE_EXACT>, "aa a", "a", true},
        {utf8_wildcard<UTF8_MODE_FOLD>, "", "*", true},
        {utf8_wildcard<UTF8_MODE_FOLD>, "", "?", false},
        {utf8_wildcard<UTF8_MODE_FOLD>, "", "", true},
        {utf8_wildcard<UTF8_MODE_FOLD>, "a", "a*", true},
        {utf8_wildcard<UTF8_MODE_FOLD>, "\xE3\x81\x82", "?", true},
        {utf8_wildcard_find<UTF8_MODE_FOLD>, "\xE3\x81\x82", "??", false},
        {utf8_wildcard_find<UTF8_MODE_FOLD>, "anything", "", true},
        {utf8_wildcard_find_word<UTF8_MODE_FOLD>, "one two", "t?o", true},
        {utf8_wildcard_find_word<UTF8_MODE_FOLD>, "one twos", "t?o", false},
        {utf8_wildcard_find_word<UTF8_MODE_FOLD>, "axb ab cab", "a*b", true},
        {utf8_wildcard_find_word<UTF8_MODE_FOLD>, "abb", "a*b", true}, // the second end is a border
        {utf8_wildcard_find_word<UTF8_MODE_FOLD>, "xab", "a*b", false},
    };
    for (const auto &c : cases) {
        const matcher_t m = MATCHERS[0];
        EXPECT_EQ(_run(c.match, m.mode, c.text, c.pattern), c.hit) << c.text << " " << c.pattern;
    }
}

// With a match that goes back to more than the last star none of these would come to an end.
TEST(Utf8Match, ManyStarsTakeNoTime) {
    const string text(255, 'a');
    string alternating;
    for (u32 i = 0; i < 100; i++) {
        alternating += "*a";
    }
    const string patterns[] = {string(1000, '*') + "b", alternating + "*b", alternating + "b",
                               "a" + alternating + "?b?"};
    for (const auto &m : MATCHERS) {
        for (const auto &pattern : patterns) {
            EXPECT_FALSE(_run(m.wildcard, m.mode, text, pattern));
            EXPECT_FALSE(_run(m.wildcard_find, m.mode, text, pattern));
            EXPECT_FALSE(_run(m.wildcard_find_word, m.mode, text, pattern));
        }
        EXPECT_TRUE(_run(m.wildcard, m.mode, text, string(1000, '*')));
        EXPECT_TRUE(_run(m.wildcard_find_word, m.mode, text, alternating));
        EXPECT_FALSE(_run(m.wildcard_find_word, m.mode, text + "_b", alternating + "a"));
    }
}

TEST(Utf8Match, PreparesPatterns) {
    struct {
        const char *pattern, *squeezed;
        u32 wildcards;
        const char *stripped; // 0: not of that form
        bool prefix, suffix;
    } cases[] = {
        {"abc", "abc", 0, 0, false, false},
        {"**", "*", 1, 0, true, true},
        {"***a**?*", "*a*?*", 4, 0, false, false},
        {"**abc**", "*abc*", 2, "abc", false, false},
        {"abc**", "abc*", 1, 0, true, false},
        {"*abc", "*abc", 1, 0, false, true},
        {"*a?c*", "*a?c*", 3, 0, false, false},
        {"?abc*", "?abc*", 2, 0, false, false},
        {"", "", 0, 0, false, false},
    };
    for (const auto &c : cases) {
        string pattern = c.pattern;
        u32 length = static_cast<u32>(pattern.size());
        EXPECT_EQ(utf8_wildcard_squeeze(pattern.data(), &length), c.wildcards) << c.pattern;
        EXPECT_EQ(pattern.substr(0, length), c.squeezed);
        EXPECT_EQ(utf8_wildcard_is_prefix(pattern.data(), length), c.prefix) << c.pattern;
        EXPECT_EQ(utf8_wildcard_is_suffix(pattern.data(), length), c.suffix) << c.pattern;
        EXPECT_EQ(utf8_wildcard_strip_stars(pattern.data(), &length), c.stripped != 0) << c.pattern;
        EXPECT_EQ(pattern.substr(0, length), c.stripped ? c.stripped : c.squeezed);
    }
    EXPECT_EQ(_fold(UTF8_MODE_FOLD, "\xC3\x89\xFFX*"), "e\xFFx*");
    EXPECT_EQ(_fold(UTF8_MODE_KEEP_CASE, "\xC3\x89X"), "EX");
    EXPECT_EQ(_fold(UTF8_MODE_LOWER, "\xC3\x89X"), "\xC3\xA9x");
    EXPECT_EQ(_fold(UTF8_MODE_EXACT, "\xC3\x89\xFFX"), "\xC3\x89\xFFX");
    // What grows must not join a damaged byte in front of it.
    EXPECT_EQ(_fold(UTF8_MODE_LOWER, "\xF0\xC8\xBA"), "\xFF\xE2\xB1\xA5");
}
