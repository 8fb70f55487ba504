#include "os/os_quit.h"

#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "os/os_win32.h"

#include <mutex>

namespace findwright {

struct os_quit_t {
    os_quit_proc_t *request;
    os_quit_proc_t *finish;
    void *param;
    HWND window;
};

static os_quit_t _quit;
// Between the main thread and the system's thread that calls the console's handler: no request is posted
// behind the end of the watch.
static std::mutex _quit_lock;
static bool _quit_is_watched;
// Set while nothing is watched. Made once and never destroyed: a handler can still wait for it at the end.
static os_event_t *_quit_done;

static void _os_quit_request_proc(void *) {
    _quit.request(_quit.param);
}

static bool _os_quit_post() {
    std::lock_guard lock(_quit_lock);
    if (_quit_is_watched)
        event_post(_os_quit_request_proc, nullptr);
    return _quit_is_watched;
}

// --- Console ----------------------------------------------------------------------------------------------

// On a thread of the system's. After a Ctrl+C the process goes on; after the others the system ends it as
// soon as this returns.
static BOOL WINAPI _os_quit_console_proc(DWORD event) {
    if (!_os_quit_post())
        return FALSE;
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        os_event_wait(_quit_done, OS_INFINITE);
    return TRUE;
}

// --- Window -----------------------------------------------------------------------------------------------

// Tests find the window by this name.
static constexpr wchar_t QUIT_CLASS[] = L"FINDWRIGHT_QUIT";

static LRESULT CALLBACK _os_quit_window_proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    switch (message) {
    case WM_CLOSE: // as task managers send it to every window of a process
        _os_quit_post();
        return 0;
    case WM_QUERYENDSESSION: return TRUE;
    case WM_ENDSESSION:
        if (wparam && _quit_is_watched)
            _quit.finish(_quit.param);
        if (wparam && lparam & ENDSESSION_CLOSEAPP) // the session stays, the program is to end by itself
            _os_quit_post();
        return 0;
    default: return DefWindowProcW(window, message, wparam, lparam);
    }
}

// A window of the desktop that is never shown: one for messages only does not hear of the session. A process
// without a desktop gets none, and has no session that could end.
static HWND _os_quit_create_window() {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = _os_quit_window_proc;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = QUIT_CLASS;
    if (!RegisterClassExW(&window_class))
        debug_fatal("failed to register class %s %d", "FINDWRIGHT_QUIT", GetLastError());
    HWND window = CreateWindowExW(WS_EX_TOOLWINDOW, QUIT_CLASS, L"", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr,
                                  window_class.hInstance, nullptr);
    if (!window)
        debug_printf("failed to create window for the end of the session %d\n", GetLastError());
    return window;
}

// --- Watch ------------------------------------------------------------------------------------------------

static void _os_quit_set_watched(bool is_watched) {
    std::lock_guard lock(_quit_lock);
    _quit_is_watched = is_watched;
}

void os_quit_watch(os_quit_proc_t *request, os_quit_proc_t *finish, void *param) {
    if (!_quit_done)
        _quit_done = os_event_create();
    os_event_reset(_quit_done);
    _quit = {request, finish, param, nullptr};
    _os_quit_set_watched(true);
    _quit.window = _os_quit_create_window();
    SetConsoleCtrlHandler(_os_quit_console_proc, TRUE);
}

void os_quit_unwatch() {
    if (!_quit.request)
        return;
    _os_quit_set_watched(false);
    // First of all: the system holds its lock over the handlers while one of them waits.
    os_event_set(_quit_done);
    SetConsoleCtrlHandler(_os_quit_console_proc, FALSE);
    event_remove(_os_quit_request_proc, nullptr);
    if (_quit.window)
        DestroyWindow(_quit.window);
    UnregisterClassW(QUIT_CLASS, GetModuleHandleW(nullptr));
    _quit = {};
}

} // namespace findwright
