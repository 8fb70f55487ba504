#include "os/event.h"

#include "base/mem.h"
#include "os/os_internal.h"

#include <mutex>

namespace findwright {

u32 message_trace;

static std::mutex _event_lock;
static event_t *_event_first;
static event_t *_event_last;

static void _event_unlink(event_t *event) {
    (event->prev ? event->prev->next : _event_first) = event->next;
    (event->next ? event->next->prev : _event_last) = event->prev;
}

static event_t *_event_take() {
    std::lock_guard lock(_event_lock);
    event_t *event = _event_first;
    if (event)
        _event_unlink(event);
    return event;
}

void event_init() {
    os_loop_init();
}

void event_kill() {
    while (event_t *event = _event_take())
        mem_free(event);
    os_loop_kill();
}

void event_post(event_proc_t *proc, void *param) {
    auto *event = static_cast<event_t *>(mem_alloc(sizeof(event_t)));
    bool was_empty;
    {
        std::lock_guard lock(_event_lock);
        was_empty = !_event_first;
        *event = {nullptr, _event_last, proc, param};
        (_event_last ? _event_last->next : _event_first) = event;
        _event_last = event;
    }
    // One wake-up serves a burst of events: the dispatch goes on until the queue is empty.
    if (was_empty)
        os_loop_wake();
}

void event_remove(event_proc_t *proc, void *param) {
    event_t *removed = nullptr;
    {
        std::lock_guard lock(_event_lock);
        for (event_t *event = _event_first; event;) {
            event_t *next = event->next;
            if (event->proc == proc && event->param == param) {
                _event_unlink(event);
                event->next = removed;
                removed = event;
            }
            event = next;
        }
    }
    while (removed) {
        event_t *next = removed->next;
        mem_free(removed);
        removed = next;
    }
}

static bool _event_run_all() {
    bool ran = false;
    while (event_t *event = _event_take()) {
        if (message_trace)
            debug_printf("EVENT: %p %p\n", reinterpret_cast<void *>(event->proc), event->param);
        event->proc(event->param);
        mem_free(event);
        ran = true;
    }
    return ran;
}

void event_dispatch() {
    _event_run_all();
}

bool event_wait_and_dispatch(u32 timeout) {
    return _event_run_all() || os_loop_wait(timeout);
}

} // namespace findwright
