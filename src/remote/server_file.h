// A file on its way to a connection: one thread reads it ahead into a ring of blocks, the main thread sends.
// So a disk that is slow, or a network drive that hangs, holds up nobody else.
//
// The reading thread touches the file and the ring alone, never the socket; it tells the main thread through
// an event when there is something to send and there was not before. What a thread that hangs in a read holds
// is freed by itself when it comes back: nothing waits for it.
//
// Owner: the connection; main thread.
#pragma once

#include "base/platform.h"
#include "os/event.h"
#include "os/network.h"

namespace findwright {

inline constexpr u32 SERVER_FILE_BLOCK = 65536;
inline constexpr u32 SERVER_FILE_BLOCKS = 8; // in the ring

struct server_file_t;

// Starts to read `size` bytes from `start` on. Takes the file over, which is closed at the end. ready_proc is
// posted with `param` (event_post) when server_file_send may go on, until server_file_close, which takes
// back what is posted.
server_file_t *server_file_open(platform_file_t file, u64 start, u64 size, event_proc_t *ready_proc,
                                void *param);
void server_file_close(server_file_t *file);

enum server_file_result_t : u32 {
    SERVER_FILE_DONE,        // all of it was sent
    SERVER_FILE_WAIT_READ,   // ready_proc will be posted
    SERVER_FILE_WAIT_WRITE,  // NETWORK_WRITE will be told
    SERVER_FILE_SEND_FAILED, // the connection is broken
    SERVER_FILE_READ_FAILED, // it could not be read, or has become shorter than `size`
};
// Sends what is there and what the system takes: at most one round of the ring, after which it posts
// ready_proc itself, so that others have their turn (SERVER_FILE_WAIT_READ).
server_file_result_t server_file_send(server_file_t *file, network_socket_t *socket);

} // namespace findwright
