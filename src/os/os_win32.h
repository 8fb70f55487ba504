// What only Windows sources use of the platform layer: functions that the running system may lack, the
// notification window, names in UTF-16.
#pragma once

#include "base/wchar_buf.h"

#include <cstring>
#include <windows.h>

namespace findwright {

// Functions resolved by name at start. A pointer stays 0 where the system lacks the function; callers test
// it.
struct os_optional_t {
    decltype(&::FindFirstVolumeW) FindFirstVolumeW;
    decltype(&::FindNextVolumeW) FindNextVolumeW;
    decltype(&::FindVolumeClose) FindVolumeClose;
    decltype(&::GetVolumeNameForVolumeMountPointW) GetVolumeNameForVolumeMountPointW;
    decltype(&::FindFirstVolumeMountPointW) FindFirstVolumeMountPointW;
    decltype(&::FindNextVolumeMountPointW) FindNextVolumeMountPointW;
    decltype(&::FindVolumeMountPointClose) FindVolumeMountPointClose;
    decltype(&::GetVolumePathNamesForVolumeNameW) GetVolumePathNamesForVolumeNameW;
    decltype(&::GetDiskFreeSpaceExW) GetDiskFreeSpaceExW;
    decltype(&::GetLongPathNameW) GetLongPathNameW;
    decltype(&::CancelIo) CancelIo;
    decltype(&::GetUserDefaultUILanguage) GetUserDefaultUILanguage;
    decltype(&::OpenThread) OpenThread;
    decltype(&::OpenFileById) OpenFileById;
    decltype(&::GetFileInformationByHandleEx) GetFileInformationByHandleEx;
    decltype(&::TzSpecificLocalTimeToSystemTime) TzSpecificLocalTimeToSystemTime;
    decltype(&::ReadDirectoryChangesW) ReadDirectoryChangesW;
    BOOL(WINAPI *IsUserAnAdmin)();
};
extern os_optional_t os_optional;

// Posted to the notification window when the event queue was empty.
inline constexpr UINT OS_MESSAGE_EVENT = WM_USER + 2;
// The message-only window of the main thread.
extern HWND os_notification_window;

// A path and, unless it is empty, `tail` behind a separator, as the system's calls take it. What is absolute
// and whole gets the prefix that takes away the limit of 260 units and has names such as `aux` or `name.`
// mean themselves.
void os_make_long_path(wchar_buf_t *out, const char *path, const char *tail);

// A UTF-8 text as the terminated UTF-16 that the system's calls take, for the length of a scope.
struct os_wide_t {
    os_wide_t(const char *text, u32 length) {
        wchar_buf_init(&buf);
        wchar_buf_copy_utf8(&buf, text, length);
    }
    explicit os_wide_t(const char *name) : os_wide_t(name, static_cast<u32>(std::strlen(name))) {}
    ~os_wide_t() { wchar_buf_kill(&buf); }
    os_wide_t(const os_wide_t &) = delete;
    os_wide_t &operator=(const os_wide_t &) = delete;

    const wchar_t *text() const { return reinterpret_cast<const wchar_t *>(buf.data); }

    wchar_buf_t buf;
};

} // namespace findwright
