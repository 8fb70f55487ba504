// Any bytes as a disk: its partition table.
#include "index/ntfs_partition.h"

#include <cstdlib>
#include <cstring>

using namespace findwright;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    os_volume_t *disk = os_volume_open_memory(bytes, size);
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    char reason[256];
    const u32 count = ntfs_find_partitions(disk, partitions, reason);
    if (count > NTFS_PARTITION_MAX || (count == 0) != (reason[0] != 0)) {
        abort();
    }
    for (u32 i = 0; i < count; i++) {
        if (partitions[i].size > size || partitions[i].offset > size - partitions[i].size ||
            memcmp(bytes + partitions[i].offset + 3, "NTFS    ", 8) != 0) {
            abort();
        }
    }
    os_volume_close(disk);
    return 0;
}
