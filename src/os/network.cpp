#include "base/mem.h"
#include "os/debug.h"
#include "os/network_internal.h"

#include <cstring>

namespace findwright {

static u32 _network_starts;
static network_socket_t *_network_sockets;

// The calls of procedures that have not returned, the latest first: it is on them that a socket that is
// closed meanwhile is struck out.
struct network_call_t {
    network_socket_t *socket;
    network_call_t *outer;
};
static network_call_t *_network_calls;

bool network_start(utf8_buf_t *error) {
    if (_network_starts == 0 && !network_platform_start(error))
        return false;
    _network_starts++;
    return true;
}

void network_stop() {
    if (--_network_starts != 0)
        return;
    while (_network_sockets)
        network_close(_network_sockets);
    network_platform_stop();
}

// --- Sockets ----------------------------------------------------------------------------------------------

network_socket_t *network_socket_new(std::intptr_t handle, network_proc_t *proc, void *param) {
    auto *socket = static_cast<network_socket_t *>(mem_alloc(sizeof(network_socket_t)));
    *socket = {};
    socket->handle = handle;
    socket->proc = proc;
    socket->param = param;
    socket->is_reading = true;
    socket->next = _network_sockets;
    if (_network_sockets)
        _network_sockets->prev = socket;
    _network_sockets = socket;
    return socket;
}

void network_socket_free(network_socket_t *socket) {
    for (network_call_t *call = _network_calls; call; call = call->outer) {
        if (call->socket == socket)
            call->socket = nullptr;
    }
    (socket->prev ? socket->prev->next : _network_sockets) = socket->next;
    if (socket->next)
        socket->next->prev = socket->prev;
    mem_free(socket);
}

bool network_tell(network_socket_t *socket, u32 events) {
    network_call_t call = {socket, _network_calls};
    _network_calls = &call;
    socket->proc(socket->param, events);
    _network_calls = call.outer;
    return call.socket != nullptr;
}

u32 network_get_error(network_socket_t *socket) {
    return socket->error;
}

u32 network_get_number(network_socket_t *socket) {
    return static_cast<u32>(socket->handle);
}

bool network_send_all(network_socket_t *socket, const void *bytes, u32 length) {
    auto *from = static_cast<const u8 *>(bytes);
    while (length) {
        i32 sent = network_send(socket, from, length);
        if (sent <= 0)
            return false;
        from += sent;
        length -= static_cast<u32>(sent);
    }
    return true;
}

bool network_printf(network_socket_t *socket, const char *format, ...) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    va_list arguments;
    va_start(arguments, format);
    utf8_buf_vprintf(&buf, format, arguments);
    va_end(arguments);
    bool is_sent = network_send_all(socket, buf.data, static_cast<u32>(buf.length));
    utf8_buf_kill(&buf);
    return is_sent;
}

// --- Addresses --------------------------------------------------------------------------------------------

static constexpr u32 IP4_SIZE = 4, IP6_SIZE = 16;
// What an IPv4 address in IPv6 form begins with.
static constexpr u8 IP4_PREFIX[IP6_SIZE - IP4_SIZE] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

void network_address_get_host(const network_address_t *address, network_parts_t *parts) {
    network_address_get_parts(address, parts);
    if (parts->family != NETWORK_FAMILY_IP6 || std::memcmp(parts->ip, IP4_PREFIX, sizeof IP4_PREFIX) != 0)
        return;
    parts->family = NETWORK_FAMILY_IP4;
    parts->scope = 0;
    std::memmove(parts->ip, parts->ip + sizeof IP4_PREFIX, IP4_SIZE);
    std::memset(parts->ip + IP4_SIZE, 0, IP6_SIZE - IP4_SIZE);
}

u32 network_address_get_port(const network_address_t *address) {
    network_parts_t parts;
    network_address_get_parts(address, &parts);
    return parts.port;
}

static bool _network_is_ip6(const network_parts_t *parts, u8 last) {
    static constexpr u8 zeros[IP6_SIZE - 1] = {};
    return std::memcmp(parts->ip, zeros, sizeof zeros) == 0 && parts->ip[IP6_SIZE - 1] == last;
}

bool network_address_is_loopback(const network_address_t *address) {
    network_parts_t parts;
    network_address_get_host(address, &parts);
    switch (parts.family) {
    case NETWORK_FAMILY_IP4: return parts.ip[0] == 127;
    case NETWORK_FAMILY_IP6: return _network_is_ip6(&parts, 1);
    default: return false;
    }
}

bool network_address_is_any(const network_address_t *address) {
    network_parts_t parts;
    network_address_get_host(address, &parts);
    return parts.family != NETWORK_FAMILY_NONE && _network_is_ip6(&parts, 0);
}

bool network_address_is_same_host(const network_address_t *a, const network_address_t *b) {
    network_parts_t of_a, of_b;
    network_address_get_host(a, &of_a);
    network_address_get_host(b, &of_b);
    return of_a.family == of_b.family && of_a.scope == of_b.scope &&
           std::memcmp(of_a.ip, of_b.ip, IP6_SIZE) == 0;
}

} // namespace findwright
