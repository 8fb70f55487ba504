// A raw volume to be read by offset: a block device, a disk image, a volume handle of Windows, a block of
// memory, or a part of another one (a partition).
//
// Owner: the opener closes it; a part keeps its parent open until it is closed itself. One thread at a time.
// Reads may start and end anywhere: what the system wants aligned is aligned inside. A read never goes beyond
// the volume's end.
#pragma once

#include "base/types.h"

namespace findwright {

struct os_volume_t;

// Opens a volume by UTF-8 name: a file or device, on Windows also `\\.\C:` or `\\?\Volume{...}`, with or
// without a separator behind. 0 on failure, with the system's error number in os_get_last_error.
os_volume_t *os_volume_open(const char *name);
// A volume of `size` bytes that the caller keeps alive.
os_volume_t *os_volume_open_memory(const void *bytes, u64 size);
// The `size` bytes from `offset` of another volume, cut to what that one has; takes a share in the parent.
os_volume_t *os_volume_open_part(os_volume_t *parent, u64 offset, u64 size);
void os_volume_close(os_volume_t *volume);

// Bytes; 0 when the system does not tell.
u64 os_volume_get_size(const os_volume_t *volume);
// Bytes of a sector as the device tells it; 512 where it does not, as for an image. False, with the error
// number, when asking fails in a way that matters ("failed to read drive geometry").
bool os_volume_get_sector_size(os_volume_t *volume, u32 *sector_size, u32 *error);
// Reads up to `size` bytes at `offset`. Bytes read: fewer at the end of the volume, 0 behind it; -1 on
// failure.
i64 os_volume_read(os_volume_t *volume, u64 offset, void *bytes, u32 size);

// What the file system's driver can answer on a live volume; each returns false where there is no driver to
// ask (an image, any volume on POSIX, Wine), with *supported set to false.
struct os_ntfs_volume_data_t {
    u32 bytes_per_cluster;
    u32 bytes_per_file_record;
};
bool os_volume_get_ntfs_data(os_volume_t *volume, os_ntfs_volume_data_t *data, bool *supported);
// The record in use at or below `index`: its reference number and up to `size` bytes of the record.
bool os_volume_get_ntfs_record(os_volume_t *volume, u64 index, u64 *reference, void *record, u32 size,
                               bool *supported);

} // namespace findwright
