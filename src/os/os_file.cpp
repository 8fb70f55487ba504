#include "base/utf8_buf.h"
#include "os/os_internal.h"

#include <cstring>

namespace findwright {

platform_file_t os_open(const char *name, u32 access, u32 share, os_disposition_t disposition, u32 flags) {
    platform_file_t file = os_open_quiet(name, access, share, disposition, flags);
    if (file == PLATFORM_FILE_NONE) {
        u32 error = os_get_last_error();
        if (!os_error_is_file_not_found(error))
            debug_printf("CreateFileW(): %d: Failed to open file %s\n", error, name);
        os_set_last_error(error);
    }
    return file;
}

platform_file_t os_open_read(const char *name, bool sequential) {
    return os_open(name, OS_OPEN_READ, OS_SHARE_READ, OS_OPEN_EXISTING, sequential ? OS_OPEN_SEQUENTIAL : 0);
}

platform_file_t os_create(const char *name) {
    return os_open(name, OS_OPEN_WRITE, OS_SHARE_READ, OS_CREATE_ALWAYS, 0);
}

void os_get_temp_name(const char *name, utf8_buf_t *out) {
    utf8_buf_printf(out, "%s.tmp", name);
}

bool os_replace_file(const char *temp, const char *target) {
    utf8_buf_t real;
    utf8_buf_init(&real);
    os_follow_links(target, &real);
    bool replaced = os_flush_file(temp, target) &&
                    (os_move_replace(temp, real.data, true, false) ||
                     (std::strcmp(real.data, target) != 0 && os_move_replace(temp, target, true, false)));
    if (replaced)
        os_flush_folder_of(real.data);
    utf8_buf_kill(&real);
    return replaced;
}

static bool _os_is_separator(char c) {
    return c == '\\' || c == '/';
}

// The last separator in front of `end`, or -1.
static i32 _os_previous_separator(const char *name, i32 end) {
    i32 at = end - 1;
    while (at >= 0 && !_os_is_separator(name[at]))
        at--;
    return at;
}

// Makes the folder that the first `length` bytes name, after those above it where they are missing. It is
// asked for first, and again after a failure, since another process may make the same folder at the same
// time. Going up only as far as needed keeps clear of roots, servers and shares, which can be neither found
// nor made.
static bool _os_make_folder(char *path, i32 length) {
    char end = path[length];
    path[length] = 0;
    bool made = os_folder_exists(path) || os_create_folder(path);
    if (!made) {
        i32 parent = _os_previous_separator(path, length);
        if (parent > 0 && _os_make_folder(path, parent))
            made = os_create_folder(path) || os_folder_exists(path);
    }
    path[length] = end;
    return made;
}

bool os_make_folders_for(const char *name) {
    auto length = static_cast<i32>(std::strlen(name));
    i32 last = _os_previous_separator(name, length);
    if (last <= 0)
        return true;
    utf8_buf_t path;
    utf8_buf_init(&path);
    utf8_buf_copy_utf8(&path, name, static_cast<u32>(last));
    bool made = _os_make_folder(path.data, last);
    utf8_buf_kill(&path);
    return made;
}

bool os_path_is_own(const char *name, u32 length) {
    bool is_rooted = length != 0 && name[0] == '\\';
    bool is_share = is_rooted && length > 1 && name[1] == '\\';
    if (os_path_separator == '/')
        return is_rooted && !is_share;
    if (is_share) // the name space of the devices begins like one
        return length > 2 && name[2] != '.';
    bool is_drive = length >= 2 && name[1] == ':' && static_cast<u32>((name[0] | 0x20) - 'a') < 26;
    return is_drive && (length == 2 || name[2] == '\\');
}

void os_path_to_user(const char *name, u32 length, utf8_buf_t *out) {
    if (os_path_separator == '/' && os_path_is_own(name, length))
        os_path_to_system(name, length, out);
    else
        utf8_buf_copy_utf8(out, name, length);
}

} // namespace findwright
