#include "os/os_internal.h"
#include "os/os_posix.h"
#include "os/os_volume_internal.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace findwright {

static i64 _os_file_volume_read(os_volume_t *volume, u64 offset, void *bytes, u32 size) {
    ssize_t taken;
    do
        taken = pread(static_cast<int>(volume->handle), bytes, size, static_cast<off_t>(offset));
    while (taken == -1 && errno == EINTR);
    return taken;
}

static void _os_file_volume_close(os_volume_t *volume) {
    close(static_cast<int>(volume->handle));
}

static bool _os_device_get_sector_size(os_volume_t *volume, u32 *sector_size, u32 *error) {
    int size;
    if (ioctl(static_cast<int>(volume->handle), BLKSSZGET, &size) != 0) {
        *error = static_cast<u32>(errno);
        return false;
    }
    *sector_size = static_cast<u32>(size);
    *error = 0;
    return true;
}

// Both are read through the page cache, which takes any offset.
static const os_volume_ops_t _os_image_ops = {_os_file_volume_read, _os_file_volume_close, nullptr, nullptr,
                                              nullptr};
static const os_volume_ops_t _os_device_ops = {_os_file_volume_read, _os_file_volume_close,
                                               _os_device_get_sector_size, nullptr, nullptr};

// The size of an image or a device; false, with the error number set, for anything else.
static bool _os_volume_ask_size(int descriptor, u64 *size, bool *is_device) {
    struct stat info;
    if (fstat(descriptor, &info) != 0)
        return false;
    *is_device = S_ISBLK(info.st_mode);
    if (*is_device)
        return ioctl(descriptor, BLKGETSIZE64, size) == 0;
    *size = static_cast<u64>(info.st_size);
    if (S_ISREG(info.st_mode))
        return true;
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return false;
}

os_volume_t *os_volume_open(const char *name) {
    os_system_path_t path(name);
    // Non-blocking, or a pipe of that name would wait for its writer.
    int descriptor = open(path.text(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor == -1)
        return nullptr;
    u64 size;
    bool is_device;
    if (!_os_volume_ask_size(descriptor, &size, &is_device)) {
        int error = errno;
        close(descriptor);
        errno = error;
        return nullptr;
    }
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    os_volume_t *volume = os_volume_new(is_device ? &_os_device_ops : &_os_image_ops);
    volume->handle = descriptor;
    volume->size = size;
    volume->is_size_known = true;
    return volume;
}

} // namespace findwright
