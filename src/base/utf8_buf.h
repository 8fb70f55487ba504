// Growable UTF-8 text, which keeps up to 259 bytes in itself: as a local variable it holds an ordinary path
// without the heap.
//
// Invariants: `data` is terminated at `length`; it points to `inline_data` exactly while `capacity` is 260,
// and to a heap block of the buffer's own when it is more. So a buffer is never copied by assignment.
//
// Owner: whoever called utf8_buf_init, until utf8_buf_kill; one thread at a time. Text handed in is copied;
// it must not lie in the same buffer unless told.
#pragma once

#include "base/types.h"

#include <cstdarg>

namespace findwright {

inline constexpr i32 TEXT_BUF_INLINE = 260;

struct utf8_buf_t {
    i32 length;   // bytes, without the terminator
    i32 capacity; // bytes that `data` can hold, terminator included
    char *data;
    char inline_data[TEXT_BUF_INLINE];

    utf8_buf_t() = default;
    utf8_buf_t(const utf8_buf_t &) = delete;
    utf8_buf_t &operator=(const utf8_buf_t &) = delete;
};

void utf8_buf_init(utf8_buf_t *buf);
void utf8_buf_kill(utf8_buf_t *buf);
// No text; a heap block is kept for the next one.
void utf8_buf_empty(utf8_buf_t *buf);
// Room for `size` bytes, terminator included, when the old content does not matter: the text is empty
// afterwards.
void utf8_buf_grow_empty(utf8_buf_t *buf, u32 size);
// Room for `added` more bytes behind the text, which stays. The bytes are the caller's to write.
void utf8_buf_grow_cat(utf8_buf_t *buf, u32 added);
// Sets a length that is not above the present room, and terminates there.
void utf8_buf_set_length(utf8_buf_t *buf, u32 length);

// `copy` replaces the content, `cat` appends to it. The text of copy_utf8 may lie in the same buffer.
void utf8_buf_copy_utf8(utf8_buf_t *buf, const char *text, u32 length);
void utf8_buf_cat_utf8(utf8_buf_t *buf, const char *text, u32 length);
void utf8_buf_copy_string(utf8_buf_t *buf, const char *text); // terminated; 0 is empty
void utf8_buf_cat_string(utf8_buf_t *buf, const char *text);
void utf8_buf_cat_byte(utf8_buf_t *buf, char byte);
void utf8_buf_copy_wchar(utf8_buf_t *buf, const char16_t *text, u32 length);
void utf8_buf_cat_wchar(utf8_buf_t *buf, const char16_t *text, u32 length);
// From the system's 8-bit code page.
void utf8_buf_copy_ansi(utf8_buf_t *buf, const char *text, u32 length);
void utf8_buf_lower(utf8_buf_t *buf);

// With the formats of utf8_format. The arguments must not lie in the buffer.
void utf8_buf_printf(utf8_buf_t *buf, const char *format, ...);
void utf8_buf_cat_printf(utf8_buf_t *buf, const char *format, ...);
void utf8_buf_vprintf(utf8_buf_t *buf, const char *format, va_list args);
void utf8_buf_cat_vprintf(utf8_buf_t *buf, const char *format, va_list args);

// The whole file, byte order mark included. False, and an empty text, when it cannot be read.
bool utf8_buf_read_file(utf8_buf_t *buf, const char *filename);

// --- Paths (utf8_buf_path.cpp) -----------------------------------------------------------------------------

// Each `/` becomes `\`.
void utf8_buf_fix_path(utf8_buf_t *buf);
// Removes `.` and `..` components and doubled separators. The root (see utf8_get_root_length) stays as it is
// and
// `..` does not go above it; a relative path keeps the `..` that it begins with.
void utf8_buf_canonicalize(utf8_buf_t *buf);
// PATH\NAME, with one backslash between. The path may be the buffer's own text.
void utf8_buf_path_cat_filename(utf8_buf_t *buf, const char *path, u32 path_length, const char *name,
                                u32 name_length);
void utf8_buf_remove_trailing_separator(utf8_buf_t *buf);
void utf8_buf_add_trailing_separator(utf8_buf_t *buf);
// The canonical absolute path, with `\`, of a path that is relative to `base`; an empty base is the current
// directory. A path that begins with a single separator is taken from the root of the base. Under a root with
// a scheme the separator is `/`.
void utf8_buf_get_full_path(utf8_buf_t *buf, const char *path, u32 path_length, const char *base,
                            u32 base_length);
// The text between double quotes.
void utf8_buf_quote(utf8_buf_t *buf);
// The program's folder and the user's application data folders, without a trailing separator. False, and an
// empty text, when not known.
bool utf8_buf_get_exe_path(utf8_buf_t *buf);
bool utf8_buf_get_app_data_path(utf8_buf_t *buf);
bool utf8_buf_get_local_app_data_path(utf8_buf_t *buf);

// --- Numbers, sizes and dates (utf8_buf_format.cpp) --------------------------------------------------------

// Unit names: bytes, KB, MB, GB, TB, PB. English at first; localization puts its own texts here.
inline constexpr u32 UTF8_SIZE_UNITS = 6;
extern const char *utf8_size_units[UTF8_SIZE_UNITS];

enum utf8_size_format_t : u32 {
    UTF8_SIZE_AUTO = 0,  // two or three digits and the fitting unit
    UTF8_SIZE_BYTES = 1, // all digits, no unit
    UTF8_SIZE_KB = 2,    // rounded up
    UTF8_SIZE_MB = 3,
    UTF8_SIZE_GB = 4,
};

// With the digit grouping of the user's locale.
void utf8_buf_format_number(utf8_buf_t *buf, i64 value);
// A size in bytes. Units are powers of 1,024. An unknown size gives an empty text.
void utf8_buf_format_size(utf8_buf_t *buf, utf8_size_format_t format, u64 value);
// Local date and time in the user's short format. An unknown file time gives an empty text.
void utf8_buf_format_date(utf8_buf_t *buf, u64 file_time);
// Local date and time as 2001-12-31 23:59:59; likewise.
void utf8_buf_format_iso_date(utf8_buf_t *buf, u64 file_time);

struct utf8_version_t {
    i32 major, minor, revision, build;
    const char *suffix;     // directly behind the numbers
    const char *build_name; // such as "x86", in parentheses
    const char *tail;
};
void utf8_buf_format_version(utf8_buf_t *buf, const utf8_version_t *version);

// --- Lists and templates (utf8_buf_expand.cpp) -------------------------------------------------------------

// Takes the next element of a list such as `one; "two, three" ,four` out of a terminated text, and returns
// the cursor behind it. A null cursor, or one with nothing but white space ahead, gives an empty element and
// 0:
//   while ((cursor = utf8_buf_next_list_item(&item, cursor))) { ... }
// Elements end at `;` or `,`; white space around them is dropped. `"` toggles quoting, in which separators
// and white space are kept and `\` escapes the next character.
const char *utf8_buf_next_list_item(utf8_buf_t *out, const char *cursor);
// Appends an element in double quotes, escaped so that utf8_buf_next_list_item gives it back. The caller
// writes the separator.
void utf8_buf_cat_list_item(utf8_buf_t *buf, const char *text, u32 length);

// The variables of a template; none may be 0.
struct utf8_expand_t {
    const char *text;     // $s
    const char *instance; // $i
    const char *version;  // $v
    const char *title;    // $t
};
// Expands a template of titles: `$s`, `$i`, `$v`, `$t` are texts; `$$`, `$?`, `${`, `$}` the character
// itself. A variable followed by `?{A}` and perhaps `:{B}` gives A when it is not empty, else B. False, and
// an empty text, when the template is malformed: an unknown variable, or braces that do not belong or do not
// close.
bool utf8_buf_expand(utf8_buf_t *out, const char *format, const utf8_expand_t *variables);

} // namespace findwright
