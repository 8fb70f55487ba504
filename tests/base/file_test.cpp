#include "base/file.h"

#include "base/reader.h"
#include "base/utf8_buf.h"
#include "support/memory_file.h"

#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace findwright {
namespace {

std::vector<std::string> read_lines(u32 piece) {
    memory_file.piece = piece;
    std::vector<std::string> lines;
    reader_t *reader = reader_open("a");
    utf8_buf_t line;
    utf8_buf_init(&line);
    while (reader_get_line(reader, &line))
        lines.emplace_back(line.data, line.length);
    EXPECT_EQ(line.length, 0);
    utf8_buf_kill(&line);
    reader_close(reader);
    return lines;
}

std::string written(const std::function<void(file_writer_t *)> &write) {
    file_writer_t *writer = file_writer_open("a");
    write(writer);
    EXPECT_TRUE(file_writer_close(writer));
    return memory_file.bytes;
}

TEST(reader, line_ends) {
    using namespace std::string_literals;
    struct {
        std::string text;
        std::vector<std::string> lines;
    } const rows[] = {
        {"", {}},
        {"a", {"a"}},
        {"a\r\nb\n", {"a", "b"}},
        {"\n\r\n\r\n", {"", "", ""}},
        {"a\rb\r\r\nc\r", {"a\rb\r", "c\r"}},
        {"a\0b\n\0"s, {"a\0b"s, "\0"s}},
    };
    memory_file_scope_t scope;
    for (const auto &row : rows) {
        for (u32 piece : {1u, 2u, 3u, READER_BUFFER_SIZE}) {
            memory_file.bytes = row.text;
            EXPECT_EQ(read_lines(piece), row.lines) << row.text << " in pieces of " << piece;
        }
    }
    EXPECT_EQ(memory_file.open_count, 0u);
    memory_file.exists = false;
    EXPECT_EQ(reader_open("a"), nullptr);
}

TEST(reader, line_end_over_the_buffer_border) {
    memory_file_scope_t scope;
    for (u32 length = READER_BUFFER_SIZE - 3; length <= READER_BUFFER_SIZE + 1; length++) {
        const std::string first(length, 'x');
        memory_file.bytes = first + "\r\nsecond\r\n";
        EXPECT_EQ(read_lines(READER_BUFFER_SIZE), (std::vector<std::string>{first, "second"})) << length;
    }
}

TEST(reader, cuts_a_line_without_end) {
    memory_file_scope_t scope;
    memory_file.bytes = std::string(READER_LINE_MAX + 100000, 'x') + "\nnext";
    const std::vector<std::string> lines = read_lines(READER_BUFFER_SIZE);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), READER_LINE_MAX);
    EXPECT_EQ(lines[1], "next");
}

TEST(file_writer, writes_over_the_buffer_border) {
    memory_file_scope_t scope;
    std::mt19937 random(1);
    std::string expected;
    const std::string result = written([&](file_writer_t *writer) {
        while (expected.size() < 5 * FILE_BUFFER_SIZE) {
            const std::string part(random() % (random() % 16 == 0 ? 2 * FILE_BUFFER_SIZE : 100),
                                   static_cast<char>(random()));
            switch (random() % 3) {
            case 0:
                file_writer_write(writer, part.data(), part.size());
                expected += part;
                break;
            case 1:
                file_writer_printf(writer, "%t;%d", part.data(), static_cast<u32>(part.size()), 17);
                expected += part + ";17";
                break;
            default:
                file_writer_put(writer, 'c');
                file_writer_puts(writer, "text");
                expected += "ctext";
                break;
            }
        }
    });
    EXPECT_TRUE(result == expected);
    EXPECT_EQ(memory_file.open_count, 0u);
}

TEST(file_writer, remembers_a_failed_write) {
    memory_file_scope_t scope;
    file_writer_t *writer = file_writer_open("a");
    memory_file.max_size = FILE_BUFFER_SIZE;
    const std::string text(FILE_BUFFER_SIZE + 1, 'x');
    file_writer_write(writer, text.data(), text.size());
    EXPECT_FALSE(writer->error);
    file_writer_write(writer, text.data(), text.size());
    EXPECT_TRUE(writer->error);
    // The disk has room again: what is missing in the middle must not be followed by more.
    memory_file.max_size = ~size_t{0};
    file_writer_write(writer, text.data(), text.size());
    EXPECT_FALSE(file_writer_close(writer));
    EXPECT_EQ(memory_file.bytes.size(), FILE_BUFFER_SIZE);
    memory_file.exists = false;
    EXPECT_EQ(file_writer_open("a"), nullptr);
}

TEST(file_writer, quoted_texts_come_back_from_a_list) {
    const std::string texts[] = {"",     " a; b, c ",       "say \"x\"",   "C:\\new\\",
                                 "\\\"", "line\r\nbreak\t", "\xC3\xA9\xFF"};
    memory_file_scope_t scope;
    const std::string list = written([&](file_writer_t *writer) {
        for (const std::string &text : texts) {
            file_writer_put_quoted(writer, text.data(), static_cast<u32>(text.size()));
            file_writer_put(writer, ',');
        }
    });
    EXPECT_EQ(list.find_first_of("\r\n"), std::string::npos);
    utf8_buf_t item;
    utf8_buf_init(&item);
    const char *cursor = list.c_str();
    for (const std::string &text : texts) {
        cursor = utf8_buf_next_list_item(&item, cursor);
        ASSERT_NE(cursor, nullptr) << text;
        EXPECT_EQ(std::string(item.data, item.length), text);
    }
    utf8_buf_kill(&item);
}

TEST(file_writer, line_field_has_no_line_end) {
    memory_file_scope_t scope;
    EXPECT_EQ(written([](file_writer_t *writer) { file_writer_put_line_field(writer, "a\r\nb\nc\rd\\", 9); }),
              "a  b c d\\");
}

} // namespace
} // namespace findwright
