#include "os/os_folder.h"
#include "os/os_internal.h"
#include "os/os_posix.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace findwright {

// --- Paths ------------------------------------------------------------------------------------------------

// U+F05C, which stands inside for a `\` that is part of a name.
static constexpr char NAME_BACKSLASH[] = "\xEF\x81\x9C";
static constexpr u32 NAME_BACKSLASH_LENGTH = 3;

const char os_path_separator = '/';

void os_path_to_system(const char *name, u32 length, utf8_buf_t *out) {
    utf8_buf_grow_empty(out, length + 1);
    char *to = out->data;
    for (u32 i = 0; i < length; i++) {
        if (name[i] == '\\') {
            *to++ = '/';
        } else if (name[i] == NAME_BACKSLASH[0] && length - i >= NAME_BACKSLASH_LENGTH &&
                   std::memcmp(name + i, NAME_BACKSLASH, NAME_BACKSLASH_LENGTH) == 0) {
            *to++ = '\\';
            i += NAME_BACKSLASH_LENGTH - 1;
        } else {
            *to++ = name[i];
        }
    }
    utf8_buf_set_length(out, static_cast<u32>(to - out->data));
}

void os_path_from_system(const char *name, u32 length, utf8_buf_t *out) {
    utf8_buf_empty(out);
    u32 start = 0;
    for (u32 i = 0; i < length; i++) {
        if (name[i] != '/' && name[i] != '\\')
            continue;
        utf8_buf_cat_utf8(out, name + start, i - start);
        if (name[i] == '/')
            utf8_buf_cat_byte(out, '\\');
        else
            utf8_buf_cat_utf8(out, NAME_BACKSLASH, NAME_BACKSLASH_LENGTH);
        start = i + 1;
    }
    utf8_buf_cat_utf8(out, name + start, length - start);
}

// --- Open files -------------------------------------------------------------------------------------------

static int _os_open_flags(u32 access, os_disposition_t disposition) {
    int flags = O_CLOEXEC | O_NOCTTY;
    if (access == (OS_OPEN_READ | OS_OPEN_WRITE))
        flags |= O_RDWR;
    else
        flags |= access == OS_OPEN_WRITE ? O_WRONLY : O_RDONLY;
    switch (disposition) {
    case OS_OPEN_EXISTING: break;
    case OS_OPEN_ALWAYS: flags |= O_CREAT; break;
    case OS_CREATE_ALWAYS: flags |= O_CREAT | O_TRUNC; break;
    case OS_CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    }
    return flags;
}

static int _os_open_descriptor(const char *name, int flags) {
    os_system_path_t path(name);
    int descriptor;
    do
        descriptor = open(path.text(), flags, 0666);
    while (descriptor == -1 && errno == EINTR);
    return descriptor;
}

platform_file_t os_open_quiet(const char *name, u32 access, u32, os_disposition_t disposition, u32 flags) {
    int descriptor = _os_open_descriptor(name, _os_open_flags(access, disposition));
    if (descriptor == -1)
        return PLATFORM_FILE_NONE;
    struct stat info;
    if (fstat(descriptor, &info) == 0 && S_ISDIR(info.st_mode)) {
        close(descriptor);
        errno = EISDIR;
        return PLATFORM_FILE_NONE;
    }
    if (flags & OS_OPEN_SEQUENTIAL)
        posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    return descriptor;
}

platform_file_t os_open_content(const char *name, u64 *size) {
    os_system_path_t path(name);
    struct stat info;
    // Opening a device may do something to it, so that is not even tried.
    if (stat(path.text(), &info) != 0 || !S_ISREG(info.st_mode) || os_folder_is_virtual(name))
        return PLATFORM_FILE_NONE;
    int descriptor = _os_open_descriptor(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor == -1)
        return PLATFORM_FILE_NONE;
    if (fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) { // another one has its name since
        close(descriptor);
        return PLATFORM_FILE_NONE;
    }
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    *size = static_cast<u64>(info.st_size);
    return descriptor;
}

static bool _os_take_real_path(char *path, utf8_buf_t *out) {
    utf8_buf_empty(out);
    if (!path)
        return false;
    u32 length = static_cast<u32>(std::strlen(path));
    while (length && path[length - 1] == '/')
        length--; // of the root alone
    os_path_from_system(path, length, out);
    free(path);
    return true;
}

bool os_get_real_path(const char *name, utf8_buf_t *out) {
    return _os_take_real_path(realpath(os_system_path_t(name).text(), nullptr), out);
}

// What the system tells of a descriptor is the path now, with " (deleted)" behind one that is gone: what that
// leads to must be this file.
bool os_get_open_path(platform_file_t file, utf8_buf_t *out) {
    char link[32];
    struct stat is, shall;
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", static_cast<int>(file));
    char *path = realpath(link, nullptr);
    if (path && (stat(path, &is) != 0 || fstat(static_cast<int>(file), &shall) != 0 ||
                 is.st_ino != shall.st_ino || is.st_dev != shall.st_dev)) {
        free(path);
        path = nullptr;
    }
    return _os_take_real_path(path, out);
}

i64 os_read(platform_file_t file, void *bytes, u32 size) {
    ssize_t taken;
    do
        taken = read(static_cast<int>(file), bytes, size);
    while (taken == -1 && errno == EINTR);
    return taken;
}

bool os_write(platform_file_t file, const void *bytes, u32 size) {
    auto *from = static_cast<const char *>(bytes);
    while (size) {
        ssize_t written = write(static_cast<int>(file), from, size);
        if (written == -1 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        from += written;
        size -= static_cast<u32>(written);
    }
    return true;
}

bool os_seek(platform_file_t file, u64 offset) {
    return lseek(static_cast<int>(file), static_cast<off_t>(offset), SEEK_SET) != -1;
}

void os_close(platform_file_t file) {
    close(static_cast<int>(file));
}

bool os_append(const char *name, const void *bytes, u32 size) {
    int descriptor = _os_open_descriptor(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY);
    if (descriptor == -1)
        return false;
    bool written = os_write(descriptor, bytes, size);
    return close(descriptor) == 0 && written;
}

bool os_flush_file(const char *temp, const char *target) {
    int descriptor = _os_open_descriptor(temp, O_RDONLY | O_CLOEXEC);
    if (descriptor == -1)
        return false;
    os_system_path_t target_path(target);
    struct stat info;
    if (stat(target_path.text(), &info) == 0 && S_ISREG(info.st_mode))
        (void)!fchmod(descriptor, info.st_mode & 07777); // may be refused, and then the new ones will do
    bool flushed = fsync(descriptor) == 0;
    int error = errno;
    close(descriptor);
    errno = error;
    return flushed;
}

void os_follow_links(const char *name, utf8_buf_t *out) {
    os_system_path_t path(name);
    struct stat info;
    char real[PATH_MAX];
    if (lstat(path.text(), &info) == 0 && S_ISLNK(info.st_mode) && realpath(path.text(), real))
        os_path_from_system(real, static_cast<u32>(std::strlen(real)), out);
    else
        utf8_buf_copy_string(out, name);
}

void os_make_private(const char *name) {
    os_system_path_t path(name);
    (void)!chmod(path.text(), S_IRUSR | S_IWUSR);
}

void os_flush_folder_of(const char *name) {
    os_system_path_t path(name);
    char *separator = std::strrchr(path.buf.data, '/');
    const char *folder = ".";
    if (separator) {
        separator[separator == path.buf.data ? 1 : 0] = 0;
        folder = path.buf.data;
    }
    int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1)
        return;
    fsync(descriptor);
    close(descriptor);
}

// --- Names ------------------------------------------------------------------------------------------------

// Fails when the target exists. Where the file system cannot do that in one step, it is looked for first.
static int _os_rename_new(const char *from, const char *to) {
    int result = renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
    if (result == 0 || (errno != EINVAL && errno != ENOSYS))
        return result;
    struct stat info;
    if (lstat(to, &info) == 0) {
        errno = EEXIST;
        return -1;
    }
    return rename(from, to);
}

bool os_move_replace(const char *from, const char *to, bool replace, bool) {
    os_system_path_t from_path(from);
    os_system_path_t to_path(to);
    int result =
        replace ? rename(from_path.text(), to_path.text()) : _os_rename_new(from_path.text(), to_path.text());
    if (result == 0)
        return true;
    debug_printf("MoveFileExW(): GetLastError(): %d: Failed to move file from %s to %s\n",
                 os_get_last_error(), from, to);
    return false;
}

bool os_create_folder(const char *name) {
    os_system_path_t path(name);
    return mkdir(path.text(), 0777) == 0;
}

bool os_delete_file(const char *name) {
    os_system_path_t path(name);
    return unlink(path.text()) == 0;
}

bool os_delete_folder(const char *name) {
    os_system_path_t path(name);
    return rmdir(path.text()) == 0;
}

bool os_file_exists(const char *name) {
    os_system_path_t path(name);
    struct stat info;
    return stat(path.text(), &info) == 0 && !S_ISDIR(info.st_mode);
}

bool os_folder_exists(const char *name) {
    os_system_path_t path(name);
    struct stat info;
    return stat(path.text(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool os_get_file_info(const char *name, os_file_info_t *info) {
    *info = {VALUE_UNKNOWN, VALUE_UNKNOWN};
    os_system_path_t path(name);
    struct stat found;
    if (stat(path.text(), &found) != 0)
        return false;
    info->size = static_cast<u64>(found.st_size);
    info->date_modified = os_file_time_from_timespec(&found.st_mtim);
    return true;
}

} // namespace findwright
