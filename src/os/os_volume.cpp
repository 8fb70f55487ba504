#include "base/mem.h"
#include "os/os_volume_internal.h"

#include <cstring>

namespace findwright {

os_volume_t *os_volume_new(const os_volume_ops_t *ops) {
    auto *volume = static_cast<os_volume_t *>(mem_alloc(sizeof(os_volume_t)));
    *volume = {};
    volume->ops = ops;
    volume->alignment = 1;
    volume->references = 1;
    return volume;
}

void os_volume_set_alignment(os_volume_t *volume, u32 alignment) {
    volume->alignment = alignment;
    volume->bounce = alignment > 1 ? static_cast<char *>(mem_alloc(alignment)) : nullptr;
}

void os_volume_close(os_volume_t *volume) {
    if (--volume->references)
        return;
    if (volume->ops->close)
        volume->ops->close(volume);
    if (volume->bounce)
        mem_free(volume->bounce);
    mem_free(volume);
}

// --- Memory -----------------------------------------------------------------------------------------------

static i64 _os_memory_read(os_volume_t *volume, u64 offset, void *bytes, u32 size) {
    std::memcpy(bytes, volume->memory + offset, size);
    return size;
}

static const os_volume_ops_t _os_memory_ops = {_os_memory_read, nullptr, nullptr, nullptr, nullptr};

os_volume_t *os_volume_open_memory(const void *bytes, u64 size) {
    os_volume_t *volume = os_volume_new(&_os_memory_ops);
    volume->memory = static_cast<const char *>(bytes);
    volume->size = size;
    volume->is_size_known = true;
    return volume;
}

// --- Parts ------------------------------------------------------------------------------------------------

static i64 _os_part_read(os_volume_t *volume, u64 offset, void *bytes, u32 size) {
    return os_volume_read(volume->parent, volume->offset + offset, bytes, size);
}

static void _os_part_close(os_volume_t *volume) {
    os_volume_close(volume->parent);
}

static bool _os_part_get_sector_size(os_volume_t *volume, u32 *sector_size, u32 *error) {
    return os_volume_get_sector_size(volume->parent, sector_size, error);
}

// A driver that is asked for the parent would answer for what it has mounted there, so a part asks none.
static const os_volume_ops_t _os_part_ops = {_os_part_read, _os_part_close, _os_part_get_sector_size, nullptr,
                                             nullptr};

os_volume_t *os_volume_open_part(os_volume_t *parent, u64 offset, u64 size) {
    u64 room = ~offset; // so that no offset inside overflows
    if (parent->is_size_known)
        room = offset < parent->size ? parent->size - offset : 0;
    os_volume_t *volume = os_volume_new(&_os_part_ops);
    volume->parent = parent;
    volume->offset = offset;
    volume->size = size < room ? size : room;
    volume->is_size_known = true;
    parent->references++;
    return volume;
}

// --- Operations -------------------------------------------------------------------------------------------

u64 os_volume_get_size(const os_volume_t *volume) {
    return volume->size;
}

bool os_volume_get_sector_size(os_volume_t *volume, u32 *sector_size, u32 *error) {
    if (volume->ops->get_sector_size)
        return volume->ops->get_sector_size(volume, sector_size, error);
    *sector_size = OS_DEFAULT_SECTOR_SIZE;
    *error = 0;
    return true;
}

// Reads all of an aligned range, or up to the end.
static i64 _os_volume_read_aligned(os_volume_t *volume, u64 offset, char *bytes, u32 size) {
    u32 done = 0;
    while (done < size) {
        i64 taken = volume->ops->read(volume, offset + done, bytes + done, size - done);
        if (taken < 0)
            return -1;
        done += static_cast<u32>(taken);
        if (!taken || done % volume->alignment)
            break;
    }
    return done;
}

// Reads up to the next multiple of the alignment, by way of the bounce buffer.
static i64 _os_volume_read_bounced(os_volume_t *volume, u64 offset, char *bytes, u32 size) {
    auto skip = static_cast<u32>(offset % volume->alignment);
    i64 taken = _os_volume_read_aligned(volume, offset - skip, volume->bounce, volume->alignment);
    if (taken <= skip)
        return taken < 0 ? -1 : 0;
    u32 copied = static_cast<u32>(taken) - skip;
    if (copied > size)
        copied = size;
    std::memcpy(bytes, volume->bounce + skip, copied);
    return copied;
}

i64 os_volume_read(os_volume_t *volume, u64 offset, void *bytes, u32 size) {
    if (volume->is_size_known) {
        if (offset >= volume->size)
            return 0;
        if (size > volume->size - offset)
            size = static_cast<u32>(volume->size - offset);
    }
    auto *to = static_cast<char *>(bytes);
    u32 done = 0;
    while (done < size) {
        u64 at = offset + done;
        u32 rest = size - done;
        bool is_aligned = at % volume->alignment == 0 && rest >= volume->alignment;
        u32 whole = rest - rest % volume->alignment;
        u32 wanted = is_aligned ? whole : volume->alignment - static_cast<u32>(at % volume->alignment);
        if (wanted > rest)
            wanted = rest;
        i64 taken = is_aligned ? _os_volume_read_aligned(volume, at, to + done, wanted)
                               : _os_volume_read_bounced(volume, at, to + done, wanted);
        if (taken < 0)
            return -1;
        done += static_cast<u32>(taken);
        if (taken < wanted)
            break;
    }
    return done;
}

bool os_volume_get_ntfs_data(os_volume_t *volume, os_ntfs_volume_data_t *data, bool *supported) {
    *supported = volume->ops->get_ntfs_data != nullptr;
    return *supported && volume->ops->get_ntfs_data(volume, data, supported);
}

bool os_volume_get_ntfs_record(os_volume_t *volume, u64 index, u64 *reference, void *record, u32 size,
                               bool *supported) {
    *supported = volume->ops->get_ntfs_record != nullptr;
    return *supported && volume->ops->get_ntfs_record(volume, index, reference, record, size, supported);
}

} // namespace findwright
