#include "os/os_win32.h"

#include "base/mem.h"
#include "os/event.h"
#include "os/os_internal.h"

#include <iterator>
#include <objbase.h>
#include <shlobj.h>

namespace findwright {

os_optional_t os_optional;
HWND os_notification_window;

// --- Start and end ----------------------------------------------------------------------------------------

template<class T>
static void _os_resolve(T *function, HMODULE module, const char *name) {
    *function =
        module ? reinterpret_cast<T>(reinterpret_cast<void *>(GetProcAddress(module, name))) : nullptr;
}

static void _os_resolve_optional() {
    HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
#define RESOLVE(name) _os_resolve(&os_optional.name, kernel, #name)
    RESOLVE(FindFirstVolumeW);
    RESOLVE(FindNextVolumeW);
    RESOLVE(FindVolumeClose);
    RESOLVE(GetVolumeNameForVolumeMountPointW);
    RESOLVE(FindFirstVolumeMountPointW);
    RESOLVE(FindNextVolumeMountPointW);
    RESOLVE(FindVolumeMountPointClose);
    RESOLVE(GetVolumePathNamesForVolumeNameW);
    RESOLVE(GetDiskFreeSpaceExW);
    RESOLVE(GetLongPathNameW);
    RESOLVE(CancelIo);
    RESOLVE(GetUserDefaultUILanguage);
    RESOLVE(OpenThread);
    RESOLVE(OpenFileById);
    RESOLVE(GetFileInformationByHandleEx);
    RESOLVE(TzSpecificLocalTimeToSystemTime);
    RESOLVE(ReadDirectoryChangesW);
#undef RESOLVE
    _os_resolve(&os_optional.IsUserAnAdmin, GetModuleHandleW(L"shell32.dll"), "IsUserAnAdmin");
}

// GetVersionEx answers what the program's manifest claims to know, RtlGetVersion the truth.
static void _os_read_version() {
    LONG(WINAPI * rtl_get_version)(OSVERSIONINFOW *);
    _os_resolve(&rtl_get_version, GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    if (!rtl_get_version || rtl_get_version(&info) != 0)
        return;
    os_version_major = info.dwMajorVersion;
    os_version_minor = info.dwMinorVersion;
    os_is_nt = info.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

void os_platform_init() {
    _os_resolve_optional();
    _os_read_version();
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    os_processor_count = info.dwNumberOfProcessors ? info.dwNumberOfProcessors : 1;
}

bool os_is_admin() {
    return os_optional.IsUserAnAdmin && os_optional.IsUserAnAdmin();
}

u32 os_get_last_error() {
    return GetLastError();
}

void os_set_last_error(u32 error) {
    SetLastError(error);
}

bool os_error_is_file_not_found(u32 error) {
    return error == ERROR_FILE_NOT_FOUND;
}

bool os_error_is_not_found(u32 error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

void os_error_text(u32 error, char *out, u32 capacity) {
    wchar_t text[512];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                                  0, text, static_cast<DWORD>(std::size(text)), nullptr);
    while (length && text[length - 1] <= ' ')
        length--;
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    if (length)
        utf8_buf_copy_wchar(&buf, reinterpret_cast<const char16_t *>(text), length);
    else
        utf8_buf_printf(&buf, "Error %d", error);
    os_copy_text(out, capacity, buf.data, static_cast<u32>(buf.length));
    utf8_buf_kill(&buf);
}

// --- Memory and folders -----------------------------------------------------------------------------------

static void *_os_reserve(size_t bytes) {
    return VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS);
}

static bool _os_commit(void *address, size_t bytes) {
    return VirtualAlloc(address, bytes, MEM_COMMIT, PAGE_READWRITE) != nullptr;
}

static void _os_decommit(void *address, size_t bytes) {
    VirtualFree(address, bytes, MEM_DECOMMIT);
}

static void _os_unreserve(void *address, size_t) {
    VirtualFree(address, 0, MEM_RELEASE);
}

// A path in UTF-8, without a trailing separator; false, and an empty text, when it does not fit.
static bool _os_give_path(char *out, u32 capacity, const wchar_t *path, u32 length) {
    if (length && path[length - 1] == L'\\')
        length--;
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    utf8_buf_copy_wchar(&buf, reinterpret_cast<const char16_t *>(path), length);
    auto size = static_cast<u32>(buf.length);
    bool fits = size && size < capacity;
    os_copy_text(out, capacity, buf.data, fits ? size : 0);
    utf8_buf_kill(&buf);
    return fits;
}

static constexpr u32 PATH_LIMIT = 32768;

// Has a call of the form (units, buffer) fill a path, cut behind its last separator with `cut`.
template<class Call>
static bool _os_ask_path(char *out, u32 capacity, bool cut, Call call) {
    auto *path = static_cast<wchar_t *>(mem_alloc(PATH_LIMIT * sizeof(wchar_t)));
    DWORD length = call(PATH_LIMIT, path);
    if (length >= PATH_LIMIT)
        length = 0;
    while (cut && length && path[length - 1] != L'\\')
        length--;
    bool given = _os_give_path(out, capacity, path, length);
    mem_free(path);
    return given;
}

bool os_get_program_path(utf8_buf_t *out) {
    auto *path = static_cast<wchar_t *>(mem_alloc(PATH_LIMIT * sizeof(wchar_t)));
    const DWORD length = GetModuleFileNameW(nullptr, path, PATH_LIMIT);
    utf8_buf_copy_wchar(out, reinterpret_cast<const char16_t *>(path), length < PATH_LIMIT ? length : 0);
    mem_free(path);
    return out->length != 0;
}

static bool _os_exe_path(char *out, u32 capacity) {
    return _os_ask_path(out, capacity, true,
                        [](DWORD size, wchar_t *path) { return GetModuleFileNameW(nullptr, path, size); });
}

static bool _os_current_directory(char *out, u32 capacity) {
    return _os_ask_path(out, capacity, false, GetCurrentDirectoryW);
}

static bool _os_shell_folder(char *out, u32 capacity, int folder) {
    wchar_t path[MAX_PATH] = {};
    if (SHGetFolderPathW(nullptr, folder, nullptr, SHGFP_TYPE_CURRENT, path) != S_OK)
        path[0] = 0;
    return _os_give_path(out, capacity, path, static_cast<u32>(wcslen(path)));
}

static bool _os_app_data_path(char *out, u32 capacity) {
    return _os_shell_folder(out, capacity, CSIDL_APPDATA);
}

static bool _os_local_app_data_path(char *out, u32 capacity) {
    return _os_shell_folder(out, capacity, CSIDL_LOCAL_APPDATA);
}

void os_platform_fill_table(platform_t *table) {
    table->reserve = _os_reserve;
    table->commit = _os_commit;
    table->decommit = _os_decommit;
    table->unreserve = _os_unreserve;
    table->exe_path = _os_exe_path;
    table->app_data_path = _os_app_data_path;
    table->local_app_data_path = _os_local_app_data_path;
    table->current_directory = _os_current_directory;
}

// --- Threads and events -----------------------------------------------------------------------------------

struct _raw_thread_t {
    HANDLE handle;
    os_thread_proc_t *proc;
    void *param;
};

static DWORD WINAPI _os_raw_thread_proc(void *param) {
    auto *raw = static_cast<_raw_thread_t *>(param);
    raw->proc(raw->param);
    return 0;
}

bool os_raw_thread_start(os_raw_thread_t *thread, os_thread_proc_t *proc, void *param, u32 *error) {
    auto *raw = static_cast<_raw_thread_t *>(mem_alloc(sizeof(_raw_thread_t)));
    *raw = {nullptr, proc, param};
    raw->handle = CreateThread(nullptr, 0, _os_raw_thread_proc, raw, 0, nullptr);
    *error = raw->handle ? 0 : GetLastError();
    *thread = reinterpret_cast<os_raw_thread_t>(raw);
    if (!raw->handle)
        mem_free(raw);
    return *error == 0;
}

void os_raw_thread_join(os_raw_thread_t thread) {
    auto *raw = reinterpret_cast<_raw_thread_t *>(thread);
    WaitForSingleObject(raw->handle, INFINITE);
    CloseHandle(raw->handle);
    mem_free(raw);
}

bool os_raw_thread_set_priority(os_raw_thread_t thread, i32 priority) {
    return SetThreadPriority(reinterpret_cast<_raw_thread_t *>(thread)->handle, priority) != 0;
}

bool os_apartment_enter() {
    HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(result))
        debug_printf("CoInitializeEx failed %08x", static_cast<u32>(result));
    return SUCCEEDED(result);
}

void os_apartment_leave(bool entered) {
    if (entered)
        CoUninitialize();
}

os_event_t *os_event_create() {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!event)
        debug_fatal("failed to create event %d", GetLastError());
    return static_cast<os_event_t *>(event);
}

void os_event_destroy(os_event_t *event) {
    CloseHandle(event);
}

void os_event_set(os_event_t *event) {
    SetEvent(event);
}

void os_event_reset(os_event_t *event) {
    ResetEvent(event);
}

u32 os_event_wait(os_event_t *event, u32 timeout) {
    return WaitForSingleObject(event, timeout);
}

// --- Main loop --------------------------------------------------------------------------------------------

static constexpr UINT_PTR LOOP_ALARM = 1;

static constexpr wchar_t LOOP_CLASS[] = L"FINDWRIGHT_EVENT";

static LRESULT CALLBACK _os_loop_window_proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message == OS_MESSAGE_EVENT) {
        event_dispatch();
        return 0;
    }
    if (message == WM_TIMER && wparam == LOOP_ALARM) {
        KillTimer(window, LOOP_ALARM); // it would come again and again
        event_dispatch_alarms();
        return 0;
    }
    return DefWindowProcW(window, message, wparam, lparam);
}

void os_loop_init() {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = _os_loop_window_proc;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = LOOP_CLASS;
    if (!RegisterClassExW(&window_class))
        debug_fatal("failed to register class %s %d", "FINDWRIGHT_EVENT", GetLastError());
    os_notification_window = CreateWindowExW(0, LOOP_CLASS, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                             window_class.hInstance, nullptr);
    if (!os_notification_window)
        debug_fatal("failed to create event window %d", GetLastError());
}

void os_loop_kill() {
    DestroyWindow(os_notification_window);
    os_notification_window = nullptr;
    UnregisterClassW(LOOP_CLASS, GetModuleHandleW(nullptr));
}

void os_loop_wake() {
    PostMessageW(os_notification_window, OS_MESSAGE_EVENT, 0, 0);
}

u64 os_get_milliseconds() {
    return GetTickCount64();
}

bool os_loop_set_alarm(u64 due) {
    // A timer belongs to the thread of its window.
    if (GetWindowThreadProcessId(os_notification_window, nullptr) != GetCurrentThreadId()) {
        os_loop_wake();
        return false;
    }
    if (due == OS_ALARM_NONE) {
        KillTimer(os_notification_window, LOOP_ALARM);
        return true;
    }
    u64 now = os_get_milliseconds();
    u64 left = due > now ? due - now : 0;
    UINT time = left < USER_TIMER_MAXIMUM ? static_cast<UINT>(left) : USER_TIMER_MAXIMUM;
    if (!SetTimer(os_notification_window, LOOP_ALARM, time, nullptr))
        debug_fatal("failed to set timer %d", GetLastError());
    return true;
}

// Some messages are posted again by what they call. Not all are taken in one go, so that the caller sees to
// alarms, which the system's own timer tells of only when there is no message, and to what it waits for.
static constexpr u32 LOOP_MESSAGES = 64;

bool os_loop_wait(u32 timeout) {
    DWORD result = MsgWaitForMultipleObjectsEx(0, nullptr, timeout, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    if (result != WAIT_OBJECT_0)
        return false;
    bool came = false;
    MSG message;
    for (u32 i = 0; i < LOOP_MESSAGES && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE); i++) {
        came = true;
        if (message.message == WM_QUIT) { // for the loop that is meant to end
            PostQuitMessage(static_cast<int>(message.wParam));
            break;
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return came;
}

} // namespace findwright
