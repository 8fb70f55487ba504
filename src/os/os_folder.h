// What a folder holds, with all data of each item, as fast as the system gives it.
//
// Any thread may call, and several may list different folders at once. A listing holds one block of memory,
// however many items the folder has; texts given to a callback are good until it returns.
//
// A link is an item and never a folder to enter: a scan that skips what `is_link` marks ends, and stays in
// its tree. That a folder can be replaced by a link between its own listing and that of its parent is met by
// `root_length`: links are followed in what the user named of a path, and refused behind it.
#pragma once

#include "base/types.h"

namespace findwright {

// Bits of the attributes, those of Windows. On POSIX a leading dot is hidden, no write permission for the
// owner is read-only, and nothing is a system file.
inline constexpr u32 OS_ATTRIBUTE_READ_ONLY = 0x1;
inline constexpr u32 OS_ATTRIBUTE_HIDDEN = 0x2;
inline constexpr u32 OS_ATTRIBUTE_SYSTEM = 0x4;
inline constexpr u32 OS_ATTRIBUTE_FOLDER = 0x10;
inline constexpr u32 OS_ATTRIBUTE_NORMAL = 0x80; // stands alone
inline constexpr u32 OS_ATTRIBUTE_LINK = 0x400;

struct os_folder_entry_t {
    const char *name;  // terminated
    u32 length;        // bytes of it
    u64 size;          // bytes; a folder's is 0
    u64 date_modified; // file times, UTC
    u64 date_created;
    u64 date_accessed;
    u32 attributes;
    bool is_folder; // on POSIX never a link; on Windows also a link to a folder
    bool is_link;
    u64 device; // number of the file system that holds it; 0 on Windows
};

// Returns false to stop the listing.
using os_folder_entry_proc_t = bool(void *param, const os_folder_entry_t *entry);

// The whole path is one that the user named.
inline constexpr u32 OS_FOLDER_ROOT = 0xFFFFFFFF;

// Calls proc(param, &entry) for each item but `.` and `..`, in the system's order. The first `root_length`
// bytes of the path may lead through links, the components behind may not; on Windows only the last one is
// looked at. An item that vanishes meanwhile is left out; one whose data may not be read has its name, what
// kind it is, and unknown values. False when the folder cannot be read to its end: os_get_last_error tells
// why, and a folder that has become a link or a file is one that is not found.
bool os_folder_list(const char *path, u32 root_length, os_folder_entry_proc_t *proc, void *param);

// The data of one file or folder, where a link at the end of the path leads; the name is left empty. False,
// with the error number, when there is none.
bool os_folder_get_entry(const char *path, os_folder_entry_t *entry);
// The same as a listing of its folder gives it: a link at the end of the path is itself the item. Opens
// nothing: a device or a pipe is never waited for.
bool os_folder_get_link_entry(const char *path, os_folder_entry_t *entry);

// Whether a folder or file lies in a file system that the system makes up and that holds no files of the user
// (processes, devices, control groups). Mounts nothing, where a folder is only mounted when it is entered.
bool os_folder_is_virtual(const char *path);

} // namespace findwright
