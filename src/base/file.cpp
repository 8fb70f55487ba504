#include "base/file.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"

#include <algorithm>
#include <cstring>

namespace findwright {

file_writer_t *file_writer_open(const char *name) {
    const platform_file_t file = platform.file_create(name);
    if (file == PLATFORM_FILE_NONE)
        return nullptr;
    auto *writer = static_cast<file_writer_t *>(mem_alloc(sizeof(file_writer_t)));
    writer->buffer = static_cast<char *>(mem_alloc(FILE_BUFFER_SIZE));
    writer->cursor = writer->buffer;
    writer->end = writer->buffer + FILE_BUFFER_SIZE;
    writer->file = file;
    writer->error = false;
    return writer;
}

void file_writer_flush(file_writer_t *writer) {
    const u32 size = static_cast<u32>(writer->cursor - writer->buffer);
    // The buffer starts over after an error too: what is put then is lost, as it must be.
    writer->cursor = writer->buffer;
    if (size == 0 || writer->error)
        return;
    if (!platform.file_write(writer->file, writer->buffer, size)) {
        base_log("os_write(): %d: Failed to write %d bytes\n", platform.last_error(), size);
        writer->error = true;
    }
}

bool file_writer_close(file_writer_t *writer) {
    file_writer_flush(writer);
    const bool done = !writer->error;
    platform.file_close(writer->file);
    mem_free(writer->buffer);
    mem_free(writer);
    return done;
}

void file_writer_write(file_writer_t *writer, const void *bytes, size_t length) {
    const char *from = static_cast<const char *>(bytes);
    while (length != 0) {
        if (writer->cursor == writer->end)
            file_writer_flush(writer);
        const size_t part = std::min(length, static_cast<size_t>(writer->end - writer->cursor));
        std::memcpy(writer->cursor, from, part);
        writer->cursor += part;
        from += part;
        length -= part;
    }
}

void file_writer_puts(file_writer_t *writer, const char *text) {
    file_writer_write(writer, text, std::strlen(text));
}

void file_writer_printf(file_writer_t *writer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    file_writer_vprintf(writer, format, args);
    va_end(args);
}

void file_writer_vprintf(file_writer_t *writer, const char *format, va_list args) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    utf8_buf_vprintf(&text, format, args);
    file_writer_write(writer, text.data, static_cast<u32>(text.length));
    utf8_buf_kill(&text);
}

void file_writer_put_quoted(file_writer_t *writer, const char *text, u32 length) {
    file_writer_put(writer, '"');
    for (const char *end = text + length; text != end; text++) {
        switch (*text) {
        case '\n': file_writer_write(writer, "\\n", 2); break;
        case '\r': file_writer_write(writer, "\\r", 2); break;
        case '"':
        case '\\': file_writer_put(writer, '\\'); [[fallthrough]];
        default: file_writer_put(writer, *text); break;
        }
    }
    file_writer_put(writer, '"');
}

void file_writer_put_csv(file_writer_t *writer, const char *text, u32 length) {
    file_writer_put(writer, '"');
    for (const char *end = text + length; text != end; text++) {
        if (*text == '"')
            file_writer_put(writer, '"');
        file_writer_put(writer, *text);
    }
    file_writer_put(writer, '"');
}

void file_writer_put_line_field(file_writer_t *writer, const char *text, u32 length) {
    for (const char *end = text + length; text != end; text++)
        file_writer_put(writer, *text == '\r' || *text == '\n' ? ' ' : *text);
}

} // namespace findwright
