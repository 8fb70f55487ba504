#include "os/os_folder.h"

#include "base/mem.h"
#include "os/os_posix.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace findwright {

// --- Data of an item --------------------------------------------------------------------------------------

static constexpr u32 STATX_WANTED =
    STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_MTIME | STATX_ATIME | STATX_BTIME;

static u64 _os_folder_time(const struct statx *info, u32 bit, const statx_timestamp *stamp) {
    if (!(info->stx_mask & bit))
        return VALUE_UNKNOWN;
    timespec time = {};
    time.tv_sec = stamp->tv_sec;
    time.tv_nsec = static_cast<long>(stamp->tv_nsec);
    return os_file_time_from_timespec(&time);
}

static void _os_folder_set_kind(os_folder_entry_t *entry, bool is_folder, bool is_link, bool is_read_only,
                                bool is_hidden) {
    entry->is_folder = is_folder;
    entry->is_link = is_link;
    entry->attributes = (is_folder ? OS_ATTRIBUTE_FOLDER : 0) | (is_link ? OS_ATTRIBUTE_LINK : 0) |
                        (is_read_only ? OS_ATTRIBUTE_READ_ONLY : 0) | (is_hidden ? OS_ATTRIBUTE_HIDDEN : 0);
    if (!entry->attributes)
        entry->attributes = OS_ATTRIBUTE_NORMAL;
}

static void _os_folder_set_data(os_folder_entry_t *entry, const struct statx *info, bool is_hidden) {
    _os_folder_set_kind(entry, S_ISDIR(info->stx_mode), S_ISLNK(info->stx_mode), !(info->stx_mode & S_IWUSR),
                        is_hidden);
    entry->size = info->stx_mask & STATX_SIZE ? info->stx_size : VALUE_UNKNOWN;
    if (entry->is_folder) // what the names take up says nothing to anyone
        entry->size = 0;
    entry->date_modified = _os_folder_time(info, STATX_MTIME, &info->stx_mtime);
    entry->date_created = _os_folder_time(info, STATX_BTIME, &info->stx_btime);
    entry->date_accessed = _os_folder_time(info, STATX_ATIME, &info->stx_atime);
    entry->device = makedev(info->stx_dev_major, info->stx_dev_minor);
}

// What the listing alone tells of an item that may not be asked for.
static void _os_folder_set_unknown(os_folder_entry_t *entry, u8 type, u64 device, bool is_hidden) {
    _os_folder_set_kind(entry, type == DT_DIR, type == DT_LNK, false, is_hidden);
    entry->size = entry->is_folder ? 0 : VALUE_UNKNOWN;
    entry->date_modified = entry->date_created = entry->date_accessed = VALUE_UNKNOWN;
    entry->device = device;
}

// --- Opening ----------------------------------------------------------------------------------------------

static constexpr int FOLDER_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// One component after the other, for a kernel that has no openat2 or a sandbox that forbids it. Takes over
// `parent`; `rest` is changed.
static int _os_folder_walk(int parent, char *rest) {
    while (parent != -1) {
        char *end = std::strchr(rest, '/');
        if (end)
            *end = 0;
        int child = openat(parent, rest, FOLDER_FLAGS | O_NOFOLLOW);
        int error = errno;
        close(parent);
        errno = error;
        parent = child;
        if (!end)
            break;
        for (rest = end + 1; *rest == '/'; rest++)
            ;
        if (!*rest)
            break;
    }
    return parent;
}

// Opens `rest` below the folder `root`, through no link.
static int _os_folder_open_below(const char *root, char *rest) {
    int parent = open(root, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (parent == -1)
        return -1;
    open_how how = {};
    how.flags = FOLDER_FLAGS;
    how.resolve = RESOLVE_NO_SYMLINKS;
    auto folder = static_cast<int>(syscall(SYS_openat2, parent, rest, &how, sizeof(how)));
    if (folder == -1 && (errno == ENOSYS || errno == EPERM))
        return _os_folder_walk(parent, rest);
    int error = errno;
    close(parent);
    errno = error;
    return folder;
}

static int _os_folder_open(const char *path, u32 root_length) {
    auto length = static_cast<u32>(std::strlen(path));
    u32 root = std::min(root_length, length);
    u32 rest = root;
    while (rest < length && (path[rest] == '\\' || path[rest] == '/'))
        rest++;
    if (rest == length || rest == 0)
        return open(os_system_path_t(path).text(), FOLDER_FLAGS | (rest ? 0 : O_NOFOLLOW));
    utf8_buf_t root_path;
    utf8_buf_init(&root_path);
    // The separator belongs to it: that of `\` is all there is.
    os_path_to_system(path, rest, &root_path);
    os_system_path_t rest_path(path + rest);
    int folder = _os_folder_open_below(root_path.data, rest_path.buf.data);
    int error = errno;
    utf8_buf_kill(&root_path);
    errno = error == ELOOP ? ENOTDIR : error;
    return folder;
}

// --- Listing ----------------------------------------------------------------------------------------------

// 1,000 to 2,000 names: a larger one does not fit the first caches and takes no less time.
static constexpr u32 LIST_BYTES = 64 * 1024;

struct linux_dirent64_t { // as getdents64 gives it
    u64 d_ino;
    i64 d_off;
    u16 d_reclen;
    u8 d_type;
    char d_name[];
};

struct os_folder_listing_t {
    int folder;
    u64 device;
    os_folder_entry_proc_t *proc;
    void *param;
    utf8_buf_t name; // where a name has to be converted
};

static bool _os_folder_is_dots(const char *name) {
    return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

// False: the callback wants no more.
static bool _os_folder_give(os_folder_listing_t *listing, const linux_dirent64_t *item) {
    if (_os_folder_is_dots(item->d_name))
        return true;
    os_folder_entry_t entry;
    bool is_hidden = item->d_name[0] == '.';
    struct statx info;
    if (statx(listing->folder, item->d_name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT,
              STATX_WANTED, &info) == 0)
        _os_folder_set_data(&entry, &info, is_hidden);
    else if (errno == ENOENT)
        return true;
    else
        _os_folder_set_unknown(&entry, item->d_type, listing->device, is_hidden);
    entry.name = item->d_name;
    entry.length = static_cast<u32>(std::strlen(item->d_name));
    if (std::memchr(entry.name, '\\', entry.length)) {
        os_path_from_system(entry.name, entry.length, &listing->name);
        entry.name = listing->name.data;
        entry.length = static_cast<u32>(listing->name.length);
    }
    return listing->proc(listing->param, &entry);
}

static bool _os_folder_list_all(os_folder_listing_t *listing, char *buffer) {
    for (;;) {
        i64 taken = syscall(SYS_getdents64, listing->folder, buffer, LIST_BYTES);
        if (taken == -1 && errno == EINTR)
            continue;
        if (taken <= 0)
            return taken == 0;
        for (i64 at = 0; at < taken;) {
            auto *item = reinterpret_cast<const linux_dirent64_t *>(buffer + at);
            if (!_os_folder_give(listing, item))
                return true;
            at += item->d_reclen;
        }
    }
}

bool os_folder_list(const char *path, u32 root_length, os_folder_entry_proc_t *proc, void *param) {
    os_folder_listing_t listing = {};
    listing.folder = _os_folder_open(path, root_length);
    if (listing.folder == -1)
        return false;
    struct stat info;
    listing.device = fstat(listing.folder, &info) == 0 ? info.st_dev : 0;
    listing.proc = proc;
    listing.param = param;
    utf8_buf_init(&listing.name);
    auto *buffer = static_cast<char *>(mem_alloc(LIST_BYTES));
    bool is_whole = _os_folder_list_all(&listing, buffer);
    int error = errno;
    mem_free(buffer);
    utf8_buf_kill(&listing.name);
    close(listing.folder);
    errno = error;
    return is_whole;
}

static bool _os_folder_get(const char *path, os_folder_entry_t *entry, int flags) {
    os_system_path_t system_path(path);
    struct statx info;
    if (statx(AT_FDCWD, system_path.text(), flags | AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT, STATX_WANTED,
              &info) != 0)
        return false;
    const char *separator = std::strrchr(system_path.text(), '/');
    const char *name = separator ? separator + 1 : system_path.text();
    _os_folder_set_data(entry, &info, name[0] == '.' && !_os_folder_is_dots(name));
    entry->name = "";
    entry->length = 0;
    return true;
}

bool os_folder_get_entry(const char *path, os_folder_entry_t *entry) {
    return _os_folder_get(path, entry, 0);
}

bool os_folder_get_link_entry(const char *path, os_folder_entry_t *entry) {
    return _os_folder_get(path, entry, AT_SYMLINK_NOFOLLOW);
}

// --- File systems -----------------------------------------------------------------------------------------

// Those that linux/magic.h has no name for are from the kernel's own sources.
static constexpr u32 VIRTUAL_FILE_SYSTEMS[] = {
    PROC_SUPER_MAGIC, SYSFS_MAGIC,        DEVPTS_SUPER_MAGIC,   CGROUP_SUPER_MAGIC,   CGROUP2_SUPER_MAGIC,
    DEBUGFS_MAGIC,    TRACEFS_MAGIC,      SECURITYFS_MAGIC,     BPF_FS_MAGIC,         PSTOREFS_MAGIC,
    EFIVARFS_MAGIC,   BINFMTFS_MAGIC,     HUGETLBFS_MAGIC,      SELINUX_MAGIC,        SMACK_MAGIC,
    NSFS_MAGIC,       AUTOFS_SUPER_MAGIC, RDTGROUP_SUPER_MAGIC, BINDERFS_SUPER_MAGIC,
    0x62656570, // configfs
    0x65735543, // fusectl
    0x19800202, // mqueue
    0x67596969, // rpc_pipefs
    0x6E667364, // nfsd
    0x5A3C69F0, // apparmorfs
};

static constexpr char DEVICE_FOLDER[] = "/dev";

// The file system of the devices has the number of the one for temporary files, which do count: it is told by
// where it is mounted.
static bool _os_folder_is_device_system(int folder) {
    struct stat info, devices, root;
    return fstat(folder, &info) == 0 && stat(DEVICE_FOLDER, &devices) == 0 && stat("/", &root) == 0 &&
           info.st_dev == devices.st_dev && devices.st_dev != root.st_dev;
}

bool os_folder_is_virtual(const char *path) {
    // Opened by its place alone, so that what is not mounted yet stays so.
    int folder = open(os_system_path_t(path).text(), O_PATH | O_CLOEXEC);
    if (folder == -1)
        return false;
    struct statfs info;
    bool is_virtual = false;
    if (fstatfs(folder, &info) == 0) {
        auto type = static_cast<u32>(info.f_type);
        is_virtual = std::find(std::begin(VIRTUAL_FILE_SYSTEMS), std::end(VIRTUAL_FILE_SYSTEMS), type) !=
                     std::end(VIRTUAL_FILE_SYSTEMS);
        if (type == TMPFS_MAGIC || type == RAMFS_MAGIC)
            is_virtual = _os_folder_is_device_system(folder);
    }
    close(folder);
    return is_virtual;
}

} // namespace findwright
