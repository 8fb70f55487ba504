#include "os/os_quit.h"

#include "os/debug.h"
#include "os/os_posix.h"

#include <cerrno>
#include <csignal>
#include <iterator>
#include <sys/epoll.h>
#include <sys/eventfd.h>

namespace findwright {

static constexpr int QUIT_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

struct os_quit_t {
    os_quit_proc_t *request;
    void *param;
    os_loop_watch_t *watch;
    struct sigaction before[std::size(QUIT_SIGNALS)];
};

static os_quit_t _quit;
// Made once and never closed: a handler can still be on its way on another thread when the watch ends.
static int _quit_event = -1;

static void _os_quit_signal_proc(int) {
    int error = errno;
    eventfd_write(_quit_event, 1);
    errno = error;
}

static void _os_quit_loop_proc(void *, u32) {
    eventfd_t count;
    if (eventfd_read(_quit_event, &count) == 0)
        _quit.request(_quit.param);
}

static void _os_quit_open_event() {
    if (_quit_event == -1)
        _quit_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    eventfd_t left;
    eventfd_read(_quit_event, &left); // of the watch before
}

void os_quit_watch(os_quit_proc_t *request, os_quit_proc_t *, void *param) {
    _os_quit_open_event();
    _quit = {};
    _quit.request = request;
    _quit.param = param;
    _quit.watch = os_loop_add(_quit_event, EPOLLIN, _os_quit_loop_proc, nullptr);
    if (!_quit.watch)
        debug_fatal("failed to watch for signals %d", errno);
    for (size_t i = 0; i < std::size(QUIT_SIGNALS); i++) {
        struct sigaction action = {};
        action.sa_handler = _os_quit_signal_proc;
        action.sa_flags = SA_RESTART;
        sigfillset(&action.sa_mask);
        sigaction(QUIT_SIGNALS[i], nullptr, &_quit.before[i]);
        if (_quit.before[i].sa_handler != SIG_IGN)
            sigaction(QUIT_SIGNALS[i], &action, nullptr);
    }
}

void os_quit_unwatch() {
    if (!_quit.watch)
        return;
    for (size_t i = 0; i < std::size(QUIT_SIGNALS); i++)
        sigaction(QUIT_SIGNALS[i], &_quit.before[i], nullptr);
    os_loop_remove(_quit.watch);
    _quit = {};
}

} // namespace findwright
