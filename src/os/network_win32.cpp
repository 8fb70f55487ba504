// WSAAsyncSelect posts to one hidden window, edge-triggered: what is left is told again only because the
// procedure's own call asked for more. Where it made none, or stopped in the middle of something, the message
// is posted again here, so that the callers see the same as on other systems.
//
// Messages of a socket wait in the queue when it is closed, and the system gives its number to the next one.
// So each socket has a message number of its own, and that stays taken until a last message under it, posted
// at the close and thus behind all others, has come.
#include "os/os_win32.h"
// Before the system's own older one.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "base/mem.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/network_internal.h"
#include "os/os.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace findwright {

static constexpr wchar_t NETWORK_CLASS[] = L"FINDWRIGHT_NETWORK";
static constexpr UINT MESSAGE_FIRST = WM_APP;
static constexpr u32 MESSAGES = 0xC000 - WM_APP; // up to those that the system registers
// In the low half of a message's lParam, beside the system's FD_READ and so on.
static constexpr u32 EVENT_FREE = 0x8000;

static HWND _network_window;
static network_socket_t **_network_table; // by message number
static u32 _network_last_message;

// What stands in the table for a socket that was closed, until its last message.
static network_socket_t _network_closed;

static void _network_handle_message(u32 message, std::intptr_t handle, u32 events, u32 error);

static LRESULT CALLBACK _network_window_proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message < MESSAGE_FIRST || message >= MESSAGE_FIRST + MESSAGES)
        return DefWindowProcW(window, message, wparam, lparam);
    if (_network_table)
        _network_handle_message(message - MESSAGE_FIRST, static_cast<std::intptr_t>(wparam),
                                WSAGETSELECTEVENT(lparam), WSAGETSELECTERROR(lparam));
    return 0;
}

static bool _network_create_window() {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = _network_window_proc;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = NETWORK_CLASS;
    if (!RegisterClassExW(&window_class))
        debug_fatal("failed to register class %s %d", "FINDWRIGHT_NETWORK", GetLastError());
    _network_window = CreateWindowExW(0, NETWORK_CLASS, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                      window_class.hInstance, nullptr);
    return _network_window != nullptr;
}

static void _network_destroy_window() {
    if (_network_window)
        DestroyWindow(_network_window);
    _network_window = nullptr;
    UnregisterClassW(NETWORK_CLASS, GetModuleHandleW(nullptr));
}

bool network_platform_start(utf8_buf_t *error) {
    WSADATA data;
    u32 result = static_cast<u32>(WSAStartup(MAKEWORD(2, 2), &data));
    if (result == 0 && !_network_create_window()) {
        result = GetLastError();
        _network_destroy_window();
        WSACleanup();
    }
    if (result != 0) {
        char text[256];
        os_error_text(result, text, sizeof text);
        if (error)
            utf8_buf_printf(error, "%d: %s", result, text);
        return false;
    }
    _network_table = static_cast<network_socket_t **>(mem_alloc(MESSAGES * sizeof(network_socket_t *)));
    std::fill_n(_network_table, MESSAGES, nullptr);
    return true;
}

void network_platform_stop() {
    _network_destroy_window();
    mem_free(_network_table);
    _network_table = nullptr;
    WSACleanup();
}

// --- Addresses --------------------------------------------------------------------------------------------

// The number of the interface; names of them are not used here.
static bool _network_scope_from_text(const char *text, u32 *scope) {
    char *end;
    unsigned long number = std::strtoul(text, &end, 10);
    *scope = static_cast<u32>(number);
    return text[0] >= '0' && text[0] <= '9' && *end == 0;
}

static void _network_scope_to_text(u32 scope, utf8_buf_t *out) {
    utf8_buf_cat_printf(out, "%u", scope);
}

using _network_info_t = ADDRINFOW;
static constexpr i32 NETWORK_NOT_FOUND = WSAHOST_NOT_FOUND;

static i32 _network_ask(const char *host, const char *service, const ADDRINFOW *hints, ADDRINFOW **list) {
    return GetAddrInfoW(host ? os_wide_t(host).text() : nullptr, os_wide_t(service).text(), hints, list);
}

static void _network_give_back(ADDRINFOW *list) {
    FreeAddrInfoW(list);
}

#include "os/network_address.inl"

void network_lookup_error_text(i32 error, utf8_buf_t *out) {
    char text[256];
    os_error_text(static_cast<u32>(error), text, sizeof text);
    utf8_buf_copy_string(out, text);
}

static SOCKET _network_handle(const network_socket_t *socket) {
    return static_cast<SOCKET>(socket->handle);
}

static bool _network_get_address(network_socket_t *socket, network_address_t *out,
                                 int(WSAAPI *get)(SOCKET, sockaddr *, int *)) {
    sockaddr_storage raw = {};
    int size = sizeof raw;
    *out = {};
    return get(_network_handle(socket), reinterpret_cast<sockaddr *>(&raw), &size) == 0 &&
           _network_address_take(out, &raw, static_cast<size_t>(size), raw.ss_family);
}

bool network_get_local_address(network_socket_t *socket, network_address_t *out) {
    return _network_get_address(socket, out, getsockname);
}

bool network_get_peer_address(network_socket_t *socket, network_address_t *out) {
    return _network_get_address(socket, out, getpeername);
}

// --- Messages ---------------------------------------------------------------------------------------------

// A number that no socket has, the one for longest. False when all are taken.
static bool _network_take_message(network_socket_t *socket) {
    for (u32 i = 0; i < MESSAGES; i++) {
        _network_last_message = (_network_last_message + 1) % MESSAGES;
        if (_network_table[_network_last_message])
            continue;
        _network_table[_network_last_message] = socket;
        socket->message = _network_last_message;
        return true;
    }
    return false;
}

static bool _network_post(const network_socket_t *socket, u32 events) {
    return PostMessageW(_network_window, MESSAGE_FIRST + socket->message, static_cast<WPARAM>(socket->handle),
                        WSAMAKESELECTREPLY(events, 0)) != 0;
}

static u32 _network_get_told(network_socket_t *socket, u32 events, u32 error) {
    if (socket->is_listener)
        return socket->is_resting ? 0 : NETWORK_ACCEPT;
    u32 told = 0;
    if (socket->is_connecting && (events & (FD_CONNECT | FD_CLOSE))) {
        socket->is_connecting = false;
        socket->error = error;
        return NETWORK_CONNECT;
    }
    if (socket->is_connecting)
        return 0;
    if ((events & (FD_READ | FD_CLOSE)) && socket->is_reading && !socket->is_break_told) {
        if (socket->is_at_end) {
            if (!(events & FD_CLOSE) || error == 0)
                return told;
            socket->is_break_told = true;
        }
        told |= NETWORK_READ;
    }
    // A connection that broke has no room any more; the send says so.
    if ((events & (FD_WRITE | FD_CLOSE)) && socket->wants_write) {
        socket->wants_write = false;
        told |= NETWORK_WRITE;
    }
    return told;
}

// Posts again what is still to be taken. Any try to take something has the system tell of what is left, but
// not of the end, which it tells once and perhaps while there were bytes in front of it.
static void _network_tell_again(network_socket_t *socket, u32 told, u32 events) {
    if ((told & NETWORK_ACCEPT) && socket->is_untouched && !socket->is_resting)
        _network_post(socket, FD_ACCEPT);
    if (!(told & NETWORK_READ) || !socket->is_reading || socket->is_at_end)
        return;
    u32 again = events & FD_CLOSE;
    if (socket->is_untouched)
        again |= FD_READ;
    if (again)
        _network_post(socket, again);
}

static void _network_handle_message(u32 message, std::intptr_t handle, u32 events, u32 error) {
    network_socket_t *socket = _network_table[message];
    if (events & EVENT_FREE) {
        if (socket == &_network_closed)
            _network_table[message] = nullptr;
        return;
    }
    // Those of the listener's number can be of a connection that was just accepted and has one of its own
    // now.
    if (!socket || socket == &_network_closed || socket->handle != handle)
        return;
    socket->is_close_seen |= (events & FD_CLOSE) != 0;
    socket->is_untouched = true;
    u32 told = _network_get_told(socket, events, error);
    if (told && network_tell(socket, told))
        _network_tell_again(socket, told, events);
}

// --- Sockets ----------------------------------------------------------------------------------------------

static SOCKET _network_open(const network_address_t *address) {
    SOCKET handle = socket(address->system_family, address->socket_type, address->protocol);
    if (handle != INVALID_SOCKET)
        SetHandleInformation(reinterpret_cast<HANDLE>(handle), HANDLE_FLAG_INHERIT, 0);
    return handle;
}

static void _network_set_option(SOCKET handle, int level, int option) {
    BOOL on = TRUE;
    setsockopt(handle, level, option, reinterpret_cast<const char *>(&on), sizeof on);
}

// Keeps the error number.
static void _network_close_handle(SOCKET handle) {
    int error = WSAGetLastError();
    closesocket(handle);
    WSASetLastError(error);
}

// Takes the handle over, and has the system tell of it; 0 with the error number when it does not. From then
// on no call on it waits.
static network_socket_t *_network_add(SOCKET handle, network_proc_t *proc, void *param, long events) {
    network_socket_t *socket = network_socket_new(static_cast<std::intptr_t>(handle), proc, param);
    socket->is_listener = (events & FD_ACCEPT) != 0;
    socket->is_connecting = (events & FD_CONNECT) != 0;
    if (!_network_take_message(socket)) {
        network_socket_free(socket);
        closesocket(handle);
        WSASetLastError(WSAENOBUFS);
        return nullptr;
    }
    if (WSAAsyncSelect(handle, _network_window, MESSAGE_FIRST + socket->message, events) == 0)
        return socket;
    int error = WSAGetLastError();
    network_close(socket);
    WSASetLastError(error);
    return nullptr;
}

// 0, or the name of the call that failed.
static const char *_network_bind(SOCKET handle, const network_address_t *address) {
    // Without it another program could listen on the same port, and take the connections.
    _network_set_option(handle, SOL_SOCKET, SO_EXCLUSIVEADDRUSE);
    if (address->family == NETWORK_FAMILY_IP6)
        _network_set_option(handle, IPPROTO_IPV6, IPV6_V6ONLY);
    if (bind(handle, reinterpret_cast<const sockaddr *>(address->bytes), static_cast<int>(address->size)) !=
        0)
        return "bind";
    return listen(handle, SOMAXCONN) != 0 ? "listen" : nullptr;
}

network_socket_t *network_listen(const network_address_t *address, network_proc_t *proc, void *param,
                                 u32 *error, const char **failed) {
    network_socket_t *socket = nullptr;
    const char *call = "socket";
    SOCKET handle = _network_open(address);
    if (handle != INVALID_SOCKET) {
        call = _network_bind(handle, address);
        if (call)
            _network_close_handle(handle);
        else if (!(socket = _network_add(handle, proc, param, FD_ACCEPT | FD_CLOSE)))
            call = "listen";
    }
    *error = socket ? 0 : static_cast<u32>(WSAGetLastError());
    if (failed)
        *failed = call;
    return socket;
}

bool network_error_is_no_family(u32 error) {
    return error == WSAEAFNOSUPPORT || error == WSAEADDRNOTAVAIL;
}

static void _network_rest_proc(void *param) {
    auto *socket = static_cast<network_socket_t *>(param);
    socket->is_resting = false;
    _network_post(socket, FD_ACCEPT);
}

static void _network_rest(network_socket_t *listener) {
    debug_printf("accept failed %d\n", WSAGetLastError());
    listener->is_resting = true;
    event_post_after(NETWORK_REST, _network_rest_proc, listener);
}

static constexpr long CONNECTION_EVENTS = FD_READ | FD_WRITE | FD_CLOSE;

network_socket_t *network_accept(network_socket_t *listener, network_proc_t *proc, void *param) {
    if (listener->is_resting)
        return nullptr;
    listener->is_untouched = false; // the call has the system tell of the next one
    SOCKET handle = accept(_network_handle(listener), nullptr, nullptr);
    if (handle == INVALID_SOCKET) {
        switch (WSAGetLastError()) {
        case WSAEWOULDBLOCK:
        case WSAEINTR:
        case WSAECONNRESET: break; // of who hung up before
        default: _network_rest(listener);
        }
        return nullptr;
    }
    SetHandleInformation(reinterpret_cast<HANDLE>(handle), HANDLE_FLAG_INHERIT, 0);
    _network_set_option(handle, IPPROTO_TCP, TCP_NODELAY);
    network_socket_t *socket = _network_add(handle, proc, param, CONNECTION_EVENTS);
    if (!socket)
        _network_rest(listener);
    return socket;
}

network_socket_t *network_connect(const network_address_t *address, network_proc_t *proc, void *param,
                                  u32 *error) {
    SOCKET handle = _network_open(address);
    network_socket_t *socket = nullptr;
    if (handle != INVALID_SOCKET) {
        _network_set_option(handle, IPPROTO_TCP, TCP_NODELAY);
        socket = _network_add(handle, proc, param, CONNECTION_EVENTS | FD_CONNECT);
    }
    auto *raw = reinterpret_cast<const sockaddr *>(address->bytes);
    if (socket && connect(handle, raw, static_cast<int>(address->size)) != 0 &&
        WSAGetLastError() != WSAEWOULDBLOCK) {
        int connect_error = WSAGetLastError();
        network_close(socket);
        WSASetLastError(connect_error);
        socket = nullptr;
    }
    *error = socket ? 0 : static_cast<u32>(WSAGetLastError());
    return socket;
}

void network_close(network_socket_t *socket) {
    if (socket->is_resting)
        event_remove(_network_rest_proc, socket);
    WSAAsyncSelect(_network_handle(socket), _network_window, 0, 0);
    closesocket(_network_handle(socket));
    // Without a last message, where the queue is full, the number is free at once; it is not the next one to
    // be taken.
    _network_table[socket->message] = _network_post(socket, EVENT_FREE) ? &_network_closed : nullptr;
    network_socket_free(socket);
}

// --- Bytes ------------------------------------------------------------------------------------------------

i32 network_receive(network_socket_t *socket, void *bytes, u32 size) {
    socket->is_untouched = false;
    int taken = recv(_network_handle(socket), static_cast<char *>(bytes),
                     static_cast<int>(std::min<u32>(size, INT_MAX)), 0);
    if (taken < 0 && WSAGetLastError() == WSAEWOULDBLOCK)
        return NETWORK_WAIT;
    if (taken <= 0 && size) {
        socket->is_at_end = true;
        socket->is_break_told |= taken < 0;
    }
    return taken < 0 ? NETWORK_FAILED : taken;
}

i32 network_send(network_socket_t *socket, const void *bytes, u32 size) {
    int sent = send(_network_handle(socket), static_cast<const char *>(bytes),
                    static_cast<int>(std::min<u32>(size, INT_MAX)), 0);
    if (sent >= 0)
        return sent;
    // One that is still being made has no room yet.
    if (WSAGetLastError() != WSAEWOULDBLOCK && !(WSAGetLastError() == WSAENOTCONN && socket->is_connecting))
        return NETWORK_FAILED;
    socket->wants_write = true; // the system will tell
    return NETWORK_WAIT;
}

void network_request_write(network_socket_t *socket) {
    socket->wants_write = true;
    _network_post(socket, FD_WRITE);
}

void network_shutdown(network_socket_t *socket) {
    shutdown(_network_handle(socket), SD_SEND);
}

void network_set_reading(network_socket_t *socket, bool is_on) {
    if (is_on && !socket->is_reading) // what came meanwhile was not told
        _network_post(socket, socket->is_close_seen ? FD_READ | FD_CLOSE : FD_READ);
    socket->is_reading = is_on;
}

} // namespace findwright
