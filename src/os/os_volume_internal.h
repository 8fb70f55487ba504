// What a kind of volume is made of. For the layer's own sources and for tests that script a volume; everybody
// else uses os_volume.h.
#pragma once

#include "os/os_volume.h"

namespace findwright {

// The operations of a kind of volume. A 0 stands for what this kind does not offer.
struct os_volume_ops_t {
    // Reads at an offset within the size, if that is known; offset and size are multiples of `alignment`. May
    // read less than asked; 0 at the end, -1 on failure.
    i64 (*read)(os_volume_t *volume, u64 offset, void *bytes, u32 size);
    void (*close)(os_volume_t *volume);
    bool (*get_sector_size)(os_volume_t *volume, u32 *sector_size, u32 *error);
    bool (*get_ntfs_data)(os_volume_t *volume, os_ntfs_volume_data_t *data, bool *supported);
    bool (*get_ntfs_record)(os_volume_t *volume, u64 index, u64 *reference, void *record, u32 size,
                            bool *supported);
};

struct os_volume_t {
    const os_volume_ops_t *ops;
    u64 size;
    bool is_size_known;
    u32 alignment;  // bytes that offsets and sizes of ops->read are multiples of; a power of 2, or 1 for any
    u32 references; // the opener's, and one of each part
    char *bounce;   // `alignment` bytes, for what callers want unaligned
    std::intptr_t handle;
    const char *memory;
    os_volume_t *parent;
    u64 offset; // in the parent
};

inline constexpr u32 OS_DEFAULT_SECTOR_SIZE = 512;

// A volume with one reference, no size, no alignment.
os_volume_t *os_volume_new(const os_volume_ops_t *ops);
void os_volume_set_alignment(os_volume_t *volume, u32 alignment);

} // namespace findwright
