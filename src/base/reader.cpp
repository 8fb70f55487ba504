#include "base/reader.h"

#include "base/mem.h"

#include <algorithm>
#include <cstring>

namespace findwright {

reader_t *reader_open(const char *name) {
    const platform_file_t file = platform.file_open_read(name, true);
    if (file == PLATFORM_FILE_NONE)
        return nullptr;
    auto *reader = static_cast<reader_t *>(mem_alloc(sizeof(reader_t)));
    reader->file = file;
    reader->buffer = static_cast<char *>(mem_alloc(READER_BUFFER_SIZE));
    reader->cursor = reader->end = reader->buffer;
    return reader;
}

void reader_close(reader_t *reader) {
    platform.file_close(reader->file);
    mem_free(reader->buffer);
    mem_free(reader);
}

static bool _reader_fill(reader_t *reader) {
    const i64 size = platform.file_read(reader->file, reader->buffer, READER_BUFFER_SIZE);
    reader->cursor = reader->buffer;
    reader->end = reader->buffer + (size > 0 ? size : 0);
    return size > 0;
}

bool reader_get_line(reader_t *reader, utf8_buf_t *out) {
    utf8_buf_empty(out);
    bool any = false;
    while (reader->cursor != reader->end || _reader_fill(reader)) {
        any = true;
        const size_t ahead = static_cast<size_t>(reader->end - reader->cursor);
        const auto *line_end = static_cast<char *>(std::memchr(reader->cursor, '\n', ahead));
        const size_t length = line_end ? static_cast<size_t>(line_end - reader->cursor) : ahead;
        const u32 room = READER_LINE_MAX - static_cast<u32>(out->length);
        utf8_buf_cat_utf8(out, reader->cursor, static_cast<u32>(std::min<size_t>(length, room)));
        reader->cursor += length;
        if (line_end) {
            reader->cursor++;
            // The CR may have come with an earlier buffer than its LF.
            if (out->length != 0 && out->data[out->length - 1] == '\r')
                utf8_buf_set_length(out, static_cast<u32>(out->length) - 1);
            break;
        }
    }
    return any;
}

} // namespace findwright
