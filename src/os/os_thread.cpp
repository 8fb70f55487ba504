#include "base/mem.h"
#include "os/os_internal.h"

#include <mutex>

// The thread pool.
//
//   create:  free list --> entry      or  a new entry with a thread of its own
//   thread:  [ reset start_event, call proc, set finished_event, wait for start_event ] while there is a proc
//   release: wait for finished_event, entry --> tail of the free list, or end the thread
//
// An entry's `proc` and `param` are written by its one holder while the thread waits for start_event, so the
// two events order all access to them; the lock is for the list alone.

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
};

static std::mutex _pool_lock;
static os_thread_t *_pool_first;
static os_thread_t *_pool_last;
static u32 _pool_thread_count; // threads alive, in the pool and in use

static void _os_thread_proc(void *param) {
    auto *thread = static_cast<os_thread_t *>(param);
    bool entered = os_apartment_enter();
    while (thread->proc) {
        os_event_reset(thread->start_event);
        thread->proc(thread->param);
        os_event_set(thread->finished_event);
        os_event_wait(thread->start_event, OS_INFINITE);
    }
    os_apartment_leave(entered);
}

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

static void _os_pool_add(os_thread_t *thread) {
    std::lock_guard lock(_pool_lock);
    thread->next = nullptr;
    thread->prev = _pool_last;
    if (_pool_last)
        _pool_last->next = thread;
    else
        _pool_first = thread;
    _pool_last = thread;
}

static os_thread_t *_os_thread_new(os_thread_proc_t *proc, void *param) {
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

os_thread_t *os_thread_create(os_thread_proc_t *proc, void *param) {
    os_thread_t *thread = _os_pool_take();
    if (!thread)
        return _os_thread_new(proc, param);
    os_event_reset(thread->finished_event);
    thread->proc = proc;
    thread->param = param;
    os_event_set(thread->start_event);
    return thread;
}

u32 os_thread_wait(os_thread_t *thread, u32 timeout) {
    return os_event_wait(thread->finished_event, timeout);
}

// Threads in the pool have the normal priority. POSIX lets an unprivileged process lower a thread's priority
// but not raise it again; such a thread cannot be kept.
static bool _os_thread_make_normal(os_thread_t *thread) {
    if (thread->priority && !os_raw_thread_set_priority(thread->handle, 0))
        return false;
    thread->priority = 0;
    return true;
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

void os_pool_kill() {
    while (os_thread_t *thread = _os_pool_take())
        _os_thread_end(thread);
}

} // namespace findwright
