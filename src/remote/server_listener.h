// The sockets that a server listens on, from the text of its bindings.
//
// Owner: the server; main thread.
#pragma once

#include "os/network.h"

namespace findwright {

inline constexpr u32 SERVER_LISTENERS = 64;

struct server_listeners_t {
    network_socket_t *sockets[SERVER_LISTENERS];
    network_address_t addresses[SERVER_LISTENERS];
    u32 count;
};

// Localized formats of what is told to the user; each takes the address as %s and the system's text as %s.
struct server_listener_texts_t {
    const char *lookup_failed;
    const char *socket_failed;
    const char *bind_failed;
    const char *listen_failed;
};

// Listens on each element of a list of addresses and host names (utf8_buf_next_list_item), empty ones passed
// over; an empty list is all addresses of this machine. An element of which no address can be listened on
// ends the walk. An address that is listened on already is no failure, nor is a family of addresses that this
// machine lacks when all are wanted. proc(param, NETWORK_ACCEPT) is called for all; the server calls
// network_accept on each listener. Returns whether any listens; `error` has the last text for the user even
// then, and is empty when all is well. Port 0 lets the system choose, the same for all addresses if it can.
// Log: "bind to family %d, protocol %d, socktype %d\n", "bind failed %d\n".
bool server_listen(server_listeners_t *listeners, const char *bindings, u32 port, network_proc_t *proc,
                   void *param, const server_listener_texts_t *texts, utf8_buf_t *error);
void server_listeners_close(server_listeners_t *listeners);

} // namespace findwright
