// Searches inside files: the text of one file at a time, through the platform's text filters where it has
// them, or its bytes.
//
// Only regular files are opened, and opening or reading one never blocks on a pipe or a device. Bytes are
// read block by block, with an overlap, so that a file of any size is searched in bounded memory and gives
// the same answer as its whole text would. A match that needs the whole text at once (a regular expression, a
// wildcard, a whole name) gets it up to FILE_CONTENT_WHOLE_MAX bytes; a larger file does not match.
//
// Any thread; nothing is shared between calls. A cancel is seen between blocks of at most 1 MB.
#pragma once

#include "base/types.h"

#include <atomic>

namespace findwright {

inline constexpr u32 FILE_CONTENT_WHOLE_MAX = 256u << 20; // bytes of text

enum file_content_encoding_t : u32 {
    FILE_CONTENT_AUTO, // the platform's filter for the file; without one its bytes as UTF-8
    FILE_CONTENT_UTF16,
    FILE_CONTENT_UTF16BE,
    FILE_CONTENT_ANSI, // the system's 8-bit code page
    FILE_CONTENT_UTF8,
};

// How a text is tested.
struct file_content_matcher_t {
    // True when the text, UTF-8, matches.
    bool (*match)(void *param, const char *text, u32 length);
    void *param;
    // Bytes that one match can take at the most, with one character on each side of it that decides about
    // whole words; 0: the test needs the whole text.
    u32 span;
    const std::atomic<u32> *cancel; // set: the answer does not matter any more; may be 0
};

// True on a match. A file that cannot be read does not match.
bool file_content_match(const char *path, file_content_encoding_t encoding,
                        const file_content_matcher_t *matcher);

} // namespace findwright
