#include "base/utf8.h"
#include "base/utf8_buf.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

using namespace findwright;
using std::string;
using std::string_view;

static u32 _length(string_view text) {
    return static_cast<u32>(text.size());
}

static int _sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(Utf8, DecodesWholeSequencesAndTakesTheRestByteByByte) {
    struct {
        string_view text;
        std::vector<std::pair<u32, u32>> characters; // length, value
    } cases[] = {
        {"a\xC3\xA9\xE3\x81\x82\xF0\x9F\x98\x80", {{1, 'a'}, {2, 0xE9}, {3, 0x3042}, {4, 0x1F600}}},
        {"\x80\xBF\xF8\xFF", {{1, 0}, {1, 0}, {1, 0}, {1, 0}}},
        {"\xC3", {{1, 0}}},
        {"\xE3\x81", {{1, 0}, {1, 0}}},
        {"\xF0\x9F\x98", {{1, 0}, {1, 0}, {1, 0}}},
        {"\xF0\xC3\xA9", {{1, 0}, {2, 0xE9}}},
        // Continuation bytes are not checked.
        {"\xC3"
         "ab",
         {{2, 0xC0 | ('a' & 0x3F)}, {1, 'b'}}},
    };
    for (const auto &c : cases) {
        std::vector<std::pair<u32, u32>> found;
        const char *end = c.text.data() + c.text.size();
        for (const char *p = c.text.data(); p < end;) {
            u32 value;
            const u32 length = utf8_decode(p, end, &value);
            found.emplace_back(length, value);
            p += length;
        }
        EXPECT_EQ(found, c.characters) << testing::PrintToString(string(c.text));
    }
}

TEST(Utf8, EncodesWhatItDecodes) {
    for (u32 value : {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD800u, 0xFFFFu, 0x10000u, 0x10FFFFu, 0x1FFFFFu}) {
        char text[UTF8_CHAR_MAX];
        const u32 length = utf8_encode(text, value);
        u32 decoded;
        EXPECT_EQ(length, utf8_encoded_length(value));
        EXPECT_EQ(utf8_decode(text, text + length, &decoded), length);
        EXPECT_EQ(decoded, value);
    }
}

TEST(Utf8, FoldsCharacters) {
    struct {
        u32 value, lower, fold, keep_case;
    } cases[] = {
        {'A', 'a', 'a', 'A'},
        {0xA0, 0xA0, ' ', ' '},
        {0xA1, 0xA1, '!', '!'},
        {0xA2, 0xA2, 'c', 'c'},
        {0xAD, 0xAD, '-', '-'},
        {0xC0, 0xE0, 'a', 'A'},
        {0xCD, 0xED, 'i', 'I'},
        {0xED, 0xED, 'i', 'i'},
        {0x113, 0x113, 'e', 'e'},
        {0x114, 0x115, 'e', 'E'},
        {0x410, 0x430, 0x430, 0x410},
        {0xFF3A, 0xFF5A, 'z', 'Z'},
        {0xFF81, 0xFF81, 0x30C1, 0x30C1},
        {0xFFEE, 0xFFEE, 0x25CB, 0x25CB},
        {0x1EA4, 0x1EA5, 'a', 'A'}, // two accents
        {0xD8, 0xF8, 'o', 'O'},     // strokes have no decomposition
        {0x141, 0x142, 'l', 'L'},
        {0x111, 0x111, 'd', 'd'},
        {0x131, 0x131, 'i', 'i'},
        {0x130, 'i', 'i', 'I'},
        {0x212A, 'k', 'k', 'K'},    // Kelvin sign
        {0x23A, 0x2C65, 'a', 'A'},  // lower case is longer in bytes
        {0xFB01, 0xFB01, 'f', 'f'}, // the ligature fi
        {0x3A3, 0x3C3, 0x3C3, 0x3A3},
        {0x3C2, 0x3C2, 0x3C3, 0x3C3}, // final sigma
        {0x439, 0x439, 0x438, 0x438}, // Cyrillic short i
        {0xDF, 0xDF, 0xDF, 0xDF},
        {0xD55C, 0xD55C, 0xD55C, 0xD55C}, // a Hangul syllable stays whole
        {0x301, 0x301, 0x301, 0x301},
        {0xFF0A, 0xFF0A, 0xFF0A, 0xFF0A}, // no wildcard or separator is made
        {0xFF3C, 0xFF3C, 0xFF3C, 0xFF3C},
        {0x10400, 0x10400, 0x10400, 0x10400},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(utf8_to_lower(c.value), c.lower) << std::hex << c.value;
        EXPECT_EQ(utf8_to_fold(c.value), c.fold) << std::hex << c.value;
        EXPECT_EQ(utf8_to_fold_keep_case(c.value), c.keep_case) << std::hex << c.value;
    }
}

TEST(Utf8, FoldingIsSettledAndBlindToCase) {
    for (u32 value = 0; value < 0x10000; value++) {
        ASSERT_EQ(utf8_to_lower(utf8_to_lower(value)), utf8_to_lower(value)) << std::hex << value;
        ASSERT_EQ(utf8_to_fold(utf8_to_fold(value)), utf8_to_fold(value)) << std::hex << value;
        ASSERT_EQ(utf8_to_fold(utf8_to_lower(value)), utf8_to_fold(value)) << std::hex << value;
        ASSERT_EQ(utf8_to_fold(utf8_to_fold_keep_case(value)), utf8_to_fold(value)) << std::hex << value;
        if (value >= 0x80) {
            for (char c : string_view("*?\\/")) { // no wildcard or separator is made
                ASSERT_NE(utf8_to_fold(value), static_cast<u32>(c)) << std::hex << value;
            }
        } else {
            const char c = static_cast<char>(value);
            ASSERT_EQ(utf8_lower_ascii[c], utf8_to_fold(value));
            ASSERT_EQ(utf8_same_ascii[c], utf8_to_fold_keep_case(value));
        }
    }
}

TEST(Utf8, MapsTheCaseOfTexts) {
    struct {
        string_view text, lower, upper;
    } cases[] = {
        {"", "", ""},
        {"Az_09", "az_09", "AZ_09"},
        {"Stra\xC3\x9F"
         "E \xC3\x89",
         "stra\xC3\x9F"
         "e \xC3\xA9",
         "STRA\xC3\x9F"
         "E \xC3\x89"},
        {"\xC8\xBA", "\xE2\xB1\xA5", "\xC8\xBA"}, // grows
        {"\xE2\x84\xAA", "k", "\xE2\x84\xAA"},    // shrinks; the Kelvin sign is upper case
        {"A\xFF\x80\xF0", "a\xFF\x80\xF0", "A\xFF\x80\xF0"},
    };
    for (const auto &c : cases) {
        const u32 length = _length(c.text);
        string lower(utf8_lower_get_length(c.text.data(), length), '.');
        EXPECT_EQ(utf8_lower_copy(lower.data(), c.text.data(), length), lower.size());
        EXPECT_EQ(lower, c.lower);
        string upper(utf8_upper_get_length(c.text.data(), length), '.');
        EXPECT_EQ(utf8_upper_copy(upper.data(), c.text.data(), length), upper.size());
        EXPECT_EQ(upper, c.upper);
    }
    EXPECT_EQ(utf8_to_upper('k'), 'K');
    EXPECT_EQ(utf8_to_upper(0x3C9), 0x3A9u);
}

TEST(Utf8, ComparesNames) {
    struct {
        string_view a, b;
        int fold, lower, keep_case;
    } cases[] = {
        {"", "", 0, 0, 0},
        {"", "a", -1, -1, -1},
        {"abc", "ABC", 0, 0, 1},
        {"R\xC3\xA9sum\xC3\xA9", "resume", 0, 1, -1},
        {"R\xC3\xA9sum\xC3\xA9", "Resume", 0, 1, 0},
        {"abc", "abd", -1, -1, -1},
        {"Z", "a", 1, 1, -1},
        {"\xC3\x89", "\xC3\xA9", 0, 0, -1},
        {"ab", "abc", -1, -1, -1},
        {"\xC3\xA9z", "ea", 1, 1, 1},
        {"\xC2\xA0", " ", 0, 1, 0},
        // A malformed byte has the value 0 and stands first.
        {"\x80", "\x01", -1, -1, -1},
        {"\x80", "\xFF", 0, 0, 0},
        {"a\xC3", "a\xC3\xA9", -1, -1, -1},
        {"\xF0\x9F\x98\x80", "\xEF\xBF\xBD", 1, 1, 1}, // above 0xFFFF
        {"\xE2\x84\xAA", "k", 0, 0, -1},
    };
    for (const auto &c : cases) {
        const auto check = [&c](auto compare, int expected, const char *name) {
            EXPECT_EQ(_sign(compare(c.a.data(), _length(c.a), c.b.data(), _length(c.b))), expected)
                << name << " " << c.a << " " << c.b;
            EXPECT_EQ(_sign(compare(c.b.data(), _length(c.b), c.a.data(), _length(c.a))), -expected)
                << name << " " << c.b << " " << c.a;
        };
        check(utf8_compare_fold, c.fold, "fold");
        check(utf8_compare_lower, c.lower, "lower");
        check(utf8_compare_keep_case, c.keep_case, "keep case");
    }
    EXPECT_LT(utf8_compare("B", 1, "a", 1), 0);
    EXPECT_GT(utf8_compare("\xC3\xA9", 2, "z", 1), 0);
    EXPECT_LT(utf8_compare("a", 1, "ab", 2), 0);
}

TEST(Utf8, EqualNocaseIsAPrefixTest) {
    struct {
        string_view text, pattern;
        bool equal;
    } cases[] = {
        {"Name", "name", true},
        {"Name.txt", "NAME", true},
        {"nam", "name", false},
        {"name", "nome", false},
        {"\xC3\x89t\xC3\xA9", "\xC3\xA9T", true},
        {"\xC3\xA9", "e", false},
        {"", "", true},
        {"x", "", true},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(utf8_equal_nocase(c.text.data(), _length(c.text), c.pattern.data(), _length(c.pattern)),
                  c.equal)
            << c.text << " " << c.pattern;
    }
}

TEST(Utf8, ConvertsToUtf16AndBack) {
    struct {
        string_view text;
        std::u16string wide;
        bool back; // the way back gives the same bytes
    } cases[] = {
        {"a\xC3\xA9\xE3\x81\x82", u"a\u00E9\u3042", true},
        {"\xF0\x9F\x98\x80", u"\U0001F600", true},
        {"\xED\xA0\xBDx", {0xD83D, 'x'}, true}, // lone surrogates, high and low
        {"\xED\xB8\x80", {0xDE00}, true},
        {"a\xFF"
         "b\xC3",
         u"a\uFFFD"
         u"b\uFFFD",
         false},
        {"\xF7\xBF\xBF\xBF", u"\uFFFD", false}, // above the last code point
        {string_view("a\0b", 3), std::u16string(u"a\0b", 3), true},
    };
    for (const auto &c : cases) {
        std::u16string wide(wchar_utf8_get_length(c.text.data(), _length(c.text)), u'.');
        EXPECT_EQ(wchar_from_utf8(wide.data(), c.text.data(), _length(c.text)), wide.size());
        EXPECT_EQ(wide, c.wide);
        string text(utf8_wchar_get_length(wide.data(), static_cast<u32>(wide.size())), '.');
        EXPECT_EQ(utf8_from_wchar_length(text.data(), wide.data(), static_cast<u32>(wide.size())),
                  text.size());
        EXPECT_EQ(text == c.text, c.back) << text;
    }
    // A high surrogate at the very end stands alone.
    const char16_t cut[] = {0xD83D, 0xDE00, 0};
    char out[8];
    EXPECT_EQ(utf8_wchar_get_length(cut, 1), 3u);
    EXPECT_EQ(utf8_from_wchar(out, cut), 4u);
    EXPECT_STREQ(out, "\xF0\x9F\x98\x80");
}

TEST(Utf8, TakesPathsApart) {
    struct {
        string_view text, path, name, extension;
        u32 root;
    } cases[] = {
        {"C:\\a\\b.txt", "C:\\a", "b.txt", "txt", 2},
        {"a/b\\c.d/e", "a/b\\c.d", "e", "", 0},
        {"name", "", "name", "", 0},
        {"", "", "", "", 0},
        {"\\home", "", "home", "", 0},
        {"x:", "", "x:", "", 2},
        {"\\\\server", "\\", "server", "", 8},
        {"\\\\server\\share\\f.TXT", "\\\\server\\share", "f.TXT", "TXT", 14},
        {"\\\\.\\C:\\x", "\\\\.\\C:", "x", "", 6},
        {"ftp://host/a.b/c", "ftp://host/a.b", "c", "", 10},
        {"ftp://host", "ftp:/", "host", "", 10},
        {"news:group/7", "news:group", "7", "", 10},
        {"1:x", "", "1:x", "", 0},
        {".profile", "", ".profile", "profile", 0},
        {"a.", "", "a.", "", 0},
        {"tar.gz.", "", "tar.gz.", "", 0},
    };
    for (const auto &c : cases) {
        const char *path, *name;
        u32 path_length, name_length;
        utf8_get_path_part(c.text.data(), _length(c.text), &path, &path_length, &name, &name_length);
        EXPECT_EQ(string_view(path, path_length), c.path) << c.text;
        EXPECT_EQ(string_view(name, name_length), c.name) << c.text;
        EXPECT_EQ(utf8_get_root_length(c.text.data(), _length(c.text)), c.root) << c.text;
        EXPECT_EQ(string_view(utf8_get_extension(c.text.data(), _length(c.text)),
                              utf8_get_extension_length(c.text.data(), _length(c.text))),
                  c.extension)
            << c.text;
    }
    EXPECT_TRUE(utf8_has_trailing_separator("a/", 2));
    EXPECT_FALSE(utf8_has_trailing_separator("", 0));
    EXPECT_EQ(utf8_count_slashes("C:\\a/b\\", 7), 3u);
}

TEST(Utf8, ReadsNumbers) {
    struct {
        string_view text;
        i64 value;
    } cases[] = {
        {"42", 42},
        {"-42x", -42},
        {"0x1fG", 0x1F},
        {"0XFF", 255},
        {"", 0},
        {"-", 0},
        {"x", 0},
        {" 1", 0},
        {"0x", 0},
        {"+1", 0},
        {"12345678901", 12345678901},
        {"-9223372036854775808", INT64_MIN},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(utf8_to_int64(c.text.data(), _length(c.text)), c.value) << c.text;
        EXPECT_EQ(utf8_to_int(c.text.data(), _length(c.text)), static_cast<i32>(c.value)) << c.text;
    }
    EXPECT_EQ(utf8_to_uint64("18446744073709551615", 20), ~0ull);
    EXPECT_EQ(utf8_to_int64("123", 2), 12); // the length ends the number
    EXPECT_EQ(utf8_hex_value('g'), -1);
    EXPECT_EQ(utf8_hex_value('F'), 15);
    EXPECT_EQ(utf8_escape_value('n'), '\n');
    EXPECT_EQ(utf8_escape_value('"'), '"');
}

TEST(Utf8, WritesAttributeLetters) {
    struct {
        u32 attributes;
        const char *letters;
    } cases[] = {
        {0, ""}, {0x21, "RA"}, {0x10, "D"}, {0xFFFFFFFF, "RHSDAVNTPLCOIE"}, {0x8, ""}, {0x2400, "LI"},
    };
    for (const auto &c : cases) {
        char out[UTF8_ATTRIBUTE_LETTERS_SIZE];
        EXPECT_EQ(utf8_attributes_to_letters(out, c.attributes), std::strlen(c.letters));
        EXPECT_STREQ(out, c.letters);
    }
}

TEST(Utf8, KeepsStringsOnTheHeap) {
    const size_t live = mem_live_count();
    char *text = utf8_replace_string(0, "first value");
    text = utf8_replace_string(text, text + 6); // a part of itself
    EXPECT_STREQ(text, "value");
    char *part = utf8_alloc_copy_length(text, 3);
    EXPECT_STREQ(part, "val");
    mem_free(part);
    mem_free(text);
    EXPECT_EQ(mem_live_count(), live);
}

TEST(Utf8, SkipsTheByteOrderMark) {
    u32 length = 4;
    EXPECT_STREQ(utf8_skip_bom("\xEF\xBB\xBFx", &length), "x");
    EXPECT_EQ(length, 1u);
    length = 2;
    EXPECT_STREQ(utf8_skip_bom("\xEF\xBB", &length), "\xEF\xBB");
}
