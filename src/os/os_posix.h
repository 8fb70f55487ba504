// What only POSIX sources use of the platform layer: the main loop's epoll set, paths, dates, digit grouping.
//
// The loop: main thread only. One handler call is made per wait, so a handler may add and remove any
// descriptor, its own too.
#pragma once

#include "base/utf8_buf.h"
#include "os/os.h"

#include <cstring>
#include <ctime>

namespace findwright {

struct os_loop_watch_t;

// `events` are EPOLLIN, EPOLLOUT, ... (sys/epoll.h), level-triggered unless EPOLLET is among them.
using os_loop_proc_t = void(void *param, u32 events);

// Has proc(param, events) called by the main loop when the descriptor is ready: a socket, a timerfd, an
// inotify descriptor. Returns 0 where the system refuses. The descriptor stays the caller's.
os_loop_watch_t *os_loop_add(int descriptor, u32 events, os_loop_proc_t *proc, void *param);
void os_loop_modify(os_loop_watch_t *watch, u32 events);
// Before the descriptor is closed.
void os_loop_remove(os_loop_watch_t *watch);

// A name as the system's calls take it, for the length of a scope.
struct os_system_path_t {
    explicit os_system_path_t(const char *name) {
        utf8_buf_init(&buf);
        os_path_to_system(name, static_cast<u32>(std::strlen(name)), &buf);
    }
    ~os_system_path_t() { utf8_buf_kill(&buf); }
    os_system_path_t(const os_system_path_t &) = delete;
    os_system_path_t &operator=(const os_system_path_t &) = delete;

    const char *text() const { return buf.data; }

    utf8_buf_t buf;
};

// When a wait of `timeout` milliseconds ends, OS_INFINITE for never, and what is left of it as poll and
// epoll_wait take it: so a signal that interrupts them does not make the wait longer or shorter.
u64 os_deadline(u32 timeout);
int os_deadline_left(u64 deadline);

// $XDG_STATE_HOME, or ~/.local/state, as a path of the program's. False, and empty, without either.
bool os_get_state_path(utf8_buf_t *out);

// A date of the system's as a file time.
u64 os_file_time_from_timespec(const timespec *time);

// Writes a number with a separator after each group of digits. `grouping` is that of lconv: group sizes from
// the right, the last one repeated when a 0 follows; CHAR_MAX says that what is left is one group. Returns
// the length; cuts what exceeds `capacity`, terminator included.
u32 os_group_digits(char *out, u32 capacity, i64 value, const char *grouping, const char *separator);

// The order of day, month and year in a date format of strftime.
os_date_order_t os_date_order_of_format(const char *format);

} // namespace findwright
