// Disks that Windows itself formatted, where they lie beside the checkout: skipped where they do not.
#include "index/ntfs_partition.h"
#include "support/ntfs_listing.h"

#include <cstdlib>

namespace findwright {
namespace {

struct real_disk_t {
    const char *name;
    std::vector<const char *> lines; // or how they begin
};

void PrintTo(const real_disk_t &disk, std::ostream *out) {
    *out << disk.name;
}

const real_disk_t DISKS[] = {
    {"windows10-small.raw.gz",
     {"System Volume Information\td\t0\t132317650969845070\t132317650969845070\t132317650969845070\t16\n",
      "System Volume "
      "Information/WPSettings.dat\tf\t12\t132317650969845070\t132317650969845070\t132317650970445065\t20\n",
      "test\td\t0\t132317651275782615\t132317651060804110\t132317651470318844\t10\n",
      "test/test.txt\tf\t14\t130910276392229335\t130910276392229335\t130910276392229335\t20\n"}},
    {"windows10-patterned.raw.gz",
     {"$RECYCLE.BIN\td\t", "$RECYCLE.BIN/S-1-5-21-2341207468-2645333676-3461800803-1001\td\t",
      "$RECYCLE.BIN/S-1-5-21-2341207468-2645333676-3461800803-1001/desktop.ini\tf\t129\t131960809736557493\t",
      "1.txt\tf\t4\t131960809780151513\t", "2.txt\tf\t1140\t131960809921402948\t",
      "System Volume Information\td\t", "System Volume Information/IndexerVolumeGuid\tf\t76\t",
      "System Volume Information/WPSettings.dat\tf\t12\t", "os_version.txt\tf\t44\t131960810354841863\t"}},
};

class NtfsReal : public testing::TestWithParam<real_disk_t> {};

TEST_P(NtfsReal, IsReadAsWindowsWroteIt) {
    const std::string packed = std::string(FINDWRIGHT_TEST_DATA "/../../../shared/data/") + GetParam().name;
    if (FILE *file = fopen(packed.c_str(), "rb")) {
        fclose(file);
    } else {
        GTEST_SKIP() << GetParam().name << " is not there";
    }
    const std::string unpacked = testing::TempDir() + "findwright_real.raw";
    const std::string command =
        "gzip -dc '" + packed + "' | dd of='" + unpacked + "' bs=1M iflag=fullblock conv=sparse 2>/dev/null";
    ASSERT_EQ(system(command.c_str()), 0);
    os_volume_t *disk = os_volume_open(unpacked.c_str());
    remove(unpacked.c_str());
    ASSERT_NE(disk, nullptr);
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    char reason[256];
    ASSERT_EQ(ntfs_find_partitions(disk, partitions, reason), 1u) << reason;
    EXPECT_EQ(partitions[0].offset, 128u * 512);
    os_volume_t *volume = os_volume_open_part(disk, partitions[0].offset, partitions[0].size);
    const std::map<std::string, ntfs_item_t> paths = ntfs_paths(ntfs_read_items(volume));
    ASSERT_EQ(paths.size(), GetParam().lines.size());
    size_t i = 0;
    for (const auto &[path, item] : paths) {
        const std::string expected = GetParam().lines[i++];
        EXPECT_EQ(ntfs_listing_line(path, item).substr(0, expected.size()), expected);
    }
    os_volume_close(volume);
    os_volume_close(disk);
}

INSTANTIATE_TEST_SUITE_P(All, NtfsReal, testing::ValuesIn(DISKS));

} // namespace
} // namespace findwright
