#include "base/mem.h"
#include "base/utf8_format.h"

#include <gtest/gtest.h>
#include <string>

using namespace findwright;

// Formats with a count first, as the buffers do, and checks that both passes agree.
static std::string _format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const u32 size = utf8_format(0, format, args);
    std::string text(size + 2, '#');
    EXPECT_EQ(utf8_format(text.data(), format, args), size);
    va_end(args);
    EXPECT_EQ(text[size], 0);
    EXPECT_EQ(text[size + 1], '#');
    return text.substr(0, size);
}

TEST(Utf8Format, Numbers) {
    EXPECT_EQ(_format("%d %d %d", 0, -1, INT32_MIN), "0 -1 -2147483648");
    EXPECT_EQ(_format("%u", 0xFFFFFFFFu), "4294967295");
    EXPECT_EQ(_format("%x %X", 0xBEEFu, 0xBEEFu), "beef BEEF");
    EXPECT_EQ(_format("%I64d %I64u", INT64_MIN, UINT64_MAX), "-9223372036854775808 18446744073709551615");
    EXPECT_EQ(_format("%I64x|%I64X", UINT64_MAX, static_cast<u64>(0xAB)), "ffffffffffffffff|AB");
    EXPECT_EQ(_format("%05d|%5d", -42, -42), "-0042|  -42");
    EXPECT_EQ(_format("%2d|%02u|%016I64x", 12345, 7u, static_cast<u64>(0x1F)), "12345|07|000000000000001f");
    EXPECT_EQ(_format("%f %f %f", 1500000u, 7u, 0xFFFFFFFFu), "1.500000 0.000007 4294.967295");
    EXPECT_EQ(_format("%p %P", reinterpret_cast<void *>(0x1A), reinterpret_cast<void *>(0x1A)),
              "0000001a 0000001A");
    if (sizeof(void *) == 8) {
        EXPECT_EQ(_format("%p", reinterpret_cast<void *>(static_cast<size_t>(0x7F0012345678ull))),
                  "7f0012345678");
    }
}

TEST(Utf8Format, Texts) {
    EXPECT_EQ(_format("<%s><%s>", "caf\xC3\xA9", static_cast<const char *>(0)), "<caf\xC3\xA9><>");
    EXPECT_EQ(_format("<%S><%S>", u"\u00E9\U0001F600", static_cast<const char16_t *>(0)),
              "<\xC3\xA9\xF0\x9F\x98\x80><>");
    EXPECT_EQ(_format("<%t><%t>", "abcdef", 3u, "", 0u), "<abc><>");
    EXPECT_EQ(_format("<%T>%d", u"ab\u00E9", 3u, 5), "<ab\xC3\xA9>5");
    EXPECT_EQ(_format("%c%c", 'x', 0xE9), "x\xE9");
}

TEST(Utf8Format, WhatIsNoConversionIsCopied) {
    EXPECT_EQ(_format(""), "");
    EXPECT_EQ(_format("100%%"), "100%");
    EXPECT_EQ(_format("%q%-d|%Iz"), "q-d|Iz");
    EXPECT_EQ(_format("end %"), "end ");
    EXPECT_EQ(_format("end %08"), "end ");
    EXPECT_EQ(_format("%I6"), "I6");
    // A width out of a damaged language pack asks for no gigabytes.
    EXPECT_LT(_format("%999999999999d", 1).size(), 1000u);
}

TEST(Utf8Format, OnTheHeap) {
    char *text = utf8_alloc_format("%s-%d", "a", 5);
    EXPECT_STREQ(text, "a-5");
    mem_free(text);
}
