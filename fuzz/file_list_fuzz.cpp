// Reads the input as a file list, whole and in pieces, and the rows that come of it, written as a list of
// full names, again: all three give the same rows. The first byte is the size of a piece.
#include "base/file.h"
#include "base/utf8.h"
#include "index/file_list.h"
#include "os/os.h"
#include "support/memory_file.h"

#include <cstdlib>
#include <vector>

using namespace findwright;

struct row_t {
    std::string name;
    db_file_info_t info;

    bool operator==(const row_t &other) const {
        return name == other.name && info.size == other.info.size &&
               info.date_modified == other.info.date_modified &&
               info.date_created == other.info.date_created &&
               info.date_accessed == other.info.date_accessed && info.attributes == other.info.attributes;
    }
};

static std::string join_pieces(const file_list_row_t *row) {
    std::string name;
    u32 position = 0;
    const char *piece;
    u32 length;
    for (bool first = true; file_list_next_piece(row->name, row->length, &position, &piece, &length);
         first = false) {
        if (!first)
            name += '\\';
        name.append(piece, length);
    }
    return name;
}

static bool add_row(void *param, const file_list_row_t *row) {
    auto *rows = static_cast<std::vector<row_t> *>(param);
    rows->push_back({std::string(row->name, row->length), row->info});
    if (row->length == 0 || row->ordinal + 1 != rows->size() || join_pieces(row) != rows->back().name)
        std::abort();
    return true;
}

static std::vector<row_t> read_rows(const std::string &bytes, u32 piece) {
    memory_file.bytes = bytes;
    memory_file.piece = piece;
    std::vector<row_t> rows;
    const file_list_read_t all = {};
    // With a root of this system: then a full name is never taken for a relative one.
    file_list_read(os_path_separator == '/' ? "\\d\\e\\list.fwl" : "C:\\d\\e\\list.fwl", &all, add_row,
                   &rows);
    return rows;
}

static std::string write_rows(const std::vector<row_t> &rows) {
    file_writer_t *writer = file_writer_open("");
    file_writer_puts(writer, "Date Accessed,Attributes,Filename,Date Created,Date Modified,Size\n");
    for (const row_t &row : rows) {
        file_writer_printf(writer, "%I64u,%u,", row.info.date_accessed, row.info.attributes);
        file_writer_put_csv(writer, row.name.data(), static_cast<u32>(row.name.size()));
        file_writer_printf(writer, ",%I64u,%I64u,%I64u\n", row.info.date_created, row.info.date_modified,
                           row.info.size);
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
    const auto whole = read_rows(text, 0xFFFFFFFF);
    if (read_rows(text, bytes[0] + 1u) != whole || read_rows(write_rows(whole), 0xFFFFFFFF) != whole)
        std::abort();

    utf8_buf_t names;
    utf8_buf_init(&names);
    memory_file.bytes = text;
    for (const char *file : {"\\d\\a.csv", "\\d\\a.txt"})
        filelist_read_search_names(&names, file);
    utf8_buf_kill(&names);
    return 0;
}
