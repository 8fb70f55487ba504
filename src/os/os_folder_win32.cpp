#include "os/os_folder.h"

#include "base/utf8_buf.h"
#include "os/os_win32.h"

namespace findwright {

static u64 _os_folder_time(const FILETIME *time) {
    u64 value = static_cast<u64>(time->dwHighDateTime) << 32 | time->dwLowDateTime;
    return value ? value : VALUE_UNKNOWN; // what file systems without that date give
}

// From any of the structures that have these members: WIN32_FIND_DATAW, BY_HANDLE_FILE_INFORMATION.
template<class Data>
static void _os_folder_set_data(os_folder_entry_t *entry, const Data *data) {
    entry->attributes = data->dwFileAttributes;
    entry->is_folder = data->dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    entry->is_link = data->dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT;
    u64 size = static_cast<u64>(data->nFileSizeHigh) << 32 | data->nFileSizeLow;
    entry->size = entry->is_folder ? 0 : size;
    entry->date_modified = _os_folder_time(&data->ftLastWriteTime);
    entry->date_created = _os_folder_time(&data->ftCreationTime);
    entry->date_accessed = _os_folder_time(&data->ftLastAccessTime);
    entry->device = 0;
}

// --- Paths ------------------------------------------------------------------------------------------------

static bool _os_folder_has_drive(const char *path, u32 length) {
    auto letter = static_cast<u8>(path[0] | 0x20);
    return length >= 2 && path[1] == ':' && letter >= 'a' && letter <= 'z';
}

void os_make_long_path(wchar_buf_t *out, const char *path, const char *tail) {
    auto length = static_cast<u32>(std::strlen(path));
    bool is_plain = !std::memchr(path, '/', length);
    wchar_buf_empty(out);
    if (is_plain && _os_folder_has_drive(path, length) && (length == 2 || path[2] == '\\')) {
        wchar_buf_cat_utf8(out, "\\\\?\\", 4);
    } else if (is_plain && length > 2 && path[0] == '\\' && path[1] == '\\' && path[2] != '?' &&
               path[2] != '.') {
        wchar_buf_cat_utf8(out, "\\\\?\\UNC", 7);
        path++;
        length--;
    }
    wchar_buf_cat_utf8(out, path, length);
    bool is_drive = length == 2 && path[1] == ':'; // without the separator it is the drive's current folder
    if (length && path[length - 1] != '\\' && path[length - 1] != '/' && (*tail || is_drive))
        wchar_buf_cat_unit(out, u'\\');
    wchar_buf_cat_utf8(out, tail, static_cast<u32>(std::strlen(tail)));
}

static const wchar_t *_os_folder_text(const wchar_buf_t *path) {
    return reinterpret_cast<const wchar_t *>(path->data);
}

// --- Listing ----------------------------------------------------------------------------------------------

// The short names cost a look-up for each item and the small pieces a call for every few of them; before
// version 6.1 the system knows no other way.
static HANDLE _os_folder_find_first(const wchar_t *pattern, WIN32_FIND_DATAW *data) {
    HANDLE find = FindFirstFileExW(pattern, FindExInfoBasic, data, FindExSearchNameMatch, nullptr,
                                   FIND_FIRST_EX_LARGE_FETCH);
    if (find == INVALID_HANDLE_VALUE && GetLastError() == ERROR_INVALID_PARAMETER)
        find = FindFirstFileW(pattern, data);
    return find;
}

static bool _os_folder_is_dots(const wchar_t *name) {
    return name[0] == L'.' && (!name[1] || (name[1] == L'.' && !name[2]));
}

static bool _os_folder_give(const WIN32_FIND_DATAW *data, utf8_buf_t *name, os_folder_entry_proc_t *proc,
                            void *param) {
    if (_os_folder_is_dots(data->cFileName))
        return true;
    os_folder_entry_t entry;
    _os_folder_set_data(&entry, data);
    utf8_buf_copy_wchar(name, reinterpret_cast<const char16_t *>(data->cFileName),
                        static_cast<u32>(wcslen(data->cFileName)));
    entry.name = name->data;
    entry.length = static_cast<u32>(name->length);
    return proc(param, &entry);
}

static bool _os_folder_list_all(const wchar_t *pattern, os_folder_entry_proc_t *proc, void *param) {
    WIN32_FIND_DATAW data;
    HANDLE find = _os_folder_find_first(pattern, &data);
    if (find == INVALID_HANDLE_VALUE) // a root without items has not even the dots
        return GetLastError() == ERROR_FILE_NOT_FOUND;
    utf8_buf_t name;
    utf8_buf_init(&name);
    bool wanted = true;
    while (wanted) {
        wanted = _os_folder_give(&data, &name, proc, param);
        if (wanted && !FindNextFileW(find, &data))
            break;
    }
    DWORD error = wanted ? GetLastError() : ERROR_NO_MORE_FILES;
    utf8_buf_kill(&name);
    FindClose(find);
    SetLastError(error);
    return error == ERROR_NO_MORE_FILES;
}

// A folder below the root that is a link by now.
static bool _os_folder_is_refused(const char *path, u32 root_length, wchar_buf_t *wide) {
    if (root_length >= std::strlen(path))
        return false;
    os_make_long_path(wide, path, "");
    DWORD attributes = GetFileAttributesW(_os_folder_text(wide));
    return attributes != INVALID_FILE_ATTRIBUTES && attributes & FILE_ATTRIBUTE_REPARSE_POINT;
}

bool os_folder_list(const char *path, u32 root_length, os_folder_entry_proc_t *proc, void *param) {
    wchar_buf_t wide;
    wchar_buf_init(&wide);
    bool is_whole = false;
    if (_os_folder_is_refused(path, root_length, &wide)) {
        SetLastError(ERROR_PATH_NOT_FOUND);
    } else {
        os_make_long_path(&wide, path, "*");
        is_whole = _os_folder_list_all(_os_folder_text(&wide), proc, param);
    }
    DWORD error = GetLastError();
    wchar_buf_kill(&wide);
    // What systems say of a file in the folder's place.
    bool is_file = error == ERROR_DIRECTORY || error == ERROR_INVALID_NAME;
    SetLastError(is_file ? ERROR_PATH_NOT_FOUND : error);
    return is_whole;
}

bool os_folder_get_entry(const char *path, os_folder_entry_t *entry) {
    wchar_buf_t wide;
    wchar_buf_init(&wide);
    os_make_long_path(&wide, path, "");
    HANDLE handle = CreateFileW(_os_folder_text(&wide), FILE_READ_ATTRIBUTES,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    BY_HANDLE_FILE_INFORMATION info;
    bool found = handle != INVALID_HANDLE_VALUE && GetFileInformationByHandle(handle, &info);
    DWORD error = GetLastError();
    if (found) {
        _os_folder_set_data(entry, &info);
        entry->name = "";
        entry->length = 0;
    }
    if (handle != INVALID_HANDLE_VALUE)
        CloseHandle(handle);
    wchar_buf_kill(&wide);
    SetLastError(error);
    return found;
}

// By the listing of its folder, for a file that the system keeps for itself and lets nobody ask for.
static bool _os_folder_find_one(const char *path, const wchar_buf_t *wide, os_folder_entry_t *entry) {
    if (std::strpbrk(path, "*?")) // would find others
        return false;
    WIN32_FIND_DATAW data;
    HANDLE find = _os_folder_find_first(_os_folder_text(wide), &data);
    if (find == INVALID_HANDLE_VALUE)
        return false;
    FindClose(find);
    _os_folder_set_data(entry, &data);
    return true;
}

bool os_folder_get_link_entry(const char *path, os_folder_entry_t *entry) {
    wchar_buf_t wide;
    wchar_buf_init(&wide);
    os_make_long_path(&wide, path, "");
    WIN32_FILE_ATTRIBUTE_DATA data;
    bool found = GetFileAttributesExW(_os_folder_text(&wide), GetFileExInfoStandard, &data);
    DWORD error = GetLastError();
    if (found)
        _os_folder_set_data(entry, &data);
    else if (error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED)
        found = _os_folder_find_one(path, &wide, entry);
    if (found) {
        entry->name = "";
        entry->length = 0;
    }
    wchar_buf_kill(&wide);
    SetLastError(error);
    return found;
}

bool os_folder_is_virtual(const char *) {
    return false;
}

} // namespace findwright
