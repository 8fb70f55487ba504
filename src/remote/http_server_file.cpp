#include "remote/http_server_internal.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "os/os_shell.h"
#include "remote/http_resource.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>

namespace findwright {

static constexpr u32 STATUS_NOT_FOUND = 404;
static constexpr u32 STATUS_RANGE = 416;
static constexpr u32 STATUS_UNAVAILABLE = 503;

// --- Opening -----------------------------------------------------------------------------------------------
//
// A file system may be slow, or hang, so a thread of its own opens each file. Whoever is the last of the two,
// the thread or the client, frees what they share. That the thread is done and that this is posted are one
// step under the lock: else the client could take the event back before it is there.

enum _http_server_open_state_t : u32 { OPEN_RUNS, OPEN_DONE, OPEN_ABANDONED };
static std::mutex _http_server_open_lock;

struct http_server_open_t {
    _http_server_open_state_t state; // under _http_server_open_lock
    http_server_client_t *client;    // not for the thread
    http_server_file_kind_t kind;
    char *path;           // of the file
    u32 top_length;       // of its start, the folder that the file must lie in
    platform_file_t file; // PLATFORM_FILE_NONE: it cannot be had
    u64 size, date;
    utf8_buf_t type;
    utf8_buf_t real_path; // where it lies, when that is another place than its path says
};

static void _http_server_free_open(http_server_open_t *open) {
    if (open->file != PLATFORM_FILE_NONE)
        os_close(open->file);
    utf8_buf_kill(&open->type);
    utf8_buf_kill(&open->real_path);
    mem_free(open->path);
    mem_free(open);
}

bool _http_server_is_same_path(const utf8_buf_t *a, const utf8_buf_t *b) {
    const u32 a_length = static_cast<u32>(a->length), b_length = static_cast<u32>(b->length);
    return utf8_is_equal(a->data, a_length, b->data, b_length) ||
           (os_path_separator == '\\' && utf8_compare_lower(a->data, a_length, b->data, b_length) == 0);
}

// Where a file should lie: below its top, which may itself be a link, as its user named it, and no link on
// the way from there.
static bool _http_server_get_place(const http_server_open_t *open, utf8_buf_t *out) {
    utf8_buf_empty(out);
    bool is_known = true;
    if (open->top_length) {
        char *top = utf8_alloc_copy_length(open->path, open->top_length);
        is_known = os_get_real_path(top, out);
        mem_free(top);
    }
    if (open->kind == HTTP_SERVER_FILE_INDEX || open->kind == HTTP_SERVER_FILE_REAL)
        utf8_buf_cat_string(out, open->path + open->top_length);
    return is_known;
}

static bool _http_server_is_in_place(http_server_open_t *open) {
    utf8_buf_t place;
    utf8_buf_init(&place);
    bool is_in_place = os_get_open_path(open->file, &open->real_path) && _http_server_get_place(open, &place);
    if (is_in_place && (open->kind == HTTP_SERVER_FILE_HOME || open->kind == HTTP_SERVER_FILE_DEFAULT)) {
        // Anywhere below.
        const i32 length = place.length;
        is_in_place = open->real_path.length > length && open->real_path.data[length] == '\\' &&
                      std::memcmp(open->real_path.data, place.data, static_cast<size_t>(length)) == 0;
    } else if (is_in_place) {
        is_in_place = _http_server_is_same_path(&place, &open->real_path);
    }
    utf8_buf_kill(&place);
    return is_in_place;
}

static void _http_server_open_file(http_server_open_t *open) {
    open->file = os_open_content(open->path, &open->size);
    if (open->file == PLATFORM_FILE_NONE)
        return;
    if (_http_server_is_in_place(open)) {
        utf8_buf_empty(&open->real_path);
    } else {
        os_close(open->file);
        open->file = PLATFORM_FILE_NONE;
        return;
    }
    os_file_info_t info;
    os_get_file_info(open->path, &info);
    open->date = info.date_modified;
    u32 length;
    const char *extension = db_name_get_extension(open->path, utf8_length(open->path), &length);
    os_get_content_type(extension, length, &open->type);
}

static void _http_server_opened_proc(void *param);

// Threads that open a file, those that nobody waits for included.
static std::atomic<u32> _http_server_openers;

static void _http_server_open_proc(void *param) {
    auto *open = static_cast<http_server_open_t *>(param);
    _http_server_open_file(open);
    bool is_wanted;
    {
        std::lock_guard lock(_http_server_open_lock);
        is_wanted = open->state != OPEN_ABANDONED;
        open->state = OPEN_DONE;
        if (is_wanted)
            event_post(_http_server_opened_proc, open);
    }
    if (!is_wanted)
        _http_server_free_open(open);
    _http_server_openers--;
}

// Whoever gives up a file that does not answer leaves a thread behind, and may ask for it again.
static bool _http_server_has_room_for_file() {
    return _http_server->file_count < HTTP_SERVER_FILES &&
           _http_server_openers + server_file_get_readers() < HTTP_SERVER_FILES;
}

void _http_server_open(http_server_client_t *client, http_server_file_kind_t kind, const char *path,
                       u32 top_length) {
    if (!_http_server_has_room_for_file()) {
        _http_server_answer_error(client, STATUS_UNAVAILABLE);
        return;
    }
    auto *open = new (mem_alloc(sizeof(http_server_open_t))) http_server_open_t();
    open->client = client;
    open->kind = kind;
    open->path = utf8_alloc_copy(path);
    open->top_length = top_length;
    open->file = PLATFORM_FILE_NONE;
    utf8_buf_init(&open->type);
    utf8_buf_init(&open->real_path);
    client->open = open;
    client->state = HTTP_SERVER_OPENING;
    _http_server->file_count++;
    _http_server_openers++;
    os_thread_detach(os_thread_create(_http_server_open_proc, open));
}

void _http_server_abandon_open(http_server_open_t *open) {
    {
        std::lock_guard lock(_http_server_open_lock);
        if (open->state != OPEN_DONE) {
            open->state = OPEN_ABANDONED;
            return; // the thread frees it
        }
    }
    event_remove(_http_server_opened_proc, open);
    _http_server_free_open(open);
}

// --- The answer --------------------------------------------------------------------------------------------

// What browsers run as a page of this server, with its rights to read the index: a file of the index has them
// not.
static bool _http_server_is_active_type(const utf8_buf_t *type) {
    const std::string_view text(type->data, static_cast<size_t>(type->length));
    for (const char *part : {"html", "xml", "svg"}) {
        if (text.find(part) != text.npos)
            return true;
    }
    return false;
}

// What of the file is sent. False: nothing that is there.
static bool _http_server_get_range(const http_request_t *request, u64 size, http_file_head_t *head) {
    head->size = head->range_size = size;
    head->has_range =
        http_request_has_range_of(request, head->date) && (request->range_start || request->range_size);
    if (!head->has_range)
        return true;
    debug_printf("content range start: %I64u, size: %I64u\n", request->range_start, request->range_size);
    if (request->range_start >= size)
        return false;
    const u64 left = size - request->range_start;
    head->range_start = request->range_start;
    head->range_size = request->range_size && request->range_size < left ? request->range_size : left;
    return true;
}

static void _http_server_begin_file(http_server_client_t *client, http_server_open_t *open) {
    http_server_t *server = _http_server;
    http_file_head_t head = {};
    head.date = open->date;
    head.type = open->type.data;
    head.is_sandboxed = open->kind != HTTP_SERVER_FILE_HOME && open->kind != HTTP_SERVER_FILE_DEFAULT &&
                        _http_server_is_active_type(&open->type);
    if (!_http_server_get_range(&client->request, open->size, &head)) {
        server->file_count--;
        _http_server_answer_error(client, STATUS_RANGE);
        return;
    }
    server_log_printf(&server->log, client->socket, client->peer,
                      head.has_range ? "206 OK\r\n" : "200 OK\r\n");
    http_cat_file_head(&client->send.text, &head, os_get_file_time());
    server_send_flush(&client->send, true);
    client->file = server_file_open(open->file, head.range_start, head.range_size, client->socket);
    open->file = PLATFORM_FILE_NONE;
    client->state = HTTP_SERVER_FILE;
    _http_server_go_on(client);
}

static void _http_server_open_failed(http_server_client_t *client, http_server_open_t *open) {
    _http_server->file_count--;
    switch (open->kind) {
    case HTTP_SERVER_FILE_HOME: _http_server_answer_without_home(client); break;
    case HTTP_SERVER_FILE_INDEX:
        if (open->real_path.length) { // a link, perhaps to another file of the index
            utf8_buf_copy_utf8(&client->path, open->real_path.data, static_cast<u32>(open->real_path.length));
            client->job = HTTP_SERVER_JOB_REAL_FILE;
            _http_server_enqueue(client);
            break;
        }
        [[fallthrough]];
    case HTTP_SERVER_FILE_DEFAULT:
    case HTTP_SERVER_FILE_REAL: _http_server_answer_error(client, STATUS_NOT_FOUND); break;
    }
}

static void _http_server_opened_proc(void *param) {
    auto *open = static_cast<http_server_open_t *>(param);
    http_server_client_t *client = open->client;
    client->open = nullptr;
    client->active = _http_server_now();
    if (open->file != PLATFORM_FILE_NONE)
        _http_server_begin_file(client, open);
    else
        _http_server_open_failed(client, open);
    _http_server_free_open(open);
}

void _http_server_send_file(http_server_client_t *client) {
    const server_file_result_t result = server_file_send(client->file);
    switch (result) {
    case SERVER_FILE_WAIT: client->active = _http_server_now(); break;
    case SERVER_FILE_SEND_FAILED: _http_server_destroy_client(client); break;
    case SERVER_FILE_READ_FAILED:
        debug_printf("http client %d: the file could not be read\n", network_get_number(client->socket));
        _http_server_destroy_client(client); // what is missing shows in the length
        break;
    case SERVER_FILE_DONE:
        server_file_close(client->file);
        client->file = nullptr;
        _http_server->file_count--;
        _http_server_shut(client);
        break;
    }
}

void _http_server_send_embedded(http_server_client_t *client, const http_resource_t *resource) {
    http_file_head_t head = {};
    head.size = head.range_size = resource->size;
    head.date = _http_server->program_date;
    head.type = resource->type;
    head.is_embedded = true;
    server_log_printf(&_http_server->log, client->socket, client->peer, "200 OK\r\n");
    http_cat_file_head(&client->send.text, &head, os_get_file_time());
    server_send_flush(&client->send, true);
    server_send_static(&client->send, resource->bytes, resource->size);
    _http_server_end_answer(client);
    _http_server_go_on(client);
}

} // namespace findwright
