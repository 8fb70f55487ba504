#include "os/event.h"

#include "base/mem.h"
#include "os/os_internal.h"

#include <mutex>

namespace findwright {

u32 message_trace;

static std::mutex _event_lock;
static event_t *_event_first;
static event_t *_event_last;
static event_t *_event_alarms;           // by time; linked by `next`
static u64 _event_armed = OS_ALARM_NONE; // what the system's timer is set for

static void _event_unlink(event_t *event) {
    (event->prev ? event->prev->next : _event_first) = event->next;
    (event->next ? event->next->prev : _event_last) = event->prev;
}

static void _event_link(event_t *event) {
    event->next = nullptr;
    event->prev = _event_last;
    (_event_last ? _event_last->next : _event_first) = event;
    _event_last = event;
}

// Sets the timer for the next alarm. Under the lock, so that of two threads the one with the earlier alarm
// wins.
static void _event_arm() {
    u64 due = _event_alarms ? _event_alarms->due : OS_ALARM_NONE;
    if (due != _event_armed)
        _event_armed = os_loop_set_alarm(due) ? due : OS_ALARM_NONE;
}

// Appends the alarms whose time has come to the queue. `fired`: the timer has run down.
static void _event_take_alarms(bool fired) {
    std::lock_guard lock(_event_lock);
    if (fired)
        _event_armed = OS_ALARM_NONE;
    if (!_event_alarms)
        return;
    u64 now = os_get_milliseconds();
    while (_event_alarms && _event_alarms->due <= now) {
        event_t *event = _event_alarms;
        _event_alarms = event->next;
        _event_link(event);
    }
    _event_arm();
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
    while (event_t *event = _event_alarms) {
        _event_alarms = event->next;
        mem_free(event);
    }
    _event_armed = OS_ALARM_NONE;
    os_loop_kill();
}

void event_post(event_proc_t *proc, void *param) {
    auto *event = static_cast<event_t *>(mem_alloc(sizeof(event_t)));
    bool was_empty;
    {
        std::lock_guard lock(_event_lock);
        was_empty = !_event_first;
        *event = {nullptr, nullptr, proc, param, 0};
        _event_link(event);
    }
    // One wake-up serves a burst of events: the dispatch goes on until the queue is empty.
    if (was_empty)
        os_loop_wake();
}

void event_post_after(u32 milliseconds, event_proc_t *proc, void *param) {
    if (milliseconds == 0) {
        event_post(proc, param);
        return;
    }
    auto *event = static_cast<event_t *>(mem_alloc(sizeof(event_t)));
    // One more for what has passed of the present millisecond.
    *event = {nullptr, nullptr, proc, param, os_get_milliseconds() + milliseconds + 1};
    std::lock_guard lock(_event_lock);
    event_t **place = &_event_alarms;
    while (*place && (*place)->due <= event->due)
        place = &(*place)->next;
    event->next = *place;
    *place = event;
    _event_arm();
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
        for (event_t **place = &_event_alarms; *place;) {
            event_t *event = *place;
            if (event->proc == proc && event->param == param) {
                *place = event->next;
                event->next = removed;
                removed = event;
            } else {
                place = &event->next;
            }
        }
        _event_arm();
    }
    while (removed) {
        event_t *next = removed->next;
        mem_free(removed);
        removed = next;
    }
}

static bool _event_run_all(bool fired = false) {
    bool ran = false;
    _event_take_alarms(fired);
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

void event_dispatch_alarms() {
    _event_run_all(true);
}

bool event_wait_and_dispatch(u32 timeout) {
    return _event_run_all() || os_loop_wait(timeout);
}

} // namespace findwright
