// What a connection has received: bytes in, lines out.
//
// A line ends with LF; it is given without it, terminated. What waits is the beginning of one line, in a
// growing block that is there only meanwhile; `limit` bounds it. A line may hold zero bytes: the length
// tells.
//
// Owner: the connection; main thread.
#pragma once

#include "os/network.h"

namespace findwright {

inline constexpr u32 SERVER_RECEIVE_BLOCK = 65536;
inline constexpr u32 SERVER_RECEIVE_LIMIT_MAX = 1 << 30;

struct server_receive_t {
    char *bytes; // the beginning of a line: none of them is an LF
    u32 length;
    u32 capacity;
    u32 limit; // bytes of one line at the most, its LF aside
};

// `limit` 0: SERVER_RECEIVE_LIMIT_MAX, which no limit exceeds.
void server_receive_init(server_receive_t *receive, u32 limit);
void server_receive_kill(server_receive_t *receive);

enum server_receive_result_t : u32 {
    SERVER_RECEIVE_WAIT,   // nothing more is there now
    SERVER_RECEIVE_MORE,   // something was taken; call again at the next NETWORK_READ
    SERVER_RECEIVE_CLOSED, // the peer sends no more
    SERVER_RECEIVE_FAILED, // the connection is broken
    SERVER_RECEIVE_LIMIT,  // a line is longer than the limit; what was received is dropped
    SERVER_RECEIVE_ENDED,  // the line's procedure returned false
};

// One line, terminated at `length`; it may be written to. False: stop, and drop the rest; the owner may be
// gone then, and is not touched any more.
using server_line_proc_t = bool(void *param, char *line, u32 length);

// Receives once, at most SERVER_RECEIVE_BLOCK bytes, and calls the procedure for each whole line.
server_receive_result_t server_receive_lines(server_receive_t *receive, network_socket_t *socket,
                                             server_line_proc_t *proc, void *param);
// The same for bytes at hand, as tests have them.
server_receive_result_t server_receive_feed(server_receive_t *receive, const char *bytes, u32 length,
                                            server_line_proc_t *proc, void *param);

} // namespace findwright
