// Any bytes as an NTFS volume: the pass over the whole table, and the search for single files.
#include "index/ntfs.h"
#include "os/os.h"

#include <cstdlib>

using namespace findwright;

struct seen_t {
    u64 calls;
    u64 sum;
    u64 frns[16];
    u64 limit;
};

static void _sink(void *user_data, const ntfs_record_t *record) {
    auto *seen = static_cast<seen_t *>(user_data);
    for (u32 i = 0; i < record->name_length * 2; i++) {
        seen->sum += record->name[i]; // every byte of the name must be there
    }
    seen->frns[seen->calls % 16] = record->frn;
    seen->calls++;
    // A name takes 92 bytes of a record at least, and no more is read than the volume has.
    if (record->name_length == 0 || record->name_length > 255 || seen->calls > seen->limit) {
        abort();
    }
}

static bool _progress(void *, u64 done, u64 total) {
    if (done > total) {
        abort();
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const bool ready = (os_init(), true);
    if (!ready) {
        return 0;
    }
    os_volume_t *volume = os_volume_open_memory(bytes, size);
    ntfs_info_t info;
    char reason[256];
    seen_t seen = {};
    seen.limit = size / 92;
    if (ntfs_get_info(volume, &info, reason)) {
        ntfs_read_volume(volume, &info, NTFS_MASK_ALL, &seen, _sink, _progress);
        for (u64 frn : seen.frns) {
            db_file_info_t fd;
            ntfs_get_fd(volume, frn, &fd);
        }
    } else if (reason[0] == 0) {
        abort();
    }
    os_volume_close(volume);
    return 0;
}
