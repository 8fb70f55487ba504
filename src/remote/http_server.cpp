#include "remote/http_server_internal.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"

#include <chrono>
#include <new>

namespace findwright {

static constexpr u32 CHECK_PERIOD = 500; // milliseconds between two looks for late clients
static constexpr u64 QUERY_IDLE_LIMIT =
    60000;                           // milliseconds without a search after which the query is dropped
static constexpr u32 PORT_HTTP = 80; // the one that an address need not name

http_server_t *_http_server;

u64 _http_server_now() {
    using namespace std::chrono;
    return static_cast<u64>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

// --- The copy of the settings ------------------------------------------------------------------------------

// All texts of the parameters, so that copying and freeing them cannot miss one.
template<class Action>
static void _http_server_for_texts(http_server_params_t *params, Action action) {
    const char **texts[] = {&params->bindings,
                            &params->username,
                            &params->password,
                            &params->home,
                            &params->default_page,
                            &params->title_format,
                            &params->host_names,
                            &params->log_filename,
                            &params->title_variables.text,
                            &params->title_variables.instance,
                            &params->title_variables.version,
                            &params->title_variables.title,
                            &params->texts.program_name,
                            &params->texts.server_name,
                            &params->texts.search_label,
                            &params->texts.one_result,
                            &params->texts.results,
                            &params->texts.results_range,
                            &params->texts.name,
                            &params->texts.path,
                            &params->texts.size,
                            &params->texts.date_modified,
                            &params->texts.previous,
                            &params->texts.next,
                            &params->texts.index_of,
                            &params->texts.up,
                            &params->listener_texts.lookup_failed,
                            &params->listener_texts.socket_failed,
                            &params->listener_texts.bind_failed,
                            &params->listener_texts.listen_failed};
    static_assert(sizeof(http_texts_t) == 14 * sizeof(char *) &&
                  sizeof(server_listener_texts_t) == 4 * sizeof(char *));
    for (const char **text : texts)
        action(text);
}

static void _http_server_copy_params(http_server_params_t *out, const http_server_params_t *params) {
    *out = *params;
    _http_server_for_texts(out, [](const char **text) { *text = utf8_alloc_copy(*text ? *text : ""); });
}

static void _http_server_free_params(http_server_params_t *params) {
    _http_server_for_texts(params, [](const char **text) { mem_free(const_cast<char *>(*text)); });
}

// --- The clock ---------------------------------------------------------------------------------------------

static bool _http_server_is_late(const http_server_client_t *client, u64 now) {
    switch (client->state) {
    case HTTP_SERVER_HEAD:
        if (now - client->accepted >= http_server_limits.head_timeout)
            return true;
        break;
    case HTTP_SERVER_OPENING:
    case HTTP_SERVER_QUEUED:
    case HTTP_SERVER_RUNNING: return false; // the server is at work for it
    case HTTP_SERVER_ROWS:
    case HTTP_SERVER_FILE:
    case HTTP_SERVER_LAST:
    case HTTP_SERVER_SHUT: break;
    }
    return now - client->active >= http_server_limits.idle_timeout;
}

static void _http_server_check_proc(void *) {
    http_server_t *server = _http_server;
    const u64 now = _http_server_now();
    for (http_server_client_t *client = server->clients_first, *next; client; client = next) {
        next = client->next;
        if (_http_server_is_late(client, now)) {
            debug_printf("http client %d is late\n", network_get_number(client->socket));
            _http_server_destroy_client(client);
        }
    }
    // Of a busy database it would be waited for.
    if (server->query && !server->current_client && !server->pending_first &&
        now - server->searched >= QUERY_IDLE_LIMIT && !db_query_is_busy(server->query))
        _http_server_drop_query();
    server->is_checking = false;
    if (server->clients_first || server->query)
        _http_server_watch_clock();
}

void _http_server_watch_clock() {
    if (_http_server->is_checking)
        return;
    _http_server->is_checking = true;
    event_post_after(CHECK_PERIOD, _http_server_check_proc, nullptr);
}

// --- Life --------------------------------------------------------------------------------------------------

static bool _http_server_listen(http_server_t *server, utf8_buf_t *error) {
    utf8_buf_empty(error);
    if (!network_start(error))
        return false;
    if (!server_listen(&server->listeners, server->params.bindings, server->params.port,
                       _http_server_accept_proc, nullptr, &server->params.listener_texts, error)) {
        network_stop();
        return false;
    }
    for (u32 i = 0; i < server->listeners.count; i++)
        server->is_any_address |= network_address_is_any(&server->listeners.addresses[i]);
    return true;
}

static u64 _http_server_get_program_date() {
    utf8_buf_t name;
    os_file_info_t info = {VALUE_UNKNOWN, VALUE_UNKNOWN};
    utf8_buf_init(&name);
    if (os_get_program_path(&name))
        os_get_file_info(name.data, &info);
    utf8_buf_kill(&name);
    return info.date_modified;
}

static void _http_server_free(http_server_t *server) {
    _http_server_free_params(&server->params);
    db_highlight_kill(&server->name_marks);
    db_highlight_kill(&server->path_marks);
    server_log_kill(&server->log);
    mem_free(server);
}

bool http_server_start(db_t *db, const http_server_params_t *params, utf8_buf_t *error) {
    http_server_stop();
    auto *server = new (mem_alloc(sizeof(http_server_t))) http_server_t();
    server->db = db;
    server->program_date = _http_server_get_program_date();
    _http_server_copy_params(&server->params, params);
    db_highlight_init(&server->name_marks);
    db_highlight_init(&server->path_marks);
    server_log_init(&server->log, server->params.log_filename, params->log_max_size, params->log_delta_size);
    _http_server = server;
    if (!_http_server_listen(server, error)) {
        _http_server = nullptr;
        _http_server_free(server);
        return false;
    }
    if (error->length)
        server_log_printf(&server->log, nullptr, nullptr, "HTTP server started, but with errors: %s\n",
                          error->data);
    server_log_printf(&server->log, nullptr, nullptr, "HTTP server online.\r\n");
    return true;
}

void http_server_stop() {
    http_server_t *server = _http_server;
    if (!server)
        return;
    server_listeners_close(&server->listeners);
    // Nobody is to be answered any more, so the queue goes first.
    while (server->pending_first)
        _http_server_dequeue(server->pending_first);
    while (server->clients_first)
        _http_server_destroy_client(server->clients_first);
    _http_server_free_dead();
    _http_server_drop_query();
    event_remove(_http_server_check_proc, nullptr);
    event_remove(_http_server_run, nullptr);
    server_log_printf(&server->log, nullptr, nullptr, "HTTP server offline.\r\n");
    network_stop();
    _http_server = nullptr;
    _http_server_free(server);
}

bool http_server_is_running() {
    return _http_server != nullptr;
}

u32 http_server_get_port() {
    return _http_server ? network_address_get_port(&_http_server->listeners.addresses[0]) : 0;
}

void http_server_get_url(utf8_buf_t *out) {
    utf8_buf_empty(out);
    if (!_http_server)
        return;
    const network_address_t *address = &_http_server->listeners.addresses[0];
    const bool is_ip6 = address->family == NETWORK_FAMILY_IP6;
    utf8_buf_t host;
    utf8_buf_init(&host);
    if (network_address_is_any(address))
        utf8_buf_copy_string(&host, is_ip6 ? "::1" : "127.0.0.1");
    else
        network_address_to_text(address, &host);
    utf8_buf_printf(out, is_ip6 ? "http://[%s]" : "http://%s", host.data);
    if (http_server_get_port() != PORT_HTTP)
        utf8_buf_cat_printf(out, ":%u", http_server_get_port());
    utf8_buf_cat_byte(out, '/');
    utf8_buf_kill(&host);
}

} // namespace findwright
