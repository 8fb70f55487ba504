// Heads of requests: their lines, their addresses, their logins and ranges.
#include "remote/http_request.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

using namespace std::string_literals;

struct request_t : http_request_t {
    bool is_complete = false;
    request_t(const std::vector<std::string> &lines, http_login_t login = {"", ""}) {
        http_request_init(this);
        for (const std::string &line : lines)
            is_complete |= http_request_parse_line(this, line.data(), static_cast<u32>(line.size()), &login);
    }
    ~request_t() { http_request_kill(this); }
    bool is_of(u64 file_time) const { return http_request_has_range_of(this, file_time); }
    std::string get_url() const { return url ? url : "(none)"; }
    std::string get_host() const { return host ? host : "(none)"; }
};

struct query_t : http_query_t {
    query_t(const std::string &text) {
        http_query_init(this, 32);
        http_query_parse(this, text.data(), static_cast<u32>(text.size()));
    }
    ~query_t() { http_query_kill(this); }
    std::string get_search() const { return search ? search : "(none)"; }
};

TEST(HttpRequest, Lines) {
    const struct {
        std::vector<std::string> lines;
        const char *url, *host;
        bool is_complete;
    } cases[] = {
        {{"GET /a HTTP/1.1\r", "Host: h:1\r", "\r"}, "/a", "h:1", true},
        {{"get    /a\r", "hOsT:\t h \t\r", "Accept: x"}, "/a", "h", false},
        {{"GET /a", "Host:h"}, "/a", "h", false},
        {{"GET /a", "GET /b", "X-Host: h", "Host : h"}, "/a", "(none)", false},
        {{"POST /a HTTP/1.0", ""}, "(none)", "(none)", true},
        {{"GET", ""}, "", "(none)", true},
        {{"GET http://h/ HTTP/1.1"}, "http://h/", "(none)", false},
        {{"GET /a\0b"s, "GETTER /c", "GET: /d", " GET /e", "GET /f\r\r"}, "/f\r", "(none)", false},
        {{"\r\r", " ", "\0"s}, "(none)", "(none)", false},
    };
    for (const auto &c : cases) {
        const request_t request(c.lines);
        EXPECT_EQ(c.url, request.get_url());
        EXPECT_EQ(c.host, request.get_host());
        EXPECT_EQ(c.is_complete, request.is_complete) << c.lines[0];
        EXPECT_FALSE(request.has_second_host);
    }
    const request_t twice({"Host: own", "Host:other"});
    EXPECT_EQ("own", twice.get_host());
    EXPECT_TRUE(twice.has_second_host);
}

TEST(HttpRequest, Ranges) {
    constexpr u64 MAX = ~static_cast<u64>(0);
    const struct {
        const char *line;
        bool has_range;
        u64 start, size;
    } cases[] = {
        {"Range: bytes=10-19", true, 10, 10},
        {"range:bytes=0-0 \r", true, 0, 1},
        {"Range: bytes=10-", true, 10, 0},
        {"Range: Bytes=0-", true, 0, 0},
        {"Range: bytes=7", true, 7, 0},
        {"Range: bytes=0-99999999999999999999999", true, 0, 0},
        {"Range: bytes=1-18446744073709551615", true, 1, MAX},
        {"Range: bytes=18446744073709551616-", true, MAX, 0},
        {"Range: bytes=-5", false, 0, 0},
        {"Range: bytes=9-8", false, 0, 0},
        {"Range: bytes=0-1,3-4", false, 0, 0},
        {"Range: bytes=0-1x", false, 0, 0},
        {"Range: bytes=0x10-", false, 0, 0},
        {"Range: bytes=", false, 0, 0},
        {"Range: items=0-1", false, 0, 0},
        {"Range:", false, 0, 0},
    };
    for (const auto &c : cases) {
        const request_t request({c.line});
        EXPECT_EQ(c.has_range, request.has_range) << c.line;
        if (c.has_range) {
            EXPECT_EQ(c.start, request.range_start) << c.line;
            EXPECT_EQ(c.size, request.range_size) << c.line;
        }
    }
}

// A download that is taken up again gets its rest only of the same file.
TEST(HttpRequest, RangesOfTheSameFile) {
    constexpr u64 SECOND = 10000000;
    const std::string range = "Range: bytes=1-", date = "If-Range: Mon, 01 Jan 1601 00:00:07 GMT \r";
    EXPECT_TRUE(request_t({date, range}).is_of(7 * SECOND + 1));
    EXPECT_FALSE(request_t({date, range}).is_of(8 * SECOND));
    EXPECT_FALSE(request_t({date, range}).is_of(VALUE_UNKNOWN));
    EXPECT_FALSE(request_t({range, "If-Range: \"a tag\"", date, "If-Range:"}).is_of(VALUE_UNKNOWN));
    EXPECT_TRUE(request_t({range}).is_of(7 * SECOND));
    EXPECT_FALSE(request_t({date}).is_of(7 * SECOND));
}

TEST(HttpRequest, Logins) {
    const http_login_t both = {"user", "pass:word"}, name = {"user", ""}, word = {"", "secret"};
    const struct {
        http_login_t login;
        const char *value;
        bool is_right;
    } cases[] = {
        {both, "Basic dXNlcjpwYXNzOndvcmQ=", true}, // user:pass:word
        {both, "basic   dXNlcjpwYXNzOndvcmQ= ", true},
        {both, "Basic dXNlcjpwYXNzOndvcmQ", true},      // its padding lost
        {both, "Basic dXNlcjpwYXNzOndvcmR4", false},    // user:pass:wordx
        {both, "Basic dXNlcjpwYXNzOndvcg==", false},    // user:pass:wor
        {both, "Basic dXNlcjp4YXNzOndvcmQ=", false},    // user:xass:word
        {both, "Basic VXNlcjpwYXNzOndvcmQ=", false},    // User:pass:word
        {both, "Basic dXNlcnBhc3Nzd29yZA==", false},    // no colon
        {both, "Basic dXNlcjo=", false},                // user:
        {both, "Basic OnBhc3M6d29yZA==", false},        // :pass:word
        {both, "Basic dXNlcjpwYXNzOn\x80vcmQ=", false}, // a byte that is no digit
        {both, "Basic dXNl*cjpwYXNzOndvcmQ=", false},
        {both, "Basic dXNlcjpwYXNzOndvcmQAdXNlcg==", false}, // a zero byte behind it
        {both, "Basic ", false},
        {both, "Bearer dXNlcjpwYXNzOndvcmQ=", false},
        {name, "Basic dXNlcjphbnl0aGluZw==", true}, // user:anything
        {name, "Basic dXNlcg==", false},            // user
        {name, "Basic eDo=", false},                // x:
        {word, "Basic eDpzZWNyZXQ=", true},         // x:secret
        {word, "Basic OnNlY3JldA==", true},         // :secret
        {word, "Basic eDpzZWNyZQ==", false},        // x:secre
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.is_right, request_t({"Authorization: "s + c.value}, c.login).authenticated) << c.value;
    EXPECT_FALSE(request_t({"Authorization:"}, both).authenticated);

    const std::string secrets[] = {"", "a", "b", "aa", "ab", "a\0b"s, "a\0c"s};
    for (const std::string &a : secrets) {
        for (const std::string &b : secrets)
            EXPECT_EQ(a == b, http_is_same_secret(a.data(), static_cast<u32>(a.size()), b.data(),
                                                  static_cast<u32>(b.size())));
    }
}

TEST(HttpRequest, Paths) {
    const struct {
        const char *url, *path, *query;
        bool is_whole;
    } cases[] = {
        {"/", "", nullptr, true},
        {"/?q=a", "", "q=a", true},
        {"/home/a%20b+c?x#y", "home\\a b+c", "x#y", true},
        {"/a#b?c", "a", nullptr, true},
        {"//x/%2e%2E/%5C%2F", "\\x\\..\\\\\\", nullptr, true},
        {"/C%3A/\xC3\xBC%FF%", "C:\\\xC3\xBC\xFF%", nullptr, true},
        {"/a%00.txt?q", "a", "q", false},
        {"/a%zz", "a", nullptr, false},
    };
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (const auto &c : cases) {
        const char *query = c.url;
        EXPECT_EQ(c.is_whole, http_request_get_path(c.url, &path, &query)) << c.url;
        EXPECT_STREQ(c.path, path.data);
        EXPECT_STREQ(c.query, query);
    }
    utf8_buf_kill(&path);
}

TEST(HttpRequest, Queries) {
    const query_t none("");
    EXPECT_EQ("(none)", none.get_search());
    EXPECT_EQ(32u, none.count);
    EXPECT_TRUE(none.ascending && !none.has_count && !none.json && none.sort_key == HTTP_SORT_NAME);

    const std::pair<std::string, std::string> searches[] = {
        {"search=a+b%2B%C3%BC", "a b+\xC3\xBC"},
        {"s=x", "x"},
        {"q=x&", "x"},
        {"q=", ""},
        {"Q=x&Search=y", "(none)"},
        {"q=a&q=b", "b"},
        {"q=a#&q=b", "a"},
        {"other=1&q=a", "a"},
        {"q=a&end&q=b", "a"}, // a pair without a value ends all
        {"&q=a", "(none)"},
        {"q=a=b%26c%", "a=b&c%"},
        {"q=a%00b", "a"},
        {"q=a%4", "a@"},
    };
    for (const auto &[text, search] : searches)
        EXPECT_EQ(search, query_t(text).get_search()) << text;

    const query_t all("offset=5&count=7&json=1&case=1&wholeword=2&path=1&regex=1&diacritics=1&path_column=1&"
                      "size_column=1&date_modified_column=1&live=1&sort=date_modified&ascending=0");
    EXPECT_TRUE(all.offset == 5 && all.count == 7 && all.has_count &&
                all.sort_key == HTTP_SORT_DATE_MODIFIED);
    EXPECT_TRUE(all.json && all.match_case && all.match_whole_word && all.match_path && all.regex &&
                all.match_diacritics && all.path_column && all.size_column && all.date_modified_column &&
                all.live && !all.ascending);
    const query_t aliases("o=4294967295&n=99999999999999999999&j=1&i=1&w=1&p=1&r=1&m=1&sort=path&sort=other");
    EXPECT_TRUE(aliases.offset == 0xFFFFFFFF && aliases.count == HTTP_COUNT_ALL &&
                aliases.sort_key == HTTP_SORT_PATH);
    EXPECT_TRUE(aliases.json && aliases.match_case && aliases.match_whole_word && aliases.match_path &&
                aliases.regex && aliases.match_diacritics);
    const query_t odd("c=&o=-1&j=true&case=%31&sort=Name&sort=size&ascending=");
    EXPECT_TRUE(odd.count == 0 && odd.has_count && odd.offset == 0 && !odd.json && odd.match_case &&
                odd.sort_key == HTTP_SORT_SIZE && !odd.ascending);
}

} // namespace
} // namespace findwright
