#include "remote/server_listener.h"

#include "os/debug.h"
#include "os/os.h"

#include <cstring>

namespace findwright {

// What one call of server_listen works with.
struct server_listen_t {
    server_listeners_t *listeners;
    u32 port;
    network_proc_t *proc;
    void *param;
    const server_listener_texts_t *texts;
    utf8_buf_t *error;
};

// An address with its port, as addresses are written.
static void _server_get_address_text(const network_address_t *address, utf8_buf_t *out) {
    utf8_buf_t host;
    utf8_buf_init(&host);
    network_address_to_text(address, &host);
    utf8_buf_printf(out, std::strchr(host.data, ':') ? "[%s]:%u" : "%s:%u", host.data,
                    network_address_get_port(address));
    utf8_buf_kill(&host);
}

static void _server_tell_failure(const server_listen_t *listen, const network_address_t *address, u32 error,
                                 const char *call) {
    debug_printf("%s failed %d\n", call, error);
    const server_listener_texts_t *texts = listen->texts;
    const char *format = std::strcmp(call, "socket") == 0 ? texts->socket_failed
                         : std::strcmp(call, "bind") == 0 ? texts->bind_failed
                                                          : texts->listen_failed;
    utf8_buf_t where;
    utf8_buf_init(&where);
    _server_get_address_text(address, &where);
    char why[256];
    os_error_text(error, why, sizeof why);
    utf8_buf_printf(listen->error, format, where.data, why);
    utf8_buf_kill(&where);
}

// Whether one of the listeners hears what comes to that address: one on the address itself, or on all of its
// family.
static bool _server_is_heard(const server_listeners_t *listeners, const network_address_t *address) {
    for (u32 i = 0; i < listeners->count; i++) {
        const network_address_t *other = &listeners->addresses[i];
        if (other->family == address->family &&
            (network_address_is_any(other) || network_address_is_same_host(other, address)))
            return true;
    }
    return false;
}

// The port that the system chose for the first listener is tried for the others, too.
static network_socket_t *_server_listen_on(const server_listen_t *listen, network_address_t *address,
                                           u32 *error, const char **call) {
    const server_listeners_t *listeners = listen->listeners;
    if (listen->port == 0 && listeners->count) {
        network_address_t same = *address;
        network_address_set_port(&same, network_address_get_port(&listeners->addresses[0]));
        network_socket_t *socket = network_listen(&same, listen->proc, listen->param, error, call);
        if (socket) {
            *address = same;
            return socket;
        }
    }
    return network_listen(address, listen->proc, listen->param, error, call);
}

// False when the address is not listened on, which need not be the user's concern.
static bool _server_listen_address(const server_listen_t *listen, network_address_t *address, bool is_any) {
    server_listeners_t *listeners = listen->listeners;
    if (_server_is_heard(listeners, address))
        return true;
    if (listeners->count == SERVER_LISTENERS)
        return false;
    debug_printf("bind to family %d, protocol %d, socktype %d\n", address->system_family, address->protocol,
                 address->socket_type);
    u32 error;
    const char *call;
    network_socket_t *socket = _server_listen_on(listen, address, &error, &call);
    if (!socket) {
        // Of all addresses of the machine, those that it does not have are not missed.
        if (is_any && network_error_is_no_family(error))
            debug_printf("%s failed %d\n", call, error);
        else
            _server_tell_failure(listen, address, error, call);
        return false;
    }
    network_address_t *place = &listeners->addresses[listeners->count];
    if (!network_get_local_address(socket, place)) // with the port that the system chose
        *place = *address;
    listeners->sockets[listeners->count++] = socket;
    return true;
}

// One element of the bindings. False: the walk ends.
static bool _server_listen_element(const server_listen_t *listen, const char *element) {
    network_address_t addresses[NETWORK_ADDRESSES];
    i32 error;
    u32 count = network_lookup(element, listen->port, true, addresses, NETWORK_ADDRESSES, &error);
    if (count == 0) {
        utf8_buf_t why;
        utf8_buf_init(&why);
        network_lookup_error_text(error, &why);
        debug_printf("getaddrinfo failed %d\n", error);
        utf8_buf_printf(listen->error, listen->texts->lookup_failed, element, why.data);
        utf8_buf_kill(&why);
    }
    bool listens = false;
    for (u32 i = 0; i < count; i++)
        listens |= _server_listen_address(listen, &addresses[i], !*element);
    return listens;
}

bool server_listen(server_listeners_t *listeners, const char *bindings, u32 port, network_proc_t *proc,
                   void *param, const server_listener_texts_t *texts, utf8_buf_t *error) {
    server_listen_t listen = {listeners, port, proc, param, texts, error};
    listeners->count = 0;
    utf8_buf_empty(error);
    utf8_buf_t element;
    utf8_buf_init(&element);
    bool has_any = false, goes_on = true;
    const char *cursor = bindings;
    while (goes_on && (cursor = utf8_buf_next_list_item(&element, cursor))) {
        if (!element.length)
            continue;
        has_any = true;
        goes_on = _server_listen_element(&listen, element.data);
    }
    if (!has_any)
        _server_listen_element(&listen, "");
    utf8_buf_kill(&element);
    return listeners->count != 0;
}

void server_listeners_close(server_listeners_t *listeners) {
    for (u32 i = 0; i < listeners->count; i++)
        network_close(listeners->sockets[i]);
    listeners->count = 0;
}

} // namespace findwright
