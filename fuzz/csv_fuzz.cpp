// Reads the input as a CSV file, whole and in pieces, and writes its fields to another one: all three give
// the same fields. The first byte is the size of a piece.
#include "base/csv.h"
#include "base/file.h"
#include "support/memory_file.h"

#include <cstdlib>
#include <vector>

using namespace findwright;

static std::vector<std::vector<std::string>> read_fields(const std::string &bytes, u32 piece) {
    memory_file.bytes = bytes;
    memory_file.piece = piece;
    std::vector<std::vector<std::string>> lines;
    csv_t *csv = csv_open("");
    do {
        lines.emplace_back();
        while (const char *field = csv_next_field(csv))
            lines.back().emplace_back(field, csv->field_length);
    } while (csv_next_line(csv));
    csv_close(csv);
    return lines;
}

static std::string write_fields(const std::vector<std::vector<std::string>> &lines) {
    file_writer_t *writer = file_writer_open("");
    // A mark alone is a line without a field.
    if (lines.size() > 1)
        file_writer_puts(writer, "\xEF\xBB\xBF");
    for (size_t i = 0; i + 1 < lines.size(); i++) {
        for (const std::string &field : lines[i]) {
            file_writer_put_csv(writer, field.data(), static_cast<u32>(field.size()));
            file_writer_put(writer, ',');
        }
        file_writer_puts(writer, "\r\n");
    }
    if (!file_writer_close(writer))
        std::abort();
    return memory_file.bytes;
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (size == 0)
        return 0;
    memory_file_install();
    const std::string text(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    const auto whole = read_fields(text, 0xFFFFFFFF);
    if (read_fields(text, bytes[0] + 1u) != whole || read_fields(write_fields(whole), 0xFFFFFFFF) != whole)
        std::abort();
    return 0;
}
