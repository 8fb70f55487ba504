// Finds the NTFS volumes of a disk, device or image: the whole of it, or the partitions of an MBR or GPT
// table.
#pragma once

#include "os/os_volume.h"

namespace findwright {

inline constexpr u32 NTFS_PARTITION_MAX = 128;

struct ntfs_partition_t {
    u64 offset; // bytes from the start of the disk
    u64 size;   // bytes
};

// Fills `partitions` (room for NTFS_PARTITION_MAX) in the order of the table and returns their number. A
// volume that begins with an NTFS boot sector is one partition, all of it. 0: none found, and `reason` (0 or
// 256 bytes) says in words for a user what was found instead.
u32 ntfs_find_partitions(os_volume_t *disk, ntfs_partition_t *partitions, char *reason);

// Opens an NTFS volume by the name that settings have for it: a device, an image of a volume, or that of a
// whole disk, of which the first NTFS partition is meant, or with `#2` behind the name the second, and so on.
// 0, with a reason as above, when there is none. It is checked no further than its boot signature.
os_volume_t *ntfs_open_volume(const char *name, char *reason);

} // namespace findwright
