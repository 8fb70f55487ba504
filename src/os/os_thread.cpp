#include "base/mem.h"
#include "os/os_internal.h"

#include <mutex>

// The thread pool.
//
//   create:  free list --> entry      or  a new entry with a thread of its own
//   thread:  [ reset start_event, call proc, set finished_event, wait for start_event ] while there is a proc
//   release: wait for finished_event, entry --> tail of the free list, or end the thread
//   detach:  as soon as proc has returned the thread goes to the free list by itself, or else to the list of
//            those that end, to be joined when the next thread is made
//
// An entry's `proc` and `param` are written by its one holder while the thread waits for start_event, so the
// two events order all access to them; the lock is for the lists, and for what detach and the thread tell
// each other.

namespace findwright {

u32 max_threads;
u32 reuse_threads = 1;

struct os_thread_t {
    os_thread_t *next; // free list
    os_thread_t *prev;
    os_raw_thread_t handle;
    os_thread_proc_t *proc; // 0: the thread is to end
    void *param;
    os_event_t *start_event;
    os_event_t *finished_event;
    i32 priority;
    bool has_returned; // under _pool_lock: proc has
    bool is_detached;  // under _pool_lock: the thread is its own holder
};

// Microseconds. A file system that answers at all has answered by then; the end of the process waits no
// longer than that.
static constexpr u32 OS_DETACHED_WAIT = 500000;

static std::mutex _pool_lock;
static os_thread_t *_pool_first;
static os_thread_t *_pool_last;
static os_thread_t *_pool_ended; // by `next`: detached threads that are to be joined
static u32 _pool_thread_count;   // threads alive, in the pool and in use
static u32 _pool_detached_count; // detached threads whose proc has not returned

static os_thread_t *_os_pool_take() {
    std::lock_guard lock(_pool_lock);
    os_thread_t *thread = _pool_first;
    if (!thread)
        return nullptr;
    _pool_first = thread->next;
    if (_pool_first)
        _pool_first->prev = nullptr;
    else
        _pool_last = nullptr;
    return thread;
}

// Under _pool_lock.
static void _os_pool_add_locked(os_thread_t *thread) {
    thread->next = nullptr;
    thread->prev = _pool_last;
    if (_pool_last)
        _pool_last->next = thread;
    else
        _pool_first = thread;
    _pool_last = thread;
}

static void _os_pool_add(os_thread_t *thread) {
    std::lock_guard lock(_pool_lock);
    _os_pool_add_locked(thread);
}

// Threads in the pool have the normal priority. POSIX lets an unprivileged process lower a thread's priority
// but not raise it again; such a thread cannot be kept.
static bool _os_thread_make_normal(os_thread_t *thread) {
    if (thread->priority && !os_raw_thread_set_priority(thread->handle, 0))
        return false;
    thread->priority = 0;
    return true;
}

// What a detached thread does when its proc has returned. False: it is to end.
static bool _os_thread_give_back(os_thread_t *thread) {
    bool is_kept = reuse_threads && _os_thread_make_normal(thread);
    std::lock_guard lock(_pool_lock);
    _pool_detached_count--;
    if (is_kept) {
        _os_pool_add_locked(thread);
    } else {
        thread->next = _pool_ended;
        _pool_ended = thread;
    }
    return is_kept;
}

static bool _os_thread_return(os_thread_t *thread) {
    bool is_detached;
    {
        std::lock_guard lock(_pool_lock);
        thread->has_returned = true;
        is_detached = thread->is_detached;
    }
    if (is_detached)
        return _os_thread_give_back(thread);
    os_event_set(thread->finished_event); // from now on it may have a new holder
    return true;
}

static void _os_thread_proc(void *param) {
    auto *thread = static_cast<os_thread_t *>(param);
    bool entered = os_apartment_enter();
    while (thread->proc) {
        os_event_reset(thread->start_event);
        thread->proc(thread->param);
        if (!_os_thread_return(thread))
            break;
        os_event_wait(thread->start_event, OS_INFINITE);
    }
    os_apartment_leave(entered);
}

static void _os_thread_end(os_thread_t *thread) {
    thread->proc = nullptr;
    os_event_set(thread->start_event);
    os_raw_thread_join(thread->handle);
    os_event_destroy(thread->start_event);
    os_event_destroy(thread->finished_event);
    mem_free(thread);
    std::lock_guard lock(_pool_lock);
    _pool_thread_count--;
}

// Joins the detached threads that have ended since.
static void _os_pool_join_ended() {
    os_thread_t *thread;
    {
        std::lock_guard lock(_pool_lock);
        thread = _pool_ended;
        _pool_ended = nullptr;
    }
    while (thread) {
        os_thread_t *next = thread->next;
        _os_thread_end(thread);
        thread = next;
    }
}

static os_thread_t *_os_thread_new(os_thread_proc_t *proc, void *param) {
    _os_pool_join_ended();
    u32 number;
    {
        std::lock_guard lock(_pool_lock);
        number = ++_pool_thread_count;
    }
    debug_printf("new thread (%d)\n", number);
    auto *thread = static_cast<os_thread_t *>(mem_alloc(sizeof(os_thread_t)));
    *thread = {};
    thread->proc = proc;
    thread->param = param;
    thread->start_event = os_event_create();
    thread->finished_event = os_event_create();
    u32 error;
    if (!os_raw_thread_start(&thread->handle, _os_thread_proc, thread, &error))
        debug_fatal("failed to create thread %d: %p", error, reinterpret_cast<void *>(proc));
    return thread;
}

os_thread_t *os_thread_create(os_thread_proc_t *proc, void *param) {
    os_thread_t *thread = _os_pool_take();
    if (!thread)
        return _os_thread_new(proc, param);
    os_event_reset(thread->finished_event);
    thread->has_returned = thread->is_detached = false;
    thread->proc = proc;
    thread->param = param;
    os_event_set(thread->start_event);
    return thread;
}

u32 os_thread_wait(os_thread_t *thread, u32 timeout) {
    return os_event_wait(thread->finished_event, timeout);
}

u32 os_thread_release(os_thread_t *thread, u32 timeout) {
    u32 result = os_thread_wait(thread, timeout);
    if (result != OS_WAIT_DONE)
        return result;
    if (reuse_threads && _os_thread_make_normal(thread))
        _os_pool_add(thread);
    else
        _os_thread_end(thread);
    return OS_WAIT_DONE;
}

void os_thread_detach(os_thread_t *thread) {
    {
        std::lock_guard lock(_pool_lock);
        if (!thread->has_returned) {
            thread->is_detached = true;
            _pool_detached_count++;
            return;
        }
    }
    os_thread_release(thread, OS_INFINITE);
}

void os_thread_set_priority(os_thread_t *thread, i32 priority) {
    if (os_raw_thread_set_priority(thread->handle, priority))
        thread->priority = priority;
}

i32 os_thread_get_priority(os_thread_t *thread) {
    return thread->priority;
}

bool os_event_is_set(os_event_t *event) {
    return os_event_wait(event, 0) == OS_WAIT_DONE;
}

static u32 _os_pool_count_detached() {
    std::lock_guard lock(_pool_lock);
    return _pool_detached_count;
}

static void _os_pool_wait_for_detached() {
    os_event_t *never = os_event_create();
    u32 start = os_get_tick_count(), count;
    while ((count = _os_pool_count_detached()) != 0 && os_get_tick_count() - start < OS_DETACHED_WAIT)
        os_event_wait(never, 1);
    os_event_destroy(never);
    if (count != 0)
        debug_printf("%d threads are left behind\n", count);
}

void os_pool_kill() {
    _os_pool_wait_for_detached();
    _os_pool_join_ended();
    while (os_thread_t *thread = _os_pool_take())
        _os_thread_end(thread);
}

} // namespace findwright
