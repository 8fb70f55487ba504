#include "os/os_quit.h"

#include "os/event.h"
#include "os_test_support.h"

#include <csignal>
#include <thread>

using namespace findwright;

namespace {

struct asked_t {
    u32 requests = 0;
    u32 finishes = 0;
    std::thread::id thread;
};

void request_proc(void *param) {
    auto *asked = static_cast<asked_t *>(param);
    asked->requests++;
    asked->thread = std::this_thread::get_id();
}

void finish_proc(void *param) {
    static_cast<asked_t *>(param)->finishes++;
}

void drain_loop() {
    while (event_wait_and_dispatch(0))
        ;
}

TEST(os_quit_posix, each_signal_asks_once_and_again) {
    drain_loop();
    asked_t asked;
    os_quit_watch(request_proc, finish_proc, &asked);
    u32 expected = 0;
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGINT}) {
        raise(signal);
        EXPECT_EQ(asked.requests, expected); // not from the handler
        EXPECT_TRUE(event_wait_and_dispatch(OS_INFINITE));
        EXPECT_EQ(asked.requests, ++expected);
        EXPECT_FALSE(event_wait_and_dispatch(0));
    }
    raise(SIGINT);
    os_quit_unwatch(); // one that has not been told is dropped
    drain_loop();
    EXPECT_EQ(asked.requests, expected);
    os_quit_watch(request_proc, finish_proc, &asked);
    drain_loop();
    EXPECT_EQ(asked.requests, expected);
    os_quit_unwatch();
    EXPECT_EQ(asked.finishes, 0u);
}

// The signal comes to the waiting thread, or to any other.
TEST(os_quit_posix, waiting_loop_is_woken) {
    drain_loop();
    asked_t asked;
    os_quit_watch(request_proc, finish_proc, &asked);
    pthread_t main_thread = pthread_self();
    for (bool to_main : {true, false}) {
        std::thread killer([=] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (to_main)
                pthread_kill(main_thread, SIGTERM);
            else
                raise(SIGTERM);
        });
        EXPECT_TRUE(event_wait_and_dispatch(60000));
        killer.join();
        EXPECT_EQ(asked.thread, std::this_thread::get_id());
    }
    EXPECT_EQ(asked.requests, 2u);
    os_quit_unwatch();
}

u32 own_calls;

void own_handler(int) {
    own_calls++;
}

TEST(os_quit_posix, what_was_set_before_is_kept) {
    drain_loop();
    auto old_term = std::signal(SIGTERM, own_handler);
    auto old_hangup = std::signal(SIGHUP, SIG_IGN); // as nohup does
    asked_t asked;
    os_quit_watch(request_proc, finish_proc, &asked);
    raise(SIGHUP);
    drain_loop();
    EXPECT_EQ(asked.requests, 0u);
    raise(SIGTERM);
    drain_loop();
    EXPECT_EQ(asked.requests, 1u);
    EXPECT_EQ(own_calls, 0u);
    os_quit_unwatch();
    raise(SIGTERM);
    EXPECT_EQ(own_calls, 1u);
    std::signal(SIGTERM, old_term);
    EXPECT_EQ(std::signal(SIGHUP, old_hangup), SIG_IGN);
}

} // namespace
