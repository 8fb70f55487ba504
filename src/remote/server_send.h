// What a connection has yet to send: a text buffer that is written to, and a queue of finished blocks.
//
//     http_..._cat -> text buffer --block full or flush--> queue --NETWORK_WRITE--> socket
//
// Owner: the connection; main thread.
#pragma once

#include "base/utf8_buf.h"
#include "os/network.h"

namespace findwright {

inline constexpr u32 SERVER_SEND_BLOCK = 65536;

struct server_send_block_t {
    server_send_block_t *next;
    u32 length;
    const char *bytes; // in the block itself behind this head, or bytes of somebody else that stay
};

struct server_send_t {
    server_send_block_t *head, *tail;
    u32 position;    // bytes of the first block that are sent
    u64 queued;      // bytes of all blocks that are not
    utf8_buf_t text; // the block under construction
};

void server_send_init(server_send_t *send);
void server_send_kill(server_send_t *send);
// Moves the text under construction into the queue when it is at least SERVER_SEND_BLOCK long, or always.
void server_send_flush(server_send_t *send, bool always);
// Appends bytes that stay where they are until they are sent: not copied.
void server_send_static(server_send_t *send, const char *bytes, u32 length);

enum server_send_result_t : u32 {
    SERVER_SEND_DONE,   // nothing is left
    SERVER_SEND_WAIT,   // NETWORK_WRITE tells when it may go on
    SERVER_SEND_FAILED, // the connection is broken
};
// Sends what the system takes of the queue; the text under construction aside. A queue is bounded by its
// owner, so one call is bounded, too.
server_send_result_t server_send_run(server_send_t *send, network_socket_t *socket);

} // namespace findwright
