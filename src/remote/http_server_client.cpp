#include "remote/http_server_internal.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "remote/http_resource.h"

#include <cstring>
#include <new>

namespace findwright {

static constexpr u32 ACCEPT_MAX = 64;           // connections that are taken before others have their turn
static constexpr u32 DROPPED_MAX = 1024 * 1024; // bytes that are taken from a client behind its request
static constexpr u32 STATUS_BAD_REQUEST = 400;
static constexpr u32 STATUS_UNAUTHORIZED = 401;
static constexpr u32 STATUS_FORBIDDEN = 403;
static constexpr u32 STATUS_NOT_FOUND = 404;
static constexpr u32 STATUS_MISDIRECTED = 421;
static constexpr u32 STATUS_HEAD_TOO_LARGE = 431;
static constexpr u32 STATUS_UNAVAILABLE = 503;

static void _http_server_socket_proc(void *param, u32 events);

// --- Life --------------------------------------------------------------------------------------------------

static char *_http_server_get_peer(network_socket_t *socket) {
    network_address_t address;
    utf8_buf_t text;
    utf8_buf_init(&text);
    if (network_get_peer_address(socket, &address))
        network_address_to_text(&address, &text);
    char *peer = utf8_alloc_copy(text.data);
    utf8_buf_kill(&text);
    return peer;
}

static http_server_client_t *_http_server_create_client() {
    http_server_t *server = _http_server;
    auto *client = new (mem_alloc(sizeof(http_server_client_t))) http_server_client_t();
    client->accepted = client->active = _http_server_now();
    server_receive_init(&client->receive, HTTP_SERVER_LINE_LIMIT);
    server_send_init(&client->send);
    http_request_init(&client->request);
    http_query_init(&client->query, server->params.items_per_page);
    utf8_buf_init(&client->path);
    utf8_buf_init(&client->parent);
    utf8_buf_init(&client->title);
    client->prev = server->clients_last;
    (server->clients_last ? server->clients_last->next : server->clients_first) = client;
    server->clients_last = client;
    server->client_count++;
    _http_server_watch_clock();
    return client;
}

static void _http_server_free_client(http_server_client_t *client) {
    server_receive_kill(&client->receive);
    server_send_kill(&client->send);
    http_request_kill(&client->request);
    http_query_kill(&client->query);
    utf8_buf_kill(&client->path);
    utf8_buf_kill(&client->parent);
    utf8_buf_kill(&client->title);
    if (client->peer)
        mem_free(client->peer);
    mem_free(client);
}

static void _http_server_free_dead_proc(void *) {
    _http_server_free_dead();
}

void _http_server_free_dead() {
    event_remove(_http_server_free_dead_proc, nullptr);
    while (http_server_client_t *client = _http_server->dead) {
        _http_server->dead = client->next;
        _http_server_free_client(client);
    }
}

// Whoever called may still look at the client, so it is freed later.
void _http_server_destroy_client(http_server_client_t *client) {
    http_server_t *server = _http_server;
    if (!client->socket)
        return;
    server_log_printf(&server->log, client->socket, client->peer, "Disconnected.\r\n");
    (client->prev ? client->prev->next : server->clients_first) = client->next;
    (client->next ? client->next->prev : server->clients_last) = client->prev;
    server->client_count--;
    const http_server_state_t state = client->state;
    client->state = HTTP_SERVER_SHUT;
    server->unsent -= client->counted;
    if (state == HTTP_SERVER_QUEUED)
        _http_server_dequeue(client);
    if (client->open)
        _http_server_abandon_open(client->open);
    if (client->file)
        server_file_close(client->file);
    if (client->open || client->file)
        server->file_count--;
    if (client->find)
        db_find_close(client->find);
    network_close(client->socket);
    client->socket = nullptr;
    client->open = nullptr;
    client->file = nullptr;
    client->find = nullptr;
    client->next = server->dead;
    if (!server->dead)
        event_post(_http_server_free_dead_proc, nullptr);
    server->dead = client;
    if (state == HTTP_SERVER_RUNNING)
        _http_server_cancel_current();
}

static bool _http_server_accept(network_socket_t *listener) {
    http_server_t *server = _http_server;
    http_server_client_t *client = _http_server_create_client();
    client->socket = network_accept(listener, _http_server_socket_proc, client);
    if (!client->socket) { // nobody waits: take it back
        (client->prev ? client->prev->next : server->clients_first) = nullptr;
        server->clients_last = client->prev;
        server->client_count--;
        _http_server_free_client(client);
        return false;
    }
    client->peer = _http_server_get_peer(client->socket);
    server_log_printf(&server->log, client->socket, client->peer, "Connected.\r\n");
    if (server->client_count > HTTP_SERVER_CLIENTS)
        _http_server_answer_error(client, STATUS_UNAVAILABLE);
    return true;
}

void _http_server_accept_proc(void *, u32) {
    server_listeners_t *listeners = &_http_server->listeners;
    for (u32 i = 0; i < listeners->count; i++) {
        for (u32 taken = 0; taken < ACCEPT_MAX && _http_server_accept(listeners->sockets[i]); taken++) {
        }
    }
}

// --- Sending -----------------------------------------------------------------------------------------------

void _http_server_end_answer(http_server_client_t *client) {
    server_send_flush(&client->send, true);
    client->state = HTTP_SERVER_LAST;
}

// All is sent. Who has closed already, or goes on sending what nobody reads, is not waited for.
void _http_server_shut(http_server_client_t *client) {
    client->state = HTTP_SERVER_SHUT;
    if (client->is_deaf)
        _http_server_destroy_client(client);
    else
        network_shutdown(client->socket);
}

// The queue is empty: what comes next.
static void _http_server_drained(http_server_client_t *client) {
    switch (client->state) {
    case HTTP_SERVER_FILE: _http_server_send_file(client); break;
    case HTTP_SERVER_LAST: _http_server_shut(client); break;
    default: break;
    }
}

u64 _http_server_get_share() {
    return _http_server->unsent < HTTP_SERVER_SHARED ? HTTP_SERVER_SHARE : HTTP_SERVER_SMALL_SHARE;
}

static void _http_server_count_unsent(http_server_client_t *client) {
    _http_server->unsent += client->send.queued - client->counted;
    client->counted = client->send.queued;
}

void _http_server_go_on(http_server_client_t *client) {
    if (!client->socket)
        return;
    const u64 queued = client->send.queued;
    const server_send_result_t result = server_send_run(&client->send, client->socket);
    _http_server_count_unsent(client);
    if (result == SERVER_SEND_FAILED) {
        _http_server_destroy_client(client);
        return;
    }
    if (client->send.queued != queued)
        client->active = _http_server_now();
    if (client->state == HTTP_SERVER_ROWS && client->send.queued < _http_server_get_share() / 2)
        _http_server_enqueue(client); // its next rows are ready by the time it has taken these
    else if (result == SERVER_SEND_DONE)
        _http_server_drained(client);
}

void _http_server_answer_error(http_server_client_t *client, u32 status) {
    client->request_done = true;
    server_log_printf(&_http_server->log, client->socket, client->peer, "%d %s\r\n", static_cast<i32>(status),
                      http_status_reason(status));
    http_cat_error(&client->send.text, &_http_server->params.texts, status);
    _http_server_end_answer(client);
    _http_server_go_on(client);
}

// --- What is asked for -------------------------------------------------------------------------------------

// The names that the Host line may have: those that were bound by name, and this computer's.
static bool _http_server_is_own_host(http_server_client_t *client) {
    const http_server_t *server = _http_server;
    if (!client->request.host)
        return true; // no browser; it could not be led here by a page
    network_address_t address;
    utf8_buf_t local, names;
    utf8_buf_init(&local);
    utf8_buf_init(&names);
    const bool is_known = network_get_local_address(client->socket, &address);
    if (is_known)
        network_address_to_text(&address, &local);
    utf8_buf_printf(&names, "%s;%s", server->params.bindings, server->params.host_names);
    const http_host_rule_t rule = {names.data, local.data, is_known && network_address_is_loopback(&address),
                                   server->is_any_address};
    const bool is_own = !client->request.has_second_host && http_host_is_own(client->request.host, &rule);
    utf8_buf_kill(&names);
    utf8_buf_kill(&local);
    return is_own;
}

static bool _http_server_is_logged_in(const http_server_client_t *client) {
    const http_server_params_t *params = &_http_server->params;
    return (!*params->username && !*params->password) || client->request.authenticated;
}

// A file of the home folder, if the path can be one: relative, with nothing that has a meaning of its own.
static bool _http_server_open_home(http_server_client_t *client, http_server_file_kind_t kind,
                                   const char *path) {
    const char *home = _http_server->params.home;
    utf8_buf_t below, full;
    utf8_buf_init(&below);
    utf8_buf_init(&full);
    utf8_buf_printf(&below, "\\%s", path);
    utf8_buf_canonicalize(&below); // `..` does not go above the `\`
    const bool is_relative = *home && below.length > 1 && below.data[1] != '\\' &&
                             !std::memchr(below.data, ':', static_cast<size_t>(below.length)) &&
                             os_folder_exists(home);
    if (is_relative) {
        utf8_buf_path_cat_filename(&full, home, utf8_length(home), below.data + 1,
                                   static_cast<u32>(below.length) - 1);
        utf8_buf_fix_path(&full); // with a `/` in it Windows would take names such as `aux` for devices
        _http_server_open(client, kind, full.data, utf8_length(home));
    }
    utf8_buf_kill(&full);
    utf8_buf_kill(&below);
    return is_relative;
}

void _http_server_answer_without_home(http_server_client_t *client) {
    const http_resource_t *resource =
        http_resource_find(client->path.data, static_cast<u32>(client->path.length));
    if (resource) {
        _http_server_send_embedded(client, resource);
        return;
    }
    client->job = HTTP_SERVER_JOB_PATH;
    _http_server_enqueue(client);
}

static void _http_server_answer_path(http_server_client_t *client) {
    const char *default_page = _http_server->params.default_page;
    if (client->path.length == 0 && *default_page) {
        if (!_http_server_open_home(client, HTTP_SERVER_FILE_DEFAULT, default_page))
            _http_server_answer_error(client, STATUS_NOT_FOUND);
        return;
    }
    if (client->path.length == 0 || !_http_server_open_home(client, HTTP_SERVER_FILE_HOME, client->path.data))
        _http_server_answer_without_home(client);
}

static void _http_server_answer_get(http_server_client_t *client) {
    const char *text;
    const bool is_path = http_request_get_path(client->request.url, &client->path, &text);
    if (text)
        http_query_parse(&client->query, text, utf8_length(text));
    if (!is_path) {
        _http_server_answer_error(client, STATUS_NOT_FOUND);
    } else if (client->path.length == 0 && client->query.search) {
        if (client->query.json && !client->query.has_count)
            client->query.count = HTTP_COUNT_ALL;
        client->job = HTTP_SERVER_JOB_SEARCH;
        _http_server_enqueue(client);
    } else {
        _http_server_answer_path(client);
    }
}

// At the empty line.
static void _http_server_answer(http_server_client_t *client) {
    const http_request_t *request = &client->request;
    client->request_done = true;
    if (!request->url || request->url[0] != '/') {
        _http_server_answer_error(client, STATUS_BAD_REQUEST);
        return;
    }
    server_log_printf(&_http_server->log, client->socket, client->peer, "GET %s\r\n", request->url);
    if (!_http_server_is_own_host(client))
        _http_server_answer_error(client, STATUS_MISDIRECTED);
    else if (http_request_is_foreign(request))
        _http_server_answer_error(client, STATUS_FORBIDDEN);
    else if (!_http_server_is_logged_in(client))
        _http_server_answer_error(client, STATUS_UNAUTHORIZED);
    else
        _http_server_answer_get(client);
}

// --- Receiving ---------------------------------------------------------------------------------------------

static bool _http_server_line_proc(void *param, char *line, u32 length) {
    auto *client = static_cast<http_server_client_t *>(param);
    const http_login_t login = {_http_server->params.username, _http_server->params.password};
    client->head_length += length + 1;
    if (client->head_length > HTTP_SERVER_HEAD_LIMIT) {
        _http_server_answer_error(client, STATUS_HEAD_TOO_LARGE);
        return false;
    }
    if (!http_request_parse_line(&client->request, line, length, &login))
        return true;
    _http_server_answer(client);
    return false;
}

static void _http_server_stop_reading(http_server_client_t *client) {
    client->is_deaf = true;
    network_set_reading(client->socket, false);
    if (client->state == HTTP_SERVER_SHUT)
        _http_server_destroy_client(client);
}

// The peer sends no more. Who has only asked has left; who has an answer on its way may still take it.
static void _http_server_peer_closed(http_server_client_t *client) {
    if (client->state == HTTP_SERVER_FILE || client->state == HTTP_SERVER_LAST)
        _http_server_stop_reading(client);
    else
        _http_server_destroy_client(client);
}

// Lines behind the request are dropped.
static void _http_server_drop(http_server_client_t *client) {
    char bytes[16384];
    const i32 taken = network_receive(client->socket, bytes, sizeof bytes);
    if (taken == NETWORK_WAIT)
        return;
    if (taken == NETWORK_FAILED)
        _http_server_destroy_client(client);
    else if (taken == 0)
        _http_server_peer_closed(client);
    else if ((client->dropped += static_cast<u32>(taken)) > DROPPED_MAX)
        _http_server_stop_reading(client);
}

static void _http_server_receive(http_server_client_t *client) {
    if (client->request_done) {
        _http_server_drop(client);
        return;
    }
    switch (server_receive_lines(&client->receive, client->socket, _http_server_line_proc, client)) {
    case SERVER_RECEIVE_WAIT:
    case SERVER_RECEIVE_ENDED: break;
    case SERVER_RECEIVE_MORE: client->active = _http_server_now(); break;
    case SERVER_RECEIVE_CLOSED:
    case SERVER_RECEIVE_FAILED: _http_server_destroy_client(client); break;
    case SERVER_RECEIVE_LIMIT: _http_server_answer_error(client, STATUS_HEAD_TOO_LARGE); break;
    }
}

static void _http_server_socket_proc(void *param, u32 events) {
    auto *client = static_cast<http_server_client_t *>(param);
    if (events & NETWORK_READ)
        _http_server_receive(client);
    if (client->socket && events & NETWORK_WRITE)
        _http_server_go_on(client);
}

} // namespace findwright
