// A request as it comes: the lines of its head, and what its address asks for. Bytes of a stranger.
//
// Nothing here knows of sockets or of the index. Owner: the connection; main thread. All texts are heap
// strings, terminated, UTF-8 as far as the sender cared; 0 where the request has none.
#pragma once

#include "base/types.h"
#include "base/utf8_buf.h"

namespace findwright {

enum http_sort_t : u32 {
    HTTP_SORT_NAME = 0,
    HTTP_SORT_PATH = 1,
    HTTP_SORT_SIZE = 2,
    HTTP_SORT_DATE_MODIFIED = 3,
};
// As it stands in an address: "name", "path", "size", "date_modified".
extern const char *const http_sort_names[4];

inline constexpr u32 HTTP_COUNT_ALL = 0xFFFFFFFF;

// What stands behind the `?` of an address.
struct http_query_t {
    char *search; // 0: there is none; may be empty
    u32 offset;
    u32 count; // at first the rows of a page, as the settings have them
    bool has_count;
    bool json;
    bool live; // more fields in JSON, for the page's own script
    bool match_case, match_whole_word, match_path, regex, match_diacritics;
    bool path_column, size_column, date_modified_column;
    http_sort_t sort_key;
    bool ascending;
};
// Reads the pairs of a text up to its end or a `#`. Numbers that are too large are the largest.
void http_query_init(http_query_t *query, u32 items_per_page);
void http_query_kill(http_query_t *query);
void http_query_parse(http_query_t *query, const char *text, u32 length);

struct http_request_t {
    char *url;  // of a GET line, the first one
    char *host; // of the first Host line
    bool authenticated;
    bool has_range; // and it is one that is understood: a first byte, perhaps a last one
    u64 range_start;
    u64 range_size;       // 0: up to the end
    char *if_range;       // what the file must still be for the range to count
    bool has_second_host; // two Host lines: nobody can tell which one a proxy has looked at
    // What browsers tell of the page that asks, Sec-Fetch-Site and Sec-Fetch-Dest.
    bool is_from_elsewhere; // it is not of this server
    bool is_part; // it asks for something that becomes part of it, and not for the page that follows it
};

// Whether a page from elsewhere has its visitor's browser fetch something here for its own use: as a script,
// a picture, a frame. It may only lead to here.
inline bool http_request_is_foreign(const http_request_t *request) {
    return request->is_from_elsewhere && request->is_part;
}

// The names and passwords to compare with; either may be empty, and then any is right.
struct http_login_t {
    const char *username, *password;
};

void http_request_init(http_request_t *request);
void http_request_kill(http_request_t *request);
// One line of the head, without its LF. True at the empty line, which ends it. A line with a zero byte is
// ignored.
bool http_request_parse_line(http_request_t *request, const char *line, u32 length,
                             const http_login_t *login);

// Whether the range counts for a file of this date: with an If-Range line, which comes when a download is
// taken up again, only if that is the very date that the head of an answer has. Else the parts of two files
// would be put together. Without a range false.
bool http_request_has_range_of(const http_request_t *request, u64 file_time);

// The decoded path of an address: what stands between its first `/` and a `?` or `#`, with `%XX` taken back
// (a `%` with bad digits gives 0 for each bad digit, one at the very end stays), `/` as `\`. `query` (0 or
// where to) points behind the `?` then, or is 0. False where the path cannot name anything: a zero byte in
// it.
bool http_request_get_path(const char *url, utf8_buf_t *out, const char **query);

// Whether the text of a Host line, its port aside, is one of this server's names: in `names`, a list
// (utf8_buf_next_list_item), names without regard to case; or a numeric address that is `local`, the
// connection's own, or any numeric one with `any_address`; or "localhost" where `local_is_loopback`. No Host
// line at all, as old clients have it, is accepted by the caller.
struct http_host_rule_t {
    const char *names;
    const char *local; // numeric, as network_address_to_text writes it
    bool local_is_loopback;
    bool any_address;
};
bool http_host_is_own(const char *host, const http_host_rule_t *rule);

// Compares in a time that depends on the length of `given` alone.
bool http_is_same_secret(const char *given, u32 given_length, const char *secret, u32 secret_length);

} // namespace findwright
