// Every socket is a descriptor of the main loop's epoll set, level-triggered: what is left unread is told
// again by the system. One that is broken would be told of for ever, whatever it is watched for, so it leaves
// the set as soon as nothing of it is wanted any more.
#include "base/mem.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/network_internal.h"
#include "os/os_posix.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace findwright {

static constexpr rlim_t DESCRIPTORS_WANTED = 16384;
static constexpr rlim_t DESCRIPTORS_KEPT = 512; // for the files of the program, or a quarter of a low limit

// A process may have some thousand files open at first, and more if it asks for it.
bool network_platform_start(utf8_buf_t *) {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < DESCRIPTORS_WANTED) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, DESCRIPTORS_WANTED);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    return true;
}

void network_platform_stop() {}

// --- Addresses --------------------------------------------------------------------------------------------

// A name of an interface, or its number.
static bool _network_scope_from_text(const char *text, u32 *scope) {
    *scope = if_nametoindex(text);
    if (*scope != 0)
        return true;
    char *end;
    unsigned long number = std::strtoul(text, &end, 10);
    *scope = static_cast<u32>(number);
    return text[0] >= '0' && text[0] <= '9' && *end == 0 && number <= UINT_MAX;
}

static void _network_scope_to_text(u32 scope, utf8_buf_t *out) {
    char name[IF_NAMESIZE];
    if (if_indextoname(scope, name))
        utf8_buf_cat_string(out, name);
    else
        utf8_buf_cat_printf(out, "%u", scope);
}

using _network_info_t = addrinfo;
static constexpr i32 NETWORK_NOT_FOUND = EAI_NONAME;

static i32 _network_ask(const char *host, const char *service, const addrinfo *hints, addrinfo **list) {
    const int result = getaddrinfo(host, service, hints, list);
    return result == EAI_SYSTEM ? errno : result; // those of the look-up are negative
}

static void _network_give_back(addrinfo *list) {
    freeaddrinfo(list);
}

#include "os/network_address.inl"

void network_lookup_error_text(i32 error, utf8_buf_t *out) {
    if (error < 0) {
        utf8_buf_copy_string(out, gai_strerror(error));
        return;
    }
    char text[256];
    os_error_text(static_cast<u32>(error), text, sizeof text);
    utf8_buf_copy_string(out, text);
}

static bool _network_get_address(network_socket_t *socket, network_address_t *out,
                                 int (*get)(int, sockaddr *, socklen_t *)) {
    sockaddr_storage raw = {};
    socklen_t size = sizeof raw;
    *out = {};
    return get(static_cast<int>(socket->handle), reinterpret_cast<sockaddr *>(&raw), &size) == 0 &&
           _network_address_take(out, &raw, size, raw.ss_family);
}

bool network_get_local_address(network_socket_t *socket, network_address_t *out) {
    return _network_get_address(socket, out, [](int descriptor, sockaddr *raw, socklen_t *size) {
        return getsockname(descriptor, raw, size);
    });
}

bool network_get_peer_address(network_socket_t *socket, network_address_t *out) {
    return _network_get_address(socket, out, [](int descriptor, sockaddr *raw, socklen_t *size) {
        return getpeername(descriptor, raw, size);
    });
}

// --- Readiness --------------------------------------------------------------------------------------------

static void _network_loop_proc(void *param, u32 events);

static int _network_descriptor(const network_socket_t *socket) {
    return static_cast<int>(socket->handle);
}

static u32 _network_get_wanted(const network_socket_t *socket) {
    if (socket->is_listener)
        return socket->is_resting ? 0u : EPOLLIN;
    if (socket->is_connecting)
        return EPOLLOUT;
    u32 wanted = socket->wants_write ? EPOLLOUT : 0u;
    return socket->is_reading && !socket->is_at_end ? wanted | EPOLLIN : wanted;
}

// Has the loop watch for what is wanted now. False when the system refuses.
static bool _network_watch(network_socket_t *socket) {
    u32 wanted = _network_get_wanted(socket);
    if (!socket->watch) {
        socket->watch = os_loop_add(_network_descriptor(socket), wanted, _network_loop_proc, socket);
    } else if (wanted != socket->watched) {
        os_loop_modify(socket->watch, wanted);
    }
    socket->watched = wanted;
    return socket->watch != nullptr;
}

static void _network_unwatch(network_socket_t *socket) {
    if (socket->watch)
        os_loop_remove(socket->watch);
    socket->watch = nullptr;
}

// What to tell of what the loop tells, noted as told.
static u32 _network_get_told(network_socket_t *socket, u32 events) {
    if (socket->is_listener)
        return socket->is_resting ? 0 : NETWORK_ACCEPT;
    if (socket->is_connecting) {
        int error = 0;
        socklen_t size = sizeof error;
        if (getsockopt(_network_descriptor(socket), SOL_SOCKET, SO_ERROR, &error, &size) != 0)
            error = errno;
        socket->error = static_cast<u32>(error);
        socket->is_connecting = false;
        return NETWORK_CONNECT;
    }
    bool is_broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
    u32 told = 0;
    if (socket->is_reading &&
        (socket->is_at_end ? is_broken && !socket->is_break_told : is_broken || (events & EPOLLIN) != 0)) {
        socket->is_break_told = socket->is_at_end;
        told |= NETWORK_READ;
    }
    if (socket->wants_write && (is_broken || (events & EPOLLOUT) != 0)) {
        socket->wants_write = false;
        told |= NETWORK_WRITE;
    }
    return told;
}

static void _network_loop_proc(void *param, u32 events) {
    auto *socket = static_cast<network_socket_t *>(param);
    u32 told = _network_get_told(socket, events);
    if (told && !network_tell(socket, told))
        return;
    if ((events & (EPOLLERR | EPOLLHUP)) != 0 && _network_get_wanted(socket) == 0)
        _network_unwatch(socket);
    else if (socket->watch)
        _network_watch(socket);
}

// --- Sockets ----------------------------------------------------------------------------------------------

static int _network_open(const network_address_t *address) {
    return socket(address->system_family, address->socket_type | SOCK_NONBLOCK | SOCK_CLOEXEC,
                  address->protocol);
}

static bool _network_set_option(int descriptor, int level, int option) {
    int on = 1;
    return setsockopt(descriptor, level, option, &on, sizeof on) == 0;
}

// Takes the descriptor over; 0 with errno when it cannot be watched.
static network_socket_t *_network_add(int descriptor, network_proc_t *proc, void *param, bool is_listener,
                                      bool is_connecting) {
    network_socket_t *socket = network_socket_new(descriptor, proc, param);
    socket->is_listener = is_listener;
    socket->is_connecting = is_connecting;
    if (_network_watch(socket))
        return socket;
    int error = errno;
    network_close(socket);
    errno = error;
    return nullptr;
}

// Binds and listens; 0, or the name of the call that failed.
static const char *_network_bind(int descriptor, const network_address_t *address) {
    // The port of a server that ended a moment ago can be taken, one that is listened on cannot.
    _network_set_option(descriptor, SOL_SOCKET, SO_REUSEADDR);
    if (address->family == NETWORK_FAMILY_IP6)
        _network_set_option(descriptor, IPPROTO_IPV6, IPV6_V6ONLY);
    if (bind(descriptor, reinterpret_cast<const sockaddr *>(address->bytes), address->size) != 0)
        return "bind";
    return listen(descriptor, SOMAXCONN) != 0 ? "listen" : nullptr;
}

// Keeps errno.
static void _network_close_descriptor(int descriptor) {
    int error = errno;
    close(descriptor);
    errno = error;
}

network_socket_t *network_listen(const network_address_t *address, network_proc_t *proc, void *param,
                                 u32 *error, const char **failed) {
    network_socket_t *socket = nullptr;
    const char *call = "socket";
    int descriptor = _network_open(address);
    if (descriptor != -1) {
        call = _network_bind(descriptor, address);
        if (call)
            _network_close_descriptor(descriptor);
        else if (!(socket = _network_add(descriptor, proc, param, true, false)))
            call = "listen";
    }
    *error = socket ? 0 : static_cast<u32>(errno);
    if (failed)
        *failed = call;
    return socket;
}

bool network_error_is_no_family(u32 error) {
    return error == EAFNOSUPPORT || error == EADDRNOTAVAIL;
}

static void _network_rest_proc(void *param) {
    auto *socket = static_cast<network_socket_t *>(param);
    socket->is_resting = false;
    _network_watch(socket);
}

static void _network_rest(network_socket_t *listener) {
    debug_printf("accept failed %d\n", errno);
    listener->is_resting = true;
    _network_watch(listener);
    event_post_after(NETWORK_REST, _network_rest_proc, listener);
}

// Whether the connection that waited was at fault, and the next may be taken.
static bool _network_is_error_of_peer(int error) {
    switch (error) {
    case EINTR:
    case ECONNABORTED:
    case EPROTO:
    case EPERM: // a rule of the firewall's
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENONET:
    case ETIMEDOUT:
    case ENOPROTOOPT: return true;
    default: return false;
    }
}

static rlim_t _network_last_accepted;

// Whether one more connection would take a descriptor that is kept. The system gives the lowest free one, so
// that as long as those of connections are low, there are enough.
static bool _network_is_full(const network_socket_t *listener) {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    const rlim_t first_kept = limit.rlim_cur - std::min(DESCRIPTORS_KEPT, limit.rlim_cur / 4);
    if (_network_last_accepted < first_kept)
        return false;
    const int lowest = fcntl(_network_descriptor(listener), F_DUPFD_CLOEXEC, 0);
    if (lowest == -1)
        return true;
    close(lowest);
    errno = EMFILE;
    return static_cast<rlim_t>(lowest) >= first_kept;
}

network_socket_t *network_accept(network_socket_t *listener, network_proc_t *proc, void *param) {
    if (listener->is_resting)
        return nullptr;
    if (_network_is_full(listener)) {
        _network_rest(listener);
        return nullptr;
    }
    int descriptor = accept4(_network_descriptor(listener), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor == -1) {
        // After a fault of the peer's the loop tells again as long as others wait.
        if (errno != EAGAIN && errno != EWOULDBLOCK && !_network_is_error_of_peer(errno))
            _network_rest(listener);
        return nullptr;
    }
    _network_last_accepted = static_cast<rlim_t>(descriptor);
    _network_set_option(descriptor, IPPROTO_TCP, TCP_NODELAY);
    network_socket_t *socket = _network_add(descriptor, proc, param, false, false);
    if (!socket)
        _network_rest(listener);
    return socket;
}

network_socket_t *network_connect(const network_address_t *address, network_proc_t *proc, void *param,
                                  u32 *error) {
    int descriptor = _network_open(address);
    network_socket_t *socket = nullptr;
    if (descriptor != -1) {
        _network_set_option(descriptor, IPPROTO_TCP, TCP_NODELAY);
        auto *raw = reinterpret_cast<const sockaddr *>(address->bytes);
        if (connect(descriptor, raw, address->size) == 0 || errno == EINPROGRESS || errno == EINTR) {
            socket = _network_add(descriptor, proc, param, false, true);
        } else {
            _network_close_descriptor(descriptor);
        }
    }
    *error = socket ? 0 : static_cast<u32>(errno);
    return socket;
}

void network_close(network_socket_t *socket) {
    if (socket->is_resting)
        event_remove(_network_rest_proc, socket);
    _network_unwatch(socket);
    close(_network_descriptor(socket));
    network_socket_free(socket);
}

// --- Bytes ------------------------------------------------------------------------------------------------

static bool _network_is_wait(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

i32 network_receive(network_socket_t *socket, void *bytes, u32 size) {
    ssize_t taken;
    do
        taken = recv(_network_descriptor(socket), bytes, std::min<u32>(size, INT_MAX), 0);
    while (taken == -1 && errno == EINTR);
    if (taken == -1 && _network_is_wait(errno))
        return NETWORK_WAIT;
    if (taken <= 0 && size) {
        socket->is_at_end = true;
        socket->is_break_told |= taken < 0;
        _network_watch(socket);
    }
    return taken < 0 ? NETWORK_FAILED : static_cast<i32>(taken);
}

i32 network_send(network_socket_t *socket, const void *bytes, u32 size) {
    ssize_t sent;
    do
        sent = send(_network_descriptor(socket), bytes, std::min<u32>(size, INT_MAX), MSG_NOSIGNAL);
    while (sent == -1 && errno == EINTR);
    if (sent >= 0)
        return static_cast<i32>(sent);
    if (!_network_is_wait(errno))
        return NETWORK_FAILED;
    network_request_write(socket);
    return NETWORK_WAIT;
}

void network_request_write(network_socket_t *socket) {
    socket->wants_write = true;
    _network_watch(socket);
}

void network_shutdown(network_socket_t *socket) {
    shutdown(_network_descriptor(socket), SHUT_WR);
}

void network_set_reading(network_socket_t *socket, bool is_on) {
    socket->is_reading = is_on;
    _network_watch(socket);
}

} // namespace findwright
