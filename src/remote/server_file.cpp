// The ring, and who waits for whom:
//
//     reading thread --fills--> [ block | block | ... ] --sent--> socket
//       waits while it is full, is woken         main thread: asks to be told while it is empty, is told
//       when half of it is free again            with the first block that is filled
//
// So while both are at work, neither costs the other a wake-up.
#include "remote/server_file.h"

#include "base/mem.h"
#include "os/event.h"
#include "os/os.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>

namespace findwright {

struct server_file_t {
    // Constant
    u64 size; // bytes to send
    u8 *ring;
    // Of the reading thread
    platform_file_t file;
    u64 start;
    // Of the main thread
    network_socket_t *socket;
    u64 sent; // bytes
    // Of both, under the lock
    std::mutex lock;
    std::condition_variable room;
    u64 filled; // blocks, all told; all but the last of the file are whole
    u64 freed;  // blocks that were sent
    u32 references;
    bool reader_waits, sender_waits;
    bool is_failed;
    bool is_stopped;
};

static std::atomic<u32> _server_file_readers;

static void _server_file_release(server_file_t *file) {
    {
        std::lock_guard lock(file->lock);
        if (--file->references)
            return;
    }
    os_close(file->file);
    if (file->ring)
        mem_free(file->ring);
    file->~server_file_t();
    mem_free(file);
}

// --- Reading thread ---------------------------------------------------------------------------------------

static void _server_file_ready_proc(void *param) {
    network_request_write(static_cast<server_file_t *>(param)->socket);
}

// Under the lock.
static void _server_file_wake_sender(server_file_t *file) {
    if (file->sender_waits && !file->is_stopped)
        event_post(_server_file_ready_proc, file);
    file->sender_waits = false;
}

// False when nobody wants the file any more.
static bool _server_file_wait_for_room(server_file_t *file) {
    std::unique_lock lock(file->lock);
    if (file->filled - file->freed == SERVER_FILE_BLOCKS) {
        file->reader_waits = true;
        file->room.wait(lock, [file] { return !file->reader_waits || file->is_stopped; });
    }
    return !file->is_stopped;
}

static bool _server_file_read(platform_file_t file, u8 *out, u32 length) {
    while (length) {
        i64 taken = os_read(file, out, length);
        if (taken <= 0)
            return false;
        out += taken;
        length -= static_cast<u32>(taken);
    }
    return true;
}

static void _server_file_read_proc(void *param) {
    auto *file = static_cast<server_file_t *>(param);
    bool is_read = file->start == 0 || os_seek(file->file, file->start);
    u64 left = file->size;
    for (u32 block = 0; is_read && left && _server_file_wait_for_room(file);
         block = (block + 1) % SERVER_FILE_BLOCKS) {
        auto length = static_cast<u32>(std::min<u64>(left, SERVER_FILE_BLOCK));
        is_read = _server_file_read(file->file, file->ring + size_t{block} * SERVER_FILE_BLOCK, length);
        left -= length;
        if (is_read) {
            std::lock_guard lock(file->lock);
            file->filled++;
            _server_file_wake_sender(file);
        }
    }
    if (!is_read) {
        std::lock_guard lock(file->lock);
        file->is_failed = true;
        _server_file_wake_sender(file);
    }
    _server_file_release(file);
    _server_file_readers--;
}

// --- Main thread ------------------------------------------------------------------------------------------

static constexpr u64 RING_SIZE = u64{SERVER_FILE_BLOCK} * SERVER_FILE_BLOCKS;

server_file_t *server_file_open(platform_file_t file, u64 start, u64 size, network_socket_t *socket) {
    auto *opened = new (mem_alloc(sizeof(server_file_t))) server_file_t();
    opened->file = file;
    opened->start = start;
    opened->size = size;
    opened->socket = socket;
    opened->references = 1;
    if (size == 0) {
        network_request_write(socket);
        return opened;
    }
    opened->ring = static_cast<u8 *>(mem_alloc(static_cast<size_t>(std::min(size, RING_SIZE))));
    opened->sender_waits = true;
    opened->references++;
    _server_file_readers++;
    os_thread_detach(os_thread_create(_server_file_read_proc, opened));
    return opened;
}

void server_file_close(server_file_t *file) {
    {
        std::lock_guard lock(file->lock);
        file->is_stopped = true;
        file->room.notify_one();
    }
    event_remove(_server_file_ready_proc, file);
    _server_file_release(file);
}

u32 server_file_get_readers() {
    return _server_file_readers;
}

// How many bytes lie ready behind what was sent, in one piece. With none, the thread will tell.
static u32 _server_file_get_ready(server_file_t *file, bool *is_failed) {
    std::lock_guard lock(file->lock);
    u64 ready = std::min(file->filled * SERVER_FILE_BLOCK, file->size) - file->sent;
    *is_failed = file->is_failed;
    file->sender_waits = ready == 0 && !file->is_failed;
    return static_cast<u32>(std::min(ready, RING_SIZE - file->sent % RING_SIZE));
}

static void _server_file_note_sent(server_file_t *file, u32 length) {
    file->sent += length;
    std::lock_guard lock(file->lock);
    file->freed = file->sent / SERVER_FILE_BLOCK;
    if (file->reader_waits && file->filled - file->freed <= SERVER_FILE_BLOCKS / 2) {
        file->reader_waits = false;
        file->room.notify_one();
    }
}

server_file_result_t server_file_send(server_file_t *file) {
    for (u64 round = 0; file->sent < file->size;) {
        if (round >= RING_SIZE) {
            network_request_write(file->socket);
            return SERVER_FILE_WAIT;
        }
        bool is_failed;
        u32 ready = _server_file_get_ready(file, &is_failed);
        if (ready == 0)
            return is_failed ? SERVER_FILE_READ_FAILED : SERVER_FILE_WAIT;
        i32 sent = network_send(file->socket, file->ring + file->sent % RING_SIZE, ready);
        if (sent == NETWORK_WAIT)
            return SERVER_FILE_WAIT;
        if (sent < 0)
            return SERVER_FILE_SEND_FAILED;
        _server_file_note_sent(file, static_cast<u32>(sent));
        round += static_cast<u32>(sent);
    }
    return SERVER_FILE_DONE;
}

} // namespace findwright
