// The lines of a text file, one after the other, through one buffer and with no allocation per line.
//
// Owner: the opener, who closes it; one thread at a time. A reader has no errors: a failed read is the file's
// end.
#pragma once

#include "base/platform.h"
#include "base/types.h"
#include "base/utf8_buf.h"

namespace findwright {

inline constexpr u32 READER_BUFFER_SIZE = 65536;
// What a line has behind this many bytes is dropped: a large file with no line end must not become one text.
inline constexpr u32 READER_LINE_MAX = 64 * 1024 * 1024;

struct reader_t {
    platform_file_t file;
    char *buffer;
    char *cursor;
    char *end;
};

// 0 when the file cannot be opened.
reader_t *reader_open(const char *name);
void reader_close(reader_t *reader);
// The next line without its end, CR LF or LF. A CR elsewhere is text, and so is a zero byte. A last line
// needs no end. False, and an empty text, when there is none.
bool reader_get_line(reader_t *reader, utf8_buf_t *out);

} // namespace findwright
