// Sockets of the main thread: none of them ever blocks it, and one procedure per socket is called from the
// main loop when there is something to do.
//
//     POSIX: epoll, in the main loop's set       Windows: WSAAsyncSelect on a hidden window
//
// What both give, and nothing more may be relied on:
//   NETWORK_ACCEPT   of a listener: connections may wait. Told again as long as some do.
//   NETWORK_READ     bytes may wait, or the end of what the peer sends, or an error. Told again as long as
//                    something is left unread, so one network_receive per call is fair to the others. Behind
//                    the end it is told at most once more, when the connection breaks.
//   NETWORK_WRITE    after a network_send that would have had to wait, or network_request_write: it may go
//                    on. Not told otherwise.
//   NETWORK_CONNECT  of network_connect: it stands, or network_get_error tells why not.
// A call may find nothing to do. The procedure may close its own socket or any other: what is closed is not
// called any more.
//
// Main thread only, all of it, between network_start and network_stop. Error numbers are the system's own
// (errno, WSAGetLastError); os_error_text knows them.
#pragma once

#include "base/types.h"
#include "base/utf8_buf.h"

namespace findwright {

inline constexpr u32 NETWORK_ACCEPT = 1;
inline constexpr u32 NETWORK_READ = 2;
inline constexpr u32 NETWORK_WRITE = 4;
inline constexpr u32 NETWORK_CONNECT = 8;

struct network_socket_t;
using network_proc_t = void(void *param, u32 events);

// Counted: each start has its stop, and all sockets are closed by the last one. False, with the reason in
// `error` (0 or a text), where the system has no network to give (Windows: WSAStartup).
bool network_start(utf8_buf_t *error);
void network_stop();

// --- Addresses ---------------------------------------------------------------------------------------------

enum network_family_t : u32 { NETWORK_FAMILY_NONE, NETWORK_FAMILY_IP4, NETWORK_FAMILY_IP6 };

// An address and a port, as the system writes them.
struct network_address_t {
    network_family_t family;
    i32 system_family, protocol, socket_type; // the system's numbers, for the log
    u32 size;
    alignas(8) u8 bytes[128];
};

inline constexpr u32 NETWORK_ADDRESSES = 16;

// The addresses of a host name or a numeric address, at a port; with `to_listen` those to listen on, where an
// empty host is all addresses of this machine. Waits for the name service, where the host is a name. How many
// there are, `capacity` at most; 0 with `error`, a number of network_lookup_error_text.
u32 network_lookup(const char *host, u32 port, bool to_listen, network_address_t *out, u32 capacity,
                   i32 *error);
void network_lookup_error_text(i32 error, utf8_buf_t *out);
// A numeric address only: never asks anybody. `[` and `]` around an IPv6 one may be there. False for all
// else.
bool network_parse_address(const char *text, u32 length, u32 port, network_address_t *out);
// "127.0.0.1", "fe80::1%eth0", without the port. An IPv4 address in IPv6 form is shown as the IPv4 one.
void network_address_to_text(const network_address_t *address, utf8_buf_t *out);
u32 network_address_get_port(const network_address_t *address);
void network_address_set_port(network_address_t *address, u32 port);
bool network_address_is_loopback(const network_address_t *address);
// All addresses of this machine: 0.0.0.0 or ::.
bool network_address_is_any(const network_address_t *address);
// The same host, the port aside; an IPv4 address in IPv6 form is the IPv4 one.
bool network_address_is_same_host(const network_address_t *a, const network_address_t *b);

// --- Sockets -----------------------------------------------------------------------------------------------

// Listens on one address, an IPv6 one for IPv6 alone. 0 with the error number, and `failed` (0 or where to
// store it) says which call it was: "socket", "bind" or "listen". A port that another program listens on is
// an error on Windows, too.
network_socket_t *network_listen(const network_address_t *address, network_proc_t *proc, void *param,
                                 u32 *error, const char **failed);
// Takes the next connection that waits; 0 when none does, or none can be taken now (out of descriptors or
// memory: the listener then rests a moment, and tells again). Connections never take the last descriptors of
// the process, without which it could not even save what it has. Nagle's delay is off.
network_socket_t *network_accept(network_socket_t *listener, network_proc_t *proc, void *param);
// Begins to connect; NETWORK_CONNECT tells. 0 with the error number.
network_socket_t *network_connect(const network_address_t *address, network_proc_t *proc, void *param,
                                  u32 *error);
// Whether the error of network_listen says that this machine has no addresses of that family at all.
bool network_error_is_no_family(u32 error);
// Of a connection that was being made: 0 when it stands.
u32 network_get_error(network_socket_t *socket);
// Never 0: no call comes back after it. Unsent bytes that the system has taken are still sent.
void network_close(network_socket_t *socket);

// Bytes received; 0: the peer sends no more; NETWORK_WAIT: nothing there now; NETWORK_FAILED: it is broken.
inline constexpr i32 NETWORK_WAIT = -1;
inline constexpr i32 NETWORK_FAILED = -2;
i32 network_receive(network_socket_t *socket, void *bytes, u32 size);
// Bytes that the system took, NETWORK_WAIT or NETWORK_FAILED.
i32 network_send(network_socket_t *socket, const void *bytes, u32 size);
// Has NETWORK_WRITE told once in any case, as soon as there is room: for what could go on sending, and lets
// the others have their turn first.
void network_request_write(network_socket_t *socket);
// No more will be sent; the peer sees the end behind what was sent.
void network_shutdown(network_socket_t *socket);
// Whether NETWORK_READ is told, which it is at first: off while there is no room for more.
void network_set_reading(network_socket_t *socket, bool is_on);

// This end's address and the other one's. False, and NETWORK_FAMILY_NONE, when there is none any more.
bool network_get_local_address(network_socket_t *socket, network_address_t *out);
bool network_get_peer_address(network_socket_t *socket, network_address_t *out);
// The system's number of the socket, for the log.
u32 network_get_number(network_socket_t *socket);

// Loops over network_send until all is sent. False when a send takes nothing; a length of 0 is a success. For
// a few bytes on a connection that is known to have room.
bool network_send_all(network_socket_t *socket, const void *bytes, u32 length);
bool network_printf(network_socket_t *socket, const char *format, ...);

} // namespace findwright
