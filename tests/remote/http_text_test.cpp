// Escapes: what they write of hostile names, and that nothing is lost of what has to come back.
#include "remote/http_text.h"

#include "os/os.h"
#include "support/http_check.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

using namespace std::string_literals;

template<typename T>
std::string cat(T *proc, const std::string &text) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    proc(&out, text.data(), static_cast<u32>(text.size()));
    std::string result(out.data, static_cast<size_t>(out.length));
    utf8_buf_kill(&out);
    return result;
}

std::string item_url(const std::string &path, bool ascii = false) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    http_cat_item_url(&out, path.data(), static_cast<u32>(path.size()), ascii);
    std::string result(out.data, static_cast<size_t>(out.length));
    utf8_buf_kill(&out);
    return result;
}

std::string decoded(const std::string &text, bool plus_is_blank) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    http_cat_url_decoded(&out, text.data(), static_cast<u32>(text.size()), plus_is_blank);
    std::string result(out.data, static_cast<size_t>(out.length));
    utf8_buf_kill(&out);
    return result;
}

TEST(HttpText, Html) {
    const std::pair<std::string, std::string> cases[] = {
        {"<script>alert(1)</script>.txt", "&lt;script&gt;alert(1)&lt;/script&gt;.txt"},
        {"\"a\" & 'b'", "&quot;a&quot; &amp; 'b'"},
        {"a\0b"s, "a\xEF\xBF\xBD"
                  "b"},
        {"gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80", "gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80"},
        {"\xC3", "\xEF\xBF\xBD"},
        {"\xC3<b>", "\xEF\xBF\xBD&lt;b&gt;"},
        {"\xC0\xBC\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto &[text, html] : cases)
        EXPECT_EQ(html, cat(http_cat_html, text));
}

TEST(HttpText, Json) {
    const std::pair<std::string, std::string> cases[] = {
        {"C:\\a \"b\"", "C:\\\\a \\\"b\\\""},
        {"</script>&", "\\u003C/script\\u003E\\u0026"},
        {"\x01\n\x1F\x7F"s, "\\u0001\\u000A\\u001F\\u007F"},
        {"a\0b"s, "a\\u0000b"},
        {"\xE2\x80\xA7\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xAA", "\xE2\x80\xA7\\u2028\\u2029\xE2\x80\xAA"},
        {"\xF8\xFF\xE2\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto &[text, json] : cases)
        EXPECT_EQ(json, cat(http_cat_json, text));
}

// Every sequence of up to three bytes of the kinds that matter, beside the table of well-formed ones.
TEST(HttpText, CharactersAreThoseOfTheTable) {
    static const u8 bytes[] = {0x00, 'a',  0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF,
                               0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFF};
    for (u8 a : bytes) {
        for (u8 b : bytes) {
            for (u8 c : bytes) {
                for (u32 length = 1; length <= 4; length++) {
                    const char text[] = {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c),
                                         '\x80'};
                    ASSERT_EQ(http_check_char({text, length}), http_utf8_char_length(text, text + length))
                        << static_cast<u32>(a) << " " << static_cast<u32>(b) << " " << static_cast<u32>(c);
                }
            }
        }
    }
}

TEST(HttpText, Url) {
    EXPECT_EQ("Az09!'()*-._~%20%2B%2F%3F%23%25%26%3D%22%3C%3E%3A%5C%0A%7F",
              cat(http_cat_url, "Az09!'()*-._~ +/?#%&=\"<>:\\\n\x7F"));
    EXPECT_EQ("a+b%2Bc%26", cat(http_cat_url_search, "a b+c&"));
    EXPECT_EQ("\xC3\xBC%C3", cat(http_cat_url, "\xC3\xBC\xC3"));
    EXPECT_EQ("home/u/a%20b", cat(http_cat_url_path, "\\home\\u\\a b"));
    EXPECT_EQ("%C3%BC/%F0%9F%98%80", cat(http_cat_url_path_ascii, "\xC3\xBC\\\xF0\x9F\x98\x80"));
    EXPECT_EQ("", cat(http_cat_url_path, ""));
    EXPECT_EQ("%2F", cat(http_cat_url_path, "\\"));
}

TEST(HttpText, Items) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "/"},
        {"C:", "/C%3A"},
        {"\\home\\u", "/home/u"},
        {"\\\\server\\share\\a", "/server/share/a"},
        {"//evil.example/x", "/evil.example/x"}, // never another server's
        {"\\/\\/evil.example", "/evil.example"},
        {"http://h:81/a b?c#d", "http://h:81/a%20b%3Fc%23d"},
        {"HTTPS://h\\a\\\"><b>", "HTTPS://h/a/%22%3E%3Cb%3E"},
        {"ftp://u@[::1]", "ftp://u@[::1]"},
        {"file:///a", "file:///a"},
        {"http://\" onclick=x/", "http://%22%20onclick%3Dx/"},
        {"javascript://%0aalert(1)", ""},
        {"data://x", ""},
        {"https+x://h/", ""},
        {"javascript:alert(1)", "/javascript%3Aalert(1)"},
        {" http://h/", "/%20http%3A//h/"},
        {"C://a", "/C%3A//a"},
    };
    for (const auto &[path, url] : cases) {
        EXPECT_EQ(url, item_url(path));
        EXPECT_TRUE(url.empty() || http_check_is_address(url)) << url;
        EXPECT_EQ(url.empty() || url[0] != '/',
                  http_path_has_scheme(path.data(), static_cast<u32>(path.size())));
    }
    EXPECT_EQ("http://%C3%BC/%C3%BC", item_url("http://\xC3\xBC/\xC3\xBC", true));
}

TEST(HttpText, Decoded) {
    EXPECT_EQ("a b+c/", decoded("a%20b+c%2f", false));
    EXPECT_EQ("a b c+", decoded("a%20b+c%2B", true));
    EXPECT_EQ("100%", decoded("100%", true));
    EXPECT_EQ("\x40|\x04|\0|\0"s, decoded("%4z|%z4|%zz|%%%", true));
    EXPECT_EQ("\x40", decoded("%4", true));
    std::string all;
    for (int i = 0; i < 256; i++)
        all += static_cast<char>(i);
    EXPECT_EQ(all, decoded(cat(http_cat_url, all), false));
    EXPECT_EQ(all, decoded(cat(http_cat_url_search, all), true));
}

TEST(HttpText, Dates) {
    const auto date = [](u64 time) {
        utf8_buf_t out;
        utf8_buf_init(&out);
        http_cat_date(&out, time);
        std::string text = out.data;
        utf8_buf_kill(&out);
        return text;
    };
    constexpr u64 SECOND = 10000000, DAY = 86400 * SECOND, EPOCH_1970 = 11644473600 * SECOND;
    EXPECT_EQ("Mon, 01 Jan 1601 00:00:00 GMT", date(0));
    EXPECT_EQ("Thu, 01 Jan 1970 00:00:00 GMT", date(EPOCH_1970));
    EXPECT_EQ("Sun, 06 Nov 1994 08:49:37 GMT", date(EPOCH_1970 + 784111777 * SECOND));
    EXPECT_EQ("Tue, 29 Feb 2000 23:59:59 GMT", date(EPOCH_1970 + 951868799 * SECOND + SECOND - 1));
    EXPECT_EQ("Sun, 31 Dec 2400 00:00:00 GMT", date(EPOCH_1970 + 157419 * DAY));
    EXPECT_EQ("Mon, 01 Mar 2100 00:00:00 GMT", date(EPOCH_1970 + 47541 * DAY));
    EXPECT_EQ("", date(VALUE_UNKNOWN));
}

} // namespace
} // namespace findwright
