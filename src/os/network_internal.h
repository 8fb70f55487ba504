// What the two halves of the sockets give each other: network.cpp is shared, network_posix.cpp and
// network_win32.cpp are the system's. Nothing above the layer includes this.
#pragma once

#include "os/network.h"

namespace findwright {

struct os_loop_watch_t;

struct network_socket_t {
    network_socket_t *next, *prev; // of all sockets
    network_proc_t *proc;
    void *param;
    std::intptr_t handle;
    u32 error; // how the connecting ended
    bool is_listener;
    bool is_connecting;
    bool is_resting;    // a listener that could not accept, until an alarm
    bool is_reading;    // NETWORK_READ is wanted
    bool is_at_end;     // the peer sends no more
    bool is_break_told; // that the connection broke behind that is known
    bool wants_write;   // NETWORK_WRITE is wanted

    // POSIX
    os_loop_watch_t *watch; // 0: there is nothing that it could still tell
    u32 watched;            // EPOLLIN and EPOLLOUT as they stand there

    // Windows
    u32 message;        // the number of its messages
    bool is_untouched;  // what the procedure was told of, it has not tried to take
    bool is_close_seen; // the system has told of the end, which it does once
};

// How long a listener rests, in milliseconds.
inline constexpr u32 NETWORK_REST = 100;

// A new socket, in the list of all.
network_socket_t *network_socket_new(std::intptr_t handle, network_proc_t *proc, void *param);
// Out of the list, and freed; no call in progress comes back to it.
void network_socket_free(network_socket_t *socket);
// Calls the socket's procedure. False when that closed the socket.
bool network_tell(network_socket_t *socket, u32 events);

// The system's start and stop, called once for all counted ones.
bool network_platform_start(utf8_buf_t *error);
void network_platform_stop();

// What an address consists of.
struct network_parts_t {
    network_family_t family;
    u8 ip[16]; // 4 bytes of it for IPv4
    u32 scope; // of an IPv6 address: the number of the interface, or 0
    u32 port;
};
void network_address_get_parts(const network_address_t *address, network_parts_t *parts);
// With an IPv4 address in IPv6 form as the IPv4 one that it is.
void network_address_get_host(const network_address_t *address, network_parts_t *parts);

} // namespace findwright
