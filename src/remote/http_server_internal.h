// What the files of the server share.
//
//   http_server.cpp         the server: start, stop, listeners, the clock
//   http_server_client.cpp  one connection: its head, where its answer comes from, sending
//   http_server_file.cpp    files: opened by a thread, looked at, sent
//   http_server_search.cpp  the queue, the query, rows
#pragma once

#include "query/db_find.h"
#include "query/db_query.h"
#include "remote/http_server.h"
#include "remote/server_file.h"
#include "remote/server_log.h"
#include "remote/server_receive.h"
#include "remote/server_send.h"

namespace findwright {

struct http_server_open_t;

// What a client waits for.
enum http_server_state_t : u32 {
    HTTP_SERVER_HEAD,    // the rest of its head
    HTTP_SERVER_OPENING, // a file is being opened
    HTTP_SERVER_QUEUED,  // its turn
    HTTP_SERVER_RUNNING, // the query: it is `current_client`
    HTTP_SERVER_ROWS,    // it has rows to take before its next turn
    HTTP_SERVER_FILE,    // a file is being sent
    HTTP_SERVER_LAST,    // all of the answer is in the queue
    HTTP_SERVER_SHUT,    // all of it is sent: the peer closes
};

// What needs the index.
enum http_server_job_t : u32 {
    HTTP_SERVER_JOB_SEARCH,
    HTTP_SERVER_JOB_PATH,      // a file of the index, a folder of it, or neither
    HTTP_SERVER_JOB_REAL_FILE, // a file that a link led to: sent if the index has it
};

struct http_server_client_t {
    http_server_client_t *next, *prev;
    http_server_client_t *next_pending, *prev_pending; // while HTTP_SERVER_QUEUED
    network_socket_t *socket;                          // 0: destroyed, and not freed yet
    char *peer;                                        // the other end's address
    http_server_state_t state;
    u64 accepted, active; // milliseconds: when it came, when a byte was last taken or sent
    bool request_done;    // its head is read, and answered or on the way to be
    bool is_deaf;         // nothing is received any more
    u32 head_length;      // bytes of the head so far
    u32 dropped;          // bytes behind the head, which nobody reads
    server_receive_t receive;
    server_send_t send;
    u64 counted; // bytes of it in the server's sum
    http_request_t request;
    http_query_t query;
    http_server_job_t job;
    utf8_buf_t path; // decoded, inside form; of a folder page later the folder's own
    utf8_buf_t parent, title;
    u32 internal_sort;
    // The answer with rows, once it has begun.
    bool has_begun;
    u32 written; // rows
    u32 rows;    // there shall be
    http_page_t page;
    db_find_t *find;          // of a folder page
    http_server_open_t *open; // while HTTP_SERVER_OPENING
    server_file_t *file;      // while HTTP_SERVER_FILE
};

struct http_server_t {
    db_t *db;
    http_server_params_t params; // its texts are owned
    server_listeners_t listeners;
    bool is_any_address; // it listens on all addresses of this machine
    u64 program_date;    // file time of the program's file, and so of what is embedded in it
    server_log_t log;
    http_server_client_t *clients_first, *clients_last, *dead;
    u32 client_count, file_count;
    u64 unsent; // bytes of answers that wait for their clients
    // The search that the query holds.
    db_query_t *query; // made with the first search, given back when nobody has searched for a while
    char *search;
    bool match_case, match_whole_word, match_path, match_diacritics, regex;
    u32 sort;
    bool has_results;
    u64 searched; // milliseconds: when it was used last
    http_server_client_t *current_client;
    http_server_client_t *pending_first, *pending_last;
    db_highlight_t name_marks, path_marks;
    bool is_checking; // the clock's event is posted
};

extern http_server_t *_http_server; // 0: none runs

u64 _http_server_now(); // milliseconds of a clock that is never set

// Has clients that are late looked for, as long as there are any.
void _http_server_watch_clock();

// --- Clients (http_server_client.cpp) ----------------------------------------------------------------------

// Of all listeners: takes what connections wait.
void _http_server_accept_proc(void *, u32 events);
// The connection ends now; what it held is freed from the main loop.
void _http_server_destroy_client(http_server_client_t *client);
void _http_server_free_dead();
// Sends what there is, and goes on with the answer as far as it can.
void _http_server_go_on(http_server_client_t *client);
// How many bytes of an answer may wait for its client before it gets more rows.
u64 _http_server_get_share();
// The whole of an answer is in the queue.
void _http_server_end_answer(http_server_client_t *client);
// All of an answer is sent.
void _http_server_shut(http_server_client_t *client);
void _http_server_answer_error(http_server_client_t *client, u32 status);
// A home file by that name was not to be had: the next choice.
void _http_server_answer_without_home(http_server_client_t *client);

// --- Files (http_server_file.cpp) --------------------------------------------------------------------------

// Whose file it is, and with that where it may lie.
enum http_server_file_kind_t : u32 {
    HTTP_SERVER_FILE_HOME,    // below the home folder
    HTTP_SERVER_FILE_DEFAULT, // likewise; there is no other choice
    HTTP_SERVER_FILE_INDEX,   // below its source's top, not by way of a link
    HTTP_SERVER_FILE_REAL,    // exactly there
};
// Begins to open a file; the client is answered with it, or goes on to the next choice. `top_length`: how
// much of the path is the folder that it must lie in.
void _http_server_open(http_server_client_t *client, http_server_file_kind_t kind, const char *path,
                       u32 top_length);
// Paths of this system are the same: byte for byte, or where it has drives, but for the case of letters.
bool _http_server_is_same_path(const utf8_buf_t *a, const utf8_buf_t *b);
// Gives up an opening; what is opened late is closed.
void _http_server_abandon_open(http_server_open_t *open);
void _http_server_send_embedded(http_server_client_t *client, const struct http_resource_t *resource);
void _http_server_send_file(http_server_client_t *client);

// --- The queue (http_server_search.cpp) --------------------------------------------------------------------

void _http_server_enqueue(http_server_client_t *client);
void _http_server_dequeue(http_server_client_t *client);
// Takes requests from the queue while the index is idle, and lets others have their turn in between.
void _http_server_run(void *);
// The client whose search runs has left.
void _http_server_cancel_current();
// Drops the query, and with it what following the index costs.
void _http_server_drop_query();

} // namespace findwright
