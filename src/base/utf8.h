// UTF-8 text: decoding, folding, comparison, conversion to and from UTF-16, and the small helpers for paths,
// numbers and strings on the heap.
//
// A text is a pointer and a length in bytes; nothing here needs a terminator unless told. No text is ever an
// error: a byte that begins no whole sequence counts as one character of one byte with the value 0, and goes
// through copies unchanged. Continuation bytes are not checked, only their low six bits are used.
//
// The tables are constants and the functions work on their caller's memory: any thread may call. Heap strings
// belong to the caller and go back through mem_free.
#pragma once

#include "base/mem.h"
#include "base/types.h"

#include <cstring>

namespace findwright {

// --- Characters --------------------------------------------------------------------------------------------

// The most bytes that one character takes.
inline constexpr u32 UTF8_CHAR_MAX = 4;
// What a byte that is no UTF-8 becomes in UTF-16, where 0 would cut the text short.
inline constexpr u32 UTF8_REPLACEMENT = 0xFFFD;

// Decodes the character at `text`, which lies in front of `end`. Returns its length in bytes, at least 1; the
// value is 0 for anything malformed.
inline u32 utf8_decode(const char *text, const char *end, u32 *value) {
    const u32 b = static_cast<u8>(*text);
    if (b < 0x80) {
        *value = b;
        return 1;
    }
    const auto left = end - text;
    const auto low = [text](int i) { return static_cast<u32>(text[i]) & 0x3F; };
    if ((b & 0xE0) == 0xC0 && left >= 2) {
        *value = (b & 0x1F) << 6 | low(1);
        return 2;
    }
    if ((b & 0xF0) == 0xE0 && left >= 3) {
        *value = (b & 0x0F) << 12 | low(1) << 6 | low(2);
        return 3;
    }
    if ((b & 0xF8) == 0xF0 && left >= 4) {
        *value = (b & 0x07) << 18 | low(1) << 12 | low(2) << 6 | low(3);
        return 4;
    }
    *value = 0;
    return 1;
}

// The length in bytes of the character at `text`, by the rule of utf8_decode.
inline u32 utf8_char_length(const char *text, const char *end) {
    u32 value;
    return utf8_decode(text, end, &value);
}

// The start of the character that ends at `text`, which lies behind `start`: up to three continuation bytes
// belong to the lead byte in front of them if that one asks for just so many; any other byte stands alone.
inline const char *utf8_step_back(const char *start, const char *text) {
    const char *lead = text - 1;
    for (u32 i = 0; i < UTF8_CHAR_MAX - 1 && lead > start && (*lead & 0xC0) == 0x80; i++) {
        lead--;
    }
    return lead + utf8_char_length(lead, text) == text ? lead : text - 1;
}

// The number of bytes that a value takes, and their writing. Values go up to 0x1FFFFF.
inline u32 utf8_encoded_length(u32 value) {
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
}
inline u32 utf8_encode(char *out, u32 value) {
    const auto tail = [value](int shift) { return static_cast<char>(0x80 | (value >> shift & 0x3F)); };
    switch (utf8_encoded_length(value)) {
    case 1: out[0] = static_cast<char>(value); return 1;
    case 2:
        out[0] = static_cast<char>(0xC0 | value >> 6);
        out[1] = tail(0);
        return 2;
    case 3:
        out[0] = static_cast<char>(0xE0 | value >> 12);
        out[1] = tail(6);
        out[2] = tail(0);
        return 3;
    default:
        out[0] = static_cast<char>(0xF0 | (value >> 18 & 0x07));
        out[1] = tail(12);
        out[2] = tail(6);
        out[3] = tail(0);
        return 4;
    }
}

// --- Folding -----------------------------------------------------------------------------------------------

// A map of the code points below 0x10000 has two levels: the block of 64 code points, then the distance to
// the target modulo 65,536. Blocks of equal distances are stored once, so a map takes 7 to 19 KB. The maps
// are made from the Unicode data by tools/make_text_tables.py.
inline constexpr u32 UTF8_MAP_BLOCK = 64;
inline constexpr u32 UTF8_MAP_END = 0x10000;
struct utf8_map_t {
    const u8 *blocks;
    const u16 (*distances)[UTF8_MAP_BLOCK];
};

extern const u8 utf8_lower_blocks[UTF8_MAP_END / UTF8_MAP_BLOCK];
extern const u8 utf8_upper_blocks[UTF8_MAP_END / UTF8_MAP_BLOCK];
extern const u8 utf8_fold_blocks[UTF8_MAP_END / UTF8_MAP_BLOCK];
extern const u8 utf8_fold_keep_case_blocks[UTF8_MAP_END / UTF8_MAP_BLOCK];
extern const u16 utf8_lower_distances[][UTF8_MAP_BLOCK];
extern const u16 utf8_upper_distances[][UTF8_MAP_BLOCK];
extern const u16 utf8_fold_distances[][UTF8_MAP_BLOCK];
extern const u16 utf8_fold_keep_case_distances[][UTF8_MAP_BLOCK];

inline u32 utf8_map(const utf8_map_t &map, u32 value) {
    if (value >= UTF8_MAP_END) {
        return value;
    }
    const u16 distance = map.distances[map.blocks[value / UTF8_MAP_BLOCK]][value % UTF8_MAP_BLOCK];
    return (value + distance) & (UTF8_MAP_END - 1);
}

// Upper case to lower case, accents kept; and the reverse of it. A letter without a partner stays itself.
inline u32 utf8_to_lower(u32 value) {
    return utf8_map({utf8_lower_blocks, utf8_lower_distances}, value);
}
inline u32 utf8_to_upper(u32 value) {
    return utf8_map({utf8_upper_blocks, utf8_upper_distances}, value);
}
// To the base character: accents off, compatibility forms replaced, and lower case.
inline u32 utf8_to_fold(u32 value) {
    return utf8_map({utf8_fold_blocks, utf8_fold_distances}, value);
}
// The same with the case kept.
inline u32 utf8_to_fold_keep_case(u32 value) {
    return utf8_map({utf8_fold_keep_case_blocks, utf8_fold_keep_case_distances}, value);
}

// Byte tables for the fast paths. A byte from 128 up becomes UTF8_NOT_ASCII, so a pattern byte below 128 can
// only equal a text byte that is plain ASCII.
inline constexpr u8 UTF8_NOT_ASCII = 255;
struct utf8_byte_table_t {
    u8 bytes[256];
    constexpr u8 operator[](char c) const { return bytes[static_cast<u8>(c)]; }
};
consteval utf8_byte_table_t utf8_make_byte_table(bool lower) {
    utf8_byte_table_t table{};
    for (u32 i = 0; i < 256; i++) {
        const bool upper = lower && i >= 'A' && i <= 'Z';
        table.bytes[i] = static_cast<u8>(i >= 128 ? UTF8_NOT_ASCII : upper ? i + ('a' - 'A') : i);
    }
    return table;
}
inline constexpr utf8_byte_table_t utf8_lower_ascii = utf8_make_byte_table(true);
inline constexpr utf8_byte_table_t utf8_same_ascii = utf8_make_byte_table(false);

// Case mapping of a text. The result may have another length in bytes: measure, then copy. Both return the
// length of the result; `out` must not overlap the text. No terminator is written.
u32 utf8_lower_get_length(const char *text, u32 length);
u32 utf8_lower_copy(char *out, const char *text, u32 length);
u32 utf8_upper_get_length(const char *text, u32 length);
u32 utf8_upper_copy(char *out, const char *text, u32 length);

// True when every byte is below 128.
bool utf8_is_ascii(const char *text, u32 length);

// --- Comparison --------------------------------------------------------------------------------------------

// The orders of names: negative, 0 or positive as `a` stands before, with or behind `b`. The first characters
// that differ after folding decide by their code points, else the bytes that remain.
int utf8_compare_fold(const char *a, u32 a_length, const char *b, u32 b_length);
int utf8_compare_lower(const char *a, u32 a_length, const char *b, u32 b_length);
int utf8_compare_keep_case(const char *a, u32 a_length, const char *b, u32 b_length);
// Bytes as numbers, then lengths.
int utf8_compare(const char *a, u32 a_length, const char *b, u32 b_length);
// True when the text begins with the pattern, case ignored: a prefix test. Text that is equal as a whole is
// utf8_compare_lower's 0.
bool utf8_equal_nocase(const char *text, u32 length, const char *pattern, u32 pattern_length);

inline bool utf8_is_equal(const char *a, u32 a_length, const char *b, u32 b_length) {
    return a_length == b_length && (!a_length || !std::memcmp(a, b, a_length));
}

// --- UTF-16 ------------------------------------------------------------------------------------------------

inline u32 utf8_length(const char *text) {
    return static_cast<u32>(std::strlen(text));
}
u32 wchar_length(const char16_t *text);

// Bytes that the UTF-16 text takes as UTF-8. A high surrogate before a low one is one character of 4 bytes, a
// lone surrogate one of 3.
u32 utf8_wchar_get_length(const char16_t *text, u32 length);
// Converts, writes no terminator, and returns the bytes written.
u32 utf8_from_wchar_length(char *out, const char16_t *text, u32 length);
// Converts a terminated text and terminates the result; the bytes written without the terminator.
u32 utf8_from_wchar(char *out, const char16_t *text);

// UTF-16 units that the UTF-8 text takes. Malformed bytes become UTF8_REPLACEMENT, one each.
u32 wchar_utf8_get_length(const char *text, u32 length);
// Converts, writes no terminator, and returns the units written.
u32 wchar_from_utf8(char16_t *out, const char *text, u32 length);

// The text behind a leading EF BB BF.
const char *utf8_skip_bom(const char *text, u32 *length);

// --- Character classes -------------------------------------------------------------------------------------

// Part of a word: ASCII letters and digits, `_`, and every byte of a character above ASCII.
inline bool utf8_is_word_char(char c) {
    const u32 lower = utf8_lower_ascii[c];
    return lower - 'a' < 26 || lower - '0' < 10 || lower == '_' || lower == UTF8_NOT_ASCII;
}
inline bool utf8_is_digit(char c) {
    return static_cast<u32>(c) - '0' < 10;
}
// Blank, tab, carriage return or line feed.
inline bool utf8_is_white_space(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
inline bool utf8_is_separator(char c) {
    return c == '\\' || c == '/';
}

// --- Paths -------------------------------------------------------------------------------------------------

// Splits at the last `\` or `/`, which belongs to neither part. Without one the path is empty.
void utf8_get_path_part(const char *text, u32 length, const char **path, u32 *path_length, const char **name,
                        u32 *name_length);
// Bytes of the root: 2 for `X:`; for `\\server\share` up to the separator behind the share; for a scheme up
// to the first `/` behind its `:`; else 0.
u32 utf8_get_root_length(const char *text, u32 length);
// What follows the last `.` of the last path component; empty without one. It ends where the text ends.
const char *utf8_get_extension(const char *text, u32 length);
u32 utf8_get_extension_length(const char *text, u32 length);
bool utf8_has_trailing_separator(const char *text, u32 length);
// The number of `\` and `/`.
u32 utf8_count_slashes(const char *text, u32 length);

// --- Numbers and escapes -----------------------------------------------------------------------------------

// Reads `0x` and hexadecimal digits, or an optional `-` and decimal digits, up to the first character that
// does not belong. 0 when there is no digit; what does not fit wraps around.
i32 utf8_to_int(const char *text, u32 length);
i64 utf8_to_int64(const char *text, u32 length);
u64 utf8_to_uint64(const char *text, u32 length);
// 0 to 15, or -1.
i32 utf8_hex_value(char c);
// The character that `\` and this one stand for: a, b, f, n, r, t, v and 0 as in C, others for themselves.
char utf8_escape_value(char c);

// Reads one element of a list (see utf8_buf_next_list_item) as a number, or the default when the element is
// empty. Returns the cursor behind it; 0 when the list was at its end.
const char *utf8_next_list_int(const char *cursor, i32 *value, i32 default_value);
const char *utf8_next_list_uint64(const char *cursor, u64 *value, u64 default_value);

// --- Attribute letters -------------------------------------------------------------------------------------

// Room for all letters and the terminator.
inline constexpr u32 UTF8_ATTRIBUTE_LETTERS_SIZE = 15;
// Writes one letter per attribute that is set, in the order RHSDAVNTPLCOIE, and a terminator; returns the
// number of letters.
u32 utf8_attributes_to_letters(char *out, u32 attributes);

// --- Strings on the heap -----------------------------------------------------------------------------------

// A terminated copy, owned by the caller and freed with mem_free.
char *utf8_alloc_copy_debug(const char *filename, int line, const char *text);
char *utf8_alloc_copy_length_debug(const char *filename, int line, const char *text, u32 length);
// Frees `old` unless it is 0, and returns a copy of `text`, which may lie in `old`.
char *utf8_replace_string_debug(const char *filename, int line, char *old, const char *text);

#define utf8_alloc_copy(text) ::findwright::utf8_alloc_copy_debug(__FILE__, __LINE__, (text))
#define utf8_alloc_copy_length(text, length)                                                                 \
    ::findwright::utf8_alloc_copy_length_debug(__FILE__, __LINE__, (text), (length))
#define utf8_replace_string(old, text)                                                                       \
    ::findwright::utf8_replace_string_debug(__FILE__, __LINE__, (old), (text))

} // namespace findwright
