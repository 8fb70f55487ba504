#include "remote/server_send.h"

#include "base/mem.h"

#include <cstring>

namespace findwright {

void server_send_init(server_send_t *send) {
    send->head = send->tail = nullptr;
    send->position = 0;
    send->queued = 0;
    utf8_buf_init(&send->text);
}

static void _server_send_drop_first(server_send_t *send) {
    server_send_block_t *block = send->head;
    send->head = block->next;
    if (!send->head)
        send->tail = nullptr;
    send->position = 0;
    mem_free(block);
}

void server_send_kill(server_send_t *send) {
    while (send->head)
        _server_send_drop_first(send);
    send->queued = 0;
    utf8_buf_kill(&send->text);
}

// A block with room for so many bytes behind its head, at the end of the queue.
static server_send_block_t *_server_send_add(server_send_t *send, u32 length, u32 room) {
    auto *block = static_cast<server_send_block_t *>(mem_alloc(sizeof(server_send_block_t) + room));
    *block = {nullptr, length, nullptr};
    (send->tail ? send->tail->next : send->head) = block;
    send->tail = block;
    send->queued += length;
    return block;
}

void server_send_flush(server_send_t *send, bool always) {
    auto length = static_cast<u32>(send->text.length);
    if (length && (always || length >= SERVER_SEND_BLOCK)) {
        server_send_block_t *block = _server_send_add(send, length, length);
        std::memcpy(block + 1, send->text.data, length);
        block->bytes = reinterpret_cast<const char *>(block + 1);
        utf8_buf_empty(&send->text);
    }
    if (always) { // nothing follows for now, and many connections may wait
        utf8_buf_kill(&send->text);
        utf8_buf_init(&send->text);
    }
}

void server_send_static(server_send_t *send, const char *bytes, u32 length) {
    server_send_flush(send, true);
    if (length)
        _server_send_add(send, length, 0)->bytes = bytes;
}

server_send_result_t server_send_run(server_send_t *send, network_socket_t *socket) {
    while (server_send_block_t *block = send->head) {
        i32 sent = network_send(socket, block->bytes + send->position, block->length - send->position);
        if (sent == NETWORK_WAIT)
            return SERVER_SEND_WAIT;
        if (sent < 0)
            return SERVER_SEND_FAILED;
        send->position += static_cast<u32>(sent);
        send->queued -= static_cast<u32>(sent);
        if (send->position == block->length)
            _server_send_drop_first(send);
    }
    return SERVER_SEND_DONE;
}

} // namespace findwright
