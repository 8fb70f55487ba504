#include "os/os_win32.h"

#include "os/event.h"
#include "os_test_support.h"

using namespace findwright;

namespace {

u32 runs;

void run_proc(void *) {
    runs++;
}

void post_proc(void *) {
    for (int i = 0; i < 3; i++)
        event_post(run_proc, nullptr);
}

// A menu or a message box of the system pumps messages by itself, and knows nothing of the queue.
TEST(os_win32, events_run_in_any_message_loop_by_one_message_a_burst) {
    event_dispatch();
    MSG message;
    while (PeekMessageW(&message, os_notification_window, OS_MESSAGE_EVENT, OS_MESSAGE_EVENT, PM_REMOVE))
        ;
    os_thread_release(os_thread_create(post_proc, nullptr), OS_INFINITE);
    EXPECT_EQ(runs, 0u);
    ASSERT_TRUE(PeekMessageW(&message, nullptr, OS_MESSAGE_EVENT, OS_MESSAGE_EVENT, PM_REMOVE));
    EXPECT_EQ(message.message, 1026u);
    DispatchMessageW(&message);
    EXPECT_EQ(runs, 3u);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, OS_MESSAGE_EVENT, OS_MESSAGE_EVENT, PM_REMOVE));
}

TEST(os_win32, alarms_run_in_any_message_loop_once) {
    while (event_wait_and_dispatch(0))
        ;
    runs = 0;
    event_post_after(10, run_proc, nullptr);
    MSG message;
    while (runs == 0 && GetMessageW(&message, nullptr, 0, 0))
        DispatchMessageW(&message);
    EXPECT_EQ(runs, 1u);
    EXPECT_FALSE(event_wait_and_dispatch(60));
}

TEST(os_win32, end_of_the_program_is_left_to_its_loop) {
    PostQuitMessage(7);
    event_wait_and_dispatch(0);
    MSG message;
    ASSERT_TRUE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_EQ(message.wParam, 7u);
}

TEST(os_win32, optional_functions_are_found_by_name) {
    wchar_t path[MAX_PATH];
    ASSERT_TRUE(os_optional.GetLongPathNameW);
    EXPECT_GT(os_optional.GetLongPathNameW(L"C:\\windows", path, MAX_PATH), 0u);
    SYSTEMTIME local = {2024, 6, 0, 1, 12, 0, 0, 0};
    SYSTEMTIME utc;
    ASSERT_TRUE(os_optional.TzSpecificLocalTimeToSystemTime);
    EXPECT_TRUE(os_optional.TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc));
    EXPECT_TRUE(os_optional.OpenThread && os_optional.ReadDirectoryChangesW && os_optional.FindFirstVolumeW);
    EXPECT_GE(os_version_major, 6u);
}

} // namespace
