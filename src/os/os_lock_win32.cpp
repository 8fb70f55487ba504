#include "os/os_lock.h"

#include "base/utf8_buf.h"
#include "os/os.h"
#include "os/os_win32.h"

namespace findwright {

static constexpr u32 LOCK_RETRY_MILLISECONDS = 5;

// Another has the file, or it is on its way out.
static bool _os_lock_is_taken(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
}

platform_file_t os_lock_file(const char *name, u32 timeout) {
    utf8_buf_t lock_name;
    utf8_buf_init(&lock_name);
    utf8_buf_printf(&lock_name, "%s.lock", name);
    os_wide_t wide(lock_name.data);
    utf8_buf_kill(&lock_name);
    HANDLE file;
    for (u32 waited = 0;; waited += LOCK_RETRY_MILLISECONDS) {
        file = CreateFileW(wide.text(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE,
                           nullptr);
        if (file != INVALID_HANDLE_VALUE || waited >= timeout || !_os_lock_is_taken(GetLastError()))
            break;
        Sleep(LOCK_RETRY_MILLISECONDS);
    }
    return file == INVALID_HANDLE_VALUE ? PLATFORM_FILE_NONE : reinterpret_cast<platform_file_t>(file);
}

} // namespace findwright
