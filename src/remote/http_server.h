// The server for browsers and scripts: a search page, folder pages, JSON of both, and downloads.
//
//     listeners --accept--> client: head of a request --complete--> answered at once
//                                                   |               (errors, embedded files, the home folder)
//                                                   '--needs the index--> queue --in turn, index idle--> rows
//                                                                           ^                             |
//                                                                           '-- more rows than a slice ---'
//
// Answers are HTTP/1.0, one for each connection. All clients share one query: requests that need the index
// wait in a queue, and the server runs one at a time. A request for the search that the query holds is
// answered from it at once. Rows are written in slices of HTTP_SERVER_SLICE, or of what takes a few
// milliseconds: a longer answer goes to the back of the queue after each slice, and only once the client has
// taken what was written, so that neither a slow client nor a large answer holds up the others, or memory.
// Where many are slow at once, each of them has a smaller share of the memory.
//
// What can be had of the file system: regular files of the index, while downloads are on, and of the home
// folder, neither through a link that leads elsewhere. All else is 404.
//
// Main thread only, but for the thread that reads each file that is sent (server_file.h). One server.
#pragma once

#include "db/db.h"
#include "remote/http_page.h"
#include "remote/server_listener.h"

namespace findwright {

inline constexpr u32 HTTP_SERVER_SLICE = 10000;       // rows
inline constexpr u32 HTTP_SERVER_LINE_LIMIT = 65536;  // bytes of one line of a head
inline constexpr u32 HTTP_SERVER_HEAD_LIMIT = 262144; // bytes of a whole head
inline constexpr u32 HTTP_SERVER_CLIENTS = 4096;      // at once; more are answered 503 and closed
inline constexpr u32 HTTP_SERVER_FILES = 256;         // downloads at once, each with its thread; likewise
// Bytes of answers that wait for their clients: the share of each one, before it gets more rows; what they
// may all have together before the shares become small; and when answers that have not begun are 503.
inline constexpr u64 HTTP_SERVER_SHARE = 1 << 20;
inline constexpr u64 HTTP_SERVER_SMALL_SHARE = 1 << 15;
inline constexpr u64 HTTP_SERVER_SHARED = 64 << 20;
inline constexpr u64 HTTP_SERVER_UNSENT_LIMIT = 512 << 20;

// In milliseconds; tests shorten them.
struct http_server_limits_t {
    u32 head_timeout; // for the whole head
    u32 idle_timeout; // without a byte in either direction, unless the server is at work for it
    u32 slice_time;   // after which a slice of rows ends
};
inline constexpr http_server_limits_t HTTP_SERVER_LIMITS = {30000, 60000, 10};
inline http_server_limits_t http_server_limits = HTTP_SERVER_LIMITS;

// All texts are copied.
struct http_server_params_t {
    const char *bindings; // list of addresses and names; empty: all addresses
    u32 port;             // 0: the system chooses
    const char *username, *password;
    const char *home;         // the home folder, full path
    const char *default_page; // empty: none
    bool allow_file_download;
    u32 items_per_page;
    const char *title_format; // never empty: the setting's, or the localized default
    const char *host_names;   // list of further names that the Host line may have: this computer's
    const char *log_filename; // full path; empty: no log
    i32 log_max_size, log_delta_size;
    utf8_expand_t title_variables; // but for the search text
    http_texts_t texts;
    server_listener_texts_t listener_texts;
};

// False, with what to tell the user in `error`, when nothing listens. `error` may have a text after a
// success, too: some of the bindings failed. Of a server that runs this is a restart.
bool http_server_start(db_t *db, const http_server_params_t *params, utf8_buf_t *error);
// Before the database goes. Nothing when none runs.
void http_server_stop();
bool http_server_is_running();
// The port that it listens on, the first one; 0 when none runs.
u32 http_server_get_port();
// "http://127.0.0.1:8080/": an address that a browser on this machine can open. Empty when none runs.
void http_server_get_url(utf8_buf_t *out);

} // namespace findwright
