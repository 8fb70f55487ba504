// The names of an instance's files, and the block of a hand-over.
#include "app/instance.h"

#include "app/config.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace findwright {
namespace {

using namespace std::string_literals;

TEST(Instance, NamesAreThoseOfItsOtherFiles) {
    utf8_buf_t name;
    utf8_buf_t other;
    utf8_buf_init(&name);
    utf8_buf_init(&other);
    config_init(96);
    for (const char *instance : {"", "1.5a", "a/b\\..:*?|\"<>", "\x01\x1F \x7F\xC3\xA4\xFF", "%", "../.."}) {
        instance_get_filename(&name, instance, "lock");
        config_set_place(instance, nullptr);
        ASSERT_TRUE(config_get_data_filename(CONFIG_FOLDER_LOCAL_DATA, "findwright", "lock", &other));
        const std::string path = other.data;
        EXPECT_EQ(path.substr(path.rfind('\\') + 1), name.data);
    }
    EXPECT_STREQ(name.data, "findwright-..%2f...lock");
    instance_get_filename(&name, nullptr, "socket");
    EXPECT_STREQ(name.data, "findwright.socket");
    config_kill();
    utf8_buf_kill(&name);
    utf8_buf_kill(&other);
}

TEST(Instance, BlockIsLittleEndianAndLimited) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    const instance_block_t block = {0xF1020304, "-s \xC3\xA4", "\\x"};
    ASSERT_TRUE(instance_build_block(&out, &block));
    const std::string bytes(out.data, static_cast<size_t>(out.length));
    EXPECT_EQ(bytes, "\x0D\0\0\0\x04\x03\x02\xF1-s \xC3\xA4\0\\x\0"s);

    const std::string text(INSTANCE_BLOCK_MAX - INSTANCE_BLOCK_MIN, 'x');
    const instance_block_t largest = {0, text.c_str(), ""};
    EXPECT_TRUE(instance_build_block(&out, &largest));
    EXPECT_EQ(instance_get_u32(out.data), INSTANCE_BLOCK_MAX);
    const instance_block_t too_large = {0, text.c_str(), "\\"};
    EXPECT_FALSE(instance_build_block(&out, &too_large));
    EXPECT_EQ(out.length, 0);
    utf8_buf_kill(&out);
}

TEST(Instance, BlockIsReadOnlyWhenItIsWhole) {
    const struct {
        std::string bytes;
        bool is_whole;
        const char *command_line = "", *directory = "";
    } rows[] = {
        {"\x01\x02\x03\xF4-s a\0\\d\0"s, true, "-s a", "\\d"},
        {"\x01\x02\x03\xF4\0\0"s, true},
        {"\x01\x02\x03\xF4\0\\d\0"s, true, "", "\\d"},
        {""s, false},
        {"\x01\x02\x03\xF4\0"s, false},
        {"\x01\x02\x03\xF4-s a\0"s, false},
        {"\x01\x02\x03\xF4-s a\0\\d"s, false},
        {"\x01\x02\x03\xF4-s a\\d"s, false},
        {"\x01\x02\x03\xF4-s a\0\\d\0\0"s, false},
        {"\x01\x02\x03\xF4-s a\0\\d\0more\0"s, false},
    };
    for (const auto &row : rows) {
        // A copy of its exact size, so that a sanitizer sees a read past the end.
        const std::vector<char> bytes(row.bytes.begin(), row.bytes.end());
        instance_block_t block = {};
        ASSERT_EQ(instance_parse_block(bytes.data(), static_cast<u32>(bytes.size()), &block), row.is_whole);
        if (row.is_whole) {
            EXPECT_EQ(block.show_command, 0xF4030201u);
            EXPECT_STREQ(block.command_line, row.command_line);
            EXPECT_STREQ(block.current_directory, row.directory);
        }
    }
}

} // namespace
} // namespace findwright
