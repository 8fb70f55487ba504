#include "base/csv.h"

#include "base/file.h"
#include "support/memory_file.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace findwright {
namespace {

using lines_t = std::vector<std::vector<std::string>>;

lines_t read_all() {
    lines_t lines;
    csv_t *csv = csv_open("a");
    do {
        lines.emplace_back();
        while (const char *field = csv_next_field(csv)) {
            EXPECT_EQ(field[csv->field_length], 0);
            lines.back().emplace_back(field, csv->field_length);
        }
        EXPECT_EQ(csv_next_field(csv), nullptr);
    } while (csv_next_line(csv));
    EXPECT_TRUE(lines.back().empty());
    lines.pop_back();
    csv_close(csv);
    return lines;
}

TEST(csv, fields) {
    using namespace std::string_literals;
    struct {
        std::string text;
        lines_t lines;
    } const rows[] = {
        {"", {}},
        {"a,b\r\nc", {{"a", "b"}, {"c"}}},
        {"a,\"b\"\"c\",", {{"a", "b\"c"}}},
        {"a,,b\n,\n,,\n", {{"a", "", "b"}, {""}, {"", ""}}},
        {"\n\na\n", {{}, {}, {"a"}}},
        {"\"a\"bc\"d,e", {{"abc\"d", "e"}}},
        {"a\"b\"\"c,\"d,e\"", {{"a\"b\"\"c", "d,e"}}},
        {"\"not closed, and\nnext", {{"not closed, and"}, {"next"}}},
        {"\"\"\"\",\"\",\"\"\"", {{"\"", "", "\""}}},
        {"\"", {{""}}},
        {" a , \"b\"", {{" a ", " \"b\""}}},
        {"\xEF\xBB\xBF\"a\",b\n\xEF\xBB\xBF"
         "c",
         {{"a", "b"},
          {"\xEF\xBB\xBF"
           "c"}}},
        {"\xEF\xBB\xBF", {{}}},
        {"a\0b,\"c\0\"d"s, {{"a\0b"s, "c\0d"s}}},
    };
    memory_file_scope_t scope;
    for (const auto &row : rows) {
        for (u32 piece : {1u, 2u, 5u, READER_BUFFER_SIZE}) {
            memory_file.bytes = row.text;
            memory_file.piece = piece;
            EXPECT_EQ(read_all(), row.lines) << row.text << " in pieces of " << piece;
        }
    }
    EXPECT_EQ(memory_file.open_count, 0u);
}

TEST(csv, tells_of_an_empty_field_at_the_line_end) {
    memory_file_scope_t scope;
    memory_file.bytes = "a,b\na,";
    csv_t *csv = csv_open("a");
    for (bool last_is_empty : {false, true}) {
        bool was_comma = false;
        EXPECT_STREQ(csv_next_field_with_empty(csv, &was_comma), "a");
        EXPECT_TRUE(was_comma);
        // The caller stops before the line's end: it is not done with it.
        EXPECT_FALSE(csv_next_line(csv));
        if (!last_is_empty) {
            EXPECT_STREQ(csv_next_field_with_empty(csv, &was_comma), "b");
            EXPECT_FALSE(was_comma);
        }
        EXPECT_EQ(csv_next_field_with_empty(csv, &was_comma), nullptr);
        EXPECT_TRUE(csv_next_line(csv));
    }
    csv_close(csv);
}

TEST(csv, written_fields_come_back) {
    memory_file_scope_t scope;
    std::mt19937 random(2);
    const char letters[] = "a\",  ;\xC3\xA9\\";
    lines_t lines;
    file_writer_t *writer = file_writer_open("a");
    // Long enough for several buffers, with lines of every length at their borders.
    for (u32 i = 0; i < 3000; i++) {
        lines.emplace_back();
        for (u32 field = 0; field < i % 5; field++) {
            std::string text(random() % 64, 0);
            for (char &c : text)
                c = letters[random() % (sizeof(letters) - 1)];
            if (field != 0)
                file_writer_put(writer, ',');
            file_writer_put_csv(writer, text.data(), static_cast<u32>(text.size()));
            lines.back().push_back(text);
        }
        file_writer_puts(writer, "\r\n");
    }
    ASSERT_TRUE(file_writer_close(writer));
    ASSERT_GT(memory_file.bytes.size(), 3 * READER_BUFFER_SIZE);
    EXPECT_TRUE(read_all() == lines);
}

} // namespace
} // namespace findwright
