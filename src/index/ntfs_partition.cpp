// MBR and GPT partition tables. A partition counts as NTFS by the boot signature at its start; the type that
// the table gives it only tells what is no partition at all.
#include "index/ntfs_partition.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "index/ntfs_internal.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 FIRST_SECTOR_SIZE = 512;
static constexpr u32 SECTOR_SIZES[] = {512, 4096};

// MBR, and the same in front of each logical partition.
static constexpr u32 MBR_TABLE = 446;
static constexpr u32 MBR_ENTRIES = 4;
static constexpr u32 MBR_ENTRY_SIZE = 16;
static constexpr u32 MBR_ENTRY_TYPE = 4;
static constexpr u32 MBR_ENTRY_START = 8;
static constexpr u32 MBR_ENTRY_SECTORS = 12;
static constexpr u32 MBR_SIGNATURE_OFFSET = 510;
static constexpr u16 MBR_SIGNATURE = 0xAA55;

static constexpr u8 MBR_TYPE_NONE = 0;

// GPT header, in sector 1 and again in the last one.
static constexpr char GPT_SIGNATURE[] = "EFI PART";
static constexpr u32 GPT_SIGNATURE_SIZE = 8;
static constexpr u32 GPT_HEADER_SIZE = 12;
static constexpr u32 GPT_HEADER_SIZE_MIN = 92;
static constexpr u32 GPT_TABLE = 72;
static constexpr u32 GPT_ENTRY_COUNT = 80;
static constexpr u32 GPT_ENTRY_SIZE = 84;
static constexpr u32 GPT_ENTRY_SIZE_MIN = 128;
static constexpr u32 GPT_ENTRY_SIZE_MAX = 4096;
static constexpr u32 GPT_ENTRY_COUNT_MAX = 4096; // far above the 128 of every disk that was seen
static constexpr u32 GPT_ENTRY_TYPE_SIZE = 16;
static constexpr u32 GPT_ENTRY_FIRST = 32;
static constexpr u32 GPT_ENTRY_LAST = 40;

struct ntfs_scan_t {
    os_volume_t *disk;
    u64 disk_size; // 0: not known
    u32 sector_size;
    ntfs_partition_t *partitions;
    u32 count;
    u32 seen;            // partitions of any kind
    const char *foreign; // what the last one of another known kind is
};

static bool _ntfs_read(const ntfs_scan_t *scan, u64 offset, u8 *bytes, u32 size) {
    return os_volume_read(scan->disk, offset, bytes, size) == size;
}

static bool _ntfs_is_boot_sector(const u8 *sector) {
    return memcmp(sector + NTFS_BOOT_SIGNATURE_OFFSET, NTFS_BOOT_SIGNATURE, NTFS_BOOT_SIGNATURE_SIZE) == 0;
}

// Takes a partition of the table, cut to the disk, if an NTFS volume begins there.
static void _ntfs_offer(ntfs_scan_t *scan, u64 first_sector, u64 sectors) {
    const u64 offset = ntfs_multiply(first_sector, scan->sector_size);
    u64 size = ntfs_multiply(sectors, scan->sector_size);
    u8 boot[FIRST_SECTOR_SIZE] = {};
    if (size == 0 || first_sector == 0) {
        return;
    }
    scan->seen++;
    if (!_ntfs_read(scan, offset, boot, FIRST_SECTOR_SIZE)) {
        return;
    }
    if (!_ntfs_is_boot_sector(boot)) {
        const char *foreign = ntfs_foreign_file_system(boot, FIRST_SECTOR_SIZE);
        scan->foreign = foreign ? foreign : scan->foreign;
        return;
    }
    for (u32 i = 0; i < scan->count; i++) {
        if (scan->partitions[i].offset == offset) {
            return;
        }
    }
    if (scan->disk_size) {
        size = std::min(size, scan->disk_size - std::min(offset, scan->disk_size));
    }
    if (scan->count < NTFS_PARTITION_MAX) {
        scan->partitions[scan->count++] = {offset, size};
    }
}

// --- MBR ---------------------------------------------------------------------------------------------------

struct mbr_entry_t {
    u8 type;
    u32 start;
    u32 sectors;
};

static mbr_entry_t _ntfs_mbr_entry(const u8 *sector, u32 i) {
    const u8 *entry = sector + MBR_TABLE + i * MBR_ENTRY_SIZE;
    return {entry[MBR_ENTRY_TYPE], ntfs_u32(entry + MBR_ENTRY_START), ntfs_u32(entry + MBR_ENTRY_SECTORS)};
}

static bool _ntfs_mbr_is_extended(u8 type) {
    return type == 0x05 || type == 0x0F || type == 0x85;
}

// Follows the chain of logical partitions. Each link is gone to once, so a chain that bites its tail ends.
static void _ntfs_scan_extended(ntfs_scan_t *scan, u64 extended_start) {
    u64 visited[NTFS_PARTITION_MAX];
    u64 link = extended_start;
    for (u32 links = 0; links < NTFS_PARTITION_MAX; links++) {
        u8 sector[FIRST_SECTOR_SIZE] = {};
        if (std::find(visited, visited + links, link) != visited + links) {
            return;
        }
        visited[links] = link;
        if (!_ntfs_read(scan, ntfs_multiply(link, scan->sector_size), sector, FIRST_SECTOR_SIZE) ||
            ntfs_u16(sector + MBR_SIGNATURE_OFFSET) != MBR_SIGNATURE) {
            return;
        }
        bool goes_on = false;
        u64 next = 0;
        for (u32 i = 0; i < MBR_ENTRIES; i++) {
            const mbr_entry_t entry = _ntfs_mbr_entry(sector, i);
            if (_ntfs_mbr_is_extended(entry.type)) {
                next = goes_on ? next : extended_start + entry.start;
                goes_on = true;
            } else if (entry.type != MBR_TYPE_NONE) {
                _ntfs_offer(scan, link + entry.start, entry.sectors);
            }
        }
        if (!goes_on) {
            return;
        }
        link = next;
    }
}

static void _ntfs_scan_mbr(ntfs_scan_t *scan, const u8 *sector) {
    for (u32 i = 0; i < MBR_ENTRIES; i++) {
        const mbr_entry_t entry = _ntfs_mbr_entry(sector, i);
        if (_ntfs_mbr_is_extended(entry.type)) {
            _ntfs_scan_extended(scan, entry.start);
        } else if (entry.type != MBR_TYPE_NONE) {
            _ntfs_offer(scan, entry.start, entry.sectors);
        }
    }
}

// --- GPT ---------------------------------------------------------------------------------------------------

// Reads the table that the header in that sector tells of. False when there is no usable header.
static bool _ntfs_scan_gpt(ntfs_scan_t *scan, u64 header_sector) {
    u8 header[FIRST_SECTOR_SIZE] = {};
    if (!_ntfs_read(scan, ntfs_multiply(header_sector, scan->sector_size), header, FIRST_SECTOR_SIZE) ||
        memcmp(header, GPT_SIGNATURE, GPT_SIGNATURE_SIZE) != 0) {
        return false;
    }
    const u32 header_size = ntfs_u32(header + GPT_HEADER_SIZE);
    const u32 entry_size = ntfs_u32(header + GPT_ENTRY_SIZE);
    const u32 entries = ntfs_u32(header + GPT_ENTRY_COUNT);
    if (header_size < GPT_HEADER_SIZE_MIN || header_size > scan->sector_size ||
        entry_size < GPT_ENTRY_SIZE_MIN || entry_size > GPT_ENTRY_SIZE_MAX || entry_size % 8 != 0 ||
        entries > GPT_ENTRY_COUNT_MAX) {
        return false;
    }
    static constexpr u8 UNUSED[GPT_ENTRY_TYPE_SIZE] = {};
    u64 offset = ntfs_multiply(ntfs_u64(header + GPT_TABLE), scan->sector_size);
    for (u32 i = 0; i < entries; i++, offset += entry_size) {
        u8 entry[GPT_ENTRY_SIZE_MIN] = {};
        if (!_ntfs_read(scan, offset, entry, GPT_ENTRY_SIZE_MIN)) {
            break;
        }
        const u64 first = ntfs_u64(entry + GPT_ENTRY_FIRST);
        const u64 last = ntfs_u64(entry + GPT_ENTRY_LAST);
        if (memcmp(entry, UNUSED, GPT_ENTRY_TYPE_SIZE) != 0 && first <= last) {
            _ntfs_offer(scan, first, last - first + 1);
        }
    }
    return true;
}

// --- The disk ----------------------------------------------------------------------------------------------

static void _ntfs_scan_disk(ntfs_scan_t *scan, const u8 *first_sector, u32 sector_size) {
    scan->sector_size = sector_size;
    const u64 sectors = scan->disk_size / sector_size;
    // The second header serves when the first one is damaged.
    if (!_ntfs_scan_gpt(scan, 1) && sectors > 2) {
        _ntfs_scan_gpt(scan, sectors - 1);
    }
    if (!scan->count && ntfs_u16(first_sector + MBR_SIGNATURE_OFFSET) == MBR_SIGNATURE) {
        _ntfs_scan_mbr(scan, first_sector);
    }
}

static void _ntfs_explain(const ntfs_scan_t *scan, const u8 *first_sector, char *reason) {
    const bool has_table = ntfs_u16(first_sector + MBR_SIGNATURE_OFFSET) == MBR_SIGNATURE;
    const char *foreign = ntfs_foreign_file_system(first_sector, FIRST_SECTOR_SIZE);
    if (foreign) {
        ntfs_reason(reason, "it is %s, not an NTFS volume", foreign);
    } else if (scan->foreign) {
        ntfs_reason(reason, "it has a partition table, but no NTFS volume in it: one partition is %s",
                    scan->foreign);
    } else if (scan->seen) {
        ntfs_reason(reason, "it has a partition table, but none of its partitions is an NTFS volume");
    } else if (has_table) {
        ntfs_reason(reason, "it has no NTFS boot sector, and its partition table is empty");
    } else {
        ntfs_reason(reason, "it has no NTFS boot sector and no partition table");
    }
}

u32 ntfs_find_partitions(os_volume_t *disk, ntfs_partition_t *partitions, char *reason) {
    u8 sector[FIRST_SECTOR_SIZE] = {};
    ntfs_reason(reason, "%s", "");
    const i64 bytes_read = os_volume_read(disk, 0, sector, FIRST_SECTOR_SIZE);
    if (bytes_read < 0) {
        ntfs_reason(reason, "it cannot be read (error %u)", os_get_last_error());
        return 0;
    }
    if (bytes_read < static_cast<i64>(FIRST_SECTOR_SIZE)) {
        ntfs_reason(reason, "%s", bytes_read == 0 ? "it is empty" : "it is too short to be a volume");
        return 0;
    }
    if (_ntfs_is_boot_sector(sector)) {
        partitions[0] = {0, os_volume_get_size(disk)};
        return 1;
    }
    ntfs_scan_t scan = {};
    scan.disk = disk;
    scan.disk_size = os_volume_get_size(disk);
    scan.partitions = partitions;
    for (u32 sector_size : SECTOR_SIZES) {
        _ntfs_scan_disk(&scan, sector, sector_size);
        if (scan.count) {
            return scan.count;
        }
    }
    _ntfs_explain(&scan, sector, reason);
    return 0;
}

// --- By name -----------------------------------------------------------------------------------------------

// The number behind the last `#`, which is cut off; 1 without one.
static u32 _ntfs_cut_partition_number(utf8_buf_t *name) {
    const char *mark = std::strrchr(name->data, '#');
    if (!mark || !mark[1] || os_file_exists(name->data))
        return 1;
    u32 number = 0;
    for (const char *p = mark + 1; *p; p++) {
        if (!utf8_is_digit(*p) || number > NTFS_PARTITION_MAX)
            return 1;
        number = number * 10 + static_cast<u32>(*p - '0');
    }
    utf8_buf_set_length(name, static_cast<u32>(mark - name->data));
    return number;
}

static os_volume_t *_ntfs_open_partition(os_volume_t *disk, u32 number, char *reason) {
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    u32 count = ntfs_find_partitions(disk, partitions, reason);
    if (count == 0)
        return nullptr;
    if (number == 0 || number > count) {
        ntfs_reason(reason, "it has %u NTFS volumes, and none with the number %u", count, number);
        return nullptr;
    }
    return os_volume_open_part(disk, partitions[number - 1].offset, partitions[number - 1].size);
}

os_volume_t *ntfs_open_volume(const char *name, char *reason) {
    utf8_buf_t file;
    utf8_buf_init(&file);
    utf8_buf_copy_string(&file, name);
    u32 number = _ntfs_cut_partition_number(&file);
    os_volume_t *disk = os_folder_exists(file.data) ? nullptr : os_volume_open(file.data);
    os_volume_t *volume = nullptr;
    if (disk) {
        volume = _ntfs_open_partition(disk, number, reason);
        os_volume_close(disk);
    } else if (os_folder_exists(file.data)) {
        ntfs_reason(reason, "it is a folder, not a volume or an image");
    } else {
        char text[NTFS_REASON_SIZE / 2];
        os_error_text(os_get_last_error(), text, sizeof text);
        ntfs_reason(reason, "%s", text);
    }
    utf8_buf_kill(&file);
    return volume;
}

} // namespace findwright
