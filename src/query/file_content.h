// Searches inside files: the text of one file at a time, through the platform's text filters where it has
// them, or its bytes.
//
// Only regular files are opened, and opening or reading one never blocks on a pipe or a device. Text is
// searched block by block, with an overlap, so that a file of any size is searched in bounded memory and
// gives the same answer as its whole text would. A match that needs the whole text at once (a regular
// expression, a wildcard, a whole name) gets it up to FILE_CONTENT_WHOLE_MAX bytes; a larger file does not
// match.
//
// Any thread; nothing is shared between calls. On Windows it is one of the pool, for the filters. A cancel is
// seen between blocks of about 256 KB; not while the whole text is tested.
#pragma once

#include "base/types.h"
#include "base/utf8.h"

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
    //
    // With a span, `match` must be a search for one plain text, whole words or not, in any of the modes of
    // utf8_find and utf8_find_word: it is called with pieces of the text, and more than once for a piece that
    // matches. A piece that ends inside of the text has a made-up byte there, a word character where the text
    // goes on with one; what is taken for a match with that byte is told from one in the text by trying more
    // than one such byte.
    u32 span;
    const std::atomic<u32> *cancel; // set: the answer does not matter any more; may be 0
    u32 block = 0; // bytes by which the search goes on and which are read at once; 0 for the usual (tests)
};

// The span of a search for a folded pattern of that many bytes: each of its characters can stand for the
// longest one in the text.
inline constexpr u32 file_content_get_span(u32 pattern_length) {
    return (pattern_length + 2) * UTF8_CHAR_MAX;
}

// True on a match. A file that cannot be read does not match.
bool file_content_match(const char *path, file_content_encoding_t encoding,
                        const file_content_matcher_t *matcher);

} // namespace findwright
