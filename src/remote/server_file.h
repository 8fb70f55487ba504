// A file on its way to a connection: one thread reads it ahead into a ring of blocks, the main thread sends.
// So a disk that is slow, or a network drive that hangs, holds up nobody else.
//
// The reading thread touches the file and the ring alone, never the socket. When there is something to send
// again, the connection's NETWORK_WRITE is told: so all downloads take turns with one another and with
// everything else that the main loop sees to. What a thread that hangs in a read holds is freed by itself
// when it comes back: nothing waits for it.
//
// Owner: the connection; main thread.
#pragma once

#include "base/platform.h"
#include "os/network.h"

namespace findwright {

inline constexpr u32 SERVER_FILE_BLOCK = 65536;
inline constexpr u32 SERVER_FILE_BLOCKS = 8; // in the ring

struct server_file_t;

// Starts to read `size` bytes from `start` on. Takes the file over, which is closed at the end. The socket's
// NETWORK_WRITE is told whenever server_file_send may go on, for the first time when there are bytes to send.
// server_file_close comes before network_close.
server_file_t *server_file_open(platform_file_t file, u64 start, u64 size, network_socket_t *socket);
void server_file_close(server_file_t *file);
// How many threads read, of all connections; those that hang in a file that was closed since are among them.
u32 server_file_get_readers();

enum server_file_result_t : u32 {
    SERVER_FILE_DONE,        // all of it was sent
    SERVER_FILE_WAIT,        // NETWORK_WRITE will be told
    SERVER_FILE_SEND_FAILED, // the connection is broken
    SERVER_FILE_READ_FAILED, // it could not be read, or has become shorter than `size`
};
// Sends what is there and what the system takes: at most one round of the ring, so that others have their
// turn.
server_file_result_t server_file_send(server_file_t *file);

} // namespace findwright
