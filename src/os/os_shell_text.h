// Readers of the files in which the desktops of POSIX keep what os_shell.h tells: patterns of file names,
// descriptions of file types, the user's folders. They are plain functions of text, built everywhere.
//
// The files may have been written by anyone, so any bytes are taken: what is malformed is passed over, each
// byte is looked at a bounded number of times, and results have a bounded length. Any thread.
#pragma once

#include "base/types.h"

namespace findwright {

struct utf8_buf_t;

// `*.extension` stands for a type such as `text/plain`. Both texts lie in the list.
struct os_shell_pattern_t {
    const char *type;
    const char *extension; // has no dot in it
    u32 type_length;
    u32 extension_length;
    u32 weight; // 0 to 100, where the greater one counts
};

// The next pattern of that form in a list, which has lines of `WEIGHT:TYPE:PATTERN` with anything behind
// another `:`, or without weights `TYPE:PATTERN`; the weight then is 50. The cursor goes on. False at the
// end. A type can be taken as a relative path: it is two names, and neither begins with a dot.
bool os_shell_next_pattern(const char **cursor, const char *end, bool has_weights, os_shell_pattern_t *out);

// The longest description, in bytes.
inline constexpr u32 OS_SHELL_COMMENT_MAX = 1024;

// The description in the XML file of a type: that for the locale (`de_DE`), else that for its language, else
// the one of no language. On one line, without blanks around it. False, and an empty text, when there is
// none.
bool os_shell_find_comment(const char *text, u32 length, const char *locale, u32 locale_length,
                           utf8_buf_t *out);

// The value of a key (`XDG_MUSIC_DIR`) in the list of the user's folders, as a path of the system without a
// final `/`; `home` is what $HOME stands for there. The last line of a key counts. False, and an empty text,
// without one.
bool os_shell_find_user_folder(const char *text, u32 length, const char *key, const char *home,
                               utf8_buf_t *out);

// The content type of an extension, by a short list of the forms that pages are made of and that browsers
// show; "application/octet-stream" for all else. For systems that have no list of their own.
const char *os_shell_get_usual_content_type(const char *extension, u32 length);

} // namespace findwright
