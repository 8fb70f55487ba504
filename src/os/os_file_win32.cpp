#include "base/mem.h"
#include "os/os_internal.h"
#include "os/os_win32.h"

#include <cstring>
#include <shlobj.h>

namespace findwright {

const char os_path_separator = '\\';

void os_path_to_system(const char *name, u32 length, utf8_buf_t *out) {
    utf8_buf_copy_utf8(out, name, length);
}

void os_path_from_system(const char *name, u32 length, utf8_buf_t *out) {
    utf8_buf_copy_utf8(out, name, length);
}

// --- Open files -------------------------------------------------------------------------------------------

static HANDLE _os_handle(platform_file_t file) {
    return reinterpret_cast<HANDLE>(file);
}

platform_file_t os_open_quiet(const char *name, u32 access, u32 share, os_disposition_t disposition,
                              u32 flags) {
    DWORD rights = (access & OS_OPEN_READ ? GENERIC_READ : 0) | (access & OS_OPEN_WRITE ? GENERIC_WRITE : 0);
    DWORD sharing = (share & OS_SHARE_READ ? FILE_SHARE_READ : 0) |
                    (share & OS_SHARE_WRITE ? FILE_SHARE_WRITE : 0) |
                    (share & OS_SHARE_DELETE ? FILE_SHARE_DELETE : 0);
    DWORD creation = OPEN_EXISTING;
    switch (disposition) {
    case OS_OPEN_EXISTING: break;
    case OS_OPEN_ALWAYS: creation = OPEN_ALWAYS; break;
    case OS_CREATE_ALWAYS: creation = CREATE_ALWAYS; break;
    case OS_CREATE_NEW: creation = CREATE_NEW; break;
    }
    DWORD attributes = flags & OS_OPEN_SEQUENTIAL ? FILE_FLAG_SEQUENTIAL_SCAN : FILE_ATTRIBUTE_NORMAL;
    HANDLE file =
        CreateFileW(os_wide_t(name).text(), rights, sharing, nullptr, creation, attributes, nullptr);
    static_assert(PLATFORM_FILE_NONE == -1, "INVALID_HANDLE_VALUE is the same");
    return reinterpret_cast<platform_file_t>(file);
}

platform_file_t os_open_content(const char *name, u64 *size) {
    wchar_buf_t path;
    wchar_buf_init(&path);
    os_make_long_path(&path, name, "");
    HANDLE file = CreateFileW(reinterpret_cast<const wchar_t *>(path.data), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    wchar_buf_kill(&path);
    if (file == INVALID_HANDLE_VALUE)
        return PLATFORM_FILE_NONE;
    LARGE_INTEGER file_size;
    if (GetFileType(file) != FILE_TYPE_DISK || !GetFileSizeEx(file, &file_size)) {
        CloseHandle(file);
        return PLATFORM_FILE_NONE;
    }
    *size = static_cast<u64>(file_size.QuadPart);
    return reinterpret_cast<platform_file_t>(file);
}

static bool _os_get_final_path(HANDLE file, utf8_buf_t *out) {
    static constexpr DWORD UNITS = 32768;
    utf8_buf_empty(out);
    auto *path = static_cast<char16_t *>(mem_alloc(UNITS * sizeof(char16_t)));
    DWORD length = GetFinalPathNameByHandleW(file, reinterpret_cast<wchar_t *>(path), UNITS, VOLUME_NAME_DOS);
    if (length >= UNITS)
        length = 0;
    const char16_t *text = path;
    if (length >= 8 && std::memcmp(text, u"\\\\?\\UNC\\", 16) == 0) {
        utf8_buf_cat_byte(out, '\\'); // of the two in front of a server's name, the second one follows
        text += 7;
        length -= 7;
    } else if (length >= 4 && std::memcmp(text, u"\\\\?\\", 8) == 0) {
        text += 4;
        length -= 4;
    }
    utf8_buf_cat_wchar(out, text, length);
    utf8_buf_remove_trailing_separator(out);
    mem_free(path);
    return out->length != 0;
}

bool os_get_real_path(const char *name, utf8_buf_t *out) {
    wchar_buf_t path;
    wchar_buf_init(&path);
    os_make_long_path(&path, name, "");
    // A folder, too; nothing is read.
    HANDLE file = CreateFileW(reinterpret_cast<const wchar_t *>(path.data), 0,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    wchar_buf_kill(&path);
    utf8_buf_empty(out);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    const bool is_known = _os_get_final_path(file, out);
    CloseHandle(file);
    return is_known;
}

bool os_get_open_path(platform_file_t file, utf8_buf_t *out) {
    return _os_get_final_path(_os_handle(file), out);
}

i64 os_read(platform_file_t file, void *bytes, u32 size) {
    DWORD taken = 0;
    if (ReadFile(_os_handle(file), bytes, size, &taken, nullptr))
        return taken;
    return GetLastError() == ERROR_HANDLE_EOF || GetLastError() == ERROR_BROKEN_PIPE ? 0 : -1;
}

bool os_write(platform_file_t file, const void *bytes, u32 size) {
    auto *from = static_cast<const char *>(bytes);
    while (size) {
        DWORD written = 0;
        if (!WriteFile(_os_handle(file), from, size, &written, nullptr) || !written)
            return false;
        from += written;
        size -= written;
    }
    return true;
}

bool os_seek(platform_file_t file, u64 offset) {
    LARGE_INTEGER place;
    place.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(_os_handle(file), place, nullptr, FILE_BEGIN) != 0;
}

void os_close(platform_file_t file) {
    CloseHandle(_os_handle(file));
}

bool os_append(const char *name, const void *bytes, u32 size) {
    // The right to append alone has the system put each write at the end, whoever else writes.
    HANDLE file = CreateFileW(os_wide_t(name).text(), FILE_APPEND_DATA | SYNCHRONIZE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    bool written = os_write(reinterpret_cast<platform_file_t>(file), bytes, size);
    CloseHandle(file);
    return written;
}

bool os_flush_file(const char *temp, const char *) {
    platform_file_t file = os_open_quiet(temp, OS_OPEN_WRITE, OS_SHARE_READ, OS_OPEN_EXISTING, 0);
    if (file == PLATFORM_FILE_NONE)
        return false;
    bool flushed = FlushFileBuffers(_os_handle(file)) != 0;
    DWORD error = GetLastError();
    os_close(file);
    SetLastError(error);
    return flushed;
}

// The file system's journal orders the rename behind the flush.
void os_flush_folder_of(const char *) {}

void os_follow_links(const char *name, utf8_buf_t *out) {
    utf8_buf_copy_string(out, name);
}

void os_make_private(const char *) {}

// --- Names ------------------------------------------------------------------------------------------------

static bool _os_move(const wchar_t *from, const wchar_t *to, bool replace) {
    return MoveFileExW(from, to, replace ? MOVEFILE_REPLACE_EXISTING : 0) != 0;
}

bool os_move_replace(const char *from, const char *to, bool replace, bool is_folder) {
    os_wide_t wide_from(from);
    os_wide_t wide_to(to);
    const char *call = "MoveFileExW";
    bool moved = _os_move(wide_from.text(), wide_to.text(), replace);
    if (!moved && GetLastError() == ERROR_CALL_NOT_IMPLEMENTED) {
        if (replace)
            DeleteFileW(wide_to.text());
        call = "MoveFileW";
        moved = MoveFileW(wide_from.text(), wide_to.text()) != 0;
    }
    if (!moved) {
        debug_printf("%s(): GetLastError(): %d: Failed to move file from %s to %s\n", call, GetLastError(),
                     from, to);
        return false;
    }
    SHChangeNotify(is_folder ? SHCNE_RENAMEFOLDER : SHCNE_RENAMEITEM, SHCNF_PATHW, wide_from.text(),
                   wide_to.text());
    return true;
}

bool os_create_folder(const char *name) {
    return CreateDirectoryW(os_wide_t(name).text(), nullptr) != 0;
}

bool os_delete_file(const char *name) {
    return DeleteFileW(os_wide_t(name).text()) != 0;
}

bool os_delete_folder(const char *name) {
    return RemoveDirectoryW(os_wide_t(name).text()) != 0;
}

bool os_file_exists(const char *name) {
    DWORD attributes = GetFileAttributesW(os_wide_t(name).text());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool os_folder_exists(const char *name) {
    DWORD attributes = GetFileAttributesW(os_wide_t(name).text());
    return attributes != INVALID_FILE_ATTRIBUTES && attributes & FILE_ATTRIBUTE_DIRECTORY;
}

bool os_get_file_info(const char *name, os_file_info_t *info) {
    *info = {VALUE_UNKNOWN, VALUE_UNKNOWN};
    WIN32_FILE_ATTRIBUTE_DATA found;
    if (!GetFileAttributesExW(os_wide_t(name).text(), GetFileExInfoStandard, &found))
        return false;
    info->size = static_cast<u64>(found.nFileSizeHigh) << 32 | found.nFileSizeLow;
    info->date_modified =
        static_cast<u64>(found.ftLastWriteTime.dwHighDateTime) << 32 | found.ftLastWriteTime.dwLowDateTime;
    return true;
}

} // namespace findwright
