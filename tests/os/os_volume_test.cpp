#include "os/os_volume_internal.h"
#include "os_test_support.h"

#include <algorithm>
#include <random>

using namespace findwright;

namespace {

std::string make_bytes(size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, 0);
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Reads every kind of range of a volume that must hold `bytes`: across its end, behind it, of no and of odd
// sizes.
void expect_holds(os_volume_t *volume, const std::string &bytes) {
    const u64 size = bytes.size();
    for (u64 offset : {u64(0), u64(1), u64(511), u64(512), u64(513), u64(4096), size / 2, size - 1, size,
                       size + 1, size + 100000, ~u64(0)}) {
        for (u32 wanted : {0u, 1u, 511u, 512u, 513u, 1024u, 5000u, 200000u}) {
            std::string buffer(wanted + 1, '#');
            u64 expected = offset >= size ? 0 : std::min<u64>(wanted, size - offset);
            ASSERT_EQ(os_volume_read(volume, offset, buffer.data(), wanted), static_cast<i64>(expected))
                << offset << " " << wanted;
            ASSERT_EQ(buffer.substr(0, expected), expected ? bytes.substr(offset, expected) : "")
                << offset << " " << wanted;
            ASSERT_EQ(buffer.back(), '#');
        }
    }
}

TEST(os_volume, memory) {
    std::string bytes = make_bytes(70001);
    os_volume_t *volume = os_volume_open_memory(bytes.data(), bytes.size());
    EXPECT_EQ(os_volume_get_size(volume), bytes.size());
    u32 sector_size, error;
    EXPECT_TRUE(os_volume_get_sector_size(volume, &sector_size, &error));
    EXPECT_EQ(sector_size, 512u);
    expect_holds(volume, bytes);
    bool supported = true;
    os_ntfs_volume_data_t data;
    EXPECT_FALSE(os_volume_get_ntfs_data(volume, &data, &supported));
    EXPECT_FALSE(supported);
    os_volume_close(volume);

    volume = os_volume_open_memory(bytes.data(), 0);
    char byte;
    EXPECT_EQ(os_volume_read(volume, 0, &byte, 1), 0);
    os_volume_close(volume);
}

TEST(os_volume, file) {
    temp_folder_t folder;
    std::string name = folder / "\xC3\xA9 image.raw";
    std::string bytes = make_bytes(300007);
    write_file(name, bytes);
    os_volume_t *volume = os_volume_open(name.c_str());
    ASSERT_TRUE(volume);
    EXPECT_EQ(os_volume_get_size(volume), bytes.size());
    u32 sector_size, error;
    EXPECT_TRUE(os_volume_get_sector_size(volume, &sector_size, &error));
    EXPECT_EQ(sector_size, 512u);
    expect_holds(volume, bytes);
    bool supported = true;
    u64 reference;
    char record[1024];
    EXPECT_FALSE(os_volume_get_ntfs_record(volume, 5, &reference, record, sizeof(record), &supported));
    EXPECT_FALSE(supported);
    os_volume_close(volume);

    EXPECT_EQ(os_volume_open((folder / "absent").c_str()), nullptr);
    EXPECT_TRUE(os_error_is_not_found(os_get_last_error()));
    EXPECT_EQ(os_volume_open(folder.name.c_str()), nullptr);
    EXPECT_NE(os_get_last_error(), 0u);
}

TEST(os_volume, parts_keep_their_parent) {
    std::string bytes = make_bytes(50000);
    struct {
        u64 offset, size, expected;
    } cases[] = {
        {0, 50000, 50000}, {1000, 30000, 30000},        {49990, 100, 10}, {50000, 1, 0},
        {60000, 1, 0},     {777, VALUE_UNKNOWN, 49223}, {0, 0, 0},        {~u64(0), ~u64(0), 0},
    };
    for (const auto &entry : cases) {
        os_volume_t *volume = os_volume_open_memory(bytes.data(), bytes.size());
        os_volume_t *part = os_volume_open_part(volume, entry.offset, entry.size);
        os_volume_close(volume);
        EXPECT_EQ(os_volume_get_size(part), entry.expected);
        os_volume_t *inner = os_volume_open_part(part, 3, 5000);
        if (entry.expected) {
            std::string own = bytes.substr(entry.offset, entry.expected);
            expect_holds(part, own);
            expect_holds(inner, own.substr(3, 5000));
        }
        os_volume_close(part);
        char byte;
        EXPECT_EQ(os_volume_read(inner, 0, &byte, 1), entry.expected > 3 ? 1 : 0);
        os_volume_close(inner);
    }
}

// A device that insists on whole sectors, hands out at most 3 of them at a time, and does not tell its size.
i64 picky_read(os_volume_t *volume, u64 offset, void *bytes, u32 size) {
    auto *content = reinterpret_cast<const std::string *>(volume->memory);
    EXPECT_EQ(offset % 512, 0u);
    EXPECT_EQ(size % 512, 0u);
    EXPECT_GT(size, 0u);
    if (offset >= content->size())
        return 0;
    u64 taken = std::min<u64>({size, 3 * 512, content->size() - offset});
    std::memcpy(bytes, content->data() + offset, taken);
    return static_cast<i64>(taken);
}

TEST(os_volume, sectors_are_aligned_inside) {
    const os_volume_ops_t ops = {picky_read, nullptr, nullptr, nullptr, nullptr};
    for (size_t size : {512 * 40, 512 * 40 + 100}) { // the second is an image that was cut off
        std::string bytes = make_bytes(size);
        for (bool is_size_known : {false, true}) {
            os_volume_t *volume = os_volume_new(&ops);
            os_volume_set_alignment(volume, 512);
            volume->memory = reinterpret_cast<const char *>(&bytes);
            volume->is_size_known = is_size_known;
            volume->size = is_size_known ? size : 0;
            expect_holds(volume, bytes);
            os_volume_t *part = os_volume_open_part(volume, 700, 9001);
            expect_holds(part, bytes.substr(700, 9001));
            os_volume_close(part);
            os_volume_close(volume);
        }
    }
}

i64 bad_sector_read(os_volume_t *, u64 offset, void *bytes, u32 size) {
    if (offset >= 2048)
        return -1;
    u32 taken = std::min<u32>(size, static_cast<u32>(2048 - offset));
    std::memset(bytes, 'g', taken);
    return taken;
}

TEST(os_volume, failure_is_no_end) {
    const os_volume_ops_t ops = {bad_sector_read, nullptr, nullptr, nullptr, nullptr};
    os_volume_t *volume = os_volume_new(&ops);
    os_volume_set_alignment(volume, 512);
    char bytes[8192];
    EXPECT_EQ(os_volume_read(volume, 0, bytes, 2048), 2048);
    EXPECT_EQ(os_volume_read(volume, 0, bytes, 2049), -1);
    EXPECT_EQ(os_volume_read(volume, 100, bytes, 4096), -1);
    EXPECT_EQ(os_volume_read(volume, 2048, bytes, 512), -1);
    os_volume_close(volume);
}

} // namespace
