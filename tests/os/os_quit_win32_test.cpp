#include "os/os_quit.h"

#include "os/event.h"
#include "os_test_support.h"

#include <windows.h>

using namespace findwright;

namespace {

struct asked_t {
    u32 requests = 0;
    u32 finishes = 0;
};

void request_proc(void *param) {
    static_cast<asked_t *>(param)->requests++;
}

void finish_proc(void *param) {
    static_cast<asked_t *>(param)->finishes++;
}

HWND find_window() {
    return FindWindowW(L"FINDWRIGHT_QUIT", nullptr);
}

TEST(os_quit_win32, messages_of_the_session) {
    event_dispatch();
    asked_t asked;
    EXPECT_FALSE(find_window());
    os_quit_watch(request_proc, finish_proc, &asked);
    HWND window = find_window();
    ASSERT_TRUE(window);
    EXPECT_FALSE(IsWindowVisible(window));

    EXPECT_TRUE(SendMessageW(window, WM_QUERYENDSESSION, 0, 0));
    SendMessageW(window, WM_ENDSESSION, FALSE, 0); // another program said no
    EXPECT_EQ(asked.finishes, 0u);
    SendMessageW(window, WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(asked.finishes, 1u); // before the message is answered
    EXPECT_EQ(asked.requests, 0u);

    for (u32 i = 1; i <= 2; i++) {
        PostMessageW(window, WM_CLOSE, 0, 0);
        while (asked.requests < i)
            ASSERT_TRUE(event_wait_and_dispatch(20000));
        EXPECT_TRUE(IsWindow(window));
    }
    SendMessageW(window, WM_CLOSE, 0, 0);
    os_quit_unwatch(); // what has not been told is dropped
    event_dispatch();
    EXPECT_EQ(asked.requests, 2u);
    EXPECT_FALSE(find_window());
    os_quit_watch(request_proc, finish_proc, &asked);
    EXPECT_TRUE(find_window());
    os_quit_unwatch();
}

TEST(os_quit_win32, console_asks_from_its_own_thread) {
    event_dispatch();
    asked_t asked;
    os_quit_watch(request_proc, finish_proc, &asked);
    ASSERT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    while (!asked.requests)
        ASSERT_TRUE(event_wait_and_dispatch(20000));
    os_quit_unwatch();
}

} // namespace
