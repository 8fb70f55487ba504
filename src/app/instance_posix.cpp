// The lock and the socket of an instance.
//
//     $XDG_RUNTIME_DIR, or $XDG_STATE_HOME/findwright
//         findwright[-NAME].lock      flock, held as long as the process lives
//         findwright[-NAME].socket    there while its holder listens; one without a lock is of a crash
//
// Files are reached through the opened folder, so that it stays the one that was looked at.
#include "app/config.h"
#include "app/instance.h"
#include "base/mem.h"
#include "os/debug.h"
#include "os/os_posix.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

namespace findwright {

static constexpr u32 RETRY_PERIOD = 100;      // milliseconds between two tries of a start
static constexpr u32 CHECK_PERIOD = 250;      // milliseconds between two looks for late peers
static constexpr u32 CONNECTION_MAX = 16;     // at once; others wait in the system's queue
static constexpr mode_t OTHERS_RIGHTS = 0077; // of a mode: what group and others may do

struct _instance_connection_t {
    int descriptor;
    os_loop_watch_t *watch;
    u64 deadline; // on the clock of _instance_now
    char size_bytes[INSTANCE_SIZE_BYTES];
    u32 received; // bytes, those of the size among them
    u32 size;     // of the block, once its bytes are there
    char *block;  // likewise
};

// Where this instance's files lie. Up from instance_start until instance_stop.
static utf8_buf_t _folder_path; // as the system writes it
static utf8_buf_t _lock_name;
static utf8_buf_t _socket_name;
static int _folder = -1;
static int _lock = -1;
static sockaddr_un _address;

// Up from instance_listen until instance_stop_listening.
static int _listener = -1;
static int _timer = -1;
static os_loop_watch_t *_listener_watch;
static os_loop_watch_t *_timer_watch;
static instance_receive_proc_t *_receive_proc;
static void *_receive_param;
static _instance_connection_t *_connections[CONNECTION_MAX];
static u32 _connection_count;
static bool _is_refused; // the system was out of descriptors or memory; accepting rests until the next check
static bool _is_checking;

// Milliseconds of a clock that is never set.
static u64 _instance_now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u64>(now.tv_sec) * 1000 + static_cast<u64>(now.tv_nsec) / 1000000;
}

static void _instance_close(int *descriptor) {
    if (*descriptor != -1)
        close(*descriptor);
    *descriptor = -1;
}

// Whether the process at the other end is of this user. Of a listener it is the one that made it listen.
static bool _instance_is_own(int descriptor) {
    ucred peer;
    socklen_t size = sizeof(peer);
    return getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

// --- The place ---------------------------------------------------------------------------------------------

static instance_result_t _instance_fail(utf8_buf_t *error, const char *what, const char *name, int number) {
    char reason[256];
    os_error_text(static_cast<u32>(number), reason, sizeof(reason));
    utf8_buf_printf(error, "%s %s%s%s: %s", what, _folder_path.data, *name ? "/" : "", name, reason);
    return INSTANCE_FAILED;
}

// The folder that the system makes for each user's session, if it is what it should be.
static bool _instance_open_runtime_folder() {
    const char *path = std::getenv("XDG_RUNTIME_DIR");
    if (!path || path[0] != '/')
        return false;
    _folder = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    struct stat info;
    if (_folder != -1 && fstat(_folder, &info) == 0 && info.st_uid == geteuid() &&
        !(info.st_mode & OTHERS_RIGHTS)) {
        utf8_buf_copy_string(&_folder_path, path);
        return true;
    }
    _instance_close(&_folder);
    return false;
}

// Makes a folder and all above it, for this user alone. What fails shows when it is opened.
static void _instance_make_folders(char *path) {
    for (char *end = path + 1; *end; end++) {
        if (*end != '/')
            continue;
        *end = 0;
        mkdir(path, 0700);
        *end = '/';
    }
    mkdir(path, 0700);
}

static bool _instance_open_state_folder() {
    utf8_buf_t folder;
    utf8_buf_init(&folder);
    const bool is_known = config_get_folder(CONFIG_FOLDER_STATE, &folder);
    if (is_known)
        os_path_to_system(folder.data, static_cast<u32>(folder.length), &_folder_path);
    utf8_buf_kill(&folder);
    if (!is_known) {
        errno = ENOENT;
        return false;
    }
    _instance_make_folders(_folder_path.data);
    _folder = open(_folder_path.data, O_PATH | O_DIRECTORY | O_CLOEXEC);
    return _folder != -1;
}

// A path of ordinary length stands in the address as it is; a longer one goes by way of the opened folder.
// False when the instance's name alone is too long.
static bool _instance_make_address() {
    utf8_buf_t path;
    utf8_buf_init(&path);
    utf8_buf_printf(&path, "%s/%s", _folder_path.data, _socket_name.data);
    if (static_cast<size_t>(path.length) >= sizeof(_address.sun_path))
        utf8_buf_printf(&path, "/proc/self/fd/%d/%s", _folder, _socket_name.data);
    const bool fits = static_cast<size_t>(path.length) < sizeof(_address.sun_path);
    _address = {};
    _address.sun_family = AF_UNIX;
    if (fits)
        std::memcpy(_address.sun_path, path.data, static_cast<size_t>(path.length));
    utf8_buf_kill(&path);
    return fits;
}

static void _instance_place_kill() {
    _instance_close(&_folder);
    utf8_buf_kill(&_folder_path);
    utf8_buf_kill(&_lock_name);
    utf8_buf_kill(&_socket_name);
}

// INSTANCE_FIRST stands for success.
static instance_result_t _instance_place_init(const char *name, utf8_buf_t *error) {
    utf8_buf_init(&_folder_path);
    utf8_buf_init(&_lock_name);
    utf8_buf_init(&_socket_name);
    instance_get_filename(&_lock_name, name, "lock");
    instance_get_filename(&_socket_name, name, "socket");
    if (!_instance_open_runtime_folder() && !_instance_open_state_folder()) {
        if (_folder_path.length != 0)
            return _instance_fail(error, "Unable to open the folder of the lock file", "", errno);
        utf8_buf_printf(error, "Unable to create the lock file %s: the environment names no folder for it",
                        _lock_name.data);
        return INSTANCE_FAILED;
    }
    if (!_instance_make_address())
        return _instance_fail(error, "Unable to create the socket", _socket_name.data, ENAMETOOLONG);
    return INSTANCE_FIRST;
}

// --- The lock ----------------------------------------------------------------------------------------------

// 0 when the lock is ours, EWOULDBLOCK when it is another's, else what the system refused.
static int _instance_try_lock() {
    _lock = openat(_folder, _lock_name.data, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (_lock != -1 && flock(_lock, LOCK_EX | LOCK_NB) == 0)
        return 0;
    const int number = errno;
    _instance_close(&_lock);
    return number;
}

static void _instance_unlock() {
    // A child of this process that has not got to its own program yet still has the descriptor, and closing
    // ours would leave the lock with it.
    if (_lock != -1)
        flock(_lock, LOCK_UN);
    _instance_close(&_lock);
}

// --- Handing over ------------------------------------------------------------------------------------------

// Waits until the descriptor is ready or the deadline is over.
static bool _instance_wait(int descriptor, short events, u64 deadline) {
    for (u64 now = _instance_now(); now < deadline; now = _instance_now()) {
        pollfd poll_entry = {descriptor, events, 0};
        const int ready = poll(&poll_entry, 1, static_cast<int>(deadline - now));
        if (ready != -1 || errno != EINTR)
            return ready == 1;
    }
    return false;
}

// Whether a call that moved `moved` bytes is to be made again.
static bool _instance_may_go_on(ssize_t moved, int descriptor, short events, u64 deadline) {
    if (moved > 0)
        return true;
    if (moved == 0)
        return false;
    return errno == EINTR || (errno == EAGAIN && _instance_wait(descriptor, events, deadline));
}

static bool _instance_send_all(int descriptor, const char *bytes, u32 size, u64 deadline) {
    while (size) {
        const ssize_t sent = send(descriptor, bytes, size, MSG_NOSIGNAL);
        if (!_instance_may_go_on(sent, descriptor, POLLOUT, deadline))
            return false;
        const u32 done = sent > 0 ? static_cast<u32>(sent) : 0;
        bytes += done;
        size -= done;
    }
    return true;
}

static bool _instance_receive_answer(int descriptor, u64 deadline) {
    char answer[INSTANCE_ANSWER_BYTES];
    u32 received = 0;
    while (received < sizeof(answer)) {
        const ssize_t taken = recv(descriptor, answer + received, sizeof(answer) - received, 0);
        if (!_instance_may_go_on(taken, descriptor, POLLIN, deadline))
            return false;
        received += taken > 0 ? static_cast<u32>(taken) : 0;
    }
    return instance_get_u32(answer) == INSTANCE_TAKEN;
}

// A connection never waits: a listener whose queue is full counts as one that does not answer.
static bool _instance_connect(int descriptor) {
    return connect(descriptor, reinterpret_cast<const sockaddr *>(&_address), sizeof(_address)) == 0 &&
           _instance_is_own(descriptor);
}

static bool _instance_hand_over(const utf8_buf_t *block, u64 limit) {
    const u64 deadline = std::min(_instance_now() + instance_peer_limit, limit);
    int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const bool taken =
        descriptor != -1 && _instance_connect(descriptor) &&
        _instance_send_all(descriptor, block->data, static_cast<u32>(block->length), deadline) &&
        _instance_receive_answer(descriptor, deadline);
    _instance_close(&descriptor);
    debug_printf(taken ? "send message ok\n" : "version send message failed\n");
    return taken;
}

// --- The start ---------------------------------------------------------------------------------------------

static void _instance_sleep(u64 milliseconds) {
    const timespec time = {0, static_cast<long>(milliseconds) * 1000000};
    nanosleep(&time, nullptr); // one that a signal ends early only makes the next try come sooner
}

// `block` is 0 when the command line is too long to be sent.
static instance_result_t _instance_run(const instance_params_t *params, const utf8_buf_t *block,
                                       utf8_buf_t *error) {
    const u64 limit = _instance_now() + (params->limit ? params->limit : INSTANCE_LIMIT);
    for (;;) {
        const int number = _instance_try_lock();
        if (number == 0)
            return params->no_first_instance ? INSTANCE_NOT_FIRST : INSTANCE_FIRST;
        if (number != EWOULDBLOCK)
            return _instance_fail(error, "Unable to create the lock file", _lock_name.data, number);
        if (params->first_instance)
            return INSTANCE_EXISTS;
        if (!block)
            return _instance_fail(error, "Unable to send the command line to", _socket_name.data, E2BIG);
        if (_instance_hand_over(block, limit))
            return INSTANCE_HANDED_OVER;
        const u64 now = _instance_now();
        if (now >= limit)
            return INSTANCE_TIMED_OUT;
        _instance_sleep(std::min<u64>(RETRY_PERIOD, limit - now));
    }
}

instance_result_t instance_start(const instance_params_t *params, utf8_buf_t *error) {
    utf8_buf_empty(error);
    instance_result_t result = _instance_place_init(params->name, error);
    if (result == INSTANCE_FIRST) {
        utf8_buf_t block;
        utf8_buf_init(&block);
        const instance_block_t message = {0, params->command_line, params->current_directory};
        const bool fits = instance_build_block(&block, &message);
        result = _instance_run(params, fits ? &block : nullptr, error);
        utf8_buf_kill(&block);
    }
    if (result != INSTANCE_FIRST) {
        _instance_unlock();
        _instance_place_kill();
    }
    return result;
}

void instance_stop() {
    instance_stop_listening();
    if (_lock == -1)
        return;
    _instance_unlock();
    _instance_place_kill();
}

// --- Connections -------------------------------------------------------------------------------------------

// Accepting rests while there is no room, and the timer runs while there is something to look for.
static void _instance_update() {
    const bool has_room = _connection_count < CONNECTION_MAX && !_is_refused;
    os_loop_modify(_listener_watch, has_room ? static_cast<u32>(EPOLLIN) : 0);
    const bool is_checking = _connection_count > 0 || _is_refused;
    if (is_checking == _is_checking)
        return;
    _is_checking = is_checking;
    const timespec period = {0, is_checking ? CHECK_PERIOD * 1000000L : 0};
    const itimerspec times = {period, period};
    timerfd_settime(_timer, 0, &times, nullptr);
}

static void _instance_close_connection(_instance_connection_t *connection) {
    _instance_connection_t **place = std::find(_connections, _connections + CONNECTION_MAX, connection);
    *place = nullptr;
    _connection_count--;
    os_loop_remove(connection->watch);
    close(connection->descriptor);
    if (connection->block)
        mem_free(connection->block);
    mem_free(connection);
    _instance_update();
}

// The connection is gone when the receiver is called: it may stop the listener, or run the main loop.
static void _instance_take(_instance_connection_t *connection) {
    char *block = connection->block;
    connection->block = nullptr;
    instance_block_t message;
    char answer[INSTANCE_ANSWER_BYTES];
    instance_put_u32(answer, INSTANCE_TAKEN);
    // A sender that does not hear the answer tries again, so what it sent here must not count too.
    const bool taken = instance_parse_block(block, connection->size, &message) &&
                       send(connection->descriptor, answer, sizeof(answer), MSG_NOSIGNAL) == sizeof(answer);
    _instance_close_connection(connection);
    if (taken)
        _receive_proc(_receive_param, message.command_line, message.current_directory);
    mem_free(block);
}

// False for a size that no block has.
static bool _instance_take_size(_instance_connection_t *connection) {
    connection->size = instance_get_u32(connection->size_bytes);
    if (connection->size < INSTANCE_BLOCK_MIN || connection->size > INSTANCE_BLOCK_MAX)
        return false;
    connection->block = static_cast<char *>(mem_alloc(connection->size));
    return true;
}

// One read a call: peers that send much take turns with all else in the main loop.
static void _instance_connection_proc(void *param, u32) {
    auto *connection = static_cast<_instance_connection_t *>(param);
    const bool is_size = !connection->block;
    const u32 done = is_size ? connection->received : connection->received - INSTANCE_SIZE_BYTES;
    const u32 size = is_size ? INSTANCE_SIZE_BYTES : connection->size;
    char *to = is_size ? connection->size_bytes : connection->block;
    const ssize_t taken = recv(connection->descriptor, to + done, size - done, 0);
    if (taken == -1 && (errno == EAGAIN || errno == EINTR))
        return;
    if (taken <= 0) {
        _instance_close_connection(connection);
        return;
    }
    connection->received += static_cast<u32>(taken);
    if (done + static_cast<u32>(taken) < size)
        return;
    if (!is_size)
        _instance_take(connection);
    else if (!_instance_take_size(connection))
        _instance_close_connection(connection);
}

static void _instance_add_connection(int descriptor) {
    auto *connection = static_cast<_instance_connection_t *>(mem_alloc(sizeof(_instance_connection_t)));
    *connection = {};
    connection->descriptor = descriptor;
    connection->deadline = _instance_now() + instance_peer_limit;
    connection->watch = os_loop_add(descriptor, EPOLLIN, _instance_connection_proc, connection);
    if (!connection->watch) {
        close(descriptor);
        mem_free(connection);
        return;
    }
    *std::find(_connections, _connections + CONNECTION_MAX, nullptr) = connection;
    _connection_count++;
}

static void _instance_accept_proc(void *, u32) {
    const int descriptor = accept4(_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor == -1)
        _is_refused = errno != EAGAIN && errno != EINTR && errno != ECONNABORTED;
    else if (_instance_is_own(descriptor))
        _instance_add_connection(descriptor);
    else
        close(descriptor);
    _instance_update();
}

static void _instance_check_proc(void *, u32) {
    u64 count;
    (void)!read(_timer, &count, sizeof(count));
    _is_refused = false;
    const u64 now = _instance_now();
    for (_instance_connection_t *connection : _connections) {
        if (connection && now >= connection->deadline)
            _instance_close_connection(connection);
    }
    _instance_update();
}

// --- The listener ------------------------------------------------------------------------------------------

// The lock is ours, so a socket of that name belongs to nobody.
static bool _instance_open_listener() {
    unlinkat(_folder, _socket_name.data, 0);
    _listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    // The file takes its mode from the descriptor.
    return _listener != -1 && fchmod(_listener, 0600) == 0 &&
           bind(_listener, reinterpret_cast<const sockaddr *>(&_address), sizeof(_address)) == 0 &&
           listen(_listener, CONNECTION_MAX) == 0;
}

static bool _instance_watch_listener() {
    _timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (_timer == -1)
        return false;
    _timer_watch = os_loop_add(_timer, EPOLLIN, _instance_check_proc, nullptr);
    if (!_timer_watch)
        return false;
    _listener_watch = os_loop_add(_listener, EPOLLIN, _instance_accept_proc, nullptr);
    return _listener_watch != nullptr;
}

bool instance_listen(instance_receive_proc_t *proc, void *param) {
    _receive_proc = proc;
    _receive_param = param;
    if (_instance_open_listener() && _instance_watch_listener())
        return true;
    char reason[256];
    os_error_text(os_get_last_error(), reason, sizeof(reason));
    debug_printf("instance: unable to listen on %s/%s: %s\n", _folder_path.data, _socket_name.data, reason);
    instance_stop_listening();
    return false;
}

void instance_stop_listening() {
    if (_listener == -1)
        return;
    // First of all: who finds no socket waits for the lock.
    unlinkat(_folder, _socket_name.data, 0);
    for (_instance_connection_t *connection : _connections) {
        if (connection)
            _instance_close_connection(connection);
    }
    for (os_loop_watch_t **watch : {&_listener_watch, &_timer_watch}) {
        if (*watch)
            os_loop_remove(*watch);
        *watch = nullptr;
    }
    _instance_close(&_listener);
    _instance_close(&_timer);
    _is_refused = false;
    _is_checking = false;
}

} // namespace findwright
