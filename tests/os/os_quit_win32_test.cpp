// What asks a process of Windows to end: the messages of its session, and the events of its console.
#include "os/os_quit.h"

#include "os/event.h"
#include "os_test_support.h"

#include <windows.h>

using namespace findwright;

namespace {

constexpr u32 PATIENCE = 20000;

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

// Other processes have one too.
HWND find_window() {
    HWND window = nullptr;
    while ((window = FindWindowExW(nullptr, window, L"FINDWRIGHT_QUIT", nullptr)) != nullptr) {
        DWORD process;
        GetWindowThreadProcessId(window, &process);
        if (process == GetCurrentProcessId())
            break;
    }
    return window;
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
    SendMessageW(window, WM_ENDSESSION, FALSE, ENDSESSION_CLOSEAPP); // another program said no
    EXPECT_EQ(asked.finishes, 0u);
    SendMessageW(window, WM_ENDSESSION, TRUE, 0);
    EXPECT_EQ(asked.finishes, 1u); // before the message is answered
    event_dispatch();
    EXPECT_EQ(asked.requests, 0u);
    SendMessageW(window, WM_ENDSESSION, TRUE, ENDSESSION_CLOSEAPP); // an installer wants our files
    EXPECT_EQ(asked.finishes, 2u);
    event_dispatch();
    EXPECT_EQ(asked.requests, 1u);

    for (u32 i = 2; i <= 3; i++) {
        PostMessageW(window, WM_CLOSE, 0, 0);
        while (asked.requests < i)
            ASSERT_TRUE(event_wait_and_dispatch(PATIENCE));
        EXPECT_TRUE(IsWindow(window));
    }
    SendMessageW(window, WM_CLOSE, 0, 0);
    os_quit_unwatch(); // what has not been told is dropped
    event_dispatch();
    EXPECT_EQ(asked.requests, 3u);
    EXPECT_FALSE(find_window());
    os_quit_watch(request_proc, finish_proc, &asked);
    EXPECT_TRUE(find_window());
    os_quit_unwatch();
}

// A console of the test's own: what is sent reaches all processes of a console, and it may have none.
struct console_t {
    console_t() {
        FreeConsole();
        EXPECT_TRUE(AllocConsole()) << GetLastError();
    }
    ~console_t() {
        FreeConsole();
        AttachConsole(ATTACH_PARENT_PROCESS);
    }
};

// The test would end with what it sends, if the watch let it through.
TEST(os_quit_win32, console_asks_from_its_own_thread) {
    event_dispatch();
    asked_t asked;
    os_quit_watch(request_proc, finish_proc, &asked);
    for (u32 i = 1; i <= 2; i++) { // Ctrl+Break is not to be had everywhere
        console_t console;
        ASSERT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
        while (asked.requests < i)
            ASSERT_TRUE(event_wait_and_dispatch(PATIENCE));
    }
    os_quit_unwatch();
}

} // namespace
