#include "remote/server_receive.h"

#include "base/mem.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 RECEIVE_SMALLEST = 256;

void server_receive_init(server_receive_t *receive, u32 limit) {
    *receive = {};
    receive->limit = limit && limit < SERVER_RECEIVE_LIMIT_MAX ? limit : SERVER_RECEIVE_LIMIT_MAX;
}

void server_receive_kill(server_receive_t *receive) {
    if (receive->bytes)
        mem_free(receive->bytes);
    receive->bytes = nullptr;
    receive->length = receive->capacity = 0;
}

static void _server_receive_keep(server_receive_t *receive, const char *bytes, u32 length) {
    if (receive->length + length > receive->capacity) {
        u32 capacity = receive->capacity ? receive->capacity : RECEIVE_SMALLEST;
        while (capacity < receive->length + length)
            capacity *= 2;
        auto *grown = static_cast<char *>(mem_alloc(capacity));
        if (receive->bytes) {
            std::memcpy(grown, receive->bytes, receive->length);
            mem_free(receive->bytes);
        }
        receive->bytes = grown;
        receive->capacity = capacity;
    }
    std::memcpy(receive->bytes + receive->length, bytes, length);
    receive->length += length;
}

// Gives the line that ends here, at an LF, in the block that its beginning waits in.
static bool _server_receive_give_kept(server_receive_t *receive, const char *bytes, u32 length,
                                      server_line_proc_t *proc, void *param) {
    _server_receive_keep(receive, bytes, length + 1);
    // The procedure may be the end of the owner: the block is nobody's meanwhile.
    char *line = receive->bytes;
    u32 line_length = receive->length - 1;
    receive->bytes = nullptr;
    receive->length = receive->capacity = 0;
    line[line_length] = 0;
    bool goes_on = proc(param, line, line_length);
    mem_free(line);
    return goes_on;
}

static server_receive_result_t _server_receive_take(server_receive_t *receive, char *bytes, u32 length,
                                                    server_line_proc_t *proc, void *param) {
    while (char *end = static_cast<char *>(std::memchr(bytes, '\n', length))) {
        auto part = static_cast<u32>(end - bytes);
        if (receive->length + part > receive->limit)
            break;
        bool goes_on;
        if (receive->length) {
            goes_on = _server_receive_give_kept(receive, bytes, part, proc, param);
        } else {
            *end = 0;
            goes_on = proc(param, bytes, part);
        }
        if (!goes_on)
            return SERVER_RECEIVE_ENDED;
        bytes = end + 1;
        length -= part + 1;
    }
    if (receive->length + length > receive->limit) {
        server_receive_kill(receive);
        return SERVER_RECEIVE_LIMIT;
    }
    if (length)
        _server_receive_keep(receive, bytes, length);
    return SERVER_RECEIVE_MORE;
}

server_receive_result_t server_receive_lines(server_receive_t *receive, network_socket_t *socket,
                                             server_line_proc_t *proc, void *param) {
    char bytes[SERVER_RECEIVE_BLOCK];
    i32 taken = network_receive(socket, bytes, sizeof bytes);
    switch (taken) {
    case 0: return SERVER_RECEIVE_CLOSED;
    case NETWORK_WAIT: return SERVER_RECEIVE_WAIT;
    case NETWORK_FAILED: return SERVER_RECEIVE_FAILED;
    default: return _server_receive_take(receive, bytes, static_cast<u32>(taken), proc, param);
    }
}

server_receive_result_t server_receive_feed(server_receive_t *receive, const char *bytes, u32 length,
                                            server_line_proc_t *proc, void *param) {
    char copy[SERVER_RECEIVE_BLOCK];
    server_receive_result_t result = SERVER_RECEIVE_MORE;
    while (length && result == SERVER_RECEIVE_MORE) {
        u32 part = std::min<u32>(length, sizeof copy);
        std::memcpy(copy, bytes, part);
        result = _server_receive_take(receive, copy, part, proc, param);
        bytes += part;
        length -= part;
    }
    return result;
}

} // namespace findwright
