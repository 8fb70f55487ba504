#include "os/os_shell.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/os_shell_text.h"
#include "os/os_win32.h"

#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

namespace findwright {

// By a made-up name: no file need be there.
static bool _shell_get_type_name(const char *name, u32 length, DWORD attributes, utf8_buf_t *out) {
    SHFILEINFOW info = {};
    if (length >= MAX_PATH || !SHGetFileInfoW(os_wide_t(name, length).text(), attributes, &info, sizeof info,
                                              SHGFI_TYPENAME | SHGFI_USEFILEATTRIBUTES))
        return false;
    auto *text = reinterpret_cast<const char16_t *>(info.szTypeName);
    utf8_buf_copy_wchar(out, text, wchar_length(text));
    return out->length != 0;
}

void os_get_type_name(const char *extension, u32 length, utf8_buf_t *out) {
    utf8_buf_t name;
    utf8_buf_init(&name);
    utf8_buf_copy_string(&name, length ? "foo." : "foo");
    utf8_buf_cat_utf8(&name, extension, length);
    if (!_shell_get_type_name(name.data, static_cast<u32>(name.length), FILE_ATTRIBUTE_NORMAL, out))
        utf8_buf_copy_utf8(out, extension, length);
    utf8_buf_kill(&name);
}

void os_get_folder_type_name(utf8_buf_t *out) {
    if (!_shell_get_type_name("foo", 3, FILE_ATTRIBUTE_DIRECTORY, out))
        utf8_buf_copy_string(out, "Folder");
}

void os_get_content_type(const char *extension, u32 length, utf8_buf_t *out) {
    utf8_buf_t key;
    utf8_buf_init(&key);
    utf8_buf_printf(&key, ".%t", extension, length);
    char16_t type[256];
    DWORD bytes = sizeof type;
    const LSTATUS status = RegGetValueW(HKEY_CLASSES_ROOT, os_wide_t(key.data).text(), L"Content Type",
                                        RRF_RT_REG_SZ, nullptr, type, &bytes);
    utf8_buf_copy_wchar(out, type, status == ERROR_SUCCESS ? wchar_length(type) : 0);
    if (!out->length)
        utf8_buf_copy_string(out, os_shell_get_usual_content_type(extension, length));
    utf8_buf_kill(&key);
}

bool os_shell_get_path(const char *text, u32 length, utf8_buf_t *out) {
    static constexpr char SCHEME[] = "shell:";
    utf8_buf_empty(out);
    IShellFolder *desktop;
    if (!utf8_equal_nocase(text, length, SCHEME, sizeof SCHEME - 1) || FAILED(SHGetDesktopFolder(&desktop)))
        return false;
    os_wide_t name(text, length);
    LPITEMIDLIST item = nullptr;
    wchar_t path[MAX_PATH];
    bool found = SUCCEEDED(desktop->ParseDisplayName(nullptr, nullptr, const_cast<wchar_t *>(name.text()),
                                                     nullptr, &item, nullptr)) &&
                 SHGetPathFromIDListW(item, path) &&
                 // A name that means nothing to it may be taken for a file of the desktop that is to be.
                 GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
    if (found) {
        auto *units = reinterpret_cast<const char16_t *>(path);
        utf8_buf_copy_wchar(out, units, wchar_length(units));
        found = out->length != 0;
    }
    CoTaskMemFree(item);
    desktop->Release();
    return found;
}

void os_shell_kill() {} // the system keeps it all

} // namespace findwright
