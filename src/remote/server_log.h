// A server's log: one record per event, in a file that is kept below a size.
//
//     2026-11-22 10:15:00: 17: 127.0.0.1: GET /?search=x
//
// Records are gathered and written some 200 milliseconds later, or at 64 KiB, with the file open only then: a
// burst of requests costs one write. When the file is at least `max_size` bytes before a write, and both
// sizes are above 0 and the delta not above the maximum, it is written anew from the first start of a line on
// at which at most max_size - delta_size bytes remain, under "%s.tmp", which then takes its place.
//
// What comes from a client is text of unknown origin: control characters in it, and bytes that are no UTF-8,
// are written as `?`, so that a record is a line and nothing that a terminal would obey. The file is kept
// from other users: it tells what was searched for.
//
// Owner: the server; main thread. A log that cannot be written is told of once in the debug log.
#pragma once

#include "base/utf8_buf.h"
#include "os/network.h"

namespace findwright {

struct server_log_t {
    char *filename; // 0: no log
    u64 max_size, delta_size;
    utf8_buf_t text; // not written yet
    bool is_posted;
    bool is_failed;
};

// `filename`: 0 or empty for no log. Makes its folders with the first write.
void server_log_init(server_log_t *log, const char *filename, i32 max_size, i32 delta_size);
// Writes what is left.
void server_log_kill(server_log_t *log);
// One record: the time, for a client (socket not 0) the socket's number and the peer's address as text, and
// the formatted text; it ends with CR LF, whether the text does, or with LF, or not. Also a line of the debug
// log.
void server_log_printf(server_log_t *log, network_socket_t *socket, const char *peer, const char *format,
                       ...);

} // namespace findwright
