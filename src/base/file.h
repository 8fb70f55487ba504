// A text file that is written from front to end through a buffer, with the few ways of quoting that the
// program's own files use.
//
// Owner: the opener, who closes it; one thread at a time. Errors are sticky: after a failed write nothing
// more is written, and file_writer_close tells of it. So what writes a file tests once, at the end.
#pragma once

#include "base/platform.h"
#include "base/types.h"

#include <cstdarg>

namespace findwright {

inline constexpr u32 FILE_BUFFER_SIZE = 65536;

struct file_writer_t {
    char *cursor;
    char *end;
    char *buffer;
    platform_file_t file;
    bool error;
};

// Makes the file of that UTF-8 name anew; 0 when it cannot be made.
file_writer_t *file_writer_open(const char *name);
// Writes what is left and closes. False when any write failed.
bool file_writer_close(file_writer_t *writer);

void file_writer_write(file_writer_t *writer, const void *bytes, size_t length);
void file_writer_flush(file_writer_t *writer);
inline void file_writer_put(file_writer_t *writer, char byte) {
    if (writer->cursor == writer->end)
        file_writer_flush(writer);
    *writer->cursor++ = byte;
}
void file_writer_puts(file_writer_t *writer, const char *text); // terminated
// With the formats of utf8_format.
void file_writer_printf(file_writer_t *writer, const char *format, ...);
void file_writer_vprintf(file_writer_t *writer, const char *format, va_list args);

// One text of a list in the settings: in double quotes and escaped, so that it has no line end and
// utf8_buf_next_list_item gives it back. The caller writes the commas.
void file_writer_put_quoted(file_writer_t *writer, const char *text, u32 length);
// One field of a CSV line, always in double quotes. A line end in it stays, and would end the line.
void file_writer_put_csv(file_writer_t *writer, const char *text, u32 length);
// One field of a list with a line per item: CR and LF become blanks, so that the text stays on its line.
void file_writer_put_line_field(file_writer_t *writer, const char *text, u32 length);

} // namespace findwright
