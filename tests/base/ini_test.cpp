#include "base/ini.h"

#include <gtest/gtest.h>
#include <string>

namespace findwright {
namespace {

ini_t *open(const std::string &text, const char *section) {
    return ini_open(text.data(), static_cast<u32>(text.size()), section);
}

TEST(ini, values) {
    const std::string text = "zero=outside\r\n"
                             "[Findwright]\r\n"
                             "; comment=1\r\n"
                             "#comment=2\r\n"
                             "Width=100\r\n"
                             "equal=a=b=\n"
                             "blanks =  x \t\r\n"
                             "\r\n"
                             "no value\r\n"
                             "empty=\r\n"
                             "=no key\r\n"
                             "width=200\r\n"
                             "\xC3\x84\xC8\xBA=folded\r\n"
                             "[Other]\r\n"
                             "other=1\r\n"
                             "[Findwright] \r\n"
                             "not_closed=1\r\n"
                             "[FINDWRIGHT]\n"
                             "last=end";
    struct {
        const char *key;
        const char *value;
    } const rows[] = {
        {"width", "100"}, {"WIDTH", "100"},    {"equal", "a=b="}, {"blanks ", "  x \t"},
        {"blanks", "?"},  {"empty", ""},       {"", "no key"},    {"\xC3\xA4\xE2\xB1\xA5", "folded"},
        {"last", "end"},  {"no value", "?"},   {"other", "?"},    {"zero", "?"},
        {"a", "?"},       {"not_closed", "?"}, {"zzz", "?"},      {"; comment", "?"},
    };
    ini_t *ini = open(text, "findWright");
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(ini->count, 8u);
    for (const auto &row : rows)
        EXPECT_STREQ(ini_get(ini, row.key, "?"), row.value) << row.key;
    ini_close(ini);
}

TEST(ini, nothing_in_the_section) {
    for (const char *text :
         {"", "a=1", "[x]\na=1", "[s]\n;a=1\nb", "[s]\n[x]\na=1", "[s\na=1", "[", "[]\na=1", "[ss]\na=1"})
        EXPECT_EQ(open(text, "s"), nullptr) << text;
}

TEST(ini, odd_bytes) {
    using namespace std::string_literals;
    struct {
        std::string text;
        const char *key;
        const char *value;
    } const rows[] = {
        {"[s]\na\0b=1\0002\n"s, "a", "1"},   {"[s]\n\0=1\n"s, "", "1"},
        {"[s]\r\na=1\r"s, "a", "1\r"},       {"\xEF\xBB\xBF[s]\na=1"s, "a", "1"},
        {"[s]\n\xFF=\xFE"s, "\xFF", "\xFE"}, {"[]\n[s]\n[x\na=0\n[s]\na=1"s, "a", "1"},
    };
    for (const auto &row : rows) {
        // A heap copy of its exact size, so that a sanitizer sees a step beyond it.
        ini_t *ini = open(std::string(row.text), "s");
        ASSERT_NE(ini, nullptr) << row.text;
        EXPECT_STREQ(ini_get(ini, row.key, nullptr), row.value) << row.text;
        ini_close(ini);
    }
}

TEST(ini, many_keys) {
    std::string text = "[s]\n";
    for (int i = 0; i < 2000; i++) {
        const int key = i * 7919 % 1000;
        text += "Key" + std::to_string(key) + "=" + std::to_string(i) + "\n";
    }
    ini_t *ini = open(text, "S");
    ASSERT_NE(ini, nullptr);
    for (int i = 0; i < 1000; i++)
        EXPECT_EQ(ini_get(ini, ("key" + std::to_string(i * 7919 % 1000)).c_str(), ""), std::to_string(i));
    ini_close(ini);
}

} // namespace
} // namespace findwright
