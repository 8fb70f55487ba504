#include "os/os_posix.h"

#include "base/mem.h"
#include "os/event.h"
#include "os/os_internal.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/timerfd.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace findwright {

// --- Start and end ----------------------------------------------------------------------------------------

static void _os_read_version() {
    utsname name;
    if (uname(&name) != 0)
        return;
    char *end;
    os_version_major = static_cast<u32>(std::strtoul(name.release, &end, 10));
    os_version_minor = *end == '.' ? static_cast<u32>(std::strtoul(end + 1, nullptr, 10)) : 0;
}

void os_platform_init() {
    _os_read_version();
    // The processors that this process may run on, which can be fewer than there are.
    cpu_set_t set;
    int count = sched_getaffinity(0, sizeof(set), &set) == 0 ? CPU_COUNT(&set) : 0;
    if (!count)
        count = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    os_processor_count = count > 0 ? static_cast<u32>(count) : 1;
    // A reader that goes away is an error of the write, not the end of the process.
    std::signal(SIGPIPE, SIG_IGN);
}

bool os_is_admin() {
    return geteuid() == 0;
}

u32 os_get_last_error() {
    return static_cast<u32>(errno);
}

void os_set_last_error(u32 error) {
    errno = static_cast<int>(error);
}

bool os_error_is_file_not_found(u32 error) {
    return error == ENOENT;
}

bool os_error_is_not_found(u32 error) {
    return error == ENOENT || error == ENOTDIR;
}

void os_error_text(u32 error, char *out, u32 capacity) {
    char text[256];
    const char *found = strerror_r(static_cast<int>(error), text, sizeof(text));
    os_copy_text(out, capacity, found, static_cast<u32>(std::strlen(found)));
}

// --- Memory and folders -----------------------------------------------------------------------------------

static constexpr int RESERVED = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

static constexpr size_t OS_LARGE_PAGE = 2u << 20;

static void *_os_reserve(size_t bytes) {
    // At a border of large pages, as far as the system lets one choose.
    void *address = mmap(nullptr, bytes + OS_LARGE_PAGE, PROT_NONE, RESERVED, -1, 0);
    if (address == MAP_FAILED)
        return nullptr;
    char *start = static_cast<char *>(address);
    size_t skip = (OS_LARGE_PAGE - reinterpret_cast<uintptr_t>(start) % OS_LARGE_PAGE) % OS_LARGE_PAGE;
    if (skip != 0)
        munmap(start, skip);
    munmap(start + skip + bytes, OS_LARGE_PAGE - skip);
    return start + skip;
}

static bool _os_commit(void *address, size_t bytes) {
    if (mprotect(address, bytes, PROT_READ | PROT_WRITE) != 0)
        return false;
    // A scan walks through gigabytes: with large pages it waits for no translation. Where the system has none
    // to give, small ones do.
    madvise(address, bytes, MADV_HUGEPAGE);
    return true;
}

static void _os_decommit(void *address, size_t bytes) {
    // The one that can fail, for want of mappings, leaves the range committed; then it is at least given
    // back.
    if (mmap(address, bytes, PROT_NONE, RESERVED | MAP_FIXED, -1, 0) == MAP_FAILED)
        madvise(address, bytes, MADV_DONTNEED);
}

static void _os_unreserve(void *address, size_t bytes) {
    munmap(address, bytes);
}

// A path of the system's, as one of the program's; false, and an empty text, when it does not fit.
static bool _os_give_path(char *out, u32 capacity, const char *path, u32 length) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    os_path_from_system(path, length, &buf);
    auto size = static_cast<u32>(buf.length);
    bool fits = size && size < capacity;
    os_copy_text(out, capacity, buf.data, fits ? size : 0);
    utf8_buf_kill(&buf);
    return fits;
}

bool os_get_program_path(utf8_buf_t *out) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    utf8_buf_empty(out);
    if (length > 0)
        os_path_from_system(path, static_cast<u32>(length), out);
    return length > 0;
}

static bool _os_exe_path(char *out, u32 capacity) {
    char path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    while (length > 0 && path[length - 1] != '/')
        length--;
    return _os_give_path(out, capacity, path, length > 1 ? static_cast<u32>(length - 1) : 0);
}

// A folder of the user's by its variable, or by its usual place in the home folder. Relative values are not
// valid.
static bool _os_user_folder(char *out, u32 capacity, const char *variable, const char *usual) {
    const char *value = std::getenv(variable);
    if (value && value[0] == '/')
        return _os_give_path(out, capacity, value, static_cast<u32>(std::strlen(value)));
    const char *home = std::getenv("HOME");
    if (!home || home[0] != '/')
        return _os_give_path(out, capacity, "", 0);
    utf8_buf_t path;
    utf8_buf_init(&path);
    utf8_buf_printf(&path, "%s/%s", home, usual);
    bool given = _os_give_path(out, capacity, path.data, static_cast<u32>(path.length));
    utf8_buf_kill(&path);
    return given;
}

static bool _os_app_data_path(char *out, u32 capacity) {
    return _os_user_folder(out, capacity, "XDG_CONFIG_HOME", ".config");
}

static bool _os_local_app_data_path(char *out, u32 capacity) {
    return _os_user_folder(out, capacity, "XDG_DATA_HOME", ".local/share");
}

bool os_get_state_path(utf8_buf_t *out) {
    char path[PATH_MAX];
    bool known = _os_user_folder(path, sizeof path, "XDG_STATE_HOME", ".local/state");
    utf8_buf_copy_string(out, path);
    return known;
}

static bool _os_current_directory(char *out, u32 capacity) {
    char path[PATH_MAX];
    bool known = getcwd(path, sizeof(path)) && path[0] == '/';
    return _os_give_path(out, capacity, path, known ? static_cast<u32>(std::strlen(path)) : 0);
}

void os_platform_fill_table(platform_t *table) {
    table->reserve = _os_reserve;
    table->commit = _os_commit;
    table->decommit = _os_decommit;
    table->unreserve = _os_unreserve;
    table->exe_path = _os_exe_path;
    table->app_data_path = _os_app_data_path;
    table->local_app_data_path = _os_local_app_data_path;
    table->current_directory = _os_current_directory;
}

// --- Threads and events -----------------------------------------------------------------------------------

struct _raw_thread_t {
    pthread_t thread;
    os_thread_proc_t *proc;
    void *param;
};

static void *_os_raw_thread_proc(void *param) {
    auto *raw = static_cast<_raw_thread_t *>(param);
    raw->proc(raw->param);
    return nullptr;
}

bool os_raw_thread_start(os_raw_thread_t *thread, os_thread_proc_t *proc, void *param, u32 *error) {
    auto *raw = static_cast<_raw_thread_t *>(mem_alloc(sizeof(_raw_thread_t)));
    raw->proc = proc;
    raw->param = param;
    *thread = reinterpret_cast<os_raw_thread_t>(raw);
    *error = static_cast<u32>(pthread_create(&raw->thread, nullptr, _os_raw_thread_proc, raw));
    if (*error)
        mem_free(raw);
    return *error == 0;
}

void os_raw_thread_join(os_raw_thread_t thread) {
    auto *raw = reinterpret_cast<_raw_thread_t *>(thread);
    pthread_join(raw->thread, nullptr);
    mem_free(raw);
}

// Below normal is the policy for batch work, which yields to threads that wake up and can be left again
// without rights, as a nice value cannot.
bool os_raw_thread_set_priority(os_raw_thread_t thread, i32 priority) {
    constexpr i32 PRIORITY_IDLE = -15;
    int policy = priority <= PRIORITY_IDLE ? SCHED_IDLE : priority < 0 ? SCHED_BATCH : SCHED_OTHER;
    sched_param parameters = {};
    return pthread_setschedparam(reinterpret_cast<_raw_thread_t *>(thread)->thread, policy, &parameters) == 0;
}

bool os_apartment_enter() {
    return false;
}

void os_apartment_leave(bool) {}

struct os_event_t {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    bool is_set;
};

os_event_t *os_event_create() {
    auto *event = static_cast<os_event_t *>(mem_alloc(sizeof(os_event_t)));
    event->is_set = false;
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    int error = pthread_mutex_init(&event->mutex, nullptr);
    if (!error)
        error = pthread_cond_init(&event->condition, &attributes);
    if (error)
        debug_fatal("failed to create event %d", error);
    pthread_condattr_destroy(&attributes);
    return event;
}

void os_event_destroy(os_event_t *event) {
    pthread_cond_destroy(&event->condition);
    pthread_mutex_destroy(&event->mutex);
    mem_free(event);
}

void os_event_set(os_event_t *event) {
    pthread_mutex_lock(&event->mutex);
    event->is_set = true;
    pthread_cond_broadcast(&event->condition);
    pthread_mutex_unlock(&event->mutex);
}

void os_event_reset(os_event_t *event) {
    pthread_mutex_lock(&event->mutex);
    event->is_set = false;
    pthread_mutex_unlock(&event->mutex);
}

static timespec _os_deadline(u32 timeout) {
    constexpr long NANOSECONDS = 1000000000;
    timespec when;
    clock_gettime(CLOCK_MONOTONIC, &when);
    when.tv_sec += timeout / 1000;
    when.tv_nsec += static_cast<long>(timeout % 1000) * 1000000;
    if (when.tv_nsec >= NANOSECONDS) {
        when.tv_sec++;
        when.tv_nsec -= NANOSECONDS;
    }
    return when;
}

u32 os_event_wait(os_event_t *event, u32 timeout) {
    bool limited = timeout && timeout != OS_INFINITE;
    timespec deadline = limited ? _os_deadline(timeout) : timespec();
    int error = 0;
    pthread_mutex_lock(&event->mutex);
    while (!event->is_set && timeout && !error) {
        if (limited)
            error = pthread_cond_timedwait(&event->condition, &event->mutex, &deadline);
        else
            error = pthread_cond_wait(&event->condition, &event->mutex);
    }
    bool is_set = event->is_set;
    pthread_mutex_unlock(&event->mutex);
    return is_set ? OS_WAIT_DONE : OS_WAIT_TIMEOUT;
}

u64 os_get_milliseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u64>(now.tv_sec) * 1000 + static_cast<u64>(now.tv_nsec) / 1000000;
}

static constexpr u64 DEADLINE_NEVER = ~static_cast<u64>(0);

// One millisecond more than what has passed of the present one: a wait is never shorter than asked for.
u64 os_deadline(u32 timeout) {
    if (timeout == OS_INFINITE)
        return DEADLINE_NEVER;
    return timeout ? os_get_milliseconds() + timeout + 1 : 0;
}

int os_deadline_left(u64 deadline) {
    if (deadline == DEADLINE_NEVER)
        return -1;
    u64 now = deadline ? os_get_milliseconds() : 0;
    return deadline > now ? static_cast<int>(std::min<u64>(deadline - now, INT_MAX)) : 0;
}

// --- Main loop --------------------------------------------------------------------------------------------

struct os_loop_watch_t {
    int descriptor;
    os_loop_proc_t *proc;
    void *param;
};

static int _loop_epoll = -1;
static int _loop_wake = -1;
static int _loop_alarm = -1;
static os_loop_watch_t *_loop_wake_watch;
static os_loop_watch_t *_loop_alarm_watch;

static void _os_loop_wake_proc(void *, u32) {
    eventfd_t count;
    eventfd_read(_loop_wake, &count);
    event_dispatch();
}

static void _os_loop_alarm_proc(void *, u32) {
    u64 count;
    // Nothing to read: it was set anew since, and comes again.
    if (read(_loop_alarm, &count, sizeof(count)) == sizeof(count))
        event_dispatch_alarms();
}

void os_loop_init() {
    _loop_epoll = epoll_create1(EPOLL_CLOEXEC);
    _loop_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    _loop_alarm = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (_loop_epoll != -1 && _loop_wake != -1 && _loop_alarm != -1) {
        _loop_wake_watch = os_loop_add(_loop_wake, EPOLLIN, _os_loop_wake_proc, nullptr);
        _loop_alarm_watch = os_loop_add(_loop_alarm, EPOLLIN, _os_loop_alarm_proc, nullptr);
    }
    if (!_loop_wake_watch || !_loop_alarm_watch)
        debug_fatal("failed to create main loop %d", errno);
}

void os_loop_kill() {
    os_loop_remove(_loop_alarm_watch);
    os_loop_remove(_loop_wake_watch);
    _loop_wake_watch = _loop_alarm_watch = nullptr;
    close(_loop_alarm);
    close(_loop_wake);
    close(_loop_epoll);
    _loop_wake = _loop_alarm = _loop_epoll = -1;
}

bool os_loop_set_alarm(u64 due) {
    itimerspec when = {}; // all zero: none
    if (due != OS_ALARM_NONE) {
        when.it_value.tv_sec = static_cast<time_t>(due / 1000);
        when.it_value.tv_nsec = static_cast<long>(due % 1000) * 1000000;
    }
    if (timerfd_settime(_loop_alarm, TFD_TIMER_ABSTIME, &when, nullptr) != 0)
        debug_fatal("failed to set timer %d", errno);
    return true;
}

void os_loop_wake() {
    eventfd_write(_loop_wake, 1);
}

os_loop_watch_t *os_loop_add(int descriptor, u32 events, os_loop_proc_t *proc, void *param) {
    auto *watch = static_cast<os_loop_watch_t *>(mem_alloc(sizeof(os_loop_watch_t)));
    *watch = {descriptor, proc, param};
    epoll_event event = {};
    event.events = events;
    event.data.ptr = watch;
    if (epoll_ctl(_loop_epoll, EPOLL_CTL_ADD, descriptor, &event) == 0)
        return watch;
    int error = errno;
    mem_free(watch);
    errno = error;
    return nullptr;
}

void os_loop_modify(os_loop_watch_t *watch, u32 events) {
    epoll_event event = {};
    event.events = events;
    event.data.ptr = watch;
    epoll_ctl(_loop_epoll, EPOLL_CTL_MOD, watch->descriptor, &event);
}

void os_loop_remove(os_loop_watch_t *watch) {
    epoll_ctl(_loop_epoll, EPOLL_CTL_DEL, watch->descriptor, nullptr);
    mem_free(watch);
}

// One descriptor a wait: whatever its handler removes cannot be among events already taken. The system hands
// out ready descriptors in turn, so none is left behind.
bool os_loop_wait(u32 timeout) {
    epoll_event event;
    u64 deadline = os_deadline(timeout);
    int ready;
    do
        ready = epoll_wait(_loop_epoll, &event, 1, os_deadline_left(deadline));
    while (ready == -1 && errno == EINTR);
    if (ready != 1)
        return false;
    auto *watch = static_cast<os_loop_watch_t *>(event.data.ptr);
    watch->proc(watch->param, event.events);
    return true;
}

} // namespace findwright
