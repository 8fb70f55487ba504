#include "os/os_lock.h"

#include "os/os.h"
#include "os/os_posix.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace findwright {

static constexpr u32 LOCK_RETRY_MICROSECONDS = 5000;

// The folder of a file, as the system writes it.
static void _os_lock_get_folder(const char *name, utf8_buf_t *out) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    utf8_buf_copy_string(&path, name);
    i32 end = path.length;
    while (end != 0 && path.data[end - 1] != '\\')
        end--;
    utf8_buf_set_length(&path, static_cast<u32>(end));
    os_path_to_system(path.length != 0 ? path.data : ".", path.length != 0 ? static_cast<u32>(end) : 1, out);
    utf8_buf_kill(&path);
}

static int _os_lock_open(const char *name) {
    utf8_buf_t folder;
    utf8_buf_init(&folder);
    _os_lock_get_folder(name, &folder);
    int descriptor = open(folder.data, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    utf8_buf_kill(&folder);
    return descriptor;
}

platform_file_t os_lock_file(const char *name, u32 timeout) {
    int descriptor = _os_lock_open(name);
    if (descriptor == -1)
        return PLATFORM_FILE_NONE;
    for (u64 waited = 0;; waited += LOCK_RETRY_MICROSECONDS) {
        if (flock(descriptor, LOCK_EX | LOCK_NB) == 0)
            return descriptor;
        if (errno != EWOULDBLOCK && errno != EINTR) // there are no locks here
            return descriptor;
        if (waited >= static_cast<u64>(timeout) * 1000)
            break;
        usleep(LOCK_RETRY_MICROSECONDS);
    }
    close(descriptor);
    errno = EWOULDBLOCK;
    return PLATFORM_FILE_NONE;
}

} // namespace findwright
