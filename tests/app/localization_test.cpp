#include "app/localization.h"

#include "base/bz2.h"
#include "base/mem.h"
#include "base/utf8_buf.h"
#include "base/utf8_format.h"
#include "os/os_test_support.h"
#include "support/language_pack.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

constexpr u32 GERMAN = 0x0407, AUSTRIAN = 0x0C07, ENGLISH = 0x0409, HEBREW = 0x040D, FRENCH = 0x040C;

const test_language_t german = {GERMAN, "Deutsch", 0, 3, {"Byte", "", "Megabyte"}};
const test_language_t hebrew = {HEBREW, "\xD7\xA2", 1, 1, {"\xD7\x91"}};

class localization : public testing::Test {
  protected:
    void TearDown() override {
        localization_shutdown();
        EXPECT_STREQ(utf8_size_units[0], "Bytes");
        EXPECT_EQ(mem_live_count(), live_count);
        EXPECT_EQ(memory_file.open_count, 0u);
    }
    static void load(const std::string &pack, u32 language, u32 system_language) {
        memory_file.bytes = pack;
        localization_load_file("pack", language, system_language);
    }
    static std::string text(u32 number) { return localization_strings[number]; }
    static bool is_english() {
        return localization_strings == localization_english.strings && localization_current == -1 &&
               !localization_is_rtl;
    }

    size_t live_count = mem_live_count();
    memory_file_scope_t scope;
};

TEST_F(localization, texts_come_from_the_pack_or_stay_english) {
    load(test_pack_make({german, hebrew}), 0, GERMAN);
    EXPECT_EQ(localization_current, 0);
    EXPECT_FALSE(localization_is_rtl);
    ASSERT_EQ(localization_language_count, 2u);
    EXPECT_STREQ(localization_languages[1].name, "\xD7\xA2");
    EXPECT_EQ(localization_languages[1].lid, HEBREW);
    EXPECT_EQ(text(LOCALIZATION_SIZE_BYTES), "Byte");
    EXPECT_EQ(text(LOCALIZATION_SIZE_KB), "KB");
    EXPECT_EQ(text(LOCALIZATION_SIZE_MB), "Megabyte");
    EXPECT_EQ(text(LOCALIZATION_SIZE_PB), "PB");
    utf8_buf_t size;
    utf8_buf_init(&size);
    utf8_buf_format_size(&size, UTF8_SIZE_AUTO, 3);
    EXPECT_STREQ(size.data, "3 Byte");
    utf8_buf_kill(&size);

    load(memory_file.bytes, HEBREW, GERMAN); // in place of the first one
    EXPECT_EQ(localization_current, 1);
    EXPECT_TRUE(localization_is_rtl);
    EXPECT_EQ(text(LOCALIZATION_SIZE_MB), "MB");
}

TEST_F(localization, choice_of_language) {
    const test_language_t primary = {GERMAN & 0xFF, "primary", 0, 0, {}};
    const test_language_t english = {ENGLISH, "English", 0, 0, {}};
    const struct {
        std::vector<test_language_t> pack;
        u32 language, system;
        i32 current;
    } cases[] = {
        {{german, hebrew}, 0, GERMAN, 0},        {{german, hebrew}, HEBREW, GERMAN, 1},
        {{german, hebrew}, FRENCH, GERMAN, 0}, // the pack lacks what was chosen
        {{german, hebrew}, 0, AUSTRIAN, -1},     {{german, primary}, 0, AUSTRIAN, 1},
        {{primary, german}, 0, GERMAN, 1}, // the exact one wins
        {{german, hebrew}, 0, FRENCH, -1},       {{german, hebrew}, ENGLISH, GERMAN, -1},
        {{german, english}, ENGLISH, GERMAN, 1}, {{}, 0, GERMAN, -1},
    };
    for (const auto &row : cases) {
        load(test_pack_make(row.pack), row.language, row.system);
        EXPECT_EQ(localization_current, row.current) << row.language << " on " << row.system;
        EXPECT_EQ(is_english(), row.current < 0);
        EXPECT_EQ(localization_language_count, row.pack.size());
    }
}

TEST_F(localization, number_of_texts) {
    test_language_t many = german;
    many.strings.assign(LOCALIZATION_STRING_COUNT + 5, "x");
    many.count = LOCALIZATION_STRING_COUNT + 5;
    load(test_pack_make({many}), 0, GERMAN);
    EXPECT_EQ(localization_current, 0);
    EXPECT_EQ(text(LOCALIZATION_STRING_COUNT - 1), "x");

    // Fewer than it says: what came stays, but the language is not in use.
    test_language_t fewer = hebrew;
    fewer.count = 9;
    log_capture_t log;
    load(test_pack_make({fewer}), 0, HEBREW);
    EXPECT_EQ(text(0), "\xD7\x91");
    EXPECT_EQ(localization_current, -1);
    EXPECT_FALSE(localization_is_rtl);
    EXPECT_NE(log.take().find("language pack pack ends early: the rest stays English\n"), std::string::npos);
}

TEST_F(localization, a_text_with_other_arguments_stays_english) {
    const struct {
        const char *translated;
        bool fits;
    } cases[] = {{"Lese %s, (%s) 100%%", true}, {"%s", false},     {"%s %s %s", false},  {"%s %d", false},
                 {"%s %012345s", true},         {"%s %s %", true}, {"%s %I64s %s", true}};
    for (const auto &row : cases) {
        test_language_t language = german;
        language.strings.assign(LOCALIZATION_SCANNING_VOLUME, "");
        language.strings.push_back(row.translated);
        language.count = static_cast<u32>(language.strings.size());
        load(test_pack_make({language}), 0, GERMAN);
        EXPECT_EQ(text(LOCALIZATION_SCANNING_VOLUME), row.fits ? row.translated : "Scanning %s (%s)");
        char *formatted = utf8_alloc_format(localization_get(LOCALIZATION_SCANNING_VOLUME), "a", "b");
        mem_free(formatted);
    }
}

TEST_F(localization, log_lines) {
    const std::string good = test_pack_make({german});
    const u32 header_size = static_cast<u8>(good[0]);
    std::string version_2 = good, bad_header = good, bad_block = good;
    version_2[4] = 2;
    bad_header[8 + header_size / 2] ^= 1;
    bad_block[good.size() - 12] ^= 1;
    const std::string start =
        "lng file opened!\nheader size " + std::to_string(header_size) + "\nversion 1\n";
    const std::string header = "got header\nsystem default lid 0407\ncount 1\n";
    const struct {
        std::string pack, expected;
    } cases[] = {
        {good, start},
        {good, header},
        {version_2, "language pack pack has an unknown version: using English\n"},
        {good.substr(0, 5), "language pack pack is damaged: too short; using English\n"},
        {bad_header, "language pack pack is damaged: bad header; using English\n"},
        {bad_block, "language pack pack is damaged: bad texts of Deutsch; using English\n"},
    };
    log_capture_t log;
    for (const auto &row : cases) {
        load(row.pack, 0, GERMAN);
        const std::string lines = log.take();
        EXPECT_NE(lines.find(row.expected), std::string::npos) << lines;
        EXPECT_EQ(is_english(), row.pack != good);
    }
    memory_file.exists = false;
    localization_load_file("pack", 0, GERMAN);
    EXPECT_EQ(log.take(), "");
    EXPECT_TRUE(is_english());
}

TEST_F(localization, sizes_that_cannot_be) {
    std::string many_languages, long_text;
    test_pack_put(&many_languages, 0xFFFFFFFF, 4);
    many_languages.append(20000000, 0);
    test_pack_put(&long_text, 0, 4);
    test_pack_put(&long_text, 1, 4);
    test_pack_put(&long_text, 0xFFFFFFFF, 4);
    std::string pack;
    const std::string header = test_pack_compress(many_languages);
    test_pack_put(&pack, static_cast<u32>(header.size()), 4);
    test_pack_put(&pack, 1, 4);
    load(pack + header, 0, GERMAN);
    EXPECT_TRUE(is_english());
    EXPECT_EQ(localization_language_count, 0u);

    load(test_pack_join({german}, {test_pack_compress(long_text)}), 0, GERMAN);
    EXPECT_EQ(localization_current, -1);
    EXPECT_EQ(text(0), "Bytes");
}

// A pack is German as a whole or English as a whole, whatever byte of it is missing or wrong.
TEST_F(localization, each_byte_missing_or_wrong) {
    const std::string good = test_pack_make({german});
    u32 loaded = 0;
    const auto check = [&](const std::string &pack, const char *what, size_t at) {
        load(pack, 0, GERMAN);
        const bool is_german = localization_current == 0 && text(0) == "Byte" && text(2) == "Megabyte";
        EXPECT_TRUE(is_german || is_english()) << what << at;
        EXPECT_LE(localization_language_count, 1u);
        loaded += is_german;
    };
    for (size_t size = 0; size < good.size(); size++)
        check(good.substr(0, size), "cut at ", size);
    EXPECT_EQ(loaded, 0u);
    for (size_t i = 0; i < good.size(); i++) {
        for (u32 flip : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
            std::string pack = good;
            pack[i] = static_cast<char>(pack[i] ^ flip);
            check(pack, "wrong at ", i);
        }
    }
    EXPECT_LT(loaded, good.size()); // what bytes do not matter are few
}

TEST(localization_pack, german_as_it_ships) {
    log_capture_t log;
    localization_load_file(FINDWRIGHT_TEST_DATA "/../../data/lang/Findwright.lng", 0, GERMAN);
    EXPECT_EQ(log.take().find("conversions"), std::string::npos);
    ASSERT_EQ(localization_current, 0);
    EXPECT_STREQ(localization_languages[0].name, "Deutsch");
    EXPECT_STREQ(localization_get(LOCALIZATION_SCANNING_VOLUME), "%s (%s) wird eingelesen");
    localization_shutdown();
}

} // namespace
} // namespace findwright
