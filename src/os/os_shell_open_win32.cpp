// Opening a file with the desktop's program for it.
#include "os/os_shell.h"

#include "os/os.h"
#include "os/os_win32.h"

#include <objbase.h>
#include <shellapi.h>

namespace findwright {

// ShellExecuteW's own numbers are those of the system but for these.
static void _os_open_tell(INT_PTR result, utf8_buf_t *error) {
    if (result == SE_ERR_NOASSOC || result == SE_ERR_ASSOCINCOMPLETE) {
        utf8_buf_copy_string(error, "no program is set for files of this kind; \"Open with\" in the Explorer "
                                    "sets one");
        return;
    }
    char reason[256];
    os_error_text(static_cast<u32>(result), reason, sizeof reason);
    utf8_buf_copy_string(error, reason);
}

bool os_shell_open(const char *path, u32 length, utf8_buf_t *error) {
    utf8_buf_empty(error);
    if (!os_path_is_own(path, length)) {
        utf8_buf_copy_string(error, "it is not on this machine");
        return false;
    }
    // A drive alone would be the current folder on it.
    bool is_drive = length == 2;
    utf8_buf_t root;
    utf8_buf_init(&root);
    utf8_buf_copy_utf8(&root, path, length);
    if (is_drive)
        utf8_buf_cat_byte(&root, '\\');
    HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    INT_PTR result = reinterpret_cast<INT_PTR>(
        ShellExecuteW(nullptr, nullptr, os_wide_t(root.data).text(), nullptr, nullptr, SW_SHOWNORMAL));
    if (SUCCEEDED(com))
        CoUninitialize();
    utf8_buf_kill(&root);
    if (result > 32)
        return true;
    _os_open_tell(result, error);
    return false;
}

} // namespace findwright
