// Searches inside files: whatever is cut where, the answer is that of the whole text.
#include "query/file_content.h"

#include "base/utf8_match.h"
#include "base/wchar_buf.h"
#include "os/os_test_support.h"

#include <random>
#include <vector>

namespace findwright {
namespace {

// A search for a plain text, as terms make it.
struct plain_t {
    using find_t = bool(const char *text, u32 length, const char *pattern, u32 pattern_length);

    plain_t(utf8_mode_t mode, bool word, const std::string &text) {
        static find_t *const finds[2][5] = {
            {utf8_find<UTF8_MODE_FOLD>, utf8_find<UTF8_MODE_KEEP_CASE>, utf8_find<UTF8_MODE_LOWER>,
             utf8_find<UTF8_MODE_EXACT>, utf8_find<UTF8_MODE_ASCII>},
            {utf8_find_word<UTF8_MODE_FOLD>, utf8_find_word<UTF8_MODE_KEEP_CASE>,
             utf8_find_word<UTF8_MODE_LOWER>, utf8_find_word<UTF8_MODE_EXACT>,
             utf8_find_word<UTF8_MODE_ASCII>}};
        find = finds[word][mode];
        utf8_buf_t folded;
        utf8_buf_init(&folded);
        utf8_fold_pattern(mode, &folded, text.data(), static_cast<u32>(text.size()));
        pattern.assign(folded.data, static_cast<size_t>(folded.length));
        utf8_buf_kill(&folded);
    }
    bool operator()(const char *text, u32 length) const {
        return find(text, length, pattern.data(), static_cast<u32>(pattern.size()));
    }
    file_content_matcher_t matcher(u32 block) {
        auto match = [](void *param, const char *text, u32 length) {
            return (*static_cast<plain_t *>(param))(text, length);
        };
        return {match, this, file_content_get_span(static_cast<u32>(pattern.size())), nullptr, block};
    }

    find_t *find;
    std::string pattern;
};

// Takes every text for a match and keeps it.
struct whole_t {
    file_content_matcher_t matcher() {
        auto match = [](void *param, const char *bytes, u32 count) {
            auto *whole = static_cast<whole_t *>(param);
            whole->calls++;
            whole->length = count;
            whole->text.assign(bytes, std::min(count, 1000u));
            return true;
        };
        return {match, this, 0, nullptr};
    }
    u32 calls = 0;
    u32 length = 0;
    std::string text;
};

std::string from_utf16(const std::u16string &text) {
    std::string out(text.size() * 3, 0);
    out.resize(utf8_from_wchar_length(out.data(), text.data(), static_cast<u32>(text.size())));
    return out;
}

std::string to_bytes(const std::u16string &text, bool big_endian) {
    std::string bytes;
    for (char16_t unit : text) {
        bytes += static_cast<char>(big_endian ? unit >> 8 : unit);
        bytes += static_cast<char>(big_endian ? unit : unit >> 8);
    }
    return bytes;
}

std::string from_ansi(const std::string &bytes) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    utf8_buf_copy_ansi(&buf, bytes.data(), static_cast<u32>(bytes.size()));
    std::string text(buf.data, static_cast<size_t>(buf.length));
    utf8_buf_kill(&buf);
    return text;
}

TEST(FileContent, TextsOfEncodings) {
    temp_folder_t folder;
    std::string name = folder / "text";
    std::u16string wide = u"a\u00E9\u65E5\U0001F600z";
    const struct {
        const char *what;
        file_content_encoding_t encoding;
        std::string bytes, text;
    } cases[] = {
        {"empty", FILE_CONTENT_AUTO, "", ""},
        {"empty UTF-16", FILE_CONTENT_UTF16, "", ""},
        {"one byte of UTF-16", FILE_CONTENT_UTF16, "a", ""},
        {"bytes as they are", FILE_CONTENT_AUTO, std::string("\xEF\xBB\xBF\0\xC3(\xFF", 7),
         std::string("\xEF\xBB\xBF\0\xC3(\xFF", 7)},
        {"UTF-8", FILE_CONTENT_UTF8, from_utf16(wide), from_utf16(wide)},
        {"little endian", FILE_CONTENT_UTF16, to_bytes(wide, false), from_utf16(wide)},
        {"big endian", FILE_CONTENT_UTF16BE, to_bytes(wide, true), from_utf16(wide)},
        {"odd byte", FILE_CONTENT_UTF16, to_bytes(wide, false) + "x", from_utf16(wide)},
        {"odd byte, big endian", FILE_CONTENT_UTF16BE, to_bytes(wide, true) + "x", from_utf16(wide)},
        {"half a pair at the end", FILE_CONTENT_UTF16, std::string("a\0\x3D\xD8!", 5), "a\xED\xA0\xBD"},
        {"code page", FILE_CONTENT_ANSI, "caf\xC3\xA9 \xE2\x82", from_ansi("caf\xC3\xA9 \xE2\x82")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        write_file(name, c.bytes);
        whole_t whole;
        file_content_matcher_t matcher = whole.matcher();
        for (u32 block : {0, 8, 9, 10}) { // how much is read at once
            matcher.block = block;
            whole = {};
            EXPECT_TRUE(file_content_match(name.c_str(), c.encoding, &matcher));
            EXPECT_EQ(whole.text, c.text) << block;
            EXPECT_EQ(whole.calls, 1u);
        }
    }
}

TEST(FileContent, WhatCannotBeReadDoesNotMatch) {
    temp_folder_t folder;
    whole_t whole;
    file_content_matcher_t matcher = whole.matcher();
    for (u32 span : {0u, 10u}) {
        matcher.span = span;
        for (const std::string &name :
             {folder.name, folder / "missing", folder / "missing\\x", std::string()})
            EXPECT_FALSE(file_content_match(name.c_str(), FILE_CONTENT_AUTO, &matcher)) << name;
    }
    EXPECT_EQ(whole.calls, 0u);
}

// The answer for a file is that for its whole text, with blocks of all these sizes.
void expect_same(const std::string &name, file_content_encoding_t encoding, const std::string &text,
                 plain_t plain, u32 first_block, u32 last_block) {
    bool expected = plain(text.data(), static_cast<u32>(text.size()));
    for (u32 block = first_block; block <= last_block; block++) {
        file_content_matcher_t matcher = plain.matcher(block);
        EXPECT_EQ(file_content_match(name.c_str(), encoding, &matcher), expected)
            << testing::PrintToString(text) << " for " << testing::PrintToString(plain.pattern) << " by "
            << block;
    }
}

TEST(FileContent, BordersOfBlocks) {
    temp_folder_t folder;
    std::string name = folder / "text";
    const struct {
        const char *pattern;
        utf8_mode_t mode;
        bool word;
        const char *filler; // on both sides of the text, many times
        const char *text;
    } cases[] = {
        {"needle", UTF8_MODE_EXACT, false, "x", "needle"},
        {"needle", UTF8_MODE_EXACT, true, "x", "needle"}, // no word
        {"needle", UTF8_MODE_EXACT, true, "x", " needle"},
        {"needle", UTF8_MODE_EXACT, true, "x", " needle\n"},
        {"needle", UTF8_MODE_ASCII, true, "needle", "Needle"},
        {"needle", UTF8_MODE_ASCII, true, "needle", "-needle"},
        {"needle", UTF8_MODE_ASCII, true, "needle", "-Needle-"},
        {"aa", UTF8_MODE_ASCII, true, "a", ""},
        {"-a", UTF8_MODE_ASCII, true, "a", "-a"},
        {"-a", UTF8_MODE_ASCII, true, "a", "-a-"},
        // The bytes that stand in for the rest of the text are no part of it.
        {"0a", UTF8_MODE_EXACT, false, "a", ""},
        {"_a", UTF8_MODE_EXACT, false, "a", ""},
        {"a_", UTF8_MODE_EXACT, false, "a", ""},
        {"0a0", UTF8_MODE_EXACT, false, "a", ""},
        {"_a0", UTF8_MODE_FOLD, false, "a", ""},
        {" -\n", UTF8_MODE_LOWER, false, "-", ""},
        {" -", UTF8_MODE_LOWER, true, "-", ""},
        {"\n-", UTF8_MODE_LOWER, true, "-", "\n"},
        // Characters cut in two: none is found in the pieces, or with a byte that does not belong to it.
        {"\xC3\xA9t\xC3\xA9", UTF8_MODE_FOLD, false, "\xC3\xA8", "ETE"},
        {"\xC3\xA9t\xC3\xA9", UTF8_MODE_LOWER, true, "\xC3\xA8", ".\xC3\x89T\xC3\x89."},
        {"\xC3\xB0", UTF8_MODE_LOWER, false, "\xC3\x9F", ""},
        {"\xC3\x9F", UTF8_MODE_LOWER, false, "\xC3\xB0", ""},
        {"\xE6\x97\xA5", UTF8_MODE_EXACT, true, "\xE6\x97\xA6", ".\xE6\x97\xA5."},
        {"\xE6", UTF8_MODE_FOLD, false, "\xE6\x97\xA5", ""}, // begins no character of the text
        {"\xFF", UTF8_MODE_LOWER, false, "\xF0\x9F\x98\x80", ""},
        {"\xF0\x9F\x98\x80", UTF8_MODE_LOWER, false, "\xF0\x9F\x98\x81", "\xF0\x9F\x98\x80"},
        {"", UTF8_MODE_EXACT, true, "x", ""},
    };
    for (const auto &c : cases) {
        plain_t plain(c.mode, c.word, c.pattern);
        for (u32 before : {0, 1, 5, 50, 51}) {
            for (u32 after : {0, 1, 50}) {
                std::string text;
                for (u32 i = 0; i < before; i++)
                    text += c.filler;
                text += c.text;
                for (u32 i = 0; i < after; i++)
                    text += c.filler;
                write_file(name, text);
                expect_same(name, FILE_CONTENT_UTF8, text, plain, 8, 20);
            }
        }
    }
}

class RandomTexts : public testing::Test {
  protected:
    u32 pick(u32 count) { return static_cast<u32>(random() % count); }
    template<class T>
    T make(const std::vector<T> &pieces, u32 count) {
        T text;
        for (u32 i = 0; i < count; i++)
            text += pieces[pick(static_cast<u32>(pieces.size()))];
        return text;
    }
    // Part of the text, or of another one like it.
    std::string make_pattern(const std::string &text, const std::string &other) {
        const std::string &from = !text.empty() && pick(2) ? text : other;
        size_t length = 1 + pick(6), start = from.empty() ? 0 : pick(static_cast<u32>(from.size()));
        return from.substr(start, length);
    }
    void expect(file_content_encoding_t encoding, const std::string &bytes, const std::string &text,
                const std::string &other) {
        write_file(folder / "text", bytes);
        for (u32 i = 0; i < 6; i++) {
            auto mode = static_cast<utf8_mode_t>(pick(5));
            plain_t plain(mode, pick(3) != 0, make_pattern(text, other));
            u32 block = 8 + pick(20);
            expect_same(folder / "text", encoding, text, plain, block, block);
        }
    }

    std::mt19937 random{20261};
    temp_folder_t folder;
};

TEST_F(RandomTexts, Bytes) {
    const std::vector<std::string> pieces = {"a",
                                             "b",
                                             "A",
                                             "0",
                                             "_",
                                             " ",
                                             "\n",
                                             "-",
                                             "\xC3\xA9",
                                             "\xC3\x89",
                                             "\xE6\x97\xA5",
                                             "\xEF\xBC\x81",
                                             "\xC3\x9F",
                                             "\xF0\x9F\x98\x80"};
    std::vector<std::string> broken = pieces;
    for (const char *byte : {"\xC3", "\xA9", "\xE6", "\xF0", "\xFF", "\xC0"})
        broken.push_back(byte);
    broken.push_back(std::string(1, 0));
    for (u32 i = 0; i < 800; i++) {
        const auto &from = i % 3 == 0 ? broken : pieces;
        // Few different characters in a row are what matches are made of.
        std::vector<std::string> few = {make(from, 1), make(from, 1), make(from, 1), make(pieces, 1)};
        std::string text = make(few, pick(80));
        expect(FILE_CONTENT_UTF8, text, text, make(few, 8));
    }
}

TEST_F(RandomTexts, OtherEncodings) {
    const std::vector<std::u16string> pieces = {u"a",
                                                u"B",
                                                u" ",
                                                u"_",
                                                u"\u00E9",
                                                u"\u65E5",
                                                u"\uFF01",
                                                u"\U0001F600",
                                                std::u16string(1, 0xD83D),
                                                std::u16string(1, 0xDE00)};
    for (u32 i = 0; i < 200; i++) {
        std::vector<std::u16string> few = {make(pieces, 1), make(pieces, 1), make(pieces, 1)};
        std::u16string wide = make(few, pick(80));
        std::string text = from_utf16(wide), other = from_utf16(make(few, 8));
        std::string odd = i % 2 ? "x" : "";
        expect(FILE_CONTENT_UTF16, to_bytes(wide, false) + odd, text, other);
        expect(FILE_CONTENT_UTF16BE, to_bytes(wide, true) + odd, text, other);
        std::string ansi = text + odd;
        if (pick(2) && !ansi.empty())
            ansi.erase(pick(static_cast<u32>(ansi.size())), 1);
        expect(FILE_CONTENT_ANSI, ansi, from_ansi(ansi), other);
    }
}

// Pieces as they are read for real: the text lies across borders of reads and blocks.
TEST(FileContent, UsualBlocks) {
    temp_folder_t folder;
    std::string name = folder / "text";
    std::string filler;
    for (u32 i = 0; filler.size() < 600000; i++)
        filler += "word" + std::to_string(i) + (i % 7 ? " " : "\xE2\x82\xAC\n");
    plain_t plain(UTF8_MODE_FOLD, true, "t\xC3\xAAte");
    for (u32 border : {65536u, 262144u, 524288u}) {
        for (u32 place = border - 40; place < border + 80; place += 5) {
            std::string text = filler;
            text.replace(place, 6, "-T\xC3\x8ATE");
            write_file(name, text);
            file_content_matcher_t matcher = plain.matcher(0);
            bool expected = plain(text.data(), static_cast<u32>(text.size()));
            EXPECT_EQ(file_content_match(name.c_str(), FILE_CONTENT_AUTO, &matcher), expected) << place;
        }
    }
}

void make_sparse(const temp_folder_t &folder, u64 size) {
    write_file(folder / "large", "");
    std::filesystem::resize_file(folder.path / "large", size);
}

TEST(FileContent, WholeTextsHaveALimit) {
    temp_folder_t folder;
    const struct {
        file_content_encoding_t encoding;
        u64 size;
        u32 length; // that is tested
    } cases[] = {
        {FILE_CONTENT_UTF8, FILE_CONTENT_WHOLE_MAX, FILE_CONTENT_WHOLE_MAX},
        {FILE_CONTENT_AUTO, FILE_CONTENT_WHOLE_MAX + 1, 0},
        {FILE_CONTENT_UTF16, 2 * u64{FILE_CONTENT_WHOLE_MAX} + 2, 0},
        {FILE_CONTENT_UTF8, u64{1} << 32, 0},
    };
    for (const auto &c : cases) {
        make_sparse(folder, c.size);
        whole_t whole;
        file_content_matcher_t matcher = whole.matcher();
        EXPECT_EQ(file_content_match((folder / "large").c_str(), c.encoding, &matcher), c.length != 0);
        EXPECT_EQ(whole.length, c.length);
    }
}

TEST(FileContent, CancelInsideALargeFile) {
    temp_folder_t folder;
    make_sparse(folder, u64{2} << 30);
    struct state_t {
        std::atomic<u32> cancel{0};
        u32 calls = 0;
    } state;
    auto match = [](void *param, const char *, u32 length) {
        auto *at = static_cast<state_t *>(param);
        EXPECT_LE(length, 1u << 20);
        if (++at->calls == 3)
            at->cancel = 1;
        return false;
    };
    file_content_matcher_t matcher = {match, &state, 20, &state.cancel};
    EXPECT_FALSE(file_content_match((folder / "large").c_str(), FILE_CONTENT_AUTO, &matcher));
    EXPECT_EQ(state.calls, 3u);
    EXPECT_FALSE(file_content_match((folder / "large").c_str(), FILE_CONTENT_UTF16, &matcher));
    EXPECT_EQ(state.calls, 3u);
}

} // namespace
} // namespace findwright
