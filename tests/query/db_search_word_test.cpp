// The words beside names must never hide a name that matches.
#include "query/db_search_word.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "base/utf8_match.h"
#include "db/db_word.h"
#include "query/db_regex.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace findwright {
namespace {

std::string encode(u32 value) {
    char text[UTF8_CHAR_MAX];
    return std::string(text, utf8_encode(text, value));
}

u64 text_word(const std::string &text) {
    return db_word_of_text(text.data(), static_cast<u32>(text.size()));
}

u64 name_word(const std::string &name) {
    return db_word_of_name(name.data(), static_cast<u32>(name.size()));
}

std::string fold(utf8_mode_t mode, const std::string &text) {
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(mode, &folded, text.data(), static_cast<u32>(text.size()));
    std::string result(folded.data, static_cast<size_t>(folded.length));
    utf8_buf_kill(&folded);
    return result;
}

// Every character is found by the word of its own spelling in every mode.
TEST(DbWord, EveryCharacterPassesForItsFoldedForms) {
    for (u32 value = 1; value < 0x11000; value++) {
        std::string name = "x" + encode(value) + "q";
        for (utf8_mode_t mode : {UTF8_MODE_FOLD, UTF8_MODE_KEEP_CASE, UTF8_MODE_LOWER, UTF8_MODE_EXACT}) {
            u64 wanted = text_word(fold(mode, name));
            ASSERT_EQ(wanted, wanted & name_word(name)) << std::hex << value << " mode " << mode;
        }
    }
}

TEST(DbWord, WhatIsNoUtf8PassesAlways) {
    for (const char *name : {"a\xC3", "\xA9z", "\xC3\x61", "a\xE2\x82", "\xF0\x9F\x98"}) {
        EXPECT_EQ(DB_WORD_ALL, name_word(name)) << name;
        EXPECT_EQ(0u, text_word(name)) << name;
    }
    EXPECT_NE(DB_WORD_ALL, name_word("caf\xC3\xA9"));
    EXPECT_EQ(0u, name_word("1") & DB_WORD_LETTER_BITS);
}

// What an expression asks for, as letters: too little costs time, too much would lose names.
TEST(DbWord, ExpressionsAskForTheirLiterals) {
    const struct {
        const char *expression;
        const char *runs[3]; // of literal characters, as far as they are seen
    } cases[] = {
        {"abc", {"abc"}},
        {"^lib.*\\.so\\.[0-9]+$", {"lib", ".so."}},
        {"ab?c", {"a", "c"}},
        {"ab+c", {"ab", "c"}},
        {"a{2}bc", {"bc"}},
        {"a(bc)d", {"a", "d"}},
        {"a(?:b|c)d", {"a", "d"}},
        {"a|b", {}},
        {"(a|b)cd|ef", {}},
        {"[abc]de[^]x]f", {"de", "f"}},
        {"[[:alpha:]]xy", {"xy"}},
        {"\\d\\wzz", {"zz"}},
        {"(?x) a b", {}},
        {"(?i)abc", {}},
        {"abc\\Qx*\\E", {}},
        {"(a)\\1b", {}},
        {"\\x41b", {}},
        {"caf\xC3\xA9s", {"caf", "s"}},
        {"a{,3}b", {"b"}},
        {"a{b", {"a{b"}},
    };
    for (auto c : cases) {
        u64 expected = 0;
        for (const char *run : c.runs)
            expected |= run ? text_word(run) : 0;
        EXPECT_EQ(expected, db_regex_get_word(c.expression, utf8_length(c.expression))) << c.expression;
    }
}

TEST(DbWord, NoNameThatAnExpressionMatchesIsLost) {
    std::mt19937 random(7);
    const char *const pieces[] = {"a",   "b",    "k",     "s",    "\xC3\xA9", "[ab]",   "[^a]",
                                  ".",   "\\.",  "\\w",   "(ab)", "(a|bk)",   "(?:s|)", "a*",
                                  "b+",  "k?",   "s{0}",  "a{2}", "|",        "^",      "$",
                                  "\\d", "(?i)", "(?=a)", "\\ba", "[]a-k]"};
    const char *const letters[] = {"a", "B", "k", "S", "\xE2\x84\xAA", "\xC5\xBF", "\xC3\x89",
                                   ".", "A", "b", "K", "\xC3\xA9",     "1",        "\xC3",
                                   "s", "-"};
    void *match = db_regex_match_create();
    u32 matches = 0;
    for (u32 round = 0; round < 3000; round++) {
        std::string expression;
        for (auto i = 1 + random() % 5; i != 0; i--)
            expression += pieces[random() % std::size(pieces)];
        void *regex = db_regex_compile(expression.data(), static_cast<u32>(expression.size()), random() % 2);
        if (!regex)
            continue;
        u64 wanted = db_regex_get_word(expression.data(), static_cast<u32>(expression.size()));
        for (u32 n = 0; n < 20; n++) {
            std::string name;
            for (auto i = 1 + random() % 7; i != 0; i--)
                name += letters[random() % std::size(letters)];
            if (!db_regex_match(regex, match, name.data(), static_cast<u32>(name.size())))
                continue;
            matches++;
            ASSERT_EQ(wanted, wanted & name_word(name)) << expression << " on " << name;
        }
        db_regex_free(regex);
    }
    EXPECT_GT(matches, 5000u);
    db_regex_match_free(match);
}

} // namespace
} // namespace findwright
