#include "base/bz2.h"

#include "base/mem.h"
#include "base/utf8_format.h"
#include "support/memory_file.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace findwright {
namespace {

std::string log_text;

void log_to_text(const char *format, va_list args) {
    char line[1000];
    const std::string text(line, utf8_format(line, format, args));
    // The heap tells of every large block.
    if (text.find("): alloc ") == std::string::npos)
        log_text += text;
}

bz2_stream_t *open_read(bool plain) {
    return plain ? bz2_read_open_plain("a") : bz2_read_open("a");
}
bz2_stream_t *open_write(bool plain) {
    return plain ? bz2_write_open_plain("a") : bz2_write_open("a");
}

std::string read_string(bz2_stream_t *stream) {
    char *text = bz2_read_string(stream);
    std::string result = text;
    mem_free(text);
    return result;
}

// Bytes that compress to about half.
std::string noise(u32 seed, size_t size) {
    std::mt19937 random(seed);
    std::string bytes(size, 0);
    for (char &c : bytes)
        c = static_cast<char>(random() % 16);
    return bytes;
}

class bz2 : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        platform.log = log_to_text;
        log_text.clear();
    }
    void TearDown() override {
        EXPECT_EQ(mem_live_count(), live_count);
        EXPECT_EQ(memory_file.open_count, 0u);
    }
    bool plain() const { return GetParam(); }

    size_t live_count = mem_live_count();
    memory_file_scope_t scope;
};

INSTANTIATE_TEST_SUITE_P(mode, bz2, testing::Bool(),
                         [](const auto &mode) { return mode.param ? "plain" : "packed"; });

TEST_P(bz2, numbers_and_strings) {
    const std::string longest(300, 'x');
    bz2_stream_t *stream = open_write(plain());
    bz2_write_u8(stream, 0xFE);
    bz2_write_u32(stream, 0x12345678);
    bz2_write_u64(stream, 0x123456789ABCDEF0);
    for (u32 value : {0u, 254u, 255u, 256u, 0xFFFFFFFFu})
        bz2_write_vint(stream, value);
    for (const char *text : {"", "short", longest.c_str()})
        bz2_write_string(stream, text);
    bz2_write_string(stream, nullptr);
    EXPECT_TRUE(bz2_write_close(stream));
    if (plain()) {
        const std::string expected(
            "\xFE\x78\x56\x34\x12\xF0\xDE\xBC\x9A\x78\x56\x34\x12\x00\xFE\xFF\xFF\x00\x00\x00", 20);
        EXPECT_EQ(memory_file.bytes.substr(0, expected.size()), expected);
        EXPECT_EQ(memory_file.bytes.size(), 13 + (1 + 1 + 5 + 5 + 5) + (1 + 6 + 305) + 1u);
    }

    stream = open_read(plain());
    EXPECT_EQ(bz2_read_u8(stream), 0xFE);
    EXPECT_EQ(bz2_read_u32(stream), 0x12345678u);
    EXPECT_EQ(bz2_read_u64(stream), 0x123456789ABCDEF0u);
    for (u32 value : {0u, 254u, 255u, 256u, 0xFFFFFFFFu})
        EXPECT_EQ(bz2_read_vint(stream), value);
    for (const std::string &text : {std::string(), std::string("short"), longest, std::string()})
        EXPECT_EQ(read_string(stream), text);
    EXPECT_TRUE(bz2_read_close(stream));
    EXPECT_EQ(log_text, "");
}

TEST_P(bz2, random_pieces_over_the_buffer_borders) {
    // More than one compressed block, and more than one buffer on both sides of the library.
    const std::string content = noise(1, 1300000);
    std::mt19937 random(2);
    const auto next_piece = [&](size_t done) {
        const u32 sizes[] = {0, 1, 3, 100, BZ2_BUFFER_SIZE - 1, BZ2_BUFFER_SIZE, BZ2_BUFFER_SIZE + 1, 200000};
        return static_cast<u32>(std::min<size_t>(sizes[random() % std::size(sizes)], content.size() - done));
    };
    bz2_stream_t *stream = open_write(plain());
    for (size_t done = 0; done != content.size();) {
        const u32 size = next_piece(done);
        bz2_write(stream, content.data() + done, size);
        done += size;
    }
    ASSERT_TRUE(bz2_write_close(stream));

    for (u32 piece : {777u, BZ2_BUFFER_SIZE}) {
        memory_file.piece = piece;
        std::string back(content.size(), 0);
        stream = open_read(plain());
        for (size_t done = 0; done != content.size();) {
            const u32 size = next_piece(done);
            if (random() % 4 == 0) {
                bz2_skip(stream, size);
                std::memcpy(back.data() + done, content.data() + done, size);
            } else {
                bz2_read(stream, back.data() + done, size);
            }
            done += size;
        }
        EXPECT_TRUE(bz2_read_close(stream));
        EXPECT_TRUE(back == content);
    }
    EXPECT_EQ(log_text, "");
}

TEST_P(bz2, empty_stream) {
    EXPECT_TRUE(bz2_write_close(open_write(plain())));
    EXPECT_TRUE(bz2_read_close(open_read(plain())));
    bz2_stream_t *stream = open_read(plain());
    EXPECT_EQ(bz2_read_u8(stream), 0);
    EXPECT_FALSE(bz2_read_close(stream));
    EXPECT_EQ(log_text, plain() ? "ReadFile(): 112: Failed to read.\n"
                                : "BZ2_bzDecompress(): 4: Unexpected EOF in decompression stream.\n");
}

// Reads a stream of 4-byte numbers that count from 1. Returns how many came whole; all after them must be
// zero.
u32 read_counting(bool plain, u32 count, bool *closed_well) {
    bz2_stream_t *stream = open_read(plain);
    u32 good = 0;
    while (good < count && bz2_read_u32(stream) == good + 1)
        good++;
    for (u32 i = good; i < count; i++)
        EXPECT_EQ(bz2_read_u32(stream), 0u) << i;
    *closed_well = bz2_read_close(stream);
    return good;
}

std::string write_counting(bool plain, u32 count) {
    bz2_stream_t *stream = open_write(plain);
    for (u32 i = 1; i <= count; i++)
        bz2_write_u32(stream, i);
    EXPECT_TRUE(bz2_write_close(stream));
    return memory_file.bytes;
}

TEST_P(bz2, cut_anywhere) {
    const u32 count = 200;
    const std::string whole = write_counting(plain(), count);
    for (size_t size = 0; size <= whole.size(); size++) {
        memory_file.bytes = whole.substr(0, size);
        bool closed_well;
        const u32 good = read_counting(plain(), count, &closed_well);
        EXPECT_EQ(closed_well, size == whole.size()) << size;
        if (plain()) {
            EXPECT_EQ(good, size / 4);
        }
    }
}

TEST(bz2_packed, flipped_bits_never_change_data_unseen) {
    memory_file_scope_t scope;
    const u32 count = 200;
    const std::string whole = write_counting(false, count);
    for (size_t bit = 0; bit < whole.size() * 8; bit += 5) {
        memory_file.bytes = whole;
        memory_file.bytes[bit / 8] = static_cast<char>(memory_file.bytes[bit / 8] ^ 1 << bit % 8);
        bz2_stream_t *stream = bz2_read_open("a");
        bool same = true;
        for (u32 i = 1; i <= count; i++)
            same = bz2_read_u32(stream) == i && same;
        // Some bits matter to nobody, such as the block size and tables that are not used.
        EXPECT_TRUE(!bz2_read_close(stream) || same) << "bit " << bit;
    }
}

TEST(bz2_packed, damage_behind_what_is_read_does_no_harm) {
    memory_file_scope_t scope;
    const std::string content = noise(3, 2500000);
    bz2_stream_t *stream = bz2_write_open("a");
    bz2_write(stream, content.data(), static_cast<u32>(content.size()));
    ASSERT_TRUE(bz2_write_close(stream));
    memory_file.bytes[memory_file.bytes.size() - 1000] ^= 1;
    stream = bz2_read_open("a");
    std::string back(500000, 0);
    bz2_read(stream, back.data(), static_cast<u32>(back.size()));
    EXPECT_TRUE(content.starts_with(back));
    EXPECT_TRUE(bz2_read_close(stream));
}

TEST_P(bz2, string_that_is_longer_than_the_stream) {
    for (u32 length : {70000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        bz2_stream_t *stream = open_write(plain());
        bz2_write_vint(stream, length);
        bz2_write(stream, noise(4, 66000).data(), 66000);
        ASSERT_TRUE(bz2_write_close(stream));
        const size_t live_size = mem_live_size();
        stream = open_read(plain());
        EXPECT_EQ(read_string(stream), "");
        EXPECT_EQ(bz2_read_u32(stream), 0u);
        EXPECT_FALSE(bz2_read_close(stream));
        EXPECT_EQ(mem_live_size(), live_size);
    }
}

TEST_P(bz2, string_over_several_buffers) {
    const std::string text(3 * BZ2_BUFFER_SIZE + 17, 'y');
    bz2_stream_t *stream = open_write(plain());
    bz2_write_string(stream, text.c_str());
    bz2_write_u8(stream, 7);
    ASSERT_TRUE(bz2_write_close(stream));
    stream = open_read(plain());
    EXPECT_TRUE(read_string(stream) == text);
    EXPECT_EQ(bz2_read_u8(stream), 7);
    EXPECT_TRUE(bz2_read_close(stream));
}

TEST_P(bz2, forced_error) {
    write_counting(plain(), 10);
    bz2_stream_t *stream = open_read(plain());
    EXPECT_EQ(bz2_read_u32(stream), 1u);
    bz2_set_error(stream);
    EXPECT_EQ(bz2_read_u32(stream), 0u);
    bz2_skip(stream, 4);
    EXPECT_EQ(bz2_read_u64(stream), 0u);
    EXPECT_FALSE(bz2_read_close(stream));
}

TEST_P(bz2, full_disk) {
    const std::string content = noise(5, 2000000);
    bz2_stream_t *stream = open_write(plain());
    memory_file.max_size = 70000;
    for (size_t done = 0; done < content.size(); done += 1000)
        bz2_write(stream, content.data() + done, 1000);
    memory_file.max_size = ~size_t{0};
    bz2_write_u32(stream, 1);
    EXPECT_FALSE(bz2_write_close(stream));
    EXPECT_EQ(memory_file.bytes.size(), BZ2_BUFFER_SIZE);
    EXPECT_EQ(log_text, "os_write(): 112: Failed to write 65536 bytes\n");

    // A failure of the last write is one, too.
    stream = open_write(plain());
    bz2_write_u32(stream, 1);
    memory_file.max_size = 0;
    EXPECT_FALSE(bz2_write_close(stream));
}

TEST_P(bz2, no_file) {
    memory_file.exists = false;
    EXPECT_EQ(open_read(plain()), nullptr);
    EXPECT_EQ(open_write(plain()), nullptr);
}

} // namespace
} // namespace findwright
