// The volumes of tests/data, made by the system's own tools and written by its own driver (with
// tools/make_ntfs_fixture.sh), against what the mounted volume showed.
#include "support/ntfs_listing.h"

#include <bzlib.h>

namespace findwright {
namespace {

std::vector<char> read_file(const std::string &name) {
    std::vector<char> bytes;
    FILE *file = fopen((std::string(FINDWRIGHT_TEST_DATA "/") + name).c_str(), "rb");
    EXPECT_NE(file, nullptr) << name;
    char piece[65536];
    for (size_t count; file && (count = fread(piece, 1, sizeof(piece), file)) != 0;) {
        bytes.insert(bytes.end(), piece, piece + count);
    }
    if (file) {
        fclose(file);
    }
    return bytes;
}

ntfs_build_bytes_t unpack(const std::string &name) {
    std::vector<char> packed = read_file(name);
    ntfs_build_bytes_t image(32 << 20);
    unsigned size = static_cast<unsigned>(image.size());
    EXPECT_EQ(BZ2_bzBuffToBuffDecompress(reinterpret_cast<char *>(image.data()), &size, packed.data(),
                                         static_cast<unsigned>(packed.size()), 0, 0),
              BZ_OK);
    image.resize(size);
    return image;
}

class NtfsSample : public testing::TestWithParam<const char *> {};

TEST_P(NtfsSample, IsReadAsTheSystemShowsIt) {
    const std::string name = GetParam();
    const ntfs_build_bytes_t image = unpack(name + ".ntfs.bz2");
    const std::vector<char> listing = read_file(name + ".txt");
    const ntfs_items_t read = ntfs_read_items(image);
    EXPECT_EQ(ntfs_listing(read), std::string(listing.begin(), listing.end()));
}

TEST_P(NtfsSample, GivesTheSameDataForOneFile) {
    const ntfs_build_bytes_t image = unpack(std::string(GetParam()) + ".ntfs.bz2");
    const ntfs_items_t read = ntfs_read_items(image);
    os_volume_t *volume = os_volume_open_memory(image.data(), image.size());
    for (const auto &[path, item] : ntfs_paths(read)) {
        SCOPED_TRACE(path);
        db_file_info_t fd;
        ntfs_get_fd(volume, item.frn, &fd);
        EXPECT_EQ(fd.size, item.attributes & 0x10 ? VALUE_UNKNOWN : item.size);
        EXPECT_EQ(fd.date_modified, item.date_modified);
        EXPECT_EQ(fd.date_created, item.date_created);
        EXPECT_EQ(fd.date_accessed, item.date_accessed);
        EXPECT_EQ(fd.attributes, item.attributes);
    }
    os_volume_close(volume);
}

INSTANTIATE_TEST_SUITE_P(All, NtfsSample, testing::Values("sample", "sample_4k"),
                         [](const auto &sample) { return std::string(sample.param); });

} // namespace
} // namespace findwright
