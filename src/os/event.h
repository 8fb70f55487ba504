// Calls posted to the main thread: the only way back to it from any other thread.
//
// Events run in order, on the main thread, outside the queue's lock; one may post others, which run in the
// same dispatch. An object that posts events removes them before it is freed.
//
// On Windows the queue wakes the main thread through a message to a window of its own, so that events also
// run in a modal loop of the system; on POSIX through an eventfd in the epoll set of the main loop
// (os_posix.h). Alarms have one timer of the system, a timer of that window or a timerfd, which is set for
// the next of them: none costs anything while it waits.
#pragma once

#include "base/types.h"

namespace findwright {

using event_proc_t = void(void *param);

struct event_t {
    event_t *next;
    event_t *prev;
    event_proc_t *proc;
    void *param;
    u64 due; // of an alarm, by os_get_milliseconds
};

extern u32 message_trace; // log every event: "EVENT: %p %p\n"

// os_init and os_kill call these. Main thread.
void event_init();
void event_kill(); // drops what is still queued
// Asks the main thread to call proc(param). Any thread. Wakes the main loop when the queue was empty.
void event_post(event_proc_t *proc, void *param);
// The same once a time has passed, in milliseconds: an alarm. At once for 0. Any thread. An alarm is never
// early; it stands behind what is in the queue when its time has come. One that posts itself again with a
// time above 0 lets the main loop see to its input in between, which one that posts itself at once does not.
void event_post_after(u32 milliseconds, event_proc_t *proc, void *param);
// Takes away all posted calls with that pair, alarms too. Main thread.
void event_remove(event_proc_t *proc, void *param);
// Runs the queue until it is empty. Main thread.
void event_dispatch();

// Waits for posted events (on Windows also for messages, on POSIX for what os_loop_add watches) up to
// `timeout` milliseconds, OS_INFINITE for no limit, and runs them. Returns false when nothing came. Main
// thread.
bool event_wait_and_dispatch(u32 timeout);

} // namespace findwright
