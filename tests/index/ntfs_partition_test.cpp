// Partition tables, sound and damaged.
#include "index/ntfs_partition.h"

#include "support/ntfs_items.h"

namespace findwright {
namespace {

using offsets_t = std::vector<u64>;

struct disk_t {
    ntfs_build_bytes_t bytes;
    u32 sector_size;
};

disk_t make_disk(u64 sectors, u32 sector_size = 512) {
    return {ntfs_build_bytes_t(sectors * sector_size), sector_size};
}

void put_volume(disk_t *disk, u64 sector, const char *signature = "NTFS    ") {
    memcpy(disk->bytes.data() + sector * disk->sector_size + 3, signature, 8);
}

// An entry of the MBR, or of the sector in front of a logical partition.
void put_mbr(disk_t *disk, u64 sector, u32 entry, u8 type, u32 start, u32 sectors) {
    const u64 table = sector * disk->sector_size;
    ntfs_build_put(&disk->bytes, table + 446 + entry * 16 + 4, type, 1);
    ntfs_build_put(&disk->bytes, table + 446 + entry * 16 + 8, start, 4);
    ntfs_build_put(&disk->bytes, table + 446 + entry * 16 + 12, sectors, 4);
    ntfs_build_put(&disk->bytes, table + 510, 0xAA55, 2);
}

void put_gpt_header(disk_t *disk, u64 sector, u64 table_sector, u32 entries = 128, u32 entry_size = 128,
                    u32 header_size = 92) {
    const u64 header = sector * disk->sector_size;
    put_mbr(disk, 0, 0, 0xEE, 1, 0xFFFFFFFF);
    memcpy(disk->bytes.data() + header, "EFI PART", 8);
    ntfs_build_put(&disk->bytes, header + 12, header_size, 4);
    ntfs_build_put(&disk->bytes, header + 72, table_sector, 8);
    ntfs_build_put(&disk->bytes, header + 80, entries, 4);
    ntfs_build_put(&disk->bytes, header + 84, entry_size, 4);
}

void put_gpt_entry(disk_t *disk, u64 table_sector, u32 entry, u64 first, u64 last, u32 entry_size = 128) {
    const u64 place = table_sector * disk->sector_size + entry * entry_size;
    ntfs_build_put(&disk->bytes, place, 0xEBD0A0A2, 4);
    ntfs_build_put(&disk->bytes, place + 32, first, 8);
    ntfs_build_put(&disk->bytes, place + 40, last, 8);
}

std::vector<ntfs_partition_t> find(const disk_t &disk, std::string *reason = nullptr) {
    os_volume_t *volume = os_volume_open_memory(disk.bytes.data(), disk.bytes.size());
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    char text[256];
    const u32 count = ntfs_find_partitions(volume, partitions, text);
    os_volume_close(volume);
    if (reason) {
        *reason = text;
    }
    for (u32 i = 0; i < count; i++) {
        EXPECT_LE(partitions[i].offset + partitions[i].size, disk.bytes.size());
        EXPECT_EQ(memcmp(disk.bytes.data() + partitions[i].offset + 3, "NTFS    ", 8), 0);
    }
    return {partitions, partitions + count};
}

offsets_t offsets(const disk_t &disk) {
    offsets_t result;
    for (const ntfs_partition_t &partition : find(disk)) {
        result.push_back(partition.offset / disk.sector_size);
    }
    return result;
}

TEST(NtfsPartition, AVolumeIsAllOfItself) {
    ntfs_builder_t builder;
    ntfs_build_root(&builder);
    const disk_t disk = {ntfs_build_image(&builder), 512};
    const std::vector<ntfs_partition_t> found = find(disk);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].offset, 0u);
    EXPECT_EQ(found[0].size, disk.bytes.size());
}

TEST(NtfsPartition, FindsThoseOfAnMbr) {
    for (u32 sector_size : {512u, 4096u}) {
        disk_t disk = make_disk(1000, sector_size);
        put_mbr(&disk, 0, 0, 0x07, 100, 50);
        put_mbr(&disk, 0, 1, 0x07, 200, 50); // exFAT has the same type
        put_mbr(&disk, 0, 2, 0x27, 300, 50); // a hidden one
        put_mbr(&disk, 0, 3, 0x07, 900, 5000);
        put_volume(&disk, 100);
        put_volume(&disk, 200, "EXFAT   ");
        put_volume(&disk, 300);
        put_volume(&disk, 900);
        EXPECT_EQ(offsets(disk), (offsets_t{100, 300, 900}));
        const std::vector<ntfs_partition_t> found = find(disk);
        EXPECT_EQ(found[0].size, 50u * sector_size);
        EXPECT_EQ(found[2].size, 100u * sector_size); // cut to the disk
    }
}

// Sectors 100 and on are the extended partition: at 100 the logical one at 101, at 300 that at 310, and so
// on.
disk_t extended_disk() {
    disk_t disk = make_disk(1000);
    put_mbr(&disk, 0, 0, 0x83, 10, 20);
    put_mbr(&disk, 0, 1, 0x0F, 100, 800);
    put_mbr(&disk, 100, 0, 0x07, 1, 50);
    put_mbr(&disk, 100, 1, 0x05, 200, 200);
    put_mbr(&disk, 300, 0, 0x07, 10, 50);
    put_mbr(&disk, 300, 1, 0x05, 100, 200);
    put_mbr(&disk, 200, 0, 0x07, 5, 20);
    for (u64 sector : {101, 310, 205}) {
        put_volume(&disk, sector);
    }
    return disk;
}

TEST(NtfsPartition, FollowsLogicalPartitions) {
    disk_t disk = extended_disk();
    EXPECT_EQ(offsets(disk), (offsets_t{101, 310, 205}));
    // A chain that leads back, one to itself, one out of the disk, one to no table.
    put_mbr(&disk, 200, 1, 0x05, 0, 10);
    EXPECT_EQ(offsets(disk), (offsets_t{101, 310, 205}));
    put_mbr(&disk, 200, 1, 0x05, 100, 10);
    EXPECT_EQ(offsets(disk), (offsets_t{101, 310, 205}));
    put_mbr(&disk, 100, 1, 0x05, 0xFFFFFFFF, 10);
    EXPECT_EQ(offsets(disk), offsets_t{101});
    put_mbr(&disk, 100, 1, 0x05, 500, 10);
    EXPECT_EQ(offsets(disk), offsets_t{101});
}

TEST(NtfsPartition, AChainOfLogicalPartitionsHasAnEnd) {
    disk_t disk = make_disk(2000);
    put_mbr(&disk, 0, 0, 0x05, 100, 1000);
    for (u32 i = 0; i < 600; i++) {
        put_mbr(&disk, 100 + i * 2, 0, 0x07, 1, 1);
        put_mbr(&disk, 100 + i * 2, 1, 0x05, i * 2 + 2, 1);
        put_volume(&disk, 101 + i * 2);
    }
    EXPECT_EQ(find(disk).size(), NTFS_PARTITION_MAX);
}

TEST(NtfsPartition, FindsThoseOfAGpt) {
    for (u32 sector_size : {512u, 4096u}) {
        for (u32 entry_size : {128u, 256u}) {
            disk_t disk = make_disk(1000, sector_size);
            put_gpt_header(&disk, 1, 2, 128, entry_size);
            put_gpt_entry(&disk, 2, 0, 100, 149, entry_size);
            put_gpt_entry(&disk, 2, 1, 200, 249, entry_size);
            put_gpt_entry(&disk, 2, 3, 900, 5000, entry_size); // behind the end
            put_gpt_entry(&disk, 2, 5, 400, 399, entry_size);  // ends before it begins
            put_gpt_entry(&disk, 2, 7, 1ull << 62, ~0ull, entry_size);
            put_volume(&disk, 100);
            put_volume(&disk, 200, "-FVE-FS-");
            put_volume(&disk, 400);
            put_volume(&disk, 900);
            EXPECT_EQ(offsets(disk), (offsets_t{100, 900})) << sector_size << " " << entry_size;
            EXPECT_EQ(find(disk)[0].size, 50u * sector_size);
        }
    }
}

TEST(NtfsPartition, ADamagedGptHeaderIsReplacedByTheSecondOne) {
    for (u32 sector_size : {512u, 4096u}) {
        disk_t disk = make_disk(1000, sector_size);
        put_gpt_header(&disk, 999, 900);
        put_gpt_entry(&disk, 900, 0, 100, 149);
        put_volume(&disk, 100);
        EXPECT_EQ(offsets(disk), offsets_t{100});
        struct {
            u32 entries, entry_size, header_size;
        } const DAMAGES[] = {{128, 64, 92},         {128, 127, 92}, {128, 130, 92},   {128, 1 << 20, 92},
                             {0xFFFFFFFF, 128, 92}, {128, 128, 91}, {128, 128, 5000}, {128, 0, 92}};
        for (const auto &damage : DAMAGES) {
            put_gpt_header(&disk, 1, 2, damage.entries, damage.entry_size, damage.header_size);
            EXPECT_EQ(offsets(disk), offsets_t{100});
        }
        // A table that is not there; the protective entry in front must not be taken for a partition either.
        put_gpt_header(&disk, 1, 1ull << 60);
        EXPECT_EQ(offsets(disk), offsets_t{});
    }
}

TEST(NtfsPartition, TellsWhatWasFoundInstead) {
    disk_t noise = make_disk(10);
    disk_t empty_table = make_disk(10);
    ntfs_build_put(&empty_table.bytes, 510, 0xAA55, 2);
    disk_t fat = make_disk(10);
    memcpy(fat.bytes.data() + 0x36, "FAT16   ", 8);
    ntfs_build_put(&fat.bytes, 510, 0xAA55, 2);
    disk_t linux_disk = make_disk(100);
    put_mbr(&linux_disk, 0, 0, 0x83, 10, 20);
    disk_t encrypted = linux_disk;
    put_volume(&encrypted, 10, "-FVE-FS-");
    const struct {
        disk_t disk;
        const char *reason;
    } CASES[] = {
        {make_disk(0), "it is empty"},
        {{ntfs_build_bytes_t(511), 512}, "it is too short to be a volume"},
        {noise, "it has no NTFS boot sector and no partition table"},
        {empty_table, "it has no NTFS boot sector, and its partition table is empty"},
        {fat, "it is a FAT volume, not an NTFS volume"},
        {linux_disk, "it has a partition table, but none of its partitions is an NTFS volume"},
        {encrypted, "it has a partition table, but no NTFS volume in it: one partition is a volume encrypted "
                    "with BitLocker"},
    };
    for (const auto &test : CASES) {
        std::string reason;
        EXPECT_EQ(find(test.disk, &reason).size(), 0u);
        EXPECT_EQ(reason, test.reason);
    }
    ntfs_scripted_t script;
    script.image.resize(4096);
    script.fail_from = 0;
    os_volume_t *volume = ntfs_open_scripted(&script);
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    char reason[256];
    EXPECT_EQ(ntfs_find_partitions(volume, partitions, reason), 0u);
    EXPECT_EQ(std::string(reason).substr(0, 24), "it cannot be read (error");
    EXPECT_EQ(ntfs_find_partitions(volume, partitions, nullptr), 0u);
    os_volume_close(volume);
}

// A volume inside a disk reads like one by itself.
TEST(NtfsPartition, ReadsAVolumeInsideADisk) {
    ntfs_builder_t builder;
    ntfs_build_file(&builder, 24, NTFS_FRN_ROOT, u"inside", 5);
    const ntfs_build_bytes_t image = ntfs_build_image(&builder);
    disk_t disk = make_disk(128 + image.size() / 512 + 50);
    put_mbr(&disk, 0, 0, 0x07, 128, static_cast<u32>(image.size() / 512));
    memcpy(disk.bytes.data() + 128 * 512, image.data(), image.size());
    const std::vector<ntfs_partition_t> found = find(disk);
    ASSERT_EQ(found.size(), 1u);
    os_volume_t *whole = os_volume_open_memory(disk.bytes.data(), disk.bytes.size());
    os_volume_t *volume = os_volume_open_part(whole, found[0].offset, found[0].size);
    EXPECT_EQ(ntfs_read_items(volume).names(), std::vector<std::u16string>{u"inside"});
    os_volume_close(volume);
    os_volume_close(whole);
}

} // namespace
} // namespace findwright
